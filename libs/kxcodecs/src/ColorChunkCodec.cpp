// SPDX-License-Identifier: MIT
#include "kxcodecs/ColorChunkCodec.h"

#include <algorithm>
#include <array>

#include "ByteFilter.h"
#include "ColorPlanes.h"
#include "ZstdFrame.h"
#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"

namespace kxcodecs {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr uint64_t kColorBytes = 3;
constexpr int kFilterLevel = 3;
constexpr ZstdEffort kTokenEffort{1, true, true};
constexpr ZstdEffort kMaskEffort{3, false, true};

// Bits of the form byte; the last one stands alone: the payload of a Zstd chunk follows.
constexpr uint8_t kDifferences = 1;  // red and blue are stored less green
constexpr uint8_t kPairs = 2;        // a red and a blue token below 15 are one byte
constexpr uint8_t kFiltered = 0x80;

// Tokens from here on have no half byte: their pair is stored among the escapes.
constexpr unsigned char kEscape = 15;
constexpr unsigned char kEscapedPair = 0xff;

// Mask, green, red or pairs, blue or escapes.
constexpr std::size_t kFrames = 4;

struct Front {
    static constexpr std::size_t kBytes = 24;

    uint8_t form = 0;
    std::array<uint8_t, 3> predictors{};  // red, green, blue
    std::array<uint32_t, kFrames> sizes{};

    uint32_t Check(const ChunkHeaderInfo& layout) const {
        const auto first = static_cast<uint32_t>(form | predictors[0] << 8 | predictors[1] << 16) |
                           static_cast<uint32_t>(predictors[2]) << 24;
        return HashOf({first, layout.width, layout.height, sizes[0], sizes[1], sizes[2], sizes[3]});
    }
};

// Black means that nothing was seen there, not that it was dark.
Bytes KeptCells(std::span<const unsigned char> bytes) {
    Bytes kept(bytes.size() / kColorBytes);
    for (std::size_t i = 0; i < kept.size(); ++i)
        kept[i] = (bytes[3 * i] | bytes[3 * i + 1] | bytes[3 * i + 2]) != 0 ? 1 : 0;
    return kept;
}

// One bit for each cell, lowest first: whether it differs from the cell above, in the first row from a kept
// one.
Bytes MaskBits(std::span<const unsigned char> kept, std::size_t width) {
    Bytes bits((kept.size() + 7) / 8);
    for (std::size_t i = 0; i < kept.size(); ++i) {
        const unsigned bit = kept[i] ^ (i < width ? 1U : kept[i - width]);
        bits[i / 8] = static_cast<unsigned char>(bits[i / 8] | bit << (i % 8));
    }
    return bits;
}
// Returns how many cells are kept.
std::size_t CellsOfBits(std::span<const unsigned char> bits, std::size_t width, Bytes& kept) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < kept.size(); ++i) {
        const unsigned bit = (bits[i / 8] >> (i % 8)) & 1U;
        kept[i] = static_cast<unsigned char>(bit ^ (i < width ? 1U : kept[i - width]));
        count += kept[i];
    }
    return count;
}

ColorPlane PlaneOf(std::span<const unsigned char> bytes, uint32_t width, std::size_t channel,
                   bool difference) {
    ColorPlane plane{width, difference && channel != 1, Bytes(bytes.size() / kColorBytes)};
    for (std::size_t i = 0; i < plane.values.size(); ++i) {
        const unsigned green = plane.difference ? bytes[3 * i + 1] : 0U;
        plane.values[i] = static_cast<unsigned char>(bytes[3 * i + channel] - green);
    }
    return plane;
}

void JoinPairs(const Bytes& red, const Bytes& blue, Bytes& pairs, Bytes& escapes) {
    for (std::size_t i = 0; i < red.size(); ++i) {
        const bool fit = red[i] < kEscape && blue[i] < kEscape;
        pairs.push_back(fit ? static_cast<unsigned char>(red[i] << 4 | blue[i]) : kEscapedPair);
        if (!fit) escapes.insert(escapes.end(), {red[i], blue[i]});
    }
}
// False when escapes are left over or missing.
bool PartPairs(const Bytes& pairs, const Bytes& escapes, Bytes& red, Bytes& blue) {
    std::size_t next = 0;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const bool escaped = pairs[i] == kEscapedPair;
        if (escaped && escapes.size() - next < 2) return false;
        red[i] = escaped ? escapes[next] : static_cast<unsigned char>(pairs[i] >> 4);
        blue[i] = escaped ? escapes[next + 1] : static_cast<unsigned char>(pairs[i] & 15);
        if (escaped) next += 2;
    }
    return next == escapes.size();
}

