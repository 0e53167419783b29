// SPDX-License-Identifier: MIT
#include "reader/PatchDecoder.h"

#include <algorithm>
#include <string>

#include "kxbase/Exceptions.h"
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

// Straight into the caller's memory, where header and memory agree about every size.
DecodeStatus DecodeDirect(const PatchBuffers& buffers, const kxcodecs::ChunkHeaderInfo& header,
                          uint64_t maxDecodedBytes) {
    const auto codec = kxcodecs::ChunkCodecFactory::MakeCodec(header.codecId);
    if (!codec) return DecodeStatus::UnknownCodec;
    codec->SetMaxDecodedBytes(maxDecodedBytes);
    codec->SetLayout(header);
    const auto payload = std::span(buffers.chunk).subspan(QKXChunkCodec::HeaderSize);
    return codec->DecodeInto(payload.data(), payload.size(), buffers.direct) ? DecodeStatus::Decoded
                                                                             : DecodeStatus::DamagedPayload;
}

}  // namespace

DecodedPatch DecodeChunk(PatchBuffers& buffers, uint64_t maxDecodedBytes) {
    DecodedPatch patch;
    const bool hasHeader = QKXChunkCodec::ReadHeader(buffers.chunk, patch.header);
    patch.elementBytes = patch.header.ElementBytes();
    const bool direct = hasHeader && patch.elementBytes != 0 && !buffers.direct.empty() &&
                        buffers.direct.size() == patch.header.decodedBytes &&
                        buffers.direct.size() == patch.header.uncompressedBytes;
    const DecodeStatus status =
        direct ? DecodeDirect(buffers, patch.header, maxDecodedBytes)
               : QKXChunkCodec::DecodeChunk(buffers.chunk, patch.header, buffers.values, maxDecodedBytes);
    if (status != DecodeStatus::Decoded) {
        kxbase::ErrorContext context;
        context.detail = kxcodecs::ToText(status);
        if (hasHeader) context.detail += " (" + Claim(patch.header) + ")";
        throw kxbase::KXUnreadablePatchException("Patch cannot be decoded", context);
    }
    const std::span<unsigned char> bytes = direct ? buffers.direct : std::span<unsigned char>(buffers.values);
    kxcodecs::Dequantise(bytes, patch.elementBytes, patch.header.step);
    patch.bytes = bytes;
    return patch;
}

}  // namespace kxio
