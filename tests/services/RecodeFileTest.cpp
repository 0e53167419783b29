// SPDX-License-Identifier: MIT
#include "kxio/RecodeFile.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "RecoveryScan.h"
#include "kxcodecs/GridChunkCodec.h"
#include "kxcodecs/JPEGChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxcodecs/ZstdChunkCodec.h"
#include "kxio/DiffScans.h"
#include "kxio/ProtectFile.h"
#include "kxio/QSNInfo.h"
#include "kxio/QSNScanReader.h"
#include "kxio/VerifyScan.h"
#include "support/StoredFile.h"
#include "support/TempFolder.h"
#include "support/Thrown.h"
#include "support/TinyScan.h"

namespace {

using kxbase::ComponentType;
using kxcodecs::ChunkHeaderInfo;
using kxcodecs::QKXChunkCodec;
using kxtest::Bytes;
using kxtest::GetMainField;
using kxtest::MainField;

kxio::RecodeOptions To(const QKXChunkCodec& codec) {
    kxio::RecodeOptions options;
    options.codec = [&codec](ComponentType, const ChunkHeaderInfo&) { return &codec; };
    return options;
}

class RecodeFile : public testing::Test {
protected:
    void Store(const Bytes& file) { kxtest::StoreFile(Path("in.qsn"), file); }
    Bytes Load(const char* name) const { return kxtest::LoadFile(folder / name); }
    std::wstring Path(const char* name) const { return Wide(folder / name); }
    kxio::RecodeReport Recode(const kxio::RecodeOptions& options) const {
        return kxio::RecodeFile(Path("in.qsn"), Path("out.qsn"), options);
    }
    kxio::DiffReport Diff() const {
        const kxio::QSNScanReader first(Path("in.qsn"));
        const kxio::QSNScanReader second(Path("out.qsn"));
        return kxio::DiffScans(first, second);
    }
    bool NothingLeftBehind() const {
        size_t files = 0;
        for ([[maybe_unused]] const auto& file : std::filesystem::directory_iterator(folder.Path()))
            ++files;
        return files == 1;
    }

