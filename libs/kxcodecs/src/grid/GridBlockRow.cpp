// SPDX-License-Identifier: MIT
#include "grid/GridBlockRow.h"

#include <algorithm>
#include <array>

#include "grid/GridPrediction.h"
#include "grid/GridSimd.h"

namespace kxcodecs::grid {
namespace {

// For each byte of a mask: which of the stored cells stands in each of its 8 places.
struct Places {
    uint8_t of[256][8];
    uint8_t count[256];
};
constexpr Places MakePlaces() {
    Places places{};
    for (uint32_t mask = 0; mask < 256; ++mask) {
        uint8_t next = 0;
        for (uint32_t bit = 0; bit < 8; ++bit) {
            places.of[mask][bit] = next;
            if ((mask >> bit) & 1) ++next;
        }
        places.count[mask] = next;
    }
    return places;
}
constexpr Places kPlaces = MakePlaces();

KXGRID_INLINE uint32_t Residual(uint32_t high, uint32_t low, uint32_t exponent, uint32_t offset) {
    return UndoZigzag((high << exponent) | low) + offset;
}

template <bool Tokens>
KXGRID_INLINE void Assemble(const BlockInput& block, uint32_t* KXGRID_RESTRICT residuals) {
    const uint32_t exponent = block.exponent, offset = block.offset;
    const uint32_t vectors = (block.stored + kBlock - 1U) / kBlock;
    const uint16_t* const low = block.low;
    const uint8_t* const tokens = block.tokens;
    for (uint32_t v = 0; v < vectors; ++v) {
        for (uint32_t i = 0; i < kBlock; ++i) {
            const uint32_t at = v * kBlock + i;
            uint32_t value = low[at];
            if constexpr (Tokens) value |= static_cast<uint32_t>(tokens[at]) << exponent;
            residuals[at] = UndoZigzag(value) + offset;
        }
    }
    for (uint32_t i = 0; i < block.exceptions; ++i) {
        const uint32_t at = block.places[i];
        const uint32_t token = Tokens ? tokens[at] : 0U;
        residuals[at] = Residual(token + block.more[i], low[at], exponent, offset);
    }
}

KXGRID_INLINE void Blend(uint32_t mask, const uint32_t* predicted, const uint32_t* residuals,
                         const uint32_t* before, uint32_t* KXGRID_RESTRICT out) {
    const uint32_t lowMask = mask & 0xFF, highMask = mask >> 8;
    const uint32_t* const second = residuals + kPlaces.count[lowMask];
    uint32_t spread[kBlock];
    for (uint32_t i = 0; i < 8; ++i) {
        spread[i] = residuals[kPlaces.of[lowMask][i]];
        spread[8 + i] = second[kPlaces.of[highMask][i]];
    }
    for (uint32_t i = 0; i < kBlock; ++i) {
        const uint32_t stored = 0U - ((mask >> i) & 1);
        out[i] = ((predicted[i] + spread[i]) & stored) | (before[i] & ~stored);
    }
}

KXGRID_INLINE void DecodeRow(const BlockRow& row) {
    const uint32_t groups = row.groups;
    const std::size_t padded = std::size_t{groups} * kBlock;
    for (uint32_t group = 0; group < groups; ++group) {
        const BlockInput& block = row.blocks[group];
        uint32_t* const residuals = row.residuals + std::size_t{group} * kBlockCells;
        if (block.tokens != nullptr) {
            Assemble<true>(block, residuals);
        } else {
            Assemble<false>(block, residuals);
        }
        row.next[group] = residuals;
    }
    for (uint32_t line = 0; line < row.lines; ++line) {
        uint32_t* const now = row.line + line * row.stride;
        const uint32_t* const before = now - row.stride;
        const uint32_t* const beforeThat = before - row.stride;
        const uint16_t* const mask = row.mask + std::size_t{line} * groups;
        for (uint32_t group = 0; group < groups; ++group) {
            const std::size_t at = std::size_t{group} * kBlock;
            const uint32_t word = mask[group];
            if (word == 0) {
                for (uint32_t i = 0; i < kBlock; ++i)
                    now[at + i] = before[at + i];
                continue;
            }
            uint32_t predicted[kBlock];
            Predict16(static_cast<Predictor>(row.blocks[group].predictor), before + at, beforeThat + at,
                      predicted);
            const uint32_t* const residuals = row.next[group];
            if (word == 0xFFFF) {
                for (uint32_t i = 0; i < kBlock; ++i)
                    now[at + i] = predicted[i] + residuals[i];
                row.next[group] = residuals + kBlock;
            } else {
                Blend(word, predicted, residuals, before + at, now + at);
                row.next[group] = residuals + kPlaces.count[word & 0xFF] + kPlaces.count[word >> 8];
            }
        }
        for (uint32_t i = 0; i < kApron; ++i) {
            (now - kApron)[i] = now[0];
            now[padded + i] = now[padded - 1];
        }
    }
}

void DecodePlain(const BlockRow& row) {
    DecodeRow(row);
}
#ifdef KXGRID_WIDE
KXGRID_WIDE_TARGET void DecodeWide(const BlockRow& row) {
    DecodeRow(row);
}
#endif

}  // namespace

void DecodeBlockRow(const BlockRow& row) noexcept {
#ifdef KXGRID_WIDE
    if (VectorsInUse() == Vectors::Wide) return DecodeWide(row);
#endif
    DecodePlain(row);
}

}  // namespace kxcodecs::grid
