#include "Host/Files/TatomicFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

TatomicFile::TatomicFile(std::string path) : fPath(std::move(path)), fTemp(fPath + ".partial") {
    errno = 0;
    fStream.open(fTemp, std::ios::binary | std::ios::trunc);
    if (!fStream.is_open()) fOpenError = errno ? std::strerror(errno) : "it cannot be made";
}

TatomicFile::~TatomicFile() {
    if (!fCommitted) {
        if (fStream.is_open()) fStream.close();
        std::remove(fTemp.c_str());
    }
}

bool TatomicFile::commit(std::string& error) {
    if (!fStream.is_open()) {
        error = "cannot write " + fPath + ": " + fOpenError;
        return false;
    }
    errno = 0;
    fStream.flush();
    const int flushError = errno;
    const bool good = fStream.good();
    fStream.close();
    if (!good || !fStream) {
        error =
            "writing " + fPath + " failed: " + (flushError ? std::strerror(flushError) : "the stream broke");
        std::remove(fTemp.c_str());
        return false;
    }
    // On the disk before it takes the old file's place: a crash then leaves the old file or the new one.
    if (const int fd = ::open(fTemp.c_str(), O_RDONLY); fd >= 0) {
        const bool synced = ::fsync(fd) == 0;
        const int syncError = errno;
        ::close(fd);
        if (!synced) {
            error = "writing " + fPath + " failed: " + std::strerror(syncError);
            std::remove(fTemp.c_str());
            return false;
        }
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
