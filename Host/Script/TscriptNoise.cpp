// The noise of the language: gradient noise on an integer lattice, smooth
// (quintic fade) and the same on every run and machine.

#include "Host/Script/TscriptEvaluator.h"

#include <array>
#include <cmath>
#include <cstdint>

namespace {

// A fixed shuffle of 0..255, made once from a fixed seed, doubled so that
// perm[i + j] needs no wrap.
const std::array<std::uint8_t, 512>& perm() {
    static const std::array<std::uint8_t, 512> table = [] {
        std::array<std::uint8_t, 512> p{};
        for (int i = 0; i < 256; ++i)
            p[i] = static_cast<std::uint8_t>(i);
        std::uint32_t state = 0x9e3779b9u;
        for (int i = 255; i > 0; --i) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            int j = static_cast<int>(state % static_cast<std::uint32_t>(i + 1));
            std::swap(p[i], p[j]);
        }
        for (int i = 0; i < 256; ++i)
            p[256 + i] = p[i];
        return p;
    }();
    return table;
}

double fade(double t) {
    return t * t * t * (t * (t * 6.0 - 15.0) + 10.0);
}
double lerp(double t, double a, double b) {
    return a + t * (b - a);
}

// Lattice cell of x in 0..255 and the offset within the cell; false when x
// is not finite.
bool cell(double x, int& i, double& f) {
    if (!std::isfinite(x)) return false;
    double fl = std::floor(x);
    f = x - fl;
    double m = std::fmod(fl, 256.0);
    if (m < 0) m += 256.0;
    i = static_cast<int>(m);
    return true;
}

double grad3(int hash, double x, double y, double z) {
    // The twelve edge directions of a cube (four repeated to make sixteen).
    switch (hash & 15) {
    case 0:
        return x + y;
    case 1:
        return -x + y;
    case 2:
        return x - y;
    case 3:
        return -x - y;
    case 4:
        return x + z;
    case 5:
        return -x + z;
    case 6:
        return x - z;
    case 7:
        return -x - z;
    case 8:
        return y + z;
    case 9:
        return -y + z;
    case 10:
        return y - z;
    case 11:
        return -y - z;
    case 12:
        return x + y;
    case 13:
        return -y + z;
    case 14:
        return -x + y;
    default:
        return -y - z;
    }
}

double clamp1(double v) {
    return v < -1.0 ? -1.0 : v > 1.0 ? 1.0 : v;
}

} // namespace

double scriptNoise1(double x) {
    int i;
    double f;
    if (!cell(x, i, f)) return 0.0;
    const auto& p = perm();
    // Slopes in [-1, 1] at the two lattice points.
    double g0 = p[i] / 127.5 - 1.0, g1 = p[i + 1] / 127.5 - 1.0;
    // The largest value, 0.5, is at mid-cell with opposite slopes of size 1.
    return clamp1(2.0 * lerp(fade(f), g0 * f, g1 * (f - 1.0)));
}

double scriptNoise3(double x, double y, double z) {
    int X, Y, Z;
    double fx, fy, fz;
    if (!cell(x, X, fx) || !cell(y, Y, fy) || !cell(z, Z, fz)) return 0.0;
    const auto& p = perm();
    double u = fade(fx), v = fade(fy), w = fade(fz);
    int A = p[X] + Y, AA = p[A] + Z, AB = p[A + 1] + Z;
    int B = p[X + 1] + Y, BA = p[B] + Z, BB = p[B + 1] + Z;
    double r =
        lerp(w,
             lerp(v, lerp(u, grad3(p[AA], fx, fy, fz), grad3(p[BA], fx - 1, fy, fz)),
                  lerp(u, grad3(p[AB], fx, fy - 1, fz), grad3(p[BB], fx - 1, fy - 1, fz))),
             lerp(v, lerp(u, grad3(p[AA + 1], fx, fy, fz - 1), grad3(p[BA + 1], fx - 1, fy, fz - 1)),
                  lerp(u, grad3(p[AB + 1], fx, fy - 1, fz - 1), grad3(p[BB + 1], fx - 1, fy - 1, fz - 1))));
    return clamp1(r);
}
