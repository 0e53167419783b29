// SPDX-License-Identifier: MIT
#include "PngSink.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstring>
#include <exception>

#include "TextFormat.h"
#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

constexpr double kMostPixel = 65535;
constexpr uint64_t kMostSide = 0x7fffffff;

// libpng leaves by longjmp: what a callback throws is kept and thrown again behind it.
struct PngOutput {
    kxbase::IOutFileStream* stream = nullptr;
    uint64_t written = 0;
    std::exception_ptr error;
    std::string message;
};

void OnError(png_structp png, png_const_charp message) {
    static_cast<PngOutput*>(png_get_error_ptr(png))->message = message;
    longjmp(png_jmpbuf(png), 1);
}

void OnWarning(png_structp, png_const_charp) {}

void OnWrite(png_structp png, png_bytep data, size_t size) {
    auto* const output = static_cast<PngOutput*>(png_get_io_ptr(png));
    try {
        output->stream->Write(data, size);
        output->written += size;
        return;
    } catch (...) {
        output->error = std::current_exception();
    }
    png_error(png, "the output failed");
}

void OnFlush(png_structp) {}

}  // namespace

FormatCapabilities PngSink::Capabilities() {
    FormatCapabilities can;
    can.grid = can.noReturns = Fate::Kept;
    can.cartesian = Fate::Converted;
    can.coordinateBits = 16;
    can.intensity = Fate::Converted;
    can.intensityBits = 16;
    can.color = can.classes = Fate::Kept;
    can.colorBits = 16;
    return can;
}

void PngSink::BeginScan(const ScanDescription& description) {
    if (!m_plane.empty()) {
        kxbase::ErrorContext context;
        context.detail = "PNG holds one plane of one scan";
        throw kxbase::KXWritingException("Cannot write a second scan into the file", context);
    }
    RequireGrid(description, "PNG");
    if (description.columns > kMostSide || description.rows > kMostSide) {
        throw kxbase::KXBadInputException("Scan is too large for a picture");
    }
    m_description = description;
    m_plane = m_options.plane.empty() ? "range" : m_options.plane;
    m_color = m_plane == "color" && description.color.present;
    if (!m_color) m_kind = FindPlane(m_plane, description);
    m_rows = std::make_unique<RowStore>(description.columns, description.rows, m_color ? 6 : sizeof(double),
                                        m_options.temporaryFolder);
}

void PngSink::WriteColumns(std::span<const Cell> cells, uint64_t /*columns*/) {
    const auto rows = static_cast<size_t>(m_description.rows);
    const size_t bytes = m_color ? 6 : sizeof(double);
    std::vector<unsigned char> column(rows * bytes);
    for (; cells.size() >= rows; cells = cells.subspan(rows)) {
        unsigned char* out = column.data();
        for (const Cell& cell : cells.first(rows)) {
            m_points += cell.valid ? 1 : 0;
            if (m_color) {
                const uint16_t channels[3] = {cell.red, cell.green, cell.blue};
                std::memcpy(out, channels, sizeof channels);
            } else {
                const double value = PlaneValue(cell, m_kind);
                std::memcpy(out, &value, sizeof value);
                if (std::isfinite(value)) {
                    m_least = std::min(m_least, value);
                    m_greatest = std::max(m_greatest, value);
                    m_intensities.Add(value);
                    m_bytes = m_bytes && value >= 0 && value <= 255 && value == std::floor(value);
                }
            }
            out += bytes;
        }
        m_rows->AddColumn(column);
    }
}

PngSink::Pixels PngSink::ChoosePixels() const {
    Pixels pixels;
    if (m_color) {
        pixels.channels = 3;
        pixels.bits = m_description.colorBits == 16 ? 16 : 8;
        return pixels;
    }
    switch (m_kind) {
        case PlaneKind::Red:
        case PlaneKind::Green:
        case PlaneKind::Blue:
            pixels.bits = m_description.colorBits == 16 ? 16 : 8;
            pixels.least = 0;
            break;
        case PlaneKind::Classification:
            pixels.bits = 8;
            pixels.least = 0;
            break;
        case PlaneKind::Valid:
            pixels.bits = 8;
            pixels.scale = 1.0 / 255;
            pixels.least = 0;
            break;
        case PlaneKind::Intensity: {
            pixels.least = 0;
            if (m_bytes) {
                pixels.bits = 8;
                break;
            }
            const IntensityMapping mapping = m_intensities.Mapping();
            pixels.offset = mapping.offset;
            pixels.scale = mapping.scale;
            break;
        }
        case PlaneKind::Range: {
            constexpr double kSteps[] = {1, 2, 5};
            pixels.scale = 1e-3;
            for (int i = 1; m_greatest > pixels.scale * kMostPixel && i < 100; ++i)
                pixels.scale = kSteps[i % 3] * std::pow(10.0, i / 3 - 3);
            break;
        }
        default:
            if (m_greatest >= m_least) {
                const double span = m_greatest - m_least;
                pixels.scale = span > 0 ? span / (kMostPixel - 1) : 1.0;
                pixels.offset = m_least - pixels.scale;
            }
            break;
    }
    return pixels;
}

