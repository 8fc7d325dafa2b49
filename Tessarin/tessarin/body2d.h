#pragma once
#include "Tessarin/tessarin/body.h"

namespace tessarin {

// A rigid body moving in the xy plane: state (x, y, angle) and, with dynamics,
// (vx, vy, w). It keeps the members of RigidBody with z, the tilt and the
// out-of-plane spin held at zero, so contacts, rows and impulses built for
// rigid bodies apply unchanged; wrenches stay six wide with only fx, fy and
// the z torque taking effect.
class RigidBody2d : public RigidBody {
public:
    explicit RigidBody2d(BodySystem* system = nullptr);

    double angle = 0;
    double inertia = 1, inv_inertia = 1; // about the centre of mass, around z

    int velocity_dof() const override { return 3; }
    int state_dof() const override;
    void mass_matrix(matrix& m) const override;
    double dof(int i) const override;
    void set_state(mvector& y, bool force_update) override;
    void get_state(mvector& y) const override;
    void dydt(const mvector& y, mvector& dy) const override;
    void accelerate(const double* wrench, double* out) const override;
    void correction(mvector& dy) const override;

    // Places the body: position of the shape origin and angle.
    void place2d(double x0, double y0, double a);
    void set_velocity2d(double vx, double vy, double spin) {
        v = {vx, vy, 0};
        w = {0, 0, spin};
    }
    // Area, centroid and polar moment from the shape (a Poly2d or a MultiShape of
    // them); mass = area * density unless a mass above 0 is given. keep_surface
    // moves x so the surface stays put.
    void compute_inertials2d(double dens, double given_mass = 0, bool keep_surface = false);
    // Box form: a rectangle between two corners.
    void compute_inertials2d(double lox, double loy, double hix, double hiy, double dens);
    // The solid forms would ask the shape for a 3 x 3 moment: plane bodies take the flat ones.
    void compute_inertials(double dens, double given_mass = 0, bool keep_surface = false) {
        compute_inertials2d(dens, given_mass, keep_surface);
    }
    void compute_inertials(const triple& lo, const triple& hi, double dens) {
        compute_inertials2d(lo.x, lo.y, hi.x, hi.y, dens);
    }

private:
    void set_angle(double a);
    void set_inertia(double i);
};

} // namespace tessarin
