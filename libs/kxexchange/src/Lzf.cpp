// SPDX-License-Identifier: MIT
#include "Lzf.h"

#include <algorithm>
#include <vector>

namespace kxexchange {

namespace {

constexpr size_t kHistory = 8192;
constexpr size_t kOutBytes = (size_t{1} << 20) - (size_t{1} << 16);
constexpr size_t kInBytes = size_t{1} << 16;
constexpr size_t kLongestCopy = 264;
constexpr unsigned kLiterals = 32;

}  // namespace

bool UnpackLzf(const std::function<size_t(std::span<unsigned char>)>& read,
               const std::function<void(std::span<const unsigned char>)>& write, uint64_t bytes) {
    std::vector<unsigned char> in(kInBytes), out(kOutBytes);
    size_t inAt = 0, inEnd = 0;
    size_t outAt = 0, written = 0;  // in `out`
    uint64_t total = 0;
    const auto next = [&](unsigned& byte) {
        if (inAt == inEnd) {
            inEnd = read(in);
            inAt = 0;
            if (inEnd == 0) return false;
        }
        byte = in[inAt++];
        return true;
    };
    // Hands out what is full and keeps what copies may reach back to.
    const auto flush = [&] {
        write(std::span<const unsigned char>(out).subspan(written, outAt - written));
        const size_t kept = std::min(outAt, kHistory);
        std::copy(out.begin() + static_cast<std::ptrdiff_t>(outAt - kept),
                  out.begin() + static_cast<std::ptrdiff_t>(outAt), out.begin());
        outAt = written = kept;
    };
    unsigned control = 0;
    while (next(control)) {
        if (out.size() - outAt < kLongestCopy) flush();
        if (control < kLiterals) {
            const size_t count = control + 1;
            if (count > bytes - total) return false;
            for (size_t i = 0; i < count; ++i) {
                unsigned byte = 0;
                if (!next(byte)) return false;
                out[outAt++] = static_cast<unsigned char>(byte);
            }
            total += count;
            continue;
        }
        unsigned length = control >> 5, more = 0, low = 0;
        if (length == 7) {
            if (!next(more)) return false;
            length += more;
        }
        if (!next(low)) return false;
        const size_t back = (size_t{control & 31} << 8 | low) + 1;
        const size_t count = size_t{length} + 2;
        if (back > outAt || count > bytes - total) return false;
        // Byte by byte: a copy may run into what it writes.
        for (size_t i = 0; i < count; ++i, ++outAt)
            out[outAt] = out[outAt - back];
        total += count;
    }
    write(std::span<const unsigned char>(out).subspan(written, outAt - written));
    return total == bytes;
}

}  // namespace kxexchange
