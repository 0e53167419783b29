// SPDX-License-Identifier: MIT
#include "PlyHeader.h"

#include <algorithm>
#include <charconv>
#include <sstream>

#include "kxexchange/Errors.h"

namespace kxexchange {

namespace {

constexpr size_t kMostElements = 64;
constexpr size_t kMostProperties = 1024;

struct Reader {
    const std::string& text;
    const std::string& name;
    size_t at = 0;
    size_t lineAt = 0;
    uint64_t line = 0;

    [[noreturn]] void Fail(const std::string& detail) const {
        kxbase::ErrorContext context;
        context.file = name;
        context.record = "line " + std::to_string(std::max<uint64_t>(line, 1));
        context.offset = lineAt;
        context.detail = detail;
        throw SourceFormatException("PLY header cannot be read", context);
    }

    std::vector<std::string> Words() {
        const size_t end = text.find('\n', at);
        ++line;
        lineAt = at;
        if (end == std::string::npos) Fail("found the end of the header's bytes, expected end_header");
        std::vector<std::string> words;
        std::string word;
        for (; at < end; ++at) {
            const char c = text[at];
            if (c == ' ' || c == '\t' || c == '\r') {
                if (!word.empty()) words.push_back(std::move(word));
                word.clear();
            } else {
                word += c;
            }
        }
        if (!word.empty()) words.push_back(std::move(word));
        at = end + 1;
        return words;
    }

    ValueType Type(const std::string& word) const {
        static const std::map<std::string, ValueType> kTypes{
            {"char", ValueType::I8},    {"int8", ValueType::I8},     {"uchar", ValueType::U8},
            {"uint8", ValueType::U8},   {"short", ValueType::I16},   {"int16", ValueType::I16},
            {"ushort", ValueType::U16}, {"uint16", ValueType::U16},  {"int", ValueType::I32},
            {"int32", ValueType::I32},  {"uint", ValueType::U32},    {"uint32", ValueType::U32},
            {"float", ValueType::F32},  {"float32", ValueType::F32}, {"double", ValueType::F64},
            {"float64", ValueType::F64}};
        const auto found = kTypes.find(word);
        if (found == kTypes.end())
            Fail("found the type '" + word.substr(0, 40) + "', which PLY does not have");
        return found->second;
    }

    uint64_t Count(const std::string& word) const {
        uint64_t count = 0;
        const auto result = std::from_chars(word.data(), word.data() + word.size(), count);
        constexpr uint64_t kMost = uint64_t{1} << 40;
        if (result.ec != std::errc() || result.ptr != word.data() + word.size() || count > kMost) {
            Fail("found '" + word.substr(0, 40) + "', expected a whole number up to 2^40");
        }
        return count;
    }
};

}  // namespace

bool PlyHeader::Element::HasLists() const {
    return std::any_of(properties.begin(), properties.end(),
                       [](const Property& property) { return property.listCount.has_value(); });
}

uint64_t PlyHeader::Element::Bytes() const {
    uint64_t sum = 0;
    for (const Property& property : properties)
        sum += SizeOf(property.type);
    return sum;
}

PlyHeader PlyHeader::Parse(const std::string& text, const std::string& name) {
    PlyHeader header;
    Reader reader{text, name};
    if (reader.Words() != std::vector<std::string>{"ply"}) reader.Fail("expected the word ply");
    bool format = false;
    while (true) {
        const std::vector<std::string> words = reader.Words();
        if (words.empty() || words[0] == "comment") continue;
        const std::string& key = words[0];
        if (key == "end_header") break;
        if (key == "format") {
            if (words.size() != 3 || words[2] != "1.0") reader.Fail("expected a format of version 1.0");
            if (words[1] == "ascii") {
                header.encoding = Encoding::Ascii;
            } else if (words[1] == "binary_little_endian") {
                header.encoding = Encoding::LittleEndian;
            } else if (words[1] == "binary_big_endian") {
                header.encoding = Encoding::BigEndian;
            } else {
                reader.Fail("found the format '" + words[1].substr(0, 40) +
                            "', expected ascii, binary_little_endian or binary_big_endian");
            }
            format = true;
        } else if (key == "obj_info") {
            if (words.size() >= 3) header.info[words[1]] = words[2];
        } else if (key == "element") {
            if (words.size() != 3) reader.Fail("expected an element's name and count");
            if (header.elements.size() == kMostElements) reader.Fail("found too many elements");
            header.elements.push_back({words[1], reader.Count(words[2]), {}});
        } else if (key == "property") {
            if (header.elements.empty()) reader.Fail("found a property in front of any element");
            std::vector<Property>& properties = header.elements.back().properties;
            if (properties.size() == kMostProperties) reader.Fail("found too many properties");
            if (words.size() == 5 && words[1] == "list") {
                properties.push_back({words[4], reader.Type(words[3]), reader.Type(words[2])});
            } else if (words.size() == 3) {
                properties.push_back({words[2], reader.Type(words[1]), {}});
            } else {
                reader.Fail("expected a property's type and name");
            }
        } else {
            reader.Fail("found '" + key.substr(0, 40) + "', which a PLY header does not have");
        }
    }
    if (!format) reader.Fail("found no line that says the format");
    header.bytes = reader.at;
    header.lines = reader.line;
    return header;
}

}  // namespace kxexchange
