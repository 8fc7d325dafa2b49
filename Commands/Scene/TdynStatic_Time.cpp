// The frame grid of TdynStatic.

#include "Commands/Scene/TdynStatic.h"

#include <cmath>
#include <cstdlib>

TanimTime TdynStatic::nextFrameBoundary(TanimTime t, int oversample) {
    if (oversample < 1) oversample = 1;
    const std::int64_t step = TanimTime(1.0, kCurrentFrameUnit).ticks() / oversample;
    const double stepSeconds = TanimTime::fromTicks(step).seconds();
    double whole = 0;
    double f = std::modf(t.seconds() / stepSeconds, &whole);
    if (std::fabs(f - 1.0) <= 1e-10) f = 0;
    // The fraction of a step is read as a fraction of a frame on purpose; with
    // oversampling the result differs from the sub-step grid, and stays so.
    const double r = TanimTime(f, kCurrentFrameUnit).seconds();
    if (std::fabs(r) <= 1e-10) return t;
    if (r < 0) return t + TanimTime(std::fabs(r), kSeconds);
    return t - TanimTime(r, kSeconds) + TanimTime::fromTicks(step);
}
