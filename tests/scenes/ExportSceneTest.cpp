// Exports as users run them: the example scene through the program, files
// checked byte by byte where the layout fixes them.

#include "ProgramRunner.h"

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

double bigEndianDouble(const std::string& bytes, std::size_t at) {
    std::uint64_t u = 0;
    for (int k = 0; k < 8; ++k)
        u = (u << 8) | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(k)]);
    return std::bit_cast<double>(u);
}

TEST(ExportScene, TheExampleWritesEveryFormatUnderTheProject) {
    const fs::path project = fs::path(writeScript("unused.mls", "")).parent_path() / "exported";
    fs::remove_all(project);
    ProgramRun r = runProgram(
        {"--project", project.string(), std::string(MOTILANE_SOURCE_DIR) + "/examples/export.mls"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("wrote 24 cache files\n"), std::string::npos) << r.out;
    // readPDC prints the last file: two steps of 1/48 s a frame at 24 units a
    // second move each particle half a unit a step, exactly.
    EXPECT_NE(r.out.find("position (vector array):  23 0 0  0 24 0\n"), std::string::npos) << r.out;

    const fs::path particles = project / "particles";
    std::size_t pdc = 0;
    for (const auto& e : fs::directory_iterator(particles / "spray")) {
        EXPECT_EQ(e.path().extension(), ".pdc") << e.path();
        ++pdc;
    }
    EXPECT_EQ(pdc, 24u);

    // Frame 12 (3000 ticks): header, then "position" as the first record.
    const std::string f12 = readFile((particles / "spray" / "sprayShape.3000.pdc").string());
    ASSERT_GT(f12.size(), 28u + 4 + 8 + 4 + 48);
    EXPECT_EQ(f12.substr(0, 4), "PDC ");
    EXPECT_EQ(f12.substr(20, 8), std::string("\0\0\0\2\0\0\0\3", 8)); // 2 particles, 3 records
    EXPECT_EQ(f12.substr(28, 12), std::string("\0\0\0\x08position", 12));
    EXPECT_EQ(bigEndianDouble(f12, 44), 11.0);          // x of particle 0 after 22 half-unit steps
    EXPECT_EQ(bigEndianDouble(f12, 44 + 24 + 8), 12.0); // y of particle 1, from 1

    // Text at a half frame has a state of its own.
    const std::string half = readFile((particles / "text" / "sprayShape.5875.pda").string());
    EXPECT_NE(half.find("BEGIN DATA\n22.5 0 0 0 \n0 23.5 0 1 \n"), std::string::npos) << half;
    EXPECT_EQ(half.rfind("ATTRIBUTES\n position id \nTYPES\n V R\nNUMBER_OF_PARTICLES: 2\n", 0), 0u) << half;

    // Binary: a 60-byte header with the magic number and the count.
    const std::string bin = readFile((particles / "binary" / "sprayShape.6000.pdb").string());
    ASSERT_GE(bin.size(), 60u);
    std::int32_t magic = 0, count = 0;
    std::memcpy(&magic, bin.data(), 4);
    std::memcpy(&count, bin.data() + 16, 4);
    EXPECT_EQ(magic, 670);
    EXPECT_EQ(count, 2);
    // No temporaries are left behind anywhere.
    for (const auto& e : fs::recursive_directory_iterator(particles))
        EXPECT_NE(e.path().extension(), ".partial") << e.path();
}

TEST(ExportScene, AnExportThatCantWriteStopsTheScript) {
    const fs::path project = fs::path(writeScript("unused.mls", "")).parent_path() / "blocked";
    fs::remove_all(project);
    fs::create_directories(project);
    std::string script = writeScript("blocked.mls", "particle -n p -p 0 0 0;\n"
                                                    "dynExport -path way -f pdc p;\n"
                                                    "print \"after\\n\";\n");
    // A plain file where the "particles" directory must go.
    std::ofstream(project / "particles") << "not a directory";
    ProgramRun r = runProgram({"--project", project.string(), script});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("dynExport: cannot make directory"), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("after"), std::string::npos);
}

