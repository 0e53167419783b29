// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "kxexchange/GridFit.h"
#include "kxexchange/IntensityMapping.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

/// What the first pass over a scan learns.
class ScanSurvey {
public:
    explicit ScanSurvey(uint64_t rows, CoordinateKind kind = CoordinateKind::Cartesian)
        : m_rows(rows), m_kind(kind) {}

    /// Takes whole columns.
    void Add(std::span<const Cell> cells);

    FittedGrid Grid() const { return m_fit.Finish(); }
    /// `step`: as IntensitySurvey::Mapping takes it.
    IntensityMapping Intensity(double step = 0) const { return m_intensity.Mapping(step); }
    uint64_t Returns() const { return m_returns; }
    /// Returns whose intensity, or colour, the file calls invalid.
    uint64_t InvalidIntensities() const { return m_invalidIntensities; }
    uint64_t InvalidColors() const { return m_invalidColors; }
    /// Cells without a return that have a direction.
    uint64_t Directions() const { return m_directions; }
    uint64_t Columns() const { return m_columns; }
    /// Metres.
    double GreatestRange() const;
    /// The one intensity that all cells without a return say; nothing when there is no such cell or they
    /// differ.
    std::optional<double> EmptyIntensity() const;
    /// Cells without a return carry intensities that differ, or a colour: these are not kept.
    bool EmptyCellsDiffer() const { return m_emptyDiffers; }

private:
    uint64_t m_rows;
    CoordinateKind m_kind;
    std::vector<Cell> m_cartesian;
    GridFit m_fit;
    IntensitySurvey m_intensity;
    uint64_t m_columns = 0;
    uint64_t m_returns = 0;
    uint64_t m_invalidIntensities = 0;
    uint64_t m_invalidColors = 0;
    uint64_t m_directions = 0;
    double m_greatestSquare = 0;
    std::optional<double> m_emptyIntensity;
    bool m_emptyDiffers = false;
};

}  // namespace kxexchange
