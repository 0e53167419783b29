// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <numbers>

#include "PlainE57.h"
#include "TestTools.h"
#include "kxbase/InMemoryStream.h"

namespace {

using namespace kxexchange;
using kxexchange::testing::MakeSweep;
using kxexchange::testing::ReadScan;
using kxexchange::testing::Scan;
using kxexchange::testing::Sweep;

struct Output {
    plain::Bytes file;
    uint64_t points = 0;
    std::vector<LossReport> losses;
};

Output Write(const std::vector<Scan>& scans, const SinkOptions& options = {}) {
    kxbase::InMemoryStream stream;
    const auto sink = FindSinkFormat("e57")->make(stream, options);
    Output output;
    for (const Scan& scan : scans) {
        sink->BeginScan(scan.description);
        const auto rows = static_cast<size_t>(scan.description.rows);
        const std::span<const Cell> all(scan.cells);
        if (rows == 0) {
            sink->WriteColumns(all, 1);
        } else {
            for (size_t at = 0; at < all.size(); at += 2 * rows) {
                const auto some = all.subspan(at, std::min(2 * rows, all.size() - at));
                sink->WriteColumns(some, some.size() / rows);
            }
        }
        sink->EndScan();
        sink->AddLosses(output.losses.emplace_back());
    }
    sink->Finish();
    output.points = sink->PointsWritten();
    EXPECT_EQ(sink->BytesWritten(), stream.GetBytes().size());
    output.file = stream.GetBytes();
    return output;
}

Scan Read(const plain::Bytes& file, uint64_t index = 0) {
    const auto source = OpenScanSource(std::make_unique<kxbase::InMemoryStream>(file), "written.e57");
    Scan scan = ReadScan(*source, index);
    EXPECT_TRUE(source->Warnings().empty());
    // The source goes; what an image would be read from goes with it.
    scan.description.images.clear();
    return scan;
}

Scan SweepScan(const Sweep& sweep) {
    Scan scan;
    scan.description.columns = sweep.columns;
    scan.description.rows = sweep.rows;
    scan.description.points = sweep.columns * sweep.rows;
    scan.description.coordinates.present = true;
    scan.description.coordinates.maximum = 31;
    scan.description.coordinates.precision = 1e-3;
    scan.description.intensity.present = scan.description.color.present = true;
    scan.cells = MakeSweep(sweep);
    for (Cell& cell : scan.cells)
        cell.direction = false;
    return scan;
}

// Cells on multiples of a step, so that whole numbers hold them.
void Quantise(Scan& scan, double perMetre) {
    for (Cell& cell : scan.cells) {
        cell.x = std::round(cell.x * perMetre) / perMetre;
        cell.y = std::round(cell.y * perMetre) / perMetre;
        cell.z = std::round(cell.z * perMetre) / perMetre;
        cell.intensity = std::round(cell.intensity * 255);
    }
    scan.description.coordinates.numbers = NumberKind::Scaled;
    scan.description.coordinates.precision = 1 / perMetre;
    scan.description.intensity.numbers = NumberKind::Integer;
    scan.description.intensity.minimum = 0;
    scan.description.intensity.maximum = 255;
}

void ExpectSame(const std::vector<Cell>& a, const std::vector<Cell>& b, double tolerance = 0) {
    ASSERT_EQ(a.size(), b.size());
    uint64_t different = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        const bool near = std::abs(a[i].x - b[i].x) <= tolerance && std::abs(a[i].y - b[i].y) <= tolerance &&
                          std::abs(a[i].z - b[i].z) <= tolerance;
        if (!near || a[i].valid != b[i].valid || a[i].direction != b[i].direction ||
            a[i].intensity != b[i].intensity || a[i].red != b[i].red || a[i].green != b[i].green ||
            a[i].blue != b[i].blue) {
            ++different;
        }
    }
    EXPECT_EQ(different, 0U);
}

