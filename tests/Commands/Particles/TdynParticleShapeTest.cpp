// The particle object: its attributes, the timing rules of the step, the
// integrator against closed forms, goals, births, deaths and identifiers.

#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"
#include "Host/Command/ToptionVars.h"
#include "Host/Graph/TdnTime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace {

constexpr double kFrame = 1.0 / 24.0;

class ParticleTest : public DynSceneTest {
protected:
    T4dDblVector pos(TdynParticleShape* p, unsigned i) { return vec(p, "position", i); }
    // A constant force, as a field's output would bring it.
    void setInputForce(TdynParticleShape* p, int element, T4dDblVectorArray f) {
        setData<TdataVectorArray>(p, TdynParticleShape::sVsData()->inputForce, std::move(f), element);
    }
};

// ---- the node ----

TEST_F(ParticleTest, NodeHasTheDataModelsAttributes) {
    ASSERT_TRUE(run("particle -n p;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    ASSERT_NE(p, nullptr);
    EXPECT_STREQ(p->typeName(), "particle");
    EXPECT_EQ(TdagObject::cast(p)->parentObject()->name(), "p");
    struct Row {
        const char *name, *shortName, *tag;
    };
    const Row rows[] = {{"position", "pos", "POSN"},
                        {"velocity", "vel", "VELC"},
                        {"acceleration", "acc", "ACCL"},
                        {"force", "frc", "FORC"},
                        {"inputForce", "ifc", "IFRC"},
                        {"mass", "mas", "MASS"},
                        {"particleId", "id", "PTID"},
                        {"birthTime", "bt", "BIRT"},
                        {"age", "ag", "AGES"},
                        {"count", "cnt", "COUN"},
                        {"nextId", "nid", "NXID"},
                        {"isDynamic", "isd", "ISDY"},
                        {"conserve", "con", "CONS"},
                        {"maxCount", "mxc", "MXCT"},
                        {"levelOfDetail", "lod", "LODE"},
                        {"lifespanMode", "lfm", "LFMD"},
                        {"startFrame", "stf", "STFR"},
                        {"goalSmoothness", "gsm", "GSMS"},
                        {"traceDepth", "trd", "TRDP"},
                        {"particleRenderType", "prt", "PRNT"},
                        {"cachedPosition", "cps", "SCFR"},
                        {"startupCacheFrame", "scf", "SCFR"},
                        {"birthTimeCache", "btc", "BTT0"},
                        {"birthTime0", "bt0", "BTT0"},
                        {"randState", "rst", "RAND"},
                        {"eventRandState", "ers", "RAND"}};
    for (const Row& r : rows) {
        Tattribute* a = p->attribute(r.name);
        ASSERT_NE(a, nullptr) << r.name;
        EXPECT_EQ(a->shortName(), r.shortName) << r.name;
        EXPECT_EQ(a->tag(), makeIffTag(r.tag)) << r.name;
    }
    for (const char* child : {"centroidX", "worldCentroidZ", "cachedWorldCentroidY", "randStateX",
                              "fieldDataMass", "emitterDataDeltaTime", "sortedId", "samplerPerParticleData"})
        EXPECT_NE(p->attribute(child), nullptr) << child;
    auto* vs = TdynParticleShape::sVsData();
    // Defaults of the telling rows.
    double v = 0;
    p->getAttributeValue(vs->maxCount, v);
    EXPECT_EQ(v, -1);
    p->getAttributeValue(vs->goalSmoothness, v);
    EXPECT_EQ(v, 3);
    p->getAttributeValue(vs->particleRenderType, v);
    EXPECT_EQ(v, 3);
    p->getAttributeValue(vs->targetGeometrySpace, v);
    EXPECT_EQ(v, 2);
    // The exclusion lists.
    EXPECT_TRUE(TdynParticleShape::isInComputeExclusionList(vs->force));
    EXPECT_TRUE(TdynParticleShape::isInComputeExclusionList(vs->position0));
    EXPECT_TRUE(TdynParticleShape::isInComputeExclusionList(&vs->worldMatrix));
    EXPECT_FALSE(TdynParticleShape::isInComputeExclusionList(vs->position));
    EXPECT_TRUE(TdynParticleShape::isInEmissionExclusionList(vs->idIndex));
    EXPECT_FALSE(TdynParticleShape::isInEmissionExclusionList(vs->mass));
    EXPECT_TRUE(TdynParticleShape::isInSamplerPerParticleDataExclusionList(vs->lastPosition));
    // Each runtime array is a letter of its own from the start.
    EXPECT_NE(p->vectorArrayReference(vs->position), nullptr);
    EXPECT_NE(p->vectorArrayReference(vs->position), p->vectorArrayReference(vs->velocity));
}

TEST_F(ParticleTest, ParticleCommandMakesObjectsFromPointsGridsAndJitter) {
    ASSERT_TRUE(run("particle;"));
    EXPECT_NE(node<TdynParticleShape>("particleShape1"), nullptr);
    ASSERT_TRUE(run("particle -n g -ll 0 0 0 -ur 1 2 0 -grs 1;"));
    TdynParticleShape* g = node<TdynParticleShape>("gShape");
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(session.engine().run("particle", {"-q", "-ct", "g"}).asInt(), 6); // 2 x 3 x 1
    EXPECT_EQ(pos(g, 5), (T4dDblVector{1, 2, 0}));
    ASSERT_TRUE(run("particle -n j -jbp 5 5 5 -nj 20 -jr 0.5;"));
    TdynParticleShape* j = node<TdynParticleShape>("jShape");
    ASSERT_EQ(j->countNoCompute(), 20u);
    for (unsigned i = 0; i < 20; ++i)
        EXPECT_LE((pos(j, i) - T4dDblVector{5, 5, 5}).length(), 0.5);
    // Undo takes the object away, redo brings the same one back.
    ASSERT_TRUE(run("undo;"));
    EXPECT_EQ(node<TdynParticleShape>("jShape"), nullptr);
    ASSERT_TRUE(run("redo;"));
    EXPECT_EQ(node<TdynParticleShape>("jShape"), j);
    // ... under its transform, still following time.
    EXPECT_EQ(TdagObject::cast(j)->parentObject(), node<TdagObject>("j"));
    ASSERT_TRUE(run("setParticleAttr -at velocity -vv 24 0 0 j;"));
    const double x = pos(j, 0).x;
    frame(2);
    EXPECT_EQ(pos(j, 0).x, x + 1);
    // A particle node made by hand follows time too.
    ASSERT_TRUE(run("createNode particle -n loose;"));
    EXPECT_FALSE(node<TdynParticleShape>("loose")
                     ->inputSource(TdynParticleShape::sVsData()->currentTime, -1)
                     .isNull());
}

// ---- the integrator ----

TEST_F(ParticleTest, FreeFlightEndsWhereTheVelocityTakesIt) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 1 2 0 p;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    for (int f = 2; f <= 25; ++f)
        frame(f);
    // 24 steps of one frame: x is the sum of 24 roundings of 1/24, which lands
    // within a few ulps of 1.
    double x = 0, y = 0;
    for (int i = 0; i < 24; ++i) {
        x += 1.0 * kFrame;
        y += 2.0 * kFrame;
    }
    const T4dDblVector q = pos(p, 0);
    EXPECT_EQ(q.x, x);
    EXPECT_EQ(q.y, y);
    EXPECT_EQ(q.z, 0.0);
    EXPECT_NEAR(q.x, 1.0, 4 * 2.2e-16);
    EXPECT_NEAR(q.y, 2.0, 8 * 2.2e-16);
}

TEST_F(ParticleTest, ConserveScalesVelocityOncePerStep) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -c 0.5; particle -e -id 0 -at velocity -vv 1 2 0 p;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    for (int f = 2; f <= 25; ++f)
        frame(f);
    // x = dt * (1/2 + 1/4 + ... + 1/2^24) = dt * (1 - 2^-24); each term is exact,
    // so only the sums round: a few ulps.
    const double expected = kFrame * (1.0 - std::ldexp(1.0, -24));
    EXPECT_NEAR(pos(p, 0).x, expected, 4e-17);
    EXPECT_NEAR(pos(p, 0).y, 2 * expected, 8e-17);
    double v = 0;
    T4dDblVector vel;
    ASSERT_TRUE(p->getAttribute("velocity", 0, vel));
    EXPECT_EQ(vel.x, std::ldexp(1.0, -24)); // halvings are exact
    (void)v;
}

