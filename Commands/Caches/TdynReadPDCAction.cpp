#include "Commands/Caches/TdynReadPDCAction.h"

#include "Commands/Caches/TdynPDCDriver.h"
#include "Commands/Caches/TdynParticleImporter.h"
#include "Host/Command/TargDatabase.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Files/TatomicFile.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

MOTILANE_REGISTER_COMMAND("readPDC", TdynReadPDCAction);

namespace {

const T4dDblVector kTestPositions[3] = {{1, 2, 3}, {-4.5, 0.25, 6}, {7, 8, 1e-3}};
const double kTestIds[3] = {0, 1, 2};

void describe(std::ostringstream& out, const T4dDblVector& v) {
    out << v.x << ' ' << v.y << ' ' << v.z;
}

std::string contents(TdynParticleImporter& in) {
    std::ostringstream out;
    out.precision(17);
    out << in.path() << ": " << in.particleCount() << " particles\n";
    for (const auto& [name, v] : in.intScalars())
        out << "  " << name << " (integer): " << v << '\n';
    for (const auto& [name, v] : in.doubleScalars())
        out << "  " << name << " (double): " << v << '\n';
    for (const auto& [name, v] : in.vectorScalars()) {
        out << "  " << name << " (vector): ";
        describe(out, v);
        out << '\n';
    }
    TdataArrayAttrs& a = in.arrays();
    for (unsigned i = 0; i < a.count(); ++i) {
        out << "  " << a.name(i);
        switch (a.kind(i)) {
        case TdataArrayAttrs::Kind::Vector:
            out << " (vector array):";
            for (const T4dDblVector& v : a.vectors(i)) {
                out << "  ";
                describe(out, v);
            }
            break;
        case TdataArrayAttrs::Kind::Double:
            out << " (double array):";
            for (double v : a.doubles(i))
                out << ' ' << v;
            break;
        case TdataArrayAttrs::Kind::Int32:
            out << " (integer array):";
            for (std::int32_t v : a.ints(i))
                out << ' ' << v;
            break;
        default:
            break;
        }
        out << '\n';
    }
    return out.str();
}

} // namespace

TdynExportFrame TdynReadPDCAction::testCase() {
    TdynExportFrame f;
    f.count = 3;
    f.columns.push_back(TdynExportColumn::vectorArray("position", kTestPositions, 3));
    f.columns.push_back(TdynExportColumn::doubleArray("particleId", kTestIds, 3));
    f.columns.push_back(TdynExportColumn::doubleScalar("lifespan", 2.5));
    f.columns.push_back(TdynExportColumn::intScalar("seed", 17));
    f.columns.push_back(TdynExportColumn::vectorScalar("gravity", {0, -9.8, 0}));
    return f;
}

bool TdynReadPDCAction::matchesTestCase(TdynParticleImporter& in) {
    if (in.particleCount() != 3) return false;
    TdataArrayAttrs& a = in.arrays();
    if (a.count() != 2) return false;
    T4dDblVectorArray* p = a.getVectorData("position");
    TdoubleArray* id = a.getDoubleData("particleId");
    if (!p || !id || p->length() != 3 || id->length() != 3) return false;
    for (unsigned i = 0; i < 3; ++i)
        if ((*p)[i] != kTestPositions[i] || (*id)[i] != kTestIds[i]) return false;
    using D = std::vector<std::pair<Tstring, double>>;
    using I = std::vector<std::pair<Tstring, std::int32_t>>;
    using V = std::vector<std::pair<Tstring, T4dDblVector>>;
    return in.doubleScalars() == D{{"lifespan", 2.5}} && in.intScalars() == I{{"seed", 17}} &&
           in.vectorScalars() == V{{"gravity", T4dDblVector(0, -9.8, 0)}};
}

int TdynReadPDCAction::doIt(const TargList& args) {
    TcommandEngine& engine = TcommandEngine::current();
    Tsyntax s;
    s.addFlag("f", "file", {TargType::String});
    s.addFlag("t", "test");
    s.setObjectKind(Tsyntax::ObjectKind::Strings, 0);
    TargDatabase db(s, args);
    engine.clearResult();
    const bool test = db.isFlagSet("t") || db.isFlagSet("test");
    Tstring path;
    if (db.isFlagSet("file"))
        path = db.flagArgumentString("file");
    else if (db.isFlagSet("f"))
        path = db.flagArgumentString("f");
    else if (!db.objects().empty())
        path = db.objects().front();

    std::string selfTest; // -test without a file: the test case goes through a file of our own
    if (path.empty()) {
        if (!test) {
            engine.displayError("readPDC: name the file to read with -file");
            return -1;
        }
        std::error_code ec;
        const auto dir = std::filesystem::temp_directory_path(ec);
        selfTest = (ec ? std::string("/tmp") : dir.string()) + "/readPDC-test-" + std::to_string(::getpid()) +
                   ".pdc";
        std::ofstream out(selfTest, std::ios::binary | std::ios::trunc);
        TdynPDCDriver driver;
        if (!out || driver.writeFrame(out, testCase()) != 0) {
            engine.displayError("readPDC -test: cannot write the test file " + selfTest);
            std::remove(selfTest.c_str());
            return -1;
        }
        path = selfTest;
    } else if (path.front() != '/' && !std::filesystem::exists(path)) {
        // A bare name is looked for in the particles directory too.
        const Tstring inParticles = TdynParticleImporter::composePath() + path;
        if (std::filesystem::exists(inParticles)) path = inParticles;
    }

    TdynParticleImporterPDC in(path);
    const bool ok = in.isOpen() && in.readHeader() == 0 && in.readAttributes() == 0;
    if (!selfTest.empty()) std::remove(selfTest.c_str());
    if (!ok) {
        engine.displayError("readPDC: Error while reading the file. " + in.error());
        engine.setResult(0);
        return -1;
    }
    if (test) {
        if (!matchesTestCase(in)) {
            engine.displayError(
                "readPDC -test:  Values read in do not match test case.  Read PDC test FAILED.");
            engine.setResult(0);
            return -1;
        }
        engine.output("readPDC -test:  Test PASSED.\n");
        engine.setResult(1);
        return 0;
    }
    engine.output(contents(in));
    engine.setResult(1);
    return 0;
}
