// The undo queue: one step per top-level command or chunk, reverse order on
// undo, the redo queue dropped by a new command, on/off and length.

#include "CommandTestSupport.h"
#include "Host/Command/TargDatabase.h"

namespace {

// A value the test commands change, and a log of what ran.
struct Scene {
    int value = 0;
    std::vector<std::string> log;
};
Scene gScene;

// setValue N: undoable; undo puts the old value back.
class TsetValueCmd : public TcommandObject {
public:
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.addFlag("q", "query");
        s.setValueArguments(0, 1);
        TargDatabase db(s, args);
        if (db.isFlagSet("query")) {
            TcommandEngine::current().setResult(gScene.value);
            return 0; // a query leaves nothing to undo
        }
        fNew = db.valueInt(0);
        if (fNew < 0) throw TfailedException(2);
        setOkayForUndo(true, 0);
        return redoIt();
    }
    int redoIt() override {
        fOld = gScene.value;
        gScene.value = fNew;
        gScene.log.push_back("do " + std::to_string(fNew));
        return 0;
    }
    int undoIt() override {
        gScene.value = fOld;
        gScene.log.push_back("undo " + std::to_string(fNew));
        return fNew == 13 ? 1 : 0; // 13 refuses to be undone
    }

private:
    int fOld = 0;
    int fNew = 0;
};

// Sets two values through script text, then adds one of its own.
class TsetTwiceCmd : public TcommandObject {
public:
    int doIt(const TargList& args) override {
        TcommandEngine& engine = TcommandEngine::current();
        engine.run("setValue", {args[0].value.asString()});
        engine.run("setValue", {args[1].value.asString()});
        setOkayForUndo(true, 0);
        gScene.log.push_back("twice");
        return 0;
    }
    int undoIt() override {
        gScene.log.push_back("untwice");
        return 0;
    }
};

} // namespace

class CommandUndo : public HostCommandFixture {
protected:
    void SetUp() override {
        HostCommandFixture::SetUp();
        gScene = Scene{};
        engine.registerCommand<TsetValueCmd>("setValue");
        engine.registerCommand<TsetTwiceCmd>("setTwice");
    }
    TundoManager& queue() { return engine.undoManager(); }
};

TEST_F(CommandUndo, UndoAndRedoWalkBackAndForth) {
    run("setValue", {"1"});
    run("setValue", {"2"});
    run("setValue", {"3"});
    EXPECT_EQ(queue().undoCount(), 3u);
    EXPECT_EQ(queue().undoName(), "setValue \"3\"");

    run("undo", {});
    EXPECT_EQ(gScene.value, 2);
    run("undo", {});
    EXPECT_EQ(gScene.value, 1);
    EXPECT_EQ(queue().redoName(), "setValue \"2\"");
    run("redo", {});
    EXPECT_EQ(gScene.value, 2);
    run("undo", {});
    run("undo", {});
    EXPECT_EQ(gScene.value, 0);
    // Nothing left: a warning, not an error.
    EXPECT_NO_THROW(run("undo", {}));
    EXPECT_EQ(err.str(), "// Warning: undo: nothing to undo //\n");
    EXPECT_EQ(engine.errorCount(), 0);
    run("redo", {});
    run("redo", {});
    run("redo", {});
    EXPECT_EQ(gScene.value, 3);
    EXPECT_FALSE(queue().canRedo());
}

TEST_F(CommandUndo, ANewCommandDropsTheRedoQueue) {
    run("setValue", {"1"});
    run("setValue", {"2"});
    run("undo", {});
    EXPECT_TRUE(queue().canRedo());
    run("setValue", {"5"});
    EXPECT_FALSE(queue().canRedo());
    run("redo", {});
    EXPECT_EQ(err.str(), "// Warning: redo: nothing to redo //\n");
    EXPECT_EQ(gScene.value, 5);
    run("undo", {});
    EXPECT_EQ(gScene.value, 1);
}

TEST_F(CommandUndo, QueriesAndFailuresLeaveNothingToUndo) {
    run("setValue", {"4"});
    EXPECT_EQ(run("setValue", {"-q"}), TscriptValue(4));
    EXPECT_THROW(run("setValue", {"-1"}), TscriptError);
    EXPECT_EQ(queue().undoCount(), 1u);
    run("undo", {});
    EXPECT_EQ(gScene.value, 0);
}

