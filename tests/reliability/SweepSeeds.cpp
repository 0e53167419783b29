// SPDX-License-Identifier: MIT
#include "SweepSeeds.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>

#include "kxcodecs/GridChunkCodec.h"
#include "kxcodecs/JPEGChunkCodec.h"
#include "kxcodecs/ZstdChunkCodec.h"
#include "kxio/ProtectFile.h"
#include "kxio/QSNFileRecovery.h"
#include "kxio/QSNInfo.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/ThumbnailEdit.h"
#include "support/StoredFile.h"
#include "support/TempFolder.h"
#include "support/TinyScan.h"

namespace reliability {

namespace {

using namespace kxtest;
using kxbase::ComponentType;

/// The bytes that an edit leaves of a file.
Bytes Edited(const Bytes& bytes, const std::function<void(const std::wstring&)>& edit) {
    const TempFolder folder;
    const std::wstring path = StoreFile(Wide(folder / "seed.qsn"), bytes);
    edit(path);
    return LoadFile(folder / "seed.qsn");
}

Bytes Protected(const Bytes& bytes) {
    return Edited(bytes, [](const std::wstring& path) { kxio::ProtectFile(path); });
}

kxbase::GridTopology SmallGrid() {
    kxbase::GridTopology grid;
    grid.columnStartAngle = 3;
    grid.rowStartAngle = 0.5F;
    grid.columnAngularStep = grid.rowAngularStep = 0.01F;
    grid.columns = 11;
    grid.rows = 9;
    grid.patchWidth = 6;
    grid.patchHeight = 5;
    return grid;
}

/// Values of one patch that look measured: smooth, with noise and holes.
template <class Value>
std::vector<Value> Measured(size_t count, unsigned seed, double base, double step, double noise) {
    std::mt19937 random(seed);
    std::vector<Value> values(count);
    for (size_t i = 0; i < count; ++i) {
        const double n = noise * static_cast<double>(random() % 1000) / 1000.0;
        if (random() % 9 != 0) {
            const auto most = static_cast<double>(std::numeric_limits<Value>::max());
            values[i] = static_cast<Value>(std::min(base + step * static_cast<double>(i) + n, most));
        }
    }
    return values;
}

/// Adds one component of one patch.
template <class Value>
void Add(kxio::QSNScanWriter& writer, uint32_t index, ComponentType component, std::vector<Value> values,
         kxcodecs::QKXChunkCodec& codec, double scale = 1.0, uint64_t elementBytes = sizeof(Value)) {
    kxio::FlatPatchDescriptor patch(component, elementBytes, kxio::RowMajor, scale, &codec);
    patch.data = reinterpret_cast<unsigned char*>(values.data());
    patch.size = values.size() * sizeof(Value) / elementBytes;
    writer.AddPatch({&patch}, index);
}

/// As scanners give it, in one codec: ranges, angles and intensities; the last patch is never handed over.
Bytes MeasuredScan(kxcodecs::QKXChunkCodec& codec, bool hashes) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, SmallGrid());
    writer.SetIntegrity(hashes);
    writer.AddMessage(L"seen from the yard");
    const size_t cells = 30;
    for (uint32_t index = 0; index < 3; ++index) {
        Add(writer, index, kxbase::Range, Measured<float>(cells, index, 5000, 3, 2), codec, 0.1);
        Add(writer, index, kxbase::VerticalAngle, Measured<float>(cells, index + 9, 1, 1e-3, 1e-4), codec,
            1e-6);
        Add(writer, index, kxbase::HorizontalAngle, Measured<float>(cells, index + 19, 2, 1e-3, 1e-4), codec,
            1e-6);
        Add(writer, index, kxbase::Luminance16, Measured<uint16_t>(cells, index, 700, 5, 90), codec);
    }
    writer.EndCreation();
    return stream.GetBytes();
}