TEST_F(ParticleTest, EulerIsSemiImplicitAndHonoursWeightMassAndConserve) {
    T4dDblVectorArray p{{0, 0, 0}, {1, 0, 0}}, v{{1, 0, 0}, {0, 1, 0}}, a(2);
    const T4dDblVectorArray f{{2, 0, 0}};
    const TdoubleArray m{2.0, 0.5};
    TdynParticleShape::evaluateEuler(p, v, a, f, m, 0.5, 1.0, 1.0, false, T4dDblMatrix());
    // Particle 0: a = 2/2 = 1, v = 1 + 0.5 = 1.5, x = 0.75. Particle 1 gets the
    // zero padding of a short force array.
    EXPECT_EQ(v[0], (T4dDblVector{1.5, 0, 0}));
    EXPECT_EQ(p[0], (T4dDblVector{0.75, 0, 0}));
    EXPECT_EQ(p[1], (T4dDblVector{1, 0.5, 0}));
    // Weight 0: forces ignored, acceleration kept, conserve still applies.
    T4dDblVectorArray a2{{7, 0, 0}, {0, 0, 0}};
    TdynParticleShape::evaluateEuler(p, v, a2, f, m, 1.0, 0.5, 0.0, false, T4dDblMatrix());
    EXPECT_EQ(v[0], (T4dDblVector{0.75, 0, 0}));
    EXPECT_EQ(p[0], (T4dDblVector{1.5, 0, 0}));
    EXPECT_EQ(a2[0], (T4dDblVector{7, 0, 0}));
    // Forces in world space are brought into the object's frame (scale 2: half the acceleration).
    T4dDblVectorArray p3{{0, 0, 0}}, v3(1), a3(1), out3;
    TdynParticleShape::evaluateEuler(p3, v3, a3, T4dDblVectorArray{{4, 0, 0}}, TdoubleArray{1.0}, 1.0, 1.0,
                                     1.0, true, T4dDblMatrix::scaling(2.0), &out3);
    EXPECT_EQ(out3[0], (T4dDblVector{2, 0, 0}));
    EXPECT_EQ(p3[0], (T4dDblVector{0, 0, 0})); // out arrays leave the input alone
}

