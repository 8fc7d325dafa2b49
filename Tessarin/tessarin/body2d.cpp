#include "Tessarin/tessarin/body2d.h"

#include <cmath>

#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/messages.h"
#include "Tessarin/tessarin/shape.h"

namespace tessarin {

RigidBody2d::RigidBody2d(BodySystem* sys) : RigidBody(sys) {
    local_box = {{-0.5, -0.5, 0}, {0.5, 0.5, 0}};
    set_inertia(1);
    set_angle(0);
}

void RigidBody2d::set_inertia(double i) {
    inertia = i;
    inv_inertia = i > 0 ? 1 / i : 0;
    // Only the z entry: the gyroscopic term vanishes and tilts cannot be excited.
    inertia_body = mat3::zero();
    inv_inertia_body = mat3::zero();
    inertia_body.m[2][2] = inertia;
    inv_inertia_body.m[2][2] = inv_inertia;
}

void RigidBody2d::set_angle(double a) {
    angle = a;
    q = quaternion(std::cos(0.5 * a), 0, 0, std::sin(0.5 * a));
    rebuild_derived();
}

int RigidBody2d::state_dof() const {
    return system && !system->dynamics ? 3 : 6;
}

void RigidBody2d::mass_matrix(matrix& m) const {
    if (m.null()) m.declare(3, 3);
    m.zero();
    m(0, 0) = mass;
    m(1, 1) = mass;
    m(2, 2) = inertia;
}

double RigidBody2d::dof(int i) const {
    switch (i) {
    case 0:
        return x.x;
    case 1:
        return x.y;
    case 2:
        return angle;
    default:
        internal_error("RigidBody2d::dof: bad index (i = %d)", i);
        return 0;
    }
}

void RigidBody2d::set_state(mvector& y, bool force_update) {
    double* s = y.data() + state_index;
    const bool dyn = system ? system->dynamics : true;
    const double tol = system ? system->tolerance : 0.02;
    const bool keep_small = system && system->keep_small_velocities;
    const double threshold = tol * 0.01;
    const double half = std::sin(0.5 * (s[2] - angle));
    // The same turn threshold as the quaternion test of 3D bodies.
    const bool moved = force_update || keep_small || std::fabs(s[0] - x.x) > threshold ||
                       std::fabs(s[1] - x.y) > threshold || half * half > 2.5e-07;
    if (moved) {
        x = {s[0], s[1], 0};
        keystamp = system ? system->evaluation_stamp : keystamp + 1;
    }
    if (dyn) {
        v = {s[3], s[4], 0};
        w = {0, 0, s[5]};
        if (!prescribed && !keep_small) {
            if (v.length() < threshold * 0.1) {
                v = {};
                s[3] = s[4] = 0;
            }
            if (w.z * w.z < 1e-10) {
                w = {};
                s[5] = 0;
            }
        }
    }
    if (moved) set_angle(s[2]);
}

void RigidBody2d::get_state(mvector& y) const {
    double* s = y.data() + state_index;
    s[0] = x.x, s[1] = x.y, s[2] = angle;
    if (state_dof() == 6) s[3] = v.x, s[4] = v.y, s[5] = w.z;
}

void RigidBody2d::dydt(const mvector& y, mvector& dy) const {
    const double* s = y.data() + state_index;
    double* d = dy.data() + state_index;
    const bool dyn = system ? system->dynamics : true;
    const Task task = system ? system->task : TASK_DYNAMICS;
    const bool keep_small = system && system->keep_small_velocities;

    if (task == TOLERANCE_CORRECTION) {
        d[0] = constraint_accel[0], d[1] = constraint_accel[1], d[2] = constraint_accel[5];
        if (dyn) d[3] = d[4] = d[5] = 0;
        return;
    }
    // Linear x, y and the z spin of the six-wide accelerations.
    const int slot[3] = {0, 1, 5};
    double a[3];
    for (int i = 0; i < 3; ++i)
        a[i] = prescribed ? prescribed_accel[slot[i]] : constraint_accel[slot[i]] + external_accel[slot[i]];
    if (!translate_on && !prescribed) a[0] = a[1] = 0;
    if (!spin_on && !prescribed) a[2] = 0;
    if (!keep_small && dyn) {
        for (int i = 0; i < 3; ++i) {
            double limit = i < 2 ? 1e-05 : 0.001;
            if (std::fabs(a[i]) < limit && !(a[i] * s[3 + i] < 0)) a[i] = 0;
        }
    }
    if (dyn) {
        d[0] = s[3], d[1] = s[4], d[2] = s[5];
        d[3] = a[0], d[4] = a[1], d[5] = a[2];
    } else {
        d[0] = a[0], d[1] = a[1], d[2] = a[2];
    }
}

void RigidBody2d::accelerate(const double* wr, double* out) const {
    for (int i = 0; i < 6; ++i)
        out[i] = 0;
    if (prescribed) return;
    const double im = translate_on ? inv_mass : 0;
    out[0] = wr[0] * im;
    out[1] = wr[1] * im;
    if (spin_on) out[5] = wr[5] * inv_inertia;
}

void RigidBody2d::correction(mvector& out) const {
    double* d = out.data() + state_index;
    d[0] = constraint_accel[0], d[1] = constraint_accel[1], d[2] = constraint_accel[5];
    if (state_dof() == 6) d[3] = d[4] = d[5] = 0;
}

void RigidBody2d::place2d(double x0, double y0, double a) {
    set_angle(a);
    x = triple{x0, y0, 0} + R * centre_local;
    rebuild_derived();
    keystamp = 0;
}

void RigidBody2d::compute_inertials2d(double dens, double given_mass, bool keep_surface) {
    if (!geometry) {
        user_error("RigidBody::compute_inertials: body has no shape");
        return;
    }
    const Shape* p = geometry;
    const triple c_old = centre_local;
    const double area = p->volume();
    density = dens;
    double m = given_mass > 0 ? given_mass : area * dens;
    triple c = p->centroid();
    double j = p->moment2_scalar();
    if (area == 0) {
        warning("RigidBody::compute_inertials: no mass in body");
        m = 1, c = {}, j = 1;
    } else if (m < 0 || area < 0) {
        warning("RigidBody::compute_inertials: NEGATIVE mass");
        m = 1, c = {}, j = 1;
    } else {
        j *= m / area;
    }
    mass = m;
    inv_mass = 1 / m;
    set_inertia(j);
    centre_local = c;
    local_box = p->local_bound();
    if (keep_surface) x += R * (c - c_old);
    rebuild_derived();
}

void RigidBody2d::compute_inertials2d(double lox, double loy, double hix, double hiy, double dens) {
    const double dx = hix - lox, dy = hiy - loy;
    const double m = dx * dy * dens;
    if (m <= 0) {
        warning("RigidBody::compute_inertials[2]: zero mass");
        return;
    }
    mass = m;
    inv_mass = 1 / m;
    set_inertia(m / 12 * (dx * dx + dy * dy));
    const triple c_old = centre_local;
    centre_local = {0.5 * (lox + hix), 0.5 * (loy + hiy), 0};
    local_box = {{lox, loy, 0}, {hix, hiy, 0}};
    x += R * (centre_local - c_old);
    rebuild_derived();
}

} // namespace tessarin
