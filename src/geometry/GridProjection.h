// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <vector>

#include "kxbase/GridTopology.h"
#include "kxbase/Points.h"
#include "kxbase/QSNIndex.h"

namespace kxio {

/// The grid cell (row, column) towards which a direction points, in single precision; may lie outside the
/// grid. Nothing for directions that are not finite and for grids without extent.
std::optional<kxbase::ImageCoordinates> ProjectOntoGrid(const kxbase::GridTopology& grid,
                                                        const kxbase::Angles& direction);

/// The 5 x 5 cells around `centre`, the order in which searches look at them: the centre first, then from
/// the highest row and column down. Rows outside the grid are left out; columns outside wrap around when
/// the grid closes around the horizon and are left out otherwise. The centre is given as it is.
std::vector<kxbase::ImageCoordinates> SearchOrder(const kxbase::GridTopology& grid,
                                                  const kxbase::ImageCoordinates& centre);

/// A grid cell as patch and place inside the patch. The grid's patch sizes must not be 0.
kxbase::QSNCoordinates ToPatchCoordinates(const kxbase::GridTopology& grid,
                                          const kxbase::ImageCoordinates& cell);

/// An angle brought into 0..2 pi in single precision; nothing when it is not finite.
std::optional<float> WrapToFullTurn(float angle);

}  // namespace kxio
