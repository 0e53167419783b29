// SPDX-License-Identifier: MIT
#include "reader/PatchDecoder.h"

#include <algorithm>
#include <new>
#include <string>

#include "kxbase/Exceptions.h"
#include "kxbase/Sizes.h"
#include "kxcodecs/ChunkCodecFactory.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxcodecs/Quantise.h"

namespace kxio {

namespace {

using kxcodecs::DecodeStatus;
using kxcodecs::QKXChunkCodec;

std::string Claim(const kxcodecs::ChunkHeaderInfo& header) {
    return kxcodecs::ChunkCodecFactory::GetName(header.codecId) + ", " + std::to_string(header.width) +
           " x " + std::to_string(header.height) + " elements, " + std::to_string(header.decodedBytes) +
           " bytes decoded";
}

// Into `direct` where header and place agree about every size, otherwise into `values`. Nothing is allocated
// before the header's claims were held against the payload and the limit.
DecodeStatus Decode(PatchBuffers& buffers, const kxcodecs::ChunkHeaderInfo& header, uint64_t maxDecodedBytes,
                    std::span<unsigned char>& values) {
    const uint64_t elementBytes = header.ElementBytes();
    if (elementBytes == 0) return DecodeStatus::BadLayout;
    const auto codec = kxcodecs::ChunkCodecFactory::MakeCodec(header.codecId);
    if (!codec) return DecodeStatus::UnknownCodec;
    if (std::max(header.decodedBytes, header.uncompressedBytes) > maxDecodedBytes)
        return DecodeStatus::TooLarge;
    const auto payload = std::span(buffers.chunk).subspan(QKXChunkCodec::HeaderSize);
    codec->SetMaxDecodedBytes(maxDecodedBytes);
    codec->SetLayout(header);
    if (!codec->CanDecode(payload.data(), payload.size())) return DecodeStatus::DamagedPayload;

    values = buffers.direct;
    if (values.size() != header.decodedBytes || values.size() != header.uncompressedBytes) {
        buffers.values.resize(header.uncompressedBytes);  // keeps what it has: clearing would cost a pass
        values = buffers.values;
    }
    if (!codec->DecodeInto(payload.data(), payload.size(), values)) return DecodeStatus::DamagedPayload;
    const uint64_t usable = std::min(header.decodedBytes, header.uncompressedBytes);
    values = values.first(usable - usable % elementBytes);
    return DecodeStatus::Decoded;
}

}  // namespace

std::string ExceededLimit(const kxcodecs::ChunkHeaderInfo& header, uint64_t chunkBytes,
                          const Limits& limits) {
    const uint64_t decoded = std::max(header.decodedBytes, header.uncompressedBytes);
    if (header.ElementCount() > limits.cells)
        return kxbase::OverLimit("cells", header.ElementCount(), limits.cells);
    if (decoded > limits.decodedBytes) return kxbase::OverLimit("decodedBytes", decoded, limits.decodedBytes);
    if (decoded > kxbase::SizeProduct(chunkBytes, limits.expansionRatio))
        return kxbase::OverLimit("expansionRatio", decoded / std::max<uint64_t>(1, chunkBytes),
                                 limits.expansionRatio);
    return {};
}

DecodedPatch DecodeChunk(PatchBuffers& buffers, const Limits& limits, uint64_t mostBytes) {
    DecodedPatch patch;
    std::span<unsigned char> values;
    DecodeStatus status = DecodeStatus::NoHeader;
    const bool hasHeader = QKXChunkCodec::ReadHeader(buffers.chunk, patch.header);
    std::string exceeded;
    if (hasHeader && patch.header.ElementBytes() != 0)
        exceeded = ExceededLimit(patch.header, buffers.chunk.size(), limits);
    try {
        if (!exceeded.empty()) {
            status = DecodeStatus::TooLarge;
        } else if (hasHeader) {
            status = Decode(buffers, patch.header, mostBytes, values);
        }
    } catch (const std::bad_alloc&) {
        status = DecodeStatus::OutOfMemory;
    }
    if (status != DecodeStatus::Decoded) {
        kxbase::ErrorContext context;
        context.detail = exceeded.empty() ? kxcodecs::ToText(status) : exceeded;
        if (hasHeader) context.detail += " (" + Claim(patch.header) + ")";
        throw kxbase::KXUnreadablePatchException("Patch cannot be decoded", context);
    }
    patch.elementBytes = patch.header.ElementBytes();
    kxcodecs::Dequantise(values, patch.elementBytes, patch.header.step);
    patch.bytes = values;
    return patch;
}

}  // namespace kxio
