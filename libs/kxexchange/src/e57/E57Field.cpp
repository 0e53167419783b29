// SPDX-License-Identifier: MIT
#include "E57Field.h"

#include <cmath>

#include "E57Error.h"

namespace kxexchange {

namespace {

using Type = E57Node::Type;

void Collect(const E57Node& node, const std::string& path, const std::string& file, const std::string& where,
             std::vector<E57Field>& fields) {
    E57Field field;
    field.name = path;
    switch (node.type) {
        case Type::Structure:
        case Type::Vector:
            for (size_t i = 0; i < node.children.size(); ++i) {
                const E57Node& child = node.children[i];
                const std::string name =
                    node.type == Type::Vector ? child.name + std::to_string(i) : child.name;
                Collect(child, path.empty() ? name : path + "/" + name, file, where, fields);
            }
            return;
        case Type::Integer:
        case Type::ScaledInteger:
            field.kind = node.type == Type::Integer ? E57Field::Kind::Integer : E57Field::Kind::ScaledInteger;
            field.minimum = node.minimum;
            field.maximum = node.maximum;
            field.scale = node.scale;
            field.offset = node.offset;
            break;
        case Type::Float:
            field.kind = node.single ? E57Field::Kind::Single : E57Field::Kind::Double;
            field.realMinimum = node.realMinimum;
            field.realMaximum = node.realMaximum;
            break;
        case Type::String:
            field.kind = E57Field::Kind::String;
            break;
        case Type::CompressedVector:
        case Type::Blob:
            FailE57(
                {file, where, path, std::nullopt,
                 "found a " + std::string(E57TypeName(node.type)) + " in the prototype, expected numbers"});
    }
    if (fields.size() == kE57MaxFields) {
        FailE57({file, where, "prototype", std::nullopt,
                 "found more than " + std::to_string(kE57MaxFields) + " fields"});
    }
    fields.push_back(std::move(field));
}

}  // namespace

E57Field E57Field::Whole(std::string name, int64_t minimum, int64_t maximum) {
    E57Field field;
    field.name = std::move(name);
    field.kind = Kind::Integer;
    field.minimum = minimum;
    field.maximum = maximum;
    return field;
}

E57Field E57Field::Scaled(std::string name, int64_t minimum, int64_t maximum, double scale, double offset) {
    E57Field field = Whole(std::move(name), minimum, maximum);
    field.kind = Kind::ScaledInteger;
    field.scale = scale;
    field.offset = offset;
    return field;
}

E57Field E57Field::Real(std::string name, bool single) {
    E57Field field;
    field.name = std::move(name);
    field.kind = single ? Kind::Single : Kind::Double;
    return field;
}

E57Scaling::E57Scaling(const E57Field& field) {
    if (field.kind != E57Field::Kind::ScaledInteger) return;
    static constexpr double kPowers[] = {1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12};
    m_factor = field.scale;
    m_offset = field.offset;
    if (field.offset != 0) return;
    for (const double power : kPowers) {
        if (field.scale == 1 / power) {
            m_factor = power;
            m_divide = true;
        }
    }
}

int64_t E57Scaling::Raw(double value) const {
    // Beyond it a double cannot be a 64-bit number.
    constexpr double kLimit = 9223372036854774784.0;
    const double raw = std::round(m_divide ? value * m_factor : (value - m_offset) / m_factor);
    if (std::isnan(raw)) return 0;
    if (raw >= kLimit) return static_cast<int64_t>(kLimit);
    if (raw <= -kLimit) return -static_cast<int64_t>(kLimit);
    return static_cast<int64_t>(raw);
}

std::vector<E57Field> FieldsOfPrototype(const E57Node& vector, const std::string& file,
                                        const std::string& where) {
    const E57Node* const prototype = vector.Find("prototype");
    if (vector.type != Type::CompressedVector || !prototype) {
        FailE57({file, where, vector.name, std::nullopt, "expected a CompressedVector with a prototype"});
    }
    // A codecs vector names, for some inputs, how they are packed; bit packing is the only way there is.
    if (const E57Node* const codecs = vector.Find("codecs")) {
        for (const E57Node& codec : codecs->children) {
            for (const E57Node& kind : codec.children) {
                if (kind.name == "inputs" || kind.name == "bitPackCodec") continue;
                FailE57({file, where, "codecs", std::nullopt,
                         "found the codec '" + kind.name.substr(0, 40) + "', expected bitPackCodec"});
            }
        }
    }
    std::vector<E57Field> fields;
    Collect(*prototype, {}, file, where, fields);
    return fields;
}

E57Node PrototypeOf(const std::vector<E57Field>& fields) {
    E57Node prototype = E57Node::Structure("prototype");
    for (const E57Field& field : fields) {
        E57Node& node = prototype.Add(E57Node::Structure(field.name));
        switch (field.kind) {
            case E57Field::Kind::Integer:
            case E57Field::Kind::ScaledInteger:
                node.type = field.kind == E57Field::Kind::Integer ? Type::Integer : Type::ScaledInteger;
                node.minimum = field.minimum;
                node.maximum = field.maximum;
                node.scale = field.scale;
                node.offset = field.offset;
                // The value of a prototype's element means nothing but has to lie inside the limits.
                node.integer = field.minimum > 0 ? field.minimum : field.maximum < 0 ? field.maximum : 0;
                break;
            case E57Field::Kind::Single:
            case E57Field::Kind::Double:
                node.type = Type::Float;
                node.single = field.kind == E57Field::Kind::Single;
                node.realMinimum = field.realMinimum;
                node.realMaximum = field.realMaximum;
                if (node.realMinimum && *node.realMinimum > 0) node.real = *node.realMinimum;
                if (node.realMaximum && *node.realMaximum < 0) node.real = *node.realMaximum;
                break;
            case E57Field::Kind::String:
                node.type = Type::String;
                break;
        }
    }
    return prototype;
}

}  // namespace kxexchange
