// SPDX-License-Identifier: MIT
// The first byte picks what is done with the rest:
//   0 Snappy, 1 ZLib, 2 JPEG   u16 width, u16 height, u8 element size, then a payload to decode
//   3                          a whole chunk
//   4                          a plain JPEG image
//   5                          u8 codec, u8 width, u8 element size, u8 level, then data to encode and decode
//   6                          f32 step, then floats to quantise, against the plain definition
//   7 Zstd, 8 Grid, 9 Color    as 0 to 2; the checks of Grid and Color are made to fit, or little would get
//                              past them; of Grid plain and wide code must agree
#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>

#include "ByteFilter.h"
#include "FuzzCheck.h"
#include "grid/GridPayload.h"
#include "grid/GridSimd.h"
#include "kxbase/ByteReader.h"
#include "kxcodecs/kxcodecs.h"

namespace {

using kxcodecs::ChunkCodecFactory;
using kxcodecs::ChunkHeaderInfo;
using kxcodecs::DecodeStatus;
using kxcodecs::QKXChunkCodec;
using Bytes = std::vector<unsigned char>;

constexpr uint64_t kMaxBytes = uint64_t{1} << 22;
constexpr uint64_t kIdentifiers[] = {
    kxcodecs::SnappyChunkCodec::kIdentifier, kxcodecs::ZLibChunkCodec::kIdentifier,
    kxcodecs::JPEGChunkCodec::kIdentifier,   kxcodecs::ZstdChunkCodec::kIdentifier,
    kxcodecs::GridChunkCodec::kIdentifier,   kxcodecs::ColorChunkCodec::kIdentifier};
constexpr uint64_t kGrid = 4, kColor = 5;

void FitCheck(uint32_t width, uint32_t height, uint32_t elementBytes, Bytes& payload) {
    if (payload.size() < kxcodecs::grid::PayloadHeader::kByteSize) return;
    const std::span<const unsigned char> all(payload);
    const uint32_t check = kxcodecs::grid::CheckOf(all.first(4), width, height, elementBytes, all.subspan(8));
    for (std::size_t i = 0; i < 4; ++i)
        payload[4 + i] = static_cast<unsigned char>(check >> (8 * i));
}

void FitColorCheck(uint32_t width, uint32_t height, Bytes& payload) {
    if (payload.size() < 24) return;
    kxbase::ByteReader in(payload);
    const uint32_t first = in.U32("form and predictors");
    in.Skip(4, "check");
    uint32_t sizes[4];
    for (uint32_t& size : sizes)
        size = in.U32("frame bytes");
    const uint32_t check = kxcodecs::HashOf({first, width, height, sizes[0], sizes[1], sizes[2], sizes[3]});
    for (std::size_t i = 0; i < 4; ++i)
        payload[4 + i] = static_cast<unsigned char>(check >> (8 * i));
}

void DecodePayload(uint64_t identifier, kxbase::ByteReader& in) {
    const uint32_t width = in.U16("width");
    const uint32_t height = in.U16("height");
    const uint32_t elementBytes = in.U8("element size");
    const uint64_t claimed = uint64_t{width} * height * elementBytes;
    if (claimed > kMaxBytes) return;
    const auto taken = in.Take(in.Remaining(), "payload");
    Bytes payload(taken.begin(), taken.end());
    if (identifier == kIdentifiers[kGrid]) FitCheck(width, height, elementBytes, payload);
    if (identifier == kIdentifiers[kColor]) FitColorCheck(width, height, payload);
    const auto codec = ChunkCodecFactory::MakeCodec(identifier);
    codec->SetLayout(width, height, static_cast<uint32_t>(claimed), 1.0F);

    uint64_t decodedBytes = 1;
    unsigned char* decoded = codec->Decode(payload.data(), payload.size(), decodedBytes);
    Bytes mine(claimed);
    const bool same = codec->DecodeInto(payload.data(), payload.size(), mine);
    Require(same == (decoded != nullptr), "both ways of decoding agree on success");
    if (decoded != nullptr) {
        Require(codec->CanDecode(payload.data(), payload.size()), "what was decoded can be decoded");
        Require(decodedBytes == mine.size(), "exactly the claimed size");
        Require(std::equal(mine.begin(), mine.end(), decoded), "both ways of decoding agree on the values");
    } else {
        Require(decodedBytes == 0, "no size without a buffer");
    }
    codec->Free(decoded);
    if (identifier == kIdentifiers[kGrid]) {
        kxcodecs::grid::UseVectorTarget(kxcodecs::grid::VectorTargets().back());
        Bytes plain(claimed);
        Require(codec->DecodeInto(payload.data(), payload.size(), plain) == same,
                "plain code agrees on success");
        Require(!same || plain == mine, "plain code agrees on the values");
        kxcodecs::grid::UseVectorTarget("");
    }
}

void DecodeChunk(std::span<const unsigned char> chunk) {
    ChunkHeaderInfo header;
    Bytes out;
    const DecodeStatus status = QKXChunkCodec::DecodeChunk(chunk, header, out, kMaxBytes);
    Require((status == DecodeStatus::NoHeader) == (chunk.size() < 28), "28 bytes make a header");
    if (status == DecodeStatus::Decoded) {
        Require(QKXChunkCodec::IsCodecAvailable(chunk.data(), chunk.size()), "the codec is known");
        Require(out.size() <= header.decodedBytes && out.size() % header.ElementBytes() == 0,
                "whole elements");
        kxcodecs::Dequantise(out, header.ElementBytes(), header.step);
    } else {
        Require(out.empty(), "nothing after a failure");
    }
    QKXChunkCodec::GetName(chunk.data(), chunk.size());
}

void DecodeImage(std::span<const unsigned char> image) {
    unsigned width = 1;
    unsigned height = 1;
    // The limit of the library is too slow to fuzz.
    if (!kxcodecs::JPEG::ReadSize(image.data(), image.size(), width, height)) {
        Require(width == 0 && height == 0, "no sides without an image");
    }
    if (uint64_t{width} * height > kMaxBytes) return;
    unsigned char* pixels = nullptr;
    uint64_t bytes = 1;
    if (kxcodecs::JPEG::Decode(image.data(), image.size(), pixels, bytes, width, height)) {
        Require(bytes == uint64_t{3} * width * height && bytes > 0, "three bytes per pixel");
    } else {
        Require(pixels == nullptr && bytes == 0 && width == 0 && height == 0, "nothing after a failure");
    }
    kxcodecs::JPEG::Free(pixels);
}

void RoundTrip(kxbase::ByteReader& in) {
    const uint64_t identifier = kIdentifiers[in.U8("codec") % std::size(kIdentifiers)];
    const uint32_t width = in.U8("width") + 1U;
    uint32_t elementBytes = in.U8("element size") % 24U + 1U;
    const int level = in.U8("level") % 12;
    const bool isJPEG = identifier == kxcodecs::JPEGChunkCodec::kIdentifier;
    if (isJPEG) elementBytes = elementBytes % 2 == 0 ? 1 : 3;
    const uint32_t height = static_cast<uint32_t>(in.Remaining() / (uint64_t{width} * elementBytes));
    if (height == 0) return;
    const auto data = in.Take(uint64_t{width} * height * elementBytes, "data");
    const auto codec = ChunkCodecFactory::MakeCodec(identifier);
    codec->SetCompressionLevel(level);
    Bytes chunk;
    codec->Encode(data.data(), width, height, data.size(), 1.0F, chunk);
    ChunkHeaderInfo header;
    Bytes out;
    Require(QKXChunkCodec::DecodeChunk(chunk, header, out) == DecodeStatus::Decoded, "own chunks decode");
    Require(out.size() == data.size(), "the size comes back");
    Require(isJPEG || std::equal(out.begin(), out.end(), data.begin()), "the values come back");
}

void QuantiseFloats(kxbase::ByteReader& in) {
    const float step = in.F32("step");
    if (!std::isfinite(step) || step <= 0.0F) return;
    const auto values = in.Take(in.Remaining() / 4 * 4, "values");
    Bytes stored(values.size());
    kxcodecs::Quantise(values, 4, step, stored);
    for (std::size_t at = 0; at < values.size(); at += 4) {
        float value;
        int32_t integer;
        std::memcpy(&value, values.data() + at, 4);
        std::memcpy(&integer, stored.data() + at, 4);
        double expected = std::round(static_cast<double>(value) * static_cast<double>(step));
        expected = std::isnan(expected) ? 0 : std::min(std::max(expected, -2147483648.0), 2147483647.0);
        Require(static_cast<double>(integer) == expected, "the nearest integer, half away from zero");
    }
    kxcodecs::Dequantise(stored, 4, step);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    kxbase::ByteReader in({data + 1, size - 1});
    try {
        switch (data[0]) {
            case 0:
            case 1:
            case 2:
                DecodePayload(kIdentifiers[data[0]], in);
                break;
            case 3:
                DecodeChunk({data + 1, size - 1});
                break;
            case 4:
                DecodeImage({data + 1, size - 1});
                break;
            case 5:
                RoundTrip(in);
                break;
            case 6:
                QuantiseFloats(in);
                break;
            case 7:
            case 8:
            case 9:
                DecodePayload(kIdentifiers[data[0] - 4], in);
                break;
            default:
                break;
        }
    } catch (const kxbase::ByteRangeException&) {
        // Too short for the fields of its mode.
    }
    return 0;
}
