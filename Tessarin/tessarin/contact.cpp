#include "Tessarin/tessarin/contact.h"

#include <algorithm>
#include <cmath>

#include "Tessarin/tessarin/body.h"
#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/messages.h"
#include "Tessarin/tessarin/shape.h"

namespace tessarin {

Contact::Contact(BodySystem* sys, Body* b1, Body* b2)
    : Constraint(sys, sys->dimension == 3 ? 3 : 2, 2), body1(b1), body2(b2) {
    bodies.append(b1);
    bodies.append(b2);
    if (sys->contact_callback) sys->contact_callback(b1, b2, 1);
    if (sys->material_callback) {
        sys->material_callback(b1, b2, restitution, mu_dynamic, mu_static);
    } else {
        restitution = std::min(b1->bounciness, b2->bounciness);
        mu_dynamic = std::min(b1->dynamic_friction, b2->dynamic_friction);
        mu_static = std::min(b1->static_friction, b2->static_friction);
    }
}

Contact::~Contact() {
    if (system->contact_callback) system->contact_callback(body1, body2, 0);
}

int Contact::kind() const {
    if (system->task == TOLERANCE_CORRECTION || frictionless) return 2;
    return system->dimension == 3 ? 4 : 3;
}

int Contact::dimension() const {
    if (!alive) internal_error("Contact::dimension: query on unalive contact");
    if (system->task == TOLERANCE_CORRECTION || frictionless) return 1;
    return system->dimension == 3 ? 3 : 2;
}

bool Contact::is_active() const {
    const Task t = system->task;
    if (t == TOLERANCE_CORRECTION || t == TASK_FIRST_ORDER) return true;
    if (t == TASK_IMPACT) return alive && impacting;
    return alive;
}

void Contact::prepare() {
    active = true;
    alive = true;
    impacting = false;
    sliding = false;
    restitution_now = system->restitution_on ? restitution : 0;
    mu_dynamic_now = system->friction_on ? mu_dynamic : 0;
    mu_static_now = system->friction_on ? mu_static : 0;
    has_friction = mu_static_now > 0;
    frictionless = !has_friction || system->task == TOLERANCE_CORRECTION;
    recompute_geometry();
    if (system->dimension == 3) {
        perpendicular_frame(normal, t1, t2);
    } else {
        t1 = {normal.y, -normal.x, 0};
        t2 = {};
    }
    distance = (point1 - point2).dot(normal);
    if (system->task != TASK_IMPACT && system->task != TASK_DYNAMICS) build_rows();
}

void Contact::recompute_velocity_data() {
    triple v = body1->point_velocity(point1) - body2->point_velocity(point2);
    vn = v.dot(normal);
    vt = v - normal * vn;
}

void Contact::refresh() {
    const Task task = system->task;
    if (task != TASK_FIRST_ORDER) {
        impacting = false;
        frictionless = !has_friction;
    }
    sliding = false;
    recompute_velocity_data();
    const double T = effective_tolerance();
    if (vn > T) {
        alive = false;
        return;
    }
    alive = true;
    if (task == TASK_DYNAMICS && has_friction) {
        double speed = vt.length();
        if (speed > 0.2 * T) {
            // Sliding: only the normal row is solved; friction is a known force from
            // the last normal force estimate.
            sliding = true;
            frictionless = true;
            double f = std::max(force, 0.0);
            double mag = mu_dynamic_now * f;
            // Known friction must not reverse the slide within a step: near the stop
            // it takes only what brings the relative motion to rest over the step.
            const triple dir = vt / speed;
            double w1[6], w2[6], a1[6], a2[6];
            body1->apply_at_point(point1, dir, w1);
            body1->accelerate(w1, a1);
            body2->apply_at_point(point2, -dir, w2);
            body2->accelerate(w2, a2);
            double k = 0;
            for (int i = 0; i < 6; ++i)
                k += w1[i] * a1[i] + w2[i] * a2[i];
            const double h = system->ode.h_trying;
            if (k > 0 && h > 0) mag = std::min(mag, speed / (k * h));
            triple F = dir * -mag;
            double w[6];
            body1->apply_at_point(point1, F, w);
            body1->add_wrench(w);
            body2->apply_at_point(point2, -F, w);
            body2->add_wrench(w);
        }
    }
    // The deeper the pair, the lower the approach speed that counts as a hit.
    const double d = distance, u = -vn;
    impacting =
        (d < -0.7 * T && u > 0.1 * T) || (d < -0.5 * T && u > 0.2 * T) || (d < 0 && u > 0.5 * T) || u > 2 * T;
    build_rows();
}

void Contact::build_rows() {
    const int n =
        (system->task == TOLERANCE_CORRECTION || frictionless) ? 1 : (system->dimension == 3 ? 3 : 2);
    const triple* dirs[3] = {&normal, &t1, &t2};
    for (int i = 0; i < n; ++i)
        build_row(i, body1, body2, &dirs[i]->x, &point1.x, &point2.x);
    scale_rows();
}

void Contact::scale_rows() {
    const int n = dimension();
    scale[0] = 1;
    double a = 0;
    for (const RowPart& p : rows[0].part)
        for (int k = 0; k < 6; ++k)
            a += p.J[k] * p.MJ[k];
    if (a <= 0) {
        internal_error("Contact::self_scale: scaling(0) = %g", a);
        return;
    }
    double s = 1 / std::sqrt(a);
    if (s < 1e-10) s = 1;
    for (int i = 0; i < n; ++i) {
        scale[i] = s;
        for (RowPart& p : rows[size_t(i)].part)
            for (int k = 0; k < 6; ++k) {
                p.J[k] *= s;
                p.MJ[k] *= s;
            }
    }
}

double Contact::velocity_product(const triple& d) const {
    triple a = body1->point_acceleration(point1) - body2->point_acceleration(point2);
    triple v = body1->point_velocity(point1) - body2->point_velocity(point2);
    // The direction turns with the body that carries it (dn for the normal).
    triple dd = d == normal ? dn : triple();
    if (!(d == normal)) {
        const RigidBody* r2 = dynamic_cast<const RigidBody*>(body2);
        if (r2) dd = r2->w.cross(d);
    }
    return d.dot(a) + dd.dot(v);
}

void Contact::rhs(double* r) {
    const double s = scale[0];
    const double T = effective_tolerance();
    const bool solid = system->dimension == 3; // a plane contact has one friction row
    switch (system->task) {
    case TOLERANCE_CORRECTION:
        r[0] = -std::clamp(distance, -T, T) * s;
        break;
    case TASK_IMPACT: {
        double e = restitution_now;
        if (-vn * e < 2.5 * T) e = 0; // slow hits do not bounce: this is what lets bodies settle
        r[0] = (-1 - e) * vn * s;
        if (!frictionless) {
            r[1] = -t1.dot(vt) * s;
            if (solid) r[2] = -t2.dot(vt) * s;
        }
        break;
    }
    case TASK_FIRST_ORDER:
        r[0] = 0;
        if (!frictionless) r[1] = 0;
        if (!frictionless && solid) r[2] = 0;
        break;
    default: {
        // Critically damped return to the surface over the system's
        // stabiliser time: at one second the solver's dead zone (a quarter of
        // the band per second squared) would let a loaded corner rest 5 mm deep,
        // and a tall stack lean by that much at its base.
        const double tau = system->stabiliser_time;
        double b = vn >= 0.1 * T ? 0 : -(2 * vn / tau + distance / (tau * tau)) * stabilising;
        r[0] = (b - velocity_product(normal)) * s;
        if (!frictionless) {
            const double g = stabilising * system->tangential_gain;
            r[1] = (-g * t1.dot(vt) - velocity_product(t1)) * s;
            if (solid) r[2] = (-g * t2.dot(vt) - velocity_product(t2)) * s;
        }
        break;
    }
    }
}

void Contact::apply() {
    Constraint::apply();
    const double s = scale[0];
    if (system->task == TASK_IMPACT) {
        if (system->impulse_callback && lambda[0] > 0)
            system->impulse_callback(body1, body2, &point.x, &normal.x, lambda[0] * s);
        return;
    }
    if (system->at_step_start && system->task != TOLERANCE_CORRECTION) {
        // The estimate rises by at most 20 per evaluation: it feeds the sliding
        // friction explicitly, and a sudden jump would kick.
        double f = force / s;
        if (f <= lambda[0])
            f = std::min(f + 20, lambda[0]);
        else
            f = lambda[0];
        force = f * s;
    }
}

bool Contact::same_as(const triple& p1, const triple& p2, const triple& n) const {
    const double T = effective_tolerance();
    if (n.dot(normal) < 0.999) return false;
    if (std::fabs((p1 - point1).dot(normal)) > 0.5 * T) return false;
    if ((p1 - point1).length() > 3 * T) return false;
    (void)p2;
    return true;
}

// ---------------------------------------------------------------- pair kinds

SphereSphereContact::SphereSphereContact(BodySystem* sys, Body* b1, Body* b2, const triple& c1, double ra,
                                         const triple& c2, double rb)
    : Contact(sys, b1, b2), local_c1(c1), local_c2(c2), r1(ra), r2(rb) {
    recompute_geometry();
}

void SphereSphereContact::recompute_geometry() {
    triple c1 = body1->to_world_point(local_c1), c2 = body2->to_world_point(local_c2);
    triple d = c1 - c2;
    double len = d.length();
    if (len > 1e-12) normal = d / len;
    point1 = c1 - normal * r1;
    point2 = c2 + normal * r2;
    point = point2;
    triple vrel = body1->point_velocity(c1) - body2->point_velocity(c2);
    dn = len > 1e-12 ? (vrel - normal * vrel.dot(normal)) / len : triple();
}

SpherePoly3dContact::SpherePoly3dContact(BodySystem* sys, Body* b1, Body* b2, const triple& centre, double r,
                                         Poly3d* p, Feature f, int idx)
    : Contact(sys, b1, b2), local_centre(centre), radius(r), poly(p), feature(f), feature_index(idx) {
    recompute_geometry();
}

void SpherePoly3dContact::recompute_geometry() {
    const RigidBody* pb = static_cast<const RigidBody*>(body2);
    triple c = body1->to_world_point(local_centre);
    triple q;
    if (feature == FACE) {
        const Poly3dFace& f = poly->poly.faces[size_t(feature_index)];
        normal = pb->to_world_dir(f.normal);
        triple on = pb->to_world_point(poly->poly.vertices[size_t(f.verts[0])].p);
        q = c - normal * normal.dot(c - on);
        dn = pb->w.cross(normal);
    } else {
        if (feature == EDGE) {
            const Poly3dEdge& e = poly->poly.edges[size_t(feature_index)];
            triple a = pb->to_world_point(poly->poly.vertices[size_t(e.v[0])].p);
            triple b = pb->to_world_point(poly->poly.vertices[size_t(e.v[1])].p);
            triple ab = b - a;
            double t = std::clamp((c - a).dot(ab) / std::max(ab.length2(), 1e-300), 0.0, 1.0);
            q = a + ab * t;
        } else {
            q = pb->to_world_point(poly->poly.vertices[size_t(feature_index)].p);
        }
        triple d = c - q;
        double len = d.length();
        if (len > 1e-12) normal = d / len;
        triple vrel = body1->point_velocity(c) - body2->point_velocity(q);
        dn = len > 1e-12 ? (vrel - normal * vrel.dot(normal)) / len : triple();
    }
    point2 = q;
    point1 = c - normal * radius;
    point = q;
}

Poly3dPoly3dContact::Poly3dPoly3dContact(BodySystem* sys, Body* b1, Body* b2) : Contact(sys, b1, b2) {}

void Poly3dPoly3dContact::recompute_geometry() {
    const RigidBody* r1 = static_cast<const RigidBody*>(body1);
    const RigidBody* r2 = static_cast<const RigidBody*>(body2);
    if (edge_mode) {
        triple a0 = r1->to_world_point(e1a), a1 = r1->to_world_point(e1b);
        triple b0 = r2->to_world_point(e2a), b1 = r2->to_world_point(e2b);
        triple da = a1 - a0, db = b1 - b0;
        triple n = da.cross(db);
        double len = n.length();
        if (len > 1e-12) normal = n * (edge_sign / len);
        // Closest points of the two lines.
        triple w0 = a0 - b0;
        double a = da.dot(da), b = da.dot(db), c = db.dot(db), d = da.dot(w0), e = db.dot(w0);
        double den = a * c - b * b;
        double s = den > 1e-300 ? (b * e - c * d) / den : 0;
        double t = den > 1e-300 ? (a * e - b * d) / den : 0;
        point1 = a0 + da * s;
        point2 = b0 + db * t;
        point = (point1 + point2) * 0.5;
        dn = r2->w.cross(normal);
        return;
    }
    const RigidBody* owner = face_on_body1 ? r1 : r2;
    const RigidBody* other = face_on_body1 ? r2 : r1;
    triple nf = owner->to_world_dir(face_normal_local);
    triple on = owner->to_world_point(face_normal_local * face_offset_local);
    triple p = other->to_world_point(local_point);
    triple proj = p - nf * nf.dot(p - on);
    if (face_on_body1) {
        normal = -nf;
        point1 = proj;
        point2 = p;
    } else {
        normal = nf;
        point1 = p;
        point2 = proj;
    }
    point = (point1 + point2) * 0.5;
    dn = owner->w.cross(normal);
}

} // namespace tessarin
