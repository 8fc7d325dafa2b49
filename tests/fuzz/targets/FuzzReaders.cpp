#include "FuzzTargets.h"

#include "Commands/Caches/TdynParticleImporter.h"
#include "Global/Basket/TdynamicsBasket.h"
#include "Host/Files/TsceneBinary.h"
#include "Host/Geometry/TobjReader.h"
#include "Host/Session/TsceneFiles.h"
#include "Host/Session/Tsession.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

// Readers take paths: the input goes to a file of this process's own.
std::string inputFile(const char* extension, const std::uint8_t* data, std::size_t size) {
    static const std::string dir = [] {
        const auto d = std::filesystem::temp_directory_path() / ("motilane-fuzz-" + std::to_string(::getpid()));
        std::filesystem::create_directories(d);
        return d.string();
    }();
    const std::string path = dir + "/input" + extension;
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(data),
                                                                   static_cast<std::streamsize>(size));
    return path;
}

} // namespace

void fuzzPdc(const std::uint8_t* data, std::size_t size) {
    TdynParticleImporterPDC in(inputFile(".pdc", data, size));
    in.readAttributes();
}

void fuzzObj(const std::uint8_t* data, std::size_t size) {
    try {
        readObjFile(inputFile(".obj", data, size));
    } catch (const std::runtime_error&) {
        // Refused, with its message: what a reader should do with a bad file.
    }
}

void fuzzSceneBinary(const std::uint8_t* data, std::size_t size) {
    TdynamicsBasket::initialize();
    Tsession session;
    std::ostringstream sink;
    session.engine().setOutputStream(&sink);
    session.engine().setErrorStream(&sink);
    try {
        openScene(session, inputFile(".mlb", data, size));
    } catch (const std::exception&) {
    }
}
