// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kxexchange/Export.h"
#include "kxexchange/IntensityMapping.h"

namespace kxexchange {

/// A run of source rows that lie in a run of grid rows, in the same or the opposite order.
struct RowSegment {
    uint64_t firstRow = 0;    ///< first source row
    uint64_t count = 0;       ///< source rows
    bool far = false;         ///< in the second block of columns, half a turn away
    uint64_t gridRow = 0;     ///< grid row of `firstRow`
    bool descending = false;  ///< following source rows lie in smaller grid rows

    bool operator==(const RowSegment&) const = default;
};

/// Where each cell of a source's grid lies in the grid of the .qsn file.
///
/// In the file the horizontal angle falls with the column and the vertical angle grows with the row, from
/// the zenith. A source whose columns or rows run the other way is reversed. When its sweep passes over the
/// zenith or the nadir, every column is folded there: the rows behind it go to a second block of columns,
/// half a turn away, so that vertical angles stay in 0..pi.
struct KXEXCHANGE_EXPORT GridLayout {
    uint64_t columns = 0;  ///< of the source
    uint64_t rows = 0;
    bool columnsReversed = false;
    uint64_t farColumn = 0;  ///< grid column where the second block begins; 0: there is none
    uint64_t gridRows = 0;
    std::vector<RowSegment> segments;  ///< in source row order, all rows once

    bool Folded() const { return farColumn != 0; }
    uint64_t GridColumns() const { return farColumn + columns; }
    /// Grid column of a source column inside its block.
    uint64_t NearColumn(uint64_t column) const { return columnsReversed ? columns - 1 - column : column; }
    /// Source rows run towards the zenith in the first block.
    bool RowsReversed() const;
    /// True when the segments cover all source rows in order, stay inside the grid and no two cells share
    /// a place.
    bool IsConsistent() const;

    bool operator==(const GridLayout&) const = default;
};

/// What the importer stores in the file's messages so that an export can undo it: one line of text.
///
///     kxio-layout 1 columns=345 rows=1074 order=forward gridrows=1074 segments=0+1074@near:1073-
///     intensity=unit empty=0.5 source=PTX
///
/// (without the break). The grammar stands in docs/exchange.md.
struct KXEXCHANGE_EXPORT LayoutMessage {
    GridLayout layout;
    IntensityMapping intensity;
    std::optional<double> emptyIntensity;  ///< what the source says in cells without a return
    bool directions = false;  ///< cells without a return have angles of their own, not the grid's
    std::string source;       ///< short name of the format
    std::vector<std::pair<std::string, std::string>> keepsakes;

    std::string Format() const;
    /// Nothing when the text is no such line, or says what cannot be (IsConsistent).
    static std::optional<LayoutMessage> Parse(const std::string& text);
};

}  // namespace kxexchange
