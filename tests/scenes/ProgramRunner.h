#pragma once
// Runs the motilane program as a user would and collects what it printed.

#include <string>
#include <vector>

struct ProgramRun {
    int status = -1;
    std::string out;
    std::string err;
};

// The built program (MOTILANE_BIN, set by the test runner).
std::string programPath();
// Runs it with the arguments; standard input is empty.
ProgramRun runProgram(const std::vector<std::string>& args);
// Writes a script to a fresh file under the test's temporary directory and returns its path.
std::string writeScript(const std::string& name, const std::string& text);
std::string readFile(const std::string& path);
