// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "grid/GridTypes.h"

namespace kxcodecs::grid {

/// A rectangle of an image; its left side lies at a multiple of 16.
struct ImagePart {
    uint32_t left = 0, top = 0, width = 0, height = 0;
};

/// Some lines of one axis with their aprons, as a predictor wants them: cells that are not stored continue
/// the line before, and the line in front of the first one repeats it.
class Plane {
public:
    /// Takes a part of an image: its rows as lines, or its columns.
    /// \param codes, mask  of the whole image, as in a GridSource: rows up to a multiple of 16 are readable
    void Take(const uint32_t* codes, const uint16_t* mask, uint32_t imageWidth, const ImagePart& part,
              Axis axis);

    std::size_t Stride() const { return m_groups * kBlock + 2 * kApron; }
    std::size_t Groups() const { return m_groups; }
    uint32_t Lines() const { return m_count; }
    const uint32_t* Line(std::size_t line) const { return m_lines.data() + (line + 1) * Stride() + kApron; }
    /// The words of line 0, with those of the others behind.
    const uint16_t* Mask() const { return m_mask; }

private:
    void Fill(const uint32_t* codes, std::size_t stride);

    uint32_t m_count = 0;
    std::size_t m_groups = 0;
    const uint16_t* m_mask = nullptr;
    LineVector<uint32_t> m_lines;
    LineVector<uint32_t> m_turned;
    std::vector<uint16_t> m_ownMask;
};

}  // namespace kxcodecs::grid