/// Greys and colours, as JPEG.
Bytes PictureScan(bool hashes) {
    kxcodecs::JPEGChunkCodec jpeg;
    kxcodecs::ZLibChunkCodec zlib;
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    kxbase::GridTopology grid = SmallGrid();
    writer.CreateNew(&stream, grid);
    writer.SetIntegrity(hashes);
    for (uint32_t index = 0; index < 2; ++index) {
        Add(writer, index, kxbase::Range, Measured<float>(30, index, 5000, 3, 2), zlib, 0.1);
        Add(writer, index, kxbase::Luminance8, Measured<uint8_t>(30, index, 70, 2, 9), zlib);
        Add(writer, index, kxbase::Color, Measured<uint8_t>(90, index, 40, 1, 30), jpeg, 1.0, 3);
    }
    writer.EndCreation();
    return stream.GetBytes();
}

/// Every text, link and identifier, and histograms of all four kinds.
Bytes ScanWithEveryRecord(bool hashes) {
    kxcodecs::SnappyChunkCodec snappy;
    kxcodecs::ZLibChunkCodec zlib;
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, SmallGrid());
    writer.SetIntegrity(hashes);
    kxio::ScanProperties& p = writer.GetScanProperties();
    p.scannerModel = L"Ostrak RM7";
    p.descriptions = {L"one", L"two", L"thr\u00e9e"};
    p.parentUUID = kxbase::UUID(L"01020304-0506-0708-090a-0b0c0d0e0f10");
    p.hqLinks.push_back(kxbase::UUID(L"11111111-0506-0708-090a-0b0c0d0e0f10"));
    p.erLinks.push_back(kxbase::UUID(L"22222222-0506-0708-090a-0b0c0d0e0f10"));
    p.hdrLinks.push_back(kxbase::UUID(L"33333333-0506-0708-090a-0b0c0d0e0f10"));
    p.scanningMode = L"Level 2";
    p.colorizationMode = L"panorama";
    p.preregistrationValue = 2.5;
    p.preregistration = kxbase::RegistrationInformation(kxbase::Frame3D(), {4, 5, 6});
    p.tilt.kind = 3;
    p.tilt.angles = {0.01, 0.02};
    writer.SetRegistration(kxbase::RegistrationInformation(kxbase::Frame3D(), {1, 2, 3}));
    writer.SetSpeckleFilteringNeeded(true);
    writer.SetHasBeenSpatiallySampledToDistance(2.5F);
    writer.Set3DLock(true);
    writer.AddMessage(L"first");
    writer.AddMessage(L"second");
    writer.AddWarning(L"rain");
    for (uint32_t index = 0; index < 3; ++index) {
        Add(writer, index, kxbase::Range, Measured<float>(30, index, 5000, 3, 2), zlib, 0.1);
        Add(writer, index, kxbase::Luminance8, Measured<uint8_t>(30, index, 70, 0, 5), zlib);
        Add(writer, index, kxbase::Luminance16, Measured<uint16_t>(30, index, 700, 0, 5), snappy);
        Add(writer, index, kxbase::Class, Measured<uint32_t>(30, index, 1, 0, 4), snappy);
        Add(writer, index, kxbase::Segment, Measured<uint64_t>(30, index, 10, 0, 4), snappy);
    }
    writer.EndCreation();
    return stream.GetBytes();
}

/// The components without a meaning of their own, 7 to 17 and a number beyond the list.
Bytes ScanOfOtherComponents(bool hashes) {
    kxcodecs::SnappyChunkCodec snappy;
    kxcodecs::ZstdChunkCodec zstd;
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    kxbase::GridTopology grid = SmallGrid();
    grid.columns = grid.rows = 4;
    grid.patchWidth = grid.patchHeight = 3;
    writer.CreateNew(&stream, grid);
    writer.SetIntegrity(hashes);
    const std::pair<uint32_t, uint64_t> sizes[] = {{7, 16},  {8, 8},   {9, 12},  {10, 4},  {11, 2},  {12, 1},
                                                   {13, 20}, {14, 12}, {15, 16}, {16, 16}, {17, 24}, {40, 6}};
    for (const auto& [component, bytes] : sizes) {
        for (uint32_t index = 0; index < 2; ++index) {
            Add(writer, index, static_cast<ComponentType>(component),
                Measured<uint8_t>(9 * bytes, component + index, 20, 1, 40),
                index == 0 ? static_cast<kxcodecs::QKXChunkCodec&>(snappy) : zstd, 1.0, bytes);
        }
    }
    writer.EndCreation();
    return stream.GetBytes();
}

