// The force laws at chosen points against their closed forms, through the
// plain query path (getForceAtPoint), which runs the same apply as the graph.

#include "Commands/Fields/TdynAir.h"
#include "Commands/Fields/TdynDrag.h"
#include "Commands/Fields/TdynGravity.h"
#include "Commands/Fields/TdynNewton.h"
#include "Commands/Fields/TdynRadial.h"
#include "Commands/Fields/TdynTurbulence.h"
#include "Commands/Fields/TdynUniform.h"
#include "Commands/Fields/TdynVolumeAxis.h"
#include "Commands/Fields/TdynVortex.h"
#include "Commands/Scene/DynSceneTest.h"
#include "Host/Graph/TdependGraph.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

// Sums of a few doubles: 1e-12 absolute covers their rounding.
constexpr double kTol = 1e-12;

class FieldLawTest : public DynGraphTest {
protected:
    template <class F> F* make(const char* type) {
        auto* f = F::cast(graph.createNode(type));
        EXPECT_NE(f, nullptr) << type;
        return f;
    }
    static void setVec(TdynField* f, Tattribute3Double* a, const T4dDblVector& v) {
        for (int k = 0; k < 3; ++k)
            f->setNumber(a->children()[k], v[k]);
    }
    static void reach(TdynField* f, double maxDistance, double attenuation) {
        f->setUseMaxDistance(true);
        f->setMaxDistance(maxDistance);
        f->setAttenuation(attenuation);
    }
    // Force on each point (velocities and masses optional).
    static T4dDblVectorArray force(TdynField* f, T4dDblVectorArray p, T4dDblVectorArray v = {},
                                   TdoubleArray m = {}, double dt = 1.0 / 24) {
        T4dDblVectorArray out;
        EXPECT_EQ(f->getForceAtPoint(p, v, m, out, dt), 0);
        return out;
    }
    static T4dDblVector force1(TdynField* f, const T4dDblVector& p, const T4dDblVector& v = {},
                               double dt = 1.0 / 24) {
        return force(f, {p}, {v}, {}, dt)[0];
    }
    static void move(TdynField* f, const T4dDblVector& t) {
        for (int k = 0; k < 3; ++k)
            f->setNumber(f->attribute(std::string("translate") + "XYZ"[k]), t[k]);
    }
    static void scale(TdynField* f, double s) {
        for (int k = 0; k < 3; ++k)
            f->setNumber(f->attribute(std::string("scale") + "XYZ"[k]), s);
    }
};

#define EXPECT_VEC(actual, ex, ey, ez)                                                                       \
    do {                                                                                                     \
        const T4dDblVector v_ = (actual);                                                                    \
        EXPECT_NEAR(v_.x, (ex), kTol);                                                                       \
        EXPECT_NEAR(v_.y, (ey), kTol);                                                                       \
        EXPECT_NEAR(v_.z, (ez), kTol);                                                                       \
    } while (0)

// ---- reach and falloff, shared by every law ----

TEST_F(FieldLawTest, UniformSumsFalloffAndKeepsTheNegativeReachAsymmetry) {
    auto* f = make<TdynUniform>("uniformField");
    setVec(f, TdynUniform::saDirection(), {0, 2, 0}); // normalised: the length does not count
    f->setMagnitude(3);
    EXPECT_VEC(force1(f, {3, 4, 0}), 0, 3, 0);
    f->setAttenuation(2); // d = 5: w = 1 / 6^2
    EXPECT_VEC(force1(f, {3, 4, 0}), 0, 3.0 / 36, 0);
    reach(f, 4, 2);
    EXPECT_VEC(force1(f, {3, 4, 0}), 0, 0, 0);
    // maxDistance -1: squared comparison at attenuation 0 reaches distance 1 ...
    reach(f, -1, 0);
    EXPECT_VEC(force1(f, {0.5, 0, 0}), 0, 3, 0);
    EXPECT_VEC(force1(f, {2, 0, 0}), 0, 0, 0);
    // ... and with attenuation nothing is in reach.
    reach(f, -1, 0.5);
    EXPECT_VEC(force1(f, {0.5, 0, 0}), 0, 0, 0);
    EXPECT_VEC(force1(f, {0, 0, 0}), 0, 0, 0);

    setVec(f, TdynUniform::saDirection(), {0, 0, 0});
    f->setUseMaxDistance(false);
    EXPECT_VEC(force1(f, {1, 0, 0}), 0, 0, 0);
}

