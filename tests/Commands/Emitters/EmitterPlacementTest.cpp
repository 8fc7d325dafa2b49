// Where births go: the point and volume routines called on plain arrays, the
// random directions they draw, the split of a count over elements and the
// texture filter, each against what can be worked out by hand.

#include "Commands/Emitters/TdynEmitter.h"
#include "Commands/Scene/DynSceneTest.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <sstream>

namespace {

constexpr double kPi = 3.14159265358979323846;

class EmitterPlacementTest : public DynSceneTest {
protected:
    void SetUp() override {
        DynSceneTest::SetUp();
        ASSERT_TRUE(run("emitter -n e;")) << errors.str();
        e = node<TdynEmitter>("e");
        ASSERT_NE(e, nullptr);
        e->setRandomStateWords(11, 0, 1);
    }
    // One still source at P.
    void source(const T4dDblVector& P, const T4dDblVector& V = {}) {
        positions = {P};
        velocities = {V};
        src.positions = &positions;
        src.velocities = &velocities;
    }
    const T4dDblVectorArray& out(const char* name) { return *attrs.getVectorData(name); }
    const TdoubleArray& timeInStep() { return *attrs.getDoubleData("timeInStep"); }

    TdynEmitter* e = nullptr;
    T4dDblVectorArray positions, velocities;
    TdynEmitSources src;
    TdataArrayAttrs attrs;
};

TEST_F(EmitterPlacementTest, OmniWithoutOffsetBirthsAtTheSourceRewoundAlongTheirVelocity) {
    const T4dDblVector P(1, 2, 3);
    source(P);
    TdynEmitSettings s;
    s.dt = 0.25;
    s.speed = 2;
    e->emitFromPointOmni(src, Tint32Array{8}, s, attrs);
    ASSERT_EQ(out("position").length(), 8u);
    for (unsigned k = 0; k < 8; ++k) {
        const T4dDblVector v = out("velocity")[k];
        const double t = timeInStep()[k];
        // Stratified: the k-th birth falls in the k-th eighth of the step.
        EXPECT_GE(t, k / 8.0);
        EXPECT_LT(t, (k + 1) / 8.0);
        EXPECT_NEAR(v.length(), 2, 1e-12);
        // Where it ends after a whole step of v is where it would be after (1 - t) of a step from P.
        EXPECT_TRUE((out("position")[k] + v * s.dt).isEquivalent(P + v * (s.dt * (1 - t)), 1e-12));
    }
}

TEST_F(EmitterPlacementTest, OmniDrawsTimeThenSpeedThenDirectionWithoutAnOffset) {
    source(T4dDblVector());
    TdynEmitSettings s;
    s.dt = 1;
    s.speed = 1;
    s.speedRandom = 0.5;
    e->emitFromPointOmni(src, Tint32Array{1}, s, attrs);
    // The same stream by hand: t, the speed band, then three axes and three sign flips.
    unsigned short st[3] = {11, 0, 1};
    const double t = erand48(st);
    const double sp = (erand48(st) - 0.5) * 0.5 + 1;
    T4dDblVector d;
    d.x = erand48(st); // one at a time: the order of arguments is not fixed
    d.y = erand48(st);
    d.z = erand48(st);
    d.normalizeIt();
    if (erand48(st) > 0.5) d.x = -d.x;
    if (erand48(st) > 0.5) d.y = -d.y;
    if (erand48(st) > 0.5) d.z = -d.z;
    EXPECT_EQ(timeInStep()[0], t);
    EXPECT_EQ(out("velocity")[0], d * sp);
    // Nine draws and no more: the state left is the hand stream's.
    EXPECT_EQ(e->randomState()[0], st[0]);
    EXPECT_EQ(e->randomState()[1], st[1]);
    EXPECT_EQ(e->randomState()[2], st[2]);
}

TEST_F(EmitterPlacementTest, OmniOffsetsLieBetweenTheTwoDistances) {
    const T4dDblVector P(0, 5, 0);
    source(P);
    TdynEmitSettings s;
    s.dt = 0.1;
    s.speed = 3;
    s.minDistance = 1;
    s.maxDistance = 2;
    e->emitFromPointOmni(src, Tint32Array{200}, s, attrs);
    ASSERT_EQ(out("position").length(), 200u);
    double lo = 10, hi = 0;
    for (unsigned k = 0; k < 200; ++k) {
        const T4dDblVector born = out("position")[k] + out("velocity")[k] * (s.dt * timeInStep()[k]);
        const double d = born.distanceTo(P);
        lo = std::min(lo, d);
        hi = std::max(hi, d);
    }
    // 1e-12: a few roundings on coordinates near 5.
    EXPECT_GE(lo, 1 - 1e-12);
    EXPECT_LE(hi, 2 + 1e-12);
    // Two hundred uniform draws fill most of the band.
    EXPECT_LT(lo, 1.1);
    EXPECT_GT(hi, 1.9);
}

TEST_F(EmitterPlacementTest, MovingSourcesSpreadBirthsAlongThePathAndPassOnTheirVelocity) {
    // From (0,0,0) to (2,0,0) in a step of 0.5 s: V = (4,0,0).
    source(T4dDblVector(2, 0, 0), T4dDblVector(4, 0, 0));
    TdynEmitSettings s;
    s.dt = 0.5;
    s.speed = 0;
    s.inheritFactor = 0.5;
    e->emitFromPointOmni(src, Tint32Array{4}, s, attrs);
    for (unsigned k = 0; k < 4; ++k) {
        const double t = timeInStep()[k];
        EXPECT_TRUE(out("velocity")[k].isEquivalent(T4dDblVector(2, 0, 0), 1e-15));
        // Born at 2t on the path, rewound by t steps at velocity 2: x = 2t - t.
        EXPECT_NEAR(out("position")[k].x, t, 1e-14);
    }
}

TEST_F(EmitterPlacementTest, DirectionalWithoutSpreadSendsAllAlongTheWorldDirection) {
    source(T4dDblVector());
    TdynEmitSettings s;
    s.dt = 0.1;
    s.speed = 3;
    // A quarter turn about z takes +x to +y; the direction's length does not matter.
    T4dDblMatrix turn;
    turn[0][0] = 0;
    turn[0][1] = 1;
    turn[1][0] = -1;
    turn[1][1] = 0;
    e->emitFromPointDirectional(src, Tint32Array{5}, s, T4dDblVector(7, 0, 0), turn, attrs);
    for (unsigned k = 0; k < 5; ++k)
        EXPECT_TRUE(out("velocity")[k].isEquivalent(T4dDblVector(0, 3, 0), 1e-15)) << k;
    // One draw a birth (its time): spread 0 takes none.
    unsigned short st[3] = {11, 0, 1};
    for (int k = 0; k < 5; ++k)
        erand48(st);
    EXPECT_EQ(e->randomState()[0], st[0]);
    EXPECT_EQ(e->randomState()[1], st[1]);
}

TEST_F(EmitterPlacementTest, SpreadStaysInsideItsConeAndOffsetsFollowTheSpreadDirection) {
    const T4dDblVector P(1, 1, 1);
    source(P);
    TdynEmitSettings s;
    s.dt = 0.1;
    s.speed = 2;
    s.spread = 0.25;
    s.minDistance = 0.5;
    s.maxDistance = 0.5;
    e->emitFromPointDirectional(src, Tint32Array{100}, s, T4dDblVector(0, 0, 1), T4dDblMatrix(), attrs);
    double widest = 0;
    for (unsigned k = 0; k < 100; ++k) {
        const T4dDblVector v = out("velocity")[k];
        EXPECT_NEAR(v.length(), 2, 1e-12);
        const double angle = std::acos(std::clamp(v.z / 2, -1.0, 1.0));
        EXPECT_LE(angle, kPi * 0.25 + 1e-9);
        widest = std::max(widest, angle);
        const T4dDblVector born = out("position")[k] + v * (s.dt * timeInStep()[k]);
        EXPECT_TRUE(born.isEquivalent(P + v * 0.25, 1e-12)) << k;
    }
    EXPECT_GT(widest, kPi * 0.2);
}

TEST_F(EmitterPlacementTest, VolumeBirthsStartInsideTheVolumeAndMoveAwayFromItsCentre) {
    TdynVolumeSphere sphere;
    const T4dDblMatrix M = T4dDblMatrix::scaling(3) * T4dDblMatrix::translation(T4dDblVector(2, 0, 0));
    TdynEmitSettings s;
    s.dt = 0.1;
    TdynEmitter::VolumeSettings v;
    v.shape = kEmitSphere;
    v.away = 2;
    e->emitFromVolume(sphere, M, M, T4dDblVector(), 200, s, v, attrs);
    ASSERT_EQ(out("position").length(), 200u);
    const TdynVolumeMatrix placed(M);
    for (unsigned k = 0; k < 200; ++k) {
        const double t = timeInStep()[k];
        EXPECT_GE(t, k / 200.0);
        EXPECT_LT(t, (k + 1) / 200.0);
        const T4dDblVector vel = out("velocity")[k];
        const T4dDblVector born = out("position")[k] + vel * (s.dt * t);
        EXPECT_TRUE(sphere.isPointInVolume(born, placed)) << k;
        // Straight out from the centre (2, 0, 0) at awayFromCenter.
        EXPECT_NEAR(vel.length(), 2, 1e-12);
        EXPECT_TRUE(vel.isEquivalent((born - T4dDblVector(2, 0, 0)).normal() * 2, 1e-9)) << k;
    }
    // Only a volume emitter answers for its volume.
    Tint32Array flags;
    EXPECT_FALSE(e->arePointsWithinVolume(T4dDblVectorArray{T4dDblVector()}, flags));
    ASSERT_TRUE(run("setAttr e.emitterType 4; setAttr e.volumeShape 1;")) << errors.str();
    ASSERT_TRUE(e->arePointsWithinVolume(T4dDblVectorArray{{0, 0.5, 0}, {0, 1.5, 0}}, flags));
    EXPECT_EQ(flags, (Tint32Array{1, 0}));
}

TEST_F(EmitterPlacementTest, SurfaceVelocityFromTheNormalAndTangentSpeeds) {
    const T4dDblVector n(0, 0, 1);
    T4dDblVector out1;
    e->getSurfaceEmitVelocity(3, 0, n, out1);
    EXPECT_EQ(out1, T4dDblVector(0, 0, 3));
    T4dDblVector out2;
    e->getSurfaceEmitVelocity(0, 2, n, out2);
    EXPECT_NEAR(out2.z, 0, 1e-12);
    EXPECT_NEAR(out2.length(), 2, 1e-12);
    T4dDblVector out3;
    e->getSurfaceEmitVelocity(1, 1, n, out3);
    // A unit vector split into its normal and tangent parts, each at speed 1: length 1.
    EXPECT_NEAR(out3.length(), 1, 1e-12);
}

TEST_F(EmitterPlacementTest, CountsSplitOverElementsByTheirSizes) {
    Tint32Array counts;
    e->getEmitCountPerSweptGeo(8, 4, TdoubleArray{1, 1, 2}, counts);
    EXPECT_EQ(counts, (Tint32Array{2, 2, 4}));
    // Fractions 0.25, 0.25, 0.5: one particle is left over and goes to one of them.
    e->getEmitCountPerSweptGeo(5, 4, TdoubleArray{1, 1, 2}, counts);
    EXPECT_EQ(counts[0] + counts[1] + counts[2], 5);
    EXPECT_GE(counts[0], 1);
    EXPECT_GE(counts[1], 1);
    EXPECT_GE(counts[2], 2);
    // A zero-sized element has a zero slot in the table and is never chosen.
    for (int r = 0; r < 20; ++r) {
        e->getEmitCountPerSweptGeo(3, 2.5, TdoubleArray{0, 2.5, 0}, counts);
        EXPECT_EQ(counts, (Tint32Array{0, 3, 0}));
        e->getEmitCountPerSweptGeo(1, 2, TdoubleArray{0, 1, 1}, counts);
        EXPECT_EQ(counts[0], 0);
    }
    e->getEmitCountPerSweptGeo(5, 0, TdoubleArray{0, 0}, counts);
    EXPECT_EQ(counts, (Tint32Array{0, 0}));
}

TEST_F(EmitterPlacementTest, TheTextureFilterKeepsBrightTexelsOrDarkOnes) {
    auto batch = [](unsigned n) {
        TdataArrayAttrs a;
        a.addDoubleData("timeInStep");
        a.addVectorData("position");
        TdoubleArray& t = *a.getDoubleData("timeInStep");
        T4dDblVectorArray& p = *a.getVectorData("position");
        for (unsigned k = 0; k < n; ++k) {
            t.addLast(k);
            p.addLast(T4dDblVector(k, 0, 0));
        }
        return a;
    };
    // White keeps all, black rejects all; with emitFromDark the other way round.
    TdataArrayAttrs white = batch(6);
    e->filterTextureEmission(TdoubleArray(6, 1.0), white);
    EXPECT_EQ(white.longestArraySize(), 6u);
    TdataArrayAttrs black = batch(6);
    e->filterTextureEmission(TdoubleArray(6, 0.0), black);
    EXPECT_EQ(black.longestArraySize(), 0u);
    ASSERT_TRUE(run("setAttr e.emitFromDark 1;")) << errors.str();
    TdataArrayAttrs dark = batch(6);
    e->filterTextureEmission(TdoubleArray(6, 0.0), dark);
    EXPECT_EQ(dark.longestArraySize(), 6u);
    // One birth is never filtered.
    TdataArrayAttrs one = batch(1);
    e->filterTextureEmission(TdoubleArray(1, 1.0), one);
    EXPECT_EQ(one.longestArraySize(), 1u);
    // A removed entry takes the last one's values in every array alike.
    TdataArrayAttrs four = batch(4);
    TdynEmitter::filterDataArrayAttrs(1, four);
    EXPECT_EQ(*four.getDoubleData("timeInStep"), (TdoubleArray{0, 3, 2}));
    EXPECT_EQ((*four.getVectorData("position"))[1].x, 3);
    TdoubleArray u{1.25, 0.5}, v{-0.25, 0};
    EXPECT_TRUE(TdynEmitter::normalizeUV(u, v));
    EXPECT_EQ(u, (TdoubleArray{0.25, 0.5}));
    EXPECT_EQ(v, (TdoubleArray{0.75, 0}));
    EXPECT_FALSE(TdynEmitter::normalizeUV(u, v));
}

} // namespace
