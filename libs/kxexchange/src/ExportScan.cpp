// SPDX-License-Identifier: MIT
#include "kxexchange/ExportScan.h"

#include <algorithm>
#include <cmath>

#include "CellLines.h"
#include "ColumnPump.h"
#include "Paths.h"
#include "QsnSource.h"
#include "kxbase/kxOutFile.h"
#include "kxio/QSNScanReader.h"

namespace kxexchange {

namespace {

constexpr int kMostDecimals = 12;
constexpr int kMaxThreads = 1024;

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

[[noreturn]] void Refuse(const std::string& file, const std::string& detail) {
    kxbase::ErrorContext context;
    context.file = file;
    context.detail = detail;
    throw kxbase::KXBadInputException("Scan cannot be exported", context);
}

void Transform(const kxbase::RegistrationInformation& registration, std::span<Cell> cells) {
    const double* const m = registration.Values();
    for (Cell& cell : cells) {
        if (!cell.valid && !cell.direction) continue;
        // A direction has no place.
        const double place = cell.valid ? 1 : 0;
        const double x = cell.x, y = cell.y, z = cell.z;
        cell.x = x * m[0] + y * m[3] + z * m[6] + place * m[9];
        cell.y = x * m[1] + y * m[4] + z * m[7] + place * m[10];
        cell.z = x * m[2] + y * m[5] + z * m[8] + place * m[11];
    }
}

void ReduceColors(std::span<Cell> cells) {
    const auto reduce = [](uint16_t value) { return static_cast<uint16_t>((value + 128u) / 257u); };
    for (Cell& cell : cells) {
        cell.red = reduce(cell.red);
        cell.green = reduce(cell.green);
        cell.blue = reduce(cell.blue);
    }
}

// What has to be done to a source's cells before the sink gets them.
struct Treatment {
    bool applyPose = false;
    bool toCartesian = false;
    bool reduceColors = false;
    kxbase::RegistrationInformation pose;

    void Apply(std::span<Cell> cells) const {
        if (toCartesian) ToCartesian(cells);
        if (applyPose) Transform(pose, cells);
        if (reduceColors) ReduceColors(cells);
    }
};

}  // namespace

struct ScanFileExport::Impl {
    Impl(const std::filesystem::path& path, const SinkFormat& wanted, const ExportOptions& given)
        : outPath(path), format(wanted), options(given), file(path), stream(WidePath(file.Path())) {
        if (!stream.IsOpen()) {
            kxbase::ErrorContext context;
            context.file = PathText(file.Path());
            throw kxbase::KXFileNotOpenException("Cannot open file", context);
        }
        SinkOptions sinkOptions = options.sink;
        sinkOptions.gzip = sinkOptions.gzip || LowerCase(PathText(path)).ends_with(".gz");
        sink = format.make(stream, sinkOptions);
    }

    bool AppliesPose() const {
        return options.registration == RegistrationUse::Apply ||
               (options.registration == RegistrationUse::Default &&
                format.capabilities.pose == Fate::Converted);
    }
    Treatment Prepare(const std::string& name, ScanDescription& description, ExportReport& report) const;
    void Pump(ScanSource& source, const ScanDescription& description, const Treatment& treatment,
              ExportReport& report, ProgressSink* progress);

