// SPDX-License-Identifier: MIT
// What imports and conversions from .qsn to .qsn say when they cannot go on, and what of it they leave
// behind.
#include <gtest/gtest.h>

#include <limits>

#include "ImportPlan.h"
#include "MemoryScan.h"
#include "SmallExport.h"
#include "kxcodecs/JPEG.h"
#include "kxexchange/RecodeScan.h"
#include "support/Thrown.h"

namespace kxexchange::testing {
namespace {

using kxbase::KXBadInputException;

MemoryScan SmallScan() {
    ScanDescription description;
    description.columns = 12;
    description.rows = 9;
    description.points = 108;
    return MemoryScan(description, MakeSweep({}));
}

TEST(ImportRefusals, OptionsNameTheFieldAndWhatIsAllowed) {
    struct Row {
        void (*change)(ImportOptions&);
        const char* field;
        const char* detail;
    };
    const Row table[] = {
        {[](ImportOptions& o) { o.patchWidth = 0; }, "patch size", "found 0 x 256, expected sides of 1 to "},
        {[](ImportOptions& o) { o.rangeScale = 0; }, "range scale", "found 0.000000, expected "},
        {[](ImportOptions& o) { o.verticalScale = 0.2; }, "vertical scale", "found 0.200000, expected "},
        {[](ImportOptions& o) { o.horizontalScale = std::numeric_limits<double>::quiet_NaN(); },
         "horizontal scale", "found nan, expected "},
        {[](ImportOptions& o) { o.rangeCodec = Codec::Jpeg; }, "codec", "JPEG is for colour only"},
        {[](ImportOptions& o) { o.angleCodec = Codec::Jpeg; }, "codec", "JPEG is for colour only"},
        {[](ImportOptions& o) { o.intensityCodec = Codec::Jpeg; }, "codec", "JPEG is for colour only"},
        {[](ImportOptions& o) { o.compressionLevel = 10; }, "compression level",
         "found 10, expected -1 (default) or 0 to 9"},
        {[](ImportOptions& o) { o.anglePrecision = -1; }, "angle precision", "found -1, expected 0 to "},
        {[](ImportOptions& o) { o.previewSide = 0; }, "preview side", "found 0, expected at least 1"},
        {[](ImportOptions& o) { o.threads = -1; }, "threads", "found -1, expected 0 (all cores) to 1024"},
    };
    const TempFolder folder;
    for (const Row& row : table) {
        ImportOptions options;
        row.change(options);
        MemoryScan source = SmallScan();
        const auto context = kxtest::ContextOf<KXBadInputException>(
            "Import option is not acceptable", [&] { ImportScan(source, 0, folder / "a.qsn", options); });
        EXPECT_EQ(context.field, row.field);
        EXPECT_TRUE(context.detail.starts_with(row.detail)) << context.detail;
        // The same options recode.
        EXPECT_EQ(kxtest::ThrownBy<KXBadInputException>(
                      [&] { RecodeScan(folder / "a.qsn", folder / "b.qsn", options); }),
                  "Import option is not acceptable");
    }
    EXPECT_TRUE(Entries(folder).empty());
}

TEST(ImportRefusals, AGridWithMoreThan32BitsToASideIsTooLarge) {
    FittedGrid fitted;
    fitted.columnStep = fitted.rowStep = 1e-9;
    fitted.layout.columns = uint64_t{1} << 32;
    fitted.layout.rows = fitted.layout.gridRows = 3;
    const auto context =
        kxtest::ContextOf<KXBadInputException>("Scan is too large", [&] { MakeTopology(fitted, {}); });
    EXPECT_EQ(context.detail, "found 4294967296 x 3 cells, expected sides of at most 4294967295");
    fitted.layout.columns -= 1;
    EXPECT_EQ(MakeTopology(fitted, {}).columns, 4294967295U);
}

TEST(ImportRefusals, ASourceThatEndsEarlyIsNamedWithItsColumns) {
    const TempFolder folder;
    MemoryScan source = SmallScan();
    source.adjust = [](int, ScanDescription& description) { description.columns = 13; };
    const auto context = kxtest::ContextOf<SourceFormatException>(
        "Scan ends early", [&] { ImportScan(source, 0, folder / "a.qsn"); });
    EXPECT_EQ(context.file, "memory.test");
    EXPECT_EQ(context.detail, "found 12 columns, expected 13");
    EXPECT_TRUE(Entries(folder).empty());
}

TEST(ImportRefusals, ASourceThatChangesWhileItIsReadIsNamed) {
    const TempFolder folder;
    MemoryScan source = SmallScan();
    source.adjust = [](int opening, ScanDescription& description) {
        description.columns -= opening == 2 ? 1 : 0;
    };
    const auto context = kxtest::ContextOf<SourceFormatException>(
        "Scan cannot be read", [&] { ImportScan(source, 0, folder / "a.qsn"); });
    EXPECT_EQ(context.file, "memory.test");
    EXPECT_EQ(context.detail, "the file changed while it was read");
    EXPECT_TRUE(Entries(folder).empty());
}

TEST(ImportRefusals, StrictNamesEveryLossAndWritesNothing) {
    const TempFolder folder;
    MemoryScan source = SmallScan();
    source.adjust = [](int, ScanDescription& description) {
        description.intensity.present = true;
        description.unheld.push_back({"timeStamp", "one per point"});
    };
    ImportOptions options;
    options.strict = true;
    options.intensity = false;
    const auto context = kxtest::ContextOf<LossException>(
        "Something would be lost", [&] { ImportScan(source, 0, folder / "a.qsn", options); });
    EXPECT_EQ(context.file, "memory.test");
    EXPECT_NE(context.detail.find("timeStamp (one per point)"), std::string::npos) << context.detail;
    EXPECT_NE(context.detail.find("intensity (left out as asked for)"), std::string::npos) << context.detail;
    EXPECT_TRUE(Entries(folder).empty());
}

// A scan with colours and a thumbnail of its own.
void WriteColored(const std::filesystem::path& path) {
    OneScan scan;
    scan.color.assign(6, {10, 20, 30});
    scan.Write(path);
}

TEST(RecodeRefusals, CancellingNamesTheScanAndLeavesNothing) {
    const TempFolder folder;
    WriteColored(folder / "a.qsn");
    CancelAt second(2);
    const auto context = kxtest::ContextOf<CancelledException>("Conversion was cancelled", [&] {
        RecodeScan(folder / "a.qsn", folder / "b.qsn", OptionsOf(folder / "a.qsn"), &second);
    });
    EXPECT_EQ(context.file, (folder / "a.qsn").string());
    EXPECT_EQ(Entries(folder), std::vector<std::string>{"a.qsn"});
}

TEST(RecodeRefusals, AScanWithoutAGridCannotBeConverted) {
    const TempFolder folder;
    {
        kxio::QSNScanWriter writer;
        writer.CreateNew((folder / "a.qsn").wstring(), kxbase::GridTopology());
        writer.EndCreation();
    }
    const auto context = kxtest::ContextOf<KXBadInputException>(
        "Scan cannot be converted", [&] { RecodeScan(folder / "a.qsn", folder / "b.qsn", {}); });
    EXPECT_EQ(context.file, (folder / "a.qsn").string());
    EXPECT_EQ(context.detail, "the scan has no grid");
    EXPECT_EQ(Entries(folder), std::vector<std::string>{"a.qsn"});
}

TEST(RecodeRefusals, ColoursAsJpegAreReportedAsConverted) {
    const TempFolder folder;
    WriteColored(folder / "a.qsn");
    ImportOptions options = OptionsOf(folder / "a.qsn");
    options.colorCodec = Codec::Jpeg;
    const ImportReport report = RecodeScan(folder / "a.qsn", folder / "b.qsn", options);
    const LossEntry* const color = report.losses.Find(kxbase::ComponentToString(kxbase::Color));
    ASSERT_NE(color, nullptr);
    EXPECT_EQ(color->fate, Fate::Converted);
    EXPECT_EQ(color->detail, "JPEG: colours change a little");
}

TEST(RecodeRefusals, ADamagedThumbnailIsReplacedAndNamedInTheWarning) {
    const TempFolder folder;
    OneScan scan;
    scan.Write(folder / "a.qsn");
    std::vector<unsigned char> jpeg;
    ASSERT_TRUE(kxio::QSNScanReader((folder / "a.qsn").wstring()).GetThumbnailJPEG(jpeg));
    std::string bytes = ReadFile(folder / "a.qsn");
    const size_t at = bytes.find(std::string(jpeg.begin(), jpeg.end()));
    ASSERT_NE(at, std::string::npos);
    bytes.replace(at, jpeg.size(), jpeg.size(), '#');
    WriteFile(folder / "a.qsn", bytes);

    const ImportReport report = RecodeScan(folder / "a.qsn", folder / "b.qsn", OptionsOf(folder / "a.qsn"));
    EXPECT_EQ(report.warnings,
              std::vector<std::string>{"The stored thumbnail is damaged; a new one was made"});
    std::vector<unsigned char> made;
    ASSERT_TRUE(kxio::QSNScanReader((folder / "b.qsn").wstring()).GetThumbnailJPEG(made));
    unsigned width = 0, height = 0;
    std::vector<unsigned char> pixels;
    EXPECT_TRUE(kxio::QSNScanReader::GetThumbnailRGB((folder / "b.qsn").wstring(), pixels, width, height));
}

}  // namespace
}  // namespace kxexchange::testing
