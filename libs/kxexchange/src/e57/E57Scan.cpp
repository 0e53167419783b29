// SPDX-License-Identifier: MIT
#include "E57Scan.h"

#include <algorithm>
#include <cmath>

#include "E57Error.h"
#include "E57Keepsakes.h"
#include "E57Pose.h"
#include "E57Time.h"
#include "SourceFacts.h"
#include "TextFormat.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"

namespace kxexchange {

namespace {

using Type = E57Node::Type;

// Longer texts are not carried beside a scan.
constexpr size_t kMaxKeepsake = 8192;

std::string TextOf(const E57Node& parent, std::string_view name) {
    const E57Node* const node = parent.Find(name);
    return node && node->type == Type::String ? node->text : std::string();
}

std::optional<double> NumberOf(const E57Node* parent, std::string_view name) {
    const E57Node* const node = parent ? parent->Find(name) : nullptr;
    const auto number = node ? node->Number() : std::nullopt;
    return number && std::isfinite(*number) ? number : std::nullopt;
}

std::optional<int64_t> WholeOf(const E57Node* parent, std::string_view name) {
    const E57Node* const node = parent ? parent->Find(name) : nullptr;
    if (!node || (node->type != Type::Integer && node->type != Type::ScaledInteger)) return std::nullopt;
    return node->integer;
}

std::optional<kxbase::UUID> UuidOf(const std::string& text) {
    try {
        return kxbase::UUID(kxbase::Decode_UTF8(text));
    } catch (const kxbase::KXException&) {
        return std::nullopt;
    }
}

// Reads one data3D element into a description.
class Reader {
public:
    Reader(const E57Document& document, const E57Node& node, size_t index, const std::string& file)
        : m_document(document), m_node(node), m_file(file), m_out(m_scan.description) {
        m_scan.where = "points of scan " + std::to_string(index + 1);
    }

    E57Scan Run() {
        Texts();
        Dates();
        Pose();
        Points();
        Bounds();
        Coordinates();
        Intensity();
        Color();
        Own();
        Unheld();
        return std::move(m_scan);
    }

private:
    void Keep(std::string key, std::string value) {
        if (value.size() > kMaxKeepsake) {
            m_out.unheld.push_back({key, "a text of " + std::to_string(value.size()) + " bytes"});
            return;
        }
        m_out.keepsakes.emplace_back(std::move(key), std::move(value));
    }

    void Texts() {
        m_out.name = TextOf(m_node, "name");
        m_out.text = TextOf(m_node, "description");
        m_out.sensor.vendor = TextOf(m_node, "sensorVendor");
        m_out.sensor.model = TextOf(m_node, "sensorModel");
        m_out.sensor.serial = TextOf(m_node, "sensorSerialNumber");
        m_out.sensor.hardwareVersion = TextOf(m_node, "sensorHardwareVersion");
        m_out.sensor.softwareVersion = TextOf(m_node, "sensorSoftwareVersion");
        m_out.sensor.firmwareVersion = TextOf(m_node, "sensorFirmwareVersion");
        m_scan.guid = TextOf(m_node, "guid");
        m_out.uuid = UuidOf(m_scan.guid);
        if (!m_scan.guid.empty() && (!m_out.uuid || m_scan.guid != E57GuidText(*m_out.uuid))) {
            Keep("e57-guid", PercentEncode(m_scan.guid));
        }
        if (const E57Node* const originals = m_node.Find("originalGuids")) {
            for (size_t i = 0; i < originals->children.size(); ++i) {
                if (i == 0) m_out.original = UuidOf(originals->children[i].text);
                if (i > 0 || !m_out.original) {
                    m_out.unheld.push_back({"originalGuids", originals->children[i].text.substr(0, 100)});
                }
            }
        }
        for (const char* const name : {"temperature", "relativeHumidity", "atmosphericPressure"}) {
            if (const auto number = NumberOf(&m_node, name)) {
                Keep("e57-" + LowerKey(name), ShortestText(*number));
            }
        }
        const std::string system = TextOf(m_document.root, "coordinateMetadata");
        if (!system.empty()) Keep("e57-coordinate-metadata", PercentEncode(system));
    }

