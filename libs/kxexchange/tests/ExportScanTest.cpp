// SPDX-License-Identifier: MIT
// What an export takes, tells and refuses, and what it leaves behind when it fails.
#include "kxexchange/ExportScan.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "SmallExport.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "support/AllocationWatch.h"
#include "support/StreamStub.h"

namespace kxexchange::testing {
namespace {

TEST(ExportScan, ALayoutThatDoesNotFitTheGridIsPassedOverWithAWarning) {
    OneScan scan;
    scan.messages = {
        L"hello",
        L"kxio-layout 1 columns=2 rows=4 order=forward gridrows=4 segments=0+4@near:0+ intensity=unit"};
    ExportReport report;
    const std::string text = Exported(scan, "PTX", {}, &report);
    EXPECT_EQ(text.substr(0, 4), "2\n3\n");
    EXPECT_EQ(report.warnings,
              (std::vector<std::string>{
                  "The stored layout does not fit the grid; cells are in the grid's own order"}));
}

TEST(ExportScan, TheLayoutPutsCellsBack) {
    OneScan scan;
    // One source column over the zenith: rows 0 and 1 on the far side, which is grid column 1; rows 2 to 4
    // near.
    scan.messages = {
        L"kxio-layout 1 columns=1 rows=5 order=forward fold=1 gridrows=3 segments=0+2@far:2-,2+3@near:0+ "
        L"intensity=integer:-10:0.5 empty=7.25 source=PTX position=1,2,3"};
    scan.luminance16 = {0, 0, 20, 21, 0, 40};
    const std::string text = Exported(scan, "PTX");
    EXPECT_EQ(text,
              "1\n5\n1 2 3\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n"
              "0.000000 0.000000 -4.000000 10\n"
              "0.000000 3.000000 0.000000 1\n"
              "0.000000 0.000000 1.000000 -10\n"
              "2.000000 0.000000 0.000000 0\n"
              "0 0 0 7.25\n");
}

TEST(ExportScan, AScanWithoutRangeCannotBeExported) {
    OneScan scan;
    scan.withRange = false;
    const TempFolder folder;
    scan.Write(folder / "a.qsn");
    try {
        ExportScan(folder / "a.qsn", folder / "out.ply", "PLY");
        FAIL();
    } catch (const kxbase::KXComponentNotInFileException& e) {
        EXPECT_STREQ(e.what(), "Scan cannot be exported");
        EXPECT_EQ(e.Context().detail, "the scan has no Range");
    }
    EXPECT_EQ(Entries(folder), (std::vector<std::string>{"a.qsn"}));
}

TEST(ExportScan, DamagedPatchesEndItAndLeaveNothingBehind) {
    OneScan scan;
    const TempFolder folder;
    scan.Write(folder / "a.qsn");
    std::string bytes = ReadFile(folder / "a.qsn");
    // The vertical angle's chunk is one of three; its payload lies behind record (32) and chunk header (28).
    const kxio::QSNScanReader reader((folder / "a.qsn").wstring());
    const auto entry = kxio::ScanAccess(reader).PatchEntries(kxbase::VerticalAngle).front();
    for (size_t i = 28; i < entry.byteCount; ++i)
        bytes[static_cast<size_t>(entry.position) + i] = '\xff';
    WriteFile(folder / "b.qsn", bytes);
    WriteFile(folder / "out.ptx", "older");
    EXPECT_THROW(ExportScan(folder / "b.qsn", folder / "out.ptx", "PTX"), kxbase::KXUnreadablePatchException);
    EXPECT_EQ(Entries(folder), (std::vector<std::string>{"a.qsn", "b.qsn", "out.ptx"}));
    EXPECT_EQ(ReadFile(folder / "out.ptx"), "older");
}

TEST(ExportScan, PositionsThatAreNoNumbersAreLeftOutWithAWarning) {
    OneScan scan;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    scan.range = {1000, nan, 2000, infinity, -5, 4000};
    scan.vertical[0] = nan;
    scan.horizontal[2] = infinity;
    ExportReport report;
    EXPECT_EQ(Exported(scan, "XYZ", {}, &report), "0.000000 0.000000 -4.000000\n");
    EXPECT_EQ(report.points, 1U);
    EXPECT_EQ(report.warnings,
              (std::vector<std::string>{"3 returns have no usable position; they are left out"}));
}

TEST(ExportScan, ARegistrationOfNoNumbersIsRefusedWhereItMatters) {
    OneScan scan;
    double values[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, std::numeric_limits<double>::infinity()};
    scan.registration = kxbase::RegistrationInformation::FromValues(values);
    const TempFolder folder;
    scan.Write(folder / "a.qsn");
    EXPECT_THROW(ExportScan(folder / "a.qsn", folder / "out", "PTX"), kxbase::KXBadInputException);
    EXPECT_THROW(ExportScan(folder / "a.qsn", folder / "out", "XYZ"), kxbase::KXBadInputException);
    ExportOptions options;
    options.registration = RegistrationUse::Keep;
    EXPECT_EQ(ExportScan(folder / "a.qsn", folder / "out", "XYZ", options).points, 4U);
}

TEST(ExportScan, TheLongestNumbersFitTheirLines) {
    OneScan scan;
    double values[12] = {-1e308, -1e308, -1e308, -1e308, -1e308, -1e308, 1, 1, 1, 0, 0, 0};
    scan.registration = kxbase::RegistrationInformation::FromValues(values);
    ExportOptions options;
    options.registration = RegistrationUse::Apply;
    options.sink.decimals = 12;
    scan.range[2] = 1e3F;
    scan.color.assign(6, {255, 255, 255});
    for (const char* format : {"PTX", "XYZ"}) {
        EXPECT_GT(Exported(scan, format, options).size(), 3U * 309U);
    }
}

TEST(ExportScan, TheGridsClaimsAllocateNothing) {
    OneScan scan;
    scan.grid.columns = scan.grid.patchWidth = 1;
    scan.grid.rows = scan.grid.patchHeight = 0x7fffffff;
    scan.grid.previewWidth = scan.grid.previewHeight = 1;
    scan.grid.columnRatio = 1;
    scan.grid.rowRatio = 0x1p31F;
    const TempFolder folder;
    scan.Write(folder / "a.qsn");
    const kxio::QSNScanReader reader((folder / "a.qsn").wstring());
    const kxtest::AllocationWatch watch;
    try {
        ExportScan(reader, folder / "out", "PTX");
        FAIL();
    } catch (const kxbase::KXUnreadablePatchException& e) {
        EXPECT_EQ(e.Context().detail, "found a chunk of 6 values, expected 2147483647");
    }
    EXPECT_LT(watch.Largest(), size_t{4} << 20);
    EXPECT_EQ(Entries(folder), (std::vector<std::string>{"a.qsn"}));
}

TEST(ExportScan, AScanWithoutGridCannotBeExported) {
    const TempFolder folder;
    {
        kxio::QSNScanWriter writer;
        writer.CreateNew((folder / "a.qsn").wstring());
        writer.EndCreation();
    }
    EXPECT_THROW(ExportScan(folder / "a.qsn", folder / "out", "PTX"), kxbase::KXBadInputException);
    EXPECT_EQ(Entries(folder), (std::vector<std::string>{"a.qsn"}));
}

class StopAt final : public ProgressSink {
public:
    explicit StopAt(int calls) : m_calls(calls) {}
    bool Update(uint64_t cellsDone, uint64_t cellsTotal, uint64_t bytesDone) override {
        EXPECT_GT(cellsDone, done);
        EXPECT_GE(bytesDone, bytes);
        done = cellsDone;
        total = cellsTotal;
        bytes = bytesDone;
        return --m_calls > 0;
    }
    uint64_t done = 0, total = 0, bytes = 0;

private:
    int m_calls;
};

TEST(ExportScan, ProgressReachesTheTotalAndCancellingLeavesNothingBehind) {
    Sweep sweep;
    sweep.columns = 40;
    sweep.rows = 30;
    const TempFolder folder;
    ImportOptions importOptions;
    importOptions.patchWidth = importOptions.patchHeight = 8;
    ImportScan(*SourceOf(PtxText(MakeSweep(sweep), 40, 30, true)), 0, folder / "a.qsn", importOptions);
    for (const char* format : {"PTX", "PLY", "XYZ"}) {
        StopAt never(1000);
        ExportScan(folder / "a.qsn", folder / "whole", format, {}, &never);
        EXPECT_EQ(never.done, 1200U);
        EXPECT_EQ(never.total, 1200U);
        EXPECT_EQ(never.bytes, std::filesystem::file_size(folder / "whole"));
        StopAt third(3);
        EXPECT_THROW(ExportScan(folder / "a.qsn", folder / "cut", format, {}, &third), CancelledException);
        EXPECT_EQ(Entries(folder), (std::vector<std::string>{"a.qsn", "whole"}));
    }
}

TEST(ExportScan, TheThreadCountChangesNoByte) {
    Sweep sweep;
    sweep.columns = 40;
    sweep.rows = 30;
    sweep.missing = 0.2;
    const TempFolder folder;
    ImportOptions importOptions;
    importOptions.patchWidth = importOptions.patchHeight = 8;
    ImportScan(*SourceOf(PtxText(MakeSweep(sweep), 40, 30, true)), 0, folder / "a.qsn", importOptions);
    for (const char* format : {"PTX", "PLY", "XYZ"}) {
        std::string first;
        for (const int threads : {1, 2, 7, 0}) {
            ExportOptions options;
            options.sink.threads = threads;
            ExportScan(folder / "a.qsn", folder / "out", format, options);
            const std::string bytes = ReadFile(folder / "out");
            if (first.empty()) first = bytes;
            EXPECT_EQ(bytes, first) << threads;
        }
    }
}

TEST(ExportScan, OptionsOutsideTheirRangeAreRefused) {
    OneScan scan;
    const TempFolder folder;
    scan.Write(folder / "a.qsn");
    for (const auto& [decimals, threads] : {std::pair{0, 1}, {-2, 1}, {13, 1}, {3, -1}, {3, 5000}}) {
        ExportOptions options;
        options.sink.decimals = decimals;
        options.sink.threads = threads;
        EXPECT_THROW(ExportScan(folder / "a.qsn", folder / "out", "XYZ", options),
                     kxbase::KXBadInputException);
    }
    EXPECT_EQ(Entries(folder), (std::vector<std::string>{"a.qsn"}));
}

TEST(ExportScan, FilesThatCannotBeOpenedSaySo) {
    OneScan scan;
    const TempFolder folder;
    scan.Write(folder / "a.qsn");
    EXPECT_THROW(ExportScan(folder / "a.qsn", folder / "missing" / "out", "XYZ"),
                 kxbase::KXFileNotOpenException);
    EXPECT_THROW(ExportScan(folder / "b.qsn", folder / "out", "XYZ"), kxbase::KXHeaderReadingException);
}

// A stream that takes so many bytes and then fails, as a full disk does.
class FullDisk final : public kxtest::StreamStub {
public:
    explicit FullDisk(uint64_t room) : m_room(room) {}
    uint64_t Write(const void*, uint64_t bytes) override {
        if (bytes > m_room) throw kxbase::KXWritingException("Cannot write file");
        m_room -= bytes;
        return bytes;
    }

private:
    uint64_t m_room;
};

TEST(ScanSinks, AFullDiskIsReportedByTheCallThatMeetsIt) {
    const std::vector<Cell> cells = MakeSweep({});
    ScanDescription description;
    description.columns = 12;
    description.rows = 9;
    for (const char* format : {"PTX", "PLY", "XYZ"}) {
        for (const uint64_t room : {uint64_t{0}, uint64_t{500}}) {
            FullDisk disk(room);
            const auto sink = FindSinkFormat(format)->make(disk, {});
            EXPECT_THROW(
                {
                    sink->BeginScan(description);
                    sink->WriteColumns(cells, 12);
                    sink->EndScan();
                    sink->Finish();
                },
                kxbase::KXWritingException);
        }
    }
}

TEST(SinkFormatOf, TheEndingTellsTheFormat) {
    EXPECT_EQ(SinkFormatOf("a.ptx"), FindSinkFormat("PTX"));
    EXPECT_EQ(SinkFormatOf("folder.xyz/A.PLY"), FindSinkFormat("ply"));
    EXPECT_EQ(SinkFormatOf("a.b.xYz"), FindSinkFormat("XYZ"));
    EXPECT_EQ(SinkFormatOf("a.nothing"), nullptr);
    EXPECT_EQ(SinkFormatOf("ptx"), nullptr);
    EXPECT_EQ(SinkFormatOf(".ptx"), nullptr);
    EXPECT_EQ(FindSinkFormat("PTX2"), nullptr);
    for (const SinkFormat& format : SinkFormats()) {
        ASSERT_FALSE(format.endings.empty());
        EXPECT_EQ(SinkFormatOf("a" + std::string(format.endings[0])), &format) << format.name;
    }
}

}  // namespace
}  // namespace kxexchange::testing
