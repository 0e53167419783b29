// SPDX-License-Identifier: MIT
// Opening and closing a reader, and how each step fails; what it then tells is tested apart.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "SampleScans.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "support/TemporaryFile.h"

namespace {

using kxio::QSNScanReader;
using kxio::ScanProperties;
using namespace kxtest;

// Counts what happens to a stream.
class WatchedStream final : public kxbase::IInFileStream {
public:
    WatchedStream(const Bytes& bytes, int& deleted, int& closed)
        : m_in(bytes), m_deleted(deleted), m_closed(closed) {}
    ~WatchedStream() override { ++m_deleted; }
    bool IsOpen() const override { return m_in.IsOpen(); }
    bool Seek(uint64_t position) override { return m_in.Seek(position); }
    bool SeekForward(uint64_t bytes) override { return m_in.SeekForward(bytes); }
    bool SeekBackward(uint64_t bytes) override { return m_in.SeekBackward(bytes); }
    bool SeekEnd(uint64_t offset) override { return m_in.SeekEnd(offset); }
    uint64_t Tell() const override { return m_in.Tell(); }
    uint64_t Read(void* out, uint64_t bytes) override { return m_in.Read(out, bytes); }
    uint64_t GetLastReadCount() const override { return m_in.GetLastReadCount(); }
    uint64_t GetSize() const override { return m_in.GetSize(); }
    bool HasDataLeft() const override { return m_in.HasDataLeft(); }
    void Close() override { ++m_closed; }

private:
    kxbase::InMemoryStream m_in;
    int& m_deleted;
    int& m_closed;
};

TEST(Opening, FileByPathGivesItsContents) {
    const TemporaryFile file(L"good.qsn", SmallScan().Build());
    const std::wstring path = file.Path();
    QSNScanReader reader(path, 0);
    EXPECT_TRUE(reader.IsOpen(path));
    EXPECT_EQ(reader.GetAvailableComponents(),
              (std::vector{kxbase::Range, kxbase::Luminance8, kxbase::Color}));
    EXPECT_EQ(reader.GetAvailablePreviews(), std::vector{kxbase::Range});
    EXPECT_TRUE(reader.GetAvailableHistograms().empty());
    EXPECT_TRUE(reader.IsComponentAvailable(kxbase::Color));
    EXPECT_FALSE(reader.IsComponentAvailable(kxbase::Segment));
    EXPECT_TRUE(reader.IsPreviewAvailable(kxbase::Range));
    EXPECT_FALSE(reader.IsPreviewAvailable(kxbase::Color));
    EXPECT_FALSE(reader.IsHistogramAvailable(kxbase::Luminance8));
    EXPECT_EQ(reader.GetPatchNumber(), 9U);
    EXPECT_EQ(reader.GetMessageList(), std::list<std::wstring>{L"hello"});
    EXPECT_EQ(reader.Grid(), reader.GetScanInformation().grid);
}

TEST(Opening, PathMayHoldAnyCharacter) {
    const TemporaryFile file(L"\u00e9 \u4e2d \U0001F4D0.qsn", SmallScan().Build());
    const std::wstring path = file.Path();
    QSNScanReader reader(path, 0);
    EXPECT_TRUE(reader.IsOpen(path));
    EXPECT_EQ(kxbase::kxInFile(path).GetSize(), SmallScan().Build().size());
}

TEST(Opening, MissingPathCannotBeOpened) {
    const std::wstring path = TemporaryFile(L"missing.qsn").Path();
    QSNScanReader reader;
    const auto open = [&] { reader.Open(path, 0); };
    EXPECT_EQ(Failure(open), "KXHeaderReadingException: Cannot open file");
    EXPECT_EQ(FailureContext(open).file, kxbase::Encode_UTF8(path));
    EXPECT_EQ(Failure([&] { QSNScanReader(path, 0); }), "KXHeaderReadingException: Cannot open file");
    ScanProperties properties;
    EXPECT_EQ(Failure([&] { QSNScanReader::GetScanInformation(properties, path); }),
              "KXHeaderReadingException: Cannot open file");
    EXPECT_TRUE(reader.IsOpen(L""));
}

TEST(Opening, DirectoryCannotBeOpened) {
    EXPECT_EQ(Failure([] { QSNScanReader(std::filesystem::temp_directory_path().wstring(), 0); }),
              "KXHeaderReadingException: Cannot open file");
}

TEST(Opening, NullStreamCannotBeOpened) {
    QSNScanReader reader;
    EXPECT_EQ(Failure([&] { reader.Open(nullptr); }), "KXHeaderReadingException: Cannot open file");
}

TEST(Opening, OtherBytesAreNoMainHeader) {
    EXPECT_EQ(OpenFailure({}), "KXHeaderReadingException: Invalid main header");
    EXPECT_EQ(OpenFailure(Bytes(200, 0)), "KXHeaderReadingException: Invalid main header");
    Bytes file = SmallScan().Build();
    file[0] ^= 1;
    EXPECT_EQ(OpenFailure(file), "KXHeaderReadingException: Invalid main header");
    const auto context = FailureContext([&] { MemoryScan scan(file); });
    EXPECT_EQ(context.file, "memory");
    EXPECT_EQ(context.record, "MainFileHeader");
    EXPECT_EQ(context.field, "tag");
    EXPECT_EQ(context.offset, 0U);
}

TEST(Opening, MainHeaderCutAfterItsFrameIsInvalid) {
    Bytes file = SmallScan().Build();
    file.resize(40);
    EXPECT_EQ(OpenFailure(file), "KXHeaderReadingException: Invalid main header");
}

TEST(Opening, OldMainHeaderIsRefusedAndNewerOnesAreRead) {
    const Bytes file = SmallScan().Build();
    EXPECT_EQ(OpenFailure(WithVersion(file, 209)),
              "KXHeaderReadingException: Unsupported MainFileHeader version");
    EXPECT_EQ(OpenFailure(WithVersion(file, 210)), "nothing");
    EXPECT_EQ(OpenFailure(WithVersion(file, 300)), "nothing");
}

TEST(Opening, NewerMainHeaderMayBeLonger) {
    // Payload of 80 bytes: four more than known, then the first chunk.
    Bytes file = SmallScan().RawBytes({}).Build();
    ScanFileBuilder shifted(4, 3, 4, 3);
    shifted.RawBytes({1, 2, 3, 4});
    shifted.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 2.0F), 4, 3));
    file = WithPayloadSize(WithVersion(shifted.Build(), 300), 80);
    MemoryScan scan(file);
    EXPECT_EQ(kxio::ScanAccess(scan.reader).GetMainHeader().HeaderSize(), 96U);
    EXPECT_EQ(kxio::ScanAccess(scan.reader).ReadPatch<float>(kxbase::Range, 0, 0),
              std::vector<float>(12, 2.0F));
}

