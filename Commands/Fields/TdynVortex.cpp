#include "Commands/Fields/TdynVortex.h"

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

    // The turn as a matrix, rows giving the rotated x, y and z.
    struct Turn {
        double m[3][3];
    };
    auto makeTurn = [x, y, z](double c) {
        const double sn = std::sqrt(1 - c * c), q = 1 - c;
        return Turn{{{x * x * q + c, x * y * q - sn * z, x * z * q + y * sn},
                     {x * y * q + sn * z, y * y * q + c, y * z * q - x * sn},
                     {x * z * q - y * sn, y * z * q + x * sn, z * z * q + c}}};
    };
    auto displacement = [inv](const Turn& t, const T4dDblVector& rel) {
        const T4dDblVector rot{t.m[0][0] * rel.x + t.m[0][1] * rel.y + t.m[0][2] * rel.z,
                               t.m[1][0] * rel.x + t.m[1][1] * rel.y + t.m[1][2] * rel.z,
                               t.m[2][0] * rel.x + t.m[2][1] * rel.y + t.m[2][2] * rel.z};
        return (rot - rel) * inv;
    };
    auto bounded = [B](const T4dDblVector& rel) {
        return std::fabs(rel.x) <= B && std::fabs(rel.y) <= B && std::fabs(rel.z) <= B;
    };
    if (r.count() == 0) return true;
    // At attenuation 0 the cosine, and so the whole turn, is worked out once.
    const Turn fixed = makeTurn(std::cos(angle));
    return dispatchFieldLoop(f.useMaxDistance, a > 0, [=, &r, &f]<bool kUseMax, bool kAtten>() {
        // Locals, not members of this closure: the force stores cannot touch them, so they stay in registers.
        const Turn turn = fixed;
        const T4dDblVector* pos = &r.position(0);
        const int n = static_cast<int>(r.count());
        for (int i = n - 1; i >= 0; --i) {
            const T4dDblVector p = pos[i];
            for (int s = ns - 1; s >= 0; --s) {
                const T4dDblVector rel = p - src[s];
                if constexpr (kAtten) {
                    const double d = rel.length();
                    if (kUseMax && d > R) continue;
                    if (!f.inVolume(p) || !bounded(rel)) continue;
                    r.addForce(i, displacement(makeTurn(std::cos(angle / fieldPower(1 + d, a))), rel));
                } else {
                    if (kUseMax && rel.lengthSquared() > R2) continue;
                    if (!f.inVolume(p) || !bounded(rel)) continue;
                    r.addForce(i, displacement(turn, rel));
                }
            }
        }
        return true;
    });
}