TEST_F(ParticleTest, ZeroMassWarnsPerParticlePerStepAndMovesAsMassOne) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 0 0 0 -p 0 0 0; setParticleAttr -at mass -fv 0 p.pt[1];"
                    "setParticleAttr -at mass -fv 0 p.pt[2];"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    setInputForce(p, 0, {{0, -1, 0}});
    const int before = session.engine().warningCount();
    frame(2);
    EXPECT_EQ(session.engine().warningCount() - before, 2);
    frame(3);
    EXPECT_EQ(session.engine().warningCount() - before, 4);
    EXPECT_EQ(pos(p, 1), pos(p, 0));
    EXPECT_EQ(num(p, "mass", 1), 0.0); // the array isn't changed
    EXPECT_LT(pos(p, 0).y, 0.0);
}

TEST_F(ParticleTest, ShortFieldArraysRepeatTheirLastValue) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 0 0 0 -p 0 0 0;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    setInputForce(p, 0, {{1, 0, 0}, {0, 2, 0}});
    setInputForce(p, 3, {}); // an empty array adds nothing
    setInputForce(p, 5, {{0, 0, 3}, {0, 0, 3}, {0, 0, 3}, {9, 9, 9}});
    Tdata d;
    p->getAttributeValue(TdynParticleShape::sVsData()->force, d);
    const T4dDblVectorArray& f = d.as<TdataVectorArray>()->array();
    ASSERT_EQ(f.length(), 3u);
    EXPECT_EQ(f[0], (T4dDblVector{1, 0, 3}));
    EXPECT_EQ(f[1], (T4dDblVector{0, 2, 3}));
    EXPECT_EQ(f[2], (T4dDblVector{0, 2, 3}));
}

// ---- timing ----

