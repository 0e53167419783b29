// SPDX-License-Identifier: MIT
// What no reader can beat: copying the values, and unpacking the very zlib streams that the file holds.
#include <benchmark/benchmark.h>
#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "BenchScan.h"

namespace {

/// What a baseline goes over, to stand beside the scenario of the same extent.
enum Extent : int64_t {
    All = 0,         ///< all components: ReadAll, ImportPtx
    RangeLayer = 1,  ///< component 1: ReadRangeLayer
    OnePatch = 2,    ///< component 1, a random patch: OneRandomPatch
};

/// The streams of an extent, by index into `BenchScan::ZlibStreams`; for `OnePatch` another one each time.
class Pieces {
public:
    explicit Pieces(int64_t extent) : m_extent(extent) {
        if (extent == OnePatch) return;
        const uint64_t count = extent == All ? m_scan.ZlibStreams().size() : m_scan.Patches();
        for (uint64_t i = 0; i < count; ++i)
            m_indices.push_back(m_scan.FirstRangeStream(extent == All) + i);
    }
    const std::vector<uint64_t>& Next() {
        if (m_extent == OnePatch)
            m_indices = {m_scan.FirstRangeStream(false) + m_random() % m_scan.Patches()};
        return m_indices;
    }

private:
    const BenchScan& m_scan = BenchScan::Get();
    int64_t m_extent;
    std::vector<uint64_t> m_indices;
    std::mt19937 m_random{4711};
};

uint64_t LargestPiece() {
    uint64_t largest = 0;
    for (const auto& piece : BenchScan::Get().UnpackedStreams())
        largest = std::max<uint64_t>(largest, piece.size());
    return largest;
}

void MemoryCopy(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    uint64_t bytes = scan.ValueBytes();
    if (state.range(0) == RangeLayer) bytes = scan.Cells() * sizeof(float);
    if (state.range(0) == OnePatch) bytes = scan.Cells() * sizeof(float) / scan.Patches();
    const std::vector<unsigned char> from(bytes, 1);
    std::vector<unsigned char> to(bytes);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size());
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}
BENCHMARK(MemoryCopy)
    ->ArgName("extent")
    ->DenseRange(All, OnePatch)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void UnpackZlib(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    Pieces pieces(state.range(0));
    std::vector<unsigned char> out(LargestPiece());
    uint64_t bytes = 0;
    for (auto _ : state) {
        for (const uint64_t i : pieces.Next()) {
            uLongf size = out.size();
            const auto& stream = scan.ZlibStreams()[i];
            if (uncompress(out.data(), &size, stream.data(), stream.size()) != Z_OK) {
                state.SkipWithError("uncompress failed");
                return;
            }
            bytes += size;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(UnpackZlib)
    ->ArgName("extent")
    ->DenseRange(All, OnePatch)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void UnpackLibdeflate(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    Pieces pieces(state.range(0));
    std::vector<unsigned char> out(LargestPiece());
    libdeflate_decompressor* unpacker = libdeflate_alloc_decompressor();
    uint64_t bytes = 0;
    for (auto _ : state) {
        for (const uint64_t i : pieces.Next()) {
            const auto& stream = scan.ZlibStreams()[i];
            size_t size = 0;
            if (libdeflate_zlib_decompress(unpacker, stream.data(), stream.size(), out.data(), out.size(),
                                           &size) != LIBDEFLATE_SUCCESS) {
                state.SkipWithError("libdeflate_zlib_decompress failed");
                break;
            }
            bytes += size;
        }
    }
    libdeflate_free_decompressor(unpacker);
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(UnpackLibdeflate)
    ->ArgName("extent")
    ->DenseRange(All, OnePatch)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

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
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(scan.UnpackedBytes()));
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
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(scan.UnpackedBytes()));
    state.counters["packed"] = static_cast<double>(packed);
}
BENCHMARK(PackLibdeflate)->ArgName("level")->Arg(6)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
