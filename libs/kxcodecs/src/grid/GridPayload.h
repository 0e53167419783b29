// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "grid/GridResiduals.h"
#include "grid/GridSource.h"
#include "grid/GridTypes.h"
#include "kxcodecs/ChunkHeader.h"

namespace kxcodecs::grid {

/// What the payload of a grid chunk is. The numbers stand in files.
enum class Form : uint8_t {
    Filtered = 0,  ///< the payload of a zstd chunk follows at once
    Widths = 1,    ///< FAST: residuals in blocks of equal width
    Tokens = 2,    ///< BALANCED: residuals as tokens and low bits
};

/// The first 24 bytes of the forms 1 and 2, little-endian.
///
///     @0  u8   form
///     @1  u8   axis                   0: lines are rows, 1: columns
///     @2  u8   kind of void
///     @3  u8   kind of value map
///     @4  u32  check                  of @0 to @3, the image's sides, the element size and all from @8 on
///     @8  u32  mask bytes             0: none, all cells are stored
///     @12 u32  parameter bytes        packed
///     @16 u32  parameter bytes        unpacked
///     @20 u32  token bytes            packed; 0 in form 1
///     @24      mask, parameters, tokens: one zstd frame each; low bits; zeros up to the least size
struct PayloadHeader {
    static constexpr uint32_t kByteSize = 24;
    Form form = Form::Widths;
    Axis axis = Axis::Rows;
    VoidKind voidKind = VoidKind::None;
    ValueMap map = ValueMap::Step;
    uint32_t check = 0;
    uint32_t maskBytes = 0;
    uint32_t parameterBytes = 0;
    uint32_t parametersUnpacked = 0;
    uint32_t tokenBytes = 0;
};

/// What the parameter frame holds.
struct Parameters {
    std::vector<uint64_t> voids;
    std::vector<uint32_t> narrowVoids;  ///< their lowest 32 bits, with room for a whole last group
    uint64_t base = 0;
    uint32_t step = 1;
    std::vector<uint32_t> table;
    std::vector<uint32_t> firstLine;
    std::vector<uint8_t> predictors;
    std::vector<uint8_t> exponents;
    std::vector<uint8_t> exceptionCounts;
    std::vector<uint32_t> offsets;
    std::vector<uint8_t> exceptionPlaces;
    std::vector<uint32_t> exceptionMore;
};

/// 32 sums over 32-bit words, hashed into one: notices damage at the speed of memory.
/// \param front  the first four bytes of the payload
uint32_t CheckOf(std::span<const unsigned char> front, uint32_t width, uint32_t height, uint64_t elementBytes,
                 std::span<const unsigned char> bytes) noexcept;

/// Appends the payload.
void WritePayload(const GridSource& source, const GridPlan& plan, const GridResiduals& residuals, Form form,
                  uint64_t decodedBytes, std::vector<unsigned char>& out);

/// The parts of a payload.
struct PayloadParts {
    PayloadHeader header;
    std::span<const unsigned char> mask, parameters, tokens, rest;
};
/// Parts a payload of form 1 or 2; false when sizes or the check are wrong. Allocates nothing.
bool PartPayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout, PayloadParts& out);
/// The least size of a payload of so many decoded bytes.
uint64_t LeastPayloadBytes(uint64_t decodedBytes);

/// Unpacks and reads the parameters; false when they are damaged. `scratch` holds the unpacked bytes.
bool ReadParameters(const PayloadParts& parts, const Shape& shape, std::vector<unsigned char>& scratch,
                    Parameters& out);
/// Unpacks the mask, or makes the one of a chunk without voids; false when it is damaged.
bool ReadMask(const PayloadParts& parts, const Shape& shape, std::vector<unsigned char>& scratch,
              std::vector<uint16_t>& mask);

}  // namespace kxcodecs::grid
