// Runs the smoke plume and prints one line per step:
//   step=N ms=T density=S maxdiv=D maxdensity=M comy=Y
// ms is the wall time of the step, density the total, maxdiv the largest
// absolute cell divergence (1/s) right after projection, comy the density's
// centre of mass along y in cells (cell j's centre is j). A non-finite value
// anywhere stops the run with status 1.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Fluids/Core/TfluidScenes.h"
#include "Fluids/Core/TnsGridSolver.h"

namespace {

void usage(FILE* out) {
    std::fprintf(out, "usage: motilane-plume [--res N] [--steps N]\n"
                      "  --res N    cells per side of the box (default 64, 4 to 512)\n"
                      "  --steps N  steps of 1/24 s to run (default 100)\n");
}

bool parseCount(const char* flag, const char* text, long lo, long hi, long& out) {
    char* end = nullptr;
    errno = 0;
    const long v = text ? std::strtol(text, &end, 10) : 0;
    if (!text || *text == '\0' || *end != '\0' || errno != 0 || v < lo || v > hi) {
        std::fprintf(stderr, "motilane-plume: %s needs a whole number from %ld to %ld, got \"%s\"\n", flag,
                     lo, hi, text ? text : "");
        return false;
    }
    out = v;
    return true;
}

bool allFinite(const float* a, size_t n) {
    for (size_t c = 0; c < n; ++c)
        if (!std::isfinite(a[c])) return false;
    return true;
}

} // namespace

int main(int argc, char** argv) {
    long res = 64, steps = 100;
    for (int a = 1; a < argc; ++a) {
        const char* arg = argv[a];
        if (!std::strcmp(arg, "--help") || !std::strcmp(arg, "-h")) {
            usage(stdout);
            return 0;
        }
        if (!std::strcmp(arg, "--res")) {
            if (!parseCount("--res", a + 1 < argc ? argv[++a] : nullptr, 4, 512, res)) return 2;
        } else if (!std::strcmp(arg, "--steps")) {
            if (!parseCount("--steps", a + 1 < argc ? argv[++a] : nullptr, 0, 1000000, steps)) return 2;
        } else {
            std::fprintf(stderr, "motilane-plume: unknown argument \"%s\"\n", arg);
            usage(stderr);
            return 2;
        }
    }

    TplumeScene scene{unsigned(res)};
    Tfluid& f = *scene.fluid;
    auto* solver = static_cast<TnsGridSolver*>(f.solver());
    solver->measureDivergence = true;
    TvelocityGrid& v = f.velocityGrid();
    for (long s = 1; s <= steps; ++s) {
        const auto t0 = std::chrono::steady_clock::now();
        scene.step();
        const auto t1 = std::chrono::steady_clock::now();
        const float* d = f.densityGrid().array();
        double total = 0, moment = 0, peak = 0;
        for (unsigned k = 0; k < f.nz; ++k)
            for (unsigned j = 0; j < f.ny; ++j)
                for (unsigned i = 0; i < f.nx; ++i) {
                    const double x = d[f.index(i, j, k)];
                    total += x;
                    moment += x * j;
                    peak = std::max(peak, x);
                }
        const bool finite = allFinite(d, f.n) && allFinite(f.temperatureGrid().array(), f.n) &&
                            allFinite(v.arrayU(), v.gridU().n) && allFinite(v.arrayV(), v.gridV().n) &&
                            allFinite(v.arrayW(), v.gridW().n) && allFinite(v.pressureGrid().array(), f.n);
        const double ms = std::chrono::duration<double, std::milli>(t1 - t0).count();
        std::printf("step=%ld ms=%.2f density=%.6g maxdiv=%.4g maxdensity=%.6g comy=%.4f\n", s, ms, total,
                    solver->lastMaxDivergence, peak, total > 0 ? moment / total : 0.0);
        std::fflush(stdout);
        if (!finite) {
            std::fprintf(stderr, "motilane-plume: a non-finite value appeared in step %ld\n", s);
            return 1;
        }
    }
    return 0;
}
