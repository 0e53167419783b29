// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

#include "kxexchange/Cell.h"

namespace kxexchange {

/// What a line of numbers says: x y z, then maybe an intensity, then maybe three colours of 0 to 255.
struct LineShape {
    bool intensity = false;
    bool color = false;
    bool originIsEmpty = false;  ///< x, y and z of 0 mean that nothing came back

    size_t Values() const { return 3U + (intensity ? 1U : 0U) + (color ? 3U : 0U); }
};

/// So many bytes in front of the lines, and behind them, must be readable, whatever they hold.
inline constexpr size_t kReadableInFront = 32;
inline constexpr size_t kReadableBehind = 64;

/// Reads lines that look as most do, about a kilobyte at a time: each value of up to 15 digits (16 in
/// places), with a sign '-' or none and a point or none, one blank between values, nothing in front and
/// behind but a '\r'. What comes out is what ParseNumber makes of them, to the last bit, on every machine.
///
/// \param begin  the first line; stands behind the lines that were read
/// \param end    behind the '\n' of the last line
/// \return lines read into `out`, at most `lines`; 0 when one of the next looks otherwise: they may be right
///         all the same
size_t ParsePlainLines(const LineShape& shape, const char*& begin, const char* end, size_t lines, Cell* out);

/// Lines to be read by other means after ParsePlainLines has returned 0: about as many as it looks at.
inline constexpr size_t kLinesAtATime = 16;

}  // namespace kxexchange
