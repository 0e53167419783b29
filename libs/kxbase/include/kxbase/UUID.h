// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <compare>
#include <string>

#include "kxbase/Export.h"

namespace kxbase {

/// A 16-byte identifier (RFC 4122). A value type; all members may be called from any thread.
class KXBASE_EXPORT UUID {
public:
    /// All zero.
    UUID() = default;
    /// From text: 8-4-4-4-12 hexadecimal digits of either case, with or without surrounding braces.
    /// \throws KXBadInputException for anything else
    explicit UUID(const std::wstring& text);

    /// A random identifier (version 4) from the system's entropy source.
    static UUID Generate();
    static UUID Generate_Zeros();  ///< sixteen zero bytes, as the default
    /// From 16 bytes in the order of the text.
    static UUID FromBytes(const unsigned char* sixteen);

    /// The 16 bytes in the order of the text.
    std::array<unsigned char, 16> ToBytes() const { return m_bytes; }
    /// 36 characters, lower case, 8-4-4-4-12.
    std::wstring ToWString() const;
    bool IsZero() const { return *this == UUID(); }  ///< all sixteen bytes are zero

    auto operator<=>(const UUID&) const = default;

private:
    std::array<unsigned char, 16> m_bytes{};
};

}  // namespace kxbase
