// SPDX-License-Identifier: MIT
// A PTX on its way in, stage by stage: the raw bytes, their lines, their numbers, their grid; and out.
// Figures carry bytes of text per second.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "BenchScan.h"
#include "kxbase/InMemoryStream.h"
#include "kxexchange/GridFit.h"
#include "kxexchange/ScanSource.h"

namespace {

// The text of the benchmark's scan, unpacked.
const std::string& Text() {
    static const std::string text = [] {
        std::string result;
        gzFile file = gzopen(BenchScan::Get().Ptx().string().c_str(), "rb");
        if (!file) throw std::runtime_error("cannot open the benchmark's scan");
        std::string piece(size_t{1} << 20, '\0');
        int got = 0;
        while ((got = gzread(file, piece.data(), static_cast<unsigned>(piece.size()))) > 0)
            result.append(piece, 0, static_cast<size_t>(got));
        gzclose(file);
        if (got < 0) throw std::runtime_error("cannot unpack the benchmark's scan");
        return result;
    }();
    return text;
}

std::unique_ptr<kxexchange::ScanSource> TextSource(int threads) {
    kxexchange::SourceOptions options;
    options.threads = threads;
    return kxexchange::OpenScanSource(std::make_unique<kxbase::InMemoryStream>(Text().data(), Text().size()),
                                      "bench.ptx", options);
}

void SetTextBytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(Text().size()));
}

void FindTextLines(benchmark::State& state) {
    const std::string& text = Text();
    for (auto _ : state) {
        uint64_t lines = 0;
        const char* at = text.data();
        const char* const end = at + text.size();
        while (const void* found = std::memchr(at, '\n', static_cast<size_t>(end - at))) {
            at = static_cast<const char*>(found) + 1;
            ++lines;
        }
        benchmark::DoNotOptimize(lines);
    }
    SetTextBytes(state);
}
BENCHMARK(FindTextLines)->Unit(benchmark::kMillisecond)->UseRealTime();

void ParsePtx(benchmark::State& state) {
    const auto source = TextSource(static_cast<int>(state.range(0)));
    std::vector<kxexchange::Cell> cells;
    for (auto _ : state) {
        source->OpenScan(0);
        while (source->ReadColumns(64, cells) != 0)
            benchmark::DoNotOptimize(cells.data());
    }
    SetTextBytes(state);
}
BENCHMARK(ParsePtx)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void ParsePackedPtx(benchmark::State& state) {
    kxexchange::SourceOptions options;
    options.threads = static_cast<int>(state.range(0));
    const auto source = kxexchange::OpenScanSource(BenchScan::Get().Ptx(), options);
    std::vector<kxexchange::Cell> cells;
    for (auto _ : state) {
        source->OpenScan(0);
        while (source->ReadColumns(64, cells) != 0)
            benchmark::DoNotOptimize(cells.data());
    }
    SetTextBytes(state);
}
BENCHMARK(ParsePackedPtx)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void FitGrid(benchmark::State& state) {
    const auto source = TextSource(1);
    std::vector<kxexchange::Cell> cells, all;
    const kxexchange::ScanDescription description = source->OpenScan(0);
    while (source->ReadColumns(64, cells) != 0)
        all.insert(all.end(), cells.begin(), cells.end());
    const auto rows = static_cast<size_t>(description.rows);
    for (auto _ : state) {
        kxexchange::GridFit fit;
        for (size_t column = 0; column < description.columns; ++column)
            fit.AddColumn(std::span<const kxexchange::Cell>(all).subspan(column * rows, rows));
        benchmark::DoNotOptimize(fit.Finish());
    }
    SetTextBytes(state);
}
BENCHMARK(FitGrid)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
