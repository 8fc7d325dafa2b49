// Collision events: counting hits, splitting, emitting into a target, dying,
// and the user's procedure, driven by collision records filled by hand.

#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <sstream>

namespace {

constexpr double kFrame = 1.0 / 24.0;

struct Hit {
    int index;
    T4dDblVector position;
    T4dDblVector velocity;
    const char* shape = "planeShape";
};

class CollisionEventTest : public DynSceneTest {
protected:
    void SetUp() override {
        DynSceneTest::SetUp();
        // p: four particles born at frame 1; q: an empty target.
        ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 1 0 0 -p 2 0 0 -p 3 0 0; particle -n q;")) << errors.str();
        p = node<TdynParticleShape>("pShape");
        q = node<TdynParticleShape>("qShape");
        frame(5);
    }

    // Hands the rows to the object as this step's collision records and runs its events.
    TdataArrayAttrs fire(const std::vector<Hit>& hits) {
        auto* vs = TdynParticleShape::sVsData();
        Tdata d = makeData<TdataArrayAttrs>();
        TdataArrayAttrs& r = *d.as<TdataArrayAttrs>();
        TdynParticleShape::clearCollisionRecords(r);
        for (const Hit& h : hits) {
            r.getVoidPtrData("shapePointer")->addLast(nullptr);
            r.getStringData("shapeName")->addLast(h.shape);
            r.getVectorData("position")->addLast(h.position);
            r.getVectorData("force")->addLast({});
            r.getVectorData("velocity")->addLast(h.velocity);
            r.getInt32Data("index")->addLast(h.index);
            r.getDoubleData("time")->addLast(0.0);
            r.getVectorData("normal")->addLast({0, 1, 0});
            r.getDoubleData("contactU")->addLast(0.5);
            r.getDoubleData("contactV")->addLast(0.5);
        }
        TdataBlock& block = p->normalBlock();
        block.outputValue(vs->collisionRecords).set(d);
        block.outputValue(vs->computingCount).set(true);
        p->computeCollisionEvents(block);
        block.outputValue(vs->computingCount).set(false);
        Tdata out = block.outputValue(vs->collisionRecords).data();
        return *out.as<TdataArrayAttrs>();
    }

    TdynParticleShape* p = nullptr;
    TdynParticleShape* q = nullptr;
};

TEST_F(CollisionEventTest, TwoEventsOnOneHitBothFireAndHitsAreCounted) {
    ASSERT_TRUE(run("event -em 2 -t q p; event -em 3 -t q p;")) << errors.str();
    fire({{1, {1, 0, 0}, {0, -1, 0}}});
    EXPECT_EQ(q->countNoCompute(), 5u);
    EXPECT_EQ(p->countNoCompute(), 4u);
    // Emitted particles are new: age 0, the parent's mass, at the hit.
    EXPECT_NEAR(num(q, "birthTime", 4), 5 * kFrame, 1e-12);
    EXPECT_EQ(num(q, "mass", 0), 1.0);
    EXPECT_EQ(vec(q, "position", 3).x, 1.0);
    // The counter of hits: particle 1 once, the others not at all.
    EXPECT_EQ(num(p, "event", 1), 1.0);
    EXPECT_EQ(num(p, "event", 0), 0.0);
    double total = 0;
    p->getAttributeValue(TdynParticleShape::sVsData()->totalEventCount, total);
    EXPECT_EQ(total, 1.0);
}

TEST_F(CollisionEventTest, CountFiresOnTheKthHitOnlyAndZeroOnEveryHit) {
    ASSERT_TRUE(run("event -em 1 -ct 2 -t q p; event -n every -em 10 -t q p;")) << errors.str();
    fire({{0, {0, 0, 0}, {}}});
    EXPECT_EQ(q->countNoCompute(), 10u);
    fire({{0, {0, 0, 0}, {}}});
    EXPECT_EQ(q->countNoCompute(), 21u);
    fire({{0, {0, 0, 0}, {}}});
    EXPECT_EQ(q->countNoCompute(), 31u);
    // Two hits of one particle in one step are its first and second.
    fire({{2, {2, 0, 0}, {}}, {2, {2, 0, 0}, {}}});
    EXPECT_EQ(q->countNoCompute(), 52u);
    EXPECT_EQ(num(p, "event", 2), 2.0);
}

TEST_F(CollisionEventTest, SplitMakesEqualSharesAtTheParentsAgeAndEndsTheParent) {
    ASSERT_TRUE(run("event -spl 3 -t q p;")) << errors.str();
    const double parentId = num(p, "particleId", 2);
    const double parentBirth = num(p, "birthTime", 2);
    fire({{2, {2, 0, 0}, {0, -3, 0}}});
    ASSERT_EQ(q->countNoCompute(), 3u);
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_NEAR(num(q, "mass", i), 1.0 / 3.0, 1e-15);
        // Same birth time: the same age as the parent at this time.
        EXPECT_NEAR(num(q, "birthTime", i), parentBirth, 1e-12);
        // inheritFactor 0: the children start at rest.
        EXPECT_EQ(vec(q, "velocity", i).y, 0.0);
    }
    ASSERT_EQ(p->countNoCompute(), 3u);
    for (unsigned i = 0; i < 3; ++i)
        EXPECT_NE(num(p, "particleId", i), parentId);
}

