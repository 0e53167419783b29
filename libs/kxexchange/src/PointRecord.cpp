// SPDX-License-Identifier: MIT
#include "PointRecord.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "Paths.h"
#include "TextNumbers.h"

namespace kxexchange {

namespace {

template <class Bits>
Bits Load(const unsigned char* bytes, bool bigEndian) {
    Bits bits = 0;
    for (size_t i = 0; i < sizeof(Bits); ++i) {
        const size_t shift = 8 * (bigEndian ? sizeof(Bits) - 1 - i : i);
        bits = static_cast<Bits>(bits | static_cast<Bits>(static_cast<Bits>(bytes[i]) << shift));
    }
    return bits;
}

double Value(const unsigned char* bytes, ValueType type, bool bigEndian) {
    switch (type) {
        case ValueType::I8:
            return static_cast<int8_t>(bytes[0]);
        case ValueType::U8:
            return bytes[0];
        case ValueType::I16:
            return static_cast<int16_t>(Load<uint16_t>(bytes, bigEndian));
        case ValueType::U16:
            return Load<uint16_t>(bytes, bigEndian);
        case ValueType::I32:
            return static_cast<int32_t>(Load<uint32_t>(bytes, bigEndian));
        case ValueType::U32:
            return Load<uint32_t>(bytes, bigEndian);
        case ValueType::I64:
            return static_cast<double>(static_cast<int64_t>(Load<uint64_t>(bytes, bigEndian)));
        case ValueType::U64:
            return static_cast<double>(Load<uint64_t>(bytes, bigEndian));
        case ValueType::F32:
            return std::bit_cast<float>(Load<uint32_t>(bytes, bigEndian));
        case ValueType::F64:
            return std::bit_cast<double>(Load<uint64_t>(bytes, bigEndian));
    }
    return 0;
}

bool IsInteger(ValueType type) {
    return type != ValueType::F32 && type != ValueType::F64;
}

NumberKind KindOf(ValueType type) {
    if (type == ValueType::F32) return NumberKind::Single;
    if (type == ValueType::F64) return NumberKind::Double;
    return NumberKind::Integer;
}

uint16_t Whole(double value, double most) {
    if (!(value > 0)) return 0;
    return static_cast<uint16_t>(std::min(value, most));
}

// "nan", "inf" and the like, as programs print them.
bool ParseNonFinite(const char*& at, double& value) {
    const char* p = at;
    if (*p == '-' || *p == '+') ++p;
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    const auto starts = [&](const char* word) {
        for (size_t i = 0; i < 3; ++i) {
            if (lower(p[i]) != word[i]) return false;
        }
        return true;
    };
    if (!starts("nan") && !starts("inf")) return false;
    p += 3;
    while (!EndsNumber(*p))
        ++p;
    value = std::numeric_limits<double>::quiet_NaN();
    at = p;
    return true;
}

}  // namespace

size_t SizeOf(ValueType type) {
    switch (type) {
        case ValueType::I8:
        case ValueType::U8:
            return 1;
        case ValueType::I16:
        case ValueType::U16:
            return 2;
        case ValueType::I32:
        case ValueType::U32:
        case ValueType::F32:
            return 4;
        default:
            return 8;
    }
}

PointTarget TargetOf(std::string_view name, ValueType type) {
    const std::string lower = LowerCase(std::string(name));
    const auto isOneOf = [&](std::initializer_list<const char*> names) {
        return std::any_of(names.begin(), names.end(), [&](const char* other) { return lower == other; });
    };
    if (lower == "x") return PointTarget::X;
    if (lower == "y") return PointTarget::Y;
    if (lower == "z") return PointTarget::Z;
    if (isOneOf({"intensity", "scalar_intensity", "reflectance", "reflectivity"})) {
        return PointTarget::Intensity;
    }
    if (isOneOf({"rgb", "rgba"}) && SizeOf(type) == 4) return PointTarget::PackedColor;
    if (isOneOf({"classification", "scalar_classification", "label"}) && IsInteger(type)) {
        return PointTarget::Classification;
    }
    // Colours in other types have no one meaning: shares of 1 here, 0 to 255 there.
    if (type != ValueType::U8 && type != ValueType::U16) return PointTarget::None;
    if (isOneOf({"red", "diffuse_red", "r"})) return PointTarget::Red;
    if (isOneOf({"green", "diffuse_green", "g"})) return PointTarget::Green;
    if (isOneOf({"blue", "diffuse_blue", "b"})) return PointTarget::Blue;
    return PointTarget::None;
}

void PointRecord::Add(std::string name, ValueType type, uint64_t count) {
    PointField field;
    field.type = type;
    field.offset = static_cast<size_t>(m_bytes);
    field.target = count == 1 ? TargetOf(name, type) : PointTarget::None;
    if (field.target != PointTarget::None && Has(field.target)) field.target = PointTarget::None;
    field.name = std::move(name);
    m_fields.push_back(std::move(field));
    m_bytes += SizeOf(type) * count;
}

void PointRecord::Settle() {
    const auto isChannel = [](const PointField& field) {
        return field.target == PointTarget::Red || field.target == PointTarget::Green ||
               field.target == PointTarget::Blue;
    };
    const auto drop = [&](const auto& matches) {
        for (PointField& field : m_fields) {
            if (matches(field)) field.target = PointTarget::None;
        }
    };
    const auto first = std::find_if(m_fields.begin(), m_fields.end(), isChannel);
    if (first == m_fields.end()) return;
    const ValueType type = first->type;
    const auto channels = std::count_if(m_fields.begin(), m_fields.end(), [&](const PointField& field) {
        return isChannel(field) && field.type == type;
    });
    if (channels == 3) {
        drop([](const PointField& field) { return field.target == PointTarget::PackedColor; });
    } else {
        drop(isChannel);
    }
}

bool PointRecord::Has(PointTarget target) const {
    return std::any_of(m_fields.begin(), m_fields.end(),
                       [&](const PointField& field) { return field.target == target; });
}

void PointRecord::Describe(ScanDescription& description) const {
    description.color.present = Has(PointTarget::Red) || Has(PointTarget::PackedColor);
    description.coordinates.present = true;
    description.coordinates.unit = "m";
    for (const PointField& field : m_fields) {
        switch (field.target) {
            case PointTarget::X:
                description.coordinates.numbers = KindOf(field.type);
                break;
            case PointTarget::Intensity:
                description.intensity.present = true;
                description.intensity.numbers = KindOf(field.type);
                break;
            case PointTarget::Red:
                if (field.type == ValueType::U16) description.colorBits = 16;
                break;
            case PointTarget::Classification:
                description.classification.present = true;
                description.classification.numbers = NumberKind::Integer;
                break;
            case PointTarget::None:
                if (field.name != "_") description.unheld.push_back({field.name, {}});
                break;
            default:
                break;
        }
    }
    if (description.color.present) {
        description.color.numbers = NumberKind::Integer;
        description.color.minimum = 0;
        description.color.maximum = description.colorBits == 16 ? 65535 : 255;
        description.color.precision = 1;
    }
}

void PointRecord::Set(const PointField& field, double value, Cell& cell) const {
    const double most = field.type == ValueType::U16 ? 65535 : 255;
    switch (field.target) {
        case PointTarget::X:
            cell.x = value;
            break;
        case PointTarget::Y:
            cell.y = value;
            break;
        case PointTarget::Z:
            cell.z = value;
            break;
        case PointTarget::Intensity:
            cell.intensityInvalid = !std::isfinite(value);
            cell.intensity = cell.intensityInvalid ? 0 : value;
            break;
        case PointTarget::Red:
            cell.red = Whole(value, most);
            break;
        case PointTarget::Green:
            cell.green = Whole(value, most);
            break;
        case PointTarget::Blue:
            cell.blue = Whole(value, most);
            break;
        case PointTarget::Classification:
            cell.classification = static_cast<uint8_t>(Whole(value, 255));
            break;
        default:
            break;
    }
}

// Coordinates that are no numbers are how point files say "nothing came back".
bool PointRecord::Finish(Cell& cell) {
    if (!std::isfinite(cell.x) || !std::isfinite(cell.y) || !std::isfinite(cell.z)) {
        cell.x = cell.y = cell.z = 0;
        return true;
    }
    cell.valid = true;
    return std::abs(cell.x) <= kMaxCoordinate && std::abs(cell.y) <= kMaxCoordinate &&
           std::abs(cell.z) <= kMaxCoordinate;
}

namespace {

void SetPacked(uint32_t bits, Cell& cell) {
    cell.red = static_cast<uint16_t>(bits >> 16 & 255);
    cell.green = static_cast<uint16_t>(bits >> 8 & 255);
    cell.blue = static_cast<uint16_t>(bits & 255);
}

}  // namespace

bool PointRecord::Decode(const unsigned char* bytes, Cell& cell) const {
    cell = Cell();
    for (const PointField& field : m_fields) {
        if (field.target == PointTarget::None) continue;
        if (field.target == PointTarget::PackedColor) {
            SetPacked(Load<uint32_t>(bytes + field.offset, m_bigEndian), cell);
        } else {
            Set(field, Value(bytes + field.offset, field.type, m_bigEndian), cell);
        }
    }
    return Finish(cell);
}

bool PointRecord::ParseLine(const char*& line, Cell& cell, LineFault& fault) const {
    cell = Cell();
    const char* at = line;
    const auto skipBlanks = [&] {
        while (IsBlank(*at))
            ++at;
    };
    for (const PointField& field : m_fields) {
        skipBlanks();
        double value = 0;
        if (ParseNumber(at, value) != NumberStatus::Ok && !ParseNonFinite(at, value)) {
            fault = {at, field.name, *at == '\n' ? std::to_string(m_fields.size()) + " values" : "a number"};
            return false;
        }
        if (field.target == PointTarget::PackedColor) {
            // The bits of a single-precision number, or the whole number itself.
            const bool bits = field.type == ValueType::F32;
            if (bits && std::abs(value) <= 3e38) {
                SetPacked(std::bit_cast<uint32_t>(static_cast<float>(value)), cell);
            }
            if (!bits && value >= 0 && value <= 4294967295.0) SetPacked(static_cast<uint32_t>(value), cell);
        } else {
            Set(field, value, cell);
        }
    }
    skipBlanks();
    if (*at != '\n') {
        fault = {at, "point", "no more than " + std::to_string(m_fields.size()) + " values"};
        return false;
    }
    if (!Finish(cell)) {
        fault = {line, "x y z", "metres, at most 1e12"};
        return false;
    }
    line = at + 1;
    return true;
}

std::string NowhereWarning(uint64_t points) {
    return std::to_string(points) + " points at 0 0 0 count as cells without a return";
}

}  // namespace kxexchange
