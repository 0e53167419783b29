// SPDX-License-Identifier: MIT
// DiffScans, DumpRecords and MeasureScan.
#include <gtest/gtest.h>

#include <cmath>

#include "InspectedScan.h"
#include "RecoveryScan.h"
#include "kxio/ScanStatistics.h"
#include "services/ValueCounts.h"
#include "support/TinyScan.h"

namespace {

using namespace kxio;
using kxtest::Bytes;
using kxtest::Diff;
using kxtest::Dump;
using kxtest::MemoryScan;

Bytes Scan(uint32_t patchWidth, uint32_t patchHeight, float add = 0) {
    kxtest::ScanFileBuilder file(10, 7, patchWidth, patchHeight);
    kxtest::AddLayer<float>(file, 1, [&](uint32_t r, uint32_t c) { return kxtest::RangeAt(r, c) + add; });
    kxtest::AddLayer<kxio::Rgb8>(file, 6, kxtest::ColorAt);
    file.Preview(1, kxtest::SnappyChunk(std::vector<float>{1}, 1, 1));
    return file.Build();
}

TEST(DiffScans, OtherPatchSizesAreStorageOnly) {
    const DiffReport report = Diff(Scan(4, 3), Scan(10, 7));
    EXPECT_TRUE(report.Equal());
    ASSERT_EQ(report.properties.size(), 2U);  // width and height
    EXPECT_TRUE(report.properties[0].storage && report.properties[1].storage);
    for (const ComponentDifference& component : report.components) {
        EXPECT_EQ(component.cells, 70U);
        EXPECT_EQ(component.different, 0U);
        EXPECT_EQ(component.largest, 0.0);
    }
}

TEST(DiffScans, TheFirstDifferentCellIsInTheScanWithTheLargerPatches) {
    DiffOptions options;
    options.threads = 3;
    const DiffReport report = Diff(Scan(4, 3), Scan(10, 7, 0.25F), options);
    EXPECT_FALSE(report.CellsEqual());
    const ComponentDifference& range = report.components.at(0);
    EXPECT_EQ(range.different, 70U);
    EXPECT_EQ(range.firstCell, (std::pair<uint32_t, uint32_t>(0, 0)));
    EXPECT_EQ(range.largest, 0.25);
    EXPECT_EQ(report.components.at(1).different, 0U);
    options.tolerance[kxbase::Range] = 0.25;
    EXPECT_TRUE(Diff(Scan(4, 3), Scan(10, 7, 0.25F), options).CellsEqual());
}

TEST(DiffScans, EachPropertyIsToldByName) {
    const auto with = [](auto change) {
        kxtest::ScanFileBuilder file = kxtest::SmallScan();
        change(file);
        return file.Build();
    };
    const Bytes plain = with([](auto&) {});
    const auto names = [&](const Bytes& other) {
        std::string all;
        for (const PropertyDifference& property : Diff(plain, other).properties)
            all += property.name + " ";
        return all;
    };
    EXPECT_EQ(names(plain), "");
    EXPECT_EQ(names(with([](auto& file) { file.properties.scannerModel = L"other"; })), "scan.model ");
    EXPECT_EQ(names(with([](auto& file) { file.properties.validPointCount = 9; })), "scan.validPoints ");
    EXPECT_EQ(names(with([](auto& file) { file.properties.locked3D = true; })), "flags.locked3D ");
    EXPECT_EQ(names(with([](auto& file) { file.properties.tilt.angles.second = 1e-300; })),
              "tilt.secondRadians ");
    EXPECT_EQ(names(with([](auto& file) { file.Message("more"); })), "messages ");
}

TEST(DiffScans, GridsOfOtherSizesAndMissingComponentsAreNotCompared) {
    kxtest::ScanFileBuilder file(3, 2, 3, 2);
    kxtest::AddLayer<uint8_t>(file, 4, kxtest::LuminanceAt);
    file.Preview(4, kxtest::SnappyChunk(std::vector<uint8_t>{1}, 1, 1));
    const DiffReport report = Diff(Scan(4, 3), file.Build());
    EXPECT_FALSE(report.sameSize);
    ASSERT_EQ(report.components.size(), 3U);
    EXPECT_TRUE(report.components[0].inFirst && !report.components[0].inSecond);
    EXPECT_TRUE(!report.components[1].inFirst && report.components[1].inSecond);
    EXPECT_EQ(report.components[1].cells, 0U);
    EXPECT_FALSE(report.CellsEqual());
}

TEST(DiffScans, NoNumberEqualsNoNumberAndNothingElse) {
    const auto scan = [](float value) {
        kxtest::ScanFileBuilder file(2, 1, 2, 1);
        file.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>{value, 5}, 2, 1));
        file.Preview(1, kxtest::SnappyChunk(std::vector<float>{1}, 1, 1));
        return file.Build();
    };
    EXPECT_TRUE(Diff(scan(std::nanf("1")), scan(-std::nanf("2"))).CellsEqual());
    const DiffReport report = Diff(scan(std::nanf("1")), scan(7));
    EXPECT_EQ(report.components.at(0).different, 1U);
    EXPECT_TRUE(std::isinf(*report.components.at(0).largest));
}

