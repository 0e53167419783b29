// SPDX-License-Identifier: MIT
// What each codec makes of a scan: every chunk of every component is packed and unpacked by all of them, in
// rounds that take turns, so that what disturbs the machine disturbs all.
//
//   kxio_codec_compare SCAN [--json] [--rounds=N]
//
// SCAN is a .qsn file, or any format that imports. Without --json a table, also per return. Sizes are those
// of whole chunks; speeds are medians of the rounds, by the processor time of one thread, the values in
// memory.
#include <zlib.h>
#include <zstd.h>

#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Machine.h"
#include "kxbase/UTF8.h"
#include "kxcodecs/kxcodecs.h"
#include "kxexchange/ImportScan.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;
using kxcodecs::ChunkHeaderInfo;
using kxcodecs::QKXChunkCodec;

// The values of one patch, as integers.
struct Patch {
    ChunkHeaderInfo header;
    Bytes values;
};

struct Way {
    std::string name;
    std::function<void(const Patch&, Bytes&)> pack;
    std::function<bool(const Patch&, const Bytes&, Bytes&)> unpack;
};

struct Figures {
    uint64_t bytes = 0;
    std::vector<double> packSeconds, unpackSeconds;
};

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

Way OfCodec(const std::string& name, std::shared_ptr<QKXChunkCodec> codec) {
    return {name,
            [codec](const Patch& patch, Bytes& out) {
                codec->Encode(patch.values.data(), patch.header.width, patch.header.height,
                              patch.values.size(), 1.0F, out);
            },
            [codec](const Patch& patch, const Bytes& packed, Bytes& out) {
                ChunkHeaderInfo header;
                if (!QKXChunkCodec::ReadHeader(packed, header)) return false;
                codec->SetLayout(header);
                out.resize(patch.values.size());
                return codec->DecodeInto(packed.data() + QKXChunkCodec::HeaderSize,
                                         packed.size() - QKXChunkCodec::HeaderSize, out);
            }};
}

Way OfZstd(int level) {
    return {"zstd " + std::to_string(level),
            [level](const Patch& patch, Bytes& out) {
                out.resize(ZSTD_compressBound(patch.values.size()));
                out.resize(
                    ZSTD_compress(out.data(), out.size(), patch.values.data(), patch.values.size(), level));
            },
            [](const Patch& patch, const Bytes& packed, Bytes& out) {
                out.resize(patch.values.size());
                return ZSTD_decompress(out.data(), out.size(), packed.data(), packed.size()) == out.size();
            }};
}

std::vector<Way> AllWays() {
    using kxcodecs::GridChunkCodec;
    std::vector<Way> ways;
    ways.push_back({"memcpy", [](const Patch& patch, Bytes& out) { out = patch.values; },
                    [](const Patch&, const Bytes& packed, Bytes& out) {
                        out.resize(packed.size());
                        std::memcpy(out.data(), packed.data(), packed.size());
                        return true;
                    }});
    ways.push_back({"zlib 6",
                    [](const Patch& patch, Bytes& out) {
                        uLongf size = compressBound(patch.values.size());
                        out.resize(size);
                        compress2(out.data(), &size, patch.values.data(), patch.values.size(), 6);
                        out.resize(size);
                    },
                    [](const Patch& patch, const Bytes& packed, Bytes& out) {
                        out.resize(patch.values.size());
                        uLongf size = out.size();
                        return uncompress(out.data(), &size, packed.data(), packed.size()) == Z_OK &&
                               size == out.size();
                    }});
    ways.push_back(OfZstd(1));
    ways.push_back(OfZstd(3));
    ways.push_back(OfZstd(9));
    ways.push_back(OfCodec("Snappy", std::make_shared<kxcodecs::SnappyChunkCodec>()));
    ways.push_back(OfCodec("ZLib (libdeflate) 6", std::make_shared<kxcodecs::ZLibChunkCodec>()));
    ways.push_back(OfCodec("Zstd chunk", std::make_shared<kxcodecs::ZstdChunkCodec>()));
    ways.push_back(OfCodec("Grid fast", std::make_shared<GridChunkCodec>(GridChunkCodec::Mode::Fast)));
    ways.push_back(
        OfCodec("Grid balanced", std::make_shared<GridChunkCodec>(GridChunkCodec::Mode::Balanced)));
    return ways;
}

// Of this thread's work alone: what others do on the machine takes the clock's time, but little of this.
double WorkSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double Seconds(const std::function<void()>& work) {
    const double start = WorkSeconds();
    work();
    return WorkSeconds() - start;
}

std::vector<Figures> Measure(const std::vector<Way>& ways, const std::vector<Patch>& patches, int rounds) {
    std::vector<Figures> all(ways.size());
    std::vector<Bytes> packed(patches.size());
    Bytes out;
    for (int round = 0; round < rounds; ++round) {
        for (size_t w = 0; w < ways.size(); ++w) {
            all[w].packSeconds.push_back(Seconds([&] {
                for (size_t i = 0; i < patches.size(); ++i)
                    ways[w].pack(patches[i], packed[i]);
            }));
            all[w].unpackSeconds.push_back(Seconds([&] {
                for (size_t i = 0; i < patches.size(); ++i) {
                    if (!ways[w].unpack(patches[i], packed[i], out))
                        throw std::runtime_error(ways[w].name + " does not unpack its own");
                }
            }));
            if (round > 0) continue;
            for (size_t i = 0; i < patches.size(); ++i) {
                ways[w].unpack(patches[i], packed[i], out);
                if (out != patches[i].values) throw std::runtime_error(ways[w].name + " changes values");
                all[w].bytes += packed[i].size();
            }
        }
    }
    return all;
}

