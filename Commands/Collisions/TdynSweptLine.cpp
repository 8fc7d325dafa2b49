#include "Commands/Collisions/TdynSweptLine.h"

#include <cmath>

namespace {
// Elements kept for reuse across the module (evaluation thread only); deleted when it unloads, so
// that nothing kept is reported as lost.
struct FreeList {
    std::vector<TdynSweptLine*> items;
    ~FreeList() {
        for (TdynSweptLine* e : items)
            delete e;
    }
} gFreeLinesHolder;
std::vector<TdynSweptLine*>& gFreeLines = gFreeLinesHolder.items;
} // namespace

TdynSweptLine* TdynSweptLine::newLine() {
    if (gFreeLines.empty()) return new TdynSweptLine;
    TdynSweptLine* l = gFreeLines.back();
    gFreeLines.pop_back();
    *l = TdynSweptLine();
    return l;
}

void TdynSweptLine::deleteLine(TdynSweptLine* l) {
    if (l) gFreeLines.push_back(l);
}

std::size_t TdynSweptLine::freeListSize() {
    return gFreeLines.size();
}

T4dDblVector TdynSweptLine::normal(double t) const {
    const T4dDblVector d = tangent(t);
    T4dDblVector up{0, 1, 0};
    if (std::fabs(d.y) > 0.999) up = {1, 0, 0};
    return (up - d * up.dot(d)).normal();
}

const TdynBoundingBox& TdynSweptLine::boundingBox() const {
    if (!fBoxDone) {
        fBox.clear();
        fBox.include(fEnd[0]);
        fBox.include(fEnd[1]);
        if (fMoving) {
            fBox.include(fStart[0]);
            fBox.include(fStart[1]);
        }
        fBoxDone = true;
    }
    return fBox;
}
