// The field commands and connectDynamic: creation defaults, presets, volume
// flags, edit with undo, query, joining to particle objects, bad input.

#include "Commands/Fields/TdynField.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

class FieldCommandTest : public DynSceneTest {
protected:
    double num(const std::string& name, const std::string& attr) { return number<TdynField>(name, attr); }
};

TEST_F(FieldCommandTest, CreationDefaultsOverrideTheNodesAndFlagsOverrideThem) {
    EXPECT_EQ(eval("gravity;").asString(), "gravityField1");
    EXPECT_EQ(num("gravityField1", "magnitude"), 9.8);
    EXPECT_EQ(num("gravityField1", "directionY"), -1);
    EXPECT_EQ(num("gravityField1", "maxDistance"), -1);
    EXPECT_EQ(num("gravityField1", "useMaxDistance"), 0);
    // One direction flag: the others are zero.
    ASSERT_TRUE(run("gravity -dx 1 -m 3 -n sideways;")) << errors.str();
    EXPECT_EQ(num("sideways", "directionX"), 1);
    EXPECT_EQ(num("sideways", "directionY"), 0);
    EXPECT_EQ(num("sideways", "magnitude"), 3);

    ASSERT_TRUE(run("radial; vortex; turbulence; newton; drag; uniform; volumeAxis; air;")) << errors.str();
    EXPECT_EQ(num("radialField1", "magnitude"), 5);
    EXPECT_EQ(num("radialField1", "attenuation"), 1);
    EXPECT_EQ(num("radialField1", "maxDistance"), 20);
    EXPECT_EQ(num("vortexField1", "axisY"), 1);
    EXPECT_EQ(num("turbulenceField1", "magnitude"), 5);
    EXPECT_EQ(num("turbulenceField1", "frequency"), 1);
    EXPECT_EQ(num("newtonField1", "minDistance"), 0.2);
    EXPECT_EQ(num("dragField1", "directionX"), 1);
    EXPECT_EQ(num("uniformField1", "magnitude"), 5);
    EXPECT_EQ(num("volumeAxisField1", "magnitude"), 1);
    EXPECT_EQ(num("airField1", "magnitude"), 4);
    EXPECT_EQ(num("airField1", "speed"), 1);
    EXPECT_EQ(num("airField1", "spread"), 1);
    // The volume axis field follows the scene's time.
    TdynField* va = node<TdynField>("volumeAxisField1");
    EXPECT_FALSE(Tplug(va, va->attribute("time")).source().isNull());
}

TEST_F(FieldCommandTest, CommonFlagsSetReachVolumeAndPlace) {
    ASSERT_TRUE(
        run("uniform -mxd 4 -att 2 -pv on -vsh torus -vsw 180 -tsr 0.25 -vof 1 2 3 -vex on -pos 5 6 7 -n u;"))
        << errors.str();
    EXPECT_EQ(num("u", "maxDistance"), 4);
    EXPECT_EQ(num("u", "useMaxDistance"), 1);
    EXPECT_EQ(num("u", "attenuation"), 2);
    EXPECT_EQ(num("u", "applyPerVertex"), 1);
    EXPECT_EQ(num("u", "volumeShape"), 5);
    EXPECT_NEAR(num("u", "volumeSweep"), 3.141592653589793, 1e-12); // typed in degrees
    EXPECT_EQ(num("u", "sectionRadius"), 0.25);
    EXPECT_EQ(num("u", "volumeOffsetZ"), 3);
    EXPECT_EQ(num("u", "volumeExclusion"), 1);
    EXPECT_EQ(num("u", "translateY"), 6);
    EXPECT_EQ(eval("uniform -q -vsh u;").asString(), "torus");
    EXPECT_NEAR(eval("uniform -q -vsw u;").asFloat(), 180, 1e-9);
    EXPECT_EQ(eval("uniform -q -m u;").asFloat(), 5);
    EXPECT_EQ(eval("uniform -q -pos u;").asVector()[1], 6);
}

TEST_F(FieldCommandTest, AirPresetsComeFirstAndClampSpeed) {
    ASSERT_TRUE(run("air -fanSetup -n fan;")) << errors.str();
    EXPECT_EQ(num("fan", "enableSpread"), 1);
    EXPECT_EQ(num("fan", "spread"), 0.5);
    EXPECT_EQ(num("fan", "inheritRotation"), 1);
    // An explicit flag wins over the preset.
    ASSERT_TRUE(run("air -wakeSetup -speed 0.3 -n wake;")) << errors.str();
    EXPECT_EQ(num("wake", "componentOnly"), 1);
    EXPECT_EQ(num("wake", "speed"), 0.3);
    ASSERT_TRUE(run("air -windSetup -iv 7 -speed -2 -n wind;")) << errors.str();
    EXPECT_EQ(num("wind", "inheritVelocity"), 1); // clamped to 1
    EXPECT_EQ(num("wind", "speed"), 0);           // clamped to 0
    EXPECT_NE(errors.str().find("air: -speed -2 is outside 0 to 1; 0 is used"), std::string::npos)
        << errors.str();
    EXPECT_EQ(num("wind", "inheritRotation"), 1);
    // Querying a preset warns and fails.
    EXPECT_FALSE(run("air -q -fanSetup fan;"));
}

