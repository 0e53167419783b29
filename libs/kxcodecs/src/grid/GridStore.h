// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "grid/GridPayload.h"
#include "grid/GridTypes.h"

namespace kxcodecs::grid {

/// Puts decoded lines where their elements belong in the image: numbers become values, voids come back,
/// columns are turned.
class ElementStore {
public:
    /// Everything is borrowed. `scratch` becomes as large as it must.
    ElementStore(const Shape& shape, const PayloadHeader& header, const Parameters& parameters,
                 LineVector<uint32_t>& scratch, std::span<unsigned char> out);

    /// Line `firstLine` and up to 15 more, in turn. Where lines are columns nothing is put before the last
    /// one is there. False when a number has no value.
    bool Put(const uint32_t* first, std::size_t stride, const uint16_t* mask, uint32_t firstLine,
             uint32_t lines) const noexcept;

private:
    const Shape& m_shape;
    const PayloadHeader& m_header;
    const Parameters& m_parameters;
    LineVector<uint32_t>& m_scratch;
    std::span<unsigned char> m_out;
};

}  // namespace kxcodecs::grid
