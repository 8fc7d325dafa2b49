// The geometry connector in a whole session: wiring, points and velocities
// of a still, a moving and a deforming shape, and its swept geometry.

#include "Commands/Collisions/TdataSweptGeometry.h"
#include "Commands/Collisions/TdynGeoConnectableView.h"
#include "Commands/Collisions/TdynGeoConnector.h"
#include "Commands/Scene/DynSceneTest.h"
#include "Commands/Scene/TdynAuxiliary.h"
#include "Host/Data/TdataGeometry.h"
#include "Host/Geometry/TpolyPrimitives.h"
#include "Host/Graph/TdgContext.h"
#include "Host/Graph/TdnTime.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

class GeoConnectorTest : public DynSceneTest {
protected:
    TdagObject* object(const std::string& name) { return node<TdagObject>(name); }
    TdynGeoConnector* connector(const std::string& name) {
        std::string why;
        TdynGeoConnector* c = TdynGeoConnector::connectorFor(object(name), true, why);
        EXPECT_NE(c, nullptr) << why;
        return c;
    }
    // Time moves through the command here, as a user would move it.
    void frame(double f) { ASSERT_TRUE(run("currentTime " + std::to_string(f) + ";")); }
    std::vector<T4dDblVector> vectors(TdynGeoConnector* c, const Tattribute* a) {
        Tdata d;
        c->getAttributeValue(a, d);
        std::vector<T4dDblVector> out;
        if (auto* l = d.as<TdataVectorArray>())
            for (unsigned i = 0; i < l->length(); ++i)
                out.push_back(l->array()[i]);
        return out;
    }
    double number(TdynGeoConnector* c, const Tattribute* a) {
        double v = 0;
        c->getAttributeValue(a, v);
        return v;
    }
    static TdnVSTdynGeoConnector* vs() { return TdynGeoConnector::sVsData(); }
};

} // namespace

TEST_F(GeoConnectorTest, ConnectorForFindsOrMakesOneWiredToTheShape) {
    ASSERT_TRUE(run("polyPlane -n plane -w 2 -h 2 -sx 1 -sy 1; curve -d 1 -p 0 0 0 -p 2 0 0 -n path;"
                    "createNode transform -n empty;"));
    std::string why;
    EXPECT_EQ(TdynGeoConnector::connectorFor(object("plane"), false, why), nullptr);
    EXPECT_NE(why.find("planeShape"), std::string::npos) << why;
    TdynGeoConnector* c = connector("plane");
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->name(), "geoConnector1");
    EXPECT_EQ(c->ownerShape(), object("planeShape"));
    // The same one again, by the transform or the shape.
    EXPECT_EQ(connector("planeShape"), c);
    EXPECT_EQ(TdynGeoConnectableView(object("plane")).connector(), c);
    EXPECT_TRUE(TdnTime::cast(Tplug(c, &vs()->currentTime).source().node()) != nullptr);
    EXPECT_EQ(Tplug(c, &vs()->localGeometry).source().node(), object("planeShape"));
    // A curve gets its own, made of lines.
    TdynGeoConnector* cc = connector("path");
    ASSERT_NE(cc, nullptr);
    EXPECT_NE(cc, c);
    ASSERT_NE(cc->currentSweptGeometry(), nullptr);
    EXPECT_EQ(cc->currentSweptGeometry()->kind, TdynSweptGeometry::kLines);
    // Nothing to connect: a clear reason naming the object, no node made.
    const std::size_t nodes = session.graph().nodes().size();
    EXPECT_EQ(TdynGeoConnector::connectorFor(object("empty"), true, why), nullptr);
    EXPECT_NE(why.find("empty"), std::string::npos) << why;
    EXPECT_EQ(TdynGeoConnector::connectorFor(nullptr, true, why), nullptr);
    EXPECT_EQ(session.graph().nodes().size(), nodes);
}

