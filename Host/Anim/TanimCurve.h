#pragma once

#include <vector>

// How a key's curve leaves (out) or enters (in) it.
enum class TtangentType {
    kLinear,  // straight line towards the neighbouring key
    kSmooth,  // slope from both neighbours (Catmull-Rom), flat at the first and last key
    kStepped, // hold the value until the next key
};

struct TanimKey {
    double time = 0; // seconds
    double value = 0;
    TtangentType inTangent = TtangentType::kSmooth;
    TtangentType outTangent = TtangentType::kSmooth;
};

// A keyframe curve: value as a function of time in seconds, constant before the first and after the last
// key. Keys are kept sorted by time.
class TanimCurve {
public:
    // Keys closer than this (seconds, far below one 1/6000 s tick) are the same key.
    static constexpr double kTimeTolerance = 1e-6;

    // Adds a key, or replaces the one at the same time. Returns its index. Throws std::invalid_argument
    // for a time or value that is not a finite number.
    int setKey(double time, double value, TtangentType inTangent, TtangentType outTangent);
    int setKey(double time, double value, TtangentType both = TtangentType::kSmooth) {
        return setKey(time, value, both, both);
    }
    // False when there is no such key.
    bool removeKey(int index);
    bool removeKeyAtTime(double time);
    void clear() { keys_.clear(); }

    int keyCount() const { return static_cast<int>(keys_.size()); }
    bool isEmpty() const { return keys_.empty(); }
    const TanimKey& key(int index) const { return keys_.at(static_cast<std::size_t>(index)); }
    const std::vector<TanimKey>& keys() const { return keys_; }
    // Index of the key at this time, or -1.
    int findKey(double time) const;
    // Changes the tangent types of a key; false when there is no such key.
    bool setTangentTypes(int index, TtangentType inTangent, TtangentType outTangent);

    // 0 for an empty curve.
    double evaluate(double time) const;

    // Slopes (value per second) the curve has arriving at and leaving key `index`.
    double inSlope(int index) const;
    double outSlope(int index) const;

private:
    double smoothSlope(std::size_t i) const;
    std::vector<TanimKey> keys_;
};
