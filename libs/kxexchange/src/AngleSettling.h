// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "kxexchange/PositionBound.h"

namespace kxexchange {

/// Gives up the precision of angles that no point needs: each return's two angles move so that together they
/// move its point by no more than `millimetres` across the beam, beside the rounding to their scales. Angles
/// of cells without a return stay.
///
/// \param range       millimetres, one patch of width x height cells, row by row; above 0: a return
/// \param vertical    radians, as many
/// \param horizontal  radians, as many
/// \returns angles that moved
uint64_t SettleAngles(std::span<const float> range, std::span<float> vertical, std::span<float> horizontal,
                      uint32_t width, uint32_t height, const StoragePrecision& precision, double millimetres);

}  // namespace kxexchange