    static std::string LowerKey(std::string_view name) {
        std::string key;
        for (const char c : name) {
            if (c >= 'A' && c <= 'Z') {
                key += '-';
                key += static_cast<char>(c - 'A' + 'a');
            } else {
                key += c;
            }
        }
        return key;
    }

    void Dates() {
        OneDate("acquisitionStart", "e57-start", m_out.acquisitionStart);
        OneDate("acquisitionEnd", "e57-end", m_out.acquisitionEnd);
    }
    void OneDate(const char* name, const char* key, kxbase::Date& date) {
        const E57Node* const node = m_node.Find(name);
        const auto seconds = NumberOf(node, "dateTimeValue");
        // 0 is what writers put that know no date.
        if (!seconds || *seconds == 0) return;
        date = DateOfGps(*seconds);
        const bool atomic = NumberOf(node, "isAtomicClockReferenced").value_or(0) != 0;
        if (atomic || !date.IsSet() || GpsOfDate(date) != *seconds) {
            Keep(key, ShortestText(*seconds) + (atomic ? ",1" : ",0"));
        }
    }

    void Pose() {
        const E57Node* const pose = m_node.Find("pose");
        if (!pose) return;
        const E57Node* const rotation = pose->Find("rotation");
        const E57Node* const translation = pose->Find("translation");
        const E57Quaternion quaternion{
            rotation ? NumberOf(rotation, "w").value_or(0) : 1.0, NumberOf(rotation, "x").value_or(0),
            NumberOf(rotation, "y").value_or(0), NumberOf(rotation, "z").value_or(0)};
        const auto registration = RegistrationOf(
            quaternion, {NumberOf(translation, "x").value_or(0), NumberOf(translation, "y").value_or(0),
                         NumberOf(translation, "z").value_or(0)});
        if (!registration) {
            FailE57({m_file, m_scan.where, "pose", std::nullopt,
                     "found the quaternion " + JoinNumbers(quaternion) + ", expected one of length 1"});
        }
        m_out.pose = *registration;
        if (quaternion != E57Quaternion{1, 0, 0, 0}) Keep("e57-rotation", JoinNumbers(quaternion));
    }

    void Points() {
        m_scan.points = m_node.Find("points");
        if (!m_scan.points) {
            FailE57({m_file, m_scan.where, "points", std::nullopt, "the scan has no points element"});
        }
        m_scan.fields = FieldsOfPrototype(*m_scan.points, m_file, m_scan.where);
        m_out.points = m_scan.points->count;
        E57Roles& roles = m_scan.roles;
        const std::pair<std::string_view, E57Roles::Index*> known[] = {
            {"cartesianX", &roles.x},
            {"cartesianY", &roles.y},
            {"cartesianZ", &roles.z},
            {"cartesianInvalidState", &roles.cartesianInvalid},
            {"sphericalRange", &roles.range},
            {"sphericalAzimuth", &roles.azimuth},
            {"sphericalElevation", &roles.elevation},
            {"sphericalInvalidState", &roles.sphericalInvalid},
            {"rowIndex", &roles.row},
            {"columnIndex", &roles.column},
            {"intensity", &roles.intensity},
            {"isIntensityInvalid", &roles.intensityInvalid},
            {"colorRed", &roles.red},
            {"colorGreen", &roles.green},
            {"colorBlue", &roles.blue},
            {"isColorInvalid", &roles.colorInvalid},
        };
        std::vector<bool> used(m_scan.fields.size());
        for (size_t i = 0; i < m_scan.fields.size(); ++i) {
            const E57Field& field = m_scan.fields[i];
            const auto part = std::find_if(std::begin(known), std::end(known),
                                           [&](const auto& entry) { return entry.first == field.name; });
            if (part == std::end(known)) continue;
            if (field.kind == E57Field::Kind::String) {
                FailE57({m_file, m_scan.where, field.name, std::nullopt, "found texts, expected numbers"});
            }
            if (!*part->second) {
                *part->second = i;
                used[i] = true;
            }
        }
        if (!roles.Cartesian() && !roles.Spherical()) {
            FailE57({m_file, m_scan.where, "prototype", std::nullopt,
                     "found neither cartesianX, cartesianY and cartesianZ nor sphericalRange, "
                     "sphericalAzimuth and sphericalElevation"});
        }
        for (const auto* const index : {&roles.row, &roles.column}) {
            if (*index && !m_scan.fields[**index].IsWhole()) {
                FailE57({m_file, m_scan.where, m_scan.fields[**index].name, std::nullopt,
                         "found a Float, expected an Integer"});
            }
        }
        for (size_t i = 0; i < used.size(); ++i) {
            if (!used[i]) m_left.push_back(i);
        }
    }

