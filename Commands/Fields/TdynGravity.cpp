#include "Commands/Fields/TdynGravity.h"

#include <cmath>

TDEFINE_NODE(TdynGravity, TdnVSTdynGravity, TdynField, "gravityField", "YGRA")

TdnVSTdynGravity::TdnVSTdynGravity()
    : direction("direction", "d", makeIffTag("DIRN"), kFieldDirectionNames, kFieldDirectionShortNames) {}

void TdnVSTdynGravity::appendAttributes(TattributeList& list) {
    TdnVSTdynField::appendAttributes(list);
    list.addAttribute(&direction);
}

bool TdynGravity::apply(TdynPointReceptor& r, int, bool) {
    TdynFieldFrame f;
    if (!prepareFrame(f)) return false;
    const T4dDblVector dir = lawBlock().inputValue(&sVsData()->direction).asVector();
    if (dir.length() < 1e-10) return false;
    const T4dDblVector base = dir.normal() * f.magnitude;
    const T4dDblVector* src = f.sources.data();
    const int ns = static_cast<int>(f.sources.length());
    const double a = f.attenuation, R = f.maxDistance, R2 = f.reachSquared();
    return dispatchFieldLoop(f.useMaxDistance, a > 0, [=, &r, &f]<bool kUseMax, bool kAtten>() {
        for (int i = static_cast<int>(r.count()) - 1; i >= 0; --i) {
            const T4dDblVector p = r.position(i);
            // The volume test is per point: a point outside gets nothing from any source.
            if (!f.inVolume(p)) continue;
            const double W = sourceWeight<kUseMax, kAtten>(p, src, ns, a, R, R2);
            if (W > 0) r.addForce(i, base * (r.mass(i) * W));
        }
        return true;
    });
}
