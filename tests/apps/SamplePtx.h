// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace qsn {

/// One cell of a made-up scan, in the order of the picture: column from the left, row from the zenith.
struct SampleCell {
    double range = 0;  ///< metres; 0: nothing came back
    double intensity = 0.5;
    unsigned red = 0;
    unsigned green = 0;
    unsigned blue = 0;
};

/// PTX text of a scan whose columns turn clockwise and cover `columns` steps of one degree, with rows of one
/// degree around the horizon; lowest row first in each column, as PTX has it.
std::string MakePtx(uint32_t columns, uint32_t rows,
                    const std::function<SampleCell(uint32_t column, uint32_t row)>& cell);

/// A small scan with everything in it: ranges of 2 to 5 m, a hole, intensity and colour.
std::string MakeSmallPtx(uint32_t columns = 40, uint32_t rows = 30);

}  // namespace qsn
