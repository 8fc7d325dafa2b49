// motilane-rigid SCENE [--frames N] [--count N] [--stats]: runs a named rigid-body scene
// at 24 frames a second and prints one line of key=value pairs per frame.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Tessarin/tessarin/solver.h"
#include "rigid_scenes.h"

namespace {

int usage(const char* why) {
    std::fprintf(stderr,
                 "motilane-rigid: %s\nusage: motilane-rigid SCENE [--frames N] [--count N] [--stats]\n"
                 "scenes: drop slide stack pyramid pile\n",
                 why);
    return 2;
}

bool parse_int(const char* text, int& out) {
    char* end = nullptr;
    long v = std::strtol(text, &end, 10);
    if (!end || *end || v <= 0 || v > 1000000) return false;
    out = int(v);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage("no scene given");
    std::string name = argv[1];
    int frames = 240, count = 100;
    bool stats = false;
    for (int i = 2; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--frames") && i + 1 < argc) {
            if (!parse_int(argv[++i], frames)) return usage("--frames wants a positive whole number");
        } else if (!std::strcmp(argv[i], "--stats")) {
            stats = true;
        } else if (!std::strcmp(argv[i], "--count") && i + 1 < argc) {
            if (!parse_int(argv[++i], count)) return usage("--count wants a positive whole number");
        } else {
            return usage((std::string("unknown argument '") + argv[i] + "'").c_str());
        }
    }
    auto scene = rigid_scenes::make_scene(name, count);
    if (!scene) return usage(("unknown scene '" + name + "'").c_str());

    using clock = std::chrono::steady_clock;
    double total_ms = 0, worst_move = 0, apex = 0, lowest = 1e300;
    for (int f = 1; f <= frames; ++f) {
        auto t0 = clock::now();
        scene->advance_to(f / 24.0);
        double ms = std::chrono::duration<double, std::milli>(clock::now() - t0).count();
        total_ms += ms;
        std::printf("frame=%d ms=%.3f", f, ms);
        if (name == "drop") {
            double y = scene->subject->x.y;
            apex = std::max(apex, y);
            lowest = std::min(lowest, y);
            std::printf(" y=%.6f vy=%.6f", y, scene->subject->v.y);
        } else if (name == "slide") {
            auto* c = scene->subject;
            std::printf(" x=%.6f vx=%.6f tilt=%.6f", c->x.x, c->v.x,
                        std::sqrt(c->q.i * c->q.i + c->q.j * c->q.j + c->q.k * c->q.k));
        } else {
            double m = scene->max_move();
            worst_move = std::max(worst_move, m);
            std::printf(" maxmove=%.6f", m);
        }
        std::printf(" contacts=%d rows=%d", scene->sys->contacts.size(), scene->sys->rows_solved.step);
        if (stats) {
            // Solver totals since the start, for profiling.
            const auto& t = tessarin::solver_totals();
            std::printf(" solves=%ld warm=%ld/%ld cached=%ld pivots=%ld failures=%ld refused=%ld", t.solves, t.warm_ok,
                        t.warm_tried, t.cache_hits, t.pivots, t.failures, t.refused);
        }
        std::printf("\n");
        std::fflush(stdout);
        if (scene->stalled) break;
    }
    std::printf("summary scene=%s frames=%d bodies=%d steps=%d ms_total=%.1f ms_per_frame=%.3f", name.c_str(),
                frames, int(scene->movers.size()), scene->steps, total_ms, total_ms / frames);
    if (name == "drop") std::printf(" lowest=%.6f", lowest);
    if (name == "slide") std::printf(" x=%.6f", scene->subject->x.x);
    if (name != "drop" && name != "slide") std::printf(" maxmove=%.6f", worst_move);
    std::printf(" stalled=%d\n", scene->stalled ? 1 : 0);
    return scene->stalled ? 1 : 0;
}
