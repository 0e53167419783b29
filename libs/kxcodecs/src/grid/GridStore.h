// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "grid/GridBlockRow.h"
#include "grid/GridPayload.h"
#include "grid/GridTypes.h"

namespace kxcodecs::grid {

struct Image;
struct NumberLine;

/// Puts decoded lines where their elements belong in the image: numbers become values, voids come back,
/// columns are turned.
class ElementStore final : public LineSink {
public:
    /// Everything is borrowed. `scratch` becomes as large as it must.
    ElementStore(const Shape& shape, const PayloadHeader& header, const Parameters& parameters,
                 LineVector<uint32_t>& scratch, std::span<unsigned char> out);

    /// All lines in turn. Where lines are columns nothing is put before the last one is there.
    void Put(const uint32_t* numbers, const uint16_t* mask, uint32_t line) noexcept override;
    /// False when a number had no value.
    bool Good() const { return m_good; }

private:
    const Shape& m_shape;
    const PayloadHeader& m_header;
    const Parameters& m_parameters;
    LineVector<uint32_t>& m_scratch;
    std::span<unsigned char> m_out;
    std::size_t m_elementBytes;
    bool (*m_put)(const Image&, const NumberLine&);  // for the vectors of this machine
    bool m_good = true;
};

}  // namespace kxcodecs::grid
