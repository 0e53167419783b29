// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "BuiltE57.h"

namespace {

using namespace kxexchange;
using kxexchange::plain::Builder;
using kxexchange::plain::Keepsake;
using kxexchange::plain::Names;
using kxexchange::plain::Open;
using kxexchange::plain::Ordered;
using kxexchange::testing::ReadScan;
using kxexchange::testing::Scan;
using kxexchange::testing::SharedData;
using kxexchange::testing::TestData;

TEST(E57Source, FloatsInTheInvalidStateAreRead) {
    const auto source = OpenScanSource(TestData("e57/cartesian_invalid_state_single.e57"));
    EXPECT_EQ(source->FormatName(), "E57");
    EXPECT_EQ(source->ScanCount(), 1U);
    const Scan scan = ReadScan(*source);
    EXPECT_FALSE(scan.description.HasGrid());
    ASSERT_EQ(scan.cells.size(), 3U);
    // x -1 -4 -7, y -2 -5 -8, z -3 -6 -9; states 0, 1, 2
    EXPECT_TRUE(scan.cells[0].valid);
    EXPECT_EQ(scan.cells[0].x, -1);
    EXPECT_EQ(scan.cells[0].y, -2);
    EXPECT_EQ(scan.cells[0].z, -3);
    EXPECT_FALSE(scan.cells[1].valid);
    EXPECT_TRUE(scan.cells[1].direction);
    EXPECT_EQ(scan.cells[1].z, -6);
    EXPECT_FALSE(scan.cells[2].valid);
    EXPECT_FALSE(scan.cells[2].direction);
    EXPECT_EQ(scan.cells[2].x, 0);
    EXPECT_EQ(scan.description.coordinates.numbers, NumberKind::Single);
    EXPECT_EQ(Keepsake(scan.description, "e57-guid"), "pc_guid");
}

TEST(E57Source, ScaledIntensitiesAreRead) {
    const auto source = OpenScanSource(TestData("e57/scaled_integer_intensity.e57"));
    const Scan scan = ReadScan(*source);
    ASSERT_EQ(scan.cells.size(), 2U);
    EXPECT_EQ(scan.cells[0].intensity, -66.6);
    EXPECT_EQ(scan.cells[1].intensity, 66.6);
    EXPECT_EQ(scan.cells[0].x, 1.1);
    EXPECT_EQ(scan.description.intensity.numbers, NumberKind::Scaled);
    EXPECT_EQ(scan.description.intensity.precision, 0.1);
    EXPECT_EQ(Keepsake(scan.description, "e57-intensity"), "scaled:-666:666:0.1:0");
    EXPECT_TRUE(scan.description.uuid.has_value());
}

TEST(E57Source, ExtensionsAreSkippedAndNamed) {
    const auto source = OpenScanSource(TestData("e57/tiny_pc_with_extension.e57"));
    const Scan scan = ReadScan(*source);
    ASSERT_EQ(scan.cells.size(), 1U);
    EXPECT_EQ(scan.cells[0].x, 1);
    EXPECT_EQ(scan.cells[0].y, 2);
    EXPECT_EQ(scan.cells[0].z, 3);
    EXPECT_TRUE(Names(scan.description, "extension nor:normalX"));
    EXPECT_TRUE(Names(scan.description, "extension nor:normalZ"));
}

TEST(E57Source, ScansWithoutPointsAreScansWithoutGrid) {
    const auto source = OpenScanSource(TestData("e57/empty_pc.e57"));
    const Scan scan = ReadScan(*source);
    EXPECT_FALSE(scan.description.HasGrid());
    EXPECT_EQ(scan.description.points, 0U);
    EXPECT_TRUE(scan.cells.empty());
    std::vector<Cell> cells(3);
    EXPECT_EQ(source->ReadColumns(1, cells), 0U);
    EXPECT_TRUE(cells.empty());
}

TEST(E57Source, SphericalCoordinatesStayAsTheyAre) {
    const auto source = OpenScanSource(TestData("e57/tiny_spherical.e57"));
    const Scan scan = ReadScan(*source);
    EXPECT_EQ(scan.description.coordinateKind, CoordinateKind::Spherical);
    EXPECT_TRUE(scan.description.directions);
    ASSERT_EQ(scan.cells.size(), 360U);
    uint64_t valid = 0;
    for (const Cell& cell : scan.cells) {
        valid += cell.valid ? 1 : 0;
        EXPECT_EQ(cell.Range() > 0, cell.valid);
        // The file's go up to a whole turn.
        EXPECT_LE(std::abs(cell.Elevation()), std::numbers::pi / 2);
    }
    EXPECT_EQ(valid, 180U);
}

TEST(E57Source, SinglesAndColoursAreRead) {
    const auto source = OpenScanSource(TestData("e57/tinyCartesianFloatRgb.e57"));
    const Scan scan = ReadScan(*source);
    ASSERT_EQ(scan.cells.size(), 2090U);
    EXPECT_EQ(scan.description.name, "exp2.fls.subsampled");
    EXPECT_TRUE(scan.description.color.present);
    EXPECT_EQ(scan.description.colorBits, 8);
    EXPECT_FALSE(scan.description.acquisitionStart.IsSet());
    Cell least = scan.cells[0], most = scan.cells[0];
    unsigned colours = 0;
    for (const Cell& cell : scan.cells) {
        EXPECT_TRUE(cell.valid);
        EXPECT_LE(cell.red, 255);
        least.x = std::min(least.x, cell.x);
        most.z = std::max(most.z, cell.z);
        colours += cell.red != cell.green ? 1 : 0;
    }
    // The file's own bounds.
    EXPECT_EQ(least.x, -9.7795295715332031);
    EXPECT_EQ(most.z, 298.53216552734375);
    EXPECT_GT(colours, 100U);
}

TEST(E57Source, TheDamagedPageOfACorruptFileIsNamed) {
    try {
        OpenScanSource(TestData("e57/corrupt_crc.e57"));
        FAIL() << "was not refused";
    } catch (const SourceFormatException& e) {
        EXPECT_STREQ(e.what(), "E57 file cannot be read");
        EXPECT_EQ(e.Context().record, "page 33");
        EXPECT_EQ(e.Context().offset, 33U * 1024);
        EXPECT_NE(e.Context().file.find("corrupt_crc.e57"), std::string::npos);
    }
}

TEST(E57Source, FilesAreKnownByTheirFirstBytes) {
    const std::string bytes = kxexchange::testing::ReadFile(TestData("e57/tiny_spherical.e57"));
    const auto source =
        OpenScanSource(std::make_unique<kxbase::InMemoryStream>(bytes.data(), bytes.size()), "no name");
    EXPECT_EQ(source->FormatName(), "E57");
    EXPECT_THROW(source->OpenScan(1), kxbase::KXIndexOutOfBoundsException);
}

TEST(E57Source, InvalidStatesMakeDirectionsAndNothing) {
    Builder builder;
    const auto doubles = [](std::initializer_list<double> values) { return plain::DoubleBytes(values); };
    builder.Scan(
        "<sphericalElevation type=\"Float\"/><sphericalAzimuth type=\"Float\"/><sphericalRange "
        "type=\"Float\"/>"
        "<sphericalInvalidState type=\"Integer\" minimum=\"0\" maximum=\"255\"/>",
        {doubles({0.5, 0.25, 0.5, NAN, 0}),
         doubles({1, 2, 3, 0, 0}),
         doubles({10, 99, 5, 1, 0}),
         {0, 1, 2, 0, 0}});
    const auto source = Open(builder.File());
    const Scan scan = ReadScan(*source);
    ASSERT_EQ(scan.cells.size(), 5U);
    EXPECT_TRUE(scan.cells[0].valid);
    EXPECT_EQ(scan.cells[0].Range(), 10);
    EXPECT_EQ(scan.cells[0].Azimuth(), 1);
    EXPECT_EQ(scan.cells[0].Elevation(), 0.5);
    EXPECT_FALSE(scan.cells[1].valid);
    EXPECT_TRUE(scan.cells[1].direction);
    EXPECT_EQ(scan.cells[1].Range(), 0);
    EXPECT_EQ(scan.cells[1].Azimuth(), 2);
    EXPECT_FALSE(scan.cells[2].valid || scan.cells[2].direction);
    EXPECT_EQ(scan.cells[2].Elevation(), 0);
    EXPECT_FALSE(scan.cells[3].valid || scan.cells[3].direction);
    EXPECT_FALSE(scan.cells[4].valid);
    const auto warnings = source->Warnings();
    ASSERT_EQ(warnings.size(), 2U);
    EXPECT_TRUE(warnings[0].starts_with("1 records have coordinates that are no numbers")) << warnings[0];
    EXPECT_TRUE(warnings[1].starts_with("1 records lie at the instrument")) << warnings[1];
}

TEST(E57Source, ElevationsBeyondTheZenithAreTheSamePointOnTheOtherSide) {
    Builder builder;
    builder.Scan(
        "<sphericalRange type=\"Float\"/><sphericalAzimuth type=\"Float\"/><sphericalElevation "
        "type=\"Float\"/>",
        {plain::DoubleBytes({2, 2, 2, 2}), plain::DoubleBytes({0.5, 0.5, -1, 0.5}),
         plain::DoubleBytes({1.8, -2, 4, 6})});
    Scan scan = ReadScan(*Open(builder.File()));
    const double azimuths[] = {0.5, 0.5, -1, 0.5}, elevations[] = {1.8, -2, 4, 6};
    ToCartesian(scan.cells);
    ASSERT_EQ(scan.cells.size(), 4U);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_NEAR(scan.cells[i].x, 2 * std::cos(elevations[i]) * std::cos(azimuths[i]), 1e-12);
        EXPECT_NEAR(scan.cells[i].y, 2 * std::cos(elevations[i]) * std::sin(azimuths[i]), 1e-12);
        EXPECT_NEAR(scan.cells[i].z, 2 * std::sin(elevations[i]), 1e-12);
    }
}