    void Bounds() {
        const E57Node* const bounds = m_node.Find("indexBounds");
        const auto firstRow = WholeOf(bounds, "rowMinimum"), lastRow = WholeOf(bounds, "rowMaximum");
        const auto firstColumn = WholeOf(bounds, "columnMinimum"),
                   lastColumn = WholeOf(bounds, "columnMaximum");
        if (!firstRow || !lastRow || !firstColumn || !lastColumn) return;
        if (*firstRow > *lastRow || *firstColumn > *lastColumn) return;  // derived from the records instead
        m_scan.declared = E57IndexBounds{*firstRow, *lastRow, *firstColumn, *lastColumn};
    }

    static NumberKind KindOf(const E57Field& field) {
        switch (field.kind) {
            case E57Field::Kind::Integer:
                return NumberKind::Integer;
            case E57Field::Kind::ScaledInteger:
                return NumberKind::Scaled;
            case E57Field::Kind::Single:
                return NumberKind::Single;
            default:
                return NumberKind::Double;
        }
    }

    // Unit, kind, step and declared limits of a field.
    FieldDescription Describe(size_t index, const char* unit) const {
        const E57Field& field = m_scan.fields[index];
        FieldDescription out;
        out.present = true;
        out.unit = unit;
        out.numbers = KindOf(field);
        if (field.IsWhole()) {
            const E57Scaling scaling(field);
            const double a = scaling.Value(field.minimum), b = scaling.Value(field.maximum);
            out.minimum = std::min(a, b);
            out.maximum = std::max(a, b);
            out.precision = field.kind == E57Field::Kind::Integer ? 1 : std::abs(field.scale);
        } else {
            out.minimum = field.realMinimum;
            out.maximum = field.realMaximum;
        }
        return out;
    }

    void CheckScale(size_t index) const {
        const E57Field& field = m_scan.fields[index];
        if (field.scale != 0 && std::isfinite(field.scale) && std::isfinite(field.offset)) return;
        FailE57({m_file, m_scan.where, field.name, std::nullopt,
                 "found a scale of " + ShortestText(field.scale) + " and an offset of " +
                     ShortestText(field.offset) + ", expected numbers and a scale other than 0"});
    }