TEST_F(GeoConnectorTest, AStillObjectShowsNoMotionAndKeepsItsTriangles) {
    ASSERT_TRUE(run("polyPlane -n plane -w 2 -h 2 -sx 1 -sy 1; move 0 3 0 plane;"));
    TdynGeoConnector* c = connector("plane");
    frame(1);
    TdynSweptGeometry* g = c->currentSweptGeometry();
    ASSERT_NE(g, nullptr);
    const TdynSweptTriangle* first = g->triangles[0];
    vectors(c, &vs()->ownerVelocities);
    for (double f : {2.0, 3.0}) {
        frame(f);
        c->currentSweptGeometry();
        vectors(c, &vs()->ownerVelocities);
    }
    EXPECT_EQ(c->currentSweptGeometry(), g);
    EXPECT_EQ(g->triangles[0], first); // not rebuilt
    EXPECT_FALSE(g->moving);
    EXPECT_DOUBLE_EQ(g->area, 4);
    EXPECT_DOUBLE_EQ(g->boundingBox().min[1], 3);
    const auto pos = vectors(c, &vs()->ownerPositions);
    ASSERT_EQ(pos.size(), 4u);
    EXPECT_EQ(pos[0], (T4dDblVector{-1, 3, 1}));
    for (const T4dDblVector& v : vectors(c, &vs()->ownerVelocities))
        EXPECT_EQ(v, T4dDblVector{});
    EXPECT_NEAR(number(c, &vs()->deltaTime), 1.0 / 24, 1e-12);
    T4dDblVector centroid;
    c->getAttributeValue(&vs()->ownerCentroid, centroid);
    EXPECT_TRUE(centroid.isEquivalent({0, 3, 0}, 1e-15));
}

TEST_F(GeoConnectorTest, AKeyedTransformGivesDisplacementOverTheStep) {
    // One unit a frame at 24 frames a second.
    ASSERT_TRUE(run("polyPlane -n plane -w 2 -h 2 -sx 1 -sy 1;"
                    "setKeyframe -t 1 -v 0 -itt linear -ott linear plane.translateX;"
                    "setKeyframe -t 11 -v 10 -itt linear -ott linear plane.translateX;"));
    TdynGeoConnector* c = connector("plane");
    frame(1);
    c->currentSweptGeometry();
    vectors(c, &vs()->ownerPositions);
    frame(2);
    const auto vel = vectors(c, &vs()->ownerVelocities);
    ASSERT_EQ(vel.size(), 4u);
    for (const T4dDblVector& v : vel)
        EXPECT_TRUE(v.isEquivalent({24, 0, 0}, 1e-9)) << v.x;
    const auto pre = vectors(c, &vs()->preOwnerPositions);
    EXPECT_TRUE(pre[0].isEquivalent({-1, 0, 1}, 1e-12));
    TanimTime prevTime;
    c->getAttributeValue(&vs()->prevTime, prevTime);
    EXPECT_NEAR(prevTime.seconds(), 1.0 / 24, 1e-12);
    TdynSweptGeometry* g = c->currentSweptGeometry();
    ASSERT_TRUE(g->moving);
    const TdynSweptTriangle* t = g->triangles[0];
    EXPECT_TRUE((t->vertex(0, 1) - t->vertex(0, 0)).isEquivalent({1, 0, 0}, 1e-12));
    EXPECT_TRUE(t->pointVelocity(t->vertex(0, 0.5), 0.5, 1.0 / 24).isEquivalent({24, 0, 0}, 1e-9));
    double moved = 0;
    c->getAttributeValue(&vs()->matrixModified, moved);
    EXPECT_EQ(moved, 1);
    // The key's end: standing still again, the next step shows no motion.
    frame(11);
    c->currentSweptGeometry();
    frame(12);
    EXPECT_FALSE(c->currentSweptGeometry()->moving);
    EXPECT_EQ(c->currentSweptGeometry()->triangles[0]->vertex(0, 0),
              c->currentSweptGeometry()->triangles[0]->vertex(0, 1));
}