TEST(Opening, ScanHeaderElsewhereIsInvalid) {
    for (const uint64_t position : {uint64_t{0}, uint64_t{100}, uint64_t{1} << 40, ~uint64_t{0}}) {
        Bytes file = SmallScan().Build();
        SetMainField(file, MainField::ScanHeader, position);
        EXPECT_EQ(OpenFailure(file), "KXHeaderReadingException: Invalid scan headers") << position;
    }
}

TEST(Opening, OldScanHeaderIsRefused) {
    ScanFileBuilder file = SmallScan();
    file.scanHeader = WithVersion(Written(*std::make_unique<kxio::ScanHeader>()), 199);
    EXPECT_EQ(OpenFailure(file.Build()), "KXHeaderReadingException: Unsupported ScanHeader version");
}

TEST(Opening, FirstChunkPositionZeroIsAnError) {
    Bytes file = SmallScan().Build();
    SetMainField(file, MainField::FirstChunk, 0);
    EXPECT_EQ(OpenFailure(file), "KXHeaderReadingException: Error opening file");
    kxbase::InMemoryStream stream(file);
    QSNScanReader reader;
    EXPECT_NE(Failure([&] { reader.Open(&stream); }), "nothing");
    EXPECT_TRUE(reader.IsOpen(L""));
}

