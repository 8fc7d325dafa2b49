// 100,000 particles raining under gravity on a 20,000-triangle plane (100 x 100
// quads over 100 units), stepped frame by frame through the graph:
//  - RainStep/1: the whole step with collisions (trace, response, records);
//  - RainStep/0: the same scene without the collision, so the difference is what collisions cost;
//  - RainSweptOnly: the swept intersection alone over the segments the stepped scene traces;
//  - RainPlainLoop: the plainest loop for this scene (each crossing segment against the two triangles
//    of the grid cell under the crossing, closed form), the reference for RainSweptOnly.
// The share of the step spent in the swept intersection is RainSweptOnly / RainStep/1.

#include "Commands/Collisions/TdynSweptGeometry.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Host/Command/ToptionVars.h"
#include "Host/Data/TdataGeometry.h"
#include "Host/Geometry/TpolyPrimitives.h"
#include "Host/Session/Tsession.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

constexpr unsigned kParticles = 100'000;
constexpr double kSize = 100;
constexpr int kCells = 100; // 100 x 100 quads: 20,000 triangles
constexpr double kStep = 1.0 / 24.0;
// Frames of rain before the scene starts over (most particles have landed by then).
constexpr int kFrames = 12;

struct Rain {
    T4dDblVectorArray position, velocity;
    Rain() : position(kParticles), velocity(kParticles) {
        std::mt19937 rng(7);
        std::uniform_real_distribution<double> u(0, 1);
        for (unsigned i = 0; i < kParticles; ++i) {
            position[i] = {(u(rng) - 0.5) * kSize * 0.98, 0.05 + 3 * u(rng), (u(rng) - 0.5) * kSize * 0.98};
            velocity[i] = {u(rng) - 0.5, -5 - 15 * u(rng), u(rng) - 0.5};
        }
    }
};

const Rain& rain() {
    static const Rain r;
    return r;
}

void BM_RainStep(benchmark::State& state) {
    const bool collide = state.range(0) != 0;
    ToptionVars::remove("dynPrefRunUpToCurrentTime");
    ToptionVars::remove("dynPrefRunupFrom");
    Tsession session;
    std::string script = "polyPlane -n ground -w 100 -h 100 -sx 100 -sy 100; particle -n p; gravity -n g;"
                         "connectDynamic -f g p;";
    if (collide) script += "collision -r 0.5 -f 0.1 ground p;";
    if (!session.runText(script, "bench", false)) {
        state.SkipWithError("the scene could not be made");
        return;
    }
    auto* p = TdynParticleShape::cast(session.graph().findNode("pShape"));
    p->addParticles(rain().position, &rain().velocity);
    p->forceDynamics();
    int frame = 1;
    long hits = 0;
    for (auto _ : state) {
        if (frame == kFrames) {
            state.PauseTiming();
            frame = 1;
            session.graph().setTime(TanimTime(frame, kCurrentFrameUnit), true);
            state.ResumeTiming();
        }
        session.graph().setTime(TanimTime(++frame, kCurrentFrameUnit), true);
        state.PauseTiming();
        Tdata d = p->normalBlock().outputValue(TdynParticleShape::sVsData()->collisionRecords).data();
        if (auto* r = d.as<TdataArrayAttrs>(); r && r->getInt32Data("index"))
            hits += r->getInt32Data("index")->length();
        state.ResumeTiming();
    }
    state.counters["hits_per_step"] = double(hits) / double(state.iterations());
}
BENCHMARK(BM_RainStep)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

// The segments the stepped scene traces, frame by frame: each step starts where the last one left the
// particles and moves them by their velocity after gravity (the only force).
struct Segments {
    struct Frame {
        std::vector<T4dDblVector> start, end, velocity;
    };
    std::vector<Frame> frames;
    Segments() {
        ToptionVars::remove("dynPrefRunUpToCurrentTime");
        ToptionVars::remove("dynPrefRunupFrom");
        Tsession session;
        session.runText("polyPlane -n ground -w 100 -h 100 -sx 100 -sy 100; particle -n p; gravity -n g;"
                        "connectDynamic -f g p; collision -r 0.5 -f 0.1 ground p;",
                        "bench", false);
        auto* p = TdynParticleShape::cast(session.graph().findNode("pShape"));
        p->addParticles(rain().position, &rain().velocity);
        p->forceDynamics();
        auto* vs = TdynParticleShape::sVsData();
        for (int f = 2; f <= kFrames; ++f) {
            Tdata pd = p->normalBlock().outputValue(vs->position).data();
            Tdata vd = p->normalBlock().outputValue(vs->velocity).data();
            const T4dDblVectorArray& P = *TdynStatic::dataVectorArray(pd);
            const T4dDblVectorArray& V = *TdynStatic::dataVectorArray(vd);
            Frame fr;
            for (unsigned i = 0; i < P.length(); ++i) {
                const T4dDblVector v = V[i] + T4dDblVector{0, -9.8 * kStep, 0};
                fr.start.push_back(P[i]);
                fr.end.push_back(P[i] + v * kStep);
                fr.velocity.push_back(v);
            }
            frames.push_back(std::move(fr));
            session.graph().setTime(TanimTime(f, kCurrentFrameUnit), true);
        }
    }
};