// No payload is shorter than what a reader allows for.
std::size_t PayloadBytes(std::size_t bytes, const ChunkHeaderInfo& layout) {
    return std::max<std::size_t>(bytes, layout.uncompressedBytes / kMostZstdExpansion + 1);
}

Bytes Frame(const Bytes& bytes, const ZstdEffort& effort) {
    Bytes frame;
    if (!bytes.empty()) AppendZstdFrame(bytes, effort, frame);
    return frame;
}

struct Packed {
    Front front;
    std::array<Bytes, kFrames> frames;
    std::size_t Size() const {
        std::size_t size = Front::kBytes;
        for (const Bytes& frame : frames)
            size += frame.size();
        return size;
    }
};

// The channels, as they are or as differences, with the predictors that suit them.
struct Channels {
    std::array<ColorPlane, 3> planes;
    std::array<ColorPredictor, 3> predictors{};
    uint64_t cost = 0;

    Channels(std::span<const unsigned char> bytes, uint32_t width, std::span<const unsigned char> kept,
             bool differences) {
        for (std::size_t channel = 0; channel < 3; ++channel) {
            uint64_t bits = 0;
            planes[channel] = PlaneOf(bytes, width, channel, differences);
            predictors[channel] = BestPredictor(planes[channel], kept, bits);
            cost += bits;
        }
    }
};

Packed Pack(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout) {
    Packed packed;
    const Bytes kept = KeptCells(bytes);
    Channels channels(bytes, layout.width, kept, true);
    bool difference = true;
    if (Channels plain(bytes, layout.width, kept, false); plain.cost < channels.cost) {
        channels = std::move(plain);
        difference = false;
    }
    if (std::find(kept.begin(), kept.end(), 0) != kept.end())
        packed.frames[0] = Frame(MaskBits(kept, layout.width), kMaskEffort);
    std::array<Bytes, 3> tokens;
    for (std::size_t channel = 0; channel < 3; ++channel) {
        packed.front.predictors[channel] = static_cast<uint8_t>(channels.predictors[channel]);
        tokens[channel] = PredictTokens(channels.planes[channel], channels.predictors[channel], kept);
    }
    Bytes pairs, escapes;
    JoinPairs(tokens[0], tokens[2], pairs, escapes);
    packed.frames[1] = Frame(tokens[1], kTokenEffort);
    packed.frames[2] = Frame(tokens[0], kTokenEffort);
    packed.frames[3] = Frame(tokens[2], kTokenEffort);
    Bytes pairFrame = Frame(pairs, kTokenEffort), escapeFrame = Frame(escapes, kTokenEffort);
    packed.front.form = difference ? kDifferences : 0;
    if (pairFrame.size() + escapeFrame.size() < packed.frames[2].size() + packed.frames[3].size()) {
        packed.front.form |= kPairs;
        packed.frames[2] = std::move(pairFrame);
        packed.frames[3] = std::move(escapeFrame);
    }
    for (std::size_t i = 0; i < kFrames; ++i)
        packed.front.sizes[i] = static_cast<uint32_t>(packed.frames[i].size());
    return packed;
}

void Append(const Packed& packed, const ChunkHeaderInfo& layout, Bytes& out) {
    Bytes front(Front::kBytes);
    kxbase::ByteWriter writer(front);
    writer.U8(packed.front.form);
    writer.Bytes(packed.front.predictors);
    writer.U32(packed.front.Check(layout));
    for (const uint32_t size : packed.front.sizes)
        writer.U32(size);
    const std::size_t start = out.size();
    out.insert(out.end(), front.begin(), front.end());
    for (const Bytes& frame : packed.frames)
        out.insert(out.end(), frame.begin(), frame.end());
    out.resize(start + PayloadBytes(packed.Size(), layout));
}

