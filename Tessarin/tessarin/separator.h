#pragma once
#include <vector>

#include "Tessarin/kelsupport/triple.h"
#include "Tessarin/tessarin/entity.h"

namespace tessarin {

class BodySystem;
class Body;
class Shape;
class Contact;
class Poly3d;
class CSphere;

// Something that can stop the integrator by reporting a clash.
class Obstacle : public EntityHook {
public:
    explicit Obstacle(BodySystem* sys) : system(sys) {}
    BodySystem* system;
    Body* body1 = nullptr;
    Body* body2 = nullptr;
    double tolerance = 0.02;
    double d0 = 0, d1 = 0;
    int rank = 0; // lower wins as the current clash; below 1 stops integration
    int hits = 0; // consecutive starts deep in the band
    bool clear_flag = false;

    virtual bool check() { return true; }
    virtual bool measurable() const { return false; }
    virtual double evaluate_distance() { return 0; }
};

// One per close atomic pair: a cached witness of why the pair does not
// overlap, and the distance it measures.
class Separator : public Obstacle {
public:
    Separator(BodySystem* sys, Shape* a, Shape* b);
    ~Separator() override;

    Shape* shape1;
    Shape* shape2;
    bool valid = false;
    int stamp1 = 0, stamp2 = 0;
    double last_distance = 0; // at the last fit, for passes that skip the pair
    std::vector<Contact*> contacts;

    bool listed() const; // the pair is in the interpenetration table
    virtual Separator* clone() const = 0;
    bool measurable() const override { return valid; }
    double evaluate_distance() override = 0;
    virtual void make_contact() = 0;
    double& tol() { return tolerance; }
    virtual bool advance() { return true; }
    virtual bool retry(bool& clear, double& distance) { return fit(clear, distance); }
    // False when no witness separates with distance >= -tolerance; clear when
    // the distance exceeds the tolerance.
    virtual bool fit(bool& clear, double& distance) = 0;
    // Re-checks the stored witness; true only when it still shows the pair clear.
    virtual bool refit(bool& clear, double& distance);
    virtual void witness() {}
    virtual void walk() {}

    // Keeps an existing contact at the same place, or makes a new one.
    void drop_contacts();

protected:
    // Finds a contact at the same points among this separator's contacts.
    Contact* find_same(const triple& p1, const triple& p2, const triple& n) const;
    void keep(Contact* c);
};

class SphereSphereSeparator : public Separator {
public:
    using Separator::Separator;
    Separator* clone() const override;
    double evaluate_distance() override;
    void make_contact() override;
    bool fit(bool& clear, double& distance) override;
};

class PointSphereSeparator : public SphereSphereSeparator {
public:
    using SphereSphereSeparator::SphereSphereSeparator;
    Separator* clone() const override;
};

class PointPointSeparator : public Separator {
public:
    using Separator::Separator;
    Separator* clone() const override;
    double evaluate_distance() override;
    void make_contact() override {}
    bool fit(bool& clear, double& distance) override;
};

// shape1 a sphere or a point, shape2 a polyhedron.
class SpherePoly3dSeparator : public Separator {
public:
    using Separator::Separator;
    int feature = 0; // 0 face, 1 edge, 2 vertex
    int feature_index = 0;
    Separator* clone() const override;
    double evaluate_distance() override;
    void make_contact() override;
    bool fit(bool& clear, double& distance) override;

    // Steps the stored feature to the one whose region holds the centre c;
    // -inf when c is inside the solid or the walk does not settle.
    double walk_from(const triple& c, int& feat, int& index, triple& q) const;

protected:
    double closest(const triple& c, int& feat, int& index, triple& q) const;
    // The walk from the stored feature once fitted, the full partition before.
    double measure(const triple& c, int& feat, int& index, triple& q) const;
};

class PointPoly3dSeparator : public SpherePoly3dSeparator {
public:
    using SpherePoly3dSeparator::SpherePoly3dSeparator;
    Separator* clone() const override;
};

class Poly3dPoly3dSeparator : public Separator {
public:
    using Separator::Separator;
    int kind = 0; // 1 face and vertex, 2 edge pair
    bool outside = true;
    bool face_on_first = false; // kind 1: the face belongs to shape1
    int feature1 = 0, feature2 = 0;
    double side = 1; // kind 2: sign of the edge normal
    Separator* clone() const override;
    double evaluate_distance() override;
    void make_contact() override;
    bool fit(bool& clear, double& distance) override;
    bool refit(bool& clear, double& distance) override;
    // The first witness with distance >= -tolerance: faces of shape2 against
    // shape1's support vertex, then the other way, then edge pairs. Sets the
    // features and returns the largest distance seen if none qualifies.
    bool first_witness(double& distance);
    void witness() override {
        double d;
        first_witness(d);
    }
    // From the stored features to neighbouring ones while the separation grows.
    void walk() override;
    // How many witnesses the last walk looked at, for tests and statistics.
    int walk_tests = 0;

private:
    double face_distance(bool first_owns, int face, int& vertex) const;
    double edge_distance(int e1, int e2, double& sgn) const;
    double current_distance() const;
    // Every face and edge pair; the largest separation, faces preferred.
    double best_witness();
};

Separator* new_separator(BodySystem& sys, Shape* a, Shape* b);

} // namespace tessarin
