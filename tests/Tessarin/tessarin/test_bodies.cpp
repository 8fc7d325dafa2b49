#include <gtest/gtest.h>

#include <cmath>

#include "Tessarin/tessarin/body.h"
#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/influence.h"
#include "Tessarin/tessarin/shape.h"
#include "bench/rigid_scenes.h"
#include "report_capture.h"

using namespace tessarin;
using rigid_scenes::Scene;

namespace {

// A scene with one free sphere far from anything and no ground.
std::unique_ptr<Scene> lone_sphere(int method, const triple& v0) {
    auto s = rigid_scenes::empty_scene("lone");
    s->sys->ode.method = method;
    s->subject = rigid_scenes::add_sphere(*s, {0, 100, 0}, 0.5, false, 0, 0);
    s->subject->set_velocity(v0, {});
    return s;
}

} // namespace

// Classic Runge-Kutta integrates the quadratic exactly: only rounding remains,
// far below 1e-9 after 67 steps.
TEST(FreeFall, FourthOrderMatchesClosedForm) {
    auto s = lone_sphere(1, {1.5, 4, -2});
    s->advance_to(2.0);
    const RigidBody& b = *s->subject;
    const double t = s->sys->time;
    EXPECT_NEAR(t, 2.0, 1e-12);
    EXPECT_NEAR(b.x.x, 1.5 * t, 1e-9);
    EXPECT_NEAR(b.x.y, 100 + 4 * t - 4.9 * t * t, 1e-9);
    EXPECT_NEAR(b.x.z, -2 * t, 1e-9);
    EXPECT_NEAR(b.v.y, 4 - 9.8 * t, 1e-9);
}

TEST(FreeFall, MidpointAndCashKarpAlsoExactForConstantForce) {
    for (int method : {0, 2}) {
        auto s = lone_sphere(method, {0, 3, 0});
        s->advance_to(1.0);
        EXPECT_NEAR(s->subject->x.y, 100 + 3 - 4.9, 1e-9) << "method " << method;
    }
}

TEST(Controller, CashKarpGrowsFivefoldWithoutErrorAndShrinksOnError) {
    auto s = lone_sphere(2, {});
    s->sys->step_forward(0.01);
    // Constant acceleration: the embedded error is zero, so the proposal is 5 h.
    EXPECT_DOUBLE_EQ(s->sys->ode.h_next, 0.05);

    // A stiff spring: the first try at 0.03 fails; the accepted step follows the rule.
    auto t = lone_sphere(2, {});
    UniSpring spring(t->sys.get(), t->subject, {}, {0, 101, 0}, 0, 4e4, 0);
    t->sys->add(spring);
    t->gravity->a = {};
    t->subject->place({0, 100, 0}, quaternion());
    double got = t->sys->step_forward(0.03);
    OdePackage& ode = t->sys->ode;
    EXPECT_GT(ode.rejected, 0);
    EXPECT_LT(got, 0.03);
    EXPECT_DOUBLE_EQ(got, ode.h_taken);
    double e = ode.last_error;
    ASSERT_LT(e, 1);
    double want = e <= 0.000189 ? 5 * got : 0.9 * got * std::pow(e, -0.2);
    EXPECT_DOUBLE_EQ(ode.h_next, want);
}

TEST(Controller, TinyStepIsWidened) {
    auto s = lone_sphere(1, {});
    double got = s->sys->step_forward(1e-7);
    EXPECT_DOUBLE_EQ(got, 1.1e-5);
}

TEST(FirstOrder, SevenStatesAndNoImpacts) {
    auto s = rigid_scenes::empty_scene("first");
    s->sys->dynamics = false;
    RigidBody* b = rigid_scenes::add_sphere(*s, {0, 1, 0}, 0.5, false, 0, 0);
    s->sys->step_forward(0.1);
    EXPECT_EQ(b->state_dof(), 7);
    EXPECT_EQ(s->sys->y.size(), 7);
    // Velocity is the force itself: under gravity the body moves at 9.8 m/s.
    EXPECT_NEAR(b->x.y, 1 - 0.98, 1e-9);
}

