// SPDX-License-Identifier: MIT
#include "grid/GridPayload.h"

#include <algorithm>
#include <limits>

#include "ByteFilter.h"
#include "ZstdFrame.h"
#include "grid/GridPacking.h"
#include "grid/GridSimd.h"
#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Sizes.h"

namespace kxcodecs::grid {
namespace {

using Bytes = std::vector<unsigned char>;

// Levels of the small frames, which are a few per cent of a chunk: FAST, parameters and mask of BALANCED.
constexpr int kFastLevel = 1;
constexpr int kParameterLevel = 6;
constexpr int kMaskLevel = 6;

uint64_t Zigzag64(uint64_t value) {
    return (value << 1) ^ (0 - (value >> 63));
}
uint64_t UndoZigzag64(uint64_t value) {
    return (value >> 1) ^ (0 - (value & 1));
}

// First all lowest bytes, then the next ones: numbers of similar size pack well so.
template <class T>
void AppendPlanes(const std::vector<T>& values, Bytes& out) {
    const std::size_t start = out.size(), count = values.size();
    out.resize(start + count * sizeof(T));
    unsigned char* to = out.data() + start;
    for (std::size_t plane = 0; plane < sizeof(T); ++plane, to += count) {
        for (std::size_t i = 0; i < count; ++i)
            to[i] = static_cast<unsigned char>(values[i] >> (8 * plane));
    }
}
template <class T>
void TakePlanes(kxbase::ByteReader& in, std::size_t count, std::vector<T>& values, const char* field) {
    const auto bytes = in.Take(kxbase::SizeProduct(count, sizeof(T)), field);
    values.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        T value = bytes[i];
        for (std::size_t plane = 1; plane < sizeof(T); ++plane)
            value = static_cast<T>(value |
                                   static_cast<T>(static_cast<T>(bytes[plane * count + i]) << (8 * plane)));
        values[i] = value;
    }
}

std::size_t VoidCount(VoidKind kind, const Shape& shape) {
    switch (kind) {
        case VoidKind::None:
            return 0;
        case VoidKind::Constant:
            return 1;
        case VoidKind::PerRow:
            return shape.height;
        case VoidKind::PerColumn:
            return shape.width;
    }
    return 0;
}

void AppendU32(uint32_t value, Bytes& out) {
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<unsigned char>(value >> shift));
}
void AppendU64(uint64_t value, Bytes& out) {
    AppendU32(static_cast<uint32_t>(value), out);
    AppendU32(static_cast<uint32_t>(value >> 32), out);
}

Bytes ParameterBytes(const GridSource& source, const GridPlan& plan, const GridResiduals& residuals) {
    Bytes out;
    AppendU64(source.base, out);
    const std::size_t tableSize = plan.map == ValueMap::Ranks ? source.table.size() : 0;
    AppendU32(tableSize > 0 ? 1 : source.step, out);
    AppendU32(static_cast<uint32_t>(tableSize), out);
    AppendU32(static_cast<uint32_t>(residuals.exceptionMore.size()), out);
    std::vector<uint64_t> bends;  // second differences
    for (std::size_t i = 0; i < source.voids.size(); ++i) {
        const uint64_t before = i > 0 ? source.voids[i - 1] : 0,
                       beforeThat = i > 1 ? source.voids[i - 2] : before;
        bends.push_back(Zigzag64(source.voids[i] - 2 * before + beforeThat));
    }
    AppendPlanes(bends, out);
    std::vector<uint32_t> gaps;
    for (std::size_t i = 0; i < tableSize; ++i)
        gaps.push_back(i == 0 ? source.table[0] : source.table[i] - source.table[i - 1]);
    AppendPlanes(gaps, out);
    std::vector<uint32_t> steps;
    for (std::size_t i = 0; i < plan.firstLine.size(); ++i)
        steps.push_back(Zigzag(plan.firstLine[i] - (i > 0 ? plan.firstLine[i - 1] : 0)));
    AppendPlanes(steps, out);
    AppendPlanes(plan.predictors, out);
    AppendPlanes(residuals.exponents, out);
    AppendPlanes(residuals.exceptionCounts, out);
    std::vector<uint32_t> offsets;
    for (const uint32_t offset : plan.offsets)
        offsets.push_back(Zigzag(offset));
    AppendPlanes(offsets, out);
    AppendPlanes(residuals.exceptionPlaces, out);
    AppendPlanes(residuals.exceptionMore, out);
    return out;
}

}  // namespace

uint64_t LeastPayloadBytes(uint64_t decodedBytes) {
    return std::max<uint64_t>(PayloadHeader::kByteSize,
                              (decodedBytes + kMostZstdExpansion - 1) / kMostZstdExpansion);
}

