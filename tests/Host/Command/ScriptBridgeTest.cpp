// The engine under the real interpreter: command and function syntax, echo,
// errors reported once with their line, eval from C++ and from commands.

#include "CommandTestSupport.h"
#include "Host/Command/ToptionVars.h"
#include "Host/Script/TscriptInterpreter.h"

namespace {

// Runs script text given as its argument, the way event procedures do.
class TrunTextAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        TcommandEngine& engine = TcommandEngine::current();
        engine.setResult(engine.executeScript(args[0].value.asString()));
        return 0;
    }
};

} // namespace

class CommandScriptBridge : public HostCommandFixture {
protected:
    void SetUp() override {
        HostCommandFixture::SetUp();
        ToptionVars::clear();
        engine.setInterpreter(interpreter);
        engine.registerCommand<TrunTextAction>("runText");
    }
    void TearDown() override {
        ToptionVars::clear();
        HostCommandFixture::TearDown();
    }
    TscriptInterpreter interpreter{engine};
};

TEST_F(CommandScriptBridge, EchoShowsResultsOfTopLevelCommands) {
    EXPECT_TRUE(interpreter.run("optionVar -iv frames 12;\n"
                                "optionVar -q frames;\n"
                                "optionVar -fva w 0.5 -fva w 1e-07;\n"
                                "optionVar -q w;\n",
                                "scene.ms", true));
    EXPECT_EQ(out.str(), "// Result: 12 //\n// Result: 0.5 1e-07 //\n");
    EXPECT_EQ(err.str(), "");
}

TEST_F(CommandScriptBridge, FunctionSyntaxAndBackquotesReachTheSameCommands) {
    EXPECT_TRUE(interpreter.run("optionVar(\"-sv\", \"rule\", `workspace -q -fr particles`);\n"
                                "int $n = optionVar(\"-exists\", \"rule\");\n"
                                "optionVar -sv seen ($n + \" \" + `optionVar -q rule`);\n",
                                "scene.ms", false))
        << err.str();
    EXPECT_EQ(ToptionVars::stringValue("seen"), "1 particles");
}

TEST_F(CommandScriptBridge, AnErrorStopsTheScriptAndIsShownOnceWithItsLine) {
    EXPECT_FALSE(interpreter.run("optionVar -iv a 1;\n"
                                 "\n"
                                 "optionVar -iv b abc;\n"
                                 "optionVar -iv c 3;\n",
                                 "scene.ms", false));
    EXPECT_EQ(err.str(),
              "// Error: scene.ms:3: optionVar: flag '-intValue' expects an integer, got 'abc' //\n");
    EXPECT_TRUE(ToptionVars::exists("a"));
    EXPECT_FALSE(ToptionVars::exists("b"));
    EXPECT_FALSE(ToptionVars::exists("c"));
}

TEST_F(CommandScriptBridge, EvalFromCppAndFromACommand) {
    EXPECT_EQ(engine.executeScript("optionVar -iv x 4; optionVar -q x;"), TscriptValue(4));
    EXPECT_TRUE(interpreter.run("int $v = `runText \"optionVar -q x\"`;\noptionVar -iv seen ($v * 10);\n",
                                "scene.ms", false))
        << err.str();
    EXPECT_EQ(ToptionVars::intValue("seen"), 40);

    // A failure inside the evaluated text stops the command that ran it.
    EXPECT_FALSE(interpreter.run("runText \"optionVar -bad\";\noptionVar -iv after 1;\n", "scene.ms", false));
    EXPECT_NE(err.str().find("optionVar: invalid flag '-bad'"), std::string::npos);
    EXPECT_EQ(engine.errorCount(), 1);
    EXPECT_FALSE(ToptionVars::exists("after"));
}

TEST_F(CommandScriptBridge, ScriptsThatMustNotStopTheCallerReportOnce) {
    engine.setCurrentLocation({"events.ms", 5});
    TscriptValue value;
    EXPECT_TRUE(engine.tryExecuteScript("optionVar -iv n 2; optionVar -q n;", &value));
    EXPECT_EQ(value, TscriptValue(2));
    // A command's error is shown by the engine, a syntax error by this call.
    EXPECT_FALSE(engine.tryExecuteScript("optionVar -iv n x;"));
    EXPECT_FALSE(engine.tryExecuteScript("optionVar -iv (;"));
    EXPECT_EQ(engine.errorCount(), 2);
    const std::string shown = err.str();
    EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 2) << shown;
    EXPECT_NE(shown.find("// Error: events.ms:"), std::string::npos) << shown;
}

TEST_F(CommandScriptBridge, UndoOfAScriptsCommands) {
    EXPECT_TRUE(interpreter.run("undo;\nundoInfo -q -undoName;\n", "scene.ms", true));
    EXPECT_EQ(err.str(), "// Warning: undo: nothing to undo //\n");
    // An empty name is still a result.
    EXPECT_EQ(out.str(), "// Result:  //\n");
}
