// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "PatchAssembler.h"
#include "ScanSurvey.h"
#include "kxbase/GridTopology.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxexchange/ImportScan.h"

namespace kxexchange {

/// \throws kxbase::KXBadInputException  an option is outside its range
void CheckOptions(const ImportOptions& options);

/// Patch size for a grid: the one asked for, smaller where the whole grid is smaller, and square (reduced
/// detail needs square patches) unless that would fill patches mostly with nothing.
void SetPatchSize(kxbase::GridTopology& grid, uint32_t width, uint32_t height);

/// The scale at which `greatestRange` metres fits the stored 32-bit whole numbers: `wanted`, or the next of
/// 1, 2, 5, 10, 20 ... millimetres (and their tenths and so on) that does.
double FittingRangeScale(double wanted, double greatestRange);

/// Preview size for a grid, as ImportOptions::previewSide describes it.
void SetPreviewSize(kxbase::GridTopology& grid, uint32_t greatestSide);

/// The grid of the file.
kxbase::GridTopology MakeTopology(const FittedGrid& fitted, const ImportOptions& options);

}  // namespace kxexchange