    void Coordinates() {
        const E57Roles& roles = m_scan.roles;
        for (size_t i = 0; i < m_scan.fields.size(); ++i)
            CheckScale(i);
        const bool cartesian = roles.Cartesian();
        m_out.coordinateKind = cartesian ? CoordinateKind::Cartesian : CoordinateKind::Spherical;
        m_out.directions =
            cartesian ? roles.cartesianInvalid.has_value() : roles.sphericalInvalid.has_value();
        m_out.coordinates = Describe(cartesian ? *roles.x : *roles.range, "m");
        if (cartesian) {
            // Of the three, the coarsest kind and the widest limits; the greatest magnitude is asked for.
            std::optional<double> greatest = 0;
            for (const size_t index : {*roles.x, *roles.y, *roles.z}) {
                const FieldDescription one = Describe(index, "m");
                m_out.coordinates.numbers = std::max(m_out.coordinates.numbers, one.numbers);
                if (!one.minimum || !one.maximum) greatest.reset();
                if (greatest)
                    greatest = std::max({*greatest, std::abs(*one.minimum), std::abs(*one.maximum)});
            }
            // One step for all of them, or none that a writer could use.
            const E57Field& first = m_scan.fields[*roles.x];
            for (const size_t index : {*roles.x, *roles.y, *roles.z}) {
                const E57Field& field = m_scan.fields[index];
                if (field.IsWhole() && first.IsWhole() && field.scale == first.scale && field.offset == 0)
                    continue;
                m_out.coordinates.precision.reset();
                if (field.IsWhole()) m_out.coordinates.numbers = NumberKind::Double;
            }
            m_out.coordinates.maximum = greatest;
            m_out.coordinates.minimum.reset();
            if (greatest) m_out.coordinates.minimum = -*greatest;
        } else {
            m_out.angles = Describe(*roles.azimuth, "rad");
            for (const size_t index : {*roles.range, *roles.azimuth, *roles.elevation}) {
                const E57Field& field = m_scan.fields[index];
                if (!field.IsWhole() || field.offset == 0) continue;
                FieldDescription& described = index == *roles.range ? m_out.coordinates : m_out.angles;
                described.numbers = NumberKind::Double;
                described.precision.reset();
            }
            const E57Field& elevation = m_scan.fields[*roles.elevation];
            const E57Field& azimuth = m_scan.fields[*roles.azimuth];
            if (elevation.kind != azimuth.kind || (azimuth.IsWhole() && elevation.scale != azimuth.scale)) {
                m_out.angles.numbers = NumberKind::Double;
                m_out.angles.precision.reset();
            }
        }
    }

    void Intensity() {
        if (!m_scan.roles.intensity) return;
        if (m_scan.roles.intensityInvalid) Keep("e57-intensity-invalid", "1");
        const E57Field& field = m_scan.fields[*m_scan.roles.intensity];
        m_out.intensity = Describe(*m_scan.roles.intensity, "");
        const E57Node* const limits = m_node.Find("intensityLimits");
        const auto least = NumberOf(limits, "intensityMinimum"), most = NumberOf(limits, "intensityMaximum");
        if (least && most && *least <= *most) {
            Keep("e57-intensity-limits", JoinNumbers(std::array{*least, *most}));
            m_out.intensity.minimum = least;
            m_out.intensity.maximum = most;
        }
        // The raw numbers as the file packs them, so that they can be written so again.
        if (field.IsWhole()) {
            std::string value = field.kind == E57Field::Kind::Integer ? "integer:" : "scaled:";
            value += std::to_string(field.minimum) + ":" + std::to_string(field.maximum);
            if (field.kind == E57Field::Kind::ScaledInteger) {
                value += ":" + ShortestText(field.scale) + ":" + ShortestText(field.offset);
            }
            Keep("e57-intensity", value);
        } else {
            Keep("e57-intensity", field.kind == E57Field::Kind::Single ? "single" : "double");
        }
    }

    void Color() {
        const E57Roles& roles = m_scan.roles;
        if (!roles.Color()) return;
        if (roles.colorInvalid) Keep("e57-color-invalid", "1");
        const E57Node* const limits = m_node.Find("colorLimits");
        m_out.color = Describe(*roles.red, "");
        double full = 0;
        bool whole = true;
        const std::pair<size_t, const char*> channels[] = {
            {*roles.red, "Red"}, {*roles.green, "Green"}, {*roles.blue, "Blue"}};
        for (size_t i = 0; i < 3; ++i) {
            const auto& [index, name] = channels[i];
            const FieldDescription field = Describe(index, "");
            whole = whole && m_scan.fields[index].IsWhole();
            const auto least = NumberOf(limits, "color" + std::string(name) + "Minimum");
            const auto most = NumberOf(limits, "color" + std::string(name) + "Maximum");
            const bool limited = least && most && *least < *most;
            const double low = limited ? *least : field.minimum.value_or(0);
            const double high = limited ? *most : field.maximum.value_or(whole ? 255 : 1);
            // Limits that begin above 0 are those of the values that happened to be there.
            m_scan.colorLeast[i] = std::min(low, 0.0);
            full = std::max(full, high - m_scan.colorLeast[i]);
        }
        const bool shares = !whole && full <= 1;
        if (!shares && full <= 255) return;
        m_out.colorBits = 16;
        m_scan.colorFactor = shares ? 65535 : full == 65535 ? 1 : 65535 / full;
        if (m_scan.colorFactor != 1) {
            m_scan.warnings.push_back("Colours of up to " + ShortestText(shares ? 1 : full) +
                                      " are stretched to 16 bits");
        }
        m_out.color.minimum = 0;
        m_out.color.maximum = 65535;
        m_out.color.precision = 1;
    }

