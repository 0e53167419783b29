// SPDX-License-Identifier: MIT
#pragma once

#include "Picture.h"

namespace qsn {

/// The colour of `share` (0 to 1; beyond it, the end's) on a scale from dark violet over blue and green to
/// light yellow. Lightness rises evenly, so that equal steps look equal and a grey print keeps the order.
Pixel ScaleColor(double share);

}  // namespace qsn
