#pragma once
// A one-line progress report on standard error, shown only on a terminal.

#include <string>

class TcommandEngine;

class Tprogress {
public:
    Tprogress(std::string what, int total, bool quiet);
    void step();
    void done();

private:
    std::string fWhat;
    int fTotal;
    int fDone = 0;
    bool fShow;
};

// Long commands (run-up, export) report through the engine; this shows them
// the same way.
void installProgressHandler(TcommandEngine& engine, bool quiet);
