// SPDX-License-Identifier: MIT
// What an export writes, byte by byte, and what it leaves behind when it fails.
#include "kxexchange/ExportScan.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "TestTools.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/ScanAccess.h"
#include "support/AllocationWatch.h"

namespace kxexchange::testing {
namespace {

// A scan of 2 columns and 3 rows as another program might have written it: no layout, unquantised.
class OneScan {
public:
    std::vector<float> range{1000, 0, 2000, 3000, 0, 4000};
    std::vector<float> vertical{0, 0, 1.5707964F, 1.5707964F, 3.1415927F, 3.1415927F};
    std::vector<float> horizontal{0, 0, 0, 1.5707964F, 0, 0};
    std::vector<uint16_t> luminance16;
    std::vector<uint8_t> luminance8;
    std::vector<kxio::Rgb8> color;
    std::vector<std::wstring> messages;
    kxbase::RegistrationInformation registration;
    bool withRange = true;
    kxbase::GridTopology grid;

    OneScan() {
        grid.columns = grid.patchWidth = 2;
        grid.rows = grid.patchHeight = 3;
        grid.columnStartAngle = 1.5707964F;
        grid.columnAngularStep = grid.rowAngularStep = 1.5707964F;
    }

    void Write(const std::filesystem::path& path) {
        kxcodecs::SnappyChunkCodec codec;
        kxio::QSNScanWriter writer;
        writer.CreateNew(path.wstring(), grid);
        std::vector<kxio::FlatPatchDescriptor> flats;
        const auto add = [&](kxbase::ComponentType component, auto& values) {
            if (values.empty()) return;
            kxio::FlatPatchDescriptor flat(component, sizeof values[0], kxio::RowMajor, 1.0, &codec);
            flat.data = reinterpret_cast<unsigned char*>(values.data());
            flat.size = values.size();
            flats.push_back(flat);
        };
        if (withRange) add(kxbase::Range, range);
        add(kxbase::VerticalAngle, vertical);
        add(kxbase::HorizontalAngle, horizontal);
        add(kxbase::Luminance16, luminance16);
        add(kxbase::Luminance8, luminance8);
        add(kxbase::Color, color);
        std::vector<kxio::PatchDescriptor*> pointers;
        for (auto& flat : flats)
            pointers.push_back(&flat);
        writer.AddPatch(pointers, 0, 0);
        for (const std::wstring& message : messages)
            writer.AddMessage(message);
        writer.SetRegistration(registration);
        writer.EndCreation();
    }
};

const std::string kIdentityHeader = "2\n3\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n";

std::string Exported(OneScan& scan, std::string_view format, const ExportOptions& options = {},
                     ExportReport* report = nullptr) {
    const TempFolder folder;
    scan.Write(folder / "a.qsn");
    const ExportReport made = ExportScan(folder / "a.qsn", folder / "out", format, options);
    if (report) *report = made;
    std::string bytes = ReadFile(folder / "out");
    EXPECT_EQ(made.bytesWritten, bytes.size());
    return bytes;
}

TEST(ExportPtx, AScanThatSaysNothingOfItsOriginHasItsColumnsAsTheyAreAndRowsFromBelow) {
    OneScan scan;
    ExportReport report;
    const std::string text = Exported(scan, "PTX", {}, &report);
    // Column 0: nadir nothing, horizon 2 m along x, zenith 1 m. Column 1: nadir 4 m, horizon 3 m along y,
    // zenith nothing. No intensity: a half.
    EXPECT_EQ(text, kIdentityHeader +
                        "0 0 0 0.5\n"
                        "2.000000 0.000000 0.000000 0.500000000\n"
                        "0.000000 0.000000 1.000000 0.500000000\n"
                        "0.000000 0.000000 -4.000000 0.500000000\n"
                        "0.000000 3.000000 0.000000 0.500000000\n"
                        "0 0 0 0.5\n");
    EXPECT_EQ(report.columns, 2U);
    EXPECT_EQ(report.rows, 3U);
    EXPECT_EQ(report.cells, 6U);
    EXPECT_EQ(report.points, 4U);
    EXPECT_FALSE(report.intensity);
    EXPECT_FALSE(report.color);
    EXPECT_FALSE(report.registrationApplied);
    EXPECT_TRUE(report.warnings.empty());
}

TEST(ExportPtx, IntensityAndColourFollowTheCoordinates) {
    OneScan scan;
    scan.luminance16 = {65535, 1, 0, 13107, 2, 32768};
    scan.luminance8 = {9, 9, 9, 9, 9, 9};  // the finer one counts
    scan.color = {{1, 2, 3}, {9, 9, 9}, {255, 0, 10}, {4, 5, 6}, {9, 9, 9}, {7, 8, 9}};
    const std::string text = Exported(scan, "PTX");
    EXPECT_EQ(text.substr(kIdentityHeader.size()),
              "0 0 0 0 0 0 0\n"
              "2.000000 0.000000 0.000000 0.000000000 255 0 10\n"
              "0.000000 0.000000 1.000000 1.000000000 1 2 3\n"
              "0.000000 0.000000 -4.000000 0.500007630 7 8 9\n"
              "0.000000 3.000000 0.000000 0.200000000 4 5 6\n"
              "0 0 0 0 0 0 0\n");
    ExportOptions options;
    options.color = options.intensity = false;
    options.sink.decimals = 1;
    EXPECT_EQ(Exported(scan, "PTX", options).substr(kIdentityHeader.size(), 45),
              "0 0 0 0.5\n2.0 0.0 0.0 0.500000000\n0.0 0.0 1.0");
}

TEST(ExportPtx, EightBitIntensityStandsInForSixteen) {
    OneScan scan;
    scan.luminance8 = {255, 0, 51, 0, 0, 128};
    const std::string text = Exported(scan, "PTX");
    EXPECT_NE(text.find("2.000000 0.000000 0.000000 0.200000000\n"), std::string::npos);
    EXPECT_NE(text.find("0.000000 0.000000 1.000000 1.000000000\n"), std::string::npos);
    EXPECT_NE(text.find("0.000000 0.000000 -4.000000 0.501960784\n"), std::string::npos);
}

kxbase::RegistrationInformation QuarterTurn() {
    // x goes to y, y to -x, then 100, 200, 300.
    const double values[12] = {0, 1, 0, -1, 0, 0, 0, 0, 1, 100, 200.25, 1.0 / 3};
    return kxbase::RegistrationInformation::FromValues(values);
}

TEST(ExportPtx, TheMatrixCarriesTheRegistrationOrThePointsDo) {
    OneScan scan;
    scan.registration = QuarterTurn();
    const std::string kept = Exported(scan, "PTX");
    EXPECT_EQ(kept.substr(0, kept.find("0 0 0 0.5")),
              "2\n3\n100 200.25 0.3333333333333333\n0 1 0\n-1 0 0\n0 0 1\n"
              "0 1 0 0\n-1 0 0 0\n0 0 1 0\n100 200.25 0.3333333333333333 1\n");
    ExportOptions options;
    options.registration = RegistrationUse::Apply;
    ExportReport report;
    const std::string applied = Exported(scan, "PTX", options, &report);
    EXPECT_TRUE(report.registrationApplied);
    EXPECT_EQ(applied, kIdentityHeader +
                           "0 0 0 0.5\n"
                           "100.000000 202.250000 0.333333 0.500000000\n"
                           "100.000000 200.250000 1.333333 0.500000000\n"
                           "100.000000 200.250000 -3.666667 0.500000000\n"
                           "97.000000 200.250000 0.333333 0.500000000\n"
                           "0 0 0 0.5\n");
}

TEST(ExportPtx, AReturnThatRoundsToTheOriginStaysAReturn) {
    OneScan scan;
    scan.range = {0.2F, 0, 0.3F, 3000, 0, 4000};  // fractions of a millimetre, at two decimals of a metre
    ExportOptions options;
    options.sink.decimals = 2;
    const std::string text = Exported(scan, "PTX", options);
    EXPECT_EQ(text.substr(kIdentityHeader.size(), 69),
              "0 0 0 0.5\n0.01 0.00 0.00 0.500000000\n0.01 0.00 0.00 0.500000000\n0.00 ");
}

TEST(ExportXyz, OnlyPointsAreWrittenWithWhatTheScanHas) {
    OneScan scan;
    scan.registration = QuarterTurn();
    ExportReport report;
    EXPECT_EQ(Exported(scan, "XYZ", {}, &report),
              "100.000000 202.250000 0.333333\n100.000000 200.250000 1.333333\n"
              "100.000000 200.250000 -3.666667\n97.000000 200.250000 0.333333\n");
    EXPECT_TRUE(report.registrationApplied);
    EXPECT_EQ(report.points, 4U);
    scan.luminance16 = {65535, 1, 0, 13107, 2, 32768};
    scan.color = {{1, 2, 3}, {9, 9, 9}, {255, 0, 10}, {4, 5, 6}, {9, 9, 9}, {7, 8, 9}};
    ExportOptions options;
    options.registration = RegistrationUse::Keep;
    options.sink.decimals = 3;
    EXPECT_EQ(Exported(scan, "XYZ", options),
              "2.000 0.000 0.000 0.000000000 255 0 10\n0.000 0.000 1.000 1.000000000 1 2 3\n"
              "0.000 0.000 -4.000 0.500007630 7 8 9\n0.000 3.000 0.000 0.200000000 4 5 6\n");
}

template <class Bits>
Bits TakeBits(const std::string& bytes, size_t& at) {
    Bits bits = 0;
    for (size_t i = 0; i < sizeof bits; ++i) {
        bits = static_cast<Bits>(bits | static_cast<Bits>(static_cast<unsigned char>(bytes.at(at++)))
                                            << (8 * i));
    }
    return bits;
}
double TakeFloat(const std::string& bytes, size_t& at) {
    return static_cast<double>(std::bit_cast<float>(TakeBits<uint32_t>(bytes, at)));
}
double TakeDouble(const std::string& bytes, size_t& at) {
    return std::bit_cast<double>(TakeBits<uint64_t>(bytes, at));
}

TEST(ExportPly, VerticesAreLittleEndianRecords) {
    OneScan scan;
    scan.luminance16 = {65535, 1, 0, 13107, 2, 32768};
    scan.color = {{1, 2, 3}, {9, 9, 9}, {255, 0, 10}, {4, 5, 6}, {9, 9, 9}, {7, 8, 9}};
    const std::string bytes = Exported(scan, "PLY");
    const std::string header =
        "ply\nformat binary_little_endian 1.0\ncomment written by kxio...................\nelement vertex 4\n"
        "property float x\nproperty float y\nproperty float z\nproperty float intensity\n"
        "property uchar red\nproperty uchar green\nproperty uchar blue\nend_header\n";
    ASSERT_EQ(bytes.substr(0, header.size()), header);
    ASSERT_EQ(bytes.size(), header.size() + 4 * 19);
    size_t at = header.size();
    const double expected[4][4] = {{2, 0, 0, 0}, {0, 0, 1, 1}, {0, 0, -4, 32768 / 65535.0}, {0, 3, 0, 0.2}};
    const int colors[4][3] = {{255, 0, 10}, {1, 2, 3}, {7, 8, 9}, {4, 5, 6}};
    for (size_t i = 0; i < 4; ++i) {
        for (const double value : expected[i])
            EXPECT_NEAR(TakeFloat(bytes, at), value, 5e-7);
        for (const int value : colors[i])
            EXPECT_EQ(TakeBits<uint8_t>(bytes, at), value);
    }
}

TEST(ExportPly, CoordinatesFarOutAreDoubles) {
    OneScan scan;
    const double values[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 637012.2412, 849028.31, 431.66};
    scan.registration = kxbase::RegistrationInformation::FromValues(values);
    const std::string header =
        "ply\nformat binary_little_endian 1.0\ncomment written by kxio...................\nelement vertex 4\n"
        "property double x\nproperty double y\nproperty double z\nend_header\n";
    const std::string bytes = Exported(scan, "PLY");
    ASSERT_EQ(bytes.substr(0, header.size()), header);
    ASSERT_EQ(bytes.size(), header.size() + 4 * 24);
    size_t at = header.size();
    EXPECT_NEAR(TakeDouble(bytes, at), 637014.2412, 1e-6);
    EXPECT_NEAR(TakeDouble(bytes, at), 849028.31, 1e-6);
    EXPECT_NEAR(TakeDouble(bytes, at), 431.66, 1e-6);
    // In the instrument's frame, or by wish, they are floats; far ranges count as well.
    ExportOptions options;
    options.registration = RegistrationUse::Keep;
    EXPECT_NE(Exported(scan, "PLY", options).find("property float x"), std::string::npos);
    options.sink.coordinates = NumberKind::Double;
    EXPECT_NE(Exported(scan, "PLY", options).find("property double x"), std::string::npos);
    options = {};
    options.sink.coordinates = NumberKind::Single;
    EXPECT_NE(Exported(scan, "PLY", options).find("property float x"), std::string::npos);
    scan.registration = {};
    scan.range[0] = 2e6F;
    EXPECT_NE(Exported(scan, "PLY").find("property double x"), std::string::npos);
}

TEST(ExportPly, AScanWithoutPointsHasNoVertices) {
    OneScan scan;
    scan.range.assign(6, 0.0F);
    const std::string bytes = Exported(scan, "PLY");
    EXPECT_NE(bytes.find("element vertex 0\n"), std::string::npos);
    EXPECT_EQ(bytes.substr(bytes.size() - 11), "end_header\n");
}

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
class FullDisk final : public kxbase::IOutFileStream {
public:
    explicit FullDisk(uint64_t room) : m_room(room) {}
    bool IsOpen() const override { return true; }
    bool Seek(uint64_t) override { return true; }
    bool SeekForward(uint64_t) override { return false; }
    bool SeekBackward(uint64_t) override { return false; }
    bool SeekEnd(uint64_t) override { return false; }
    uint64_t Tell() const override { return 0; }
    uint64_t Write(const void*, uint64_t bytes) override {
        if (bytes > m_room) throw kxbase::KXWritingException("Cannot write file");
        m_room -= bytes;
        return bytes;
    }
    void Close() override {}

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
