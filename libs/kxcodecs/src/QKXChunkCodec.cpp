// SPDX-License-Identifier: MIT
#include "kxcodecs/QKXChunkCodec.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <memory>
#include <new>

#include "kxbase/Exceptions.h"
#include "kxcodecs/ChunkCodecFactory.h"
#include "kxcodecs/ElementOrder.h"
#include "kxcodecs/Quantise.h"

namespace kxcodecs {
namespace {

constexpr uint64_t kMaxU32 = std::numeric_limits<uint32_t>::max();

template <class Exception>
[[noreturn]] void Refuse(const QKXChunkCodec& codec, const char* field, std::string detail) {
    kxbase::ErrorContext context;
    context.record = ChunkCodecFactory::GetName(codec.GetIdentifier()) + " chunk";
    context.field = field;
    context.detail = std::move(detail);
    throw Exception("Chunk cannot be encoded", std::move(context));
}

std::string Shape(uint32_t width, uint32_t height, uint64_t byteCount) {
    return std::to_string(byteCount) + " bytes for " + std::to_string(width) + " x " +
           std::to_string(height) + " elements";
}

}  // namespace

std::string ToText(DecodeStatus status) {
    switch (status) {
        case DecodeStatus::Decoded:
            return "decoded";
        case DecodeStatus::NoHeader:
            return "fewer bytes than a chunk header";
        case DecodeStatus::BadLayout:
            return "width, height and byte sizes do not fit each other";
        case DecodeStatus::UnknownCodec:
            return "no codec of that identifier";
        case DecodeStatus::TooLarge:
            return "more decoded bytes claimed than allowed";
        case DecodeStatus::DamagedPayload:
            return "the payload does not unpack to what the header claims";
        case DecodeStatus::OutOfMemory:
            return "not enough memory for the decoded bytes";
    }
    return "unknown status";
}

QKXChunkCodec::~QKXChunkCodec() = default;

bool QKXChunkCodec::ReadHeader(const unsigned char* chunk, uint64_t size, ChunkHeaderInfo& out) {
    if (chunk == nullptr || size < HeaderSize) return false;
    out = DecodeChunkHeader({chunk, HeaderSize});
    return true;
}

std::string QKXChunkCodec::GetName(const unsigned char* chunk, uint64_t size) {
    ChunkHeaderInfo header;
    return ReadHeader(chunk, size, header) ? ChunkCodecFactory::GetName(header.codecId) : std::string();
}

bool QKXChunkCodec::IsCodecAvailable(const unsigned char* chunk, uint64_t size) {
    ChunkHeaderInfo header;
    return ReadHeader(chunk, size, header) && ChunkCodecFactory::IsKnown(header.codecId);
}

uint64_t QKXChunkCodec::GetUncompressedSize(const unsigned char* chunk, uint64_t size) {
    ChunkHeaderInfo header;
    return ReadHeader(chunk, size, header) ? header.uncompressedBytes : 0;
}

bool QKXChunkCodec::ReadHeader(const std::vector<unsigned char>& chunk, ChunkHeaderInfo& out) {
    return ReadHeader(chunk.data(), chunk.size(), out);
}
std::string QKXChunkCodec::GetName(const std::vector<unsigned char>& chunk) {
    return GetName(chunk.data(), chunk.size());
}
bool QKXChunkCodec::IsCodecAvailable(const std::vector<unsigned char>& chunk) {
    return IsCodecAvailable(chunk.data(), chunk.size());
}
uint64_t QKXChunkCodec::GetUncompressedSize(const std::vector<unsigned char>& chunk) {
    return GetUncompressedSize(chunk.data(), chunk.size());
}

void QKXChunkCodec::Encode(const void* data, uint32_t width, uint32_t height, uint64_t byteCount,
                           float quality, std::vector<unsigned char>& out) const {
    using kxbase::KXBadInputException;
    using kxbase::KXWrongDataSizeofException;
    out.clear();
    if (!std::isfinite(quality) || !(quality > 0.0F)) {
        Refuse<KXBadInputException>(*this, "quality",
                                    std::to_string(quality) + ", must be finite and above 0");
    }
    if (data == nullptr && byteCount > 0) Refuse<KXBadInputException>(*this, "data", "null pointer");
    if (byteCount > kMaxU32) {
        Refuse<KXWrongDataSizeofException>(*this, "decoded bytes",
                                           Shape(width, height, byteCount) + ", at most 4294967295");
    }
    const uint64_t elements = static_cast<uint64_t>(width) * height;
    if (elements == 0 ? byteCount != 0 : (byteCount == 0 || byteCount % elements != 0)) {
        Refuse<KXBadInputException>(*this, "decoded bytes", Shape(width, height, byteCount));
    }

    ChunkHeaderInfo header{GetIdentifier(),
                           width,
                           height,
                           static_cast<uint32_t>(byteCount),
                           1.0F,
                           static_cast<uint32_t>(byteCount)};
    std::span<const unsigned char> bytes(static_cast<const unsigned char*>(data), byteCount);
    std::vector<unsigned char> stored;
    if (quality != 1.0F && Quantises() && IsQuantisable(header.ElementBytes())) {
        stored.resize(byteCount);
        Quantise(bytes, header.ElementBytes(), quality, stored);
        bytes = stored;
        header.step = quality;
    }
    if (std::endian::native != std::endian::little && Quantises()) {
        if (stored.empty()) stored.assign(bytes.begin(), bytes.end());
        TurnElements(stored, header.ElementBytes());
        bytes = stored;
    }

    try {
        out.resize(HeaderSize);
        EncodePayload(bytes, header, out);
        if (out.size() > kMaxU32) {
            Refuse<KXWrongDataSizeofException>(*this, "chunk bytes",
                                               std::to_string(out.size()) + ", at most 4294967295");
        }
        EncodeChunkHeader(header, out);
    } catch (...) {
        out.clear();
        throw;
    }
}

void QKXChunkCodec::SetCompressionLevel(int /*level*/) {}

void QKXChunkCodec::SetLayout(uint32_t width, uint32_t height, uint32_t decodedBytes, float step) {
    m_layout = {GetIdentifier(), width, height, decodedBytes, step, decodedBytes};
}

void QKXChunkCodec::SetLayout(const ChunkHeaderInfo& header) {
    m_layout = header;
    m_layout.codecId = GetIdentifier();
}

bool QKXChunkCodec::CanDecode(const unsigned char* payload, uint64_t size) const {
    if (payload == nullptr || m_layout.uncompressedBytes > m_maxDecodedBytes) return false;
    return CanHold({payload, size}, m_layout);
}

unsigned char* QKXChunkCodec::Decode(const unsigned char* payload, uint64_t size, uint64_t& decodedBytes) {
    decodedBytes = 0;
    if (!CanDecode(payload, size)) return nullptr;
    const uint64_t bytes = m_layout.uncompressedBytes;
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[bytes]);
    try {
        if (!buffer || !DecodeElements({payload, size}, {buffer.get(), bytes})) return nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    decodedBytes = bytes;
    return buffer.release();
}

void QKXChunkCodec::Free(unsigned char* decoded) {
    delete[] decoded;
}

bool QKXChunkCodec::DecodeInto(const unsigned char* payload, uint64_t size,
                               std::span<unsigned char> out) const {
    return out.size() == m_layout.uncompressedBytes && CanDecode(payload, size) &&
           DecodeElements({payload, size}, out);
}

bool QKXChunkCodec::DecodeElements(std::span<const unsigned char> payload,
                                   std::span<unsigned char> out) const {
    if (!DecodePayload(payload, m_layout, out)) return false;
    if (Quantises()) TurnElements(out, m_layout.ElementBytes());
    return true;
}

DecodeStatus QKXChunkCodec::DecodeChunk(std::span<const unsigned char> chunk, ChunkHeaderInfo& header,
                                        std::vector<unsigned char>& out, uint64_t maxDecodedBytes) noexcept {
    out.clear();
    try {
        if (!ReadHeader(chunk.data(), chunk.size(), header)) return DecodeStatus::NoHeader;
        const uint64_t elementBytes = header.ElementBytes();
        if (elementBytes == 0) return DecodeStatus::BadLayout;
        const auto codec = ChunkCodecFactory::MakeCodec(header.codecId);
        if (!codec) return DecodeStatus::UnknownCodec;
        if (std::max(header.decodedBytes, header.uncompressedBytes) > maxDecodedBytes) {
            return DecodeStatus::TooLarge;
        }
        const auto payload = chunk.subspan(HeaderSize);
        codec->SetMaxDecodedBytes(maxDecodedBytes);
        codec->SetLayout(header);
        if (!codec->CanDecode(payload.data(), payload.size())) return DecodeStatus::DamagedPayload;
        out.resize(header.uncompressedBytes);
        if (!codec->DecodeInto(payload.data(), payload.size(), out)) {
            out.clear();
            return DecodeStatus::DamagedPayload;
        }
        const uint64_t usable = std::min(header.decodedBytes, header.uncompressedBytes);
        out.resize(usable - usable % elementBytes);
        return DecodeStatus::Decoded;
    } catch (const std::bad_alloc&) {
        out.clear();
        return DecodeStatus::OutOfMemory;
    }
}

bool QKXChunkCodec::Quantises() const {
    return true;
}

void QKXChunkCodec::EncodePayload(std::span<const unsigned char> /*bytes*/, const ChunkHeaderInfo& /*layout*/,
                                  std::vector<unsigned char>& /*out*/) const {
    Refuse<kxbase::KXException>(*this, "payload", "this codec does not encode");
}

bool QKXChunkCodec::CanHold(std::span<const unsigned char> /*payload*/,
                            const ChunkHeaderInfo& /*layout*/) const {
    return false;
}

bool QKXChunkCodec::DecodePayload(std::span<const unsigned char> /*payload*/,
                                  const ChunkHeaderInfo& /*layout*/, std::span<unsigned char> /*out*/) const {
    return false;
}

}  // namespace kxcodecs
