// SPDX-License-Identifier: MIT
#include "kxio/QSNFileRecovery.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <limits>
#include <memory>
#include <random>
#include <span>

#include "AsciiRecovery.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"
#include "kxbase/Points.h"
#include "kxcodecs/ZLibChunkCodec.h"

namespace {

using kxbase::ComponentType;
using kxio::QSNFileRecovery;
using namespace recovery_test;

// --- What is found -------------------------------------------------------------------------------------

TEST(QSNFileRecovery, FindsEveryChunkWithItsAddress) {
    FileBytes file;
    const uint64_t first = file.AddChunk(0, 0, kR, RangeChunk(0, 0));
    const uint64_t second = file.AddChunk(3, 5, kI, IntensityChunk(1));
    EXPECT_EQ(first, 92U);
    const auto recovery = RecoveryOf(file.Get());
    const QSNFileRecovery::PatchMap expected = {
        {0, {{0, {{kR, {static_cast<uint32_t>(RangeChunk(0, 0).size()), first}}}}}},
        {3, {{5, {{kI, {static_cast<uint32_t>(IntensityChunk(1).size()), second}}}}}}};
    EXPECT_EQ(recovery->GetPatchMap(), expected);
    EXPECT_EQ(recovery->GetLargestPatchRow(), 3U);
    EXPECT_EQ(recovery->GetLargestPatchColumn(), 5U);
    EXPECT_EQ(recovery->GetPatchSide(), kSide);
}

TEST(QSNFileRecovery, LaterRecordOfAPatchReplacesTheEarlierOne) {
    FileBytes file;
    file.AddChunk(0, 0, kR, RangeChunk(0, 0));
    const uint64_t later = file.AddChunk(0, 0, kR, RangeChunk(9, 9));
    EXPECT_EQ(RecoveryOf(file.Get())->GetPatchMap().at(0).at(0).at(kR).position, later);
}

TEST(QSNFileRecovery, FileWithoutAnyHeaderStillYieldsItsChunks) {
    FileBytes file = GridFile(3, 3);
    kxio::ScanHeader scan;
    const uint64_t scanAt = file.AddRecord(scan);
    Bytes bytes = file.Get();
    std::fill(bytes.begin(), bytes.begin() + 92, 0);
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(scanAt), bytes.end(), 0);
    const auto recovery = RecoveryOf(bytes);
    kxio::ScanProperties properties;
    EXPECT_FALSE(recovery->TryToFindScanProperties(properties));
    EXPECT_EQ(ExportOf(bytes).lines.size(), 16U);
}

TEST(QSNFileRecovery, FileThatCannotBeOpenedCountsAsEmpty) {
    const TemporaryFolder folder;
    for (const std::wstring& path : {folder / "missing.qsn", folder / ""}) {
        QSNFileRecovery recovery(path);
        EXPECT_TRUE(recovery.GetPatchMap().empty());
        EXPECT_EQ(recovery.GetPatchSide(), 0U);
        const CapturedOutput output;
        recovery.ExportAscii(folder / "points.txt");
        EXPECT_EQ(ReadText(folder / "points.txt"), "");
        EXPECT_EQ(output.Text(), "");
    }
}

TEST(QSNFileRecovery, SharedEmptyChunksBelongToNoPatch) {
    FileBytes file = GridFile(3, 3);
    file.AddChunk(0xffffffff, 0xffffffff, kR, RangeChunk(0, 0));
    file.AddChunk(0xffffffff, 1, kR, RangeChunk(0, 0));
    file.AddChunk(1, 0xffffffff, kR, RangeChunk(0, 0));
    const auto recovery = RecoveryOf(file.Get());
    EXPECT_EQ(recovery->GetLargestPatchRow(), 2U);
    EXPECT_EQ(recovery->GetLargestPatchColumn(), 2U);
    EXPECT_EQ(ExportOf(file.Get()).lines.size(), 16U);
}

TEST(QSNFileRecovery, RecordsOfARefusedVersionAreNotFound) {
    FileBytes file;
    const uint64_t at = file.AddChunk(0, 0, kI, IntensityChunk(1));
    file.AddChunk(0, 1, kI, IntensityChunk(1));
    Bytes bytes = file.Get();
    bytes[at + 8] = 199;
    const auto recovery = RecoveryOf(bytes);
    ASSERT_EQ(recovery->GetPatchMap().at(0).size(), 1U);
    EXPECT_TRUE(recovery->GetPatchMap().at(0).contains(1));
}

