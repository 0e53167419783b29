// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kxexchange/LossReport.h"

namespace kxexchange {

/// What files of a format can hold, as this library writes them. One table per format, beside its factory;
/// the loss report and the table in docs/exchange.md follow from it. A field that is not named is lost.
struct FormatCapabilities {
    Fate grid = Fate::Lost;            ///< the place of each cell
    Fate noReturns = Fate::Lost;       ///< cells without a return
    Fate directions = Fate::Lost;      ///< their directions
    Fate pose = Fate::Lost;            ///< Converted: taken into the points
    Fate cartesian = Fate::Kept;       ///< coordinates of a Cartesian scan
    Fate spherical = Fate::Converted;  ///< of a spherical one; Converted: sinks are given Cartesian cells
    int coordinateBits = 53;           ///< significant bits of a stored coordinate: 24 single, 53 double
    Fate intensity = Fate::Lost;
    int intensityBits = 53;            ///< significant bits: a value that needs more is converted
    Fate intensityRange = Fate::Lost;  ///< declared least and greatest value
    Fate intensityMarks = Fate::Lost;  ///< that a return's intensity means nothing
    Fate color = Fate::Lost;
    int colorBits = 8;             ///< 8 or 16 per channel; an 8-bit sink is never given 16 bits
    Fate colorMarks = Fate::Lost;  ///< that a return's colour means nothing
    Fate classes = Fate::Lost;
    Fate severalScans = Fate::Lost;  ///< Kept: several scans stay apart in one file; Converted: run together
    Fate images = Fate::Lost;        ///< Converted: some of them, or in another form
    Fate name = Fate::Lost;
    Fate text = Fate::Lost;
    Fate uuid = Fate::Lost;
    Fate dates = Fate::Lost;
    Fate sensor = Fate::Lost;
};

}  // namespace kxexchange
