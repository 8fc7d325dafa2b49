// A surface emitter on a moving 10,000-triangle mesh making 100,000 particles
// a second, one 1/24 s step at a time: the counts split over the triangles by
// area, then births on the triangles through the step. Beside it the plainest
// loop doing the same arithmetic over flat arrays of corners (the same areas,
// the same split, three draws a birth), so that a run reports the ratio. One
// iteration is one step: the time column is milliseconds per step.

#include "Commands/Collisions/TdynSweptGeometry.h"
#include "Commands/Emitters/TdynEmitter.h"
#include "Host/Geometry/TpolyPrimitives.h"
#include "Host/Graph/TdependGraph.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace {

constexpr double kStep = 1.0 / 24.0;
constexpr double kRate = 100'000; // particles a second
constexpr int kPerStep = static_cast<int>(kRate * kStep);

// 50 by 100 quads: 10,000 triangles, 10 by 20 units; the step moves it up by 0.1 and tilts nothing.
struct Sheet {
    TdynSweptGeometry geometry;
    Sheet() {
        const TpolyMesh mesh = makePolyPlane(10, 20, 50, 100);
        geometry.createFromMesh(mesh, T4dDblMatrix());
        geometry.saveLastState();
        geometry.applyMatrix(T4dDblMatrix::translation(T4dDblVector(0, 0.1, 0)));
        geometry.markMoving(true);
    }
};

struct EmitterScene {
    TdependGraph graph;
    TdynEmitter* emitter = nullptr;
    EmitterScene() {
        TdependGraph::setCurrent(&graph);
        emitter = TdynEmitter::cast(graph.createNode("pointEmitter"));
    }
    ~EmitterScene() {
        graph.clear();
        TdependGraph::setCurrent(nullptr);
    }
};

void BM_SurfaceEmitterStep(benchmark::State& state) {
    Sheet sheet;
    EmitterScene scene;
    TdynEmitter& e = *scene.emitter;
    e.setRandomStateWords(1, 0, 1);
    TdynEmitSettings s;
    s.dt = kStep;
    s.speed = 1;
    s.normalSpeed = 1;
    s.inheritFactor = 1;
    const TdynSweptGeometry& g = sheet.geometry;
    TdoubleArray sizes(static_cast<unsigned>(g.triangleCount()));
    Tint32Array counts;
    TdoubleArray u, v;
    TdataArrayAttrs attrs;
    for (auto _ : state) {
        double total = 0;
        for (int k = 0; k < g.triangleCount(); ++k)
            total += sizes[static_cast<unsigned>(k)] = g.triangles[static_cast<unsigned>(k)]->area();
        e.getEmitCountPerSweptGeo(kPerStep, total, sizes, counts);
        attrs.clear();
        e.emitFromTriangle(g, counts, s, false, u, v, attrs);
        benchmark::DoNotOptimize(attrs.getVectorData("position")->data());
    }
    state.SetItemsProcessed(state.iterations() * kPerStep);
}
BENCHMARK(BM_SurfaceEmitterStep)->Unit(benchmark::kMillisecond);

// The same work over flat arrays: corners at both ends of the step, one unit normal a triangle.
void BM_PlainSurfaceLoop(benchmark::State& state) {
    Sheet sheet;
    const TdynSweptGeometry& g = sheet.geometry;
    const unsigned nt = static_cast<unsigned>(g.triangleCount());
    std::vector<double> c0(nt * 9), c1(nt * 9), nrm(nt * 3);
    for (unsigned j = 0; j < nt; ++j) {
        for (int i = 0; i < 3; ++i)
            for (int a = 0; a < 3; ++a) {
                c0[j * 9 + i * 3 + a] = g.triangles[j]->vertex(i, 0)[a];
                c1[j * 9 + i * 3 + a] = g.triangles[j]->vertex(i, 1)[a];
            }
        const T4dDblVector n = g.triangles[j]->normal(1);
        for (int a = 0; a < 3; ++a)
            nrm[j * 3 + a] = n[a];
    }
    std::vector<double> sizes(nt), frac(nt), px(kPerStep), py(kPerStep), pz(kPerStep), vx(kPerStep),
        vy(kPerStep), vz(kPerStep), tt(kPerStep);
    std::vector<int> counts(nt);
    unsigned short st[3] = {1, 0, 1};
    const double inherit = 1 / kStep;
    for (auto _ : state) {
        double total = 0;
        for (unsigned j = 0; j < nt; ++j) {
            const double* p = &c1[j * 9];
            const double ax = p[3] - p[0], ay = p[4] - p[1], az = p[5] - p[2];
            const double bx = p[6] - p[0], by = p[7] - p[1], bz = p[8] - p[2];
            const double cx = ay * bz - az * by, cy = az * bx - ax * bz, cz = ax * by - ay * bx;
            total += sizes[j] = 0.5 * std::sqrt(cx * cx + cy * cy + cz * cz);
        }
        int given = 0;
        double F = 0;
        for (unsigned j = 0; j < nt; ++j) {
            const double x = sizes[j] / total * kPerStep;
            counts[j] = static_cast<int>(x);
            frac[j] = x - counts[j];
            given += counts[j];
            F += frac[j];
        }
        double run = 0;
        for (unsigned j = 0; j < nt; ++j)
            frac[j] = (run += frac[j]) / F;
        for (int left = kPerStep - given; left > 0; --left) {
            const double r = erand48(st);
            ++counts[static_cast<unsigned>(std::lower_bound(frac.begin(), frac.end(), r) - frac.begin())];
        }
        unsigned out = 0;
        for (unsigned j = 0; j < nt; ++j) {
            const double* a = &c0[j * 9];
            const double* b = &c1[j * 9];
            const double* n = &nrm[j * 3];
            for (int k = 0; k < counts[j]; ++k, ++out) {
                double r1 = erand48(st), r2 = erand48(st);
                if (r1 + r2 > 1) r1 = 1 - r1, r2 = 1 - r2;
                const double w0 = 1 - r1 - r2;
                const double t = erand48(st);
                double p0[3], p1[3], v[3];
                for (int i = 0; i < 3; ++i) {
                    p0[i] = a[i] * w0 + a[3 + i] * r1 + a[6 + i] * r2;
                    p1[i] = b[i] * w0 + b[3 + i] * r1 + b[6 + i] * r2;
                    v[i] = n[i] + (p1[i] - p0[i]) * inherit;
                }
                px[out] = p0[0] * (1 - t) + p1[0] * t - v[0] * kStep * t;
                py[out] = p0[1] * (1 - t) + p1[1] * t - v[1] * kStep * t;
                pz[out] = p0[2] * (1 - t) + p1[2] * t - v[2] * kStep * t;
                vx[out] = v[0];
                vy[out] = v[1];
                vz[out] = v[2];
                tt[out] = t;
            }
        }
        benchmark::DoNotOptimize(px.data());
        benchmark::DoNotOptimize(tt.data());
    }
    state.SetItemsProcessed(state.iterations() * kPerStep);
}
BENCHMARK(BM_PlainSurfaceLoop)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
