// SPDX-License-Identifier: MIT
#include "ValuePainting.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

namespace qsn {

ValueSpan MiddleSpan(const Values& values) {
    Values seen;
    std::copy_if(values.begin(), values.end(), std::back_inserter(seen),
                 [](double v) { return std::isfinite(v); });
    if (seen.empty()) return {};
    const auto at = [&](double share) {
        const auto index = static_cast<ptrdiff_t>(share * static_cast<double>(seen.size() - 1));
        std::nth_element(seen.begin(), seen.begin() + index, seen.end());
        return seen[static_cast<size_t>(index)];
    };
    const double low = at(0.01);
    return {low, at(0.99)};
}

std::pair<double, double> Extremes(const Values& values) {
    std::pair<double, double> extremes(std::numeric_limits<double>::infinity(),
                                       -std::numeric_limits<double>::infinity());
    for (const double v : values) {
        // Comparisons with NaN are false.
        if (v < extremes.first) extremes.first = v;
        if (v > extremes.second) extremes.second = v;
    }
    return extremes;
}

double ShareOf(double value, const ValueSpan& span) {
    return span.high > span.low ? (value - span.low) / (span.high - span.low) : 0.5;
}

Pixel Grey(double share) {
    const auto level = static_cast<uint8_t>(std::lround(255 * std::clamp(share, 0.0, 1.0)));
    return {level, level, level, 255};
}

}  // namespace qsn