// The fields of the first prototype of a written XML, in the order of their streams.
struct PlainField {
    std::string name, type;
    int64_t minimum = 0, maximum = 0;
    double scale = 1;
    unsigned bits = 0;
};
std::vector<PlainField> PlainPrototype(const std::string& xml) {
    std::vector<PlainField> fields;
    const size_t end = xml.find("</prototype>");
    for (size_t at = xml.find('<', xml.find("<prototype") + 1); at < end; at = xml.find('<', at + 1)) {
        if (xml[at + 1] == '/') continue;
        const std::string element = xml.substr(at, xml.find('>', at) - at);
        const auto attribute = [&](const std::string& name) -> std::string {
            const size_t from = element.find(" " + name + "=\"");
            if (from == std::string::npos) return {};
            const size_t first = from + name.size() + 3;
            return element.substr(first, element.find('"', first) - first);
        };
        PlainField field;
        field.name = element.substr(1, element.find(' ') - 1);
        field.type = attribute("type");
        if (field.type == "Float") {
            field.bits = attribute("precision") == "single" ? 32 : 64;
        } else {
            field.minimum = std::stoll(attribute("minimum"));
            field.maximum = std::stoll(attribute("maximum"));
            if (field.type == "ScaledInteger") field.scale = std::stod(attribute("scale"));
            for (uint64_t span = static_cast<uint64_t>(field.maximum - field.minimum); span != 0; span /= 2)
                ++field.bits;
        }
        fields.push_back(field);
    }
    return fields;
}

uint64_t PlainAttribute(const std::string& xml, const std::string& element, const std::string& name) {
    const size_t at = xml.find(name + "=\"", xml.find("<" + element + " "));
    return std::stoull(xml.substr(at + name.size() + 2));
}

// The whole file by other code: checksums bit by bit, streams bit by bit, values by the prototype's scale.
TEST(E57Sink, AnotherDecoderFindsEveryCell) {
    Scan scan = SweepScan({.columns = 90, .rows = 70, .missing = 0.3});
    Quantise(scan, 1000);
    const Output output = Write({scan});
    const plain::Bytes content = plain::PlainContent(output.file);
    ASSERT_EQ(plain::PlainNumber(content, 16, 8), output.file.size());
    const std::string xml = plain::PlainXml(content);
    const auto fields = PlainPrototype(xml);
    const auto parts = plain::PlainStreams(content, PlainAttribute(xml, "points", "fileOffset"));
    const uint64_t records = PlainAttribute(xml, "points", "recordCount");
    ASSERT_EQ(records, scan.cells.size());
    ASSERT_EQ(parts.streams.size(), fields.size());
    EXPECT_EQ(parts.index.at(0).record, 0U);
    const char* const names[] = {"cartesianX", "cartesianY",  "cartesianZ", "cartesianInvalidState",
                                 "rowIndex",   "columnIndex", "intensity",  "colorRed",
                                 "colorGreen", "colorBlue"};
    ASSERT_EQ(fields.size(), std::size(names));
    for (size_t i = 0; i < fields.size(); ++i)
        EXPECT_EQ(fields[i].name, names[i]);
    uint64_t valid = 0;
    for (size_t i = 0; i < records; ++i) {
        const auto raw = [&](size_t field) {
            return fields[field].minimum +
                   static_cast<int64_t>(plain::PlainBits(parts.streams[field], i, fields[field].bits));
        };
        const Cell& cell = scan.cells[i];
        ASSERT_NEAR(static_cast<double>(raw(0)) * fields[0].scale, cell.x, 1e-9);
        ASSERT_NEAR(static_cast<double>(raw(1)) * fields[1].scale, cell.y, 1e-9);
        ASSERT_NEAR(static_cast<double>(raw(2)) * fields[2].scale, cell.z, 1e-9);
        ASSERT_EQ(raw(3), cell.valid ? 0 : 2);
        ASSERT_EQ(raw(4), static_cast<int64_t>(i % 70));
        ASSERT_EQ(raw(5), static_cast<int64_t>(i / 70));
        ASSERT_EQ(raw(6), static_cast<int64_t>(cell.intensity));
        ASSERT_EQ(raw(7), cell.red);
        ASSERT_EQ(raw(8), cell.green);
        ASSERT_EQ(raw(9), cell.blue);
        valid += cell.valid ? 1 : 0;
    }
    EXPECT_EQ(output.points, valid);
    for (const char* const text :
         {"<rowMaximum type=\"Integer\">69<", "<columnMaximum type=\"Integer\">89<", "<cartesianBounds ",
          "<intensityMaximum type=\"Float\">255<", "<colorRedMaximum type=\"Integer\">255<",
          "ASTM E57 3D Imaging Data File", "<versionMajor type=\"Integer\">1<"}) {
        EXPECT_NE(xml.find(text), std::string::npos) << text;
    }
}