// False when the front is none of this layout.
bool ReadFront(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout, Front& front,
               std::array<std::span<const unsigned char>, kFrames>& frames) {
    kxbase::ByteReader in(payload);
    front.form = in.U8("form");
    in.Bytes(front.predictors, "predictors");
    const uint32_t check = in.U32("check");
    for (uint32_t& size : front.sizes)
        size = in.U32("frame bytes");
    if (front.form > (kDifferences | kPairs) || check != front.Check(layout)) return false;
    for (const uint8_t predictor : front.predictors)
        if (predictor >= kColorPredictors) return false;
    for (std::size_t i = 0; i < kFrames; ++i)
        frames[i] = in.Take(front.sizes[i], "frame");
    if (payload.size() != PayloadBytes(in.Position(), layout)) return false;
    const auto rest = in.Take(in.Remaining(), "filling");
    return std::all_of(rest.begin(), rest.end(), [](unsigned char byte) { return byte == 0; });
}

// An empty frame stands for no bytes.
bool Unpack(std::span<const unsigned char> frame, Bytes& out) {
    return out.empty() ? frame.empty() : UnpackZstdFrame(frame, out);
}

bool UnpackColors(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                  std::span<unsigned char> out) {
    Front front;
    std::array<std::span<const unsigned char>, kFrames> frames;
    if (!ReadFront(payload, layout, front, frames)) return false;
    const std::size_t cells = out.size() / kColorBytes;
    Bytes kept(cells, 1);
    std::size_t count = cells;
    if (!frames[0].empty()) {
        Bytes bits((cells + 7) / 8);
        if (!UnpackZstdFrame(frames[0], bits)) return false;
        count = CellsOfBits(bits, layout.width, kept);
    }
    std::array<Bytes, 3> tokens{Bytes(count), Bytes(count), Bytes(count)};
    if (!Unpack(frames[1], tokens[1])) return false;
    if ((front.form & kPairs) != 0) {
        Bytes pairs(count);
        if (!Unpack(frames[2], pairs)) return false;
        Bytes escapes(2 * static_cast<std::size_t>(std::count(pairs.begin(), pairs.end(), kEscapedPair)));
        if (!Unpack(frames[3], escapes) || !PartPairs(pairs, escapes, tokens[0], tokens[2])) return false;
    } else if (!Unpack(frames[2], tokens[0]) || !Unpack(frames[3], tokens[2])) {
        return false;
    }
    const bool differences = (front.form & kDifferences) != 0;
    ColorPlane plane{layout.width, false, Bytes(cells)};
    for (const std::size_t channel : {std::size_t{1}, std::size_t{0}, std::size_t{2}}) {
        plane.difference = differences && channel != 1;
        RestorePlane(plane, static_cast<ColorPredictor>(front.predictors[channel]), kept, tokens[channel]);
        const unsigned withGreen = plane.difference ? 0xffU : 0U;
        for (std::size_t i = 0; i < cells; ++i) {
            const unsigned value = plane.values[i] + (out[3 * i + 1] & withGreen);
            out[3 * i + channel] = static_cast<unsigned char>(value);
        }
    }
    for (std::size_t i = 0; i < cells; ++i)
        if (kept[i] == 0) out[3 * i] = out[3 * i + 1] = out[3 * i + 2] = 0;
    return true;
}

}  // namespace

ColorChunkCodec::~ColorChunkCodec() = default;

void ColorChunkCodec::EncodePayload(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout,
                                    std::vector<unsigned char>& out) const {
    Bytes filtered{kFiltered};
    AppendFiltered(bytes, layout.width, layout.height, kFilterLevel, filtered);
    if (!bytes.empty() && layout.ElementBytes() == kColorBytes) {
        const Packed packed = Pack(bytes, layout);
        if (packed.Size() < filtered.size()) return Append(packed, layout, out);
    }
    out.insert(out.end(), filtered.begin(), filtered.end());
}

bool ColorChunkCodec::CanHold(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout) const {
    return !payload.empty() && layout.uncompressedBytes <= payload.size() * kMostZstdExpansion &&
           layout.uncompressedBytes == layout.decodedBytes;
}

bool ColorChunkCodec::DecodePayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                                    std::span<unsigned char> out) const {
    try {
        if (payload[0] == kFiltered)
            return UnpackFiltered(payload.subspan(1), layout.width, layout.height, out);
        if (out.empty() || layout.ElementBytes() != kColorBytes) return false;
        return UnpackColors(payload, layout, out);
    } catch (const kxbase::ByteRangeException&) {
        return false;
    }
}

}  // namespace kxcodecs
