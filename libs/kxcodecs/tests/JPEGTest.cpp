// SPDX-License-Identifier: MIT
#include "kxcodecs/JPEG.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include <jpeglib.h>

#include "TestCodecs.h"
#include "support/AllocationWatch.h"

namespace kxcodecs::test {
namespace {

// An image made by the JPEG library itself, of kinds that JPEG::Encode does not make.
Bytes MakeJPEG(unsigned width, unsigned height, int channels, J_COLOR_SPACE space,
               const std::function<void(jpeg_compress_struct&)>& adjust = {}) {
    jpeg_compress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* memory = nullptr;
    unsigned long length = 0;
    jpeg_mem_dest(&info, &memory, &length);
    info.image_width = width;
    info.image_height = height;
    info.input_components = channels;
    info.in_color_space = space;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, 95, TRUE);
    if (adjust) adjust(info);
    jpeg_start_compress(&info, TRUE);
    Bytes row(std::size_t{width} * static_cast<unsigned>(channels));
    while (info.next_scanline < height) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            row[i] =
                static_cast<unsigned char>(50 + info.next_scanline + i % static_cast<unsigned>(channels));
        }
        JSAMPROW pointer = row.data();
        jpeg_write_scanlines(&info, &pointer, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    const Bytes image(memory, memory + length);
    std::free(memory);
    return image;
}

// Decodes and frees; false leaves all outputs empty.
bool DecodeImage(const Bytes& image, Bytes& pixels, unsigned& width, unsigned& height) {
    unsigned char* buffer = reinterpret_cast<unsigned char*>(1);
    uint64_t bytes = 1;
    const bool done = JPEG::Decode(image.data(), image.size(), buffer, bytes, width, height);
    if (done) {
        EXPECT_EQ(bytes, uint64_t{3} * width * height);
        pixels.assign(buffer, buffer + bytes);
    } else {
        EXPECT_EQ(buffer, nullptr);
        EXPECT_EQ(bytes, 0U);
        EXPECT_EQ(width, 0U);
        EXPECT_EQ(height, 0U);
        pixels.clear();
    }
    JPEG::Free(buffer);
    return done;
}

bool Decodes(const Bytes& image) {
    Bytes pixels;
    unsigned width = 0;
    unsigned height = 0;
    return DecodeImage(image, pixels, width, height);
}

TEST(JPEG, EncodedImageDecodesToNearlyTheSame) {
    const Bytes image = SmoothImage(40, 30, 3);
    Bytes encoded;
    ASSERT_TRUE(JPEG::Encode(image.data(), 40, 30, 90, encoded));
    Bytes pixels;
    unsigned width = 0;
    unsigned height = 0;
    ASSERT_TRUE(DecodeImage(encoded, pixels, width, height));
    EXPECT_EQ(width, 40U);
    EXPECT_EQ(height, 30U);
    ASSERT_EQ(pixels.size(), image.size());
    for (std::size_t i = 0; i < image.size(); ++i)
        ASSERT_NEAR(pixels[i], image[i], 10) << i;
}

TEST(JPEG, SmallImageMayBeLongerThanItsPixels) {
    const Bytes black(8 * 8 * 3);
    Bytes encoded = {1, 2, 3};
    ASSERT_TRUE(JPEG::Encode(black.data(), 8, 8, 90, encoded));
    EXPECT_GT(encoded.size(), 2 * black.size());
    EXPECT_EQ(encoded[0], 0xFF);
    EXPECT_EQ(encoded[1], 0xD8);
    Bytes pixels;
    unsigned width = 0;
    unsigned height = 0;
    ASSERT_TRUE(DecodeImage(encoded, pixels, width, height));
    EXPECT_EQ(pixels, black);
}

TEST(JPEG, ImageLongerThanOneBufferIsWhole) {
    const Bytes noise = Noise(300 * 200 * 3, 7);
    Bytes encoded;
    ASSERT_TRUE(JPEG::Encode(noise.data(), 300, 200, 100, encoded));
    EXPECT_GT(encoded.size(), 100000U);
    EXPECT_TRUE(Decodes(encoded));
}

TEST(JPEG, GreyImagesBecomeColour) {
    Bytes pixels;
    unsigned width = 0;
    unsigned height = 0;
    ASSERT_TRUE(DecodeImage(MakeJPEG(9, 5, 1, JCS_GRAYSCALE), pixels, width, height));
    EXPECT_EQ(width, 9U);
    EXPECT_EQ(height, 5U);
    ASSERT_EQ(pixels.size(), 135U);
    for (std::size_t i = 0; i < pixels.size(); i += 3) {
        EXPECT_EQ(pixels[i], pixels[i + 1]);
        EXPECT_EQ(pixels[i], pixels[i + 2]);
    }
}

TEST(JPEG, ProgressiveImagesAreRead) {
    EXPECT_TRUE(Decodes(MakeJPEG(50, 40, 3, JCS_RGB, [](auto& info) { jpeg_simple_progression(&info); })));
}

TEST(JPEG, TooManyScansAreRefused) {
    // Each coefficient of each colour a scan of its own: 190 passes over the image.
    static std::vector<jpeg_scan_info> scans;
    scans = {{3, {0, 1, 2, 0}, 0, 0, 0, 0}};
    for (int component = 0; component < 3; ++component) {
        for (int k = 1; k < 64; ++k)
            scans.push_back({1, {component, 0, 0, 0}, k, k, 0, 0});
    }
    EXPECT_FALSE(Decodes(MakeJPEG(50, 40, 3, JCS_RGB, [](auto& info) {
        info.scan_info = scans.data();
        info.num_scans = static_cast<int>(scans.size());
    })));
}

TEST(JPEG, KindsWithoutAColourMeaningAreRefused) {
    EXPECT_FALSE(Decodes(MakeJPEG(9, 5, 4, JCS_CMYK)));
    EXPECT_FALSE(Decodes(MakeJPEG(50, 40, 3, JCS_RGB, [](auto& info) { info.arith_code = TRUE; })));
}

TEST(JPEG, NoImageIsNoImage) {
    EXPECT_FALSE(Decodes({}));
    EXPECT_FALSE(Decodes({0xFF}));
    EXPECT_FALSE(Decodes({0xFF, 0xD8}));
    EXPECT_FALSE(Decodes({0xFF, 0xD8, 0xFF, 0xD9}));
    EXPECT_FALSE(Decodes(Noise(1000, 1)));
    EXPECT_FALSE(Decodes(Bytes(1000)));
    unsigned char* pixels = nullptr;
    uint64_t bytes = 1;
    unsigned width = 1;
    unsigned height = 1;
    EXPECT_FALSE(JPEG::Decode(nullptr, 100, pixels, bytes, width, height));
    JPEG::Free(nullptr);
}

TEST(JPEG, CutImageIsRefusedAtEveryByte) {
    Bytes encoded;
    ASSERT_TRUE(JPEG::Encode(SmoothImage(20, 20, 3).data(), 20, 20, 80, encoded));
    for (std::size_t size = 0; size < encoded.size(); ++size) {
        EXPECT_FALSE(Decodes({encoded.begin(), encoded.begin() + static_cast<std::ptrdiff_t>(size)})) << size;
    }
    EXPECT_TRUE(Decodes(encoded));
}

TEST(JPEG, FlippedBitsEndInAnImageOrAFailure) {
    for (const bool progressive : {false, true}) {
        const Bytes image = MakeJPEG(20, 20, 3, JCS_RGB, [&](auto& info) {
            if (progressive) jpeg_simple_progression(&info);
        });
        for (std::size_t at = 0; at < image.size(); ++at) {
            for (int bit = 0; bit < 8; ++bit) {
                Bytes damaged = image;
                damaged[at] = static_cast<unsigned char>(damaged[at] ^ (1 << bit));
                Decodes(damaged);
            }
        }
    }
}

TEST(JPEG, BytesBehindTheImageAreIgnored) {
    Bytes encoded;
    ASSERT_TRUE(JPEG::Encode(SmoothImage(20, 20, 3).data(), 20, 20, 80, encoded));
    EXPECT_TRUE(Decodes(encoded + Bytes(50)));
}

// Overwrites the sides in the image's frame header.
Bytes WithSides(Bytes image, unsigned width, unsigned height) {
    for (std::size_t at = 2; at + 9 < image.size(); ++at) {
        if (image[at] != 0xFF || image[at + 1] != 0xC0) continue;
        image[at + 5] = static_cast<unsigned char>(height >> 8);
        image[at + 6] = static_cast<unsigned char>(height & 0xFF);
        image[at + 7] = static_cast<unsigned char>(width >> 8);
        image[at + 8] = static_cast<unsigned char>(width & 0xFF);
        return image;
    }
    ADD_FAILURE() << "no frame header";
    return image;
}

TEST(JPEG, SidesThatTheBytesCannotFillAreRefused) {
    Bytes encoded;
    ASSERT_TRUE(JPEG::Encode(SmoothImage(20, 20, 3).data(), 20, 20, 80, encoded));
    EXPECT_TRUE(Decodes(WithSides(encoded, 20, 20)));
    EXPECT_FALSE(Decodes(WithSides(encoded, 65500, 65500)));
    EXPECT_FALSE(Decodes(WithSides(encoded, 20, 0)));
    EXPECT_FALSE(Decodes(WithSides(encoded, 0, 20)));
    EXPECT_FALSE(Decodes(WithSides(encoded, 400, 400))) << "the data end long before the image does";
}

TEST(JPEG, SidesBeyondTheDensestImageAreRefusedUnread) {
    Bytes encoded;
    ASSERT_TRUE(JPEG::Encode(SmoothImage(20, 20, 3).data(), 20, 20, 80, encoded));
    const auto bytes = static_cast<unsigned>(encoded.size());
    for (const unsigned height : {bytes, bytes + 1}) {
        const Bytes image = WithSides(encoded, 512, height);
        unsigned width = 0;
        unsigned read = 0;
        EXPECT_EQ(JPEG::ReadSize(image.data(), image.size(), width, read), height == bytes) << height;
    }
}

TEST(JPEG, MorePixelsThanTheLimitAreRefusedUnread) {
    Bytes encoded;
    ASSERT_TRUE(JPEG::Encode(SmoothImage(20, 20, 3).data(), 20, 20, 80, encoded));
    // So many bytes behind the image that its claimed pixels could be in them.
    const Bytes padded = WithSides(encoded, 20000, 20000) + Bytes(std::size_t{1} << 20);
    unsigned width = 0;
    unsigned height = 0;
    ASSERT_TRUE(JPEG::ReadSize(padded.data(), padded.size(), width, height));
    EXPECT_EQ(width, 20000U);
    EXPECT_EQ(height, 20000U);
    EXPECT_GT(uint64_t{width} * height, JPEG::kMaxPixels);
    {
        const kxtest::AllocationWatch watch;
        EXPECT_FALSE(Decodes(padded));
        EXPECT_LT(watch.Largest(), std::size_t{1} << 20);
    }

    Bytes out = {1};
    const unsigned char one = 0;
    EXPECT_FALSE(JPEG::Encode(&one, 20000, 20000, 90, out));
    EXPECT_TRUE(out.empty());
}

TEST(JPEG, EncodeRefusesImpossibleSides) {
    const Bytes row(65501 * 3);
    Bytes out = {1};
    EXPECT_FALSE(JPEG::Encode(row.data(), 0, 5, 90, out));
    EXPECT_FALSE(JPEG::Encode(row.data(), 5, 0, 90, out));
    EXPECT_FALSE(JPEG::Encode(row.data(), 65501, 1, 90, out));
    EXPECT_FALSE(JPEG::Encode(nullptr, 5, 5, 90, out));
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(JPEG::Encode(row.data(), 65500, 1, 90, out));
}

TEST(JPEG, QualitiesOutsideTheRangeAreTheNearestOnes) {
    const Bytes image = SmoothImage(40, 30, 3);
    const auto at = [&](int quality) {
        Bytes out;
        EXPECT_TRUE(JPEG::Encode(image.data(), 40, 30, quality, out));
        return out;
    };
    EXPECT_EQ(at(-7), at(1));
    EXPECT_EQ(at(0), at(1));
    EXPECT_EQ(at(1000), at(100));
}

TEST(JPEG, ReadSizeKnowsTheSidesWithoutDecoding) {
    unsigned width = 1;
    unsigned height = 1;
    const Bytes image = MakeJPEG(123, 45, 3, JCS_RGB);
    EXPECT_TRUE(JPEG::ReadSize(image.data(), image.size(), width, height));
    EXPECT_EQ(width, 123U);
    EXPECT_EQ(height, 45U);
    EXPECT_FALSE(JPEG::ReadSize(image.data(), 10, width, height));
    EXPECT_EQ(width, 0U);
    EXPECT_EQ(height, 0U);
}

}  // namespace
}  // namespace kxcodecs::test
