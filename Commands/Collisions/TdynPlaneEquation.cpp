#include "Commands/Collisions/TdynPlaneEquation.h"

namespace {
unsigned gNextPlaneId = 0; // evaluation thread only
} // namespace

TdynPlaneEquation::TdynPlaneEquation() : id(gNextPlaneId++) {}

void TdynPlaneEquation::setFromPoints(const T4dDblVector& p0, const T4dDblVector& p1,
                                      const T4dDblVector& p2) {
    normal = (p1 - p0).cross(p2 - p1).normal();
    distance = normal.dot(p0);
}

void TdynPlaneEquation::setFromNormalAndPoint(const T4dDblVector& unitNormal, const T4dDblVector& p) {
    normal = unitNormal;
    distance = normal.dot(p);
}

void TdynBoundary::setFromTriangle(const T4dDblVector& p0, const T4dDblVector& p1, const T4dDblVector& p2,
                                   const T4dDblVector& n, double correction) {
    const T4dDblVector* c[3] = {&p0, &p1, &p2};
    for (int e = 0; e < 3; ++e) {
        const T4dDblVector& a = *c[e];
        const T4dDblVector& b = *c[(e + 1) % 3];
        const T4dDblVector& opposite = *c[(e + 2) % 3];
        T4dDblVector out = (b - a).cross(n).normal();
        // For corners wound against n the cross product points in; the opposite corner tells.
        if (out.dot(opposite - a) > 0) out = -out;
        planes[e].setFromNormalAndPoint(out, a);
        planes[e].correction = correction;
    }
}