    const TempFolder folder;
};

TEST_F(RecodeFile, EveryByteBehindTheChunksStaysButForPositions) {
    const Bytes before = kxtest::TinyScan().Build();
    Store(before);
    const auto report = Recode(To(kxcodecs::ZLibChunkCodec()));
    const Bytes after = Load("out.qsn");
    EXPECT_EQ(report.bytesBefore, before.size());
    EXPECT_EQ(report.bytesAfter, after.size());
    ASSERT_NE(before.size(), after.size());
    EXPECT_TRUE(Diff().Equal());

    // What lies behind the chunks has moved as one block.
    const uint64_t tail = GetMainField(before, MainField::ScanHeader);
    const uint64_t moved = GetMainField(after, MainField::ScanHeader);
    ASSERT_EQ(before.size() - tail, after.size() - moved);
    const uint64_t shift = moved - tail;  // modulo 2^64
    for (size_t field = 0; field < MainField::WriterRevision; field += 8) {
        const uint64_t was = GetMainField(before, field);
        EXPECT_EQ(GetMainField(after, field), was <= 92 ? was : was + shift) << field;
    }
    const auto inside = [&](size_t at, size_t field, size_t bytes) {
        const uint64_t begin = GetMainField(before, field);
        return at >= begin && at < begin + bytes;
    };
    // 2 components of 4 patches; one preview; a component record with its codec.
    for (size_t i = tail; i < before.size(); ++i) {
        if (inside(i, MainField::LookupTable, 20 + 2 * (8 + 4 * 12))) continue;
        if (inside(i, MainField::PreviewLookupTable, 20 + 8 + 12)) continue;
        if (inside(i, MainField::FirstComponentHeader, 16 + 12)) continue;
        ASSERT_EQ(after[i + shift], before[i]) << "byte " << i;
    }
    // The component record tells the new codec and keeps its value.
    const uint64_t record = GetMainField(after, MainField::FirstComponentHeader);
    EXPECT_EQ(kxtest::GetU64(after, record + 20), kxcodecs::ZLibChunkCodec::kIdentifier);
    EXPECT_EQ(kxio::VerifyScan(Path("out.qsn")).errors, kxio::VerifyScan(Path("in.qsn")).errors);
}

TEST_F(RecodeFile, ChunksKeepTheirStepTheirNumbersAndTheirRecords) {
    Store(kxtest::TinyScan().Build());
    const auto report = Recode(To(kxcodecs::GridChunkCodec(kxcodecs::GridChunkCodec::Mode::Balanced)));
    ASSERT_EQ(report.components.size(), 2U);
    EXPECT_EQ(report.components[0].component, ComponentType::Range);
    EXPECT_EQ(report.components[0].recoded, 3U);  // two patches and the chunk of the empty ones
    EXPECT_EQ(report.components[1].recoded, 2U);
    EXPECT_EQ(report.components[0].kept + report.components[1].kept, 0U);
    const Bytes after = Load("out.qsn");
    // The first chunk begins behind the main header and its record.
    ChunkHeaderInfo header;
    Bytes values;
    const uint32_t stored = static_cast<uint32_t>(kxtest::GetU64(after, 92 + 16) & 0xffffffff);
    ASSERT_EQ(QKXChunkCodec::DecodeChunk(std::span(after).subspan(92 + 32, stored), header, values),
              kxcodecs::DecodeStatus::Decoded);
    EXPECT_EQ(header.codecId, kxcodecs::GridChunkCodec::kIdentifier);
    EXPECT_EQ(header.step, 10.0F);
    EXPECT_EQ(header.width, 4U);
    EXPECT_EQ(values[0], 10);                       // the range 1.0
    EXPECT_EQ(kxtest::GetU64(after, 92 + 24), 0U);  // row and column
    EXPECT_TRUE(Diff().Equal());
}

TEST_F(RecodeFile, ThereAndBackIsTheFileThatItWas) {
    kxio::RecodeOptions first, back;
    const kxcodecs::ZstdChunkCodec zstd;
    const kxcodecs::SnappyChunkCodec snappy;
    const kxcodecs::ZLibChunkCodec zlib;
    first.codec = [&](ComponentType, const ChunkHeaderInfo&) { return &zstd; };
    back.codec = [&](ComponentType component, const ChunkHeaderInfo&) -> const QKXChunkCodec* {
        return component == ComponentType::Range ? static_cast<const QKXChunkCodec*>(&snappy) : &zlib;
    };
    const Bytes before = kxtest::TinyScan().Build();
    Store(before);
    Recode(first);
    kxio::RecodeFile(Path("out.qsn"), Path("back.qsn"), back);
    EXPECT_TRUE(Load("back.qsn") == before);
}

TEST_F(RecodeFile, TheFileDoesNotDependOnThreads) {
    Store(kxtest::TinyScan().Build());
    const kxcodecs::ZstdChunkCodec zstd;
    kxio::RecodeOptions options = To(zstd);
    Recode(options);
    const Bytes one = Load("out.qsn");
    options.threads = 5;
    Recode(options);
    EXPECT_TRUE(Load("out.qsn") == one);
}

TEST_F(RecodeFile, ManyChunksComeOutTheSameWhileTheyAreReadCodedAndWrittenAtOnce) {
    recovery_test::SampleScan scan;  // 128 chunks: eight batches of two threads
    Store(scan.Write());
    const kxcodecs::ZstdChunkCodec zstd;
    kxio::RecodeOptions options = To(zstd);
    const auto report = Recode(options);
    uint64_t recoded = 0;
    for (const auto& component : report.components)
        recoded += component.recoded;
    EXPECT_GT(recoded, 100U);
    const Bytes one = Load("out.qsn");
    EXPECT_TRUE(Diff().Equal());
    for (const unsigned threads : {2U, 3U}) {
        options.threads = threads;
        Recode(options);
        EXPECT_TRUE(Load("out.qsn") == one) << threads;
    }
}

TEST_F(RecodeFile, ADamagedChunkAmongManyEndsIt) {
    Bytes bytes = recovery_test::SampleScan().Write();
    {
        Store(bytes);
        const kxio::QSNScanReader reader(Path("in.qsn"));
        const auto entries = kxio::ScanAccess(reader).PatchEntries(ComponentType::HorizontalAngle);
        const auto& entry = entries[entries.size() / 2 + 1];
        ASSERT_NE(entry.byteCount, 0U);
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(entry.position) + 30, 8, 0xff);
    }
    Store(bytes);
    const kxcodecs::ZstdChunkCodec zstd;
    kxio::RecodeOptions options = To(zstd);
    for (const unsigned threads : {1U, 3U}) {
        options.threads = threads;
        EXPECT_EQ(kxtest::ThrownBy<kxbase::KXUnreadablePatchException>([&] { Recode(options); }),
                  "Patch cannot be decoded");
        EXPECT_TRUE(NothingLeftBehind());
    }
}

