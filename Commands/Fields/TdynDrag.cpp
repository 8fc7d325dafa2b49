#include "Commands/Fields/TdynDrag.h"

#include <cmath>

TDEFINE_NODE(TdynDrag, TdnVSTdynDrag, TdynField, "dragField", "YDRG")

TdnVSTdynDrag::TdnVSTdynDrag()
    : direction("direction", "d", makeIffTag("DIRN"), kFieldDirectionNames, kFieldDirectionShortNames),
      useDirection("useDirection", "ud", makeIffTag("UDIR")) {}

void TdnVSTdynDrag::appendAttributes(TattributeList& list) {
    TdnVSTdynField::appendAttributes(list);
    list.addAttribute(&direction);
    list.addAttribute(&useDirection);
}

bool TdynDrag::apply(TdynPointReceptor& r, int, bool) {
    TdynFieldFrame f;
    if (!prepareFrame(f)) return false;
    auto* vs = sVsData();
    const double K = -f.magnitude;
    const bool useDir = lawBlock().inputValue(&vs->useDirection).asBool();
    // The raw components weigh each axis; the normalised copy is only the zero test.
    const T4dDblVector dir = lawBlock().inputValue(&vs->direction).asVector();
    if (useDir && dir.normal().length() < 1e-10) return false;
    const T4dDblVector axis = useDir ? dir : T4dDblVector{1, 1, 1};
    const T4dDblVector* src = f.sources.data();
    const int ns = static_cast<int>(f.sources.length());
    const double a = f.attenuation, R = f.maxDistance, R2 = f.reachSquared();
    return dispatchFieldLoop(f.useMaxDistance, a > 0, [=, &r, &f]<bool kUseMax, bool kAtten>() {
        for (int i = static_cast<int>(r.count()) - 1; i >= 0; --i) {
            const T4dDblVector p = r.position(i);
            if (!f.inVolume(p)) continue;
            const double W = sourceWeight<kUseMax, kAtten>(p, src, ns, a, R, R2);
            if (W > 0) {
                const T4dDblVector v = r.velocity(i);
                r.addForce(i, T4dDblVector{v.x * axis.x, v.y * axis.y, v.z * axis.z} * (K * W));
            }
        }
        return true;
    });
}