TEST_F(ParticleTest, TimingRulesOfTheEvaluationLoop) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 1 0 0 p;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    const T4dDblVector g{0, -6, 0};
    setInputForce(p, 0, {g});
    frame(2);
    const std::uint64_t steps = p->stepCount();
    // Two pulls at one time run one step.
    pos(p, 0);
    session.graph().refreshDisplay();
    EXPECT_EQ(p->stepCount(), steps);
    // A jump forward of several frames is one long Euler step.
    const T4dDblVector x2 = pos(p, 0);
    T4dDblVector v2;
    p->getAttribute("velocity", 0, v2);
    frame(6);
    EXPECT_EQ(p->stepCount(), steps + 1);
    const double h = (TanimTime(6.0, kCurrentFrameUnit) - TanimTime(2.0, kCurrentFrameUnit)).seconds();
    const T4dDblVector v6 = v2 + g * h;
    EXPECT_EQ(pos(p, 0), x2 + v6 * h);
    // A jump back after the start, without run-up, leaves the arrays as they were.
    frame(4);
    EXPECT_EQ(pos(p, 0), x2 + v6 * h);
    // A return to the start restores the initial state, identifiers and nextId.
    ASSERT_TRUE(run("emit -object p -pos 5 5 5;"));
    EXPECT_EQ(p->countNoCompute(), 2u);
    frame(1);
    EXPECT_EQ(p->countNoCompute(), 1u);
    EXPECT_EQ(pos(p, 0), (T4dDblVector{0, 0, 0}));
    EXPECT_EQ(num(p, "particleId", 0), 0.0);
    double nextId = 0;
    p->getAttributeValue(TdynParticleShape::sVsData()->nextId, nextId);
    EXPECT_EQ(nextId, 1.0);
}

TEST_F(ParticleTest, RunUpPreferenceReplaysEveryFrameOfAJump) {
    auto simulate = [&](bool jump) {
        Tsession s;
        std::ostringstream err;
        s.engine().setErrorStream(&err);
        EXPECT_TRUE(
            s.runText("particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 1 0.5 0 p;", "t", false));
        auto* p = TdynParticleShape::cast(s.graph().findNode("pShape"));
        setInputForce(p, 0, {{0.3, -9.8, 0.1}});
        if (jump) {
            s.graph().setTime(TanimTime(9.0, kCurrentFrameUnit), true);
        } else {
            for (int f = 2; f <= 9; ++f)
                s.graph().setTime(TanimTime(f, kCurrentFrameUnit), true);
        }
        T4dDblVector x;
        p->getAttribute("position", 0, x);
        return std::make_pair(x, p->stepCount());
    };
    const auto byFrame = simulate(false);
    ToptionVars::setInt("dynPrefRunUpToCurrentTime", 1);
    const auto replayed = simulate(true);
    EXPECT_EQ(replayed.first, byFrame.first); // bit for bit
    EXPECT_GE(replayed.second, 8u);
    ToptionVars::setInt("dynPrefRunUpToCurrentTime", 0);
    const auto oneStep = simulate(true);
    EXPECT_NE(oneStep.first, byFrame.first);
    // Back to an earlier frame with the preference on: replayed from the start.
    ToptionVars::setInt("dynPrefRunUpToCurrentTime", 1);
    ASSERT_TRUE(run("particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 1 0.5 0 p;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    setInputForce(p, 0, {{0.3, -9.8, 0.1}});
    for (int f = 2; f <= 9; ++f)
        frame(f);
    const T4dDblVector at9 = pos(p, 0);
    frame(5);
    frame(9);
    EXPECT_EQ(pos(p, 0), at9);
}

TEST_F(ParticleTest, OverSamplingTakesSeveralStepsAFrame) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0; dynGlobals -os 2;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    setInputForce(p, 0, {{0, -1, 0}});
    frame(2);
    const std::uint64_t s = p->stepCount();
    const double y2 = pos(p, 0).y;
    T4dDblVector v;
    p->getAttribute("velocity", 0, v);
    const double v2 = v.y;
    frame(3);
    EXPECT_EQ(p->stepCount() - s, 2u);
    // Two half steps h under unit force: v2 - h, then v2 - 2h; y moves by
    // (v2 - h) h + (v2 - 2h) h. Tolerance: a few roundings of numbers near 1e-2.
    const double h = TanimTime::fromTicks(TanimTime(1.0, kCurrentFrameUnit).ticks() / 2).seconds();
    p->getAttribute("velocity", 0, v);
    EXPECT_NEAR(v.y, v2 - 2 * h, 1e-16);
    EXPECT_NEAR(pos(p, 0).y, y2 + (v2 - h) * h + (v2 - 2 * h) * h, 1e-16);
    EXPECT_EQ(session.engine().run("dynGlobals", {"-q", "-os"}).asInt(), 2);
}

TEST_F(ParticleTest, FrozenAndTimedReadsNeverStep) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 1 0 0 p;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    frame(3);
    const T4dDblVector at3 = pos(p, 0);
    const std::uint64_t steps = p->stepCount();
    {
        // A timed read of position reports the stored state and never steps.
        TdgContextTimed ctx(TanimTime(20.0, kCurrentFrameUnit));
        TdataBlock* b = p->makeDataBlock(ctx, true);
        Tdata d = b->inputValue(TdynParticleShape::sVsData()->position).data();
        EXPECT_EQ(d.as<TdataVectorArray>()->array()[0], at3);
    }
    EXPECT_EQ(p->stepCount(), steps);
    EXPECT_EQ(pos(p, 0), at3);
    setNumber(p, TdynParticleShape::sVsData()->isDynamic, 0);
    frame(10);
    EXPECT_EQ(p->stepCount(), steps);
    EXPECT_EQ(pos(p, 0), at3);
}