TEST(Opening, FileWithoutLookupTableIsIncomplete) {
    Bytes file = SmallScan().Build();
    SetMainField(file, MainField::LookupTable, 0);
    EXPECT_EQ(OpenFailure(file), "KXIncompleteFileException: Lookup table not found");
    SetMainField(file, MainField::LookupTable, 92);
    EXPECT_EQ(OpenFailure(file), "KXIncompleteFileException: Lookup table not found");
    SetMainField(file, MainField::LookupTable, ~uint64_t{0});
    EXPECT_EQ(OpenFailure(file), "KXIncompleteFileException: Lookup table not found");
    const auto context = FailureContext([&] { MemoryScan scan(file); });
    EXPECT_EQ(context.record, "LookupTableHeader");
    EXPECT_EQ(context.file, "memory");
}

TEST(Opening, OldLookupTablesAreRefusedByName) {
    for (const size_t table : {MainField::LookupTable, MainField::PreviewLookupTable}) {
        Bytes file = SmallScan().Build();
        PutU32(file, GetMainField(file, table) + 8, 199);
        EXPECT_EQ(OpenFailure(file), "KXHeaderReadingException: Unsupported LookupTableHeader version");
    }
}

TEST(Opening, UnreadablePreviewTableIsIncomplete) {
    Bytes file = SmallScan().Build();
    SetMainField(file, MainField::PreviewLookupTable, 92);
    EXPECT_EQ(OpenFailure(file), "KXIncompleteFileException: No preview found");
}

TEST(Opening, FirstPreviewBeyondTheEndCannotBeRead) {
    ScanFileBuilder builder = SmallScan();
    Bytes file = builder.Build();
    // The preview table's only entry: record frame, count, component, count, position.
    PutU64(file, GetMainField(file, MainField::PreviewLookupTable) + 28, file.size() - 5);
    EXPECT_EQ(OpenFailure(file), "KXUnreadablePatchException: Cannot read file");
}

TEST(Opening, TruncatedUnfinishedFileDoesNotFallBackToAWalk) {
    // As a writer leaves it that never ended: the main header still has its first values.
    Bytes file = SmallScan().Build();
    file.resize(GetMainField(file, MainField::ScanHeader));
    for (const size_t field : {MainField::ScanHeader, MainField::FirstExtendedHeader, MainField::ChunkDataEnd,
                               MainField::LookupTable, MainField::PreviewLookupTable})
        SetMainField(file, field, 0);
    EXPECT_EQ(OpenFailure(file), "KXHeaderReadingException: Invalid scan headers");
}

TEST(Opening, HeaderFailureClosesTheReaderAndALaterOneKeepsTheStream) {
    const Bytes good = SmallScan().Build();
    Bytes noTable = good;
    SetMainField(noTable, MainField::LookupTable, 0);
    Bytes noHeader = good;
    noHeader[0] = 0;
    const TemporaryFile file(L"state.qsn");
    const std::wstring path = file.Path();
    QSNScanReader reader;

    file.Write(noTable);
    EXPECT_EQ(Failure([&] { reader.Open(path, 0); }), "KXIncompleteFileException: Lookup table not found");
    EXPECT_TRUE(reader.IsOpen(path));
    file.Write(noHeader);
    EXPECT_EQ(Failure([&] { reader.Open(path, 0); }), "KXHeaderReadingException: Invalid main header");
    EXPECT_FALSE(reader.IsOpen(path));
    // An old version is such a failure too.
    file.Write(WithVersion(good, 209));
    EXPECT_NE(Failure([&] { reader.Open(path, 0); }), "nothing");
    EXPECT_FALSE(reader.IsOpen(path));
    file.Write(good);
    reader.Open(path, 0);
    EXPECT_TRUE(reader.IsOpen(path));
}

