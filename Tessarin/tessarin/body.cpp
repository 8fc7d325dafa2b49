#include "Tessarin/tessarin/body.h"

#include <cmath>
#include <limits>

#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/messages.h"
#include "Tessarin/tessarin/shape.h"

namespace tessarin {

mat3 mat3::operator*(const mat3& o) const {
    mat3 r = zero();
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k)
            for (int j = 0; j < 3; ++j)
                r.m[i][j] += m[i][k] * o.m[k][j];
    return r;
}

mat3 mat3::transpose() const {
    mat3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.m[i][j] = m[j][i];
    return r;
}

mat3 mat3::inverse() const {
    const auto& a = m;
    double c00 = a[1][1] * a[2][2] - a[1][2] * a[2][1];
    double c01 = a[1][2] * a[2][0] - a[1][0] * a[2][2];
    double c02 = a[1][0] * a[2][1] - a[1][1] * a[2][0];
    double det = a[0][0] * c00 + a[0][1] * c01 + a[0][2] * c02;
    if (std::fabs(det) < 1e-300) return zero();
    double id = 1 / det;
    mat3 r;
    r.m[0][0] = c00 * id;
    r.m[1][0] = c01 * id;
    r.m[2][0] = c02 * id;
    r.m[0][1] = (a[0][2] * a[2][1] - a[0][1] * a[2][2]) * id;
    r.m[1][1] = (a[0][0] * a[2][2] - a[0][2] * a[2][0]) * id;
    r.m[2][1] = (a[0][1] * a[2][0] - a[0][0] * a[2][1]) * id;
    r.m[0][2] = (a[0][1] * a[1][2] - a[0][2] * a[1][1]) * id;
    r.m[1][2] = (a[0][2] * a[1][0] - a[0][0] * a[1][2]) * id;
    r.m[2][2] = (a[0][0] * a[1][1] - a[0][1] * a[1][0]) * id;
    return r;
}

mat3 mat3::zero() {
    mat3 r;
    for (auto& row : r.m)
        for (double& e : row)
            e = 0;
    return r;
}

Body::~Body() = default;

void Body::clear_wrench() {
    force.zero();
}

double Body::next_event_time(double) const {
    return std::numeric_limits<double>::infinity();
}

void Body::add_wrench(const double* wrench) {
    double a[6];
    accelerate(wrench, a);
    for (int i = 0; i < 6; ++i)
        external_accel[i] += a[i];
}

void Body::set_material(double bounce, double dyn_friction, double stat_friction) {
    if (!geometry) {
        warning("Body::set_material: body has no shape");
        return;
    }
    bounciness = bounce;
    dynamic_friction = dyn_friction;
    static_friction = stat_friction;
}

void Body::set_geometry(Shape* s) {
    if (geometry) {
        user_error("Body::set_geometry: body already has a shape");
        return;
    }
    geometry = s;
    if (s) s->set(this);
}

// ---------------------------------------------------------------- RigidBody

RigidBody::RigidBody(BodySystem* sys) : Body(sys) {
    inertia_body = mat3();
    inv_inertia_body = mat3();
    rebuild_derived();
}

int RigidBody::state_dof() const {
    return system && !system->dynamics ? 7 : 13;
}

void RigidBody::mass_matrix(matrix& m) const {
    if (m.null()) m.declare(6, 6);
    m.zero();
    for (int i = 0; i < 3; ++i)
        m(i, i) = mass;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m(3 + i, 3 + j) = inertia_world.m[i][j];
}

double RigidBody::dof(int i) const {
    switch (i) {
    case 0:
        return x.x;
    case 1:
        return x.y;
    case 2:
        return x.z;
    case 3:
        return q.r;
    case 4:
        return q.i;
    case 5:
        return q.j;
    case 6:
        return q.k;
    default:
        internal_error("RigidBody::dof: bad index (i = %d)", i);
        return 0;
    }
}

