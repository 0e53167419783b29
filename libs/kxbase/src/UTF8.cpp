// SPDX-License-Identifier: MIT
#include "kxbase/UTF8.h"

#include <cstdint>

namespace kxbase {

namespace {

constexpr uint32_t kReplacement = 0xFFFD;
constexpr bool kWideIs16 = sizeof(wchar_t) == 2;

bool IsHighSurrogate(uint32_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}
bool IsLowSurrogate(uint32_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

void AppendUtf8(std::string& out, uint32_t c) {
    const auto put = [&out](uint32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (c < 0x80) {
        put(c);
    } else if (c < 0x800) {
        put(0xC0 | (c >> 6));
        put(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        put(0xE0 | (c >> 12));
        put(0x80 | ((c >> 6) & 0x3F));
        put(0x80 | (c & 0x3F));
    } else {
        put(0xF0 | (c >> 18));
        put(0x80 | ((c >> 12) & 0x3F));
        put(0x80 | ((c >> 6) & 0x3F));
        put(0x80 | (c & 0x3F));
    }
}

void AppendWide(std::wstring& out, uint32_t c) {
    if (kWideIs16 && c >= 0x10000) {
        out += static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
        out += static_cast<wchar_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
        out += static_cast<wchar_t>(c);
    }
}

// Decodes the character at `i` and moves behind it, or behind the maximal bad part.
uint32_t NextCharacter(const std::string& text, size_t& i) {
    const auto byteAt = [&text](size_t k) -> uint32_t { return static_cast<unsigned char>(text[k]); };
    const uint32_t lead = byteAt(i++);
    if (lead < 0x80) return lead;
    unsigned more = 0;
    uint32_t value = 0;
    // The second byte's range rules out overlong forms, surrogates and numbers above U+10FFFF.
    uint32_t low = 0x80;
    uint32_t high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        more = 1;
        value = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        more = 2;
        value = lead & 0x0F;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        more = 3;
        value = lead & 0x07;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return kReplacement;
    }
    for (; more != 0; --more) {
        if (i >= text.size() || byteAt(i) < low || byteAt(i) > high) return kReplacement;
        value = (value << 6) | (byteAt(i++) & 0x3F);
        low = 0x80;
        high = 0xBF;
    }
    return value;
}

}  // namespace

std::string Encode_UTF8(const std::wstring& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        uint32_t c = static_cast<uint32_t>(text[i]);
        if constexpr (kWideIs16) {
            c &= 0xFFFF;
            if (IsHighSurrogate(c) && i + 1 < text.size()) {
                const uint32_t next = static_cast<uint32_t>(text[i + 1]) & 0xFFFF;
                if (IsLowSurrogate(next)) {
                    c = 0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00);
                    ++i;
                }
            }
        }
        if (IsHighSurrogate(c) || IsLowSurrogate(c) || c > 0x10FFFF) c = kReplacement;
        AppendUtf8(out, c);
    }
    return out;
}

std::wstring Decode_UTF8(const std::string& text) {
    std::wstring out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();)
        AppendWide(out, NextCharacter(text, i));
    return out;
}

}  // namespace kxbase
