#include "Commands/Fields/TdynTurbulence.h"

#include <cmath>

TDEFINE_NODE(TdynTurbulence, TdnVSTdynTurbulence, TdynField, "turbulenceField", "YTUR")

TdnVSTdynTurbulence::TdnVSTdynTurbulence()
    : frequency("frequency", "frq", makeIffTag("TFRQ")), phaseX("phaseX", "phx", makeIffTag("TPHS")),
      phaseY("phaseY", "phy", makeIffTag("TPHS")), phaseZ("phaseZ", "phz", makeIffTag("TPHS")),
      noiseLevel("noiseLevel", "nslv", makeIffTag("NSLE")),
      noiseRatio("noiseRatio", "nsrt", makeIffTag("NSRT")),
      interpolationType("interpolationType", "intr", makeIffTag("INTR")) {
    frequency.setNativeDefaultData(1);
    noiseRatio.setNativeDefaultData(0.707);
    interpolationType.addField("linear", 0);
    interpolationType.addField("quadratic", 1);
}

void TdnVSTdynTurbulence::appendAttributes(TattributeList& list) {
    TdnVSTdynField::appendAttributes(list);
    for (Tattribute* a : std::initializer_list<Tattribute*>{&frequency, &phaseX, &phaseY, &phaseZ,
                                                            &noiseLevel, &noiseRatio, &interpolationType})
        list.addAttribute(a);
}

namespace {
constexpr std::uint32_t kMul[3][3] = {{67, 59, 71}, {73, 79, 83}, {89, 97, 101}};

// Lattice coordinate of a double, wrapped to 32 bits the way the hash sees it.
inline std::uint32_t cell(double v) {
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(std::floor(v)));
}

inline double hashValue(std::uint32_t ix, std::uint32_t iy, std::uint32_t iz, int c) {
    std::uint32_t n = kMul[c][0] * ix + kMul[c][1] * iy + kMul[c][2] * iz;
    n = (n << 13) ^ n;
    const std::uint32_t h = (n * n * n * 15731u + n * 789221u + 1376312589u) & 0x7fffffffu;
    return 1.0 + h * -9.313225746154785e-10;
}

inline double parabola(double a0, double a1, double a2, double t) {
    return a1 + t * (a2 - a0) * 0.5 + t * t * (a0 + a2 - 2 * a1) * 0.5;
}
} // namespace

double TdynTurbulence::latticeValue(std::int32_t ix, std::int32_t iy, std::int32_t iz, int component) {
    return hashValue(static_cast<std::uint32_t>(ix), static_cast<std::uint32_t>(iy),
                     static_cast<std::uint32_t>(iz), component);
}

T4dDblVector TdynTurbulence::noiseLinear(const T4dDblVector& q) {
    const double fx0 = std::floor(q.x), fy0 = std::floor(q.y), fz0 = std::floor(q.z);
    const std::uint32_t ix = cell(q.x), iy = cell(q.y), iz = cell(q.z);
    const double fx = q.x - fx0, fy = q.y - fy0, fz = q.z - fz0;
    T4dDblVector out;
    for (int c = 0; c < 3; ++c) {
        double v[2][2][2];
        for (int k = 0; k < 2; ++k)
            for (int j = 0; j < 2; ++j)
                for (int i = 0; i < 2; ++i)
                    v[k][j][i] = hashValue(ix + i, iy + j, iz + k, c);
        double yz[2][2];
        for (int k = 0; k < 2; ++k)
            for (int j = 0; j < 2; ++j)
                yz[k][j] = v[k][j][0] + fx * (v[k][j][1] - v[k][j][0]);
        const double z0 = yz[0][0] + fy * (yz[0][1] - yz[0][0]);
        const double z1 = yz[1][0] + fy * (yz[1][1] - yz[1][0]);
        out[c] = z0 + fz * (z1 - z0);
    }
    return out;
}

