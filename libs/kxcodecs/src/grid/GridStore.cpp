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
#include <hwy/cache_control.h>
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

#include "grid/GridLanes.h"

#ifndef KXGRID_LINES
#define KXGRID_LINES
namespace kxcodecs::grid {

// What lines are put into.
struct Image {
    const Shape& shape;
    const PayloadHeader& header;
    const Parameters& p;
    unsigned char* out;
    std::size_t elementBytes;
    uint32_t* kept;  // room for a line; where lines are columns for all, and a whole last block

    // Voids along a line differ from cell to cell, or are one for the whole line.
    bool VoidPerCell() const {
        return header.voidKind == (shape.axis == Axis::Columns ? VoidKind::PerRow : VoidKind::PerColumn);
    }
    std::size_t VoidOfLine(uint32_t line) const {
        const auto perLine = shape.axis == Axis::Columns ? VoidKind::PerColumn : VoidKind::PerRow;
        return header.voidKind == perLine ? line : 0;
    }
};
// A line of numbers; `line` is its place.
struct NumberLine {
    const uint32_t* numbers;
    const uint16_t* mask;
    uint32_t line;
};

constexpr std::size_t kLineBytes = 64;  // of a cache
// From one kept line to the next: not a power of two, or they would push each other out of the cache.
inline std::size_t KeptStride(const Shape& shape) {
    return (std::size_t{shape.Groups()} + 2) * kBlock;
}

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
inline bool PutWide(const Image& image, const NumberLine& line) {
    bool good = true;
    const Parameters& p = image.p;
    for (uint32_t cell = 0; cell < image.shape.LineCells(); ++cell) {
        uint64_t value = 0;
        if ((line.mask[cell / kBlock] >> (cell % kBlock)) & 1) {
            const uint32_t number = line.numbers[cell];
            if (image.header.map == ValueMap::Ranks) {
                good = good && number < p.table.size();
                value = number < p.table.size() ? p.base + p.table[number] : 0;
            } else {
                value = p.base + uint64_t{number} * p.step;
            }
        } else if (!p.voids.empty()) {
            value = p.voids[image.VoidPerCell() ? cell : image.VoidOfLine(line.line)];
        }
        const std::size_t at = image.shape.axis == Axis::Rows
                                   ? std::size_t{line.line} * image.shape.width + cell
                                   : std::size_t{cell} * image.shape.width + line.line;
        StoreElement<uint64_t>(image.out + at * sizeof value, value);
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
bool ValuesOfLine(const LineOfNumbers& given, T* HWY_RESTRICT out) {
    const LineOfNumbers line = given;  // a copy: no store can be into it
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
bool MakeValues(const Image& image, const NumberLine& line, T* out) {
    const Parameters& p = image.p;
    const bool perCell = image.VoidPerCell();
    const Voids voids = p.narrowVoids.empty() ? Voids::None : perCell ? Voids::PerCell : Voids::PerLine;
    const LineOfNumbers numbers{
        line.numbers, line.mask,
        p.narrowVoids.data() + (voids == Voids::PerLine ? image.VoidOfLine(line.line) : 0), p,
        image.shape.Groups()};
    if (image.header.map == ValueMap::Ranks) return ValuesOf<T, Map::Ranks>(voids, numbers, out);
    if (p.step != 1) return ValuesOf<T, Map::Step>(voids, numbers, out);
    return ValuesOf<T, Map::Base>(voids, numbers, out);
}

#if HWY_TARGET != HWY_SCALAR
// As many elements of a line as 16 bytes hold; where vectors have 32, behind them those of the line as many
// further on. What is woven within 16 bytes then turns two squares at once.
#if HWY_TARGET <= HWY_AVX2
template <class T>
using Square = hn::FixedTag<T, 32 / sizeof(T)>;
template <class T>
HWY_INLINE hn::Vec<Square<T>> LoadLines(const T* at, std::size_t stride) {
    const hn::Half<Square<T>> half;
    return hn::Combine(Square<T>(), hn::LoadU(half, at + 16 / sizeof(T) * stride), hn::LoadU(half, at));
}
#else
template <class T>
using Square = hn::FixedTag<T, 16 / sizeof(T)>;
template <class T>
HWY_INLINE hn::Vec<Square<T>> LoadLines(const T* at, std::size_t /*stride*/) {
    return hn::LoadU(Square<T>(), at);
}
#endif
template <class T>
HWY_INLINE void StoreTurned(hn::Vec<Square<T>> values, unsigned char* out) {
    const hn::Repartition<uint8_t, Square<T>> bytes;
    hn::StoreU(hn::BitCast(bytes, values), bytes, out);
}
#endif

// Row i of what was column i is written to `out + i * step`; lines of `from` are `stride` apart.
HWY_INLINE void TurnInto(const uint32_t* from, std::size_t stride, unsigned char* HWY_RESTRICT out,
                         std::size_t step) {
#if HWY_TARGET == HWY_SCALAR
    for (uint32_t y = 0; y < kBlock; ++y) {
        for (uint32_t x = 0; x < kBlock; ++x)
            std::memcpy(out + x * step + y * 4, from + y * stride + x, 4);
    }
#else
    const Square<uint32_t> d;
    for (uint32_t x = 0; x < kBlock; x += 4) {
        for (uint32_t y = 0; y < kBlock; y += static_cast<uint32_t>(hn::Lanes(d))) {
            const uint32_t* const at = from + y * stride + x;
            unsigned char* const to = out + x * step + y * 4;
            const auto a = LoadLines(at, stride), b = LoadLines(at + stride, stride);
            const auto c = LoadLines(at + 2 * stride, stride), e = LoadLines(at + 3 * stride, stride);
            const auto ac = hn::InterleaveLower(d, a, c), be = hn::InterleaveLower(d, b, e);
            const auto acUpper = hn::InterleaveUpper(d, a, c), beUpper = hn::InterleaveUpper(d, b, e);
            StoreTurned<uint32_t>(hn::InterleaveLower(d, ac, be), to);
            StoreTurned<uint32_t>(hn::InterleaveUpper(d, ac, be), to + step);
            StoreTurned<uint32_t>(hn::InterleaveLower(d, acUpper, beUpper), to + 2 * step);
            StoreTurned<uint32_t>(hn::InterleaveUpper(d, acUpper, beUpper), to + 3 * step);
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
    const Square<uint16_t> d;
    using Lines = hn::Vec<Square<uint16_t>>;
    for (uint32_t x = 0; x < kBlock; x += 8) {
        for (uint32_t y = 0; y < kBlock; y += static_cast<uint32_t>(hn::Lanes(d))) {
            const uint16_t* const at = from + y * stride + x;
            const auto line = [&](uint32_t i) HWY_ATTR { return LoadLines(at + i * stride, stride); };
            Lines a = line(0), b = line(1), c = line(2), e = line(3), f = line(4), g = line(5), h = line(6),
                  i = line(7);
            // Three times the first half of the lines is mixed with the second one.
            for (int round = 0; round < 3; ++round) {
                const Lines a2 = hn::InterleaveLower(d, a, f), b2 = hn::InterleaveUpper(d, a, f);
                const Lines c2 = hn::InterleaveLower(d, b, g), e2 = hn::InterleaveUpper(d, b, g);
                const Lines f2 = hn::InterleaveLower(d, c, h), g2 = hn::InterleaveUpper(d, c, h);
                const Lines h2 = hn::InterleaveLower(d, e, i), i2 = hn::InterleaveUpper(d, e, i);
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
            StoreTurned<uint16_t>(a, to);
            StoreTurned<uint16_t>(b, to + step);
            StoreTurned<uint16_t>(c, to + 2 * step);
            StoreTurned<uint16_t>(e, to + 3 * step);
            StoreTurned<uint16_t>(f, to + 4 * step);
            StoreTurned<uint16_t>(g, to + 5 * step);
            StoreTurned<uint16_t>(h, to + 6 * step);
            StoreTurned<uint16_t>(i, to + 7 * step);
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

// Rows that are fetched ahead, where rows are lines: writes to memory that is far away wait for each other.
constexpr uint32_t kRowsAhead = 2;

template <class T>
bool PutRow(const Image& image, const NumberLine& line) {
    const std::size_t cells = image.shape.width, rowBytes = cells * sizeof(T);
    unsigned char* const out = image.out + line.line * rowBytes;
    if (image.shape.height - line.line > kRowsAhead) {
        for (std::size_t i = 0; i < rowBytes; i += kLineBytes)
            hwy::Prefetch(out + kRowsAhead * rowBytes + i);
    }
    // The caller's memory may begin anywhere.
    const bool aligned = reinterpret_cast<uintptr_t>(out) % alignof(T) == 0;
    if (aligned && cells % kBlock == 0 && std::endian::native == std::endian::little)
        return MakeValues(image, line, reinterpret_cast<T*>(out));
    T* const values = reinterpret_cast<T*>(image.kept);
    const bool good = MakeValues(image, line, values);
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(out, values, rowBytes);
    } else {
        for (std::size_t i = 0; i < cells; ++i)
            StoreElement<T>(out + i * sizeof(T), values[i]);
    }
    return good;
}

// The values of whole columns are kept, and turned when the last one is there: so the rows of the image are
// filled from left to right, 16 at a time. Elements of a byte are kept as 4.
template <class T>
bool PutColumn(const Image& image, const NumberLine& line) {
    using Kept = std::conditional_t<sizeof(T) == 1, uint32_t, T>;
    const std::size_t rowBytes = std::size_t{image.shape.width} * sizeof(T), stride = KeptStride(image.shape);
    const uint32_t cells = image.shape.LineCells(), lines = image.shape.Lines();
    Kept* const kept = reinterpret_cast<Kept*>(image.kept);
    const bool good = MakeValues(image, line, kept + line.line * stride);
    if (!good || line.line + 1 < lines) return good;
    for (uint32_t cell = 0; cell < cells; cell += kBlock) {
        const uint32_t rows = std::min(kBlock, cells - cell);
        unsigned char* const left = image.out + cell * rowBytes;
        for (uint32_t first = 0; first < lines; first += kBlock) {
            const uint32_t columns = std::min(kBlock, lines - first);
            unsigned char* out = left + first * sizeof(T);
            const Kept* const values = kept + first * stride + cell;
            if (cells - cell >= 2 * kBlock) {
                for (uint32_t i = 0; i < kBlock; ++i)
                    hwy::Prefetch(out + (kBlock + i) * rowBytes);
            }
            if (sizeof(T) > 1 && columns == kBlock && rows == kBlock &&
                std::endian::native == std::endian::little) {
                TurnInto(values, stride, out, rowBytes);
                continue;
            }
            HWY_ALIGN Kept turned[kBlock][kBlock];
            TurnInto(values, stride, reinterpret_cast<unsigned char*>(turned), sizeof turned[0]);
            for (uint32_t i = 0; i < rows; ++i, out += rowBytes)
                StoreElements<T>(turned[i], columns, out);
        }
    }
    return good;
}

template <class T>
bool PutEither(const Image& image, const NumberLine& line) {
    return image.shape.axis == Axis::Rows ? PutRow<T>(image, line) : PutColumn<T>(image, line);
}

bool Put(const Image& image, const NumberLine& line) {
    switch (image.elementBytes) {
        case 1:
            return PutEither<uint8_t>(image, line);
        case 2:
            return PutEither<uint16_t>(image, line);
        case 4:
            return PutEither<uint32_t>(image, line);
        case 8:
            return PutWide(image, line);
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
    : m_shape(shape),
      m_header(header),
      m_parameters(parameters),
      m_scratch(scratch),
      m_out(out),
      m_elementBytes(out.size() / shape.Cells()),
      m_put(&HWY_DYNAMIC_DISPATCH(Put)) {
    const std::size_t lines = std::size_t{shape.BlockRows()} * kBlock;
    const std::size_t room = KeptStride(shape) * (shape.axis == Axis::Rows ? 1 : lines);
    if (scratch.size() < room) scratch.resize(room);
}

void ElementStore::Put(const uint32_t* numbers, const uint16_t* mask, uint32_t line) noexcept {
    const Image image{m_shape, m_header, m_parameters, m_out.data(), m_elementBytes, m_scratch.data()};
    m_good = m_put(image, {numbers, mask, line}) && m_good;
}

}  // namespace kxcodecs::grid
#endif
