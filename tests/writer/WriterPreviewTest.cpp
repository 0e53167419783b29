// SPDX-License-Identifier: MIT
// Previews and thumbnails of finished files.
#include <gtest/gtest.h>

#include "WriterSupport.h"
#include "kxcodecs/JPEG.h"

namespace {

using namespace support;
using walker::Walk;

struct Picture {
    unsigned width = 0, height = 0;
    Bytes rgb;

    explicit Picture(const Bytes& jpeg) {
        unsigned char* pixels = nullptr;
        uint64_t bytes = 0;
        if (kxcodecs::JPEG::Decode(jpeg.data(), jpeg.size(), pixels, bytes, width, height)) {
            rgb.assign(pixels, pixels + bytes);
        }
        kxcodecs::JPEG::Free(pixels);
    }
    // Mean red of a rectangle, given in hundredths of the sides.
    double Mean(unsigned left, unsigned top, unsigned right, unsigned bottom) const {
        double sum = 0;
        unsigned count = 0;
        for (unsigned y = height * top / 100; y < height * bottom / 100; ++y) {
            for (unsigned x = width * left / 100; x < width * right / 100; ++x) {
                sum += rgb[3 * (size_t{y} * width + x)];
                ++count;
            }
        }
        return count == 0 ? -1 : sum / count;
    }
};

Bytes MakeJpeg(unsigned width, unsigned height) {
    Bytes rgb(size_t{3} * width * height, 128), jpeg;
    EXPECT_TRUE(kxcodecs::JPEG::Encode(rgb.data(), width, height, 80, jpeg));
    return jpeg;
}

TEST(WriterPreview, PreviewHandedOverFirstLiesWhereTheFirstChunkIsAnnounced) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
    Bytes preview;
    Snappy().Encode(Bytes(16, 5).data(), 4, 4, 16, 1.0F, preview);
    writer.SetCompressedPreview(preview.data(), preview.size(), kxbase::Luminance8);
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    writer.AddPatch({&range}, 0, 0);
    const auto statistics = writer.EndCreation();
    const walker::File file = Walk(stream.GetBytes(), {{92, preview.size()}});
    EXPECT_EQ(file.main.firstChunk, 92U);
    EXPECT_EQ(file.previews.at(4).at(0).position, 92U);
    EXPECT_EQ(file.Slice(file.previews.at(4)[0]), preview);
    EXPECT_EQ(file.chunks.at(0).record, 92 + preview.size());
    EXPECT_EQ(statistics.at("Luminance8_Preview"), preview.size());
    EXPECT_THROW(Walk(stream.GetBytes()), std::runtime_error)
        << "a walk that does not know the preview stops";
}

TEST(WriterPreview, FirstPreviewOfAComponentIsTheOneThatIsFound) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
    Bytes first(40, 1), second(50, 2);
    writer.SetCompressedPreview(first.data(), first.size(), kxbase::Luminance8);
    writer.SetCompressedPreview(second.data(), second.size(), kxbase::Luminance8);
    Flat<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(16, 3), &Snappy());
    writer.AddPatch({&grey}, 0, 0);
    const auto statistics = writer.EndCreation();
    const walker::File file = Walk(stream.GetBytes(), {{92, 90}});
    ASSERT_EQ(file.previews.at(4).size(), 1U);
    EXPECT_EQ(file.previews.at(4)[0], (walker::Entry{92, 40}));
    // All three are in the file: both that were handed over, and the one made of the patch, unreferenced,
    // between the thumbnail and the table.
    EXPECT_EQ(file.Slice({132, 50}), second);
    const uint64_t made = file.main.previewLookup - (file.main.thumbnail + file.thumbnailSize);
    ASSERT_GT(made, 28U);
    const Bytes last = file.Slice({file.main.thumbnail + file.thumbnailSize, static_cast<uint32_t>(made)});
    EXPECT_EQ(walker::Decode(last).values, Bytes(16, 3));
    EXPECT_EQ(statistics.at("Luminance8_Preview"), 40 + 50 + made);
}

TEST(WriterPreview, PreviewOfNothingIsIgnored) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
    unsigned char byte = 0;
    writer.SetCompressedPreview(&byte, 0, kxbase::Range);
    writer.SetCompressedPreview(nullptr, 100, kxbase::Range);
    EXPECT_EQ(stream.GetBytes().size(), 92U);
    EXPECT_EQ(writer.EndCreation().count("Range_Preview"), 0U);
    EXPECT_TRUE(Walk(stream.GetBytes()).previews.empty());
}