void WritePayload(const GridSource& source, const GridPlan& plan, const GridResiduals& residuals, Form form,
                  uint64_t decodedBytes, Bytes& out) {
    const std::size_t start = out.size();
    out.reserve(start + decodedBytes);
    out.resize(start + PayloadHeader::kByteSize);
    const auto addFrame = [&](std::span<const unsigned char> bytes, const ZstdEffort& effort) {
        const std::size_t before = out.size();
        AppendZstdFrame(bytes, effort, out);
        return static_cast<uint32_t>(out.size() - before);
    };
    uint32_t maskBytes = 0;
    if (source.voidKind != VoidKind::None) {
        const std::size_t groups = plan.shape.Groups(), words = plan.shape.MaskWords();
        const uint16_t* const mask = plan.plane.Mask();
        Bytes changes(2 * words);
        for (std::size_t i = 0; i < words; ++i) {
            const uint32_t change = mask[i] ^ (i >= groups ? mask[i - groups] : 0U);
            changes[2 * i] = static_cast<unsigned char>(change);
            changes[2 * i + 1] = static_cast<unsigned char>(change >> 8);
        }
        maskBytes = addFrame(changes, {form == Form::Tokens ? kMaskLevel : kFastLevel});
    }
    const Bytes parameters = ParameterBytes(source, plan, residuals);
    const uint32_t parameterBytes =
        addFrame(parameters, {form == Form::Tokens ? kParameterLevel : kFastLevel});
    const uint32_t tokenBytes =
        form == Form::Tokens ? addFrame({residuals.tokens.data(), residuals.tokenCount}, {1, true}) : 0;
    for (uint32_t bits = 1; bits <= kMostExponent; ++bits)
        PackLow(residuals.LowOf(bits), bits, out);
    out.resize(
        std::max<std::size_t>(out.size(), start + static_cast<std::size_t>(LeastPayloadBytes(decodedBytes))));

    const std::span<unsigned char> header(out.data() + start, PayloadHeader::kByteSize);
    kxbase::ByteWriter behind(header.subspan(8));
    behind.U32(maskBytes);
    behind.U32(parameterBytes);
    behind.U32(static_cast<uint32_t>(parameters.size()));
    behind.U32(tokenBytes);
    kxbase::ByteWriter front(header.first(8));
    front.U8(static_cast<uint8_t>(form));
    front.U8(static_cast<uint8_t>(plan.shape.axis));
    front.U8(static_cast<uint8_t>(source.voidKind));
    front.U8(static_cast<uint8_t>(plan.map));
    const uint64_t elementBytes = decodedBytes / plan.shape.Cells();
    front.U32(CheckOf(header.first(4), plan.shape.width, plan.shape.height, elementBytes,
                      std::span<const unsigned char>(out).subspan(start + 8)));
}

bool PartPayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout, PayloadParts& out) {
    if (payload.size() < PayloadHeader::kByteSize) return false;
    kxbase::ByteReader in(payload);
    const uint8_t form = in.U8("form"), axis = in.U8("axis"), voidKind = in.U8("kind of void");
    const uint8_t map = in.U8("kind of value map");
    out.header.check = in.U32("check");
    out.header.maskBytes = in.U32("mask bytes");
    out.header.parameterBytes = in.U32("parameter bytes");
    out.header.parametersUnpacked = in.U32("parameter bytes unpacked");
    out.header.tokenBytes = in.U32("token bytes");
    if (form < 1 || form > 2 || axis > 1 || voidKind > 3 || map > 1) return false;
    out.header.form = static_cast<Form>(form);
    out.header.axis = static_cast<Axis>(axis);
    out.header.voidKind = static_cast<VoidKind>(voidKind);
    out.header.map = static_cast<ValueMap>(map);
    const PayloadHeader& h = out.header;
    if (uint64_t{h.maskBytes} + h.parameterBytes + h.tokenBytes > in.Remaining()) return false;
    if ((h.maskBytes == 0) != (h.voidKind == VoidKind::None)) return false;
    if ((h.tokenBytes == 0) != (h.form == Form::Widths)) return false;
    out.mask = in.Take(h.maskBytes, "mask");
    out.parameters = in.Take(h.parameterBytes, "parameters");
    out.tokens = in.Take(h.tokenBytes, "tokens");
    out.rest = in.Take(in.Remaining(), "low bits");
    return CheckOf(payload.first(4), layout.width, layout.height, layout.ElementBytes(),
                   payload.subspan(8)) == h.check;
}

