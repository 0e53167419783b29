// SPDX-License-Identifier: MIT
// The grid codec on what it is made for, and on what it is not.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "TestCodecs.h"
#include "grid/GridPacking.h"
#include "grid/GridPayload.h"
#include "grid/GridSimd.h"

namespace kxcodecs {

void PrintTo(GridChunkCodec::Mode mode, std::ostream* out) {
    *out << (mode == GridChunkCodec::Mode::Fast ? "fast" : "balanced");
}

}  // namespace kxcodecs

namespace kxcodecs::test {
namespace {

using Mode = GridChunkCodec::Mode;

// A room with noise as a scanner sees it, in steps of 0.1 mm; `holes` of 100 cells came back without a
// return.
template <class T>
std::vector<T> Ranges(uint32_t width, uint32_t height, uint32_t seed, uint32_t holes = 20) {
    std::mt19937 random(seed);
    std::vector<T> values;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const double wave = 40000 + 3000 * std::sin(x * 0.05) + 2000 * std::cos(y * 0.03);
            const auto noise = static_cast<int>(random() % 31) - 15;
            const bool hole = (x / 9 + y / 5) % 100 < holes / 2 || random() % 200 < holes;
            // Elements too small for the range keep its low part, which is noise of another kind.
            values.push_back(hole ? T{0} : static_cast<T>(static_cast<int32_t>(wave + noise)));
        }
    }
    return values;
}

// Angles that step with the row; cells without a return hold the grid's own angle.
std::vector<int32_t> Angles(uint32_t width, uint32_t height, bool perColumn, uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<int32_t> values;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const auto own = static_cast<int32_t>(std::lround(500000 + 785.4 * (perColumn ? x : y)));
            const bool hole = (x / 30 + y / 20) % 3 == 0;
            values.push_back(hole ? own : own + 40 + static_cast<int32_t>(random() % 17));
        }
    }
    return values;
}

Bytes BackOf(const Bytes& chunk) {
    Bytes out;
    EXPECT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
    return out;
}

void ExpectBackInBothModes(const Bytes& data, uint32_t width, uint32_t height) {
    for (const Mode mode : {Mode::Fast, Mode::Balanced}) {
        const Bytes chunk = EncodeWith(GridChunkCodec(mode), data, width, height);
        EXPECT_EQ(BackOf(chunk), data) << width << " x " << height;
    }
}

uint8_t FormOf(const Bytes& chunk) {
    return chunk.at(28);
}

template <class T>
void ExpectRangesBack(uint32_t seed) {
    for (const auto& [width, height] :
         {std::pair{256U, 256U}, {100U, 37U}, {17U, 300U}, {1U, 64U}, {64U, 1U}}) {
        const std::vector<T> ranges = Ranges<T>(width, height, seed);
        ExpectBackInBothModes(BytesOf(ranges), width, height);
    }
}

TEST(GridChunkCodec, RangesOfEachElementSizeComeBack) {
    ExpectRangesBack<int32_t>(1);
    ExpectRangesBack<int64_t>(2);
    ExpectRangesBack<uint16_t>(3);
    ExpectRangesBack<uint8_t>(4);
}

TEST(GridChunkCodec, EverySideAroundABlock) {
    for (const uint32_t width : {1U, 2U, 15U, 16U, 17U, 31U, 32U, 33U, 48U}) {
        for (const uint32_t height : {1U, 2U, 15U, 16U, 17U, 33U}) {
            ExpectBackInBothModes(BytesOf(Ranges<int32_t>(width, height, width)), width, height);
            ExpectBackInBothModes(BytesOf(Ranges<int32_t>(width, height, height, 0)), width, height);
        }
    }
}

TEST(GridChunkCodec, TheCallersMemoryMayBeginAtAnyByte) {
    const auto values = Ranges<uint32_t>(64, 48, 5);
    std::vector<uint32_t> turned(values.size());
    for (size_t i = 0; i < values.size(); ++i)
        turned[i % 48 * 64 + i / 48 % 64] = values[i];
    for (const auto& image : {values, turned}) {
        Bytes chunk;
        GridChunkCodec codec(Mode::Fast);
        codec.Encode(reinterpret_cast<const unsigned char*>(image.data()), 64, 48, image.size() * 4, 1.0F,
                     chunk);
        ChunkHeaderInfo header;
        ASSERT_TRUE(QKXChunkCodec::ReadHeader(chunk, header));
        codec.SetLayout(header);
        for (size_t shift = 0; shift < 4; ++shift) {
            Bytes out(image.size() * 4 + shift);
            ASSERT_TRUE(codec.DecodeInto(chunk.data() + QKXChunkCodec::HeaderSize,
                                         chunk.size() - QKXChunkCodec::HeaderSize,
                                         std::span(out).subspan(shift)));
            EXPECT_EQ(std::memcmp(out.data() + shift, image.data(), image.size() * 4), 0) << shift;
        }
    }
}

