// Particle data files of 1,000,000 particles (position, velocity, id): writing
// and reading, each beside a plain fwrite / fread of the same bytes, so the
// cost of the big-endian conversion and the record walk shows as a ratio.
#include <benchmark/benchmark.h>

#include "Commands/Caches/TdynPDCDriver.h"
#include "Commands/Caches/TdynParticleImporter.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned kParticles = 1000000;

struct Data {
    std::vector<T4dDblVector> position, velocity;
    std::vector<double> id;
    Data() : position(kParticles), velocity(kParticles), id(kParticles) {
        for (unsigned i = 0; i < kParticles; ++i) {
            position[i] = {0.001 * i, 1.0 / (i + 1), -2.5 * i};
            velocity[i] = {1, 0.5 * i, 3e-3};
            id[i] = i;
        }
    }
    TdynExportFrame frame() const {
        TdynExportFrame f;
        f.count = kParticles;
        f.columns = {TdynExportColumn::vectorArray("position", position.data(), kParticles),
                     TdynExportColumn::vectorArray("velocity", velocity.data(), kParticles),
                     TdynExportColumn::doubleArray("particleId", id.data(), kParticles)};
        return f;
    }
};

const Data& data() {
    static const Data d;
    return d;
}

std::string path(const char* leaf) {
    return (std::filesystem::temp_directory_path() /
            (std::string("bench-pdc-") + std::to_string(::getpid()) + leaf))
        .string();
}

// The file's bytes, made once by the driver; the plain loops move exactly these.
const std::string& fileBytes() {
    static const std::string bytes = [] {
        std::ostringstream out;
        TdynPDCDriver d;
        d.writeFrame(out, data().frame());
        return out.str();
    }();
    return bytes;
}

void BM_PdcWrite(benchmark::State& state) {
    const TdynExportFrame frame = data().frame();
    const std::string p = path("-w.pdc");
    for (auto _ : state) {
        std::ofstream out(p, std::ios::binary | std::ios::trunc);
        TdynPDCDriver d;
        if (d.writeFrame(out, frame) != 0) state.SkipWithError(d.error().c_str());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileBytes().size()));
    std::remove(p.c_str());
}
BENCHMARK(BM_PdcWrite)->Unit(benchmark::kMillisecond);

void BM_PlainFwrite(benchmark::State& state) {
    const std::string& bytes = fileBytes();
    const std::string p = path("-f.pdc");
    for (auto _ : state) {
        std::FILE* f = std::fopen(p.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
    std::remove(p.c_str());
}
BENCHMARK(BM_PlainFwrite)->Unit(benchmark::kMillisecond);

void BM_PdcRead(benchmark::State& state) {
    const std::string p = path("-r.pdc");
    std::ofstream(p, std::ios::binary)
        .write(fileBytes().data(), static_cast<std::streamsize>(fileBytes().size()));
    for (auto _ : state) {
        TdynParticleImporterPDC in(p);
        if (in.readAttributes() != 0) state.SkipWithError(in.error().c_str());
        benchmark::DoNotOptimize(in.arrays().count());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileBytes().size()));
    std::remove(p.c_str());
}
BENCHMARK(BM_PdcRead)->Unit(benchmark::kMillisecond);

void BM_PlainFread(benchmark::State& state) {
    const std::string p = path("-fr.pdc");
    std::ofstream(p, std::ios::binary)
        .write(fileBytes().data(), static_cast<std::streamsize>(fileBytes().size()));
    std::vector<char> buffer(fileBytes().size());
    for (auto _ : state) {
        std::FILE* f = std::fopen(p.c_str(), "rb");
        benchmark::DoNotOptimize(std::fread(buffer.data(), 1, buffer.size(), f));
        std::fclose(f);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileBytes().size()));
    std::remove(p.c_str());
}
BENCHMARK(BM_PlainFread)->Unit(benchmark::kMillisecond);

// The same read into arrays made for it, as a reader must: the fair baseline
// for BM_PdcRead (fresh pages cost as much as the copy).
void BM_PlainFreadFresh(benchmark::State& state) {
    const std::string p = path("-ff.pdc");
    std::ofstream(p, std::ios::binary)
        .write(fileBytes().data(), static_cast<std::streamsize>(fileBytes().size()));
    for (auto _ : state) {
        std::vector<double> buffer(fileBytes().size() / 8 + 1);
        std::FILE* f = std::fopen(p.c_str(), "rb");
        benchmark::DoNotOptimize(std::fread(buffer.data(), 1, fileBytes().size(), f));
        std::fclose(f);
        benchmark::DoNotOptimize(buffer.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileBytes().size()));
    std::remove(p.c_str());
}
BENCHMARK(BM_PlainFreadFresh)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