void RigidBody::rebuild_derived() {
    q.normalise();
    q.to_rows(R.m);
    inertia_world = R * inertia_body * R.transpose();
    inv_inertia_world = R * inv_inertia_body * R.transpose();
    // World box of the rotated local box: per world axis the extreme corner is
    // picked by the signs of R's row, so this is six dot products.
    triple c = (local_box.lo + local_box.hi) * 0.5, h = (local_box.hi - local_box.lo) * 0.5;
    triple wc = to_world_point(c);
    triple wh{std::fabs(R.m[0][0]) * h.x + std::fabs(R.m[0][1]) * h.y + std::fabs(R.m[0][2]) * h.z,
              std::fabs(R.m[1][0]) * h.x + std::fabs(R.m[1][1]) * h.y + std::fabs(R.m[1][2]) * h.z,
              std::fabs(R.m[2][0]) * h.x + std::fabs(R.m[2][1]) * h.y + std::fabs(R.m[2][2]) * h.z};
    world_box = {wc - wh, wc + wh};
}

void RigidBody::set_state(mvector& y, bool force_update) {
    double* s = y.data() + state_index;
    const bool dyn = system ? system->dynamics : true;
    const double tol = system ? system->tolerance : 0.02;
    const bool keep_small = system && system->keep_small_velocities;
    const double threshold = tol * 0.01;
    triple nx{s[0], s[1], s[2]};
    quaternion nq{s[3], s[4], s[5], s[6]};
    bool moved = force_update || keep_small || std::fabs(nx.x - x.x) > threshold ||
                 std::fabs(nx.y - x.y) > threshold || std::fabs(nx.z - x.z) > threshold;
    if (!moved) {
        quaternion d = q.conjugate() * nq;
        double n2 = nq.norm2();
        moved = (d.i * d.i + d.j * d.j + d.k * d.k) / (n2 > 0 ? n2 : 1) > 2.5e-07;
    }
    if (moved) {
        x = nx;
        q = nq;
        keystamp = system ? system->evaluation_stamp : keystamp + 1;
    }
    if (dyn) {
        v = {s[7], s[8], s[9]};
        w = {s[10], s[11], s[12]};
        if (!prescribed && !keep_small) {
            if (v.length() < threshold * 0.1) {
                v = {};
                s[7] = s[8] = s[9] = 0;
            }
            if (w.length2() < 1e-10) {
                w = {};
                s[10] = s[11] = s[12] = 0;
            }
        }
    }
    if (moved) rebuild_derived();
}

void RigidBody::get_state(mvector& y) const {
    double* s = y.data() + state_index;
    s[0] = x.x, s[1] = x.y, s[2] = x.z;
    s[3] = q.r, s[4] = q.i, s[5] = q.j, s[6] = q.k;
    if (state_dof() == 13) {
        s[7] = v.x, s[8] = v.y, s[9] = v.z;
        s[10] = w.x, s[11] = w.y, s[12] = w.z;
    }
}

namespace {
// Rate of a unit quaternion turning at world angular rate w: (0, w) q / 2.
void quaternion_rate(const double* qs, const triple& w, double* out) {
    quaternion q{qs[0], qs[1], qs[2], qs[3]};
    q.normalise();
    quaternion d = quaternion(0, w) * q;
    out[0] = d.r * 0.5, out[1] = d.i * 0.5, out[2] = d.j * 0.5, out[3] = d.k * 0.5;
}
} // namespace

