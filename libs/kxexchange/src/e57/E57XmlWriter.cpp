// SPDX-License-Identifier: MIT
#include <charconv>
#include <pugixml.hpp>

#include "E57Node.h"

namespace kxexchange {

namespace {

using Type = E57Node::Type;

template <class Number>
std::string Text(Number value) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

// XML 1.0 cannot hold control characters, not even escaped.
std::string Clean(const std::string& text) {
    std::string clean;
    for (const char c : text) {
        if (static_cast<unsigned char>(c) >= ' ' || c == '\t' || c == '\n') clean += c;
    }
    return clean;
}

void Put(pugi::xml_node& node, const char* name, const std::string& value) {
    node.append_attribute(name).set_value(value.c_str());
}

void PutText(pugi::xml_node& node, const std::string& text) {
    node.append_child(pugi::node_pcdata).set_value(text.c_str());
}

void Write(const E57Node& in, pugi::xml_node& node) {
    node.append_attribute("type").set_value(std::string(E57TypeName(in.type)).c_str());
    switch (in.type) {
        case Type::Structure:
            break;
        case Type::Vector:
            Put(node, "allowHeterogeneousChildren", "1");
            break;
        case Type::CompressedVector:
            Put(node, "fileOffset", Text(in.fileOffset));
            Put(node, "recordCount", Text(in.count));
            break;
        case Type::Blob:
            Put(node, "fileOffset", Text(in.fileOffset));
            Put(node, "length", Text(in.count));
            break;
        case Type::Integer:
        case Type::ScaledInteger:
            if (in.minimum != std::numeric_limits<int64_t>::min()) Put(node, "minimum", Text(in.minimum));
            if (in.maximum != std::numeric_limits<int64_t>::max()) Put(node, "maximum", Text(in.maximum));
            if (in.type == Type::ScaledInteger) {
                Put(node, "scale", Text(in.scale));
                if (in.offset != 0) Put(node, "offset", Text(in.offset));
            }
            PutText(node, Text(in.integer));
            break;
        case Type::Float:
            if (in.single) Put(node, "precision", "single");
            if (in.realMinimum) Put(node, "minimum", Text(*in.realMinimum));
            if (in.realMaximum) Put(node, "maximum", Text(*in.realMaximum));
            PutText(node, Text(in.real));
            break;
        case Type::String:
            node.append_child(pugi::node_cdata).set_value(Clean(in.text).c_str());
            break;
    }
    for (const E57Node& child : in.children) {
        pugi::xml_node inner = node.append_child(child.name.c_str());
        Write(child, inner);
    }
}

struct StringWriter final : pugi::xml_writer {
    std::string text;
    void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
};

}  // namespace

std::string FormatE57Xml(const E57Document& document) {
    pugi::xml_document tree;
    pugi::xml_node declaration = tree.append_child(pugi::node_declaration);
    Put(declaration, "version", "1.0");
    Put(declaration, "encoding", "UTF-8");
    pugi::xml_node root = tree.append_child("e57Root");
    Put(root, "xmlns", std::string(kE57Namespace));
    for (const auto& [prefix, uri] : document.extensions)
        Put(root, ("xmlns:" + prefix).c_str(), uri);
    Write(document.root, root);
    StringWriter out;
    tree.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
    return std::move(out.text);
}

}  // namespace kxexchange