TEST_F(RecodeFile, WithoutACodecTheFileIsACopy) {
    const Bytes before = kxtest::TinyScan().Build();
    Store(before);
    const auto report = Recode({});
    EXPECT_TRUE(Load("out.qsn") == before);
    EXPECT_EQ(report.components[0].recoded, 0U);
    EXPECT_EQ(report.components[0].kept, 3U);
}

TEST_F(RecodeFile, ChunksOfAnUnknownCodecAndBytesBetweenTheRecordsAreKept) {
    auto file = kxtest::TinyScan();
    const Bytes foreign = kxtest::ByteList()
                              .Raw(kxtest::ChunkHeader(0x1122334455667788ULL, 4, 3, 48, 1.0F, 48))
                              .Text("not ours");
    file.RawBytes(Bytes(37, 0xee)).Chunk(5, 0, 1, foreign);
    const Bytes before = file.Build();
    Store(before);
    const auto report = Recode(To(kxcodecs::ZLibChunkCodec()));
    EXPECT_EQ(report.components.back().kept, 1U);
    const Bytes after = Load("out.qsn");
    Bytes piece(37, 0xee);
    EXPECT_NE(std::search(after.begin(), after.end(), piece.begin(), piece.end()), after.end());
    EXPECT_NE(std::search(after.begin(), after.end(), foreign.begin(), foreign.end()), after.end());
}

TEST_F(RecodeFile, LinksBetweenExtendedRecordsLeadToTheSameRecords) {
    auto file = kxtest::TinyScan();
    Bytes bytes = file.Build();
    const uint64_t first = GetMainField(bytes, MainField::FirstExtendedHeader);
    const uint64_t second = first + 36 + 3;  // behind the message "hi"
    kxtest::PutU64(bytes, first + 16, second);
    Store(bytes);
    Recode(To(kxcodecs::ZLibChunkCodec()));
    const Bytes after = Load("out.qsn");
    const uint64_t moved = GetMainField(after, MainField::FirstExtendedHeader);
    ASSERT_NE(moved, first);
    EXPECT_EQ(kxtest::GetU64(after, moved + 16), moved + 36 + 3);
}

TEST_F(RecodeFile, HashesAreCheckedAndMadeAnew) {
    Store(kxtest::TinyScan().Build());
    ASSERT_TRUE(kxio::ProtectFile(Path("in.qsn")));
    const kxcodecs::ZstdChunkCodec zstd;
    const auto report = Recode(To(zstd));
    EXPECT_TRUE(report.hashesMadeAnew);
    EXPECT_EQ(report.bytesAfter, Load("out.qsn").size());
    const kxio::QSNScanReader reader(Path("out.qsn"));
    EXPECT_TRUE(reader.HasIntegrity());
    EXPECT_TRUE(reader.GetIntegrityProblems().empty());
    EXPECT_EQ(kxio::VerifyScan(Path("out.qsn")).errors, 0U);
    EXPECT_TRUE(Diff().Equal());

    // A record behind the hashes: they go, it stays.
    kxio::QSNInfo::AddMessage(Path("out.qsn"), L"later");
    kxio::RecodeFile(Path("out.qsn"), Path("again.qsn"), To(zstd));
    EXPECT_EQ(kxio::QSNInfo::GetMessages(Path("again.qsn")), (std::list<std::wstring>{L"hi", L"later"}));
    EXPECT_EQ(kxio::VerifyScan(Path("again.qsn")).errors, 0U);
}

