// SPDX-License-Identifier: MIT
#include "grid/GridStore.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <type_traits>

#include "grid/GridPlaces.h"
#include "grid/GridPrediction.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grid/GridStore.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

#include "grid/GridLanes.h"

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
    uint32_t* scratch;  // room for a line; where lines are columns for all and 16 rows

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

enum class Map { Base, Step, Ranks };
enum class Voids { None, PerLine, PerCell };

// One line of numbers.
struct LineOfNumbers {
    const uint32_t* numbers;
    const uint16_t* mask;
    const uint32_t* voids;  // one, or one per cell
    const Parameters& p;
    std::size_t groups;
};

HWY_INLINE void StoreLanes(V values, uint32_t* out) {
    hn::StoreU(values, U32(), out);
}
template <class T>
HWY_INLINE void StoreLanes(V values, T* out) {
    const hn::Rebind<T, U32> to;
    hn::StoreU(hn::TruncateTo(to, values), to, out);
}

// Values of all groups of a line, whole ones; false when a number has no value.
template <class T, Map kMap, Voids kVoids>
bool ValuesOfLine(const LineOfNumbers& line, T* HWY_RESTRICT out) {
    const U32 d;
    const I32 di;
    const std::size_t n = hn::Lanes(d);
    const V base = hn::Set(d, static_cast<uint32_t>(line.p.base)), step = hn::Set(d, line.p.step);
    const V voidOfLine = hn::Set(d, kVoids == Voids::PerLine ? line.voids[0] : 0U);
    const V entries = hn::Set(d, static_cast<uint32_t>(line.p.table.size()));
    M unknown = hn::Ne(base, base);
    for (std::size_t group = 0; group < line.groups; ++group) {
        const uint32_t word = kVoids == Voids::None && kMap != Map::Ranks ? 0 : line.mask[group];
        for (std::size_t i = 0; i < kBlock; i += n) {
            const std::size_t at = group * kBlock + i;
            V value = hn::LoadU(d, line.numbers + at);
            if constexpr (kMap == Map::Step) value = hn::Mul(value, step);
            if constexpr (kMap == Map::Ranks) {
                const M stored = LanesOf(LaneBits(word, i)), known = hn::Lt(value, entries);
                unknown = hn::Or(unknown, hn::AndNot(known, stored));
                value = hn::IfThenElseZero(hn::And(stored, known), value);
                value = hn::GatherIndex(d, line.p.table.data(), hn::BitCast(di, value));
            }
            value = hn::Add(value, base);
            if constexpr (kVoids != Voids::None) {
                const V ofVoid = kVoids == Voids::PerLine ? voidOfLine : hn::LoadU(d, line.voids + at);
                value = hn::IfThenElse(LanesOf(LaneBits(word, i)), value, ofVoid);
            }
            StoreLanes(value, out + at);
        }
    }
    return hn::AllFalse(d, unknown);
}

template <class T, Map kMap>
bool ValuesOf(Voids voids, const LineOfNumbers& line, T* out) {
    switch (voids) {
        case Voids::PerLine:
            return ValuesOfLine<T, kMap, Voids::PerLine>(line, out);
        case Voids::PerCell:
            return ValuesOfLine<T, kMap, Voids::PerCell>(line, out);
        case Voids::None:
            break;
    }
    return ValuesOfLine<T, kMap, Voids::None>(line, out);
}

template <class T>
bool MakeValues(const Lines& l, uint32_t line, T* out) {
    const bool perCell = l.VoidPerCell();
    const Voids voids = l.p.narrowVoids.empty() ? Voids::None : perCell ? Voids::PerCell : Voids::PerLine;
    const LineOfNumbers numbers{l.first + line * l.stride, l.mask + std::size_t{line} * l.shape.Groups(),
                                l.p.narrowVoids.data() + (voids == Voids::PerLine ? l.VoidOfLine(line) : 0),
                                l.p, l.shape.Groups()};
    if (l.header.map == ValueMap::Ranks) return ValuesOf<T, Map::Ranks>(voids, numbers, out);
    if (l.p.step != 1) return ValuesOf<T, Map::Step>(voids, numbers, out);
    return ValuesOf<T, Map::Base>(voids, numbers, out);
}

