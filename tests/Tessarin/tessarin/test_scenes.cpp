#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "Tessarin/tessarin/contact.h"
#include "bench/rigid_scenes.h"
#include "report_capture.h"

using namespace tessarin;
using rigid_scenes::Scene;

namespace {
// Runs frame by frame at 24 per second, calling f after each frame.
template <class F> void frames(Scene& s, int n, F&& f) {
    for (int k = 1; k <= n; ++k) {
        s.advance_to(k / 24.0);
        f(k);
    }
}
} // namespace

// Drop from 10 m (centre), 9.5 m of fall to the box, restitution 0.5: the first
// apex is e^2 = 0.25 of the fall above the contact height, within 10 %.
TEST(DropScene, BouncesShrinkAndComeToRest) {
    auto s = rigid_scenes::make_scene("drop");
    RigidBody* ball = s->subject;
    std::vector<double> apexes;
    double prev_v = 0, lowest = 1e9;
    frames(*s, 480, [&](int) {
        if (prev_v > 0 && ball->v.y <= 0) apexes.push_back(ball->x.y);
        prev_v = ball->v.y;
        lowest = std::min(lowest, ball->x.y);
    });
    ASSERT_FALSE(s->stalled);
    ASSERT_GE(apexes.size(), 2u);
    const double fall = 10 - 0.5;
    EXPECT_NEAR((apexes[0] - 0.5) / fall, 0.25, 0.025);
    for (size_t i = 1; i < apexes.size(); ++i)
        EXPECT_LT(apexes[i], apexes[i - 1]);
    // At rest on the box: within the band, not sunk deeper than it, not drifting.
    const double T = s->sys->tolerance;
    EXPECT_GT(lowest, 0.5 - T);
    double y_end = ball->x.y;
    EXPECT_NEAR(y_end, 0.5, T);
    triple at = ball->x;
    s->advance_to(s->sys->time + 2);
    EXPECT_LT((ball->x - at).length(), 1e-3);
    EXPECT_EQ(ball->v.length(), 0);
}

// A unit cube at 5 m/s with mu 0.5 stops after v^2 / (2 mu g) = 2.551 m.
TEST(SlideScene, StopsAtTheFrictionDistanceWithoutTipping) {
    auto s = rigid_scenes::make_scene("slide");
    RigidBody* cube = s->subject;
    double tilt = 0; // angle of rotation
    frames(*s, 72, [&](int) { tilt = std::max(tilt, 2 * std::asin(std::min(1.0, cube->q.vec().length()))); });
    const double want = 25 / (2 * 0.5 * 9.8);
    EXPECT_NEAR(cube->x.x, want, 0.05 * want);
    EXPECT_EQ(cube->v.x, 0);
    // Braking loads the front edge, and the band lets the cube rock by up to
    // 0.02 m over its 1 m base; a tip would be far beyond 0.01 rad.
    EXPECT_LT(tilt, 0.01);
    double x = cube->x.x;
    s->advance_to(6.0);
    EXPECT_EQ(cube->x.x, x);
}

TEST(StackScene, StandsTenSecondsAndRestingBodiesKeepTheirStamps) {
    auto s = rigid_scenes::make_scene("stack");
    s->advance_to(1.0);
    std::vector<int> stamps;
    for (RigidBody* b : s->movers)
        stamps.push_back(b->keystamp);
    s->advance_to(10.0);
    EXPECT_FALSE(s->stalled);
    EXPECT_LT(s->max_move(), 0.02);
    for (size_t i = 0; i < stamps.size(); ++i)
        EXPECT_EQ(s->movers[i]->keystamp, stamps[i]);
}

// The full ten-layer pyramid is run by the program; four layers keep the test short.
TEST(PyramidScene, FourLayersStandTenSeconds) {
    auto s = rigid_scenes::make_scene("pyramid", 4);
    ASSERT_EQ(s->movers.size(), 10u);
    s->advance_to(10.0);
    EXPECT_FALSE(s->stalled);
    EXPECT_LT(s->max_move(), 0.02);
}

TEST(StartingOverlap, OneWarningPerRebuildAndTheyComeApart) {
    report_capture cap;
    auto s = rigid_scenes::empty_scene("overlap");
    s->gravity->a = {};
    RigidBody* a = rigid_scenes::add_sphere(*s, {0, 0, 0}, 0.5, false, 0, 0);
    RigidBody* b = rigid_scenes::add_sphere(*s, {0.6, 0, 0}, 0.5, false, 0, 0);
    a->name = "left";
    a->set_velocity({-1, 0, 0}, {});
    b->set_velocity({1, 0, 0}, {});
    s->advance_to(1.0);
    EXPECT_FALSE(s->stalled);
    EXPECT_NEAR(s->sys->time, 1.0, 1e-9);
    int warnings = 0;
    for (auto& w : report_capture::warnings)
        if (w.rfind("<warning> Obstacle::found_clash: Starting configuration has interpenetration", 0) == 0)
            ++warnings;
    EXPECT_EQ(warnings, 1);
    EXPECT_TRUE(report_capture::has(report_capture::warnings, "<warning>  left\n"));
    EXPECT_TRUE(report_capture::has(report_capture::warnings, "<warning>  (noname)\n"));
    // Passing through each other freely, they are now clear and far apart.
    EXPECT_NEAR(b->x.x - a->x.x, 2.6, 1e-6);
    EXPECT_EQ(s->sys->contacts.size(), 0);
    // A later rebuild warns again only if they overlap again.
    s->sys->dirty = true;
    s->advance_to(1.1);
    warnings = 0;
    for (auto& w : report_capture::warnings)
        if (w.rfind("<warning> Obstacle::found_clash", 0) == 0) ++warnings;
    EXPECT_EQ(warnings, 1);
}

TEST(StartingOverlap, ABoxSunkIntoTheFloorDoesNotStall) {
    report_capture cap;
    auto s = rigid_scenes::empty_scene("sunk");
    rigid_scenes::add_box(*s, {0, -0.5, 0}, {10, 1, 10}, true, 0.5, 0);
    rigid_scenes::add_box(*s, {0, 0.3, 0}, {1, 1, 1}, false, 0.5, 0);
    s->advance_to(2.0);
    EXPECT_FALSE(s->stalled);
    EXPECT_NEAR(s->sys->time, 2.0, 1e-9);
}

// The same scene run twice gives the same bytes.
TEST(Determinism, PileRunsRepeatExactly) {
    auto run = [] {
        auto s = rigid_scenes::make_scene("pile", 24);
        s->advance_to(1.0);
        std::vector<double> out;
        for (RigidBody* b : s->movers) {
            out.insert(out.end(),
                       {b->x.x, b->x.y, b->x.z, b->q.r, b->q.i, b->q.j, b->q.k, b->v.x, b->v.y, b->v.z});
        }
        return out;
    };
    std::vector<double> a = run(), b = run();
    ASSERT_EQ(a.size(), b.size());
    EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size() * sizeof(double)), 0);
}
