// SPDX-License-Identifier: MIT
#include "E57Sink.h"

#include <charconv>
#include <cmath>
#include <numbers>

#include "E57Header.h"
#include "E57Images.h"
#include "E57Scan.h"
#include "E57Time.h"
#include "SourceFacts.h"
#include "TextFormat.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

constexpr double kPi = std::numbers::pi;
// Radians; a hundredth of a millimetre at 100 m.
constexpr double kAngleScale = 1e-7;
// Where values are no multiples of the stated step.
constexpr double kFiner = 0.1;
// Steps from the instrument to the farthest point that are packed as whole numbers.
constexpr double kMostSteps = 9e15;

E57Node DateNode(const char* name, double gpsSeconds, bool atomic) {
    E57Node node = E57Node::Structure(name);
    node.Add(E57Node::Float("dateTimeValue", gpsSeconds));
    node.Add(E57Node::Integer("isAtomicClockReferenced", atomic ? 1 : 0));
    return node;
}

std::optional<int64_t> WholeKeepsake(const Keepsakes& keepsakes, std::string_view key) {
    const std::string* const text = FindKeepsake(keepsakes, key);
    int64_t value = 0;
    if (!text) return std::nullopt;
    const auto result = std::from_chars(text->data(), text->data() + text->size(), value);
    if (result.ec != std::errc() || result.ptr != text->data() + text->size()) return std::nullopt;
    return value;
}

// The field that an earlier E57 had: "integer:0:255", "scaled:0:32767:3e-05:0", "single", "double".
std::optional<E57Field> KeptIntensity(const Keepsakes& keepsakes) {
    const std::string* const text = FindKeepsake(keepsakes, "e57-intensity");
    if (!text) return std::nullopt;
    if (*text == "single" || *text == "double") return E57Field::Real("intensity", *text == "single");
    std::vector<std::string> parts;
    for (size_t at = 0; at <= text->size();) {
        const size_t colon = std::min(text->find(':', at), text->size());
        parts.push_back(text->substr(at, colon - at));
        at = colon + 1;
    }
    const bool scaled = parts[0] == "scaled";
    if ((!scaled && parts[0] != "integer") || parts.size() != (scaled ? 5 : 3)) return std::nullopt;
    const auto least = WholeKeepsake({{"n", parts[1]}}, "n"), most = WholeKeepsake({{"n", parts[2]}}, "n");
    if (!least || !most || *least > *most) return std::nullopt;
    if (!scaled) return E57Field::Whole("intensity", *least, *most);
    const auto scale = SplitNumbers(parts[3]), offset = SplitNumbers(parts[4]);
    if (!scale || !offset || scale->size() != 1 || offset->size() != 1 || scale->front() == 0)
        return std::nullopt;
    return E57Field::Scaled("intensity", *least, *most, scale->front(), offset->front());
}

}  // namespace

FormatCapabilities E57Sink::Capabilities() {
    FormatCapabilities can;
    can.grid = can.noReturns = can.directions = can.pose = Fate::Kept;
    can.cartesian = can.spherical = Fate::Kept;
    can.intensity = can.intensityRange = can.color = Fate::Kept;
    can.intensityMarks = can.colorMarks = Fate::Kept;
    can.colorBits = 16;
    can.severalScans = Fate::Kept;
    can.images = Fate::Converted;
    can.name = can.text = can.uuid = can.dates = can.sensor = Fate::Kept;
    return can;
}

E57Sink::E57Sink(kxbase::IOutFileStream& stream, const SinkOptions& options)
    : m_pages(stream),
      m_options(options),
      m_data3D(E57Node::Vector("data3D")),
      m_images2D(E57Node::Vector("images2D")) {
    m_pages.Reserve(E57Header::kBytes);
}

size_t E57Sink::AddField(E57Field field) {
    m_scalings.emplace_back(field);
    m_fields.push_back(std::move(field));
    return m_fields.size() - 1;
}

