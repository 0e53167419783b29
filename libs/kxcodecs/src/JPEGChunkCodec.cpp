// SPDX-License-Identifier: MIT
#include "kxcodecs/JPEGChunkCodec.h"

#include <algorithm>

#include "JPEGImage.h"
#include "kxbase/Exceptions.h"
#include "kxcodecs/JPEG.h"

namespace kxcodecs {
namespace {

JPEGSize SizeOf(const ChunkHeaderInfo& layout) {
    const uint64_t channels = layout.ElementBytes();
    return {layout.width, layout.height,
            channels == 1 || channels == 3 ? static_cast<uint32_t>(channels) : 0};
}

}  // namespace

JPEGChunkCodec::~JPEGChunkCodec() = default;

void JPEGChunkCodec::SetCompressionLevel(int level) {
    m_level = std::clamp(level, 1, 9);
}

bool JPEGChunkCodec::Quantises() const {
    return false;
}

void JPEGChunkCodec::EncodePayload(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout,
                                   std::vector<unsigned char>& out) const {
    const JPEGSize size = SizeOf(layout);
    if (size.channels == 0 || size.width > kMaxJPEGSide || size.height > kMaxJPEGSide ||
        size.PixelCount() > JPEG::kMaxPixels) {
        kxbase::ErrorContext context;
        context.record = "JPEG chunk";
        context.detail = std::to_string(layout.width) + " x " + std::to_string(layout.height) +
                         " elements of " + std::to_string(layout.ElementBytes()) +
                         " bytes; elements must have 1 or 3 bytes, sides be 1 to 65500";
        throw kxbase::KXBadInputException("Chunk cannot be encoded", context);
    }
    if (!EncodeJPEG(bytes.data(), size, 100 - 5 * m_level, ChromaSampling::Full, out)) {
        throw kxbase::KXException("Chunk cannot be encoded");
    }
}

bool JPEGChunkCodec::CanHold(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout) const {
    const JPEGSize claimed = SizeOf(layout);
    JPEGSize own;
    return claimed.channels != 0 && layout.uncompressedBytes == layout.decodedBytes &&
           claimed.PixelCount() <= JPEG::kMaxPixels && ReadJPEGSize(payload, own) && own == claimed;
}

bool JPEGChunkCodec::DecodePayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                                   std::span<unsigned char> out) const {
    uint64_t usedBytes = 0;
    // Bytes behind the image would be lost silently: such a payload is damaged.
    return DecodeJPEG(payload, SizeOf(layout), out, usedBytes) && usedBytes == payload.size();
}

}  // namespace kxcodecs
