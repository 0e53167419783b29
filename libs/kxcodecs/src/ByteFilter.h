// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

namespace kxcodecs {

/// What elements are replaced by before their bytes are parted into planes. The numbers stand in files.
enum class Delta : uint8_t {
    None = 0,      ///< themselves
    Left = 1,      ///< difference to the left neighbour
    Up = 2,        ///< difference to the upper neighbour
    Gradient = 3,  ///< difference to left + upper - upper left
};

/// A reversible rearrangement of elements that makes them pack better.
///
/// Elements of 1, 2, 4 and 8 bytes are little-endian integers and their differences are stored in zigzag
/// order (0, -1, 1, -2, ...); in other sizes each byte of the element counts for itself. Neighbours outside
/// are 0. Then the first bytes of all elements are stored, then the second ones, and so on.
struct ByteFilter {
    Delta delta = Delta::None;
    bool colour = false;  ///< elements of 3 bytes: red and blue less green, modulo 256, before all else

    /// One byte: bits 0 and 1 the delta, bit 2 the colour.
    uint8_t ToByte() const { return static_cast<uint8_t>(static_cast<uint8_t>(delta) | (colour ? 4 : 0)); }
    /// False for a byte that no filter has.
    static bool FromByte(uint8_t byte, uint64_t elementBytes, ByteFilter& out);
};

/// \param bytes   width x height elements, row by row
/// \param planes  as many bytes
void ApplyFilter(const ByteFilter& filter, std::span<const unsigned char> bytes, uint32_t width,
                 uint64_t elementBytes, std::span<unsigned char> planes);
/// The way back. \param bytes as many bytes as `planes`, not the same memory.
void UndoFilter(const ByteFilter& filter, std::span<const unsigned char> planes, uint32_t width,
                uint64_t elementBytes, std::span<unsigned char> bytes) noexcept;

/// A hash of a few numbers; that of other numbers is another one where only one of them differs.
uint32_t HashOf(std::initializer_list<uint32_t> numbers) noexcept;

/// Appends the payload of the zstd codec: one byte that names the filter, four bytes of hash of the filter, the
/// sides and the element size (little-endian), and one zstd frame of the filtered bytes with its checksum. The
/// filter is the one that makes the middle of the image smallest.
void AppendFiltered(std::span<const unsigned char> bytes, uint32_t width, uint32_t height, int level,
                    std::vector<unsigned char>& out);
/// Unpacks what `AppendFiltered` made into exactly `bytes`; false when it is damaged.
bool UnpackFiltered(std::span<const unsigned char> packed, uint32_t width, uint32_t height,
                    std::span<unsigned char> bytes);

}  // namespace kxcodecs
