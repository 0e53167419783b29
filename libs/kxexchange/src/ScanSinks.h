// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "kxbase/IOutFileStream.h"
#include "kxexchange/ExportScan.h"
#include "kxexchange/ScanSink.h"

namespace kxexchange {

/// How a sink writes values, decided by who feeds it.
struct SinkStyle {
    int coordinateDecimals = 6;  ///< in text
    /// Decimals of intensity in text; below 0: the shortest text that reads back as the same number.
    int intensityDecimals = -1;
    bool doubleCoordinates = false;  ///< PLY
};

/// A sink of `format` over `stream`, which must outlive it.
std::unique_ptr<ScanSink> MakeScanSink(ExportFormat format, kxbase::IOutFileStream& stream,
                                       const SinkStyle& style);

}  // namespace kxexchange
