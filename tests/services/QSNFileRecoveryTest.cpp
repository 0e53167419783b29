// SPDX-License-Identifier: MIT
#include "kxio/QSNFileRecovery.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <limits>
#include <memory>
#include <random>
#include <span>

#include "RecoveryFixture.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"
#include "kxbase/Points.h"
#include "kxcodecs/ZLibChunkCodec.h"

namespace {

using kxbase::ComponentType;
using kxio::QSNFileRecovery;
using recovery_test::Bytes;
using recovery_test::CapturedOutput;
using recovery_test::Encode;
using recovery_test::FileBytes;
using recovery_test::Lines;
using recovery_test::ReadText;
using recovery_test::TemporaryFolder;
using recovery_test::WriteBytes;

constexpr ComponentType kR = kxbase::Range;
constexpr ComponentType kV = kxbase::VerticalAngle;
constexpr ComponentType kH = kxbase::HorizontalAngle;
constexpr ComponentType kI = kxbase::Luminance16;
constexpr uint32_t kSide = 2;

/// Range of cell `cell` of patch (row, column) in millimetres: different for every cell of every patch.
float RangeOf(uint32_t row, uint32_t column, uint32_t cell) {
    return static_cast<float>(1000 * (1 + 100 * row + 10 * column + cell));
}

Bytes RangeChunk(uint32_t row, uint32_t column, float quality = 1.0F) {
    return Encode<float>(
        {RangeOf(row, column, 0), RangeOf(row, column, 1), RangeOf(row, column, 2), RangeOf(row, column, 3)},
        kSide, kSide, quality);
}
Bytes ZeroAngles() {
    return Encode<float>(std::vector<float>(4, 0.0F), kSide, kSide);
}
Bytes IntensityChunk(uint16_t value) {
    return Encode<uint16_t>(std::vector<uint16_t>(4, value), kSide, kSide);
}

/// The four components of a patch; with vertical angle 0 every point lies at z = range.
void AddPatch(FileBytes& file, uint32_t row, uint32_t column, uint16_t intensity = 7) {
    file.AddChunk(row, column, kV, ZeroAngles());
    file.AddChunk(row, column, kH, ZeroAngles());
    file.AddChunk(row, column, kI, IntensityChunk(intensity));
    file.AddChunk(row, column, kR, RangeChunk(row, column));
}

/// The line of a point of `AddPatch`.
std::string LineOf(uint32_t row, uint32_t column, uint32_t cell, const std::string& intensity = "7") {
    const auto metres = static_cast<uint32_t>(RangeOf(row, column, cell) / 1000);
    return "0.00000 0.00000 " + std::to_string(metres) + ".00000 " + intensity + " " + intensity + " " +
           intensity + " " + intensity;
}

/// Grid of `rows` x `columns` patches.
FileBytes GridFile(uint32_t rows, uint32_t columns) {
    FileBytes file;
    for (uint32_t r = 0; r < rows; ++r) {
        for (uint32_t c = 0; c < columns; ++c)
            AddPatch(file, r, c);
    }
    return file;
}

struct Export {
    std::vector<std::string> lines;
    std::vector<std::string> printed;

