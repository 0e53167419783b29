// SPDX-License-Identifier: MIT
#include "kxexchange/ExportScan.h"

#include <algorithm>
#include <cmath>

#include "GridCells.h"
#include "Paths.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxOutFile.h"
#include "kxio/QSNScanReader.h"

namespace kxexchange {

namespace {

constexpr int kMostDecimals = 12;
constexpr int kMaxThreads = 1024;
constexpr double kMetresPerMillimetre = 1e-3;
// Scans that do not say how fine their ranges are.
constexpr double kUsualRangeScale = 0.1;

void CheckOptions(const ExportOptions& options) {
    kxbase::ErrorContext context;
    if (options.sink.decimals != -1 && (options.sink.decimals < 1 || options.sink.decimals > kMostDecimals)) {
        context.field = "decimals";
        context.detail = "found " + std::to_string(options.sink.decimals) +
                         ", expected -1 (default) or 1 to " + std::to_string(kMostDecimals);
    } else if (options.sink.threads < 0 || options.sink.threads > kMaxThreads) {
        context.field = "threads";
        context.detail = "found " + std::to_string(options.sink.threads) + ", expected 0 (all cores) to " +
                         std::to_string(kMaxThreads);
    } else {
        return;
    }
    throw kxbase::KXBadInputException("Export option is not acceptable", context);
}

template <class Exception>
[[noreturn]] void Refuse(const std::string& detail) {
    kxbase::ErrorContext context;
    context.detail = detail;
    throw Exception("Scan cannot be exported", context);
}

LayoutMessage FindLayout(const kxio::QSNScanReader& reader, std::vector<std::string>& warnings) {
    const kxbase::GridTopology& grid = reader.GetScanInformation().grid;
    bool misfit = false;
    for (const std::wstring& text : reader.GetMessageList()) {
        if (auto message = LayoutMessage::Parse(kxbase::Encode_UTF8(text))) {
            if (GridCells::Fits(message->layout, grid)) return std::move(*message);
            misfit = true;
        }
    }
    if (misfit)
        warnings.push_back("The stored layout does not fit the grid; cells are in the grid's own order");
    return GridCells::PlainLayout(grid);
}

void CheckRegistration(const kxbase::RegistrationInformation& registration) {
    const double* const values = registration.Values();
    const double* const end = values + kxbase::RegistrationInformation::ValueCount;
    if (std::all_of(values, end, [](double value) { return std::isfinite(value); })) return;
    Refuse<kxbase::KXBadInputException>("the registration holds values that are no numbers");
}

void Transform(const kxbase::RegistrationInformation& registration, std::vector<Cell>& cells) {
    const double* const m = registration.Values();
    for (Cell& cell : cells) {
        if (!cell.valid) continue;
        const double x = cell.x, y = cell.y, z = cell.z;
        cell.x = x * m[0] + y * m[3] + z * m[6] + m[9];
        cell.y = x * m[1] + y * m[4] + z * m[7] + m[10];
        cell.z = x * m[2] + y * m[5] + z * m[8] + m[11];
    }
}

// Greatest coordinate that may appear; unknown limits count as small.
double GreatestCoordinate(const kxio::QSNScanReader& reader,
                          const kxbase::RegistrationInformation& registration, bool apply) {
    double greatest = 0;
    const auto limits = kxio::ScanAccess(reader).ReadLimits();
    if (limits) {
        for (const kxio::MinMaxPair& pair : limits->patches) {
            greatest = std::max(greatest, static_cast<double>(pair.maximum) * 1e-3);
        }
    }
    if (apply) {
        const kxmath::Vector3 translation = registration.GetTranslation();
        greatest += std::max({std::abs(translation.x), std::abs(translation.y), std::abs(translation.z)});
    }
    return greatest;
}

}  // namespace

ExportReport ExportScan(const kxio::QSNScanReader& reader, const std::filesystem::path& outPath,
                        std::string_view formatName, const ExportOptions& options, ProgressSink* progress) {
    CheckOptions(options);
    const SinkFormat* const format = FindSinkFormat(formatName);
    if (!format) Refuse<kxbase::KXBadInputException>("no format is called " + std::string(formatName));
    const kxio::ScanProperties& properties = reader.GetScanInformation();
    if (properties.grid.PatchCount64() == 0) Refuse<kxbase::KXBadInputException>("the scan has no grid");
    for (const auto component : {kxbase::Range, kxbase::VerticalAngle, kxbase::HorizontalAngle}) {
        if (reader.IsComponentAvailable(component)) continue;
        Refuse<kxbase::KXComponentNotInFileException>("the scan has no " +
                                                      kxbase::ComponentToString(component));
    }

    ExportReport report;
    const bool holdsPose = format->capabilities.pose == Fate::Kept;
    report.registrationApplied = options.registration == RegistrationUse::Apply ||
                                 (options.registration == RegistrationUse::Default && !holdsPose);
    if (report.registrationApplied || holdsPose) CheckRegistration(properties.registration);
    LayoutMessage message = FindLayout(reader, report.warnings);

    ScanDescription description;
    description.columns = message.layout.columns;
    description.rows = message.layout.rows;
    description.points = description.columns * description.rows;
    if (!report.registrationApplied) {
        description.pose = properties.registration;
        description.keepsakes = message.keepsakes;
    }
    const double rangeScale =
        properties.componentValue[0] > 0 ? properties.componentValue[0] : kUsualRangeScale;
    description.coordinates.present = true;
    description.coordinates.unit = "m";
    description.coordinates.precision = rangeScale * kMetresPerMillimetre;
    description.coordinates.maximum =
        GreatestCoordinate(reader, properties.registration, report.registrationApplied);
    if (message.intensity.kind == IntensityMapping::Kind::Unit ||
        message.intensity.kind == IntensityMapping::Kind::None) {
        description.intensity.unit = "1";
        description.intensity.minimum = 0;
        description.intensity.maximum = 1;
        description.intensity.precision = 1.0 / 65535;
        description.intensity.numbers = NumberKind::Scaled;
    }

    GridCells grid(reader, std::move(message), static_cast<unsigned>(options.sink.threads));
    report.intensity = description.intensity.present = options.intensity && grid.HasIntensity();
    report.color = description.color.present = options.color && grid.HasColor();
    report.losses = ForeseeLosses(description, format->capabilities);
    report.columns = description.columns;
    report.rows = description.rows;

    PendingFile file(outPath);
    {
        kxbase::kxOutFile stream(WidePath(file.Path()));
        if (!stream.IsOpen()) {
            kxbase::ErrorContext context;
            context.file = PathText(file.Path());
            throw kxbase::KXFileNotOpenException("Cannot open file", context);
        }
        const std::unique_ptr<ScanSink> sink = format->make(stream, options.sink);
        sink->BeginScan(description);
        std::vector<Cell> cells;
        while (const uint64_t columns = grid.Read(cells)) {
            if (report.registrationApplied) Transform(properties.registration, cells);
            sink->WriteColumns(cells, columns);
            report.cells += cells.size();
            if (progress && !progress->Update(report.cells, description.points, sink->BytesWritten())) {
                kxbase::ErrorContext context;
                context.file = PathText(outPath);
                throw CancelledException("Export was cancelled", context);
            }
        }
        if (grid.UnusableReturns() != 0) {
            report.warnings.push_back(std::to_string(grid.UnusableReturns()) +
                                      " returns have no usable position; they are left out");
        }
        sink->EndScan();
        sink->AddLosses(report.losses);
        sink->Finish();
        stream.Close();
        report.points = sink->PointsWritten();
        report.bytesWritten = sink->BytesWritten();
    }
    file.Commit();
    return report;
}

ExportReport ExportScan(const std::filesystem::path& scanPath, const std::filesystem::path& outPath,
                        std::string_view formatName, const ExportOptions& options, ProgressSink* progress) {
    const kxio::QSNScanReader reader(WidePath(scanPath));
    return ExportScan(reader, outPath, formatName, options, progress);
}

}  // namespace kxexchange