TEST(DumpRecords, EveryByteOfEveryCutFileIsToldOnce) {
    const Bytes whole = kxtest::SmallScan().Build();
    for (size_t length = 0; length <= whole.size(); length += 3) {
        uint64_t end = 0;
        for (const DumpedRecord& record :
             Dump(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)))) {
            EXPECT_EQ(record.offset, end) << length;
            end += record.bytes;
        }
        EXPECT_EQ(end, length);
    }
}

TEST(DumpRecords, DamageIsMarkedAndTheRestIsTold) {
    const Bytes whole = kxtest::SmallScan().Build();
    const size_t records = Dump(whole).size();
    Bytes damaged = whole;
    damaged.at(92 + 32 + 28) =
        0xff;  // the first byte of what the codec made: a size that is not the header's
    const std::vector<DumpedRecord> found = Dump(damaged);
    EXPECT_EQ(found.size(), records);
    EXPECT_TRUE(found.at(1).damaged);
    EXPECT_NE(found.at(1).problem, "");
    for (size_t i = 2; i < found.size(); ++i)
        EXPECT_FALSE(found[i].damaged) << found[i].kind << " " << found[i].problem;
    DumpOptions quick;
    quick.decode = false;
    EXPECT_FALSE(Dump(damaged, quick).at(1).damaged);
}

TEST(DumpRecords, AChunkThatOnlyTheTableKnowsIsToldAsSuch) {
    kxtest::ScanFileBuilder file = kxtest::TinyScan();
    const Bytes chunk = kxtest::SnappyChunk(std::vector<uint16_t>(12, 7), 4, 3);
    const uint64_t place = kxtest::GetMainField(file.Build(), kxtest::MainField::ChunkDataEnd);
    file.RawBytes(chunk).Entry0(5, 1, place, static_cast<uint32_t>(chunk.size()));
    std::vector<DumpedRecord> found = Dump(file.Build());
    std::erase_if(found, [&](const DumpedRecord& record) { return record.offset != place; });
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].kind, "Chunk without a record");
    EXPECT_EQ(found[0].bytes, chunk.size());
    EXPECT_TRUE(found[0].damaged);
    EXPECT_EQ(found[0].problem, "the lookup table lists it, but no chunk record lies in front of it");
}

TEST(DumpRecords, FieldsLieWhereTheFileHasThem) {
    const Bytes whole = kxtest::SmallScan().Build();
    for (const DumpedRecord& record : Dump(whole)) {
        for (const DumpedField& field : record.fields) {
            EXPECT_GE(field.offset, record.offset) << record.kind << " " << field.name;
            EXPECT_LE(field.offset + field.bytes, record.offset + record.bytes)
                << record.kind << " " << field.name;
            if (field.type == "u64") {
                EXPECT_EQ(std::get<uint64_t>(field.value), kxtest::GetU64(whole, field.offset));
            }
        }
    }
}

