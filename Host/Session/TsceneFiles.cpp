#include "Host/Session/TsceneFiles.h"

#include "Host/Files/TatomicFile.h"
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

void saveScene(Tsession& session, const std::string& path) {
    TatomicFile file(path);
    if (!file.isOpen()) throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
    writeSceneText(session.graph(), file.stream());
    std::string error;
    if (!file.commit(error)) throw std::runtime_error("cannot write " + path + ": " + error);
    session.setSceneName(path);
    session.markUnmodified();
}

void openScene(Tsession& session, const std::string& path) {
    const std::string text = readWhole(path);
    const int format = sceneTextFormat(text);
    if (format < 0) throw std::runtime_error(path + ":1: the scene format number cannot be read");
    if (format > kSceneTextFormat)
        throw std::runtime_error(path + " was written by a newer motilane (scene format " +
                                 std::to_string(format) + "; this one reads format " +
                                 std::to_string(kSceneTextFormat) + " and older)");
    session.replaceScene([&] {
        TsceneReadingScope reading;
        session.engine().executeScript(text, TsourceLocation{path, 1});
    });
    session.setSceneName(path);
}

void newScene(Tsession& session) {
    session.replaceScene([] {});
    session.setSceneName({});
}
