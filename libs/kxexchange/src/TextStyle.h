// SPDX-License-Identifier: MIT
#pragma once

#include "TextFormat.h"
#include "kxexchange/ScanDescription.h"
#include "kxexchange/ScanSink.h"

namespace kxexchange {

/// How many digits a text needs for a scan's values. Below 0: the shortest text that reads back as the same
/// number.
struct TextStyle {
    int coordinateDecimals = 6;
    int intensityDecimals = -1;
};

/// Coordinates: as the options say; else two decimals more than the step of the values has, at least 6; else
/// the shortest text. Intensities: nine decimals for shares of 1 that were stored in 16 bits, which is what a
/// reader of the text takes for the 16-bit value; else the shortest text.
TextStyle TextStyleFor(const ScanDescription& description, const SinkOptions& options);

/// A number with so many decimals, or the shortest text.
inline char* AppendNumber(char* out, double value, int decimals) {
    return decimals < 0 ? AppendShortest(out, value) : AppendFixed(out, value, decimals);
}

}  // namespace kxexchange