TEST_F(FieldLawTest, GravityScalesByMassAndStartsFromTheFieldsPlace) {
    auto* f = make<TdynGravity>("gravityField");
    setVec(f, TdynGravity::saDirection(), {0, -1, 0});
    f->setMagnitude(9.8);
    T4dDblVectorArray out = force(f, {{0, 0, 0}, {5, 5, 5}}, {}, {2, 0.5});
    EXPECT_VEC(out[0], 0, -19.6, 0);
    EXPECT_VEC(out[1], 0, -4.9, 0);
    // Reach is measured from the field's own position.
    move(f, {10, 0, 0});
    reach(f, 1, 0);
    out = force(f, {{0, 0, 0}, {10.5, 0, 0}});
    EXPECT_VEC(out[0], 0, 0, 0);
    EXPECT_VEC(out[1], 0, -9.8, 0);
}

TEST_F(FieldLawTest, DragUsesVelocityAndTheRawDirectionPerAxis) {
    auto* f = make<TdynDrag>("dragField");
    f->setMagnitude(2);
    EXPECT_VEC(force1(f, {0, 0, 0}, {1, 2, 3}), -2, -4, -6);
    f->setNumber(TdynDrag::saUseDirection(), 1);
    setVec(f, TdynDrag::saDirection(), {2, 0, 0});
    // Not normalised: twice the drag along x, none along y and z.
    EXPECT_VEC(force1(f, {0, 0, 0}, {1, 2, 3}), -4, 0, 0);
    f->setAttenuation(1); // d = 1: w = 1/2
    EXPECT_VEC(force1(f, {1, 0, 0}, {1, 2, 3}), -2, 0, 0);
    setVec(f, TdynDrag::saDirection(), {0, 0, 0});
    EXPECT_VEC(force1(f, {1, 0, 0}, {1, 2, 3}), 0, 0, 0);
}

TEST_F(FieldLawTest, RadialBlendsItsTwoParts) {
    auto* f = make<TdynRadial>("radialField");
    f->setMagnitude(5);
    const T4dDblVector p{2, 0, 0};
    // Type 0: part B alone, rel times magnitude, no attenuation used.
    f->setAttenuation(1);
    EXPECT_VEC(force1(f, p), 10, 0, 0);
    // Type 1: part A alone, with the falloff 1 / (1 + d).
    f->setNumber(TdynRadial::saRadialType(), 1);
    EXPECT_VEC(force1(f, p), 10.0 / 3, 0, 0);
    // Type 0.5: both, each with half the magnitude.
    f->setNumber(TdynRadial::saRadialType(), 0.5);
    EXPECT_VEC(force1(f, p), 5 + 5.0 / 3, 0, 0);
    // Clamped above 1.
    f->setNumber(TdynRadial::saRadialType(), 7);
    EXPECT_VEC(force1(f, p), 10.0 / 3, 0, 0);
    // Part B with a reach fades linearly to the edge: (1 - 2/4)^1.
    f->setNumber(TdynRadial::saRadialType(), 0);
    reach(f, 4, 1);
    EXPECT_VEC(force1(f, p), 5, 0, 0);
    reach(f, 4, 2);
    EXPECT_VEC(force1(f, p), 2.5, 0, 0);
    reach(f, 1.5, 1);
    EXPECT_VEC(force1(f, p), 0, 0, 0);
    // Negative magnitude pulls.
    f->setMagnitude(-1);
    f->setUseMaxDistance(false);
    EXPECT_VEC(force1(f, p), -2, 0, 0);
    f->setMagnitude(0);
    EXPECT_VEC(force1(f, p), 0, 0, 0);
}

