// SPDX-License-Identifier: MIT
// Each codec in each of its modes on each component of the scan, named Codec/GridBalanced/range/encode. Values come
// from memory and go to memory; `ratio` is the chunks' size by that of the values.
#include <benchmark/benchmark.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BenchScan.h"
#include "CompareScan.h"
#include "kxcodecs/kxcodecs.h"

namespace {

using kxcodecs::GridChunkCodec;
using kxcodecs::QKXChunkCodec;
using Bytes = std::vector<unsigned char>;

struct CodecOfBench {
    const char* name;
    std::function<std::unique_ptr<QKXChunkCodec>()> make;
    bool colours;  // for elements of three bytes alone
};

const std::vector<CodecOfBench>& Codecs() {
    static const std::vector<CodecOfBench> codecs = {
        {"Snappy", [] { return std::make_unique<kxcodecs::SnappyChunkCodec>(); }, false},
        {"ZLib", [] { return std::make_unique<kxcodecs::ZLibChunkCodec>(); }, false},
        {"Zstd", [] { return std::make_unique<kxcodecs::ZstdChunkCodec>(); }, false},
        {"GridFast", [] { return std::make_unique<GridChunkCodec>(GridChunkCodec::Mode::Fast); }, false},
        {"GridBalanced", [] { return std::make_unique<GridChunkCodec>(GridChunkCodec::Mode::Balanced); },
         false},
        {"Color", [] { return std::make_unique<kxcodecs::ColorChunkCodec>(); }, true},
        {"JPEG", [] { return std::make_unique<kxcodecs::JPEGChunkCodec>(); }, true},
    };
    return codecs;
}

// Loaded when the first of these scenarios runs.
const CompareScan& Scan() {
    static const CompareScan scan = LoadCompareScan(BenchScan::Get().Qsn());
    return scan;
}

Bytes Encoded(const QKXChunkCodec& codec, const ComparePatch& patch) {
    Bytes chunk;
    codec.Encode(patch.values.data(), patch.width, patch.height, patch.values.size(), 1.0F, chunk);
    return chunk;
}

void RunCodec(benchmark::State& state, const CodecOfBench& description, const std::string& name,
              bool encode) {
    const CompareComponent* component = nullptr;
    for (const CompareComponent& candidate : Scan().components) {
        if (candidate.name == name) component = &candidate;
    }
    if (component == nullptr || component->patches.empty()) {
        state.SkipWithError("the scan has no such component");
        return;
    }
    const auto codec = description.make();
    uint64_t bytes = 0, packedBytes = 0;
    std::vector<Bytes> chunks;
    for (const ComparePatch& patch : component->patches) {
        bytes += patch.values.size();
        chunks.push_back(Encoded(*codec, patch));
        packedBytes += chunks.back().size();
    }
    Bytes values;
    for (auto _ : state) {
        for (size_t i = 0; i < chunks.size(); ++i) {
            if (encode) {
                benchmark::DoNotOptimize(Encoded(*codec, component->patches[i]).data());
            } else {
                kxcodecs::ChunkHeaderInfo header;
                if (QKXChunkCodec::DecodeChunk(chunks[i], header, values) !=
                    kxcodecs::DecodeStatus::Decoded) {
                    state.SkipWithError("a chunk does not decode");
                    return;
                }
            }
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
    state.counters["cells"] = benchmark::Counter(static_cast<double>(component->cells),
                                                 benchmark::Counter::kIsIterationInvariantRate);
    state.counters["ratio"] = static_cast<double>(packedBytes) / static_cast<double>(bytes);
}

}  // namespace

void RegisterCodecScenarios() {
    for (const CodecOfBench& codec : Codecs()) {
        for (const CompareComponent& component : Scan().components) {
            if (component.patches.empty() || codec.colours != (component.patches[0].elementBytes == 3))
                continue;
            for (const bool encode : {true, false}) {
                const std::string name = std::string("Codec/") + codec.name + "/" + component.name +
                                         (encode ? "/encode" : "/decode");
                benchmark::RegisterBenchmark(name.c_str(), [&codec, part = component.name,
                                                            encode](benchmark::State& state) {
                    RunCodec(state, codec, part, encode);
                })->Unit(benchmark::kMillisecond);
            }
        }
    }
}
