// Surface and curve emission: births on the triangles and lines of swept
// geometry, the motion of the surface passed on, counts by area, and the
// checker texture thinning births by brightness.

#include "Commands/Collisions/TdynSweptGeometry.h"
#include "Commands/Emitters/TdynEmitter.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"
#include "Host/Texture/TcheckerTexture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace {

class EmitterSurfaceTest : public DynSceneTest {
protected:
    TdataArrayAttrs* batch(TdynEmitter* e) {
        return e->normalBlock().outputValue(&TdynEmitter::saVs()->output, 0).data().as<TdataArrayAttrs>();
    }
    // One triangle in the plane z = 0, from (0,0,0), (2,0,0), (0,2,0) at the end of the step; at its start
    // it stood `back` lower in z.
    void triangle(TdynSweptGeometry& g, double back) {
        TdynSweptTriangle* t = TdynSweptTriangle::newTriangle();
        const T4dDblVector end[3] = {{0, 0, 0}, {2, 0, 0}, {0, 2, 0}};
        const T4dDblVector start[3] = {{0, 0, -back}, {2, 0, -back}, {0, 2, -back}};
        t->setVertices(start, end);
        t->setMoving(back != 0);
        t->setUV(1, 1, 0);
        t->setUV(2, 0, 1);
        g.triangles.push_back(t);
        g.kind = TdynSweptGeometry::kTriangles;
    }
};

TEST_F(EmitterSurfaceTest, BirthsLieOnTheTriangleAndLeaveAlongItsNormal) {
    ASSERT_TRUE(run("emitter -n e;")) << errors.str();
    TdynEmitter* e = node<TdynEmitter>("e");
    e->setRandomStateWords(3, 0, 1);
    TdynSweptGeometry g;
    triangle(g, 0);
    TdynEmitSettings s;
    s.dt = 0.5;
    s.speed = 1.5;
    s.normalSpeed = 2;
    TdataArrayAttrs attrs;
    TdoubleArray u, v;
    e->emitFromTriangle(g, Tint32Array{300}, s, true, u, v, attrs);
    const T4dDblVectorArray& pos = *attrs.getVectorData("position");
    const T4dDblVectorArray& vel = *attrs.getVectorData("velocity");
    const TdoubleArray& t = *attrs.getDoubleData("timeInStep");
    ASSERT_EQ(pos.length(), 300u);
    const T4dDblVector n = g.triangles[0]->normal(1);
    for (unsigned k = 0; k < 300; ++k) {
        // Normal speed times speed, along the (unit) normal.
        EXPECT_TRUE(vel[k].isEquivalent(n * 3, 1e-12)) << k;
        const T4dDblVector born = pos[k] + vel[k] * (s.dt * t[k]);
        double w[3];
        g.triangles[0]->linearCombinationFromPoint(born, 1, w);
        // 1e-12: the weights come from a few products of coordinates of size 2.
        EXPECT_NEAR(born.z, 0, 1e-12);
        EXPECT_NEAR(w[0] + w[1] + w[2], 1, 1e-12);
        for (double x : w)
            EXPECT_GE(x, 0);
        // Corner 1 has u 1, corner 2 has v 1: the surface coordinates are the weights.
        EXPECT_NEAR(u[k], born.x / 2, 1e-12);
        EXPECT_NEAR((*attrs.getDoubleData("parentV"))[k], born.y / 2, 1e-12);
    }
}

TEST_F(EmitterSurfaceTest, AMovingTriangleGivesItsVelocityAndItsPathInTheStep) {
    ASSERT_TRUE(run("emitter -n e;")) << errors.str();
    TdynEmitter* e = node<TdynEmitter>("e");
    TdynSweptGeometry g;
    triangle(g, 1); // one unit of z in a step of 0.25 s: 4 a second
    TdynEmitSettings s;
    s.dt = 0.25;
    s.speed = 0;
    s.inheritFactor = 1;
    TdataArrayAttrs attrs;
    TdoubleArray u, v;
    e->emitFromTriangle(g, Tint32Array{50}, s, false, u, v, attrs);
    const T4dDblVectorArray& pos = *attrs.getVectorData("position");
    const T4dDblVectorArray& vel = *attrs.getVectorData("velocity");
    for (unsigned k = 0; k < 50; ++k) {
        EXPECT_TRUE(vel[k].isEquivalent(T4dDblVector(0, 0, 4), 1e-12)) << k;
        // Born at z = t - 1 and rewound by t steps of 4 * 0.25: the start of the step.
        EXPECT_NEAR(pos[k].z, -1, 1e-12);
    }
    EXPECT_EQ(attrs.getDoubleData("parentU"), nullptr);
}

