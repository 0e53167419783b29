// SPDX-License-Identifier: MIT
// Files that RecodeFile refuses because a copy would hide what is wrong with them, and odd ones that it
// takes.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "kxcodecs/ZLibChunkCodec.h"
#include "kxcodecs/ZstdChunkCodec.h"
#include "kxio/ProtectFile.h"
#include "kxio/QSNInfo.h"
#include "kxio/QSNScanReader.h"
#include "kxio/RecodeFile.h"
#include "kxio/ScanAccess.h"
#include "support/StoredFile.h"
#include "support/TempFolder.h"
#include "support/Thrown.h"
#include "support/TinyScan.h"

namespace {

using kxtest::Bytes;
using kxtest::GetMainField;
using kxtest::MainField;

class RecodeDamage : public testing::Test {
protected:
    std::wstring Path(const char* name) const { return Wide(folder / name); }
    Bytes Recoded(const Bytes& file) const {
        kxtest::StoreFile(Path("in.qsn"), file);
        const kxcodecs::ZstdChunkCodec zstd;
        kxio::RecodeOptions options;
        options.codec = [&](kxbase::ComponentType, const kxcodecs::ChunkHeaderInfo&) { return &zstd; };
        kxio::RecodeFile(Path("in.qsn"), Path("out.qsn"), options);
        return kxtest::LoadFile(folder / "out.qsn");
    }
    /// Refused as damaged; what is said of it, and no new file.
    kxbase::ErrorContext Refused(const Bytes& file) const {
        const auto context =
            kxtest::ContextOf<kxbase::KXBadInputException>("File is damaged", [&] { Recoded(file); });
        EXPECT_EQ(context.file, (folder / "in.qsn").string());
        EXPECT_FALSE(std::filesystem::exists(folder / "out.qsn"));
        return context;
    }
    static uint64_t FirstEntry(const Bytes& file) {
        return GetMainField(file, MainField::LookupTable) + 16 + 12;
    }

    const TempFolder folder;
    const Bytes whole = kxtest::TinyScan().Build();
};

TEST_F(RecodeDamage, AnEntryBeyondTheEndOfTheFileIsNamed) {
    const uint64_t entry = FirstEntry(whole) + 3 * 12;  // opening looks at the first one itself
    for (const bool farPosition : {true, false}) {
        Bytes damaged = whole;
        if (farPosition)
            kxtest::PutU64(damaged, entry, damaged.size() + 1);
        else
            kxtest::PutU32(damaged, entry + 8, static_cast<uint32_t>(damaged.size()));
        const auto context = Refused(damaged);
        EXPECT_EQ(context.detail, "the lookup table names a chunk beyond the end of the file");
        EXPECT_EQ(context.offset, kxtest::GetU64(damaged, entry));
    }
}

TEST_F(RecodeDamage, AChunkWhoseRecordIsGoneIsNamed) {
    Bytes damaged = whole;
    damaged[92 + 3] ^= 0x40;  // the tag of the first chunk's record
    const auto context = Refused(damaged);
    EXPECT_EQ(context.detail, "the record of a chunk cannot be read");
    EXPECT_EQ(context.offset, 92U);
}

TEST_F(RecodeDamage, AFileThatEndsInsideAChunkIsNamed) {
    // A chunk of 100 bytes that somebody began to append.
    const Bytes record =
        kxtest::Record(kxtest::kChunkRecord, kxtest::ByteList().U32(100).U32(1).U32(0).U32(1));
    const auto context = Refused(kxtest::ByteList().Raw(whole).Raw(record).Fill(40, 7));
    EXPECT_EQ(context.detail, "the file ends inside a piece");
    EXPECT_EQ(context.offset, whole.size());
}

TEST_F(RecodeDamage, PositionsInTheMainHeaderMustLeadToWhatIsCopied) {
    Bytes damaged = whole;
    kxtest::SetMainField(damaged, MainField::Thumbnail, damaged.size() + 5);
    EXPECT_EQ(Refused(damaged).detail, "a position leads out of the file");
    damaged = whole;
    kxtest::SetMainField(damaged, MainField::Thumbnail, 92 + 32 + 10);
    EXPECT_EQ(Refused(damaged).detail, "a position leads into a chunk");
}

TEST_F(RecodeDamage, PositionsThatAreAbsentOrTheEndOfTheFileStaySo) {
    Bytes odd = whole;
    kxtest::SetMainField(odd, MainField::Thumbnail, 0);
    kxtest::SetMainField(odd, MainField::ChunkDataEnd, odd.size());
    const Bytes made = Recoded(odd);
    EXPECT_EQ(GetMainField(made, MainField::Thumbnail), 0U);
    EXPECT_EQ(GetMainField(made, MainField::ChunkDataEnd), made.size());
}

TEST_F(RecodeDamage, AScanWithoutComponentRecordsPreviewsOrTailIsRecoded) {
    kxtest::ScanFileBuilder file(4, 4, 4, 4);
    std::vector<float> values(16, 2.5F);
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(values, 4, 4));
    const Bytes made = Recoded(file.Build());
    for (const size_t field : {MainField::FirstComponentHeader, MainField::FirstExtendedHeader,
                               MainField::PreviewLookupTable, MainField::Thumbnail})
        EXPECT_EQ(GetMainField(made, field), 0U);
    const kxio::QSNScanReader reader(Path("out.qsn"));
    std::vector<float> read(16);
    kxio::ScanAccess(reader).ReadRect(kxbase::Range, {0, 0, 4, 4}, std::span<float>(read));
    EXPECT_EQ(read, values);
}

