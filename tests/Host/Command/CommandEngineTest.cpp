// Running commands: results, echo, messages with their locations, failures,
// nesting through script text, and the current engine.

#include "CommandTestSupport.h"
#include "Host/Command/TargDatabase.h"

#include <sstream>

namespace {

// Returns what its flags ask for; fails in the ways a command can.
class TprobeAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.addFlag("i", "int", {TargType::Int});
        s.addFlag("v", "vector", {TargType::Double, TargType::Double, TargType::Double});
        s.addFlag("s", "strings", {TargType::String});
        s.makeFlagMultiUse("s");
        s.addFlag("f", "fail", {TargType::Int});
        s.addFlag("msg", "message");
        s.addFlag("st", "status", {TargType::Int});
        s.addFlag("w", "warn", {TargType::String});
        TargDatabase db(s, args);
        TcommandEngine& engine = TcommandEngine::current();
        if (db.isFlagSet("i")) engine.setResult(db.flagArgumentInt("i"));
        if (db.isFlagSet("v"))
            engine.setResult(TscriptVector{db.flagArgumentDouble("v", 0, 0), db.flagArgumentDouble("v", 0, 1),
                                           db.flagArgumentDouble("v", 0, 2)});
        for (std::size_t i = 0; i < db.flagUseCount("s"); ++i)
            engine.appendResult(db.flagArgumentString("s", i));
        if (db.isFlagSet("w")) engine.displayWarning(db.flagArgumentString("w"));
        if (db.isFlagSet("msg")) engine.displayError("probe: the message of its own");
        if (db.isFlagSet("f")) throw TfailedException(db.flagArgumentInt("f"));
        if (db.isFlagSet("st")) return db.flagArgumentInt("st");
        return 0;
    }
};

// Runs its string argument as script text, then sets its own result.
class TouterAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        TcommandEngine& engine = TcommandEngine::current();
        engine.setResult(std::string("before"));
        engine.executeScript(args.at(0).value.asString());
        seenLocation = engine.currentLocation();
        engine.appendResult(std::string("after"));
        return 0;
    }
    static inline TsourceLocation seenLocation;
};

class TtoolCmd : public TtoolCommandObject {
public:
    int doIt(const TargList&) override {
        displayCommand();
        return 0;
    }
};

// A stand-in interpreter: "name word word" on one line, at line 40 of the text.
void useWordEvaluator(TcommandEngine& engine) {
    engine.setEvaluator([&engine](const std::string& source, const TsourceLocation& where) {
        std::istringstream in(source);
        std::string name, word;
        in >> name;
        std::vector<std::string> words;
        while (in >> word)
            words.push_back(word);
        return engine.runCommand(name, TargList::fromWords(name, words).args(),
                                 TsourceLocation{where.file, 40});
    });
}

} // namespace

class CommandEngineRun : public HostCommandFixture {
protected:
    void SetUp() override {
        HostCommandFixture::SetUp();
        engine.registerCommand<TprobeAction>("probe");
        engine.registerCommand<TouterAction>("outer");
        engine.registerCommand<TtoolCmd>("tool");
    }
};

TEST_F(CommandEngineRun, ResultsComeBackTypedAndEchoInTheirTextForm) {
    EXPECT_EQ(run("probe", {"-i", "42"}), TscriptValue(42));
    EXPECT_EQ(run("probe", {"-v", "1", "0.1", "-2e-07"}), TscriptValue(TscriptVector{1.0, 0.1, -2e-07}));
    EXPECT_EQ(run("probe", {"-s", "a", "-s", "b c"}), TscriptValue(std::vector<std::string>{"a", "b c"}));
    // Nothing set is nothing returned.
    EXPECT_TRUE(run("probe", {}).isNone());

    engine.result(TscriptValue(TscriptVector{1.0, 0.1, -2e-07}));
    engine.result(TscriptValue(std::vector<int>{1, 2, 3}));
    engine.result(TscriptValue(2.5));
    engine.result(TscriptValue()); // no line for nothing
    EXPECT_EQ(out.str(), "// Result: 1 0.1 -2e-07 //\n// Result: 1 2 3 //\n// Result: 2.5 //\n");
    EXPECT_EQ(err.str(), "");
}

