// SPDX-License-Identifier: MIT
#include "ReadPng.h"

#include <gtest/gtest.h>
#include <png.h>

namespace qsn {

Picture ReadPng(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
        ADD_FAILURE() << path << ": " << image.message;
        return Picture(0, 0);
    }
    image.format = PNG_FORMAT_RGBA;
    Picture picture(image.width, image.height);
    if (png_image_finish_read(&image, nullptr, &picture.At(0, 0), 0, nullptr) == 0)
        ADD_FAILURE() << path << ": " << image.message;
    return picture;
}

}  // namespace qsn