TEST(GridChunkCodec, UsesItsOwnFormForRangesAndIsSmallerThanZLib) {
    const Bytes data = BytesOf(Ranges<int32_t>(256, 256, 5));
    const Bytes fast = EncodeWith(GridChunkCodec(Mode::Fast), data, 256, 256);
    const Bytes balanced = EncodeWith(GridChunkCodec(Mode::Balanced), data, 256, 256);
    EXPECT_EQ(FormOf(fast), static_cast<uint8_t>(grid::Form::Widths));
    EXPECT_EQ(FormOf(balanced), static_cast<uint8_t>(grid::Form::Tokens));
    EXPECT_LT(balanced.size(), fast.size());
    EXPECT_LT(2 * fast.size(), EncodeWith(ZLibChunkCodec(), data, 256, 256).size());
}

TEST(GridChunkCodec, CellsWithoutAReturnCostNextToNothing) {
    // 31 steps of noise are 4.95 bits; the mask of scattered single holes is what the second one pays for.
    const Bytes full = EncodeWith(GridChunkCodec(), BytesOf(Ranges<int32_t>(256, 256, 6, 0)), 256, 256);
    std::vector<int32_t> half = Ranges<int32_t>(256, 256, 6, 0);
    for (std::size_t i = 0; i < half.size(); ++i) {
        if ((i % 256) / 32 % 2 == 0) half[i] = 0;
    }
    const Bytes striped = EncodeWith(GridChunkCodec(), BytesOf(half), 256, 256);
    EXPECT_LT(striped.size(), full.size() / 2 + full.size() / 20);
    EXPECT_EQ(BackOf(striped), BytesOf(half));
}

TEST(GridChunkCodec, OwnAnglesOfTheGridInEmptyCellsCostNextToNothing) {
    for (const bool perColumn : {false, true}) {
        const std::vector<int32_t> angles = Angles(256, 256, perColumn, 7);
        const Bytes chunk = EncodeWith(GridChunkCodec(), BytesOf(angles), 256, 256);
        EXPECT_EQ(BackOf(chunk), BytesOf(angles));
        EXPECT_EQ(chunk.at(30),
                  static_cast<uint8_t>(perColumn ? grid::VoidKind::PerColumn : grid::VoidKind::PerRow));
        // 17 steps are 4.09 bits; two thirds of 65,536 cells.
        EXPECT_LT(chunk.size() * 8, 65536 * 2 / 3 * 4.7);
    }
}

TEST(GridChunkCodec, AnEmptyPatchIsTiny) {
    const Bytes data(256 * 256 * 4);
    for (const Mode mode : {Mode::Fast, Mode::Balanced}) {
        const Bytes chunk = EncodeWith(GridChunkCodec(mode), data, 256, 256);
        EXPECT_LT(chunk.size(), 200U);
        EXPECT_EQ(BackOf(chunk), data);
    }
}

TEST(GridChunkCodec, LargeEmptyPatchesOfAnySizeComeBack) {
    for (const uint32_t side : {96U, 320U, 1000U, 1024U, 1100U}) {
        for (const Mode mode : {Mode::Fast, Mode::Balanced}) {
            std::vector<int32_t> values(size_t{side} * side);
            EXPECT_EQ(BackOf(EncodeWith(GridChunkCodec(mode), BytesOf(values), side, side)), BytesOf(values))
                << side;
            for (uint32_t y = 0; y < side; ++y)
                values[size_t{y} * side] = 5000;
            EXPECT_EQ(BackOf(EncodeWith(GridChunkCodec(mode), BytesOf(values), side, side)), BytesOf(values))
                << side;
        }
    }
}

