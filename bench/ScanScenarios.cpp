// SPDX-License-Identifier: MIT
// What people do with a scan: import it, open it, read all of it, one layer, one patch; export it.
#include <benchmark/benchmark.h>

#include <random>

#include "BenchScan.h"
#include "kxexchange/ExportScan.h"
#include "kxexchange/ImportScan.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace {

void SetFigures(benchmark::State& state, uint64_t bytes, uint64_t cells) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
    state.counters["cells"] =
        benchmark::Counter(static_cast<double>(cells), benchmark::Counter::kIsIterationInvariantRate);
}

void ImportPtx(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    kxexchange::ImportOptions options;
    options.threads = static_cast<int>(state.range(0));
    for (auto _ : state) {
        const auto source = kxexchange::OpenScanSource(scan.Ptx());
        kxexchange::ImportScan(*source, 0, scan.Folder() / "imported.qsn", options);
    }
    SetFigures(state, scan.ValueBytes(), scan.Cells());
}
BENCHMARK(ImportPtx)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void ExportPly(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    const kxio::QSNScanReader reader(scan.QsnPath());
    kxexchange::ExportOptions options;
    options.sink.threads = static_cast<int>(state.range(0));
    for (auto _ : state)
        kxexchange::ExportScan(reader, scan.Folder() / "exported.ply", "PLY", options);
    SetFigures(state, scan.ValueBytes(), scan.Cells());
}
BENCHMARK(ExportPly)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void Open(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    for (auto _ : state) {
        const kxio::QSNScanReader reader(scan.QsnPath());
        benchmark::DoNotOptimize(reader.GetPatchNumber());
    }
}
BENCHMARK(Open)->Unit(benchmark::kMillisecond)->UseRealTime();

void ReadAll(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    const kxio::QSNScanReader reader(scan.QsnPath());
    const kxio::ScanAccess access(reader);
    kxio::ReadOptions options;
    options.threads = static_cast<unsigned>(state.range(0));
    std::vector<std::vector<unsigned char>> layers;
    for (const kxbase::ComponentType component : scan.Components())
        layers.emplace_back(scan.Cells() * access.ElementBytes(component));
    for (auto _ : state) {
        for (size_t i = 0; i < layers.size(); ++i) {
            const kxbase::ComponentType component = scan.Components()[i];
            access.ReadRectBytes(component, access.GetGridRect(), access.ElementBytes(component), layers[i],
                                 options);
        }
        benchmark::ClobberMemory();
    }
    SetFigures(state, scan.ValueBytes(), scan.Cells());
}
BENCHMARK(ReadAll)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void ReadRangeLayer(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    const kxio::QSNScanReader reader(scan.QsnPath());
    const kxio::ScanAccess access(reader);
    std::vector<float> layer(scan.Cells());
    for (auto _ : state) {
        access.ReadLayer<float>(kxbase::Range, layer);
        benchmark::ClobberMemory();
    }
    SetFigures(state, layer.size() * sizeof(float), scan.Cells());
}
BENCHMARK(ReadRangeLayer)->Unit(benchmark::kMillisecond)->UseRealTime();

void OneRandomPatch(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    const kxio::QSNScanReader reader(scan.QsnPath());
    const kxio::ScanAccess access(reader);
    std::mt19937 random(4711);
    uint64_t cells = 0;
    for (auto _ : state) {
        const uint32_t row = static_cast<uint32_t>(random() % access.Grid().PatchesPerColumn());
        const uint32_t column = static_cast<uint32_t>(random() % access.Grid().PatchesPerRow());
        const auto values = access.ReadPatch<float>(kxbase::Range, row, column);
        cells += values.size();
        benchmark::DoNotOptimize(values.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(cells * sizeof(float)));
}
BENCHMARK(OneRandomPatch)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
