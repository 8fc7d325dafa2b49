#pragma once
// A one-line progress report on standard error, shown only on a terminal.

#include <string>

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
