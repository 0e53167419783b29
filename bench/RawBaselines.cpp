// SPDX-License-Identifier: MIT
// What no reader can beat: copying the values, and unpacking the very zlib streams that the file holds.
#include <benchmark/benchmark.h>
#include <libdeflate.h>
#include <zlib.h>

#include <cstring>

#include "BenchScan.h"

namespace {

void SetFigures(benchmark::State& state, uint64_t bytes) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.counters["cells"] = benchmark::Counter(static_cast<double>(BenchScan::Get().Cells()),
                                                 benchmark::Counter::kIsIterationInvariantRate);
}

void MemoryCopy(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    const std::vector<unsigned char> from(scan.ValueBytes(), 1);
    std::vector<unsigned char> to(scan.ValueBytes());
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size());
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    SetFigures(state, scan.ValueBytes());
}
BENCHMARK(MemoryCopy)->Unit(benchmark::kMillisecond)->UseRealTime();

std::vector<std::vector<unsigned char>> RoomFor(const std::vector<std::vector<unsigned char>>& streams) {
    std::vector<std::vector<unsigned char>> room;
    for (const auto& stream : streams)
        room.emplace_back(stream.size());
    return room;
}

void UnpackZlib(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    auto out = RoomFor(scan.UnpackedStreams());
    for (auto _ : state) {
        for (size_t i = 0; i < out.size(); ++i) {
            uLongf size = out[i].size();
            const auto& stream = scan.ZlibStreams()[i];
            if (uncompress(out[i].data(), &size, stream.data(), stream.size()) != Z_OK) {
                state.SkipWithError("uncompress failed");
                return;
            }
        }
    }
    SetFigures(state, scan.UnpackedBytes());
}
BENCHMARK(UnpackZlib)->Unit(benchmark::kMillisecond)->UseRealTime();

void UnpackLibdeflate(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    auto out = RoomFor(scan.UnpackedStreams());
    libdeflate_decompressor* unpacker = libdeflate_alloc_decompressor();
    for (auto _ : state) {
        for (size_t i = 0; i < out.size(); ++i) {
            const auto& stream = scan.ZlibStreams()[i];
            if (libdeflate_zlib_decompress(unpacker, stream.data(), stream.size(), out[i].data(),
                                           out[i].size(), nullptr) != LIBDEFLATE_SUCCESS) {
                state.SkipWithError("libdeflate_zlib_decompress failed");
                break;
            }
        }
    }
    libdeflate_free_decompressor(unpacker);
    SetFigures(state, scan.UnpackedBytes());
}
BENCHMARK(UnpackLibdeflate)->Unit(benchmark::kMillisecond)->UseRealTime();

void PackZlib(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    std::vector<unsigned char> out;
    uint64_t packed = 0;
    for (auto _ : state) {
        packed = 0;
        for (const auto& values : scan.UnpackedStreams()) {
            out.resize(compressBound(values.size()));
            uLongf size = out.size();
            if (compress2(out.data(), &size, values.data(), values.size(),
                          static_cast<int>(state.range(0))) != Z_OK) {
                state.SkipWithError("compress2 failed");
                return;
            }
            packed += size;
        }
    }
    SetFigures(state, scan.UnpackedBytes());
    state.counters["packed"] = static_cast<double>(packed);
}
BENCHMARK(PackZlib)->ArgName("level")->Arg(6)->Unit(benchmark::kMillisecond)->UseRealTime();

void PackLibdeflate(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    libdeflate_compressor* packer = libdeflate_alloc_compressor(static_cast<int>(state.range(0)));
    std::vector<unsigned char> out;
    uint64_t packed = 0;
    for (auto _ : state) {
        packed = 0;
        for (const auto& values : scan.UnpackedStreams()) {
            out.resize(libdeflate_zlib_compress_bound(packer, values.size()));
            packed += libdeflate_zlib_compress(packer, values.data(), values.size(), out.data(), out.size());
        }
    }
    libdeflate_free_compressor(packer);
    SetFigures(state, scan.UnpackedBytes());
    state.counters["packed"] = static_cast<double>(packed);
}
BENCHMARK(PackLibdeflate)->ArgName("level")->Arg(6)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
