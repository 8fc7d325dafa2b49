#include "Host/Files/TatomicFile.h"

#include <cstdio>
#include <filesystem>
#include <system_error>

TatomicFile::TatomicFile(std::string path) : fPath(std::move(path)), fTemp(fPath + ".partial") {
    fStream.open(fTemp, std::ios::binary | std::ios::trunc);
}

TatomicFile::~TatomicFile() {
    if (!fCommitted) {
        if (fStream.is_open()) fStream.close();
        std::remove(fTemp.c_str());
    }
}

bool TatomicFile::commit(std::string& error) {
    if (!fStream.is_open()) {
        error = "cannot write " + fPath;
        return false;
    }
    fStream.flush();
    const bool good = fStream.good();
    fStream.close();
    if (!good) {
        error = "writing " + fPath + " failed";
        std::remove(fTemp.c_str());
        return false;
    }
    std::error_code ec;
    std::filesystem::rename(fTemp, fPath, ec);
    if (ec) {
        error = "cannot replace " + fPath + ": " + ec.message();
        std::remove(fTemp.c_str());
        return false;
    }
    fCommitted = true;
    return true;
}

bool makeDirectories(const std::string& path, std::string& error) {
    std::error_code ec;
    std::filesystem::create_directories(path, ec);
    if (ec) {
        error = "cannot make directory " + path + ": " + ec.message();
        return false;
    }
    return true;
}
