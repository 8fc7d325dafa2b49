#include "ProgramRunner.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

std::string programPath() {
    const char* bin = std::getenv("MOTILANE_BIN");
    return bin ? bin : "motilane";
}

namespace {
std::string quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}
} // namespace

ProgramRun runProgram(const std::vector<std::string>& args) {
    static int counter = 0;
    const std::string base = ::testing::TempDir() + "motilane_run_" + std::to_string(getpid()) + "_" +
                             std::to_string(counter++);
    std::string cmd = quote(programPath());
    for (const std::string& a : args) cmd += " " + quote(a);
    cmd += " </dev/null >" + quote(base + ".out") + " 2>" + quote(base + ".err");
    ProgramRun r;
    int raw = std::system(cmd.c_str());
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.out = readFile(base + ".out");
    r.err = readFile(base + ".err");
    std::remove((base + ".out").c_str());
    std::remove((base + ".err").c_str());
    return r;
}

std::string writeScript(const std::string& name, const std::string& text) {
    std::string path = ::testing::TempDir() + name;
    std::ofstream(path) << text;
    return path;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}
