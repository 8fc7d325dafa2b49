#pragma once
#include <vector>

#include "Tessarin/tessarin/shape.h"

namespace tessarin {

// Convex polygon in the xy plane of a RigidBody2d. Vertices are kept
// counter-clockwise; edge i runs from vertex i to vertex i + 1 and its normal
// points out.
class Poly2d : public AtomicShape {
public:
    // Points in either winding; fewer than 3, a zero area or a reflex corner
    // is reported and leaves the shape empty (ok false).
    explicit Poly2d(const std::vector<triple>& points);
    static Poly2d* box(double lox, double loy, double hix, double hiy);

    std::vector<triple> verts;         // shape coordinates, z = 0
    std::vector<triple> normals;       // per edge, shape coordinates
    std::vector<double> offsets;       // normal . p on the edge
    std::vector<triple> world_verts;   // after refresh
    std::vector<triple> world_normals; // after refresh
    std::vector<double> world_offsets; // after refresh
    bool ok = false;

    int size() const { return int(verts.size()); }
    bool body_ok(const Body* b) const override;
    double volume() const override; // the area
    triple centroid() const override;
    // Flat shapes have a scalar moment; this form reports and returns it in the z slot.
    mat3 moment2() const override;
    // Polar second moment about the centroid, unit density.
    double polar_moment() const;
    double moment2_scalar() const override { return polar_; }
    box3 local_bound() const override;
    // World vertex furthest along dir.
    int support(const triple& dir) const;

protected:
    void update_world() override;

private:
    double area_ = 0;
    triple centroid_;
    double polar_ = 0;
};

} // namespace tessarin