TEST(GridChunkCodec, FewDifferentValuesBecomeRanks) {
    std::mt19937 random(8);
    const uint16_t shades[] = {100, 257, 900, 4000, 4001, 17000, 42000, 65535};
    std::vector<uint16_t> values;
    for (int i = 0; i < 128 * 128; ++i)
        values.push_back(shades[random() % 8]);
    const Bytes chunk = EncodeWith(GridChunkCodec(), BytesOf(values), 128, 128);
    EXPECT_EQ(BackOf(chunk), BytesOf(values));
    EXPECT_LT(chunk.size() * 8, 128 * 128 * 3.4);
}

TEST(GridChunkCodec, CommonStepIsTakenOut) {
    std::vector<int32_t> ranges = Ranges<int32_t>(128, 128, 9);
    std::vector<int32_t> coarse;
    for (const int32_t range : ranges)
        coarse.push_back(range == 0 ? 0 : range * 77 + 13);
    const Bytes chunk = EncodeWith(GridChunkCodec(), BytesOf(coarse), 128, 128);
    EXPECT_EQ(BackOf(chunk), BytesOf(coarse));
    const Bytes fine = EncodeWith(GridChunkCodec(), BytesOf(ranges), 128, 128);
    EXPECT_LT(chunk.size(), fine.size() + fine.size() / 50);
}

TEST(GridChunkCodec, ExtremesAndNoiseComeBack) {
    std::vector<int32_t> values = Ranges<int32_t>(64, 64, 10);
    values[0] = std::numeric_limits<int32_t>::min();
    values[1] = std::numeric_limits<int32_t>::max();
    values[2000] = std::numeric_limits<int32_t>::max();
    values[4095] = std::numeric_limits<int32_t>::min();
    ExpectBackInBothModes(BytesOf(values), 64, 64);
    std::vector<int64_t> wide = Ranges<int64_t>(64, 64, 11);
    wide[77] = std::numeric_limits<int64_t>::min();
    ExpectBackInBothModes(BytesOf(wide), 64, 64);
    wide[77] = int64_t{40000} + std::numeric_limits<uint32_t>::max();
    ExpectBackInBothModes(BytesOf(wide), 64, 64);
    for (const uint32_t bytes : {1U, 2U, 4U, 8U})
        ExpectBackInBothModes(Noise(64 * 64 * bytes, bytes), 64, 64);
}

TEST(GridChunkCodec, NoiseFallsBackAndStaysNearItsSize) {
    const Bytes data = Noise(100 * 100 * 4, 12);
    for (const Mode mode : {Mode::Fast, Mode::Balanced})
        EXPECT_LT(EncodeWith(GridChunkCodec(mode), data, 100, 100).size(), data.size() + 200);
}

TEST(GridChunkCodec, LevelChoosesTheMode) {
    const Bytes data = BytesOf(Ranges<int32_t>(64, 64, 13));
    GridChunkCodec codec;
    EXPECT_EQ(codec.GetMode(), Mode::Balanced);
    codec.SetCompressionLevel(1);
    EXPECT_EQ(codec.GetMode(), Mode::Fast);
    EXPECT_EQ(EncodeWith(codec, data, 64, 64), EncodeWith(GridChunkCodec(Mode::Fast), data, 64, 64));
    codec.SetCompressionLevel(9);
    EXPECT_EQ(codec.GetMode(), Mode::Balanced);
}

TEST(GridChunkCodec, QuantisedFloatsComeBackAsIntegers) {
    std::vector<float> metres;
    for (const int32_t range : Ranges<int32_t>(64, 64, 14))
        metres.push_back(static_cast<float>(range) * 0.1F);
    const Bytes grid = EncodeWith(GridChunkCodec(), BytesOf(metres), 64, 64, 10.0F);
    const Bytes zlib = EncodeWith(ZLibChunkCodec(), BytesOf(metres), 64, 64, 10.0F);
    EXPECT_EQ(BackOf(grid), BackOf(zlib));
}

class GridVectors : public ::testing::Test {
protected:
    ~GridVectors() override { grid::UseVectorTarget(""); }
};