TEST_F(EmitterSurfaceTest, AMovingPlaneShedsParticlesAtItsRateTimesItsArea) {
    ASSERT_TRUE(run("polyPlane -n plane -w 2 -h 1 -sx 4 -sy 2; select -r plane;"
                    "emitter -n e -type surface -r 12 -spd 1; particle -n p; connectDynamic -em e p;"))
        << errors.str();
    TdynEmitter* e = node<TdynEmitter>("e");
    auto* p = node<TdynParticleShape>("pShape");
    frame(1);
    // Area 2 at 12 a second: one birth a frame at 24 frames a second.
    unsigned total = 0;
    for (int f = 2; f <= 25; ++f) {
        ASSERT_TRUE(run("setAttr plane.translateY " + std::to_string(0.5 * (f - 1)) + ";")) << errors.str();
        frame(f);
        TdataArrayAttrs* b = batch(e);
        ASSERT_NE(b, nullptr);
        const T4dDblVectorArray* pos = b->getVectorData("position");
        ASSERT_NE(pos, nullptr) << f;
        const T4dDblVectorArray& vel = *b->getVectorData("velocity");
        const TdoubleArray& t = *b->getDoubleData("timeInStep");
        total += pos->length();
        for (unsigned k = 0; k < pos->length(); ++k) {
            const T4dDblVector born = (*pos)[k] + vel[k] * (t[k] / 24.0);
            // On the plane where it stood at t: y from 0.5 (f - 2) to 0.5 (f - 1).
            EXPECT_NEAR(born.y, 0.5 * (f - 2) + 0.5 * t[k], 1e-9) << f;
            EXPECT_LE(std::fabs(born.x), 1 + 1e-12);
            EXPECT_LE(std::fabs(born.z), 0.5 + 1e-12);
            // Leaves along the normal (up or down) at speed 1, with none of the plane's 12 a second.
            EXPECT_NEAR(std::fabs(vel[k].y), 1, 1e-9);
        }
    }
    EXPECT_GE(total, 23u);
    EXPECT_LE(total, 24u);
    EXPECT_EQ(p->countNoCompute(), total);
}

TEST_F(EmitterSurfaceTest, ACurveEmitsAlongItsLines) {
    ASSERT_TRUE(run("curve -n c -d 1 -p 0 0 0 -p 4 0 0; select -r c;"
                    "emitter -n e -type curve -r 24 -spd 2 -sro 0; particle -n p; connectDynamic -em e p;"))
        << errors.str();
    TdynEmitter* e = node<TdynEmitter>("e");
    frame(1);
    unsigned total = 0;
    for (int f = 2; f <= 4; ++f) {
        frame(f);
        TdataArrayAttrs* b = batch(e);
        ASSERT_NE(b, nullptr);
        const T4dDblVectorArray* pos = b->getVectorData("position");
        ASSERT_NE(pos, nullptr) << errors.str();
        const T4dDblVectorArray& vel = *b->getVectorData("velocity");
        const TdoubleArray& t = *b->getDoubleData("timeInStep");
        total += pos->length();
        for (unsigned k = 0; k < pos->length(); ++k) {
            const T4dDblVector born = (*pos)[k] + vel[k] * (t[k] / 24.0);
            EXPECT_NEAR(born.y, 0, 1e-12);
            EXPECT_NEAR(born.z, 0, 1e-12);
            EXPECT_GE(born.x, -1e-12);
            EXPECT_LE(born.x, 4 + 1e-12);
            // A curve on the ground sends its births up.
            EXPECT_TRUE(vel[k].isEquivalent(T4dDblVector(0, 2, 0), 1e-12));
        }
    }
    EXPECT_EQ(total, 3u);
}

TEST_F(EmitterSurfaceTest, ACheckerOnTheRateKeepsOnlyBirthsOnItsWhiteCells) {
    ASSERT_TRUE(run("polyPlane -n plane; select -r plane; emitter -n e -type surface -r 2400 -nuv 1;"
                    "setAttr e.enableTextureRate 1; createNode checker -n tex;"
                    "connectAttr tex.outColor e.textureRate; particle -n p; connectDynamic -em e p;"))
        << errors.str();
    TdynEmitter* e = node<TdynEmitter>("e");
    ASSERT_NE(e->textureNodeForRate(), nullptr);
    EXPECT_EQ(e->textureNodeForColor(), nullptr);
    frame(1);
    frame(2);
    TdataArrayAttrs* b = batch(e);
    ASSERT_NE(b, nullptr);
    const TdoubleArray& u = *b->getDoubleData("parentU");
    const TdoubleArray& v = *b->getDoubleData("parentV");
    // About half of the hundred survive; each on a white cell of the 4 by 4 checker.
    ASSERT_GT(u.length(), 20u);
    ASSERT_LT(u.length(), 80u);
    ASSERT_EQ(v.length(), u.length());
    for (unsigned k = 0; k < u.length(); ++k) {
        const long cell = static_cast<long>(std::floor(u[k] * 4)) + static_cast<long>(std::floor(v[k] * 4));
        EXPECT_EQ(cell % 2, 0) << u[k] << " " << v[k];
    }
    EXPECT_EQ(b->getVectorData("position")->length(), u.length());
    // The colour follows the texture on particleColor.
    ASSERT_TRUE(run("setAttr e.enableTextureRate 0; setAttr e.inheritColor 1; setAttr tex.color2 0 0 1;"
                    "connectAttr tex.outColor e.particleColor;"))
        << errors.str();
    frame(3);
    b = batch(e);
    const T4dDblVectorArray* rgb = b->getVectorData("rgbPP");
    ASSERT_NE(rgb, nullptr);
    const TdoubleArray& u3 = *b->getDoubleData("parentU");
    const TdoubleArray& v3 = *b->getDoubleData("parentV");
    ASSERT_EQ(rgb->length(), u3.length());
    for (unsigned k = 0; k < u3.length(); ++k) {
        const bool white =
            (static_cast<long>(std::floor(u3[k] * 4)) + static_cast<long>(std::floor(v3[k] * 4))) % 2 == 0;
        EXPECT_EQ((*rgb)[k], white ? T4dDblVector(1, 1, 1) : T4dDblVector(0, 0, 1));
    }
}

} // namespace
