// The host's scene commands through the interpreter, as a script uses them.

#include "Host/Dag/Tshape.h"
#include "Host/Dag/Ttransform.h"
#include "Host/Session/Tsession.h"

#include "Host/Time/TanimInfo.h"

#include "Host/Dag/Tmodel.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

namespace {

class SceneCommands : public ::testing::Test {
protected:
    void SetUp() override {
        TtimeUnit::setCurrent(kFilm);
        session.engine().setErrorStream(&errors);
        session.engine().setOutputStream(&output);
    }
    bool run(const std::string& text) {
        bool ok = session.runText(text, "scene.mls", false);
        if (!ok) std::cerr << errors.str();
        return ok;
    }
    TscriptValue eval(const std::string& text) { return session.interpreter().evaluate(text, {"test", 1}); }
    double number(const std::string& text) { return eval(text).asFloat(); }
    std::vector<double> floats(const std::string& text) {
        TscriptValue v = eval(text);
        return v.type() == TscriptType::FloatArray ? v.floatArray() : std::vector<double>{};
    }
    // The error text of a script that must fail.
    std::string failure(const std::string& text) {
        errors.str("");
        EXPECT_FALSE(run(text)) << text;
        return errors.str();
    }

    Tsession session;
    std::ostringstream errors, output;
};

TEST_F(SceneCommands, KeyedValuesReadAtAnyTimeWithoutMovingIt) {
    ASSERT_TRUE(run("createNode transform -n t;"
                    "setKeyframe -t 1 -v 0 -itt linear -ott linear t.translateX;"
                    "setKeyframe -t 11 -v 10 -itt linear -ott linear t.translateX;"
                    "currentTime 6;"));
    EXPECT_EQ(number("getAttr t.translateX"), 5.0);
    EXPECT_EQ(number("getAttr -time 8 t.translateX"), 7.0);
    EXPECT_EQ(number("currentTime -q"), 6.0);
    EXPECT_EQ(number("getAttr t.translateX"), 5.0);
    // Before the first and after the last key the curve holds.
    EXPECT_EQ(number("getAttr -time -5 t.translateX"), 0.0);
    EXPECT_EQ(number("getAttr -time 30 t.translateX"), 10.0);
    // A stepped key holds until the next.
    ASSERT_TRUE(run("setKeyframe -t 20 -v 4 -ott step t.translateY; setKeyframe -t 30 -v 8 t.translateY;"));
    EXPECT_EQ(number("getAttr -time 29 t.translateY"), 4.0);
}

TEST_F(SceneCommands, WorldMatricesFollowTheHierarchy) {
    ASSERT_TRUE(run("createNode transform -n parentT; createNode transform -n child -p parentT;"
                    "setAttr parentT.translateX 2; setAttr parentT.scaleX 3; setAttr child.translateX 1;"));
    EXPECT_EQ(floats("xform -q -ws -t child"), (std::vector<double>{5, 0, 0}));
    ASSERT_TRUE(run("setAttr parentT.translateY 4;"));
    EXPECT_EQ(floats("xform -q -ws -t child"), (std::vector<double>{5, 4, 0}));
    // Moving to a world position sets the local translation that puts it there.
    ASSERT_TRUE(run("move 8 4 0 child;"));
    EXPECT_EQ(floats("getAttr child.translate"), (std::vector<double>{2, 0, 0}));
    ASSERT_TRUE(run("parent -w child;"));
    EXPECT_EQ(floats("xform -q -ws -t child"), (std::vector<double>{2, 0, 0}));
    std::string e = failure("parent parentT child; parent child parentT;");
    EXPECT_NE(e.find("descendant"), std::string::npos) << e;
}

// Selecting one by one keeps only what each step added: undo takes exactly that back, whatever came
// before, and the queue holds a bounded number of steps.
TEST_F(SceneCommands, SelectingOneByOneUndoesStepByStep) {
    ASSERT_TRUE(run("createNode transform -n a; createNode transform -n b; createNode transform -n c;"
                    "select -r a; select -add b c; select -add a;"));
    auto selected = [&] {
        std::string out;
        for (TdependNode* n : TmodelList::activeModel()->activeList())
            out += n->name() + " ";
        return out;
    };
    EXPECT_EQ(selected(), "a b c ");
    ASSERT_TRUE(run("undo;")); // adding a again changed nothing and left nothing to undo
    EXPECT_EQ(selected(), "a ");
    ASSERT_TRUE(run("redo;"));
    EXPECT_EQ(selected(), "a b c ");
    ASSERT_TRUE(run("select -d b; undo;"));
    EXPECT_EQ(selected(), "a b c ");
    // A thousand steps are kept by default; the oldest go.
    for (int k = 0; k < 1100; ++k)
        ASSERT_TRUE(run(k % 2 ? "select -add a;" : "select -d a;")) << k;
    EXPECT_EQ(session.engine().undoManager().undoCount(), 1000u);
}

TEST_F(SceneCommands, UndoAndRedoRestoreExactly) {
    ASSERT_TRUE(run("createNode transform -n a; createNode transform -n b; setAttr a.translateX 1.25;"));
    ASSERT_TRUE(run("setAttr a.translateX 7;"));
    ASSERT_TRUE(run("undo;"));
    EXPECT_EQ(number("getAttr a.translateX"), 1.25);
    ASSERT_TRUE(run("redo;"));
    EXPECT_EQ(number("getAttr a.translateX"), 7.0);

    ASSERT_TRUE(run("setAttr b.translateY 3; connectAttr a.translateX b.translateY;"));
    EXPECT_EQ(number("getAttr b.translateY"), 7.0);
    ASSERT_TRUE(run("undo;"));
    EXPECT_EQ(number("isConnected a.translateX b.translateY"), 0.0);
    EXPECT_EQ(number("getAttr b.translateY"), 3.0); // the value the connection replaced
    ASSERT_TRUE(run("redo;"));
    EXPECT_EQ(number("getAttr b.translateY"), 7.0);

    ASSERT_TRUE(
        run("createNode transform -n c; connectAttr c.translateZ a.translateZ; setAttr c.translateZ 2;"));
    ASSERT_TRUE(run("delete c;"));
    EXPECT_EQ(number("objExists c"), 0.0);
    ASSERT_TRUE(run("undo;"));
    EXPECT_EQ(number("objExists c"), 1.0);
    EXPECT_EQ(number("isConnected c.translateZ a.translateZ"), 1.0);
    EXPECT_EQ(number("getAttr a.translateZ"), 2.0);
    ASSERT_TRUE(run("undo; undo;")); // the setAttr, then the connection
    ASSERT_TRUE(run("undo;"));       // the createNode
    EXPECT_EQ(number("objExists c"), 0.0);
    ASSERT_TRUE(run("redo;"));
    EXPECT_EQ(number("objExists c"), 1.0);
}

TEST_F(SceneCommands, DeletingATransformTakesItsShapeAndUndoBringsBoth) {
    TscriptValue names = eval("polyCube -n box");
    ASSERT_EQ(names.type(), TscriptType::StringArray);
    EXPECT_EQ(names.stringArray(), (std::vector<std::string>{"box", "boxShape"}));
    ASSERT_TRUE(run("delete box;"));
    EXPECT_EQ(number("objExists boxShape"), 0.0);
    ASSERT_TRUE(run("undo;"));
    auto* shape = TmeshShape::cast(session.graph().findNode("boxShape"));
    ASSERT_NE(shape, nullptr);
    ASSERT_NE(shape->mesh(), nullptr);
    EXPECT_EQ(shape->mesh()->numFaces(), 6);
    EXPECT_EQ(shape->parentObject(), session.graph().findNode("box"));
}

TEST_F(SceneCommands, TypedAndDynamicAttributes) {
    ASSERT_TRUE(run("createNode transform -n n;"
                    "addAttr -ln weights -dt doubleArray n;"
                    "setAttr -type doubleArray n.weights 3 0.5 1.5 2.5;"
                    "addAttr -ln label -dt \"string\" n; setAttr -type \"string\" n.label \"hello\";"
                    "addAttr -ln gain -at double -dv 4 -min 0 -max 10 n;"));
    EXPECT_EQ(floats("getAttr n.weights"), (std::vector<double>{0.5, 1.5, 2.5}));
    EXPECT_EQ(number("getAttr -size n.weights"), 3.0);
    EXPECT_EQ(eval("getAttr n.label").asString(), "hello");
    EXPECT_EQ(number("getAttr n.gain"), 4.0);
    ASSERT_TRUE(run("setAttr n.gain 25;"));
    EXPECT_EQ(number("getAttr n.gain"), 10.0); // clamped to its bounds
    ASSERT_TRUE(run("deleteAttr n.gain;"));
    EXPECT_NE(failure("getAttr n.gain;").find("no attribute 'gain'"), std::string::npos);
    ASSERT_TRUE(run("undo;"));
    EXPECT_EQ(number("getAttr n.gain"), 10.0);
    EXPECT_NE(failure("setAttr -type doubleArray n.weights 3 1 2;").find("expected 3 elements"),
              std::string::npos);
}

TEST_F(SceneCommands, QueriesOfTheScene) {
    ASSERT_TRUE(run("polySphere -n ball; polyPlane -n ground; curve -d 1 -p 0 0 0 -p 1 0 0 -n path;"
                    "connectAttr ball.translateY ground.translateY;"));
    EXPECT_EQ(eval("ls -type mesh").stringArray(), (std::vector<std::string>{"ballShape", "groundShape"}));
    EXPECT_EQ(eval("ls \"g*\"").stringArray(), (std::vector<std::string>{"ground", "groundShape"}));
    EXPECT_EQ(eval("nodeType pathShape").asString(), "curve");
    EXPECT_EQ(eval("listConnections -s false ball").stringArray(), (std::vector<std::string>{"ground"}));
    EXPECT_EQ(eval("listConnections -p true ground.translateY").stringArray(),
              (std::vector<std::string>{"ball.translateY"}));
    ASSERT_TRUE(run("select ball ground; select -d ball;"));
    EXPECT_EQ(eval("ls -sl").stringArray(), (std::vector<std::string>{"ground"}));
    ASSERT_TRUE(run("rename ground floor;"));
    EXPECT_EQ(eval("ls -sl").stringArray(), (std::vector<std::string>{"floor"}));
}

TEST_F(SceneCommands, BadInputNamesTheThingAndTheLine) {
    ASSERT_TRUE(run("createNode transform -n t; createNode transform -n u;"));
    EXPECT_NE(failure("getAttr nobody.tx;").find("scene.mls:1: getAttr: no object matches name: nobody"),
              std::string::npos)
        << errors.str();
    EXPECT_NE(failure("\n\ngetAttr t.wings;").find("scene.mls:3: getAttr: no attribute 'wings' on node 't'"),
              std::string::npos)
        << errors.str();
    EXPECT_NE(failure("getAttr t.translateX[2];").find("not a multi attribute"), std::string::npos);
    EXPECT_NE(failure("setAttr t.translateX abc;").find("setAttr"), std::string::npos);
    EXPECT_NE(failure("connectAttr t.worldMatrix u.translateX;").find("not compatible"), std::string::npos)
        << errors.str();
    EXPECT_NE(failure("createNode noSuchType;").find("unknown node type 'noSuchType'"), std::string::npos);
    EXPECT_NE(failure("connectAttr t.translateX u.translateX; connectAttr t.translateY u.translateX;")
                  .find("already has an input from t.translateX"),
              std::string::npos)
        << errors.str();
    EXPECT_NE(failure("setAttr u.translateX 1;").find("is connected from t.translateX"), std::string::npos);
    EXPECT_NE(failure("polySphere -radius -1;").find("-radius must be at least"), std::string::npos);
}

TEST_F(SceneCommands, ObjImportMakesOneMeshPerObject) {
    const std::string path = ::testing::TempDir() + "motilane_import_test.obj";
    {
        std::ofstream f(path);
        f << "o tri\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"
             "o quad\nv 0 0 1\nv 1 0 1\nv 1 1 1\nv 0 1 1\nf 4 5 6 7\n";
    }
    TscriptValue made = eval("file -import -type \"OBJ\" \"" + path + "\"");
    EXPECT_EQ(made.stringArray(), (std::vector<std::string>{"tri", "triShape", "quad", "quadShape"}));
    auto* quad = TmeshShape::cast(session.graph().findNode("quadShape"));
    ASSERT_NE(quad, nullptr);
    EXPECT_EQ(quad->mesh()->numPoints(), 4);
    std::remove(path.c_str());
    EXPECT_NE(failure("file -import -type \"OBJ\" \"/no/such/file.obj\";").find("/no/such/file.obj"),
              std::string::npos);
}

} // namespace

