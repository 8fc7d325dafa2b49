#pragma once
// Precomputed random table for the fluid's internal turbulence: a phase offset
// per cell and `res` random vectors that the pushes cycle through.
#include <cstdint>
#include <vector>

class TvelocityTurbulence {
public:
    // Sizes the table and fills it from the host's random stream.
    void create(unsigned cells, unsigned res);
    void setSize(unsigned cells, unsigned res);
    void resample(unsigned cells, unsigned res) { setSize(cells, res); }
    void reset();
    void clear() {}
    // Each entry 0.5 - drand48(), x then y then z per index.
    void setSomeRandomValues();

    bool created() const { return created_; }
    unsigned cells() const { return cells_; }
    unsigned res() const { return res_; }
    const int32_t* offsets() const { return offsets_.empty() ? nullptr : offsets_.data(); }
    const float* x() const { return x_.empty() ? nullptr : x_.data(); }
    const float* y() const { return y_.empty() ? nullptr : y_.data(); }
    const float* z() const { return z_.empty() ? nullptr : z_.data(); }

protected:
    static std::vector<float> newFloatArray(unsigned count) { return std::vector<float>(count, 0.0f); }
    static std::vector<int32_t> newInt32Array(unsigned count) { return std::vector<int32_t>(count, 0); }

private:
    bool created_ = false;
    unsigned cells_ = 0, res_ = 0;
    std::vector<int32_t> offsets_;
    std::vector<float> x_, y_, z_;
};