TEST(E57Sink, MultiplesOfAStepComeBackExactly) {
    for (const double perMetre : {1000.0, 1e4, 1e6}) {
        Scan scan = SweepScan({.columns = 40, .rows = 30, .missing = 0.2});
        Quantise(scan, perMetre);
        const Output output = Write({scan});
        const Scan back = Read(output.file);
        EXPECT_EQ(back.description.columns, 40U);
        EXPECT_EQ(back.description.rows, 30U);
        EXPECT_EQ(back.description.coordinates.precision, 1 / perMetre);
        ExpectSame(scan.cells, back.cells);
        EXPECT_EQ(output.losses[0].Find("coordinates"), nullptr);
    }
}

TEST(E57Sink, OtherValuesAreRoundedToATenthOfTheStepAndThatIsSaid) {
    Scan scan = SweepScan({.columns = 20, .rows = 30});
    const Output output = Write({scan});
    const Scan back = Read(output.file);
    EXPECT_EQ(back.description.coordinates.precision, 1e-4);
    for (size_t i = 0; i < scan.cells.size(); ++i) {
        EXPECT_NEAR(scan.cells[i].x, back.cells[i].x, 0.5001e-4);
        EXPECT_EQ(scan.cells[i].intensity, back.cells[i].intensity);  // doubles, for nothing is known of them
    }
    ASSERT_NE(output.losses[0].Find("coordinates"), nullptr);
    EXPECT_EQ(output.losses[0].Find("coordinates")->detail, "to whole multiples of 1e-04 m");
}

TEST(E57Sink, DoublesAreExactAndSinglesAsNearAsTheyCanBe) {
    const Scan scan = SweepScan({.columns = 20, .rows = 30, .missing = 0.1});
    SinkOptions options;
    options.coordinates = NumberKind::Double;
    ExpectSame(scan.cells, Read(Write({scan}, options).file).cells);
    options.coordinates = NumberKind::Single;
    const Output output = Write({scan}, options);
    ExpectSame(scan.cells, Read(output.file).cells, 1e-6);
    EXPECT_EQ(output.losses[0].Find("coordinates")->detail, "to single precision");
}