TEST(QSNFileRecovery, SearchGoesOnBehindANewerRecordsWholePayload) {
    // A version-300 record of 64 payload bytes, 48 more than are understood; these hold a record that is
    // no record of the file, and the chunk data behind them holds one that is found.
    FileBytes inner;
    inner.AddChunk(7, 7, kI, {});
    const Bytes innerRecord(inner.Get().begin() + 92, inner.Get().end());
    ASSERT_EQ(innerRecord.size(), 32U);
    Bytes record(80, 0);
    kxbase::ByteWriter out(record);
    out.U64(0x982157cf2cfe1ec6ULL);
    out.U32(300);
    out.U32(64);
    out.U32(32);  // data size
    out.U32(5);
    out.U32(1);
    out.U32(2);
    out.Bytes(innerRecord);
    FileBytes file;
    file.AddBytes(record);
    Bytes second = innerRecord;
    second[24] = 6;  // patch (6, 7)
    file.AddBytes(second);
    const auto recovery = RecoveryOf(file.Get());
    ASSERT_EQ(recovery->GetPatchMap().size(), 2U);
    EXPECT_EQ(recovery->GetPatchMap().at(1).at(2).at(kI), (QSNFileRecovery::ChunkAddress{32, 92}));
    EXPECT_EQ(recovery->GetPatchMap().at(6).at(7).at(kI).position, 92U + 80);
}

// The map that a read at every byte gives.
QSNFileRecovery::PatchMap PlainSearch(const Bytes& bytes) {
    QSNFileRecovery::PatchMap map;
    kxbase::InMemoryStream stream(bytes);
    for (uint64_t position = 0; position < bytes.size();) {
        stream.Seek(position);
        kxio::DataChunkHeader record;
        uint64_t read = 0;
        try {
            read = record.Read(&stream);
        } catch (const kxbase::KXHeaderReadingException&) {
        }
        if (read == 0) {
            ++position;
            continue;
        }
        if (!record.IsSharedEmpty()) {
            map[record.patchRow][record.patchColumn][record.component] = {record.byteCount, position};
        }
        position += record.HeaderSize();
    }
    return map;
}

TEST(QSNFileRecovery, SearchFindsWhatAReadAtEveryByteFinds) {
    for (uint32_t seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        Bytes bytes(200 + random() % 800);
        for (unsigned char& byte : bytes)
            byte = static_cast<unsigned char>(random() % 4);
        for (int i = 0; i < 12; ++i) {  // records that fit, that overlap, that are cut or refused
            const uint64_t at = random() % (bytes.size() - 20);
            kxbase::ByteWriter out(std::span<unsigned char>(bytes).subspan(at));
            out.U64(0x982157cf2cfe1ec6ULL);
            out.U32(random() % 4 == 0 ? 150 : 200);
            out.U32(random() % 3 == 0 ? static_cast<uint32_t>(random() % 400) : 16);
        }
        // No range chunks here: what they would decode to is another matter.
        kxbase::InMemoryStream look(bytes);
        const auto expected = PlainSearch(bytes);
        bool ranges = false;
        for (const auto& [row, columns] : expected) {
            for (const auto& [column, components] : columns)
                ranges = ranges || components.contains(kR);
        }
        if (ranges) continue;
        EXPECT_EQ(RecoveryOf(bytes)->GetPatchMap(), expected);
    }
}

// --- Patch size ----------------------------------------------------------------------------------------

TEST(QSNFileRecovery, PatchSideIsTheWidthOfTheFirstRangeChunkOfTheMap) {
    FileBytes file;
    file.AddChunk(1, 0, kR, Encode<float>(std::vector<float>(15), 5, 3));
    file.AddChunk(0, 9, kR, Encode<float>(std::vector<float>(21), 7, 3));
    file.AddChunk(0, 2, kI, IntensityChunk(1));
    EXPECT_EQ(RecoveryOf(file.Get())->GetPatchSide(), 7U);
}

TEST(QSNFileRecovery, FirstRangeChunkThatDoesNotDecodeIsAnError) {
    const Bytes good = RangeChunk(0, 0);
    Bytes unknown = good;
    unknown[0] ^= 0xff;
    Bytes damaged = good;
    damaged[24] ^= 1;  // uncompressed size
    for (const Bytes& chunk :
         {Bytes{}, Bytes(27, 0), unknown, damaged, Bytes(good.begin(), good.begin() + 28)}) {
        FileBytes file;
        file.AddChunk(0, 0, kR, chunk);
        ExpectFailure<kxbase::KXUnreadablePatchException>("Patch cannot be decoded",
                                                          [&] { RecoveryOf(file.Get()); });
    }
    FileBytes cut;
    cut.AddChunk(0, 0, kR, good);
    Bytes bytes = cut.Get();
    bytes.pop_back();
    ExpectFailure<kxbase::KXUnreadablePatchException>("Patch cannot be decoded", [&] { RecoveryOf(bytes); });
}