TEST_F(FieldLawTest, NewtonDividesByOnePlusDistanceAndThePowerOfIt) {
    auto* f = make<TdynNewton>("newtonField");
    f->setMagnitude(1);
    f->setNumber(TdynNewton::saMinDistance(), 0.2);
    const T4dDblVector p{3, 0, 0}; // d = 3, rel / (1 + d) = 0.75
    EXPECT_VEC(force1(f, p), -0.667 * 0.75, 0, 0);
    f->setAttenuation(2);
    EXPECT_VEC(force1(f, p), -0.667 * 0.75 / 9, 0, 0);
    f->setAttenuation(1);
    EXPECT_VEC(force1(f, p), -0.667 * 0.75 / 3, 0, 0);
    f->setAttenuation(1.5);
    EXPECT_VEC(force1(f, p), -0.667 * 0.75 / std::pow(3.0, 1.5), 0, 0);
    // Mass of the point multiplies.
    EXPECT_VEC(force(f, {p}, {}, {2})[0], -2 * 0.667 * 0.75 / std::pow(3.0, 1.5), 0, 0);
    // Inside the minimum distance, and at the source itself: nothing.
    EXPECT_VEC(force1(f, {0.1, 0, 0}), 0, 0, 0);
    EXPECT_VEC(force1(f, {0, 0, 0}), 0, 0, 0);
}

TEST_F(FieldLawTest, VortexTurnsByOneStepAndANegativeMagnitudeOnlyFlipsTheSign) {
    auto* f = make<TdynVortex>("vortexField");
    setVec(f, TdynVortex::saAxis(), {0, 3, 0});
    f->setMagnitude(100); // 1 radian
    const double dt = 0.5, c = std::cos(1.0), s = std::sin(1.0);
    // About +y, (1, 0, 0) turns to (c, 0, -s).
    EXPECT_VEC(force1(f, {1, 0, 0}, {}, dt), (c - 1) / dt, 0, -s / dt);
    f->setMagnitude(-100);
    EXPECT_VEC(force1(f, {1, 0, 0}, {}, dt), -(c - 1) / dt, 0, s / dt);
    // Attenuation shrinks the angle: d = 2, angle 1 / 3.
    f->setMagnitude(100);
    f->setAttenuation(1);
    const double c3 = std::cos(1.0 / 3), s3 = std::sin(1.0 / 3);
    EXPECT_VEC(force1(f, {2, 0, 0}, {}, dt), 2 * (c3 - 1) / dt, 0, -2 * s3 / dt);
    // A step shorter than 1e-5 gives nothing.
    EXPECT_VEC(force1(f, {1, 0, 0}, {}, 0), 0, 0, 0);
    EXPECT_VEC(force1(f, {1, 0, 0}, {}, 9e-6), 0, 0, 0);
}

// ---- turbulence ----

TEST(FieldTurbulenceLattice, NodesHaveTheirHashedValuesAndTheFormsMeetThem) {
    // At the origin every component hashes n = 0: 1 - 1376312589 / 2^30.
    const double origin = 1.0 - 1376312589.0 / 1073741824.0;
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(TdynTurbulence::latticeValue(0, 0, 0, c), origin, 1e-15);
    // Values worked out separately in 64-bit arithmetic masked to 32 bits.
    EXPECT_NEAR(TdynTurbulence::latticeValue(2, 3, -1, 0), -0.8141412110999227, 1e-15);
    EXPECT_NEAR(TdynTurbulence::latticeValue(2, 3, -1, 1), -0.888026156462729, 1e-15);
    EXPECT_NEAR(TdynTurbulence::latticeValue(2, 3, -1, 2), 0.018991890363395214, 1e-15);

    // Both forms return the node's value at an integer point.
    for (const T4dDblVector& q : {T4dDblVector{2, 3, -1}, T4dDblVector{3, 3, -1}}) {
        const T4dDblVector lin = TdynTurbulence::noiseLinear(q), quad = TdynTurbulence::noiseQuadratic(q);
        for (int c = 0; c < 3; ++c) {
            const double node = TdynTurbulence::latticeValue(int(q.x), int(q.y), int(q.z), c);
            EXPECT_NEAR(lin[c], node, 1e-15);
            EXPECT_NEAR(quad[c], node, 1e-15);
        }
    }
    // Linear, halfway along x on a cell edge: the mean of the two nodes, no smoothing curve.
    const T4dDblVector mid = TdynTurbulence::noiseLinear({2.5, 3, -1});
    EXPECT_NEAR(mid.x, (-0.8141412110999227 + -0.541531321592629) / 2, 1e-15);
    EXPECT_NEAR(mid.z, (0.018991890363395214 + -0.7130975918844342) / 2, 1e-15);
    // Linear at a quarter: three quarters of the first node.
    EXPECT_NEAR(TdynTurbulence::noiseLinear({2.25, 3, -1}).y,
                0.75 * -0.888026156462729 + 0.25 * -0.3942473651841283, 1e-15);
}