TEST(E57Sink, SphericalScansStaySphericalAndOthersBecomeSoWhenAskedFor) {
    Scan scan = SweepScan({.columns = 30, .rows = 30, .missing = 0.1});
    Scan spherical = scan;
    ToSpherical(spherical.cells);
    spherical.description.coordinateKind = CoordinateKind::Spherical;
    spherical.description.directions = true;
    for (Cell& cell : spherical.cells) {
        if (cell.valid) continue;
        cell.direction = true;
        cell.SetSpherical(0, -3, 1.5);
    }
    SinkOptions options;
    options.coordinates = NumberKind::Double;
    Scan back = Read(Write({spherical}, options).file);
    EXPECT_EQ(back.description.coordinateKind, CoordinateKind::Spherical);
    ExpectSame(spherical.cells, back.cells);

    options.coordinateKind = CoordinateKind::Spherical;
    back = Read(Write({scan}, options).file);
    EXPECT_EQ(back.description.coordinateKind, CoordinateKind::Spherical);
    ToCartesian(back.cells);
    ExpectSame(scan.cells, back.cells, 1e-12);

    options.coordinates = NumberKind::Unknown;  // whole steps: 1 mm, 1e-7 rad
    back = Read(Write({scan}, options).file);
    EXPECT_EQ(back.description.coordinates.precision, 1e-3);
    EXPECT_EQ(back.description.angles.precision, 1e-7);
    ToCartesian(back.cells);
    ExpectSame(scan.cells, back.cells, 0.6e-3);

    options.coordinateKind = CoordinateKind::Cartesian;
    options.coordinates = NumberKind::Double;
    back = Read(Write({spherical}, options).file);
    EXPECT_EQ(back.description.coordinateKind, CoordinateKind::Cartesian);
    for (size_t i = 0; i < scan.cells.size(); ++i) {
        EXPECT_EQ(back.cells[i].valid, scan.cells[i].valid);
        EXPECT_EQ(back.cells[i].direction, !scan.cells[i].valid);
        EXPECT_TRUE(!scan.cells[i].valid || std::abs(back.cells[i].y - scan.cells[i].y) < 1e-12);
    }
}

TEST(E57Sink, CellsWithoutAReturnAreLeftOutWhenAskedForAndComeBackAsTheyWere) {
    Scan scan = SweepScan({.columns = 30, .rows = 30, .missing = 0.4});
    for (Cell& cell : scan.cells)
        cell.intensity = cell.valid ? std::round(cell.intensity * 200) : 0.5;
    scan.description.intensity.numbers = NumberKind::Integer;
    scan.description.intensity.minimum = 0;
    scan.description.intensity.maximum = 200;
    SinkOptions options;
    options.coordinates = NumberKind::Double;
    const Output all = Write({scan}, options);
    options.noReturns = false;
    const Output some = Write({scan}, options);
    EXPECT_LT(some.file.size(), all.file.size());
    const std::string xml = plain::PlainXml(plain::PlainContent(some.file));
    EXPECT_EQ(PlainAttribute(xml, "points", "recordCount"), some.points);
    EXPECT_EQ(xml.find("InvalidState"), std::string::npos);
    // 0.5 is no whole number; it is remembered beside.
    ExpectSame(scan.cells, Read(all.file).cells);
    ExpectSame(scan.cells, Read(some.file).cells);
}

TEST(E57Sink, ScansWithoutGridStayWithoutGrid) {
    Scan scan = SweepScan({.columns = 30, .rows = 30});
    scan.description.columns = scan.description.rows = 0;
    SinkOptions options;
    options.coordinates = NumberKind::Double;
    const Scan back = Read(Write({scan}, options).file);
    EXPECT_FALSE(back.description.HasGrid());
    ExpectSame(scan.cells, back.cells);
}

TEST(E57Sink, SeveralScansOfSeveralKindsLieInOneFile) {
    Scan first = SweepScan({.columns = 30, .rows = 20, .missing = 0.1, .seed = 1});
    Scan second = SweepScan({.columns = 7, .rows = 300, .seed = 2});
    Scan third;
    Quantise(first, 1000);
    Quantise(second, 1000);
    second.description.color.present = second.description.intensity.present = false;
    for (Cell& cell : second.cells) {
        cell.intensity = 0;
        cell.red = cell.green = cell.blue = 0;
    }
    const Output output = Write({first, second, third});
    ExpectSame(first.cells, Read(output.file, 0).cells);
    const Scan back = Read(output.file, 1);
    EXPECT_FALSE(back.description.color.present);
    EXPECT_FALSE(back.description.intensity.present);
    ExpectSame(second.cells, back.cells);
    EXPECT_TRUE(Read(output.file, 2).cells.empty());
}