// Torque-free motion of an asymmetric body: the gyroscopic term must keep the
// world angular momentum fixed and the kinetic energy constant.
TEST(Gyroscopic, TorqueFreeSpinConservesMomentumAndEnergy) {
    auto s = rigid_scenes::empty_scene("spin");
    s->gravity->a = {};
    RigidBody* b = rigid_scenes::add_box(*s, {0, 0, 0}, {1, 2, 3}, false, 0, 0);
    b->set_velocity({}, {0.3, 2.0, 0.1});
    s->sys->step_forward(1e-4); // builds the state
    auto momentum = [&] { return b->inertia_world * b->w; };
    auto energy = [&] { return 0.5 * b->w.dot(b->inertia_world * b->w); };
    triple L0 = momentum();
    double E0 = energy();
    s->advance_to(2.0, 0.01);
    EXPECT_LT((momentum() - L0).length(), 1e-3 * L0.length());
    EXPECT_NEAR(energy(), E0, 1e-3 * E0);
    // The spin axis has moved: without the term, w would stay constant here.
    EXPECT_GT((b->w - triple(0.3, 2.0, 0.1)).length(), 1e-2);
}

TEST(Influences, SpringPeriodAndDamperDecay) {
    // Mass m on a spring ks: x(t) = A cos(sqrt(ks/m) t).
    auto s = rigid_scenes::empty_scene("spring");
    s->gravity->a = {};
    s->sys->ode.method = 1;
    RigidBody* b = rigid_scenes::add_sphere(*s, {1, 0, 0}, 0.5, false, 0, 0);
    const double m = b->mass, ks = 4 * m; // omega = 2
    UniSpring spring(s->sys.get(), b, {}, {0, 0, 0}, 0, ks, 0);
    s->sys->add(spring);
    // Without this the body's geometry lags its state by up to the move
    // threshold (2e-4 here), and the spring would act on the lagged point.
    s->sys->keep_small_velocities = true;
    s->advance_to(M_PI / 2, 0.005); // half a period
    EXPECT_NEAR(b->x.x, -1, 1e-6);

    auto d = rigid_scenes::empty_scene("damper");
    d->gravity->a = {};
    d->sys->ode.method = 1;
    RigidBody* c = rigid_scenes::add_sphere(*d, {0, 0, 0}, 0.5, false, 0, 0);
    c->set_velocity({2, 0, 0}, {});
    SimpleDamper damper(d->sys.get(), c, 0.5 * c->mass);
    d->sys->add(damper);
    d->advance_to(1.0, 0.01);
    EXPECT_NEAR(c->v.x, 2 * std::exp(-0.5), 1e-7);
}

TEST(Influences, SpringPairKeepsMomentumAndMouseSpringIsCapped) {
    auto s = rigid_scenes::empty_scene("pair");
    s->gravity->a = {};
    RigidBody* a = rigid_scenes::add_sphere(*s, {0, 0, 0}, 0.5, false, 0, 0);
    RigidBody* b = rigid_scenes::add_box(*s, {3, 0, 0}, {1, 1, 1}, false, 0, 0);
    Spring spring(s->sys.get(), a, b, {0, 0.2, 0}, {0, 0, 0.3}, 0.1, 5, 1);
    s->sys->add(spring);
    s->advance_to(1.0, 0.01);
    triple p = a->v * a->mass + b->v * b->mass;
    EXPECT_LT(p.length(), 1e-9);

    auto m = rigid_scenes::empty_scene("mouse");
    m->gravity->a = {};
    RigidBody* c = rigid_scenes::add_sphere(*m, {0, 0, 0}, 0.5, false, 0, 0);
    MouseSpring mouse(m->sys.get(), c, {}, {100, 0, 0}, 0, 10);
    m->sys->add(mouse);
    m->advance_to(0.1, 0.01);
    // ks |d| = 1000 is capped at 7 per unit mass: v = 7 t.
    EXPECT_NEAR(c->v.x, 0.7, 1e-6);
}

