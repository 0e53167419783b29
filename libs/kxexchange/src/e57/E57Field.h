// SPDX-License-Identifier: MIT
#pragma once

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "E57Node.h"

namespace kxexchange {

/// One value of every record of a CompressedVector: how its numbers are packed.
struct E57Field {
    enum class Kind { Integer, ScaledInteger, Single, Double, String };

    std::string name;  ///< path in the prototype, "cartesianX", "normals/nor:x"
    Kind kind = Kind::Double;
    int64_t minimum = 0;  ///< Integer and ScaledInteger: limits of the whole number
    int64_t maximum = 0;
    double scale = 1;
    double offset = 0;
    std::optional<double> realMinimum;  ///< Single and Double, when declared
    std::optional<double> realMaximum;

    bool IsWhole() const { return kind == Kind::Integer || kind == Kind::ScaledInteger; }
    /// maximum - minimum; may need all 64 bits.
    uint64_t Span() const { return static_cast<uint64_t>(maximum) - static_cast<uint64_t>(minimum); }
    /// Bits of a value: for whole numbers the fewest that hold maximum - minimum, none for a constant. Of a
    /// String the fewest that it can have.
    unsigned Bits() const {
        switch (kind) {
            case Kind::Single:
                return 32;
            case Kind::Double:
                return 64;
            case Kind::String:
                return 8;
            default:
                return static_cast<unsigned>(std::bit_width(Span()));
        }
    }

    static E57Field Whole(std::string name, int64_t minimum, int64_t maximum);
    static E57Field Scaled(std::string name, int64_t minimum, int64_t maximum, double scale,
                           double offset = 0);
    static E57Field Real(std::string name, bool single);
};

/// Turns stored whole numbers into values: raw x scale + offset. Where the scale is a negative power of ten
/// (as near as a double can be) and there is no offset, raw is divided by the power of ten instead, so that
/// the value is the same double as the decimal number read from a text.
class E57Scaling {
public:
    explicit E57Scaling(const E57Field& field);
    double Value(int64_t raw) const {
        return m_divide ? static_cast<double>(raw) / m_factor
                        : static_cast<double>(raw) * m_factor + m_offset;
    }
    /// The whole number nearest to a value (not clamped to any limits; 0 for what is no number).
    int64_t Raw(double value) const;

private:
    double m_factor = 1;
    double m_offset = 0;
    bool m_divide = false;
};

/// Fields of a prototype, in the order of their bytestreams. `where` and `file` appear in messages.
/// \throws SourceFormatException  the node is no CompressedVector with a prototype, or a codec is unknown
std::vector<E57Field> FieldsOfPrototype(const E57Node& vector, const std::string& file,
                                        const std::string& where);

/// The prototype of these fields; names with '/' are not nested again.
E57Node PrototypeOf(const std::vector<E57Field>& fields);

/// Fields of a prototype that are believed.
constexpr size_t kE57MaxFields = 1024;

}  // namespace kxexchange