TEST(FieldTurbulenceLattice, QuadraticIsContinuousAcrossCellBorders) {
    // Approaching a border from below and landing on it agree to the size of the step (slope is bounded).
    for (double border : {1.0, -3.0, 7.0})
        for (const T4dDblVector& off : {T4dDblVector{0, 0.3, 0.7}, T4dDblVector{0.2, 0.9, 0.4}}) {
            const double eps = 1e-9;
            const T4dDblVector below = TdynTurbulence::noiseQuadratic({border - eps, off.y, off.z});
            const T4dDblVector at = TdynTurbulence::noiseQuadratic({border, off.y, off.z});
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(below[c], at[c], 1e-7) << border;
            const T4dDblVector belowY = TdynTurbulence::noiseQuadratic({off.x, border - eps, off.z});
            const T4dDblVector atY = TdynTurbulence::noiseQuadratic({off.x, border, off.z});
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(belowY[c], atY[c], 1e-7) << border;
        }
    // Off the nodes the quadratic form differs from the linear one: it really bends.
    const T4dDblVector q{2.5, 3.25, -0.5};
    EXPECT_GT((TdynTurbulence::noiseQuadratic(q) - TdynTurbulence::noiseLinear(q)).length(), 1e-6);
}

TEST_F(FieldLawTest, TurbulenceAddsOctavesAtPhaseAndFrequency) {
    auto* f = make<TdynTurbulence>("turbulenceField");
    f->setMagnitude(2);
    const double origin = 1.0 - 1376312589.0 / 1073741824.0;
    // Level 0: one octave at the point itself.
    EXPECT_VEC(force1(f, {0, 0, 0}), 2 * origin, 2 * origin, 2 * origin);
    // The phase moves the lattice: point (0,0,0) with phase (2,3,-1) reads node (2,3,-1).
    f->setNumber(&TdynTurbulence::saVs()->phaseX, 2);
    f->setNumber(&TdynTurbulence::saVs()->phaseY, 3);
    f->setNumber(&TdynTurbulence::saVs()->phaseZ, -1);
    EXPECT_VEC(force1(f, {0, 0, 0}), 2 * -0.8141412110999227, 2 * -0.888026156462729,
               2 * 0.018991890363395214);
    // Frequency 0.5 at point (2,0,0) with those phases: q = (2, 1.5, -0.5)... use an integer-landing one.
    f->setNumber(TdynTurbulence::saFrequency(), 0.5);
    f->setNumber(&TdynTurbulence::saVs()->phaseX, 0);
    f->setNumber(&TdynTurbulence::saVs()->phaseY, 0);
    f->setNumber(&TdynTurbulence::saVs()->phaseZ, 0);
    EXPECT_VEC(force1(f, {4, 6, -2}), 2 * -0.8141412110999227, 2 * -0.888026156462729,
               2 * 0.018991890363395214);
    // One more level at ratio 0.5: node (2,3,-1) plus half of node (4,6,-2).
    f->setNumber(TdynTurbulence::saNoiseLevel(), 1);
    f->setNumber(TdynTurbulence::saNoiseRatio(), 0.5);
    const T4dDblVector second{TdynTurbulence::latticeValue(4, 6, -2, 0),
                              TdynTurbulence::latticeValue(4, 6, -2, 1),
                              TdynTurbulence::latticeValue(4, 6, -2, 2)};
    EXPECT_VEC(force1(f, {4, 6, -2}), 2 * (-0.8141412110999227 + 0.5 * second.x),
               2 * (-0.888026156462729 + 0.5 * second.y), 2 * (0.018991890363395214 + 0.5 * second.z));
    // With attenuation, divided by (1 + d)^a.
    f->setNumber(TdynTurbulence::saNoiseLevel(), 0);
    f->setAttenuation(1);
    const double d = std::sqrt(16.0 + 36 + 4);
    EXPECT_NEAR(force1(f, {4, 6, -2}).x, 2 * -0.8141412110999227 / (1 + d), kTol);
    // The quadratic form through the field, off the nodes.
    f->setAttenuation(0);
    f->setNumber(TdynTurbulence::saInterpolationType(), 1);
    const T4dDblVector quad = TdynTurbulence::noiseQuadratic({1.25, 0.5, -0.75}) * 2;
    EXPECT_VEC(force1(f, {2.5, 1, -1.5}), quad.x, quad.y, quad.z);
    f->setNumber(TdynTurbulence::saInterpolationType(), 0);
    // Beyond the 32-bit lattice: no force.
    f->setAttenuation(0);
    f->setNumber(TdynTurbulence::saFrequency(), 1);
    EXPECT_VEC(force1(f, {3e9, 0, 0}), 0, 0, 0);
}

