#include "Commands/Fields/TdynRadial.h"

#include <algorithm>
#include <cmath>

TDEFINE_NODE(TdynRadial, TdnVSTdynRadial, TdynField, "radialField", "YRAD")

TdnVSTdynRadial::TdnVSTdynRadial() : radialType("radialType", "typ", makeIffTag("TYPE")) {}

void TdnVSTdynRadial::appendAttributes(TattributeList& list) {
    TdnVSTdynField::appendAttributes(list);
    list.addAttribute(&radialType);
}

bool TdynRadial::apply(TdynPointReceptor& r, int, bool) {
    TdynFieldFrame f;
    if (!prepareFrame(f)) return false;
    if (f.magnitude == 0) return true;
    const double t = std::clamp(lawBlock().inputValue(&sVsData()->radialType).asDouble(), 0.0, 1.0);
    const T4dDblVector* src = f.sources.data();
    const int ns = static_cast<int>(f.sources.length());
    const int n = static_cast<int>(r.count());
    const double a = f.attenuation, R = f.maxDistance, R2 = f.reachSquared();

    if (t < 1) {
        // Part B: rel itself, scaled; with a reach, one add per source, fading to the edge.
        const double u = (1 - t) * f.magnitude;
        if (!f.useMaxDistance) {
            for (int i = n - 1; i >= 0; --i) {
                const T4dDblVector p = r.position(i);
                T4dDblVector sum;
                if (f.inVolume(p))
                    for (int s = ns - 1; s >= 0; --s)
                        sum += (p - src[s]) * u;
                r.addForce(i, sum);
            }
        } else if (a == 0) {
            for (int i = n - 1; i >= 0; --i) {
                const T4dDblVector p = r.position(i);
                for (int s = ns - 1; s >= 0; --s) {
                    const T4dDblVector rel = p - src[s];
                    if (rel.lengthSquared() > R2 || !f.inVolume(p)) continue;
                    r.addForce(i, rel * u);
                }
            }
        } else {
            for (int i = n - 1; i >= 0; --i) {
                const T4dDblVector p = r.position(i);
                for (int s = ns - 1; s >= 0; --s) {
                    const T4dDblVector rel = p - src[s];
                    const double d = rel.length();
                    if (d > R || !f.inVolume(p)) continue;
                    r.addForce(i, rel * (u * fieldPower(1 - d / R, a)));
                }
            }
        }
    }
    if (t > 0) {
        // Part A: rel with the common falloff.
        const double k = t * f.magnitude;
        dispatchFieldLoop(f.useMaxDistance, a > 0, [=, &r, &f]<bool kUseMax, bool kAtten>() {
            for (int i = n - 1; i >= 0; --i) {
                const T4dDblVector p = r.position(i);
                for (int s = ns - 1; s >= 0; --s) {
                    const T4dDblVector rel = p - src[s];
                    if constexpr (kAtten) {
                        const double d = rel.length();
                        if (kUseMax && d > R) continue;
                        if (!f.inVolume(p)) continue;
                        r.addForce(i, rel * (k / fieldPower(1 + d, a)));
                    } else {
                        if (kUseMax && rel.lengthSquared() > R2) continue;
                        if (!f.inVolume(p)) continue;
                        r.addForce(i, rel * k);
                    }
                }
            }
            return true;
        });
    }
    return true;
}