TEST(ExportScene, TheDemoWritesOneParticleDataFilePerFrame) {
    const fs::path out = fs::path(writeScript("unused.mls", "")).parent_path() / "demo-pdc";
    fs::remove_all(out);
    ProgramRun r = runProgram({"demo", "--out", out.string(), "--frames", "24"});
    ASSERT_EQ(r.status, 0) << r.err;
    std::size_t n = 0;
    for (const auto& e : fs::directory_iterator(out / "particles")) {
        EXPECT_EQ(e.path().extension(), ".pdc") << e.path();
        if (e.path().filename().string().rfind("sprayShape.", 0) == 0) ++n;
    }
    EXPECT_EQ(n, 24u);
    // Frame 24 (6000 ticks): the positions agree with the text the demo writes.
    const std::string text = readFile((out / "particle_positions.txt").string());
    const std::string pdc = readFile((out / "particles" / "sprayShape.6000.pdc").string());
    ASSERT_GT(pdc.size(), 28u + 4 + 8 + 4);
    EXPECT_EQ(pdc.substr(0, 4), "PDC ");
    EXPECT_EQ(pdc.substr(28, 12), std::string("\0\0\0\x08position", 12));
    std::int32_t count = 0;
    for (int k = 0; k < 4; ++k)
        count = (count << 8) | static_cast<unsigned char>(pdc[20 + static_cast<std::size_t>(k)]);
    ASSERT_GT(count, 0);
    // Each particle's line in the text for frame 24 is "24 id x y z".
    for (std::int32_t i = 0; i < count; ++i) {
        const std::size_t at = 44 + 24 * static_cast<std::size_t>(i);
        const double x = bigEndianDouble(pdc, at), y = bigEndianDouble(pdc, at + 8),
                     z = bigEndianDouble(pdc, at + 16);
        // The text prints the shortest form that reads back the same double.
        std::string line;
        for (double v : {x, y, z}) {
            char buf[32];
            line += ' ';
            line.append(buf, std::to_chars(buf, buf + sizeof buf, v).ptr);
        }
        line += '\n';
        EXPECT_NE(text.find(line), std::string::npos) << line;
    }
}

// An export holds what playing the scene gives, wherever its range starts and however finely it samples.
TEST(ExportScene, ExportsHoldWhatPlayingGives) {
    const fs::path project = fs::path(writeScript("unused.mls", "")).parent_path() / "played";
    fs::remove_all(project);
    auto lastLine = [](const std::string& text) {
        const std::size_t begin = text.find("BEGIN DATA\n");
        return begin == std::string::npos ? std::string()
                                          : text.substr(begin + 11, text.find('\n', begin + 11) - begin - 11);
    };
    // A range ahead of the current frame: the frames before it are played first (gravity, frame 25).
    ProgramRun r = runProgram({"--project", project.string(), "-c",
                               "particle -n p -p 0 0 0; select -r p; gravity -n g; select -cl;"
                               "dynExport -path ahead -mnf 25 -mxf 25 -f pda -atr position p;"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lastLine(readFile((project / "particles/ahead/pShape.6250.pda").string())), "0 -5.1041665 0 ");
    // Samples between frames are states of their own, with the scene's steps at 1 or 5 a frame.
    for (const char* played : {"1", "5"}) {
        r = runProgram({"--project", project.string(), "-c",
                        std::string("dynGlobals -os ") + played +
                            "; particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 24 0 0 p;"
                            "dynExport -path half" +
                            played + " -mnf 1 -mxf 3 -os 2 -f pda -atr position p;"});
        ASSERT_EQ(r.status, 0) << r.err;
        for (const auto& [ticks, x] :
             {std::pair{375, "0.5"}, std::pair{500, "1"}, std::pair{625, "1.5"}, std::pair{750, "2"}}) {
            const std::string file = (project / ("particles/half" + std::string(played)) /
                                      ("pShape." + std::to_string(ticks) + ".pda"))
                                         .string();
            EXPECT_EQ(lastLine(readFile(file)), std::string(x) + " 0 0 ") << played << " " << ticks;
        }
    }
    // Requests that cannot be met are refused before anything is written or allocated.
    const std::pair<const char*, const char*> refused[] = {
        {"-os 3", "-overSampling 3 does not divide a frame (250 ticks)"},
        {"-os 2147483647", "-overSampling 2147483647 does not divide a frame"},
        {"-mxf 1e15", "files, more than the 1000000 one export writes"},
    };
    for (const auto& [flags, message] : refused) {
        r = runProgram(
            {"--project", project.string(), "-c",
             std::string("particle -n p -p 0 0 0; dynExport -path refused ") + flags + " -f pda p;"});
        EXPECT_EQ(r.status, 1) << flags;
        EXPECT_NE(r.err.find(message), std::string::npos) << flags << ": " << r.err;
    }
    EXPECT_FALSE(fs::exists(project / "particles/refused") && !fs::is_empty(project / "particles/refused"));
}

// Messages name what went wrong and where: the magic at the file's start, a folder as a folder, the
// system's reason for a script that cannot be read, the script line a failing event procedure ran from.
TEST(ExportScene, FileMessagesNameWhatAndWhere) {
    const fs::path dir = fs::path(writeScript("unused.mls", "")).parent_path() / "messages";
    fs::create_directories(dir / "folder.pdc");
    const std::string notPdc = writeScript("text.pdc", "this is text and not particle data at all\n");
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"-c", "readPDC -file \"" + notPdc + "\""},
         "not a particle data file (the magic is not \"PDC \") (at byte 0)"},
        {{"-c", "readPDC -file \"" + (dir / "folder.pdc").string() + "\""}, "folder.pdc: not a regular file"},
        {{(dir / "missing.mls").string()}, "missing.mls: No such file or directory"},
        {{(dir / "folder.pdc").string()}, "folder.pdc: not a regular file"},
    };
    for (const auto& [args, message] : cases) {
        ProgramRun r = runProgram(args);
        EXPECT_EQ(r.status, 1) << message;
        EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
    }
    const std::string events =
        writeScript("events.mls", "particle -n p -p 0 1 0; particle -e -id 0 -at velocity -vv 0 -30 0 p;\n"
                                  "polyPlane -n g; collision g p; event -pr noSuchProc p;\n"
                                  "currentTime 2;\n");
    ProgramRun r = runProgram({events});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("// Warning: " + events + ":3: event procedure 'noSuchProc' of pShape failed"),
              std::string::npos)
        << r.err;
}

