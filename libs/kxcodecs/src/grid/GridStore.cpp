// SPDX-License-Identifier: MIT
#include "grid/GridStore.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "grid/GridSimd.h"

namespace kxcodecs::grid {
namespace {

template <class T>
KXGRID_INLINE void StoreElement(unsigned char* out, T value) {
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(out, &value, sizeof value);
    } else {
        for (std::size_t k = 0; k < sizeof value; ++k)
            out[k] = static_cast<unsigned char>(value >> (8 * k));
    }
}

// What turns the numbers of one chunk into values.
template <class T>
struct Values {
    uint64_t base;
    uint32_t step;
    const uint32_t* table;
    uint32_t tableCount;

    // Of 16 cells; true unless one has no value.
    KXGRID_INLINE bool Of(const uint32_t* numbers, uint32_t mask, T* KXGRID_RESTRICT values) const {
        const auto base32 = static_cast<T>(base);
        if (tableCount == 0) {
            for (uint32_t i = 0; i < kBlock; ++i)
                values[i] = static_cast<T>(base32 +
                                           static_cast<T>(static_cast<T>(numbers[i]) * static_cast<T>(step)));
            return true;
        }
        uint32_t beyond = 0;
        for (uint32_t i = 0; i < kBlock; ++i) {
            const uint32_t number = numbers[i];
            const bool known = number < tableCount;
            values[i] = static_cast<T>(base32 + static_cast<T>(table[known ? number : 0]));
            beyond |= known ? 0U : (mask >> i) & 1;
        }
        return beyond == 0;
    }
};

template <class T>
KXGRID_INLINE bool PutRows(const Shape& shape, const PayloadHeader& header, const Parameters& p,
                           unsigned char* out, const uint32_t* first, std::size_t stride,
                           const uint16_t* mask, uint32_t firstLine, uint32_t lines) {
    const Values<T> values{p.base, p.step, p.table.data(), static_cast<uint32_t>(p.table.size())};
    const bool columns = shape.axis == Axis::Columns;
    const uint32_t groups = shape.Groups(), cells = shape.LineCells();
    // Voids along a line differ from cell to cell, or are one for the whole line.
    const bool voidPerCell = header.voidKind == (columns ? VoidKind::PerRow : VoidKind::PerColumn);
    const bool voidPerLine = header.voidKind == (columns ? VoidKind::PerColumn : VoidKind::PerRow);
    bool good = true;
    T block[kBlock][kBlock];  // by line, then by cell
    for (uint32_t group = 0; group < groups; ++group) {
        const uint32_t count = std::min(kBlock, cells - group * kBlock);
        for (uint32_t line = 0; line < lines; ++line) {
            const uint32_t word = mask[std::size_t{line} * groups + group];
            T* const now = block[line];
            if (word != 0) good = values.Of(first + line * stride + group * kBlock, word, now) && good;
            if (word != 0xFFFF && !p.voids.empty()) {
                if (voidPerCell) {
                    for (uint32_t i = 0; i < count; ++i) {
                        const auto value = static_cast<T>(p.voids[group * kBlock + i]);
                        now[i] = (word >> i) & 1 ? now[i] : value;
                    }
                } else {
                    const auto value = static_cast<T>(p.voids[voidPerLine ? firstLine + line : 0]);
                    for (uint32_t i = 0; i < kBlock; ++i)
                        now[i] = word != 0 && ((word >> i) & 1) ? now[i] : value;
                }
            }
            if (!columns) {
                unsigned char* const to =
                    out + (std::size_t{firstLine + line} * shape.width + group * kBlock) * sizeof(T);
                if (count == kBlock && std::endian::native == std::endian::little) {
                    std::memcpy(to, now, sizeof block[0]);
                } else {
                    for (uint32_t i = 0; i < count; ++i)
                        StoreElement<T>(to + i * sizeof(T), now[i]);
                }
            }
        }
        if (!columns) continue;
        for (uint32_t i = 0; i < count; ++i) {
            unsigned char* const to =
                out + (std::size_t{group * kBlock + i} * shape.width + firstLine) * sizeof(T);
            for (uint32_t line = 0; line < lines; ++line)
                StoreElement<T>(to + line * sizeof(T), block[line][i]);
        }
    }
    return good;
}

template <class... Arguments>
KXGRID_INLINE bool PutAny(std::size_t elementBytes, const Arguments&... arguments) {
    switch (elementBytes) {
        case 1:
            return PutRows<uint8_t>(arguments...);
        case 2:
            return PutRows<uint16_t>(arguments...);
        case 4:
            return PutRows<uint32_t>(arguments...);
        case 8:
            return PutRows<uint64_t>(arguments...);
        default:
            return false;
    }
}

using PutArguments = bool(std::size_t elementBytes, const Shape& shape, const PayloadHeader& header,
                          const Parameters& p, unsigned char* out, const uint32_t* first, std::size_t stride,
                          const uint16_t* mask, uint32_t firstLine, uint32_t lines);

bool PutPlain(std::size_t elementBytes, const Shape& shape, const PayloadHeader& header, const Parameters& p,
              unsigned char* out, const uint32_t* first, std::size_t stride, const uint16_t* mask,
              uint32_t firstLine, uint32_t lines) {
    return PutAny(elementBytes, shape, header, p, out, first, stride, mask, firstLine, lines);
}
#ifdef KXGRID_WIDE
KXGRID_WIDE_TARGET bool PutWide(std::size_t elementBytes, const Shape& shape, const PayloadHeader& header,
                                const Parameters& p, unsigned char* out, const uint32_t* first,
                                std::size_t stride, const uint16_t* mask, uint32_t firstLine,
                                uint32_t lines) {
    return PutAny(elementBytes, shape, header, p, out, first, stride, mask, firstLine, lines);
}
#endif

}  // namespace

bool ElementStore::Put(const uint32_t* first, std::size_t stride, const uint16_t* mask, uint32_t firstLine,
                       uint32_t lines) const noexcept {
    PutArguments* put = PutPlain;
#ifdef KXGRID_WIDE
    if (VectorsInUse() == Vectors::Wide) put = PutWide;
#endif
    return put(m_out.size() / m_shape.Cells(), m_shape, m_header, m_parameters, m_out.data(), first, stride,
               mask, firstLine, lines);
}

}  // namespace kxcodecs::grid
