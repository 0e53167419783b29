// SPDX-License-Identifier: MIT
// The points of a damaged file as text.
#include "kxio/QSNFileRecovery.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <random>
#include <span>

#include "AsciiRecovery.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"
#include "kxbase/Points.h"
#include "kxcodecs/ZLibChunkCodec.h"

namespace {

using kxbase::ComponentType;
using kxio::QSNFileRecovery;
using namespace recovery_test;

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

}  // namespace
