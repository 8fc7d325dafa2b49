// The script interpreter's loop cost against the same arithmetic in C++.
// Per-particle expressions will run through the same walker, so the ratio
// here is the figure to watch.

#include "Host/Script/TscriptInterpreter.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <string>

namespace {

class QuietHost : public TscriptHost {
public:
    bool hasCommand(const std::string&) const override { return false; }
    TscriptValue runCommand(const std::string&, const std::vector<TscriptArg>&,
                            const TsourceLocation&) override {
        return {};
    }
    void output(const std::string&) override {}
    void warning(const std::string&) override {}
    void error(const TsourceLocation&, const std::string&) override {}
    void result(const TscriptValue&) override {}
};

constexpr int kTurns = 10000;

void runScript(benchmark::State& state, const std::string& body, const std::string& setup = "") {
    QuietHost host;
    TscriptInterpreter interp(host);
    if (!setup.empty()) interp.run(setup, "bench", false);
    const std::string text =
        "float $sum = 0; for ($i = 0; $i < " + std::to_string(kTurns) + "; $i++) " + body;
    for (auto _ : state) {
        if (!interp.run(text, "bench", false)) state.SkipWithError("script failed");
        TscriptValue sum;
        interp.getGlobal("sum", sum);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kTurns);
}

void BM_ScriptArithmeticLoop(benchmark::State& state) {
    runScript(state, "$sum += $i * 0.5;");
}

void BM_PlainArithmeticLoop(benchmark::State& state) {
    for (auto _ : state) {
        double sum = 0;
        for (int i = 0; i < kTurns; ++i) {
            benchmark::DoNotOptimize(i);
            sum += i * 0.5;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kTurns);
}

void BM_ScriptBuiltinLoop(benchmark::State& state) {
    runScript(state, "$sum += sin($i * 0.01);");
}

void BM_PlainBuiltinLoop(benchmark::State& state) {
    for (auto _ : state) {
        double sum = 0;
        for (int i = 0; i < kTurns; ++i) {
            benchmark::DoNotOptimize(i);
            sum += std::sin(i * 0.01);
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kTurns);
}

void BM_ScriptVectorLoop(benchmark::State& state) {
    runScript(
        state,
        "{ vector $p = <<$i, 1, 2>>; vector $v = <<0, -9.8, 0>>; $p = $p + $v * 0.04; $sum += mag($p); }");
}

void BM_PlainVectorLoop(benchmark::State& state) {
    for (auto _ : state) {
        double sum = 0;
        for (int i = 0; i < kTurns; ++i) {
            benchmark::DoNotOptimize(i);
            double p[3] = {double(i), 1, 2}, v[3] = {0, -9.8, 0};
            for (int k = 0; k < 3; ++k)
                p[k] += v[k] * 0.04;
            sum += std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]);
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kTurns);
}

void BM_ScriptProcCallLoop(benchmark::State& state) {
    runScript(state, "$sum += half($i);", "global proc float half(float $x) { return $x * 0.5; }");
}

BENCHMARK(BM_ScriptArithmeticLoop);
BENCHMARK(BM_PlainArithmeticLoop);
BENCHMARK(BM_ScriptBuiltinLoop);
BENCHMARK(BM_PlainBuiltinLoop);
BENCHMARK(BM_ScriptVectorLoop);
BENCHMARK(BM_PlainVectorLoop);
BENCHMARK(BM_ScriptProcCallLoop);

} // namespace

BENCHMARK_MAIN();