// Hard stops: output that cannot be written fails the run, a file that cannot be made says why, a
// killed export's leftovers are cleared by the next, and SIGTERM stops a long run cleanly.
TEST(ExportScene, HardStopsEndCleanly) {
    const fs::path project = fs::path(writeScript("unused.mls", "")).parent_path() / "hard";
    fs::remove_all(project);
    // The runner gives standard output a file; a full one is given through a shell here.
    const std::string cmd = "'" + programPath() + "' -c 'print \"hello\\n\"' >/dev/full 2>/dev/null";
    EXPECT_NE(std::system(cmd.c_str()), 0);

    ProgramRun r = runProgram({"-c", "particle -n p -p 0 0 0; dynExport -path \"/dev/null/x\" -f pda p"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("/dev/null/x/: Not a directory"), std::string::npos) << r.err;

    fs::create_directories(project / "particles/again");
    for (const char* leftover : {"pShape.250.pda.partial", "other.250.pda.partial"})
        std::ofstream((project / "particles/again" / leftover).string()) << "half";
    r = runProgram({"--project", project.string(), "-c",
                    "particle -n p -p 0 0 0; dynExport -path again -mnf 2 -mxf 2 -f pda p"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_FALSE(fs::exists(project / "particles/again/pShape.250.pda.partial"));
    EXPECT_TRUE(fs::exists(project / "particles/again/other.250.pda.partial")); // not this export's
    EXPECT_TRUE(fs::exists(project / "particles/again/pShape.500.pda"));

    // A long export told to stop by SIGTERM finishes the file in hand and says so.
    const std::string script = writeScript("long.mls", "particle -n p -p 0 0 0; select -r p; gravity; "
                                                       "dynExport -path long -mnf 1 -mxf 20000 -f pda p;");
    const std::string term = "'" + programPath() + "' --project '" + project.string() + "' '" + script +
                             "' 2>'" + (project / "err.txt").string() +
                             "' & pid=$!; sleep 1; kill -TERM $pid; wait $pid";
    const int status = std::system(term.c_str());
    EXPECT_NE(status, 0);
    const std::string err = readFile((project / "err.txt").string());
    EXPECT_NE(err.find("interrupted at frame"), std::string::npos) << err;
    for (const auto& e : fs::directory_iterator(project / "particles/long"))
        EXPECT_NE(e.path().extension(), ".partial") << e.path();
}

} // namespace
