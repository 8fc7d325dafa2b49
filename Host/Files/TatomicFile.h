#pragma once
// A file written whole or not at all: text goes to a temporary file beside
// the target, which replaces the target only on commit. A file dropped
// without commit leaves the target as it was.

#include <fstream>
#include <string>

class TatomicFile {
public:
    explicit TatomicFile(std::string path);
    ~TatomicFile();
    TatomicFile(const TatomicFile&) = delete;
    TatomicFile& operator=(const TatomicFile&) = delete;

    bool isOpen() const { return fStream.is_open(); }
    // Why the file could not be made (the system's reason), when it is not open.
    const std::string& openError() const { return fOpenError; }
    std::ofstream& stream() { return fStream; }
    const std::string& path() const { return fPath; }
    // Flushes, closes and renames into place; false (and the reason in `error`) on failure.
    bool commit(std::string& error);

private:
    std::string fPath;
    std::string fTemp;
    std::ofstream fStream;
    bool fCommitted = false;
    std::string fOpenError;
};

// Makes a directory and its parents; false with the reason on failure.
bool makeDirectories(const std::string& path, std::string& error);
