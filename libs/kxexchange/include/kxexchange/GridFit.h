// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "kxexchange/Export.h"
#include "kxexchange/GridLayout.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

struct FoldedRows;
struct Sample;

/// A regular angular grid and how a source's cells are laid into it. Angles in radians.
struct FittedGrid {
    double columnStart = 0;  ///< horizontal angle of grid column 0
    double columnStep = 0;   ///< > 0; column c lies at columnStart - c x columnStep
    double rowStart = 0;     ///< vertical angle of grid row 0
    double rowStep = 0;      ///< > 0; row r lies at rowStart + r x rowStep
    GridLayout layout;
};

/// Fits a grid to the cells of a scan, fed column after column.
///
/// Every column contributes a direction (the mean of its returns, weighted with the sine of the vertical
/// angle), every row a vertical angle; straight lines are laid through both by weighted least squares, with
/// outliers weighed down. To tell whether the sweep passes over the zenith or the nadir, every column's
/// returns are also seen in the plane that fits them best, where the sweep is one angle that grows along
/// the rows. Always ends in a finite grid with positive steps, whatever the cells are. Memory: O(columns +
/// rows).
class KXEXCHANGE_EXPORT GridFit {
public:
    /// `column`: the cells of the next column, in row order. All columns have the same number of rows.
    void AddColumn(std::span<const Cell> column);
    FittedGrid Finish() const;

private:
    struct Direction {
        double x, y, z;  // unit vector
        size_t row;
    };
    struct ColumnSums {
        double directionX = 0, directionY = 0;  // of the horizontal unit directions times sin v
        double planeX = 0, planeY = 0;          // direction of the column's plane, with the rows' sense
    };
    struct RowSums {
        double sine = 0, cosine = 0;            // of the vertical angle
        double planeSine = 0, planeCosine = 0;  // of the angle in the columns' planes, from the zenith
        double count = 0, planeCount = 0;
    };
    void AddPlane(ColumnSums& sums);
    std::optional<FoldedRows> Fold() const;
    void LayRows(GridLayout& layout) const;
    std::vector<Sample> Verticals(const std::vector<RowSegment>& segments) const;
    std::vector<Sample> Azimuths(bool folded) const;

    std::vector<ColumnSums> m_columns;
    std::vector<RowSums> m_rows;
    std::vector<Direction> m_directions;  // of the column being added
};

}  // namespace kxexchange
