// SPDX-License-Identifier: MIT
#include "QsnSource.h"

#include <algorithm>
#include <cmath>

#include "SourceFacts.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxio/ScanAccess.h"

namespace kxexchange {

namespace {

constexpr double kMetresPerMillimetre = 1e-3;
// Scans that do not say how fine their ranges are.
constexpr double kUsualRangeScale = 0.1;
constexpr std::string_view kImageKey = "image";

template <class Exception>
[[noreturn]] void Refuse(const std::string& file, const std::string& detail) {
    kxbase::ErrorContext context;
    context.file = file;
    context.detail = detail;
    throw Exception("Scan cannot be exported", context);
}

// Metres; unknown limits count as small.
double GreatestRange(const kxio::QSNScanReader& reader) {
    const auto limits = kxio::ScanAccess(reader).ReadLimits();
    double greatest = 0;
    if (limits) {
        for (const kxio::MinMaxPair& pair : limits->patches)
            greatest = std::max(greatest, static_cast<double>(pair.maximum) * kMetresPerMillimetre);
    }
    return greatest;
}

}  // namespace

FormatCapabilities QsnSource::Capabilities() {
    FormatCapabilities can;
    can.grid = can.noReturns = can.pose = can.color = can.classes = Fate::Kept;
    can.cartesian = can.spherical = can.directions = Fate::Converted;
    can.intensity = can.intensityRange = Fate::Kept;
    can.intensityBits = 16;
    can.images = Fate::Converted;
    can.name = can.text = can.uuid = can.dates = can.sensor = Fate::Kept;
    return can;
}

QsnSource::QsnSource(std::unique_ptr<kxbase::IInFileStream> stream, std::string name,
                     const SourceOptions& options)
    : m_stream(std::move(stream)),
      m_owned(std::make_unique<kxio::QSNScanReader>(m_stream.get())),
      m_reader(*m_owned),
      m_name(std::move(name)),
      m_options(options) {}

QsnSource::QsnSource(const kxio::QSNScanReader& reader, std::string name, const SourceOptions& options)
    : m_reader(reader), m_name(std::move(name)), m_options(options) {}

void QsnSource::RequireScan() const {
    if (m_reader.GetScanInformation().grid.PatchCount64() == 0)
        Refuse<kxbase::KXBadInputException>(m_name, "the scan has no grid");
    for (const auto component : {kxbase::Range, kxbase::VerticalAngle, kxbase::HorizontalAngle}) {
        if (m_reader.IsComponentAvailable(component)) continue;
        Refuse<kxbase::KXComponentNotInFileException>(
            m_name, "the scan has no " + kxbase::ComponentToString(component));
    }
}

LayoutMessage QsnSource::FindLayout() {
    const kxbase::GridTopology& grid = m_reader.GetScanInformation().grid;
    bool misfit = false;
    for (const std::wstring& text : m_reader.GetMessageList()) {
        if (auto message = LayoutMessage::Parse(kxbase::Encode_UTF8(text))) {
            if (GridCells::Fits(message->layout, grid)) return std::move(*message);
            misfit = true;
        }
    }
    if (misfit)
        m_warnings.push_back("The stored layout does not fit the grid; cells are in the grid's own order");
    return GridCells::PlainLayout(grid);
}

void QsnSource::DescribeIntensity(const LayoutMessage& message, ScanDescription& description) const {
    FieldDescription& intensity = description.intensity;
    const auto declare = [&](double least, double greatest) {
        if (intensity.minimum && intensity.maximum) return;
        intensity.minimum = least;
        intensity.maximum = greatest;
        intensity.assumedRange = true;
    };
    switch (message.intensity.kind) {
        case IntensityMapping::Kind::None:
        case IntensityMapping::Kind::Unit:
            intensity.unit = "1";
            intensity.numbers = NumberKind::Scaled;
            intensity.precision = 1.0 / (message.intensity.levels != 0 ? message.intensity.levels : 65535);
            declare(0, 1);
            break;
        case IntensityMapping::Kind::Integer:
            intensity.numbers = NumberKind::Integer;
            intensity.precision = 1;
            declare(message.intensity.Restore(0), message.intensity.Restore(65535));
            break;
        case IntensityMapping::Kind::Real:
            intensity.numbers = NumberKind::Double;
            declare(message.intensity.Restore(0), message.intensity.Restore(65535));
            break;
    }
}

void QsnSource::Describe(LayoutMessage& message, ScanDescription& description) const {
    const kxio::ScanProperties& properties = m_reader.GetScanInformation();
    TakeFacts(message, description);
    if (description.sensor.model.empty())
        description.sensor.model = kxbase::Encode_UTF8(properties.scannerModel);
    if (!properties.scanUUID.IsZero()) description.uuid = properties.scanUUID;
    description.uuidMade = std::erase(message.keepsakes, kUuidMade) != 0;
    if (!properties.parentUUID.IsZero()) description.original = properties.parentUUID;
    if (properties.dateStatus != 1) {
        description.acquisitionStart = properties.firstDate;
        description.acquisitionEnd = properties.secondDate;
    }
    description.columns = message.layout.columns;
    description.rows = message.layout.rows;
    description.points = description.columns * description.rows;
    description.directions = message.directions;
    description.coordinateKind = m_options.coordinateKind.value_or(CoordinateKind::Spherical);
    description.pose = properties.registration;

    const std::array<double, 3>& scales = properties.componentValue;
    description.coordinates.present = true;
    description.coordinates.unit = "m";
    description.coordinates.precision = (scales[0] > 0 ? scales[0] : kUsualRangeScale) * kMetresPerMillimetre;
    description.coordinates.maximum = GreatestRange(m_reader);
    description.coordinates.numbers = NumberKind::Single;
    if (description.coordinateKind == CoordinateKind::Spherical) {
        description.angles.present = true;
        description.angles.unit = "rad";
        description.angles.precision = std::max(scales[1], scales[2]);
        description.angles.numbers = NumberKind::Single;
    }
    DescribeIntensity(message, description);
    description.color.minimum = 0;
    description.color.maximum = 255;
    description.color.precision = 1;
    description.color.numbers = description.classification.numbers = NumberKind::Integer;

    std::erase_if(message.keepsakes, [&](const auto& keepsake) {
        if (keepsake.first != kImageKey) return false;
        std::vector<unsigned char> bytes;
        if (!m_reader.GetThumbnailJPEG(bytes)) return true;
        ImageDescription image;
        image.name = PercentDecode(keepsake.second);
        image.byteCount = bytes.size();
        image.load = [this] {
            std::vector<unsigned char> jpeg;
            m_reader.GetThumbnailJPEG(jpeg);
            return jpeg;
        };
        description.images.push_back(std::move(image));
        return true;
    });
    description.keepsakes = message.keepsakes;
}

ScanDescription QsnSource::OpenScan(uint64_t index) {
    m_bytesBefore = BytesRead();
    m_columnsRead = 0;
    m_warnings.clear();
    m_grid.reset();
    if (index != 0) {
        kxbase::ErrorContext context;
        context.file = m_name;
        context.detail = "asked for scan " + std::to_string(index + 1) + ", the file holds 1";
        throw kxbase::KXIndexOutOfBoundsException("No such scan in the file", context);
    }
    RequireScan();
    LayoutMessage message = FindLayout();
    ScanDescription description;
    Describe(message, description);
    m_columns = description.columns;
    m_intensity = message.intensity;
    m_grid = std::make_unique<GridCells>(
        m_reader, std::move(message), static_cast<unsigned>(m_options.threads), description.coordinateKind);
    description.intensity.present = m_grid->HasIntensity();
    description.color.present = m_grid->HasColor();
    description.classification.present = m_grid->HasClasses();
    return description;
}

uint64_t QsnSource::ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) {
    if (!m_grid || maxColumns == 0) {
        cells.clear();
        return 0;
    }
    const uint64_t columns = m_grid->Read(maxColumns, cells);
    m_columnsRead += columns;
    return columns;
}

std::vector<std::string> QsnSource::Warnings() const {
    std::vector<std::string> warnings = m_warnings;
    if (m_grid && m_grid->UnusableReturns() != 0) {
        warnings.push_back(std::to_string(m_grid->UnusableReturns()) +
                           " returns have no usable position; they are left out");
    }
    if (m_grid && m_grid->LargeClasses() != 0) {
        warnings.push_back(std::to_string(m_grid->LargeClasses()) +
                           " class numbers above 255 are given as 255");
    }
    return warnings;
}

uint64_t QsnSource::FileBytes() const {
    return kxio::ScanAccess(m_reader).GetFileSize();
}

// The reader does not count; the share of the columns is the share of the file.
uint64_t QsnSource::BytesRead() const {
    if (m_columns == 0) return m_bytesBefore;
    return m_bytesBefore +
           static_cast<uint64_t>(static_cast<double>(FileBytes()) * static_cast<double>(m_columnsRead) /
                                 static_cast<double>(m_columns));
}

}  // namespace kxexchange
