// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "DocumentedKeys.h"
#include "ImportedScan.h"
#include "Legend.h"
#include "ReadPng.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/MainFileHeader.h"

namespace qsn {
namespace {

/// Perceived brightness, 0 to 255.
double Brightness(Pixel p) {
    return 0.2126 * p.red + 0.7152 * p.green + 0.0722 * p.blue;
}

/// Where the chunk of one patch begins, found by walking the chunk records; 0 when there is none.
uint64_t FindChunk(const std::string& path, kxbase::ComponentType component, uint32_t patchRow,
                   uint32_t patchColumn) {
    kxbase::kxInFile file(kxbase::Decode_UTF8(path));
    kxio::DataChunkHeader record;
    file.Seek(kxio::MainFileHeader::RecordSize);
    while (record.Read(&file) != 0) {
        if (record.component == component && record.patchRow == patchRow && record.patchColumn == patchColumn)
            return file.Tell();
        file.SeekForward(record.byteCount);
    }
    return 0;
}

class Preview : public ImportedScan {
protected:
    void Import(const std::string& ptx) { ImportedScan::Import(ptx, {"--patch", "32x16"}); }
    Picture Draw(std::vector<std::string> options) {
        std::vector<std::string> arguments = {"preview", "--force", "scan.qsn", "out.png"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const ProgramResult result = RunQsn(arguments, Here());
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return ReadPng(m_folder.File("out.png"));
    }
};

TEST_F(Preview, JsonTellsThePicture) {
    Import(MakeSmallPtx(80, 60));
    const auto json = OutputJson({"preview", "--component", "intensity", "scan.qsn", "told.png"});
    const Picture picture = ReadPng(m_folder.File("told.png"));
    EXPECT_EQ(json["component"], 5);
    EXPECT_EQ(json["width"], picture.Width());
    EXPECT_EQ(json["height"], picture.Height());
    EXPECT_EQ(json["damagedPatches"], 0);
    ExpectDocumentedKeys({json}, "### JSON of `qsn preview`");
}

TEST_F(Preview, ZenithIsAtTheTopAndColumnsRunAsInTheGrid) {
    // Returns in the upper half only; near at the left, far at the right.
    ASSERT_NO_FATAL_FAILURE(Import(MakePtx(120, 60, [](uint32_t column, uint32_t row) {
        SampleCell cell;
        if (row < 30) cell.range = 2 + column * 0.1;
        return cell;
    })));
    const Picture picture = Draw({});
    const uint32_t height = picture.Height() - LegendHeight(picture.Width());
    EXPECT_NEAR(static_cast<double>(picture.Width()) / height, 2.0, 0.02);
    const uint32_t left = picture.Width() / 10, right = picture.Width() * 9 / 10;
    EXPECT_EQ(picture.At(left, height / 10).alpha, 255);
    EXPECT_EQ(picture.At(right, height * 4 / 10).alpha, 255);
    EXPECT_EQ(picture.At(left, height * 6 / 10).alpha, 0);
    EXPECT_EQ(picture.At(right, height * 9 / 10).alpha, 0);
    EXPECT_LT(Brightness(picture.At(left, height / 4)), Brightness(picture.At(right, height / 4)));
}

TEST_F(Preview, EveryCellOfASmallScanIsShownInItsPlace) {
    ASSERT_NO_FATAL_FAILURE(Import(MakePtx(64, 48, [](uint32_t column, uint32_t row) {
        SampleCell cell{3, 0.5, column * 4, row * 5, (column + row) % 2 * 255};
        if ((column * 31 + row * 17) % 11 == 0) cell.range = 0;
        return cell;
    })));
    const Picture picture = Draw({"--component", "color", "--size", "64x48"});
    ASSERT_EQ(picture.Width(), 64U);
    ASSERT_EQ(picture.Height(), 48U);
    for (uint32_t row = 0; row < 48; ++row) {
        for (uint32_t column = 0; column < 64; ++column) {
            Pixel expected;
            if ((column * 31 + row * 17) % 11 != 0)
                expected = {static_cast<uint8_t>(column * 4), static_cast<uint8_t>(row * 5),
                            static_cast<uint8_t>((column + row) % 2 * 255), 255};
            EXPECT_EQ(picture.At(column, row), expected) << column << " " << row;
        }
    }
}

TEST_F(Preview, IntensityIsStretchedOverTheGreys) {
    // Only a quarter of the possible span is used.
    ASSERT_NO_FATAL_FAILURE(Import(MakePtx(100, 50, [](uint32_t column, uint32_t) {
        return SampleCell{3, 0.25 + 0.25 * column / 99.0, 0, 0, 0};
    })));
    for (const char* component : {"intensity8", "intensity16", "4", "Luminance16"}) {
        const Picture picture = Draw({"--component", component});
        const Pixel dark = picture.At(0, 10);
        const Pixel middle = picture.At(picture.Width() / 2, 10);
        const Pixel light = picture.At(picture.Width() - 1, 10);
        EXPECT_LT(dark.red, 10) << component;
        EXPECT_NEAR(middle.red, 128, 10) << component;
        EXPECT_GT(light.red, 245) << component;
        EXPECT_EQ(middle.red, middle.green) << component;
        EXPECT_EQ(middle.red, middle.blue) << component;
    }
}

TEST_F(Preview, AnglesHaveAPictureToo) {
    ASSERT_NO_FATAL_FAILURE(Import(MakeSmallPtx()));
    const Picture picture = Draw({"--component", "vertical"});
    // Measured cells near the top and the bottom.
    const uint32_t height = picture.Height() - LegendHeight(picture.Width());
    EXPECT_LT(Brightness(picture.At(2, 2)), Brightness(picture.At(2, height - 2)));
}

TEST_F(Preview, FitsIntoTheSizeAskedForLegendIncluded) {
    ASSERT_NO_FATAL_FAILURE(Import(MakeSmallPtx(200, 150)));
    for (const char* size : {"800x400", "300x900", "64x64", "3000x2000"}) {
        const Picture picture = Draw({"--size", size});
        unsigned width = 0, height = 0;
        ASSERT_EQ(std::sscanf(size, "%ux%u", &width, &height), 2);
        EXPECT_LE(picture.Width(), width) << size;
        EXPECT_LE(picture.Height(), height) << size;
    }
}

TEST_F(Preview, ResultsDoNotDependOnTheNumberOfThreads) {
    ASSERT_NO_FATAL_FAILURE(Import(MakeSmallPtx(200, 150)));
    Draw({"--threads", "1"});
    const std::string one = m_folder.Read("out.png");
    Draw({"--threads", "5"});
    EXPECT_EQ(m_folder.Read("out.png"), one);
}

TEST_F(Preview, ComponentsThatAreNotThereAreNamed) {
    ASSERT_NO_FATAL_FAILURE(Import(MakeSmallPtx()));
    ProgramResult result = RunQsn({"preview", "scan.qsn", "out.png", "--component", "7"}, Here());
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("component7"), std::string::npos) << result.err;
    EXPECT_FALSE(m_folder.Has("out.png"));
}

TEST_F(Preview, ADamagedPatchLeavesTheOthersVisibleAndIsReported) {
    ASSERT_NO_FATAL_FAILURE(Import(MakeSmallPtx(200, 150)));
    std::string bytes = m_folder.Read("scan.qsn");
    const size_t chunk = FindChunk(m_folder.File("scan.qsn"), kxbase::Range, 1, 1);
    ASSERT_GT(chunk, 0U);
    // Behind the chunk's own 28 bytes of header.
    for (size_t i = chunk + 28; i < chunk + 60; ++i)
        bytes[i] = static_cast<char>(~bytes[i]);
    m_folder.Write("scan.qsn", bytes);
    const ProgramResult result = RunQsn({"preview", "scan.qsn", "out.png"}, Here());
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_NE(result.err.find("could not be read"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("scan.qsn"), std::string::npos) << result.err;
    const Picture picture = ReadPng(m_folder.File("out.png"));
    EXPECT_EQ(picture.At(picture.Width() - 2, 2).alpha, 255);
}

}  // namespace
}  // namespace qsn