TEST_F(FieldCommandTest, AFieldMadeWithAGeometrySelectedBelongsToIt) {
    ASSERT_TRUE(run("polyCube -n box; select -r box; radial -n r -m 1 -att 0;")) << errors.str();
    TdynField* r = node<TdynField>("r");
    ASSERT_NE(r->ownerShape(), nullptr);
    EXPECT_EQ(r->ownerShape()->name(), "boxShape");
    TdynFieldPtrArray found;
    TdynField::getFields("r*", found);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0], r);
    // It acts from the cube's centroid, the origin: at (0, 3, 0) the push is rel itself.
    T4dDblVectorArray out;
    ASSERT_EQ(r->getForceAtPoint({{0, 3, 0}}, {}, {}, out, 0.1), 0);
    EXPECT_NEAR(out[0].y, 3, 1e-12);
    EXPECT_NEAR(out[0].x, 0, 1e-12);
}

TEST_F(FieldCommandTest, EditUndoRedoSwapsTheValues) {
    ASSERT_TRUE(run("vortex -n v -m 2;")) << errors.str();
    ASSERT_TRUE(run("vortex -e -m 7 -ay 0 -ax 1 v;")) << errors.str();
    EXPECT_EQ(num("v", "magnitude"), 7);
    EXPECT_EQ(num("v", "axisX"), 1);
    ASSERT_TRUE(run("undo;")) << errors.str();
    EXPECT_EQ(num("v", "magnitude"), 2);
    EXPECT_EQ(num("v", "axisY"), 1);
    ASSERT_TRUE(run("redo;")) << errors.str();
    EXPECT_EQ(num("v", "magnitude"), 7);
    // Undo of the creation takes the node away; redo brings it back.
    ASSERT_TRUE(run("undo; undo;")) << errors.str();
    EXPECT_EQ(node<TdynField>("v"), nullptr);
    ASSERT_TRUE(run("redo;")) << errors.str();
    ASSERT_NE(node<TdynField>("v"), nullptr);
    EXPECT_EQ(num("v", "magnitude"), 2);
}

TEST_F(FieldCommandTest, BadInputIsAClearErrorAndMakesNothing) {
    const std::size_t before = session.graph().nodes().size();
    EXPECT_FALSE(run("uniform -vsh blob;"));
    EXPECT_NE(errors.str().find("unknown volume shape 'blob'"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("radial -tsr -0.5;"));
    EXPECT_NE(errors.str().find("-torusSectionRadius cannot be negative"), std::string::npos) << errors.str();
    EXPECT_EQ(session.graph().nodes().size(), before);
    ASSERT_TRUE(run("gravity -n g;"));
    EXPECT_FALSE(run("vortex -e -m 3 g;"));
    EXPECT_NE(errors.str().find("vortexField"), std::string::npos) << errors.str();
}

TEST_F(FieldCommandTest, FieldsMadeWithParticlesSelectedAndConnectDynamicJoinAtMatchingIndices) {
    ASSERT_TRUE(run("particle -p 0 0 0 -n a; particle -p 1 0 0 -n b; select -r a b; gravity -n g;"))
        << errors.str();
    auto* a = node<TdynParticleShape>("aShape");
    auto* b = node<TdynParticleShape>("bShape");
    ASSERT_TRUE(a && b);
    auto* pvs = TdynParticleShape::sVsData();
    TdynField* g = node<TdynField>("g");
    auto* vs = g->fieldVs();
    // a at 0, b at 1: the field's element and the object's element share the index.
    EXPECT_EQ(Tplug(a, pvs->inputForce, 0).source(), Tplug(g, &vs->outputForce, 0));
    EXPECT_EQ(Tplug(b, pvs->inputForce, 1).source(), Tplug(g, &vs->outputForce, 1));
    EXPECT_EQ(Tplug(g, &vs->inputPositions, 1).source().node(), b);

    ASSERT_TRUE(run("select -cl; turbulence -n t; connectDynamic -f t b;")) << errors.str();
    TdynField* t = node<TdynField>("t");
    EXPECT_EQ(Tplug(b, pvs->inputForce, 0).source().node(), t);
    EXPECT_EQ(Tplug(t, &t->fieldVs()->outputForce, 0), Tplug(b, pvs->inputForce, 0).source());
    TdynFieldPtrArray onB;
    TdynField::getFieldsConnectedTo(b, onB);
    EXPECT_EQ(onB.size(), 2u);
    // Joining again changes nothing; undo of that run keeps the first joining.
    ASSERT_TRUE(run("connectDynamic -f t b; undo;")) << errors.str();
    EXPECT_EQ(Tplug(b, pvs->inputForce, 0).source().node(), t);
    ASSERT_TRUE(run("undo;")) << errors.str();
    EXPECT_TRUE(Tplug(b, pvs->inputForce, 0).source().isNull());
    EXPECT_TRUE(Tplug(t, &t->fieldVs()->inputPositions, 0).source().isNull());

    // Something that is not a dynamic object, or not a field: an error and nothing half connected.
    EXPECT_FALSE(run("connectDynamic -f t -f g1 b;"));
    EXPECT_NE(errors.str().find("no object matches 'g1'"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("connectDynamic -f t g;"));
    EXPECT_NE(errors.str().find("'g' is not a dynamic object"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("connectDynamic -f a b;"));
    EXPECT_NE(errors.str().find("'a' is not a field"), std::string::npos) << errors.str();
    EXPECT_TRUE(Tplug(b, pvs->inputForce, 0).source().isNull());
    EXPECT_TRUE(Tplug(t, &t->fieldVs()->inputPositions, 0).source().isNull());
}

} // namespace
