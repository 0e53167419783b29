// SPDX-License-Identifier: MIT
#include "grid/GridDecode.h"

#include <algorithm>
#include <numeric>

#include "ZstdFrame.h"
#include "grid/GridBlockRow.h"
#include "grid/GridPacking.h"
#include "grid/GridPayload.h"
#include "grid/GridPrediction.h"
#include "grid/GridStore.h"

namespace kxcodecs::grid {
namespace {

// Vector code may read that many elements behind those it uses.
constexpr std::size_t kBeyond = kBlockCells;
// A thread keeps its memory from one chunk to the next, but not that of a giant.
constexpr std::size_t kMostKeptCells = std::size_t{1} << 20;

// Memory that is used anew for each chunk: clearing it would cost as much as the work.
struct Scratch {
    std::vector<unsigned char> unpacked;
    Parameters parameters;
    std::vector<uint16_t> mask;
    std::vector<uint8_t> tokens;
    LineVector<uint16_t> low;
    std::vector<uint16_t> counts;
    std::vector<BlockInput> blocks;
    LineVector<uint32_t> lines;
    LineVector<uint32_t> residuals;
    std::vector<const uint32_t*> next;
    std::vector<uint32_t> order;
    LineVector<uint32_t> sums;
    LineVector<uint32_t> values;
};

template <class Values>
void Grow(Values& values, std::size_t count) {
    if (values.size() < count) values.resize(count);
}

// Counts the stored cells of every block behind line 0. `full`: they are all.
// \return those of the whole chunk
std::size_t CountBlocks(const Shape& shape, bool full, Scratch& scratch, std::size_t ofExponent[]) {
    const std::size_t groups = shape.Groups();
    for (uint32_t blockRow = 0; blockRow < shape.BlockRows(); ++blockRow) {
        const uint32_t first = std::max(1U, blockRow * kBlock);
        const uint32_t end = std::min(shape.Lines(), (blockRow + 1) * kBlock);
        uint16_t* const counts = scratch.counts.data() + blockRow * groups;
        const uint32_t lines = end > first ? end - first : 0;
        if (full) {
            std::fill_n(counts, groups, static_cast<uint16_t>(lines * kBlock));
        } else {
            CountBlockRow(scratch.mask.data() + first * groups, groups, lines, counts);
        }
    }
    std::size_t all = 0;
    const uint8_t* const exponents = scratch.parameters.exponents.data();
    for (std::size_t block = 0, blocks = shape.Blocks(); block < blocks; ++block) {
        all += scratch.counts[block];
        ofExponent[exponents[block]] += scratch.counts[block];
    }
    return all;
}

// Unpacks the low bits of all exponents; false when they are not exactly there.
bool UnpackLowBits(std::span<const unsigned char> rest, uint64_t leastBytes, const std::size_t ofExponent[],
                   Scratch& scratch, std::size_t starts[]) {
    uint64_t packed = 0;
    std::size_t room = 0;
    for (uint32_t bits = 0; bits <= kMostExponent; ++bits) {
        packed += PackedBytes(ofExponent[bits], bits);
        starts[bits] = room;
        // All blocks without low bits share 256 zeros.
        room += bits == 0 ? kBlockCells : (ofExponent[bits] + kBlockCells - 1) / kBlockCells * kBlockCells;
    }
    if (rest.size() != std::max(packed, leastBytes)) return false;
    for (const unsigned char byte : rest.subspan(static_cast<std::size_t>(packed))) {
        if (byte != 0) return false;
    }
    Grow(scratch.low, room + kBeyond);
    std::fill_n(scratch.low.begin(), kBlockCells, uint16_t{0});
    const unsigned char* from = rest.data();
    for (uint32_t bits = 1; bits <= kMostExponent; ++bits) {
        if (ofExponent[bits] == 0) continue;
        UnpackLow(from, ofExponent[bits], bits, scratch.low.data() + starts[bits]);
        from += PackedBytes(ofExponent[bits], bits);
    }
    return true;
}

// Tells each block where its parts are; false when the parameters do not keep to what blocks may have.
bool LinkBlocks(bool tokens, std::size_t starts[], Scratch& scratch, std::size_t count) {
    const Parameters& p = scratch.parameters;
    const std::size_t exceptions = p.exceptionPlaces.size();
    std::size_t token = 0, exception = 0;
    for (std::size_t i = 0; i < count; ++i) {
        BlockInput& block = scratch.blocks[i];
        const uint8_t exponent = p.exponents[i];
        const uint16_t stored = scratch.counts[i], more = p.exceptionCounts[i];
        if (p.predictors[i] >= kPredictors || more > stored || more > exceptions - exception) return false;
        block.low = scratch.low.data() + starts[exponent];
        if (exponent > 0) starts[exponent] += stored;
        block.tokens = tokens ? scratch.tokens.data() + token : nullptr;
        token += stored;
        block.offset = p.offsets[i];
        block.stored = stored;
        block.exponent = exponent;
        block.predictor = p.predictors[i];
        block.exceptions = more;
        block.places = p.exceptionPlaces.data() + exception;
        block.more = p.exceptionMore.data() + exception;
        exception += more;
    }
    return exception == exceptions;
}

bool DecodeLines(const Shape& shape, const PayloadHeader& header, Scratch& scratch,
                 std::span<unsigned char> out) {
    const std::size_t stride = shape.Stride(), groups = shape.Groups();
    // A row of blocks and the two lines before it: what is stored is not needed any more.
    Grow(scratch.lines, (kBlock + 2) * stride);
    Grow(scratch.residuals, groups * kBlockCells + kBeyond);
    Grow(scratch.next, groups);
    Grow(scratch.order, groups);
    Grow(scratch.sums, groups * kBlock);
    const Parameters& p = scratch.parameters;
    uint32_t* const first = scratch.lines.data() + 2 * stride + kApron;
    ElementStore store(shape, header, p, scratch.values, out);
    for (uint32_t blockRow = 0; blockRow < shape.BlockRows(); ++blockRow) {
        const uint32_t firstLine = blockRow * kBlock;
        BlockRow row{};
        row.blocks = scratch.blocks.data() + blockRow * groups;
        row.groups = static_cast<uint32_t>(groups);
        row.mask = scratch.mask.data() + firstLine * groups;
        row.line = first;
        row.stride = stride;
        row.lines = std::min(kBlock, shape.Lines() - firstLine);
        row.firstLine = firstLine;
        row.sink = &store;
        row.residuals = scratch.residuals.data();
        row.next = scratch.next.data();
        row.order = scratch.order.data();
        row.sums = scratch.sums.data();
        if (blockRow == 0) {
            // Line 0 is given; the line before it is itself.
            std::copy(p.firstLine.begin(), p.firstLine.end(), first);
            std::fill(first + p.firstLine.size(), first + groups * kBlock + kApron, p.firstLine.back());
            std::fill_n(first - kApron, kApron, first[0]);
            std::copy_n(first - kApron, stride, first - kApron - stride);
            store.Put(first, row.mask, 0);
            row.mask += groups;
            row.line += stride;
            --row.lines;
            ++row.firstLine;
        } else {
            std::copy_n(first - kApron + (kBlock - 2) * stride, 2 * stride, scratch.lines.data());
        }
        if (!DecodeBlockRow(row)) return false;
    }
    return store.Good();
}

bool DecodeWith(Scratch& scratch, std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                std::span<unsigned char> out) {
    PayloadParts parts;
    if (!PartPayload(payload, layout, parts)) return false;
    const Shape shape{layout.width, layout.height, parts.header.axis};
    if (out.empty() || shape.Cells() == 0) return false;
    if (!ReadParameters(parts, shape, scratch.unpacked, scratch.parameters)) return false;
    if (!ReadMask(parts, shape, scratch.unpacked, scratch.mask)) return false;
    const Parameters& p = scratch.parameters;
    const std::size_t blocks = shape.Blocks();
    if (std::any_of(p.exponents.begin(), p.exponents.end(), [](uint8_t e) { return e > kMostExponent; }))
        return false;
    Grow(scratch.counts, blocks);
    Grow(scratch.blocks, blocks);
    std::size_t ofExponent[kMostExponent + 1] = {}, starts[kMostExponent + 1];
    const bool full = parts.header.voidKind == VoidKind::None && shape.LineCells() % kBlock == 0;
    const std::size_t all = CountBlocks(shape, full, scratch, ofExponent);

    const bool tokens = parts.header.form == Form::Tokens;
    if (tokens) {
        if (all > parts.tokens.size() * kMostZstdExpansion) return false;
        Grow(scratch.tokens, all + kBeyond);
        if (!UnpackZstdFrame(parts.tokens, {scratch.tokens.data(), all})) return false;
    }
    const uint64_t before = payload.size() - parts.rest.size(), least = LeastPayloadBytes(out.size());
    if (!UnpackLowBits(parts.rest, least > before ? least - before : 0, ofExponent, scratch, starts))
        return false;
    return LinkBlocks(tokens, starts, scratch, blocks) && DecodeLines(shape, parts.header, scratch, out);
}

}  // namespace

bool DecodeGrid(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                std::span<unsigned char> out) {
    if (layout.ElementCount() > kMostKeptCells) {
        Scratch scratch;
        return DecodeWith(scratch, payload, layout, out);
    }
    thread_local Scratch scratch;
    return DecodeWith(scratch, payload, layout, out);
}

}  // namespace kxcodecs::grid
