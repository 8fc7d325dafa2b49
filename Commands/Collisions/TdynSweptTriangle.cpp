#include "Commands/Collisions/TdynSweptTriangle.h"

#include "Commands/Collisions/TdynSweptPoint.h"
#include "Commands/Collisions/TdynSweptSolve.h"

#include <cmath>

namespace {
// Elements kept for reuse across the module (evaluation thread only); deleted when it unloads, so
// that nothing kept is reported as lost.
struct FreeList {
    std::vector<TdynSweptTriangle*> items;
    ~FreeList() {
        for (TdynSweptTriangle* e : items)
            delete e;
    }
} gFreeTrianglesHolder;
std::vector<TdynSweptTriangle*>& gFreeTriangles = gFreeTrianglesHolder.items;

constexpr double kEdgeAllowance = 1e-10;
constexpr double kRootLimit = 1.1; // roots a little past the step's end still count as found
} // namespace

TdynSweptTriangle* TdynSweptTriangle::newTriangle() {
    if (gFreeTriangles.empty()) return new TdynSweptTriangle;
    TdynSweptTriangle* t = gFreeTriangles.back();
    gFreeTriangles.pop_back();
    *t = TdynSweptTriangle();
    return t;
}

void TdynSweptTriangle::deleteTriangle(TdynSweptTriangle* t) {
    if (t) gFreeTriangles.push_back(t);
}

std::size_t TdynSweptTriangle::freeListSize() {
    return gFreeTriangles.size();
}

void TdynSweptTriangle::stale() {
    fPlane1Done = fBoundary1Done = false;
    fVectorsDone = fBoxDone = fAreaDone = false;
    if (!fMoving) fPlane0Done = fBoundary0Done = false;
}

void TdynSweptTriangle::setVertex(int i, const T4dDblVector& p) {
    fEnd[i] = p;
    stale();
}

void TdynSweptTriangle::setVertices(const T4dDblVector& p0, const T4dDblVector& p1, const T4dDblVector& p2) {
    fEnd[0] = p0;
    fEnd[1] = p1;
    fEnd[2] = p2;
    stale();
}

void TdynSweptTriangle::setVertices(const T4dDblVector start[3], const T4dDblVector end[3]) {
    for (int i = 0; i < 3; ++i) {
        fStart[i] = start[i];
        fEnd[i] = end[i];
    }
    fPlane0Done = fBoundary0Done = false;
    stale();
}

void TdynSweptTriangle::saveLastState() {
    for (int i = 0; i < 3; ++i)
        fStart[i] = fEnd[i];
    // The end planes are the new start planes; keep them rather than recompute.
    if (fPlane1Done) fPlane0 = fPlane1;
    if (fBoundary1Done) fBoundary0 = fBoundary1;
    fPlane0Done = fPlane1Done;
    fBoundary0Done = fBoundary1Done;
    fVectorsDone = fBoxDone = false;
}

void TdynSweptTriangle::setMoving(bool on) {
    if (fMoving == on) return;
    fMoving = on;
    fVectorsDone = fBoxDone = false;
}

void TdynSweptTriangle::setCorrectionDistance(double d) {
    fCorrection = d;
    fPlane0Done = fPlane1Done = fBoundary0Done = fBoundary1Done = false;
}

void TdynSweptTriangle::computeAll() const {
    computeVectors();
    plane(1);
    boundary(1);
    boundingBox();
    area();
    if (fMoving) {
        plane(0);
        boundary(0);
    }
}

void TdynSweptTriangle::computeVectors() const {
    if (fVectorsDone) return;
    const T4dDblVector k0s = vertex(0, 0), k1s = vertex(1, 0), k2s = vertex(2, 0);
    const T4dDblVector k0e = vertex(0, 1), k1e = vertex(1, 1), k2e = vertex(2, 1);
    fA[0] = k2s - k1s;
    fA[1] = k2e - k1e;
    fA[2] = fA[1] - fA[0];
    fB[0] = k0s - k1s;
    fB[1] = k0e - k1e;
    fB[2] = fB[1] - fB[0];
    fX[0] = fA[0].cross(fB[0]);
    fX[1] = fA[2].cross(fB[2]);
    fX[2] = fA[0].cross(fB[2]) + fA[2].cross(fB[0]);
    fVectorsDone = true;
}

const T4dDblVector& TdynSweptTriangle::a0() const {
    computeVectors();
    return fA[0];
}
const T4dDblVector& TdynSweptTriangle::a1() const {
    computeVectors();
    return fA[1];
}
const T4dDblVector& TdynSweptTriangle::a2() const {
    computeVectors();
    return fA[2];
}
const T4dDblVector& TdynSweptTriangle::b0() const {
    computeVectors();
    return fB[0];
}
const T4dDblVector& TdynSweptTriangle::b1() const {
    computeVectors();
    return fB[1];
}
const T4dDblVector& TdynSweptTriangle::b2() const {
    computeVectors();
    return fB[2];
}
const T4dDblVector& TdynSweptTriangle::x0() const {
    computeVectors();
    return fX[0];
}
const T4dDblVector& TdynSweptTriangle::x1() const {
    computeVectors();
    return fX[1];
}
const T4dDblVector& TdynSweptTriangle::x2() const {
    computeVectors();
    return fX[2];
}

