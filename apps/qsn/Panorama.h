// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Legend.h"
#include "PanoramaSize.h"
#include "Picture.h"
#include "kxbase/ComponentType.h"
#include "kxio/ScanAccess.h"

namespace qsn {

/// What a drawing did not get to see.
struct PanoramaGaps {
    uint64_t damagedPatches = 0;  ///< in the file, but not readable
    std::string firstProblem;     ///< about the first of them
};

struct PanoramaRequest {
    kxbase::ComponentType component = kxbase::Range;
    PictureSize box{2000, 1000};  ///< the picture fits in, legend included
    unsigned threads = 1;
    /// Called after each patch, from any of the threads, with the patches done and all patches; may throw.
    std::function<void(uint64_t done, uint64_t total)> onPatch;
};

struct Panorama {
    Picture picture;
    PanoramaGaps gaps;
};

/// Draws one component of the whole grid: zenith at the top, columns in the order of the grid, as wide to
/// high as the angles that it covers. Range and angles are coloured, with a legend; intensity is stretched
/// between its percentiles 1 and 99; colour is shown as it is. Cells without a return stay transparent.
///
/// One cell is drawn per pixel; only patches that own one are decoded, a few at a time.
///
/// \throws UsageError for a component that has no picture
/// \throws kxbase::KXComponentNotInFileException when the file does not hold it
Panorama DrawPanorama(const kxio::ScanAccess& access, const PanoramaRequest& request);

}  // namespace qsn
