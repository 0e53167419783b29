// SPDX-License-Identifier: MIT
// Records written by hand, one for each version of the scan header.
#include <gtest/gtest.h>

#include "kxio/ScanHeader.h"
#include "support/RecordBytes.h"

namespace {

using kxio::ScanHeader;
using kxio::ScanProperties;
using kxtest::Bytes;

// What the golden records hold, as far as the layout of `layout` reaches.
ScanProperties Expected(uint32_t layout) {
    ScanProperties p;
    p.grid.rowAngularStep = 1.0F / 2048;
    p.grid.columnAngularStep = 1.0F / 4096;
    p.grid.rowStartAngle = 0.5F;
    p.grid.columnStartAngle = 3.25F;
    p.grid.rows = 5;
    p.grid.columns = 7;
    p.grid.patchWidth = 4;
    p.grid.patchHeight = layout >= 270 ? 2 : 4;
    // 7 x 5 cells are few enough to be shown one by one.
    p.grid.previewWidth = 7;
    p.grid.previewHeight = 5;
    p.grid.columnRatio = 1.0F;
    p.grid.rowRatio = 1.0F;
    p.grid.columnHalfStep = 1.0F / 8192;
    p.grid.rowHalfStep = 1.0F / 4096;
    if (layout >= 210) {
        p.validPointCount = 35;
        const double values[12] = {0, 1, 0, -1, 0, 0, 0, 0, 1, 1, 2, 3};
        p.registration = kxbase::RegistrationInformation::FromValues(values);
    }
    if (layout >= 230) {
        p.speckleCorrectionNeeded = true;
        p.spatialSamplingDistance = 0.25F;
    }
    if (layout >= 240) p.locked3D = true;
    if (layout >= 250) {
        p.projectionMode = false;
        p.framingMode = static_cast<ScanProperties::ScanFrameType>(7);
        p.furtherWords = {0x11223344U, 0x55667788U};
        p.tilt.kind = 3;
        p.tilt.angles.first = 0.125;
        p.tilt.angles.second = -0.25;
        p.dateStatus = 0;
        p.firstDate = kxbase::Date(L"2024-02-29T12:34:56Z");
        p.secondDate = kxbase::Date(L"2024-03-01T00:00:00Z");
        p.scannerModel = L"Ostrak RM7";
        p.descriptions = {L"Z\u00fcrich", L"", L"c"};
    }
    if (layout >= 260) p.words260 = {0x01020304U, 5U, 6U};
    return p;
}

Bytes Golden(uint32_t version) {
    return kxtest::GoldenHex("records/scan-" + std::to_string(version) + ".hex");
}

struct Case {
    uint32_t version;
    uint32_t layout;
    uint32_t payload;
};
void PrintTo(const Case& tested, std::ostream* out) {
    *out << "version " << tested.version;
}

class ScanHeaderVersions : public testing::TestWithParam<Case> {};

TEST_P(ScanHeaderVersions, GoldenRecordYieldsExactlyTheFieldsOfItsLayout) {
    const auto [version, layout, payload] = GetParam();
    ScanHeader header;
    EXPECT_EQ(kxtest::ReadFrom(header, Golden(version)), 16U + payload);
    EXPECT_TRUE(header.IsValid());
    EXPECT_EQ(header.GetVersion(), version);
    EXPECT_EQ(header.GetDataSize(), payload);
    EXPECT_EQ(header.HeaderSize(), 16U + payload);
    EXPECT_EQ(header.properties, Expected(layout));
}

TEST_P(ScanHeaderVersions, IsRewrittenAsVersion270WithTheSameContent) {
    ScanHeader header;
    kxtest::ReadFrom(header, Golden(GetParam().version));
    ScanHeader again;
    EXPECT_NE(kxtest::ReadFrom(again, kxtest::Written(header)), 0U);
    EXPECT_EQ(again.GetVersion(), 270U);
    EXPECT_EQ(again.properties, header.properties);
}

constexpr uint32_t kTexts = 21 + 21 + 11 + 8 + 1 + 2;
constexpr uint32_t k270 = 207 + kTexts;

INSTANTIATE_TEST_SUITE_P(All, ScanHeaderVersions,
                         testing::Values(Case{200, 200, 44}, Case{205, 270, k270}, Case{210, 210, 148},
                                         Case{215, 270, k270}, Case{220, 220, 149}, Case{230, 230, 153},
                                         Case{240, 240, 154}, Case{250, 250, 191 + kTexts},
                                         Case{260, 260, 203 + kTexts}, Case{270, 270, k270},
                                         Case{275, 270, k270 + 3}),
                         [](const auto& chosen) { return std::to_string(chosen.param.version); });

TEST(ScanHeader, Version270IsWrittenByteForByte) {
    ScanHeader header;
    header.properties = Expected(270);
    EXPECT_EQ(kxtest::ToHex(kxtest::Written(header)), kxtest::ToHex(Golden(270)));
}

TEST(ScanHeader, Version200HasSquarePatchesNoPointsAndTheDefaultRegistration) {
    ScanHeader header;
    kxtest::ReadFrom(header, Golden(200));
    EXPECT_EQ(header.properties.grid.patchHeight, header.properties.grid.patchWidth);
    EXPECT_EQ(header.properties.validPointCount, 0U);
    EXPECT_EQ(header.properties.registration, kxbase::RegistrationInformation());
}

TEST(ScanHeader, Version220KeepsTheDefaultSpeckleFlagWhateverIsStored) {
    const Bytes record = Golden(220);
    ASSERT_EQ(record[16 + 148], 1) << "the stored flag is set";
    ScanHeader header;
    kxtest::ReadFrom(header, record);
    EXPECT_FALSE(header.properties.speckleCorrectionNeeded);
}

TEST(ScanHeader, Version199IsRefusedAndNothingIsKept) {
    ScanHeader header;
    try {
        kxtest::ReadFrom(header, Golden(199));
        FAIL() << "not refused";
    } catch (const kxbase::KXHeaderReadingException& e) {
        EXPECT_STREQ(e.what(), "Unsupported ScanHeader version");
        EXPECT_EQ(e.Context().record, "ScanHeader");
    }
    EXPECT_FALSE(header.IsValid());
    EXPECT_EQ(header.properties, ScanProperties());
}

TEST(ScanHeader, UnlistedVersionsNeedTheWholeVersion270Layout) {
    for (const uint32_t version : {201U, 209U, 211U, 219U, 221U, 249U, 269U, 271U, 0xffffffffU}) {
        ScanHeader header;
        EXPECT_EQ(kxtest::ReadFrom(header, kxtest::WithVersion(Golden(260), version)), 0U) << version;
        EXPECT_NE(kxtest::ReadFrom(header, kxtest::WithVersion(Golden(270), version)), 0U) << version;
        EXPECT_EQ(header.properties, Expected(270)) << version;
    }
}

}  // namespace