// ---- goals ----

TEST_F(ParticleTest, GoalOfWeightOneHoldsEachParticleOnItsGoal) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 1 0 0 -p 2 0 0;"
                    "particle -n g -p 5 1 0 -p 6 2 0 -p 7 3 0; setAttr gShape.isDynamic 0;"
                    "connectAttr gShape.position pShape.goalGeometry[0];"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    setInputForce(p, 0, {{0, -9.8, 0}});
    TdynParticleShape* g = node<TdynParticleShape>("gShape");
    for (int f = 2; f <= 4; ++f) {
        frame(f);
        for (unsigned i = 0; i < 3; ++i) {
            const T4dDblVector d = pos(p, i) - pos(g, i);
            EXPECT_LT(d.length(), 1e-12) << "frame " << f << " particle " << i;
        }
    }
    // Weight 0 is no goal at all: the particles fall freely from where they are.
    setNumber(p, TdynParticleShape::sVsData()->goalWeight, 0.0, 0);
    const T4dDblVector before = pos(p, 0);
    frame(5);
    EXPECT_LT(pos(p, 0).y, before.y - 0.5 * 9.8 * kFrame * kFrame);
    EXPECT_NEAR(pos(p, 0).x, before.x, 1e-9);
}

TEST_F(ParticleTest, TransformGoalPullsEveryParticleToItsTranslation) {
    ASSERT_TRUE(
        run("particle -n p -p 0 0 0 -p 3 0 0; createNode transform -n target;"
            "setAttr target.translate 2 4 -1; connectAttr target.worldMatrix pShape.goalGeometry[0];"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    frame(2);
    for (unsigned i = 0; i < 2; ++i)
        EXPECT_LT((pos(p, i) - T4dDblVector{2, 4, -1}).length(), 1e-12);
}

// ---- births, deaths, identifiers ----

TEST_F(ParticleTest, CountAndIntervalOfABatch) {
    double interval = 1.0;
    EXPECT_EQ(TdynParticleShape::calculateCountAndInterval(0, 5, -1, 0.5, true, true, interval), 3);
    EXPECT_DOUBLE_EQ(interval, 5.0 / 3.0);
    EXPECT_EQ(TdynParticleShape::calculateCountAndInterval(8, 5, 10, 1.0, true, true, interval), 2);
    EXPECT_DOUBLE_EQ(interval, 2.5);
    EXPECT_EQ(TdynParticleShape::calculateCountAndInterval(0, 5, 0, 1.0, true, true, interval), 0);
    EXPECT_EQ(TdynParticleShape::calculateCountAndInterval(0, 5, 3, 0.0, false, true, interval), 0);
    EXPECT_EQ(TdynParticleShape::calculateCountAndInterval(7, 5, 3, 0.2, false, false, interval), 5);
}

TEST_F(ParticleTest, ReducedBatchesAreThinnedEvenlyAndUseTheirWholeIdRange) {
    ASSERT_TRUE(run("particle -n p; setAttr pShape.levelOfDetail 0.5; currentTime 2;"
                    "emit -object p -pos 0 0 0 -pos 1 0 0 -pos 2 0 0 -pos 3 0 0 -pos 4 0 0;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    ASSERT_EQ(p->countNoCompute(), 3u);
    EXPECT_EQ(pos(p, 0).x, 0);
    EXPECT_EQ(pos(p, 1).x, 1);
    EXPECT_EQ(pos(p, 2).x, 3);
    double nextId = 0;
    p->getAttributeValue(TdynParticleShape::sVsData()->nextId, nextId);
    EXPECT_EQ(nextId, 5);
    EXPECT_EQ(num(p, "particleId", 2), 3);

    ASSERT_TRUE(run("particle -n q -p 0 0 0 -p 0 0 0 -p 0 0 0 -p 0 0 0 -p 0 0 0 -p 0 0 0 -p 0 0 0 -p 0 0 0;"
                    "setAttr qShape.maxCount 10;"
                    "emit -object q -pos 10 0 0 -pos 11 0 0 -pos 12 0 0 -pos 13 0 0 -pos 14 0 0;"));
    TdynParticleShape* q = node<TdynParticleShape>("qShape");
    ASSERT_EQ(q->countNoCompute(), 10u);
    EXPECT_EQ(pos(q, 8).x, 10);
    EXPECT_EQ(pos(q, 9).x, 12);
    // Full: nothing more, and no identifiers used.
    ASSERT_TRUE(run("emit -object q -pos 1 1 1;"));
    EXPECT_EQ(q->countNoCompute(), 10u);
    q->getAttributeValue(TdynParticleShape::sVsData()->nextId, nextId);
    EXPECT_EQ(nextId, 13);
}

TEST_F(ParticleTest, RemovalFillsHolesWithTheLastSurvivors) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 1 0 0 -p 2 0 0 -p 3 0 0 -p 4 0 0 -p 5 0 0;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    p->removeDeadParticles(Tint32Array{1, 3}, p->normalBlock());
    ASSERT_EQ(p->countNoCompute(), 4u);
    const double expected[] = {0, 5, 2, 4};
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_EQ(pos(p, i).x, expected[i]);
        EXPECT_EQ(num(p, "particleId", i), expected[i]); // every array moves alike
    }
    // Removing the tail moves nothing.
    p->removeDeadParticles(Tint32Array{2, 3}, p->normalBlock());
    EXPECT_EQ(pos(p, 1).x, 5);
    EXPECT_EQ(p->countNoCompute(), 2u);
}

TEST_F(ParticleTest, LifespansAndTheStepOfDeath) {
    // Mode 2 with no randomness gives exactly "lifespan", one draw per particle all the same.
    ASSERT_TRUE(
        run("particle -n p -p 0 0 0 -p 1 0 0; addAttr -ln lifespan -at double pShape;"
            "setAttr pShape.lifespan 0.1; setAttr pShape.lifespanMode 2; setAttr pShape.generalSeed 7;"
            "currentTime 2; currentTime 1;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    frame(2);
    ASSERT_EQ(p->countNoCompute(), 2u);
    EXPECT_EQ(num(p, "finalLifespanPP", 0), 0.1);
    EXPECT_EQ(num(p, "finalLifespanPP", 1), 0.1);
    // The restore seeded (7, 0, 1) and each particle took one draw.
    unsigned short xsubi[3] = {7, 0, 1};
    erand48(xsubi);
    erand48(xsubi);
    double rx = 0, rz = 0;
    p->getAttributeValue(p->attribute("randStateX"), rx);
    p->getAttributeValue(p->attribute("randStateZ"), rz);
    EXPECT_EQ(rx, xsubi[0]);
    EXPECT_EQ(rz, xsubi[2]);
    // Age passes 0.1 s only at frame 4 (age 0.125): the particles die in that step, not before.
    frame(3);
    EXPECT_EQ(p->countNoCompute(), 2u);
    frame(4);
    EXPECT_EQ(p->countNoCompute(), 0u);
}

TEST_F(ParticleTest, IdentifiersStayUniqueThroughBirthsAndDeaths) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 0 0 0 -p 0 0 0; addAttr -ln lifespan -at double pShape;"
                    "setAttr pShape.lifespan 0.1; setAttr pShape.lifespanMode 1;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    for (int f = 2; f <= 12; ++f) {
        frame(f);
        ASSERT_TRUE(run("emit -object p -pos 0 0 0 -pos 1 0 0;"));
        Tdata d;
        p->getAttributeValue(TdynParticleShape::sVsData()->particleId, d);
        const TdoubleArray& ids = d.as<TdataDoubleArray>()->array();
        double nextId = 0;
        p->getAttributeValue(TdynParticleShape::sVsData()->nextId, nextId);
        std::vector<double> sorted(ids.begin(), ids.end());
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end()) << "frame " << f;
        for (double id : sorted)
            EXPECT_LT(id, nextId);
        EXPECT_EQ(ids.length(), p->countNoCompute());
    }
    double nextId = 0;
    p->getAttributeValue(TdynParticleShape::sVsData()->nextId, nextId);
    EXPECT_EQ(nextId, 3 + 2 * 11);
    EXPECT_LT(p->countNoCompute(), 25u); // some died
}

// ---- bad input ----

TEST_F(ParticleTest, BadInputIsRefusedWithAClearMessageAndNoChange) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 1 0 0;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    struct Case {
        const char* script;
        const char* says;
    } cases[] = {{"getParticleAttr -at bogusPP p;", "'bogusPP' is not a per-particle attribute of pShape"},
                 {"getParticleAttr -at position p.pt[7];", "particle 7 is out of range"},
                 {"particle -n bad -ll 0 0 0 -ur 1 1 1 -grs 0;", "-gridSpacing must be greater than 0"},
                 {"particle -n bad -ll 0 0 0 -ur -1 1 1 -grs 0.5;", "-upperRight is below -lowerLeft in x"},
                 {"particle -n bad -ll 0 0 0 -grs 0.5;", "needs -lowerLeft, -upperRight and -gridSpacing"},
                 {"setParticleAttr -at position -fv 3 p;", "holds vectors; use -vectorValue"},
                 {"setParticleAttr -at mass -vv 1 2 3 p.pt[0];", "holds numbers; use -floatValue"},
                 {"setParticleAttr -at mass -fv 2 p.pt[9];", "particle 9 is out of range"},
                 {"emit -object nobody -pos 0 0 0;", "'nobody' is not a particle object"}};
    for (const Case& c : cases) {
        errors.str("");
        EXPECT_FALSE(run(c.script)) << c.script;
        EXPECT_NE(errors.str().find(c.says), std::string::npos) << c.script << "\n" << errors.str();
    }
    EXPECT_EQ(session.graph().findNode("bad"), nullptr);
    EXPECT_EQ(p->countNoCompute(), 2u);
    EXPECT_EQ(pos(p, 1), (T4dDblVector{1, 0, 0}));
    EXPECT_EQ(num(p, "mass", 0), 1.0);
}