    // What this library wrote about itself.
    void Own() {
        for (const auto& [prefix, uri] : m_document.extensions) {
            if (uri != kE57OwnNamespace) continue;
            const std::string facts = TextOf(m_node, prefix + ":facts");
            for (auto& [key, value] : SplitKeepsakes(facts.substr(0, kMaxKeepsake))) {
                if (key == kEmptyIntensityFact) {
                    const auto number = SplitNumbers(value);
                    if (number && number->size() == 1) m_scan.emptyIntensity = number->front();
                } else if (key.find("e57-") != 0 && !FindKeepsake(m_out.keepsakes, key)) {
                    Keep(key, value);
                }
            }
            const auto values = SplitNumbers(TextOf(m_node, prefix + ":registration"));
            if (values && values->size() == kxbase::RegistrationInformation::ValueCount) {
                const auto exact = kxbase::RegistrationInformation::FromValues(values->data());
                // Another program may have moved the scan since.
                if (std::equal(values->begin() + 9, values->end(), m_out.pose.Values() + 9) &&
                    QuaternionOf(exact) == QuaternionAsWritten()) {
                    m_out.pose = exact;
                }
            }
        }
    }
    E57Quaternion QuaternionAsWritten() const {
        const auto kept = KeepsakeNumbers(m_out.keepsakes, "e57-rotation", 4);
        if (!kept) return {1, 0, 0, 0};
        return {(*kept)[0], (*kept)[1], (*kept)[2], (*kept)[3]};
    }

    std::string ExtensionOf(const std::string& name) const {
        const size_t colon = name.find(':');
        if (colon == std::string::npos) return {};
        for (const auto& [prefix, uri] : m_document.extensions) {
            if (name.compare(0, colon, prefix) == 0) return uri;
        }
        return "an undeclared namespace";
    }

    void Unheld() {
        for (const size_t index : m_left) {
            const E57Field& field = m_scan.fields[index];
            if (field.IsWhole() && field.Bits() == 0) continue;  // says the same of every point
            const std::string uri = ExtensionOf(field.name);
            if (uri.empty()) {
                m_out.unheld.push_back({field.name, "a value of every point"});
            } else {
                m_out.unheld.push_back({"extension " + field.name, "of every point; " + uri});
            }
        }
        if (m_node.Find("pointGroupingSchemes")) {
            m_out.unheld.push_back({"pointGroupingSchemes", "lines of points"});
        }
        for (const E57Node& child : m_node.children) {
            const std::string uri = ExtensionOf(child.name);
            if (uri.empty() || uri == kE57OwnNamespace) continue;
            m_out.unheld.push_back({"extension " + child.name, uri});
        }
        for (const std::string& name : m_document.skipped)
            m_out.unheld.push_back({"extension " + name, "of a type that is not known"});
    }

    const E57Document& m_document;
    const E57Node& m_node;
    const std::string& m_file;
    E57Scan m_scan;
    ScanDescription& m_out;
    std::vector<size_t> m_left;  // fields that play no part
};

}  // namespace

std::string E57GuidText(const kxbase::UUID& uuid) {
    std::string text = "{" + kxbase::Encode_UTF8(uuid.ToWString()) + "}";
    for (char& c : text) {
        if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

const std::vector<E57Node>& E57Children(const E57Document& document, std::string_view vector) {
    static const std::vector<E57Node> kNone;
    const E57Node* const node = document.root.Find(vector);
    return node && node->type == Type::Vector ? node->children : kNone;
}

E57Scan DescribeE57Scan(const E57Document& document, size_t index, const std::string& file) {
    return Reader(document, E57Children(document, "data3D").at(index), index, file).Run();
}

}  // namespace kxexchange
