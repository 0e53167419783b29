// SPDX-License-Identifier: MIT
// Reduced detail: levels, clamping, blocks of patches, components and their codecs.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <stdexcept>

#include "kxbase/InMemoryStream.h"
#include "kxcodecs/ElementOrder.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"
#include "support/InterruptedStream.h"
#include "support/ScanFileBuilder.h"
#include "support/Thrown.h"

namespace {

using kxbase::ComponentType;
using kxtest::Bytes;
using kxtest::ThrownBy;

class OpenReader : public kxio::QSNScanReader {
public:
    using QSNScanReader::GetPatch;
    using QSNScanReader::QSNScanReader;
};

// The value of a grid cell in these tests: different for every cell of the grids used.
uint32_t CellValue(uint32_t row, uint32_t column) {
    return 1 + row * 1000 + column;
}

template <class T>
std::vector<T> PatchValues(const kxbase::GridTopology& grid, uint32_t patchRow, uint32_t patchColumn) {
    std::vector<T> values;
    for (uint32_t r = 0; r < grid.patchHeight; ++r) {
        for (uint32_t c = 0; c < grid.patchWidth; ++c) {
            values.push_back(static_cast<T>(
                CellValue(patchRow * grid.patchHeight + r, patchColumn * grid.patchWidth + c)));
        }
    }
    return values;
}

template <class T>
kxtest::ScanFileBuilder Scan(uint32_t patchesPerRow, uint32_t patchesPerColumn, uint32_t side,
                             uint32_t component) {
    kxtest::ScanFileBuilder file(patchesPerRow * side, patchesPerColumn * side, side, side);
    const kxbase::GridTopology& grid = file.properties.grid;
    for (uint32_t r = 0; r < patchesPerColumn; ++r) {
        for (uint32_t c = 0; c < patchesPerRow; ++c)
            file.Chunk(component, r, c, kxtest::SnappyChunk(PatchValues<T>(grid, r, c), side, side));
    }
    return file;
}

struct Reduced {
    unsigned level = 0;
    kxcodecs::ChunkHeaderInfo header;
    Bytes bytes;
};

Reduced Fetch(const kxio::QSNScanReader& reader, uint32_t row, uint32_t column, uint32_t component,
              unsigned level, bool flag = false) {
    Reduced result;
    result.level = level;
    Bytes chunk;
    reader.GetPatchCompressed(row, column, chunk, static_cast<ComponentType>(component), result.level, flag);
    EXPECT_EQ(kxcodecs::QKXChunkCodec::DecodeChunk(chunk, result.header, result.bytes),
              kxcodecs::DecodeStatus::Decoded);
    return result;
}

template <class T>
T At(const Reduced& reduced, uint32_t row, uint32_t column) {
    T value{};
    std::memcpy(&value, reduced.bytes.data() + (size_t{row} * reduced.header.width + column) * sizeof(T),
                sizeof(T));
    return value;
}

TEST(ReducedDetail, LevelZeroIsTheStoredChunk) {
    kxbase::InMemoryStream stream(Scan<float>(2, 2, 4, 1).Build());
    const kxio::QSNScanReader reader(&stream);
    Bytes stored;
    Bytes levelled;
    unsigned level = 0;
    reader.GetPatchCompressed(1, 0, stored, kxbase::Range);
    reader.GetPatchCompressed(1, 0, levelled, kxbase::Range, level, false);
    EXPECT_EQ(levelled, stored);
    EXPECT_EQ(level, 0u);
    reader.GetPatchCompressed(2, levelled, kxbase::Range, level, false);
    EXPECT_EQ(levelled, stored);
}

TEST(ReducedDetail, APatchShowsEverySecondValueOfFourPatches) {
    kxbase::InMemoryStream stream(Scan<float>(4, 4, 4, 1).Build());
    const kxio::QSNScanReader reader(&stream);
    const Reduced patch = Fetch(reader, 1, 0, 1, 1);
    EXPECT_EQ(patch.level, 1u);
    EXPECT_EQ(patch.header.width, 4u);
    EXPECT_EQ(patch.header.height, 4u);
    EXPECT_EQ(patch.header.step, 1.0f);
    EXPECT_EQ(patch.header.codecId, kxtest::kZLibCodec);
    for (uint32_t r = 0; r < 4; ++r) {
        for (uint32_t c = 0; c < 4; ++c)
            EXPECT_EQ(At<float>(patch, r, c), static_cast<float>(CellValue(8 + 2 * r, 2 * c)))
                << r << ", " << c;
    }
    const Reduced whole = Fetch(reader, 0, 0, 1, 2);
    EXPECT_EQ(whole.level, 2u);
    for (uint32_t r = 0; r < 4; ++r) {
        for (uint32_t c = 0; c < 4; ++c)
            EXPECT_EQ(At<float>(whole, r, c), static_cast<float>(CellValue(4 * r, 4 * c)));
    }
}

TEST(ReducedDetail, TheLevelIsLoweredWhileItsFactorExceedsBothPatchCounts) {
    struct Case {
        uint32_t perRow, perColumn;
        unsigned wanted, used;
    };
    for (const Case& c : {Case{4, 3, 5, 2}, Case{4, 3, 40, 2}, Case{4, 3, 2, 2}, Case{4, 3, 1, 1},
                          Case{1, 1, 3, 0}, Case{1, 8, 9, 3}, Case{3, 3, 4, 1}}) {
        kxbase::InMemoryStream stream(Scan<float>(c.perRow, c.perColumn, 8, 1).Build());
        const kxio::QSNScanReader reader(&stream);
        EXPECT_EQ(Fetch(reader, 0, 0, 1, c.wanted).level, c.used) << c.perRow << " x " << c.perColumn;
    }
}

TEST(ReducedDetail, SourcesOutsideTheGridStayZero) {
    kxbase::InMemoryStream stream(Scan<float>(3, 3, 4, 1).Build());
    const kxio::QSNScanReader reader(&stream);
    const Reduced corner = Fetch(reader, 1, 1, 1, 1);
    for (uint32_t r = 0; r < 4; ++r) {
        for (uint32_t c = 0; c < 4; ++c) {
            const bool inside = r < 2 && c < 2;
            EXPECT_EQ(At<float>(corner, r, c),
                      inside ? static_cast<float>(CellValue(8 + 2 * r, 8 + 2 * c)) : 0.0f);
        }
    }
    const Reduced beyond = Fetch(reader, 7, 7, 1, 1);
    EXPECT_TRUE(
        std::all_of(beyond.bytes.begin(), beyond.bytes.end(), [](unsigned char b) { return b == 0; }));
}

TEST(ReducedDetail, MissingAndUndecodablePatchesLeaveTheirBlockZero) {
    auto file = Scan<float>(2, 2, 4, 1);
    file.Entry0(1, 1, 0, 0);
    Bytes broken = kxtest::SnappyChunk(PatchValues<float>(file.properties.grid, 1, 0), 4, 4);
    broken.resize(broken.size() - 3);
    file.Chunk(1, 1, 0, broken);
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    const Reduced patch = Fetch(reader, 0, 0, 1, 1);
    EXPECT_EQ(At<float>(patch, 1, 1), static_cast<float>(CellValue(2, 2)));
    EXPECT_EQ(At<float>(patch, 0, 2), 0.0f);
    EXPECT_EQ(At<float>(patch, 2, 0), 0.0f);
    EXPECT_EQ(At<float>(patch, 2, 2), static_cast<float>(CellValue(4, 4)));
}

TEST(ReducedDetail, ExceptionsThatAreNotOfAPatchComeOutWholeWithAndWithoutTheFlag) {
    kxtest::InterruptedStream stream(Scan<uint8_t>(4, 4, 4, 4).Build());
    const kxio::QSNScanReader reader(&stream);
    stream.beforeRead = [] { throw std::runtime_error("the disk is on fire"); };
    for (const bool flag : {false, true}) {
        Bytes out;
        unsigned level = 2;
        try {
            reader.GetPatchCompressed(0, 0, out, kxbase::Luminance8, level, flag);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "the disk is on fire");
        }
    }
    stream.beforeRead = nullptr;
    EXPECT_EQ(At<uint8_t>(Fetch(reader, 0, 0, 4, 2), 1, 1), static_cast<uint8_t>(CellValue(4, 4)));
}

