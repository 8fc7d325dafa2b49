// The program as users meet it: scripts, echoed results, errors and exit codes.

#include "ProgramRunner.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

TEST(Program, KeyedTransformReadsAtTheCurrentAndAtOtherTimes) {
    ProgramRun r = runProgram({std::string(MOTILANE_SOURCE_DIR) + "/examples/keyed_transform.mls"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "frame 6: 5\nframe 8, read ahead: 7\nstill at frame 6\n");
    EXPECT_EQ(r.err, "");
}

TEST(Program, CommandTextEchoesEachResult) {
    ProgramRun r = runProgram({"-c", "polySphere -n ball"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "// Result: ball ballShape //\n");

    r = runProgram({"-c", "createNode transform -n a; setAttr a.translate 1 2.5 -3; getAttr a.translate; "
                          "getAttr a.translateX; getAttr a.rotateOrder; print \"plain\\n\";"});
    EXPECT_EQ(r.out, "// Result: a //\n// Result: 1 2.5 -3 //\n// Result: 1 //\n// Result: 0 //\nplain\n");
}

TEST(Program, AValueSetUpstreamArrivesDownstream) {
    std::string script = writeScript(
        "chain.mls", "for ($i = 0; $i < 5; $i++) createNode transform -n (\"n\" + $i);\n"
                     "for ($i = 0; $i < 4; $i++)\n"
                     "    connectAttr (\"n\" + $i + \".translateX\") (\"n\" + ($i + 1) + \".translateY\");\n"
                     "for ($i = 1; $i < 4; $i++)\n"
                     "    connectAttr (\"n\" + $i + \".translateY\") (\"n\" + $i + \".translateX\");\n"
                     "setAttr n0.translateX 42;\n"
                     "print (`getAttr n4.translateY` + \"\\n\");\n");
    ProgramRun r = runProgram({script});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "42\n");
}

TEST(Program, ScriptArgumentsArriveInArgv) {
    std::string script = writeScript("args.mls", "print (size($argv) + \" \" + $argv[1] + \"\\n\");");
    ProgramRun r = runProgram({script, "first", "second"});
    EXPECT_EQ(r.out, "2 second\n");
}

struct BadInput {
    const char* name;
    const char* script;
    const char* expected; // after "// Error: FILE:"
};

// Names the case in test listings instead of its bytes.
void PrintTo(const BadInput& c, std::ostream* os) {
    *os << c.name;
}

class ProgramBadInput : public ::testing::TestWithParam<BadInput> {};

TEST_P(ProgramBadInput, ReportsWhereAndWhatAndStops) {
    const BadInput& c = GetParam();
    std::string path = writeScript(std::string("bad_") + c.name + ".mls",
                                   std::string("createNode transform -n t;\nprint \"before\\n\";\n") +
                                       c.script + "\nprint \"after\\n\";\n");
    ProgramRun r = runProgram({path});
    EXPECT_EQ(r.status, 1);
    const std::string want = "// Error: " + path + ":" + c.expected;
    EXPECT_NE(r.err.find(want), std::string::npos) << "stderr: " << r.err << "\nwanted: " << want;
    EXPECT_EQ(r.err.find("after"), std::string::npos);
    EXPECT_EQ(r.out.find("after"), std::string::npos);
    // A syntax error runs nothing; any other error leaves what ran before it done.
    if (std::string(c.name) != "syntax") {
        EXPECT_EQ(r.out, "before\n");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ProgramBadInput,
    ::testing::Values(
        BadInput{"syntax", "setAttr t.translateX (1 + ;", "3:"},
        BadInput{"unknownCommand", "frobnicate t;", "3: unknown command or procedure 'frobnicate'"},
        BadInput{"unknownFlag", "polySphere -wobble 2;", "3: polySphere: invalid flag '-wobble'"},
        BadInput{"wrongType", "polySphere -radius big;", "3: polySphere: flag '-radius' expects"},
        BadInput{"missingNode", "getAttr nobody.translateX;", "3: getAttr: no object matches name: nobody"},
        BadInput{"missingAttribute", "getAttr t.wings;", "3: getAttr: no attribute 'wings'"},
        BadInput{"indexOutOfRange", "getAttr t.translateX[99999999];", "3: getAttr: plug index out of range"},
        BadInput{"refused", "particle -n p -p 0 0 0;\nsetAttr pShape.particleRenderType 12;",
                 "4: setAttr: pShape.particleRenderType refused the value"},
        BadInput{"incompatible", "createNode transform -n u;\nconnectAttr t.worldMatrix u.translateX;",
                 "4: connectAttr: the data types of t.worldMatrix and u.translateX are not compatible"}),
    [](const ::testing::TestParamInfo<BadInput>& param) { return std::string(param.param.name); });

TEST(Program, BadUsageExitsWithTwo) {
    ProgramRun r = runProgram({"--frobnicate"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("unknown option '--frobnicate'"), std::string::npos);
    EXPECT_EQ(runProgram({}).status, 2);
    EXPECT_EQ(runProgram({"-c"}).status, 2);
    EXPECT_EQ(runProgram({"demo", "--frames", "zero"}).status, 2);
    r = runProgram({"/no/such/script.mls"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("/no/such/script.mls"), std::string::npos);
}

TEST(Program, DemoWritesTheSameBytesEveryRun) {
    const std::string out1 = ::testing::TempDir() + "motilane_demo_a";
    const std::string out2 = ::testing::TempDir() + "motilane_demo_b";
    ProgramRun a = runProgram({"demo", "--out", out1});
    ProgramRun b = runProgram({"demo", "--out", out2});
    ASSERT_EQ(a.status, 0) << a.err;
    ASSERT_EQ(b.status, 0) << b.err;
    EXPECT_NE(a.out.find("ball_positions.txt"), std::string::npos) << a.out;
    std::string first = readFile(out1 + "/ball_positions.txt");
    EXPECT_EQ(first, readFile(out2 + "/ball_positions.txt"));
    // Frame 1 starts at the origin; frame 48 ends keyed at x 10, back on the ground.
    EXPECT_NE(first.find("\n1 0 0 0\n"), std::string::npos) << first;
    EXPECT_NE(first.find("\n48 10 0 0\n"), std::string::npos) << first;
    std::filesystem::remove_all(out1);
    std::filesystem::remove_all(out2);
}

// Discovery: help lists every command, and every command lists its flags; listAttr a node's attributes.
TEST(Program, CommandsAndNodesDescribeThemselves) {
    ProgramRun all =
        runProgram({writeScript("help.mls", "string $all[] = `help`; print (size($all) + \" commands\\n\"); "
                                            "for ($c in $all) eval(\"help \" + $c);")});
    ASSERT_EQ(all.status, 0) << all.err;
    const int commands = std::stoi(all.out);
    EXPECT_GT(commands, 50);
    int synopses = 0;
    for (std::size_t at = all.out.find("Synopsis: "); at != std::string::npos;
         at = all.out.find("Synopsis: ", at + 1))
        ++synopses;
    EXPECT_EQ(synopses, commands);
    EXPECT_NE(all.out.find("Synopsis: emitter [flags] [objects]\n"), std::string::npos);
    EXPECT_NE(all.out.find("  -r -rate NUMBER\n"), std::string::npos);
    EXPECT_NE(all.out.find("  -typ -type STRING\n"), std::string::npos);

    ProgramRun attrs =
        runProgram({"-c", "particle -n p; addPP -atr rgbPP p; listAttr -ud pShape; listAttr pShape"});
    ASSERT_EQ(attrs.status, 0) << attrs.err;
    EXPECT_NE(attrs.out.find("// Result: rgbPP rgbPP0 //"), std::string::npos) << attrs.out;
    EXPECT_NE(attrs.out.find(" position "), std::string::npos) << attrs.out;

    for (const char* bad : {"help noSuchCommand", "listAttr noSuchNode"}) {
        ProgramRun r = runProgram({"-c", bad});
        EXPECT_EQ(r.status, 1) << bad;
        EXPECT_NE(r.err.find("noSuch"), std::string::npos) << r.err;
    }
}

// Times beyond what the clock holds are refused where the script gives them, never wrapped onto others.
TEST(Program, HugeTimesAreRefused) {
    const std::pair<const char*, const char*> cases[] = {
        {"currentTime 1e300", "currentTime: the frame 1e+300 is beyond the times the clock holds"},
        {"playbackOptions -min 1e23", "playbackOptions: -minTime 1e+23 is beyond"},
        {"playbackOptions -max -1e300", "playbackOptions: -maxTime -1e+300 is beyond"},
        {"particle -n p; setAttr pShape.startFrame 1e23", "pShape.startFrame refused the value"},
        {"polyCube -n c; setKeyframe -t 1e20 -v 1 c.tx", "setKeyframe: -time 1e+20 is beyond"},
        {"particle -n p; dynExport -path x -mnf 1e20 -mxf 1e20 p", "is beyond the times the clock holds"},
        {"particle -n p; runup -mxf 1e30", "-maxFrame 1e+30 is beyond"},
    };
    for (const auto& [command, message] : cases) {
        ProgramRun r = runProgram({"-c", std::string(command) + "; print \"after\\n\";"});
        EXPECT_EQ(r.status, 1) << command;
        EXPECT_NE(r.err.find(message), std::string::npos) << command << ": " << r.err;
        EXPECT_EQ(r.out.find("after"), std::string::npos) << command;
    }
}

} // namespace