TEST_F(CommandUndo, ChunksUndoAsOneStepInReverseOrder) {
    run("undoInfo", {"-openChunk", "-chunkName", "three steps"});
    run("setValue", {"1"});
    run("setValue", {"2"});
    run("setValue", {"3"});
    EXPECT_EQ(queue().undoCount(), 0u); // still collecting
    run("undoInfo", {"-cck"});
    ASSERT_EQ(queue().undoCount(), 1u);
    EXPECT_EQ(run("undoInfo", {"-q", "-undoName"}), TscriptValue("three steps"));

    gScene.log.clear();
    run("undo", {});
    EXPECT_EQ(gScene.value, 0);
    EXPECT_EQ(gScene.log, (std::vector<std::string>{"undo 3", "undo 2", "undo 1"}));
    EXPECT_EQ(run("undoInfo", {"-q", "-rn"}), TscriptValue("three steps"));
    gScene.log.clear();
    run("redo", {});
    EXPECT_EQ(gScene.log, (std::vector<std::string>{"do 1", "do 2", "do 3"}));
    EXPECT_EQ(gScene.value, 3);

    // Nested chunks close with the outermost; an unnamed one takes the first
    // command's text.
    run("undoInfo", {"-ock"});
    run("undoInfo", {"-ock"});
    run("setValue", {"7"});
    run("undoInfo", {"-cck"});
    run("setValue", {"8"});
    EXPECT_EQ(queue().undoCount(), 1u);
    run("undoInfo", {"-cck"});
    EXPECT_EQ(queue().undoCount(), 2u);
    EXPECT_EQ(queue().undoName(), "setValue \"7\"");

    // Closing what is not open is a warning.
    run("undoInfo", {"-cck"});
    EXPECT_EQ(err.str(), "// Warning: undoInfo: no undo chunk is open //\n");
}

TEST_F(CommandUndo, UndoInsideAnOpenChunkTakesBackItsLastCommand) {
    run("setValue", {"1"});
    run("undoInfo", {"-ock"});
    run("setValue", {"2"});
    run("setValue", {"3"});
    EXPECT_EQ(run("undoInfo", {"-q", "-un"}), TscriptValue("setValue \"3\""));
    run("undo", {});
    EXPECT_EQ(gScene.value, 2);
    run("redo", {});
    EXPECT_EQ(gScene.value, 3);
    run("undo", {});
    run("undoInfo", {"-cck"});
    // The chunk closes with what is left in it.
    EXPECT_EQ(queue().undoCount(), 2u);
    run("undo", {});
    EXPECT_EQ(gScene.value, 1);
}

TEST_F(CommandUndo, AReturnedChunkIsOneEntryTheCommandCanTakeBack) {
    // Makes a copy inside a chunk of its own, and takes the copy back when told
    // to, as a command that checks what it made would.
    struct Copy : TcommandObject {
        int doIt(const TargList& args) override {
            TcommandEngine& engine = TcommandEngine::current();
            TundoManager& queue = engine.undoManager();
            queue.openChunk();
            engine.run("setValue", {"7"});
            engine.run("setValue", {"8"});
            TcommandObject* chunk = queue.closeAndReturnChunk();
            if (!chunk || chunk->commandString() != "setValue \"7\"") return 1;
            if (args.length() > 0) engine.run("undo", {});
            return 0;
        }
    };
    engine.registerCommand<Copy>("copy");
    run("setValue", {"1"});
    run("copy", {"reject"});
    EXPECT_EQ(gScene.value, 1); // both steps of the copy went back together
    EXPECT_EQ(queue().undoCount(), 1u);

    run("copy", {});
    EXPECT_EQ(gScene.value, 8);
    EXPECT_EQ(queue().undoName(), "copy");
    gScene.log.clear();
    run("undo", {});
    EXPECT_EQ(gScene.log, (std::vector<std::string>{"undo 8", "undo 7"}));
    EXPECT_EQ(gScene.value, 1);

    // Nothing stored: nothing to return.
    queue().openChunk();
    EXPECT_EQ(queue().closeAndReturnChunk(), nullptr);
    EXPECT_EQ(queue().closeAndReturnChunk(), nullptr); // none open
}

TEST_F(CommandUndo, CommandsRunInsideACommandJoinItsStep) {
    run("setTwice", {"4", "6"});
    EXPECT_EQ(gScene.value, 6);
    ASSERT_EQ(queue().undoCount(), 1u);
    EXPECT_EQ(queue().undoName(), "setTwice \"4\" \"6\"");
    gScene.log.clear();
    run("undo", {});
    EXPECT_EQ(gScene.value, 0);
    EXPECT_EQ(gScene.log, (std::vector<std::string>{"untwice", "undo 6", "undo 4"}));
}

