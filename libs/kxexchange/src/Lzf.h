// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <span>

namespace kxexchange {

/// Unpacks LZF data: runs of literals, and copies of 3 to 264 bytes from at most 8,192 bytes back.
///
/// `read` fills a piece of the packed data and returns how many bytes it has, 0 at the end; `write` takes the
/// unpacked bytes in order. \return true when exactly `bytes` bytes came out and nothing is left over; false,
/// at the first sign of it, when the data is anything else. Never writes more than `bytes` bytes. Memory: 1
/// MiB.
bool UnpackLzf(const std::function<size_t(std::span<unsigned char>)>& read,
               const std::function<void(std::span<const unsigned char>)>& write, uint64_t bytes);

/// The most bytes that so many packed ones can become.
constexpr uint64_t MostLzfBytes(uint64_t packed) {
    return packed / 3 * 264 + 264;
}

}  // namespace kxexchange
