#pragma once

#include "Host/Math/T4dDblVector.h"

// Three floats returned by the noise.
struct TnoiseVector {
    float x = 0, y = 0, z = 0;

    float operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
    operator T4dDblVector() const { return {x, y, z}; }
    T4dDblVector asVector() const { return {x, y, z}; }
};

// Smooth vector noise of a point and a time: gradient noise on a 4D lattice with a fixed permutation, so
// it repeats every 256 units on each axis and gives the same bytes on every run. Each component is an
// independent field (the lattice is offset per component) with values around zero, within [-1, 1]; the
// quintic blend makes it twice continuously differentiable.
class T4dVectorNoise {
public:
    static constexpr int kPeriod = 256;

    // Moving field: time is the fourth lattice coordinate.
    static TnoiseVector getNoiseSmoothTime(float x, float y, float z, float t);
    static TnoiseVector getNoiseSmoothTime(const float p[3], float t) {
        return getNoiseSmoothTime(p[0], p[1], p[2], t);
    }

    // Still field: the moving field frozen at time 0, whatever t is, so that switching from a still to a
    // moving field at time 0 does not jump. Cheaper: half the lattice corners.
    static TnoiseVector getNoiseSmooth(float x, float y, float z, float t);
    static TnoiseVector getNoiseSmooth(const float p[3], float t) {
        return getNoiseSmooth(p[0], p[1], p[2], t);
    }

    // One scalar component (0, 1 or 2) in double precision, for tests and tools.
    static double component(int which, double x, double y, double z, double w);
};
