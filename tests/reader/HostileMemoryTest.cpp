// SPDX-License-Identifier: MIT
// What opening takes of memory is bounded by the size of the file, whatever the file says of itself.
#include <gtest/gtest.h>

#include "SampleScans.h"
#include "kxio/IntegrityExtendedHeader.h"
#include "kxio/WarningExtendedHeader.h"
#include "support/AllocationWatch.h"
#include "support/TinyScan.h"

namespace {

using namespace kxtest;

constexpr size_t kMebibyte = size_t{1} << 20;

// The most memory in use while the file is opened and everything is asked for that is known without cells.
// Opening may fail.
size_t PeakOfOpening(const Bytes& bytes, bool* opened = nullptr) {
    // A stream that does not copy: the bytes are those of the file.
    class Borrowed final : public kxbase::IInFileStream {
    public:
        explicit Borrowed(const Bytes& bytes) : m_bytes(bytes) {}
        bool IsOpen() const override { return true; }
        bool Seek(uint64_t position) override { return m_position = position, position <= INT64_MAX; }
        bool SeekForward(uint64_t count) override { return Seek(m_position + count); }
        bool SeekBackward(uint64_t count) override { return Seek(m_position - count); }
        bool SeekEnd(uint64_t offset) override { return Seek(m_bytes.size() - offset); }
        uint64_t Tell() const override { return m_position; }
        uint64_t Read(void* out, uint64_t count) override {
            const uint64_t left = m_position < m_bytes.size() ? m_bytes.size() - m_position : 0;
            m_last = std::min(count, left);
            if (m_last != 0) std::memcpy(out, m_bytes.data() + m_position, m_last);
            m_position += m_last;
            return m_last;
        }
        uint64_t GetLastReadCount() const override { return m_last; }
        uint64_t GetSize() const override { return m_bytes.size(); }
        bool HasDataLeft() const override { return m_position < m_bytes.size(); }
        void Close() override {}
        std::wstring GetName() const override { return {}; }

    private:
        const Bytes& m_bytes;
        uint64_t m_position = 0;
        uint64_t m_last = 0;
    };
    Borrowed stream(bytes);
    const AllocationWatch watch;
    try {
        const kxio::QSNScanReader reader(&stream);
        if (opened != nullptr) *opened = true;
        reader.GetAvailableComponents();
        reader.GetAvailableHistograms();
        reader.HasRegistrationBeenModified();
    } catch (const kxbase::KXException&) {
        if (opened != nullptr) *opened = false;
    }
    return watch.Peak();
}

size_t Allowed(const Bytes& bytes) {
    return 8 * kMebibyte + 2 * bytes.size();
}

TEST(MemoryOfOpening, EveryFieldBlownUp) {
    Bytes whole = TinyScan().Build();
    // Hashes too, of some piece.
    kxio::IntegrityExtendedHeader hashes({{0, 92, 1}}, {{92, 16, 2}}, whole.size());
    const Bytes record = Written(hashes);
    whole.insert(whole.end(), record.begin(), record.end());
    size_t cases = 0;
    for (size_t at = 0; at + 4 <= whole.size(); ++at) {
        for (const uint32_t value : {0xFFFFFFFFU, 0x7FFFFFFFU, 0x00FFFFFFU, 0x00010000U}) {
            Bytes bytes = whole;
            PutU32(bytes, at, value);
            ASSERT_LE(PeakOfOpening(bytes), Allowed(bytes)) << "byte " << at << ", value " << value;
            ++cases;
        }
        if (at + 8 > whole.size()) continue;
        Bytes bytes = whole;
        PutU64(bytes, at, UINT64_MAX);
        ASSERT_LE(PeakOfOpening(bytes), Allowed(bytes)) << "byte " << at << ", 64 bits";
    }
    EXPECT_GT(cases, 4000U);
}

// Main header, scan header and whatever follows; both tables are the one at `table`.
Bytes FileWith(const Bytes& scanHeader, const Bytes& rest, uint64_t table, uint64_t previewTable,
               uint64_t tail = 0) {
    ScanFileBuilder small(4, 4, 4, 4);
    Bytes bytes = small.Build();
    SetMainField(bytes, MainField::ScanHeader, bytes.size());
    const Bytes header = scanHeader.empty() ? [&] {
        kxio::ScanHeader record;
        record.properties = small.properties;
        return Written(record);
    }()
                                            : scanHeader;
    bytes.insert(bytes.end(), header.begin(), header.end());
    const uint64_t start = bytes.size();
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    SetMainField(bytes, MainField::LookupTable, start + table);
    if (previewTable != UINT64_MAX) SetMainField(bytes, MainField::PreviewLookupTable, start + previewTable);
    if (tail != 0) SetMainField(bytes, MainField::FirstExtendedHeader, start + tail);
    return bytes;
}

Bytes TableOf(uint32_t components, uint32_t entriesEach) {
    ByteList payload;
    payload.U32(components);
    for (uint32_t c = 0; c < components; ++c)
        payload.U32(100 + c).U32(entriesEach).Fill(size_t{12} * entriesEach, 1);
    return Record(kLookupRecord, payload);
}

TEST(MemoryOfOpening, ATableAsLongAsTheFile) {
    const Bytes bytes = FileWith({}, TableOf(1, 4'000'000), 0, UINT64_MAX);
    EXPECT_LE(PeakOfOpening(bytes), Allowed(bytes));
}

TEST(MemoryOfOpening, BothTablesAtOnePlace) {
    const Bytes bytes = FileWith({}, TableOf(2, 1'000'000), 0, 0);
    bool opened = true;
    EXPECT_LE(PeakOfOpening(bytes, &opened), Allowed(bytes));
    EXPECT_FALSE(opened);
}

TEST(MemoryOfOpening, MillionsOfComponents) {
    const Bytes tables = FileWith({}, TableOf(1'000'000, 0), 0, UINT64_MAX);
    EXPECT_LE(PeakOfOpening(tables), Allowed(tables));

    ByteList records;
    const Bytes table = TableOf(0, 0);
    records.Raw(table);
    for (uint32_t c = 0; c < 400'000; ++c)
        records.Raw(Record(kComponentRecord, ByteList().U32(c).U64(kSnappyCodec).F64(1)));
    Bytes bytes = FileWith({}, records, 0, UINT64_MAX);
    SetMainField(bytes, MainField::FirstComponentHeader,
                 GetMainField(bytes, MainField::LookupTable) + table.size());
    EXPECT_LE(PeakOfOpening(bytes), Allowed(bytes));
}

TEST(MemoryOfOpening, TextsOfEverySize) {
    const Bytes table = TableOf(0, 0);
    for (const size_t length : {size_t{3}, size_t{100}, size_t{10'000}, size_t{1'000'000}, 16 * kMebibyte}) {
        for (const uint64_t kind : {0xac14e2e7714a591eULL,     // message
                                    0xbfb6c3129e0b3496ULL,     // link
                                    0x9554a8463740bb07ULL}) {  // mode
            ByteList records;
            records.Raw(table);
            const Bytes record = ExtendedRecord(kind, ByteList().Text(std::string(length, 'm')));
            for (size_t done = 0; done < 4 * kMebibyte; done += record.size())
                records.Raw(record);
            const Bytes bytes = FileWith({}, records, 0, UINT64_MAX, table.size());
            EXPECT_LE(PeakOfOpening(bytes), Allowed(bytes)) << length;
            // What fits is kept.
            ByteList one;
            const Bytes few =
                FileWith({}, one.Raw(table).Raw(length < 1'000'000 ? record : Bytes()).Raw(record), 0,
                         UINT64_MAX, table.size());
            EXPECT_LE(PeakOfOpening(few), Allowed(few)) << length;
        }
    }
    for (const size_t length : {size_t{900'000}, 16 * kMebibyte}) {
        kxio::ScanHeader header;
        header.properties.grid.columns = header.properties.grid.rows = 4;
        header.properties.grid.patchWidth = header.properties.grid.patchHeight = 4;
        header.properties.scannerModel = std::wstring(length, L'm');
        const Bytes bytes = FileWith(Written(header), table, 0, UINT64_MAX);
        bool opened = false;
        EXPECT_LE(PeakOfOpening(bytes, &opened), Allowed(bytes)) << length;
        EXPECT_EQ(opened, length < kMebibyte);
    }
}

TEST(MemoryOfOpening, RecordsOfUnknownKinds) {
    const Bytes table = TableOf(1, 1'000'000);
    ByteList records;
    records.Raw(table).Raw(ExtendedRecord(0x77, Bytes(16 * kMebibyte, 7)));
    const Bytes bytes = FileWith({}, records, 0, UINT64_MAX, table.size());
    EXPECT_LE(PeakOfOpening(bytes), Allowed(bytes));
}

// A list of hashes of `count` pieces, all of them headers or none.
Bytes HashesOf(uint32_t count, bool headers, uint64_t position) {
    std::vector<kxio::IntegritySpan> spans(count);
    for (uint32_t i = 0; i < count; ++i)
        spans[i] = {i, 1, i};
    kxio::IntegrityExtendedHeader record(headers ? spans : std::vector<kxio::IntegritySpan>(),
                                         headers ? std::vector<kxio::IntegritySpan>() : spans, position);
    return Written(record);
}

TEST(MemoryOfOpening, ListsOfHashes) {
    const Bytes table = TableOf(0, 0);
    const uint64_t start = FileWith({}, {}, 0, UINT64_MAX).size();
    for (const bool headers : {false, true}) {
        ByteList records;
        records.Raw(table).Raw(HashesOf(1'000'000, headers, start + table.size()));
        const Bytes bytes = FileWith({}, records, 0, UINT64_MAX, table.size());
        EXPECT_LE(PeakOfOpening(bytes), Allowed(bytes)) << headers;
    }
}

TEST(MemoryOfOpening, ListsOfHashesInsideEachOther) {
    // Each list is one byte string among the pieces of the one before, and names it: only together they are
    // many times the file.
    const Bytes table = TableOf(0, 0);
    const uint64_t start = FileWith({}, {}, 0, UINT64_MAX).size() + table.size();
    constexpr uint64_t kRecordBytes = 16 + 20 + 48;
    Bytes inner = HashesOf(20'000, false, 0);
    constexpr int kDepth = 40;
    // From the inside out: the head of a list of hashes, then what it holds as its pieces.
    uint64_t position = start + kDepth * (16 + 20 + 24);
    for (int i = 0; i < kDepth; ++i) {
        position -= 16 + 20 + 24;
        const size_t padded = (inner.size() + 23) / 24 * 24;
        inner.resize(padded);
        std::vector<kxio::IntegritySpan> spans(padded / 24);
        kxbase::ByteReader in(inner);
        for (kxio::IntegritySpan& span : spans) {
            span.position = in.U64("position");
            span.byteCount = in.U64("byte count");
            span.hash = in.U64("hash");
        }
        kxio::IntegrityExtendedHeader outer({}, spans, position, position + 16 + 20 + 24);
        inner = Written(outer);
    }
    ASSERT_GT(inner.size(), 20'000 * 24 + kDepth * kRecordBytes);
    ByteList records;
    records.Raw(table).Raw(inner);
    // The chain begins with each of them in turn.
    Bytes bytes = FileWith({}, records, 0, UINT64_MAX, table.size());
    EXPECT_LE(PeakOfOpening(bytes), Allowed(bytes));
}

}  // namespace