void PngSink::WritePicture(const Pixels& pixels) {
    PngOutput output;
    output.stream = &m_stream;
    const auto columns = static_cast<size_t>(m_description.columns);
    std::vector<unsigned char> values;
    std::vector<unsigned char> line(columns * static_cast<size_t>(pixels.channels) *
                                    static_cast<size_t>(pixels.bits / 8));
    std::string text = "plane=" + m_plane;
    if (!m_color) {
        text += " offset=" + ShortestText(pixels.offset) + " scale=" + ShortestText(pixels.scale);
        if (pixels.least > 0) text += " empty=0";
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &output, &OnError, &OnWarning);
    if (!png) throw std::bad_alloc();
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        throw std::bad_alloc();
    }
    if (setjmp(png_jmpbuf(png))) {  // NOLINT: how libpng reports errors
        png_destroy_write_struct(&png, &info);
        if (output.error) std::rethrow_exception(output.error);
        kxbase::ErrorContext context;
        context.detail = output.message;
        throw kxbase::KXWritingException("Cannot write picture", context);
    }
    png_set_write_fn(png, &output, &OnWrite, &OnFlush);
    png_set_user_limits(png, static_cast<png_uint_32>(kMostSide), static_cast<png_uint_32>(kMostSide));
    png_set_IHDR(png, info, static_cast<png_uint_32>(columns), static_cast<png_uint_32>(m_description.rows),
                 pixels.bits, pixels.channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    char keyword[] = "kxio";
    png_text chunk{};
    chunk.compression = PNG_TEXT_COMPRESSION_NONE;
    chunk.key = keyword;
    chunk.text = text.data();
    chunk.text_length = text.size();
    png_set_text(png, info, &chunk, 1);
    if (m_options.compressionLevel >= 0)
        png_set_compression_level(png, std::min(m_options.compressionLevel, 9));
    png_write_info(png, info);
    for (uint64_t row = 0; row < m_description.rows; ++row) {
        try {
            m_rows->ReadRow(row, values);
        } catch (...) {
            output.error = std::current_exception();
        }
        if (output.error) png_error(png, "the temporary file failed");
        unsigned char* out = line.data();
        const auto put = [&](unsigned value) {
            if (pixels.bits == 16) *out++ = static_cast<unsigned char>(value >> 8);
            *out++ = static_cast<unsigned char>(value & 255);
        };
        for (size_t i = 0; i < columns; ++i) {
            if (m_color) {
                uint16_t channels[3];
                std::memcpy(channels, values.data() + i * sizeof channels, sizeof channels);
                for (const uint16_t channel : channels)
                    put(channel);
            } else {
                double value = 0;
                std::memcpy(&value, values.data() + i * sizeof value, sizeof value);
                unsigned pixel = 0;
                if (std::isfinite(value)) {
                    const double stored = std::round((value - pixels.offset) / pixels.scale);
                    const double most = pixels.bits == 16 ? kMostPixel : 255;
                    pixel = static_cast<unsigned>(std::clamp<double>(stored, pixels.least, most));
                }
                put(pixel);
            }
        }
        png_write_row(png, line.data());
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    m_written = output.written;
}

void PngSink::EndScan() {
    m_pixels = ChoosePixels();
    WritePicture(m_pixels);
    m_rows.reset();
}

void PngSink::AddLosses(LossReport& losses) const {
    const std::string only = "the file holds the plane " + m_plane + " only";
    const std::string inverse =
        m_plane + " = " + ShortestText(m_pixels.offset) + " + pixel x " + ShortestText(m_pixels.scale);
    const auto mark = [&](const char* field, bool here, bool exact) {
        if (!losses.Find(field)) return;
        if (!here) {
            losses.Add({field, Fate::Lost, only, {}});
        } else {
            losses.Add({field, exact ? Fate::Kept : Fate::Converted, exact ? "" : "to 16 bits",
                        exact ? "" : inverse});
        }
    };
    losses.Add({"coordinates", Fate::Lost, only, m_kind == PlaneKind::Range && !m_color ? inverse : ""});
    mark("intensity", !m_color && m_kind == PlaneKind::Intensity, m_pixels.bits == 8);
    mark("colour", m_color, true);
    mark("classes", !m_color && m_kind == PlaneKind::Classification, true);
}

}  // namespace kxexchange