// Row i of what was column i is written to `out + i * step`; lines of `from` are `stride` apart.
HWY_INLINE void TurnInto(const uint32_t* from, std::size_t stride, unsigned char* HWY_RESTRICT out,
                         std::size_t step) {
#if HWY_TARGET == HWY_SCALAR
    for (uint32_t y = 0; y < kBlock; ++y) {
        for (uint32_t x = 0; x < kBlock; ++x)
            std::memcpy(out + x * step + y * 4, from + y * stride + x, 4);
    }
#else
    const hn::FixedTag<uint32_t, 4> d;
    const hn::Repartition<uint8_t, decltype(d)> bytes;
    for (uint32_t x = 0; x < kBlock; x += 4) {
        unsigned char* const to = out + x * step;
        for (uint32_t y = 0; y < kBlock; y += 4) {
            const uint32_t* const at = from + y * stride + x;
            const auto a = hn::LoadU(d, at), b = hn::LoadU(d, at + stride);
            const auto c = hn::LoadU(d, at + 2 * stride), e = hn::LoadU(d, at + 3 * stride);
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

// The same of elements of 2 bytes.
HWY_INLINE void TurnInto(const uint16_t* from, std::size_t stride, unsigned char* HWY_RESTRICT out,
                         std::size_t step) {
#if HWY_TARGET == HWY_SCALAR
    for (uint32_t y = 0; y < kBlock; ++y) {
        for (uint32_t x = 0; x < kBlock; ++x)
            std::memcpy(out + x * step + y * 2, from + y * stride + x, 2);
    }
#else
    const hn::FixedTag<uint16_t, 8> d;
    const hn::Repartition<uint8_t, decltype(d)> bytes;
    using Eight = hn::Vec<decltype(d)>;
    for (uint32_t x = 0; x < kBlock; x += 8) {
        for (uint32_t y = 0; y < kBlock; y += 8) {
            const uint16_t* const at = from + y * stride + x;
            Eight a = hn::LoadU(d, at), b = hn::LoadU(d, at + stride), c = hn::LoadU(d, at + 2 * stride),
                  e = hn::LoadU(d, at + 3 * stride), f = hn::LoadU(d, at + 4 * stride),
                  g = hn::LoadU(d, at + 5 * stride), h = hn::LoadU(d, at + 6 * stride),
                  i = hn::LoadU(d, at + 7 * stride);
            // Three times the first half of the lines is mixed with the second one.
            for (int round = 0; round < 3; ++round) {
                const Eight a2 = hn::InterleaveLower(d, a, f), b2 = hn::InterleaveUpper(d, a, f);
                const Eight c2 = hn::InterleaveLower(d, b, g), e2 = hn::InterleaveUpper(d, b, g);
                const Eight f2 = hn::InterleaveLower(d, c, h), g2 = hn::InterleaveUpper(d, c, h);
                const Eight h2 = hn::InterleaveLower(d, e, i), i2 = hn::InterleaveUpper(d, e, i);
                a = a2;
                b = b2;
                c = c2;
                e = e2;
                f = f2;
                g = g2;
                h = h2;
                i = i2;
            }
            unsigned char* const to = out + x * step + y * 2;
            const auto put = [&](uint32_t row, Eight values)
                                 HWY_ATTR { hn::StoreU(hn::BitCast(bytes, values), bytes, to + row * step); };
            put(0, a);
            put(1, b);
            put(2, c);
            put(3, e);
            put(4, f);
            put(5, g);
            put(6, h);
            put(7, i);
        }
    }
#endif
}

// Stores `count` values as elements.
template <class T, class Kept>
HWY_INLINE void StoreElements(const Kept* values, uint32_t count, unsigned char* out) {
    for (uint32_t i = 0; i < count; ++i)
        StoreElement<T>(out + i * sizeof(T), static_cast<T>(values[i]));
}

template <class T>
bool PutRows(const Lines& l) {
    const std::size_t cells = l.shape.width, rowBytes = cells * sizeof(T);
    unsigned char* out = l.out + l.firstLine * rowBytes;
    bool good = true;
    T* const values = reinterpret_cast<T*>(l.scratch);
    // The caller's memory may begin anywhere.
    const bool aligned = reinterpret_cast<uintptr_t>(out) % alignof(T) == 0;
    for (uint32_t line = 0; line < l.lines; ++line, out += rowBytes) {
        if (aligned && cells % kBlock == 0 && std::endian::native == std::endian::little) {
            good = MakeValues(l, line, reinterpret_cast<T*>(out)) && good;
            continue;
        }
        good = MakeValues(l, line, values) && good;
        if constexpr (std::endian::native == std::endian::little) {
            std::memcpy(out, values, rowBytes);
        } else {
            for (std::size_t i = 0; i < cells; ++i)
                StoreElement<T>(out + i * sizeof(T), values[i]);
        }
    }
    return good;
}

// The values of whole columns are kept, and turned when the last one is there: so the rows of the image are
// filled from left to right. They go through a band of 16 rows that stays in the cache, because memory wants
// to be written in one go. Elements of a byte are kept as 4.
template <class T>
bool PutColumns(const Lines& l) {
    using Kept = std::conditional_t<sizeof(T) == 1, uint32_t, T>;
    const std::size_t rowBytes = std::size_t{l.shape.width} * sizeof(T);
    const std::size_t padded = std::size_t{l.shape.Groups()} * kBlock;
    Kept* const kept = reinterpret_cast<Kept*>(l.scratch);
    bool good = true;
    for (uint32_t line = 0; line < l.lines; ++line)
        good = MakeValues(l, line, kept + (l.firstLine + line) * padded) && good;
    if (l.firstLine + l.lines < l.shape.Lines() || !good) return good;
    unsigned char* const band =
        reinterpret_cast<unsigned char*>(l.scratch + std::size_t{l.shape.BlockRows()} * kBlock * padded);
    for (uint32_t group = 0; group < l.shape.Groups(); ++group) {
        const uint32_t cells = std::min(kBlock, l.shape.LineCells() - group * kBlock);
        for (uint32_t first = 0; first < l.shape.Lines(); first += kBlock) {
            const uint32_t lines = std::min(kBlock, l.shape.Lines() - first);
            unsigned char* out = band + first * sizeof(T);
            const Kept* const values = kept + first * padded + std::size_t{group} * kBlock;
            if (sizeof(T) > 1 && lines == kBlock && std::endian::native == std::endian::little) {
                TurnInto(values, padded, out, rowBytes);
                continue;
            }
            HWY_ALIGN Kept turned[kBlock][kBlock];
            TurnInto(values, padded, reinterpret_cast<unsigned char*>(turned), sizeof turned[0]);
            for (uint32_t i = 0; i < cells; ++i, out += rowBytes)
                StoreElements<T>(turned[i], lines, out);
        }
        std::memcpy(l.out + std::size_t{group} * kBlock * rowBytes, band, cells * rowBytes);
    }
    return good;
}

template <class T>
bool PutLines(const Lines& l) {
    return l.shape.axis == Axis::Rows ? PutRows<T>(l) : PutColumns<T>(l);
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

ElementStore::ElementStore(const Shape& shape, const PayloadHeader& header, const Parameters& parameters,
                           LineVector<uint32_t>& scratch, std::span<unsigned char> out)
    : m_shape(shape), m_header(header), m_parameters(parameters), m_scratch(scratch), m_out(out) {
    const std::size_t padded = std::size_t{shape.Groups()} * kBlock;
    const std::size_t paddedLines = std::size_t{shape.BlockRows()} * kBlock;
    const std::size_t room = shape.axis == Axis::Rows ? padded : (padded + kBlock) * paddedLines;
    if (scratch.size() < room) scratch.resize(room);
}

bool ElementStore::Put(const uint32_t* first, std::size_t stride, const uint16_t* mask, uint32_t firstLine,
                       uint32_t lines) const noexcept {
    return HWY_DYNAMIC_DISPATCH(Put)(m_out.size() / m_shape.Cells(),
                                     Lines{m_shape, m_header, m_parameters, m_out.data(), first, stride, mask,
                                           firstLine, lines, m_scratch.data()});
}

}  // namespace kxcodecs::grid
#endif
