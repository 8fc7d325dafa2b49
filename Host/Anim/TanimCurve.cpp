#include "Host/Anim/TanimCurve.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace {

std::string numberText(double v) {
    return std::to_string(v);
}

} // namespace

int TanimCurve::findKey(double time) const {
    auto it = std::lower_bound(keys_.begin(), keys_.end(), time - kTimeTolerance,
                               [](const TanimKey& k, double t) { return k.time < t; });
    if (it != keys_.end() && std::fabs(it->time - time) <= kTimeTolerance)
        return static_cast<int>(it - keys_.begin());
    return -1;
}

int TanimCurve::setKey(double time, double value, TtangentType inTangent, TtangentType outTangent) {
    if (!std::isfinite(time))
        throw std::invalid_argument("animation curve key: the time " + numberText(time) +
                                    " is not a finite number");
    if (!std::isfinite(value))
        throw std::invalid_argument("animation curve key at time " + numberText(time) + ": the value " +
                                    numberText(value) + " is not a finite number");
    const TanimKey k{time, value, inTangent, outTangent};
    if (const int found = findKey(time); found >= 0) {
        // The replaced key keeps its exact time so the order cannot change.
        keys_[static_cast<std::size_t>(found)] =
            TanimKey{keys_[static_cast<std::size_t>(found)].time, value, inTangent, outTangent};
        return found;
    }
    auto it = std::upper_bound(keys_.begin(), keys_.end(), time,
                               [](double t, const TanimKey& key) { return t < key.time; });
    const auto pos = it - keys_.begin();
    keys_.insert(it, k);
    return static_cast<int>(pos);
}

bool TanimCurve::removeKey(int index) {
    if (index < 0 || index >= keyCount()) return false;
    keys_.erase(keys_.begin() + index);
    return true;
}

bool TanimCurve::removeKeyAtTime(double time) {
    return removeKey(findKey(time));
}

bool TanimCurve::setTangentTypes(int index, TtangentType inTangent, TtangentType outTangent) {
    if (index < 0 || index >= keyCount()) return false;
    keys_[static_cast<std::size_t>(index)].inTangent = inTangent;
    keys_[static_cast<std::size_t>(index)].outTangent = outTangent;
    return true;
}

// Catmull-Rom over uneven spacing: the chord between the two neighbours. Flat at the ends so that the
// curve settles into the constant value held outside the keys.
double TanimCurve::smoothSlope(std::size_t i) const {
    if (i == 0 || i + 1 >= keys_.size()) return 0;
    return (keys_[i + 1].value - keys_[i - 1].value) / (keys_[i + 1].time - keys_[i - 1].time);
}

double TanimCurve::inSlope(int index) const {
    if (index <= 0 || index >= keyCount()) return 0;
    const auto i = static_cast<std::size_t>(index);
    const TanimKey& a = keys_[i - 1];
    const TanimKey& b = keys_[i];
    if (a.outTangent == TtangentType::kStepped || b.inTangent == TtangentType::kStepped) return 0;
    if (b.inTangent == TtangentType::kLinear) return (b.value - a.value) / (b.time - a.time);
    return smoothSlope(i);
}

double TanimCurve::outSlope(int index) const {
    if (index < 0 || index + 1 >= keyCount()) return 0;
    const auto i = static_cast<std::size_t>(index);
    const TanimKey& a = keys_[i];
    const TanimKey& b = keys_[i + 1];
    if (a.outTangent == TtangentType::kStepped || b.inTangent == TtangentType::kStepped) return 0;
    if (a.outTangent == TtangentType::kLinear) return (b.value - a.value) / (b.time - a.time);
    return smoothSlope(i);
}

double TanimCurve::evaluate(double time) const {
    if (keys_.empty()) return 0;
    if (std::isnan(time)) return keys_.front().value;
    if (time <= keys_.front().time) return keys_.front().value;
    if (time >= keys_.back().time) return keys_.back().value;

    // First key after `time`; the segment starts one before it.
    const auto next = std::upper_bound(keys_.begin(), keys_.end(), time,
                                       [](double t, const TanimKey& key) { return t < key.time; });
    const std::size_t i = static_cast<std::size_t>(next - keys_.begin()) - 1;
    const TanimKey& a = keys_[i];
    const TanimKey& b = keys_[i + 1];
    // Either side stepped holds the value, as a user keying a pose expects.
    if (a.outTangent == TtangentType::kStepped || b.inTangent == TtangentType::kStepped) return a.value;

    const double h = b.time - a.time;
    const double s = (time - a.time) / h;
    if (a.outTangent == TtangentType::kLinear && b.inTangent == TtangentType::kLinear)
        return a.value + s * (b.value - a.value);

    // Cubic Hermite between the two keys.
    const double m0 = outSlope(static_cast<int>(i)) * h;
    const double m1 = inSlope(static_cast<int>(i + 1)) * h;
    const double s2 = s * s, s3 = s2 * s;
    return (2 * s3 - 3 * s2 + 1) * a.value + (s3 - 2 * s2 + s) * m0 + (-2 * s3 + 3 * s2) * b.value +
           (s3 - s2) * m1;
}
