// SPDX-License-Identifier: MIT
#include "kxio/ThumbnailHeader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "kxcodecs/JPEG.h"
#include "support/AllocationWatch.h"
#include "support/RecordBytes.h"

namespace {

using kxio::ThumbnailHeader;
using kxtest::ByteList;
using kxtest::Bytes;
using kxtest::GoldenHex;

struct Image {
    unsigned width = 0;
    unsigned height = 0;
    Bytes rgb;
};

Image Decode(const Bytes& jpeg) {
    Image image;
    unsigned char* pixels = nullptr;
    uint64_t bytes = 0;
    EXPECT_TRUE(kxcodecs::JPEG::Decode(jpeg.data(), jpeg.size(), pixels, bytes, image.width, image.height));
    image.rgb.assign(pixels, pixels + bytes);
    kxcodecs::JPEG::Free(pixels);
    return image;
}

// Reads back what the record writes.
ThumbnailHeader Reread(ThumbnailHeader& header) {
    ThumbnailHeader read(1, 1);
    EXPECT_NE(kxtest::ReadFrom(read, kxtest::Written(header)), 0U);
    return read;
}

void ExpectUnknownSize(const std::function<void()>& action) {
    try {
        action();
        FAIL() << "nothing thrown";
    } catch (const kxbase::KXWrongDataSizeofException& e) {
        EXPECT_STREQ(e.what(), "Unknown thumbnail data size");
        EXPECT_EQ(e.Context().record, "ThumbnailHeader");
        EXPECT_FALSE(e.Context().detail.empty());
    }
}

TEST(ThumbnailHeader, StartsAsOneHundredByOneHundredWithOneChannel) {
    const ThumbnailHeader header;
    EXPECT_EQ(header.GetFirstSide(), 100U);
    EXPECT_EQ(header.GetSecondSide(), 100U);
    EXPECT_EQ(header.GetChannels(), 1U);
    EXPECT_EQ(header.GetPixels(), Bytes(10000, 0));
    EXPECT_TRUE(header.GetCompressed().empty());
}

TEST(ThumbnailHeader, ReadsItsGoldenRecord) {
    ThumbnailHeader header(100, 100, 1);
    EXPECT_EQ(kxtest::ReadFrom(header, GoldenHex("records/thumbnail-200.hex")), 34U);
    EXPECT_EQ(header.GetFirstSide(), 20U);
    EXPECT_EQ(header.GetSecondSide(), 30U);
    EXPECT_EQ(header.GetCompressed(), kxtest::Hex("ff d8 01 02 ff d9"));
}

TEST(ThumbnailHeader, CompressedBytesAreWrittenUnchanged) {
    ThumbnailHeader header;
    header.SetCompressed(kxtest::Hex("ff d8 01 02 ff d9"), 20, 30);
    EXPECT_EQ(header.DataSize(200), 18U);
    EXPECT_EQ(kxtest::Written(header), GoldenHex("records/thumbnail-200.hex"));
}

TEST(ThumbnailHeader, SetUpClampsSidesAndChannels) {
    ThumbnailHeader header;
    header.SetUp(5, 30, 0);
    EXPECT_EQ(header.GetFirstSide(), 20U);
    EXPECT_EQ(header.GetSecondSide(), 30U);
    EXPECT_EQ(header.GetChannels(), 1U);
    EXPECT_EQ(header.GetPixels(), Bytes(600, 0));
    header.SetUp(20, 19, 3);
    EXPECT_EQ(header.GetSecondSide(), 20U);
    EXPECT_EQ(header.GetPixels().size(), 1200U);
}

TEST(ThumbnailHeader, SetUpForgetsJpegBytes) {
    ThumbnailHeader header;
    header.SetCompressed({1, 2, 3}, 50, 60);
    header.SetUp(200, 200, 1);
    EXPECT_TRUE(header.GetCompressed().empty());
}

TEST(ThumbnailHeader, FiveByFiveIsStoredAsBlack512By512) {
    ThumbnailHeader header(5, 5, 1);
    std::fill(header.GetPixels().begin(), header.GetPixels().end(), static_cast<unsigned char>(200));
    const ThumbnailHeader read = Reread(header);
    EXPECT_EQ(read.GetFirstSide(), 512U);
    EXPECT_EQ(read.GetSecondSide(), 512U);
    const Image image = Decode(read.GetCompressed());
    EXPECT_EQ(image.width, 512U);
    EXPECT_EQ(image.height, 512U);
    EXPECT_EQ(image.rgb, Bytes(size_t{512} * 512 * 3, 0));
}

TEST(ThumbnailHeader, FiveByFiveSetUpIsStoredAsTwentyByTwenty) {
    ThumbnailHeader header;
    header.SetUp(5, 5, 1);
    const Image image = Decode(Reread(header).GetCompressed());
    EXPECT_EQ(image.width, 20U);
    EXPECT_EQ(image.height, 20U);
}

TEST(ThumbnailHeader, OneSideBelowEightIsEnoughForTheBlackImage) {
    ThumbnailHeader low(7, 100, 3);
    EXPECT_EQ(Reread(low).GetSecondSide(), 512U);
    ThumbnailHeader narrow(100, 7, 3);
    EXPECT_EQ(Reread(narrow).GetFirstSide(), 512U);
    ThumbnailHeader none(0, 0, 1);
    EXPECT_EQ(Reread(none).GetFirstSide(), 512U);
}

TEST(ThumbnailHeader, EightByEightIsEncodedAsItIs) {
    // Its JPEG is longer than twice its raw bytes.
    ThumbnailHeader header(8, 8, 3);
    const ThumbnailHeader read = Reread(header);
    EXPECT_GT(read.GetCompressed().size(), 2U * 8 * 8 * 3);
    const Image image = Decode(read.GetCompressed());
    EXPECT_EQ(image.width, 8U);
    EXPECT_EQ(image.height, 8U);
}

TEST(ThumbnailHeader, FirstSideIsTheHeightAndThePayloadBeginsWithTheWidth) {
    ThumbnailHeader header;
    header.SetUp(50, 100, 1);
    const Bytes bytes = kxtest::Written(header);
    EXPECT_EQ(Bytes(bytes.begin() + 16, bytes.begin() + 24), Bytes(ByteList().U32(100).U32(50)));
    const Image image = Decode(header.GetCompressed());
    EXPECT_EQ(image.width, 100U);
    EXPECT_EQ(image.height, 50U);
}

TEST(ThumbnailHeader, OneChannelBecomesGrey) {
    ThumbnailHeader header;
    header.SetUp(24, 32, 1);
    for (size_t i = 0; i < header.GetPixels().size(); ++i)
        header.GetPixels()[i] = i % 32 < 16 ? 30 : 220;
    const Image image = Decode(Reread(header).GetCompressed());
    ASSERT_EQ(image.rgb.size(), 24U * 32 * 3);
    for (unsigned channel = 0; channel < 3; ++channel) {
        EXPECT_NEAR(image.rgb[(12 * 32 + 4) * 3 + channel], 30, 12);
        EXPECT_NEAR(image.rgb[(12 * 32 + 28) * 3 + channel], 220, 12);
    }
}

TEST(ThumbnailHeader, ThreeChannelsKeepTheirOrder) {
    ThumbnailHeader header;
    header.SetUp(24, 24, 3);
    for (size_t i = 0; i < header.GetPixels().size(); i += 3)
        header.GetPixels()[i] = 250;
    const Image image = Decode(Reread(header).GetCompressed());
    EXPECT_NEAR(image.rgb[0], 250, 12);
    EXPECT_NEAR(image.rgb[1], 0, 12);
    EXPECT_NEAR(image.rgb[2], 0, 12);
}

TEST(ThumbnailHeader, MissingPixelsAreBlackAndSurplusOnesIgnored) {
    ThumbnailHeader header;
    header.SetUp(32, 32, 1);
    header.GetPixels().assign(16 * 32, 255);
    const Image half = Decode(Reread(header).GetCompressed());
    EXPECT_NEAR(half.rgb[0], 255, 12);
    EXPECT_NEAR(half.rgb[(31 * 32 + 31) * 3], 0, 12);
    header.SetUp(32, 32, 3);
    header.GetPixels().resize(100000, 255);
    const Image surplus = Decode(Reread(header).GetCompressed());
    EXPECT_EQ(surplus.rgb.size(), 32U * 32 * 3);
    EXPECT_NEAR(surplus.rgb[0], 0, 12);
}

TEST(ThumbnailHeader, OtherChannelCountsFail) {
    for (const unsigned channels : {2U, 4U, 5U, 16U}) {
        ThumbnailHeader header;
        header.SetUp(100, 100, channels);
        ExpectUnknownSize([&] { kxtest::Written(header); });
        ExpectUnknownSize([&] { static_cast<void>(header.DataSize(200)); });
        EXPECT_EQ(header.GetFirstSide(), 100U) << "a failed encoding changes nothing";
    }
}

TEST(ThumbnailHeader, TwoChannelsFailForSmallImagesToo) {
    ThumbnailHeader header(5, 5, 2);
    ExpectUnknownSize([&] { kxtest::Written(header); });
}

TEST(ThumbnailHeader, SidesThatNoJpegCanHaveAreRefusedWithoutTakingMemory) {
    ThumbnailHeader header;
    header.SetUp(30, 40, 1);
    const kxtest::AllocationWatch watch;
    ExpectUnknownSize([&] { header.SetUp(0xffffffffU, 0xffffffffU, 1); });
    ExpectUnknownSize([&] { header.SetUp(65501, 20, 1); });
    ExpectUnknownSize([&] { header.SetUp(60000, 60000, 1); });
    ExpectUnknownSize([&] { header.SetUp(1000, 1000, 0xffffffffU); });
    ExpectUnknownSize([] { ThumbnailHeader(0xffffffffU, 0xffffffffU, 0xffffffffU); });
    EXPECT_LT(watch.Largest(), 4096U);
    EXPECT_EQ(header.GetFirstSide(), 30U);
    EXPECT_EQ(header.GetPixels().size(), 1200U);
}

TEST(ThumbnailHeader, RecordWithoutJpegAndImpossibleSidesFailsToBeRewritten) {
    const Bytes payload = ByteList().U32(0xffffffffU).U32(0xffffffffU).U32(0);
    ThumbnailHeader header;
    EXPECT_EQ(kxtest::ReadFrom(header, kxtest::Record(kxtest::kThumbnailRecord, payload)), 28U);
    EXPECT_TRUE(header.GetCompressed().empty());
    const kxtest::AllocationWatch watch;
    ExpectUnknownSize([&] { kxtest::Written(header); });
    EXPECT_LT(watch.Largest(), 4096U);
}

TEST(ThumbnailHeader, JpegLengthBeyondThePayloadFails) {
    for (const uint32_t length : {7U, 0xffffffffU}) {
        const Bytes payload = ByteList().U32(30).U32(20).U32(length).Raw(kxtest::Hex("ff d8 01 02 ff d9"));
        ThumbnailHeader header;
        kxbase::InMemoryStream in(kxtest::Record(kxtest::kThumbnailRecord, payload));
        const kxtest::AllocationWatch watch;
        ExpectUnknownSize([&] { header.Read(&in); });
        EXPECT_LT(watch.Largest(), 4096U);
        EXPECT_FALSE(header.IsValid());
        EXPECT_EQ(header.GetFirstSide(), 100U);
        EXPECT_EQ(header.GetPixels().size(), 10000U);
        EXPECT_EQ(in.Tell(), 0U);
    }
}

TEST(ThumbnailHeader, OldVersionIsRefusedBeforeItsLengthIsLookedAt) {
    const Bytes payload = ByteList().U32(30).U32(20).U32(0xffffffffU);
    ThumbnailHeader header;
    EXPECT_THROW(kxtest::ReadFrom(header, kxtest::Record(kxtest::kThumbnailRecord.tag, 199, payload)),
                 kxbase::KXHeaderReadingException);
}

TEST(ThumbnailHeader, BlankThumbnailDecodes) {
    ThumbnailHeader header;
    header.SetUp(ThumbnailHeader::BlankSide, ThumbnailHeader::BlankSide, 1);
    const Image image = Decode(Reread(header).GetCompressed());
    EXPECT_EQ(image.width, 200U);
    EXPECT_EQ(image.rgb, Bytes(size_t{200} * 200 * 3, 0));
}

}  // namespace