TEST_F(CommandUndo, StateOffStoresNothingAndFlushes) {
    run("setValue", {"1"});
    EXPECT_EQ(run("undoInfo", {"-q", "-state"}), TscriptValue(1));
    run("undoInfo", {"-state", "off"});
    EXPECT_EQ(run("undoInfo", {"-q", "-st"}), TscriptValue(0));
    EXPECT_EQ(queue().undoCount(), 0u);
    run("setValue", {"2"});
    EXPECT_EQ(queue().undoCount(), 0u);
    run("undo", {});
    EXPECT_EQ(gScene.value, 2);
    run("undoInfo", {"-st", "on"});
    run("setValue", {"3"});
    run("undo", {});
    EXPECT_EQ(gScene.value, 2);
}

TEST_F(CommandUndo, LengthLimitsTheQueueOnlyWithoutInfinity) {
    // The default keeps a long script's memory bounded: 1000 steps, not every one.
    EXPECT_EQ(run("undoInfo", {"-q", "-infinity"}), TscriptValue(0));
    EXPECT_EQ(run("undoInfo", {"-q", "-length"}), TscriptValue(1000));
    run("undoInfo", {"-infinity", "on"});
    run("undoInfo", {"-length", "2"});
    for (const char* v : {"1", "2", "3", "4"})
        run("setValue", {v});
    EXPECT_EQ(queue().undoCount(), 4u); // infinity still on
    run("undoInfo", {"-infinity", "off"});
    EXPECT_EQ(queue().undoCount(), 2u); // the oldest went
    EXPECT_EQ(run("undoInfo", {"-q", "-length"}), TscriptValue(2));
    run("undo", {});
    run("undo", {});
    run("undo", {});
    EXPECT_EQ(gScene.value, 2);
    EXPECT_EQ(failure("undoInfo", {"-length", "-3"}),
              "undoInfo: flag '-length' expects a count of 0 or more, got -3");
    EXPECT_EQ(failure("undoInfo", {"-un"}), "undoInfo: flag '-undoName' needs -query");
}

TEST_F(CommandUndo, AFailedUndoReportsAndDropsTheRedoQueue) {
    run("setValue", {"1"});
    run("setValue", {"13"});
    run("setValue", {"2"});
    run("undo", {});
    EXPECT_EQ(failure("undo", {}), "undo: could not undo 'setValue \"13\"'");
    EXPECT_FALSE(queue().canRedo());
    run("undo", {});
    EXPECT_EQ(gScene.value, 0);
}

TEST_F(CommandUndo, GraphEditCommandsRevertTheirOperationsInReverse) {
    struct Edits : TDGcommand {
        int doIt(const TargList&) override {
            addOperation([] { gScene.log.push_back("a"); }, [] { gScene.log.push_back("-a"); });
            addOperation([] { gScene.log.push_back("b"); }, [] { gScene.log.push_back("-b"); });
            doOperations();
            return 0;
        }
    };
    engine.registerCommand<Edits>("edits");
    run("edits", {});
    run("undo", {});
    run("redo", {});
    EXPECT_EQ(gScene.log, (std::vector<std::string>{"a", "b", "-b", "-a", "a", "b"}));
}

TEST_F(CommandUndo, ToolsStoreThemselvesOnce) {
    // What a tool's finalize does: its own chunk, the command stored by pointer.
    struct Tool : TtoolCommandObject {
        int doIt(const TargList&) override { return 0; }
        int undoIt() override {
            gScene.log.push_back("tool undone");
            return 0;
        }
    };
    auto* tool = new Tool;
    tool->setInteractive();
    queue().openChunk(TargList::fromWords("tool", {"-x"}));
    tool->displayCommand();
    tool->setCommitted();
    EXPECT_TRUE(queue().storeCommand(tool));
    EXPECT_FALSE(queue().storeCommand(tool)); // already there
    queue().closeChunk();
    EXPECT_EQ(queue().undoName(), "tool -x");
    run("undo", {});
    EXPECT_EQ(gScene.log, std::vector<std::string>{"tool undone"});
}

TEST_F(CommandUndo, CommandsRunByAnUndoAreNotStoredAgain) {
    // Its undo sets the value through another undoable command.
    struct Resetter : TcommandObject {
        int doIt(const TargList&) override {
            setOkayForUndo(true);
            gScene.value = 50;
            return 0;
        }
        int undoIt() override {
            TcommandEngine::current().run("setValue", {"9"});
            return 0;
        }
        int redoIt() override {
            gScene.value = 50;
            return 0;
        }
    };
    engine.registerCommand<Resetter>("resetter");
    run("setValue", {"1"});
    run("resetter", {});
    run("undo", {});
    EXPECT_EQ(gScene.value, 9);
    // The queue still holds exactly the two steps, one on each side.
    EXPECT_EQ(queue().undoCount(), 1u);
    EXPECT_EQ(queue().redoCount(), 1u);
    run("redo", {});
    EXPECT_EQ(gScene.value, 50);
    run("undo", {});
    run("undo", {});
    EXPECT_EQ(gScene.value, 0);
}