TEST(QSNFileRecovery, WithoutRangeChunksNothingIsExportedButTheReportIsPrinted) {
    FileBytes file;
    file.AddChunk(2, 2, kI, IntensityChunk(1));
    file.AddChunk(0, 0, kI, IntensityChunk(1));
    const auto recovery = RecoveryOf(file.Get());
    EXPECT_EQ(recovery->GetPatchSide(), 0U);
    const Export e = ExportOf(file.Get());
    EXPECT_TRUE(e.lines.empty());
    EXPECT_EQ(e.Printed("Missing row: 1"), 4);
    EXPECT_EQ(e.Printed("Beep Col size: 1"), 4);
    EXPECT_EQ(e.Printed("2/2"), 1);
}

// --- Scan properties -----------------------------------------------------------------------------------

kxio::ScanHeader HeaderOfModel(const std::wstring& model) {
    kxio::ScanHeader header;
    header.properties.scannerModel = model;
    header.properties.grid.columns = 40;
    return header;
}

TEST(QSNFileRecovery, PropertiesOfTheOnlyScanHeaderAreFound) {
    FileBytes file;
    file.AddChunk(0, 0, kI, IntensityChunk(1));
    file.AddBytes(Bytes(13, 0x5a));  // at no particular alignment
    kxio::ScanHeader header = HeaderOfModel(L"Ostrak RM7");
    file.AddRecord(header);
    kxio::ScanProperties properties;
    EXPECT_TRUE(RecoveryOf(file.Get())->TryToFindScanProperties(properties));
    EXPECT_EQ(properties.scannerModel, L"Ostrak RM7");
    EXPECT_EQ(properties.grid.columns, 40U);
}

TEST(QSNFileRecovery, NoneOrTwoScanHeadersLeavePropertiesAlone) {
    kxio::ScanProperties properties;
    properties.scannerModel = L"mine";
    const kxio::ScanProperties before = properties;
    FileBytes file;
    EXPECT_FALSE(RecoveryOf(file.Get())->TryToFindScanProperties(properties));
    kxio::ScanHeader first = HeaderOfModel(L"first");
    kxio::ScanHeader second = HeaderOfModel(L"second");
    file.AddRecord(first);
    file.AddChunk(0, 0, kI, IntensityChunk(1));
    file.AddRecord(second);
    EXPECT_FALSE(RecoveryOf(file.Get())->TryToFindScanProperties(properties));
    EXPECT_EQ(properties, before);
}

TEST(QSNFileRecovery, RefusedAndCutScanHeadersAreNotCounted) {
    FileBytes file;
    kxio::ScanHeader old = HeaderOfModel(L"old");
    const uint64_t oldAt = file.AddRecord(old);
    kxio::ScanHeader good = HeaderOfModel(L"good");
    file.AddRecord(good);
    kxio::ScanHeader cut = HeaderOfModel(L"cut");
    file.AddRecord(cut);
    Bytes bytes = file.Get();
    bytes[oldAt + 8] = 199;
    bytes[oldAt + 9] = 0;
    bytes.pop_back();
    kxio::ScanProperties properties;
    EXPECT_TRUE(RecoveryOf(bytes)->TryToFindScanProperties(properties));
    EXPECT_EQ(properties.scannerModel, L"good");
}

// Frames that nest: each claims all the bytes behind it and none is a scan header. Read naively this takes
// the square of the file's size.
TEST(QSNFileRecovery, NestedFramesOfScanHeadersAreSearchedInBoundedTime) {
    Bytes bytes(8 << 20, 0x01);
    for (uint64_t at = 0; at + 16 <= bytes.size(); at += 16) {
        kxbase::ByteWriter out(std::span<unsigned char>(bytes).subspan(at, 16));
        out.U64(0x9cb282fc40c502d8ULL);
        out.U32(0x01010101);
        out.U32(static_cast<uint32_t>((bytes.size() - at - 16) | 0x01010101) & 0x007fffff);
    }
    kxio::ScanProperties properties;
    EXPECT_FALSE(RecoveryOf(bytes)->TryToFindScanProperties(properties));
}

}  // namespace
