#include "Commands/Collisions/TdynSweptPoint.h"

#include "Commands/Scene/TdynStatic.h"

#include <cmath>

namespace {
// Elements kept for reuse across the module (evaluation thread only); deleted when it unloads, so
// that nothing kept is reported as lost.
struct FreeList {
    std::vector<TdynSweptPoint*> items;
    ~FreeList() {
        for (TdynSweptPoint* e : items)
            delete e;
    }
} gFreePointsHolder;
std::vector<TdynSweptPoint*>& gFreePoints = gFreePointsHolder.items;

constexpr double kSameTime = 1e-10;
// How far off the surface a bounced point restarts, in world units.
constexpr double kLiftOff = 0.01;
} // namespace

void TdynSweptPoint::set(const T4dDblVector& start, const T4dDblVector& end, const T4dDblVector& velocity) {
    fPosition0 = start;
    fPosition1 = end;
    fVelocity = velocity;
    fBoxDone = false;
    clearHit();
    fFlags = 0;
}

void TdynSweptPoint::clearHit() {
    fHitTime = DBL_MAX;
    fCandidate = DBL_MAX;
    fTimeLeft = 1;
    fFlags &= kBornAtStart; // the point's own, not its hit's
    fHits.clear();
}

const TdynBoundingBox& TdynSweptPoint::boundingBox() const {
    if (!fBoxDone) {
        fBox.clear();
        fBox.include(fPosition0);
        fBox.include(fPosition1);
        fBoxDone = true;
    }
    return fBox;
}

bool TdynSweptPoint::recordHit(const TdynSweptHit& hit) {
    if (hasHit() && std::fabs(hit.time - fHitTime) <= kSameTime) {
        // Simultaneous: another surface joins; the same surface again (a shared edge) does not.
        for (const TdynSweptHit& h : fHits)
            if (h.shape == hit.shape) return false;
        fHits.push_back(hit);
        return true;
    }
    if (hasHit() && hit.time > fHitTime) return false;
    fHits.clear();
    fHits.push_back(hit);
    fHitTime = hit.time;
    fFlags |= kHit;
    return true;
}

void TdynSweptPoint::respond(double dt, const T4dDblMatrix* oldMatrix, const T4dDblMatrix* newMatrix) {
    if (!hasHit()) return;
    const TdynSweptHit& hit = fHits.front();
    const double hitT = hit.time * dt;
    const double rem = dt - hitT;
    const double res = hit.resilience;
    const double fr = hit.friction;
    const T4dDblVector n = hit.normal.normal();

    const T4dDblVector vn = n * hit.surfaceVelocity.dot(n);
    const T4dDblVector vt = hit.surfaceVelocity - vn;
    const T4dDblVector wn = n * fVelocity.dot(n);
    const T4dDblVector wt = fVelocity - wn;
    // Relative to the surface: the normal part reflected and scaled by resilience, the tangent part
    // scaled by 1 - friction.
    T4dDblVector v = vn * (1 + res) - wn * res + vt * fr + wt * (1 - fr);
    // A point already leaving the surface (one born on it) keeps its velocity; it is only lifted off.
    if ((fVelocity - hit.surfaceVelocity).dot(n) > 0) v = fVelocity;

    const T4dDblVector h = positionAt(hit.time) + n * (res >= 0 ? kLiftOff : -kLiftOff);
    if (oldMatrix && newMatrix) v -= TdynStatic::worldVelocityOfPoint(h, *oldMatrix, *newMatrix, dt);

    fPosition0 = h - v * hitT;
    fPosition1 = h + v * rem;
    fVelocity = v;
    fTimeLeft = 1 - hit.time;
    fBoxDone = false;
    fFlags = (fFlags | kChanged) & ~unsigned(kBornAtStart);
}

// ---- point set ----

TdynSweptPointSet::~TdynSweptPointSet() {
    setCount(0);
}

TdynSweptPoint* TdynSweptPointSet::newPoint() {
    if (gFreePoints.empty()) return new TdynSweptPoint;
    TdynSweptPoint* p = gFreePoints.back();
    gFreePoints.pop_back();
    return p;
}

void TdynSweptPointSet::deletePoint(TdynSweptPoint* p) {
    if (p) gFreePoints.push_back(p);
}

std::size_t TdynSweptPointSet::freeListSize() {
    return gFreePoints.size();
}

void TdynSweptPointSet::setCount(unsigned n) {
    while (fPoints.size() > n) {
        deletePoint(fPoints.back());
        fPoints.pop_back();
    }
    fPoints.reserve(n);
    while (fPoints.size() < n) {
        TdynSweptPoint* p = newPoint();
        p->set({}, {}, {});
        fPoints.push_back(p);
    }
}

TdynBoundingBox TdynSweptPointSet::boundingBox() const {
    TdynBoundingBox b;
    for (const TdynSweptPoint* p : fPoints)
        b.include(p->boundingBox());
    return b;
}