void RigidBody::dydt(const mvector& y, mvector& dy) const {
    const double* s = y.data() + state_index;
    double* d = dy.data() + state_index;
    const bool dyn = system ? system->dynamics : true;
    const Task task = system ? system->task : TASK_DYNAMICS;
    const bool keep_small = system && system->keep_small_velocities;

    if (task == TOLERANCE_CORRECTION) {
        triple lin{constraint_accel[0], constraint_accel[1], constraint_accel[2]};
        triple ang{constraint_accel[3], constraint_accel[4], constraint_accel[5]};
        d[0] = lin.x, d[1] = lin.y, d[2] = lin.z;
        quaternion_rate(s + 3, ang, d + 3);
        if (dyn)
            for (int i = 7; i < 13; ++i)
                d[i] = 0;
        return;
    }

    double a[6];
    if (prescribed) {
        for (int i = 0; i < 6; ++i)
            a[i] = prescribed_accel[i];
    } else {
        for (int i = 0; i < 6; ++i)
            a[i] = constraint_accel[i] + external_accel[i];
        if (spin_on && dyn) {
            triple wv{s[10], s[11], s[12]};
            triple gyro = inv_inertia_world * wv.cross(inertia_world * wv);
            a[3] -= gyro.x, a[4] -= gyro.y, a[5] -= gyro.z;
        }
    }
    if (!translate_on && !prescribed) a[0] = a[1] = a[2] = 0;
    if (!spin_on && !prescribed) a[3] = a[4] = a[5] = 0;
    if (!keep_small && dyn) {
        // Tiny accelerations that do not brake the motion are noise of the solve;
        // dropping them is what lets a stack come to a true standstill.
        for (int i = 0; i < 6; ++i) {
            double limit = i < 3 ? 1e-05 : 0.001;
            double vel = s[7 + i];
            if (std::fabs(a[i]) < limit && !(a[i] * vel < 0)) a[i] = 0;
        }
    }
    if (dyn) {
        d[0] = s[7], d[1] = s[8], d[2] = s[9];
        quaternion_rate(s + 3, triple{s[10], s[11], s[12]}, d + 3);
        for (int i = 0; i < 6; ++i)
            d[7 + i] = a[i];
    } else {
        d[0] = a[0], d[1] = a[1], d[2] = a[2];
        quaternion_rate(s + 3, triple{a[3], a[4], a[5]}, d + 3);
    }
}

void RigidBody::correction(mvector& out) const {
    double* d = out.data() + state_index;
    const double* s = system->y.data() + state_index;
    d[0] = constraint_accel[0], d[1] = constraint_accel[1], d[2] = constraint_accel[2];
    quaternion_rate(s + 3, triple{constraint_accel[3], constraint_accel[4], constraint_accel[5]}, d + 3);
    if (state_dof() == 13)
        for (int i = 7; i < 13; ++i)
            d[i] = 0;
}

void RigidBody::sum_forces() {
    external_accel.zero();
    constraint_accel.zero();
    if (system && system->task == TOLERANCE_CORRECTION) return;
    if (!prescribed) add_wrench(force.data());
}

void RigidBody::add_impulse(const double* wrench) {
    double a[6];
    accelerate(wrench, a);
    for (int i = 0; i < 6; ++i)
        applied_impulse[i] += a[i];
    impulse_pending = true;
}

triple RigidBody::to_world_point(const triple& local) const {
    return x + R * (local - centre_local);
}

triple RigidBody::to_local_point(const triple& world) const {
    return R.tmul(world - x) + centre_local;
}

void RigidBody::world_plane(const triple& ln, double ld, triple& n, double& d) const {
    // Local plane n.p = d; a point on it is ld * ln.
    n = R * ln;
    d = n.dot(to_world_point(ln * ld));
}

triple RigidBody::point_velocity(const triple& p) const {
    return v + w.cross(p - x);
}

triple RigidBody::point_acceleration(const triple& p) const {
    return w.cross(w.cross(p - x));
}

void RigidBody::apply_at_point(const triple& p, const triple& f, double* wr) const {
    triple t = (p - x).cross(f);
    wr[0] = f.x, wr[1] = f.y, wr[2] = f.z, wr[3] = t.x, wr[4] = t.y, wr[5] = t.z;
}

void RigidBody::accelerate(const double* wr, double* out) const {
    if (prescribed) {
        for (int i = 0; i < 6; ++i)
            out[i] = 0;
        return;
    }
    double im = translate_on ? inv_mass : 0;
    out[0] = wr[0] * im, out[1] = wr[1] * im, out[2] = wr[2] * im;
    if (spin_on) {
        triple a = inv_inertia_world * triple{wr[3], wr[4], wr[5]};
        out[3] = a.x, out[4] = a.y, out[5] = a.z;
    } else {
        out[3] = out[4] = out[5] = 0;
    }
}

void RigidBody::place(const triple& origin, const quaternion& orientation) {
    q = orientation;
    q.normalise();
    q.to_rows(R.m);
    x = origin + R * centre_local;
    rebuild_derived();
    keystamp = 0;
}

