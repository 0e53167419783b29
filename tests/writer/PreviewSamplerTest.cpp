// SPDX-License-Identifier: MIT
#include "writer/PreviewSampler.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

using kxio::PreviewSampling;
using kxio::SamplePatchIntoPreview;
using Bytes = std::vector<unsigned char>;

uint32_t PatchesAlong(uint32_t total, uint32_t size) {
    return (total + size - 1) / size;
}

// A grid of numbered cells: cell (y, x) holds y * width + x + 1, as four bytes.
struct Grid {
    uint32_t width, height;

    uint32_t At(uint32_t y, uint32_t x) const { return y * width + x + 1; }

    // The values of a patch as a writer gets them; cells beyond the grid hold a mark that must not show.
    Bytes Patch(uint32_t row, uint32_t column, uint32_t pw, uint32_t ph, bool transposed) const {
        Bytes bytes(size_t{4} * pw * ph);
        for (uint32_t i = 0; i < pw * ph; ++i) {
            const uint32_t a = i / pw, b = i % pw;
            const uint32_t x = column * pw + (transposed ? a : b);
            const uint32_t y = row * ph + (transposed ? b : a);
            const uint32_t value = x < width && y < height ? At(y, x) : 0xdeadbeef;
            std::memcpy(bytes.data() + 4 * size_t{i}, &value, 4);
        }
        return bytes;
    }
};

uint32_t ValueAt(const Bytes& image, uint64_t position) {
    uint32_t value = 0;
    std::memcpy(&value, image.data() + 4 * position, 4);
    return value;
}

PreviewSampling Sampling(const Grid& grid, uint32_t previewWidth, uint32_t previewHeight, uint32_t pw,
                         uint32_t ph) {
    PreviewSampling s;
    s.pixelLength = 4;
    s.previewWidth = previewWidth;
    s.previewHeight = previewHeight;
    s.patchWidth = pw;
    s.patchHeight = ph;
    s.gridWidth = grid.width;
    s.gridHeight = grid.height;
    return s;
}

// Samples all patches of the grid; returns the preview and, per pixel, how many patches wrote it.
Bytes SampleAll(const Grid& grid, PreviewSampling s, std::vector<unsigned>* writers = nullptr) {
    const size_t pixels = size_t{s.previewWidth} * s.previewHeight;
    Bytes preview(4 * pixels, 0);
    if (writers != nullptr) writers->assign(pixels, 0);
    for (s.patchRow = 0; s.patchRow < PatchesAlong(grid.height, s.patchHeight); ++s.patchRow) {
        for (s.patchColumn = 0; s.patchColumn < PatchesAlong(grid.width, s.patchWidth); ++s.patchColumn) {
            Bytes fresh(4 * pixels, 0);
            SamplePatchIntoPreview(
                s, fresh, grid.Patch(s.patchRow, s.patchColumn, s.patchWidth, s.patchHeight, s.transposed));
            for (size_t i = 0; i < pixels; ++i) {
                const uint32_t value = ValueAt(fresh, i);
                if (value == 0) continue;
                std::memcpy(preview.data() + 4 * i, &value, 4);
                if (writers != nullptr) ++(*writers)[i];
            }
        }
    }
    return preview;
}

TEST(PreviewSampler, PreviewOfTheGridsSizeShowsEveryValueUnchanged) {
    const Grid grid{13, 9};
    const Bytes preview = SampleAll(grid, Sampling(grid, 13, 9, 4, 4));
    for (uint32_t y = 0; y < 9; ++y) {
        for (uint32_t x = 0; x < 13; ++x)
            EXPECT_EQ(ValueAt(preview, y * 13 + x), grid.At(y, x));
    }
}

TEST(PreviewSampler, PixelTakesTheValueNearestItsCellsCentre) {
    // Steps of 4 columns and 3 rows: centres at columns 2, 6, 10 and rows 1, 4.
    const Grid grid{12, 6};
    const Bytes preview = SampleAll(grid, Sampling(grid, 3, 2, 5, 4));
    const uint32_t columns[] = {2, 6, 10};
    const uint32_t rows[] = {1, 4};
    for (uint32_t y = 0; y < 2; ++y) {
        for (uint32_t x = 0; x < 3; ++x)
            EXPECT_EQ(ValueAt(preview, y * 3 + x), grid.At(rows[y], columns[x]));
    }
}

TEST(PreviewSampler, PatchesAtTheEdgeWriteOnlyPixelsInsideTheGrid) {
    const Grid grid{10, 10};
    const PreviewSampling s = Sampling(grid, 10, 10, 4, 4);
    PreviewSampling edge = s;
    edge.patchRow = 1;
    edge.patchColumn = 2;
    Bytes preview(400, 0);
    SamplePatchIntoPreview(edge, preview, Bytes(4 * 16, 0xff));
    for (uint32_t y = 0; y < 10; ++y) {
        for (uint32_t x = 0; x < 10; ++x) {
            const bool inside = y >= 4 && y < 8 && x >= 8;
            EXPECT_EQ(ValueAt(preview, y * 10 + x), inside ? 0xffffffff : 0U) << y << ", " << x;
        }
    }
}

