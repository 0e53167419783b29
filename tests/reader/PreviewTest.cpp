// SPDX-License-Identifier: MIT
// Previews and the thumbnail.
#include <gtest/gtest.h>

#include "SampleScans.h"
#include "kxcodecs/JPEG.h"
#include "support/TemporaryFile.h"

namespace {

using namespace kxtest;
using kxbase::Range;
using kxio::QSNScanReader;

Bytes Jpeg(unsigned width, unsigned height) {
    Bytes rgb(size_t{3} * width * height, 120);
    Bytes jpeg;
    EXPECT_TRUE(kxcodecs::JPEG::Encode(rgb.data(), width, height, 90, jpeg));
    return jpeg;
}

TEST(Preview, StoredChunkIsGivenAsItLies) {
    MemoryScan scan(SmallScan().Build());
    Bytes out{1};
    scan.reader.GetCompressedPreview(out, Range);
    EXPECT_EQ(out, SnappyChunk(std::vector<float>{1, 2, 3, 4, 5, 6}, 3, 2));
}

TEST(Preview, ComponentWithoutOneIsNotInTheFile) {
    MemoryScan scan(SmallScan().Build());
    Bytes out{1};
    EXPECT_FALSE(scan.reader.IsPreviewAvailable(kxbase::Color));
    EXPECT_EQ(Failure([&] { scan.reader.GetCompressedPreview(out, kxbase::Color); }),
              "KXUnreadablePatchException: Patch not in file");
}

TEST(Preview, EntryWithoutPositionOrSizeIsNotInTheFile) {
    const Bytes good = SmallScan().Preview(4, SnappyChunk(Bytes(6, 1), 3, 2)).Build();
    // The second component of the preview table: frame 16, count 4, the first component's 20 bytes.
    const uint64_t entry = GetMainField(good, MainField::PreviewLookupTable) + 16 + 4 + 20 + 8;
    for (const uint64_t offset : {entry, entry + 8}) {
        Bytes bytes = good;
        PutU32(bytes, offset, 0);
        if (offset == entry) PutU32(bytes, offset + 4, 0);
        MemoryScan scan(bytes);
        Bytes out{1};
        EXPECT_EQ(Failure([&] { scan.reader.GetCompressedPreview(out, kxbase::Luminance8); }),
                  "KXUnreadablePatchException: Patch not in file");
    }
}

TEST(Preview, EmptyListOfTheFirstPreviewFailsTheOpening) {
    Bytes bytes = SmallScan().Build();
    const Bytes table = Record(kLookupRecord, ByteList().U32(1).U32(1).U32(0));
    SetMainField(bytes, MainField::PreviewLookupTable, bytes.size());
    bytes.insert(bytes.end(), table.begin(), table.end());
    EXPECT_EQ(OpenFailure(bytes), "KXUnreadablePatchException: Patch not in file");
}

TEST(Preview, ChunkBeyondTheEndCannotBeRead) {
    Bytes bytes = SmallScan().Preview(4, SnappyChunk(Bytes(6, 1), 3, 2)).Build();
    PutU64(bytes, GetMainField(bytes, MainField::PreviewLookupTable) + 16 + 4 + 20 + 8, bytes.size() - 2);
    MemoryScan scan(bytes);
    Bytes out{1};
    const auto read = [&] { scan.reader.GetCompressedPreview(out, kxbase::Luminance8); };
    EXPECT_EQ(Failure(read), "KXUnreadablePatchException: Cannot read file");
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(FailureContext(read).record, "preview of component Luminance8");
}

// The six getters on one file: stream, path, member; JPEG, RGB.
struct Getters {
    explicit Getters(const Bytes& bytes) : file(L"thumbnail.qsn", bytes), stream(bytes) {}

    // How many of the three give exactly these JPEG bytes.
    int JpegMatches(bool expected, const Bytes& jpeg) {
        QSNScanReader reader(file.Path(), 0);
        int matches = 0;
        for (int form = 0; form < 3; ++form) {
            Bytes out{1, 2, 3};
            stream.Seek(static_cast<uint64_t>(form) * 17);
            const bool result = form == 0   ? QSNScanReader::GetThumbnailJPEG(&stream, out)
                                : form == 1 ? QSNScanReader::GetThumbnailJPEG(file.Path(), out)
                                            : reader.GetThumbnailJPEG(out);
            if (result == expected && out == jpeg) ++matches;
        }
        return matches;
    }
    int RgbMatches(bool expected, unsigned expectedWidth, unsigned expectedHeight, size_t bytes,
                   int placeholder) {
        QSNScanReader reader(file.Path(), 0);
        int matches = 0;
        for (int form = 0; form < 3; ++form) {
            Bytes out{1, 2, 3};
            unsigned width = 1;
            unsigned height = 1;
            stream.Seek(static_cast<uint64_t>(form) * 17);
            const bool result = form == 0   ? QSNScanReader::GetThumbnailRGB(&stream, out, width, height)
                                : form == 1 ? QSNScanReader::GetThumbnailRGB(file.Path(), out, width, height)
                                            : reader.GetThumbnailRGB(out, width, height);
            const bool grey = std::all_of(out.begin(), out.end(), [](unsigned char b) { return b == 40; });
            if (result == expected && width == expectedWidth && height == expectedHeight &&
                out.size() == bytes && grey == (placeholder != 0))
                ++matches;
        }
        return matches;
    }
    int NoThumbnail() { return JpegMatches(false, {}) + RgbMatches(false, 100, 100, 30000, 1); }