TEST(E57Source, SphericalCoordinatesStepInWhereCartesianOnesAreInvalid) {
    Builder builder;
    const auto doubles = [](std::initializer_list<double> values) { return plain::DoubleBytes(values); };
    builder.Scan(
        "<cartesianX type=\"Float\"/><cartesianY type=\"Float\"/><cartesianZ type=\"Float\"/>"
        "<cartesianInvalidState type=\"Integer\" minimum=\"0\" maximum=\"255\"/>"
        "<sphericalRange type=\"Float\"/><sphericalAzimuth type=\"Float\"/><sphericalElevation "
        "type=\"Float\"/>"
        "<sphericalInvalidState type=\"Integer\" minimum=\"0\" maximum=\"255\"/>",
        {doubles({1, 0}),
         doubles({2, 0}),
         doubles({3, 0}),
         {0, 2},
         doubles({9, 4}),
         doubles({0, 0}),
         doubles({0, 0}),
         {0, 0}});
    const Scan scan = ReadScan(*Open(builder.File()));
    EXPECT_EQ(scan.description.coordinateKind, CoordinateKind::Cartesian);
    ASSERT_EQ(scan.cells.size(), 2U);
    EXPECT_EQ(scan.cells[0].x, 1);
    EXPECT_TRUE(scan.cells[1].valid);
    EXPECT_EQ(scan.cells[1].x, 4);
    EXPECT_EQ(scan.cells[1].z, 0);
}