    int64_t Printed(const std::string& line) const {
        return std::count(printed.begin(), printed.end(), line);
    }
};

Export ExportOf(const Bytes& bytes) {
    const TemporaryFolder folder;
    WriteBytes(folder / "scan.qsn", bytes);
    QSNFileRecovery recovery(folder / "scan.qsn");
    const CapturedOutput output;
    recovery.ExportAscii(folder / "points.txt");
    return {Lines(ReadText(folder / "points.txt")), Lines(output.Text())};
}

/// A recovery of `bytes`; the file is gone by the time the caller has it.
std::unique_ptr<QSNFileRecovery> RecoveryOf(const Bytes& bytes) {
    const TemporaryFolder folder;
    WriteBytes(folder / "scan.qsn", bytes);
    return std::make_unique<QSNFileRecovery>(folder / "scan.qsn");
}

template <class Exception, class Action>
void ExpectFailure(const char* text, Action action) {
    try {
        action();
        ADD_FAILURE() << "no exception; expected " << text;
    } catch (const Exception& e) {
        EXPECT_STREQ(e.what(), text);
    }
}

// --- What is found -------------------------------------------------------------------------------------

TEST(QSNFileRecovery, FindsEveryChunkWithItsAddress) {
    FileBytes file;
    const uint64_t first = file.AddChunk(0, 0, kR, RangeChunk(0, 0));
    const uint64_t second = file.AddChunk(3, 5, kI, IntensityChunk(1));
    EXPECT_EQ(first, 92U);
    const auto recovery = RecoveryOf(file.Get());
    const QSNFileRecovery::PatchMap expected = {
        {0, {{0, {{kR, {static_cast<uint32_t>(RangeChunk(0, 0).size()), first}}}}}},
        {3, {{5, {{kI, {static_cast<uint32_t>(IntensityChunk(1).size()), second}}}}}}};
    EXPECT_EQ(recovery->GetPatchMap(), expected);
    EXPECT_EQ(recovery->GetLargestPatchRow(), 3U);
    EXPECT_EQ(recovery->GetLargestPatchColumn(), 5U);
    EXPECT_EQ(recovery->GetPatchSide(), kSide);
}

TEST(QSNFileRecovery, LaterRecordOfAPatchReplacesTheEarlierOne) {
    FileBytes file;
    file.AddChunk(0, 0, kR, RangeChunk(0, 0));
    const uint64_t later = file.AddChunk(0, 0, kR, RangeChunk(9, 9));
    EXPECT_EQ(RecoveryOf(file.Get())->GetPatchMap().at(0).at(0).at(kR).position, later);
}

TEST(QSNFileRecovery, FileWithoutAnyHeaderStillYieldsItsChunks) {
    FileBytes file = GridFile(3, 3);
    kxio::ScanHeader scan;
    const uint64_t scanAt = file.AddRecord(scan);
    Bytes bytes = file.Get();
    std::fill(bytes.begin(), bytes.begin() + 92, 0);
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(scanAt), bytes.end(), 0);
    const auto recovery = RecoveryOf(bytes);
    kxio::ScanProperties properties;
    EXPECT_FALSE(recovery->TryToFindScanProperties(properties));
    EXPECT_EQ(ExportOf(bytes).lines.size(), 16U);
}

TEST(QSNFileRecovery, FileThatCannotBeOpenedCountsAsEmpty) {
    const TemporaryFolder folder;
    for (const std::wstring& path : {folder / "missing.qsn", folder / ""}) {
        QSNFileRecovery recovery(path);
        EXPECT_TRUE(recovery.GetPatchMap().empty());
        EXPECT_EQ(recovery.GetPatchSide(), 0U);
        const CapturedOutput output;
        recovery.ExportAscii(folder / "points.txt");
        EXPECT_EQ(ReadText(folder / "points.txt"), "");
        EXPECT_EQ(output.Text(), "");
    }
}

TEST(QSNFileRecovery, SharedEmptyChunksBelongToNoPatch) {
    FileBytes file = GridFile(3, 3);
    file.AddChunk(0xffffffff, 0xffffffff, kR, RangeChunk(0, 0));
    file.AddChunk(0xffffffff, 1, kR, RangeChunk(0, 0));
    file.AddChunk(1, 0xffffffff, kR, RangeChunk(0, 0));
    const auto recovery = RecoveryOf(file.Get());
    EXPECT_EQ(recovery->GetLargestPatchRow(), 2U);
    EXPECT_EQ(recovery->GetLargestPatchColumn(), 2U);
    EXPECT_EQ(ExportOf(file.Get()).lines.size(), 16U);
}

TEST(QSNFileRecovery, RecordsOfARefusedVersionAreNotFound) {
    FileBytes file;
    const uint64_t at = file.AddChunk(0, 0, kI, IntensityChunk(1));
    file.AddChunk(0, 1, kI, IntensityChunk(1));
    Bytes bytes = file.Get();
    bytes[at + 8] = 199;
    const auto recovery = RecoveryOf(bytes);
    ASSERT_EQ(recovery->GetPatchMap().at(0).size(), 1U);
    EXPECT_TRUE(recovery->GetPatchMap().at(0).contains(1));
}

