// SPDX-License-Identifier: MIT
// What exports and the writers of other formats say about what they cannot write.
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "MemoryScan.h"
#include "SinkScan.h"
#include "SmallExport.h"
#include "TemporaryFile.h"
#include "support/StreamStub.h"
#include "support/Thrown.h"

namespace kxexchange::testing {
namespace {

using kxbase::KXBadInputException;
using kxbase::KXWritingException;

std::unique_ptr<ScanSink> Sink(const char* format, kxbase::IOutFileStream& stream,
                               const SinkOptions& options = {}) {
    return FindSinkFormat(format)->make(stream, options);
}

TEST(ExportRefusals, OptionsNameTheFieldAndWhatIsAllowed) {
    const TempFolder folder;
    OneScan().Write(folder / "a.qsn");
    const auto refused = [&](const ExportOptions& options) {
        return kxtest::ContextOf<KXBadInputException>("Export option is not acceptable", [&] {
            ExportScan(folder / "a.qsn", folder / "out", "PTX", options);
        });
    };
    for (const int decimals : {-2, 0, 13}) {
        ExportOptions options;
        options.sink.decimals = decimals;
        const auto context = refused(options);
        EXPECT_EQ(context.field, "decimals");
        EXPECT_EQ(context.detail, "found " + std::to_string(decimals) + ", expected -1 (default) or 1 to 12");
    }
    for (const int threads : {-1, 1025}) {
        ExportOptions options;
        options.sink.threads = threads;
        const auto context = refused(options);
        EXPECT_EQ(context.field, "threads");
        EXPECT_EQ(context.detail, "found " + std::to_string(threads) + ", expected 0 (all cores) to 1024");
    }
    EXPECT_EQ(Entries(folder), std::vector<std::string>{"a.qsn"});
}

TEST(ExportRefusals, CancellingNamesTheOutputAndLeavesNothing) {
    const TempFolder folder;
    OneScan().Write(folder / "a.qsn");
    CancelAt first(1);
    const auto context = kxtest::ContextOf<CancelledException>(
        "Export was cancelled", [&] { ExportScan(folder / "a.qsn", folder / "out", "PTX", {}, &first); });
    EXPECT_EQ(context.file, (folder / "out").string());
    EXPECT_EQ(Entries(folder), std::vector<std::string>{"a.qsn"});
}

TEST(ExportRefusals, ASourceThatEndsEarlyIsNamedWithItsColumns) {
    const TempFolder folder;
    MemoryScan source(Described(), SinkCells());
    source.adjust = [](int, ScanDescription& description) { description.columns += 2; };
    for (const int threads : {1, 2}) {
        ExportOptions options;
        options.sink.threads = threads;
        const auto context = kxtest::ContextOf<SourceFormatException>("Scan ends early", [&] {
            ScanFileExport(folder / "out", *FindSinkFormat("E57"), options).Add(source, 0);
        });
        EXPECT_EQ(context.file, "memory.test");
        EXPECT_EQ(context.detail, "found 12 columns, expected 14");
        EXPECT_TRUE(Entries(folder).empty());
    }
}

TEST(ExportRefusals, StrictNamesEveryLossAndWritesNothing) {
    const TempFolder folder;
    OneScan scan;
    scan.color.assign(6, {1, 2, 3});
    scan.Write(folder / "a.qsn");
    ExportOptions options;
    options.strict = true;
    options.color = false;
    const auto context = kxtest::ContextOf<LossException>(
        "Something would be lost", [&] { ExportScan(folder / "a.qsn", folder / "out", "XYZ", options); });
    EXPECT_EQ(context.file, (folder / "a.qsn").string());
    EXPECT_NE(context.detail.find("grid (the format has no columns and rows)"), std::string::npos)
        << context.detail;
    EXPECT_NE(context.detail.find("colour (left out as asked for)"), std::string::npos) << context.detail;
    EXPECT_EQ(Entries(folder), std::vector<std::string>{"a.qsn"});
}

TEST(SinkRefusals, FormatsOfOneScanRefuseASecond) {
    const std::pair<const char*, const char*> formats[] = {
        {"NPY", "NPY holds one scan"},
        {"NPZ", "NPZ holds one scan"},
        {"PCD", "PCD holds one scan"},
        {"EXR", "OpenEXR holds one scan"},
        {"PNG", "PNG holds one plane of one scan"},
    };
    for (const auto& [format, detail] : formats) {
        const auto context = kxtest::ContextOf<KXWritingException>(
            "Cannot write a second scan into the file", [&, name = format] {
                Written(name, {Described(), Described()}, SinkCells());
            });
        EXPECT_EQ(context.detail, detail);
    }
}

TEST(SinkRefusals, APlaneThatTheScanDoesNotHaveIsNamedBesideThoseItHas) {
    for (const char* format : {"NPY", "PNG"}) {
        for (const char* plane : {"warmth", "red"}) {  // unknown; known, but the scan has no colours
            SinkOptions options;
            options.plane = plane;
            kxbase::InMemoryStream stream;
            const auto context = kxtest::ContextOf<KXBadInputException>("Scan has no such plane", [&] {
                Sink(format, stream, options)->BeginScan(Described(false));
            });
            EXPECT_EQ(context.field, "plane");
            EXPECT_EQ(context.detail, "found " + std::string(plane) +
                                          ", expected one of range azimuth elevation x y z intensity "
                                          "classification valid");
            EXPECT_TRUE(stream.GetBytes().empty());
        }
    }
}

TEST(SinkRefusals, PicturesHaveAGreatestSide) {
    for (const char* format : {"EXR", "PNG"}) {
        for (const bool wide : {true, false}) {
            ScanDescription description = Described();
            (wide ? description.columns : description.rows) = uint64_t{1} << 31;
            kxbase::InMemoryStream stream;
            EXPECT_EQ(
                kxtest::ThrownBy<KXBadInputException>([&] { Sink(format, stream)->BeginScan(description); }),
                "Scan is too large for a picture")
                << format;
            EXPECT_TRUE(stream.GetBytes().empty());
        }
    }
}

// A caller's own stream that fails in its own way.
class OwnStream final : public kxtest::StreamStub {
public:
    uint64_t Write(const void*, uint64_t) override { throw std::runtime_error("the tape is torn"); }
};

TEST(SinkRefusals, AFailureThatIsNoneOfOursBecomesOneOfWriting) {
    OwnStream stream;
    const auto sink = Sink("EXR", stream);
    sink->BeginScan(Described());
    sink->WriteColumns(SinkCells(), kSinkColumns);
    const auto context =
        kxtest::ContextOf<KXWritingException>("Cannot write picture", [&] { sink->EndScan(); });
    EXPECT_NE(context.detail.find("the tape is torn"), std::string::npos) << context.detail;
}

TEST(SinkRefusals, LasPointsMustFitItsSteps) {
    kxbase::InMemoryStream stream;
    const auto sink = Sink("LAS", stream);
    ScanDescription description;
    description.columns = description.rows = 1;
    sink->BeginScan(description);
    Cell cell;
    cell.valid = true;
    sink->WriteColumns(std::span(&cell, 1), 1);
    cell.y = -3e9;
    const auto context = kxtest::ContextOf<KXWritingException>(
        "Cannot write point", [&] { sink->WriteColumns(std::span(&cell, 1), 1); });
    EXPECT_TRUE(context.detail.starts_with("a coordinate of -3")) << context.detail;
    EXPECT_NE(context.detail.find("does not fit a scale of"), std::string::npos) << context.detail;
    cell.y = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(kxtest::ThrownBy<KXWritingException>([&] { sink->WriteColumns(std::span(&cell, 1), 1); }),
              "Cannot write point");
}

TEST(SinkRefusals, LasNumbersItsScansWith16Bits) {
    kxbase::InMemoryStream stream;
    const auto sink = Sink("LAS", stream);
    ScanDescription description;
    description.columns = description.rows = 1;
    for (int scan = 0; scan < 65535; ++scan) {
        sink->BeginScan(description);
        sink->EndScan();
    }
    EXPECT_EQ(kxtest::ThrownBy<KXWritingException>([&] { sink->BeginScan(description); }),
              "Cannot write more than 65535 scans into the file");
}

TEST(SinkRefusals, CoordinatesThatChangeTheirKindAreReported) {
    SinkOptions options;
    options.coordinateKind = CoordinateKind::Spherical;
    LossReport losses;
    Written("E57", {Described()}, SinkCells(), options, &losses);
    const LossEntry* const coordinates = losses.Find("coordinates");
    ASSERT_NE(coordinates, nullptr);
    EXPECT_EQ(coordinates->fate, Fate::Converted);
    EXPECT_EQ(coordinates->detail, "Cartesian to spherical");
}

TEST(TemporaryFiles, OneThatLostItsDataIsNamedWithThePlace) {
    const TempFolder folder;
    TemporaryFile file(folder.Path());
    const std::string bytes(100, 'x');
    file.Write(0, bytes.data(), bytes.size());
    std::string back(60, ' ');
    file.Read(40, back.data(), 60);
    EXPECT_EQ(back, bytes.substr(40));
    ASSERT_EQ(Entries(folder).size(), 1U);
    const std::filesystem::path path = folder / Entries(folder)[0];
    std::filesystem::resize_file(path, 99);
    const auto context = kxtest::ContextOf<KXWritingException>("Temporary file lost its data",
                                                               [&] { file.Read(40, back.data(), 60); });
    EXPECT_EQ(context.file, path.string());
    EXPECT_EQ(context.offset, 40U);
}

}  // namespace
}  // namespace kxexchange::testing
