// SPDX-License-Identifier: MIT
#include "kxio/ThumbnailHeader.h"

#include <algorithm>
#include <string>
#include <utility>

#include "format/RecordSize.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Sizes.h"
#include "kxcodecs/JPEG.h"

namespace kxio {

namespace {

constexpr uint64_t kFixedSize = 12;
constexpr uint32_t kTooSmall = 8;     // an image with a side below this is not worth encoding
constexpr uint32_t kBlackSide = 512;  // and becomes a black one of this size
constexpr uint32_t kMaximumSide = 65500;
constexpr uint64_t kMaximumRawBytes = uint64_t{1} << 30;
constexpr uint32_t kRgb = 3;

[[noreturn]] void FailUnknownSize(std::string field, std::string detail) {
    throw kxbase::KXWrongDataSizeofException(
        "Unknown thumbnail data size", {{}, "ThumbnailHeader", std::move(field), {}, std::move(detail)});
}

void RequirePossibleSides(uint32_t rows, uint32_t columns) {
    if (rows > kMaximumSide || columns > kMaximumSide ||
        kxbase::SizeProduct(rows, columns) > kxcodecs::JPEG::kMaxPixels) {
        FailUnknownSize("sides", std::to_string(rows) + " rows, " + std::to_string(columns) +
                                     " columns; at most " + std::to_string(kMaximumSide) + " each and " +
                                     std::to_string(kxcodecs::JPEG::kMaxPixels) + " pixels");
    }
}

std::vector<unsigned char> BlackPixels(uint32_t rows, uint32_t columns, uint32_t channels) {
    RequirePossibleSides(rows, columns);
    const uint64_t bytes = kxbase::SizeProduct(rows, columns, channels);
    if (bytes > kMaximumRawBytes) {
        FailUnknownSize("channels", std::to_string(bytes) + " bytes of raw pixels, at most " +
                                        std::to_string(kMaximumRawBytes));
    }
    return std::vector<unsigned char>(bytes);
}

// RGB of pixels with one or three channels; missing ones are black.
std::vector<unsigned char> ToRgb(const std::vector<unsigned char>& pixels, uint64_t pixelCount,
                                 uint32_t channels) {
    std::vector<unsigned char> rgb(kxbase::SizeProduct(pixelCount, kRgb));
    const uint64_t have = std::min<uint64_t>(pixels.size(), kxbase::SizeProduct(pixelCount, channels));
    if (channels == kRgb) {
        std::copy_n(pixels.begin(), have, rgb.begin());
        return rgb;
    }
    for (uint64_t i = 0; i < have; ++i)
        std::fill_n(rgb.begin() + static_cast<std::ptrdiff_t>(i * kRgb), kRgb, pixels[i]);
    return rgb;
}

}  // namespace

ThumbnailHeader::ThumbnailHeader(unsigned firstSide, unsigned secondSide, unsigned channels)
    : m_firstSide(firstSide), m_secondSide(secondSide), m_channels(std::max(channels, 1U)) {
    m_pixels = BlackPixels(m_firstSide, m_secondSide, m_channels);
}
ThumbnailHeader::ThumbnailHeader(const ThumbnailHeader&) = default;
ThumbnailHeader::ThumbnailHeader(ThumbnailHeader&&) noexcept = default;
ThumbnailHeader& ThumbnailHeader::operator=(const ThumbnailHeader&) = default;
ThumbnailHeader& ThumbnailHeader::operator=(ThumbnailHeader&&) noexcept = default;
ThumbnailHeader::~ThumbnailHeader() = default;

uint64_t ThumbnailHeader::GetMagic() const {
    return Magic;
}
uint32_t ThumbnailHeader::GetCurrentVersion() const {
    return CurrentVersion;
}
const char* ThumbnailHeader::GetRecordName() const {
    return "ThumbnailHeader";
}

void ThumbnailHeader::SetUp(unsigned firstSide, unsigned secondSide, unsigned channels) {
    const uint32_t rows = std::max(firstSide, MinimumSide);
    const uint32_t columns = std::max(secondSide, MinimumSide);
    const uint32_t newChannels = std::max(channels, 1U);
    m_pixels = BlackPixels(rows, columns, newChannels);
    m_firstSide = rows;
    m_secondSide = columns;
    m_channels = newChannels;
    m_jpeg.clear();
}

void ThumbnailHeader::SetCompressed(std::vector<unsigned char> jpeg, unsigned firstSide,
                                    unsigned secondSide) {
    m_jpeg = std::move(jpeg);
    m_firstSide = firstSide;
    m_secondSide = secondSide;
}

void ThumbnailHeader::EnsureCompressed() const {
    if (!m_jpeg.empty()) return;
    const bool tooSmall = m_firstSide < kTooSmall || m_secondSide < kTooSmall;
    const uint32_t rows = tooSmall ? kBlackSide : m_firstSide;
    const uint32_t columns = tooSmall ? kBlackSide : m_secondSide;
    if (m_channels != 1 && m_channels != kRgb) {
        FailUnknownSize("channels", std::to_string(m_channels) + " channels, 1 or 3 are possible");
    }
    RequirePossibleSides(rows, columns);
    const std::vector<unsigned char> none;
    const std::vector<unsigned char> rgb =
        ToRgb(tooSmall ? none : m_pixels, kxbase::SizeProduct(rows, columns), m_channels);
    std::vector<unsigned char> jpeg;
    if (!kxcodecs::JPEG::Encode(rgb.data(), columns, rows, Quality, jpeg)) {
        FailUnknownSize("sides", std::to_string(rows) + " rows, " + std::to_string(columns) +
                                     " columns cannot be encoded");
    }
    m_jpeg = std::move(jpeg);
    m_firstSide = rows;
    m_secondSide = columns;
}

uint32_t ThumbnailHeader::DataSize(uint32_t /*version*/) const {
    EnsureCompressed();
    return CheckedPayloadSize(kFixedSize + m_jpeg.size(), GetRecordName());
}

void ThumbnailHeader::_Read(const unsigned char* payload) {
    RequireVersion(MinimumVersion, "Unsupported ThumbnailHeader version");
    kxbase::ByteReader in = PayloadReader(payload);
    const uint32_t columns = in.U32("second side");
    const uint32_t rows = in.U32("first side");
    const uint32_t length = in.U32("JPEG length");
    if (length > in.Remaining()) {
        FailUnknownSize("JPEG length", std::to_string(length) + " bytes claimed, " +
                                           std::to_string(in.Remaining()) + " left");
    }
    const auto jpeg = in.Take(length, "JPEG bytes");
    m_jpeg.assign(jpeg.begin(), jpeg.end());
    m_pixels.clear();
    m_firstSide = rows;
    m_secondSide = columns;
}

void ThumbnailHeader::_Write(unsigned char* payload, uint32_t size) {
    EnsureCompressed();
    kxbase::ByteWriter out({payload, size});
    out.U32(m_secondSide);
    out.U32(m_firstSide);
    out.U32(static_cast<uint32_t>(m_jpeg.size()));
    out.Bytes(m_jpeg);
}

}  // namespace kxio