TEST(QSNFileRecovery, SearchGoesOnBehindANewerRecordsWholePayload) {
    // A version-300 record of 64 payload bytes, 48 more than are understood; these hold a record that is
    // no record of the file, and the chunk data behind them holds one that is found.
    FileBytes inner;
    inner.AddChunk(7, 7, kI, {});
    const Bytes innerRecord(inner.Get().begin() + 92, inner.Get().end());
    ASSERT_EQ(innerRecord.size(), 32U);
    Bytes record(80, 0);
    kxbase::ByteWriter out(record);
    out.U64(0x982157cf2cfe1ec6ULL);
    out.U32(300);
    out.U32(64);
    out.U32(32);  // data size
    out.U32(5);
    out.U32(1);
    out.U32(2);
    out.Bytes(innerRecord);
    FileBytes file;
    file.AddBytes(record);
    Bytes second = innerRecord;
    second[24] = 6;  // patch (6, 7)
    file.AddBytes(second);
    const auto recovery = RecoveryOf(file.Get());
    ASSERT_EQ(recovery->GetPatchMap().size(), 2U);
    EXPECT_EQ(recovery->GetPatchMap().at(1).at(2).at(kI), (QSNFileRecovery::ChunkAddress{32, 92}));
    EXPECT_EQ(recovery->GetPatchMap().at(6).at(7).at(kI).position, 92U + 80);
}

// The map that a read at every byte gives.
QSNFileRecovery::PatchMap PlainSearch(const Bytes& bytes) {
    QSNFileRecovery::PatchMap map;
    kxbase::InMemoryStream stream(bytes);
    for (uint64_t position = 0; position < bytes.size();) {
        stream.Seek(position);
        kxio::DataChunkHeader record;
        uint64_t read = 0;
        try {
            read = record.Read(&stream);
        } catch (const kxbase::KXHeaderReadingException&) {
        }
        if (read == 0) {
            ++position;
            continue;
        }
        if (!record.IsSharedEmpty()) {
            map[record.patchRow][record.patchColumn][record.component] = {record.byteCount, position};
        }
        position += record.HeaderSize();
    }
    return map;
}

TEST(QSNFileRecovery, SearchFindsWhatAReadAtEveryByteFinds) {
    for (uint32_t seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        Bytes bytes(200 + random() % 800);
        for (unsigned char& byte : bytes)
            byte = static_cast<unsigned char>(random() % 4);
        for (int i = 0; i < 12; ++i) {  // records that fit, that overlap, that are cut or refused
            const uint64_t at = random() % (bytes.size() - 20);
            kxbase::ByteWriter out(std::span<unsigned char>(bytes).subspan(at));
            out.U64(0x982157cf2cfe1ec6ULL);
            out.U32(random() % 4 == 0 ? 150 : 200);
            out.U32(random() % 3 == 0 ? static_cast<uint32_t>(random() % 400) : 16);
        }
        // No range chunks here: what they would decode to is another matter.
        kxbase::InMemoryStream look(bytes);
        const auto expected = PlainSearch(bytes);
        bool ranges = false;
        for (const auto& [row, columns] : expected) {
            for (const auto& [column, components] : columns)
                ranges = ranges || components.contains(kR);
        }
        if (ranges) continue;
        EXPECT_EQ(RecoveryOf(bytes)->GetPatchMap(), expected);
    }
}

// --- Patch size ----------------------------------------------------------------------------------------

TEST(QSNFileRecovery, PatchSideIsTheWidthOfTheFirstRangeChunkOfTheMap) {
    FileBytes file;
    file.AddChunk(1, 0, kR, Encode<float>(std::vector<float>(15), 5, 3));
    file.AddChunk(0, 9, kR, Encode<float>(std::vector<float>(21), 7, 3));
    file.AddChunk(0, 2, kI, IntensityChunk(1));
    EXPECT_EQ(RecoveryOf(file.Get())->GetPatchSide(), 7U);
}

TEST(QSNFileRecovery, FirstRangeChunkThatDoesNotDecodeIsAnError) {
    const Bytes good = RangeChunk(0, 0);
    Bytes unknown = good;
    unknown[0] ^= 0xff;
    Bytes damaged = good;
    damaged[24] ^= 1;  // uncompressed size
    for (const Bytes& chunk :
         {Bytes{}, Bytes(27, 0), unknown, damaged, Bytes(good.begin(), good.begin() + 28)}) {
        FileBytes file;
        file.AddChunk(0, 0, kR, chunk);
        ExpectFailure<kxbase::KXUnreadablePatchException>("Patch cannot be decoded",
                                                          [&] { RecoveryOf(file.Get()); });
    }
    FileBytes cut;
    cut.AddChunk(0, 0, kR, good);
    Bytes bytes = cut.Get();
    bytes.pop_back();
    ExpectFailure<kxbase::KXUnreadablePatchException>("Patch cannot be decoded", [&] { RecoveryOf(bytes); });
}