T4dDblVector TdynTurbulence::noiseQuadratic(const T4dDblVector& q) {
    const double tx = q.x - std::floor(q.x), ty = q.y - std::floor(q.y), tz = q.z - std::floor(q.z);
    const std::uint32_t ix = cell(q.x), iy = cell(q.y), iz = cell(q.z);
    T4dDblVector out;
    for (int c = 0; c < 3; ++c) {
        // 27 nodes on the stack, reduced along x, then y, then z.
        double alongY[3][3];
        for (int k = 0; k < 3; ++k)
            for (int j = 0; j < 3; ++j) {
                const std::uint32_t y = iy + j - 1, z = iz + k - 1;
                alongY[k][j] = parabola(hashValue(ix - 1, y, z, c), hashValue(ix, y, z, c),
                                        hashValue(ix + 1, y, z, c), tx);
            }
        double alongZ[3];
        for (int k = 0; k < 3; ++k)
            alongZ[k] = parabola(alongY[k][0], alongY[k][1], alongY[k][2], ty);
        out[c] = parabola(alongZ[0], alongZ[1], alongZ[2], tz);
    }
    return out;
}

T4dDblVector TdynTurbulence::fractalNoise(T4dDblVector q, int octaves, double ratio, int interpolation) {
    double A = 1;
    T4dDblVector sum;
    for (int o = 0; o < octaves; ++o) {
        sum += (interpolation == 1 ? noiseQuadratic(q) : noiseLinear(q)) * A;
        q *= 2;
        A *= ratio;
    }
    sum += (interpolation == 1 ? noiseQuadratic(q) : noiseLinear(q)) * A;
    return sum;
}

bool TdynTurbulence::apply(TdynPointReceptor& r, int, bool) {
    TdynFieldFrame f;
    if (!prepareFrame(f)) return false;
    auto* vs = sVsData();
    TdataBlock& block = lawBlock();
    const double freq = block.inputValue(&vs->frequency).asDouble();
    const T4dDblVector phase{block.inputValue(&vs->phaseX).asDouble(),
                             block.inputValue(&vs->phaseY).asDouble(),
                             block.inputValue(&vs->phaseZ).asDouble()};
    const int octaves = block.inputValue(&vs->noiseLevel).asInt();
    const double ratio = block.inputValue(&vs->noiseRatio).asDouble();
    const int interpolation = block.inputValue(&vs->interpolationType).asInt();
    const T4dDblVector* src = f.sources.data();
    const int ns = static_cast<int>(f.sources.length());
    const double a = f.attenuation, R = f.maxDistance, R2 = f.reachSquared(), mag = f.magnitude;
    constexpr double kLimit = 2147483647.0;
    // The lattice works on 32-bit integers: points beyond it give no force.
    auto onLattice = [](const T4dDblVector& q) {
        return q.x >= -kLimit && q.x <= kLimit && q.y >= -kLimit && q.y <= kLimit && q.z >= -kLimit &&
               q.z <= kLimit;
    };
    return dispatchFieldLoop(f.useMaxDistance, a > 0, [=, &r, &f]<bool kUseMax, bool kAtten>() {
        for (int i = static_cast<int>(r.count()) - 1; i >= 0; --i) {
            const T4dDblVector p = r.position(i);
            if (!f.inVolume(p)) continue;
            for (int s = ns - 1; s >= 0; --s) {
                const T4dDblVector rel = p - src[s];
                double d = 0;
                if constexpr (kAtten) {
                    d = rel.length();
                    if (kUseMax && d > R) continue;
                } else {
                    if (kUseMax && rel.lengthSquared() > R2) continue;
                }
                const T4dDblVector q = (rel + phase) * freq;
                if (!onLattice(q)) continue;
                T4dDblVector force = fractalNoise(q, octaves, ratio, interpolation) * mag;
                if constexpr (kAtten) force /= fieldPower(1 + d, a);
                r.addForce(i, force);
            }
        }
        return true;
    });
}
