// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "kxcodecs/Export.h"

namespace kxcodecs {

/// Whether elements of this size can be quantised: 4 (float as 32-bit integer) or 8 (double as 64-bit).
inline bool IsQuantisable(uint64_t elementBytes) {
    return elementBytes == 4 || elementBytes == 8;
}

/// Turns floats (4 bytes) or doubles (8 bytes) into the integers that a chunk stores: value x step, computed
/// in double, rounded half away from zero, clamped to the integer's range; NaN becomes 0.
///
/// \param values        native floats or doubles, no alignment needed
/// \param elementBytes  4 or 8
/// \param step          finite and above 0
/// \param stored        receives native integers; as many bytes as `values`; may be the same memory
/// \throws kxbase::KXBadInputException  another element size or step, or sizes that do not fit
KXCODECS_EXPORT void Quantise(std::span<const unsigned char> values, uint64_t elementBytes, float step,
                              std::span<unsigned char> stored);

/// The way back, in place: native integers become native floats (doubles), integer x (1 / step). For
/// 4 bytes both the reciprocal and the product are in single precision, for 8 bytes in double.
///
/// Does nothing when the step is 1.0 or elements have another size than 4 or 8. Bytes behind the last whole
/// element stay as they are. A step of 0 or NaN gives infinities and NaN, as arithmetic has it.
KXCODECS_EXPORT void Dequantise(std::span<unsigned char> bytes, uint64_t elementBytes, float step) noexcept;

}  // namespace kxcodecs
