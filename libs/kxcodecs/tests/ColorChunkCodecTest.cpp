// SPDX-License-Identifier: MIT
#include "kxcodecs/ColorChunkCodec.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

#include "ColorPlanes.h"
#include "TestCodecs.h"

namespace kxcodecs::test {
namespace {

// Colours as a camera sees them: shades that the channels share, a little noise, cells without a colour.
Bytes Photo(uint32_t width, uint32_t height, uint32_t blackEvery, uint32_t noise = 5) {
    const Bytes random = Noise(std::size_t{3} * width * height, 77);
    Bytes image;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const std::size_t i = std::size_t{y} * width + x;
            const uint32_t shade = 80 + (x * x / 37 + y * 3) % 90;
            const bool black = blackEvery != 0 && (x / 9 + y / 7) % blackEvery == 0;
            for (std::size_t c = 0; c < 3; ++c) {
                const uint32_t value = shade + 11 * static_cast<uint32_t>(c) + random[3 * i + c] % noise;
                image.push_back(black ? uint8_t{0} : static_cast<unsigned char>(value));
            }
        }
    }
    return image;
}

uint8_t ColorFormOf(const Bytes& chunk) {
    return chunk.at(QKXChunkCodec::HeaderSize);
}

TEST(ColorChunkCodec, PhotosAreSmallerThanThroughZstd) {
    for (const uint32_t blackEvery : {0U, 3U}) {
        const Bytes image = Photo(120, 90, blackEvery);
        const Bytes mine = EncodeWith(ColorChunkCodec(), image, 120, 90);
        const Bytes general = EncodeWith(ZstdChunkCodec(), image, 120, 90);
        EXPECT_LT(mine.size(), general.size());
        EXPECT_LT(ColorFormOf(mine), 4) << "its own form";
        Bytes out;
        ASSERT_EQ(Decode(mine, out), DecodeStatus::Decoded);
        EXPECT_EQ(out, image);
    }
}

TEST(ColorChunkCodec, WhatItDoesNotHelpIsStoredAsZstdStoresIt) {
    const Bytes noise = Noise(40 * 30 * 4, 3);
    const Bytes mine = EncodeWith(ColorChunkCodec(), noise, 40, 30);
    EXPECT_EQ(ColorFormOf(mine), 0x80);
    EXPECT_EQ(mine.size(), EncodeWith(ZstdChunkCodec(), noise, 40, 30).size() + 1);
}

TEST(ColorChunkCodec, BlackCellsCostNextToNothing) {
    Bytes image = Photo(256, 256, 0);
    const std::size_t full = EncodeWith(ColorChunkCodec(), image, 256, 256).size();
    std::fill(image.begin() + 256 * 128 * 3, image.end(), uint8_t{0});
    const std::size_t half = EncodeWith(ColorChunkCodec(), image, 256, 256).size();
    EXPECT_LT(half, full * 52 / 100);
    const Bytes black(256 * 256 * 3);
    EXPECT_LT(EncodeWith(ColorChunkCodec(), black, 256, 256).size(), 200U);
}

TEST(ColorChunkCodec, AllKindsOfImagesComeBack) {
    EXPECT_TRUE(rc::check([] {
        const auto width = *rc::gen::inRange<uint32_t>(1, 60);
        const auto height = *rc::gen::inRange<uint32_t>(1, 60);
        const auto blackEvery = *rc::gen::inRange<uint32_t>(0, 6);
        const auto noise = *rc::gen::element(1U, 2U, 9U, 40U, 255U);
        const Bytes image = Photo(width, height, blackEvery, noise);
        Bytes out;
        RC_ASSERT(Decode(EncodeWith(ColorChunkCodec(), image, width, height), out) == DecodeStatus::Decoded);
        RC_ASSERT(out == image);
    }));
}

TEST(ColorPlanes, EveryPredictorIsUndone) {
    for (const bool difference : {false, true}) {
        for (uint8_t number = 0; number < kColorPredictors; ++number) {
            const ColorPlane plane{13, difference, Noise(13 * 11, number)};
            Bytes kept = Noise(13 * 11, 99);
            for (unsigned char& cell : kept)
                cell &= 1;
            ColorPlane changed = plane;
            const auto predictor = static_cast<ColorPredictor>(number);
            const Bytes tokens = PredictTokens(changed, predictor, kept);
            ASSERT_EQ(tokens.size(), static_cast<std::size_t>(std::count(kept.begin(), kept.end(), 1)));
            ColorPlane back{13, difference, Bytes(13 * 11)};
            RestorePlane(back, predictor, kept, tokens);
            EXPECT_EQ(back.values, changed.values) << int{number};
            for (std::size_t i = 0; i < kept.size(); ++i) {
                if (kept[i] == 0) continue;
                ASSERT_EQ(back.values[i], plane.values[i]) << int{number} << " " << i;
            }
        }
    }
}

TEST(ColorPlanes, PredictorsAreTheirFormulas) {
    // c u     left of the last value l: by hand.
    const Bytes kept(4, 1);
    const struct {
        ColorPredictor predictor;
        int expected;
    } cases[] = {{ColorPredictor::Zero, 0},      {ColorPredictor::Left, 20},   {ColorPredictor::Up, 50},
                 {ColorPredictor::Gradient, 60}, {ColorPredictor::Median, 50}, {ColorPredictor::Mean, 35},
                 {ColorPredictor::Plane, 48}};
    for (const auto& [predictor, expected] : cases) {
        ColorPlane plane{2, false, {10, 50, 20, 100}};
        const Bytes tokens = PredictTokens(plane, predictor, kept);
        EXPECT_EQ(tokens[3], 2 * (100 - expected)) << static_cast<int>(predictor);
    }
    // Differences count with their sign: the mean of -2 and 4 is 1.
    ColorPlane plane{2, true, {0, 254, 4, 0}};
    EXPECT_EQ(PredictTokens(plane, ColorPredictor::Mean, kept)[3], 1);  // -1
}

class DamagedColors : public ::testing::Test {
protected:
    const Bytes image = Photo(70, 60, 4);
    const Bytes chunk = EncodeWith(ColorChunkCodec(), image, 70, 60);
};

TEST_F(DamagedColors, NoFlippedBitOfThePayloadGoesUnnoticed) {
    ASSERT_LT(ColorFormOf(chunk), 4);
    for (std::size_t at = QKXChunkCodec::HeaderSize; at < chunk.size(); ++at) {
        Bytes damaged = chunk;
        damaged[at] = static_cast<unsigned char>(damaged[at] ^ (1U << (at % 8)));
        Bytes out;
        const DecodeStatus status = Decode(damaged, out);
        EXPECT_TRUE(status == DecodeStatus::DamagedPayload || out == image) << at;
    }
}

TEST_F(DamagedColors, CutsAndBytesBehindFail) {
    Bytes out;
    for (std::size_t size = QKXChunkCodec::HeaderSize; size < chunk.size(); size += 3) {
        const Bytes cut(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(Decode(cut, out), DecodeStatus::DamagedPayload) << size;
    }
    EXPECT_EQ(Decode(chunk + Bytes(1), out), DecodeStatus::DamagedPayload);
}

TEST_F(DamagedColors, SidesThatWereExchangedFail) {
    Bytes turned = chunk;
    std::swap_ranges(turned.begin() + 8, turned.begin() + 12, turned.begin() + 12);
    Bytes out;
    EXPECT_EQ(Decode(turned, out), DecodeStatus::DamagedPayload);
}

}  // namespace
}  // namespace kxcodecs::test