TEST(PreviewSampler, UprightPatchesWriteEveryPixelExactlyOnceAndNothingFromBeyondTheGrid) {
    std::mt19937 random(20240607);
    for (int round = 0; round < 400; ++round) {
        const auto upTo = [&](uint32_t limit) { return 1 + static_cast<uint32_t>(random() % limit); };
        const Grid grid{upTo(90), upTo(70)};
        const PreviewSampling s = Sampling(grid, upTo(grid.width), upTo(grid.height), upTo(20), upTo(20));
        std::vector<unsigned> writers;
        const Bytes preview = SampleAll(grid, s, &writers);
        SCOPED_TRACE("grid " + std::to_string(grid.width) + " x " + std::to_string(grid.height) +
                     ", preview " + std::to_string(s.previewWidth) + " x " + std::to_string(s.previewHeight) +
                     ", patches " + std::to_string(s.patchWidth) + " x " + std::to_string(s.patchHeight));
        for (size_t i = 0; i < writers.size(); ++i) {
            ASSERT_EQ(writers[i], 1U) << "pixel " << i;
            ASSERT_LE(ValueAt(preview, i), grid.width * grid.height);
        }
    }
}

TEST(PreviewSampler, TransposedSquarePatchesGiveTheTransposedImage) {
    const Grid grid{20, 12};
    PreviewSampling s = Sampling(grid, 20, 12, 4, 4);
    s.transposed = true;
    const Bytes preview = SampleAll(grid, s);
    for (uint32_t y = 0; y < 12; ++y) {
        for (uint32_t x = 0; x < 20; ++x)
            EXPECT_EQ(ValueAt(preview, x * 12 + y), grid.At(y, x));
    }
}

TEST(PreviewSampler, TransposedPatchesStayInsideThePreviewWhateverTheSizes) {
    std::mt19937 random(77);
    for (int round = 0; round < 200; ++round) {
        const auto upTo = [&](uint32_t limit) { return 1 + static_cast<uint32_t>(random() % limit); };
        const Grid grid{upTo(60), upTo(60)};
        PreviewSampling s = Sampling(grid, upTo(80), upTo(80), upTo(16), upTo(16));
        s.transposed = true;
        EXPECT_EQ(SampleAll(grid, s).size(), size_t{4} * s.previewWidth * s.previewHeight);
    }
}

// The rule as it is stated, step by step, without regard to speed.
Bytes SampleByTheRule(const PreviewSampling& s, Bytes preview, const Bytes& patch) {
    const auto ratio = [](uint32_t a, uint32_t b) { return static_cast<float>(a) / static_cast<float>(b); };
    const auto kept = [](uint32_t side, int64_t origin, float forth, float back, int64_t extent) {
        const auto half = static_cast<int64_t>(back * 0.5F);
        const auto source = [&](int64_t pixel) {
            return static_cast<int64_t>(static_cast<float>(pixel) * back) - origin + half;
        };
        const auto count = static_cast<int64_t>(static_cast<float>(side) * forth + 0.5F) + 1;
        auto first = static_cast<int64_t>(static_cast<float>(origin) * forth);
        while (source(first) < 0)
            ++first;
        std::vector<std::pair<int64_t, int64_t>> list;
        for (int64_t k = 0; k < count; ++k) {
            const int64_t at = source(first + k);
            if (at >= 0 && at < int64_t{side} && first + k < extent) list.emplace_back(first + k, at);
        }
        return list;
    };
    const bool t = s.transposed;
    const auto columns = kept(s.patchWidth, int64_t{t ? s.patchRow : s.patchColumn} * s.patchWidth,
                              ratio(s.previewWidth, s.gridWidth), ratio(s.gridWidth, s.previewWidth),
                              t ? s.previewHeight : s.previewWidth);
    const auto rows = kept(s.patchHeight, int64_t{t ? s.patchColumn : s.patchRow} * s.patchHeight,
                           ratio(s.previewHeight, s.gridHeight), ratio(s.gridHeight, s.previewHeight),
                           t ? s.previewWidth : s.previewHeight);
    const int64_t stride = t ? s.previewHeight : s.previewWidth;
    for (const auto& [py, y] : rows) {
        for (const auto& [px, x] : columns) {
            const int64_t from = y * s.patchWidth + x;
            std::memcpy(preview.data() + 4 * (py * stride + px), patch.data() + 4 * from, 4);
        }
    }
    return preview;
}