void E57Sink::PlanCoordinates() {
    const FieldDescription& known = m_scan.coordinates;
    const bool same = m_spherical == (m_scan.coordinateKind == CoordinateKind::Spherical);
    // The scale of whole numbers, if that is how they go: the one they have, or one finer than they are
    // meant.
    const auto scaleOf = [&](const FieldDescription& field, double finer) -> std::optional<double> {
        if (m_options.coordinates == NumberKind::Single || m_options.coordinates == NumberKind::Double)
            return {};
        if (field.numbers == NumberKind::Double || field.numbers == NumberKind::Text || !field.precision ||
            !(*field.precision > 0)) {
            return {};
        }
        const bool multiples =
            same && (field.numbers == NumberKind::Scaled || field.numbers == NumberKind::Integer);
        return multiples ? *field.precision : *field.precision * finer;
    };
    const bool wantSingle =
        m_options.coordinates == NumberKind::Single ||
        (m_options.coordinates != NumberKind::Double && known.numbers == NumberKind::Single && same);
    auto scale = scaleOf(known, m_spherical ? 1.0 : kFiner);
    // Nothing says how large the numbers get, or they would not fit.
    const double greatest = known.maximum.value_or(0) * (1 + 1e-6);
    if (scale && (!(greatest > 0) || greatest / *scale > kMostSteps)) scale.reset();
    const auto steps = scale ? static_cast<int64_t>(std::ceil(greatest / *scale)) + 1 : 0;
    const auto add = [&](const char* name, bool onlyPositive) {
        if (scale) {
            AddField(E57Field::Scaled(name, onlyPositive ? 0 : -steps, steps, *scale));
        } else {
            AddField(E57Field::Real(name, wantSingle));
        }
    };
    if (scale && (!same || known.numbers != NumberKind::Scaled)) {
        m_coordinateLoss = "to whole multiples of " + ShortestText(*scale) + " m";
        // Ranges are stored at this very step; only their single-precision noise goes.
        if (same && m_spherical && known.numbers == NumberKind::Single) m_coordinateLoss.clear();
    } else if (!scale && wantSingle && known.numbers != NumberKind::Single) {
        m_coordinateLoss = "to single precision";
    } else if (!same) {
        m_coordinateLoss = m_spherical ? "Cartesian to spherical" : "spherical to Cartesian";
    }
    if (!m_spherical) {
        add("cartesianX", false);
        add("cartesianY", false);
        add("cartesianZ", false);
        return;
    }
    add("sphericalRange", true);
    const FieldDescription& angles = m_scan.angles;
    const bool whole = same ? scaleOf(angles, kFiner).has_value() : scale.has_value();
    const double angleScale =
        same && angles.numbers == NumberKind::Scaled && angles.precision ? *angles.precision : kAngleScale;
    const auto addAngle = [&](const char* name, double most) {
        if (whole) {
            const auto turn = static_cast<int64_t>(std::ceil(most / angleScale));
            AddField(E57Field::Scaled(name, -turn, turn, angleScale));
        } else {
            AddField(E57Field::Real(name, wantSingle));
        }
    };
    // Azimuths of a full turn from 0 are written too.
    addAngle("sphericalAzimuth", 2 * kPi);
    addAngle("sphericalElevation", kPi / 2);
}