std::string Coordinates() {
    return "<cartesianX type=\"Integer\" minimum=\"5\" maximum=\"5\"/><cartesianY type=\"Integer\" "
           "minimum=\"0\" "
           "maximum=\"0\"/><cartesianZ type=\"Integer\" minimum=\"0\" maximum=\"0\"/>";
}

TEST(E57Source, ColoursKeepTheirBitsAndInvalidOnesAreMarked) {
    Builder builder;
    builder.Scan(
        Coordinates() +
            "<colorRed type=\"Integer\" minimum=\"0\" maximum=\"65535\"/><colorGreen type=\"Integer\" "
            "minimum=\"0\" "
            "maximum=\"65535\"/><colorBlue type=\"Integer\" minimum=\"0\" maximum=\"65535\"/>"
            "<isColorInvalid type=\"Integer\" minimum=\"0\" maximum=\"255\"/>"
            "<intensity type=\"Float\"/><isIntensityInvalid type=\"Integer\" minimum=\"0\" maximum=\"255\"/>",
        {{},
         {},
         {},
         {1, 2, 3, 4},
         {5, 6, 7, 8},
         {0xff, 0xff, 0, 0},
         {0, 1},
         plain::DoubleBytes({7, 8}),
         {0, 1}});
    const Scan scan = ReadScan(*Open(builder.File()));
    EXPECT_EQ(scan.description.colorBits, 16);
    ASSERT_EQ(scan.cells.size(), 2U);
    EXPECT_EQ(scan.cells[0].red, 0x0201);
    EXPECT_EQ(scan.cells[0].green, 0x0605);
    EXPECT_EQ(scan.cells[0].blue, 0xffff);
    EXPECT_FALSE(scan.cells[0].colorInvalid);
    EXPECT_EQ(scan.cells[0].intensity, 7);
    EXPECT_TRUE(scan.cells[1].colorInvalid);
    EXPECT_EQ(scan.cells[1].red, 0);
    EXPECT_TRUE(scan.cells[1].intensityInvalid);
    EXPECT_EQ(scan.cells[1].intensity, 0);
}

