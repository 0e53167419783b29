// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "CellLines.h"
#include "kxexchange/ScanDescription.h"

namespace kxexchange {

/// How a number is stored in a record.
enum class ValueType : uint8_t { I8, U8, I16, U16, I32, U32, I64, U64, F32, F64 };

size_t SizeOf(ValueType type);

/// What of a cell a field of a record is.
enum class PointTarget : uint8_t {
    None,
    X,
    Y,
    Z,
    Intensity,
    Red,
    Green,
    Blue,
    PackedColor,  ///< 0x00RRGGBB in four bytes, whatever their type
    Classification,
};

/// The target that a field of this name and type has in point files; None when there is none.
PointTarget TargetOf(std::string_view name, ValueType type);

struct PointField {
    PointTarget target = PointTarget::None;
    ValueType type = ValueType::F32;
    size_t offset = 0;  ///< bytes, in a binary record
    std::string name;
};

/// The records of a point file: one point each, with the same fields.
///
/// A coordinate that is no finite number makes the cell one without a return. An intensity that is none is
/// marked as invalid.
class PointRecord {
public:
    /// Metres; beyond it a coordinate is taken for damage.
    static constexpr double kMaxCoordinate = 1e12;

    /// Appends a field behind the others. The first of several with one target counts.
    void Add(std::string name, ValueType type, uint64_t count = 1);
    /// Behind the last field: channels that make no whole colour of one depth become fields without a target.
    void Settle();
    void SetBigEndian(bool bigEndian) { m_bigEndian = bigEndian; }

    bool HasCoordinates() const { return Has(PointTarget::X) && Has(PointTarget::Y) && Has(PointTarget::Z); }
    bool Has(PointTarget target) const;
    /// Bytes of a binary record.
    uint64_t Bytes() const { return m_bytes; }
    const std::vector<PointField>& Fields() const { return m_fields; }

    /// What the fields say about a scan: presence, kinds of numbers, depth of colour; fields without a target
    /// become unheld facts.
    void Describe(ScanDescription& description) const;

    /// Decodes Bytes() bytes. \return false: a coordinate is beyond kMaxCoordinate
    bool Decode(const unsigned char* bytes, Cell& cell) const;
    /// Parses a line of as many numbers as there are fields; "nan" and "inf" are numbers here.
    bool ParseLine(const char*& line, Cell& cell, LineFault& fault) const;

private:
    void Set(const PointField& field, double value, Cell& cell) const;
    static bool Finish(Cell& cell);

    std::vector<PointField> m_fields;
    uint64_t m_bytes = 0;
    bool m_bigEndian = false;
};

/// A point at 0 0 0, which in a grid stands for a cell without a return.
inline bool IsNowhere(const Cell& cell) {
    return cell.valid && cell.x == 0 && cell.y == 0 && cell.z == 0;
}
std::string NowhereWarning(uint64_t points);

}  // namespace kxexchange