TEST_F(CommandEngineRun, AppendResultBuildsArrays) {
    engine.clearResult();
    engine.appendResult("a");
    engine.appendResult(std::string("b"));
    EXPECT_EQ(engine.result(), TscriptValue(std::vector<std::string>{"a", "b"}));
    engine.clearResult();
    engine.appendResult(1);
    engine.appendResult(2);
    EXPECT_EQ(engine.result(), TscriptValue(std::vector<int>{1, 2}));
    engine.appendResult(0.5); // ints widen to floats
    EXPECT_EQ(engine.result(), TscriptValue(std::vector<double>{1.0, 2.0, 0.5}));
    engine.setResult(std::string("first"));
    engine.appendResult("second");
    EXPECT_EQ(engine.result(), TscriptValue(std::vector<std::string>{"first", "second"}));
    engine.setResult(std::size_t{7});
    EXPECT_EQ(engine.result(), TscriptValue(7));
}

TEST_F(CommandEngineRun, ErrorsNameFileLineAndAreReportedOnce) {
    try {
        run("probe", {"-foo"}, 12);
        FAIL() << "expected a failure";
    } catch (const TscriptError& e) {
        EXPECT_TRUE(e.reported());
        EXPECT_STREQ(e.what(), "probe: invalid flag '-foo'");
        EXPECT_EQ(e.where().file, "scene.ms");
        EXPECT_EQ(e.where().line, 12);
    }
    EXPECT_EQ(err.str(), "// Error: scene.ms:12: probe: invalid flag '-foo' //\n");

    // A command that showed its own message and then failed: one line only.
    err.str("");
    EXPECT_EQ(failure("probe", {"-msg", "-f", "-1"}), "probe: the message of its own");
    EXPECT_EQ(err.str(), "// Error: scene.ms:1: probe: the message of its own //\n");

    // Failures without a message get a plain one, with the code when it says something.
    err.str("");
    EXPECT_EQ(failure("probe", {"-f", "5"}), "probe: command failed (code 5)");
    EXPECT_EQ(failure("probe", {"-st", "3"}), "probe: command failed (code 3)");
    EXPECT_EQ(failure("probe", {"-f", "-1"}), "probe: command failed");
    EXPECT_EQ(engine.errorCount(), 5);

    // An unknown command is the interpreter's to report.
    try {
        run("nosuch", {});
        FAIL() << "expected a failure";
    } catch (const TscriptError& e) {
        EXPECT_FALSE(e.reported());
    }
    EXPECT_EQ(engine.errorCount(), 5);
}

TEST_F(CommandEngineRun, MessagesAndTheirFormats) {
    engine.displayWarning("frame 3: nothing to emit");
    engine.displayWarning("shown once", true);
    engine.displayWarning("shown once", true);
    engine.displayError("outside any command"); // no location: no file part
    engine.error({"fx.ms", 9}, "told by the interpreter");
    engine.displayError(1818);
    EXPECT_EQ(err.str(), "// Warning: frame 3: nothing to emit //\n"
                         "// Warning: shown once //\n"
                         "// Error: outside any command //\n"
                         "// Error: fx.ms:9: told by the interpreter //\n"
                         "// Error: no active model to work in //\n");
    EXPECT_EQ(engine.warningCount(), 2);
    EXPECT_EQ(engine.errorCount(), 3);
    TmessageTable::set(90001, "a text of our own");
    EXPECT_EQ(TmessageTable::text(90001), "a text of our own");
    EXPECT_EQ(TmessageTable::text(90002), "message 90002");

    run("probe", {"-w", "careful"}, 4);
    EXPECT_NE(err.str().find("// Warning: careful //\n"), std::string::npos);
    engine.output("printed\n");
    EXPECT_EQ(out.str(), "printed\n");
}