TEST(QSNFileRecovery, WithoutRangeChunksNothingIsExportedButTheReportIsPrinted) {
    FileBytes file;
    file.AddChunk(2, 2, kI, IntensityChunk(1));
    file.AddChunk(0, 0, kI, IntensityChunk(1));
    const auto recovery = RecoveryOf(file.Get());
    EXPECT_EQ(recovery->GetPatchSide(), 0U);
    const Export e = ExportOf(file.Get());
    EXPECT_TRUE(e.lines.empty());
    EXPECT_EQ(e.Printed("Missing row: 1"), 4);
    EXPECT_EQ(e.Printed("Beep Col size: 1"), 4);
    EXPECT_EQ(e.Printed("2/2"), 1);
}

// --- Export --------------------------------------------------------------------------------------------

TEST(QSNFileRecovery, ExportsExactlyThePatchesBelowTheLargestRowAndColumn) {
    const Export e = ExportOf(GridFile(3, 3).Get());
    // By patch row, then grid row by grid row, in each the patches side by side.
    std::vector<std::string> expected;
    for (uint32_t r = 0; r < 2; ++r) {
        for (uint32_t y = 0; y < kSide; ++y) {
            for (uint32_t c = 0; c < 2; ++c) {
                for (uint32_t x = 0; x < kSide; ++x)
                    expected.push_back(LineOf(r, c, y * kSide + x));
            }
        }
    }
    EXPECT_EQ(e.lines, expected);
    EXPECT_EQ(e.printed, (std::vector<std::string>{"1/2", "2/2"}));
}

TEST(QSNFileRecovery, ASingleRowOrColumnOfPatchesExportsNothing) {
    EXPECT_TRUE(ExportOf(GridFile(1, 5).Get()).lines.empty());
    const Export column = ExportOf(GridFile(4, 1).Get());
    EXPECT_TRUE(column.lines.empty());
    EXPECT_EQ(column.printed, (std::vector<std::string>{"1/3", "2/3", "3/3"}));
}

TEST(QSNFileRecovery, LineHoldsThreeNumbersWithFiveDecimalsAndTheIntensityFourTimes) {
    FileBytes file;
    const float pi = 3.14159274F;
    file.AddChunk(0, 0, kR, Encode<float>({1234.5678F, 0, -1, 2000}, 2, 2));
    file.AddChunk(0, 0, kV, Encode<float>({0, 0, 0, pi / 2}, 2, 2));
    file.AddChunk(0, 0, kH, Encode<float>({1, 0, 0, pi / 4}, 2, 2));
    file.AddChunk(0, 0, kI, Encode<uint16_t>({65535, 1, 2, 300}, 2, 2));
    file.AddChunk(1, 1, kI, IntensityChunk(1));
    const Export e = ExportOf(file.Get());
    // Cells without a range above 0 have no line. cos(pi/2) is a little below 0 in single precision.
    EXPECT_EQ(e.lines, (std::vector<std::string>{"0.00000 0.00000 1.23457 65535 65535 65535 65535",
                                                 "1.41421 1.41421 -0.00000 300 300 300 300"}));
}

TEST(QSNFileRecovery, LongestNumbersAreWrittenWhole) {
    FileBytes file;
    const float most = std::numeric_limits<float>::max();
    file.AddChunk(0, 0, kR, Encode<float>({most, 0, 0, 0}, 2, 2));
    file.AddChunk(0, 0, kV, Encode<float>({0.955316618F, 0, 0, 0}, 2, 2));
    file.AddChunk(0, 0, kH, Encode<float>({0.785398163F, 0, 0, 0}, 2, 2));
    file.AddChunk(0, 0, kI, Encode<uint32_t>({4294967295U, 0, 0, 0}, 2, 2));
    file.AddChunk(1, 1, kI, IntensityChunk(1));
    const Export e = ExportOf(file.Get());
    ASSERT_EQ(e.lines.size(), 1U);
    char expected[300];
    const kxbase::tBaseXYZPoint<float> p(
        kxbase::tBasePolarPoint<float>(most / 1000.0F, 0.785398163F, 0.955316618F));
    std::snprintf(expected, sizeof expected, "%.5f %.5f %.5f %u %u %u %u", static_cast<double>(p.x),
                  static_cast<double>(p.y), static_cast<double>(p.z), 4294967295U, 4294967295U, 4294967295U,
                  4294967295U);
    EXPECT_EQ(e.lines[0], expected);
    EXPECT_GT(e.lines[0].size(), 128U);
}

