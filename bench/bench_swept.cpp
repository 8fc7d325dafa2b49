// 100,000 moving points against a 10,000-triangle mesh that rises and falls
// and ripples every step: the swept test with its two levels of boxes, beside the plainest
// loop doing the same arithmetic (every point against every triangle, no box),
// run on a subset of 200 points: its time times 500 is the whole step's.

#include "Commands/Collisions/TdynSweptGeometry.h"
#include "Commands/Collisions/TdynSweptSolve.h"
#include "Host/Data/TdataGeometry.h"
#include "Host/Geometry/TpolyPrimitives.h"

#include <benchmark/benchmark.h>

#include <cfloat>
#include <cmath>
#include <random>
#include <vector>

namespace {

constexpr unsigned kPoints = 100'000;
constexpr unsigned kBruteSubset = 200;
constexpr double kStep = 1.0 / 24.0;
constexpr double kSize = 100;

// 50 x 100 quads: 10,000 triangles over a 100-unit square, rippled by phase.
TpolyMesh surface(double phase) {
    TpolyMesh m = makePolyPlane(kSize, kSize, 50, 100);
    for (T4dDblVector& p : m.points)
        p.y = 0.5 * std::sin(0.3 * p.x + phase) * std::cos(0.2 * p.z) + phase;
    return m;
}

struct Rain {
    std::vector<T4dDblVector> start, velocity;
    Rain() : start(kPoints), velocity(kPoints) {
        std::mt19937 rng(3);
        std::uniform_real_distribution<double> u(0, 1);
        for (unsigned i = 0; i < kPoints; ++i) {
            const double x = (u(rng) - 0.5) * kSize * 0.98, z = (u(rng) - 0.5) * kSize * 0.98;
            start[i] = {x, 0.5 * std::sin(0.3 * x) * std::cos(0.2 * z) + 0.02 + u(rng) * 0.4, z};
            velocity[i] = {u(rng) - 0.5, -2 - 8 * u(rng), u(rng) - 0.5};
        }
    }
};

const Rain& rain() {
    static const Rain r;
    return r;
}

// One step of the mesh to its next state.
void stepGeometry(TdynSweptGeometry& g, const Tdata& next) {
    g.saveLastState();
    g.rebuild(next, {});
    g.markMoving(true);
    g.refreshBoundingBox();
}

void BM_SweptStep(benchmark::State& state) {
    const Rain& r = rain();
    TdynSweptGeometry g;
    g.create(makeData<TdataMesh>(surface(0)), {});
    // The mesh swings between two states, so that every step has it moving.
    const Tdata states[2] = {makeData<TdataMesh>(surface(0.05)), makeData<TdataMesh>(surface(0))};
    TdynSweptPointSet set;
    set.setCount(kPoints);
    long hits = 0;
    int parity = 0;
    for (auto _ : state) {
        stepGeometry(g, states[parity]); // what the connector does each step
        parity ^= 1;
        for (unsigned i = 0; i < kPoints; ++i) {
            TdynSweptPoint& p = set.point(i);
            p.set(r.start[i], r.start[i] + r.velocity[i] * kStep, r.velocity[i]);
            hits += g.intersectsWithPoint(p, kStep, 1e-7, 1, 0, nullptr);
        }
        benchmark::DoNotOptimize(hits);
    }
    state.counters["hits_per_step"] = double(hits) / double(state.iterations());
}
BENCHMARK(BM_SweptStep)->Unit(benchmark::kMillisecond);

// The same hit arithmetic over plain arrays of corners: polynomial, solver, edge planes at each root.
struct PlainTriangles {
    std::vector<T4dDblVector> s0, s1, s2, e0, e1, e2;
    explicit PlainTriangles(const TdynSweptGeometry& g) {
        for (const TdynSweptTriangle* t : g.triangles) {
            s0.push_back(t->vertex(0, 0));
            s1.push_back(t->vertex(1, 0));
            s2.push_back(t->vertex(2, 0));
            e0.push_back(t->vertex(0, 1));
            e1.push_back(t->vertex(1, 1));
            e2.push_back(t->vertex(2, 1));
        }
    }
};

bool insideAt(const T4dDblVector& p0, const T4dDblVector& p1, const T4dDblVector& p2, const T4dDblVector& q) {
    const T4dDblVector n = (p1 - p0).cross(p2 - p1).normal();
    const T4dDblVector* c[3] = {&p0, &p1, &p2};
    for (int e = 0; e < 3; ++e) {
        const T4dDblVector out = (*c[(e + 1) % 3] - *c[e]).cross(n).normal();
        if (out.dot(q) - out.dot(*c[e]) - 1e-10 > 0) return false;
    }
    return true;
}

double plainEarliest(const PlainTriangles& t, std::size_t k, const T4dDblVector& a, const T4dDblVector& b) {
    const T4dDblVector A0 = t.s2[k] - t.s1[k], A1 = t.e2[k] - t.e1[k], A2 = A1 - A0;
    const T4dDblVector B0 = t.s0[k] - t.s1[k], B1 = t.e0[k] - t.e1[k], B2 = B1 - B0;
    const T4dDblVector X0 = A0.cross(B0), X1 = A2.cross(B2), X2 = A0.cross(B2) + A2.cross(B0);
    const T4dDblVector q0 = a - t.s2[k], q1 = (b - t.e2[k]) - q0;
    double roots[3];
    const int n = TdynSweptSolve::solvePolynomial(X0.dot(q0), X0.dot(q1) + X2.dot(q0),
                                                  X1.dot(q0) + X2.dot(q1), X1.dot(q1), roots);
    double best = DBL_MAX;
    for (int r = 0; r < n; ++r) {
        const double x = roots[r];
        if (!(x < best && x < 1.1 && x >= 0)) continue;
        const T4dDblVector p0 = t.s0[k] + (t.e0[k] - t.s0[k]) * x, p1 = t.s1[k] + (t.e1[k] - t.s1[k]) * x,
                           p2 = t.s2[k] + (t.e2[k] - t.s2[k]) * x;
        if (insideAt(p0, p1, p2, a + (b - a) * x)) best = x;
    }
    return best;
}

void BM_PlainBruteForceScaled(benchmark::State& state) {
    const Rain& r = rain();
    TdynSweptGeometry g;
    g.create(makeData<TdataMesh>(surface(0)), {});
    stepGeometry(g, makeData<TdataMesh>(surface(0.05)));
    const PlainTriangles t(g);
    const std::size_t n = t.s0.size();
    long hits = 0;
    for (auto _ : state) {
        for (unsigned i = 0; i < kBruteSubset; ++i) {
            const T4dDblVector a = r.start[i], b = r.start[i] + r.velocity[i] * kStep;
            double best = DBL_MAX;
            for (std::size_t k = 0; k < n; ++k) {
                const double h = plainEarliest(t, k, a, b);
                if (h < best) best = h;
            }
            hits += best <= 1;
        }
        benchmark::DoNotOptimize(hits);
    }
    // The time column is for the subset; this many subsets make the whole step.
    state.counters["subsets_per_step"] = double(kPoints) / kBruteSubset;
    state.counters["hits_per_subset"] = double(hits) / double(state.iterations());
}
BENCHMARK(BM_PlainBruteForceScaled)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