namespace {
// Jacobi sweeps on a symmetric 3x3; false if it does not converge.
bool jacobi_eigenvalues(mat3 a, double ev[3]) {
    for (int sweep = 0; sweep < 50; ++sweep) {
        double off = a.m[0][1] * a.m[0][1] + a.m[0][2] * a.m[0][2] + a.m[1][2] * a.m[1][2];
        double diag = a.m[0][0] * a.m[0][0] + a.m[1][1] * a.m[1][1] + a.m[2][2] * a.m[2][2];
        if (off <= 1e-10 * 1e-10 * (diag > 0 ? diag : 1)) {
            for (int i = 0; i < 3; ++i)
                ev[i] = a.m[i][i];
            return true;
        }
        for (int p = 0; p < 2; ++p)
            for (int r = p + 1; r < 3; ++r) {
                if (a.m[p][r] == 0) continue;
                double theta = (a.m[r][r] - a.m[p][p]) / (2 * a.m[p][r]);
                double t = (theta >= 0 ? 1 : -1) / (std::fabs(theta) + std::sqrt(theta * theta + 1));
                double c = 1 / std::sqrt(t * t + 1), s = t * c;
                mat3 j;
                j.m[p][p] = c, j.m[r][r] = c, j.m[p][r] = s, j.m[r][p] = -s;
                a = j.transpose() * a * j;
            }
    }
    return false;
}
} // namespace

void RigidBody::compute_inertials(double dens, double given_mass, bool keep_surface) {
    if (!geometry) {
        user_error("RigidBody::compute_inertials: body has no shape");
        return;
    }
    triple c_old = centre_local;
    double vol = geometry->volume();
    triple c = geometry->centroid();
    mat3 inertia = geometry->moment2(); // unit density, about the centroid
    density = dens;
    double m = given_mass > 0 ? given_mass : vol * dens;
    bool fallback = false;
    if (vol == 0) {
        warning("RigidBody::compute_inertials: no mass in body");
        fallback = true;
    } else if (m < 0 || vol < 0) {
        warning("RigidBody::compute_inertials: NEGATIVE mass");
        fallback = true;
    }
    if (fallback) {
        mass = 1;
        c = {};
        inertia = mat3();
    } else {
        mass = m;
        double f = vol != 0 ? m / vol : 0;
        for (auto& row : inertia.m)
            for (double& e : row)
                e *= f;
        double ev[3];
        if (!jacobi_eigenvalues(inertia, ev) || ev[0] <= 0 || ev[1] <= 0 || ev[2] <= 0) {
            warning("RigidBody::compute_inertials: BAD INERTIA TENSOR!");
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j)
                    if (i != j) inertia.m[i][j] = 0;
            for (int i = 0; i < 3; ++i)
                if (inertia.m[i][i] <= 0) inertia.m[i][i] = mass;
        }
    }
    inv_mass = 1 / mass;
    inertia_body = inertia;
    inv_inertia_body = inertia.inverse();
    centre_local = c;
    local_box = geometry->local_bound();
    // x is the centre of mass; keeping it where it was moves the surface.
    if (keep_surface) x += R * (c - c_old);
    rebuild_derived();
}

void RigidBody::compute_inertials(const triple& lo, const triple& hi, double dens) {
    triple d = hi - lo;
    double m = d.x * d.y * d.z * dens;
    if (m <= 0) {
        warning("RigidBody::compute_inertials[2]: zero mass");
        return;
    }
    mass = m;
    inv_mass = 1 / m;
    inertia_body = mat3::zero();
    inertia_body.m[0][0] = m / 12 * (d.y * d.y + d.z * d.z);
    inertia_body.m[1][1] = m / 12 * (d.x * d.x + d.z * d.z);
    inertia_body.m[2][2] = m / 12 * (d.x * d.x + d.y * d.y);
    inv_inertia_body = inertia_body.inverse();
    triple c_old = centre_local;
    centre_local = (lo + hi) * 0.5;
    x += R * (centre_local - c_old);
    rebuild_derived();
}

} // namespace tessarin
