// SPDX-License-Identifier: MIT
// Damaged and hostile files: whatever the bytes are, opening and reading end in values or in a KXException,
// in bounded memory.
#include <gtest/gtest.h>

#include "SampleScans.h"
#include "support/AllocationWatch.h"
#include "support/ReadEverything.h"
#include "support/TinyScan.h"

namespace {

using namespace kxtest;
using kxbase::Range;

constexpr size_t kMegabyte = size_t{1} << 20;

using Outcome = kxtest::ReadOutcome;

Outcome ReadEverything(const Bytes& bytes) {
    kxbase::InMemoryStream stream(bytes);
    return kxtest::ReadEverything(stream);
}

TEST(Damage, UndamagedFileReadsWhole) {
    const Outcome outcome = ReadEverything(TinyScan().Build());
    EXPECT_TRUE(outcome.opened);
    // Two patches of component 5 are absent; it has no preview; component 1 has no histogram.
    EXPECT_EQ(outcome.failures, 2 * 2 + 1 + 1);
    EXPECT_EQ(outcome.read, 4 * 2 + 2 * 2 + 2 + 1 + 2 + 1 + 3);
    EXPECT_TRUE(outcome.consistent);
}

TEST(Damage, FileCutAtEveryLength) {
    const Bytes whole = TinyScan().Build();
    // The limits follow the last table that opening needs; extended and component records may be missing.
    const uint64_t needed = GetMainField(whole, MainField::BoundingInformation);
    for (size_t length = 0; length < whole.size(); ++length) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        const kxtest::AllocationWatch watch;
        ASSERT_EQ(ReadEverything(cut).opened, length >= needed) << "cut at " << length;
        ASSERT_LT(watch.Largest(), 8 * kMegabyte) << "cut at " << length;
    }
}

class DamagedBits : public testing::TestWithParam<int> {};

TEST_P(DamagedBits, InEveryByteEndInValuesOrAnException) {
    const Bytes whole = TinyScan().Build();
    const auto mask = static_cast<unsigned char>(GetParam());
    int opened = 0;
    for (size_t at = 0; at < whole.size(); ++at) {
        Bytes bytes = whole;
        bytes[at] ^= mask;
        const kxtest::AllocationWatch watch;
        const Outcome outcome = ReadEverything(bytes);
        opened += outcome.opened ? 1 : 0;
        ASSERT_TRUE(outcome.consistent) << "byte " << at;
        ASSERT_LT(watch.Largest(), 8 * kMegabyte) << "byte " << at;
    }
    EXPECT_GT(opened, 0);
    EXPECT_LT(opened, static_cast<int>(whole.size()));
}
INSTANTIATE_TEST_SUITE_P(Masks, DamagedBits, testing::Values(1, 2, 4, 8, 16, 32, 64, 128, 255));

// Gives nothing, or half of what was asked, from the n-th read on or only then.
class FailingStream final : public kxbase::IInFileStream {
public:
    FailingStream(const Bytes& bytes, int failing, bool once, bool half)
        : m_in(bytes), m_failing(failing), m_once(once), m_half(half) {}
    bool IsOpen() const override { return true; }
    bool Seek(uint64_t position) override { return m_in.Seek(position); }
    bool SeekForward(uint64_t bytes) override { return m_in.SeekForward(bytes); }
    bool SeekBackward(uint64_t bytes) override { return m_in.SeekBackward(bytes); }
    bool SeekEnd(uint64_t offset) override { return m_in.SeekEnd(offset); }
    uint64_t Tell() const override { return m_in.Tell(); }
    uint64_t Read(void* out, uint64_t bytes) override {
        const int number = m_reads++;
        if (m_once ? number == m_failing : number >= m_failing) return m_half ? m_in.Read(out, bytes / 2) : 0;
        return m_in.Read(out, bytes);
    }
    uint64_t GetLastReadCount() const override { return m_in.GetLastReadCount(); }
    uint64_t GetSize() const override { return m_in.GetSize(); }
    bool HasDataLeft() const override { return m_in.HasDataLeft(); }
    void Close() override {}
    int Reads() const { return m_reads; }

private:
    kxbase::InMemoryStream m_in;
    int m_failing;
    bool m_once;
    bool m_half;
    int m_reads = 0;
};

TEST(Damage, EveryReadMayFail) {
    const Bytes whole = TinyScan().Build();
    const Outcome good = ReadEverything(whole);
    for (const bool once : {true, false}) {
        for (const bool half : {true, false}) {
            int number = 0;
            for (int reads = 1; number < reads; ++number) {
                FailingStream stream(whole, number, once, half);
                const Outcome outcome = kxtest::ReadEverything(stream);
                reads = stream.Reads();
                ASSERT_TRUE(!outcome.opened || outcome.read <= good.read) << "read " << number;
            }
            EXPECT_GT(number, 20) << "the loop went through the reads";
        }
    }
}

// Sizes and counts of 0xffffffff: the documented failure, and no memory on their word.

struct HostileField {
    const char* name;
    size_t record;  // main header field with the record's position; npos: the main header itself
    size_t offset;  // from the record's start
    const char* failure;
};
void PrintTo(const HostileField& field, std::ostream* out) {
    *out << field.name;
}
constexpr size_t kMainRecordItself = ~size_t{0};

class HostileSize : public testing::TestWithParam<HostileField> {};