TEST(PreviewSampler, AnySizesAndEitherOrientationFollowTheStatedSteps) {
    std::mt19937 random(31);
    for (int round = 0; round < 3000; ++round) {
        const auto upTo = [&](uint32_t limit) { return 1 + static_cast<uint32_t>(random() % limit); };
        const Grid grid{upTo(90), upTo(90)};
        PreviewSampling s = Sampling(grid, upTo(120), upTo(120), upTo(20), upTo(20));
        s.transposed = random() % 2 == 0;
        s.patchRow = static_cast<uint32_t>(random() % PatchesAlong(grid.height, s.patchHeight));
        s.patchColumn = static_cast<uint32_t>(random() % PatchesAlong(grid.width, s.patchWidth));
        const Bytes patch = grid.Patch(s.patchRow, s.patchColumn, s.patchWidth, s.patchHeight, s.transposed);
        const Bytes blank(size_t{4} * s.previewWidth * s.previewHeight, 0x5a);
        Bytes preview = blank;
        SamplePatchIntoPreview(s, preview, patch);
        ASSERT_EQ(preview, SampleByTheRule(s, blank, patch))
            << "grid " << grid.width << " x " << grid.height << ", preview " << s.previewWidth << " x "
            << s.previewHeight << ", patches " << s.patchWidth << " x " << s.patchHeight << ", row "
            << s.patchRow << ", column " << s.patchColumn << (s.transposed ? ", transposed" : "");
    }
}

TEST(PreviewSampler, LargerPreviewRepeatsTheNearestValue) {
    const Grid grid{3, 2};
    const Bytes preview = SampleAll(grid, Sampling(grid, 6, 6, 3, 2));
    for (uint32_t y = 0; y < 6; ++y) {
        for (uint32_t x = 0; x < 6; ++x)
            EXPECT_EQ(ValueAt(preview, y * 6 + x), grid.At(y / 3, x / 2));
    }
}

TEST(PreviewSampler, MissingValuesAreNotRead) {
    const Grid grid{4, 4};
    const PreviewSampling s = Sampling(grid, 4, 4, 4, 4);
    Bytes preview(64, 0);
    const Bytes ten(40, 0x11);  // 10 of 16 values
    SamplePatchIntoPreview(s, preview, ten);
    for (uint32_t i = 0; i < 16; ++i)
        EXPECT_EQ(ValueAt(preview, i), i < 10 ? 0x11111111U : 0U);
    SamplePatchIntoPreview(s, preview, {});
}

TEST(PreviewSampler, NothingHappensForZeroSizesOrATooSmallImage) {
    const Grid grid{4, 4};
    const Bytes patch(64, 1);
    const PreviewSampling whole = Sampling(grid, 4, 4, 4, 4);
    for (uint32_t PreviewSampling::*side :
         {&PreviewSampling::previewWidth, &PreviewSampling::previewHeight, &PreviewSampling::patchWidth,
          &PreviewSampling::patchHeight, &PreviewSampling::gridWidth, &PreviewSampling::gridHeight}) {
        PreviewSampling s = whole;
        s.*side = 0;
        Bytes preview(64, 9);
        SamplePatchIntoPreview(s, preview, patch);
        EXPECT_EQ(preview, Bytes(64, 9));
    }
    PreviewSampling s = whole;
    s.pixelLength = 0;
    Bytes preview(64, 9);
    SamplePatchIntoPreview(s, preview, patch);
    EXPECT_EQ(preview, Bytes(64, 9));
    Bytes tooSmall(63, 9);
    SamplePatchIntoPreview(whole, tooSmall, patch);
    EXPECT_EQ(tooSmall, Bytes(63, 9));
}

TEST(PreviewSampler, ExtremeSizesEndQuicklyAndStayInside) {
    constexpr uint32_t kMax = 0xffffffff;
    const Bytes patch(64, 1);
    for (const bool transposed : {false, true}) {
        for (const uint32_t grid : {1U, 1000U, kMax}) {
            for (const uint32_t side : {1U, 7U, kMax}) {
                for (const uint32_t place : {0U, 1U, kMax}) {
                    PreviewSampling s;
                    s.pixelLength = 1;
                    s.previewWidth = 8;
                    s.previewHeight = 8;
                    s.patchWidth = side;
                    s.patchHeight = side;
                    s.gridWidth = grid;
                    s.gridHeight = grid;
                    s.patchRow = place;
                    s.patchColumn = place;
                    s.transposed = transposed;
                    Bytes preview(64, 0);
                    SamplePatchIntoPreview(s, preview, patch);
                    if (place == kMax) {
                        EXPECT_EQ(preview, Bytes(64, 0));
                    }
                }
            }
        }
    }
}

TEST(PreviewSampler, LongValuesAreCopiedInWordsOfFourBytes) {
    PreviewSampling s;
    s.pixelLength = 14;
    s.previewWidth = s.previewHeight = s.patchWidth = s.patchHeight = s.gridWidth = s.gridHeight = 1;
    Bytes preview(14, 9);
    SamplePatchIntoPreview(s, preview, Bytes(14, 1));
    Bytes expected(14, 1);
    expected[12] = expected[13] = 9;
    EXPECT_EQ(preview, expected);
}

}  // namespace
