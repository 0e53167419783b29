// SPDX-License-Identifier: MIT
#include "grid/GridPlane.h"

#include <algorithm>
#include <bit>

#include "grid/GridPlaces.h"
#include "grid/GridPrediction.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grid/GridPlane.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

#include "grid/GridLanes.h"

#ifndef KXGRID_CARRIED
#define KXGRID_CARRIED
namespace kxcodecs::grid {
// Line 0 of a plane: a cell that is not stored goes on from the left; before the first stored cell as that
// one.
inline void FirstLine(const uint32_t* codes, const uint16_t* mask, std::size_t groups, uint32_t* out) {
    uint32_t carried = 0;
    for (std::size_t g = 0; g < groups; ++g) {
        if (mask[g] == 0) continue;
        carried = codes[g * kBlock + static_cast<std::size_t>(std::countr_zero(mask[g]))];
        break;
    }
    for (std::size_t i = 0; i < groups * kBlock; ++i) {
        if ((mask[i / kBlock] >> (i % kBlock)) & 1) carried = codes[i];
        out[i] = carried;
    }
}
}  // namespace kxcodecs::grid
#endif

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

void FillLines(const uint32_t* codes, std::size_t codesStride, const uint16_t* mask, std::size_t groups,
               uint32_t lines, uint32_t* first) {
    const U32 d;
    const std::size_t n = hn::Lanes(d), padded = groups * kBlock, stride = padded + 2 * kApron;
    for (std::size_t line = 0; line < lines; ++line) {
        uint32_t* const out = first + line * stride;
        const uint32_t* const code = codes + line * codesStride;
        const uint16_t* const words = mask + line * groups;
        if (line == 0) {
            FirstLine(code, words, groups, out);
        } else {
            for (std::size_t g = 0; g < groups; ++g) {
                for (std::size_t i = 0; i < kBlock; i += n) {
                    const std::size_t at = g * kBlock + i;
                    hn::StoreU(hn::IfThenElse(LanesOf(LaneBits(words[g], i)), hn::LoadU(d, code + at),
                                              hn::LoadU(d, out + at - stride)),
                               d, out + at);
                }
            }
        }
        std::fill_n(out - kApron, kApron, out[0]);
        std::fill_n(out + padded, kApron, out[padded - 1]);
        if (line == 0) std::copy_n(out - kApron, stride, out - kApron - stride);
    }
}

// 16 columns of 16 rows become rows.
HWY_INLINE void TurnBlock(const uint32_t* from, std::size_t fromStride, uint32_t* to, std::size_t toStride) {
#if HWY_TARGET == HWY_SCALAR
    for (uint32_t y = 0; y < kBlock; ++y) {
        for (uint32_t x = 0; x < kBlock; ++x)
            to[x * toStride + y] = from[y * fromStride + x];
    }
#else
    const hn::FixedTag<uint32_t, 4> d;
    for (uint32_t x = 0; x < kBlock; x += 4) {
        for (uint32_t y = 0; y < kBlock; y += 4) {
            const uint32_t* const at = from + y * fromStride + x;
            uint32_t* const out = to + x * toStride + y;
            const auto a = hn::LoadU(d, at), b = hn::LoadU(d, at + fromStride);
            const auto c = hn::LoadU(d, at + 2 * fromStride), e = hn::LoadU(d, at + 3 * fromStride);
            const auto ac = hn::InterleaveLower(d, a, c), be = hn::InterleaveLower(d, b, e);
            const auto acUpper = hn::InterleaveUpper(d, a, c), beUpper = hn::InterleaveUpper(d, b, e);
            hn::StoreU(hn::InterleaveLower(d, ac, be), d, out);
            hn::StoreU(hn::InterleaveUpper(d, ac, be), d, out + toStride);
            hn::StoreU(hn::InterleaveLower(d, acUpper, beUpper), d, out + 2 * toStride);
            hn::StoreU(hn::InterleaveUpper(d, acUpper, beUpper), d, out + 3 * toStride);
        }
    }
#endif
}

