#include "Host/Session/TsceneFiles.h"

#include "Host/Files/TatomicFile.h"
#include "Host/Files/TsceneBinary.h"
#include "Host/Files/TsceneReading.h"
#include "Host/Files/TsceneText.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

std::string readWhole(const std::string& path) {
    std::error_code ec;
    const auto status = std::filesystem::status(path, ec);
    if (ec || !std::filesystem::exists(status))
        throw std::runtime_error("cannot open " + path + ": no such file");
    if (!std::filesystem::is_regular_file(status))
        throw std::runtime_error("cannot open " + path + ": not a regular file");
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot open " + path + ": " + std::strerror(errno));
    std::stringstream text;
    text << in.rdbuf();
    if (in.bad()) throw std::runtime_error("cannot read " + path + ": " + std::strerror(errno));
    return text.str();
}

} // namespace

TsceneFormat sceneFormatFor(const std::string& path, const std::string& type) {
    if (type == "text") return TsceneFormat::kText;
    if (type == "binary") return TsceneFormat::kBinary;
    if (!type.empty()) throw std::runtime_error("unknown scene file type '" + type + "' (text or binary)");
    const std::string ext = std::filesystem::path(path).extension().string();
    if (ext == ".mls") return TsceneFormat::kText;
    if (ext == ".mlb") return TsceneFormat::kBinary;
    throw std::runtime_error("cannot tell the format of " + path +
                             ": scene files end in .mls (text) or .mlb (binary), or give -type");
}

void saveScene(Tsession& session, const std::string& path, TsceneFormat format) {
    // Made whole before the file opens, so that a failure leaves nothing half-written.
    std::string binary;
    if (format == TsceneFormat::kBinary) binary = writeSceneBinary(session.graph());
    TatomicFile file(path);
    if (!file.isOpen()) throw std::runtime_error("cannot write " + path + ": " + file.openError());
    if (format == TsceneFormat::kBinary)
        file.stream().write(binary.data(), static_cast<std::streamsize>(binary.size()));
    else
        writeSceneText(session.graph(), file.stream());
    std::string error;
    if (!file.commit(error)) throw std::runtime_error("cannot write " + path + ": " + error);
    session.setSceneName(path);
    session.markUnmodified();
}

void openScene(Tsession& session, const std::string& path) {
    const std::string bytes = readWhole(path);
    if (isSceneBinary(bytes)) {
        session.replaceScene([&] {
            TsceneReadingScope reading;
            readSceneBinary(bytes, path);
        });
        session.setSceneName(path);
        return;
    }
    const int format = sceneTextFormat(bytes);
    if (format < 0) throw std::runtime_error(path + ":1: the scene format number cannot be read");
    if (format > kSceneTextFormat)
        throw std::runtime_error(path + " was written by a newer motilane (scene format " +
                                 std::to_string(format) + "; this one reads format " +
                                 std::to_string(kSceneTextFormat) + " and older)");
    session.replaceScene([&] {
        TsceneReadingScope reading;
        session.engine().executeScript(bytes, TsourceLocation{path, 1});
    });
    session.setSceneName(path);
}

void newScene(Tsession& session) {
    session.replaceScene([] {});
    session.setSceneName({});
}
