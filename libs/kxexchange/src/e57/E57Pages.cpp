// SPDX-License-Identifier: MIT
#include "E57Pages.h"

#include <algorithm>

#include "E57Checksum.h"
#include "E57Error.h"

namespace kxexchange {

namespace {

std::string Hex(uint32_t value) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text = "0x";
    for (int shift = 28; shift >= 0; shift -= 4)
        text += kDigits[(value >> shift) & 15];
    return text;
}

}  // namespace

E57PageReader::E57PageReader(kxbase::IInFileStream& stream, std::string name)
    : m_stream(stream), m_name(std::move(name)), m_fileBytes(stream.GetSize()) {}

E57PageReader::Window& E57PageReader::Load(uint64_t page, const std::string& record) {
    const uint64_t first = page / kWindowPages * kWindowPages;
    Window* oldest = m_windows.data();
    for (Window& window : m_windows) {
        if (window.pages != 0 && window.firstPage == first) {
            window.lastUse = ++m_uses;
            if (page - first < window.pages) return window;
            oldest = &window;  // asked for more than there was: try again
            break;
        }
        if (window.lastUse < oldest->lastUse) oldest = &window;
    }
    Window& window = *oldest;
    window.pages = 0;
    window.bytes.resize(kWindowPages * kE57PageBytes);
    const uint64_t offset = first * kE57PageBytes;
    uint64_t got = 0;
    if (m_stream.Seek(offset)) got = m_stream.Read(window.bytes.data(), window.bytes.size());
    m_bytesRead += got;
    window.firstPage = first;
    window.pages = got / kE57PageBytes;
    window.lastUse = ++m_uses;
    window.checked.fill(false);
    if (page - first >= window.pages) {
        FailE57({m_name,
                 record,
                 {},
                 page * kE57PageBytes,
                 "the file ends at byte " + std::to_string(offset + got) + ", expected the whole of page " +
                     std::to_string(page)});
    }
    return window;
}

void E57PageReader::Check(Window& window, uint64_t page) const {
    const size_t index = static_cast<size_t>(page - window.firstPage);
    if (window.checked[index]) return;
    const unsigned char* const bytes = window.bytes.data() + index * kE57PageBytes;
    const unsigned char* const end = bytes + kE57PageContent;
    const uint32_t stored = static_cast<uint32_t>(end[0]) << 24 | static_cast<uint32_t>(end[1]) << 16 |
                            static_cast<uint32_t>(end[2]) << 8 | static_cast<uint32_t>(end[3]);
    const uint32_t computed = Crc32c({bytes, kE57PageContent});
    if (stored != computed) {
        FailE57({m_name, "page " + std::to_string(page), "checksum", page * kE57PageBytes,
                 "found " + Hex(stored) + ", expected " + Hex(computed) + ": the page is damaged (bytes " +
                     std::to_string(page * kE57PageBytes) + " to " +
                     std::to_string((page + 1) * kE57PageBytes - 1) + ")"});
    }
    window.checked[index] = true;
}

void E57PageReader::Read(uint64_t logical, std::span<unsigned char> out, const std::string& record) {
    const uint64_t all = LogicalBytes();
    if (logical > all || out.size() > all - logical) {
        FailE57({m_name,
                 record,
                 {},
                 E57Physical(std::min(logical, all)),
                 "needs " + std::to_string(out.size()) + " bytes, the file has " +
                     std::to_string(all - std::min(logical, all))});
    }
    while (!out.empty()) {
        const uint64_t page = logical / kE57PageContent;
        const uint64_t at = logical % kE57PageContent;
        Window& window = Load(page, record);
        Check(window, page);
        const size_t count = std::min(out.size(), static_cast<size_t>(kE57PageContent - at));
        const unsigned char* const from =
            window.bytes.data() + (page - window.firstPage) * kE57PageBytes + at;
        std::copy_n(from, count, out.begin());
        out = out.subspan(count);
        logical += count;
    }
}

}  // namespace kxexchange
