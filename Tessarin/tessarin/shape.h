#pragma once
#include <vector>

#include "Tessarin/kelsupport/basellist.h"
#include "Tessarin/kelsupport/triple.h"
#include "Tessarin/tessarin/body.h"
#include "Tessarin/tessarin/entity.h"

namespace tessarin {

enum ShapeType { SHAPE_MULTI = 0, SHAPE_POLY2D = 4, SHAPE_POLY3D = 5, SHAPE_POINT = 6, SHAPE_SPHERE = 7 };

// One end of a shape's box on one axis, as the sweep keeps it.
struct bound {
    bool is_min;
    double value;
    class Shape* shape;
};

class Shape : public ShapeHook {
public:
    explicit Shape(int type) : shape_type(type) {}
    ~Shape() override;

    Body* body = nullptr;
    Shape* parent = nullptr;
    int shape_type;
    int stamp = 0;       // body keystamp of the last refresh
    int bound_stamp = 0; // body keystamp of the last bound update
    box3 world_bound;    // world box, widened by nothing
    llist<Shape> children;
    int sweep_index = -1; // place in the broad phase's shape list

    virtual bool is_atomic() const { return true; }
    virtual bool body_ok(const Body* b) const;
    // Brings world data up to the body's state; skipped when the stamp is current.
    virtual void refresh();
    void set(Body* b);
    virtual double volume() const = 0;
    virtual triple centroid() const = 0;
    // Inertia tensor about the centroid, unit density.
    virtual mat3 moment2() const = 0;
    // The scalar (polar) moment about the centroid of a flat shape, unit density.
    virtual double moment2_scalar() const { return 0; }
    // Box in shape coordinates.
    virtual box3 local_bound() const = 0;
    int collision_layer() const { return body ? body->collision_layer : 0; }
    bool refresh_needed() const { return !body || stamp == 0 || stamp != body->keystamp; }

protected:
    virtual void update_world() = 0;
};

class AtomicShape : public Shape {
public:
    using Shape::Shape;
};

struct Poly3dVertex {
    triple p;
    std::vector<int> edges;
};
struct Poly3dEdge {
    int v[2];
    int f[2] = {-1, -1};
};
struct Poly3dFace {
    triple normal; // outward unit
    double offset; // normal . p for points p of the face
    std::vector<int> verts;
    std::vector<int> edges;
};

// Builder of convex polyhedra: vertices and faces as index loops, then process.
class Polyhedron {
public:
    std::vector<Poly3dVertex> vertices;
    std::vector<Poly3dEdge> edges;
    std::vector<Poly3dFace> faces;
    bool convex = true;
    bool ok = false;

    int add_vertex(const triple& p);
    void add_face(const std::vector<int>& loop);
    // Matches edges, computes normals, tests convexity. False on a fault.
    bool process();
    static Polyhedron box(const triple& lo, const triple& hi);
};

class Poly3d : public AtomicShape {
public:
    explicit Poly3d(const Polyhedron& p);
    Polyhedron poly;
    std::vector<triple> world_verts;
    std::vector<triple> world_normals;
    std::vector<double> world_offsets;

    bool body_ok(const Body* b) const override;
    double volume() const override;
    triple centroid() const override;
    mat3 moment2() const override;
    double moment2_scalar() const override;
    box3 local_bound() const override;
    int index_of(const Poly3dEdge* e) const;
    int index_of(const Poly3dVertex* v) const;
    // Index of the world vertex furthest along dir.
    int support(const triple& dir) const;

protected:
    void update_world() override;

private:
    void integrate(double& vol, triple& c, mat3& second) const;
};

class CSphere : public AtomicShape {
public:
    CSphere(const triple& centre, double radius)
        : AtomicShape(SHAPE_SPHERE), centre(centre), radius(radius) {}
    triple centre;
    double radius;
    triple world_centre;

    bool body_ok(const Body* b) const override;
    double volume() const override;
    triple centroid() const override { return centre; }
    mat3 moment2() const override;
    double moment2_scalar() const override;
    box3 local_bound() const override;

protected:
    void update_world() override;
};

// A point; it collides like a sphere of radius 0 and has no volume.
class CorPoint : public AtomicShape {
public:
    explicit CorPoint(const triple& p) : AtomicShape(SHAPE_POINT), point(p) {}
    triple point;
    triple world_point;

    double volume() const override { return 0; }
    triple centroid() const override { return point; }
    mat3 moment2() const override { return mat3::zero(); }
    box3 local_bound() const override { return {point, point}; }

protected:
    void update_world() override;
};

// Groups shapes of one body; concave geometry is a MultiShape of convex parts.
class MultiShape : public Shape {
public:
    MultiShape() : Shape(SHAPE_MULTI) {}
    ~MultiShape() override;
    void add(Shape* child);
    bool is_atomic() const override { return false; }
    double volume() const override;
    triple centroid() const override;
    mat3 moment2() const override;
    double moment2_scalar() const override;
    box3 local_bound() const override;
    void refresh() override;
    // The atomic shapes below this one.
    void leaves(std::vector<Shape*>& out);

protected:
    void update_world() override {}
};

// Perpendicular frame for a unit n: the first tangent is built from the axis
// of n's smallest component; t2 = n x t1.
void perpendicular_frame(const triple& n, triple& t1, triple& t2);

} // namespace tessarin
