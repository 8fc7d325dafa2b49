#pragma once
// Planes and the three edge planes of a triangle, as the swept tests use them.

#include "Host/Math/T4dDblVector.h"

// normal . p == distance on the plane.
class TdynPlaneEquation {
public:
    // Takes the next id of the module-wide counter.
    TdynPlaneEquation();

    // From three corners: normal = unit (p1 - p0) x (p2 - p1), distance = normal . p0.
    void setFromPoints(const T4dDblVector& p0, const T4dDblVector& p1, const T4dDblVector& p2);
    void setFromNormalAndPoint(const T4dDblVector& unitNormal, const T4dDblVector& p);
    double signedDistance(const T4dDblVector& p) const { return normal.dot(p) - distance; }

    unsigned id; // wraps after 2^32 planes; only equality within a step matters
    T4dDblVector normal{0, 1, 0};
    double distance = 0;
    double correction = 0;
};

// The edge planes of a triangle, normals pointing out of it: edge 0 runs from
// corner 0 to 1, edge 1 from 1 to 2, edge 2 from 2 to 0.
class TdynBoundary {
public:
    void setFromTriangle(const T4dDblVector& p0, const T4dDblVector& p1, const T4dDblVector& p2,
                         const T4dDblVector& unitNormal, double correction);
    // Within all three edge planes, with `allowance` on each.
    bool contains(const T4dDblVector& p, double allowance = 1e-10) const {
        return planes[0].signedDistance(p) - allowance <= 0 && planes[1].signedDistance(p) - allowance <= 0 &&
               planes[2].signedDistance(p) - allowance <= 0;
    }

    TdynPlaneEquation planes[3];
};
