#pragma once
// A particle's motion over one step as a moving point, the hits it records
// against swept geometry, and how it bounces.

#include "Commands/Collisions/TdynBoundingBox.h"
#include "Host/Math/T4dDblMatrix.h"

#include <cfloat>
#include <vector>

class Tshape;

// One hit of a point on a surface.
struct TdynSweptHit {
    double time = DBL_MAX;        // fraction of the step
    T4dDblVector position;        // where the point was at `time`
    T4dDblVector normal;          // unit, facing the incoming point
    T4dDblVector surfaceVelocity; // per second
    double u = 0, v = 0;          // surface parameters at the hit
    double resilience = 1, friction = 0;
    Tshape* shape = nullptr;
};

class TdynSweptPoint {
public:
    enum Flags : unsigned { kHit = 1u << 0, kChanged = 1u << 1, kBornAtStart = 1u << 2 };

    TdynSweptPoint() = default;

    // Start (time 0) and end (time 1) positions and the velocity the point carries; clears the hit state.
    void set(const T4dDblVector& start, const T4dDblVector& end, const T4dDblVector& velocity);
    // No hit: hitTime DBL_MAX, no hits, flags cleared, timeLeft 1.
    void clearHit();

    const T4dDblVector& position0() const { return fPosition0; }
    const T4dDblVector& position1() const { return fPosition1; }
    const T4dDblVector& velocity() const { return fVelocity; }
    T4dDblVector positionAt(double t) const { return fPosition0 + (fPosition1 - fPosition0) * t; }
    // Box of both positions.
    const TdynBoundingBox& boundingBox() const;

    bool hasHit() const { return (fFlags & kHit) != 0; }
    // A point that came into being where its sweep starts (a particle born in this step): a surface
    // it starts on is hit there only when it ends behind it.
    bool isBornAtStart() const { return (fFlags & kBornAtStart) != 0; }
    void setBornAtStart(bool on) {
        fFlags = on ? (fFlags | kBornAtStart) : (fFlags & ~unsigned(kBornAtStart));
    }
    bool hasChanged() const { return (fFlags & kChanged) != 0; }
    // The earliest hit's time, DBL_MAX without one.
    double hitTime() const { return fHitTime; }
    // The earliest hit's time, 1 without one.
    double hitFraction() const { return hasHit() ? fHitTime : 1.0; }
    void setHitTime(double t) { fHitTime = t; }
    // The time a triangle test found last (set by TdynSweptTriangle::intersectsPoint).
    double candidateTime() const { return fCandidate; }
    void setCandidateTime(double t) { fCandidate = t; }
    double timeLeft() const { return fTimeLeft; }

    // Keeps the earliest hit: an earlier one replaces all recorded, one at the same time (within 1e-10)
    // on another shape joins them, anything later is dropped. True when it was kept.
    bool recordHit(const TdynSweptHit& hit);
    // All hits at the earliest time, first the one found first.
    const std::vector<TdynSweptHit>& hits() const { return fHits; }
    const TdynSweptHit& firstHit() const { return fHits.front(); }

    // Bounces off the first hit: the velocity relative to the surface loses (1 + resilience) of its
    // normal part and `friction` of its tangent part; the point restarts 0.01 off the surface and runs
    // the rest of the step with the new velocity. With a frame (old and new matrix) the frame's own
    // motion at the hit point is taken out of the new velocity. dt in seconds.
    void respond(double dt, const T4dDblMatrix* oldMatrix = nullptr, const T4dDblMatrix* newMatrix = nullptr);

private:
    T4dDblVector fPosition1, fPosition0, fVelocity;
    double fHitTime = DBL_MAX;
    double fCandidate = DBL_MAX;
    double fTimeLeft = 1;
    unsigned fFlags = 0;
    mutable TdynBoundingBox fBox;
    mutable bool fBoxDone = false;
    std::vector<TdynSweptHit> fHits;
};

// The moving points of one particle object, one per particle.
class TdynSweptPointSet {
public:
    TdynSweptPointSet() = default;
    ~TdynSweptPointSet();
    TdynSweptPointSet(const TdynSweptPointSet&) = delete;
    TdynSweptPointSet& operator=(const TdynSweptPointSet&) = delete;

    // Module-wide free list of points.
    static TdynSweptPoint* newPoint();
    static void deletePoint(TdynSweptPoint* p);
    static std::size_t freeListSize();

    // Grows from the free list or gives surplus points back to it.
    void setCount(unsigned n);
    unsigned count() const { return static_cast<unsigned>(fPoints.size()); }
    TdynSweptPoint& point(unsigned i) { return *fPoints[i]; }
    const TdynSweptPoint& point(unsigned i) const { return *fPoints[i]; }
    void clear() { setCount(0); }
    // Box of all points (recomputed on each call).
    TdynBoundingBox boundingBox() const;

private:
    std::vector<TdynSweptPoint*> fPoints;
};
