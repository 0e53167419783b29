// SPDX-License-Identifier: MIT
#include "grid/GridStore.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "grid/GridSimd.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grid/GridStore.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

#ifndef KXGRID_LINES
#define KXGRID_LINES
namespace kxcodecs::grid {

// What is put, and where.
struct Lines {
    const Shape& shape;
    const PayloadHeader& header;
    const Parameters& p;
    unsigned char* out;
    const uint32_t* first;
    std::size_t stride;
    const uint16_t* mask;
    uint32_t firstLine;
    uint32_t lines;

    // Voids along a line differ from cell to cell, or are one for the whole line.
    bool VoidPerCell() const {
        return header.voidKind == (shape.axis == Axis::Columns ? VoidKind::PerRow : VoidKind::PerColumn);
    }
    std::size_t VoidOfLine(uint32_t line) const {
        const auto perLine = shape.axis == Axis::Columns ? VoidKind::PerColumn : VoidKind::PerRow;
        return header.voidKind == perLine ? firstLine + line : 0;
    }
};

template <class T>
void StoreElement(unsigned char* out, T value) {
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(out, &value, sizeof value);
    } else {
        for (std::size_t k = 0; k < sizeof value; ++k)
            out[k] = static_cast<unsigned char>(value >> (8 * k));
    }
}

// Values of 8 bytes are rare; the numbers behind them have 4.
inline bool PutWide(const Lines& l) {
    const uint32_t groups = l.shape.Groups(), cells = l.shape.LineCells();
    bool good = true;
    for (uint32_t line = 0; line < l.lines; ++line) {
        for (uint32_t cell = 0; cell < cells; ++cell) {
            const std::size_t word = std::size_t{line} * groups + cell / kBlock;
            uint64_t value = 0;
            if ((l.mask[word] >> (cell % kBlock)) & 1) {
                const uint32_t number = l.first[line * l.stride + cell];
                if (l.header.map == ValueMap::Ranks) {
                    good = good && number < l.p.table.size();
                    value = number < l.p.table.size() ? l.p.base + l.p.table[number] : 0;
                } else {
                    value = l.p.base + uint64_t{number} * l.p.step;
                }
            } else if (!l.p.voids.empty()) {
                value = l.p.voids[l.VoidPerCell() ? cell : l.VoidOfLine(line)];
            }
            const std::size_t at = l.shape.axis == Axis::Rows
                                       ? std::size_t{l.firstLine + line} * l.shape.width + cell
                                       : std::size_t{cell} * l.shape.width + l.firstLine + line;
            StoreElement<uint64_t>(l.out + at * sizeof value, value);
        }
    }
    return good;
}

}  // namespace kxcodecs::grid
#endif

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;
using U32 = hn::CappedTag<uint32_t, 8>;
using V = hn::Vec<U32>;

// A block of values, by line and then by cell, or turned.
struct Block {
    HWY_ALIGN uint32_t at[kBlock][kBlock];
};

// Row i of what was column i is written to `out + i * step`.
HWY_INLINE void TurnInto(const Block& from, unsigned char* HWY_RESTRICT out, std::size_t step) {
#if HWY_TARGET == HWY_SCALAR
    for (uint32_t y = 0; y < kBlock; ++y) {
        for (uint32_t x = 0; x < kBlock; ++x)
            std::memcpy(out + x * step + y * 4, &from.at[y][x], 4);
    }
#else
    const hn::FixedTag<uint32_t, 4> d;
    const hn::Repartition<uint8_t, decltype(d)> bytes;
    for (uint32_t x = 0; x < kBlock; x += 4) {
        unsigned char* const to = out + x * step;
        for (uint32_t y = 0; y < kBlock; y += 4) {
            const auto a = hn::LoadU(d, from.at[y] + x), b = hn::LoadU(d, from.at[y + 1] + x);
            const auto c = hn::LoadU(d, from.at[y + 2] + x), e = hn::LoadU(d, from.at[y + 3] + x);
            const auto ac = hn::InterleaveLower(d, a, c), be = hn::InterleaveLower(d, b, e);
            const auto acUpper = hn::InterleaveUpper(d, a, c), beUpper = hn::InterleaveUpper(d, b, e);
            const auto put = [&](uint32_t i, auto values) HWY_ATTR {
                hn::StoreU(hn::BitCast(bytes, values), bytes, to + i * step + y * 4);
            };
            put(0, hn::InterleaveLower(d, ac, be));
            put(1, hn::InterleaveUpper(d, ac, be));
            put(2, hn::InterleaveLower(d, acUpper, beUpper));
            put(3, hn::InterleaveUpper(d, acUpper, beUpper));
        }
    }
#endif
}

// Stores the first `count` of 16 values as elements.
template <class T>
HWY_INLINE void StoreElements(const uint32_t* values, uint32_t count, unsigned char* out) {
    if (count == kBlock && std::endian::native == std::endian::little) {
        if constexpr (sizeof(T) == 4) {
            std::memcpy(out, values, kBlock * sizeof(T));
        } else {
            const U32 d;
            const hn::Rebind<T, U32> to;
            HWY_ALIGN T elements[kBlock];
            for (std::size_t i = 0; i < kBlock; i += hn::Lanes(d))
                hn::StoreU(hn::TruncateTo(to, hn::LoadU(d, values + i)), to, elements + i);
            std::memcpy(out, elements, sizeof elements);
        }
    } else {
        for (uint32_t i = 0; i < count; ++i)
            StoreElement<T>(out + i * sizeof(T), static_cast<T>(values[i]));
    }
}