TEST(E57Source, ColoursOfOtherRangesAreStretchedTo16BitsAndThatIsSaid) {
    const std::string limits =
        "<colorLimits type=\"Structure\"><colorRedMinimum type=\"Integer\"/><colorRedMaximum "
        "type=\"Integer\">"
        "1023</colorRedMaximum><colorGreenMinimum type=\"Integer\"/><colorGreenMaximum type=\"Integer\">1023"
        "</colorGreenMaximum><colorBlueMinimum type=\"Integer\"/><colorBlueMaximum type=\"Integer\">1023"
        "</colorBlueMaximum></colorLimits>";
    Builder builder;
    builder.Scan(Coordinates() +
                     "<colorRed type=\"Integer\" minimum=\"0\" maximum=\"65535\"/><colorGreen "
                     "type=\"Integer\" minimum=\"0\" "
                     "maximum=\"65535\"/><colorBlue type=\"Integer\" minimum=\"0\" maximum=\"65535\"/>",
                 {{}, {}, {}, {0xff, 3}, {0, 2}, {0, 0}});
    builder.Extra(limits);
    const auto source = Open(builder.File());
    const Scan scan = ReadScan(*source);
    EXPECT_EQ(scan.description.colorBits, 16);
    EXPECT_EQ(scan.cells.at(0).red, 65535);
    EXPECT_EQ(scan.cells.at(0).green, 32800);  // 512 / 1023 x 65535
    ASSERT_EQ(source->Warnings().size(), 1U);
    EXPECT_EQ(source->Warnings()[0], "Colours of up to 1023 are stretched to 16 bits");
}

