// SPDX-License-Identifier: MIT
#include "PngFile.h"

#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <cstring>

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

    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_NE(png_image_begin_read_from_file(&image, folder.File("p.png").c_str()), 0) << image.message;
    EXPECT_EQ(image.width, 3U);
    EXPECT_EQ(image.height, 2U);
    image.format = PNG_FORMAT_RGBA;
    std::vector<unsigned char> bytes(PNG_IMAGE_SIZE(image));
    ASSERT_NE(png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr), 0) << image.message;
    for (uint32_t y = 0; y < 2; ++y) {
        for (uint32_t x = 0; x < 3; ++x)
            EXPECT_EQ(std::memcmp(&bytes[(y * 3 + x) * 4], &picture.At(x, y), 4), 0) << x << " " << y;
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
