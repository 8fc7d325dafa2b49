// One step of a particle object under a constant force that arrives through
// inputForce, beside the plainest structure-of-arrays loop doing the same
// arithmetic (clear accelerations, sum the force, semi-implicit Euler).

#include "Commands/Particles/TdynParticleShape.h"
#include "Host/Session/Tsession.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

// range(1): forces in world space (the default), which brings each force
// through the inverse world matrix.
void BM_ParticleStep(benchmark::State& state) {
    const unsigned n = static_cast<unsigned>(state.range(0));
    Tsession session;
    session.runText(state.range(1) ? "particle -n p;" : "particle -n p; setAttr pShape.forcesInWorld 0;",
                    "bench", false);
    auto* p = TdynParticleShape::cast(session.graph().findNode("pShape"));
    T4dDblVectorArray points(n);
    for (unsigned i = 0; i < n; ++i)
        points[i] = {double(i % 100), double(i / 100 % 100), double(i / 10000)};
    p->addParticles(points);
    auto* vs = TdynParticleShape::sVsData();
    TstandaloneValue force(vs->inputForce);
    force.handle().set(makeData<TdataVectorArray>(T4dDblVectorArray{{0, -9.8, 0}}));
    p->setCachedValue(Tplug(p, vs->inputForce, 0), force.handle(), TdgContext::fsNormal);
    double frame = 1;
    for (auto _ : state) {
        frame += 1;
        session.graph().setTime(TanimTime(frame, kCurrentFrameUnit), false);
        p->forceDynamics();
        benchmark::DoNotOptimize(p->vectorArrayReference(vs->position)->data());
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_PlainSoAStep(benchmark::State& state) {
    const std::size_t n = static_cast<std::size_t>(state.range(0));
    std::vector<double> x(n), y(n), z(n), vx(n), vy(n), vz(n), ax(n), ay(n), az(n), fx(n), fy(n), fz(n),
        m(n, 1.0);
    for (std::size_t i = 0; i < n; ++i) {
        x[i] = double(i % 100);
        y[i] = double(i / 100 % 100);
        z[i] = double(i / 10000);
    }
    const double dt = 1.0 / 24.0, w = 1.0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < n; ++i) {
            ax[i] = ay[i] = az[i] = 0;
            fx[i] = 0;
            fy[i] = -9.8;
            fz[i] = 0;
        }
        for (std::size_t i = n; i-- > 0;) {
            const double s = w / m[i];
            ax[i] += fx[i] * s;
            ay[i] += fy[i] * s;
            az[i] += fz[i] * s;
            vx[i] += ax[i] * dt;
            vy[i] += ay[i] * dt;
            vz[i] += az[i] * dt;
            x[i] += vx[i] * dt;
            y[i] += vy[i] * dt;
            z[i] += vz[i] * dt;
        }
        benchmark::DoNotOptimize(x.data());
        benchmark::DoNotOptimize(y.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<long long>(n));
}

} // namespace

BENCHMARK(BM_ParticleStep)
    ->Args({100'000, 0})
    ->Args({1'000'000, 0})
    ->Args({100'000, 1})
    ->Args({1'000'000, 1})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainSoAStep)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
