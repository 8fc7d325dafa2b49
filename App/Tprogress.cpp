#include "Tprogress.h"

#include "Host/Command/TcommandEngine.h"

#include <cstdio>
#include <unistd.h>

Tprogress::Tprogress(std::string what, int total, bool quiet)
    : fWhat(std::move(what)), fTotal(total), fShow(!quiet && isatty(STDERR_FILENO)) {}

void Tprogress::step() {
    ++fDone;
    if (fShow) std::fprintf(stderr, "\r%s: %d/%d", fWhat.c_str(), fDone, fTotal);
}

void Tprogress::done() {
    if (fShow) std::fprintf(stderr, "\r%s: %d/%d done\n", fWhat.c_str(), fDone, fTotal);
}

void installProgressHandler(TcommandEngine& engine, bool quiet) {
    if (quiet || !isatty(STDERR_FILENO)) return;
    engine.setProgressHandler([](const std::string& what, long long done, long long total) {
        // A negative count ends the line of work that stopped early.
        if (done < 0) {
            std::fprintf(stderr, " stopped\n");
            return;
        }
        std::fprintf(stderr, "\r%s: %lld/%lld", what.c_str(), done, total);
        if (done >= total) std::fprintf(stderr, " done\n");
    });
}
