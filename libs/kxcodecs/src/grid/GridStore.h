// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "grid/GridPayload.h"
#include "grid/GridTypes.h"

namespace kxcodecs::grid {

/// Puts decoded lines where their elements belong in the image: numbers become values, voids come back,
/// columns are turned.
class ElementStore {
public:
    /// Everything is borrowed.
    ElementStore(const Shape& shape, const PayloadHeader& header, const Parameters& parameters,
                 std::span<unsigned char> out)
        : m_shape(shape), m_header(header), m_parameters(parameters), m_out(out) {}

    /// Line `firstLine` and the following ones. Best all at once where lines are columns. False when a number
    /// has no value.
    bool Put(const uint32_t* first, std::size_t stride, const uint16_t* mask, uint32_t firstLine,
             uint32_t lines) const noexcept;

private:
    const Shape& m_shape;
    const PayloadHeader& m_header;
    const Parameters& m_parameters;
    std::span<unsigned char> m_out;
};

}  // namespace kxcodecs::grid