TEST(Opening, CodecFailureClosesTheReader) {
    ScanFileBuilder file(4, 3, 4, 3);
    file.Chunk(1, 0, 0, ByteList().Raw(ChunkHeader(1, 4, 3, 48, 1.0F, 48)).U8(0));
    kxbase::InMemoryStream stream(file.Build());
    QSNScanReader reader;
    EXPECT_EQ(Failure([&] { reader.Open(&stream); }),
              "KXUnkownCodecException: The codec 0x0000000000000001is not supported.");
    EXPECT_TRUE(reader.IsOpen(L""));
}

TEST(Opening, ComponentRecordWithUnknownCodecIsInvalid) {
    ScanFileBuilder file = SmallScan();
    file.ComponentRecord(1, kSnappyCodec, 0.5).ComponentRecord(4, 0, 0.5);
    EXPECT_EQ(OpenFailure(file.Build()), "KXUnkownCodecException: Invalid codec ");
}

TEST(Opening, LaterComponentRecordReplacesTheEarlierOne) {
    ScanFileBuilder file = SmallScan();
    // The first one names no codec; only the second counts.
    file.ComponentRecord(2, 0, 0.25).ComponentRecord(2, kZLibCodec, 0.5).ComponentRecord(6, kZLibCodec, 9);
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetScanInformation().componentValue[1], 0.5);
    EXPECT_EQ(scan.reader.GetScanInformation().componentValue[2], 1e-06);
}

TEST(Opening, ScaleOfTheFirstChunkOverridesTheComponentRecord) {
    ScanFileBuilder file(4, 3, 4, 3);
    AddLayer<float>(file, 1, RangeAt, 10.0F);
    AddLayer<float>(file, 2, RangeAt, 1000000.0F);
    AddLayer<float>(file, 9, RangeAt, 4.0F);
    file.ComponentRecord(1, kSnappyCodec, 77).ComponentRecord(3, kSnappyCodec, 88);
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetScanInformation().componentValue, (std::array<double, 3>{0.1, 1e-06, 88}));
}

TEST(Opening, CodecNamesAreListedPerComponent) {
    ScanFileBuilder file(4, 3, 4, 3);
    AddLayer<float>(file, 1, RangeAt);
    file.Component(5);
    MemoryScan scan(file.Build());
    EXPECT_EQ(
        scan.reader.GetScanInformation().componentCodecs,
        (std::map<kxbase::ComponentType, std::string>{{kxbase::Range, "Snappy"}, {kxbase::Luminance16, ""}}));
}

TEST(Opening, MissingFirstPatchDoesNotHideTheOthers) {
    ScanFileBuilder file(8, 3, 4, 3);
    file.Entry0(1, 0, 0, 0);
    file.Chunk(1, 0, 1, SnappyChunk(std::vector<float>(12, 3.0F), 4, 3, 2.0F));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetScanInformation().componentCodecs.at(kxbase::Range), "Snappy");
    EXPECT_EQ(scan.reader.GetScanInformation().componentValue[0], 0.5);
    Bytes chunk;
    EXPECT_EQ(Failure([&] { scan.reader.GetPatchCompressed(0, 0, chunk, kxbase::Range); }),
              "KXUnreadablePatchException: Patch not in file");
    scan.reader.GetPatchCompressed(0, 1, chunk, kxbase::Range);
    EXPECT_GT(chunk.size(), 28U);
}

TEST(Opening, FirstChunkTooShortForAHeaderIsPassedOver) {
    ScanFileBuilder file(8, 3, 4, 3);
    file.Chunk(1, 0, 0, Bytes(27, 7));
    file.Chunk(1, 0, 1, SnappyChunk(std::vector<float>(12, 3.0F), 4, 3, 2.0F));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetScanInformation().componentCodecs.at(kxbase::Range), "Snappy");
    EXPECT_EQ(scan.reader.GetScanInformation().componentValue[0], 0.5);
}

TEST(Opening, ComponentListedWithoutEntriesIsNotInTheDatabase) {
    ScanFileBuilder file = SmallScan();
    Bytes bytes = file.Build();
    // A table that lists component 5 with no entry.
    const Bytes table = Record(kLookupRecord, ByteList().U32(1).U32(5).U32(0));
    SetMainField(bytes, MainField::LookupTable, bytes.size());
    bytes.insert(bytes.end(), table.begin(), table.end());
    EXPECT_EQ(OpenFailure(bytes), "KXUnreadablePatchException: Patch not in database");
}

