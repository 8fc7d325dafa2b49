#include <gtest/gtest.h>

#include <cmath>

#include "Tessarin/tessarin/contact.h"
#include "bench/rigid_scenes.h"
#include "report_capture.h"

using namespace tessarin;
using rigid_scenes::Scene;

namespace {

// Two free spheres on the x axis, sphere a to the right of b, at a given gap.
struct Pair {
    std::unique_ptr<Scene> s = rigid_scenes::empty_scene("pair");
    RigidBody* a;
    RigidBody* b;
    double T;
    explicit Pair(double gap, double friction = 0.5, double bounce = 0.5) {
        s->gravity->a = {};
        s->sys->friction_on = true;
        b = rigid_scenes::add_sphere(*s, {0, 0, 0}, 0.5, false, friction, bounce);
        a = rigid_scenes::add_sphere(*s, {1 + gap, 0, 0}, 0.5, false, friction, bounce);
        T = s->sys->tolerance;
        s->sys->task = TASK_DYNAMICS;
    }
    // Sphere a approaching b at speed u, with a tangential speed along y.
    std::unique_ptr<SphereSphereContact> contact(double u, double vt = 0) {
        a->set_velocity({-u, vt, 0}, {});
        auto c = std::make_unique<SphereSphereContact>(s->sys.get(), a, b, triple(), 0.5, triple(), 0.5);
        c->prepare();
        c->refresh();
        return c;
    }
};

} // namespace

// The four steps in the (depth, approach speed) plane.
TEST(ContactImpactTest, DepthAndSpeedSteps) {
    {
        Pair p(-0.6 * 0.02);
        auto c = p.contact(0.15 * p.T);
        EXPECT_NEAR(c->distance, -0.6 * p.T, 1e-15);
        EXPECT_TRUE(c->alive);
        EXPECT_FALSE(c->impacting);
    }
    {
        Pair p(-0.8 * 0.02);
        auto c = p.contact(0.15 * p.T);
        EXPECT_TRUE(c->impacting);
    }
    {
        Pair p(0.01);
        EXPECT_FALSE(p.contact(1.9 * p.T)->impacting);
        EXPECT_TRUE(p.contact(2.1 * p.T)->impacting);
    }
    {
        // Separating faster than the band: no longer alive.
        Pair p(0.0);
        EXPECT_FALSE(p.contact(-1.1 * p.T)->alive);
    }
}

TEST(ContactFriction, SlidingStartsAboveAFifthOfTheBand) {
    Pair p(0.0);
    const double T = p.s->sys->tolerance;
    auto c = p.contact(0, 0.2 * T);
    EXPECT_TRUE(c->has_friction);
    EXPECT_FALSE(c->sliding);
    EXPECT_FALSE(c->frictionless);
    EXPECT_EQ(c->dimension(), 3);
    EXPECT_EQ(c->kind(), 4);
    auto d = p.contact(0, 0.21 * T);
    EXPECT_TRUE(d->sliding);
    EXPECT_EQ(d->dimension(), 1);
    EXPECT_EQ(d->kind(), 2);
    // Friction off in the system: one row, whatever the tangential speed.
    p.s->sys->friction_on = false;
    auto e = p.contact(0, 0);
    EXPECT_TRUE(e->frictionless);
    EXPECT_EQ(e->dimension(), 1);
}

TEST(ContactRhs, RestitutionCutOffAndCorrection) {
    Pair p(0.0);
    const double T = p.T;
    p.s->sys->task = TASK_IMPACT;
    // -vn e = 0.045 is below 2.5 T = 0.05: the hit does not bounce.
    auto slow = p.contact(0.09);
    double r[3];
    slow->rhs(r);
    EXPECT_NEAR(r[0] / slow->scale[0], 0.09, 1e-12);
    auto fast = p.contact(0.2);
    fast->rhs(r);
    EXPECT_NEAR(r[0] / fast->scale[0], 1.5 * 0.2, 1e-12);
    // Correction pushes by the depth, clamped to the band.
    Pair deep(-1.5 * 0.02);
    deep.s->sys->task = TOLERANCE_CORRECTION;
    auto c = deep.contact(0);
    c->prepare();
    c->rhs(r);
    EXPECT_NEAR(r[0] / c->scale[0], T, 1e-12);
    EXPECT_EQ(c->kind(), 2);
}

TEST(ContactRows, SelfScaleMakesTheDiagonalOne) {
    Pair p(0.0);
    auto c = p.contact(0);
    double a = 0;
    for (const RowPart& part : c->rows[0].part)
        for (int k = 0; k < 6; ++k)
            a += part.J[k] * part.MJ[k];
    EXPECT_NEAR(a, 1, 1e-12);
    // Two unit-density spheres of radius 0.5 along the line of centres:
    // 1/m + 1/m, so the scale is sqrt(m / 2).
    EXPECT_NEAR(c->scale[0], std::sqrt(p.a->mass / 2), 1e-12);
    EXPECT_EQ(c->scale[1], c->scale[0]);
}

TEST(ContactLife, CallbacksAndMaterials) {
    static int made = 0, died = 0;
    made = died = 0;
    {
        Pair p(0.005);
        p.s->sys->contact_callback = [](Body*, Body*, int m) { (m ? made : died)++; };
        p.s->sys->step_forward(1e-4);
        EXPECT_EQ(made, 1);
        EXPECT_EQ(p.s->sys->contacts.size(), 1);
        Contact* c = p.s->sys->contacts.head();
        // Without a material callback, the smaller of the two bodies' values.
        EXPECT_EQ(c->mu_static, 0.5);
        p.a->set_velocity({5, 0, 0}, {});
        p.s->sys->dirty = true;
        p.s->advance_to(0.2, 0.01);
        EXPECT_EQ(died, 1);
        EXPECT_EQ(p.s->sys->contacts.size(), 0);
    }
    Pair q(0.005, 0.3, 0.9);
    q.s->sys->material_callback = [](Body*, Body*, double& e, double& md, double& ms) {
        e = 0.25;
        md = 0.1;
        ms = 0.2;
    };
    q.s->sys->step_forward(1e-4);
    ASSERT_EQ(q.s->sys->contacts.size(), 1);
    Contact* c = q.s->sys->contacts.head();
    EXPECT_EQ(c->restitution, 0.25);
    EXPECT_EQ(c->mu_dynamic, 0.1);
    EXPECT_EQ(c->mu_static, 0.2);
}

TEST(ContactLife, ImpulseCallbackSeesTheBounce) {
    static int calls = 0;
    static double total = 0;
    calls = 0;
    total = 0;
    auto s = rigid_scenes::make_scene("drop");
    s->sys->impulse_callback = [](Body*, Body*, const double*, const double* n, double j) {
        ++calls;
        total += j;
        EXPECT_GT(j, 0);
        EXPECT_NEAR(n[1], 1, 1e-9);
    };
    s->advance_to(1.6);
    ASSERT_GE(calls, 1);
    // Momentum: the ball arrived at sqrt(2 g 9.5) and left at half that.
    const double v = std::sqrt(2 * 9.8 * 9.5);
    EXPECT_NEAR(total, s->subject->mass * 1.5 * v, 0.05 * s->subject->mass * v);
}

TEST(ContactLife, UnaliveDimensionIsReported) {
    report_capture cap;
    Pair p(0.0);
    auto c = p.contact(-1.1 * p.T);
    ASSERT_FALSE(c->alive);
    (void)c->dimension();
    EXPECT_EQ(report_capture::internal.back(),
              "<internal error> Contact::dimension: query on unalive contact");
}