void E57Sink::PlanIntensity() {
    if (!m_scan.intensity.present) return;
    const FieldDescription& known = m_scan.intensity;
    constexpr double kWholeLimit = 4e15;
    constexpr double kMostLevels = 4294967296.0;
    E57Field field = E57Field::Real("intensity", known.numbers == NumberKind::Single);
    const bool limited = known.minimum && known.maximum && *known.minimum <= *known.maximum;
    if (const auto kept = KeptIntensity(m_scan.keepsakes)) {
        field = *kept;
    } else if (known.numbers == NumberKind::Integer && limited && std::abs(*known.minimum) < kWholeLimit &&
               std::abs(*known.maximum) < kWholeLimit) {
        field = E57Field::Whole("intensity", static_cast<int64_t>(std::floor(*known.minimum)),
                                static_cast<int64_t>(std::ceil(*known.maximum)));
    } else if (known.numbers == NumberKind::Scaled && limited && known.precision && *known.precision > 0 &&
               (*known.maximum - *known.minimum) / *known.precision < kMostLevels) {
        const auto levels = std::round((*known.maximum - *known.minimum) / *known.precision);
        field =
            E57Field::Scaled("intensity", 0, static_cast<int64_t>(levels), *known.precision, *known.minimum);
    }
    m_intensity = AddField(field);
    if (FindKeepsake(m_scan.keepsakes, "e57-intensity-invalid")) {
        m_intensityInvalid = AddField(E57Field::Whole("isIntensityInvalid", 0, 1));
    }
}

void E57Sink::BeginScan(const ScanDescription& description) {
    m_scan = description;
    m_fields.clear();
    m_scalings.clear();
    m_state = m_row = m_column = m_intensity = m_intensityInvalid = m_colorInvalid = std::nullopt;
    m_color.reset();
    m_columnsDone = m_outside = m_intensityChanged = m_projectionsLost = 0;
    m_bounds = {};
    m_intensityBounds = {};
    m_emptyIntensity.reset();
    m_emptyDiffers = false;
    m_coordinateLoss.clear();
    m_poseError = 0;
    m_spherical = m_options.coordinateKind.value_or(description.coordinateKind) == CoordinateKind::Spherical;

    const std::string* const guid = FindKeepsake(m_scan.keepsakes, "e57-guid");
    m_guid = guid ? PercentDecode(*guid) : E57GuidText(m_scan.uuid.value_or(kxbase::UUID::Generate()));
    WriteImages();

    PlanCoordinates();
    if (m_options.noReturns) {
        m_state =
            AddField(E57Field::Whole(m_spherical ? "sphericalInvalidState" : "cartesianInvalidState", 0, 2));
    }
    if (m_scan.HasGrid()) {
        m_firstRow = WholeKeepsake(m_scan.keepsakes, "e57-first-row").value_or(0);
        m_firstColumn = WholeKeepsake(m_scan.keepsakes, "e57-first-column").value_or(0);
        const auto last = [](int64_t first, uint64_t count) {
            return static_cast<int64_t>(static_cast<uint64_t>(first) + count - 1);
        };
        // A first index so great that the last would not fit: count from 0.
        if (last(m_firstRow, m_scan.rows) < m_firstRow) m_firstRow = 0;
        if (last(m_firstColumn, m_scan.columns) < m_firstColumn) m_firstColumn = 0;
        m_row = AddField(E57Field::Whole("rowIndex", m_firstRow, last(m_firstRow, m_scan.rows)));
        m_column =
            AddField(E57Field::Whole("columnIndex", m_firstColumn, last(m_firstColumn, m_scan.columns)));
    }
    PlanIntensity();
    if (m_scan.color.present) {
        const int64_t full = m_scan.colorBits == 16 ? 65535 : 255;
        m_color.emplace();
        (*m_color)[0] = AddField(E57Field::Whole("colorRed", 0, full));
        (*m_color)[1] = AddField(E57Field::Whole("colorGreen", 0, full));
        (*m_color)[2] = AddField(E57Field::Whole("colorBlue", 0, full));
        if (FindKeepsake(m_scan.keepsakes, "e57-color-invalid")) {
            m_colorInvalid = AddField(E57Field::Whole("isColorInvalid", 0, 1));
        }
    }
    m_vector = std::make_unique<E57VectorWriter>(m_pages, m_fields);
}

void E57Sink::PutNumber(size_t field, const E57Scaling& scaling, double value) {
    if (m_fields[field].IsWhole()) {
        const int64_t raw = scaling.Raw(value);
        m_vector->PutWhole(field, std::clamp(raw, m_fields[field].minimum, m_fields[field].maximum));
    } else {
        m_vector->PutReal(field, value);
    }
}