TEST_F(CommandEngineRun, NestedCallsKeepTheCallersResultAndLocation) {
    useWordEvaluator(engine);
    TscriptValue result = run("outer", {"probe -i 5"}, 3);
    // The inner command's result does not leak into the outer one.
    EXPECT_EQ(result, TscriptValue(std::vector<std::string>{"before", "after"}));
    EXPECT_EQ(TouterAction::seenLocation.line, 3);
    EXPECT_EQ(engine.depth(), 0);
    EXPECT_EQ(engine.currentCommand(), nullptr);

    // An error inside reports the inner location and stops the outer command.
    err.str("");
    EXPECT_EQ(failure("outer", {"probe -bad"}), "probe: invalid flag '-bad'");
    EXPECT_EQ(err.str(), "// Error: scene.ms:40: probe: invalid flag '-bad' //\n");

    // A missing argument read through at() is an error, not a crash.
    EXPECT_EQ(failure("outer", {}), "outer: missing argument 1 (0 given)");

    // executeScript from C++ outside any command.
    EXPECT_EQ(engine.executeScript("probe -i 8"), TscriptValue(8));
    TcommandEngine bare;
    EXPECT_THROW(bare.executeScript("probe"), TscriptError);
}

TEST_F(CommandEngineRun, TheRunningEngineIsCurrent) {
    TcommandEngine other;
    std::ostringstream otherErr;
    other.setErrorStream(&otherErr);
    other.registerCommand<TprobeAction>("probe");
    // Not made current, yet its commands talk to it while they run.
    other.runCommand("probe", TargList::fromWords("probe", {"-w", "here"}).args(), {});
    EXPECT_EQ(otherErr.str(), "// Warning: here //\n");
    EXPECT_EQ(err.str(), "");
    EXPECT_EQ(&TcommandEngine::current(), &engine);
}

TEST_F(CommandEngineRun, CommandTableLocalBeforeGlobal) {
    EXPECT_TRUE(engine.hasCommand("probe"));
    EXPECT_TRUE(engine.hasCommand("undo")); // registered by the library itself
    EXPECT_FALSE(engine.hasCommand("probeX"));
    TcommandEngine other;
    EXPECT_FALSE(other.hasCommand("probe"));

    auto names = engine.commandNames();
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_NE(std::find(names.begin(), names.end(), "optionVar"), names.end());

    EXPECT_TRUE(TmetaCommand::enter<TprobeAction>("testProbeGlobal"));
    EXPECT_FALSE(TmetaCommand::enter<TprobeAction>("testProbeGlobal")); // the first stays
    EXPECT_TRUE(other.hasCommand("testProbeGlobal"));
    EXPECT_TRUE(TmetaCommand::deregisterCommand("testProbeGlobal"));
    EXPECT_FALSE(other.hasCommand("testProbeGlobal"));
}

TEST_F(CommandEngineRun, ToolsEchoTheCommandLineTheyStandFor) {
    run("tool", {"-x", "1"});
    EXPECT_EQ(out.str(), "");
    engine.setCommandEcho(true);
    TargList args("tool", {});
    args.addFlag("n").add(TscriptValue("say \"hi\"")).add(TscriptValue(2.5));
    args.add(TscriptValue(TscriptVector{1, 2, 3})).add(TscriptValue(std::vector<std::string>{"a", "b"}));
    engine.run(args);
    EXPECT_EQ(out.str(), "tool -n \"say \\\"hi\\\"\" 2.5 <<1, 2, 3>> {\"a\", \"b\"};\n");
}

TEST_F(CommandEngineRun, LongWorkSeesInterruptsAndReportsProgress) {
    EXPECT_FALSE(engine.interruptRequested()); // no flag: never
    std::atomic<bool> stop{false};
    engine.setInterruptFlag(&stop);
    EXPECT_FALSE(engine.interruptRequested());
    stop = true;
    EXPECT_TRUE(engine.interruptRequested());

    engine.progress("runup", 1, 10); // no handler: nothing happens
    std::vector<std::string> seen;
    engine.setProgressHandler([&](const std::string& what, long long done, long long total) {
        seen.push_back(what + " " + std::to_string(done) + "/" + std::to_string(total));
    });
    engine.progress("runup", 3, 10);
    EXPECT_EQ(seen, std::vector<std::string>{"runup 3/10"});
}