    std::filesystem::path outPath;
    const SinkFormat& format;
    ExportOptions options;
    PendingFile file;
    kxbase::kxOutFile stream;
    std::unique_ptr<ScanSink> sink;
    uint64_t scans = 0;
};

// Turns the source's description into the one the sink is given, and says what is lost on the way.
Treatment ScanFileExport::Impl::Prepare(const std::string& name, ScanDescription& description,
                                        ExportReport& report) const {
    const FormatCapabilities& can = format.capabilities;
    if (scans != 0 && can.severalScans == Fate::Lost)
        Refuse(name, std::string(format.name) + " files hold one scan");
    Treatment treatment;
    treatment.pose = description.pose;
    treatment.applyPose = AppliesPose();
    const double* const values = description.pose.Values();
    const bool finite = std::all_of(values, values + kxbase::RegistrationInformation::ValueCount,
                                    [](double value) { return std::isfinite(value); });
    if (!finite && (treatment.applyPose || can.pose == Fate::Kept))
        Refuse(name, "the registration holds values that are no numbers");

    const bool hadIntensity = description.intensity.present, hadColor = description.color.present;
    description.intensity.present = hadIntensity && options.intensity;
    description.color.present = hadColor && options.color;
    report.losses = ForeseeLosses(description, can);
    const bool identity = description.pose == kxbase::RegistrationInformation();
    if (treatment.applyPose && !identity)
        report.losses.Add({"pose", Fate::Converted, "applied to the points", {}});
    if (!treatment.applyPose && !identity && can.pose != Fate::Kept)
        report.losses.Add({"pose", Fate::Lost, "the points stay in the instrument's frame", {}});
    if (hadIntensity && !options.intensity)
        report.losses.Add({"intensity", Fate::Lost, "left out as asked for", {}});
    if (hadColor && !options.color) report.losses.Add({"colour", Fate::Lost, "left out as asked for", {}});
    if (options.strict) report.losses.RequireNoLoss(name);

    const bool spherical = description.coordinateKind == CoordinateKind::Spherical;
    treatment.toCartesian = spherical && (can.spherical != Fate::Kept || treatment.applyPose);
    treatment.reduceColors = description.color.present && description.colorBits > can.colorBits;
    if (treatment.toCartesian) {
        description.coordinateKind = CoordinateKind::Cartesian;
        description.angles = {};
    }
    if (treatment.applyPose) {
        if (!identity && description.coordinates.maximum) {
            const kxmath::Vector3 move = description.pose.GetTranslation();
            *description.coordinates.maximum +=
                std::max({std::abs(move.x), std::abs(move.y), std::abs(move.z)});
        }
        description.pose = {};
        description.keepsakes.clear();
    }
    if (treatment.reduceColors) {
        description.colorBits = 8;
        description.color.maximum = 255;
    }
    return treatment;
}

void ScanFileExport::Impl::Pump(ScanSource& source, const ScanDescription& description,
                                const Treatment& treatment, ExportReport& report, ProgressSink* progress) {
    const uint64_t pointsBefore = sink->PointsWritten(), bytesBefore = sink->BytesWritten();
    sink->BeginScan(description);
    uint64_t columnsDone = 0, invalidIntensities = 0, invalidColors = 0;
    const auto prepare = [&](std::vector<Cell>& cells) {
        treatment.Apply(cells);
        for (const Cell& cell : cells) {
            invalidIntensities += cell.valid && cell.intensityInvalid ? 1 : 0;
            invalidColors += cell.valid && cell.colorInvalid ? 1 : 0;
        }
    };
    const auto write = [&](std::span<const Cell> cells, uint64_t columns) {
        sink->WriteColumns(cells, columns);
        columnsDone += columns;
        report.cells += cells.size();
        if (progress && !progress->Update(report.cells, std::max(report.cells, description.points),
                                          sink->BytesWritten())) {
            kxbase::ErrorContext context;
            context.file = PathText(outPath);
            throw CancelledException("Export was cancelled", context);
        }
    };
    const bool oneThread = ThreadCount(options.sink.threads) == 1;
    PumpColumns(source, oneThread ? Reading::InTheCaller : Reading::Ahead, prepare, write);
    if (description.HasGrid() && columnsDone != description.columns) {
        kxbase::ErrorContext context;
        context.file = source.Name();
        context.detail = "found " + std::to_string(columnsDone) + " columns, expected " +
                         std::to_string(description.columns);
        throw SourceFormatException("Scan ends early", context);
    }
    sink->EndScan();
    const FormatCapabilities& can = format.capabilities;
    const auto lose = [&](const char* field, uint64_t count) {
        report.losses.Add({field, Fate::Lost, std::to_string(count) + " are written like any other", {}});
    };
    if (invalidIntensities != 0 && description.intensity.present && can.intensityMarks == Fate::Lost)
        lose("invalid intensities", invalidIntensities);
    if (invalidColors != 0 && description.color.present && can.colorMarks == Fate::Lost)
        lose("invalid colours", invalidColors);
    report.points = sink->PointsWritten() - pointsBefore;
    report.bytesWritten = sink->BytesWritten() - bytesBefore;
}

ScanFileExport::ScanFileExport(const std::filesystem::path& outPath, const SinkFormat& format,
                               const ExportOptions& options) {
    CheckOptions(options);
    m_impl = std::make_unique<Impl>(outPath, format, options);
}

ScanFileExport::~ScanFileExport() = default;

CoordinateKind ScanFileExport::WantedCoordinates(const SinkFormat& format, const ExportOptions& options) {
    const bool takesPose = format.capabilities.pose == Fate::Converted;
    const bool applies = options.registration == RegistrationUse::Apply ||
                         (options.registration == RegistrationUse::Default && takesPose);
    if (applies || format.capabilities.spherical != Fate::Kept) return CoordinateKind::Cartesian;
    return options.sink.coordinateKind.value_or(CoordinateKind::Spherical);
}

ExportReport ScanFileExport::Add(ScanSource& source, uint64_t scanIndex, ProgressSink* progress) {
    ScanDescription description = source.OpenScan(scanIndex);
    ExportReport report;
    report.registrationApplied = m_impl->AppliesPose();
    const Treatment treatment = m_impl->Prepare(source.Name(), description, report);
    report.name = description.name;
    report.columns = description.columns;
    report.rows = description.rows;
    report.intensity = description.intensity.present;
    report.color = description.color.present;
    m_impl->Pump(source, description, treatment, report, progress);
    m_impl->sink->AddLosses(report.losses);
    if (m_impl->options.strict) report.losses.RequireNoLoss(source.Name());
    report.warnings = source.Warnings();
    ++m_impl->scans;
    return report;
}

uint64_t ScanFileExport::Commit() {
    m_impl->sink->Finish();
    m_impl->stream.Close();
    const uint64_t bytes = m_impl->sink->BytesWritten();
    m_impl->file.Commit();
    return bytes;
}

namespace {

// `name`: of the scan, for messages; may be empty.
ExportReport ExportOpenScan(const kxio::QSNScanReader& reader, const std::string& name,
                            const std::filesystem::path& outPath, std::string_view formatName,
                            const ExportOptions& options, ProgressSink* progress) {
    CheckOptions(options);
    const SinkFormat* const format = FindSinkFormat(formatName);
    if (!format) Refuse({}, "no format is called " + std::string(formatName));
    SourceOptions sourceOptions;
    sourceOptions.threads = options.sink.threads;
    sourceOptions.coordinateKind = ScanFileExport::WantedCoordinates(*format, options);
    QsnSource source(reader, name, sourceOptions);
    source.OpenScan(0);  // a scan that cannot be exported is refused before a file is made
    ScanFileExport file(outPath, *format, options);
    ExportReport report = file.Add(source, 0, progress);
    report.bytesWritten = file.Commit();
    return report;
}

}  // namespace

ExportReport ExportScan(const kxio::QSNScanReader& reader, const std::filesystem::path& outPath,
                        std::string_view format, const ExportOptions& options, ProgressSink* progress) {
    return ExportOpenScan(reader, {}, outPath, format, options, progress);
}

ExportReport ExportScan(const std::filesystem::path& scanPath, const std::filesystem::path& outPath,
                        std::string_view format, const ExportOptions& options, ProgressSink* progress) {
    const kxio::QSNScanReader reader(WidePath(scanPath));
    return ExportOpenScan(reader, PathText(scanPath), outPath, format, options, progress);
}

}  // namespace kxexchange
