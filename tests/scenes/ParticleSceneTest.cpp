// Particle objects as users meet them in the program: made, stepped by
// moving time, read back, and refused when the input is bad.

#include "ProgramRunner.h"

#include <gtest/gtest.h>

#include <tuple>

#include <cstdio>

#include <filesystem>

namespace {

TEST(ParticleScene, VelocityCarriesAParticleFrameByFrame) {
    // 24 units a second for 4 frames of 1/24 s: each step adds 24 * (250/6000),
    // which rounds to exactly 1.
    ProgramRun r = runProgram({"-c", "particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 0 24 0 p;"
                                     "for ($f = 2; $f <= 5; $f++) currentTime $f;"
                                     "getParticleAttr -at position p; particle -q -ct p;"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("// Result: 0 4 0 //\n// Result: 1 //\n"), std::string::npos) << r.out;
}

TEST(ParticleScene, EmittedParticlesJoinTheRunningObject) {
    ProgramRun r =
        runProgram({"-c", "particle -n p -p 0 0 0; currentTime 2; emit -object p -pos 1 2 3 -pos 4 5 6;"
                          "getParticleAttr -at particleId p; getParticleAttr -at position p.pt[2];"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("// Result: 2 //\n// Result: 0 1 2 //\n// Result: 4 5 6 //\n"), std::string::npos)
        << r.out;
}

TEST(ParticleScene, AMalformedGridStopsTheScriptWithAMessage) {
    std::string script =
        writeScript("badgrid.mls", "particle -n g -ll 0 0 0 -ur 1 1 1 -grs -2;\nprint \"after\\n\";\n");
    ProgramRun r = runProgram({script});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("badgrid.mls:1: particle: -gridSpacing must be greater than 0"), std::string::npos)
        << r.err;
    EXPECT_EQ(r.out.find("after"), std::string::npos);
}

// 0/0 in a script makes NaN; it stops where it enters instead of spreading through a cache.
TEST(ParticleScene, ANonFiniteValueStopsWhereItEnters) {
    const std::pair<const char*, const char*> cases[] = {
        {"particle -e -id 0 -at velocity -vv (0/$z) 0 0 p;",
         "flag '-vectorValue' expects a number, got '-nan'"},
        {"setParticleAttr -at position -vv 0 (1/$z) 0 p;", "which is not a finite number"},
        {"emit -object p -pos <<0, 0, -1/$z>>;", "which is not a finite number"},
        {"setAttr p.translateX (1/$z);", "got 'inf', which is not a finite number"},
    };
    for (const auto& [command, message] : cases) {
        ProgramRun r = runProgram({"-c", std::string("particle -n p -p 0 0 0; float $z = 0; ") + command +
                                             " print `getParticleAttr -at position p`;"});
        EXPECT_EQ(r.status, 1) << command;
        EXPECT_NE(r.err.find(message), std::string::npos) << command << ": " << r.err;
        EXPECT_EQ(r.out.find("nan"), std::string::npos) << command << ": " << r.out;
    }
}

// Steps of a frame must fill it exactly: at 24 units a second a particle is at 24 after one second with
// any over-sampling the clock can divide a frame into; one it cannot is refused, naming the choices.
TEST(ParticleScene, OverSamplingKeepsFramesOnTime) {
    for (const auto& [unit, fps, os] :
         {std::tuple{"film", 24, 5}, std::tuple{"film", 24, 10}, std::tuple{"pal", 25, 3},
          std::tuple{"pal", 25, 8}, std::tuple{"pal", 25, 16}}) {
        const std::string script =
            "currentUnit -t " + std::string(unit) + "; dynGlobals -os " + std::to_string(os) +
            "; particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv " + std::to_string(fps) +
            " 0 0 p; for ($f = 2; $f <= " + std::to_string(fps + 1) +
            "; $f++) currentTime $f; getParticleAttr -at position p.pt[0];";
        ProgramRun r = runProgram({"-c", script});
        ASSERT_EQ(r.status, 0) << unit << " " << os << ": " << r.err;
        const std::size_t at = r.out.rfind("// Result: ");
        ASSERT_NE(at, std::string::npos) << r.out;
        EXPECT_NEAR(std::stod(r.out.substr(at + 11)), fps, 1e-9) << unit << " -os " << os;
    }
    ProgramRun r = runProgram({"-c", "dynGlobals -os 3"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("-overSampling 3 does not divide a frame (250 ticks in film)"), std::string::npos)
        << r.err;
    EXPECT_NE(r.err.find("use 1, 2, 5, 10, 25, 50, 125, 250"), std::string::npos) << r.err;
}

// Commands that edit particles in place undo themselves, never the command before them, and redo.
TEST(ParticleScene, ParticleEditsUndoAndRedo) {
    const char* setup = "particle -n p -p 0 0 0;\n";
    const std::pair<const char*, const char*> cases[] = {
        {"setParticleAttr -at velocity -vv 4 5 6 p;", "print `getParticleAttr -at velocity p`;"},
        {"emit -object p -pos 1 1 1 -pos 2 2 2;",
         "print `particle -q -ct p`; print `getParticleAttr -at particleId p`;"},
        {"addPP -atr rgbPP p;", "print `objExists pShape.rgbPP`; print `objExists pShape.rgbPP0`;"},
        {"setParticleAttr -at position -vv 7 0 0 p; saveInitialState p;",
         "currentTime 2; currentTime 1; print `getParticleAttr -at position p`;"},
    };
    auto run = [&](const std::string& body) {
        ProgramRun r = runProgram({writeScript("edit.mls", std::string(setup) + body + "\n")});
        EXPECT_EQ(r.status, 0) << body << r.err;
        return r.out;
    };
    for (const auto& [edit, show] : cases) {
        const std::string before = run(show);
        const std::string after = run(std::string(edit) + show);
        EXPECT_NE(after, before) << edit;
        EXPECT_EQ(run(std::string(edit) + " undo; print (`objExists p` + \"|\");" + show), "1|" + before)
            << edit;
        EXPECT_EQ(run(std::string(edit) + " undo; redo;" + show), after) << edit;
    }
}

// Requests for more than the machine holds are refused before anything is allocated, saying how much.
TEST(ParticleScene, OversizedRequestsAreRefusedSayingHowMuch) {
    const std::pair<const char*, const char*> cases[] = {
        {"particle -ll 0 0 0 -ur 4294967295 4294967295 0 -grs 1",
         "the grid would make 1.84e+19 particles (4294967296 x 4294967296 x 1), more than the 50000000"},
        {"particle -ll 0 0 0 -ur 1 1 1 -grs 1e-300", "the grid would make inf particles"},
        {"particle -n p; event -spl 100000000 p",
         "-split 100000000 is more than the 10000 particles a hit can make"},
        {"particle -n p; event -em 20000 p", "-emit 20000 is more than the 10000"},
    };
    for (const auto& [command, message] : cases) {
        ProgramRun r = runProgram({"-c", command});
        EXPECT_EQ(r.status, 1) << command;
        EXPECT_NE(r.err.find(message), std::string::npos) << command << ": " << r.err;
    }
}

TEST(ParticleScene, DemoWritesParticlePositionsPerFrame) {
    const std::string out =
        (std::filesystem::path(writeScript("unused.mls", "")).parent_path() / "demo").string();
    ProgramRun r = runProgram({"demo", "--out", out, "--frames", "48"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string text = readFile(out + "/particle_positions.txt");
    EXPECT_NE(text.find("\n1 0 0 0 0\n"), std::string::npos);
    // Particle 4 leaves at 6 units a second straight up; free flight would put it at
    // 11.75 after 47 steps of 1/24 s, but gravity (9.8) takes about 18.8 of that back.
    const auto at = text.find("\n48 4 ");
    ASSERT_NE(at, std::string::npos);
    double x = 0, y = 0, z = 0;
    ASSERT_EQ(std::sscanf(text.c_str() + at, "\n48 4 %lf %lf %lf", &x, &y, &z), 3);
    EXPECT_LT(y, 11.75 - 15.0);
    EXPECT_GT(y, 11.75 - 25.0);
}

} // namespace

namespace {

TEST(ParticleScene, FountainExampleRuns) {
    // Emissions at frames 4, 8, ... 48 get ids 9 to 20; with one second to live
    // only those born at frame 28 or later are left at frame 48: ids 15 to 20.
    ProgramRun r = runProgram({std::string(MOTILANE_SOURCE_DIR) + "/examples/particle_fountain.mls"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(
        r.out,
        "frame 12, corner particle on its goal: yes\nframe 48, particles alive: 6\nlowest id alive: 15\n");
    EXPECT_EQ(r.err, "");
}

} // namespace
