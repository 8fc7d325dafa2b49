// Saved scenes play as the scenes they were saved from: each example scene,
// saved at its start frame and opened again (in the same program and in a
// fresh one), prints the same numbers and writes the same files.

#include "ProgramRunner.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

namespace {

namespace fs = std::filesystem;

// Every particle object's particles and every transform's place, to the last bit.
const char* const kDump = R"(
string $objects[] = `ls -type particle`;
for ($o in $objects) {
    int $n = `particle -q -ct $o`;
    print ($o + " " + $n + "\n");
    if ($n > 0) {
        print `getParticleAttr -at position $o`;
        print `getParticleAttr -at velocity $o`;
        print `getParticleAttr -at particleId $o`;
    }
}
string $transforms[] = `ls -type transform`;
for ($t in $transforms) {
    float $at[] = `getAttr ($t + ".translate")`;
    print ($t + " " + $at[0] + " " + $at[1] + " " + $at[2] + "\n");
}
)";

struct Example {
    const char* file;
    const char* anchor; // the scene is saved and opened again just before this text
    const char* play;   // what plays it when the example itself does not
};

const Example kExamples[] = {
    {"fields.mls", "for ($f = 2; $f <= 48; $f++) currentTime $f;", ""},
    {"collisions.mls", "for ($f = 2; $f <= 72; $f++) {", ""},
    {"particle_fountain.mls", "currentTime 1;\nfor ($f = 2", ""},
    {"keyed_transform.mls", "currentTime 6;", ""},
    {"export.mls", "// One \".pdc\"", ""},
    {"demo.mls", "", "for ($f = 2; $f <= 48; $f++) currentTime $f;\n"},
};

std::map<std::string, std::string> filesUnder(const fs::path& dir) {
    std::map<std::string, std::string> out;
    if (!fs::exists(dir)) return out;
    for (const auto& e : fs::recursive_directory_iterator(dir))
        if (e.is_regular_file() && e.path().extension() != ".mls")
            out[fs::relative(e.path(), dir).string()] = readFile(e.path().string());
    return out;
}

// The example split where the scene is saved: what makes the scene, and what plays it.
std::pair<std::string, std::string> split(const Example& ex) {
    const std::string text = readFile(std::string(MOTILANE_SOURCE_DIR) + "/examples/" + ex.file);
    const std::size_t at = *ex.anchor ? text.find(ex.anchor) : text.size();
    EXPECT_NE(at, std::string::npos) << ex.file;
    return {text.substr(0, at), text.substr(at) + ex.play + kDump};
}

TEST(SceneFileScene, ExamplesPlayTheSameAfterSavingAndOpening) {
    for (const Example& ex : kExamples) {
        const auto [setup, play] = split(ex);
        const fs::path dir = fs::path(writeScript("unused.mls", "")).parent_path() / "saved" / ex.file;
        fs::remove_all(dir);
        fs::create_directories(dir);
        const std::string scene = (dir / "scene.mls").string();

        ProgramRun original =
            runProgram({"--project", (dir / "a").string(), writeScript("a.mls", setup + play)});
        ASSERT_EQ(original.status, 0) << ex.file << ": " << original.err;
        ASSERT_FALSE(original.out.empty()) << ex.file;

        // Saved and opened again inside one run: the script's own variables and procedures stay.
        const std::string reopen = "file -save \"" + scene + "\";\nfile -open -force \"" + scene + "\";\n";
        ProgramRun same =
            runProgram({"--project", (dir / "b").string(), writeScript("b.mls", setup + reopen + play)});
        ASSERT_EQ(same.status, 0) << ex.file << ": " << same.err;
        // Printed paths name each run's own project.
        std::string expected = original.out;
        for (std::size_t at; (at = expected.find((dir / "a").string())) != std::string::npos;)
            expected.replace(at, (dir / "a").string().size(), (dir / "b").string());
        EXPECT_EQ(same.out, expected) << ex.file;
        EXPECT_EQ(filesUnder(dir / "b"), filesUnder(dir / "a")) << ex.file;
    }
}

// The batch form: one program saves, another opens the file and plays it.
TEST(SceneFileScene, AFreshProgramPlaysASavedScene) {
    const auto [setup, play] = split(kExamples[0]);
    const fs::path dir = fs::path(writeScript("unused.mls", "")).parent_path() / "batch";
    fs::remove_all(dir);
    fs::create_directories(dir);
    const std::string scene = (dir / "fields.mls").string();
    ProgramRun original = runProgram({writeScript("whole.mls", setup + play)});
    ASSERT_EQ(original.status, 0) << original.err;

    ProgramRun save = runProgram({writeScript("save.mls", setup + "file -save \"" + scene + "\";\n")});
    ASSERT_EQ(save.status, 0) << save.err;
    ProgramRun opened = runProgram({"--open", scene, writeScript("play.mls", play)});
    ASSERT_EQ(opened.status, 0) << opened.err;
    EXPECT_EQ(opened.out, original.out);

    // And the file itself repeats to the byte.
    ProgramRun again = runProgram({"--open", scene, "-c", "file -save \"" + scene + ".again.mls\""});
    ASSERT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(readFile(scene + ".again.mls"), readFile(scene));

    ProgramRun bad = runProgram({"--open", (dir / "none.mls").string(), "-c", "print 1"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.err.find("none.mls: no such file"), std::string::npos) << bad.err;
    EXPECT_EQ(bad.out, "");
}

// The example: both forms saved, a change dropped only with -force, the binary file played.
TEST(SceneFileScene, TheExampleSavesOpensAndPlays) {
    const fs::path project = fs::path(writeScript("unused.mls", "")).parent_path() / "example";
    fs::remove_all(project);
    fs::create_directories(project);
    ProgramRun r = runProgram(
        {"--project", project.string(), std::string(MOTILANE_SOURCE_DIR) + "/examples/scene_files.mls"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("changes not saved: 1\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("gravity after opening the text file: 9.8\n"), std::string::npos) << r.out;
    const std::size_t at = r.out.find("first drop at height ");
    ASSERT_NE(at, std::string::npos) << r.out;
    EXPECT_GE(std::stod(r.out.substr(at + 21)), 0.0) << "the drop went through the ground";
    EXPECT_TRUE(fs::exists(project / "rain.mls"));
    EXPECT_TRUE(fs::exists(project / "rain.mlb"));
}

} // namespace