std::vector<Patch> LoadPatches(const kxio::QSNScanReader& reader, const kxio::ScanAccess& access,
                               kxbase::ComponentType component) {
    std::vector<Patch> patches;
    for (uint32_t i = 0; i < access.Grid().PatchCount(); ++i) {
        Bytes chunk;
        reader.GetPatchCompressed(i, chunk, component);
        Patch patch;
        if (QKXChunkCodec::DecodeChunk(chunk, patch.header, patch.values) != kxcodecs::DecodeStatus::Decoded)
            throw std::runtime_error("a chunk of the scan does not decode");
        patches.push_back(std::move(patch));
    }
    return patches;
}

uint64_t CountReturns(const kxio::ScanAccess& access) {
    std::vector<float> ranges(access.GetGridRect().CellCount());
    access.ReadLayer<float>(kxbase::Range, ranges);
    return static_cast<uint64_t>(std::count_if(ranges.begin(), ranges.end(), [](float r) { return r > 0; }));
}

void Print(bool json, const std::string& component, const std::string& codec, const Figures& figures,
           uint64_t cells, uint64_t returns) {
    const double pack = static_cast<double>(cells) / Median(figures.packSeconds);
    const double unpack = static_cast<double>(cells) / Median(figures.unpackSeconds);
    if (json) {
        std::printf(
            "{\"codec\": \"%s\", \"component\": \"%s\", \"cells\": %llu, \"returns\": %llu, \"bytes\": %llu, "
            "\"encode_cells_per_s\": %.0f, \"decode_cells_per_s\": %.0f, \"threads\": 1}\n",
            codec.c_str(), component.c_str(), static_cast<unsigned long long>(cells),
            static_cast<unsigned long long>(returns), static_cast<unsigned long long>(figures.bytes), pack,
            unpack);
    } else {
        std::printf(
            "%-18s %-20s %10llu %8.2f %9.1f %9.1f\n", component.c_str(), codec.c_str(),
            static_cast<unsigned long long>(figures.bytes),
            8.0 * static_cast<double>(figures.bytes) / static_cast<double>(std::max<uint64_t>(1, returns)),
            pack / 1e6, unpack / 1e6);
    }
    std::fflush(stdout);
}

void Compare(const fs::path& qsn, bool json, int rounds) {
    const kxio::QSNScanReader reader(kxbase::Decode_UTF8(qsn.string()));
    const kxio::ScanAccess access(reader);
    const uint64_t returns = CountReturns(access);
    const std::vector<Way> ways = AllWays();
    if (!json)
        std::printf("%-18s %-20s %10s %8s %9s %9s\n", "component", "codec", "bytes", "bits/ret", "enc Mc/s",
                    "dec Mc/s");
    for (const kxbase::ComponentType component : access.Components()) {
        const std::vector<Patch> patches = LoadPatches(reader, access, component);
        uint64_t cells = 0;
        for (const Patch& patch : patches)
            cells += patch.header.ElementCount();
        const std::vector<Figures> figures = Measure(ways, patches, rounds);
        const std::string name = "component " + std::to_string(static_cast<uint32_t>(component));
        for (size_t w = 0; w < ways.size(); ++w)
            Print(json, name, ways[w].name, figures[w], cells, returns);
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string scan;
    bool json = false;
    int rounds = 5;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--json") {
            json = true;
        } else if (argument.rfind("--rounds=", 0) == 0) {
            rounds = std::max(1, std::atoi(argument.c_str() + 9));
        } else {
            scan = argument;
        }
    }
    if (scan.empty()) {
        std::cerr << "usage: kxio_codec_compare SCAN [--json] [--rounds=N]\n";
        return 2;
    }
    if (IsDebugBuild()) std::cerr << "*** This is a DEBUG build: its speeds mean nothing. ***\n";
    std::cerr << "load average " << LoadAverage() << '\n';
    try {
        fs::path qsn = scan, made;
        if (qsn.extension() != ".qsn") {
            made = fs::temp_directory_path() / ("kxio_compare_" + std::to_string(getpid()) + ".qsn");
            const auto source = kxexchange::OpenScanSource(scan);
            kxexchange::ImportOptions options;
            options.rangeCodec = options.angleCodec = options.intensityCodec = options.colorCodec =
                kxexchange::Codec::Snappy;
            kxexchange::ImportScan(*source, 0, made, options);
            qsn = made;
        }
        Compare(qsn, json, rounds);
        if (!made.empty()) fs::remove(made);
    } catch (const std::exception& e) {
        std::cerr << "error: " << e.what() << '\n';
        return 1;
    }
    return 0;
}
