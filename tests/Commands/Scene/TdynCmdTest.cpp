// The edit life cycle of the dynamics command frame, through a small command
// that edits a transform's translateX.

#include "Commands/Scene/TdynCmd.h"
#include "Commands/Scene/DynSceneTest.h"
#include "Host/Dag/Ttransform.h"
#include "Host/SceneCommands/TplugPath.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

class TtestEditCmd : public TdynCmd {
public:
    static int sRedoChecks;

protected:
    std::unique_ptr<Tsyntax> newSyntax() override {
        auto s = std::make_unique<Tsyntax>();
        makeSyntaxEditQuery(*s);
        makeDefaultObjectListSelection(*s);
        s->addFlag("v", "value", {TargType::Double});
        return s;
    }
    int parseEditOrNew(const TargDatabase& db) override {
        if (objectCount() != 1) {
            engine().displayError("testEdit: give one transform");
            return -1;
        }
        bool set = false;
        getFlagArg(db, "v", "value", fValue, set);
        return set ? 0 : -1;
    }
    int queryActions(const TargDatabase& db) override {
        queryFlag(db, "v", "value", TscriptValue(current()));
        return 0;
    }
    void saveLastValues() override { fLast = current(); }
    void swapLastValues() override { swap(fValue, fLast); }
    void setValues() override {
        writePlugNumber(Tplug(object(0), Ttransform::sVsData()->translate.children()[0]), fValue);
    }
    int redoCheck() override {
        ++sRedoChecks;
        return 0;
    }
    int afterFirstRedo() override { return 0; }

private:
    double current() {
        double v = 0;
        object(0)->getAttributeValue(Ttransform::sVsData()->translate.children()[0], v);
        return v;
    }
    double fValue = 0;
    double fLast = 0;
};
int TtestEditCmd::sRedoChecks = 0;

class TdynCmdTest : public DynSceneTest {
protected:
    void SetUp() override {
        DynSceneTest::SetUp();
        session.engine().registerCommand<TtestEditCmd>("testEdit");
    }
    double tx() { return session.engine().run("getAttr", {"box.translateX"}).asFloat(); }
};

TEST_F(TdynCmdTest, EditUndoRedoUndoGivesTheFirstValues) {
    ASSERT_TRUE(run("createNode transform -n box; setAttr box.translateX 1;"));
    ASSERT_TRUE(run("testEdit -e -v 5 box;"));
    EXPECT_DOUBLE_EQ(tx(), 5);
    ASSERT_TRUE(run("undo;"));
    EXPECT_DOUBLE_EQ(tx(), 1);
    ASSERT_TRUE(run("redo;"));
    EXPECT_DOUBLE_EQ(tx(), 5);
    ASSERT_TRUE(run("undo;"));
    EXPECT_DOUBLE_EQ(tx(), 1);
    // Two edits in a row undo one at a time.
    ASSERT_TRUE(run("testEdit -e -v 7 box; testEdit -e -v 9 box;"));
    ASSERT_TRUE(run("undo;"));
    EXPECT_DOUBLE_EQ(tx(), 7);
    ASSERT_TRUE(run("undo;"));
    EXPECT_DOUBLE_EQ(tx(), 1);
}

TEST_F(TdynCmdTest, AQueryAnswersAndLeavesNothingToUndo) {
    ASSERT_TRUE(run("createNode transform -n box; setAttr box.translateX 2;"));
    const std::size_t before = session.engine().undoManager().undoCount();
    const int checks = TtestEditCmd::sRedoChecks;
    TscriptValue v = session.engine().run("testEdit", {"-q", "-v", "box"});
    EXPECT_DOUBLE_EQ(v.asFloat(), 2);
    EXPECT_EQ(session.engine().undoManager().undoCount(), before);
    EXPECT_EQ(TtestEditCmd::sRedoChecks, checks); // a query never runs redoIt
    EXPECT_DOUBLE_EQ(tx(), 2);
}

TEST_F(TdynCmdTest, ObjectsComeFromTheSelectionWhenNoneAreNamed) {
    ASSERT_TRUE(run("createNode transform -n box; select box; testEdit -e -v 3;"));
    EXPECT_DOUBLE_EQ(tx(), 3);
    // The selection as it stood when the command ran comes back with undo.
    TmodelList::activeModel()->clearActiveList();
    ASSERT_TRUE(run("undo;"));
    EXPECT_DOUBLE_EQ(tx(), 0);
    TscriptValue selected = session.engine().run("ls", {"-sl"});
    ASSERT_EQ(selected.type(), TscriptType::StringArray);
    EXPECT_EQ(selected.stringArray(), std::vector<std::string>{"box"});
}

TEST_F(TdynCmdTest, ParseFailuresStopBeforeActing) {
    ASSERT_TRUE(run("createNode transform -n box;"));
    const int checks = TtestEditCmd::sRedoChecks;
    EXPECT_FALSE(run("testEdit -e -v nope box;"));
    EXPECT_NE(errors.str().find("-value"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("testEdit -e box;")); // no value: the parse refuses
    EXPECT_EQ(TtestEditCmd::sRedoChecks, checks);
    EXPECT_DOUBLE_EQ(tx(), 0);
}

} // namespace
