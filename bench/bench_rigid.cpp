// Frame cost of the rigid-body scenes, beside the plainest dense solve of a
// system the size of the scene's largest island.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "Tessarin/tessarin/basis_factors.h"
#include "Tessarin/tessarin/contact.h"
#include "rigid_scenes.h"

namespace {

// Runs frames of a scene that has settled for a second first.
void run_frames(benchmark::State& state, const char* name, int count) {
    auto scene = rigid_scenes::make_scene(name, count);
    scene->advance_to(1.0);
    int frame = 24;
    long rows = 0;
    for (auto _ : state) {
        ++frame;
        scene->advance_to(frame / 24.0);
        rows += scene->sys->rows_solved.step;
    }
    state.counters["contacts"] = scene->sys->contacts.size();
    state.counters["bodies"] = double(scene->movers.size());
    state.counters["maxmove"] = scene->max_move();
}

void BM_pyramid_frame(benchmark::State& state) {
    run_frames(state, "pyramid", 10);
}
void BM_pile_frame(benchmark::State& state) {
    run_frames(state, "pile", int(state.range(0)));
}

// The plainest loop over the same arithmetic: Gaussian elimination of a dense
// symmetric positive definite system of n rows (what one cold island solve
// amounts to if every row were active).
void BM_dense_solve(benchmark::State& state) {
    const int n = int(state.range(0));
    const size_t nn = static_cast<size_t>(n);
    std::vector<double> A0(nn * nn), A(nn * nn), b0(nn), b(nn);
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j)
            A0[size_t(i) * n + j] = (i == j ? 2.0 : 0.0) + 1.0 / (1 + std::abs(i - j));
        b0[size_t(i)] = 1;
    }
    for (auto _ : state) {
        A = A0;
        b = b0;
        for (int k = 0; k < n; ++k) {
            const double* rk = &A[size_t(k) * n];
            for (int i = k + 1; i < n; ++i) {
                double* ri = &A[size_t(i) * n];
                const double f = ri[k] / rk[k];
                for (int j = k; j < n; ++j)
                    ri[j] -= f * rk[j];
                b[size_t(i)] -= f * b[size_t(k)];
            }
        }
        for (int k = n - 1; k >= 0; --k) {
            double s = b[size_t(k)];
            for (int j = k + 1; j < n; ++j)
                s -= A[size_t(k) * n + j] * b[size_t(j)];
            b[size_t(k)] = s / A[size_t(k) * n + k];
        }
        benchmark::DoNotOptimize(b.data());
    }
}

// One basis change of the pivoting solver: a row leaves the factors of a k-row
// basis and another comes in, then a solve. Beside it, BM_dense_solve of the
// same k is what refactoring from scratch would cost instead.
void BM_factor_update(benchmark::State& state) {
    const int k = int(state.range(0));
    const int n = k + 1;
    const size_t nn = static_cast<size_t>(n);
    std::vector<double> M(nn * nn);
    unsigned seed = 1;
    for (size_t i = 0; i < nn * nn; ++i) {
        seed = seed * 1664525u + 1013904223u;
        M[i] = double(seed >> 8) / double(1u << 24) - 0.5;
    }
    for (int i = 0; i < n; ++i)
        M[size_t(i) * nn + size_t(i)] += 0.5 * n;
    std::vector<int> order;
    tessarin::BasisFactors f;
    std::vector<double> col(nn), row(nn), rhs(nn, 1.0), x(nn);
    auto add = [&](int i) {
        for (size_t p = 0; p < order.size(); ++p) {
            col[p] = M[size_t(order[p]) * nn + size_t(i)];
            row[p] = M[size_t(i) * nn + size_t(order[p])];
        }
        f.add(col.data(), row.data(), M[size_t(i) * nn + size_t(i)]);
        order.push_back(i);
    };
    for (int i = 0; i < k; ++i)
        add(i);
    int out = k, turn = 0;
    for (auto _ : state) {
        const int p = (turn++ * 7919) % k;
        const int leaving = order[size_t(p)];
        f.remove(p);
        order.erase(order.begin() + p);
        add(out);
        out = leaving;
        f.solve(rhs.data(), x.data());
        benchmark::DoNotOptimize(x.data());
    }
}

} // namespace

BENCHMARK(BM_factor_update)->Arg(300)->Arg(1200)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_pyramid_frame)->Unit(benchmark::kMillisecond)->Iterations(24);
BENCHMARK(BM_pile_frame)->Arg(100)->Arg(300)->Unit(benchmark::kMillisecond)->Iterations(24);
BENCHMARK(BM_dense_solve)->Arg(300)->Arg(1200)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