// Whether the first three fields can hold the cell's coordinates.
bool E57Sink::Fits(const Cell& cell) const {
    const double values[] = {cell.x, cell.y, cell.z};
    for (size_t i = 0; i < 3; ++i) {
        if (!std::isfinite(values[i])) return false;
        if (!m_fields[i].IsWhole()) continue;
        const int64_t raw = m_scalings[i].Raw(values[i]);
        if (raw < m_fields[i].minimum || raw > m_fields[i].maximum) return false;
    }
    return true;
}

void E57Sink::PutIntensity(const Cell& cell) {
    double value = cell.intensity;
    const E57Field& field = m_fields[*m_intensity];
    const E57Scaling& scaling = m_scalings[*m_intensity];
    if (!std::isfinite(value)) value = 0;
    if (field.IsWhole()) {
        const int64_t raw = std::clamp(scaling.Raw(value), field.minimum, field.maximum);
        // Half a step is rounding; more means that the value did not fit.
        const double stored = scaling.Value(raw);
        const double step = field.kind == E57Field::Kind::Integer ? 0 : std::abs(field.scale);
        if (cell.valid && std::abs(stored - value) > 0.5000001 * step) ++m_intensityChanged;
        m_vector->PutWhole(*m_intensity, raw);
    } else {
        m_vector->PutReal(*m_intensity, value);
    }
    if (cell.valid && !cell.intensityInvalid) m_intensityBounds.Add(value);
    if (m_intensityInvalid) {
        m_vector->PutWhole(*m_intensityInvalid, cell.intensityInvalid ? 1 : 0);
    } else {
        m_marksLost += cell.valid && cell.intensityInvalid ? 1 : 0;
    }
}

void E57Sink::PutCell(Cell cell) {
    if (cell.valid && !Fits(cell)) {
        ++m_outside;
        cell.valid = cell.direction = false;
    }
    if (!cell.valid) {
        if (m_emptyIntensity && *m_emptyIntensity != cell.intensity) m_emptyDiffers = true;
        m_emptyIntensity = cell.intensity;
        if (!m_state) return;
        if (cell.direction && !Fits(cell)) cell.direction = false;
        if (!cell.direction) cell.x = cell.y = cell.z = 0;
    } else {
        ++m_points;
        m_bounds[0].Add(cell.x);
        m_bounds[1].Add(cell.y);
        m_bounds[2].Add(cell.z);
    }
    PutNumber(0, m_scalings[0], cell.x);
    PutNumber(1, m_scalings[1], cell.y);
    PutNumber(2, m_scalings[2], cell.z);
    if (m_state) m_vector->PutWhole(*m_state, cell.valid ? 0 : cell.direction ? 1 : 2);
    if (m_intensity) PutIntensity(cell);
    if (m_color) {
        const auto full = static_cast<int64_t>(m_fields[(*m_color)[0]].maximum);
        m_vector->PutWhole((*m_color)[0], std::min<int64_t>(cell.red, full));
        m_vector->PutWhole((*m_color)[1], std::min<int64_t>(cell.green, full));
        m_vector->PutWhole((*m_color)[2], std::min<int64_t>(cell.blue, full));
        if (m_colorInvalid) m_vector->PutWhole(*m_colorInvalid, cell.colorInvalid ? 1 : 0);
    }
}

void E57Sink::WriteColumns(std::span<const Cell> cells, uint64_t columns) {
    const bool given = m_scan.coordinateKind == CoordinateKind::Spherical;
    std::vector<Cell> turned;
    if (given != m_spherical) {
        turned.assign(cells.begin(), cells.end());
        m_spherical ? ToSpherical(turned) : ToCartesian(turned);
        cells = turned;
    }
    uint64_t row = 0;
    for (const Cell& cell : cells) {
        const bool dropped = !m_state && (!cell.valid || !Fits(cell));
        PutCell(cell);
        if (!dropped) {
            if (m_row) {
                m_vector->PutWhole(*m_row, m_firstRow + static_cast<int64_t>(row));
                m_vector->PutWhole(*m_column, m_firstColumn + static_cast<int64_t>(m_columnsDone));
            }
            m_vector->EndRecord();
        }
        if (m_scan.HasGrid() && ++row == m_scan.rows) {
            row = 0;
            ++m_columnsDone;
        }
    }
    static_cast<void>(columns);
}

