// Host math and noise on the paths a simulation step takes per point, each beside the plainest loop that
// does the same arithmetic.
#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include "Host/Anim/TanimCurve.h"
#include "Host/Math/TxformMatrix.h"
#include "Host/Noise/T4dVectorNoise.h"

namespace {

constexpr int kPoints = 4096;

std::vector<T4dDblVector> makePoints() {
    std::vector<T4dDblVector> p(kPoints);
    for (int i = 0; i < kPoints; ++i)
        p[i] = {0.37 * i, std::sin(0.1 * i) * 5, 0.011 * i * i};
    return p;
}

T4dDblMatrix someMatrix() {
    TxformMatrix x;
    x.setTranslation({1, 2, 3});
    x.setRotation({10, 20, 30});
    x.setScale({1.5, 0.5, 2});
    return x.asMatrix();
}

void BM_TransformPoint(benchmark::State& state) {
    const auto pts = makePoints();
    std::vector<T4dDblVector> out(pts.size());
    const T4dDblMatrix m = someMatrix();
    for (auto _ : state) {
        for (std::size_t i = 0; i < pts.size(); ++i)
            out[i] = m.transformPoint(pts[i]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}
BENCHMARK(BM_TransformPoint);

void BM_TransformPointsArray(benchmark::State& state) {
    const auto pts = makePoints();
    std::vector<T4dDblVector> out(pts.size());
    const T4dDblMatrix m = someMatrix();
    for (auto _ : state) {
        m.transformPoints(pts.data(), out.data(), pts.size());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}
BENCHMARK(BM_TransformPointsArray);

// Plain arrays and an affine product, no w.
void BM_TransformPointPlainLoop(benchmark::State& state) {
    const auto pts = makePoints();
    std::vector<double> in(3 * kPoints), out(3 * kPoints);
    for (std::size_t i = 0; i < pts.size(); ++i)
        for (int k = 0; k < 3; ++k)
            in[3 * i + k] = pts[i][k];
    const T4dDblMatrix mm = someMatrix();
    double m[4][3];
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 3; ++c)
            m[r][c] = mm.m[r][c];
    for (auto _ : state) {
        for (std::size_t i = 0; i < pts.size(); ++i) {
            const double x = in[3 * i], y = in[3 * i + 1], z = in[3 * i + 2];
            for (int c = 0; c < 3; ++c)
                out[3 * i + c] = x * m[0][c] + y * m[1][c] + z * m[2][c] + m[3][c];
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}
BENCHMARK(BM_TransformPointPlainLoop);

void BM_NoiseSmoothTime(benchmark::State& state) {
    const auto pts = makePoints();
    std::vector<TnoiseVector> out(pts.size());
    float t = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < pts.size(); ++i)
            out[i] = T4dVectorNoise::getNoiseSmoothTime(float(pts[i].x), float(pts[i].y), float(pts[i].z), t);
        t += 0.01f;
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}
BENCHMARK(BM_NoiseSmoothTime);

void BM_NoiseSmoothStill(benchmark::State& state) {
    const auto pts = makePoints();
    std::vector<TnoiseVector> out(pts.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < pts.size(); ++i)
            out[i] = T4dVectorNoise::getNoiseSmooth(float(pts[i].x), float(pts[i].y), float(pts[i].z), 0);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}
BENCHMARK(BM_NoiseSmoothStill);

// The same lattice arithmetic written flat in the loop: three components, 16 corners each, quintic
// blend, gradient dot products, 15 lerps; a plain xor-shift hash stands in for the permutation table.
void BM_NoisePlainLoop(benchmark::State& state) {
    const auto pts = makePoints();
    std::vector<float> out(3 * pts.size());
    static const signed char g[32][4] = {
        {0, 1, 1, 1},   {0, 1, 1, -1},   {0, 1, -1, 1},  {0, 1, -1, -1},  {0, -1, 1, 1},  {0, -1, 1, -1},
        {0, -1, -1, 1}, {0, -1, -1, -1}, {1, 0, 1, 1},   {1, 0, 1, -1},   {1, 0, -1, 1},  {1, 0, -1, -1},
        {-1, 0, 1, 1},  {-1, 0, 1, -1},  {-1, 0, -1, 1}, {-1, 0, -1, -1}, {1, 1, 0, 1},   {1, 1, 0, -1},
        {1, -1, 0, 1},  {1, -1, 0, -1},  {-1, 1, 0, 1},  {-1, 1, 0, -1},  {-1, -1, 0, 1}, {-1, -1, 0, -1},
        {1, 1, 1, 0},   {1, 1, -1, 0},   {1, -1, 1, 0},  {1, -1, -1, 0},  {-1, 1, 1, 0},  {-1, 1, -1, 0},
        {-1, -1, 1, 0}, {-1, -1, -1, 0}};
    double t = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < pts.size(); ++i) {
            for (int c = 0; c < 3; ++c) {
                const double q[4] = {pts[i].x + 31.4 * c, pts[i].y + 17.7 * c, pts[i].z + 53.1 * c, t};
                int l[4];
                double f[4], s[4];
                for (int k = 0; k < 4; ++k) {
                    const double fl = std::floor(q[k]);
                    l[k] = int(fl) & 255;
                    f[k] = q[k] - fl;
                    s[k] = f[k] * f[k] * f[k] * (f[k] * (f[k] * 6 - 15) + 10);
                }
                double v[16];
                for (int corner = 0; corner < 16; ++corner) {
                    std::uint32_t h = 0;
                    double d[4];
                    for (int k = 0; k < 4; ++k) {
                        const int b = (corner >> k) & 1;
                        h = (h ^ std::uint32_t(l[k] + b)) * 0x9E3779B1u;
                        d[k] = f[k] - b;
                    }
                    const signed char* gg = g[(h >> 27) & 31];
                    v[corner] = gg[0] * d[0] + gg[1] * d[1] + gg[2] * d[2] + gg[3] * d[3];
                }
                for (int k = 0, n = 16; k < 4; ++k, n /= 2)
                    for (int j = 0; j < n / 2; ++j)
                        v[j] = v[2 * j] + s[k] * (v[2 * j + 1] - v[2 * j]);
                out[3 * i + c] = float(v[0] * 0.75);
            }
        }
        t += 0.01;
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}
BENCHMARK(BM_NoisePlainLoop);

TanimCurve someCurve() {
    TanimCurve c;
    for (int k = 0; k < 64; ++k)
        c.setKey(k * 0.25, std::sin(k * 0.7), TtangentType::kSmooth);
    return c;
}

void BM_AnimCurveEvaluate(benchmark::State& state) {
    const TanimCurve c = someCurve();
    std::vector<double> out(kPoints);
    for (auto _ : state) {
        for (int i = 0; i < kPoints; ++i)
            out[i] = c.evaluate(i * (16.0 / kPoints));
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}
BENCHMARK(BM_AnimCurveEvaluate);

// Binary search over plain arrays and a cubic Hermite with slopes computed in place.
void BM_AnimCurvePlainLoop(benchmark::State& state) {
    const TanimCurve c = someCurve();
    std::vector<double> kt, kv;
    for (const auto& k : c.keys()) {
        kt.push_back(k.time);
        kv.push_back(k.value);
    }
    const int n = static_cast<int>(kt.size());
    std::vector<double> out(kPoints);
    for (auto _ : state) {
        for (int i = 0; i < kPoints; ++i) {
            const double t = i * (16.0 / kPoints);
            if (t <= kt[0] || t >= kt[n - 1]) {
                out[i] = t <= kt[0] ? kv[0] : kv[n - 1];
                continue;
            }
            int lo = 0, hi = n - 1;
            while (hi - lo > 1) {
                const int mid = (lo + hi) / 2;
                (kt[mid] <= t ? lo : hi) = mid;
            }
            const double h = kt[hi] - kt[lo], s = (t - kt[lo]) / h;
            const double m0 = lo == 0 ? 0 : (kv[lo + 1] - kv[lo - 1]) / (kt[lo + 1] - kt[lo - 1]) * h;
            const double m1 = hi == n - 1 ? 0 : (kv[hi + 1] - kv[hi - 1]) / (kt[hi + 1] - kt[hi - 1]) * h;
            const double s2 = s * s, s3 = s2 * s;
            out[i] = (2 * s3 - 3 * s2 + 1) * kv[lo] + (s3 - 2 * s2 + s) * m0 + (-2 * s3 + 3 * s2) * kv[hi] +
                     (s3 - s2) * m1;
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}
BENCHMARK(BM_AnimCurvePlainLoop);

} // namespace

BENCHMARK_MAIN();