TEST(QSNFileRecovery, QuantisedChunksAreScaledBack) {
    FileBytes file;
    file.AddChunk(0, 0, kR, RangeChunk(0, 0, 10.0F));  // tenths of a millimetre
    file.AddChunk(0, 0, kV, Encode<double>({0, 0, 0, 1.5}, 2, 2, 1000000.0F));
    file.AddChunk(0, 0, kH, Encode<float>({0, 0, 0, 0.25F}, 2, 2, 1000000.0F));
    file.AddChunk(0, 0, kI, IntensityChunk(9));
    file.AddChunk(1, 1, kI, IntensityChunk(1));
    const Export e = ExportOf(file.Get());
    ASSERT_EQ(e.lines.size(), 4U);
    EXPECT_EQ(e.lines[0], LineOf(0, 0, 0, "9"));
    // 4 m at vertical 1.5, horizontal 0.25.
    EXPECT_EQ(e.lines[3], "3.86594 0.98714 0.28295 9 9 9 9");
}

TEST(QSNFileRecovery, IntensitiesOfOneTwoAndFourBytesCountOthersAreZero) {
    const auto exported = [](const Bytes& chunk) {
        FileBytes file;
        file.AddChunk(0, 0, kR, RangeChunk(0, 0));
        file.AddChunk(0, 0, kI, chunk);
        file.AddChunk(1, 1, kR, RangeChunk(0, 0));
        const Export e = ExportOf(file.Get());
        EXPECT_EQ(e.lines.size(), 4U);
        return e.lines.at(0);
    };
    EXPECT_EQ(exported(Encode<uint8_t>({255, 0, 0, 0}, 2, 2)), LineOf(0, 0, 0, "255"));
    EXPECT_EQ(exported(Encode<uint16_t>({65535, 0, 0, 0}, 2, 2)), LineOf(0, 0, 0, "65535"));
    EXPECT_EQ(exported(Encode<uint32_t>({4000000000U, 0, 0, 0}, 2, 2)), LineOf(0, 0, 0, "4000000000"));
    EXPECT_EQ(exported(Encode<float>({12.0F, 0, 0, 0}, 2, 2, 100.0F)), LineOf(0, 0, 0, "12"));
    EXPECT_EQ(exported(Encode<float>({-12.0F, 0, 0, 0}, 2, 2, 100.0F)), LineOf(0, 0, 0, "0"));
    EXPECT_EQ(exported(Encode<uint64_t>({7, 0, 0, 0}, 2, 2)), LineOf(0, 0, 0, "0"));
    EXPECT_EQ(exported(Bytes{}), LineOf(0, 0, 0, "0"));
}

TEST(QSNFileRecovery, RangesOfOtherSizesThanFloatsAreNoPoints) {
    FileBytes file;
    file.AddChunk(0, 0, kR, Encode<uint16_t>({1, 2, 3, 4}, 2, 2));
    file.AddChunk(0, 1, kR, Encode<double>({5000, 0, 0, 0}, 2, 2));
    file.AddChunk(1, 2, kR, RangeChunk(0, 0));
    EXPECT_EQ(ExportOf(file.Get()).lines, (std::vector<std::string>{"0.00000 0.00000 5.00000 0 0 0 0"}));
}

TEST(QSNFileRecovery, PatchesOfAnotherSizeContributeTheCellsThatExist) {
    FileBytes file;
    file.AddChunk(0, 0, kR, RangeChunk(0, 0));                                // 2 x 2: the patch side is 2
    file.AddChunk(0, 1, kR, Encode<float>({1000, 2000, 3000}, 3, 1));         // one cell short
    file.AddChunk(0, 2, kR, Encode<float>(std::vector<float>(30, 9), 5, 6));  // 26 too many
    file.AddChunk(0, 2, kV, Encode<float>({0}, 1, 1));
    file.AddChunk(1, 3, kR, RangeChunk(0, 0));
    const Export e = ExportOf(file.Get());
    EXPECT_EQ(e.lines.size(), 4U + 3 + 4);
    EXPECT_EQ(e.lines[2], "0.00000 0.00000 1.00000 0 0 0 0");
    EXPECT_EQ(e.lines.back(), "0.00000 0.00000 0.00900 0 0 0 0");
}

TEST(QSNFileRecovery, MissingRowIsPrintedForEachStripAndHasNoLines) {
    FileBytes file;
    AddPatch(file, 0, 0);
    AddPatch(file, 2, 0);
    AddPatch(file, 3, 1);
    const Export e = ExportOf(file.Get());
    EXPECT_EQ(e.Printed("Missing row: 1"), 4);
    EXPECT_EQ(e.printed, (std::vector<std::string>{"1/3", "Missing row: 1", "Missing row: 1",
                                                   "Missing row: 1", "Missing row: 1", "2/3", "3/3"}));
    EXPECT_EQ(e.lines.size(), 8U);
}

