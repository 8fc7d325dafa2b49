#pragma once
#include "Tessarin/kelsupport/basellist.h"
#include "Tessarin/kelsupport/matrix.h"
#include "Tessarin/kelsupport/mvector.h"
#include "Tessarin/kelsupport/quaternion.h"
#include "Tessarin/kelsupport/triple.h"
#include "Tessarin/tessarin/entity.h"

namespace tessarin {

class BodySystem;
class Shape;
class Constraint;

// 3x3 helpers on plain arrays; the hot paths never build a matrix object.
struct mat3 {
    double m[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    triple operator*(const triple& v) const {
        return {m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z, m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z,
                m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z};
    }
    // Transpose times v.
    triple tmul(const triple& v) const {
        return {m[0][0] * v.x + m[1][0] * v.y + m[2][0] * v.z, m[0][1] * v.x + m[1][1] * v.y + m[2][1] * v.z,
                m[0][2] * v.x + m[1][2] * v.y + m[2][2] * v.z};
    }
    mat3 operator*(const mat3& o) const;
    mat3 transpose() const;
    mat3 inverse() const; // zero when singular
    static mat3 zero();
};

// Axis-aligned box in world coordinates.
struct box3 {
    triple lo, hi;
};

class Body : public BodyHook, public Keystamp {
public:
    explicit Body(BodySystem* system = nullptr) : system(system) {}
    ~Body() override;

    BodySystem* system;
    Shape* geometry = nullptr;
    llist<Constraint> constraints;

    double bounciness = 0.6, dynamic_friction = 0.2, static_friction = 0.2;
    double mass = 1, inv_mass = 1;
    int state_index = 0;
    int collision_layer = 0; // negative collides with every layer
    int solve_slot = -1;     // place in the island being solved, -1 outside one
    bool prescribed = false;
    bool impulse_pending = false;

    // Applied wrench (force, torque about the centre of mass), cleared by clear_wrench.
    mvector force{6};
    // Generalised accelerations (linear, angular) from applied forces, from the
    // constraint solve, and of a prescribed motion; and a pending velocity change.
    mvector external_accel{6}, constraint_accel{6}, prescribed_accel{6}, applied_impulse{6};

    virtual int velocity_dof() const { return 6; }
    virtual int state_dof() const = 0;
    virtual void mass_matrix(matrix& m) const = 0;
    virtual double dof(int i) const = 0;
    virtual void set_state(mvector& y, bool force_update) = 0;
    virtual void get_state(mvector& y) const = 0;
    virtual void dydt(const mvector& y, mvector& dy) const = 0;
    virtual void sum_forces() = 0;
    virtual void add_impulse(const double* wrench) = 0;
    virtual void clear_wrench();
    virtual triple to_world_point(const triple& local) const = 0;
    virtual void world_plane(const triple& local_n, double local_d, triple& n, double& d) const = 0;
    virtual triple to_local_point(const triple& world) const = 0;
    virtual box3 bound_box() const = 0;
    virtual triple point_velocity(const triple& world) const = 0;
    // Acceleration of a body-fixed point from velocities alone (no forces).
    virtual triple point_acceleration(const triple& world) const = 0;
    // Wrench of a world force at a world point.
    virtual void apply_at_point(const triple& world, const triple& f, double* wrench) const = 0;
    // Generalised acceleration of a wrench (M^-1 w); zero for a prescribed body.
    virtual void accelerate(const double* wrench, double* out) const = 0;
    // Time of the next discontinuity of a prescribed motion after t.
    virtual double next_event_time(double t) const;

    // Adds a wrench to the applied accelerations (influences use this).
    void add_wrench(const double* wrench);
    void set_material(double bounce, double dyn_friction, double stat_friction);
    void set_geometry(Shape* s);
};

class RigidBody : public Body {
public:
    explicit RigidBody(BodySystem* system = nullptr);

    triple x;     // centre of mass, world
    quaternion q; // orientation
    triple v, w;  // linear and angular velocity, world
    mat3 inv_inertia_body, inertia_body, inertia_world, inv_inertia_world, R;
    triple centre_local; // centre of mass in shape coordinates
    bool spin_on = true, translate_on = true;
    box3 local_box{{-0.5, -0.5, -0.5}, {0.5, 0.5, 0.5}}; // shape coordinates
    box3 world_box;
    double density = 1;

    int state_dof() const override;
    void mass_matrix(matrix& m) const override;
    double dof(int i) const override;
    void set_state(mvector& y, bool force_update) override;
    void get_state(mvector& y) const override;
    void dydt(const mvector& y, mvector& dy) const override;
    void sum_forces() override;
    void add_impulse(const double* wrench) override;
    triple to_world_point(const triple& local) const override;
    void world_plane(const triple& local_n, double local_d, triple& n, double& d) const override;
    triple to_local_point(const triple& world) const override;
    box3 bound_box() const override { return world_box; }
    triple point_velocity(const triple& world) const override;
    triple point_acceleration(const triple& world) const override;
    void apply_at_point(const triple& world, const triple& f, double* wrench) const override;
    void accelerate(const double* wrench, double* out) const override;

    // Places the body: position of the shape origin and orientation.
    void place(const triple& shape_origin, const quaternion& orientation);
    void set_velocity(const triple& lin, const triple& ang) {
        v = lin;
        w = ang;
    }
    // Volume, centre and inertia from the shape, mass = volume * density (or the
    // given mass when above 0). keep_surface moves x so the surface stays put.
    void compute_inertials(double dens, double given_mass = 0, bool keep_surface = false);
    // Box form from two corners.
    void compute_inertials(const triple& lo, const triple& hi, double dens);
    // Tolerance correction: the displacement held in constraint_accel, as a state change.
    virtual void correction(mvector& dy) const;
    // World direction of a body-fixed local direction.
    triple to_world_dir(const triple& d) const { return R * d; }
    triple to_local_dir(const triple& d) const { return R.tmul(d); }

protected:
    void rebuild_derived();
};

} // namespace tessarin
