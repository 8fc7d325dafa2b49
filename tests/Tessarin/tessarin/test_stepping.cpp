#include <gtest/gtest.h>

#include <cmath>

#include "Tessarin/tessarin/bounds.h"
#include "Tessarin/tessarin/separator.h"
#include "bench/rigid_scenes.h"
#include "report_capture.h"

using namespace tessarin;

namespace {
// A prescribed body whose motion changes at a known time.
class ScriptedBody : public RigidBody {
public:
    using RigidBody::RigidBody;
    double event = 0.05;
    double next_event_time(double t) const override { return t < event ? event : 1e30; }
};
} // namespace

TEST(Stepping, PrescribedEventEndsTheStep) {
    auto s = rigid_scenes::empty_scene("event");
    ScriptedBody b(s->sys.get());
    CSphere ball({0, 0, 0}, 0.5);
    b.set_geometry(&ball);
    b.compute_inertials(1);
    b.prescribed = true;
    s->sys->add(b);
    EXPECT_DOUBLE_EQ(s->sys->step_forward(0.1), 0.05);
    EXPECT_DOUBLE_EQ(s->sys->time, 0.05);
    EXPECT_DOUBLE_EQ(s->sys->step_forward(0.1), 0.1);
}

// A step that ends in overlap is cut back to the root of the distance: time is
// start + t*, and the state is the path's interpolant there, not a new path.
TEST(Stepping, ClashCutsTheStepToTheInterpolant) {
    auto s = rigid_scenes::make_scene("drop");
    s->advance_to(1.3); // 0.1 s before the hit
    const double t0 = s->sys->time;
    double got = 0;
    for (int i = 0; i < 20; ++i) {
        const double start = s->sys->time;
        got = s->sys->step_forward(0.03);
        if (got < 0.03 - 1e-12) {
            EXPECT_DOUBLE_EQ(s->sys->time, start + got);
            mvector want;
            s->sys->ode.interpolate(got, want);
            for (int k = 0; k < want.size(); ++k)
                EXPECT_NEAR(s->sys->y[k], want[k], 1e-15);
            // The ball is within the band of the box, not beyond it.
            EXPECT_NEAR(s->subject->x.y, 0.5, s->sys->tolerance);
            break;
        }
    }
    EXPECT_LT(got, 0.03);
    EXPECT_GT(s->sys->time, t0);
}

// A pair that starts two steps running deep in its band (beyond 80 % of it)
// gets its band doubled rather than stalling the integrator.
TEST(Stepping, RepeatedDeepStartsWidenTheBand) {
    report_capture cap;
    auto s = rigid_scenes::empty_scene("band");
    s->gravity->a = {};
    BodySystem& sys = *s->sys;
    const double T = sys.tolerance;
    rigid_scenes::add_sphere(*s, {0, 0, 0}, 0.5, false, 0, 0);
    RigidBody* b = rigid_scenes::add_sphere(*s, {1.001, 0, 0}, 0.5, false, 0, 0);
    sys.step_forward(0.01);
    ASSERT_EQ(sys.broad_phase().overlaps().size(), 1u);
    Separator* sep = sys.broad_phase().overlaps()[0]->separator;
    ASSERT_NE(sep, nullptr);
    EXPECT_DOUBLE_EQ(sep->tolerance, T);
    // Put the pair 0.9 T deep, at the start and at the end of the step alike.
    b->place({1 - 0.9 * T, 0, 0}, quaternion());
    sys.gather_state(sys.y);
    sys.y_start = sys.y;
    sys.set_bodies(sys.y, true);
    for (int k = 0; k < 2; ++k) {
        delete sys.clash;
        sys.clash = nullptr;
        sys.found_clash(*sep);
        EXPECT_NEAR(sep->d0, -0.9 * T, 1e-12);
        EXPECT_DOUBLE_EQ(sep->tolerance, k == 0 ? T : 2 * T);
    }
    EXPECT_EQ(sep->hits, 0);
    EXPECT_TRUE(sys.clash_found);
}

// A pair resting deeper than 3/4 of the band is pushed back out by the
// tolerance correction at the start of the next step.
TEST(Stepping, ToleranceCorrectionUndoesDeepRest) {
    auto s = rigid_scenes::empty_scene("correct");
    s->gravity->a = {};
    const double T = s->sys->tolerance;
    rigid_scenes::add_box(*s, {0, -0.5, 0}, {4, 1, 4}, true, 0, 0);
    RigidBody* ball = rigid_scenes::add_sphere(*s, {0, 0.5 - 0.9 * T, 0}, 0.5, false, 0, 0);
    s->sys->step_forward(0.01);
    EXPECT_NEAR(ball->x.y, 0.5, 0.1 * T);
    // Placed deep again: the next rebuild corrects again.
    ball->place({0, 0.5 - 0.9 * T, 0}, quaternion());
    s->sys->dirty = true;
    s->sys->step_forward(0.01);
    EXPECT_NEAR(ball->x.y, 0.5, 0.1 * T);
}