TEST(WriterPreview, PreviewOfFourGigabytesIsRefusedBeforeWriting) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
    unsigned char byte = 0;
    EXPECT_EQ(TextOf<kxbase::KXWrongDataSizeofException>(
                  [&] { writer.SetCompressedPreview(&byte, uint64_t{1} << 32, kxbase::Range); }),
              "Too many bytes");
    EXPECT_EQ(stream.GetBytes().size(), 92U);
}

TEST(WriterPreview, WithoutGridTheBytesAreWrittenAndNotListed) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream);
    Bytes preview(30, 9);
    writer.SetCompressedPreview(preview.data(), preview.size(), kxbase::Range);
    const auto statistics = writer.EndCreation();
    EXPECT_FALSE(Walk(stream.GetBytes(), {{92, 30}}).HasPreviews());
    EXPECT_EQ(statistics.at("Range_Preview"), 30U);
}

TEST(WriterPreview, TransposedPreviewIsStoredAsSampledUnderTheUprightSize) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(20, 12, 4, 4));
    const auto value = [](uint32_t y, uint32_t x) { return static_cast<uint8_t>(y * 20 + x); };
    for (uint32_t row = 0; row < 3; ++row) {
        for (uint32_t column = 0; column < 5; ++column) {
            std::vector<uint8_t> values;
            for (uint32_t x = 0; x < 4; ++x) {
                for (uint32_t y = 0; y < 4; ++y)
                    values.push_back(value(4 * row + y, 4 * column + x));
            }
            Flat<uint8_t> grey(kxbase::Luminance8, values, &Snappy());
            grey.orientation = kxio::Transposed;
            writer.AddPatch({&grey}, row, column);
        }
    }
    writer.EndCreation();
    const walker::File file = Walk(stream.GetBytes());
    const walker::Decoded preview = walker::Decode(file.Slice(file.previews.at(4)[0]));
    EXPECT_EQ(preview.width, 20U);
    EXPECT_EQ(preview.height, 12U);
    for (uint32_t y = 0; y < 12; ++y) {
        for (uint32_t x = 0; x < 20; ++x)
            EXPECT_EQ(preview.values[x * 12 + y], value(y, x));
    }
}

TEST(WriterPreview, ValueSizeToldByAnEncodedPatchLeavesTheImageAsItIs) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(12, 4, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 2.0F), &Snappy());
    writer.AddPatch({&range}, 0, 0);
    Bytes chunk;
    Snappy().Encode(Bytes(64, 1).data(), 4, 4, 64, 1.0F, chunk);
    kxio::EncodedPatchDescriptor encoded;
    encoded.component = kxbase::Range;
    encoded.data = chunk.data();
    encoded.size = chunk.size();
    writer.AddPatch({&encoded}, 0, 1);
    writer.EndCreation();
    const walker::File file = Walk(stream.GetBytes());
    EXPECT_EQ(walker::Decode(file.Slice(file.previews.at(1)[0])).elementBytes, 4U);
    // The missing patch has the value size that was told last.
    EXPECT_EQ(walker::Decode(file.Slice(file.lookup.at(1)[2])).elementBytes, 1U);
}

TEST(WriterPreview, ValueSizeMayChangeBetweenPatches) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(8, 4, 4, 4));
    Flat<uint8_t> narrow(kxbase::Component9, std::vector<uint8_t>(16, 1), &Snappy());
    Flat<uint64_t> wide(kxbase::Component9, std::vector<uint64_t>(16, 2), &Snappy());
    writer.AddPatch({&narrow}, 0, 0);
    writer.AddPatch({&wide}, 0, 1);
    writer.AddPatch({&narrow}, 0, 0);
    EXPECT_NO_THROW(writer.EndCreation());
    const walker::File file = Walk(stream.GetBytes());
    EXPECT_EQ(walker::Decode(file.Slice(file.previews.at(9)[0])).elementBytes, 1U);
}

