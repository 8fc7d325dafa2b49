// Emitters as users meet them in the program: the emitter and connectDynamic
// -em commands, births counted frame by frame, bad input stopping a script,
// and the demo's fountain and shedding sheet.

#include "ProgramRunner.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

namespace {

namespace fs = std::filesystem;

// Lines of a text that start with a prefix.
std::size_t countLines(const std::string& text, const std::string& prefix) {
    std::size_t n = 0;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (line.rfind(prefix, 0) == 0) ++n;
    return n;
}

TEST(EmitterScene, AnEmitterFeedsAParticleObjectOneBirthAFrame) {
    ProgramRun r = runProgram({"-c", "particle -n p; emitter -r 24 -spd 0; connectDynamic -em emitter1 p;"
                                     "for ($f = 2; $f <= 25; $f++) currentTime $f;"
                                     "particle -q -ct p;"});
    ASSERT_EQ(r.status, 0) << r.err;
    // The emitter's name, connectDynamic's list, then 24 steps at 24 a second: 24 births.
    EXPECT_NE(r.out.find("// Result: emitter1 //\n// Result: emitter1 //\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("// Result: 24 //"), std::string::npos) << r.out;
    EXPECT_EQ(r.err, "");
}

// Undo and redo give back a working emitter: its time, its owner and its connections return with it.
TEST(EmitterScene, AnEmitterUndoneAndRedoneStillEmits) {
    const std::pair<const char*, const char*> scenes[] = {
        {"particle -n drops; emitter -n jet -pos 0 1 0 -r 24; connectDynamic -em jet drops;",
         "undo; undo; redo; redo;"},
        {"polyPlane -n sheet; particle -n drops; select -r sheet; emitter -n shed -type surface -r 40; "
         "select -cl;"
         "connectDynamic -em shed drops;",
         "undo; undo; redo; redo;"},
    };
    for (const auto& [scene, undoRedo] : scenes) {
        const std::string play =
            "for ($f = 2; $f <= 24; $f++) currentTime $f; print (`particle -q -ct drops` + \"\\n\");";
        ProgramRun straight = runProgram({"-c", std::string(scene) + play});
        ProgramRun redone = runProgram({"-c", std::string(scene) + undoRedo + play});
        ASSERT_EQ(straight.status, 0) << straight.err;
        ASSERT_EQ(redone.status, 0) << redone.err;
        const std::string count = straight.out.substr(straight.out.rfind("//\n") + 3);
        EXPECT_GT(std::stoi(count), 10) << scene;
        EXPECT_EQ(redone.out.substr(redone.out.rfind("//\n") + 3), count) << scene;
    }
}

TEST(EmitterScene, BadEmitterInputStopsTheScriptWithAMessage) {
    const std::string script =
        writeScript("bademitter.mls", "particle -n p;\nemitter -type sideways;\nprint \"after\\n\";\n");
    ProgramRun r = runProgram({script});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(
        r.err.find("bademitter.mls:2: emitter: unknown value 'sideways' for -type; use omni, direction, "
                   "surface, curve or volume"),
        std::string::npos)
        << r.err;
    EXPECT_EQ(r.out.find("after"), std::string::npos);

    r = runProgram({"-c", "emitter -r -1;"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("emitter: -rate cannot be negative"), std::string::npos) << r.err;

    r = runProgram({"-c", "particle -n p; gravity -n g; connectDynamic -em g p;"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("connectDynamic: 'g' is not an emitter"), std::string::npos) << r.err;

    // A range that makes no sense is a warning; the script goes on and nothing is born.
    r = runProgram({"-c", "particle -n p; emitter -n e -mxd 1 -mnd 2; connectDynamic -em e p;"
                          "for ($f = 2; $f <= 5; $f++) currentTime $f; particle -q -ct p;"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("// Warning: emitter: maxDistance 1.000000 is below minDistance 2.000000"),
              std::string::npos)
        << r.err;
    EXPECT_NE(r.out.find("// Result: 0 //"), std::string::npos) << r.out;
}

TEST(EmitterScene, TheDemosEmittersFillTheirObjectsAtTheirRates) {
    const fs::path out = fs::path(writeScript("unused.mls", "")).parent_path() / "demo-emitters";
    fs::remove_all(out);
    ProgramRun r = runProgram({"demo", "--out", out.string()});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string text = readFile((out / "emitted_positions.txt").string());
    // 47 steps of 1/24 s: the jet at 60 a second makes 117 (117.5 less the carried half); the 2 by 2 sheet
    // at 40 a second per unit of area makes 160 a second, 313 (313.3). A drop that splits on its second
    // bounce ends and leaves three shards, none of which die.
    const std::size_t fountain = countLines(text, "48 fountainShape ");
    const std::size_t shards = countLines(text, "48 shardsShape ");
    EXPECT_GT(shards, 0u);
    EXPECT_EQ(shards % 3, 0u);
    EXPECT_EQ(fountain + shards / 3, 117u);
    EXPECT_EQ(countLines(text, "48 flakesShape "), 313u);
    EXPECT_EQ(countLines(text, "1 "), 0u);
    std::size_t files = 0;
    for (const auto& e : fs::directory_iterator(out / "particles")) {
        EXPECT_EQ(e.path().extension(), ".pdc") << e.path();
        ++files;
    }
    EXPECT_EQ(files, 4u * 48u); // spray, fountain, flakes, shards
    // Nothing falls through the ground at y = -0.5.
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream in(line);
        std::string frame, object;
        double id = 0, x = 0, y = 0, z = 0;
        if (!(in >> frame >> object >> id >> x >> y >> z) || object == "flakesShape") continue;
        EXPECT_GE(y, -0.5) << line;
    }
}

} // namespace
