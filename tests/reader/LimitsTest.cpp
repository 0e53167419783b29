// SPDX-License-Identifier: MIT
// Each limit refuses what exceeds it, is named where it does, and can be raised for one opening.
#include "kxio/Limits.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "SampleScans.h"
#include "kxcodecs/JPEG.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxio/QSNInfo.h"
#include "kxio/VerifyScan.h"
#include "support/StoredFile.h"
#include "support/TempFolder.h"

namespace {

using namespace kxtest;
using kxbase::Range;
using kxio::Limits;

// What and detail of what is thrown; nothing when nothing is.
std::optional<std::pair<std::string, std::string>> Refusal(const std::function<void()>& call) {
    try {
        call();
    } catch (const kxbase::KXException& e) {
        return std::pair(std::string(e.what()), e.Context().detail);
    }
    return std::nullopt;
}

using Told = std::optional<std::pair<std::string, std::string>>;

Told RefusalOfOpening(const Bytes& bytes, const Limits& limits) {
    return Refusal([&] {
        kxbase::InMemoryStream stream(bytes);
        OpenReader reader;
        reader.SetLimits(limits);
        reader.Open(&stream);
    });
}

Told RefusalOfAPatch(const Bytes& bytes, const Limits& limits) {
    return Refusal([&] {
        kxbase::InMemoryStream stream(bytes);
        OpenReader reader;
        reader.SetLimits(limits);
        reader.Open(&stream);
        kxio::ScanAccess(reader).ReadPatchBytes(Range, 0, 0, 4);
    });
}

// One patch of 16 x 16 equal ranges, packed by zlib.
ScanFileBuilder OnePatch() {
    ScanFileBuilder file(16, 16, 16, 16);
    file.Chunk(Range, 0, 0,
               EncodedChunk(kxcodecs::ZLibChunkCodec(), std::vector<float>(256, 5.0F), 16, 16, 10.0F));
    return file;
}

TEST(ReaderLimits, DefaultsAreStatedAndStay) {
    const Limits limits;
    EXPECT_EQ(limits.cells, uint64_t{1} << 28);
    EXPECT_EQ(limits.recordBytes, uint64_t{1} << 30);
    EXPECT_EQ(limits.textBytes, uint64_t{1} << 20);
    EXPECT_EQ(limits.components, 1024U);
    EXPECT_EQ(limits.decodedBytes, uint64_t{1} << 30);
    EXPECT_EQ(limits.expansionRatio, 32768U);
    EXPECT_EQ(limits.thumbnailPixels, uint64_t{1} << 26);
    EXPECT_TRUE(limits.checkHashes);
    EXPECT_EQ(OpenReader().GetLimits(), limits);
    EXPECT_EQ(RefusalOfAPatch(OnePatch().Message("m").Build(), limits), std::nullopt);
    EXPECT_EQ(RefusalOfAPatch(OnePatch().Message("m").Build(), Limits::None()), std::nullopt);
}

TEST(ReaderLimits, CellsOfAPatch) {
    Limits limits;
    limits.cells = 255;
    EXPECT_EQ(
        RefusalOfAPatch(OnePatch().Build(), limits),
        Told({"Patch cannot be decoded",
              "limit cells: 256 found, at most 255 allowed (ZLib, 16 x 16 elements, 1024 bytes decoded)"}));
    limits.cells = 256;
    EXPECT_EQ(RefusalOfAPatch(OnePatch().Build(), limits), std::nullopt);
}

TEST(ReaderLimits, DecodedBytes) {
    Limits limits;
    limits.decodedBytes = 1023;
    const Told told = RefusalOfAPatch(OnePatch().Build(), limits);
    ASSERT_TRUE(told);
    EXPECT_EQ(told->second.substr(0, 55), "limit decodedBytes: 1024 found, at most 1023 allowed (Z");
    limits.decodedBytes = 1024;
    EXPECT_EQ(RefusalOfAPatch(OnePatch().Build(), limits), std::nullopt);
}

TEST(ReaderLimits, ExpansionRatio) {
    Limits limits;
    limits.expansionRatio = 2;
    const Told told = RefusalOfAPatch(OnePatch().Build(), limits);
    ASSERT_TRUE(told);
    EXPECT_EQ(told->second.substr(0, 22), "limit expansionRatio: ");
    limits.expansionRatio = 1024;
    EXPECT_EQ(RefusalOfAPatch(OnePatch().Build(), limits), std::nullopt);
}

TEST(ReaderLimits, ReducedDetailTakesNoMemoryBeyondThem) {
    kxbase::InMemoryStream stream(OnePatch().Build());
    OpenReader reader;
    Limits limits;
    limits.decodedBytes = 1000;
    reader.SetLimits(limits);
    reader.Open(&stream);
    unsigned level = 1;
    EXPECT_EQ(Refusal([&] { kxio::ScanAccess(reader).ReadReducedPatchBytes(Range, 0, 0, 4, level); }),
              Told({"Patch cannot be decoded", "limit decodedBytes: 1024 found, at most 1000 allowed"}));
    EXPECT_EQ(Refusal([&] {
                  std::vector<float> layer(256);
                  reader.GetFullLayer(layer.data(), 4, Range, [](kxbase::QSNIndex, void*) {});
              }),
              Told({"Patch cannot be decoded", "limit decodedBytes: 1024 found, at most 1000 allowed"}));
}

TEST(ReaderLimits, RecordBytes) {
    ScanFileBuilder file(256, 256, 2, 2);
    AddLayer<float>(file, 1, RangeAt);
    const Bytes bytes = file.Build();
    Limits limits;
    limits.recordBytes = 10000;
    EXPECT_EQ(RefusalOfOpening(bytes, limits),
              Told({"Lookup table not found", "limit recordBytes: 196620 found, at most 10000 allowed"}));
    limits.recordBytes = 196620;
    EXPECT_EQ(RefusalOfOpening(bytes, limits), std::nullopt);
}

TEST(ReaderLimits, TextBytesOfTheScanHeaderAndOfTheTailTogether) {
    ScanFileBuilder file = OnePatch();
    file.Message(std::string(1000, 'm')).Message(std::string(1000, 'n'));
    Limits limits;
    limits.textBytes = 2000;
    const Told told = RefusalOfOpening(file.Build(), limits);
    ASSERT_TRUE(told);
    EXPECT_EQ(told->first, "Error opening file");
    EXPECT_EQ(told->second.substr(0, 17), "limit textBytes: ");
    limits.textBytes = 4000;
    EXPECT_EQ(RefusalOfOpening(file.Build(), limits), std::nullopt);
    limits.textBytes = 100;
    const Told header = RefusalOfOpening(file.Build(), limits);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->first, "Invalid scan headers");
    EXPECT_EQ(header->second.substr(0, 17), "limit textBytes: ");
}