TEST(QSNFileRecovery, PatchOfThreeComponentsIsReportedAndExported) {
    FileBytes file;
    file.AddChunk(0, 0, kR, RangeChunk(0, 0));
    file.AddChunk(0, 0, kV, ZeroAngles());
    file.AddChunk(0, 0, kH, ZeroAngles());
    AddPatch(file, 1, 1);
    const Export e = ExportOf(file.Get());
    EXPECT_EQ(e.Printed("Beep Col size: 3"), 4);
    EXPECT_EQ(e.lines, (std::vector<std::string>{LineOf(0, 0, 0, "0"), LineOf(0, 0, 1, "0"),
                                                 LineOf(0, 0, 2, "0"), LineOf(0, 0, 3, "0")}));
}

TEST(QSNFileRecovery, AnyFourComponentsAreFourComponents) {
    FileBytes file;
    file.AddChunk(0, 0, kR, RangeChunk(0, 0));
    file.AddChunk(0, 0, kxbase::Color, Encode<uint8_t>(std::vector<uint8_t>(12), 2, 2));
    file.AddChunk(0, 0, kxbase::Class, Encode<uint32_t>(std::vector<uint32_t>(4), 2, 2));
    file.AddChunk(0, 0, ComponentType(77), Encode<uint32_t>(std::vector<uint32_t>(4), 2, 2));
    AddPatch(file, 1, 1);
    EXPECT_EQ(ExportOf(file.Get()).printed, (std::vector<std::string>{"1/1"}));
}

TEST(QSNFileRecovery, PatchesOfTheLargestColumnAreReportedToo) {
    FileBytes file;
    file.AddChunk(0, 0, kR, RangeChunk(0, 0));
    file.AddChunk(0, 1, kI, IntensityChunk(3));
    file.AddChunk(0, 1, kR, Bytes(40, 1));
    file.AddChunk(1, 0, kR, RangeChunk(0, 0));
    const Export e = ExportOf(file.Get());
    EXPECT_EQ(e.Printed("Beep Col size: 1"), 4);
    EXPECT_EQ(e.Printed("Beep Col size: 2"), 4);
    EXPECT_EQ(e.Printed("Cannot decompress: "), 1);
    EXPECT_EQ(e.lines.size(), 4U);
}

TEST(QSNFileRecovery, CutChunkIsReportedAndEveryWholeOneIsExported) {
    FileBytes file;
    AddPatch(file, 0, 0);
    AddPatch(file, 2, 2);
    AddPatch(file, 0, 1);
    AddPatch(file, 1, 0);
    AddPatch(file, 1, 1);  // its range chunk is the last of the file
    Bytes bytes = file.Get();
    bytes.resize(bytes.size() - 3);
    const Export e = ExportOf(bytes);
    EXPECT_EQ(e.Printed("Cannot decompress: "), 1);
    EXPECT_EQ(e.lines.size(), 12U);
    EXPECT_EQ(std::count(e.lines.begin(), e.lines.end(), LineOf(1, 1, 0)), 0);
    EXPECT_EQ(std::count(e.lines.begin(), e.lines.end(), LineOf(1, 0, 3)), 1);
}

TEST(QSNFileRecovery, EmptyChunkIsSilent) {
    FileBytes file;
    AddPatch(file, 0, 0);
    file.AddChunk(0, 1, kR, {});
    AddPatch(file, 1, 2);
    const Export e = ExportOf(file.Get());
    EXPECT_EQ(e.Printed("Cannot decompress: "), 0);
    EXPECT_EQ(e.lines.size(), 4U);
}

TEST(QSNFileRecovery, ChunkThatClaimsMoreThanTheFileHoldsIsReported) {
    FileBytes file;
    AddPatch(file, 0, 0);
    AddPatch(file, 1, 2);
    const uint64_t at = file.AddChunk(0, 1, kR, RangeChunk(0, 1));
    Bytes bytes = file.Get();
    for (uint64_t i = 0; i < 4; ++i)
        bytes[at + 16 + i] = 0xff;
    const Export e = ExportOf(bytes);
    EXPECT_EQ(e.Printed("Cannot decompress: "), 1);
    EXPECT_EQ(e.lines.size(), 4U);
}