// A rotation of any angle, as its twelve numbers.
kxbase::RegistrationInformation Turned(double angle) {
    kxmath::Frame frame;
    frame.Rotate({0, 0, 0}, {0.3, -0.5, 0.8}, angle);
    return {{frame.GetXAxis(), frame.GetYAxis(), frame.GetZAxis()}, {1234567.125, -0.1, 1e-9}};
}

TEST(E57Sink, PosesComeBackToTheLastBit) {
    Scan scan = SweepScan({.columns = 3, .rows = 3});
    std::vector<kxbase::RegistrationInformation> poses;
    for (int i = 0; i < 64; ++i)
        poses.push_back(Turned(0.1 * i));
    const double scaled[] = {2, 0, 0, 0, 2, 0, 0, 0, 2, 1, 2, 3};
    poses.push_back(kxbase::RegistrationInformation::FromValues(scaled));
    const double mirrored[] = {-1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
    poses.push_back(kxbase::RegistrationInformation::FromValues(mirrored));
    for (const auto& pose : poses) {
        scan.description.pose = pose;
        const Output output = Write({scan});
        const Scan once = Read(output.file);
        EXPECT_EQ(once.description.pose, pose);
        Scan again = scan;
        again.description.pose = once.description.pose;
        again.description.keepsakes = once.description.keepsakes;
        EXPECT_EQ(Read(Write({again}).file).description.pose, pose);
    }
    scan.description.pose = poses[64];
    const Output output = Write({scan});
    ASSERT_NE(output.losses[0].Find("pose"), nullptr);
    EXPECT_EQ(output.losses[0].Find("pose")->fate, Fate::Converted);
    scan.description.pose = poses[5];
    EXPECT_EQ(Write({scan}).losses[0].Find("pose"), nullptr);
}

TEST(E57Sink, WhatAnE57SaidOfAScanIsSaidAgain) {
    Scan scan = SweepScan({.columns = 3, .rows = 3});
    ScanDescription& d = scan.description;
    d.name = "Nord <1> ü";
    d.text = "]]> zwei\nZeilen";
    d.uuid = kxbase::UUID(L"12345678-9abc-def0-1234-56789abcdef0");
    d.original = kxbase::UUID(L"00000000-0000-0000-0000-00000000000a");
    d.acquisitionStart = kxbase::Date(L"2020-02-29T23:59:59Z");
    d.acquisitionEnd = kxbase::Date(L"1999-12-31T00:00:00Z");
    d.sensor = {"V", "M", "S", "H", "W", "F"};
    d.keepsakes = {{"e57-temperature", "21.5"},
                   {"e57-first-row", "-7"},
                   {"e57-first-column", "1000000"},
                   {"e57-start", "1267056017.75,1"},
                   {"e57-coordinate-metadata", "EPSG%3A25832"},
                   {"position", "1,2,3"}};
    const Scan back = Read(Write({scan}).file);
    EXPECT_EQ(back.description.name, d.name);
    EXPECT_EQ(back.description.text, d.text);
    EXPECT_EQ(back.description.uuid, d.uuid);
    EXPECT_EQ(back.description.original, d.original);
    EXPECT_EQ(back.description.acquisitionStart, d.acquisitionStart);
    EXPECT_EQ(back.description.acquisitionEnd, d.acquisitionEnd);
    EXPECT_EQ(back.description.sensor, d.sensor);
    for (const auto& [key, value] : d.keepsakes) {
        if (key == "e57-coordinate-metadata") continue;
        EXPECT_NE(std::find(back.description.keepsakes.begin(), back.description.keepsakes.end(),
                            std::pair(key, value)),
                  back.description.keepsakes.end())
            << key;
    }
    EXPECT_TRUE(back.description.unheld.empty());
}

TEST(E57Sink, IntensitiesArePackedAsTheE57HadThem) {
    Scan scan = SweepScan({.columns = 30, .rows = 30});
    const double scale = 3.0518509475997192e-005;
    for (Cell& cell : scan.cells)
        cell.intensity = std::round(cell.intensity * 32767) * scale;
    scan.description.keepsakes = {
        {"e57-intensity", "scaled:0:32767:" + std::string("3.0518509475997192e-05:0")},
        {"e57-intensity-limits", "0,0.75"}};
    // What a share of 65535 makes of them still tells the levels apart.
    Scan coarse = scan;
    for (Cell& cell : coarse.cells)
        cell.intensity = std::round(cell.intensity * 65535) / 65535;
    const Output output = Write({coarse});
    const Scan back = Read(output.file);
    for (size_t i = 0; i < scan.cells.size(); ++i)
        ASSERT_EQ(back.cells[i].intensity, scan.cells[i].intensity);
    EXPECT_EQ(back.description.intensity.maximum, 0.75);
    EXPECT_EQ(output.losses[0].Find("intensity"), nullptr);
}

TEST(E57Sink, ValuesThatDoNotFitAreCounted) {
    Scan scan = SweepScan({.columns = 4, .rows = 4});
    Quantise(scan, 1000);
    scan.cells[1].intensity = 256;
    scan.cells[2].intensity = 1.5;
    scan.cells[3].x = 40;
    const Output output = Write({scan});
    EXPECT_EQ(output.points, 15U);
    ASSERT_NE(output.losses[0].Find("intensity"), nullptr);
    EXPECT_TRUE(output.losses[0].Find("intensity")->detail.starts_with("2 values do not fit"));
    ASSERT_NE(output.losses[0].Find("points outside the stated range"), nullptr);
    EXPECT_EQ(output.losses[0].Find("points outside the stated range")->fate, Fate::Lost);
    const Scan back = Read(output.file);
    EXPECT_EQ(back.cells[1].intensity, 255);
    EXPECT_FALSE(back.cells[3].valid);
}

TEST(E57Sink, ColoursOf16BitsStayWhole) {
    Scan scan = SweepScan({.columns = 4, .rows = 4});
    Quantise(scan, 1000);
    scan.description.colorBits = 16;
    for (Cell& cell : scan.cells) {
        cell.red = static_cast<uint16_t>(cell.red * 257);
        cell.green = 65535;
    }
    const Scan back = Read(Write({scan}).file);
    EXPECT_EQ(back.description.colorBits, 16);
    ExpectSame(scan.cells, back.cells);
}

TEST(E57Sink, ImagesBecomeVisualReferencesOfTheirScan) {
    Scan scan = SweepScan({.columns = 4, .rows = 4});
    const std::vector<unsigned char> jpeg(5001, 42);
    ImageDescription image;
    image.name = "Vorschau";
    image.width = 100;
    image.height = 50;
    image.load = [&] { return jpeg; };
    scan.description.images = {image};
    image.role = ImageDescription::Role::Pinhole;
    image.encoding = ImageDescription::Encoding::Png;
    scan.description.images.push_back(image);
    const Output output = Write({SweepScan({.columns = 2, .rows = 2}), scan});
    const auto source = OpenScanSource(std::make_unique<kxbase::InMemoryStream>(output.file), "written.e57");
    EXPECT_TRUE(source->OpenScan(0).images.empty());
    const ScanDescription back = source->OpenScan(1);
    ASSERT_EQ(back.images.size(), 2U);
    EXPECT_EQ(back.images[0].name, "Vorschau");
    EXPECT_EQ(back.images[0].width, 100U);
    EXPECT_EQ(back.images[0].height, 50U);
    EXPECT_EQ(back.images[0].role, ImageDescription::Role::VisualReference);
    EXPECT_EQ(back.images[0].load(), jpeg);
    EXPECT_EQ(back.images[1].encoding, ImageDescription::Encoding::Png);
    ASSERT_NE(output.losses[1].Find("image projections"), nullptr);
    EXPECT_EQ(output.losses[0].Find("image projections"), nullptr);
    plain::PlainContent(output.file);  // throws when a checksum is wrong
}

}  // namespace
