// SPDX-License-Identifier: MIT
#include "PngFile.h"

#include <png.h>

#include <exception>
#include <memory>

#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxOutFile.h"

namespace qsn {

namespace {

struct PngTarget {
    kxbase::kxOutFile file;
    std::exception_ptr problem;
};

[[noreturn]] void OnPngError(png_structp png, png_const_charp text) {
    auto* detail = static_cast<std::string*>(png_get_error_ptr(png));
    *detail = text;
    png_longjmp(png, 1);
}

void OnPngWarning(png_structp, png_const_charp) {}

void OnPngWrite(png_structp png, png_bytep data, size_t count) {
    auto* target = static_cast<PngTarget*>(png_get_io_ptr(png));
    try {
        target->file.Write(data, count);
        return;
    } catch (...) {
        // No exception may cross the library's C frames.
        target->problem = std::current_exception();
    }
    png_error(png, "write failed");
}

void OnPngFlush(png_structp) {}

/// Everything between setjmp and its returns: no object with a destructor may live in here.
bool WriteRows(png_structp png, png_infop info, const Picture& picture) {
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    // A huge picture is legal; the library's own limit is for files that it reads.
    png_set_user_limits(png, 0x7fffffff, 0x7fffffff);
    png_set_IHDR(png, info, picture.Width(), picture.Height(), 8, PNG_COLOR_TYPE_RGB_ALPHA,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_sRGB_gAMA_and_cHRM(png, info, PNG_sRGB_INTENT_PERCEPTUAL);
    png_write_info(png, info);
    for (uint32_t y = 0; y < picture.Height(); ++y)
        png_write_row(png, reinterpret_cast<png_const_bytep>(picture.Row(y)));
    png_write_end(png, info);
    return true;
}

}  // namespace

void WritePng(const std::string& path, const Picture& picture) {
    PngTarget target{kxbase::kxOutFile(kxbase::Decode_UTF8(path)), nullptr};
    const kxbase::ErrorContext context{.file = path, .record = {}, .field = {}, .offset = {}, .detail = {}};
    if (!target.file.IsOpen()) throw kxbase::KXWritingException("Cannot write file", context);

    std::string detail;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &detail, OnPngError, OnPngWarning);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
    const auto release = [&info](png_structp p) { png_destroy_write_struct(&p, &info); };
    const std::unique_ptr<png_struct, decltype(release)> owner(png, release);
    if (info == nullptr) throw std::bad_alloc();

    png_set_write_fn(png, &target, OnPngWrite, OnPngFlush);
    const bool written = WriteRows(png, info, picture);
    if (target.problem) std::rethrow_exception(target.problem);
    if (!written) {
        kxbase::ErrorContext withDetail = context;
        withDetail.detail = detail;
        throw kxbase::KXWritingException("Cannot write file", withDetail);
    }
    target.file.Close();
}

}  // namespace qsn