TEST(QSNFileRecovery, FarAwayPatchCostsMessagesButNoMemory) {
    FileBytes file;
    AddPatch(file, 0, 0);
    AddPatch(file, 1000000, 1000000);
    const Export e = ExportOf(file.Get());
    EXPECT_EQ(e.lines.size(), 4U);
    EXPECT_EQ(e.printed.size(), 1000000U + 4U * 999999U);
    EXPECT_EQ(e.printed.back(), "1000000/1000000");
}

TEST(QSNFileRecovery, WithoutMessagesBillionsOfMissingRowsCostNothing) {
    FileBytes file;
    AddPatch(file, 0, 0);
    AddPatch(file, 3, 0);
    AddPatch(file, 0xfffffffe, 1);
    const TemporaryFolder folder;
    WriteBytes(folder / "scan.qsn", file.Get());
    QSNFileRecovery recovery(folder / "scan.qsn");
    std::vector<uint32_t> rows;
    QSNFileRecovery::AsciiOptions options;
    options.rowDone = [&](uint32_t done, uint32_t all) {
        EXPECT_EQ(all, 0xfffffffeU);
        rows.push_back(done);
    };
    const QSNFileRecovery::AsciiReport report = recovery.ExportAscii(folder / "points.txt", options);
    EXPECT_EQ(rows, (std::vector<uint32_t>{1, 3, 4, 0xfffffffe}));
    EXPECT_EQ(report.rowsMissing, 0xfffffffeU - 2);
    EXPECT_EQ(report.points, 8U);
}

TEST(QSNFileRecovery, HugePatchSideIsNotAllocated) {
    FileBytes file;
    file.AddChunk(0, 0, kR, Encode<float>(std::vector<float>(1 << 16, 1000.0F), 1 << 16, 1));
    file.AddChunk(1, 1000, kR, RangeChunk(0, 0));
    const Export e = ExportOf(file.Get());
    EXPECT_EQ(e.lines.size(), 65536U);
}

TEST(QSNFileRecovery, DecimalPointIsAPointInEveryLocale) {
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Comma));
    const Export e = ExportOf(GridFile(2, 2).Get());
    std::locale::global(before);
    ASSERT_EQ(e.lines.size(), 4U);
    EXPECT_EQ(e.lines[0], "0.00000 0.00000 1.00000 7 7 7 7");
}

