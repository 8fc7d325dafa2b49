// The node catalogue as scene files see it (type names and tags), the module's
// scene set-up, and the command-table gaps: addDynamic, particle -e flags, and
// listings that must not take an undo slot.

#include "Commands/Fields/TdynField.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"
#include "Global/Basket/TdynColorCallback.h"
#include "Global/Basket/TdynamicsBasket.h"
#include "Host/Graph/Tmetaclass.h"

#include <gtest/gtest.h>

namespace {

class RegistrationTest : public DynSceneTest {
protected:
    std::string result(const std::string& command) {
        output.str("");
        EXPECT_TRUE(run("print(`" + command + "`);")) << command << ": " << errors.str();
        // Arrays print one element a line; joined by blanks they read as the program prints them.
        std::string text = output.str();
        while (!text.empty() && text.back() == '\n') text.pop_back();
        for (char& c : text)
            if (c == '\n') c = ' ';
        return text;
    }
    double particleNumber(const char* attr) {
        double v = 0;
        auto* p = node<TdynParticleShape>("pShape");
        EXPECT_TRUE(p && p->getAttributeValue(p->attribute(attr), v)) << attr;
        return v;
    }
};

// Tags are what scene files hold: a wrong one makes saved scenes unreadable elsewhere.
TEST_F(RegistrationTest, EveryLandedNodeTypeHasItsCatalogueTag) {
    const std::pair<const char*, const char*> catalogue[] = {
        {"particle", "YPAR"},        {"field", "YFLD"},           {"airField", "YAIR"},
        {"dragField", "YDRG"},       {"gravityField", "YGRA"},    {"newtonField", "YNEW"},
        {"radialField", "YRAD"},     {"turbulenceField", "YTUR"}, {"uniformField", "YUNI"},
        {"volumeAxisField", "YVXF"}, {"vortexField", "YVOR"},     {"pointEmitter", "YEMI"},
        {"collisionModel", "YCOL"},  {"dynBase", "YAux"},         {"dynController", "YCTL"},
        {"dynGlobals", "YDGL"},      {"dynHolder", "YHLD"},       {"geoConnector", "YGCT"},
        {"geoConnectable", "YGCO"},
    };
    for (const auto& [type, tag] : catalogue) {
        const TdependNodeMetaClass* m = TnodeTypeRegistry::find(type);
        ASSERT_NE(m, nullptr) << type;
        EXPECT_EQ(m->iffTag(), makeIffTag(tag)) << type;
    }
}

TEST_F(RegistrationTest, HolderAndConnectableShapesAreMadeByCreateNode) {
    ASSERT_TRUE(run("createNode transform -n holder; createNode dynHolder -n holderShape -p holder;"))
        << errors.str();
    EXPECT_EQ(result("nodeType holderShape"), "dynHolder");
    auto* shape = node<Tshape>("holderShape");
    ASSERT_NE(shape, nullptr);
    EXPECT_EQ(shape->parentObject()->name(), "holder");
}

// A geoConnectable shape takes any mesh on inMesh and serves it as collision
// geometry: a drop thrown at it bounces back instead of passing through.
TEST_F(RegistrationTest, AConnectableShapeCollidesWithTheMeshItIsGiven) {
    ASSERT_TRUE(run("polyPlane -n source -w 10 -h 10; createNode transform -n catcher;"
                    "createNode geoConnectable -n catcherShape -p catcher;"
                    "connectAttr sourceShape.outMesh catcherShape.inMesh;"
                    "particle -n drop -p 0 0.5 0; setParticleAttr -at velocity -vv 0 -24 0 dropShape;"
                    "saveInitialState dropShape; collision -r 1 -f 0 catcher drop;"))
        << errors.str();
    auto* p = node<TdynParticleShape>("dropShape");
    ASSERT_NE(p, nullptr);
    frame(2);
    // One frame of 1/24 s at 24 units a second is one unit: without the plane
    // the drop would end at -0.5; a full bounce at y = 0 sends it back to +0.5,
    // plus the 0.01 the response lifts a bounced point off the surface.
    EXPECT_NEAR(vec(p, "position", 0).y, 0.51, 1e-9);
    EXPECT_NEAR(vec(p, "velocity", 0).y, 24.0, 1e-6);
}

// A new scene runs the module's scene callbacks: dynamics without globals get
// them, and the drawing colours start from the defaults again.
TEST_F(RegistrationTest, SceneCallbacksGiveGlobalsAndResetColours) {
    ASSERT_TRUE(run("createNode particle -n loose;")) << errors.str();
    EXPECT_EQ(result("ls -type dynGlobals"), "");
    TdynamicsBasket::sceneOpened();
    EXPECT_EQ(result("ls -type dynGlobals"), "dynGlobals1");
    EXPECT_EQ(result("ls -type dynController"), "dynController1");

    TdynColorCallback::Color before, after;
    ASSERT_TRUE(TdynColorCallback::getColor(TdynColorCallback::kFluids, before));
    ASSERT_TRUE(TdynColorCallback::setColor(TdynColorCallback::kFluids, {1, 0, 0}));
    EXPECT_FALSE(TdynColorCallback::setColor(TdynColorCallback::kKindCount, {1, 0, 0}));
    {
        Tsession next;
        ASSERT_TRUE(TdynColorCallback::getColor(TdynColorCallback::kFluids, after));
    }
    EXPECT_EQ(after, before);
    EXPECT_EQ(TdynColorCallback::getColorsWithIndex().size(), std::size_t(TdynColorCallback::kKindCount));
}

TEST_F(RegistrationTest, ParticleEditSetsConserveAndInheritAndUndoes) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 1 0 0; particle -e -conserve 0.5 -inherit 0.25 p;"))
        << errors.str();
    EXPECT_EQ(particleNumber("conserve"), 0.5);
    EXPECT_EQ(particleNumber("inheritFactor"), 0.25);
    ASSERT_TRUE(run("undo;"));
    EXPECT_EQ(particleNumber("conserve"), 1.0);
    EXPECT_EQ(particleNumber("inheritFactor"), 0.0);
    ASSERT_TRUE(run("redo;"));
    EXPECT_EQ(particleNumber("conserve"), 0.5);

