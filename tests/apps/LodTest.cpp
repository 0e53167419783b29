// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "BareScan.h"
#include "DocumentedKeys.h"
#include "ImportedScan.h"
#include "ReadPng.h"

namespace qsn {
namespace {

using Arguments = std::vector<std::string>;

bool IsHole(uint32_t column, uint32_t row) {
    return (column * 31 + row * 17) % 11 == 0;
}

/// Colours, intensities and ranges that tell the cell.
SampleCell CellAt(uint32_t column, uint32_t row) {
    SampleCell cell{2 + 0.01 * column + 0.02 * row, (column + 64.0 * row) / 4096, column * 3, row * 4,
                    (column + row) % 2 * 255};
    if (IsHole(column, row)) cell.range = 0;
    return cell;
}

/// 72 x 48 cells in patches of 8 x 8: 9 x 6 patches.
class Lod : public ImportedScan {
protected:
    void SetUp() override { Import(MakePtx(72, 48, CellAt), {"--patch", "8"}); }
    ProgramResult Write(const std::string& output, const Arguments& options) const {
        Arguments line = {"lod", "--force", "scan.qsn", output};
        line.insert(line.end(), options.begin(), options.end());
        const ProgramResult result = Run(line);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return result;
    }
    Picture Draw(const Arguments& options) const {
        Write("out.png", options);
        return ReadPng(m_folder.File("out.png"));
    }
    template <class T>
    std::vector<T> Raw(const Arguments& options) const {
        Write("out.raw", options);
        const std::string bytes = m_folder.Read("out.raw");
        std::vector<T> values(bytes.size() / sizeof(T));
        std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
        return values;
    }
};

TEST_F(Lod, EveryNthCellStandsInItsPlaceAtEveryLevel) {
    for (unsigned level = 0; level <= 3; ++level) {
        const uint32_t n = 1U << level;
        const Picture picture = Draw({"--component", "color", "--level", std::to_string(level)});
        ASSERT_EQ(picture.Width(), 72 / n);
        ASSERT_EQ(picture.Height(), 48 / n);
        for (uint32_t y = 0; y < picture.Height(); ++y) {
            for (uint32_t x = 0; x < picture.Width(); ++x) {
                const SampleCell cell = CellAt(x * n, y * n);
                Pixel expected;
                if (cell.range > 0)
                    expected = {static_cast<uint8_t>(cell.red), static_cast<uint8_t>(cell.green),
                                static_cast<uint8_t>(cell.blue), 255};
                EXPECT_EQ(picture.At(x, y), expected) << level << ": " << x << " " << y;
            }
        }
    }
}

TEST_F(Lod, JsonTellsWhatWasWritten) {
    const auto json = OutputJson({"lod", "--level", "9", "--component", "color", "scan.qsn", "out.raw"});
    EXPECT_EQ(json["component"], 6);
    EXPECT_EQ(json["level"], 3);  // 9 x 6 patches have no higher one
    EXPECT_EQ(json["width"].get<size_t>() * json["height"].get<size_t>() * json["elementBytes"].get<size_t>(),
              m_folder.Read("out.raw").size());
    ExpectDocumentedKeys({json}, "### JSON of `qsn lod`");
}

TEST_F(Lod, AStripAndAPatchAreCutFromTheWhole) {
    const Picture whole = Draw({"--component", "color", "--level", "1"});  // 36 x 24 of 5 x 3 patches
    const Picture row = Draw({"--component", "color", "--level", "1", "--row", "1"});
    ASSERT_EQ(row.Width(), 36U);
    ASSERT_EQ(row.Height(), 8U);
    const Picture column = Draw({"--component", "color", "--level", "1", "--column", "4"});
    ASSERT_EQ(column.Width(), 4U);  // what is left of the grid
    ASSERT_EQ(column.Height(), 24U);
    const Picture patch = Draw({"--component", "color", "--level", "1", "--row", "2", "--column", "1"});
    ASSERT_EQ(patch.Width(), 8U);
    ASSERT_EQ(patch.Height(), 8U);
    for (uint32_t y = 0; y < 24; ++y) {
        for (uint32_t x = 0; x < 36; ++x) {
            if (y / 8 == 1) {
                EXPECT_EQ(row.At(x, y - 8), whole.At(x, y));
            }
            if (x / 8 == 4) {
                EXPECT_EQ(column.At(x - 32, y), whole.At(x, y));
            }
            if (y / 8 == 2 && x / 8 == 1) {
                EXPECT_EQ(patch.At(x - 8, y - 16), whole.At(x, y));
            }
        }
    }
}

TEST_F(Lod, RawValuesAreThoseOfTheFullDetail) {
    const auto ranges = Raw<float>({"--level", "0"});
    ASSERT_EQ(ranges.size(), 72U * 48);
    EXPECT_NEAR(ranges[10 * 72 + 20], 1000 * CellAt(20, 10).range, 0.1);
    const auto quarter = Raw<float>({"--level", "2"});
    ASSERT_EQ(quarter.size(), 18U * 12);
    const auto intensities = Raw<uint16_t>({"--level", "0", "--component", "intensity"});
    const auto half = Raw<uint16_t>({"--level", "1", "--component", "intensity"});
    ASSERT_EQ(half.size(), 36U * 24);
    for (size_t y = 0; y < 48; ++y) {
        for (size_t x = 0; x < 72; ++x) {
            if (y % 2 == 0 && x % 2 == 0) {
                EXPECT_EQ(half[y / 2 * 36 + x / 2], intensities[y * 72 + x]);
            }
            if (y % 4 == 0 && x % 4 == 0) {
                EXPECT_EQ(quarter[y / 4 * 18 + x / 4], ranges[y * 72 + x]);
            }
        }
    }
}

TEST_F(Lod, RangesAndIntensitiesHaveTheColoursOfThePreview) {
    // One cell per pixel both ways: the preview of the same size, less its legend.
    const Picture preview = [&] {
        EXPECT_EQ(
            Run({"preview", "-q", "--component", "intensity", "--size", "72x48", "scan.qsn", "preview.png"})
                .exitCode,
            0);
        return ReadPng(m_folder.File("preview.png"));
    }();
    const Picture picture = Draw({"--component", "intensity", "--level", "0"});
    ASSERT_EQ(preview.Width(), 72U);
    ASSERT_EQ(preview.Height(), 48U);
    for (uint32_t y = 0; y < 48; ++y) {
        for (uint32_t x = 0; x < 72; ++x)
            EXPECT_EQ(picture.At(x, y), preview.At(x, y)) << x << " " << y;
    }
    const Picture ranges = Draw({"--level", "1"});
    for (uint32_t y = 0; y < 24; ++y) {
        for (uint32_t x = 0; x < 36; ++x)
            EXPECT_EQ(ranges.At(x, y).alpha, IsHole(2 * x, 2 * y) ? 0 : 255) << x << " " << y;
    }
}

TEST_F(Lod, ALevelThatTheScanDoesNotHaveIsLowered) {
    const ProgramResult result = Write("out.raw", {"--level", "9"});
    EXPECT_NE(result.err.find("level 3 (the highest that this scan has), 9 x 6 elements of 4 bytes"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(m_folder.Read("out.raw").size(), 9U * 6 * 4);
}

TEST_F(Lod, ResultsDoNotDependOnTheNumberOfThreads) {
    Write("one.png", {"--threads", "1"});
    Write("five.png", {"--threads", "5"});
    EXPECT_TRUE(m_folder.Read("one.png") == m_folder.Read("five.png"));
}

TEST_F(Lod, OblongPatchesHaveTheFullDetailOnly) {
    ASSERT_NO_FATAL_FAILURE(Import(MakePtx(72, 48, CellAt), {"--patch", "16x8"}));
    ExpectFailure({"lod", "scan.qsn", "out.png"}, 2, "patches of this scan are 16 x 8 cells");
    EXPECT_FALSE(m_folder.Has("out.png"));
    EXPECT_EQ(Draw({"--level", "0"}).Width(), 72U);
}

TEST_F(Lod, ADamagedPatchIsLeftEmptyAndAtFullDetailReported) {
    constexpr size_t kCodecHeader = 28;
    kxtest::ScanFileBuilder file(8, 8, 4, 4);
    for (const uint32_t row : {0U, 1U}) {
        for (const uint32_t column : {0U, 1U}) {
            auto chunk = kxtest::SnappyChunk(std::vector<float>(16, 1000.0F), 4, 4);
            if (row == 1 && column == 0) std::fill(chunk.begin() + kCodecHeader, chunk.end(), 0xff);
            file.Chunk(1, row, column, chunk);
        }
    }
    m_folder.Write("damaged.qsn", FileText(file));
    const auto values = [&](size_t count) {
        const std::string bytes = m_folder.Read("out.raw");
        EXPECT_EQ(bytes.size(), count * sizeof(float));
        std::vector<float> all(count);
        std::memcpy(all.data(), bytes.data(), std::min(bytes.size(), count * sizeof(float)));
        return all;
    };

    const ProgramResult full = Run({"lod", "-f", "--level", "0", "damaged.qsn", "out.raw"});
    EXPECT_EQ(full.exitCode, 6);
    EXPECT_NE(full.err.find("damaged.qsn: 1 patches could not be read"), std::string::npos) << full.err;
    const std::vector<float> cells = values(64);
    for (size_t i = 0; i < cells.size(); ++i)
        EXPECT_EQ(cells[i], i / 8 >= 4 && i % 8 < 4 ? 0.0F : 1000.0F) << i;

    EXPECT_EQ(Run({"lod", "-f", "--level", "1", "damaged.qsn", "out.raw"}).exitCode, 0);
    const std::vector<float> half = values(16);
    for (size_t i = 0; i < half.size(); ++i)
        EXPECT_EQ(half[i], i / 4 >= 2 && i % 4 < 2 ? 0.0F : 1000.0F) << i;
}

TEST_F(Lod, WrongUseIsRefused) {
    const std::vector<std::pair<Arguments, const char*>> cases = {
        {{"out.gif"}, ".raw"},
        {{"scan.qsn"}, "ending"},
        {{"out.png", "--level", "-1"}, "--level"},
        {{"out.png", "--level", "31"}, "--level"},
        {{"out.png", "--row", "3"}, "--row 3: at level 1 the scan has 3"},
        {{"out.png", "--column", "5"}, "--column 5: at level 1 the scan has 5"},
        {{"out.png", "--row", "x"}, "--row"},
        {{"out.png", "--component", "height"}, "height"},
    };
    for (const auto& [options, said] : cases) {
        Arguments line = {"lod", "scan.qsn"};
        line.insert(line.end(), options.begin(), options.end());
        ExpectFailure(line, 2, said);
    }
    ExpectFailure({"lod", "--component", "7", "scan.qsn", "out.png"}, 2, "scan.qsn");
    EXPECT_EQ(m_folder.Names(), (Arguments{"scan.qsn", "source.ptx"}));
}

}  // namespace
}  // namespace qsn
