// SPDX-License-Identifier: MIT
#pragma once

#include <span>
#include <vector>

namespace kxcodecs {

/// Appends `bytes` to `out` as deflate blocks (RFC 1951) that look back to nothing in front of them, of which
/// none is the last of a stream, and behind which the next byte begins.
///
/// Made for tables of 64-bit numbers in pairs, most bytes of which are those of the pair before: repeats are
/// looked for 16 bytes back and nowhere else. Packs such tables as small as level 3 of a general compressor
/// does, in a third of the time; other bytes are packed right, but badly.
void AppendDeflatedPairs(std::span<const unsigned char> bytes, std::vector<unsigned char>& out);

}  // namespace kxcodecs
