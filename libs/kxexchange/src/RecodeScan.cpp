// SPDX-License-Identifier: MIT
#include "kxexchange/RecodeScan.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>

#include "AngleSettling.h"
#include "GridCells.h"
#include "ImportPlan.h"
#include "IntakeThreads.h"
#include "Paths.h"
#include "QsnSource.h"
#include "TextFormat.h"
#include "kxbase/UTF8.h"
#include "kxexchange/MakeCodec.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/ScanAccess.h"

namespace kxexchange {

namespace {

using kxbase::ComponentType;

// Bytes that one stored byte of any codec can stand for.
constexpr uint64_t kMostExpansion = 32768;
// The scale of values that are stored as they are.
constexpr double kFloats = 1.0;

class Recoding {
public:
    Recoding(const std::filesystem::path& path, const ImportOptions& options, ProgressSink* progress)
        : m_name(PathText(path)),
          m_reader(WidePath(path)),
          m_access(m_reader),
          m_options(options),
          m_progress(progress) {}

    ImportReport Run(const std::filesystem::path& outPath) {
        Plan();
        PendingFile file(outPath);
        try {
            Write(file.Path());
        } catch (...) {
            m_writer.reset();  // closes the file before it is removed
            throw;
        }
        m_writer.reset();
        m_report.bytesWritten = std::filesystem::file_size(file.Path());
        file.Commit();
        return std::move(m_report);
    }

private:
    void Plan();
    void JudgeLosses();
    void Write(const std::filesystem::path& path);
    void AddPatch(uint32_t row, uint32_t column);
    void SettlePatch(std::vector<kxio::FlatPatchDescriptor>& flats) const;
    bool Present(ComponentType component, uint32_t row, uint32_t column) const;
    void CheckClaim(ComponentType component, uint32_t row, uint32_t column, uint32_t elementBytes) const;
    double ScaleOf(ComponentType component) const;
    kxcodecs::QKXChunkCodec& CodecOf(ComponentType component);
    void CopyProperties();
    void Update();