TEST(ReducedDetail, SourcesWithOtherElementsLeaveTheirBlockZero) {
    auto file = Scan<float>(2, 2, 4, 1);
    file.Chunk(1, 0, 1, kxtest::SnappyChunk(std::vector<unsigned char>(16, 7), 4, 4));
    file.Chunk(1, 1, 1, kxtest::SnappyChunk(std::vector<float>(4, 7.0f), 2, 2));
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    const Reduced patch = Fetch(reader, 0, 0, 1, 1);
    EXPECT_EQ(At<float>(patch, 0, 0), static_cast<float>(CellValue(0, 0)));
    EXPECT_EQ(At<float>(patch, 0, 2), 0.0f);
    EXPECT_EQ(At<float>(patch, 2, 2), 0.0f);
}

TEST(ReducedDetail, AFactorAbovePatchSizeGivesAZeroPatch) {
    kxbase::InMemoryStream stream(Scan<float>(8, 8, 2, 1).Build());
    const kxio::QSNScanReader reader(&stream);
    const Reduced patch = Fetch(reader, 0, 0, 1, 3);
    EXPECT_EQ(patch.level, 3u);
    EXPECT_EQ(patch.bytes, Bytes(16, 0));
}

TEST(ReducedDetail, QuantisedSourcesAreReducedAsValues) {
    kxtest::ScanFileBuilder file(8, 8, 4, 4);
    for (uint32_t i = 0; i < 4; ++i) {
        file.Chunk(1, i / 2, i % 2,
                   kxtest::SnappyChunk(PatchValues<float>(file.properties.grid, i / 2, i % 2), 4, 4, 10.0f));
    }
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    const Reduced patch = Fetch(reader, 0, 0, 1, 1);
    EXPECT_EQ(patch.header.step, 1.0f);
    for (uint32_t r = 0; r < 4; ++r) {
        for (uint32_t c = 0; c < 4; ++c)
            EXPECT_NEAR(At<float>(patch, r, c), CellValue(2 * r, 2 * c), 1e-6 * CellValue(2 * r, 2 * c));
    }
}

