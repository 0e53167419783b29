// SPDX-License-Identifier: MIT
#include "E57Node.h"

#include <array>

namespace kxexchange {

const E57Node* E57Node::Find(std::string_view child) const {
    for (const E57Node& node : children) {
        if (node.name == child) return &node;
    }
    return nullptr;
}

std::optional<double> E57Node::Number() const {
    switch (type) {
        case Type::Integer:
            return static_cast<double>(integer);
        case Type::ScaledInteger:
            return static_cast<double>(integer) * scale + offset;
        case Type::Float:
            return real;
        default:
            return std::nullopt;
    }
}

E57Node E57Node::Structure(std::string name) {
    E57Node node;
    node.name = std::move(name);
    return node;
}

E57Node E57Node::Vector(std::string name) {
    E57Node node = Structure(std::move(name));
    node.type = Type::Vector;
    return node;
}

E57Node E57Node::Integer(std::string name, int64_t value) {
    E57Node node = Structure(std::move(name));
    node.type = Type::Integer;
    node.integer = value;
    return node;
}

E57Node E57Node::Float(std::string name, double value) {
    E57Node node = Structure(std::move(name));
    node.type = Type::Float;
    node.real = value;
    return node;
}

E57Node E57Node::String(std::string name, std::string text) {
    E57Node node = Structure(std::move(name));
    node.type = Type::String;
    node.text = std::move(text);
    return node;
}

E57Node& E57Node::Add(E57Node child) {
    return children.emplace_back(std::move(child));
}

std::string_view E57TypeName(E57Node::Type type) {
    static constexpr std::array<std::string_view, 8> kNames{
        "Structure", "Vector", "CompressedVector", "Integer", "ScaledInteger", "Float", "String", "Blob"};
    return kNames[static_cast<size_t>(type)];
}

}  // namespace kxexchange
