// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kxcodecs::grid {

/// For each byte of a mask: which of the stored cells stands in each of its 8 places, and the other way round
/// the places of the stored cells.
struct Places {
    uint8_t of[256][8];
    uint8_t stored[256][8];
};
constexpr Places MakePlaces() {
    Places places{};
    for (uint32_t mask = 0; mask < 256; ++mask) {
        uint8_t next = 0;
        for (uint8_t bit = 0; bit < 8; ++bit) {
            places.of[mask][bit] = next;
            if (((mask >> bit) & 1) == 0) continue;
            places.stored[mask][next] = bit;
            ++next;
        }
    }
    return places;
}
inline constexpr Places kPlaces = MakePlaces();

}  // namespace kxcodecs::grid
