// Volume primitives: the sweep, inside tests, boxes, directions, distances and
// random points, against values worked out by hand.

#include "Commands/Fields/TdynVolumePrimitive.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

namespace {

constexpr double kPi = 3.14159265358979;
const TdynVolumeMatrix kIdentity{T4dDblMatrix()};

// A point at polar angle `rad` (from +x towards +z) and radius r, height y.
T4dDblVector atAngle(double rad, double r = 0.5, double y = 0) {
    return {std::cos(rad) * r, y, std::sin(rad) * r};
}

TEST(VolumeSweep, AnglesAreBroughtIntoOneTurnAndTheGateHasASmallSlack) {
    TdynVolumeSphere s;
    s.setSweep(450);
    EXPECT_DOUBLE_EQ(s.sweep(), 90);
    s.setSweep(-90);
    EXPECT_DOUBLE_EQ(s.sweep(), 270);
    s.setSweep(360);
    EXPECT_DOUBLE_EQ(s.sweep(), 360);
    // Every angle passes a full turn, including the one just short of it.
    for (double a : {0.0, 1.0, 3.0, 4.5, 6.28})
        EXPECT_TRUE(s.isPointInVolume(atAngle(a), kIdentity)) << a;

    s.setSweep(90);
    const double sw = s.sweepRad();
    EXPECT_NEAR(sw, kPi / 2, 1e-10);
    EXPECT_TRUE(s.isPointInVolume(atAngle(sw - 0.01), kIdentity));
    // 5e-5 rad past the edge is inside the 1e-4 slack; 1e-3 is not.
    EXPECT_TRUE(s.passesSweep(atAngle(sw + 5e-5)));
    EXPECT_FALSE(s.passesSweep(atAngle(sw + 1e-3)));
    EXPECT_FALSE(s.isPointInVolume(atAngle(kPi), kIdentity));

    // A zero sweep still lets through a sliver of 0.01 rad.
    s.setSweep(0);
    EXPECT_TRUE(s.passesSweep(atAngle(0.005)));
    EXPECT_FALSE(s.passesSweep(atAngle(0.05)));
}

TEST(VolumeInside, EachSolidAcceptsItsInteriorAndRefusesJustOutside) {
    TdynVolumeCube cube;
    EXPECT_TRUE(cube.isPointInVolume({1, -1, 0.5}, kIdentity)); // faces count
    EXPECT_FALSE(cube.isPointInVolume({1.001, 0, 0}, kIdentity));

    TdynVolumeSphere sphere;
    EXPECT_TRUE(sphere.isPointInVolume({0.6, 0.6, 0.5}, kIdentity));  // |p| = 0.9887
    EXPECT_FALSE(sphere.isPointInVolume({0.6, 0.6, 0.6}, kIdentity)); // |p| = 1.039

    TdynVolumeCylinder cyl;
    EXPECT_TRUE(cyl.isPointInVolume({0.7, 0.99, -0.7}, kIdentity));
    EXPECT_FALSE(cyl.isPointInVolume({0.75, 0, 0.75}, kIdentity)); // radius 1.06
    EXPECT_FALSE(cyl.isPointInVolume({0, 1.2, 0}, kIdentity));

    TdynVolumeCone cone;
    EXPECT_TRUE(cone.isPointInVolume({0, 0.5, 0}, kIdentity));
    EXPECT_EQ(cone.distanceFromAxisRatio({0, 0.5, 0}, kIdentity, true), 0);
    EXPECT_EQ(cone.distanceFromAxisRatio({0, 0, 0}, kIdentity, false), 0);
    EXPECT_TRUE(cone.isPointInVolume({0.3, 0.5, 0.3}, kIdentity));  // radius 0.424 < 0.5
    EXPECT_FALSE(cone.isPointInVolume({0.4, 0.5, 0.4}, kIdentity)); // radius 0.566 > 0.5
    EXPECT_FALSE(cone.isPointInVolume({0, -0.1, 0}, kIdentity));

    TdynVolumeTorus torus;
    torus.setSectionRadius(0.25);
    EXPECT_TRUE(torus.isPointInVolume({0, 0.2, -1}, kIdentity));
    // Exactly the tube radius from the ring: outside, the comparison is strict.
    EXPECT_FALSE(torus.isPointInVolume({0, 0.25, 1}, kIdentity));
    EXPECT_FALSE(torus.isPointInVolume({1.25, 0, 0}, kIdentity));
    EXPECT_TRUE(torus.isPointInVolume({1.2499, 0, 0}, kIdentity));
    EXPECT_FALSE(torus.isPointInVolume({0, 0, 0}, kIdentity)); // the hole
    torus.setSectionRadius(-3);
    EXPECT_EQ(torus.sectionRadius(), 0);
}

TEST(VolumeInside, TheMatrixPlacesTheSolid) {
    // Sphere scaled by 2 and moved to (10, 0, 0).
    T4dDblMatrix m = T4dDblMatrix::scaling(2);
    m.setTranslation({10, 0, 0});
    const TdynVolumeMatrix at(m);
    TdynVolumeSphere sphere;
    EXPECT_TRUE(sphere.isPointInVolume({11.9, 0, 0}, at));
    EXPECT_FALSE(sphere.isPointInVolume({12.1, 0, 0}, at));
    EXPECT_FALSE(sphere.isPointInVolume({0, 0, 0}, at));
    EXPECT_NEAR(sphere.volume(at), 8 * 4.1887902, 1e-9);
    EXPECT_NEAR(sphere.volumeScaleOfBasePrimitive(at), 8, 1e-12);
    EXPECT_NEAR(sphere.distanceFromAxis({13, 4, 0}, at), 5, 1e-12);
}

TEST(VolumeBox, SweptBoxesGrowByQuadrantAndNeverCutTheSolid) {
    TdynVolumeCylinder c;
    c.setSweep(45);
    TboundingBox b = c.boundingBox();
    EXPECT_NEAR(b.min.x, -0.01, 1e-12);
    EXPECT_NEAR(b.max.x, 1.01, 1e-12);
    EXPECT_NEAR(b.min.z, -0.01, 1e-12);
    EXPECT_NEAR(b.max.z, 1.01, 1e-12);
    c.setSweep(200);
    b = c.boundingBox();
    EXPECT_NEAR(b.min.x, -1.01, 1e-12);
    // The 200 degree edge lies at z = sin(200 deg) = -0.342.
    EXPECT_NEAR(b.min.z, std::sin(200 * kPi / 180) - 0.01, 1e-9);

    TdynVolumeCone cone;
    b = cone.boundingBox();
    EXPECT_NEAR(b.min.y, -0.01, 1e-12);
    EXPECT_NEAR(b.max.y, 1.01, 1e-12);
    EXPECT_NEAR(b.min.x, -1.01, 1e-12);

    TdynVolumeTorus t;
    t.setSectionRadius(0.5);
    b = t.boundingBox();
    EXPECT_NEAR(b.max.x, 1.51, 1e-12);
    EXPECT_NEAR(b.min.z, -1.51, 1e-12);
    EXPECT_NEAR(b.max.y, 0.51, 1e-12);

    // Points on every part of a full-turn solid lie within its box.
    TdynVolumeSphere s;
    for (int i = 0; i < 360; i += 15)
        EXPECT_TRUE(s.boundingBox().contains(atAngle(i * kPi / 180, 1.0))) << i;
}

TEST(VolumeVectors, DirectionsAreUnitAndFollowTheTable) {
    const T4dDblVector p{0.3, 0.4, 0.0};
    TdynVolumeSphere s;
    const T4dDblVector away = s.vectorFromPointInVolume(kVolumeAway, p, kIdentity, true);
    EXPECT_NEAR(away.x, 0.6, 1e-12);
    EXPECT_NEAR(away.y, 0.8, 1e-12);
    // Around: (0,1,0) x (x,0,z) = (z, 0, -x) = (0, 0, -0.3), normalised.
    const T4dDblVector around = s.vectorFromPointInVolume(kVolumeAround, p, kIdentity, true);
    EXPECT_TRUE(around.isEquivalent({0, 0, -1}, 1e-12));

    TdynVolumeCylinder c;
    EXPECT_TRUE(c.vectorFromPointInVolume(kVolumeAway, p, kIdentity, true).isEquivalent({1, 0, 0}, 1e-12));
    EXPECT_TRUE(c.vectorFromPointInVolume(kVolumeAlong, p, kIdentity, true).isEquivalent({0, 1, 0}, 1e-12));
    // Outside with the test on: zero.
    EXPECT_EQ(c.vectorFromPointInVolume(kVolumeAway, {5, 0, 0}, kIdentity, true), T4dDblVector());

    TdynVolumeCone cone;
    EXPECT_TRUE(cone.vectorFromPointInVolume(kVolumeAlong, {0, 0.5, 0.5}, kIdentity, true)
                    .isEquivalent({0, std::sqrt(0.5), std::sqrt(0.5)}, 1e-12));

    TdynVolumeTorus t;
    // At (1.2, 0, 0): ring point (1,0,0); away (1,0,0); along (0,1,0)x(1,0,0) = (0,0,-1);
    // around (0,0,-1) x (0.2,0,0) normalised = (0,-1,0).
    EXPECT_TRUE(
        t.vectorFromPointInVolume(kVolumeAway, {1.2, 0, 0}, kIdentity, true).isEquivalent({1, 0, 0}, 1e-12));
    EXPECT_TRUE(t.vectorFromPointInVolume(kVolumeAlong, {1.2, 0, 0}, kIdentity, true)
                    .isEquivalent({0, 0, -1}, 1e-12));
    EXPECT_TRUE(t.vectorFromPointInVolume(kVolumeAround, {1.2, 0, 0}, kIdentity, true)
                    .isEquivalent({0, -1, 0}, 1e-12));

    // Scale and translation do not reach a direction; rotation does. Rotate 90 degrees about z: x -> y.
    T4dDblMatrix m = TxformMatrix::rotationMatrix({0, 0, 90}, TxformMatrix::kXYZ) * T4dDblMatrix::scaling(3);
    m.setTranslation({5, 5, 5});
    const TdynVolumeMatrix at(m);
    const T4dDblVector w = c.vectorFromPointInVolume(kVolumeAway, at.toWorld({0.5, 0, 0}), at, true);
    EXPECT_TRUE(w.isEquivalent({0, 1, 0}, 1e-9)) << w.x << " " << w.y << " " << w.z;
}

TEST(VolumeDistance, AxisDistancesAndRatiosPerShape) {
    TdynVolumeCube cube;
    EXPECT_DOUBLE_EQ(cube.distanceFromAxisRatio({0.5, 0.9, 0.1}, kIdentity, true), 0.5);
    EXPECT_DOUBLE_EQ(cube.distanceFromAxisRatio({3, 0, 0}, kIdentity, true), 1);
    // The base distance compares the point with its image at y = 0.
    EXPECT_DOUBLE_EQ(cube.distanceFromAxis({0.5, 0.75, 0.25}, kIdentity), 0.75);

    TdynVolumeCylinder cyl;
    EXPECT_NEAR(cyl.distanceFromAxisRatio({0.3, 0.9, 0.4}, kIdentity, true), 0.5, 1e-12);

    TdynVolumeCone cone;
    EXPECT_NEAR(cone.distanceFromAxisRatio({0.2, 0.8, 0}, kIdentity, true), 0.25, 1e-12);

    TdynVolumeTorus t;
    t.setSectionRadius(0.5);
    EXPECT_NEAR(t.distanceFromAxisRatio({0, 0.25, 1}, kIdentity, true), 0.5, 1e-12);
    EXPECT_NEAR(t.distanceFromAxis({0, 0.25, 1}, kIdentity), 0.25, 1e-12);
    t.setSectionRadius(0);
    EXPECT_EQ(t.distanceFromAxisRatio({0, 0.001, 1}, kIdentity, false), 1);
}

TEST(VolumeRandom, DrawsLandInsideTheirSolidAndRepeat) {
    T4dDblMatrix m = TxformMatrix::rotationMatrix({30, 10, 0}, TxformMatrix::kXYZ) * T4dDblMatrix::scaling(2);
    m.setTranslation({1, 2, 3});
    const TdynVolumeMatrix at(m);

    std::vector<std::unique_ptr<TdynVolumePrimitive>> shapes;
    shapes.push_back(std::make_unique<TdynVolumeCube>());
    for (double sweep : {360.0, 120.0}) {
        auto s = std::make_unique<TdynVolumeSphere>();
        s->setSweep(sweep);
        shapes.push_back(std::move(s));
        auto c = std::make_unique<TdynVolumeCylinder>();
        c->setSweep(sweep);
        shapes.push_back(std::move(c));
        auto k = std::make_unique<TdynVolumeCone>();
        k->setSweep(sweep);
        shapes.push_back(std::move(k));
        auto t = std::make_unique<TdynVolumeTorus>();
        t->setSweep(sweep);
        shapes.push_back(std::move(t));
    }
    int index = 0;
    for (auto& s : shapes) {
        unsigned short state[3] = {1, 2, 3};
        int inside = 0;
        const int n = 3000;
        for (int i = 0; i < n; ++i)
            inside += s->isPointInVolume(s->randomPointInVolumeFromStreamWarp(state, at), at);
        // The inside tests are exact up to rounding at the surface; allow a handful of points on it.
        EXPECT_GE(inside, n - 3) << "shape " << index;
        unsigned short a[3] = {7, 8, 9}, b[3] = {7, 8, 9};
        EXPECT_EQ(s->randomPointInVolumeFromStreamWarp(a, at), s->randomPointInVolumeFromStreamWarp(b, at));
        ++index;
    }

    // A fat torus uses the other construction and still stays within its tube.
    TdynVolumeTorus fat;
    fat.setSectionRadius(1.5);
    unsigned short state[3] = {4, 5, 6};
    int inside = 0;
    for (int i = 0; i < 2000; ++i)
        inside += fat.isPointInVolume(fat.randomPointInVolumeFromStreamWarp(state, kIdentity), kIdentity);
    EXPECT_GE(inside, 1997);

    // The outside-caller form applies the matrix twice.
    TdynVolumeCube cube;
    unsigned short a[3] = {1, 1, 1}, b[3] = {1, 1, 1};
    const T4dDblVector once = cube.randomPointInVolumeFromStreamWarp(a, at);
    EXPECT_TRUE(cube.randomPointInVolumeFromStream(b, at).isEquivalent(at.toWorld(once), 1e-12));
}

} // namespace