TEST(ReducedDetail, Component4IsTheSameWithAndWithoutTheFlag) {
    kxbase::InMemoryStream stream(Scan<uint8_t>(2, 2, 8, 4).Build());
    const kxio::QSNScanReader reader(&stream);
    const Reduced plain = Fetch(reader, 0, 0, 4, 1, false);
    const Reduced flagged = Fetch(reader, 0, 0, 4, 1, true);
    EXPECT_EQ(plain.bytes, flagged.bytes);
    EXPECT_EQ(plain.header.ElementBytes(), 1u);
    for (uint32_t r = 0; r < 8; ++r) {
        for (uint32_t c = 0; c < 8; ++c)
            EXPECT_EQ(At<uint8_t>(plain, r, c), static_cast<uint8_t>(CellValue(2 * r, 2 * c)));
    }
}

// Elements of any size, each byte its own: cell (row, column), byte k.
Bytes WideElements(uint32_t side, uint32_t elementBytes, uint32_t firstRow, uint32_t firstColumn) {
    Bytes bytes;
    for (uint32_t r = 0; r < side; ++r) {
        for (uint32_t c = 0; c < side; ++c) {
            for (uint32_t k = 0; k < elementBytes; ++k)
                bytes.push_back(
                    static_cast<unsigned char>(37 * (firstRow + r) + 5 * (firstColumn + c) + k + 1));
        }
    }
    return bytes;
}