TEST(ReaderLimits, HistogramsAndUnknownRecordsAreNoText) {
    ScanFileBuilder file = OnePatch();
    file.Tail(ExtendedRecord(0x1234, Bytes(1 << 21, 7))).Message("behind");
    kxbase::InMemoryStream stream(file.Build());
    const OpenReader reader(&stream);
    EXPECT_EQ(reader.GetMessageList(), std::list<std::wstring>{L"behind"});
}

TEST(ReaderLimits, ComponentsOfTablesAndRecords) {
    ScanFileBuilder file = OnePatch();
    for (uint32_t component = 100; component < 110; ++component)
        file.Chunk(component, 0, 0, LiteralChunk(Bytes(256, 1), 16, 16));
    Limits limits;
    limits.components = 10;
    EXPECT_EQ(RefusalOfOpening(file.Build(), limits),
              Told({"Lookup table not found", "limit components: 11 found, at most 10 allowed"}));
    limits.components = 11;
    EXPECT_EQ(RefusalOfOpening(file.Build(), limits), std::nullopt);
    for (uint32_t component = 100; component < 120; ++component)
        file.ComponentRecord(component, kSnappyCodec, 1);
    EXPECT_EQ(RefusalOfOpening(file.Build(), limits),
              Told({"Error opening file", "limit components: 12 found, at most 11 allowed"}));
}

TEST(ReaderLimits, ThumbnailPixels) {
    std::vector<unsigned char> jpeg;
    ASSERT_TRUE(kxcodecs::JPEG::Encode(std::vector<unsigned char>(3 * 20 * 10, 9).data(), 20, 10, 90, jpeg));
    ScanFileBuilder file = OnePatch();
    file.Thumbnail(jpeg, 20, 10);
    kxbase::InMemoryStream stream(file.Build());
    OpenReader reader(&stream);
    std::vector<unsigned char> pixels;
    unsigned width = 0;
    unsigned height = 0;
    EXPECT_TRUE(reader.GetThumbnailRGB(pixels, width, height));
    Limits limits;
    limits.thumbnailPixels = 199;
    reader.SetLimits(limits);
    EXPECT_FALSE(reader.GetThumbnailRGB(pixels, width, height));
    EXPECT_EQ(width, 100U);
    limits.thumbnailPixels = 200;
    reader.SetLimits(limits);
    EXPECT_TRUE(reader.GetThumbnailRGB(pixels, width, height));
}

TEST(ReaderLimits, CanBeGivenToInspectionAndVerificationToo) {
    TempFolder folder;
    ScanFileBuilder file = OnePatch();
    const std::wstring path =
        StoreFile(Wide(folder / "scan.qsn"), file.Message(std::string(5000, 'm')).Build());
    Limits limits;
    limits.textBytes = 1000;
    EXPECT_EQ(Refusal([&] { kxio::QSNInfo::GetAllInfo(path, limits); })->first, "Error opening file");
    EXPECT_EQ(kxio::QSNInfo::GetMessages(path).size(), 1U);
    kxio::VerifyOptions options;
    options.limits.decodedBytes = 1000;
    const kxio::VerifyReport report = kxio::VerifyScan(path, options);
    const auto names = [](const kxio::VerifyFinding& finding) {
        return finding.text.find("limit decodedBytes: 1024 found, at most 1000 allowed") != std::string::npos;
    };
    EXPECT_TRUE(std::any_of(report.findings.begin(), report.findings.end(), names));
}

}  // namespace