const TdynPlaneEquation& TdynSweptTriangle::plane(double t) const {
    if (!fMoving || t == 1.0) {
        if (!fPlane1Done) {
            fPlane1.setFromPoints(fEnd[0], fEnd[1], fEnd[2]);
            fPlane1.correction = fCorrection;
            fPlane1Done = true;
        }
        return fPlane1;
    }
    if (t == 0.0) {
        if (!fPlane0Done) {
            fPlane0.setFromPoints(fStart[0], fStart[1], fStart[2]);
            fPlane0.correction = fCorrection;
            fPlane0Done = true;
        }
        return fPlane0;
    }
    fPlaneT.setFromPoints(vertex(0, t), vertex(1, t), vertex(2, t));
    fPlaneT.correction = fCorrection;
    return fPlaneT;
}

const TdynBoundary& TdynSweptTriangle::boundary(double t) const {
    if (!fMoving || t == 1.0) {
        if (!fBoundary1Done) {
            fBoundary1.setFromTriangle(fEnd[0], fEnd[1], fEnd[2], plane(1).normal, fCorrection);
            fBoundary1Done = true;
        }
        return fBoundary1;
    }
    if (t == 0.0) {
        if (!fBoundary0Done) {
            fBoundary0.setFromTriangle(fStart[0], fStart[1], fStart[2], plane(0).normal, fCorrection);
            fBoundary0Done = true;
        }
        return fBoundary0;
    }
    const T4dDblVector p0 = vertex(0, t), p1 = vertex(1, t), p2 = vertex(2, t);
    fBoundaryT.setFromTriangle(p0, p1, p2, plane(t).normal, fCorrection);
    return fBoundaryT;
}

T4dDblVector TdynSweptTriangle::normal(double t) const {
    if (!fMoving) return plane(1).normal;
    const T4dDblVector n0 = plane(0).normal;
    const T4dDblVector n1 = plane(1).normal;
    return n0 + (n1 - n0) * t;
}

T4dDblVector TdynSweptTriangle::normalToPoint(double t, const T4dDblVector& point) const {
    T4dDblVector n = normal(t).normal();
    if (!(n.dot(point - vertex(0, t)) >= 0)) n = -n;
    return n;
}

T4dDblVector TdynSweptTriangle::normalToPoint(double t, const T4dDblVector& velocity,
                                              const T4dDblVector& surfaceVelocity) const {
    T4dDblVector n = normal(t).normal();
    if (n.dot(velocity - surfaceVelocity) > 0) n = -n;
    return n;
}

T4dDblVector TdynSweptTriangle::pointOnPlaneFromPointInSpace(const T4dDblVector& p, double t) const {
    const T4dDblVector n = normal(t).normal();
    return p - n * (p - vertex(0, t)).dot(n);
}

double TdynSweptTriangle::pointDistance(const T4dDblVector& p, double t) const {
    const T4dDblVector n = normal(t).normal();
    return (p - vertex(0, t)).dot(n);
}

void TdynSweptTriangle::linearCombinationFromPoint(const T4dDblVector& point, double t, double w[3]) const {
    // The true plane at t, not the blended normal: a point on the moving triangle keeps its weights.
    const T4dDblVector n = plane(t).normal;
    const T4dDblVector k0 = vertex(0, t);
    const T4dDblVector p = point - n * (point - k0).dot(n);
    // Work in the two axes the triangle is least flat in; ties drop x, then y.
    const double ax = std::fabs(n.x), ay = std::fabs(n.y), az = std::fabs(n.z);
    int i, j;
    if (ax >= ay && ax >= az) {
        i = 1;
        j = 2;
    } else if (ay >= az) {
        i = 0;
        j = 2;
    } else {
        i = 0;
        j = 1;
    }
    const T4dDblVector e1 = vertex(1, t) - k0;
    const T4dDblVector e2 = vertex(2, t) - k0;
    const T4dDblVector d = p - k0;
    double w1 = 0, w2 = 0;
    bool haveW1 = false;
    if (std::fabs(e1[i]) >= 1e-05) {
        w2 = (d[j] * e1[i] - e1[j] * d[i]) / (e2[j] * e1[i] - e1[j] * e2[i]);
        if (w2 >= 0 && w2 <= 1) {
            w1 = (d[i] - e2[i] * w2) / e1[i];
            haveW1 = true;
        }
    } else {
        w2 = d[i] / e2[i];
        if (w2 >= 0 && w2 <= 1) {
            w1 = (d[j] - e2[j] * w2) / e1[j];
            haveW1 = true;
        }
    }
    // Clamp into the triangle; a NaN from a degenerate triangle ends as 0 too.
    if (!haveW1 || !(w1 >= 0)) w1 = 0;
    if (!(w2 >= 0)) w2 = 0;
    if (w1 > 1) w1 = 1;
    if (w2 > 1) w2 = 1;
    if (w1 + w2 > 1) {
        // Beyond the edge opposite corner 0: keep w2, give w1 the rest. w1 = 1 - w2 directly, so the
        // sum is 1 without a rounding remainder.
        w1 = 1 - w2;
    }
    const double w0 = 1 - w1 - w2;
    w[0] = w0 > 0 ? w0 : 0;
    w[1] = w1;
    w[2] = w2;
}

