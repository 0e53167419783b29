// SPDX-License-Identifier: MIT
// What people do with a scan: import it, open it, read all of it, one layer, one patch; export it.
#include <benchmark/benchmark.h>

#include <ctime>
#include <filesystem>
#include <random>

#include "BenchScan.h"
#include "kxexchange/ExportScan.h"
#include "kxexchange/ImportScan.h"
#include "kxio/ProtectFile.h"
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

// Reads all of a scan that carries hashes, with and without checking them in turns, so that what else the
// machine does falls on both. The ratio of the processor times is the counter `checked_to_unchecked`.
void ReadAllChecked(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    const std::filesystem::path path = scan.Folder() / "hashes.qsn";
    std::filesystem::copy_file(scan.Qsn(), path, std::filesystem::copy_options::overwrite_existing);
    kxio::ProtectFile(path.wstring());
    kxio::QSNScanReader checked(path.wstring());
    kxio::QSNScanReader unchecked;
    kxio::Limits limits;
    limits.checkHashes = false;
    unchecked.SetLimits(limits);
    unchecked.Open(path.wstring());
    if (!checked.HasIntegrity() || unchecked.HasIntegrity())
        return state.SkipWithError("hashes are not as wanted");
    std::vector<std::vector<unsigned char>> layers;
    for (const kxbase::ComponentType component : scan.Components())
        layers.emplace_back(scan.Cells() * kxio::ScanAccess(checked).ElementBytes(component));
    const auto readAll = [&](const kxio::QSNScanReader& reader) {
        const kxio::ScanAccess access(reader);
        const std::clock_t start = std::clock();
        for (size_t i = 0; i < layers.size(); ++i) {
            const kxbase::ComponentType component = scan.Components()[i];
            access.ReadRectBytes(component, access.GetGridRect(), access.ElementBytes(component), layers[i]);
        }
        benchmark::ClobberMemory();
        return static_cast<double>(std::clock() - start);
    };
    double with = 0;
    double without = 0;
    bool first = true;
    readAll(checked);
    for (auto _ : state) {
        if (first) without += readAll(unchecked);
        with += readAll(checked);
        if (!first) without += readAll(unchecked);
        first = !first;
    }
    state.counters["checked_to_unchecked"] = with / without;
    SetFigures(state, 2 * scan.ValueBytes(), 2 * scan.Cells());
}
BENCHMARK(ReadAllChecked)->Unit(benchmark::kMillisecond)->UseRealTime();

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
