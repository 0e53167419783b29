// SPDX-License-Identifier: MIT
// Scans on their way between formats: .qsn files as sources, several scans in one file, what a .qsn file
// keeps of a source's description, recoding, losses and the strict mode.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "MemoryScan.h"
#include "SmallExport.h"
#include "SourceFacts.h"
#include "TestTools.h"
#include "kxcodecs/JPEG.h"
#include "kxio/ProtectFile.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace kxexchange::testing {
namespace {

constexpr uint64_t kColumns = 12, kRows = 9;

std::vector<unsigned char> TinyJpeg() {
    const std::vector<unsigned char> pixels(3 * 8 * 4, 90);
    std::vector<unsigned char> jpeg;
    EXPECT_TRUE(kxcodecs::JPEG::Encode(pixels.data(), 8, 4, 80, jpeg));
    return jpeg;
}

std::vector<Cell> SomeCells() {
    Sweep sweep;
    sweep.columns = kColumns;
    sweep.rows = kRows;
    sweep.missing = 0.2;
    std::vector<Cell> cells = MakeSweep(sweep);
    for (size_t i = 0; i < cells.size(); ++i) {
        Cell& cell = cells[i];
        if (!cell.valid) continue;
        cell.intensity = static_cast<double>(i * 7 % 2048);
        cell.classification = static_cast<uint8_t>(i % 256);
    }
    return cells;
}

ScanDescription SomeDescription() {
    ScanDescription description;
    description.name = "Station 7 \xe2\x80\x93 K\xc3\xb6ln";
    description.text = "100 % of it = fine";
    description.uuid = kxbase::UUID(L"01234567-89ab-cdef-0123-456789abcdef");
    description.original = kxbase::UUID(L"fedcba98-7654-3210-fedc-ba9876543210");
    description.acquisitionStart = kxbase::Date::FromUnixSeconds(1700000000);
    description.acquisitionEnd = kxbase::Date::FromUnixSeconds(1700000123);
    description.sensor = {"Maker & Co", "X 1", "SN=42", "h1", "s 2", "f3"};
    description.columns = kColumns;
    description.rows = kRows;
    description.points = kColumns * kRows;
    const double pose[12] = {0.1 + 0.2, 1e-17, -0.3, 3e5, 1 / 3.0, 0, 0, 2, 1, 1e6 / 7, -0.0, 5e-324};
    description.pose = kxbase::RegistrationInformation::FromValues(pose);
    description.coordinates.present = description.intensity.present = true;
    description.intensity.numbers = NumberKind::Integer;
    description.intensity.minimum = 0;
    description.intensity.maximum = 2047;
    description.color.present = description.classification.present = true;
    ImageDescription image;
    image.name = "front view";
    image.byteCount = TinyJpeg().size();
    image.load = TinyJpeg;
    description.images.push_back(image);
    description.keepsakes.emplace_back("guid", "{x}");
    return description;
}

ScanDescription Imported(const TempFolder& folder, ScanDescription description, std::vector<Cell> cells,
                         ImportReport* report = nullptr, const ImportOptions& options = {}) {
    MemoryScan source(std::move(description), std::move(cells));
    source.warnings = {"two records for one place"};
    const ImportReport made = ImportScan(source, 0, folder / "a.qsn", options);
    if (report) *report = made;
    return OpenScanSource(folder / "a.qsn")->OpenScan(0);
}

std::vector<Cell> CellsOf(const std::filesystem::path& path, CoordinateKind kind) {
    SourceOptions options;
    options.coordinateKind = kind;
    const auto source = OpenScanSource(path, options);
    source->OpenScan(0);
    std::vector<Cell> all, piece;
    while (source->ReadColumns(5, piece) != 0)
        all.insert(all.end(), piece.begin(), piece.end());
    return all;
}

TEST(QsnFile, KeepsWhatASourceSaysAboutItsScan) {
    const TempFolder folder;
    const ScanDescription given = SomeDescription();
    ImportReport report;
    const ScanDescription back = Imported(folder, given, SomeCells(), &report);
    EXPECT_EQ(back.name, given.name);
    EXPECT_EQ(back.text, given.text);
    EXPECT_EQ(back.uuid, given.uuid);
    EXPECT_FALSE(back.uuidMade);
    EXPECT_EQ(back.original, given.original);
    EXPECT_EQ(back.acquisitionStart, given.acquisitionStart);
    EXPECT_EQ(back.acquisitionEnd, given.acquisitionEnd);
    EXPECT_EQ(back.sensor, given.sensor);
    EXPECT_EQ(back.columns, given.columns);
    EXPECT_EQ(back.rows, given.rows);
    EXPECT_EQ(back.pose, given.pose);  // to the last bit
    EXPECT_EQ(back.intensity.numbers, NumberKind::Integer);
    EXPECT_EQ(back.intensity.minimum, 0);
    EXPECT_EQ(back.intensity.maximum, 2047);
    EXPECT_TRUE(back.color.present && back.classification.present);
    EXPECT_EQ(back.keepsakes, given.keepsakes);
    ASSERT_EQ(back.images.size(), 1U);
    EXPECT_EQ(back.images[0].name, "front view");
    EXPECT_EQ(report.warnings, std::vector<std::string>{"two records for one place"});
    EXPECT_EQ(report.name, given.name);
}

TEST(QsnFile, GivesEveryCellBackWithClassColourAndWholeIntensity) {
    const TempFolder folder;
    const std::vector<Cell> cells = SomeCells();
    ImportReport report;
    Imported(folder, SomeDescription(), cells, &report);
    const std::vector<Cell> back = CellsOf(folder / "a.qsn", CoordinateKind::Cartesian);
    ASSERT_EQ(back.size(), cells.size());
    for (size_t i = 0; i < cells.size(); ++i) {
        ASSERT_EQ(back[i].valid, cells[i].valid) << i;
        if (!cells[i].valid) continue;
        ASSERT_EQ(back[i].intensity, cells[i].intensity) << i;
        ASSERT_EQ(back[i].classification, cells[i].classification) << i;
        ASSERT_EQ(back[i].red, cells[i].red) << i;
        const double range = std::hypot(cells[i].x, cells[i].y, cells[i].z);
        ASSERT_LE(std::hypot(back[i].x - cells[i].x, back[i].y - cells[i].y, back[i].z - cells[i].z),
                  PositionBound(range, report.precision))
            << i;
    }
    EXPECT_FALSE(report.losses.AnyLost());
    EXPECT_EQ(report.losses.Find("intensity")->fate, Fate::Kept);
    EXPECT_EQ(report.losses.Find("coordinates")->fate, Fate::Converted);
}

TEST(QsnFile, SphericalCellsKeepTheirAnglesAndDirectionsWithoutAReturn) {
    const TempFolder folder;
    std::vector<Cell> cells = SomeCells();
    ScanDescription description = SomeDescription();
    ToSpherical(cells);
    description.coordinateKind = CoordinateKind::Spherical;
    description.directions = true;
    size_t directions = 0;
    for (size_t i = 0; i < cells.size(); ++i) {
        Cell& cell = cells[i];
        if (cell.valid) continue;
        // A wobble of its own, which the grid's angles do not have.
        cell.direction = true;
        cell.SetSpherical(0, 1.0 - 0.03 * static_cast<double>(i / kRows) + 1e-4,
                          0.37 + 0.02 * static_cast<double>(i % kRows) - 1e-4);
        ++directions;
    }
    ASSERT_GT(directions, 5U);
    ImportReport report;
    EXPECT_TRUE(Imported(folder, description, cells, &report).directions);
    EXPECT_EQ(report.losses.Find("directions of cells without a return")->fate, Fate::Converted);
    const std::vector<Cell> back = CellsOf(folder / "a.qsn", CoordinateKind::Spherical);
    ASSERT_EQ(back.size(), cells.size());
    for (size_t i = 0; i < cells.size(); ++i) {
        ASSERT_EQ(back[i].valid, cells[i].valid) << i;
        ASSERT_EQ(back[i].direction, cells[i].direction) << i;
        ASSERT_NEAR(back[i].Range(), cells[i].Range(), 0.00005 + 1e-5) << i;
        ASSERT_NEAR(std::remainder(back[i].Azimuth() - cells[i].Azimuth(), 2 * std::acos(-1.0)), 0, 1e-6)
            << i;
        ASSERT_NEAR(back[i].Elevation(), cells[i].Elevation(), 1e-6) << i;
    }
}

TEST(QsnFile, WithoutDirectionsCellsWithoutAReturnHaveNone) {
    const TempFolder folder;
    EXPECT_FALSE(Imported(folder, SomeDescription(), SomeCells()).directions);
    for (const Cell& cell : CellsOf(folder / "a.qsn", CoordinateKind::Spherical))
        EXPECT_FALSE(cell.direction);
}

TEST(QsnFile, SixteenBitColoursAreRoundedAndSaidToBe) {
    const TempFolder folder;
    ScanDescription description = SomeDescription();
    std::vector<Cell> cells = SomeCells();
    description.colorBits = 16;
    for (Cell& cell : cells)
        cell.red = cell.valid ? uint16_t{40000} : uint16_t{0};
    ImportReport report;
    Imported(folder, description, cells, &report);
    EXPECT_EQ(report.losses.Find("colour")->fate, Fate::Converted);
    const std::vector<Cell> back = CellsOf(folder / "a.qsn", CoordinateKind::Cartesian);
    for (size_t i = 0; i < back.size(); ++i)
        ASSERT_EQ(back[i].red, cells[i].valid ? 156 : 0);  // 40000 / 257 = 155.6
}

TEST(QsnFile, AUuidMadeAtTheImportIsNoLossAndOneOfTheSourceIs) {
    const TempFolder folder;
    ScanDescription description;
    description.columns = kColumns;
    description.rows = kRows;
    EXPECT_TRUE(Imported(folder, description, SomeCells()).uuidMade);
    const FormatCapabilities& ptx = FindSinkFormat("PTX")->capabilities;
    EXPECT_EQ(ForeseeLosses(OpenScanSource(folder / "a.qsn")->OpenScan(0), ptx).Find("UUID"), nullptr);
    Imported(folder, SomeDescription(), SomeCells());
    const LossReport losses = ForeseeLosses(OpenScanSource(folder / "a.qsn")->OpenScan(0), ptx);
    ASSERT_NE(losses.Find("UUID"), nullptr);
    EXPECT_EQ(losses.Find("UUID")->fate, Fate::Lost);
}

TEST(QsnFile, InvalidIntensitiesBecomeZeroAndAreCounted) {
    const TempFolder folder;
    std::vector<Cell> cells = SomeCells();
    size_t returns = 0;
    for (Cell& cell : cells) {
        if (!cell.valid || ++returns > 3) continue;
        cell.intensityInvalid = true;
        cell.intensity = 1e9;  // would have spoiled the mapping
    }
    ImportReport report;
    Imported(folder, SomeDescription(), cells, &report);
    EXPECT_EQ(report.intensity.kind, IntensityMapping::Kind::Integer);
    EXPECT_EQ(report.losses.Find("invalid intensities")->detail, "3 become 0");
}

TEST(QsnFile, AnImageThatIsNoWholeJpegIsNoThumbnail) {
    const TempFolder folder;
    ScanDescription description = SomeDescription();
    const auto cut = [] {
        std::vector<unsigned char> bytes = TinyJpeg();
        bytes.resize(bytes.size() / 3);
        return bytes;
    };
    description.images[0].load = cut;
    ImportReport report;
    EXPECT_TRUE(Imported(folder, description, SomeCells(), &report).images.empty());
    EXPECT_EQ(report.losses.Find("images")->fate, Fate::Lost);
}

TEST(StrictImport, WritesNothingWhenSomethingWouldBeLost) {
    const TempFolder folder;
    ImportOptions options;
    options.strict = true;
    ScanDescription description = SomeDescription();
    Imported(folder, description, SomeCells(), nullptr, options);  // nothing is lost here
    std::filesystem::remove(folder / "a.qsn");
    description.unheld.push_back({"timeStamp", "of every point"});
    MemoryScan source(description, SomeCells());
    try {
        ImportScan(source, 0, folder / "a.qsn", options);
        FAIL();
    } catch (const LossException& error) {
        EXPECT_EQ(error.Context().file, "memory.test");
        EXPECT_EQ(error.Context().detail, "timeStamp (of every point)");
    }
    EXPECT_TRUE(Entries(folder).empty());
}

TEST(StrictExport, WritesNothingWhenSomethingWouldBeLost) {
    const TempFolder folder;
    MemoryScan source(SomeDescription(), SomeCells());
    ExportOptions options;
    options.strict = true;
    {
        ScanFileExport file(folder / "a.xyz", *FindSinkFormat("XYZ"), options);
        EXPECT_THROW(file.Add(source, 0), LossException);
    }
    EXPECT_TRUE(Entries(folder).empty());
}

TEST(ScanFileExport, SeveralScansOfSeveralSourcesBecomeOneFile) {
    const TempFolder folder;
    MemoryScan one(SomeDescription(), SomeCells());
    const auto two = SourceOf(PtxHeader(1, 2) + "1 2 3 0.5\n0 0 0 0.5\n" + PtxHeader(1, 1) + "7 8 9 1\n");
    ScanFileExport file(folder / "all.ptx", *FindSinkFormat("PTX"));
    EXPECT_EQ(file.Add(one, 0).cells, kColumns * kRows);
    EXPECT_EQ(file.Add(*two, 0).points, 1U);
    EXPECT_EQ(file.Add(*two, 1).points, 1U);
    EXPECT_FALSE(std::filesystem::exists(folder / "all.ptx"));
    const uint64_t bytes = file.Commit();
    EXPECT_EQ(bytes, std::filesystem::file_size(folder / "all.ptx"));
    const auto back = OpenScanSource(folder / "all.ptx");
    EXPECT_EQ(back->ScanCount(), 3U);
    EXPECT_EQ(back->OpenScan(0).pose, SomeDescription().pose);
    EXPECT_EQ(ReadScan(*back, 2).cells[0].x, 7);
}

TEST(ScanFileExport, AFormatOfOneScanRefusesASecond) {
    const TempFolder folder;
    MemoryScan source(SomeDescription(), SomeCells());
    {
        ScanFileExport file(folder / "a.ply", *FindSinkFormat("PLY"));
        file.Add(source, 0);
        EXPECT_THROW(file.Add(source, 0), kxbase::KXBadInputException);
    }
    EXPECT_TRUE(Entries(folder).empty());  // never committed
}

TEST(ScanFileExport, TextOfDoublesComesBackBitByBit) {
    const TempFolder folder;
    const std::vector<Cell> cells = SomeCells();
    MemoryScan source(SomeDescription(), cells);
    ScanFileExport file(folder / "a.ptx", *FindSinkFormat("PTX"));
    file.Add(source, 0);
    file.Commit();
    const Scan back = ReadScan(*OpenScanSource(folder / "a.ptx"));
    ASSERT_EQ(back.cells.size(), cells.size());
    for (size_t i = 0; i < cells.size(); ++i) {
        ASSERT_EQ(back.cells[i].valid, cells[i].valid);
        ASSERT_EQ(back.cells[i].x, cells[i].x);
        ASSERT_EQ(back.cells[i].y, cells[i].y);
        ASSERT_EQ(back.cells[i].z, cells[i].z);
        ASSERT_EQ(back.cells[i].intensity, cells[i].intensity);
    }
}

TEST(RecodeScan, ChangesCodecsAndPatchesAndNothingElse) {
    const TempFolder folder;
    Imported(folder, SomeDescription(), SomeCells());
    ImportOptions options = OptionsOf(folder / "a.qsn");
    options.rangeCodec = options.angleCodec = Codec::Snappy;
    options.patchWidth = options.patchHeight = 5;
    const ImportReport report = RecodeScan(folder / "a.qsn", folder / "b.qsn", options);
    EXPECT_FALSE(report.losses.AnyLost() || report.losses.AnyConverted());
    const kxio::QSNScanReader before((folder / "a.qsn").wstring()), after((folder / "b.qsn").wstring());
    const kxio::ScanProperties &a = before.GetScanInformation(), &b = after.GetScanInformation();
    EXPECT_EQ(b.componentCodecs.at(kxbase::Range), "Snappy");
    EXPECT_EQ(b.grid.patchWidth, 5U);
    EXPECT_EQ(b.scanUUID, a.scanUUID);
    EXPECT_EQ(b.registration, a.registration);
    EXPECT_EQ(b.messages, a.messages);
    EXPECT_EQ(b.warnings, a.warnings);
    EXPECT_EQ(b.validPointCount, a.validPointCount);
    EXPECT_EQ(report.returns, a.validPointCount);
    EXPECT_EQ(b.firstDate, a.firstDate);
    EXPECT_EQ(b.scannerModel, a.scannerModel);
    EXPECT_EQ(b.grid.columnStartAngle, a.grid.columnStartAngle);
    const kxio::ScanAccess x(before), y(after);
    ASSERT_EQ(x.Components(), y.Components());
    for (const auto component : x.Components()) {
        const uint32_t bytes = x.ElementBytes(component);
        std::vector<unsigned char> one(x.GetGridRect().CellCount() * bytes), other(one.size());
        x.ReadRectBytes(component, x.GetGridRect(), bytes, one);
        y.ReadRectBytes(component, y.GetGridRect(), bytes, other);
        EXPECT_EQ(one, other) << kxbase::ComponentToString(component);
    }
    std::vector<unsigned char> thumbnail;
    EXPECT_TRUE(after.GetThumbnailJPEG(thumbnail));
    EXPECT_EQ(thumbnail, TinyJpeg());
}

TEST(RecodeScan, ACoarserScaleIsSaidAndKept) {
    const TempFolder folder;
    Imported(folder, SomeDescription(), SomeCells());
    ImportOptions options = OptionsOf(folder / "a.qsn");
    EXPECT_NEAR(options.rangeScale, 0.1, 1e-6);
    options.rangeScale = 10;
    const ImportReport report = RecodeScan(folder / "a.qsn", folder / "b.qsn", options);
    EXPECT_EQ(report.losses.Find("coordinates")->fate, Fate::Converted);
    const std::vector<Cell> before = CellsOf(folder / "a.qsn", CoordinateKind::Spherical),
                            after = CellsOf(folder / "b.qsn", CoordinateKind::Spherical);
    for (size_t i = 0; i < before.size(); ++i) {
        ASSERT_EQ(after[i].valid, before[i].valid);
        ASSERT_NEAR(after[i].Range(), before[i].Range(), 0.005 + 1e-6);
        ASSERT_EQ(after[i].intensity, before[i].intensity);
    }
}

TEST(RecodeScan, AnglesStoredAsFloatsStayAsTheyAre) {
    const TempFolder folder;
    OneScan scan;
    scan.vertical = {0.1F, 0.2F, 1.5707964F, 1.5707965F, 3.1415927F, 3.1415925F};
    scan.Write(folder / "a.qsn");
    const ImportOptions options = OptionsOf(folder / "a.qsn");
    EXPECT_EQ(options.verticalScale, 1);
    const ImportReport report = RecodeScan(folder / "a.qsn", folder / "b.qsn", options);
    EXPECT_FALSE(report.losses.AnyLost() || report.losses.AnyConverted());
    const kxio::QSNScanReader before((folder / "a.qsn").wstring()), after((folder / "b.qsn").wstring());
    for (const auto component : {kxbase::Range, kxbase::VerticalAngle, kxbase::HorizontalAngle}) {
        std::vector<unsigned char> one(24), other(24);
        kxio::ScanAccess(before).ReadRectBytes(component, {0, 0, 3, 2}, 4, one);
        kxio::ScanAccess(after).ReadRectBytes(component, {0, 0, 3, 2}, 4, other);
        EXPECT_EQ(one, other) << kxbase::ComponentToString(component);
    }
    // Coarse on purpose is another matter.
    ImportScan(*SourceOf(PtxText(MakeSweep({}), 12, 9)), 0, folder / "c.qsn");
    EXPECT_THROW(RecodeScan(folder / "c.qsn", folder / "d.qsn", options), kxbase::KXBadInputException);
}

TEST(RecodeScan, AFileWithHashesBecomesOneWithHashes) {
    const TempFolder folder;
    Imported(folder, SomeDescription(), SomeCells());
    const auto hasHashes = [&](const char* name) {
        return kxio::QSNScanReader((folder / name).wstring()).HasIntegrity();
    };
    RecodeScan(folder / "a.qsn", folder / "b.qsn", OptionsOf(folder / "a.qsn"));
    EXPECT_FALSE(hasHashes("b.qsn"));
    kxio::ProtectFile((folder / "a.qsn").wstring());
    RecodeScan(folder / "a.qsn", folder / "c.qsn", OptionsOf(folder / "a.qsn"));
    EXPECT_TRUE(hasHashes("c.qsn"));
}

TEST(RecodeScan, WhatCannotBeReadLeavesNothingBehind) {
    const TempFolder folder;
    WriteFile(folder / "a.qsn", "no scan");
    EXPECT_THROW(OptionsOf(folder / "a.qsn"), kxbase::KXException);
    EXPECT_THROW(RecodeScan(folder / "a.qsn", folder / "b.qsn", {}), kxbase::KXException);
    EXPECT_EQ(Entries(folder), std::vector<std::string>{"a.qsn"});
}

TEST(PercentText, EveryByteComesBackAndNoneIsABlank) {
    std::string all;
    for (int c = 0; c < 256; ++c)
        all += static_cast<char>(c);
    const std::string encoded = PercentEncode(all);
    EXPECT_EQ(encoded.find(' '), std::string::npos);
    EXPECT_EQ(encoded.find('='), std::string::npos);
    EXPECT_EQ(PercentDecode(encoded), all);
    EXPECT_EQ(PercentDecode("100%"), "100%");
    EXPECT_EQ(PercentDecode("%zz%4"), "%zz%4");
    EXPECT_EQ(PercentDecode("%41%c3%b6"), "A\xc3\xb6");
}

TEST(PendingFile, ATargetWhoseNameIsAsLongAsNamesMayBeIsWritten) {
    const TempFolder folder;
    // 255 bytes; the cut falls into the middle of a character.
    std::u8string name;
    while (name.size() < 251)
        name += u8"\u4e03";
    name = name.substr(0, 249) + u8"aa.xyz";
    ASSERT_EQ(name.size(), 255U);
    MemoryScan source(SomeDescription(), SomeCells());
    const std::filesystem::path path = folder.Path() / std::filesystem::path(name);
    ScanFileExport file(path, *FindSinkFormat("XYZ"));
    file.Add(source, 0);
    file.Commit();
    EXPECT_TRUE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace kxexchange::testing