TEST(ReducedDetail, EveryComponentHasItsElementSize) {
    struct Case {
        uint32_t component, elementBytes;
    };
    for (const Case& item : {Case{1, 4},
                             {2, 4},
                             {3, 4},
                             {4, 1},
                             {5, 2},
                             {7, 16},
                             {8, 8},
                             {9, 12},
                             {10, 4},
                             {11, 8},
                             {12, 2},
                             {13, 20},
                             {14, 12},
                             {15, 16},
                             {16, 16},
                             {17, 24},
                             {18, 4},
                             {19, 8}}) {
        kxtest::ScanFileBuilder file(8, 8, 4, 4);
        for (uint32_t i = 0; i < 4; ++i) {
            const Bytes values = WideElements(4, item.elementBytes, i / 2 * 4, i % 2 * 4);
            file.Chunk(item.component, i / 2, i % 2, kxtest::LiteralChunk(values, 4, 4));
        }
        kxbase::InMemoryStream stream(file.Build());
        const kxio::QSNScanReader reader(&stream);
        Reduced patch = Fetch(reader, 0, 0, item.component, 1);
        kxcodecs::TurnElements(patch.bytes, item.elementBytes);
        EXPECT_EQ(patch.header.codecId, kxtest::kZLibCodec) << item.component;
        ASSERT_EQ(patch.header.ElementBytes(), item.elementBytes) << item.component;
        for (uint32_t r = 0; r < 4; ++r) {
            for (uint32_t c = 0; c < 4; ++c) {
                for (uint32_t k = 0; k < item.elementBytes; ++k) {
                    ASSERT_EQ(patch.bytes[(r * 4 + c) * item.elementBytes + k],
                              static_cast<unsigned char>(37 * 2 * r + 5 * 2 * c + k + 1))
                        << "component " << item.component << " at " << r << ", " << c << " byte " << k;
                }
            }
        }
    }
}

TEST(ReducedDetail, ColourIsEncodedAsJpegOfHighQuality) {
    constexpr uint32_t kSide = 16;
    kxtest::ScanFileBuilder file(2 * kSide, 2 * kSide, kSide, kSide);
    const auto smooth = [](uint32_t row, uint32_t column) {
        return Bytes{static_cast<unsigned char>(40 + 3 * row), static_cast<unsigned char>(60 + 2 * column),
                     static_cast<unsigned char>(100 + row + column)};
    };
    for (uint32_t i = 0; i < 4; ++i) {
        Bytes values;
        for (uint32_t r = 0; r < kSide; ++r) {
            for (uint32_t c = 0; c < kSide; ++c) {
                const Bytes pixel = smooth(i / 2 * kSide + r, i % 2 * kSide + c);
                values.insert(values.end(), pixel.begin(), pixel.end());
            }
        }
        file.Chunk(6, i / 2, i % 2, kxtest::LiteralChunk(values, kSide, kSide));
    }
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    const Reduced patch = Fetch(reader, 0, 0, 6, 1);
    EXPECT_EQ(patch.header.codecId, 0x00004745504a584bULL);
    EXPECT_EQ(patch.header.ElementBytes(), 3u);
    for (uint32_t r = 0; r < kSide; ++r) {
        for (uint32_t c = 0; c < kSide; ++c) {
            const Bytes expected = smooth(2 * r, 2 * c);
            for (uint32_t k = 0; k < 3; ++k)
                EXPECT_NEAR(patch.bytes[(r * kSide + c) * 3 + k], expected[k], 6) << r << ", " << c;
        }
    }
}

TEST(ReducedDetail, ChecksComeInTheOrderLevelTableComponentShape) {
    kxtest::ScanFileBuilder file(8, 8, 4, 2);  // not square
    file.Chunk(25, 0, 0, kxtest::LiteralChunk(Bytes(8, 1), 4, 2));
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>(8, 1.0f), 4, 2));
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    Bytes out;
    unsigned level = 0;
    EXPECT_NO_THROW(reader.GetPatchCompressed(0, 0, out, static_cast<ComponentType>(25), level, false));
    level = 1;
    EXPECT_EQ(ThrownBy<kxbase::KXUnkownComponentException>([&] {
                  reader.GetPatchCompressed(0, 0, out, static_cast<ComponentType>(25), level, false);
              }),
              "Component not supported for LoD: 25");
    EXPECT_EQ(ThrownBy<kxbase::KXUnreadablePatchException>([&] {
                  reader.GetPatchCompressed(0, 0, out, static_cast<ComponentType>(26), level, false);
              }),
              "Patch not in database");
    EXPECT_EQ(ThrownBy<kxbase::KXWrongDataSizeofException>(
                  [&] { reader.GetPatchCompressed(0, 0, out, kxbase::Range, level, false); }),
              "Cannot sample on non square patch");
    EXPECT_TRUE(out.empty());
}