TEST(Opening, FirstChunkBeyondTheEndCannotBeRead) {
    ScanFileBuilder file(4, 3, 4, 3);
    file.Entry0(1, 0, 1000000, 40);
    EXPECT_EQ(OpenFailure(file.Build()), "KXUnreadablePatchException: Cannot read file");
}

TEST(Opening, UnnamedStreamHasAFixedNameAndStaysTheCallers) {
    int deleted = 0;
    int closed = 0;
    {
        WatchedStream stream(SmallScan().Build(), deleted, closed);
        {
            QSNScanReader reader(&stream);
            EXPECT_TRUE(reader.IsOpen(L"No name stream"));
            reader.Close();
            EXPECT_FALSE(reader.IsOpen(L"No name stream"));
            EXPECT_TRUE(reader.IsOpen(L""));
            reader.Open(&stream);
            EXPECT_TRUE(reader.IsOpen(L"No name stream"));
        }
        EXPECT_EQ(deleted, 0);
        EXPECT_EQ(closed, 0);
    }
    EXPECT_EQ(deleted, 1);
}

TEST(Opening, NameIsComparedUnitByUnit) {
    const TemporaryFile file(L"name.qsn", SmallScan().Build());
    const std::wstring path = file.Path();
    QSNScanReader reader(path, 0);
    std::wstring upper = path;
    upper[upper.size() - 5] = L'E';
    EXPECT_FALSE(reader.IsOpen(upper));
    EXPECT_FALSE(reader.IsOpen(path + L"2"));
    EXPECT_FALSE(reader.IsOpen(L""));
    reader.Close();
    EXPECT_TRUE(reader.IsOpen(L""));
}

TEST(Opening, SecondFileLeavesNothingOfTheFirst) {
    ScanFileBuilder first = SmallScan();
    first.Tail(ExtendedRecord(0xa62815c019d63650ULL, Bytes(8, 0)));
    first.ComponentRecord(3, kSnappyCodec, 7);
    ScanFileBuilder second(5, 5, 5, 5);
    second.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(25, 1.0F), 5, 5));
    second.Message("second");
    kxbase::InMemoryStream a(first.Build());
    kxbase::InMemoryStream b(second.Build());
    const QSNScanReader fresh(&b);
    for (const bool close : {true, false}) {
        QSNScanReader reader(&a);
        if (close) reader.Close();
        reader.Open(&b);
        EXPECT_EQ(reader.GetAvailableComponents(), fresh.GetAvailableComponents());
        EXPECT_TRUE(reader.GetAvailablePreviews().empty());
        EXPECT_TRUE(reader.GetAvailableHistograms().empty());
        EXPECT_EQ(reader.GetMessageList(), std::list<std::wstring>{L"second"});
        EXPECT_EQ(reader.GetScanInformation(), fresh.GetScanInformation());
    }
}

TEST(Opening, RunningThePostOpeningStepsAgainChangesNothing) {
    MemoryScan scan(SmallScan().Build());
    const ScanProperties before = scan.reader.GetScanInformation();
    scan.reader.SetupPostOpening();
    EXPECT_EQ(scan.reader.GetScanInformation(), before);
}

TEST(Opening, StepsCanBeRunOneByOne) {
    kxbase::InMemoryStream stream(SmallScan().Build());
    OpenReader reader(&stream);
    const ScanProperties whole = reader.GetScanInformation();
    EXPECT_EQ(reader.ReadHeaders(), 92U);
    // The headers alone bring the grid.
    EXPECT_EQ(reader.GetScanInformation().grid.columns, 10U);
    reader.FillupPatchPosition();
    reader.FillupPreviewPosition();
    reader.SetupGrid();
    reader.FillupScanProperties();
    reader.ReadTailHeaders();
    reader.AnalyseCodecs();
    reader.SetupComponentMap();
    EXPECT_EQ(reader.GetScanInformation(), whole);
}

}  // namespace
