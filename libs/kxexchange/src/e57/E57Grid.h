// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "E57Packets.h"
#include "E57Scan.h"

namespace kxexchange {

/// The grid of a scan with row and column indexes, and how its records lie in it.
struct E57Grid {
    E57IndexBounds bounds;  ///< what the file declares, wider where records lie outside
    uint64_t rows = 0;
    uint64_t columns = 0;
    bool widened = false;        ///< records lie outside the declared bounds
    bool columnsInOrder = true;  ///< no record lies in an earlier column than the one before it
    /// Columns that are sorted together when the records are in another order, and the records of each
    /// such group.
    uint64_t columnsPerGroup = 0;
    std::vector<uint64_t> groupRecords;
};

/// Cells of a group of columns, but for a single longer column.
constexpr uint64_t kE57GroupCells = uint64_t{1} << 20;

/// Goes through the indexes of all records. A grid that is much larger than the records in it is refused:
/// nothing of the file stands for its size.
/// \throws SourceFormatException
E57Grid SurveyE57Grid(E57PageReader& pages, const E57Section& section, const E57Scan& scan);

}  // namespace kxexchange