TEST_F(GridVectors, EveryKindOfVectorsGivesTheSameBytes) {
    const std::vector<std::string> targets = grid::VectorTargets();
    ASSERT_FALSE(targets.empty());
    if (targets.size() == 1) GTEST_SKIP() << "this machine has one kind of vectors: " << targets[0];
    std::vector<std::pair<Bytes, uint32_t>> images;
    for (const uint32_t holes : {0U, 20U, 100U, 190U}) {
        images.emplace_back(BytesOf(Ranges<int32_t>(150, 99, holes, holes)), 150);
        images.emplace_back(BytesOf(Ranges<uint16_t>(150, 99, holes, holes)), 150);
        images.emplace_back(BytesOf(Ranges<uint8_t>(33, 99, holes, holes)), 33);
        images.emplace_back(BytesOf(Ranges<int64_t>(40, 99, holes, holes)), 40);
    }
    images.emplace_back(BytesOf(Angles(99, 99, true, 1)), 99);
    images.emplace_back(Noise(99 * 99 * 4, 3), 99);
    for (const auto& [data, width] : images) {
        for (const Mode mode : {Mode::Fast, Mode::Balanced}) {
            grid::UseVectorTarget(targets.back());
            const Bytes plain = EncodeWith(GridChunkCodec(mode), data, width, 99);
            EXPECT_EQ(BackOf(plain), data);
            for (const std::string& target : targets) {
                grid::UseVectorTarget(target);
                EXPECT_EQ(EncodeWith(GridChunkCodec(mode), data, width, 99), plain) << target;
                EXPECT_EQ(BackOf(plain), data) << target;
            }
        }
    }
}

RC_GTEST_PROP(GridChunkCodecProperty, AnyIntegersComeBack, ()) {
    const uint32_t width = *rc::gen::inRange<uint32_t>(1, 70), height = *rc::gen::inRange<uint32_t>(1, 70);
    const uint32_t elementBytes = *rc::gen::element(1U, 2U, 4U, 8U);
    const uint32_t seed = *rc::gen::arbitrary<uint32_t>();
    const int slope = *rc::gen::inRange(-2000, 2000), noiseBits = *rc::gen::inRange(0, 34);
    const uint32_t holes = *rc::gen::inRange(0U, 100U), run = *rc::gen::inRange(1U, 40U);
    const int voidKind = *rc::gen::inRange(0, 4);
    std::mt19937_64 random(seed);
    Bytes data;
    bool hole = false;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            if (random() % run == 0) hole = random() % 100 < holes;
            int64_t value = slope * int64_t{x} + 3 * slope * int64_t{y};
            value += static_cast<int64_t>(random() & ((uint64_t{1} << noiseBits) - 1));
            if (hole)
                value = voidKind == 0   ? 0
                        : voidKind == 1 ? 7 * int64_t{y}
                        : voidKind == 2 ? 9 * int64_t{x}
                                        : -1;
            for (uint32_t k = 0; k < elementBytes; ++k)
                data.push_back(static_cast<unsigned char>(value >> (8 * k)));
        }
    }
    for (const Mode mode : {Mode::Fast, Mode::Balanced}) {
        const Bytes chunk = EncodeWith(GridChunkCodec(mode), data, width, height);
        Bytes out;
        RC_ASSERT(Decode(chunk, out) == DecodeStatus::Decoded);
        RC_ASSERT(out == data);
    }
}

RC_GTEST_PROP(GridPackingProperty, LowBitsComeBack, ()) {
    const uint32_t bits = *rc::gen::inRange(0U, 17U), count = *rc::gen::inRange(0U, 1000U);
    std::mt19937 random(*rc::gen::arbitrary<uint32_t>());
    std::vector<uint16_t> values;
    for (uint32_t i = 0; i < count; ++i)
        values.push_back(static_cast<uint16_t>(random() & ((1U << bits) - 1)));
    Bytes packed;
    grid::PackLow(values, bits, packed);
    RC_ASSERT(packed.size() == grid::PackedBytes(count, bits));
    std::vector<uint16_t> back((count + 255) / 256 * 256, 0xEEEE);
    grid::UnpackLow(packed.data(), count, bits, back.data());
    back.resize(count);
    RC_ASSERT(back == values);
}

TEST(GridPacking, ValuesLieInSixteenLanes) {
    // 17 values of 3 bits: the last one is the second of lane 0.
    std::vector<uint16_t> values(17, 1);
    values[1] = 5;
    values[16] = 6;
    Bytes packed;
    grid::PackLow(values, 3, packed);
    ASSERT_EQ(packed.size(), 32U);
    EXPECT_EQ(packed[0], 1 | 6 << 3);
    EXPECT_EQ(packed[1], 0);
    EXPECT_EQ(packed[2], 5);
    EXPECT_EQ(packed[4], 1);
    EXPECT_EQ(packed[30], 1);
}