T4dDblVector TdynSweptTriangle::linearCombination(const double w[3], double t) const {
    return vertex(0, t) * w[0] + vertex(1, t) * w[1] + vertex(2, t) * w[2];
}

void TdynSweptTriangle::randomPointWeight(double r1, double r2, double w[3]) {
    if (r1 + r2 > 1) {
        r1 = 1 - r1;
        r2 = 1 - r2;
    }
    w[0] = 1 - r1 - r2;
    w[1] = r1;
    w[2] = r2;
}

T4dDblVector TdynSweptTriangle::randomPoint(double r1, double r2, double t) const {
    double w[3];
    randomPointWeight(r1, r2, w);
    return linearCombination(w, t);
}

void TdynSweptTriangle::randomPointTexCoords(const double w[3], double& u, double& v) const {
    u = fU[0] * w[0] + fU[1] * w[1] + fU[2] * w[2];
    v = fV[0] * w[0] + fV[1] * w[1] + fV[2] * w[2];
}

T4dDblVector TdynSweptTriangle::pointVelocity(const T4dDblVector& p, double t, double dt) const {
    if (!fMoving || !(std::fabs(dt) > 1e-10)) return {};
    double w[3];
    linearCombinationFromPoint(p, t, w);
    return (linearCombination(w, 1) - linearCombination(w, 0)) / dt;
}

double TdynSweptTriangle::area() const {
    if (!fAreaDone) {
        fArea = 0.5 * (fEnd[1] - fEnd[0]).cross(fEnd[2] - fEnd[0]).length();
        fAreaDone = true;
    }
    return fArea;
}

const TdynBoundingBox& TdynSweptTriangle::boundingBox() const {
    if (!fBoxDone) {
        fBox.clear();
        for (int i = 0; i < 3; ++i) {
            fBox.include(fEnd[i]);
            if (fMoving) fBox.include(fStart[i]);
        }
        fBoxDone = true;
    }
    return fBox;
}

void TdynSweptTriangle::hitPolynomial(const T4dDblVector& p0, const T4dDblVector& p1, double c[4]) const {
    computeVectors();
    // (p - k2) . ((k2 - k1) x (k0 - k1)) with everything linear in t: the normal is
    // x0 + t x2 + t^2 x1 and the offset q0 + t q1.
    const T4dDblVector q0 = p0 - vertex(2, 0);
    const T4dDblVector q1 = (p1 - vertex(2, 1)) - q0;
    c[3] = fX[1].dot(q1);
    c[2] = fX[1].dot(q0) + fX[2].dot(q1);
    c[1] = fX[0].dot(q1) + fX[2].dot(q0);
    c[0] = fX[0].dot(q0);
}

double TdynSweptTriangle::earliestHit(TdynSweptPoint& point) const {
    double best = DBL_MAX;
    if (!point.boundingBox().intersects(boundingBox())) return best;
    double c[4];
    hitPolynomial(point.position0(), point.position1(), c);
    double roots[3];
    const int n = TdynSweptSolve::solvePolynomial(c[0], c[1], c[2], c[3], roots);
    for (int r = 0; r < n; ++r) {
        const double t = roots[r];
        if (!(t < best && t < kRootLimit && t >= 0)) continue;
        if (boundary(t).contains(point.positionAt(t), kEdgeAllowance)) best = t;
    }
    return best;
}

bool TdynSweptTriangle::intersectsPoint(TdynSweptPoint& point, double start) const {
    const double best = earliestHit(point);
    if (best == DBL_MAX) return false;
    // Born on this surface: a hit where it starts counts only when the point ends behind the surface
    // (against its normal), so that its birth never carries it through, nor bounces it back in.
    if (point.isBornAtStart() && best < start && best >= -kEdgeAllowance) {
        if ((point.position1() - vertex(0, 1.0)).dot(normal(1.0)) >= 0) return false;
        point.setCandidateTime(0.0);
        return true;
    }
    if ((best >= start && best <= 1) || std::fabs(best - start) <= kEdgeAllowance ||
        std::fabs(best - 1) <= kEdgeAllowance) {
        point.setCandidateTime(best);
        return true;
    }
    return false;
}
