// SPDX-License-Identifier: MIT
#include "kxbase/UUID.h"

#include <cstring>
#include <random>

#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"

namespace kxbase {

namespace {

int HexValue(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    return -1;
}

bool IsDashPlace(size_t i) {
    return i == 8 || i == 13 || i == 18 || i == 23;
}

}  // namespace

UUID::UUID(const std::wstring& text) {
    std::wstring body = text;
    if (body.size() == 38 && body.front() == L'{' && body.back() == L'}') body = body.substr(1, 36);
    bool good = body.size() == 36;
    size_t digit = 0;
    for (size_t i = 0; good && i < body.size(); ++i) {
        if (IsDashPlace(i)) {
            good = body[i] == L'-';
            continue;
        }
        const int value = HexValue(body[i]);
        good = value >= 0;
        if (good) {
            unsigned char& byte = m_bytes[digit / 2];
            byte = static_cast<unsigned char>((byte << 4) | value);
            ++digit;
        }
    }
    if (!good) {
        ErrorContext context;
        context.detail = "found \"" + Encode_UTF8(text.substr(0, 64)) + "\"";
        throw KXBadInputException("Not a UUID", context);
    }
}

UUID UUID::Generate() {
    std::random_device entropy;
    UUID id;
    for (size_t i = 0; i < 16; i += 4) {
        const uint32_t word = entropy();
        for (size_t k = 0; k < 4; ++k)
            id.m_bytes[i + k] = static_cast<unsigned char>(word >> (8 * k));
    }
    id.m_bytes[6] = static_cast<unsigned char>((id.m_bytes[6] & 0x0F) | 0x40);  // version 4
    id.m_bytes[8] = static_cast<unsigned char>((id.m_bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    return id;
}

UUID UUID::Generate_Zeros() {
    return {};
}

UUID UUID::FromBytes(const unsigned char* sixteen) {
    UUID id;
    std::memcpy(id.m_bytes.data(), sixteen, id.m_bytes.size());
    return id;
}

std::wstring UUID::ToWString() const {
    static const wchar_t* digits = L"0123456789abcdef";
    std::wstring text;
    for (size_t i = 0; i < m_bytes.size(); ++i) {
        if (IsDashPlace(text.size())) text += L'-';
        text += digits[m_bytes[i] >> 4];
        text += digits[m_bytes[i] & 15];
    }
    return text;
}

}  // namespace kxbase
