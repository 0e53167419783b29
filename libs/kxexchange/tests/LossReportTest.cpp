// SPDX-License-Identifier: MIT
// What a description and a format's capabilities tell about losses before a cell is read; cells between the
// two kinds of coordinates.
#include "kxexchange/LossReport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "TestTools.h"
#include "kxbase/InMemoryStream.h"
#include "kxexchange/FormatCapabilities.h"

namespace kxexchange::testing {
namespace {

ScanDescription FullDescription() {
    ScanDescription description;
    description.name = "north";
    description.text = "words";
    description.uuid = kxbase::UUID::Generate();
    description.acquisitionStart = kxbase::Date::FromUnixSeconds(1000000000);
    description.sensor.model = "X1";
    description.columns = 4;
    description.rows = 3;
    description.directions = true;
    const double values[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 5, 6, 7};
    description.pose = kxbase::RegistrationInformation::FromValues(values);
    description.coordinates.present = description.intensity.present = description.color.present = true;
    description.coordinates.numbers = NumberKind::Double;
    description.intensity.minimum = 0;
    description.intensity.maximum = 4095;
    description.intensity.numbers = NumberKind::Integer;
    description.colorBits = 16;
    description.classification.present = true;
    description.images.emplace_back();
    description.unheld.push_back({"timeStamp", "seconds per point"});
    return description;
}

FormatCapabilities Everything() {
    FormatCapabilities can;
    for (Fate FormatCapabilities::*member :
         {&FormatCapabilities::grid, &FormatCapabilities::noReturns, &FormatCapabilities::directions,
          &FormatCapabilities::pose, &FormatCapabilities::spherical, &FormatCapabilities::intensity,
          &FormatCapabilities::intensityRange, &FormatCapabilities::color, &FormatCapabilities::classes,
          &FormatCapabilities::severalScans, &FormatCapabilities::images, &FormatCapabilities::name,
          &FormatCapabilities::text, &FormatCapabilities::uuid, &FormatCapabilities::dates,
          &FormatCapabilities::sensor}) {
        can.*member = Fate::Kept;
    }
    can.colorBits = 16;
    return can;
}

Fate FateOf(const LossReport& report, const std::string& field) {
    const LossEntry* const entry = report.Find(field);
    if (!entry) {
        ADD_FAILURE() << field << " is not in the report";
        return Fate::Lost;
    }
    return entry->fate;
}

TEST(ForeseeLosses, AFormatThatHoldsAllLosesOnlyWhatTheReaderCouldNotGive) {
    const LossReport report = ForeseeLosses(FullDescription(), Everything());
    EXPECT_EQ(report.entries.size(), 16U);
    EXPECT_TRUE(report.AnyLost());
    EXPECT_FALSE(report.AnyConverted());
    for (const LossEntry& entry : report.entries)
        EXPECT_EQ(entry.fate, entry.field == "timeStamp" ? Fate::Lost : Fate::Kept) << entry.field;
    EXPECT_EQ(report.Find("timeStamp")->detail, "seconds per point");
}

TEST(ForeseeLosses, AFormatThatHoldsNothingLosesAllButCoordinates) {
    const LossReport report = ForeseeLosses(FullDescription(), FormatCapabilities());
    for (const LossEntry& entry : report.entries)
        EXPECT_EQ(entry.fate, entry.field == "coordinates" ? Fate::Kept : Fate::Lost) << entry.field;
}

TEST(ForeseeLosses, WhatAScanDoesNotHaveDoesNotAppear) {
    const LossReport report = ForeseeLosses(ScanDescription(), FormatCapabilities());
    ASSERT_EQ(report.entries.size(), 1U);
    EXPECT_EQ(report.entries[0].field, "coordinates");
}

TEST(ForeseeLosses, ValuesThatNeedMoreBitsThanTheFormatHasAreConverted) {
    ScanDescription description = FullDescription();
    FormatCapabilities can = Everything();
    can.intensityBits = 12;
    can.coordinateBits = 24;
    can.colorBits = 8;
    LossReport report = ForeseeLosses(description, can);
    EXPECT_EQ(FateOf(report, "intensity"), Fate::Kept);  // 0 to 4095 are 12 bits
    EXPECT_EQ(FateOf(report, "coordinates"), Fate::Converted);
    EXPECT_EQ(report.Find("coordinates")->detail, "to 24 significant bits");
    EXPECT_EQ(FateOf(report, "colour"), Fate::Converted);
    EXPECT_FALSE(report.Find("colour")->inverse.empty());
    description.intensity.maximum = 4096;
    description.coordinates.numbers = NumberKind::Single;
    report = ForeseeLosses(description, can);
    EXPECT_EQ(FateOf(report, "intensity"), Fate::Converted);
    EXPECT_EQ(FateOf(report, "coordinates"), Fate::Kept);
}

TEST(ForeseeLosses, SphericalScansAreConvertedWhereTheFormatIsCartesian) {
    ScanDescription description;
    description.coordinateKind = CoordinateKind::Spherical;
    EXPECT_EQ(FateOf(ForeseeLosses(description, FormatCapabilities()), "coordinates"), Fate::Converted);
    EXPECT_EQ(FateOf(ForeseeLosses(description, Everything()), "coordinates"), Fate::Kept);
}

TEST(LossReport, ALaterEntryOfTheSameFieldReplacesTheEarlier) {
    LossReport report;
    report.Add({"grid", Fate::Kept, {}, {}});
    report.Add({"grid", Fate::Lost, "dropped", {}});
    ASSERT_EQ(report.entries.size(), 1U);
    EXPECT_STREQ(FateText(report.entries[0].fate), "lost");
    EXPECT_EQ(report.Find("pose"), nullptr);
}

TEST(Cells, SphericalAndBackIsTheSamePoint) {
    std::vector<Cell> cells(5);
    cells[0] = PolarCell(12.5, 2.0, 1.0);
    cells[1].direction = true;  // a direction without a return, of any length
    cells[1].x = 3;
    cells[1].z = -4;
    cells[2].valid = true;  // at the origin
    cells[3] = PolarCell(3, 0, 0);
    std::vector<Cell> other = cells;
    ToSpherical(other);
    EXPECT_NEAR(other[0].Range(), 12.5, 1e-14);
    EXPECT_NEAR(other[0].Azimuth(), 2.0, 1e-15);
    EXPECT_NEAR(other[0].Elevation(), std::numbers::pi / 2 - 1.0, 1e-15);
    EXPECT_EQ(other[1].Range(), 0);
    EXPECT_NEAR(other[1].Elevation(), std::atan2(-4, 3), 1e-15);
    EXPECT_EQ(other[2].Elevation(), 0);
    EXPECT_EQ(other[3].Elevation(), std::numbers::pi / 2);
    EXPECT_EQ(other[4].Range(), 0);
    ToCartesian(other);
    EXPECT_NEAR(other[0].x, cells[0].x, 1e-14);
    EXPECT_NEAR(other[0].y, cells[0].y, 1e-14);
    EXPECT_NEAR(other[0].z, cells[0].z, 1e-14);
    EXPECT_NEAR(other[1].x, 0.6, 1e-15);
    EXPECT_NEAR(other[1].z, -0.8, 1e-15);
    EXPECT_EQ(other[4].x, 0);
}

TEST(ScanSources, TheFormatIsTheOneAskedForElseTheEndings) {
    const std::string text = PtxHeader(1, 1) + "1 2 3 0.5\n";
    EXPECT_THROW(SourceOf(text, "scan.unknown"), kxbase::KXBadInputException);
    SourceOptions options;
    options.format = "ptx";
    const auto open = [&](const std::string& name) {
        return OpenScanSource(std::make_unique<kxbase::InMemoryStream>(text.data(), text.size()), name,
                              options);
    };
    EXPECT_EQ(open("scan.unknown")->OpenScan(0).columns, 1U);
    options.format = "nothing";
    try {
        open("scan.ptx");
        FAIL();
    } catch (const kxbase::KXBadInputException& error) {
        EXPECT_EQ(error.Context().detail.rfind("found nothing, expected", 0), 0U) << error.Context().detail;
    }
}

}  // namespace
}  // namespace kxexchange::testing
