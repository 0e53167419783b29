// SPDX-License-Identifier: MIT
#include "JPEGImage.h"

#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>

// The JPEG library's headers need <cstddef> and <cstdio> before them.
#include <jerror.h>
#include <jpeglib.h>

// The JPEG library reports an error by a callback that must not return. Here it jumps back to the function
// that called the library. Between the jump's two ends lie only C frames and functions of this file without
// objects that have destructors: whatever owns memory is held by the caller, in a job structure.

namespace kxcodecs {
namespace {

struct ErrorManager {
    jpeg_error_mgr base;
    std::jmp_buf escape;
};

[[noreturn]] void JumpOut(j_common_ptr info) {
    std::longjmp(reinterpret_cast<ErrorManager*>(info->err)->escape, 1);
}

// Level -1 is a warning. Nearly all of them mean that image data were lost and the library goes on with
// invented ones; that is a failure here, and at once, so that the work is bounded by the bytes there are.
void OnMessage(j_common_ptr info, int level) {
    if (level >= 0) return;
    const int code = info->err->msg_code;
    if (code != JWRN_ADOBE_XFORM && code != JWRN_EXTRANEOUS_DATA) JumpOut(info);
}

void PrintNothing(j_common_ptr /*info*/) {}

void SetUp(ErrorManager& errors) {
    jpeg_std_error(&errors.base);
    errors.base.error_exit = JumpOut;
    errors.base.emit_message = OnMessage;
    errors.base.output_message = PrintNothing;
}

void LimitScans(j_common_ptr info) {
    if (reinterpret_cast<j_decompress_ptr>(info)->input_scan_number > kMaxJPEGScans) JumpOut(info);
}

// --- decoding

struct DecodeJob {
    jpeg_decompress_struct info{};
    ErrorManager errors{};
    jpeg_progress_mgr progress{};
    const unsigned char* image = nullptr;
    std::size_t imageBytes = 0;
    JPEGSize own;  // what the image says of itself

    DecodeJob() = default;
    DecodeJob(const DecodeJob&) = delete;
    DecodeJob& operator=(const DecodeJob&) = delete;
    ~DecodeJob() { jpeg_destroy_decompress(&info); }
};

// Reads the image's header into `job.own`.
bool Start(DecodeJob& job) {
    SetUp(job.errors);
    job.info.err = &job.errors.base;
    if (setjmp(job.errors.escape) != 0) return false;
    jpeg_create_decompress(&job.info);
    job.progress.progress_monitor = LimitScans;
    job.info.progress = &job.progress;
    jpeg_mem_src(&job.info, job.image, static_cast<unsigned long>(job.imageBytes));
    if (jpeg_read_header(&job.info, TRUE) != JPEG_HEADER_OK) return false;
    if (job.info.arith_code) return false;
    if (job.info.num_components != 1 && job.info.num_components != 3) return false;
    job.own.width = job.info.image_width;
    job.own.height = job.info.image_height;
    job.own.channels = static_cast<uint32_t>(job.info.num_components);
    return job.own.PixelCount() <= job.imageBytes * kMaxJPEGPixelsPerByte;
}

bool Start(DecodeJob& job, std::span<const unsigned char> image) {
    if (image.empty() || image.size() > std::numeric_limits<unsigned long>::max()) return false;
    job.image = image.data();
    job.imageBytes = image.size();
    return Start(job);
}

// Decodes all rows; the header was read and agrees with the size of `out`.
bool Finish(DecodeJob& job, unsigned channels, unsigned char* out) {
    if (setjmp(job.errors.escape) != 0) return false;
    job.info.out_color_space = channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
    job.info.do_block_smoothing = FALSE;  // it guesses at what an incomplete image might have been
    if (!jpeg_start_decompress(&job.info)) return false;
    if (job.info.output_width != job.own.width || job.info.output_height != job.own.height ||
        static_cast<unsigned>(job.info.output_components) != channels) {
        return false;
    }
    const std::size_t rowBytes = std::size_t{job.own.width} * channels;
    while (job.info.output_scanline < job.info.output_height) {
        JSAMPROW row = out + job.info.output_scanline * rowBytes;
        if (jpeg_read_scanlines(&job.info, &row, 1) != 1) return false;
    }
    return jpeg_finish_decompress(&job.info) != FALSE;
}

// --- encoding

// Grows as the image does: a small image can be longer than its pixels.
struct GrowingDestination {
    jpeg_destination_mgr base{};
    unsigned char* bytes = nullptr;
    std::size_t capacity = 0;
};

GrowingDestination& DestinationOf(j_compress_ptr info) {
    return *reinterpret_cast<GrowingDestination*>(info->dest);
}

void Grow(j_compress_ptr info) {
    GrowingDestination& to = DestinationOf(info);
    const std::size_t used = to.capacity;
    const std::size_t capacity = used == 0 ? std::size_t{1} << 14 : 2 * used;
    void* bytes = std::realloc(to.bytes, capacity);
    if (bytes == nullptr) ERREXIT1(info, JERR_OUT_OF_MEMORY, 0);
    to.bytes = static_cast<unsigned char*>(bytes);
    to.capacity = capacity;
    to.base.next_output_byte = to.bytes + used;
    to.base.free_in_buffer = capacity - used;
}

// Called with the buffer full, whatever the two counters say.
boolean GrowWhenFull(j_compress_ptr info) {
    Grow(info);
    return TRUE;
}

void NothingToDo(j_compress_ptr /*info*/) {}

struct EncodeJob {
    jpeg_compress_struct info{};
    ErrorManager errors{};
    GrowingDestination destination;

