// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Picture.h"

namespace qsn {

/// A colour scale from `low` to `high`, with its title, for example "range in m".
struct Scale {
    double low = 0;
    double high = 1;
    std::string title;       ///< lower-case letters and digits
    bool goesBelow = false;  ///< values below `low` were drawn too, in the colour of `low`
    bool goesAbove = false;
};

/// Round numbers (1, 2 or 5 times a power of ten apart) inside [low, high], at most `maximum` of them.
std::vector<double> RoundTicks(double low, double high, unsigned maximum);

/// `value` with as many decimals as numbers `step` apart need.
std::string TickText(double value, double step);

/// A legend in a picture narrower than this cannot be read.
constexpr uint32_t kLeastLegendWidth = 320;

/// Pixels that the strip of `DrawLegend` takes at the bottom of a picture of this width.
uint32_t LegendHeight(uint32_t pictureWidth);

/// Draws the colour scale with numbers on a light strip over the lowest `LegendHeight` rows.
void DrawLegend(Picture& picture, const Scale& scale);

}  // namespace qsn