    const std::string m_name;
    const kxio::QSNScanReader m_reader;
    const kxio::ScanAccess m_access;
    const ImportOptions& m_options;
    ProgressSink* const m_progress;
    kxbase::GridTopology m_grid;
    bool m_samePatches = true;
    std::map<Codec, std::unique_ptr<kxcodecs::QKXChunkCodec>> m_codecs;
    std::unique_ptr<kxio::QSNScanWriter> m_writer;
    std::vector<ComponentType> m_components;
    std::map<ComponentType, uint32_t> m_elementBytes;
    std::vector<unsigned char> m_cells;
    uint64_t m_cellsDone = 0;
    ImportReport m_report;
};

void Recoding::Update() {
    if (!m_progress) return;
    const uint64_t total = uint64_t{m_grid.columns} * m_grid.rows;
    if (m_progress->Update(m_cellsDone, total, m_report.bytesRead)) return;
    kxbase::ErrorContext context;
    context.file = m_name;
    throw CancelledException("Conversion was cancelled", context);
}

double Recoding::ScaleOf(ComponentType component) const {
    switch (component) {
        case ComponentType::Range:
            return m_report.precision.rangeScale;
        case ComponentType::VerticalAngle:
            return m_report.precision.verticalScale;
        case ComponentType::HorizontalAngle:
            return m_report.precision.horizontalScale;
        default:
            return 1.0;
    }
}

kxcodecs::QKXChunkCodec& Recoding::CodecOf(ComponentType component) {
    Codec codec = m_options.intensityCodec;
    if (component == ComponentType::Range) codec = m_options.rangeCodec;
    if (component == ComponentType::VerticalAngle || component == ComponentType::HorizontalAngle)
        codec = m_options.angleCodec;
    if (component == ComponentType::Color) codec = m_options.colorCodec;
    auto& made = m_codecs[codec];
    if (!made) made = MakeCodec(codec, m_options.compressionLevel);
    return *made;
}

void Recoding::JudgeLosses() {
    const kxio::ScanProperties& properties = m_reader.GetScanInformation();
    LossReport& losses = m_report.losses;
    losses.Add({"grid", Fate::Kept, {}, {}});
    std::string steps;
    const auto judge = [&](size_t index, const char* name, double now, const char* unit) {
        const double before = properties.componentValue[index];
        if (before == now) return;
        steps += std::string(steps.empty() ? "" : ", ") + name + " in steps of " + ShortestText(now) + " " +
                 unit + " instead of " + ShortestText(before);
    };
    judge(0, "range", m_report.precision.rangeScale, "mm");
    judge(1, "vertical angle", m_report.precision.verticalScale, "rad");
    judge(2, "horizontal angle", m_report.precision.horizontalScale, "rad");
    if (m_options.anglePrecision > 0) {
        steps += std::string(steps.empty() ? "" : ", ") + "angles moved by up to " +
                 ShortestText(m_options.anglePrecision) + " mm across the beam";
    }
    losses.Add({"coordinates", steps.empty() ? Fate::Kept : Fate::Converted, steps, {}});
    for (const ComponentType component : m_reader.GetAvailableComponents()) {
        if (component == ComponentType::Range || component == ComponentType::VerticalAngle ||
            component == ComponentType::HorizontalAngle) {
            continue;
        }
        const std::string name = kxbase::ComponentToString(component);
        const bool kept =
            std::find(m_components.begin(), m_components.end(), component) != m_components.end();
        if (!kept) {
            losses.Add({name, Fate::Lost, "left out as asked for", {}});
        } else if (component == ComponentType::Color && m_options.colorCodec == Codec::Jpeg) {
            losses.Add({name, Fate::Converted, "JPEG: colours change a little", {}});
        } else {
            losses.Add({name, Fate::Kept, {}, {}});
        }
    }
    if (m_options.strict) losses.RequireNoLoss(m_name);
}

void Recoding::Plan() {
    const kxio::ScanProperties& properties = m_reader.GetScanInformation();
    if (properties.grid.PatchCount64() == 0) {
        kxbase::ErrorContext context;
        context.file = m_name;
        context.detail = "the scan has no grid";
        throw kxbase::KXBadInputException("Scan cannot be converted", context);
    }
    m_grid = properties.grid;
    const bool resized =
        m_options.patchWidth != m_grid.patchWidth || m_options.patchHeight != m_grid.patchHeight;
    if (resized) SetPatchSize(m_grid, m_options.patchWidth, m_options.patchHeight);
    m_samePatches =
        m_grid.patchWidth == properties.grid.patchWidth && m_grid.patchHeight == properties.grid.patchHeight;
    SetPreviewSize(m_grid, m_options.previewSide);
    const auto limits = m_access.ReadLimits();
    if (limits) {
        for (const kxio::MinMaxPair& pair : limits->patches) {
            m_report.greatestRange =
                std::max(m_report.greatestRange, static_cast<double>(pair.maximum) * 1e-3);
        }
    }
    m_report.precision.rangeScale = FittingRangeScale(m_options.rangeScale, m_report.greatestRange);
    m_report.precision.verticalScale = m_options.verticalScale;
    m_report.precision.horizontalScale = m_options.horizontalScale;
    for (const ComponentType component : m_reader.GetAvailableComponents()) {
        const bool intensity =
            component == ComponentType::Luminance8 || component == ComponentType::Luminance16;
        if (intensity && !m_options.intensity) continue;
        if (component == ComponentType::Color && !m_options.color) continue;
        const uint32_t bytes = m_access.ElementBytes(component);
        if (bytes == 0) continue;  // not one patch tells how long an element is: there is nothing to copy
        m_elementBytes[component] = bytes;
        m_components.push_back(component);
    }
    m_report.grid = m_grid;
    m_report.cells = uint64_t{m_grid.columns} * m_grid.rows;
    JudgeLosses();
}

bool Recoding::Present(ComponentType component, uint32_t row, uint32_t column) const {
    if (!m_samePatches) return true;
    const auto entries = m_access.PatchEntries(component);
    const uint64_t index = uint64_t{m_grid.PatchesPerRow()} * row + column;
    return index < entries.size() && entries[static_cast<size_t>(index)].byteCount != 0;
}

// The grid's size is a claim of the header; the chunk must be long enough to hold so much before memory
// follows it.
void Recoding::CheckClaim(ComponentType component, uint32_t row, uint32_t column,
                          uint32_t elementBytes) const {
    const auto entries = m_access.PatchEntries(component);
    uint64_t stored = 0;
    for (const auto& entry : entries)
        stored += entry.byteCount;
    const uint64_t area = uint64_t{m_grid.patchWidth} * m_grid.patchHeight * elementBytes;
    if (area / kMostExpansion <= stored) return;
    kxbase::ErrorContext context;
    context.record = "patch " + std::to_string(uint64_t{m_grid.PatchesPerRow()} * row + column);
    context.detail = "found chunks of " + std::to_string(stored) +
                     " bytes together, too few for a patch of " + std::to_string(area);
    throw kxbase::KXUnreadablePatchException("Patch cannot be decoded", context);
}

// Without a range there is no telling how far a point would move.
void Recoding::SettlePatch(std::vector<kxio::FlatPatchDescriptor>& flats) const {
    constexpr ComponentType kNeeded[] = {ComponentType::Range, ComponentType::VerticalAngle,
                                         ComponentType::HorizontalAngle};
    std::vector<float> values[3];
    unsigned char* places[3] = {};
    for (size_t k = 0; k < 3; ++k) {
        for (kxio::FlatPatchDescriptor& flat : flats) {
            if (flat.component != kNeeded[k] || flat.pixelLength != sizeof(float)) continue;
            places[k] = flat.data;
            values[k].resize(flat.size);
            std::memcpy(values[k].data(), flat.data, flat.size * sizeof(float));
        }
        if (places[k] == nullptr) return;
    }
    SettleAngles(values[0], values[1], values[2], m_grid.patchWidth, m_grid.patchHeight, m_report.precision,
                 m_options.anglePrecision);
    for (size_t k = 1; k < 3; ++k)
        std::memcpy(places[k], values[k].data(), values[k].size() * sizeof(float));
}

void Recoding::AddPatch(uint32_t row, uint32_t column) {
    const kxio::PatchRect rect{row * m_grid.patchHeight, column * m_grid.patchWidth, m_grid.RowsInPatch(row),
                               m_grid.ColumnsInPatch(column)};
    const size_t area = size_t{m_grid.patchWidth} * m_grid.patchHeight;
    kxio::ReadOptions read;
    read.missing = kxio::MissingPatches::ZeroAbsent;
    read.threads = static_cast<unsigned>(m_options.threads);
    std::vector<std::vector<unsigned char>> values;
    std::vector<kxio::FlatPatchDescriptor> flats;
    values.reserve(m_components.size());
    flats.reserve(m_components.size());
    for (const ComponentType component : m_components) {
        if (!Present(component, row, column)) continue;
        const uint32_t bytes = m_elementBytes[component];
        if (row == 0 && column == 0) CheckClaim(component, row, column, bytes);
        m_cells.resize(static_cast<size_t>(rect.CellCount() * bytes));
        m_report.bytesRead += m_cells.size();
        m_access.ReadRectBytes(component, rect, bytes, m_cells, read);
        // Rows of the grid into rows of the full patch.
        std::vector<unsigned char>& patch = values.emplace_back(area * bytes);
        const size_t from = size_t{rect.columns} * bytes, to = size_t{m_grid.patchWidth} * bytes;
        for (uint32_t r = 0; r < rect.rows; ++r)
            std::copy_n(m_cells.data() + r * from, from, patch.data() + r * to);
        kxio::FlatPatchDescriptor& flat =
            flats.emplace_back(component, bytes, kxio::RowMajor, ScaleOf(component), &CodecOf(component));
        flat.data = patch.data();
        flat.size = area;
    }
    if (m_options.anglePrecision > 0) SettlePatch(flats);
    std::vector<kxio::PatchDescriptor*> descriptors;
    for (auto& flat : flats)
        descriptors.push_back(&flat);
    if (!descriptors.empty()) m_writer->AddPatch(descriptors, row, column);
    m_cellsDone += rect.CellCount();
    Update();
}

// Everything but what the writer finds out by itself.
void Recoding::CopyProperties() {
    const kxio::ScanProperties& from = m_reader.GetScanInformation();
    kxio::ScanProperties& to = m_writer->GetScanProperties();
    kxio::ScanProperties copy = from;
    copy.grid = to.grid;
    copy.validPointCount = to.validPointCount;
    copy.componentValue = to.componentValue;
    copy.componentCodecs = to.componentCodecs;
    copy.writerRevision = to.writerRevision;
    to = std::move(copy);
    std::vector<unsigned char> jpeg;
    if (!m_reader.GetThumbnailJPEG(jpeg) || jpeg.empty()) return;
    try {
        m_writer->SetCompressedThumbnail(jpeg);
    } catch (const kxbase::KXBadInputException&) {
        m_report.warnings.push_back("The stored thumbnail is damaged; a new one was made");
    }
}

void Recoding::Write(const std::filesystem::path& path) {
    const IntakeThreads intakeThreads(m_options.threads);
    m_writer = std::make_unique<kxio::QSNScanWriter>();
    m_writer->CreateNew(WidePath(path), m_grid);
    m_writer->DisableHistogramComputation(!m_options.histograms);
    m_writer->SetIntegrity(m_options.hashes.value_or(m_reader.HasIntegrity()));
    for (uint32_t column = 0; column < m_grid.PatchesPerRow(); ++column) {
        for (uint32_t row = 0; row < m_grid.PatchesPerColumn(); ++row)
            AddPatch(row, column);
    }
    CopyProperties();
    m_report.statistics = m_writer->EndCreation();
    m_report.returns = m_report.statistics["PointCount"];
    Update();
}

}  // namespace

ImportOptions OptionsOf(const std::filesystem::path& scanPath) {
    const kxio::QSNScanReader reader(WidePath(scanPath));
    const kxio::ScanProperties& properties = reader.GetScanInformation();
    ImportOptions options;
    if (properties.grid.patchWidth != 0 && properties.grid.patchHeight != 0) {
        options.patchWidth = properties.grid.patchWidth;
        options.patchHeight = properties.grid.patchHeight;
    }
    const auto scale = [&](size_t index, double& value) {
        if (properties.componentValue[index] > 0) value = properties.componentValue[index];
    };
    scale(0, options.rangeScale);
    scale(1, options.verticalScale);
    scale(2, options.horizontalScale);
    const auto codec = [&](ComponentType component, Codec& value) {
        const auto found = properties.componentCodecs.find(component);
        if (found == properties.componentCodecs.end()) return;
        const std::string name = LowerCase(found->second);
        if (name == "zlib") value = Codec::Zlib;
        if (name == "snappy") value = Codec::Snappy;
        if (name == "zstd") value = Codec::Zstd;
        if (name == "grid") value = Codec::Grid;  // which mode is not told
        if (name == "color") value = Codec::Color;
        if (name == "jpeg" && component == ComponentType::Color) value = Codec::Jpeg;
    };
    codec(ComponentType::Range, options.rangeCodec);
    codec(ComponentType::VerticalAngle, options.angleCodec);
    codec(ComponentType::Luminance16, options.intensityCodec);
    codec(ComponentType::Color, options.colorCodec);
    return options;
}

ImportReport RecodeScan(const std::filesystem::path& scanPath, const std::filesystem::path& outPath,
                        const ImportOptions& options, ProgressSink* progress) {
    // Angles that the scan holds as floats, which a scale of 1 says, may stay floats.
    ImportOptions checked = options;
    if (options.verticalScale == kFloats || options.horizontalScale == kFloats) {
        const ImportOptions own = OptionsOf(scanPath);
        if (own.verticalScale == kFloats) checked.verticalScale = ImportOptions().verticalScale;
        if (own.horizontalScale == kFloats) checked.horizontalScale = ImportOptions().horizontalScale;
    }
    CheckOptions(checked);
    return Recoding(scanPath, options, progress).Run(outPath);
}

}  // namespace kxexchange