/// A scan that grew while it was made: no previews, no limits.
Bytes GrownScan(bool hashes) {
    kxcodecs::SnappyChunkCodec snappy;
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    kxio::CylindricalTopology cylinder;
    cylinder.patchWidth = cylinder.patchHeight = 4;
    cylinder.width = 8;
    writer.CreateNew(&stream, cylinder);
    writer.SetIntegrity(hashes);
    for (uint32_t index = 0; index < 5; ++index)
        Add(writer, index, kxbase::Range, Measured<float>(16, index, 5000, 3, 2), snappy, 0.1);
    writer.EndCreation();
    return stream.GetBytes();
}

/// Points without a grid, one cell a patch.
Bytes ScanWithoutGrid(bool hashes) {
    kxcodecs::ZLibChunkCodec zlib;
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream);
    writer.SetIntegrity(hashes);
    for (uint32_t index = 0; index < 4; ++index)
        Add(writer, index, kxbase::Range, std::vector<float>{1000.0F + static_cast<float>(index)}, zlib, 0.1);
    writer.EndCreation();
    return stream.GetBytes();
}

/// The scan header in one of the versions that were ever written; two patches, component records.
Bytes ScanOfVersion(uint32_t version) {
    ScanFileBuilder file(7, 3, 4, 3);
    file.properties.scannerModel = L"RM";
    file.properties.componentValue = {0.5, 0.25, 0.125};
    for (uint32_t index = 0; index < 2; ++index) {
        std::vector<float> ranges(12);
        for (size_t i = 0; i < ranges.size(); ++i)
            ranges[i] = static_cast<float>(index * 100 + i + 1);
        file.Chunk(1, 0, index, SnappyChunk(ranges, 4, 3, 0.5F));
    }
    file.ComponentRecord(1, kSnappyCodec, 0.5);
    file.ComponentRecord(2, kSnappyCodec, 0.25);
    file.Message("hi");
    file.properties.validPointCount = 21;
    kxio::ScanHeader header;
    header.properties = file.properties;
    file.scanHeader = WithVersion(Written(header), version);
    return file.Build();
}

/// Kinds of extended records that today's writer has no call for.
Bytes ScanWithStrangeRecords() {
    ScanFileBuilder file(4, 3, 4, 3);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 7.0F), 4, 3));
    file.Tail(ExtendedRecord(0x1122334455667788ULL, Bytes(40, 9)));
    file.Message("a");
    file.Tail(ExtendedRecord(kxio::kRangeHistogramType, Bytes(24, 1)));
    file.Tail(ExtendedRecord(kxio::kVerticalAngleHistogramType, Bytes(24, 2)));
    file.Message("b");
    // As written by a writer, each record leads to the next.
    Bytes bytes = file.Build();
    for (uint64_t at = GetMainField(bytes, MainField::FirstExtendedHeader);;) {
        const uint64_t next = at + 16 + bytes.at(at + 12);
        if (next >= bytes.size()) return bytes;
        PutU64(bytes, at + 16, next);
        at = next;
    }
}

