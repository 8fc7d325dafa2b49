// Particle data files: the bytes the writer makes (built here independently,
// byte by byte), what the reader accepts and refuses, and readPDC.

#include "Commands/Caches/TdynPDCDriver.h"
#include "Commands/Caches/TdynParticleImporter.h"
#include "Commands/Caches/TdynReadPDCAction.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"
#include "Host/Command/TworkspaceRoot.h"
#include "Host/Session/Tsession.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Bytes = std::string;

// Expected bytes, spelled out most significant byte first.
void be32(Bytes& b, std::uint32_t v) {
    for (int s = 24; s >= 0; s -= 8)
        b.push_back(static_cast<char>((v >> s) & 0xff));
}
void be64(Bytes& b, double d) {
    const std::uint64_t v = std::bit_cast<std::uint64_t>(d);
    for (int s = 56; s >= 0; s -= 8)
        b.push_back(static_cast<char>((v >> s) & 0xff));
}
Bytes header(std::int32_t n, std::int32_t records, const char* magic = "PDC ") {
    Bytes b(magic, 4);
    be32(b, 1); // version
    be32(b, 1); // byte order
    be32(b, 0);
    be32(b, 0);
    be32(b, static_cast<std::uint32_t>(n));
    be32(b, static_cast<std::uint32_t>(records));
    return b;
}
void name(Bytes& b, const std::string& s) {
    be32(b, static_cast<std::uint32_t>(s.size()));
    b += s;
}

