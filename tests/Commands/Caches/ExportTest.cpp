// Export drivers and dynExport: the text and binary layouts line by line and
// byte by byte, and exports of a moving particle object over a frame range.

#include "Commands/Caches/TdynExportAction.h"
#include "Commands/Caches/TdynExportDriver.h"
#include "Commands/Caches/TdynPDCDriver.h"
#include "Commands/Caches/TdynParticleImporter.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"
#include "Host/Command/TcommandEngine.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

TEST(ExportDrivers, FormatWordsChooseTheDriverAndItsExtension) {
    const std::pair<const char*, const char*> rows[] = {{"binary", ".pdb"}, {"pdb", ".pdb"},
                                                        {"ascii", ".pda"},  {"pda", ".pda"},
                                                        {"cache", ".pdc"},  {"pdc", ".pdc"}};
    for (auto [word, ext] : rows) {
        auto d = TdynExportDriver::forFormat(word);
        ASSERT_NE(d, nullptr) << word;
        EXPECT_STREQ(d->extension(), ext) << word;
    }
    EXPECT_EQ(TdynExportDriver::forFormat("Binary"), nullptr);
    EXPECT_EQ(TdynExportDriver::forFormat("obj"), nullptr);
}

TEST(ExportDrivers, TextHeaderNamesKindsAndOneLinePerParticle) {
    const T4dDblVector pos[2] = {{1, 2.5, -3}, {0.1, 0, 1e39}}; // 1e39 is beyond a float: limited
    const double ids[2] = {7, 8};
    const double ids0[1] = {7}; // short: the missing value is a zero
    const std::int32_t flags[2] = {-1, 12};
    TdynExportFrame f;
    f.count = 2;
    f.columns = {TdynExportColumn::vectorArray("position", pos, 2),
                 TdynExportColumn::doubleArray("particleId", ids, 2),
                 TdynExportColumn::doubleArray("particleId0", ids0, 1),
                 TdynExportColumn::intArray("flags", flags, 2),
                 TdynExportColumn::doubleScalar("lifespan", 0.5),
                 TdynExportColumn::intScalar("seed", 3)};
    std::ostringstream out;
    TdynASCIIDriver d;
    ASSERT_EQ(d.writeFrame(out, f), 0) << d.error();
    EXPECT_EQ(out.str(), "ATTRIBUTES\n"
                         " position id  id0  flags lifespan seed\n"
                         "TYPES\n"
                         " V R R I R I\n"
                         "NUMBER_OF_PARTICLES: 2\n"
                         "BEGIN DATA\n"
                         "1 2.5 -3 7 7 -1 0.5 3 \n"
                         "0.1 0 3.4028235e+38 8 0 12 0.5 3 \n");
}

TEST(ExportDrivers, TextOfAnEmptyObjectIsItsHeader) {
    TdynExportFrame f;
    f.columns = {TdynExportColumn::vectorArray("position", nullptr, 0)};
    std::ostringstream out;
    TdynASCIIDriver d;
    ASSERT_EQ(d.writeFrame(out, f), 0);
    EXPECT_EQ(out.str(), "ATTRIBUTES\n position\nTYPES\n V\nNUMBER_OF_PARTICLES: 0\nBEGIN DATA\n");
}

// The binary layout, built here field by field in the machine's order.
struct Expected {
    std::string b;
    template <class T> void put(T v) {
        char c[sizeof(T)];
        std::memcpy(c, &v, sizeof(T));
        b.append(c, sizeof(T));
    }
    void zeros(int n) { b.append(static_cast<std::size_t>(n), '\0'); }
    void record(int kind, int elementSize, int count, const std::string& name) {
        b += std::string("\0\0", 2);
        put<std::int16_t>(1);
        b.push_back('\0');
        b.push_back(static_cast<char>(kind));
        put<std::int32_t>(0);
        put<std::int32_t>(kind);
        put<std::int32_t>(count);
        put<std::int32_t>(0);
        put<std::int32_t>(count - 1);
        zeros(16);
        b += name;
        b.push_back('\0');
        put<std::int32_t>(kind);
        put<std::int32_t>(elementSize);
        put<std::int32_t>(count);
        put<std::int32_t>(1);
        put<std::int32_t>(0);
    }
    void header(int count, int records, float clock) {
        put<std::int32_t>(670);
        put<std::int16_t>(1);
        zeros(2);
        put<float>(1.0f);
        put<float>(clock);
        put<std::int32_t>(count);
        put<std::int32_t>(records);
        zeros(36);
    }
};