// A payload whose check was made anew, so that damage reaches the stages behind it.
Bytes WithNewCheck(Bytes chunk) {
    ChunkHeaderInfo header;
    EXPECT_TRUE(QKXChunkCodec::ReadHeader(chunk, header));
    const std::span<const unsigned char> payload = std::span<const unsigned char>(chunk).subspan(28);
    const uint32_t check = grid::CheckOf(payload.first(4), header.width, header.height, header.ElementBytes(),
                                         payload.subspan(8));
    for (int i = 0; i < 4; ++i)
        chunk[28 + 4 + static_cast<std::size_t>(i)] = static_cast<unsigned char>(check >> (8 * i));
    return chunk;
}

class DamagedGrid : public ::testing::TestWithParam<Mode> {};
INSTANTIATE_TEST_SUITE_P(Modes, DamagedGrid, ::testing::Values(Mode::Fast, Mode::Balanced),
                         [](const auto& which) { return which.param == Mode::Fast ? "Fast" : "Balanced"; });

TEST_P(DamagedGrid, EveryFlippedBitIsNoticed) {
    const Bytes data = BytesOf(Ranges<int32_t>(40, 35, 15));
    const Bytes chunk = EncodeWith(GridChunkCodec(GetParam()), data, 40, 35);
    ASSERT_NE(FormOf(chunk), 0);
    for (std::size_t at = 28; at < chunk.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            Bytes damaged = chunk;
            damaged[at] = static_cast<unsigned char>(damaged[at] ^ (1 << bit));
            Bytes out;
            EXPECT_EQ(Decode(damaged, out), DecodeStatus::DamagedPayload) << at << " bit " << bit;
        }
    }
}

TEST_P(DamagedGrid, DamageWithAMatchingCheckEndsInAnOutputOrAFailure) {
    for (const Bytes& data : {BytesOf(Ranges<int32_t>(40, 35, 16)), BytesOf(Angles(40, 35, true, 17)),
                              BytesOf(Ranges<uint8_t>(40, 35, 18))}) {
        const Bytes chunk = EncodeWith(GridChunkCodec(GetParam()), data, 40, 35);
        std::mt19937 random(19);
        std::size_t decoded = 0;
        for (int round = 0; round < 2000; ++round) {
            Bytes damaged = chunk;
            const uint32_t changes = 1 + static_cast<uint32_t>(random() % 3);
            for (uint32_t i = 0; i < changes; ++i) {
                // The header and the frames near it more often than the low bits behind.
                const std::size_t reach = random() % 2 ? 60 : damaged.size() - 28;
                const std::size_t at = 28 + random() % std::min(reach, damaged.size() - 28);
                damaged[at] = static_cast<unsigned char>(random() % 4 == 0 ? 0xFF : random());
            }
            if (random() % 8 == 0) damaged.resize(28 + random() % (damaged.size() - 28));
            if (damaged.size() >= 28 + grid::PayloadHeader::kByteSize) damaged = WithNewCheck(damaged);
            Bytes out;
            if (Decode(damaged, out) == DecodeStatus::Decoded) {
                ++decoded;
                EXPECT_EQ(out.size(), data.size());
            }
        }
        EXPECT_GT(decoded, 0U) << "some damage reaches the low bits only";
    }
}

TEST_P(DamagedGrid, CutAtEveryByteFails) {
    const Bytes chunk = EncodeWith(GridChunkCodec(GetParam()), BytesOf(Ranges<int32_t>(40, 35, 20)), 40, 35);
    for (std::size_t size = 28; size < chunk.size(); ++size) {
        const Bytes cut(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(size));
        Bytes out;
        EXPECT_EQ(Decode(cut, out), DecodeStatus::DamagedPayload) << size;
        if (size >= 28 + grid::PayloadHeader::kByteSize) {
            EXPECT_EQ(Decode(WithNewCheck(cut), out), DecodeStatus::DamagedPayload) << size;
        }
    }
}

TEST(ZstdChunkCodec, LosslessColoursOfASmoothImageAreSmall) {
    const Bytes image = SmoothImage(64, 64, 3);
    const Bytes chunk = EncodeWith(ZstdChunkCodec(), image, 64, 64);
    EXPECT_EQ(BackOf(chunk), image);
    EXPECT_LT(chunk.size(), EncodeWith(ZLibChunkCodec(), image, 64, 64).size());
}

}  // namespace
}  // namespace kxcodecs::test
