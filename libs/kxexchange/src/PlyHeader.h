// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "PointRecord.h"

namespace kxexchange {

/// What stands in front of a PLY file's data.
struct PlyHeader {
    enum class Encoding { Ascii, LittleEndian, BigEndian };
    struct Property {
        std::string name;
        ValueType type = ValueType::F32;
        std::optional<ValueType> listCount;  ///< a list: the type of its length
    };
    struct Element {
        std::string name;
        uint64_t count = 0;
        std::vector<Property> properties;
        bool HasLists() const;
        /// Bytes of one, without lists.
        uint64_t Bytes() const;
    };

    Encoding encoding = Encoding::Ascii;
    std::vector<Element> elements;
    std::map<std::string, std::string> info;  ///< obj_info lines, by their first word
    uint64_t bytes = 0;                       ///< of the header
    uint64_t lines = 0;

    /// Reads a header from the first bytes of a file. \throws SourceFormatException
    static PlyHeader Parse(const std::string& text, const std::string& name);
    /// More than this is no header.
    static constexpr uint64_t kMaxBytes = uint64_t{1} << 16;
};

}  // namespace kxexchange