    EncodeJob() = default;
    EncodeJob(const EncodeJob&) = delete;
    EncodeJob& operator=(const EncodeJob&) = delete;
    ~EncodeJob() {
        jpeg_destroy_compress(&info);
        std::free(destination.bytes);
    }
};

bool Run(EncodeJob& job, const unsigned char* pixels, const JPEGSize& size, int quality,
         ChromaSampling chroma) {
    SetUp(job.errors);
    job.info.err = &job.errors.base;
    if (setjmp(job.errors.escape) != 0) return false;
    jpeg_create_compress(&job.info);
    job.destination.base.init_destination = Grow;
    job.destination.base.empty_output_buffer = GrowWhenFull;
    job.destination.base.term_destination = NothingToDo;
    job.info.dest = &job.destination.base;

    job.info.image_width = size.width;
    job.info.image_height = size.height;
    job.info.input_components = static_cast<int>(size.channels);
    job.info.in_color_space = size.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&job.info);
    jpeg_set_quality(&job.info, quality, TRUE);
    if (chroma == ChromaSampling::Full) {
        job.info.comp_info[0].h_samp_factor = 1;
        job.info.comp_info[0].v_samp_factor = 1;
    }
    jpeg_start_compress(&job.info, TRUE);
    const std::size_t rowBytes = std::size_t{size.width} * size.channels;
    while (job.info.next_scanline < size.height) {
        // The library's interface lacks a const; it only reads.
        JSAMPROW row = const_cast<JSAMPROW>(pixels + job.info.next_scanline * rowBytes);
        if (jpeg_write_scanlines(&job.info, &row, 1) != 1) return false;
    }
    jpeg_finish_compress(&job.info);
    return true;
}

}  // namespace

bool ReadJPEGSize(std::span<const unsigned char> image, JPEGSize& size) {
    DecodeJob job;
    if (!Start(job, image)) return false;
    size = job.own;
    return true;
}

bool EncodeJPEG(const unsigned char* pixels, const JPEGSize& size, int quality, ChromaSampling chroma,
                std::vector<unsigned char>& out) {
    if (pixels == nullptr || size.width == 0 || size.height == 0 || size.width > kMaxJPEGSide ||
        size.height > kMaxJPEGSide || (size.channels != 1 && size.channels != 3)) {
        return false;
    }
    EncodeJob job;
    if (!Run(job, pixels, size, quality, chroma)) return false;
    const std::size_t length = job.destination.capacity - job.destination.base.free_in_buffer;
    out.insert(out.end(), job.destination.bytes, job.destination.bytes + length);
    return true;
}

bool DecodeJPEG(std::span<const unsigned char> image, const JPEGSize& wanted, std::span<unsigned char> out,
                uint64_t& usedBytes) {
    usedBytes = 0;
    DecodeJob job;
    if (!Start(job, image)) return false;
    if (job.own.width != wanted.width || job.own.height != wanted.height ||
        (wanted.channels != 1 && wanted.channels != 3) ||
        out.size() / wanted.channels != wanted.PixelCount() || out.size() % wanted.channels != 0) {
        return false;
    }
    if (!Finish(job, wanted.channels, out.data())) return false;
    usedBytes = image.size() - job.info.src->bytes_in_buffer;
    return true;
}

}  // namespace kxcodecs
