// Particles against collision geometry: the bounce worked out by hand, the
// records of each hit, moving geometry, and the collision command.

#include "Commands/Collisions/TdynCollision.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"
#include "Host/Dag/Tshape.h"
#include "Host/Geometry/TpolyPrimitives.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <sstream>

namespace {

constexpr double kFrame = 1.0 / 24.0;

class CollisionResponseTest : public DynSceneTest {
public:
    // The scene builders below are free functions.
    using DynSceneTest::errors;
    using DynSceneTest::frame;
    using DynSceneTest::node;
    using DynSceneTest::run;

    T4dDblVectorArray vectors(TdynParticleShape* p, const Tattribute* a) {
        Tdata d = p->normalBlock().outputValue(a).data();
        const T4dDblVectorArray* v = TdynStatic::dataVectorArray(d);
        return v ? *v : T4dDblVectorArray();
    }
    TdataArrayAttrs records(TdynParticleShape* p) {
        Tdata d = p->normalBlock().outputValue(TdynParticleShape::sVsData()->collisionRecords).data();
        return d.as<TdataArrayAttrs>() ? *d.as<TdataArrayAttrs>() : TdataArrayAttrs();
    }
};

// Thousands of particles at random speeds under gravity onto a still plane. Each step a particle that
// hit once leaves with its normal velocity times -r and its tangent velocity times 1 - f.
void bounceOffStillPlane(CollisionResponseTest& t, double r, double f) {
    std::ostringstream cmd;
    cmd << "polyPlane -n ground -w 40 -h 40; particle -n p; gravity -n g; connectDynamic -f g p;"
        << "collision -r " << r << " -f " << f << " ground p;";
    ASSERT_TRUE(t.run(cmd.str())) << t.errors.str();
    TdynParticleShape* p = t.node<TdynParticleShape>("pShape");
    unsigned short seed[3] = {1, 2, 3};
    T4dDblVectorArray pos, vel;
    for (int i = 0; i < 3000; ++i) {
        pos.addLast({16 * erand48(seed) - 8, 0.05 + 2 * erand48(seed), 16 * erand48(seed) - 8});
        vel.addLast({4 * erand48(seed) - 2, -20 * erand48(seed), 4 * erand48(seed) - 2});
    }
    p->addParticles(pos, &vel);
    // Settles the object at the start, so that the next time change reaches it.
    p->forceDynamics();
    auto* vs = TdynParticleShape::sVsData();
    int checked = 0;
    for (int fr = 2; fr <= 30; ++fr) {
        const T4dDblVectorArray before = t.vectors(p, vs->velocity);
        t.frame(fr);
        const T4dDblVectorArray after = t.vectors(p, vs->velocity);
        const T4dDblVectorArray where = t.vectors(p, vs->position);
        ASSERT_EQ(after.length(), 3000u);
        for (unsigned i = 0; i < where.length(); ++i)
            ASSERT_GE(where[i].y, 0.0) << "particle " << i << " below the plane at frame " << fr;
        TdataArrayAttrs rec = t.records(p);
        ASSERT_NE(rec.getInt32Data("index"), nullptr) << fr;
        const Tint32Array& index = *rec.getInt32Data("index");
        for (unsigned k = 0; k < index.length(); ++k) {
            const int i = index[k];
            const bool single =
                (k == 0 || index[k - 1] != i) && (k + 1 == index.length() || index[k + 1] != i);
            if (!single) continue;
            // Semi-implicit Euler: gravity first, then the response to the velocity it gave.
            const T4dDblVector in = before[i] + T4dDblVector{0, -9.8 * kFrame, 0};
            const T4dDblVector out = after[i];
            // A few operations on numbers of size 20: 1e-12.
            EXPECT_NEAR(out.y, -r * in.y, 1e-12) << i;
            EXPECT_NEAR(out.x, (1 - f) * in.x, 1e-12) << i;
            EXPECT_NEAR(out.z, (1 - f) * in.z, 1e-12) << i;
            ++checked;
        }
    }
    // Most particles reach the plane within the run.
    EXPECT_GT(checked, 2000);
}

TEST_F(CollisionResponseTest, ResilienceScalesTheNormalPartAndLeavesTheTangentAlone) {
    bounceOffStillPlane(*this, 0.8, 0.0);
}

TEST_F(CollisionResponseTest, FrictionScalesTheTangentPart) {
    bounceOffStillPlane(*this, 0.5, 0.3);
}

TEST_F(CollisionResponseTest, RecordsGiveIndexPositionNormalAndTimeOfEachHit) {
    // Three particles at 12 units a second: one rises, two cross the plane at fractions 0.5 and 0.8.
    ASSERT_TRUE(run("polyPlane -n ground -w 10 -h 10; particle -n p -p 0 1 0 -p 1 0.25 2 -p -2 0.4 -1;"
                    "collision -r 1 ground p;"))
        << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    ASSERT_TRUE(
        run("particle -e -id 0 -at velocity -vv 0 12 0 p; particle -e -id 1 -at velocity -vv 0 -12 0 p;"
            "particle -e -id 2 -at velocity -vv 0 -12 0 p; addPP -atr collisionU pShape;"
            "addPP -atr collisionV pShape;"))
        << errors.str();
    frame(2);
    TdataArrayAttrs r = records(p);
    ASSERT_EQ(r.getInt32Data("index")->length(), 2u);
    const double t2 = 2 * kFrame;
    const double fractions[] = {0.5, 0.8};
    const T4dDblVector where[] = {{1, 0, 2}, {-2, 0, -1}};
    for (unsigned k = 0; k < 2; ++k) {
        EXPECT_EQ((*r.getInt32Data("index"))[k], static_cast<int>(k + 1));
        // The plane is y = 0; the particle's x and z do not change: 1e-12 for a few roundings.
        EXPECT_NEAR((*r.getVectorData("position"))[k].distanceTo(where[k]), 0.0, 1e-12);
        EXPECT_NEAR((*r.getVectorData("normal"))[k].y, 1.0, 1e-12);
        EXPECT_NEAR((*r.getDoubleData("time"))[k], t2 - (1 - fractions[k]) * kFrame, 1e-12);
        EXPECT_EQ((*r.getStringData("shapeName"))[k], "groundShape");
        // Resilience 1: the force turns 12 up into 12 down over the step, mass 1.
        EXPECT_NEAR((*r.getVectorData("force"))[k].y, -24 / kFrame, 1e-9);
        EXPECT_NEAR((*r.getVectorData("velocity"))[k].y, 12, 1e-12);
    }
    // The plane's uv runs from 0 to 1 over its width: x = 1 of 10 gives u = 0.6.
    double u = 0;
    ASSERT_TRUE(p->getAttribute("collisionU", 1, u));
    EXPECT_NEAR(u, 0.6, 1e-9);
    ASSERT_TRUE(p->getAttribute("collisionU", 0, u));
    EXPECT_EQ(u, -1.0);
}

TEST_F(CollisionResponseTest, AMovingPlaneCarriesRestingParticlesAndDepthZeroLetsThemThrough) {
    for (int depth : {10, 0}) {
        SCOPED_TRACE(depth);
        Tsession fresh;
        fresh.engine().setErrorStream(&errors);
        ASSERT_TRUE(
            fresh.runText("polyPlane -n lift -w 10 -h 10; setKeyframe -t 1 -v 0 -at ty -itt linear "
                          "-ott linear lift; setKeyframe -t 25 -v 2 -at ty -itt linear -ott linear lift;"
                          "particle -n p -p 0 0.5 0 -p 1 0.9 1; collision -r 0 lift p;"
                          "setAttr pShape.traceDepth " +
                              std::to_string(depth) + ";",
                          "test", false))
            << errors.str();
        auto* p = TdynParticleShape::cast(fresh.graph().findNode("pShape"));
        for (int f = 2; f <= 25; ++f) {
            fresh.graph().setTime(TanimTime(f, kCurrentFrameUnit), true);
            const double plane = 2.0 * (f - 1) / 24;
            T4dDblVector q0, q1;
            ASSERT_TRUE(p->getAttribute("position", 0, q0));
            ASSERT_TRUE(p->getAttribute("position", 1, q1));
            if (depth > 0) {
                // On or above the plane once it arrived, never left behind.
                EXPECT_GE(q0.y, plane - 1e-9) << f;
                EXPECT_GE(q1.y, std::min(0.9, plane) - 1e-9) << f;
            } else {
                EXPECT_EQ(q0.y, 0.5) << f;
                EXPECT_EQ(q1.y, 0.9) << f;
            }
        }
    }
}

TEST_F(CollisionResponseTest, ADeformingMeshPushesParticlesAlong) {
    // The plane's own points rise 0.1 a frame (its inMesh changes; its transform stays still).
    ASSERT_TRUE(
        run("polyPlane -n lift -w 10 -h 10; particle -n p -p 0 0.45 0 -p 2 0.25 -1; collision -r 0 lift p;"))
        << errors.str();
    auto* mesh = node<TmeshShape>("liftShape");
    ASSERT_NE(mesh, nullptr);
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    for (int f = 2; f <= 12; ++f) {
        TpolyMesh m = makePolyPlane(10, 10, 10, 10);
        for (T4dDblVector& q : m.points)
            q.y = 0.1 * (f - 1);
        mesh->setMesh(std::move(m));
        frame(f);
        for (unsigned i = 0; i < 2; ++i) {
            T4dDblVector q;
            ASSERT_TRUE(p->getAttribute("position", i, q));
            EXPECT_GE(q.y, std::min(0.1 * (f - 1), i == 0 ? 0.45 : 0.25) - 1e-9)
                << "frame " << f << " particle " << i;
        }
    }
}

TEST_F(CollisionResponseTest, TheTraceLoopBouncesSeveralTimesInAStepUpToTheDepth) {
    // A floor at 0 and a ceiling at 1; 60 units a second up from 0.5 covers 2.5 units in a step. With
    // resilience 1 and a depth of 10 the particle turns at the ceiling (fraction 0.2), the floor (0.596)
    // and the ceiling again (0.992), each time 0.01 off the surface, and ends at 0.99 - 0.02 = 0.97.
    // With a depth of 1 it turns at the ceiling and runs on through the floor.
    ASSERT_TRUE(
        run("polyPlane -n floor -w 10 -h 10; polyPlane -n ceiling -w 10 -h 10; setAttr ceiling.ty 1;"
            "particle -n p -p 0 0.5 0 -p 1 0.5 1 -p 2 -0.5 2; particle -e -id 0 -at velocity -vv 0 60 0 p;"
            "particle -e -id 1 -at velocity -vv 0 60 0 p; collision -r 1 floor p; collision -r 1 ceiling p;"
            "addPP -atr traceDepthPP p;"))
        << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    // Geometry is traced in a step only when the box of all the particles' moves meets it: the third
    // particle, resting below the floor, makes that box reach both planes.
    // Particle 0 may bounce ten times, particle 1 once.
    ASSERT_TRUE(p->setAttribute("traceDepthPP", 0, 10.0));
    ASSERT_TRUE(p->setAttribute("traceDepthPP", 1, 1.0));
    frame(2);
    T4dDblVector q0, q1, v0;
    ASSERT_TRUE(p->getAttribute("position", 0, q0));
    ASSERT_TRUE(p->getAttribute("position", 1, q1));
    ASSERT_TRUE(p->getAttribute("velocity", 0, v0));
    // A dozen roundings of numbers near 1: 1e-12.
    EXPECT_NEAR(q0.y, 0.97, 1e-12);
    EXPECT_NEAR(q1.y, 0.99 - 0.8 * 2.5, 1e-12);
    EXPECT_NEAR(std::fabs(v0.y), 60, 1e-9);
    TdataArrayAttrs r = records(p);
    int rows0 = 0, rows1 = 0;
    for (int i : r.getInt32Data("index")->vector()) {
        ASSERT_LT(i, 2);
        (i == 0 ? rows0 : rows1)++;
    }
    EXPECT_EQ(rows0, 3);
    EXPECT_EQ(rows1, 1);
    // Once turned at the ceiling, particle 1 runs on through the floor.
    EXPECT_LT(q1.y, 0.0);
}

TEST_F(CollisionResponseTest, TheCommandMakesEditsQueriesAndRefuses) {
    ASSERT_TRUE(run("polyPlane -n ground; particle -n p; gravity -n g;")) << errors.str();
    output.str("");
    ASSERT_TRUE(run("print(`collision -r 0.8 -f 0.1 ground`);")) << errors.str();
    const std::string made = output.str();
    auto* c = TdynCollision::collisionOf(node<TdagObject>("ground"));
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(made, c->name() + "\n");
    EXPECT_EQ(c->resilience(), 0.8);
    EXPECT_EQ(c->friction(), 0.1);
    ASSERT_TRUE(run("collision -e -f 0.4 ground;")) << errors.str();
    output.str("");
    ASSERT_TRUE(run("print(`collision -q -f ground`);")) << errors.str();
    EXPECT_EQ(output.str(), "0.4");
    // A second collision on the same geometry is the same node.
    ASSERT_TRUE(run("collision ground;")) << errors.str();
    EXPECT_EQ(TdynCollision::collisionOf(node<TdagObject>("groundShape")), c);

    std::string why;
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    const int e = TdynCollision::connectToObject(node<TdagObject>("ground"), p, why);
    ASSERT_EQ(e, 0) << why;
    EXPECT_EQ(TdynCollision::connectToObject(node<TdagObject>("ground"), p, why), 0);
    ASSERT_EQ(TdynCollision::collisionsOf(p).size(), 1u);

    errors.str("");
    EXPECT_FALSE(run("collision g;"));
    EXPECT_NE(errors.str().find("'g' has no geometry to collide with"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("collision p;"));
    EXPECT_NE(errors.str().find("name the geometry"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("collision -f 2 ground;"));
    EXPECT_NE(errors.str().find("-friction must lie between 0 and 1"), std::string::npos) << errors.str();
    EXPECT_EQ(TdynCollision::connectToObject(node<TdagObject>("g"), p, why), -1);
    EXPECT_NE(why.find("not a collision object"), std::string::npos) << why;
}

TEST_F(CollisionResponseTest, UndoTakesBackTheNodeAndItsConnections) {
    ASSERT_TRUE(run("polyPlane -n ground; particle -n p; collision ground p;")) << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    ASSERT_EQ(TdynCollision::collisionsOf(p).size(), 1u);
    ASSERT_TRUE(run("undo;")) << errors.str();
    EXPECT_EQ(TdynCollision::collisionsOf(p).size(), 0u);
    EXPECT_EQ(TdynCollision::collisionOf(node<TdagObject>("ground")), nullptr);
}

TEST_F(CollisionResponseTest, ConnectDynamicJoinsCollisionObjectsToParticlesAndUndoes) {
    ASSERT_TRUE(run("polyPlane -n ground -w 10 -h 10; particle -n p -p 0 1 0; particle -n q -p 0 1 0;"
                    "collision -r 0.5 ground; gravity -n g; connectDynamic -f g p q;"))
        << errors.str();
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    TdynParticleShape* q = node<TdynParticleShape>("qShape");
    errors.str("");
    EXPECT_FALSE(run("connectDynamic -c g p;"));
    EXPECT_NE(errors.str().find("'g' is not a collision object"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("connectDynamic -c ground g;"));
    EXPECT_NE(errors.str().find("'g' is not a dynamic object"), std::string::npos) << errors.str();
    EXPECT_EQ(TdynCollision::collisionsOf(p).size(), 0u);

    ASSERT_TRUE(run("connectDynamic -c ground p;")) << errors.str();
    ASSERT_EQ(TdynCollision::collisionsOf(p).size(), 1u);
    // Joined once only.
    ASSERT_TRUE(run("connectDynamic -c ground p;")) << errors.str();
    EXPECT_EQ(TdynCollision::collisionsOf(p).size(), 1u);
    for (int f = 2; f <= 30; ++f)
        frame(f);
    // p lands on the plane and stays above it; q, not joined, falls through.
    EXPECT_GE(vectors(p, TdynParticleShape::sVsData()->position)[0].y, 0);
    EXPECT_LT(vectors(q, TdynParticleShape::sVsData()->position)[0].y, -1);
    ASSERT_TRUE(run("undo; undo;")) << errors.str();
    EXPECT_EQ(TdynCollision::collisionsOf(p).size(), 0u);
}

} // namespace
