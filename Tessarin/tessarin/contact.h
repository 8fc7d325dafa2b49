#pragma once
#include "Tessarin/kelsupport/triple.h"
#include "Tessarin/tessarin/constraint.h"

namespace tessarin {

class RigidBody;
class Separator;

class Contact : public Constraint, public ContactHook {
public:
    Contact(BodySystem* sys, Body* b1, Body* b2);
    ~Contact() override;

    Body* body1;
    Body* body2;
    Separator* owner = nullptr;
    double restitution = 0, mu_dynamic = 0, mu_static = 0;
    double restitution_now = 0, mu_dynamic_now = 0, mu_static_now = 0;
    triple normal, t1, t2; // normal points from body2 to body1
    triple point, point1, point2;
    triple dn; // rate of the normal
    double distance = 0;
    double vn = 0;
    triple vt;
    double force = 0; // normal force estimate, real units
    bool alive = true;
    bool impacting = false;
    bool frictionless = true;
    bool has_friction = false;
    bool seen = true;
    bool sliding = false;

    int kind() const override;
    int dimension() const override;
    void prepare() override;
    void refresh() override;
    void rhs(double* r) override;
    void scale_rows() override;
    bool is_active() const override;
    void apply() override;
    double row_mu(int i) const override { return i == 0 ? 0 : mu_static_now; }

    virtual void recompute_geometry() = 0;
    virtual void recompute_velocity_data();
    // Same contact points within the tolerance band (kept rather than replaced).
    bool same_as(const triple& p1, const triple& p2, const triple& n) const;

protected:
    void build_rows();
    // Velocity-product acceleration of the relative motion along direction d.
    double velocity_product(const triple& d) const;
};

// Sphere (body1) against sphere (body2); also a point against a sphere.
class SphereSphereContact : public Contact {
public:
    SphereSphereContact(BodySystem* sys, Body* b1, Body* b2, const triple& c1, double r1, const triple& c2,
                        double r2);
    triple local_c1, local_c2;
    double r1, r2;
    void recompute_geometry() override;
};

class PointSphereContact : public SphereSphereContact {
public:
    using SphereSphereContact::SphereSphereContact;
};

// Sphere (body1) against a feature of a polyhedron (body2): a face, an edge or a vertex.
class SpherePoly3dContact : public Contact {
public:
    enum Feature { FACE, EDGE, VERTEX };
    SpherePoly3dContact(BodySystem* sys, Body* b1, Body* b2, const triple& centre, double radius,
                        class Poly3d* poly, Feature f, int index);
    triple local_centre;
    double radius;
    class Poly3d* poly;
    Feature feature;
    int feature_index;
    void recompute_geometry() override;
};

class PointPoly3dContact : public SpherePoly3dContact {
public:
    using SpherePoly3dContact::SpherePoly3dContact;
};

// Two polyhedra. Face mode: a point of one body against the face plane of the
// other (vertex-face contacts and the clipped points of face-face touching);
// edge mode: an edge of each body.
class Poly3dPoly3dContact : public Contact {
public:
    Poly3dPoly3dContact(BodySystem* sys, Body* b1, Body* b2);
    bool edge_mode = false;
    bool face_on_body1 = false; // face mode: which body owns the plane
    triple face_normal_local;   // in the owner's shape coordinates
    double face_offset_local = 0;
    triple local_point;        // the incident point, on the other body
    triple e1a, e1b, e2a, e2b; // edge mode: local ends on body1 and body2
    double edge_sign = 1;
    void recompute_geometry() override;
};

} // namespace tessarin