void E57Sink::AddLosses(LossReport& losses) const {
    const auto add = [&](const char* field, Fate fate, std::string detail, std::string inverse = {}) {
        losses.Add({field, fate, std::move(detail), std::move(inverse)});
    };
    if (!m_coordinateLoss.empty()) add("coordinates", Fate::Converted, m_coordinateLoss);
    if (m_poseError > 1e-12) {
        add("pose", Fate::Converted,
            "its axes are no rotation; the quaternion is the nearest one, axes differ by up to " +
                ShortestText(m_poseError),
            "the element kx:registration holds the twelve numbers");
    }
    if (m_outside != 0) {
        add("points outside the stated range", Fate::Lost,
            std::to_string(m_outside) + " points lie farther out than the scan's limits say");
    }
    if (m_intensityChanged != 0) {
        add("intensity", Fate::Converted,
            std::to_string(m_intensityChanged) +
                " values do not fit the stated range or are no whole numbers");
    }
    if (m_marksLost != 0) {
        add("invalid intensities", Fate::Lost, std::to_string(m_marksLost) + " are written like any other");
    }
    if (m_projectionsLost != 0) {
        add("image projections", Fate::Lost,
            std::to_string(m_projectionsLost) + " images are written as visual references");
    }
}

void E57Sink::EndScan() {
    E57Node node = E57Node::Structure("vectorChild");
    E57Node points = m_vector->Finish();
    m_vector.reset();
    node.Add(E57Node::String("guid", m_guid));
    AddTexts(node);
    AddPose(node);
    AddBounds(node);
    node.Add(std::move(points));

    Keepsakes facts;
    for (const auto& [key, value] : m_scan.keepsakes) {
        if (!key.starts_with("e57-")) facts.emplace_back(key, value);
    }
    if (m_emptyIntensity && !m_emptyDiffers && *m_emptyIntensity != 0) {
        facts.emplace_back(kEmptyIntensityFact, ShortestText(*m_emptyIntensity));
    }
    if (!facts.empty()) {
        node.Add(E57Node::String(std::string(kE57OwnPrefix) + ":facts", JoinKeepsakes(facts)));
    }
    m_data3D.Add(std::move(node));
}

void E57Sink::Finish() {
    E57Node& root = m_document.root;
    root = E57Node::Structure("e57Root");
    m_document.extensions.emplace_back(kE57OwnPrefix, kE57OwnNamespace);
    root.Add(E57Node::String("formatName", "ASTM E57 3D Imaging Data File"));
    root.Add(E57Node::String("guid", E57GuidText(kxbase::UUID::Generate())));
    root.Add(E57Node::Integer("versionMajor", 1));
    root.Add(E57Node::Integer("versionMinor", 0));
    root.Add(E57Node::String("e57LibraryVersion", "kxio"));
    if (const std::string* const system = FindKeepsake(m_scan.keepsakes, "e57-coordinate-metadata")) {
        root.Add(E57Node::String("coordinateMetadata", PercentDecode(*system)));
    }
    root.Add(DateNode("creationDateTime", GpsOfDate(kxbase::Date::Now()), false));
    root.Add(std::move(m_data3D));
    root.Add(std::move(m_images2D));
    const std::string xml = FormatE57Xml(m_document);

    m_pages.Align(4);
    E57Header header;
    header.xmlOffset = E57Physical(m_pages.Position());
    header.xmlLength = xml.size();
    m_pages.Append({reinterpret_cast<const unsigned char*>(xml.data()), xml.size()});
    header.physicalLength = m_pages.Finish();
    m_pages.Fill(0, header.Encode());
}

}  // namespace kxexchange
