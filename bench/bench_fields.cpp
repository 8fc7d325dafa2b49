// A million points through turbulence, radial (attenuation 1, reach on) and
// vortex, each beside the plainest loop doing the same arithmetic over
// separate x, y, z arrays, so that a run reports the ratio of the two.

#include "Commands/Fields/TdynRadial.h"
#include "Commands/Fields/TdynTurbulence.h"
#include "Commands/Fields/TdynVortex.h"
#include "Host/Graph/TdependGraph.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace {

constexpr unsigned kPoints = 1'000'000;
constexpr double kStep = 1.0 / 24.0;

struct Points {
    std::vector<double> x, y, z;
    T4dDblVectorArray positions, velocities;
    TdoubleArray masses;
    Points()
        : x(kPoints), y(kPoints), z(kPoints), positions(kPoints), velocities(kPoints), masses(kPoints, 1.0) {
        // A lattice of points spread over a 20-unit cube, some outside the reach of 15.
        for (unsigned i = 0; i < kPoints; ++i) {
            x[i] = (i % 100) * 0.2 - 10;
            y[i] = (i / 100 % 100) * 0.2 - 10;
            z[i] = (i / 10000) * 0.2 - 10;
            positions[i] = {x[i], y[i], z[i]};
        }
    }
};

const Points& points() {
    static const Points p;
    return p;
}

// A graph with one field node, kept for the run.
struct FieldScene {
    TdependGraph graph;
    TdynField* field = nullptr;
    explicit FieldScene(const char* type) {
        TdependGraph::setCurrent(&graph);
        field = TdynField::cast(graph.createNode(type));
    }
    ~FieldScene() {
        graph.clear();
        TdependGraph::setCurrent(nullptr);
    }
};

