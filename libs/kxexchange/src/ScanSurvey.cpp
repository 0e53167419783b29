// SPDX-License-Identifier: MIT
#include "ScanSurvey.h"

#include <algorithm>
#include <cmath>

namespace kxexchange {

void ScanSurvey::Add(std::span<const Cell> cells) {
    if (m_kind == CoordinateKind::Spherical) {
        m_cartesian.assign(cells.begin(), cells.end());
        ToCartesian(m_cartesian);
        cells = m_cartesian;
    }
    for (const Cell& cell : cells) {
        if (cell.valid) {
            ++m_returns;
            if (cell.intensityInvalid) {
                ++m_invalidIntensities;
            } else {
                m_intensity.Add(cell.intensity);
            }
            m_invalidColors += cell.colorInvalid ? 1 : 0;
            const double square = cell.x * cell.x + cell.y * cell.y + cell.z * cell.z;
            m_greatestSquare = std::max(m_greatestSquare, square);
        } else {
            m_directions += cell.direction ? 1 : 0;
            if (!m_emptyIntensity) m_emptyIntensity = cell.intensity;
            m_emptyDiffers = m_emptyDiffers || *m_emptyIntensity != cell.intensity ||
                             (cell.red | cell.green | cell.blue) != 0;
        }
    }
    while (!cells.empty()) {
        m_fit.AddColumn(cells.first(static_cast<size_t>(m_rows)));
        cells = cells.subspan(static_cast<size_t>(m_rows));
        ++m_columns;
    }
}

double ScanSurvey::GreatestRange() const {
    return std::sqrt(m_greatestSquare);
}

std::optional<double> ScanSurvey::EmptyIntensity() const {
    return m_emptyDiffers ? std::nullopt : m_emptyIntensity;
}

}  // namespace kxexchange
