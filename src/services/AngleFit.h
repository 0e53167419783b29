// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

namespace kxio {

/// Finds the angle of each column (or row) of a grid from the angles of its cells: start + step x index.
///
/// Takes a few cells of each column, so memory is bounded by the number of columns. Medians and a fit that
/// leaves out what lies off make it indifferent to cells that hold no angle, and to columns whose sweep
/// passed over the zenith and jumped by half a turn.
class AngleFit {
public:
    struct Line {
        double start = 0;    ///< angle of index 0 [rad]
        double step = 0;     ///< per index, with its sign [rad]
        double spread = 0;   ///< median distance of the angles from the line [rad]
        uint64_t used = 0;   ///< indexes that lie on the line
        uint64_t given = 0;  ///< indexes with an angle
    };

    /// Notes angles of cells that all have this index. Zeros and what is no number are passed over.
    void Add(uint32_t index, float angle);
    /// The line through the angles; nothing with fewer than two indexes, or when less than half of them lie
    /// on one line. Angles that differ by full turns are the same.
    std::optional<Line> Fit() const;

private:
    std::map<uint32_t, std::vector<float>> m_samples;
};

}  // namespace kxio