TEST_F(RecodeDamage, EntriesWithoutBytesStayAbsent) {
    Bytes odd = whole;
    kxtest::PutU32(odd, FirstEntry(odd) + 8, 0);  // a position and no bytes
    const uint64_t position = kxtest::GetU64(odd, FirstEntry(odd));
    const Bytes made = Recoded(odd);
    EXPECT_EQ(kxtest::GetU64(made, FirstEntry(made)), position);
    EXPECT_EQ(kxtest::GetU64(made, FirstEntry(made) + 8) & 0xffffffffU, 0U);
    // Its chunk is no longer anybody's, and is copied as it is.
    EXPECT_TRUE(std::equal(whole.begin() + 92, whole.begin() + 92 + 60, made.begin() + 92));
}

TEST_F(RecodeDamage, HashesOfAFileWhoseTailWasReplacedAreAskedFirst) {
    kxtest::StoreFile(Path("in.qsn"), whole);
    ASSERT_TRUE(kxio::ProtectFile(Path("in.qsn")));
    Bytes damaged = kxtest::LoadFile(folder / "in.qsn");
    const uint64_t message = GetMainField(damaged, MainField::FirstExtendedHeader);
    damaged[message + 36] ^= 1;  // "hi" becomes "ii"
    const auto context = Refused(damaged);
    EXPECT_EQ(context.detail, "the bytes do not match their hash");
    EXPECT_EQ(context.offset, message);
}

TEST_F(RecodeDamage, ChunksWithoutElementsOrOfOtherSizesAreKeptAsTheyAre) {
    kxtest::ScanFileBuilder file(4, 4, 4, 4);
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>(16, 2.5F), 4, 4));
    Bytes odd = kxtest::SnappyChunk(std::vector<float>(16, 2.5F), 4, 4);
    kxtest::PutU32(odd, 8, 0);  // no columns
    file.Chunk(2, 0, 0, odd);
    odd = kxtest::SnappyChunk(std::vector<float>(16, 2.5F), 4, 4);
    kxtest::PutU32(odd, 16, 32);  // half the bytes
    file.Chunk(3, 0, 0, odd);
    kxtest::StoreFile(Path("in.qsn"), file.Build());
    const kxcodecs::ZLibChunkCodec zlib;
    kxio::RecodeOptions options;
    options.codec = [&](kxbase::ComponentType, const kxcodecs::ChunkHeaderInfo&) { return &zlib; };
    const kxio::RecodeReport report = kxio::RecodeFile(Path("in.qsn"), Path("out.qsn"), options);
    ASSERT_EQ(report.components.size(), 3U);
    EXPECT_EQ(report.components[0].recoded, 1U);
    for (const size_t i : {size_t{1}, size_t{2}}) {
        EXPECT_EQ(report.components[i].kept, 1U);
        EXPECT_EQ(report.components[i].bytesAfter, report.components[i].bytesBefore);
    }
}

}  // namespace