// ---- air ----

TEST_F(FieldLawTest, AirClosesTheGapToTheWindAndFadesToItsReach) {
    auto* f = make<TdynAir>("airField");
    f->setMagnitude(4);
    setVec(f, &TdynAir::saVs()->direction, {1, 0, 0});
    f->setNumber(&TdynAir::saVs()->speed, 1);
    // wind (4,0,0), particle at (1,0,0) per second: delta (3,0,0).
    EXPECT_VEC(force1(f, {10, 0, 0}, {1, 0, 0}), 3, 0, 0);
    // speed clamps to 1 and scales below it.
    f->setNumber(&TdynAir::saVs()->speed, 0.5);
    EXPECT_VEC(force1(f, {10, 0, 0}, {1, 0, 0}), 1.5, 0, 0);
    f->setNumber(&TdynAir::saVs()->speed, 1);
    // Reach 20 at attenuation 1: ((20 - 10) / 20)^1.
    reach(f, 20, 1);
    EXPECT_VEC(force1(f, {10, 0, 0}, {1, 0, 0}), 1.5, 0, 0);
    // At d = R: pow(0, a) is 0 above 0, 1 at 0.
    EXPECT_VEC(force1(f, {20, 0, 0}, {1, 0, 0}), 0, 0, 0);
    reach(f, 20, 0);
    EXPECT_VEC(force1(f, {20, 0, 0}, {1, 0, 0}), 3, 0, 0);
    reach(f, 0, 0); // a reach of exactly 0: nothing at all
    EXPECT_VEC(force1(f, {0, 0, 0}, {1, 0, 0}), 0, 0, 0);
    f->setUseMaxDistance(false);

    // Component only: the velocity's part along the wind counts.
    f->setNumber(&TdynAir::saVs()->componentOnly, 1);
    EXPECT_VEC(force1(f, {1, 0, 0}, {1, 5, 0}), 3, 0, 0);
    // Already faster than the wind and moving with it: no force.
    EXPECT_VEC(force1(f, {1, 0, 0}, {8, 0, 0}), 0, 0, 0);
    // Against it: the full difference along the wind.
    EXPECT_VEC(force1(f, {1, 0, 0}, {-8, 0, 0}), 12, 0, 0);
}

TEST_F(FieldLawTest, AirSpreadGatesACone) {
    auto* f = make<TdynAir>("airField");
    f->setMagnitude(4);
    setVec(f, &TdynAir::saVs()->direction, {1, 0, 0});
    f->setNumber(&TdynAir::saVs()->speed, 1);
    f->setNumber(&TdynAir::saVs()->enableSpread, 1);
    f->setNumber(&TdynAir::saVs()->spread, 0.5); // cone half-angle 45 degrees
    // (1, 0.5, 0) is 26.6 degrees off the wind: the air flows out along rel at the wind's strength.
    const double n = std::sqrt(1.25);
    EXPECT_VEC(force1(f, {1, 0.5, 0}), 4 / n, 2 / n, 0);
    // (0, 1, 0) is 90 degrees off: outside the cone.
    EXPECT_VEC(force1(f, {0, 1, 0}), 0, 0, 0);
    // With the spread on a negative magnitude keeps the cone and flips the result.
    f->setMagnitude(-4);
    EXPECT_VEC(force1(f, {1, 0.5, 0}), -4 / n, -2 / n, 0);
}