TEST(MeasureScan, NumbersAreThoseOfAPlainCount) {
    const MemoryScan scan(Scan(4, 3));
    const std::vector<ComponentStatistics> all = MeasureScan(scan.reader);
    ASSERT_EQ(all.size(), 2U);
    double sum = 0;
    for (uint32_t r = 0; r < 7; ++r) {
        for (uint32_t c = 0; c < 10; ++c)
            sum += static_cast<double>(kxtest::RangeAt(r, c));
    }
    EXPECT_EQ(all[0].cells, 70U);
    EXPECT_EQ(all[0].channels.at(0).minimum, 1.0);
    EXPECT_EQ(all[0].channels.at(0).maximum, 6010.0);
    EXPECT_DOUBLE_EQ(all[0].channels.at(0).mean, sum / 70);
    EXPECT_EQ(all[0].noReturnShare, 0.0);
    EXPECT_DOUBLE_EQ(all[0].entropyBits, std::log2(70.0));  // all different
    EXPECT_EQ(all[0].distinctValues, 70U);
    EXPECT_EQ(all[1].channels.size(), 3U);
    EXPECT_EQ(all[1].channels.at(2).mean, 200.0);
    EXPECT_EQ(all[1].noReturnShare, std::nullopt);
}

TEST(MeasureScan, APatchThatItsChunkCannotStandForIsNotRead) {
    // Twelve patches of 640 MiB by the word of the scan header, with a chunk of twelve values in each.
    kxtest::ScanFileBuilder file(12U * 167798132U - 5, 1, 167798132U, 1);
    for (uint32_t column = 0; column < 12; ++column)
        file.Chunk(1, 0, column, kxtest::SnappyChunk(std::vector<float>(12, 1.0F), 12, 1));
    const MemoryScan scan(file.Build());
    const std::vector<ComponentStatistics> all = MeasureScan(scan.reader);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].cells, 0U);
    EXPECT_EQ(all[0].notRead, 12U * 167798132ULL - 5);
    EXPECT_NE(all[0].problem.find("expansionRatio"), std::string::npos) << all[0].problem;
    const DiffReport diff = DiffScans(scan.reader, scan.reader);
    EXPECT_EQ(diff.components.at(0).cells, 0U);
    EXPECT_NE(diff.components.at(0).problem.find("expansionRatio"), std::string::npos);
}

TEST(MeasureScan, MoreValuesThanFitAreCountedInSeveralPasses) {
    const uint32_t side = 64;
    kxtest::ScanFileBuilder file(side, side, 16, 16);
    kxtest::AddLayer<float>(
        file, 1, [](uint32_t r, uint32_t c) { return static_cast<float>((r * side + c) / 2 + 1); });
    file.Preview(1, kxtest::SnappyChunk(std::vector<float>{1}, 1, 1));
    const MemoryScan scan(file.Build());
    StatisticsOptions few;
    few.mostDistinct = 1024;  // of 2048
    few.threads = 2;
    const ComponentStatistics some = MeasureScan(scan.reader, few).at(0);
    const ComponentStatistics all = MeasureScan(scan.reader).at(0);
    EXPECT_EQ(some.distinctValues, 2048U);
    EXPECT_EQ(all.distinctValues, 2048U);
    EXPECT_NEAR(some.entropyBits, 11, 1e-9);
    EXPECT_NEAR(all.entropyBits, 11, 1e-9);
}

TEST(ValueCounts, ZeroIsAKeyLikeAnyOther) {
    ValueCounts counts(5000);
    counts.Begin(0, 1);
    for (uint64_t key = 0; key < 4000; ++key) {
        EXPECT_TRUE(counts.Add(key));
        EXPECT_TRUE(counts.Add(0));
    }
    EXPECT_EQ(counts.Distinct(), 4000U);
    EXPECT_DOUBLE_EQ(counts.SumOfCountLogs(), 4001 * std::log2(4001.0));
}

}  // namespace