TEST(Influences, ExpertImpulseOnlyBetweenSteps) {
    report_capture cap;
    auto s = rigid_scenes::empty_scene("kick");
    s->gravity->a = {};
    RigidBody* b = rigid_scenes::add_sphere(*s, {0, 0, 0}, 0.5, false, 0, 0);
    s->sys->step_forward(0.01);
    UniformField hitter(s->sys.get(), {});
    hitter.body = b;
    const double w[6] = {2 * b->mass, 0, 0, 0, 0, 0};
    s->sys->task = TASK_DYNAMICS;
    hitter.expert_impulse(w);
    EXPECT_TRUE(
        report_capture::has(report_capture::user,
                            "<user error> Influence::expert_impulse: invoked while BodySystem::step_forward "
                            "still executing"));
    EXPECT_EQ(b->v.x, 0);
    s->sys->task = TASK_NONE;
    s->sys->dirty = false;
    hitter.expert_impulse(w);
    EXPECT_DOUBLE_EQ(b->v.x, 2);
    EXPECT_TRUE(s->sys->dirty);
    s->sys->step_forward(0.01);
    EXPECT_NEAR(b->x.x, 0.02, 1e-12);
}

TEST(BodyState, RestingBodyKeepsStampAndMovingBodyTakesNew) {
    auto s = rigid_scenes::empty_scene("stamps");
    s->gravity->a = {};
    RigidBody* still = rigid_scenes::add_sphere(*s, {0, 0, 0}, 0.5, false, 0, 0);
    RigidBody* mover = rigid_scenes::add_sphere(*s, {5, 0, 0}, 0.5, false, 0, 0);
    mover->set_velocity({1, 0, 0}, {});
    s->sys->step_forward(0.01);
    int k_still = still->keystamp, k_mover = mover->keystamp;
    s->sys->step_forward(0.01);
    EXPECT_EQ(still->keystamp, k_still);
    EXPECT_NE(mover->keystamp, k_mover);
    // Below the move threshold (a hundredth of the band) nothing is recomputed.
    mvector y(13);
    still->get_state(y);
    still->state_index = 0;
    y[0] += 0.5 * s->sys->tolerance * 0.01;
    int k = still->keystamp;
    still->set_state(y, false);
    EXPECT_EQ(still->keystamp, k);
    EXPECT_EQ(still->x.x, 0);
}

TEST(BodyState, InertialsAndTheirFailures) {
    report_capture cap;
    RigidBody lonely;
    lonely.compute_inertials(1.0);
    EXPECT_EQ(report_capture::user.back(), "<user error> RigidBody::compute_inertials: body has no shape");
    // A sphere: I = 2/5 m r^2.
    CSphere ball({0, 0, 0}, 2);
    RigidBody b;
    b.set_geometry(&ball);
    b.compute_inertials(3.0);
    double m = 4.0 / 3.0 * M_PI * 8 * 3;
    EXPECT_NEAR(b.mass, m, 1e-9);
    EXPECT_NEAR(b.inertia_body.m[1][1], 0.4 * m * 4, 1e-9);
    b.set_geometry(&ball);
    EXPECT_EQ(report_capture::user.back(), "<user error> Body::set_geometry: body already has a shape");
    // A point has no volume: unit mass and unit inertia stand in.
    CorPoint pt({1, 2, 3});
    RigidBody p;
    p.set_geometry(&pt);
    p.compute_inertials(1.0);
    EXPECT_EQ(report_capture::warnings.back(), "<warning> RigidBody::compute_inertials: no mass in body");
    EXPECT_EQ(p.mass, 1);
    // Box form: I = m/12 (dy^2 + dz^2).
    RigidBody box;
    box.compute_inertials({0, 0, 0}, {1, 2, 3}, 2.0);
    EXPECT_DOUBLE_EQ(box.mass, 12);
    EXPECT_DOUBLE_EQ(box.inertia_body.m[0][0], 12.0 / 12 * (4 + 9));
    box.compute_inertials({0, 0, 0}, {0, 2, 3}, 2.0);
    EXPECT_EQ(report_capture::warnings.back(), "<warning> RigidBody::compute_inertials[2]: zero mass");
}

TEST(SystemMembership, DuplicateAndMissingReports) {
    report_capture cap;
    auto s = rigid_scenes::empty_scene("members");
    RigidBody* b = rigid_scenes::add_sphere(*s, {0, 0, 0}, 0.5, false, 0, 0);
    s->sys->add(*b);
    EXPECT_EQ(report_capture::user.back(), "<user error> BodySystem::add: body already added");
    RigidBody stranger;
    s->sys->remove(stranger);
    EXPECT_EQ(report_capture::user.back(), "<user error> BodySystem::remove: body not in system");
    UniformField f(s->sys.get(), {});
    s->sys->remove(f);
    EXPECT_EQ(report_capture::user.back(), "<user error> BodySystem::remove: influence not in system");
}
