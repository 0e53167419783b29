// SPDX-License-Identifier: MIT
// Damaged files: the search for records through 256 MiB, and the rebuilding of the sample scan.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <random>

#include "BenchScan.h"
#include "kxbase/InMemoryStream.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxOutFile.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/QSNFileRecovery.h"
#include "kxio/RecoverToFile.h"

namespace {

constexpr uint64_t kFileBytes = uint64_t{256} << 20;
constexpr uint32_t kChunkBytes = 64 << 10;

/// A file of chunk records without any header. Data that no codec packs: random bytes.
std::wstring SyntheticFile() {
    const std::filesystem::path path = BenchScan::Get().Folder() / "chunks.bin";
    const std::u8string text = path.u8string();
    const std::wstring wide = kxbase::Decode_UTF8(std::string(text.begin(), text.end()));
    if (std::filesystem::exists(path)) return wide;
    std::mt19937_64 random(1);
    std::vector<uint64_t> noise(kChunkBytes / sizeof(uint64_t));
    kxbase::kxOutFile out(wide);
    std::vector<unsigned char> chunk;
    uint64_t written = 0;
    for (uint32_t index = 0; written < kFileBytes; ++index) {
        for (uint64_t& value : noise)
            value = random();
        kxcodecs::SnappyChunkCodec().Encode(noise.data(), 128, 128, kChunkBytes, 1.0F, chunk);
        // Component 5, so that the search is not held up by the first range chunk.
        kxio::DataChunkHeader record(static_cast<uint32_t>(chunk.size()), kxbase::Luminance16, index / 64,
                                     index % 64);
        written += record.Write(&out);
        written += out.Write(chunk.data(), chunk.size());
    }
    out.Close();
    return wide;
}

/// Loads the file and finds every chunk record, whatever lies between them.
void SearchRecords(benchmark::State& state) {
    const std::wstring path = SyntheticFile();
    size_t rows = 0;
    for (auto _ : state) {
        const kxio::QSNFileRecovery recovery(path);
        rows = recovery.GetPatchMap().size();
    }
    if (rows != kFileBytes / kChunkBytes / 64) state.SkipWithError("not all rows found");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFileBytes));
}
BENCHMARK(SearchRecords)->Unit(benchmark::kMillisecond)->UseRealTime();

/// The whole way from the damaged file to the new one, on the sample scan without its headers.
void RecoverSample(benchmark::State& state) {
    const BenchScan& scan = BenchScan::Get();
    const std::filesystem::path damaged = scan.Folder() / "damaged.qsn";
    std::filesystem::copy_file(scan.Qsn(), damaged, std::filesystem::copy_options::overwrite_existing);
    const std::u8string text = damaged.u8string();
    const std::wstring path = kxbase::Decode_UTF8(std::string(text.begin(), text.end()));
    {
        kxbase::kxOutFile out(path, kxbase::kxOutFile::KeepContent);
        const std::vector<unsigned char> zeros(92);
        out.Write(zeros.data(), zeros.size());
        out.Close();
    }
    for (auto _ : state) {
        const kxio::RecoveryReport report = kxio::RecoverToFile(path, path + L".saved");
        if (!report.Complete()) state.SkipWithError("chunks lost");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(scan.ValueBytes()));
}
BENCHMARK(RecoverSample)->Unit(benchmark::kMillisecond)->UseRealTime();

/// The same on 256 MiB of chunks.
void RecoverLarge(benchmark::State& state) {
    const std::wstring path = SyntheticFile();
    for (auto _ : state) {
        const kxio::RecoveryReport report = kxio::RecoverToFile(path, path + L".saved");
        if (report.chunksRecovered != report.chunksFound) state.SkipWithError("chunks lost");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFileBytes));
}
BENCHMARK(RecoverLarge)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