TEST_F(CollisionEventTest, RandomSplitGivesOneToNParticlesOfEqualShare) {
    // Forty parents, each hit once.
    ASSERT_TRUE(run("particle -n r; event -spl 3 -r 1 -t q r;")) << errors.str();
    p = node<TdynParticleShape>("rShape");
    T4dDblVectorArray pts(40);
    p->addParticles(pts);
    frame(6);
    std::vector<Hit> hits;
    for (int i = 0; i < 40; ++i)
        hits.push_back({i, {}, {}});
    fire(hits);
    const unsigned made = q->countNoCompute();
    EXPECT_GE(made, 40u);
    EXPECT_LE(made, 120u);
    for (unsigned i = 0; i < made; ++i)
        EXPECT_NEAR(num(q, "mass", i), 1.0 / 3.0, 1e-15);
    EXPECT_EQ(p->countNoCompute(), 0u);
    // Forty draws of 1 + floor(3 r) that all give the same count would mean the draw is not used.
    EXPECT_NE(made, 40u);
    EXPECT_NE(made, 120u);
}

TEST_F(CollisionEventTest, DeathWaitsForEveryEventOfTheStepAndDropsLaterRows) {
    ASSERT_TRUE(run("event -n kill -die 1 p; event -n more -em 2 -t q p;")) << errors.str();
    const double id3 = num(p, "particleId", 3);
    const TdataArrayAttrs left = fire({{1, {1, 0, 0}, {}}, {1, {1, 0, 0}, {}}, {3, {3, 0, 0}, {}}});
    // The second event still fires for the killing row; the dead particle's next row is gone.
    EXPECT_EQ(q->countNoCompute(), 4u);
    TdataArrayAttrs r = left;
    ASSERT_NE(r.getInt32Data("index"), nullptr);
    ASSERT_EQ(r.getInt32Data("index")->length(), 2u);
    EXPECT_EQ((*r.getInt32Data("index"))[0], 1);
    EXPECT_EQ((*r.getInt32Data("index"))[1], 3);
    EXPECT_EQ(r.getStringData("shapeName")->length(), 2u);
    EXPECT_EQ(r.getVectorData("normal")->length(), 2u);
    ASSERT_EQ(p->countNoCompute(), 2u);
    // Survivors are the particles 0 and 2.
    for (unsigned i = 0; i < 2; ++i)
        EXPECT_NE(num(p, "particleId", i), id3);
}

TEST_F(CollisionEventTest, AnEventWithoutTargetKillsAndMakesNothing) {
    ASSERT_TRUE(run("event -die 1 -em 5 p;")) << errors.str();
    fire({{0, {}, {}}});
    EXPECT_EQ(p->countNoCompute(), 3u);
    EXPECT_EQ(q->countNoCompute(), 0u);
}

TEST_F(CollisionEventTest, SpreadKeepsTheSpeedWithinTheConeAndInheritScales) {
    ASSERT_TRUE(run("particle -n s -i 0.5; event -em 200 -sp 0.5 -t s p;")) << errors.str();
    q = node<TdynParticleShape>("sShape");
    const T4dDblVector v{3, -4, 0};
    fire({{0, {}, v}});
    ASSERT_EQ(q->countNoCompute(), 200u);
    // Half-angle (pi/2) 0.5; the speed is the hit's times inheritFactor.
    const double limit = std::numbers::pi / 4;
    double widest = 0;
    for (unsigned i = 0; i < 200; ++i) {
        const T4dDblVector w = vec(q, "velocity", i);
        EXPECT_NEAR(w.length(), 2.5, 1e-12);
        const double angle = std::acos(std::clamp(w.dot(v) / (w.length() * v.length()), -1.0, 1.0));
        EXPECT_LE(angle, limit + 1e-9);
        widest = std::max(widest, angle);
    }
    // Two hundred uniform draws leave the widest within a few percent of the edge.
    EXPECT_GT(widest, 0.9 * limit);
}

TEST_F(CollisionEventTest, TheProcedureReceivesTheComposedArguments) {
    ASSERT_TRUE(run("global proc onHit(string $o, int $id, string $s) { print(\"[\" + $o + \"|\" + $id + "
                    "\"|\" + $s + \"]\"); }"
                    "event -pr onHit p;"))
        << errors.str();
    const int id = static_cast<int>(num(p, "particleId", 2));
    fire({{2, {}, {}}, {0, {}, {}, ""}});
    // The shape name arrives with the blank the call puts before it; no shape gives an empty string.
    EXPECT_EQ(output.str(), "[pShape|" + std::to_string(id) + "| planeShape][pShape|" +
                                std::to_string(static_cast<int>(num(p, "particleId", 0))) + "|]");
}

TEST_F(CollisionEventTest, AMissingOrFailingProcedureWarnsAndTheStepGoesOn) {
    ASSERT_TRUE(run("global proc broken(string $o, int $id, string $s) { noSuchCommand -x 1; }"
                    "event -pr nowhere -die 1 p; event -pr broken -em 1 -t q p;"))
        << errors.str();
    fire({{0, {}, {}}});
    EXPECT_NE(errors.str().find("nowhere"), std::string::npos) << errors.str();
    EXPECT_NE(errors.str().find("broken"), std::string::npos) << errors.str();
    EXPECT_EQ(p->countNoCompute(), 3u);
    EXPECT_EQ(q->countNoCompute(), 1u);
}

TEST_F(CollisionEventTest, EventTestReportsANewHitOnce) {
    ASSERT_TRUE(run("event -em 1 -t q p;")) << errors.str();
    auto* vs = TdynParticleShape::sVsData();
    TdataBlock& block = p->normalBlock();
    fire({{0, {}, {}}, {1, {}, {}}});
    p->computeEventTest(block);
    EXPECT_EQ(block.outputValue(vs->eventTest).asInt(), 1);
    EXPECT_EQ(block.outputValue(vs->lastTotalEventCount).asInt(), 2);
    p->computeEventTest(block);
    EXPECT_EQ(block.outputValue(vs->eventTest).asInt(), 0);
}

} // namespace
