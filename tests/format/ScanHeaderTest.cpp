// SPDX-License-Identifier: MIT
#include "kxio/ScanHeader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/RecordBytes.h"

namespace {

using kxio::ScanHeader;
using kxio::ScanProperties;
using kxtest::ByteList;
using kxtest::Bytes;

// Texts of a default record: two dates that are none, model, three descriptions: six NULs.
constexpr uint32_t kEmptyTexts = 6;

// A payload of version 270 put together here; the texts can be chosen.
Bytes Payload270(const Bytes& texts, uint32_t patchHeight = 9, uint32_t dateStatus = 0) {
    ByteList list;
    list.F64(0.5).F64(0.25).F64(1.5).F64(2.5).U32(20).U32(30).U32(8).U64(600);
    for (int i = 0; i < 12; ++i)
        list.F64(i);
    list.U8(0).F32(0.0F).U8(0).U8(1).U32(0).U32(1).U32(2).U32(2).F64(0).F64(0).U32(dateStatus);
    return list.Raw(texts).U32(11).U32(12).U32(13).U32(patchHeight);
}

TEST(ScanProperties, Defaults) {
    const ScanProperties p;
    EXPECT_EQ(p.componentValue, (std::array<double, 3>{0.1, 1e-06, 1e-06}));
    EXPECT_EQ(p.grid, kxbase::GridTopology());
    EXPECT_EQ(p.grid.previewWidth, 0U);
    EXPECT_EQ(p.registration, kxbase::RegistrationInformation());
    EXPECT_EQ(p.validPointCount, 0U);
    EXPECT_FALSE(p.speckleCorrectionNeeded);
    EXPECT_EQ(p.spatialSamplingDistance, 0.0F);
    EXPECT_FALSE(p.locked3D);
    EXPECT_TRUE(p.projectionMode);
    EXPECT_EQ(p.framingMode, 0U);
    EXPECT_EQ(p.furtherWords, (std::array<uint32_t, 2>{0x3f800000U, 0U}));
    EXPECT_EQ(p.words260, (std::array<uint32_t, 3>{1U, 0U, 0U}));
    EXPECT_EQ(p.tilt.kind, 2U);
    EXPECT_EQ(p.tilt.angles.first, 0.0);
    EXPECT_EQ(p.tilt.angles.second, 0.0);
    EXPECT_EQ(p.dateStatus, 1U);
    EXPECT_FALSE(p.firstDate.IsSet());
    EXPECT_FALSE(p.secondDate.IsSet());
    EXPECT_TRUE(p.scannerModel.empty());
    EXPECT_TRUE(p.scanUUID.IsZero());
    EXPECT_TRUE(p.parentUUID.IsZero());
}

TEST(ScanHeader, PayloadSizeOfEachVersion) {
    const ScanHeader header;
    EXPECT_EQ(header.DataSize(200), 44U);
    EXPECT_EQ(header.DataSize(210), 148U);
    EXPECT_EQ(header.DataSize(220), 149U);
    EXPECT_EQ(header.DataSize(230), 153U);
    EXPECT_EQ(header.DataSize(240), 154U);
    EXPECT_EQ(header.DataSize(250), 191U + kEmptyTexts);
    EXPECT_EQ(header.DataSize(260), 203U + kEmptyTexts);
    EXPECT_EQ(header.DataSize(270), 207U + kEmptyTexts);
    EXPECT_EQ(header.DataSize(275), 207U + kEmptyTexts);
    EXPECT_EQ(header.HeaderSize(), 16U + 207U + kEmptyTexts);
}

TEST(ScanHeader, PayloadSizeFollowsTheVersionThatTheRecordHolds) {
    ScanHeader header;
    kxtest::ReadFrom(header, kxtest::GoldenHex("records/scan-200.hex"));
    EXPECT_EQ(header.DataSize(200), 44U);
    EXPECT_EQ(header.DataSize(210), 52U);
    EXPECT_EQ(header.DataSize(270), 111U + kEmptyTexts);
    EXPECT_EQ(kxtest::Written(header).size(), 16U + 207U + kEmptyTexts);
    EXPECT_EQ(header.DataSize(270), 207U + kEmptyTexts);
    EXPECT_EQ(header.GetVersion(), 270U);
}

TEST(ScanHeader, EmptyTextsTakeOneByteEach) {
    ScanHeader header;
    const Bytes bytes = kxtest::Written(header);
    ASSERT_EQ(bytes.size(), 16U + 213U);
    EXPECT_EQ(Bytes(bytes.begin() + 16 + 191, bytes.begin() + 16 + 197), Bytes(6, 0));
}

TEST(ScanHeader, DefaultRecordReadsBackWithoutDates) {
    ScanHeader header;
    const Bytes bytes = kxtest::Written(header);
    ScanHeader read;
    read.properties.dateStatus = 77;
    EXPECT_EQ(kxtest::ReadFrom(read, bytes), bytes.size());
    EXPECT_EQ(read.properties, ScanProperties());
    EXPECT_EQ(read.properties.dateStatus, 1U);
}

TEST(ScanHeader, NegativeStepsAreStoredAsPositiveOnes) {
    ScanHeader header;
    header.properties.grid.columnAngularStep = -0.25F;
    header.properties.grid.rowAngularStep = -0.5F;
    header.properties.grid.columnStartAngle = -1.0F;
    header.properties.grid.rowStartAngle = -2.0F;
    const Bytes bytes = kxtest::Written(header);
    const Bytes expected = ByteList().F64(0.5).F64(0.25).F64(-2.0).F64(-1.0);
    EXPECT_EQ(Bytes(bytes.begin() + 16, bytes.begin() + 48), expected);
    EXPECT_EQ(header.properties.grid.columnAngularStep, -0.25F) << "writing leaves the memory alone";
    ScanHeader read;
    kxtest::ReadFrom(read, bytes);
    EXPECT_EQ(read.properties.grid.columnAngularStep, 0.25F);
    EXPECT_EQ(read.properties.grid.rowAngularStep, 0.5F);
    EXPECT_EQ(read.properties.grid.columnStartAngle, -1.0F);
    EXPECT_EQ(read.properties.grid.rowStartAngle, -2.0F);
}

TEST(ScanHeader, ForeignNegativeStepIsReadAsItIs) {
    Bytes payload = Payload270(Bytes(6, 0));
    const Bytes step = ByteList().F64(-0.5);
    std::copy(step.begin(), step.end(), payload.begin());
    ScanHeader header;
    EXPECT_NE(kxtest::ReadFrom(header, kxtest::Record(kxtest::kScanRecord, payload)), 0U);
    EXPECT_EQ(header.properties.grid.rowAngularStep, -0.5F);
    EXPECT_EQ(header.properties.grid.rowHalfStep, -0.25F);
}

TEST(ScanHeader, PreviewIsSizedWithFactorTwoAfterReading) {
    ScanHeader header;
    header.properties.grid.columns = 10000;
    header.properties.grid.rows = 5000;
    header.properties.grid.columnAngularStep = 0.001F;
    header.properties.grid.rowAngularStep = 0.002F;
    const Bytes bytes = kxtest::Written(header);
    ScanHeader read;
    kxtest::ReadFrom(read, bytes);
    const kxbase::GridTopology& grid = read.properties.grid;
    EXPECT_EQ(grid.previewWidth, 2000U);
    EXPECT_EQ(grid.previewHeight, 1000U);
    EXPECT_EQ(grid.columnRatio, 5.0F);
    EXPECT_EQ(grid.rowRatio, 5.0F);
    EXPECT_EQ(grid.columnHalfStep, 0.001F / 2);
    EXPECT_EQ(grid.rowHalfStep, 0.002F / 2);
}

TEST(ScanHeader, FlagsAreTrueWhenNotZeroAndWrittenAsOne) {
    Bytes payload = Payload270(Bytes(6, 0));
    payload[148] = 7;
    payload[153] = 255;
    payload[154] = 2;
    ScanHeader header;
    kxtest::ReadFrom(header, kxtest::Record(kxtest::kScanRecord, payload));
    EXPECT_TRUE(header.properties.speckleCorrectionNeeded);
    EXPECT_TRUE(header.properties.locked3D);
    EXPECT_TRUE(header.properties.projectionMode);
    const Bytes bytes = kxtest::Written(header);
    EXPECT_EQ(bytes[16 + 148], 1);
    EXPECT_EQ(bytes[16 + 153], 1);
    EXPECT_EQ(bytes[16 + 154], 1);
}

TEST(ScanHeader, OneBadDateLeavesTheOtherAndSetsTheStatus) {
    const Bytes texts =
        ByteList().Text("2024-02-29T12:34:56Z").Text("x").Text("m").Text("a").Text("b").Text("c");
    ScanHeader header;
    ASSERT_NE(kxtest::ReadFrom(header, kxtest::Record(kxtest::kScanRecord, Payload270(texts))), 0U);
    EXPECT_EQ(header.properties.firstDate, kxbase::Date(L"2024-02-29T12:34:56Z"));
    EXPECT_FALSE(header.properties.secondDate.IsSet());
    EXPECT_EQ(header.properties.dateStatus, 1U);
    EXPECT_EQ(header.properties.scannerModel, L"m");
    EXPECT_EQ(header.properties.words260, (std::array<uint32_t, 3>{11, 12, 13}));
    EXPECT_EQ(header.properties.grid.patchHeight, 9U);
}

TEST(ScanHeader, FirstDateBadSecondGood) {
    const Bytes texts = ByteList().Text("2024-13-01").Text("2024-03-01T00:00:00Z").Fill(4, 0);
    ScanHeader header;
    ASSERT_NE(kxtest::ReadFrom(header, kxtest::Record(kxtest::kScanRecord, Payload270(texts))), 0U);
    EXPECT_FALSE(header.properties.firstDate.IsSet());
    EXPECT_EQ(header.properties.secondDate, kxbase::Date(L"2024-03-01T00:00:00Z"));
    EXPECT_EQ(header.properties.dateStatus, 1U);
}

TEST(ScanHeader, StoredStatusStaysWhenBothDatesAreGood) {
    const Bytes texts = ByteList().Text("2024-02-29T12:34:56Z").Text("2024-03-01T00:00:00Z").Fill(4, 0);
    for (const uint32_t status : {0U, 1U, 5U}) {
        ScanHeader header;
        kxtest::ReadFrom(header, kxtest::Record(kxtest::kScanRecord, Payload270(texts, 9, status)));
        EXPECT_EQ(header.properties.dateStatus, status);
        EXPECT_TRUE(header.properties.firstDate.IsSet());
    }
}

TEST(ScanHeader, TextWithANulIsWrittenUpToIt) {
    ScanHeader header;
    header.properties.scannerModel = std::wstring(L"AB\0C", 4);
    header.properties.words260 = {21, 22, 23};
    header.properties.grid.patchHeight = 24;
    const Bytes bytes = kxtest::Written(header);
    EXPECT_EQ(bytes.size(), 16U + 207U + kEmptyTexts + 2U);
    ScanHeader read;
    ASSERT_EQ(kxtest::ReadFrom(read, bytes), bytes.size());
    EXPECT_EQ(read.properties.scannerModel, L"AB");
    EXPECT_EQ(read.properties.words260, (std::array<uint32_t, 3>{21, 22, 23}));
    EXPECT_EQ(read.properties.grid.patchHeight, 24U);
}

TEST(ScanHeader, TextWithoutItsNulMakesTheRecordInvalid) {
    Bytes payload = Payload270(ByteList().Fill(5, 0).Text(""));
    payload.resize(191);
    const Bytes tail = ByteList().Fill(5, 0).Fill(40, 'x');
    payload.insert(payload.end(), tail.begin(), tail.end());
    ScanHeader header;
    EXPECT_EQ(kxtest::ReadFrom(header, kxtest::Record(kxtest::kScanRecord, payload)), 0U);
    EXPECT_FALSE(header.IsValid());
    EXPECT_EQ(header.GetReadProblem().record, "ScanHeader");
    EXPECT_EQ(header.GetReadProblem().field, "description");
    EXPECT_EQ(header.GetReadProblem().offset, 16U + 191U + 5U);
    EXPECT_EQ(header.properties, ScanProperties());
}

TEST(ScanHeader, BadUtf8BecomesReplacementCharacters) {
    const Bytes texts = ByteList().Fill(2, 0).U8('a').U8(0xff).U8('b').Fill(4, 0);
    ScanHeader header;
    ASSERT_NE(kxtest::ReadFrom(header, kxtest::Record(kxtest::kScanRecord, Payload270(texts))), 0U);
    EXPECT_EQ(header.properties.scannerModel,
              L"a\xfffd"
              L"b");
}

TEST(ScanHeader, CharactersAboveTheBasicPlaneSurvive) {
    ScanHeader header;
    header.properties.descriptions = {L"\U0001F4F7", L"\u6f22\u5b57", L"plain"};
    const Bytes bytes = kxtest::Written(header);
    ScanHeader read;
    kxtest::ReadFrom(read, bytes);
    EXPECT_EQ(read.properties.descriptions, header.properties.descriptions);
}

TEST(ScanHeader, ReadingReplacesEverythingThatWasThere) {
    ScanHeader header;
    kxtest::ReadFrom(header, kxtest::GoldenHex("records/scan-270.hex"));
    ASSERT_EQ(header.properties.scannerModel, L"Ostrak RM7");
    header.properties.messages.push_back(L"old");
    kxtest::ReadFrom(header, kxtest::GoldenHex("records/scan-200.hex"));
    EXPECT_TRUE(header.properties.scannerModel.empty());
    EXPECT_EQ(header.properties.validPointCount, 0U);
    EXPECT_EQ(header.properties.dateStatus, 1U);
    EXPECT_TRUE(header.properties.projectionMode);
    EXPECT_TRUE(header.properties.messages.empty());
}

TEST(ScanHeader, RegistrationLiesAtItsFixedPlace) {
    ScanHeader header;
    const double values[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 10, 20, 30};
    header.properties.registration = kxbase::RegistrationInformation::FromValues(values);
    const Bytes bytes = kxtest::Written(header);
    const Bytes translation = ByteList().F64(10).F64(20).F64(30);
    EXPECT_EQ(Bytes(bytes.begin() + 68 + 72, bytes.begin() + 68 + 96), translation);
    EXPECT_EQ(16 + ScanHeader::RegistrationOffset, 68U);
    EXPECT_EQ(ScanHeader::RegistrationSize, 96U);
}

TEST(ScanHeader, SpeckleOffsetIsKnownWhereTheRecordHasTheByte) {
    EXPECT_EQ(ScanHeader().GetSpeckleOffset(), 148U);
    const std::pair<const char*, uint32_t> cases[] = {{"200", 0},   {"205", 0},   {"210", 0},   {"215", 0},
                                                      {"220", 148}, {"230", 148}, {"240", 148}, {"250", 148},
                                                      {"260", 148}, {"270", 148}, {"275", 148}};
    for (const auto& [version, offset] : cases) {
        ScanHeader header;
        kxtest::ReadFrom(header, kxtest::GoldenHex(std::string("records/scan-") + version + ".hex"));
        EXPECT_EQ(header.GetSpeckleOffset(), offset) << version;
        kxtest::Written(header);
        EXPECT_EQ(header.GetSpeckleOffset(), 148U) << version << " written anew";
    }
}

TEST(ScanHeader, AnglesAreNarrowedToFloatsAndWrittenBackAsSuch) {
    Bytes payload = Payload270(Bytes(6, 0));
    const Bytes angles = ByteList().F64(0.0005).F64(0.1).F64(-0.3).F64(6.3);
    std::copy(angles.begin(), angles.end(), payload.begin());
    ScanHeader header;
    kxtest::ReadFrom(header, kxtest::Record(kxtest::kScanRecord, payload));
    EXPECT_EQ(header.properties.grid.rowAngularStep, 0.0005F);
    EXPECT_EQ(header.properties.grid.columnAngularStep, 0.1F);
    EXPECT_EQ(header.properties.grid.rowStartAngle, -0.3F);
    EXPECT_EQ(header.properties.grid.columnStartAngle, 6.3F);
    const Bytes bytes = kxtest::Written(header);
    const auto asDouble = [](float value) { return static_cast<double>(value); };
    const Bytes expected =
        ByteList().F64(asDouble(0.0005F)).F64(asDouble(0.1F)).F64(asDouble(-0.3F)).F64(asDouble(6.3F));
    EXPECT_EQ(Bytes(bytes.begin() + 16, bytes.begin() + 48), expected);
}

TEST(ScanHeader, AnglesBeyondTheFloatsBecomeInfinite) {
    Bytes payload = Payload270(Bytes(6, 0));
    const Bytes angles = ByteList().F64(1e300).F64(-1e300).F64(std::nan("")).F64(1e-320);
    std::copy(angles.begin(), angles.end(), payload.begin());
    ScanHeader header;
    ASSERT_NE(kxtest::ReadFrom(header, kxtest::Record(kxtest::kScanRecord, payload)), 0U);
    EXPECT_EQ(header.properties.grid.rowAngularStep, std::numeric_limits<float>::infinity());
    EXPECT_EQ(header.properties.grid.columnAngularStep, -std::numeric_limits<float>::infinity());
    EXPECT_TRUE(std::isnan(header.properties.grid.rowStartAngle));
    EXPECT_EQ(header.properties.grid.columnStartAngle, 0.0F);
}

}  // namespace