TEST_F(ParticleTest, ActionsReadWriteAndSaveState) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 1 2 3; addPP -atr opacityPP p;"));
    TscriptValue all = session.engine().run("getParticleAttr", {"-at", "position", "p"});
    EXPECT_EQ(all.floatArray(), (std::vector<double>{0, 0, 0, 1, 2, 3}));
    TscriptValue one = session.engine().run("getParticleAttr", {"-at", "position", "pShape.pt[1]"});
    EXPECT_EQ(one.floatArray(), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(session.engine().run("getParticleAttr", {"-at", "opacityPP", "p"}).floatArray(),
              (std::vector<double>{1, 1}));
    EXPECT_EQ(session.engine().run("particleExists", {"p"}).asInt(), 1);
    EXPECT_EQ(session.engine().run("particleExists", {"nope"}).asInt(), 0);
    // A moved state saved as the initial one comes back at the start.
    ASSERT_TRUE(run("setParticleAttr -at velocity -vv 24 0 0 p.pt[0]; currentTime 2; saveInitialState p;"
                    "currentTime 3; currentTime 1;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    EXPECT_EQ(pos(p, 0), (T4dDblVector{1, 0, 0})); // 24 * (250 / 6000) rounds to 1 exactly
    T4dDblVector v;
    p->getAttribute("velocity", 0, v);
    EXPECT_EQ(v, (T4dDblVector{24, 0, 0}));
}

} // namespace