TEST_P(HostileSize, FailsAsDocumentedWithoutTakingMemory) {
    const Bytes whole = TinyScan().Build();
    ReadEverything(whole);  // what the OpenMP runtime takes once is not counted below
    const size_t start = GetParam().record == kMainRecordItself
                             ? 0
                             : static_cast<size_t>(GetMainField(whole, GetParam().record));
    for (const uint32_t value : {0xffffffffU, 0x7fffffffU, 0x10000000U}) {
        Bytes bytes = whole;
        PutU32(bytes, start + GetParam().offset, value);
        const kxtest::AllocationWatch watch;
        EXPECT_EQ(OpenFailure(bytes), GetParam().failure);
        ReadEverything(bytes);
        EXPECT_LT(watch.Largest(), kMegabyte);
    }
}
INSTANTIATE_TEST_SUITE_P(
    Fields, HostileSize,
    testing::Values(HostileField{"main header size", kMainRecordItself, 12,
                                 "KXHeaderReadingException: Invalid main header"},
                    HostileField{"scan header size", MainField::ScanHeader, 12,
                                 "KXHeaderReadingException: Invalid scan headers"},
                    HostileField{"lookup table size", MainField::LookupTable, 12,
                                 "KXIncompleteFileException: Lookup table not found"},
                    HostileField{"component count", MainField::LookupTable, 16,
                                 "KXIncompleteFileException: Lookup table not found"},
                    HostileField{"entry count", MainField::LookupTable, 24,
                                 "KXIncompleteFileException: Lookup table not found"},
                    HostileField{"preview table size", MainField::PreviewLookupTable, 12,
                                 "KXIncompleteFileException: No preview found"},
                    HostileField{"preview entry count", MainField::PreviewLookupTable, 24,
                                 "KXIncompleteFileException: No preview found"},
                    HostileField{"preview chunk size", MainField::PreviewLookupTable, 36,
                                 "KXUnreadablePatchException: Cannot read file"},
                    HostileField{"first chunk size", MainField::LookupTable, 36,
                                 "KXUnreadablePatchException: Cannot read file"},
                    HostileField{"component record size", MainField::FirstComponentHeader, 12, "nothing"},
                    HostileField{"extended record size", MainField::FirstExtendedHeader, 12, "nothing"},
                    HostileField{"extended data length", MainField::FirstExtendedHeader, 32, "nothing"},
                    HostileField{"thumbnail record size", MainField::Thumbnail, 12, "nothing"},
                    HostileField{"JPEG length", MainField::Thumbnail, 24, "nothing"},
                    HostileField{"limits record size", MainField::BoundingInformation, 12, "nothing"},
                    HostileField{"pair count", MainField::BoundingInformation, 24, "nothing"}),
    [](const testing::TestParamInfo<HostileField>& field) {
        std::string name = field.param.name;
        std::replace(name.begin(), name.end(), ' ', '_');
        return name;
    });

TEST(HostileGrid, AnySidesOpenOrFailWithoutTakingMemory) {
    for (const uint32_t columns : {0U, 1U, 5U, 0xffffffffU}) {
        for (const uint32_t rows : {0U, 4U, 0xffffffffU}) {
            for (const uint32_t width : {0U, 1U, 4U, 0xffffffffU}) {
                for (const uint32_t height : {0U, 1U, 0xffffffffU}) {
                    ScanFileBuilder hostile = TinyScan();
                    kxbase::GridTopology& grid = hostile.properties.grid;
                    grid.columns = columns;
                    grid.rows = rows;
                    grid.patchWidth = width;
                    grid.patchHeight = height;
                    const Bytes bytes = hostile.Build();
                    const kxtest::AllocationWatch watch;
                    ReadEverything(bytes);
                    EXPECT_LT(watch.Largest(), 2 * kMegabyte)
                        << columns << " x " << rows << ", " << width << " x " << height;
                }
            }
        }
    }
}

TEST(HostileChunk, SizesOfItsHeaderTakeNoMemory) {
    for (const uint64_t codec : {kSnappyCodec, kZLibCodec, uint64_t{0x00004745504a584bULL}}) {
        for (const uint32_t size : {0xffffffffU, 0x7fffffffU, 0x40000000U, 0x3fffffffU}) {
            ScanFileBuilder file(0x8000, 0x8000, 0x8000, 0x8000);
            file.Chunk(4, 0, 0,
                       ByteList().Raw(ChunkHeader(codec, size, 1, size, 1.0F, size)).Fill(100, 0xff));
            const Bytes bytes = file.Build();
            const kxtest::AllocationWatch watch;
            EXPECT_EQ(ReadEverything(bytes).opened, true);
            EXPECT_LT(watch.Largest(), kMegabyte) << codec << ", " << size;
        }
    }
}

TEST(HostileChunk, ByteCountOfAChunkRecordEndsTheWalk) {
    Bytes bytes = TinyScan().Build();
    SetMainField(bytes, MainField::LookupTable, 0);
    PutU32(bytes, 92 + 16, 0xffffffffU);
    kxbase::InMemoryStream stream(bytes);
    OpenReader reader;
    EXPECT_NE(Failure([&] { reader.Open(&stream); }), "nothing");
    const kxtest::AllocationWatch watch;
    reader.FailSafeInit();
    EXPECT_EQ(reader.GetAvailableComponents(), std::vector{Range});
    Bytes out;
    EXPECT_EQ(Failure([&] { reader.GetPatchCompressed(0, out, Range); }),
              "KXUnreadablePatchException: Cannot read file");
    EXPECT_LT(watch.Largest(), kMegabyte);
}

}  // namespace
