// SPDX-License-Identifier: MIT
#include <charconv>
#include <pugixml.hpp>

#include "E57Error.h"
#include "E57Node.h"

namespace kxexchange {

namespace {

using Type = E57Node::Type;

std::string_view Trim(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

template <class Number>
bool ReadNumber(std::string_view text, Number& value) {
    if (text.starts_with('+')) text.remove_prefix(1);
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

class Parser {
public:
    Parser(std::string_view xml, const std::string& file, E57Document& document)
        : m_xml(xml), m_file(file), m_document(document) {}

    void Run() {
        pugi::xml_document tree;
        const pugi::xml_parse_result result =
            tree.load_buffer(m_xml.data(), m_xml.size(), pugi::parse_default, pugi::encoding_utf8);
        if (!result) {
            FailE57({m_file,
                     "XML",
                     {},
                     std::nullopt,
                     std::string(result.description()) + " at its byte " + std::to_string(result.offset)});
        }
        const pugi::xml_node root = tree.document_element();
        if (std::string_view(root.name()) != "e57Root") Fail(root, "expected the element e57Root");
        for (const pugi::xml_attribute attribute : root.attributes()) {
            constexpr std::string_view kPrefix = "xmlns:";
            const std::string_view name = attribute.name();
            if (name.starts_with(kPrefix)) {
                m_document.extensions.emplace_back(name.substr(kPrefix.size()), attribute.value());
            }
        }
        if (!Read(root, m_document.root, 0)) Fail(root, "expected a type");
        if (m_document.root.type != Type::Structure) Fail(root, "expected a Structure");
    }

private:
    [[noreturn]] void Fail(const pugi::xml_node& node, const std::string& detail) const {
        std::string path;
        for (pugi::xml_node at = node; at && path.size() < 200; at = at.parent()) {
            if (*at.name()) path = "/" + std::string(at.name()) + path;
        }
        FailE57({m_file, "XML element " + path.substr(0, 200), {}, std::nullopt, detail});
    }

    static bool TypeOf(std::string_view name, Type& type) {
        for (int i = 0; i <= static_cast<int>(Type::Blob); ++i) {
            type = static_cast<Type>(i);
            if (E57TypeName(type) == name) return true;
        }
        return false;
    }

    // All text of an element, however it is split into sections.
    static std::string TextOf(const pugi::xml_node& node) {
        std::string text;
        for (const pugi::xml_node child : node.children()) {
            if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) text += child.value();
        }
        return text;
    }

    template <class Number>
    Number Parse(const pugi::xml_node& node, const char* what, std::string_view text, Number missing) const {
        text = Trim(text);
        if (text.empty()) return missing;
        Number value{};
        if (!ReadNumber(text, value)) {
            Fail(node,
                 std::string(what) + ": found '" + std::string(text.substr(0, 40)) + "', expected a number");
        }
        return value;
    }

    template <class Number>
    Number Attribute(const pugi::xml_node& node, const char* name, Number missing) const {
        return Parse(node, name, node.attribute(name).value(), missing);
    }

    std::optional<double> RealLimit(const pugi::xml_node& node, const char* name) const {
        if (!node.attribute(name)) return std::nullopt;
        return Attribute(node, name, 0.0);
    }

    // False: an element of an extension that cannot be understood, to be left out.
    bool Read(const pugi::xml_node& node, E57Node& out, int depth) {
        if (depth > kE57MaxDepth) Fail(node, "nested deeper than " + std::to_string(kE57MaxDepth));
        if (++m_nodes > kE57MaxNodes) Fail(node, "more than " + std::to_string(kE57MaxNodes) + " elements");
        out.name = node.name();
        const std::string_view typeName = node.attribute("type").value();
        if (!TypeOf(typeName, out.type)) {
            if (out.name.find(':') != std::string::npos) {
                m_document.skipped.push_back(out.name);
                return false;
            }
            Fail(node, "found the type '" + std::string(typeName.substr(0, 40)) + "', which is none");
        }
        switch (out.type) {
            case Type::Structure:
            case Type::Vector:
                break;
            case Type::CompressedVector:
                out.fileOffset = Attribute(node, "fileOffset", uint64_t{0});
                out.count = Attribute(node, "recordCount", uint64_t{0});
                break;
            case Type::Blob:
                out.fileOffset = Attribute(node, "fileOffset", uint64_t{0});
                out.count = Attribute(node, "length", uint64_t{0});
                break;
            case Type::ScaledInteger:
                out.scale = Attribute(node, "scale", 1.0);
                out.offset = Attribute(node, "offset", 0.0);
                [[fallthrough]];
            case Type::Integer:
                out.minimum = Attribute(node, "minimum", out.minimum);
                out.maximum = Attribute(node, "maximum", out.maximum);
                out.integer = Parse(node, "value", TextOf(node), int64_t{0});
                if (out.minimum > out.maximum) Fail(node, "the minimum is above the maximum");
                break;
            case Type::Float:
                out.single = std::string_view(node.attribute("precision").value()) == "single";
                out.realMinimum = RealLimit(node, "minimum");
                out.realMaximum = RealLimit(node, "maximum");
                out.real = Parse(node, "value", TextOf(node), 0.0);
                break;
            case Type::String:
                out.text = TextOf(node);
                break;
        }
        if (out.type != Type::Structure && out.type != Type::Vector && out.type != Type::CompressedVector) {
            return true;
        }
        for (const pugi::xml_node child : node.children()) {
            if (child.type() != pugi::node_element) continue;
            E57Node inner;
            if (Read(child, inner, depth + 1)) out.children.push_back(std::move(inner));
        }
        return true;
    }

    std::string_view m_xml;
    const std::string& m_file;
    E57Document& m_document;
    size_t m_nodes = 0;
};

}  // namespace

E57Document ParseE57Xml(std::string_view xml, const std::string& file) {
    if (xml.size() > kE57MaxXmlBytes) {
        FailE57({file,
                 "XML",
                 {},
                 std::nullopt,
                 "found " + std::to_string(xml.size()) + " bytes, expected at most " +
                     std::to_string(kE57MaxXmlBytes)});
    }
    // Padding behind the document is no part of it.
    const size_t last = xml.find_last_not_of('\0');
    xml = last == std::string_view::npos ? std::string_view() : xml.substr(0, last + 1);
    E57Document document;
    Parser(xml, file, document).Run();
    return document;
}

}  // namespace kxexchange