TEST_F(FieldLawTest, AirInheritsTheFieldsOwnMotion) {
    auto* f = make<TdynAir>("airField");
    f->setMagnitude(0);
    setVec(f, &TdynAir::saVs()->direction, {1, 0, 0});
    f->setNumber(&TdynAir::saVs()->speed, 1);
    f->setNumber(&TdynAir::saVs()->inheritVelocity, 1);
    // First evaluation from the origin at rest: no wind, a still particle feels nothing.
    EXPECT_VEC(force1(f, {5, 0, 0}, {}, 0.5), 0, 0, 0);
    // Moved by (1,0,0) in half a second: the air moves at (2,0,0).
    move(f, {1, 0, 0});
    EXPECT_VEC(force1(f, {5, 0, 0}, {}, 0.5), 2, 0, 0);
    EXPECT_TRUE(f->lastPosition().isEquivalent({1, 0, 0}));
    // Standing still again: the remembered place catches up, no wind.
    EXPECT_VEC(force1(f, {5, 0, 0}, {}, 0.5), 0, 0, 0);
}

TEST_F(FieldLawTest, AirTurnsItsDirectionWithTheFieldOnlyWhenAsked) {
    auto* f = make<TdynAir>("airField");
    f->setMagnitude(2);
    setVec(f, &TdynAir::saVs()->direction, {1, 0, 0});
    f->setNumber(&TdynAir::saVs()->speed, 1);
    // Turned 90 degrees about z and scaled: the scale must not reach the wind.
    f->setNumber(f->attribute("rotateZ"), 90);
    scale(f, 3);
    EXPECT_VEC(force1(f, {0, 0, 0}), 2, 0, 0);
    f->setNumber(&TdynAir::saVs()->inheritRotation, 1);
    const T4dDblVector w = force1(f, {0, 0, 0});
    EXPECT_NEAR(w.length(), 2, kTol);
    EXPECT_NEAR(std::fabs(w.y), 2, kTol);
}

// ---- volume axis ----

TEST_F(FieldLawTest, VolumeAxisFlowsAwayAlongAndAroundInsideItsVolume) {
    auto* f = make<TdynVolumeAxis>("volumeAxisField");
    auto* vs = TdynVolumeAxis::saVs();
    // No volume: nothing.
    EXPECT_VEC(force1(f, {0.5, 0, 0}), 0, 0, 0);
    f->setVolumeShape(2); // sphere: away from the centre, unit length
    EXPECT_VEC(force1(f, {0.5, 0, 0}), 1, 0, 0);
    EXPECT_VEC(force1(f, {2, 0, 0}), 0, 0, 0);
    // Scaled by 2: the point (1,0,0) is inside, the direction keeps unit length times the magnitude.
    scale(f, 2);
    f->setMagnitude(3);
    EXPECT_VEC(force1(f, {1, 0, 0}), 3, 0, 0);
    // Attenuation 2 at local radius 0.25: (1 - 0.25)^2, inverted (0.25)^2.
    f->setAttenuation(2);
    EXPECT_VEC(force1(f, {0.5, 0, 0}), 3 * 0.5625, 0, 0);
    f->setNumber(&vs->invertAttenuation, 1);
    EXPECT_VEC(force1(f, {0.5, 0, 0}), 3 * 0.0625, 0, 0);

    // Cylinder: around the y axis, (0,1,0) x (x,0,z) = (z,0,-x); plus a drift along direction.
    scale(f, 1);
    f->setAttenuation(0);
    f->setMagnitude(1);
    f->setVolumeShape(3);
    f->setNumber(&vs->awayFromAxis, 0);
    f->setNumber(&vs->aroundAxis, 2);
    f->setNumber(&vs->alongAxis, 0.5);
    f->setNumber(&vs->directionalSpeed, 0.25);
    EXPECT_VEC(force1(f, {0.5, 0.2, 0}), 0.25, 0.5, -2);
    // The exclusion flag does not apply to this law.
    f->setNumber(TdynField::saVolumeExclusion(), 1);
    EXPECT_VEC(force1(f, {0.5, 0.2, 0}), 0.25, 0.5, -2);
    EXPECT_VEC(force1(f, {3, 0, 0}), 0, 0, 0);
    // Turbulence adds a bounded, repeatable push.
    f->setNumber(&vs->turbulence, 1);
    const T4dDblVector a = force1(f, {0.5, 0.2, 0}), b = force1(f, {0.5, 0.2, 0});
    EXPECT_EQ(a, b);
    EXPECT_NE(a, (T4dDblVector{0.25, 0.5, -2}));
    EXPECT_LT((a - T4dDblVector{0.25, 0.5, -2}).length(), 2.0);
}

} // namespace
