#include "Tessarin/tessarin/influence.h"

#include <cmath>

#include "Tessarin/tessarin/body.h"
#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/messages.h"

namespace tessarin {

void Influence::expert_impulse(const double* wrench) {
    if (system->task != TASK_NONE) {
        user_error("Influence::expert_impulse: invoked while BodySystem::step_forward still executing");
        return;
    }
    if (!body) return;
    double a[6];
    body->accelerate(wrench, a);
    if (auto* rb = dynamic_cast<RigidBody*>(body)) {
        rb->v += triple{a[0], a[1], a[2]};
        rb->w += triple{a[3], a[4], a[5]};
    }
    system->dirty = true;
}

void UniformField::apply() {
    auto push = [&](Body* b) {
        if (b->prescribed) return;
        // Mass times a at the centre is a itself as an acceleration.
        double w[6] = {a.x * b->mass, a.y * b->mass, a.z * b->mass, 0, 0, 0};
        b->add_wrench(w);
    };
    if (bodies.empty())
        for (Body* b : system->bodies)
            push(b);
    else
        for (Body* b : bodies)
            push(b);
}

void SimpleDamper::apply() {
    auto* rb = dynamic_cast<RigidBody*>(body);
    if (!system->dynamics || !rb || rb->prescribed) return;
    double w[6] = {-c * rb->v.x, -c * rb->v.y, -c * rb->v.z, -c * rb->w.x, -c * rb->w.y, -c * rb->w.z};
    body->add_wrench(w);
}

namespace {
// Spring force on a point from its offset d to the anchor and the point's
// relative velocity: -ks (|d| - L) along d, with damping opposing the motion.
triple spring_force(const triple& d, const triple& vel, double ks, double kd, double L, bool dyn) {
    double len = d.length();
    triple n = len < 1e-5 ? triple() : d / len;
    double mag = -ks * (len - L);
    if (dyn) mag -= kd * vel.dot(n);
    return n * mag;
}
} // namespace

void UniSpring::apply() {
    triple p = body->to_world_point(point);
    triple f = spring_force(p - p0, body->point_velocity(p), ks, kd, L, system->dynamics);
    double w[6];
    body->apply_at_point(p, f, w);
    body->add_wrench(w);
}

void Spring::apply() {
    triple p1 = body->to_world_point(point1), p2 = body2->to_world_point(point2);
    triple vel = body->point_velocity(p1) - body2->point_velocity(p2);
    triple f = spring_force(p1 - p2, vel, ks, kd, L, system->dynamics);
    double w[6];
    body->apply_at_point(p1, f, w);
    body->add_wrench(w);
    body2->apply_at_point(p2, -f, w);
    body2->add_wrench(w);
}

void MouseSpring::apply() {
    triple p = body->to_world_point(point);
    triple f = (target - p) * ks;
    if (system->dynamics) f -= body->point_velocity(p) * kd;
    // A dragged body may not be yanked: the pull is capped before the mass scales it.
    if (f.length2() > 49) f = f * (7 / f.length());
    f = f * body->mass;
    double w[6];
    body->apply_at_point(p, f, w);
    // A plane body dragged by its spin would whirl about the cursor: damp the turn.
    if (system->dimension == 2 && system->dynamics && body->velocity_dof() == 3)
        if (auto* rb = dynamic_cast<RigidBody*>(body)) w[5] -= 0.5 * rb->w.z;
    body->add_wrench(w);
}

} // namespace tessarin
