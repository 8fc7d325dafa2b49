#pragma once
#include "Tessarin/tessarin/contact.h"

namespace tessarin {

// Two polygons: a point of one body against the edge line of the other. The
// edge is kept in its owner's shape coordinates and the point in the other
// body's, so the contact follows both bodies between separator passes.
class Poly2dPoly2dContact : public Contact {
public:
    Poly2dPoly2dContact(BodySystem* sys, Body* b1, Body* b2);
    bool edge_on_body1 = false;
    triple edge_normal_local; // unit, owner's shape coordinates
    double edge_offset_local = 0;
    triple local_point; // on the other body
    void recompute_geometry() override;
};

// A point (body1) against a polygon (body2): against the line of an edge, or,
// outside a corner, against the vertex.
class PointPoly2dContact : public Contact {
public:
    enum Feature { EDGE, VERTEX };
    PointPoly2dContact(BodySystem* sys, Body* b1, Body* b2, const triple& local_point,
                       const class Poly2d* poly, Feature f, int index);
    triple local_point;
    const class Poly2d* poly;
    Feature feature;
    int feature_index;
    void recompute_geometry() override;
};

} // namespace tessarin