/// A scan after every edit.
Seed EditedScan(const Bytes& start, bool hashes) {
    using kxio::QSNInfo;
    using Path = const std::wstring&;
    const std::function<void(Path)> edits[] = {
        [](Path path) { QSNInfo::AddMessage(path, L"later"); },
        [](Path path) {
            QSNInfo::SetRegistrationInfo(path, kxbase::RegistrationInformation(kxbase::Frame3D(), {7, 8, 9}));
        },
        [](Path path) { kxio::QSNFileRecovery::ClearSpekleBit(path); },
        [](Path path) {
            Bytes jpeg;
            kxcodecs::JPEG::Encode(Bytes(192, 80).data(), 8, 8, 50, jpeg);
            kxio::SetThumbnail(path, jpeg);
        },
        [](Path path) { QSNInfo::AddWarning(path, L"wind"); },
        [](Path path) { QSNInfo::AddHQLink(path, kxbase::UUID(L"44444444-0506-0708-090a-0b0c0d0e0f10")); },
        [](Path path) { QSNInfo::AddERLink(path, kxbase::UUID(L"55555555-0506-0708-090a-0b0c0d0e0f10")); },
        [](Path path) { QSNInfo::AddHDRLink(path, kxbase::UUID(L"66666666-0506-0708-090a-0b0c0d0e0f10")); },
    };
    Seed seed{"Edited", start, hashes};
    for (const auto& edit : edits) {
        seed.earlier.push_back(seed.bytes);
        seed.bytes = Edited(seed.bytes, edit);
    }
    return seed;
}

std::vector<Seed> MakeSeeds() {
    std::vector<Seed> seeds;
    const auto addSeed = [&](Seed seed) {
        if (seed.bytes.size() > 16 * 1024) throw std::length_error("seed " + seed.name + " is too long");
        seed.name += seed.hashes ? "Hashed" : "Plain";
        seeds.push_back(std::move(seed));
    };
    const auto add = [&](const std::string& name, const Bytes& bytes, bool hashes) {
        addSeed({name, bytes, hashes});
    };
    kxcodecs::SnappyChunkCodec snappy;
    kxcodecs::ZLibChunkCodec zlib;
    kxcodecs::ZstdChunkCodec zstd;
    kxcodecs::GridChunkCodec balanced;
    kxcodecs::GridChunkCodec fast(kxcodecs::GridChunkCodec::Mode::Fast);
    for (const bool hashes : {false, true}) {
        add("Snappy", MeasuredScan(snappy, hashes), hashes);
        add("ZLib", MeasuredScan(zlib, hashes), hashes);
        add("Zstd", MeasuredScan(zstd, hashes), hashes);
        add("GridBalanced", MeasuredScan(balanced, hashes), hashes);
        add("GridFast", MeasuredScan(fast, hashes), hashes);
        add("Pictures", PictureScan(hashes), hashes);
        add("EveryRecord", ScanWithEveryRecord(hashes), hashes);
        add("OtherComponents", ScanOfOtherComponents(hashes), hashes);
        add("Grown", GrownScan(hashes), hashes);
        add("NoGrid", ScanWithoutGrid(hashes), hashes);
        addSeed(EditedScan(ScanWithEveryRecord(hashes), hashes));
    }
    add("Tiny", TinyScan().Build(), false);
    add("StrangeRecords", ScanWithStrangeRecords(), false);
    add("StrangeRecords", Protected(ScanWithStrangeRecords()), true);
    add("ProtectedLater", Protected(ScanWithEveryRecord(false)), true);
    for (const uint32_t version : {200U, 210U, 220U, 230U, 240U, 250U, 260U, 270U}) {
        const Bytes plain = ScanOfVersion(version);
        add("Version" + std::to_string(version), plain, false);
        add("Version" + std::to_string(version), Protected(plain), true);
    }
    return seeds;
}

}  // namespace

const std::vector<Seed>& SweepSeeds() {
    static const std::vector<Seed> seeds = MakeSeeds();
    return seeds;
}

const Seed& SeedNamed(const std::string& name) {
    for (const Seed& seed : SweepSeeds()) {
        if (seed.name == name) return seed;
    }
    throw std::out_of_range("no seed " + name);
}

}  // namespace reliability