TEST_F(RecodeFile, ADamagedByteUnderAHashIsNotCalledRight) {
    Store(kxtest::TinyScan().Build());
    ASSERT_TRUE(kxio::ProtectFile(Path("in.qsn")));
    const Bytes whole = Load("in.qsn");
    const uint64_t thumbnail = GetMainField(whole, MainField::Thumbnail);
    for (const uint64_t at : {uint64_t{92 + 32 + 40}, thumbnail + 60}) {
        Bytes damaged = whole;
        damaged[at] ^= 0x10;
        Store(damaged);
        EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                      [&] { static_cast<void>(Recode(To(kxcodecs::ZLibChunkCodec()))); }),
                  "File is damaged")
            << at;
        EXPECT_TRUE(NothingLeftBehind());
    }
}

TEST_F(RecodeFile, ACodecThatChangesValuesIsRefused) {
    kxtest::ScanFileBuilder file(8, 8, 8, 8);
    Bytes colors(8 * 8 * 3);
    for (size_t i = 0; i < colors.size(); ++i)
        colors[i] = static_cast<unsigned char>(i * 37);
    Bytes chunk;
    kxcodecs::ZLibChunkCodec().Encode(colors.data(), 8, 8, colors.size(), 1.0F, chunk);
    Store(file.Chunk(6, 0, 0, chunk).Build());
    try {
        Recode(To(kxcodecs::JPEGChunkCodec()));
        FAIL() << "it was accepted";
    } catch (const kxbase::KXBadInputException& e) {
        EXPECT_STREQ(e.what(), "Codec is not lossless");
    }
    EXPECT_TRUE(NothingLeftBehind());
}

TEST_F(RecodeFile, ACutFileOrADamagedChunkLeavesNothingBehind) {
    const Bytes whole = kxtest::TinyScan().Build();
    for (size_t size = 0; size < whole.size(); size += 7) {
        Store(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        try {
            Recode(To(kxcodecs::ZLibChunkCodec()));
        } catch (const kxbase::KXException&) {
            EXPECT_TRUE(NothingLeftBehind()) << size;
            continue;
        }
        // Only appended records may be missing without anyone being able to tell.
        EXPECT_GE(size, GetMainField(whole, MainField::FirstExtendedHeader)) << size;
        std::filesystem::remove(folder / "out.qsn");
    }
    Bytes damaged = whole;
    damaged[92 + 32 + 24] = 0xff;  // the unpacked size of the first chunk
    damaged[92 + 32 + 16] = 0xff;
    Store(damaged);
    const kxcodecs::ZstdChunkCodec zstd;
    try {
        Recode(To(zstd));
        // Sizes that do not fit each other: such a chunk is kept.
        const Bytes after = Load("out.qsn");
        EXPECT_TRUE(std::equal(damaged.begin() + 92, damaged.begin() + 92 + 32 + 28, after.begin() + 92));
        std::filesystem::remove(folder / "out.qsn");
    } catch (const kxbase::KXException& e) {
        ADD_FAILURE() << e.Describe();
    }
    damaged = whole;
    damaged[92 + 32 + 28] = 0x01;  // the block's own length
    Store(damaged);
    EXPECT_THROW(Recode(To(zstd)), kxbase::KXUnreadablePatchException);
    EXPECT_TRUE(NothingLeftBehind());
}

TEST_F(RecodeFile, TheInputIsNeverTheOutput) {
    const Bytes before = kxtest::TinyScan().Build();
    Store(before);
    EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                  [&] { static_cast<void>(kxio::RecodeFile(Path("in.qsn"), Path("in.qsn"), {})); }),
              "Output is the input");
    EXPECT_TRUE(Load("in.qsn") == before);
}

TEST_F(RecodeFile, AStopFromTheProgressLeavesNothingBehind) {
    Store(kxtest::TinyScan().Build());
    kxio::RecodeOptions options;
    uint64_t last = 0, calls = 0;
    options.progress = [&](uint64_t done, uint64_t total) {
        EXPECT_GE(done, last);
        EXPECT_LE(done, total);
        last = done;
        ++calls;
    };
    Recode(options);
    EXPECT_EQ(last, 2 * Load("in.qsn").size());
    std::filesystem::remove(folder / "out.qsn");
    options.progress = [&](uint64_t done, uint64_t total) {
        if (done > total / 2) throw std::runtime_error("enough");
    };
    EXPECT_THROW(Recode(options), std::runtime_error);
    EXPECT_TRUE(NothingLeftBehind());
    EXPECT_GT(calls, 3U);
}

}  // namespace