TEST_F(GeoConnectorTest, ADeformingMeshMovesUntilItsLayoutChanges) {
    ASSERT_TRUE(run("polyPlane -n plane -w 2 -h 2 -sx 1 -sy 1;"));
    auto* shape = TmeshShape::cast(object("planeShape"));
    TdynGeoConnector* c = connector("plane");
    frame(1);
    c->currentSweptGeometry();
    vectors(c, &vs()->ownerVelocities);
    // Same layout, points raised by 0.5: the surface moves at 12 a second.
    TpolyMesh raised = makePolyPlane(2, 2, 1, 1);
    raised.transform(T4dDblMatrix::translation({0, 0.5, 0}));
    shape->setMesh(raised);
    frame(2);
    TdynSweptGeometry* g = c->currentSweptGeometry();
    EXPECT_TRUE(g->moving);
    EXPECT_TRUE(vectors(c, &vs()->ownerVelocities)[3].isEquivalent({0, 12, 0}, 1e-9));
    // More vertices: a new build, and that step shows no motion of the surface.
    shape->setMesh(makePolyPlane(2, 2, 2, 2));
    frame(3);
    g = c->currentSweptGeometry();
    EXPECT_EQ(g->triangleCount(), 8);
    EXPECT_FALSE(g->moving);
    for (const TdynSweptTriangle* t : g->triangles)
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(t->vertex(i, 0), t->vertex(i, 1));
    const auto vel = vectors(c, &vs()->ownerVelocities);
    ASSERT_EQ(vel.size(), 9u);
    for (const T4dDblVector& v : vel)
        EXPECT_EQ(v, T4dDblVector{});
}

TEST_F(GeoConnectorTest, NoTimeBetweenEvaluationsKeepsVelocitiesZero) {
    ASSERT_TRUE(run("polyPlane -n plane -w 2 -h 2 -sx 1 -sy 1;"));
    TdynGeoConnector* c = connector("plane");
    frame(2);
    vectors(c, &vs()->ownerVelocities);
    // Moved without time passing: deltaTime 0, no velocity, the positions follow.
    ASSERT_TRUE(run("move 5 0 0 plane;"));
    const auto vel = vectors(c, &vs()->ownerVelocities);
    ASSERT_EQ(vel.size(), 4u);
    for (const T4dDblVector& v : vel)
        EXPECT_EQ(v, T4dDblVector{});
    EXPECT_EQ(number(c, &vs()->deltaTime), 0);
    EXPECT_DOUBLE_EQ(vectors(c, &vs()->ownerPositions)[0].x, 4);
    // Back in time: no velocity either.
    ASSERT_TRUE(run("move 0 0 0 plane;"));
    frame(1);
    for (const T4dDblVector& v : vectors(c, &vs()->ownerVelocities))
        EXPECT_EQ(v, T4dDblVector{});
}

TEST_F(GeoConnectorTest, ComponentsAndCentroids) {
    ASSERT_TRUE(run("polyPlane -n plane -w 2 -h 2 -sx 1 -sy 1; move 1 2 3 plane;"));
    TdynGeoConnector* c = connector("plane");
    frame(1);
    T4dDblVector world, local;
    c->getAttributeValue(&vs()->ownerCentroid, world);
    c->getAttributeValue(&vs()->ownerCentroidLocal, local);
    EXPECT_TRUE(world.isEquivalent({1, 2, 3}, 1e-15));
    EXPECT_TRUE(local.isEquivalent({0, 0, 0}, 1e-15));
    // Points 0 and 1 (z = 1 in object space), and an index past the end that is passed over.
    Tdata list = makeData<TdataInt32Array>(Tint32Array{0, 1, 7});
    c->setAttributeValue(&vs()->components, list);
    session.graph().dirtyDependents(Tplug(c, &vs()->components));
    const auto cp = vectors(c, &vs()->componentPositions);
    ASSERT_EQ(cp.size(), 2u);
    EXPECT_TRUE(cp[1].isEquivalent({2, 2, 4}, 1e-15));
    T4dDblVector cc;
    c->getAttributeValue(&vs()->componentCentroid, cc);
    EXPECT_TRUE(cc.isEquivalent({1, 2, 4}, 1e-15));
}

