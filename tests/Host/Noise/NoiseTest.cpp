#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "Host/Noise/T4dVectorNoise.h"

namespace {

// Samples spread over the whole period so that they are practically independent.
struct Sampler {
    std::mt19937 gen{12345};
    std::uniform_real_distribution<float> pos{0.0f, 256.0f};
    float next() { return pos(gen); }
};

TEST(T4dVectorNoise, SameArgumentsGiveSameBytes) {
    Sampler s;
    for (int i = 0; i < 1000; ++i) {
        const float x = s.next(), y = s.next(), z = s.next(), t = s.next();
        const TnoiseVector a = T4dVectorNoise::getNoiseSmoothTime(x, y, z, t);
        const TnoiseVector b = T4dVectorNoise::getNoiseSmoothTime(x, y, z, t);
        EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
        const float p[3] = {x, y, z};
        const TnoiseVector c = T4dVectorNoise::getNoiseSmoothTime(p, t);
        EXPECT_EQ(std::memcmp(&a, &c, sizeof a), 0);
        const TnoiseVector d = T4dVectorNoise::getNoiseSmooth(p, t);
        const TnoiseVector e = T4dVectorNoise::getNoiseSmooth(x, y, z, t);
        EXPECT_EQ(std::memcmp(&d, &e, sizeof d), 0);
    }
}

TEST(T4dVectorNoise, RangeMeanAndIndependentComponents) {
    Sampler s;
    const int n = 200000;
    double sum[3] = {0, 0, 0}, sq[3] = {0, 0, 0}, cross = 0;
    float lo = 0, hi = 0;
    for (int i = 0; i < n; ++i) {
        const TnoiseVector v = T4dVectorNoise::getNoiseSmoothTime(s.next(), s.next(), s.next(), s.next());
        for (int c = 0; c < 3; ++c) {
            sum[c] += v[c];
            sq[c] += double(v[c]) * v[c];
            lo = std::min(lo, v[c]);
            hi = std::max(hi, v[c]);
        }
        cross += double(v.x) * v.y;
    }
    EXPECT_GE(lo, -1.0f);
    EXPECT_LE(hi, 1.0f);
    // A usable amplitude: the extremes reach well past half the range.
    EXPECT_LT(lo, -0.5f);
    EXPECT_GT(hi, 0.5f);
    for (int c = 0; c < 3; ++c) {
        const double mean = sum[c] / n, rms = std::sqrt(sq[c] / n);
        // rms is about 0.22, so the standard error of the mean is about 0.0005; 0.005 is ten of them.
        EXPECT_NEAR(mean, 0.0, 0.005) << "component " << c;
        EXPECT_GT(rms, 0.15) << "component " << c;
        EXPECT_LT(rms, 0.35) << "component " << c;
    }
    // The components are separate fields, not copies: their correlation is near zero.
    const double corr = (cross / n) / std::sqrt((sq[0] / n) * (sq[1] / n));
    EXPECT_LT(std::fabs(corr), 0.02);
}

TEST(T4dVectorNoise, SmoothAcrossLatticeCells) {
    // Gradient noise vanishes on the lattice (the first component is not offset).
    EXPECT_EQ(T4dVectorNoise::component(0, 3, 7, 250, 11), 0.0);

    // On each axis, across a cell face of the unshifted component (the others are the same function
    // moved): value and first derivative agree from both sides.
    const double base[4] = {12.3, 45.6, 78.9, 1.7};
    const double h = 1e-5;
    for (int axis = 0; axis < 4; ++axis) {
        for (double face : {1.0, 200.0}) {
            double p[4] = {base[0], base[1], base[2], base[3]};
            p[axis] = face;
            auto f = [&](double d) {
                double q[4] = {p[0], p[1], p[2], p[3]};
                q[axis] += d;
                return T4dVectorNoise::component(0, q[0], q[1], q[2], q[3]);
            };
            const double f0 = f(0), fm = f(-h), fp = f(h);
            SCOPED_TRACE(testing::Message() << "axis " << axis << " face " << face);
            // |gradient| is a few units, so one step moves the value by well under 1e-4.
            EXPECT_NEAR(fp, f0, 1e-4);
            EXPECT_NEAR(fm, f0, 1e-4);
            // One-sided slopes differ by O(h * second derivative) when the slope is continuous; a kink
            // (a linear blend, a wrong corner) would differ by order 0.1 to 1.
            EXPECT_NEAR((fp - f0) / h, (f0 - fm) / h, 1e-2);
        }
    }
}

TEST(T4dVectorNoise, RepeatsEveryPeriod) {
    Sampler s;
    for (int i = 0; i < 200; ++i) {
        // Multiples of 1/1024 so that shifting by whole periods stays exact in single precision; the
        // per-component offsets still round in double, hence a few-ulp comparison.
        auto q = [&s] { return std::round(s.next() * 1024.0f) / 1024.0f; };
        const float x = q(), y = q(), z = q(), t = q();
        const float P = T4dVectorNoise::kPeriod;
        const TnoiseVector a = T4dVectorNoise::getNoiseSmoothTime(x, y, z, t);
        const TnoiseVector b = T4dVectorNoise::getNoiseSmoothTime(x - P, y + P, z - 2 * P, t + P);
        EXPECT_FLOAT_EQ(a.x, b.x);
        EXPECT_FLOAT_EQ(a.y, b.y);
        EXPECT_FLOAT_EQ(a.z, b.z);
    }
}

TEST(T4dVectorNoise, TimeMovesOnlyTheMovingField) {
    Sampler s;
    int changed = 0;
    const int n = 500;
    for (int i = 0; i < n; ++i) {
        const float x = s.next(), y = s.next(), z = s.next();
        const TnoiseVector a = T4dVectorNoise::getNoiseSmoothTime(x, y, z, 0.25f);
        const TnoiseVector b = T4dVectorNoise::getNoiseSmoothTime(x, y, z, 0.75f);
        if (std::fabs(a.x - b.x) + std::fabs(a.y - b.y) + std::fabs(a.z - b.z) > 1e-3f) ++changed;

        // The still field ignores time and is the moving field frozen at time 0.
        const TnoiseVector still = T4dVectorNoise::getNoiseSmooth(x, y, z, 0.75f);
        const TnoiseVector atZero = T4dVectorNoise::getNoiseSmoothTime(x, y, z, 0.0f);
        EXPECT_EQ(still.x, atZero.x);
        EXPECT_EQ(still.y, atZero.y);
        EXPECT_EQ(still.z, atZero.z);
    }
    EXPECT_GT(changed, n * 9 / 10);

    // Small time steps give small changes (the field moves smoothly).
    const TnoiseVector a = T4dVectorNoise::getNoiseSmoothTime(1.5f, 2.5f, 3.5f, 10.0f);
    const TnoiseVector b = T4dVectorNoise::getNoiseSmoothTime(1.5f, 2.5f, 3.5f, 10.001f);
    EXPECT_NEAR(a.x, b.x, 1e-2);
    EXPECT_NEAR(a.z, b.z, 1e-2);
}

TEST(T4dVectorNoise, NonFiniteInputGivesZeroAndVectorConversion) {
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    const TnoiseVector a = T4dVectorNoise::getNoiseSmoothTime(nan, 1, 2, 3);
    const TnoiseVector b = T4dVectorNoise::getNoiseSmooth(1, inf, 2, 0);
    EXPECT_EQ(T4dDblVector(a), T4dDblVector());
    EXPECT_EQ(b.asVector(), T4dDblVector());

    const TnoiseVector v = T4dVectorNoise::getNoiseSmoothTime(0.3f, 0.6f, 0.9f, 1.2f);
    const T4dDblVector d = v;
    EXPECT_EQ(d.x, double(v.x));
    EXPECT_EQ(d.y, double(v.y));
    EXPECT_EQ(d.z, double(v.z));
    // Huge but finite coordinates still land on the lattice without overflow.
    const TnoiseVector far = T4dVectorNoise::getNoiseSmoothTime(3e30f, -3e30f, 1e20f, 5e25f);
    EXPECT_TRUE(std::isfinite(far.x) && std::isfinite(far.y) && std::isfinite(far.z));
}

} // namespace
