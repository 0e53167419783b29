// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kxio {

/// Whether the whole model text is "Ostrak RM" and any further characters but line ends.
bool IsRmModel(const std::wstring& scannerModel);

/// The scanning mode that belongs to an angle between rows (radians); empty when it fits none.
std::wstring ScanningModeOfStep(float rowAngularStep);

}  // namespace kxio