// A node class built on the transform keeps its own copies of the transform's
// attributes; the transform's computations must use those.
class TdnVSTtestDerivedXform : public TdnVSTtransform {
public:
    TdnVSTtestDerivedXform() : weight("weight", "wt", makeIffTag("TDXW")) {}
    void appendAttributes(TattributeList& list) override {
        TdnVSTtransform::appendAttributes(list);
        list.addAttribute(&weight);
    }
    TattributeDouble weight;
};

class TtestDerivedXform : public Ttransform {
    TDECLARE_NODE(TtestDerivedXform, TdnVSTtestDerivedXform)
};

TDEFINE_NODE(TtestDerivedXform, TdnVSTtestDerivedXform, Ttransform, "testDerivedXform", "TDXF")

namespace {

TEST_F(SceneCommands, DerivedTransformsComputeTheirOwnMatrices) {
    ASSERT_TRUE(run("createNode testDerivedXform -n d; setAttr d.translate 1 2 3; setAttr d.scaleX 2;"));
    EXPECT_EQ(floats("xform -q -ws -t d"), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(floats("getAttr d.matrix"),
              (std::vector<double>{2, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1}));
    auto* d = Ttransform::cast(session.graph().findNode("d"));
    TxformMatrix x;
    x.setTranslation({4, 0, 0});
    d->setXform(x);
    EXPECT_EQ(floats("xform -q -ws -t d"), (std::vector<double>{4, 0, 0}));
}

TEST_F(SceneCommands, ARateChangeKeepsFrameNumbersAndUndoesExactly) {
    ASSERT_TRUE(run("playbackOptions -min 1 -max 48; currentTime 5;"));
    ASSERT_TRUE(run("currentUnit -time pal;"));
    EXPECT_EQ(number("`playbackOptions -q -min`"), 1.0);
    EXPECT_EQ(number("`playbackOptions -q -max`"), 48.0);
    EXPECT_EQ(number("`currentTime -q`"), 5.0);
    EXPECT_EQ(session.graph().time().ticks(), 5 * 240); // frame 5 at 25 a second
    ASSERT_TRUE(run("undo;"));
    EXPECT_EQ(session.graph().time().ticks(), 5 * 250);
    EXPECT_EQ(TanimInfo::currAnimInfo().endTime().ticks(), 48 * 250);
}

} // namespace
