#pragma once
#include "Tessarin/kelsupport/basellist.h"
#include "Tessarin/kelsupport/triple.h"
#include "Tessarin/tessarin/entity.h"
#include "Tessarin/tessarin/separator.h"

namespace tessarin {

class Body;
class BodySystem;
class Constraint;

// A force source, applied once per derivative evaluation.
class Influence : public InfluenceHook {
public:
    explicit Influence(BodySystem* sys, Body* b = nullptr) : system(sys), body(b) {}
    BodySystem* system;
    Body* body; // the body it acts on first (two-body influences have a second)

    virtual void apply() = 0;
    virtual void clear() {}
    // Hits the body from outside, between steps only: the wrench becomes a
    // velocity change at once.
    void expert_impulse(const double* wrench);
};

class UniformField : public Influence {
public:
    UniformField(BodySystem* sys, const triple& accel) : Influence(sys), a(accel) {}
    triple a;
    llist<Body> bodies; // empty: every body
    void apply() override;
};

class SimpleDamper : public Influence {
public:
    SimpleDamper(BodySystem* sys, Body* b, double damping) : Influence(sys, b), c(damping) {}
    double c;
    void apply() override;
};

class UniSpring : public Influence {
public:
    UniSpring(BodySystem* sys, Body* b, const triple& local, const triple& anchor, double kd, double ks,
              double rest)
        : Influence(sys, b), point(local), p0(anchor), kd(kd), ks(ks), L(rest) {}
    triple point, p0;
    double kd, ks, L;
    void apply() override;
};

class Spring : public Influence {
public:
    Spring(BodySystem* sys, Body* b1, Body* b2, const triple& l1, const triple& l2, double kd, double ks,
           double rest)
        : Influence(sys, b1), body2(b2), point1(l1), point2(l2), kd(kd), ks(ks), L(rest) {}
    Body* body2;
    triple point1, point2;
    double kd, ks, L;
    void apply() override;
};

class MouseSpring : public Influence {
public:
    MouseSpring(BodySystem* sys, Body* b, const triple& local, const triple& target, double kd, double ks)
        : Influence(sys, b), point(local), target(target), kd(kd), ks(ks) {}
    triple point, target;
    double kd, ks;
    void apply() override;
};

// A one-sided obstacle built from an expression; the expression kinds come
// with the user constraints. It owns one unilateral constraint row.
class Barrier : public Obstacle, public BarrierHook {
public:
    explicit Barrier(BodySystem* sys) : Obstacle(sys) { rank = 1; }
    Constraint* constraint = nullptr;
    bool initialised = false;
};

} // namespace tessarin