TEST(WriterPreview, CodecThatDoesNotTakeThePreviewGivesWayToSnappy) {
    FailingCodec codec;
    codec.fails = false;
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(8, 4, 4, 4));
    Flat<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(16, 1), &codec);
    writer.AddPatch({&grey}, 0, 0);
    codec.fails = true;
    EXPECT_NO_THROW(writer.EndCreation());
    const walker::File file = Walk(stream.GetBytes());
    EXPECT_EQ(walker::Decode(file.Slice(file.previews.at(4)[0])).values[0], 1);
    EXPECT_EQ(walker::Decode(file.Slice(file.lookup.at(4)[1])).values, Bytes(16, 0));
}

// A grey grid whose left half is dark and right half bright, written in patches of 50 x 50.
walker::File WriteHalves(uint32_t columns, uint32_t rows, bool transposed) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    kxbase::GridTopology grid = MakeGrid(columns, rows, 50, 50);
    writer.CreateNew(&stream, grid);
    for (uint32_t row = 0; row * 50 < rows; ++row) {
        for (uint32_t column = 0; column * 50 < columns; ++column) {
            std::vector<uint8_t> values(2500);
            for (uint32_t i = 0; i < 2500; ++i) {
                const uint32_t x = column * 50 + (transposed ? i / 50 : i % 50);
                values[i] = x * 2 < columns ? 20 : 220;
            }
            Flat<uint8_t> grey(kxbase::Luminance8, values, &Snappy());
            grey.orientation = transposed ? kxio::Transposed : kxio::RowMajor;
            writer.AddPatch({&grey}, row, column);
        }
    }
    writer.EndCreation();
    return Walk(stream.GetBytes());
}

TEST(WriterThumbnail, ShowsTheScanUprightWhateverTheOrientation) {
    for (const bool transposed : {false, true}) {
        for (const auto& [columns, rows] : {std::pair{400U, 200U}, {150U, 300U}, {250U, 250U}}) {
            SCOPED_TRACE(std::to_string(columns) + " x " + std::to_string(rows) +
                         (transposed ? " transposed" : ""));
            const walker::File file = WriteHalves(columns, rows, transposed);
            const Picture picture(file.jpeg);
            ASSERT_EQ(picture.width, file.thumbnailWidth);
            ASSERT_EQ(picture.height, file.thumbnailHeight);
            EXPECT_EQ(picture.width > picture.height, columns > rows);
            EXPECT_NEAR(picture.Mean(0, 0, 45, 100), 20, 3);
            EXPECT_NEAR(picture.Mean(55, 0, 100, 100), 220, 3);
        }
    }
}

TEST(WriterThumbnail, SidesFollowTheGrid) {
    struct Case {
        uint32_t columns, rows, width, height;
    };
    const Case cases[] = {
        {10000, 5000, 400, 200}, {1000, 700, 400, 280}, {700, 1000, 280, 400}, {220, 200, 220, 199},
        {50, 50, 200, 200},      {300, 10, 300, 100},   {10, 300, 100, 300},
    };
    for (const Case& c : cases) {
        kxbase::InMemoryStream stream;
        kxio::QSNScanWriter writer;
        // One patch of another size than the grid is enough for a preview.
        writer.CreateNew(&stream, MakeGrid(c.columns, c.rows, 200, 200));
        Flat<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(40000, 50), &Snappy());
        writer.AddPatch({&grey}, 0, 0);
        writer.EndCreation();
        const Picture picture(Walk(stream.GetBytes()).jpeg);
        SCOPED_TRACE(std::to_string(c.columns) + " x " + std::to_string(c.rows));
        EXPECT_EQ(picture.width, c.width);
        EXPECT_EQ(picture.height, c.height);
    }
}

TEST(WriterThumbnail, ColourIsPreferredToGrey) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(100, 100, 100, 100));
    Flat<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(10000, 10), &Snappy());
    Bytes red(30000, 0);
    for (size_t i = 0; i < red.size(); i += 3)
        red[i] = 200;
    kxio::FlatPatchDescriptor colour(kxbase::Color, 3, kxio::RowMajor, 1.0, &Snappy());
    colour.data = red.data();
    colour.size = 10000;
    writer.AddPatch({&grey, &colour}, 0, 0);
    writer.EndCreation();
    const Picture picture(Walk(stream.GetBytes()).jpeg);
    EXPECT_NEAR(picture.Mean(0, 0, 100, 100), 200, 4);
    EXPECT_LT(picture.rgb[1], 20);
}

