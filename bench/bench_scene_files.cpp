// Scene files holding a particle object of 1,000,000 particles in its initial
// state: saving and opening, binary and text, beside a plain fwrite / fread of
// the scene's array bytes, so the cost of the walk and the format shows as a
// ratio. Text opens run the file as a script: measured at 100,000 particles.
#include <benchmark/benchmark.h>

#include "Global/Basket/TdynamicsBasket.h"
#include "Host/Session/TsceneFiles.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

std::string path(const std::string& leaf) {
    return (std::filesystem::temp_directory_path() / ("bench-scene-" + std::to_string(::getpid()) + leaf))
        .string();
}

// A session holding `side`^3 particles in their initial state.
std::unique_ptr<Tsession> scene(int side) {
    TdynamicsBasket::initialize();
    auto s = std::make_unique<Tsession>();
    std::ostringstream sink;
    s->engine().setOutputStream(&sink);
    const std::string far = std::to_string(side - 1);
    s->runText("particle -n big -ll 0 0 0 -ur " + far + " " + far + " " + far +
                   " -grs 1; saveInitialState big;",
               "bench", false);
    return s;
}

void save(benchmark::State& state, TsceneFormat format, const char* leaf) {
    auto s = scene(static_cast<int>(state.range(0)));
    const std::string file = path(leaf);
    for (auto _ : state)
        saveScene(*s, file, format);
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(file));
    std::filesystem::remove(file);
}

void open(benchmark::State& state, TsceneFormat format, const char* leaf) {
    auto s = scene(static_cast<int>(state.range(0)));
    const std::string file = path(leaf);
    saveScene(*s, file, format);
    for (auto _ : state)
        openScene(*s, file);
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(file));
    std::filesystem::remove(file);
}

void BM_SaveBinary(benchmark::State& state) {
    save(state, TsceneFormat::kBinary, ".mlb");
}
void BM_OpenBinary(benchmark::State& state) {
    open(state, TsceneFormat::kBinary, ".mlb");
}
void BM_SaveText(benchmark::State& state) {
    save(state, TsceneFormat::kText, ".mls");
}
void BM_OpenText(benchmark::State& state) {
    open(state, TsceneFormat::kText, ".mls");
}

// The floor: the same number of array bytes written and read back whole.
void BM_PlainArrayBytes(benchmark::State& state) {
    auto s = scene(static_cast<int>(state.range(0)));
    const std::string file = path(".mlb");
    saveScene(*s, file, TsceneFormat::kBinary);
    const std::size_t bytes = std::filesystem::file_size(file);
    std::vector<char> buffer(bytes, 1);
    for (auto _ : state) {
        FILE* out = std::fopen(file.c_str(), "wb");
        std::fwrite(buffer.data(), 1, buffer.size(), out);
        std::fclose(out);
        FILE* in = std::fopen(file.c_str(), "rb");
        benchmark::DoNotOptimize(std::fread(buffer.data(), 1, buffer.size(), in));
        std::fclose(in);
    }
    state.counters["bytes"] = static_cast<double>(bytes);
    std::filesystem::remove(file);
}

} // namespace

BENCHMARK(BM_SaveBinary)->Arg(100)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_OpenBinary)->Arg(100)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_PlainArrayBytes)->Arg(100)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_SaveText)->Arg(100)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_OpenText)->Arg(46)->Unit(benchmark::kMillisecond)->Iterations(1);

BENCHMARK_MAIN();