TEST(QSNFileRecovery, CallerTakesMessagesCountsAndProgress) {
    FileBytes file = GridFile(4, 3);
    file.AddChunk(6, 0, kR, Bytes(50, 1));
    file.AddChunk(7, 0, kI, IntensityChunk(1));
    const TemporaryFolder folder;
    WriteBytes(folder / "scan.qsn", file.Get());
    QSNFileRecovery recovery(folder / "scan.qsn");
    const CapturedOutput output;
    std::ostringstream messages;
    std::vector<uint32_t> rows;
    QSNFileRecovery::AsciiOptions options;
    options.messages = &messages;
    options.rowDone = [&](uint32_t done, uint32_t all) {
        EXPECT_EQ(all, 7U);
        rows.push_back(done);
    };
    const QSNFileRecovery::AsciiReport report = recovery.ExportAscii(folder / "points.txt", options);
    EXPECT_EQ(rows, (std::vector<uint32_t>{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(report.points, 4U * 2 * 4);
    EXPECT_EQ(report.points, Lines(ReadText(folder / "points.txt")).size());
    EXPECT_EQ(report.chunksFound, 4U * 12 + 2);
    EXPECT_EQ(report.chunksLost, 1U);
    EXPECT_EQ(report.rowsMissing, 2U);
    EXPECT_NE(messages.str().find("Missing row: 5\n"), std::string::npos);
    EXPECT_EQ(output.Text(), "");
    // Without a place for them the messages go nowhere.
    EXPECT_EQ(recovery.ExportAscii(folder / "points.txt", {}).points, report.points);
    EXPECT_EQ(output.Text(), "");
}

TEST(QSNFileRecovery, PathThatCannotBeWrittenIsAnError) {
    const TemporaryFolder folder;
    WriteBytes(folder / "scan.qsn", GridFile(2, 2).Get());
    QSNFileRecovery recovery(folder / "scan.qsn");
    ExpectFailure<kxbase::KXFileNotOpenException>(
        "Cannot file not open", [&] { recovery.ExportAscii(folder / "no such folder/points.txt"); });
}

TEST(QSNFileRecovery, ExportReplacesWhatTheFileHeld) {
    const TemporaryFolder folder;
    WriteBytes(folder / "scan.qsn", GridFile(2, 2).Get());
    WriteBytes(folder / "points.txt", Bytes(10000, 'x'));
    QSNFileRecovery recovery(folder / "scan.qsn");
    const CapturedOutput output;
    recovery.ExportAscii(folder / "points.txt");
    EXPECT_EQ(Lines(ReadText(folder / "points.txt")).size(), 4U);
}

TEST(QSNFileRecovery, CopiesOwnTheirBytesAndTheFileIsNotReadAgain) {
    const TemporaryFolder folder;
    const std::wstring path = folder / "scan.qsn";
    WriteBytes(path, GridFile(3, 3).Get());
    auto first = std::make_unique<QSNFileRecovery>(path);
    QSNFileRecovery copy(*first);
    QSNFileRecovery assigned(folder / "missing.qsn");
    assigned = *first;
    first.reset();
    std::filesystem::remove(recovery_test::NarrowPath(path));
    for (QSNFileRecovery* recovery : {&copy, &assigned}) {
        const CapturedOutput output;
        recovery->ExportAscii(folder / "points.txt");
        EXPECT_EQ(Lines(ReadText(folder / "points.txt")).size(), 16U);
    }
}

// --- Scan properties -----------------------------------------------------------------------------------

kxio::ScanHeader HeaderOfModel(const std::wstring& model) {
    kxio::ScanHeader header;
    header.properties.scannerModel = model;
    header.properties.grid.columns = 40;
    return header;
}

TEST(QSNFileRecovery, PropertiesOfTheOnlyScanHeaderAreFound) {
    FileBytes file;
    file.AddChunk(0, 0, kI, IntensityChunk(1));
    file.AddBytes(Bytes(13, 0x5a));  // at no particular alignment
    kxio::ScanHeader header = HeaderOfModel(L"Ostrak RM7");
    file.AddRecord(header);
    kxio::ScanProperties properties;
    EXPECT_TRUE(RecoveryOf(file.Get())->TryToFindScanProperties(properties));
    EXPECT_EQ(properties.scannerModel, L"Ostrak RM7");
    EXPECT_EQ(properties.grid.columns, 40U);
}

TEST(QSNFileRecovery, NoneOrTwoScanHeadersLeavePropertiesAlone) {
    kxio::ScanProperties properties;
    properties.scannerModel = L"mine";
    const kxio::ScanProperties before = properties;
    FileBytes file;
    EXPECT_FALSE(RecoveryOf(file.Get())->TryToFindScanProperties(properties));
    kxio::ScanHeader first = HeaderOfModel(L"first");
    kxio::ScanHeader second = HeaderOfModel(L"second");
    file.AddRecord(first);
    file.AddChunk(0, 0, kI, IntensityChunk(1));
    file.AddRecord(second);
    EXPECT_FALSE(RecoveryOf(file.Get())->TryToFindScanProperties(properties));
    EXPECT_EQ(properties, before);
}

TEST(QSNFileRecovery, RefusedAndCutScanHeadersAreNotCounted) {
    FileBytes file;
    kxio::ScanHeader old = HeaderOfModel(L"old");
    const uint64_t oldAt = file.AddRecord(old);
    kxio::ScanHeader good = HeaderOfModel(L"good");
    file.AddRecord(good);
    kxio::ScanHeader cut = HeaderOfModel(L"cut");
    file.AddRecord(cut);
    Bytes bytes = file.Get();
    bytes[oldAt + 8] = 199;
    bytes[oldAt + 9] = 0;
    bytes.pop_back();
    kxio::ScanProperties properties;
    EXPECT_TRUE(RecoveryOf(bytes)->TryToFindScanProperties(properties));
    EXPECT_EQ(properties.scannerModel, L"good");
}

// Frames that nest: each claims all the bytes behind it and none is a scan header. Read naively this takes
// the square of the file's size.
TEST(QSNFileRecovery, NestedFramesOfScanHeadersAreSearchedInBoundedTime) {
    Bytes bytes(8 << 20, 0x01);
    for (uint64_t at = 0; at + 16 <= bytes.size(); at += 16) {
        kxbase::ByteWriter out(std::span<unsigned char>(bytes).subspan(at, 16));
        out.U64(0x9cb282fc40c502d8ULL);
        out.U32(0x01010101);
        out.U32(static_cast<uint32_t>((bytes.size() - at - 16) | 0x01010101) & 0x007fffff);
    }
    kxio::ScanProperties properties;
    EXPECT_FALSE(RecoveryOf(bytes)->TryToFindScanProperties(properties));
}

}  // namespace
