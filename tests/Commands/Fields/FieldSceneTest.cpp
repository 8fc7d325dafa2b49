// Fields acting on particle objects, stepped frame by frame, against the
// semi-implicit Euler steps worked out by hand.

#include "Commands/Fields/TdynField.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace {

constexpr double kFrame = 1.0 / 24.0;

class FieldSceneTest : public DynSceneTest {};

TEST_F(FieldSceneTest, GravityFromRestFallsByTheSumOfItsSteps) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0; gravity -n g; connectDynamic -f g p;")) << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    for (int f = 2; f <= 25; ++f)
        frame(f);
    // 24 steps: v_k = -9.8 dt k, y = sum v_k dt = -9.8 dt^2 * 24 * 25 / 2. A few dozen roundings: 1e-12.
    EXPECT_NEAR(vec(p, "position", 0).y, -9.8 * kFrame * kFrame * 24 * 25 / 2, 1e-12);
    EXPECT_NEAR(vec(p, "velocity", 0).y, -9.8 * kFrame * 24, 1e-12);
    EXPECT_EQ(vec(p, "position", 0).x, 0);
}

TEST_F(FieldSceneTest, DragAloneScalesTheSpeedEachStep) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 0 0 2 p; drag -n d;"
                    "connectDynamic -f d p;"))
        << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    // Magnitude 5: each step v <- v + dt * (-5 v) = v (1 - 5/24). The field reads the state after the
    // previous step, so the factor is checked from one step to the next.
    frame(2);
    double v = vec(p, "velocity", 0).z;
    double z = vec(p, "position", 0).z;
    ASSERT_GT(v, 1);
    for (int f = 3; f <= 14; ++f) {
        frame(f);
        v *= 1 - 5 * kFrame;
        z += v * kFrame;
        EXPECT_NEAR(vec(p, "velocity", 0).z, v, 1e-13) << f;
    }
    EXPECT_NEAR(vec(p, "position", 0).z, z, 1e-13);
    EXPECT_EQ(vec(p, "velocity", 0).x, 0);
}

TEST_F(FieldSceneTest, TwoConnectedFieldsAdd) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0; select -r p; gravity -n g; uniform -n u -m 2;")) << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    for (int f = 2; f <= 25; ++f)
        frame(f);
    const double sum = kFrame * kFrame * 24 * 25 / 2;
    const T4dDblVector q = vec(p, "position", 0);
    EXPECT_NEAR(q.x, 2 * sum, 1e-12);
    EXPECT_NEAR(q.y, -9.8 * sum, 1e-12);
}

TEST_F(FieldSceneTest, AFieldOwnedByParticlesPushesFromEachOfThemOrFromTheirCentroid) {
    ASSERT_TRUE(run("particle -n src -p 0 0 0 -p 2 0 0; particle -n b -p 3 0 0;"
                    "radial -n r -m 5 -att 0; connectDynamic -f r b;"))
        << errors.str();
    auto* field = node<TdynField>("r");
    std::string why;
    ASSERT_TRUE(field->setOwner(node<TdynParticleShape>("srcShape"), why)) << why;
    TdynParticleShape* b = node<TdynParticleShape>("bShape");
    // From the centroid (1, 0, 0): rel (2, 0, 0) times 5, one step.
    frame(2);
    EXPECT_NEAR(vec(b, "velocity", 0).x, 10 * kFrame, 1e-13);
    // From each owner point: (3 + 1) times 5 on the next step.
    field->setApplyPerVertex(true);
    const double x1 = vec(b, "position", 0).x;
    frame(3);
    const double v2 = 10 * kFrame + 5 * (x1 - 0 + x1 - 2) * kFrame;
    EXPECT_NEAR(vec(b, "velocity", 0).x, v2, 1e-12);
}

TEST_F(FieldSceneTest, NewtonOwnedByParticlesWeighsByTheirMasses) {
    ASSERT_TRUE(run("particle -n src -p 0 0 0 -p 10 0 0; particle -e -id 0 -at mass -fv 2 src;"
                    "particle -e -id 1 -at mass -fv 3 src; newton -n n -m 1;"))
        << errors.str();
    auto* field = node<TdynField>("n");
    std::string why;
    ASSERT_TRUE(field->setOwner(node<TdynParticleShape>("srcShape"), why)) << why;
    const double K = -0.667;
    T4dDblVectorArray out;
    // From the centroid (5,0,0) with the masses' sum 5: rel (-2,0,0), d = 2.
    ASSERT_EQ(field->getForceAtPoint({{3, 0, 0}}, {}, {}, out, kFrame), 0);
    EXPECT_NEAR(out[0].x, -2.0 / 3 * 5 * K, 1e-12);
    // From each point with its own mass: (3/4) 2 K + (-7/8) 3 K.
    field->setApplyPerVertex(true);
    out.clear();
    ASSERT_EQ(field->getForceAtPoint({{3, 0, 0}}, {}, {}, out, kFrame), 0);
    EXPECT_NEAR(out[0].x, 0.75 * 2 * K - 7.0 / 8 * 3 * K, 1e-12);
}

TEST_F(FieldSceneTest, ParticlesBornEveryStepStillFeelTheField) {
    // Births at rest each step: the step that makes them must not lose the force on the others.
    ASSERT_TRUE(run("particle -n p; emitter -n e -type omni -r 48 -spd 0; connectDynamic -em e p;"
                    "gravity -n g; connectDynamic -f g p;"))
        << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    for (int f = 2; f <= 7; ++f)
        frame(f);
    T4dDblVectorArray* v = p->vectorArrayValue(TdynParticleShape::sVsData()->velocity);
    ASSERT_NE(v, nullptr);
    ASSERT_EQ(v->length(), 12u); // two a frame
    // Each has fallen for as many whole steps as it has lived: a multiple of 9.8 dt, never zero.
    for (unsigned i = 0; i < v->length(); ++i) {
        const double steps = -(*v)[i].y / (9.8 * kFrame);
        EXPECT_GE(steps, 1 - 1e-9) << "particle " << i;
        EXPECT_NEAR(steps, std::round(steps), 1e-9) << "particle " << i;
    }
}

} // namespace
