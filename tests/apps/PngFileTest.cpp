// SPDX-License-Identifier: MIT
#include "PngFile.h"

#include <gtest/gtest.h>

#include "ReadPng.h"
#include "TemporaryFolder.h"
#include "kxbase/Exceptions.h"

namespace qsn {
namespace {

TEST(PngFile, PixelsAndTransparencyComeBack) {
    const TemporaryFolder folder;
    Picture picture(3, 2);
    picture.At(0, 0) = {255, 0, 0, 255};
    picture.At(2, 0) = {1, 2, 3, 255};
    picture.At(1, 1) = {10, 20, 30, 128};
    WritePng(folder.File("p.png"), picture);

    const Picture read = ReadPng(folder.File("p.png"));
    ASSERT_EQ(read.Width(), 3U);
    ASSERT_EQ(read.Height(), 2U);
    for (uint32_t y = 0; y < 2; ++y) {
        for (uint32_t x = 0; x < 3; ++x)
            EXPECT_EQ(read.At(x, y), picture.At(x, y)) << x << " " << y;
    }
}

TEST(PngFile, AFileThatCannotBeWrittenIsNamed) {
    const TemporaryFolder folder;
    const std::string path = folder.File("nowhere/p.png");
    try {
        WritePng(path, Picture(1, 1));
        FAIL() << "no exception";
    } catch (const kxbase::KXWritingException& error) {
        EXPECT_EQ(error.Context().file, path);
    }
}

}  // namespace
}  // namespace qsn
