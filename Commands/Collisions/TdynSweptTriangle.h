#pragma once
// A triangle that moves linearly from its state at the start of a step
// (time 0) to its state at the end (time 1).

#include "Commands/Collisions/TdynBoundingBox.h"
#include "Commands/Collisions/TdynPlaneEquation.h"

#include <vector>

class TdynSweptPoint;

class TdynSweptTriangle {
public:
    TdynSweptTriangle() = default;

    // Module-wide free list: triangles churn every step.
    static TdynSweptTriangle* newTriangle();
    static void deleteTriangle(TdynSweptTriangle* t);
    static std::size_t freeListSize();

    // The end state (time 1) of corner i; cached planes and vectors go stale.
    void setVertex(int i, const T4dDblVector& p);
    void setVertices(const T4dDblVector& p0, const T4dDblVector& p1, const T4dDblVector& p2);
    // Both states at once.
    void setVertices(const T4dDblVector start[3], const T4dDblVector end[3]);
    // Copies the end state to the start state, cached planes and boundaries with it.
    void saveLastState();
    void setMoving(bool on);
    bool isMoving() const { return fMoving; }

    void setCorrectionDistance(double d);
    double correctionDistance() const { return fCorrection; }

    void setUV(int corner, double u, double v) {
        fU[corner] = u;
        fV[corner] = v;
    }
    double u(int corner) const { return fU[corner]; }
    double v(int corner) const { return fV[corner]; }

    // Fills every cache for this step.
    void computeAll() const;

    // Corner i at time t (0 start, 1 end); the end state when not moving.
    T4dDblVector vertex(int i, double t) const {
        if (!fMoving || t == 1.0) return fEnd[i];
        if (t == 0.0) return fStart[i];
        return fStart[i] + (fEnd[i] - fStart[i]) * t;
    }
    // The unit normals of the planes at 0 and 1 blended by t, not renormalised; the end normal when still.
    T4dDblVector normal(double t) const;
    // Unit normal at t facing the side `point` is on.
    T4dDblVector normalToPoint(double t, const T4dDblVector& point) const;
    // Unit normal at t facing an incoming point: against velocity - surfaceVelocity.
    T4dDblVector normalToPoint(double t, const T4dDblVector& velocity,
                               const T4dDblVector& surfaceVelocity) const;
    const TdynPlaneEquation& plane(double t) const;
    const TdynBoundary& boundary(double t) const;
    T4dDblVector pointOnPlaneFromPointInSpace(const T4dDblVector& p, double t) const;
    // Velocity of the surface point at p (time t) over a step of dt seconds; zero when still.
    T4dDblVector pointVelocity(const T4dDblVector& p, double t, double dt) const;
    // Area at the end of the step.
    double area() const;
    const TdynBoundingBox& boundingBox() const;

    // Weights uniform over the triangle from two uniform numbers.
    static void randomPointWeight(double r1, double r2, double weights[3]);
    T4dDblVector randomPoint(double r1, double r2, double t = 1.0) const;
    // u, v of the point with the given weights.
    void randomPointTexCoords(const double weights[3], double& u, double& v) const;
    T4dDblVector linearCombination(const double weights[3], double t) const;
    T4dDblVector pointFromLinearCombination(const double weights[3], double t) const {
        return linearCombination(weights, t);
    }
    // Barycentric weights of p (projected to the plane at t), clamped so that none is negative and
    // they sum to 1.
    void linearCombinationFromPoint(const T4dDblVector& p, double t, double weights[3]) const;
    // Signed distance of p from the plane at t.
    double pointDistance(const T4dDblVector& p, double t) const;

    // The hit polynomial's cached vectors (see computeAll).
    const T4dDblVector& a0() const;
    const T4dDblVector& a1() const;
    const T4dDblVector& a2() const;
    const T4dDblVector& b0() const;
    const T4dDblVector& b1() const;
    const T4dDblVector& b2() const;
    const T4dDblVector& x0() const;
    const T4dDblVector& x1() const;
    const T4dDblVector& x2() const;

    // A still triangle answers every time with its end state.
    double convertTime(double t) const { return fMoving ? t : 1.0; }

    // Coefficients c0..c3 of the hit polynomial of a point moving from p0 (time 0) to p1 (time 1).
    void hitPolynomial(const T4dDblVector& p0, const T4dDblVector& p1, double c[4]) const;
    // The earliest root of the polynomial in [0, 1.1) whose point lies within the edges at that time;
    // DBL_MAX when there is none (or the boxes miss).
    double earliestHit(TdynSweptPoint& point) const;
    // earliestHit, counted only within start..1 (1e-10 of slack at either end); records it as the
    // point's hitTime and returns true.
    bool intersectsPoint(TdynSweptPoint& point, double start) const;

private:
    void stale();
    void computeVectors() const;

    T4dDblVector fStart[3], fEnd[3];
    double fU[3] = {0, 0, 0}, fV[3] = {0, 0, 0};
    double fCorrection = 0;
    bool fMoving = false;

    // Caches, filled on first use within a step.
    mutable TdynPlaneEquation fPlane1, fPlane0, fPlaneT;
    mutable TdynBoundary fBoundary1, fBoundary0, fBoundaryT;
    mutable T4dDblVector fA[3], fB[3], fX[3];
    mutable TdynBoundingBox fBox;
    mutable double fArea = 0;
    mutable bool fPlane1Done = false, fPlane0Done = false, fBoundary1Done = false, fBoundary0Done = false;
    mutable bool fVectorsDone = false, fBoxDone = false, fAreaDone = false;
};

using TdynSweptTrianglePtrArray = std::vector<TdynSweptTriangle*>;