TEST(E57Source, PoseDatesTextsAndSensorAreRead) {
    Builder builder;
    builder.Scan(Coordinates(), {{}, {}, {}}, 3);
    builder.Extra(
        "<guid type=\"String\">{12345678-9abc-def0-1234-56789abcdef0}</guid>"
        "<originalGuids type=\"Vector\"><vectorChild "
        "type=\"String\">{00000000-0000-0000-0000-000000000001}</vectorChild>"
        "</originalGuids><name type=\"String\">Nord</name><description type=\"String\">zwei "
        "Worte</description>"
        "<sensorVendor type=\"String\">V</sensorVendor><sensorModel type=\"String\">M</sensorModel>"
        "<sensorSerialNumber type=\"String\">S</sensorSerialNumber><temperature "
        "type=\"Float\">21.5</temperature>"
        "<acquisitionStart type=\"Structure\"><dateTimeValue type=\"Float\">988659182.5</dateTimeValue>"
        "<isAtomicClockReferenced type=\"Integer\">1</isAtomicClockReferenced></acquisitionStart>"
        "<acquisitionEnd type=\"Structure\"><dateTimeValue "
        "type=\"Float\">1167264018</dateTimeValue></acquisitionEnd>"
        "<pose type=\"Structure\"><rotation type=\"Structure\"><w type=\"Float\">5e-01</w><x "
        "type=\"Float\">5e-01</x>"
        "<y type=\"Float\">5e-01</y><z type=\"Float\">5e-01</z></rotation><translation type=\"Structure\">"
        "<x type=\"Float\">1</x><y type=\"Float\">-2.5</y><z type=\"Float\"/></translation></pose>"
        "<pointGroupingSchemes type=\"Structure\"/>");
    const auto source = Open(builder.File());
    const ScanDescription d = source->OpenScan(0);
    EXPECT_EQ(d.uuid, kxbase::UUID(L"12345678-9abc-def0-1234-56789abcdef0"));
    EXPECT_EQ(Keepsake(d, "e57-guid"),
              "%7B12345678-9abc-def0-1234-56789abcdef0%7D");  // not as the writer writes it
    EXPECT_EQ(d.original, kxbase::UUID(L"00000000-0000-0000-0000-000000000001"));
    EXPECT_EQ(d.name, "Nord");
    EXPECT_EQ(d.text, "zwei Worte");
    EXPECT_EQ(d.sensor.vendor, "V");
    EXPECT_EQ(d.sensor.model, "M");
    EXPECT_EQ(d.sensor.serial, "S");
    EXPECT_EQ(Keepsake(d, "e57-temperature"), "21.5");
    // 2011-05-05: 15 leap seconds; 2017-01-01T00:00:00 is the first second behind the last one.
    EXPECT_EQ(d.acquisitionStart.ToISOString(), "2011-05-05T19:32:47Z");
    EXPECT_EQ(d.acquisitionEnd.ToISOString(), "2017-01-01T00:00:00Z");
    EXPECT_EQ(Keepsake(d, "e57-start"), "988659182.5,1");
    EXPECT_EQ(Keepsake(d, "e57-end"), "none");
    // A third of a turn about the diagonal: x to y, y to z, z to x.
    const double expected[] = {0, 1, 0, 0, 0, 1, 1, 0, 0, 1, -2.5, 0};
    EXPECT_EQ(d.pose, kxbase::RegistrationInformation::FromValues(expected));
    EXPECT_EQ(Keepsake(d, "e57-rotation"), "0.5,0.5,0.5,0.5");
    EXPECT_TRUE(Names(d, "pointGroupingSchemes"));
}

TEST(E57Source, APoseWithoutLengthIsRefused) {
    Builder builder;
    builder.Scan(Coordinates(), {{}, {}, {}}, 3);
    builder.Extra(
        "<pose type=\"Structure\"><rotation type=\"Structure\"><w type=\"Float\">0</w></rotation></pose>");
    const auto source = Open(builder.File());
    EXPECT_THROW(source->OpenScan(0), SourceFormatException);
}

TEST(E57Source, ScansThatCannotBeReadAreRefusedOneByOne) {
    Builder builder;
    builder.Scan("<cartesianX type=\"Float\"/><cartesianY type=\"Float\"/>",
                 {plain::DoubleBytes({1}), plain::DoubleBytes({1})});
    builder.Scan(Coordinates(), {{}, {}, {}}, 2);
    builder.Scan(
        "<cartesianX type=\"ScaledInteger\" minimum=\"0\" maximum=\"255\" scale=\"0\"/><cartesianY "
        "type=\"Float\"/>"
        "<cartesianZ type=\"Float\"/>",
        {{1}, plain::DoubleBytes({1}), plain::DoubleBytes({1})});
    const auto source = Open(builder.File());
    EXPECT_EQ(source->ScanCount(), 3U);
    EXPECT_THROW(source->OpenScan(0), SourceFormatException);
    EXPECT_EQ(ReadScan(*source, 1).cells.size(), 2U);
    EXPECT_THROW(source->OpenScan(2), SourceFormatException);
    EXPECT_EQ(ReadScan(*source, 1).cells.size(), 2U);
}