bool ReadParameters(const PayloadParts& parts, const Shape& shape, Bytes& scratch, Parameters& out) {
    constexpr uint64_t kFixed = 20;
    const std::size_t voids = VoidCount(parts.header.voidKind, shape), blocks = shape.Blocks();
    const uint64_t unpacked = parts.header.parametersUnpacked;
    const uint64_t least = kFixed + 8 * voids + 4 * uint64_t{shape.LineCells()} + 7 * uint64_t{blocks};
    // At most one exception and one entry of the table for each cell.
    if (unpacked < least || unpacked > least + 9 * uint64_t{shape.Cells()}) return false;
    if (unpacked > parts.parameters.size() * kMostZstdExpansion) return false;
    if (scratch.size() < unpacked) scratch.resize(unpacked);
    const std::span<unsigned char> bytes(scratch.data(), unpacked);
    if (!UnpackZstdFrame(parts.parameters, bytes)) return false;
    kxbase::ByteReader in(bytes);
    out.base = in.U64("base");
    out.step = in.U32("step");
    const uint32_t tableCount = in.U32("table entries");
    const uint32_t exceptions = in.U32("exceptions");
    if (least + 4 * uint64_t{tableCount} + 5 * uint64_t{exceptions} != unpacked) return false;
    if ((parts.header.map == ValueMap::Ranks) != (tableCount > 0)) return false;
    TakePlanes(in, voids, out.voids, "voids");
    for (std::size_t i = 0; i < voids; ++i) {
        const uint64_t before = i > 0 ? out.voids[i - 1] : 0, beforeThat = i > 1 ? out.voids[i - 2] : before;
        out.voids[i] = UndoZigzag64(out.voids[i]) + 2 * before - beforeThat;
    }
    out.narrowVoids.clear();
    for (const uint64_t value : out.voids)
        out.narrowVoids.push_back(static_cast<uint32_t>(value));
    if (voids > 0) out.narrowVoids.resize(voids + kBlock);
    TakePlanes(in, tableCount, out.table, "table");
    for (std::size_t i = 1; i < tableCount; ++i)
        out.table[i] += out.table[i - 1];
    TakePlanes(in, shape.LineCells(), out.firstLine, "first line");
    for (std::size_t i = 0; i < out.firstLine.size(); ++i)
        out.firstLine[i] = UndoZigzag(out.firstLine[i]) + (i > 0 ? out.firstLine[i - 1] : 0);
    TakePlanes(in, blocks, out.predictors, "predictors");
    TakePlanes(in, blocks, out.exponents, "exponents");
    TakePlanes(in, blocks, out.exceptionCounts, "exception counts");
    TakePlanes(in, blocks, out.offsets, "offsets");
    for (uint32_t& offset : out.offsets)
        offset = UndoZigzag(offset);
    TakePlanes(in, exceptions, out.exceptionPlaces, "exception places");
    TakePlanes(in, exceptions, out.exceptionMore, "exception sizes");
    return true;
}

bool ReadMask(const PayloadParts& parts, const Shape& shape, Bytes& scratch, std::vector<uint16_t>& mask) {
    const std::size_t words = shape.MaskWords(), groups = shape.Groups();
    const uint32_t tail = shape.LineCells() % kBlock;
    const auto lastWord = static_cast<uint16_t>(tail == 0 ? 0xFFFFU : (1U << tail) - 1);
    if (parts.header.voidKind == VoidKind::None) {
        mask.assign(words, 0xFFFF);
        for (std::size_t i = groups; i <= words; i += groups)
            mask[i - 1] = lastWord;
        return true;
    }
    mask.resize(words);
    const uint64_t bytes = kxbase::SizeProduct(words, 2);
    if (bytes > kxbase::SizeProduct(parts.mask.size(), kMostZstdExpansion)) return false;
    if (scratch.size() < bytes) scratch.resize(bytes);
    if (!UnpackZstdFrame(parts.mask, {scratch.data(), static_cast<std::size_t>(bytes)})) return false;
    const auto xorLine = [groups](const unsigned char* change, const uint16_t* before,
                                  uint16_t* KXGRID_RESTRICT now) {
        for (std::size_t i = 0; i < groups; ++i)
            now[i] = static_cast<uint16_t>(before[i] ^ (change[2 * i] | change[2 * i + 1] << 8));
    };
    const std::vector<uint16_t> none(groups);
    xorLine(scratch.data(), none.data(), mask.data());
    for (std::size_t i = groups; i < words; i += groups)
        xorLine(scratch.data() + 2 * i, mask.data() + i - groups, mask.data() + i);
    uint32_t beyond = 0;
    for (std::size_t i = groups; i <= words; i += groups)
        beyond |= mask[i - 1] & ~static_cast<uint32_t>(lastWord);
    return beyond == 0;  // cells behind the end of a line cannot be stored
}

}  // namespace kxcodecs::grid
