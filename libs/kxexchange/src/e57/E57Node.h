// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kxexchange {

/// An element of the XML part of an E57 file, as one of the eight types of the format.
struct E57Node {
    enum class Type { Structure, Vector, CompressedVector, Integer, ScaledInteger, Float, String, Blob };

    std::string name;  ///< as the file writes it, with the prefix of an extension
    Type type = Type::Structure;
    // Integer and ScaledInteger: the whole number, its limits; the value is integer x scale + offset.
    int64_t integer = 0;
    int64_t minimum = std::numeric_limits<int64_t>::min();
    int64_t maximum = std::numeric_limits<int64_t>::max();
    double scale = 1;
    double offset = 0;
    // Float
    double real = 0;
    std::optional<double> realMinimum;
    std::optional<double> realMaximum;
    bool single = false;
    std::string text;  ///< String, UTF-8
    // CompressedVector and Blob: where the binary section begins (physical), how much it holds.
    uint64_t fileOffset = 0;
    uint64_t count = 0;  ///< records, bytes
    std::vector<E57Node> children;

    /// First child of that name; nullptr when there is none.
    const E57Node* Find(std::string_view child) const;
    /// The value of an Integer, ScaledInteger or Float.
    std::optional<double> Number() const;

    static E57Node Structure(std::string name);
    static E57Node Vector(std::string name);
    static E57Node Integer(std::string name, int64_t value);
    static E57Node Float(std::string name, double value);
    static E57Node String(std::string name, std::string text);
    /// Appends a child. \return the child, until the next one is added
    E57Node& Add(E57Node child);
};

/// "Structure", "Float" and so on.
std::string_view E57TypeName(E57Node::Type type);

/// The XML part: the root element and the extensions it declares.
struct E57Document {
    E57Node root;
    std::vector<std::pair<std::string, std::string>> extensions;  ///< prefix, namespace
    std::vector<std::string> skipped;  ///< elements of extensions that are none of the eight types
};

constexpr std::string_view kE57Namespace = "http://www.astm.org/COMMIT/E57/2010-e57-v1.0";

/// What of an XML part is believed.
constexpr uint64_t kE57MaxXmlBytes = uint64_t{32} << 20;
constexpr size_t kE57MaxNodes = 1'000'000;
constexpr int kE57MaxDepth = 64;

/// Reads the XML part. Document types and external entities are not followed. `file` appears in messages.
/// \throws SourceFormatException
E57Document ParseE57Xml(std::string_view xml, const std::string& file);

/// The text of an XML part, UTF-8; numbers in the shortest form that reads back as the same.
std::string FormatE57Xml(const E57Document& document);

}  // namespace kxexchange