TEST_F(GeoConnectorTest, OwnerDataAndSweptGeometryReachOtherNodes) {
    ASSERT_TRUE(run("polyPlane -n plane -w 2 -h 2 -sx 1 -sy 1; move 0 1 0 plane;"));
    TdynGeoConnector* c = connector("plane");
    auto* aux = TdynAuxiliary::cast(session.graph().createNode("uniformField", "push"));
    ASSERT_NE(aux, nullptr);
    std::string why;
    ASSERT_TRUE(c->connectOwnerDataTo(aux, why)) << why;
    ASSERT_TRUE(c->connectOwnerDataTo(aux, why)) << why; // again: already there
    frame(1);
    const T4dDblVectorArray* pos = aux->ownerPositions(aux->normalBlock());
    ASSERT_NE(pos, nullptr);
    ASSERT_EQ(pos->length(), 4u);
    EXPECT_EQ((*pos)[0].y, 1);
    EXPECT_TRUE(aux->ownerCentroid(aux->normalBlock()).isEquivalent({0, 1, 0}, 1e-15));
    // A plug of another type is refused with the graph's reason.
    EXPECT_FALSE(c->connectSweptGeometryTo(Tplug(aux, aux->attribute("ownerPosData")), why));
    EXPECT_NE(why.find("sweptGeometry"), std::string::npos) << why;
    EXPECT_FALSE(c->connectSweptGeometryTo(Tplug(), why));
}

TEST_F(GeoConnectorTest, ATimedReadNeitherStepsNorDisturbsTheStep) {
    ASSERT_TRUE(run("polyPlane -n plane -w 2 -h 2 -sx 1 -sy 1;"
                    "setKeyframe -t 1 -v 0 -itt linear -ott linear plane.translateX;"
                    "setKeyframe -t 11 -v 10 -itt linear -ott linear plane.translateX;"));
    TdynGeoConnector* c = connector("plane");
    frame(1);
    TdynSweptGeometry* g = c->currentSweptGeometry();
    vectors(c, &vs()->ownerVelocities);
    frame(2);
    ASSERT_EQ(c->currentSweptGeometry(), g);
    vectors(c, &vs()->ownerVelocities);
    {
        TdgContextTimed ctx(TanimTime(6.0, kCurrentFrameUnit));
        TdataBlock* timed = c->makeDataBlock(ctx, true);
        TdynSweptGeometry* at6 = sweptGeometryOf(timed->inputValue(&vs()->sweptGeometry).data());
        ASSERT_NE(at6, nullptr);
        EXPECT_NE(at6, g);
        EXPECT_FALSE(at6->moving);
        EXPECT_NEAR(at6->boundingBox().min[0], 4, 1e-12);
        auto* vel = timed->inputValue(&vs()->ownerVelocities).data().as<TdataVectorArray>();
        ASSERT_NE(vel, nullptr);
        EXPECT_EQ(vel->array()[0], T4dDblVector{});
    }
    // The step from frame 2 to 3 is as if the timed read had not happened.
    EXPECT_NEAR(g->boundingBox().max[0], 2, 1e-12);
    frame(3);
    EXPECT_TRUE(c->currentSweptGeometry()->moving);
    EXPECT_TRUE(
        (g->triangles[0]->vertex(0, 1) - g->triangles[0]->vertex(0, 0)).isEquivalent({1, 0, 0}, 1e-12));
    EXPECT_TRUE(vectors(c, &vs()->ownerVelocities)[0].isEquivalent({24, 0, 0}, 1e-9));
}