void runField(benchmark::State& state, TdynField* field) {
    const Points& p = points();
    T4dDblVectorArray forces(kPoints);
    for (auto _ : state) {
        std::fill(forces.begin(), forces.end(), T4dDblVector());
        TdynPointReceptor r(&p.positions, &p.velocities, &p.masses, &forces, kStep);
        field->apply(r, 0, true);
        benchmark::DoNotOptimize(forces.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}

// ---- turbulence ----

void BM_FieldTurbulence(benchmark::State& state) {
    FieldScene s("turbulenceField");
    s.field->setMagnitude(5);
    runField(state, s.field);
}

inline double lattice(std::uint32_t ix, std::uint32_t iy, std::uint32_t iz, std::uint32_t a, std::uint32_t b,
                      std::uint32_t c) {
    std::uint32_t n = a * ix + b * iy + c * iz;
    n = (n << 13) ^ n;
    return 1.0 + ((n * n * n * 15731u + n * 789221u + 1376312589u) & 0x7fffffffu) * -9.313225746154785e-10;
}

void BM_PlainTurbulence(benchmark::State& state) {
    const Points& p = points();
    std::vector<double> fx(kPoints), fy(kPoints), fz(kPoints);
    const std::uint32_t mul[3][3] = {{67, 59, 71}, {73, 79, 83}, {89, 97, 101}};
    for (auto _ : state) {
        for (unsigned i = 0; i < kPoints; ++i)
            fx[i] = fy[i] = fz[i] = 0;
        for (unsigned i = kPoints; i-- > 0;) {
            const double qx = p.x[i], qy = p.y[i], qz = p.z[i];
            const double x0 = std::floor(qx), y0 = std::floor(qy), z0 = std::floor(qz);
            const auto ix = static_cast<std::uint32_t>(static_cast<std::int64_t>(x0));
            const auto iy = static_cast<std::uint32_t>(static_cast<std::int64_t>(y0));
            const auto iz = static_cast<std::uint32_t>(static_cast<std::int64_t>(z0));
            const double tx = qx - x0, ty = qy - y0, tz = qz - z0;
            double out[3];
            for (int c = 0; c < 3; ++c) {
                const std::uint32_t A = mul[c][0], B = mul[c][1], C = mul[c][2];
                const double a00 = lattice(ix, iy, iz, A, B, C) +
                                   tx * (lattice(ix + 1, iy, iz, A, B, C) - lattice(ix, iy, iz, A, B, C));
                const double a10 =
                    lattice(ix, iy + 1, iz, A, B, C) +
                    tx * (lattice(ix + 1, iy + 1, iz, A, B, C) - lattice(ix, iy + 1, iz, A, B, C));
                const double a01 =
                    lattice(ix, iy, iz + 1, A, B, C) +
                    tx * (lattice(ix + 1, iy, iz + 1, A, B, C) - lattice(ix, iy, iz + 1, A, B, C));
                const double a11 =
                    lattice(ix, iy + 1, iz + 1, A, B, C) +
                    tx * (lattice(ix + 1, iy + 1, iz + 1, A, B, C) - lattice(ix, iy + 1, iz + 1, A, B, C));
                const double b0 = a00 + ty * (a10 - a00), b1 = a01 + ty * (a11 - a01);
                out[c] = b0 + tz * (b1 - b0);
            }
            fx[i] += out[0] * 5;
            fy[i] += out[1] * 5;
            fz[i] += out[2] * 5;
        }
        benchmark::DoNotOptimize(fx.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}

// ---- radial, attenuation 1, reach 15 ----

void BM_FieldRadial(benchmark::State& state) {
    FieldScene s("radialField");
    s.field->setMagnitude(5);
    s.field->setAttenuation(1);
    s.field->setUseMaxDistance(true);
    s.field->setMaxDistance(15);
    runField(state, s.field);
}

void BM_PlainRadial(benchmark::State& state) {
    const Points& p = points();
    std::vector<double> fx(kPoints), fy(kPoints), fz(kPoints);
    // Kept opaque, as the field reads them from its node: pow(x, 1) must not fold away.
    volatile double settings[3] = {5, 15, 1};
    const double u = settings[0], R = settings[1], a = settings[2];
    for (auto _ : state) {
        for (unsigned i = 0; i < kPoints; ++i)
            fx[i] = fy[i] = fz[i] = 0;
        for (unsigned i = kPoints; i-- > 0;) {
            const double d = std::sqrt(p.x[i] * p.x[i] + p.y[i] * p.y[i] + p.z[i] * p.z[i]);
            if (d > R) continue;
            const double k = u * std::pow(1 - d / R, a);
            fx[i] += p.x[i] * k;
            fy[i] += p.y[i] * k;
            fz[i] += p.z[i] * k;
        }
        benchmark::DoNotOptimize(fx.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}

// ---- vortex about y ----

void BM_FieldVortex(benchmark::State& state) {
    FieldScene s("vortexField");
    s.field->setMagnitude(30);
    s.field->setNumber(TdynVortex::saAxis()->children()[1], 1);
    runField(state, s.field);
}

void BM_PlainVortex(benchmark::State& state) {
    const Points& p = points();
    std::vector<double> fx(kPoints), fy(kPoints), fz(kPoints);
    volatile double settings[4] = {0, 1, 0, 0.3};
    const double x = settings[0], y = settings[1], z = settings[2], angle = settings[3];
    const double c = std::cos(angle), sn = std::sqrt(1 - c * c), q = 1 - c, inv = 1 / kStep;
    for (auto _ : state) {
        for (unsigned i = 0; i < kPoints; ++i)
            fx[i] = fy[i] = fz[i] = 0;
        for (unsigned i = kPoints; i-- > 0;) {
            const double rx = p.x[i], ry = p.y[i], rz = p.z[i];
            const double X = (x * x * q + c) * rx + (x * y * q - sn * z) * ry + (x * z * q + y * sn) * rz;
            const double Y = (x * y * q + sn * z) * rx + (y * y * q + c) * ry + (y * z * q - x * sn) * rz;
            const double Z = (x * z * q - y * sn) * rx + (y * z * q + x * sn) * ry + (z * z * q + c) * rz;
            fx[i] += (X - rx) * inv;
            fy[i] += (Y - ry) * inv;
            fz[i] += (Z - rz) * inv;
        }
        benchmark::DoNotOptimize(fx.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}

} // namespace

BENCHMARK(BM_FieldTurbulence)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainTurbulence)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FieldRadial)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainRadial)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FieldVortex)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainVortex)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