// Values of the stored cells of one line of a group, and voids in the others; false when a number has none.
HWY_INLINE bool MakeValues(const Lines& l, uint32_t group, uint32_t line, uint32_t* HWY_RESTRICT values) {
    const U32 d;
    const std::size_t n = hn::Lanes(d);
    const uint32_t word = l.mask[std::size_t{line} * l.shape.Groups() + group];
    const uint32_t* const numbers = l.first + line * l.stride + std::size_t{group} * kBlock;
    const auto base = static_cast<uint32_t>(l.p.base);
    bool good = true;
    if (word == 0) {
    } else if (l.header.map == ValueMap::Ranks) {
        for (uint32_t i = 0; i < kBlock; ++i) {
            const bool known = numbers[i] < l.p.table.size();
            values[i] = base + l.p.table[known ? numbers[i] : 0];
            good = good && (known || ((word >> i) & 1) == 0);
        }
    } else if (l.p.step == 1) {
        for (std::size_t i = 0; i < kBlock; i += n)
            hn::StoreU(hn::Add(hn::LoadU(d, numbers + i), hn::Set(d, base)), d, values + i);
    } else {
        for (uint32_t i = 0; i < kBlock; ++i)
            values[i] = base + numbers[i] * l.p.step;
    }
    if (word == 0xFFFF || l.p.narrowVoids.empty()) return good;
    const bool perCell = l.VoidPerCell();
    const uint32_t* const voids =
        l.p.narrowVoids.data() + (perCell ? std::size_t{group} * kBlock : l.VoidOfLine(line));
    const V one = hn::Set(d, voids[0]);
    HWY_ALIGN static constexpr uint32_t kBits[8] = {1, 2, 4, 8, 16, 32, 64, 128};
    for (std::size_t i = 0; i < kBlock; i += n) {
        const auto stored = hn::TestBit(hn::Set(d, word >> i), hn::LoadU(d, kBits));
        const V ofVoid = perCell ? hn::LoadU(d, voids + i) : one;
        hn::StoreU(word == 0 ? ofVoid : hn::IfThenElse(stored, hn::LoadU(d, values + i), ofVoid), d,
                   values + i);
    }
    return good;
}

// One block of up to 16 lines, the first of which is `line` of those given.
template <class T>
HWY_INLINE bool PutBlock(const Lines& l, uint32_t group, uint32_t line) {
    const uint32_t cells = std::min(kBlock, l.shape.LineCells() - group * kBlock);
    const uint32_t lines = std::min(kBlock, l.lines - line);
    const std::size_t rowBytes = std::size_t{l.shape.width} * sizeof(T);
    const uint32_t place = l.firstLine + line;
    bool good = true;
    Block block;
    if (l.shape.axis == Axis::Rows) {
        unsigned char* out = l.out + place * rowBytes + std::size_t{group} * kBlock * sizeof(T);
        for (uint32_t i = 0; i < lines; ++i, out += rowBytes) {
            good = MakeValues(l, group, line + i, block.at[i]) && good;
            StoreElements<T>(block.at[i], cells, out);
        }
        return good;
    }
    for (uint32_t i = 0; i < lines; ++i)
        good = MakeValues(l, group, line + i, block.at[i]) && good;
    unsigned char* out = l.out + std::size_t{group} * kBlock * rowBytes + place * sizeof(T);
    if (sizeof(T) == 4 && lines == kBlock && cells == kBlock && std::endian::native == std::endian::little) {
        TurnInto(block, out, rowBytes);
        return good;
    }
    for (uint32_t i = lines; i < kBlock; ++i)
        std::fill_n(block.at[i], kBlock, 0U);
    Block turned;
    TurnInto(block, reinterpret_cast<unsigned char*>(turned.at), sizeof turned.at[0]);
    for (uint32_t i = 0; i < cells; ++i, out += rowBytes)
        StoreElements<T>(turned.at[i], lines, out);
    return good;
}

// The rows of the image are filled from left to right, as the memory wants it.
template <class T>
HWY_INLINE bool PutLines(const Lines& l) {
    const uint32_t groups = l.shape.Groups();
    bool good = true;
    if (l.shape.axis == Axis::Rows) {
        for (uint32_t line = 0; line < l.lines; line += kBlock) {
            for (uint32_t group = 0; group < groups; ++group)
                good = PutBlock<T>(l, group, line) && good;
        }
    } else {
        for (uint32_t group = 0; group < groups; ++group) {
            for (uint32_t line = 0; line < l.lines; line += kBlock)
                good = PutBlock<T>(l, group, line) && good;
        }
    }
    return good;
}

bool Put(std::size_t elementBytes, const Lines& lines) {
    switch (elementBytes) {
        case 1:
            return PutLines<uint8_t>(lines);
        case 2:
            return PutLines<uint16_t>(lines);
        case 4:
            return PutLines<uint32_t>(lines);
        case 8:
            return PutWide(lines);
        default:
            return false;
    }
}

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxcodecs::grid {

HWY_EXPORT(Put);

bool ElementStore::Put(const uint32_t* first, std::size_t stride, const uint16_t* mask, uint32_t firstLine,
                       uint32_t lines) const noexcept {
    return HWY_DYNAMIC_DISPATCH(Put)(
        m_out.size() / m_shape.Cells(),
        Lines{m_shape, m_header, m_parameters, m_out.data(), first, stride, mask, firstLine, lines});
}

}  // namespace kxcodecs::grid
#endif
