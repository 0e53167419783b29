// SPDX-License-Identifier: MIT
// The first byte picks what is done with the rest:
//   0  a PCD file
//   1  cells: they are written and must come back
//   2  LZF data, unpacked in pieces and at once
#include "FuzzPoints.h"
#include "Lzf.h"

namespace {

// The format in its plainest form; nothing when the data is no LZF.
bool UnpackPlainly(const std::vector<uint8_t>& packed, size_t most, std::vector<uint8_t>& out) {
    size_t at = 0;
    while (at < packed.size()) {
        const unsigned control = packed[at++];
        if (control < 32) {
            if (packed.size() - at < control + 1) return false;
            out.insert(out.end(), packed.begin() + static_cast<std::ptrdiff_t>(at),
                       packed.begin() + static_cast<std::ptrdiff_t>(at + control + 1));
            at += control + 1;
        } else {
            size_t length = (control >> 5) + 2;
            if (control >> 5 == 7) {
                if (at == packed.size()) return false;
                length += packed[at++];
            }
            if (at == packed.size()) return false;
            const size_t back = ((control & 31) << 8 | packed[at++]) + 1;
            if (back > out.size()) return false;
            for (size_t i = 0; i < length; ++i)
                out.push_back(out[out.size() - back]);
        }
        if (out.size() > most) return false;
    }
    return true;
}

void Unpack(const uint8_t* data, size_t size) {
    if (size < 2) return;
    const size_t piece = 1 + data[0];
    const std::vector<uint8_t> packed(data + 1, data + size);
    constexpr size_t kMost = size_t{1} << 22;
    std::vector<uint8_t> plain, unpacked;
    const bool whole = UnpackPlainly(packed, kMost, plain);
    size_t at = 0;
    const bool same = kxexchange::UnpackLzf(
        [&](std::span<unsigned char> out) {
            const size_t count = std::min({out.size(), piece, packed.size() - at});
            std::copy_n(packed.begin() + static_cast<std::ptrdiff_t>(at), count, out.begin());
            at += count;
            return count;
        },
        [&](std::span<const unsigned char> bytes) {
            unpacked.insert(unpacked.end(), bytes.begin(), bytes.end());
        },
        whole ? plain.size() : kMost);
    if (whole) Require(same && unpacked == plain, "both ways unpack the same");
    if (!whole) Require(!same, "what is no LZF is refused");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    switch (data[0] % 3) {
        case 0:
            fuzz::ReadPointFile(data + 1, size - 1, "PCD");
            break;
        case 1:
            fuzz::WriteAndRead(data + 1, size - 1, "PCD");
            break;
        default:
            Unpack(data + 1, size - 1);
            break;
    }
    return 0;
}