TEST(E57Source, ImagesBelongToTheScanWhoseGuidTheyName) {
    Builder builder;
    builder.Scan(Coordinates(), {{}, {}, {}}, 1);
    builder.Extra("<guid type=\"String\">A</guid>");
    builder.Scan(Coordinates(), {{}, {}, {}}, 1);
    builder.Extra("<guid type=\"String\">B</guid>");
    const plain::Bytes jpeg{0xff, 0xd8, 1, 2, 3}, png(3000, 7);
    builder.Image("B", "visualReferenceRepresentation", "jpegImage", jpeg);
    builder.Image("B", "pinholeRepresentation", "pngImage", png);
    builder.Image("C", "cylindricalRepresentation", "jpegImage", jpeg);
    const auto source = Open(builder.File());
    EXPECT_TRUE(source->OpenScan(0).images.empty());
    const ScanDescription d = source->OpenScan(1);
    ASSERT_EQ(d.images.size(), 2U);
    EXPECT_EQ(d.images[0].role, ImageDescription::Role::VisualReference);
    EXPECT_EQ(d.images[0].encoding, ImageDescription::Encoding::Jpeg);
    EXPECT_EQ(d.images[0].width, 40U);
    EXPECT_EQ(d.images[0].height, 30U);
    EXPECT_EQ(d.images[0].byteCount, 5U);
    EXPECT_EQ(d.images[0].load(), jpeg);
    EXPECT_EQ(d.images[1].role, ImageDescription::Role::Pinhole);
    EXPECT_EQ(d.images[1].load(), png);
}

TEST(E57Source, ABlobThatLeavesTheFileIsRefusedWhenItIsLoaded) {
    Builder builder;
    builder.Scan(Coordinates(), {{}, {}, {}}, 1);
    builder.Extra("<guid type=\"String\">A</guid>");
    builder.Image("A", "visualReferenceRepresentation", "jpegImage", {1, 2, 3}, uint64_t{1} << 40);
    const auto source = Open(builder.File());
    const ScanDescription d = source->OpenScan(0);
    ASSERT_EQ(d.images.size(), 1U);
    EXPECT_THROW(d.images[0].load(), SourceFormatException);
}

// Any single damage: an error or well-formed cells, never anything else. Checksums are made right again, so
// that the damage reaches the decoders.
TEST(E57Source, DamageAnywhereIsAnErrorOrGivesWellFormedCells) {
    const plain::Bytes content = plain::PlainContent(Ordered({0, 4, 8, 1, 5, 9, 2, 6, 10, 3, 7, 11}).File());
    uint64_t refused = 0;
    for (size_t at = 0; at < content.size(); ++at) {
        for (const unsigned flip : {0x01U, 0x80U, 0xffU}) {
            plain::Bytes damaged = content;
            damaged[at] = static_cast<unsigned char>(damaged[at] ^ flip);
            try {
                const Scan scan = ReadScan(*Open(plain::PlainPages(damaged)));
                const uint64_t cells = scan.description.columns * scan.description.rows;
                ASSERT_TRUE(!scan.description.HasGrid() || scan.cells.size() == cells);
            } catch (const SourceFormatException& e) {
                ++refused;
                ASSERT_FALSE(e.Context().detail.empty());
            } catch (const kxbase::KXIndexOutOfBoundsException&) {
            } catch (const kxbase::KXBadInputException&) {  // no longer an E57 name or bytes
            }
        }
    }
    EXPECT_GT(refused, 500U);
}

// Every E57 of the folder beside the project reads to its end, or says what is wrong with it.
TEST(E57Source, EveryFileOfTheSharedFolderReadsOrIsRefused) {
    const auto one = SharedData("tiny_spherical.e57");
    if (one.empty()) GTEST_SKIP() << "the folder shared/data beside the project is not there";
    uint64_t read = 0, refused = 0;
    for (const auto& entry : std::filesystem::directory_iterator(one.parent_path())) {
        if (entry.path().extension() != ".e57") continue;
        const std::string name = entry.path().filename().string();
        try {
            const auto source = OpenScanSource(entry.path());
            for (uint64_t i = 0; i < source->ScanCount(); ++i)
                ReadScan(*source, i);
            EXPECT_EQ(name.find("crc"), std::string::npos) << name;
            ++read;
        } catch (const SourceFormatException& e) {
            EXPECT_NE(name.find("crc"), std::string::npos) << name << ": " << e.Describe();
            EXPECT_EQ(e.Context().field, "checksum");
            ++refused;
        }
    }
    EXPECT_GE(read, 9U);
    EXPECT_GE(refused, 1U);
}

}  // namespace
