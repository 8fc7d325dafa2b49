// Session preferences and the workspace, through their commands and stores.

#include "CommandTestSupport.h"
#include "Host/Command/ToptionVars.h"
#include "Host/Command/TworkspaceRoot.h"

#include <filesystem>

class OptionVarCommand : public HostCommandFixture {
protected:
    void SetUp() override {
        HostCommandFixture::SetUp();
        ToptionVars::clear();
    }
    void TearDown() override {
        ToptionVars::clear();
        HostCommandFixture::TearDown();
    }
};

TEST_F(OptionVarCommand, ValuesRoundTripWithTheirTypes) {
    run("optionVar", {"-iv", "runupFrames", "24", "-fv", "dropoff", "0.25", "-sv", "cacheName", "fountain"});
    EXPECT_EQ(ToptionVars::intValue("runupFrames", -1), 24);
    EXPECT_DOUBLE_EQ(ToptionVars::floatValue("dropoff", -1.0), 0.25);
    EXPECT_EQ(ToptionVars::stringValue("cacheName"), "fountain");
    EXPECT_EQ(run("optionVar", {"-q", "runupFrames"}), TscriptValue(24));
    EXPECT_EQ(run("optionVar", {"-query", "dropoff"}), TscriptValue(0.25));
    EXPECT_EQ(run("optionVar", {"-q", "cacheName"}), TscriptValue("fountain"));

    // Several of one kind in one call.
    run("optionVar", {"-iv", "a", "1", "-iv", "b", "2"});
    EXPECT_EQ(ToptionVars::intValue("a"), 1);
    EXPECT_EQ(ToptionVars::intValue("b"), 2);
    EXPECT_EQ(run("optionVar", {"-list"}),
              TscriptValue(std::vector<std::string>{"a", "b", "cacheName", "dropoff", "runupFrames"}));

    // A later set of another kind replaces the value.
    run("optionVar", {"-sv", "a", "text"});
    EXPECT_EQ(ToptionVars::intValue("a", 9), 9); // no longer reads as a number
    EXPECT_EQ(ToptionVars::stringValue("a"), "text");
}

TEST_F(OptionVarCommand, ExistsRemoveAndAbsentNames) {
    EXPECT_EQ(run("optionVar", {"-ex", "x"}), TscriptValue(0));
    EXPECT_EQ(run("optionVar", {"-q", "x"}), TscriptValue(0));
    EXPECT_EQ(ToptionVars::intValue("x", 7), 7);
    run("optionVar", {"-iv", "x", "3"});
    EXPECT_EQ(run("optionVar", {"-exists", "x"}), TscriptValue(1));
    run("optionVar", {"-rm", "x"});
    EXPECT_FALSE(ToptionVars::exists("x"));
    EXPECT_NO_THROW(run("optionVar", {"-remove", "x"}));
}

TEST_F(OptionVarCommand, AppendBuildsArrays) {
    run("optionVar", {"-iv", "frames", "1", "-iva", "frames", "5", "-iva", "frames", "9"});
    EXPECT_EQ(run("optionVar", {"-q", "frames"}), TscriptValue(std::vector<int>{1, 5, 9}));
    run("optionVar", {"-sva", "paths", "a", "-sva", "paths", "b"});
    EXPECT_EQ(ToptionVars::value("paths"), TscriptValue(std::vector<std::string>{"a", "b"}));
    run("optionVar", {"-fva", "w", "0.5"});
    EXPECT_EQ(ToptionVars::value("w"), TscriptValue(std::vector<double>{0.5}));
}

TEST_F(OptionVarCommand, BadValuesAreNamed) {
    EXPECT_EQ(failure("optionVar", {"-iv", "a", "abc"}),
              "optionVar: flag '-intValue' expects an integer, got 'abc'");
    EXPECT_EQ(failure("optionVar", {"-fv", "a"}), "optionVar: missing argument for flag '-floatValue'");
    EXPECT_FALSE(ToptionVars::exists("a"));
}

class WorkspaceCommand : public HostCommandFixture {
protected:
    void SetUp() override {
        HostCommandFixture::SetUp();
        TworkspaceRoot::reset();
    }
    void TearDown() override {
        TworkspaceRoot::reset();
        HostCommandFixture::TearDown();
    }
};

TEST_F(WorkspaceCommand, RootDefaultsToTheWorkingDirectoryAndCanBeSet) {
    EXPECT_EQ(run("workspace", {"-q", "-rd"}), TscriptValue(std::filesystem::current_path().string()));
    run("workspace", {"-rootDirectory", "/tmp/shots/sh010/"});
    EXPECT_EQ(run("workspace", {"-q", "-rootDirectory"}), TscriptValue("/tmp/shots/sh010"));
    EXPECT_EQ(TworkspaceRoot::get(), "/tmp/shots/sh010");
    EXPECT_EQ(TworkspaceRoot::directoryFor("particles"), "/tmp/shots/sh010/particles");
    EXPECT_EQ(TworkspaceRoot::directoryFor("no such rule"), "/tmp/shots/sh010");
    EXPECT_EQ(failure("workspace", {"-rd", ""}),
              "workspace: flag '-rootDirectory' expects a directory, got ''");
}

TEST_F(WorkspaceCommand, FileRulesQueryAndSet) {
    EXPECT_EQ(run("workspace", {"-q", "-fileRule", "particles"}), TscriptValue("particles"));
    run("workspace", {"-fr", "particles", "sim/pdc/"});
    EXPECT_EQ(run("workspace", {"-q", "-fr", "particles"}), TscriptValue("sim/pdc"));
    TworkspaceRoot::set("/proj");
    EXPECT_EQ(TworkspaceRoot::directoryFor("particles"), "/proj/sim/pdc");
    TworkspaceRoot::setFileRule("particles", "/abs/pdc");
    EXPECT_EQ(TworkspaceRoot::directoryFor("particles"), "/abs/pdc");

    EXPECT_EQ(run("workspace", {"-q", "-fr", "nothing"}), TscriptValue(""));
    EXPECT_EQ(err.str(), "// Warning: workspace: no file rule 'nothing' //\n");
    TscriptValue names = run("workspace", {"-q", "-fileRuleList"});
    ASSERT_EQ(names.type(), TscriptType::StringArray);
    EXPECT_NE(std::find(names.stringArray().begin(), names.stringArray().end(), "particles"),
              names.stringArray().end());
    EXPECT_EQ(failure("workspace", {"-q"}), "workspace: nothing to query");
}
