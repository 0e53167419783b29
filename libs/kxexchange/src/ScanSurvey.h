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
    explicit ScanSurvey(uint64_t rows) : m_rows(rows) {}

    /// Takes whole columns.
    void Add(std::span<const Cell> cells);

    FittedGrid Grid() const { return m_fit.Finish(); }
    IntensityMapping Intensity() const { return m_intensity.Mapping(); }
    uint64_t Returns() const { return m_returns; }
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
    GridFit m_fit;
    IntensitySurvey m_intensity;
    uint64_t m_columns = 0;
    uint64_t m_returns = 0;
    double m_greatestSquare = 0;
    std::optional<double> m_emptyIntensity;
    bool m_emptyDiffers = false;
};

}  // namespace kxexchange