TEST(WriterThumbnail, IsMadeOfTheImageAsItIsWhateverAnEncodedPatchTells) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(8, 4, 4, 4));
    Flat<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(16, 100), &Snappy());
    writer.AddPatch({&grey}, 0, 0);
    writer.AddPatch({&grey}, 0, 1);
    kxio::EncodedPatchDescriptor encoded(kxbase::Luminance8, 4);
    writer.AddPatch({&encoded}, 0, 1);
    writer.EndCreation();
    EXPECT_NEAR(Picture(Walk(stream.GetBytes()).jpeg).Mean(0, 0, 100, 100), 100, 3);
}

TEST(WriterThumbnail, BlankWithoutColourAndGrey) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    writer.AddPatch({&range}, 0, 0);
    writer.EndCreation();
    const Picture picture(Walk(stream.GetBytes()).jpeg);
    EXPECT_EQ(picture.width, 200U);
    EXPECT_EQ(picture.height, 200U);
    EXPECT_LT(picture.Mean(0, 0, 100, 100), 2);
}

TEST(WriterThumbnail, SuppliedOneIsStoredByteForByteWithItsOwnSides) {
    const Bytes jpeg = MakeJpeg(320, 160);
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.SetCompressedThumbnail(jpeg);
    writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
    Flat<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(16, 10), &Snappy());
    writer.AddPatch({&grey}, 0, 0);
    writer.EndCreation();
    const walker::File file = Walk(stream.GetBytes());
    EXPECT_EQ(file.jpeg, jpeg);
    EXPECT_EQ(file.thumbnailWidth, 320U);
    EXPECT_EQ(file.thumbnailHeight, 160U);
}

TEST(WriterThumbnail, SuppliedOneCanBeTakenBack) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.SetCompressedThumbnail(MakeJpeg(320, 160));
    writer.SetCompressedThumbnail({});
    writer.CreateNew(&stream);
    writer.EndCreation();
    const walker::File file = Walk(stream.GetBytes());
    EXPECT_EQ(file.thumbnailWidth, 200U);
    EXPECT_EQ(Picture(file.jpeg).width, 200U);
}

TEST(WriterThumbnail, BytesThatAreNoJpegAreRefusedAndNotKept) {
    const Bytes jpeg = MakeJpeg(64, 32);
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream);
    writer.SetCompressedThumbnail(jpeg);
    EXPECT_EQ(TextOf<kxbase::KXBadInputException>([&] { writer.SetCompressedThumbnail(Bytes(100, 7)); }),
              "Unknown thumbnail data size");
    writer.EndCreation();
    EXPECT_EQ(Walk(stream.GetBytes()).jpeg, jpeg);
}

TEST(WriterThumbnail, TwoOrFourBytesPerValueCannotBecomeOne) {
    for (const uint64_t length : {2U, 4U, 5U}) {
        for (const auto component : {kxbase::Luminance8, kxbase::Color}) {
            kxbase::InMemoryStream stream;
            kxio::QSNScanWriter writer;
            writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
            Bytes values(16 * length, 1);
            kxio::FlatPatchDescriptor flat(component, length, kxio::RowMajor, 1.0, &Snappy());
            flat.data = values.data();
            flat.size = 16;
            writer.AddPatch({&flat}, 0, 0);
            EXPECT_EQ(TextOf<kxbase::KXWrongDataSizeofException>([&] { writer.EndCreation(); }),
                      "Unknown thumbnail data size");
            EXPECT_THROW(writer.EndCreation(), kxbase::KXFileNotOpenException);
        }
    }
}

TEST(WriterThumbnail, TransposedValuesOfFiveBytesCannotBeTurned) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
    Bytes values(16 * 5, 1);
    kxio::FlatPatchDescriptor flat(kxbase::Color, 5, kxio::Transposed, 1.0, &Snappy());
    flat.data = values.data();
    flat.size = 16;
    writer.AddPatch({&flat}, 0, 0);
    EXPECT_EQ(TextOf<kxbase::KXException>([&] { writer.EndCreation(); }), "Unsupported preview pixel Length");
    // The main header is still the provisional one.
    EXPECT_THROW(Walk(stream.GetBytes()), std::runtime_error);
}

}  // namespace