TEST(ExportDrivers, BinaryHeaderAndRecordsLeaveOutRealArraysOfTheWrongLength) {
    const T4dDblVector pos[2] = {{1, 2, 3}, {-4, 0.25, 1e40}};
    const double mass[2] = {0.5, 2};
    const double wrong[3] = {1, 2, 3};
    const std::int32_t ids[2] = {10, 11};
    TdynExportFrame f;
    f.count = 2;
    f.columns = {TdynExportColumn::vectorArray("position", pos, 2),
                 TdynExportColumn::doubleArray("skipped", wrong, 3),
                 TdynExportColumn::doubleArray("mass", mass, 2), TdynExportColumn::intArray("ids", ids, 2)};
    std::ostringstream out;
    TdynZPDDriver d;
    d.setClock(1234.5);
    ASSERT_EQ(d.writeFrame(out, f), 0) << d.error();

    Expected e;
    e.header(2, 3, 1234.5f);
    e.record(1, 12, 2, "position");
    for (float v : {1.0f, 2.0f, 3.0f, -4.0f, 0.25f, std::numeric_limits<float>::max()})
        e.put<float>(v);
    e.record(2, 4, 2, "mass");
    e.put<float>(0.5f);
    e.put<float>(2.0f);
    e.record(3, 4, 2, "ids");
    e.put<std::int32_t>(10);
    e.put<std::int32_t>(11);
    ASSERT_EQ(out.str().size(), e.b.size());
    EXPECT_EQ(out.str(), e.b);
    EXPECT_EQ(out.str().substr(0, 60).size(), 60u);
}

TEST(ExportDrivers, BinaryOfAnEmptyObjectHasRecordsWithoutData) {
    TdynExportFrame f;
    f.columns = {TdynExportColumn::vectorArray("position", nullptr, 0),
                 TdynExportColumn::doubleArray("mass", nullptr, 0)};
    std::ostringstream out;
    TdynZPDDriver d;
    d.setClock(0);
    ASSERT_EQ(d.writeFrame(out, f), 0);
    Expected e;
    e.header(0, 2, 0);
    e.record(1, 12, 0, "position");
    e.record(2, 4, 0, "mass");
    EXPECT_EQ(out.str(), e.b);
}

// ---- dynExport on a particle object ----

class ExportScene : public DynWorkspaceTest {
protected:
    ExportScene() : DynWorkspaceTest("motilane-export-") {}
    void SetUp() override {
        DynWorkspaceTest::SetUp();
        // One particle from the origin at 24 units a second along x: one unit a frame.
        ASSERT_TRUE(run("particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 24 0 0 p;"));
        shape = node<TdynParticleShape>("pShape");
        ASSERT_NE(shape, nullptr);
    }
    std::vector<std::string> filesIn(const fs::path& dir) {
        std::vector<std::string> out;
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(dir, ec))
            out.push_back(e.path().filename().string());
        std::sort(out.begin(), out.end());
        return out;
    }
    static std::string slurp(const fs::path& p) {
        std::ifstream in(p, std::ios::binary);
        std::ostringstream s;
        s << in.rdbuf();
        return s.str();
    }
    TdynParticleShape* shape = nullptr;
};

TEST_F(ExportScene, FrameRangeAndOverSamplesGiveOneFilePerTime) {
    std::vector<std::pair<long long, long long>> progress;
    session.engine().setProgressHandler([&](const std::string& what, long long done, long long total) {
        EXPECT_EQ(what, "dynExport");
        progress.emplace_back(done, total);
    });
    ASSERT_TRUE(run("dynExport -path run1 -mnf 1 -mxf 3 -os 2 -f pdc -atr position -atr particleId p;"))
        << errors.str();
    // Ticks at 24 fps: 250 a frame. The over-sample after the last frame is not taken.
    EXPECT_EQ(filesIn(root / "particles" / "run1"),
              (std::vector<std::string>{"pShape.250.pdc", "pShape.375.pdc", "pShape.500.pdc",
                                        "pShape.625.pdc", "pShape.750.pdc"}));
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back(),
              std::make_pair(5LL, 5LL)); // three frames of two samples, less the one past the end
    // Whole frames: x is one unit a frame from the start frame.
    for (auto [ticks, x] : {std::pair{250, 0.0}, {500, 1.0}, {750, 2.0}}) {
        TdynParticleImporterPDC in(
            (root / "particles" / "run1" / ("pShape." + std::to_string(ticks) + ".pdc")).string());
        ASSERT_EQ(in.readAttributes(), 0) << in.error();
        ASSERT_EQ(in.particleCount(), 1);
        ASSERT_EQ(in.arrays().count(), 2u);
        EXPECT_EQ(in.arrays().name(0), "position");
        // Steps of 1/24 s: each adds 24 * fl(1/24), within a few ulps of a unit.
        EXPECT_NEAR(in.arrays().vectors(0)[0].x, x, 1e-12) << ticks;
        EXPECT_EQ(in.arrays().doubles(1)[0], 0.0);
    }
    // The scene is back where it was.
    EXPECT_EQ(session.graph().time().ticks(), 250);
}