// Columns of `rows` rows (a multiple of 16) become lines.
void TurnColumns(const uint32_t* codes, std::size_t codesStride, uint32_t rows, uint32_t columns,
                 uint32_t* turned) {
    for (uint32_t x = 0; x < columns; x += kBlock) {
        for (uint32_t y = 0; y < rows; y += kBlock)
            TurnBlock(codes + y * codesStride + x, codesStride, turned + std::size_t{x} * rows + y, rows);
    }
}

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxcodecs::grid {

HWY_EXPORT(FillLines);
HWY_EXPORT(TurnColumns);

namespace {

// Eight rows of eight bits, one per byte, become columns: two by two, then four by four, then all.
uint64_t TurnedBits(uint64_t rows) {
    uint64_t t = (rows ^ (rows >> 7)) & 0x00AA00AA00AA00AA;
    rows ^= t ^ (t << 7);
    t = (rows ^ (rows >> 14)) & 0x0000CCCC0000CCCC;
    rows ^= t ^ (t << 14);
    t = (rows ^ (rows >> 28)) & 0x00000000F0F0F0F0;
    return rows ^ t ^ (t << 28);
}

// A block of 16 x 16 bits; rows of which there are only `rows`, words `step` apart.
void TurnMask(const uint16_t* from, std::size_t step, uint32_t rows, uint16_t* to, std::size_t toStep) {
    uint32_t all = 0xFFFF, any = 0;
    for (uint32_t y = 0; y < rows; ++y) {
        all &= from[y * step];
        any |= from[y * step];
    }
    if (any == 0 || (all == 0xFFFF && rows == kBlock)) {
        for (uint32_t x = 0; x < kBlock; ++x)
            to[x * toStep] = static_cast<uint16_t>(any);
        return;
    }
    uint64_t quarters[2][2] = {};  // by half of the rows, then of the bits
    for (uint32_t y = 0; y < rows; ++y) {
        const uint64_t word = from[y * step];
        quarters[y / 8][0] |= (word & 0xFF) << (y % 8 * 8);
        quarters[y / 8][1] |= (word >> 8) << (y % 8 * 8);
    }
    for (auto& half : quarters) {
        for (uint64_t& quarter : half)
            quarter = TurnedBits(quarter);
    }
    for (uint32_t x = 0; x < kBlock; ++x) {
        const uint32_t shift = x % 8 * 8;
        to[x * toStep] = static_cast<uint16_t>(((quarters[0][x / 8] >> shift) & 0xFF) |
                                               ((quarters[1][x / 8] >> shift) & 0xFF) << 8);
    }
}

}  // namespace

void Plane::Fill(const uint32_t* codes, std::size_t stride) {
    const std::size_t room = Stride() * (std::size_t{m_count} + 1);
    if (m_lines.size() < room) m_lines.resize(room);
    HWY_DYNAMIC_DISPATCH(FillLines)
    (codes, stride, m_mask, m_groups, m_count, m_lines.data() + Stride() + kApron);
}

void Plane::Take(const uint32_t* codes, const uint16_t* mask, uint32_t imageWidth, const ImagePart& part,
                 Axis axis) {
    const std::size_t imageGroups = (std::size_t{imageWidth} + kBlock - 1) / kBlock;
    const std::size_t across = (std::size_t{part.width} + kBlock - 1) / kBlock,
                      down = (std::size_t{part.height} + kBlock - 1) / kBlock;
    const uint32_t* const from = codes + part.top * imageGroups * kBlock + part.left;
    const uint16_t* const words = mask + part.top * imageGroups + part.left / kBlock;
    if (axis == Axis::Rows) {
        m_groups = across;
        m_count = part.height;
        m_mask = words;
        if (across != imageGroups) {
            m_ownMask.resize(std::max(m_ownMask.size(), across * part.height));
            for (std::size_t y = 0; y < part.height; ++y)
                std::copy_n(words + y * imageGroups, across, m_ownMask.data() + y * across);
            m_mask = m_ownMask.data();
        }
        return Fill(from, imageGroups * kBlock);
    }
    m_groups = down;
    m_count = part.width;
    const std::size_t padded = down * kBlock, columns = across * kBlock;
    m_turned.resize(std::max(m_turned.size(), padded * columns));
    m_ownMask.resize(std::max(m_ownMask.size(), down * columns));
    HWY_DYNAMIC_DISPATCH(TurnColumns)
    (from, imageGroups * kBlock, static_cast<uint32_t>(padded), static_cast<uint32_t>(columns),
     m_turned.data());
    for (std::size_t x = 0; x < across; ++x) {
        for (std::size_t y = 0; y < down; ++y) {
            const auto rows = static_cast<uint32_t>(std::min<std::size_t>(kBlock, part.height - y * kBlock));
            TurnMask(words + y * kBlock * imageGroups + x, imageGroups, rows,
                     m_ownMask.data() + x * kBlock * down + y, down);
        }
    }
    m_mask = m_ownMask.data();
    Fill(m_turned.data(), padded);
}

}  // namespace kxcodecs::grid
#endif
