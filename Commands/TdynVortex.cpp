#include "Commands/TdynVortex.h"

#include <cmath>
#include <limits>

TDEFINE_NODE(TdynVortex, TdnVSTdynVortex, TdynField, "vortexField", "YVOR")

namespace {
const char* const kAxisNames[] = {"axisX", "axisY", "axisZ"};
const char* const kAxisShort[] = {"axx", "axy", "axz"};
// The single-precision value of 1e-5: shorter steps give no force.
constexpr double kShortestStep = 9.999999747378752e-06;
} // namespace

TdnVSTdynVortex::TdnVSTdynVortex() : axis("axis", "ax", makeIffTag("AXIS"), kAxisNames, kAxisShort) {}

void TdnVSTdynVortex::appendAttributes(TattributeList& list) {
    TdnVSTdynField::appendAttributes(list);
    list.addAttribute(&axis);
}

bool TdynVortex::apply(TdynPointReceptor& r, int, bool useReceptorDeltaTime) {
    TdynFieldFrame f;
    if (!prepareFrame(f)) return false;
    const double angle = f.magnitude * 0.01;
    const T4dDblVector ax = lawBlock().inputValue(&sVsData()->axis).asVector().normal();
    const double dt = lawDeltaTime(r, useReceptorDeltaTime);
    if (dt < kShortestStep) return true;
    // Keeps (rotated - rel) / dt finite.
    const double B = std::numeric_limits<double>::max() * (dt < 1 ? dt : 1);
    // A negative magnitude turns the same way; only the displacement's sign flips.
    const double inv = angle < 0 ? 1 / -dt : 1 / dt;
    const double x = ax.x, y = ax.y, z = ax.z;
    const T4dDblVector* src = f.sources.data();
    const int ns = static_cast<int>(f.sources.length());
    const double a = f.attenuation, R = f.maxDistance, R2 = f.reachSquared();

    auto turn = [&](const T4dDblVector& rel, double c, double sn, double q) {
        const T4dDblVector rot{(x * x * q + c) * rel.x + (x * y * q - sn * z) * rel.y + (x * z * q + y * sn) * rel.z,
                               (x * y * q + sn * z) * rel.x + (y * y * q + c) * rel.y + (y * z * q - x * sn) * rel.z,
                               (x * z * q - y * sn) * rel.x + (y * z * q + x * sn) * rel.y + (z * z * q + c) * rel.z};
        return (rot - rel) * inv;
    };
    auto bounded = [B](const T4dDblVector& rel) {
        return std::fabs(rel.x) <= B && std::fabs(rel.y) <= B && std::fabs(rel.z) <= B;
    };
    const double c0 = std::cos(angle), sn0 = std::sqrt(1 - c0 * c0), q0 = 1 - c0;
    return dispatchFieldLoop(f.useMaxDistance, a > 0, [&]<bool kUseMax, bool kAtten>() {
        for (int i = static_cast<int>(r.count()) - 1; i >= 0; --i) {
            const T4dDblVector p = r.position(i);
            for (int s = ns - 1; s >= 0; --s) {
                const T4dDblVector rel = p - src[s];
                if constexpr (kAtten) {
                    const double d = rel.length();
                    if (kUseMax && d > R) continue;
                    if (!f.inVolume(p) || !bounded(rel)) continue;
                    const double c = std::cos(angle / std::pow(1 + d, a));
                    r.addForce(i, turn(rel, c, std::sqrt(1 - c * c), 1 - c));
                } else {
                    if (kUseMax && rel.lengthSquared() > R2) continue;
                    if (!f.inVolume(p) || !bounded(rel)) continue;
                    r.addForce(i, turn(rel, c0, sn0, q0));
                }
            }
        }
        return true;
    });
}