const Segments& segments() {
    static const Segments s;
    return s;
}

void BM_RainSweptOnly(benchmark::State& state) {
    const Segments& s = segments();
    TdynSweptGeometry g;
    g.create(makeData<TdataMesh>(makePolyPlane(kSize, kSize, kCells, kCells)), {});
    g.saveLastState();
    g.markMoving(false);
    g.refreshBoundingBox();
    TdynSweptPointSet set;
    set.setCount(kParticles);
    long hits = 0;
    std::size_t k = 0;
    for (auto _ : state) {
        const Segments::Frame& f = s.frames[k];
        k = (k + 1) % s.frames.size();
        for (unsigned i = 0; i < f.start.size(); ++i) {
            TdynSweptPoint& pt = set.point(i);
            pt.set(f.start[i], f.end[i], f.velocity[i]);
            hits += g.intersectsWithPoint(pt, kStep, 1e-7, 0.5, 0.1, nullptr);
        }
        benchmark::DoNotOptimize(hits);
    }
    state.counters["hits_per_step"] = double(hits) / double(state.iterations());
}
BENCHMARK(BM_RainSweptOnly)->Unit(benchmark::kMillisecond);

// Segment against a triangle of the plane y = 0: the crossing in closed form, then barycentric bounds.
bool plainHit(const T4dDblVector& a, const T4dDblVector& b, const T4dDblVector& c0, const T4dDblVector& c1,
              const T4dDblVector& c2, double& t) {
    const double da = a.y, db = b.y;
    if ((da > 0) == (db > 0)) return false;
    t = da / (da - db);
    const T4dDblVector q = a + (b - a) * t;
    const double d1x = c1.x - c0.x, d1z = c1.z - c0.z, d2x = c2.x - c0.x, d2z = c2.z - c0.z;
    const double det = d1x * d2z - d1z * d2x;
    const double qx = q.x - c0.x, qz = q.z - c0.z;
    const double w1 = (qx * d2z - qz * d2x) / det, w2 = (d1x * qz - d1z * qx) / det;
    return w1 >= -1e-10 && w2 >= -1e-10 && w1 + w2 <= 1 + 1e-10;
}

void BM_RainPlainLoop(benchmark::State& state) {
    const Segments& s = segments();
    const TpolyMesh m = makePolyPlane(kSize, kSize, kCells, kCells);
    const double cell = kSize / kCells;
    const auto id = [](int x, int y) { return static_cast<std::size_t>(y * (kCells + 1) + x); };
    long hits = 0;
    std::size_t k = 0;
    for (auto _ : state) {
        const Segments::Frame& f = s.frames[k];
        k = (k + 1) % s.frames.size();
        for (unsigned i = 0; i < f.start.size(); ++i) {
            const T4dDblVector a = f.start[i], b = f.end[i];
            if ((a.y > 0) == (b.y > 0)) continue;
            // The cell under the crossing, and its two triangles.
            const T4dDblVector q = a + (b - a) * (a.y / (a.y - b.y));
            const int ci = std::clamp(static_cast<int>((q.x + kSize / 2) / cell), 0, kCells - 1);
            const int cj = std::clamp(static_cast<int>((kSize / 2 - q.z) / cell), 0, kCells - 1);
            const T4dDblVector& p00 = m.points[id(ci, cj)];
            const T4dDblVector& p10 = m.points[id(ci + 1, cj)];
            const T4dDblVector& p11 = m.points[id(ci + 1, cj + 1)];
            const T4dDblVector& p01 = m.points[id(ci, cj + 1)];
            double t = 0;
            hits += plainHit(a, b, p00, p10, p11, t) || plainHit(a, b, p00, p11, p01, t);
        }
        benchmark::DoNotOptimize(hits);
    }
    state.counters["hits_per_step"] = double(hits) / double(state.iterations());
}
BENCHMARK(BM_RainPlainLoop)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
