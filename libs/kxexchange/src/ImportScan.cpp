// SPDX-License-Identifier: MIT
#include "kxexchange/ImportScan.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <thread>

#include "AngleSettling.h"
#include "CellLines.h"
#include "Handover.h"
#include "ImportLosses.h"
#include "ImportPlan.h"
#include "IntakeThreads.h"
#include "PatchAssembler.h"
#include "Paths.h"
#include "ScanSurvey.h"
#include "SourceFacts.h"
#include "TextFormat.h"
#include "kxbase/UTF8.h"
#include "kxcodecs/JPEG.h"
#include "kxexchange/MakeCodec.h"
#include "kxio/QSNScanWriter.h"

namespace kxexchange {

namespace {

using kxbase::ComponentType;

// Columns read at once; the source bounds the cells.
constexpr uint64_t kColumnsPerRead = 64;
// Complete columns of patches that may wait for the writer.
constexpr size_t kWaitingColumns = 1;
constexpr std::chrono::milliseconds kProgressInterval{100};
// A bound above this makes a warning: the points lie too far out for the scan to be one of an instrument.
constexpr double kNotableBound = 0.01;

// A larger picture is no thumbnail.
constexpr uint64_t kMostThumbnailBytes = uint64_t{4} << 20;

constexpr uint64_t kMostThumbnailPixels = uint64_t{1} << 24;

bool IsThumbnail(const std::vector<unsigned char>& bytes) {
    unsigned width = 0, height = 0;
    if (bytes.size() > kMostThumbnailBytes ||
        !kxcodecs::JPEG::ReadSize(bytes.data(), bytes.size(), width, height) ||
        uint64_t{width} * height > kMostThumbnailPixels) {
        return false;
    }
    unsigned char* pixels = nullptr;
    uint64_t count = 0;
    const bool whole = kxcodecs::JPEG::Decode(bytes.data(), bytes.size(), pixels, count, width, height);
    kxcodecs::JPEG::Free(pixels);
    return whole;
}

// Cells handled, shared between the thread that parses and the one that reports.
struct Counters {
    std::atomic<uint64_t> cells{0};
    std::atomic<uint64_t> bytes{0};
};

class Import {
public:
    Import(ScanSource& source, uint64_t scanIndex, const ImportOptions& options, ProgressSink* progress)
        : m_source(source), m_scanIndex(scanIndex), m_options(options), m_progress(progress) {}

    ImportReport Run(const std::filesystem::path& outPath) {
        m_bytesBefore = m_source.BytesRead();
        Survey();
        Plan();
        PendingFile file(outPath);
        try {
            Write(file.Path());
        } catch (...) {
            m_writer.reset();  // closes the file before it is removed
            throw;
        }
        m_writer.reset();
        Report();
        m_report.bytesWritten = std::filesystem::file_size(file.Path());
        file.Commit();
        return std::move(m_report);
    }

private:
    void Survey();
    void Plan();
    void KeepImage();
    void Write(const std::filesystem::path& path);
    void WriteProperties();
    void ReadAll(PatchAssembler& assembler, const PatchAssembler::Done& done,
                 const std::function<void()>& onBlock);
    void AddPatches(PatchColumn& column);
    void SettleColumn(PatchColumn& column, uint32_t patches, size_t area) const;
    void CheckColumns(uint64_t columns) const;
    void Update();
    void Report();

