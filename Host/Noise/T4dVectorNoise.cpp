#include "Host/Noise/T4dVectorNoise.h"

#include <array>
#include <cmath>
#include <cstdint>

namespace {

// Fisher-Yates over 0..255 driven by a fixed linear congruential sequence, doubled so that sums of a
// lattice index and a hash never need a wrap.
constexpr std::array<std::uint8_t, 512> makePermutation() {
    std::array<std::uint8_t, 256> p{};
    for (int i = 0; i < 256; ++i)
        p[i] = static_cast<std::uint8_t>(i);
    std::uint32_t s = 0x4D6F7469u;
    for (int i = 255; i > 0; --i) {
        s = s * 1664525u + 1013904223u;
        const int j = static_cast<int>((s >> 8) % static_cast<std::uint32_t>(i + 1));
        const std::uint8_t t = p[i];
        p[i] = p[j];
        p[j] = t;
    }
    std::array<std::uint8_t, 512> out{};
    for (int i = 0; i < 512; ++i)
        out[i] = p[i & 255];
    return out;
}

constexpr std::array<std::uint8_t, 512> kPerm = makePermutation();

// The 32 edge midpoints of the 4D hypercube: one zero component, the others +-1.
constexpr signed char kGrad[32][4] = {
    {0, 1, 1, 1},   {0, 1, 1, -1},   {0, 1, -1, 1},  {0, 1, -1, -1},  {0, -1, 1, 1},  {0, -1, 1, -1},
    {0, -1, -1, 1}, {0, -1, -1, -1}, {1, 0, 1, 1},   {1, 0, 1, -1},   {1, 0, -1, 1},  {1, 0, -1, -1},
    {-1, 0, 1, 1},  {-1, 0, 1, -1},  {-1, 0, -1, 1}, {-1, 0, -1, -1}, {1, 1, 0, 1},   {1, 1, 0, -1},
    {1, -1, 0, 1},  {1, -1, 0, -1},  {-1, 1, 0, 1},  {-1, 1, 0, -1},  {-1, -1, 0, 1}, {-1, -1, 0, -1},
    {1, 1, 1, 0},   {1, 1, -1, 0},   {1, -1, 1, 0},  {1, -1, -1, 0},  {-1, 1, 1, 0},  {-1, 1, -1, 0},
    {-1, -1, 1, 0}, {-1, -1, -1, 0}};

// Lattice offsets that make the three components independent fields. Time is not offset, so the still
// field is exactly the moving one at time 0.
constexpr double kOffset[3][3] = {{0, 0, 0}, {31.416, 17.723, 53.117}, {71.819, 43.271, 5.593}};

// Scales the raw gradient sum into [-1, 1]: searching for extremes found none beyond about +-1.28, so the
// result peaks near +-0.96.
constexpr double kScale = 0.75;

inline double fade(double t) {
    return t * t * t * (t * (t * 6 - 15) + 10);
}
inline double lerp(double t, double a, double b) {
    return a + t * (b - a);
}

inline double dotGrad(int h, double x, double y, double z, double w) {
    const signed char* g = kGrad[h & 31];
    return g[0] * x + g[1] * y + g[2] * z + g[3] * w;
}

// Lattice cell (wrapped to the period) and the fraction inside it.
inline void split(double v, int& cell, double& frac) {
    const double f = std::floor(v);
    frac = v - f;
    cell = static_cast<int>(f - 256.0 * std::floor(f / 256.0)) & 255;
}

double noise4(double x, double y, double z, double w, bool still) {
    int ix, iy, iz, iw;
    double fx, fy, fz, fw;
    split(x, ix, fx);
    split(y, iy, fy);
    split(z, iz, fz);
    split(w, iw, fw);
    const double u = fade(fx), v = fade(fy), s = fade(fz), r = fade(fw);

    // Corner values for the w layers; the still field needs only the first (its w fraction is 0).
    double layer[2];
    const int layers = still ? 1 : 2;
    for (int lw = 0; lw < layers; ++lw) {
        const int hw = kPerm[iw + lw];
        const double dw = fw - lw;
        double zs[2];
        for (int lz = 0; lz < 2; ++lz) {
            const int hz = kPerm[hw + ((iz + lz) & 255)];
            const double dz = fz - lz;
            double ys[2];
            for (int ly = 0; ly < 2; ++ly) {
                const int hy = kPerm[hz + ((iy + ly) & 255)];
                const double dy = fy - ly;
                const double a = dotGrad(kPerm[hy + ix], fx, dy, dz, dw);
                const double b = dotGrad(kPerm[hy + ((ix + 1) & 255)], fx - 1, dy, dz, dw);
                ys[ly] = lerp(u, a, b);
            }
            zs[lz] = lerp(v, ys[0], ys[1]);
        }
        layer[lw] = lerp(s, zs[0], zs[1]);
    }
    const double n = still ? layer[0] : lerp(r, layer[0], layer[1]);
    return n * kScale;
}

TnoiseVector evaluate(float x, float y, float z, float t, bool still) {
    if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(z) || !std::isfinite(t)) return {};
    const double w = still ? 0.0 : static_cast<double>(t);
    float out[3];
    for (int c = 0; c < 3; ++c)
        out[c] =
            static_cast<float>(noise4(x + kOffset[c][0], y + kOffset[c][1], z + kOffset[c][2], w, still));
    return {out[0], out[1], out[2]};
}

} // namespace

TnoiseVector T4dVectorNoise::getNoiseSmoothTime(float x, float y, float z, float t) {
    return evaluate(x, y, z, t, false);
}

TnoiseVector T4dVectorNoise::getNoiseSmooth(float x, float y, float z, float t) {
    return evaluate(x, y, z, t, true);
}

double T4dVectorNoise::component(int which, double x, double y, double z, double w) {
    if (which < 0 || which > 2 || !std::isfinite(x) || !std::isfinite(y) || !std::isfinite(z) ||
        !std::isfinite(w))
        return 0;
    return noise4(x + kOffset[which][0], y + kOffset[which][1], z + kOffset[which][2], w, false);
}
