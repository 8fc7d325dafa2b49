#pragma once
#include "Tessarin/tessarin/separator.h"

namespace tessarin {

class Poly2d;

// Two convex polygons, watched by an edge line of one and the extreme vertex
// of the other. In the plane the edge normals of both polygons are the only
// candidate axes, so the best of them is the exact separation when the pair
// overlaps and a lower bound on the gap otherwise.
class Poly2dPoly2dSeparator : public Separator {
public:
    using Separator::Separator;
    bool edge_on_first = false;     // the witness edge belongs to shape1
    int feature1 = 0, feature2 = 0; // edge and vertex, by edge_on_first
    Separator* clone() const override;
    double evaluate_distance() override;
    void make_contact() override;
    bool fit(bool& clear, double& distance) override;
    bool refit(bool& clear, double& distance) override;
    // Separation along edge e of the owner against the other's extreme vertex.
    static double edge_distance(const Poly2d* owner, int e, const Poly2d* other, int& vertex);
    // From the stored witness to a neighbouring one (the owner's next edges, the
    // edges at the other's vertex) while the separation grows.
    void walk() override;
    // Witnesses the last walk looked at.
    int walk_tests = 0;
    // The stored edge against the other's extreme vertex, at the current world data.
    double current_distance() const;
};

// A point (shape1) against a polygon (shape2): the Euclidean distance to the
// boundary, negative inside, with the closest edge or vertex as the feature.
class PointPoly2dSeparator : public Separator {
public:
    using Separator::Separator;
    bool at_vertex = false;
    int feature = 0;
    Separator* clone() const override;
    double evaluate_distance() override;
    void make_contact() override;
    bool fit(bool& clear, double& distance) override;
    // Signed distance of a world point to the polygon and the closest feature.
    static double closest(const Poly2d* p, const triple& c, bool& vertex, int& index);
};

} // namespace tessarin