    ScanSource& m_source;
    const uint64_t m_scanIndex;
    const ImportOptions& m_options;
    ProgressSink* const m_progress;
    Counters m_counters;
    uint64_t m_bytesBefore = 0;
    ScanDescription m_description;
    std::unique_ptr<ScanSurvey> m_survey;
    LayoutMessage m_message;
    StorageRules m_rules;
    std::optional<std::vector<unsigned char>> m_thumbnail;
    std::unique_ptr<PatchAssembler> m_assembler;
    std::unique_ptr<kxcodecs::QKXChunkCodec> m_rangeCodec, m_angleCodec, m_intensityCodec, m_colorCodec;
    std::unique_ptr<kxio::QSNScanWriter> m_writer;
    ImportReport m_report;
};

void Import::Update() {
    if (!m_progress) return;
    const uint64_t total = 2 * m_description.columns * m_description.rows;
    if (!m_progress->Update(m_counters.cells, total, m_counters.bytes)) {
        kxbase::ErrorContext context;
        context.file = m_source.Name();
        throw CancelledException("Import was cancelled", context);
    }
}

void Import::CheckColumns(uint64_t columns) const {
    if (columns == m_description.columns) return;
    kxbase::ErrorContext context;
    context.file = m_source.Name();
    context.detail =
        "found " + std::to_string(columns) + " columns, expected " + std::to_string(m_description.columns);
    throw SourceFormatException("Scan ends early", context);
}

// First pass.
void Import::Survey() {
    m_description = m_source.OpenScan(m_scanIndex);
    if (!m_description.HasGrid()) {
        kxbase::ErrorContext context;
        context.file = m_source.Name();
        context.detail = "the scan has no columns and rows (--regrid seeks them)";
        throw kxbase::KXBadInputException("Scan has no grid", context);
    }
    m_survey = std::make_unique<ScanSurvey>(m_description.rows, m_description.coordinateKind);
    std::vector<Cell> cells;
    uint64_t columns = 0;
    while (const uint64_t read = m_source.ReadColumns(kColumnsPerRead, cells)) {
        columns += read;
        m_survey->Add(cells);
        m_counters.cells += cells.size();
        m_counters.bytes = m_source.BytesRead() - m_bytesBefore;
        Update();
    }
    CheckColumns(columns);
}

void Import::Plan() {
    const FittedGrid fitted = m_survey->Grid();
    m_report.grid = MakeTopology(fitted, m_options);
    m_report.layout = fitted.layout;
    m_report.cells = m_description.columns * m_description.rows;
    m_report.returns = m_survey->Returns();
    m_report.greatestRange = m_survey->GreatestRange();
    m_report.precision.rangeScale = FittingRangeScale(m_options.rangeScale, m_report.greatestRange);
    m_report.precision.verticalScale = m_options.verticalScale;
    m_report.precision.horizontalScale = m_options.horizontalScale;
    const FieldDescription& intensity = m_description.intensity;
    if (m_options.intensity && intensity.present) {
        const bool steps = intensity.numbers == NumberKind::Scaled && intensity.precision;
        m_report.intensity = m_survey->Intensity(steps ? *intensity.precision : 0);
    }

    m_rules.rangeScale = m_report.precision.rangeScale;
    m_rules.intensity = m_report.intensity;
    m_rules.color = m_options.color && m_description.color.present;
    m_rules.colorBits = m_description.colorBits;
    m_rules.classes = m_description.classification.present;
    m_rules.directions = m_survey->Directions() != 0;
    m_rules.coordinateKind = m_description.coordinateKind;

    m_message.layout = fitted.layout;
    m_message.intensity = m_report.intensity;
    m_message.emptyIntensity = m_survey->EmptyIntensity();
    m_message.directions = m_rules.directions;
    m_message.source = m_source.FormatName();
    m_message.keepsakes = m_description.keepsakes;
    StoreFacts(m_description, m_message);
    KeepImage();

    if (m_report.precision.rangeScale != m_options.rangeScale) {
        m_report.warnings.push_back("Ranges up to " + ShortestText(std::ceil(m_report.greatestRange)) +
                                    " m do not fit the range scale of " + ShortestText(m_options.rangeScale) +
                                    " mm; stored at " + ShortestText(m_report.precision.rangeScale) + " mm");
    }
    if (m_survey->EmptyCellsDiffer()) {
        m_report.warnings.push_back(
            "Cells without a return carry intensities that differ, or colours; these are not kept");
    }
    m_report.name = m_description.name;
    m_report.losses = ImportLosses({m_description, m_options, *m_survey, m_report, m_thumbnail.has_value()});
    if (m_options.strict) m_report.losses.RequireNoLoss(m_source.Name());
}

// The first image that can be the scan's thumbnail: a JPEG that is no panorama of many megabytes.
void Import::KeepImage() {
    for (const ImageDescription& image : m_description.images) {
        if (image.encoding != ImageDescription::Encoding::Jpeg || image.byteCount > kMostThumbnailBytes ||
            !image.load) {
            continue;
        }
        std::vector<unsigned char> bytes = image.load();
        if (!IsThumbnail(bytes)) continue;
        m_thumbnail = std::move(bytes);
        m_message.keepsakes.emplace_back("image", PercentEncode(image.name));
        return;
    }
}

// Second pass: cells to columns of patches.
void Import::ReadAll(PatchAssembler& assembler, const PatchAssembler::Done& done,
                     const std::function<void()>& onBlock) {
    const ScanDescription again = m_source.OpenScan(m_scanIndex);
    if (again.columns != m_description.columns || again.rows != m_description.rows) {
        kxbase::ErrorContext context;
        context.file = m_source.Name();
        context.detail = "the file changed while it was read";
        throw SourceFormatException("Scan cannot be read", context);
    }
    const auto rows = static_cast<size_t>(m_description.rows);
    std::vector<Cell> cells;
    uint64_t columns = 0;
    while (const uint64_t read = m_source.ReadColumns(kColumnsPerRead, cells)) {
        const std::span<const Cell> all(cells);
        for (size_t i = 0; i < read; ++i)
            assembler.AddColumn(all.subspan(i * rows, rows), done);
        columns += read;
        m_counters.cells += cells.size();
        m_counters.bytes = m_source.BytesRead() - m_bytesBefore;
        onBlock();
    }
    CheckColumns(columns);
}

// Patch by patch, as they are stored; what one becomes depends on no other.
void Import::SettleColumn(PatchColumn& column, uint32_t patches, size_t area) const {
    std::exception_ptr failure;
#pragma omp parallel for schedule(dynamic)
    for (uint32_t row = 0; row < patches; ++row) {
        try {
            const size_t first = row * area;
            SettleAngles(std::span(column.range).subspan(first, area),
                         std::span(column.vertical).subspan(first, area),
                         std::span(column.horizontal).subspan(first, area), m_report.grid.patchWidth,
                         m_report.grid.patchHeight, m_report.precision, m_options.anglePrecision);
        } catch (...) {
#pragma omp critical(kxexchangeSettling)
            failure = std::current_exception();
        }
    }
    if (failure) std::rethrow_exception(failure);
}

void Import::AddPatches(PatchColumn& column) {
    const kxbase::GridTopology& grid = m_report.grid;
    const size_t area = size_t{grid.patchWidth} * grid.patchHeight;
    using Flat = kxio::FlatPatchDescriptor;
    const StoragePrecision& precision = m_report.precision;
    Flat range(ComponentType::Range, sizeof(float), kxio::RowMajor, precision.rangeScale, m_rangeCodec.get());
    Flat vertical(ComponentType::VerticalAngle, sizeof(float), kxio::RowMajor, precision.verticalScale,
                  m_angleCodec.get());
    Flat horizontal(ComponentType::HorizontalAngle, sizeof(float), kxio::RowMajor, precision.horizontalScale,
                    m_angleCodec.get());
    Flat luminance16(ComponentType::Luminance16, sizeof(uint16_t), kxio::RowMajor, 1.0,
                     m_intensityCodec.get());
    Flat luminance8(ComponentType::Luminance8, sizeof(uint8_t), kxio::RowMajor, 1.0, m_intensityCodec.get());
    Flat color(ComponentType::Color, 3, kxio::RowMajor, 1.0, m_colorCodec.get());
    std::vector<kxio::PatchDescriptor*> descriptors{&range, &vertical, &horizontal};
    if (!column.luminance16.empty()) descriptors.insert(descriptors.end(), {&luminance16, &luminance8});
    if (!column.color.empty()) descriptors.push_back(&color);
    Flat classes(ComponentType::Class, sizeof(uint32_t), kxio::RowMajor, 1.0, m_intensityCodec.get());
    if (!column.classes.empty()) descriptors.push_back(&classes);

    const auto point = [&](Flat& descriptor, auto& values, size_t perCell, size_t patch) {
        if (values.empty()) return;
        descriptor.data = reinterpret_cast<unsigned char*>(values.data() + patch * area * perCell);
        descriptor.size = area;
    };
    const uint32_t patches = grid.PatchesPerColumn();
    if (m_options.anglePrecision > 0) SettleColumn(column, patches, area);
    for (uint32_t row = 0; row < patches; ++row) {
        point(range, column.range, 1, row);
        point(vertical, column.vertical, 1, row);
        point(horizontal, column.horizontal, 1, row);
        point(luminance16, column.luminance16, 1, row);
        point(luminance8, column.luminance8, 1, row);
        point(color, column.color, 3, row);
        point(classes, column.classes, 1, row);
        m_writer->AddPatch(descriptors, row, column.column);
        Update();
    }
}

void Import::WriteProperties() {
    m_writer->SetRegistration(m_description.pose);
    kxio::ScanProperties& properties = m_writer->GetScanProperties();
    if (m_description.uuid) properties.scanUUID = *m_description.uuid;
    properties.scannerModel = kxbase::Decode_UTF8(m_description.sensor.model);
    if (m_description.acquisitionStart.IsSet() || m_description.acquisitionEnd.IsSet()) {
        properties.dateStatus = 0;
        properties.firstDate = m_description.acquisitionStart;
        properties.secondDate = m_description.acquisitionEnd;
    }
    if (m_thumbnail) m_writer->SetCompressedThumbnail(*m_thumbnail);
    const std::string name = PathText(TextPath(m_source.Name()).filename());
    m_writer->AddMessage(
        kxbase::Decode_UTF8("Imported from " + name + ", scan " + std::to_string(m_scanIndex + 1)));
    m_writer->AddMessage(kxbase::Decode_UTF8(m_message.Format()));
    for (const std::string& warning : m_report.warnings)
        m_writer->AddWarning(kxbase::Decode_UTF8(warning));
}

void Import::Write(const std::filesystem::path& path) {
    m_rangeCodec = MakeCodec(m_options.rangeCodec, m_options.compressionLevel);
    m_angleCodec = MakeCodec(m_options.angleCodec, m_options.compressionLevel);
    m_intensityCodec = MakeCodec(m_options.intensityCodec, m_options.compressionLevel);
    m_colorCodec = MakeCodec(m_options.colorCodec, m_options.compressionLevel);
    m_assembler = std::make_unique<PatchAssembler>(m_report.grid, m_report.layout, m_rules);
    PatchAssembler& assembler = *m_assembler;
    // The thread that parses, with its helpers, and the one that compresses share the cores.
    const int cores = ThreadCount(m_options.threads);
    const IntakeThreads intakeThreads(std::max(1, cores / 2));
    m_writer = std::make_unique<kxio::QSNScanWriter>();
    m_writer->CreateNew(WidePath(path), m_report.grid);
    m_writer->DisableHistogramComputation(!m_options.histograms);
    m_writer->SetIntegrity(m_options.hashes.value_or(false));

    using ColumnPointer = std::unique_ptr<PatchColumn>;
    if (m_options.threads == 1) {
        ReadAll(
            assembler,
            [&](ColumnPointer column) {
                AddPatches(*column);
                assembler.Recycle(std::move(column));
            },
            [&] { Update(); });
    } else {
        // One thread parses the source while this one compresses and writes.
        struct Stopped {};
        Handover<ColumnPointer> handover(kWaitingColumns);
        std::thread parser([&] {
            try {
                ReadAll(
                    assembler,
                    [&](ColumnPointer column) {
                        if (!handover.Put(std::move(column))) throw Stopped();
                    },
                    [&] {
                        if (handover.Abandoned()) throw Stopped();
                    });
                handover.End();
            } catch (const Stopped&) {
                handover.End();
            } catch (...) {
                handover.End(std::current_exception());
            }
        });
        try {
            using State = Handover<ColumnPointer>::State;
            std::optional<ColumnPointer> column;
            for (State state = State::Waiting; state != State::Ended;) {
                state = handover.Take(column, kProgressInterval);
                if (state == State::Ready) {
                    AddPatches(**column);
                    assembler.Recycle(std::move(*column));
                }
                Update();
            }
        } catch (...) {
            handover.Abandon();
            parser.join();
            throw;
        }
        parser.join();
    }

    m_report.precision.greatestHorizontal = assembler.GreatestHorizontal();
    if (assembler.ReturnsAtOrigin() != 0) {
        m_report.warnings.push_back(std::to_string(assembler.ReturnsAtOrigin()) +
                                    " returns nearer than half a range step are stored at one step");
    }
    const double bound = PositionBound(m_report.greatestRange, m_report.precision);
    if (m_report.returns != 0 && bound > kNotableBound) {
        m_report.warnings.push_back("Points up to " + ShortestText(std::ceil(m_report.greatestRange)) +
                                    " m from the origin may move by up to " +
                                    ShortestText(std::ceil(bound * 1000) / 1000) + " m");
    }
    for (const std::string& warning : m_source.Warnings())
        m_report.warnings.push_back(warning);
    WriteProperties();
    m_report.statistics = m_writer->EndCreation();
    Update();
}

void Import::Report() {
    m_report.maxHorizontalResidual = m_assembler->MaxHorizontalResidual();
    m_report.maxVerticalResidual = m_assembler->MaxVerticalResidual();
    m_report.bytesRead = m_source.BytesRead() - m_bytesBefore;
}

}  // namespace

ImportReport ImportScan(ScanSource& source, uint64_t scanIndex, const std::filesystem::path& outPath,
                        const ImportOptions& options, ProgressSink* progress) {
    CheckOptions(options);
    return Import(source, scanIndex, options, progress).Run(outPath);
}

}  // namespace kxexchange
