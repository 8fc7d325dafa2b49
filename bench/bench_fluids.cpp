// Fluid core benchmarks: a whole plume step at 64^3 and 128^3; one
// conjugate-gradient iteration on the pressure at 128^3 and the transport of
// one scalar at 64^3, each beside the plainest loop doing the same arithmetic
// (the ratio solver / plain is the figure to watch).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <vector>

#include "Fluids/Core/TfluidScenes.h"
#include "Fluids/Core/TnsGridSolver.h"

namespace {

void BM_PlumeStep(benchmark::State& state) {
    const unsigned res = unsigned(state.range(0));
    TplumeScene scene(res);
    // A few frames first so that the flow is developed.
    for (int i = 0; i < 5; ++i)
        scene.step();
    for (auto _ : state)
        scene.step();
    state.counters["cells"] = double(res) * res * res;
    state.counters["ns/cell"] = benchmark::Counter(
        double(res) * res * res, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_PlumeStep)->Arg(64)->Arg(128)->Unit(benchmark::kMillisecond)->UseRealTime();

// Pressure system of a 128^3 closed box with a random right-hand side.
struct PressureSetup {
    std::unique_ptr<Tfluid> fluid;
    std::vector<float> rhs;
    explicit PressureSetup(unsigned res) : fluid(std::make_unique<Tfluid>()) {
        fluid->setSize(res, res, res, 10, 10, 10);
        fluid->setVelocityMethod(kMethodGrid);
        srand48(1);
        rhs.resize(fluid->n);
        for (float& v : rhs)
            v = float(drand48() - 0.5);
    }
    TbuffFloatFluidGrid& grid() { return fluid->velocityGrid().pressureGrid(); }
    void load() {
        TbuffFloatFluidGrid& g = grid();
        std::copy(rhs.begin(), rhs.end(), g.prevArray());
        std::fill(g.array(), g.array() + g.n, 0.0f);
    }
};

// One iteration through the solver's own routine: the start residual
// (one operator application) and one iteration (one more, plus the vector work).
void BM_CGIteration(benchmark::State& state) {
    PressureSetup s(unsigned(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        s.load();
        state.ResumeTiming();
        TnsGridSolver::CGsolve(s.fluid.get(), s.grid(), 0.0f, TnsGridSolver::poissonMult3d,
                               TnsGridSolver::poissonPrecond3d, 1, 0.0f);
        benchmark::DoNotOptimize(s.grid().array());
    }
}
BENCHMARK(BM_CGIteration)->Arg(128)->Unit(benchmark::kMillisecond);

// The same arithmetic written as plainly as possible: clamped neighbours,
// the 0.96 border leak, the constant diagonal, single-accumulator dots.
void plainPoisson(const float* x, float* y, int X, int Y, int Z, double ix, double iy, double iz) {
    auto at = [&](int i, int j, int k) {
        i = std::clamp(i, 0, X - 1);
        j = std::clamp(j, 0, Y - 1);
        k = std::clamp(k, 0, Z - 1);
        return double(x[i + X * (j + Y * k)]);
    };
    for (int k = 0; k < Z; ++k)
        for (int j = 0; j < Y; ++j)
            for (int i = 0; i < X; ++i) {
                const double c = at(i, j, k);
                const double xm = at(i - 1, j, k) * (i == 0 ? 0.96 : 1.0);
                const double xp = at(i + 1, j, k) * (i == X - 1 && i != 0 ? 0.96 : 1.0);
                const double ym = at(i, j - 1, k) * (j == 0 ? 0.96 : 1.0);
                const double yp = at(i, j + 1, k) * (j == Y - 1 && j != 0 ? 0.96 : 1.0);
                const double zm = at(i, j, k - 1) * (k == 0 ? 0.96 : 1.0);
                const double zp = at(i, j, k + 1) * (k == Z - 1 && k != 0 ? 0.96 : 1.0);
                y[i + X * (j + Y * k)] =
                    float((2 * c - xm - xp) * ix + (2 * c - ym - yp) * iy + (2 * c - zm - zp) * iz);
            }
}

double plainDot(const float* a, const float* b, size_t n) {
    double s = 0;
    for (size_t c = 0; c < n; ++c)
        s += double(a[c]) * b[c];
    return s;
}

void BM_CGIterationPlainLoop(benchmark::State& state) {
    PressureSetup s(unsigned(state.range(0)));
    const int R = int(state.range(0));
    const size_t n = s.fluid->n;
    float ixf, iyf, izf;
    TnsGridSolver::setIdInverse(s.grid(), 1.0f, ixf, iyf, izf);
    const double diag = 2.0 * (double(ixf) + iyf + izf);
    std::vector<float> r(n), p(n), z(n), q(n);
    for (auto _ : state) {
        state.PauseTiming();
        s.load();
        state.ResumeTiming();
        float* x = s.grid().array();
        const float* b = s.grid().prevArray();
        const double normb = std::sqrt(plainDot(b, b, n));
        plainPoisson(x, q.data(), R, R, R, ixf, iyf, izf);
        for (size_t c = 0; c < n; ++c)
            r[c] = float(double(b[c]) - q[c]);
        double res = std::sqrt(plainDot(r.data(), r.data(), n)) / normb;
        for (size_t c = 0; c < n; ++c)
            z[c] = float(r[c] / diag);
        const double rho = plainDot(r.data(), z.data(), n);
        std::copy(z.begin(), z.end(), p.begin());
        plainPoisson(p.data(), q.data(), R, R, R, ixf, iyf, izf);
        const double a = rho / plainDot(p.data(), q.data(), n);
        for (size_t c = 0; c < n; ++c) {
            x[c] = float(x[c] + a * p[c]);
            r[c] = float(r[c] - a * q[c]);
        }
        res = std::sqrt(plainDot(r.data(), r.data(), n)) / normb;
        benchmark::DoNotOptimize(res);
        benchmark::DoNotOptimize(x);
    }
}
BENCHMARK(BM_CGIterationPlainLoop)->Arg(128)->Unit(benchmark::kMillisecond);

// Semi-Lagrangian transport of one scalar through a developed plume's
// velocity, the bulk of a step, through the solver ...
void BM_TransportScalar(benchmark::State& state) {
    TplumeScene scene(unsigned(state.range(0)));
    for (int i = 0; i < 10; ++i)
        scene.step();
    Tfluid& f = *scene.fluid;
    auto* solver = static_cast<TnsGridSolver*>(f.solver());
    TbuffFloatFluidGrid& d = f.densityGrid();
    for (auto _ : state) {
        solver->transport_scalar3d(f, d, f.velocityGrid(), TplumeScene::kFrameSeconds, false, false);
        d.moveCurrentToPrevious(); // the source back in front: each pass samples the same field
    }
    state.counters["ns/cell"] = benchmark::Counter(
        double(f.n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_TransportScalar)->Arg(64)->Unit(benchmark::kMillisecond);

// ... and as the plainest loop: clamped trilinear samples of the staggered
// components at two trace points, then of the scalar.
void BM_TransportScalarPlainLoop(benchmark::State& state) {
    TplumeScene scene(unsigned(state.range(0)));
    for (int i = 0; i < 10; ++i)
        scene.step();
    Tfluid& f = *scene.fluid;
    TvelocityGrid& v = f.velocityGrid();
    const int X = int(f.nx), Y = int(f.ny), Z = int(f.nz);
    const double h = f.dx, x0 = f.originX(), y0 = f.originY(), z0 = f.originZ(),
                 dt = TplumeScene::kFrameSeconds;
    std::vector<float> src(f.densityGrid().array(), f.densityGrid().array() + f.n), dst(f.n);
    auto sample = [](const float* a, int rx, int ry, int rz, double gx, double gy, double gz) {
        const int i = int(std::floor(gx)), j = int(std::floor(gy)), k = int(std::floor(gz));
        const double tx = gx - i, ty = gy - j, tz = gz - k;
        auto at = [&](int a0, int b0, int c0) {
            a0 = std::clamp(a0, 0, rx - 1);
            b0 = std::clamp(b0, 0, ry - 1);
            c0 = std::clamp(c0, 0, rz - 1);
            return double(a[a0 + rx * (b0 + ry * c0)]);
        };
        double r = 0;
        for (int c = 0; c < 2; ++c)
            for (int b = 0; b < 2; ++b)
                for (int a0 = 0; a0 < 2; ++a0)
                    r +=
                        at(i + a0, j + b, k + c) * (a0 ? tx : 1 - tx) * (b ? ty : 1 - ty) * (c ? tz : 1 - tz);
        return r;
    };
    auto velocity = [&](double px, double py, double pz, double out[3]) {
        const double gx = (px - x0) / h - 0.5, gy = (py - y0) / h - 0.5, gz = (pz - z0) / h - 0.5;
        out[0] = sample(v.arrayU(), X + 1, Y, Z, gx + 0.5, gy, gz);
        out[1] = sample(v.arrayV(), X, Y + 1, Z, gx, gy + 0.5, gz);
        out[2] = sample(v.arrayW(), X, Y, Z + 1, gx, gy, gz + 0.5);
    };
    for (auto _ : state) {
        for (int k = 0; k < Z; ++k)
            for (int j = 0; j < Y; ++j)
                for (int i = 0; i < X; ++i) {
                    const double px = (i + 0.5) * h + x0, py = (j + 0.5) * h + y0, pz = (k + 0.5) * h + z0;
                    double a[3], b[3];
                    velocity(px, py, pz, a);
                    velocity(px - 0.5 * dt * a[0], py - 0.5 * dt * a[1], pz - 0.5 * dt * a[2], b);
                    const double qx = px - dt * b[0], qy = py - dt * b[1], qz = pz - dt * b[2];
                    dst[size_t(i + X * (j + Y * k))] = float(sample(
                        src.data(), X, Y, Z, (qx - x0) / h - 0.5, (qy - y0) / h - 0.5, (qz - z0) / h - 0.5));
                }
        benchmark::DoNotOptimize(dst.data());
    }
    state.counters["ns/cell"] = benchmark::Counter(
        double(f.n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_TransportScalarPlainLoop)->Arg(64)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