TEST_F(ExportScene, OnlyUpdatingParticlesGivesTheSameFiles) {
    ASSERT_TRUE(run("dynExport -path a -mnf 1 -mxf 3 -f pdc p;"));
    ASSERT_TRUE(run("currentTime 1;"));
    ASSERT_TRUE(run("dynExport -path b -mnf 1 -mxf 3 -f pdc -oup p;")) << errors.str();
    for (const char* leaf : {"pShape.250.pdc", "pShape.500.pdc", "pShape.750.pdc"}) {
        const std::string a = slurp(root / "particles" / "a" / leaf),
                          b = slurp(root / "particles" / "b" / leaf);
        EXPECT_FALSE(a.empty()) << leaf;
        EXPECT_EQ(a, b) << leaf;
    }
}

TEST_F(ExportScene, TextExportOfTheDefaultAttributesAndAllObjects) {
    ASSERT_TRUE(run("particle -n q -p 5 5 5 -p 6 6 6;"));
    ASSERT_TRUE(run("dynExport -path txt -mnf 2 -mxf 2 -f ascii -all;")) << errors.str();
    EXPECT_EQ(filesIn(root / "particles" / "txt"),
              (std::vector<std::string>{"pShape.500.pda", "qShape.500.pda"}));
    const std::string text = slurp(root / "particles" / "txt" / "qShape.500.pda");
    std::istringstream lines(text);
    std::string l1, l2, l3, l4, l5, l6, p1, p2, rest;
    std::getline(lines, l1);
    std::getline(lines, l2);
    std::getline(lines, l3);
    std::getline(lines, l4);
    std::getline(lines, l5);
    std::getline(lines, l6);
    EXPECT_EQ(l1, "ATTRIBUTES");
    EXPECT_NE(l2.find(" position"), std::string::npos) << l2;
    EXPECT_NE(l2.find(" id "), std::string::npos) << l2;
    EXPECT_EQ(l3, "TYPES");
    EXPECT_EQ(l5, "NUMBER_OF_PARTICLES: 2");
    EXPECT_EQ(l6, "BEGIN DATA");
    std::getline(lines, p1);
    std::getline(lines, p2);
    EXPECT_FALSE(std::getline(lines, rest));
    EXPECT_EQ(p1.rfind("5 5 5 ", 0), 0u) << p1; // position comes first among the arrays
    EXPECT_EQ(p2.rfind("6 6 6 ", 0), 0u) << p2;
    // One letter for each name.
    std::istringstream names(l2), kinds(l4);
    std::vector<std::string> n, k;
    for (std::string w; names >> w;)
        n.push_back(w);
    for (std::string w; kinds >> w;)
        k.push_back(w);
    EXPECT_EQ(n.size(), k.size());
}

TEST_F(ExportScene, BadRequestsFailClearlyAndWriteNothing) {
    EXPECT_FALSE(run("dynExport -mnf 1 -mxf 2 p;"));
    EXPECT_NE(errors.str().find("-path"), std::string::npos) << errors.str();
    errors.str("");
    EXPECT_FALSE(run("dynExport -path x -mnf 5 -mxf 2 p;"));
    EXPECT_NE(errors.str().find("frame range"), std::string::npos) << errors.str();
    errors.str("");
    EXPECT_FALSE(run("dynExport -path x -f obj p;"));
    EXPECT_NE(errors.str().find("unknown format 'obj'"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("dynExport -path x nothingHere;"));
    EXPECT_FALSE(fs::exists(root / "particles" / "x"));

    // A file where a directory must go: the path can't be made.
    fs::create_directories(root / "particles");
    std::ofstream(root / "particles" / "blocker") << "in the way";
    errors.str("");
    EXPECT_FALSE(run("dynExport -path blocker/sub -f pdc p;"));
    EXPECT_NE(errors.str().find("blocker"), std::string::npos) << errors.str();

    // The final name is taken by a directory: the write fails at the rename and
    // neither a file nor a temporary is left.
    fs::create_directories(root / "particles" / "taken" / "pShape.250.pdc");
    errors.str("");
    EXPECT_FALSE(run("dynExport -path taken -f pdc p;"));
    EXPECT_NE(errors.str().find("pShape.250.pdc"), std::string::npos) << errors.str();
    EXPECT_EQ(filesIn(root / "particles" / "taken"), std::vector<std::string>{"pShape.250.pdc"});
    EXPECT_TRUE(fs::is_directory(root / "particles" / "taken" / "pShape.250.pdc"));

    // An unknown -atr name is left out with a warning.
    errors.str("");
    EXPECT_TRUE(run("dynExport -path w -f pda -atr position -atr bogus p;"));
    EXPECT_NE(errors.str().find("'bogus'"), std::string::npos) << errors.str();
}

TEST_F(ExportScene, ADirectoryWithoutWritePermissionFails) {
    if (::geteuid() == 0) GTEST_SKIP() << "permissions do not bind the superuser";
    fs::create_directories(root / "particles" / "locked");
    fs::permissions(root / "particles" / "locked", fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_FALSE(run("dynExport -path locked -f pdb p;"));
    EXPECT_NE(errors.str().find("cannot write"), std::string::npos) << errors.str();
    fs::permissions(root / "particles" / "locked", fs::perms::owner_all);
    EXPECT_TRUE(filesIn(root / "particles" / "locked").empty());
}

} // namespace