class PdcFile : public ::testing::Test {
protected:
    void SetUp() override { dir = makeScratchDir("motilane-pdc-"); }
    void TearDown() override { removeScratchDir(dir); }
    std::string file(const Bytes& bytes, const char* leaf = "f.pdc") {
        const std::string p = (dir / leaf).string();
        std::ofstream(p, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return p;
    }
    Bytes written(const TdynExportFrame& frame) {
        std::ostringstream out;
        TdynPDCDriver driver;
        EXPECT_EQ(driver.writeFrame(out, frame), 0) << driver.error();
        return out.str();
    }
    fs::path dir;
};

TEST_F(PdcFile, WriterMakesTheTableBytesForEveryType) {
    const T4dDblVector pos[2] = {{1, -2, 0.5}, {3e10, 0, -0.0}};
    const double mass[2] = {1.25, 7};
    const std::int32_t ids[2] = {4, -9};
    TdynExportFrame f;
    f.count = 2;
    f.columns = {TdynExportColumn::vectorArray("position", pos, 2),
                 TdynExportColumn::doubleArray("mass", mass, 2),
                 TdynExportColumn::intArray("emitterId", ids, 2),
                 TdynExportColumn::doubleScalar("lifespan", 0.1),
                 TdynExportColumn::intScalar("seed", -3),
                 TdynExportColumn::vectorScalar("centroid", {1, 2, 3})};

    Bytes want = header(2, 6);
    name(want, "position");
    be32(want, 5);
    for (double d : {1.0, -2.0, 0.5, 3e10, 0.0, -0.0})
        be64(want, d);
    name(want, "mass");
    be32(want, 3);
    be64(want, 1.25);
    be64(want, 7);
    name(want, "emitterId"); // integer arrays go out as doubles under code 3
    be32(want, 3);
    be64(want, 4.0);
    be64(want, -9.0);
    name(want, "lifespan");
    be32(want, 2);
    be64(want, 0.1);
    name(want, "seed");
    be32(want, 0);
    be32(want, static_cast<std::uint32_t>(-3));
    name(want, "centroid");
    be32(want, 4);
    for (double d : {1.0, 2.0, 3.0})
        be64(want, d);
    EXPECT_EQ(written(f), want);
}

TEST_F(PdcFile, ArraysArePaddedOrCutToTheCount) {
    const double shortOne[1] = {5};
    const double longOne[4] = {1, 2, 3, 4};
    TdynExportFrame f;
    f.count = 2;
    f.columns = {TdynExportColumn::doubleArray("a", shortOne, 1),
                 TdynExportColumn::doubleArray("b", longOne, 4),
                 TdynExportColumn::vectorArray("v", nullptr, 0)};
    Bytes want = header(2, 3);
    name(want, "a");
    be32(want, 3);
    be64(want, 5);
    be64(want, 0);
    name(want, "b");
    be32(want, 3);
    be64(want, 1);
    be64(want, 2);
    name(want, "v");
    be32(want, 5);
    for (int i = 0; i < 6; ++i)
        be64(want, 0);
    EXPECT_EQ(written(f), want);
}

TEST_F(PdcFile, ReadingBackGivesTheSameArraysAndScalars) {
    const std::string p = file(written(TdynReadPDCAction::testCase()));
    TdynParticleImporterPDC in(p);
    ASSERT_EQ(in.readHeader(), 0) << in.error();
    ASSERT_EQ(in.readAttributes(), 0) << in.error();
    EXPECT_STREQ(in.fileType(), "PDC");
    EXPECT_TRUE(TdynReadPDCAction::matchesTestCase(in));
    // And the comparison is not blind: one changed coordinate fails it.
    Bytes bytes = written(TdynReadPDCAction::testCase());
    bytes[28 + 4 + 8 + 4 + 7] ^= 1; // last byte of position[0].x
    TdynParticleImporterPDC changed(file(bytes, "g.pdc"));
    ASSERT_EQ(changed.readAttributes(), 0);
    EXPECT_FALSE(TdynReadPDCAction::matchesTestCase(changed));
}

TEST_F(PdcFile, MagicLettersInEitherCaseButTheFourthByteMustBeABlank) {
    Bytes lower = header(0, 0, "pdc ");
    TdynParticleImporterPDC a(file(lower, "a.pdc"));
    EXPECT_EQ(a.readHeader(), 0);
    Bytes mixed = header(0, 0, "pDc ");
    TdynParticleImporterPDC b(file(mixed, "b.pdc"));
    EXPECT_EQ(b.readHeader(), 0);
    TdynParticleImporterPDC c(file(header(0, 0, "PDC\0"), "c.pdc"));
    EXPECT_EQ(c.readHeader(), -1);
    EXPECT_NE(c.error().find("magic"), std::string::npos);
    TdynParticleImporterPDC d(file(header(0, 0, "PDCX"), "d.pdc"));
    EXPECT_EQ(d.readAttributes(), -1);
    TdynParticleImporterPDC missing((dir / "nothing.pdc").string());
    EXPECT_FALSE(missing.isOpen());
    EXPECT_EQ(missing.readHeader(), -1);
}

TEST_F(PdcFile, NoParticlesMeansArrayRecordsWithoutValues) {
    Bytes b = header(0, 3);
    name(b, "position");
    be32(b, 5);
    name(b, "mass");
    be32(b, 3);
    name(b, "rate");
    be32(b, 2);
    be64(b, 12.5);
    TdynParticleImporterPDC in(file(b));
    ASSERT_EQ(in.readAttributes(), 0) << in.error();
    EXPECT_EQ(in.particleCount(), 0);
    ASSERT_NE(in.arrays().getVectorData("position"), nullptr);
    EXPECT_EQ(in.arrays().getVectorData("position")->length(), 0u);
    EXPECT_EQ(in.arrays().getDoubleData("mass")->length(), 0u);
    ASSERT_EQ(in.doubleScalars().size(), 1u);
    EXPECT_EQ(in.doubleScalars()[0].second, 12.5);
    // The writer side of the same: header and names only.
    TdynExportFrame f;
    f.columns = {TdynExportColumn::vectorArray("position", nullptr, 0)};
    Bytes want = header(0, 1);
    name(want, "position");
    be32(want, 5);
    EXPECT_EQ(written(f), want);
}

TEST_F(PdcFile, NamesOfAnyLengthAndOfNoLength) {
    const std::string longName(100, 'q'); // two chunks of the name reader
    Bytes b = header(1, 2);
    name(b, longName + "X");
    be32(b, 3);
    be64(b, -1.5);
    be32(b, 0); // no name at all: the values still follow
    be32(b, 0);
    be32(b, 42);
    TdynParticleImporterPDC in(file(b));
    ASSERT_EQ(in.readAttributes(), 0) << in.error();
    ASSERT_EQ(in.arrays().count(), 1u);
    EXPECT_EQ(in.arrays().name(0), longName + "X");
    EXPECT_EQ(in.arrays().doubles(0)[0], -1.5);
    ASSERT_EQ(in.intScalars().size(), 1u);
    EXPECT_EQ(in.intScalars()[0].first, "");
    EXPECT_EQ(in.intScalars()[0].second, 42);
}

// Hostile sizes: a 16 MB name reads in one go (no recursion to overflow the stack), a name longer than
// the file is refused with its record and place, and many records read in linear time.
TEST_F(PdcFile, HugeNamesAndManyRecordsReadWithoutHarm) {
    const std::string huge(16 << 20, 'n');
    Bytes b = header(1, 1);
    name(b, huge);
    be32(b, 0);
    be32(b, 7);
    {
        TdynParticleImporterPDC in(file(b));
        ASSERT_EQ(in.readAttributes(), 0) << in.error();
        ASSERT_EQ(in.intScalars().size(), 1u);
        EXPECT_EQ(in.intScalars()[0].first.size(), huge.size());
    }
    Bytes past = header(1, 1);
    be32(past, 1'000'000);
    past += "abc";
    {
        TdynParticleImporterPDC in(file(past));
        EXPECT_EQ(in.readAttributes(), -1);
        EXPECT_NE(in.error().find(
                      "record 1 of 1: a name of 1000000 bytes runs past the end of the file (3 bytes left) "
                      "(at byte 32)"),
                  std::string::npos)
            << in.error();
    }
    // 160,000 arrays of one particle each, every one found again by its name.
    const int records = 160'000;
    Bytes many = header(1, records);
    for (int r = 0; r < records; ++r) {
        name(many, "a" + std::to_string(r));
        be32(many, 3);
        be64(many, r);
    }
    TdynParticleImporterPDC in(file(many));
    ASSERT_EQ(in.readAttributes(), 0) << in.error();
    ASSERT_EQ(in.arrays().count(), static_cast<unsigned>(records));
    EXPECT_EQ((*in.arrays().getDoubleData("a159999"))[0], 159999.0);
    EXPECT_EQ((*in.arrays().getDoubleData("a7"))[0], 7.0);
}

TEST_F(PdcFile, TheHeadersRecordCountEndsTheReadingAndUnknownTypesAreSkipped) {
    Bytes b = header(1, 2);
    name(b, "odd");
    be32(b, 9); // unknown: no values are read for it
    name(b, "mass");
    be32(b, 3);
    be64(b, 2.0);
    name(b, "extra"); // past the record count: never read, though it is garbage
    b += "\x01\x02";
    TdynParticleImporterPDC in(file(b));
    ASSERT_EQ(in.readAttributes(), 0) << in.error();
    ASSERT_EQ(in.arrays().count(), 1u);
    EXPECT_EQ(in.arrays().name(0), "mass");
    EXPECT_EQ(in.arrays().doubles(0)[0], 2.0);
}

TEST_F(PdcFile, ShortFilesFailWithTheRecordAndThePlace) {
    Bytes full = header(2, 1);
    name(full, "mass");
    be32(full, 3);
    be64(full, 1);
    be64(full, 2);
    // Cut inside the values, inside the type code, inside the header.
    for (std::size_t cut : {full.size() - 3, std::size_t(28 + 4 + 4 + 2), std::size_t(20)}) {
        TdynParticleImporterPDC in(file(full.substr(0, cut)));
        EXPECT_EQ(in.readAttributes(), -1) << "cut at " << cut;
        EXPECT_NE(in.error().find("f.pdc"), std::string::npos) << in.error();
    }
    // A count far beyond the file's size is refused before anything is allocated.
    Bytes huge = header(0x7fffffff, 1);
    name(huge, "position");
    be32(huge, 5);
    TdynParticleImporterPDC in(file(huge));
    EXPECT_EQ(in.readAttributes(), -1);
    EXPECT_NE(in.error().find("run past the end"), std::string::npos) << in.error();
    EXPECT_NE(in.error().find("position"), std::string::npos) << in.error();
}

TEST_F(PdcFile, FileNamesCarryTheTickCount) {
    TworkspaceRoot::set("/proj");
    EXPECT_EQ(TdynParticleImporter::composePath(), "/proj/particles/");
    // Frame 1.5 at 24 fps is 375 ticks: a time between frames has a file of its own.
    EXPECT_EQ(TdynParticleImporter::fileName("", "run1", "pShape", TanimTime::fromTicks(375)),
              "/proj/particles/run1/pShape.375.pdc");
    EXPECT_EQ(TdynParticleImporter::fileName("", "run1/", "pShape", TanimTime::fromTicks(-250)),
              "/proj/particles/run1/pShape.-250.pdc");
    EXPECT_EQ(TdynParticleImporter::fileName("/d", "", "p", TanimTime::fromTicks(0)), "/d/p.0.pdc");
    TworkspaceRoot::setFileRule("particles", "/abs/parts");
    EXPECT_EQ(TdynParticleImporter::composePath(), "/abs/parts/");
    TworkspaceRoot::reset();
}

// ---- against a particle object and through the command ----

class PdcObject : public PdcFile {
protected:
    void SetUp() override {
        PdcFile::SetUp();
        session.engine().setErrorStream(&errors);
        session.engine().setOutputStream(&output);
    }
    bool run(const std::string& text) { return session.runText(text, "test", false); }
    Tsession session;
    std::ostringstream errors, output;
};

TEST_F(PdcObject, AnObjectsAttributesGoOutInTheOrderAsked) {
    ASSERT_TRUE(run("particle -n p -p 1 2 3 -p -1 0.5 4;"));
    auto* p = TdynParticleShape::cast(session.graph().findNode("pShape"));
    ASSERT_NE(p, nullptr);
    std::ostringstream out;
    TdynPDCDriver driver;
    // An unknown name is skipped without a word.
    ASSERT_EQ(driver.writeAttributes(out, *p, {"position", "noSuchThing", "particleId", "conserve"}), 0)
        << driver.error();
    Bytes want = header(2, 3);
    name(want, "position");
    be32(want, 5);
    for (double d : {1.0, 2.0, 3.0, -1.0, 0.5, 4.0})
        be64(want, d);
    name(want, "particleId");
    be32(want, 3);
    be64(want, 0);
    be64(want, 1);
    name(want, "conserve");
    be32(want, 2);
    be64(want, 1.0);
    EXPECT_EQ(out.str(), want);

    // A string attribute can't go into the file: the write fails naming it.
    std::ostringstream bad;
    EXPECT_EQ(driver.writeAttributes(bad, *p, {"position", "startupCachePath"}), -1);
    EXPECT_NE(driver.error().find("startupCachePath"), std::string::npos) << driver.error();
}

TEST_F(PdcObject, ReadPDCPrintsTestsAndFailsClearly) {
    EXPECT_TRUE(run("readPDC -test;"));
    EXPECT_NE(output.str().find("readPDC -test:  Test PASSED."), std::string::npos);

    std::ostringstream f;
    TdynPDCDriver driver;
    driver.writeFrame(f, TdynReadPDCAction::testCase());
    const std::string good = file(f.str(), "good.pdc");
    EXPECT_TRUE(run("readPDC -test -file \"" + good + "\";"));
    output.str("");
    EXPECT_TRUE(run("readPDC \"" + good + "\";"));
    EXPECT_NE(output.str().find("position (vector array):"), std::string::npos) << output.str();
    EXPECT_NE(output.str().find("gravity (vector): 0 -9.8"), std::string::npos) << output.str();

    Bytes other = header(1, 0);
    const std::string wrong = file(other, "wrong.pdc");
    EXPECT_FALSE(run("readPDC -test -file \"" + wrong + "\";"));
    EXPECT_NE(errors.str().find("Values read in do not match test case.  Read PDC test FAILED."),
              std::string::npos);

    const std::string cut = file(f.str().substr(0, 60), "cut.pdc");
    errors.str("");
    EXPECT_FALSE(run("readPDC -file \"" + cut + "\";"));
    EXPECT_NE(errors.str().find("readPDC: Error while reading the file."), std::string::npos) << errors.str();
    EXPECT_NE(errors.str().find("cut.pdc"), std::string::npos) << errors.str();

    errors.str("");
    EXPECT_FALSE(run("readPDC -file \"" + dir.string() + "\";")); // a directory is no file
    EXPECT_NE(errors.str().find("readPDC: Error while reading the file."), std::string::npos) << errors.str();
}

} // namespace