TEST(ReducedDetail, TheDecodedFormClearsItsOutputAndSaysTheLevelUsed) {
    kxbase::InMemoryStream stream(Scan<float>(2, 1, 4, 1).Build());
    const OpenReader reader(&stream);
    std::vector<float> out(16, -1.0f);
    unsigned level = 5;
    reader.GetPatch(0, 0, out.data(), 4, kxbase::Range, level, false);
    EXPECT_EQ(level, 1u);
    EXPECT_EQ(out[0], static_cast<float>(CellValue(0, 0)));
    EXPECT_EQ(out[1 * 4 + 3], static_cast<float>(CellValue(2, 6)));
    EXPECT_EQ(out[2 * 4], 0.0f);
    EXPECT_EQ(ThrownBy<kxbase::KXUnreadablePatchException>(
                  [&] { reader.GetPatch(0, 0, out.data(), 2, kxbase::Luminance16, level, false); }),
              "Patch not in database");
}

TEST(ReducedDetail, AGridThatClaimsTheWorldIsAnsweredAtOnce) {
    auto file = Scan<float>(2, 2, 4, 1);
    file.properties.grid.columns = 0xfffffff0u;
    file.properties.grid.rows = 0xfffffff0u;
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    const Reduced patch = Fetch(reader, 0, 0, 1, 31);
    EXPECT_EQ(patch.bytes, Bytes(64, 0));  // the factor exceeds the patch
    EXPECT_EQ(At<float>(Fetch(reader, 0, 0, 1, 1), 0, 2), static_cast<float>(CellValue(0, 4)));
}

TEST(ReducedDetail, APatchSizeThatClaimsTheWorldIsRefusedWithoutTheMemory) {
    auto file = Scan<float>(2, 2, 4, 1);
    file.properties.grid.patchWidth = 0x40000000u;
    file.properties.grid.patchHeight = 0x40000000u;
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    Bytes out;
    unsigned level = 1;
    EXPECT_EQ(ThrownBy<kxbase::KXUnreadablePatchException>(
                  [&] { reader.GetPatchCompressed(0, 0, out, kxbase::Range, level, false); }),
              "Patch cannot be decoded");
}

TEST(ReducedDetail, TypedValuesAreThoseOfTheReducedChunk) {
    kxbase::InMemoryStream stream(Scan<float>(5, 3, 4, 1).Build());
    const kxio::QSNScanReader reader(&stream);
    const kxio::ScanAccess access(reader);
    for (unsigned wanted = 0; wanted < 5; ++wanted) {
        const Reduced chunk = Fetch(reader, 0, 1, 1, wanted);
        unsigned level = wanted;
        const kxio::PreviewImage<float> image = access.ReadReducedPatch<float>(kxbase::Range, 0, 1, level);
        EXPECT_EQ(level, chunk.level);
        ASSERT_EQ(image.width, 4U);
        ASSERT_EQ(image.height, 4U);
        ASSERT_EQ(image.values.size() * sizeof(float), chunk.bytes.size());
        EXPECT_EQ(std::memcmp(image.values.data(), chunk.bytes.data(), chunk.bytes.size()), 0) << wanted;
    }
}

TEST(ReducedDetail, TypedValuesOfAnotherSizeOrComponentAreRefused) {
    auto file = Scan<float>(2, 2, 4, 1);
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    const kxio::ScanAccess access(reader);
    unsigned level = 1;
    EXPECT_EQ(ThrownBy<kxbase::KXBadInputException>(
                  [&] { access.ReadReducedPatch<uint16_t>(kxbase::Range, 0, 0, level); }),
              "Wrong element size");
    EXPECT_EQ(ThrownBy<kxbase::KXComponentNotInFileException>(
                  [&] { access.ReadReducedPatch<uint8_t>(kxbase::Luminance8, 0, 0, level); }),
              "Cannot use this component");
    file.properties.grid.patchHeight = 2;
    kxbase::InMemoryStream oblong(file.Build());
    const kxio::QSNScanReader oblongReader(&oblong);
    EXPECT_EQ(ThrownBy<kxbase::KXWrongDataSizeofException>([&] {
                  kxio::ScanAccess(oblongReader).ReadReducedPatch<float>(kxbase::Range, 0, 0, level);
              }),
              "Cannot sample on non square patch");
}

}  // namespace
