#include "Fluids/Core/TvelocityTurbulence.h"

#include <cstdlib>

void TvelocityTurbulence::create(unsigned cells, unsigned res) {
    setSize(cells, res);
    setSomeRandomValues();
    created_ = true;
}

void TvelocityTurbulence::setSize(unsigned cells, unsigned res) {
    cells_ = cells;
    res_ = res;
    offsets_ = newInt32Array(cells);
    x_ = newFloatArray(res);
    y_ = newFloatArray(res);
    z_ = newFloatArray(res);
}

void TvelocityTurbulence::reset() {
    created_ = false;
    cells_ = res_ = 0;
    offsets_.clear();
    x_.clear();
    y_.clear();
    z_.clear();
}

void TvelocityTurbulence::setSomeRandomValues() {
    for (unsigned i = 0; i < res_; ++i) {
        x_[i] = float(0.5 - drand48());
        y_[i] = float(0.5 - drand48());
        z_[i] = float(0.5 - drand48());
    }
}