    // conserve 0.5 with no force keeps half the velocity each step: the drop moves
    // 24 * 0.5 / 24 over the first frame instead of a whole unit.
    ASSERT_TRUE(run("setParticleAttr -at velocity -vv 24 0 0 pShape.pt[0]; saveInitialState pShape;"));
    frame(2);
    EXPECT_NEAR(vec(node<TdynParticleShape>("pShape"), "position", 0).x, 0.5, 1e-12);
}

TEST_F(RegistrationTest, ParticleEditByOrderAddressesTheArrayIndex) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 1 0 0; particle -e -or 1 -at position -vv 5 6 7 p;"))
        << errors.str();
    auto* p = node<TdynParticleShape>("pShape");
    EXPECT_EQ(vec(p, "position", 1).z, 7.0);
    EXPECT_EQ(vec(p, "position", 0).z, 0.0);
    EXPECT_FALSE(run("particle -e -or 2 -at position -vv 0 0 0 p;"));
    EXPECT_NE(errors.str().find("-order 2 is outside pShape's 2 particles"), std::string::npos)
        << errors.str();
    EXPECT_FALSE(run("particle -e -or 0 -id 0 -at position -vv 0 0 0 p;"));
    EXPECT_FALSE(run("particle -e -conserve (1/0.0) p;"));
}

TEST_F(RegistrationTest, UndoAfterAnEventListingTakesBackTheEventBeforeIt) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0; event -n first p; event -ls p; undo;")) << errors.str();
    EXPECT_EQ(result("event -ls p"), "");
}

TEST_F(RegistrationTest, AddDynamicGivesAFieldAnOwnerAndUndoTakesItBack) {
    ASSERT_TRUE(run("polyPlane -n plane; radial -n push;")) << errors.str();
    EXPECT_EQ(result("listConnections push.owner"), "");
    EXPECT_EQ(result("addDynamic push plane"), "push planeShape");
    EXPECT_EQ(result("listConnections push.owner"), "planeShape");
    ASSERT_TRUE(run("undo;"));
    EXPECT_EQ(result("listConnections push.owner"), "");
    ASSERT_TRUE(run("redo;"));
    EXPECT_EQ(result("listConnections push.owner"), "planeShape");

    EXPECT_FALSE(run("addDynamic push;"));
    EXPECT_NE(errors.str().find("give a field and the object it should belong to"), std::string::npos);
    EXPECT_FALSE(run("addDynamic plane push;"));
    EXPECT_NE(errors.str().find("'plane' is not a field"), std::string::npos) << errors.str();
}

} // namespace