    TemporaryFile file;
    kxbase::InMemoryStream stream;
};

TEST(Thumbnail, StoredJpegAndItsPixelsComeFromAllGetters) {
    const Bytes jpeg = Jpeg(30, 20);
    Getters getters(SmallScan().Thumbnail(jpeg, 30, 20).Build());
    EXPECT_EQ(getters.JpegMatches(true, jpeg), 3);
    EXPECT_EQ(getters.RgbMatches(true, 30, 20, 1800, 0), 3);
}

TEST(Thumbnail, StreamMayStandAnywhereBeforeTheCall) {
    const Bytes jpeg = Jpeg(30, 20);
    const Bytes file = SmallScan().Thumbnail(jpeg, 30, 20).Build();
    kxbase::InMemoryStream stream(file);
    for (const uint64_t position : {uint64_t{0}, uint64_t{1}, uint64_t{92}, uint64_t{file.size() / 2},
                                    uint64_t{file.size()}, uint64_t{file.size() + 1000}}) {
        SCOPED_TRACE(position);
        Bytes out;
        ASSERT_TRUE(stream.Seek(position));
        EXPECT_TRUE(QSNScanReader::GetThumbnailJPEG(&stream, out));
        EXPECT_EQ(out, jpeg);
        unsigned width = 0;
        unsigned height = 0;
        ASSERT_TRUE(stream.Seek(position));
        EXPECT_TRUE(QSNScanReader::GetThumbnailRGB(&stream, out, width, height));
        EXPECT_EQ(width, 30U);
        EXPECT_EQ(height, 20U);
    }
}

TEST(Thumbnail, FileWithoutOneGivesThePlaceholder) {
    Getters getters(SmallScan().Build());
    EXPECT_EQ(getters.NoThumbnail(), 6);
}

TEST(Thumbnail, PositionWithoutThumbnailRecordGivesThePlaceholder) {
    Bytes bytes = SmallScan().Build();
    for (const uint64_t position :
         {GetMainField(bytes, MainField::ScanHeader) + 3, uint64_t{1} << 45, ~uint64_t{0}}) {
        SetMainField(bytes, MainField::Thumbnail, position);
        EXPECT_EQ(Getters(bytes).NoThumbnail(), 6) << position;
    }
}

TEST(Thumbnail, JpegLengthBeyondTheRecordGivesThePlaceholder) {
    const Bytes jpeg = Jpeg(30, 20);
    const Bytes good = SmallScan().Thumbnail(jpeg, 30, 20).Build();
    for (const uint32_t length : {static_cast<uint32_t>(jpeg.size()) + 1, 0xffffffffU}) {
        Bytes bytes = good;
        PutU32(bytes, GetMainField(bytes, MainField::Thumbnail) + 16 + 8, length);
        EXPECT_EQ(Getters(bytes).NoThumbnail(), 6);
    }
}

TEST(Thumbnail, RefusedVersionGivesThePlaceholder) {
    Bytes bytes = SmallScan().Thumbnail(Jpeg(30, 20), 30, 20).Build();
    PutU32(bytes, GetMainField(bytes, MainField::Thumbnail) + 8, 199);
    EXPECT_EQ(Getters(bytes).NoThumbnail(), 6);
}

TEST(Thumbnail, BytesThatAreNoJpegComeAsBytesButNotAsPixels) {
    const Bytes noise(300, 0x33);
    Getters getters(SmallScan().Thumbnail(noise, 30, 20).Build());
    EXPECT_EQ(getters.JpegMatches(true, noise), 3);
    EXPECT_EQ(getters.RgbMatches(false, 100, 100, 30000, 1), 3);
}

TEST(Thumbnail, OfBytesThatAreNoScanIsThePlaceholder) {
    kxbase::InMemoryStream stream(Bytes(500, 1));
    Bytes out{1};
    unsigned width = 0;
    unsigned height = 0;
    EXPECT_FALSE(QSNScanReader::GetThumbnailJPEG(&stream, out));
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(QSNScanReader::GetThumbnailRGB(&stream, out, width, height));
    EXPECT_EQ(out, Bytes(30000, 40));
    // A refused version of the main header is an exception inside and an answer outside.
    kxbase::InMemoryStream old(WithVersion(SmallScan().Build(), 209));
    EXPECT_FALSE(QSNScanReader::GetThumbnailJPEG(&old, out));
}

TEST(Thumbnail, NoStreamGivesThePlaceholder) {
    Bytes out{1};
    unsigned width = 0;
    unsigned height = 0;
    EXPECT_FALSE(QSNScanReader::GetThumbnailJPEG(static_cast<kxbase::IInFileStream*>(nullptr), out));
    const QSNScanReader closed;
    EXPECT_FALSE(closed.GetThumbnailJPEG(out));
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(closed.GetThumbnailRGB(out, width, height));
    EXPECT_EQ(out, Bytes(30000, 40));
    EXPECT_EQ(width, 100U);
    EXPECT_EQ(height, 100U);
}

TEST(Thumbnail, PathThatCannotBeOpenedThrows) {
    const std::wstring path = TemporaryFile(L"missing.qsn").Path();
    Bytes out;
    unsigned width = 0;
    unsigned height = 0;
    EXPECT_EQ(Failure([&] { QSNScanReader::GetThumbnailJPEG(path, out); }),
              "KXHeaderReadingException: Cannot open file");
    EXPECT_EQ(Failure([&] { QSNScanReader::GetThumbnailRGB(path, out, width, height); }),
              "KXHeaderReadingException: Cannot open file");
}

}  // namespace
