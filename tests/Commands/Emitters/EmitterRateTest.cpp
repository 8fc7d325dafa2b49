// Emitters feeding particle objects step by step: how many are born when, the
// random sequence kept across rewinds and cycles, full targets and inherited
// motion.

#include "Commands/Emitters/TdynEmitter.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <sstream>

namespace {

class EmitterRateTest : public DynSceneTest {
protected:
    void TearDown() override {
        TtimeUnit::setCurrent(kFilm);
        DynSceneTest::TearDown();
    }
    // The positions of every particle, in particle order.
    std::vector<T4dDblVector> positions(TdynParticleShape* p) {
        std::vector<T4dDblVector> out;
        for (unsigned i = 0; i < p->countNoCompute(); ++i) {
            T4dDblVector v;
            EXPECT_TRUE(p->getAttribute("position", i, v));
            out.push_back(v);
        }
        return out;
    }
    // The batch the emitter handed to target 0 in the last step.
    TdataArrayAttrs* batch(TdynEmitter* e) {
        return e->normalBlock().outputValue(&TdynEmitter::saVs()->output, 0).data().as<TdataArrayAttrs>();
    }
};

TEST_F(EmitterRateTest, RemaindersCarryFractionsBetweenSteps) {
    // 10 a second at 0.04 s: 0.4 a step, so the carried fraction reaches 1 at steps 3, 5, 8, 10 ...
    double rem = 0;
    std::vector<int> births;
    int total = 0;
    for (int step = 1; step <= 25; ++step) {
        int n = 0;
        TdynEmitter::emitCountPerPoint(10, 0.04, rem, n);
        if (n) births.push_back(step);
        total += n;
        EXPECT_GE(rem, 0) << step;
        EXPECT_LT(rem, 1) << step;
    }
    EXPECT_EQ(births, (std::vector<int>{3, 5, 8, 10, 13, 15, 18, 20, 23, 25}));
    EXPECT_EQ(total, 10);
    // The whole part comes at once; a negative rate gives none, never a negative count.
    rem = 0.5;
    int n = 0;
    TdynEmitter::emitCountPerPoint(35, 0.1, rem, n);
    EXPECT_EQ(n, 4);
    EXPECT_NEAR(rem, 0.0, 1e-12);
    TdynEmitter::emitCountPerPoint(-35, 0.1, rem, n);
    EXPECT_EQ(n, 0);
    // The whole geometry: nothing unless rate and step are positive; the size scales the rate.
    rem = 0;
    EXPECT_EQ(TdynEmitter::totalEmitCount(2.0, 10, 0.0, rem), 0);
    EXPECT_EQ(TdynEmitter::totalEmitCount(2.0, 0, 0.1, rem), 0);
    EXPECT_EQ(TdynEmitter::totalEmitCount(2.5, 10, 0.1, rem), 2);
    EXPECT_NEAR(rem, 0.5, 1e-12);
}

// A rate far beyond what a step can hold is cut to the step's limit, shared alike, before anything is
// allocated, and said once; a count beyond an int stays finite.
TEST_F(EmitterRateTest, AStepMakesNoMoreThanItsLimit) {
    double rem = 0;
    int n = 0;
    TdynEmitter::emitCountPerPoint(1e15, 1.0 / 24, rem, n);
    EXPECT_EQ(n, INT_MAX);
    ASSERT_TRUE(run("emitter -n jet -pos 0 0 0 -r 10;")) << errors.str();
    auto* e = node<TdynEmitter>("jet");
    ASSERT_NE(e, nullptr);
    Tint32Array counts;
    for (int c : {INT_MAX, INT_MAX, 7})
        counts.addLast(c);
    errors.str("");
    EXPECT_TRUE(e->limitBirths(counts));
    const long long total = static_cast<long long>(counts[0]) + counts[1] + counts[2];
    EXPECT_LE(total, TdynEmitter::kMaxBirthsPerStep);
    EXPECT_GT(total, TdynEmitter::kMaxBirthsPerStep - 3);
    EXPECT_EQ(counts[0], counts[1]);
    EXPECT_EQ(counts[2], 0);
    EXPECT_NE(errors.str().find("jet: 4294967301 births in one step are more than the 5000000"),
              std::string::npos)
        << errors.str();
    errors.str("");
    EXPECT_TRUE(e->limitBirths(counts)); // within the limit now: kept as they are, nothing said
    EXPECT_EQ(counts[0] + counts[1] + counts[2], total);
    counts[0] = INT_MAX;
    e->limitBirths(counts);
    EXPECT_EQ(errors.str(), ""); // said once
    // Nothing to make is nothing to make.
    Tint32Array none;
    none.addLast(0);
    EXPECT_FALSE(e->limitBirths(none));
}

// 100 a second at 24 frames a second gives 99 after one second: 100/24 s in doubles is
// 4.166666666666666 and its 24 fractions sum to 0.99999999999998, so the 100th birth comes one step
// later. None is lost: the count stays within one of the exact total.
TEST_F(EmitterRateTest, RemaindersNeverLoseABirth) {
    double rem = 0;
    long long total = 0;
    for (int step = 1; step <= 24 * 60; ++step) {
        int n = 0;
        TdynEmitter::emitCountPerPoint(100, 250.0 / 6000.0, rem, n);
        total += n;
        const double exact = 100.0 * step / 24;
        EXPECT_LE(std::fabs(static_cast<double>(total) - exact), 1.0) << step;
    }
}

TEST_F(EmitterRateTest, ARateOfTenAtPalGivesTenBirthsInTwentyFiveSteps) {
    // The start frame is set again so the start lies on the pal grid.
    ASSERT_TRUE(run("currentUnit -time pal; particle -n p; setAttr pShape.startFrame 1;"
                    "emitter -n e -r 10 -spd 0; connectDynamic -em e p;"))
        << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    ASSERT_NE(p, nullptr);
    frame(1);
    EXPECT_EQ(p->countNoCompute(), 0u);
    std::vector<int> births;
    unsigned last = 0;
    for (int f = 2; f <= 26; ++f) {
        frame(f);
        const unsigned c = p->countNoCompute();
        if (c != last) births.push_back(f - 1);
        EXPECT_LE(c - last, 1u) << f;
        last = c;
    }
    EXPECT_EQ(births, (std::vector<int>{3, 5, 8, 10, 13, 15, 18, 20, 23, 25})) << errors.str();
    EXPECT_EQ(p->countNoCompute(), 10u);
    // Speed 0 from a still emitter at the origin: every particle stays where it was born.
    for (const T4dDblVector& q : positions(p))
        EXPECT_EQ(q, T4dDblVector());
}

TEST_F(EmitterRateTest, TheStartRestoresTheSeedAndTheSameSeedGivesTheSameBirths) {
    ASSERT_TRUE(run("particle -n p; emitter -n e -r 100 -mxd 2 -mnd 1 -srn 0.5; connectDynamic -em e p;"
                    "setAttr pShape.seed[0] 7;"))
        << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    TdynEmitter* e = node<TdynEmitter>("e");
    auto* vs = TdynEmitter::saVs();
    frame(1);
    for (int f = 2; f <= 8; ++f)
        frame(f);
    const std::vector<T4dDblVector> first = positions(p);
    ASSERT_GT(first.size(), 20u);
    // Back at the start: the state is (seed, 0, 1) again and the carried fractions are zero.
    frame(1);
    EXPECT_EQ(e->number(vs->randState.children()[0], 0), 7);
    EXPECT_EQ(e->number(vs->randState.children()[1], 0), 0);
    EXPECT_EQ(e->number(vs->randState.children()[2], 0), 1);
    const TdoubleArray* rem =
        TdynStatic::dataDoubleArray(e->normalBlock().outputValue(&vs->emitCountRemainder, 0).data());
    ASSERT_NE(rem, nullptr);
    for (unsigned j = 0; j < rem->length(); ++j)
        EXPECT_EQ((*rem)[j], 0);
    for (int f = 2; f <= 8; ++f)
        frame(f);
    const std::vector<T4dDblVector> second = positions(p);
    ASSERT_EQ(second.size(), first.size());
    for (std::size_t i = 0; i < first.size(); ++i)
        EXPECT_EQ(second[i], first[i]) << i; // bit for bit
    // Another seed gives other births.
    ASSERT_TRUE(run("setAttr pShape.seed[0] 8;")) << errors.str();
    frame(1);
    for (int f = 2; f <= 8; ++f)
        frame(f);
    const std::vector<T4dDblVector> third = positions(p);
    ASSERT_FALSE(third.empty());
    EXPECT_NE(third[0], first[0]);
}

TEST_F(EmitterRateTest, CyclingRepeatsEachFramesBirths) {
    ASSERT_TRUE(run("particle -n p; emitter -n e -r 240 -cye frame -cyi 1; connectDynamic -em e p;"))
        << errors.str();
    TdynEmitter* e = node<TdynEmitter>("e");
    frame(1);
    frame(2);
    TdataArrayAttrs* b = batch(e);
    ASSERT_NE(b, nullptr);
    const T4dDblVectorArray v2 = *b->getVectorData("velocity");
    ASSERT_EQ(v2.length(), 10u);
    frame(3);
    const T4dDblVectorArray v3 = *batch(e)->getVectorData("velocity");
    ASSERT_EQ(v3.length(), 10u);
    for (unsigned k = 0; k < 10; ++k)
        EXPECT_EQ(v3[k], v2[k]) << k;
    // Without cycling the sequence runs on.
    ASSERT_TRUE(run("setAttr e.cycleEmission 0;")) << errors.str();
    frame(4);
    const T4dDblVectorArray v4 = *batch(e)->getVectorData("velocity");
    ASSERT_EQ(v4.length(), 10u);
    frame(5);
    EXPECT_NE((*batch(e)->getVectorData("velocity"))[0], v4[0]);
}

TEST_F(EmitterRateTest, AFullTargetGetsNoBirthsAndUsesNoIdentifiers) {
    ASSERT_TRUE(run("particle -n p; emitter -n e -r 240; connectDynamic -em e p; setAttr pShape.maxCount 4;"))
        << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    auto* pvs = TdynParticleShape::sVsData();
    frame(1);
    frame(2);
    // A batch of 10 met room for 4: four kept, all ten identifiers used.
    EXPECT_EQ(p->countNoCompute(), 4u);
    EXPECT_EQ(p->normalBlock().outputValue(pvs->nextId).asInt(), 10);
    for (int f = 3; f <= 6; ++f) {
        frame(f);
        EXPECT_EQ(p->countNoCompute(), 4u);
        EXPECT_EQ(p->normalBlock().outputValue(pvs->nextId).asInt(), 10) << f;
        TdataArrayAttrs* b = batch(node<TdynEmitter>("e"));
        ASSERT_NE(b, nullptr);
        EXPECT_EQ(b->longestArraySize(), 0u) << f;
    }
}

TEST_F(EmitterRateTest, AMovingEmitterGivesItsBirthsItsVelocity) {
    // One unit in x a frame is 24 units a second; speed 0, so the births carry only what they inherit.
    ASSERT_TRUE(run("particle -n p -i 1; emitter -n e -r 48 -spd 0; connectDynamic -em e p;"))
        << errors.str();
    TdynEmitter* e = node<TdynEmitter>("e");
    frame(1);
    for (int f = 2; f <= 4; ++f) {
        ASSERT_TRUE(run("setAttr e.translateX " + std::to_string(f - 1) + ";")) << errors.str();
        frame(f);
        TdataArrayAttrs* b = batch(e);
        ASSERT_NE(b, nullptr);
        const T4dDblVectorArray& v = *b->getVectorData("velocity");
        const T4dDblVectorArray& q = *b->getVectorData("position");
        const TdoubleArray& t = *b->getDoubleData("timeInStep");
        ASSERT_EQ(v.length(), 2u);
        for (unsigned k = 0; k < 2; ++k) {
            // 1e-9: one division by a step of 1/24 s.
            EXPECT_NEAR(v[k].x, 24, 1e-9);
            EXPECT_EQ(v[k].y, 0);
            // Born on the path at t and rewound by t steps: the start of the step's path, x = f - 2.
            EXPECT_NEAR(q[k].x, f - 2, 1e-9) << t[k];
        }
    }
}

TEST_F(EmitterRateTest, ParticlesThatLeaveTheEmissionVolumeDieWhenAsked) {
    // A unit sphere at rate 240 times its volume, births flying out at 6 a second: out within a few frames.
    ASSERT_TRUE(run("particle -n p; emitter -n e -type volume -vsh sphere -r 240 -afc 6;"
                    "connectDynamic -em e p; setAttr pShape.dieOnEmissionVolumeExit 1;"))
        << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    frame(1);
    for (int f = 2; f <= 12; ++f) {
        frame(f);
        for (const T4dDblVector& q : positions(p))
            EXPECT_LE(q.length(), 1 + 1e-12) << f;
    }
    // About 42 born a frame (240 times 4.19 over 24) and most gone within a frame or two: a few dozen left
    // of the more than 400 made.
    EXPECT_GT(p->countNoCompute(), 10u);
    EXPECT_LT(p->countNoCompute(), 120u);
    EXPECT_GT(p->normalBlock().outputValue(TdynParticleShape::sVsData()->nextId).asInt(), 400);
    // Without the flag they fly on.
    ASSERT_TRUE(run("setAttr pShape.dieOnEmissionVolumeExit 0;")) << errors.str();
    frame(13);
    frame(14);
    double farthest = 0;
    for (const T4dDblVector& q : positions(p))
        farthest = std::max(farthest, q.length());
    EXPECT_GT(farthest, 1);
}

TEST_F(EmitterRateTest, NoBirthsWhenTheDistancesMakeNoSenseOrTheRateIsZero) {
    ASSERT_TRUE(run("particle -n p; emitter -n e -r 240; connectDynamic -em e p;"
                    "setAttr e.maxDistance 1; setAttr e.minDistance 2;"))
        << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    frame(1);
    frame(2);
    EXPECT_EQ(p->countNoCompute(), 0u);
    // maxDistance 0 skips the range test: births, and no offset.
    ASSERT_TRUE(run("setAttr e.maxDistance 0;")) << errors.str();
    frame(3);
    EXPECT_EQ(p->countNoCompute(), 10u);
    ASSERT_TRUE(run("setAttr e.rate 0;")) << errors.str();
    frame(4);
    EXPECT_EQ(p->countNoCompute(), 10u);
}

} // namespace
