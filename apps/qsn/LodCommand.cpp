// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "ColorMap.h"
#include "Commands.h"
#include "ComponentNames.h"
#include "Console.h"
#include "Errors.h"
#include "Interrupt.h"
#include "JsonOutput.h"
#include "OutputFile.h"
#include "PngFile.h"
#include "ValuePainting.h"
#include "kxbase/UTF8.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace qsn {

namespace {

/// Elements of one component, row by row.
struct Image {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t elementBytes = 0;
    std::vector<unsigned char> bytes;
    kxio::ReadReport report;  ///< of the full detail only: reduced detail leaves out what cannot be had
};

constexpr uint64_t kMostBytes = uint64_t{1} << 30;
constexpr uint64_t kMostElements = uint64_t{1} << 27;

/// `cells` at a reduction to every 2^level-th one.
uint32_t Reduced(uint32_t cells, unsigned level) {
    return static_cast<uint32_t>((uint64_t{cells} + (uint64_t{1} << level) - 1) >> level);
}

/// A stretch of reduced patches along rows or columns, and the cells of the reduced grid that it covers.
struct Stretch {
    uint32_t first = 0;  ///< patch
    uint32_t end = 0;    ///< behind the last patch
    uint32_t cells = 0;
};

/// \param only  this patch; all without it
/// \throws UsageError when there is no such patch
Stretch StretchOf(const char* option, std::optional<uint32_t> only, uint32_t patches, uint32_t patchCells,
                  uint32_t cells, unsigned level) {
    const uint32_t count = Reduced(patches, level);
    if (only && *only >= count)
        throw UsageError(
            fmt::format("{} {}: at level {} the scan has {} of them", option, *only, level, count));
    Stretch stretch{only.value_or(0), only ? *only + 1 : count, 0};
    const uint64_t all = Reduced(cells, level);
    const auto edge = [&](uint32_t patch) { return std::min(uint64_t{patch} * patchCells, all); };
    stretch.cells = static_cast<uint32_t>(edge(stretch.end) - edge(stretch.first));
    return stretch;
}

Image EmptyImage(const Stretch& rows, const Stretch& columns, uint32_t elementBytes) {
    Image image{columns.cells, rows.cells, elementBytes, {}, {}};
    const uint64_t elements = uint64_t{image.width} * image.height;
    if (elements > std::min(kMostElements, kMostBytes / std::max(1U, elementBytes)))
        throw Failure(
            fmt::format("{} x {} elements are too many; take a higher --level, one --row or one --column too",
                        image.width, image.height),
            ExitLimit);
    image.bytes.resize(elements * elementBytes);
    return image;
}

/// Puts the part of a patch that lies inside `image` into its place.
void Place(const kxio::PreviewImage<unsigned char>& patch, uint64_t firstRow, uint64_t firstColumn,
           Image& image) {
    if (firstRow >= image.height || firstColumn >= image.width) return;
    const uint64_t columns = std::min<uint64_t>(patch.width, image.width - firstColumn);
    const uint64_t rows = std::min<uint64_t>(patch.height, image.height - firstRow);
    const size_t element = image.elementBytes;
    for (uint64_t row = 0; row < rows; ++row) {
        std::memcpy(image.bytes.data() + ((firstRow + row) * image.width + firstColumn) * element,
                    patch.values.data() + row * patch.width * element, columns * element);
    }
}

template <class T>
T ElementOf(const Image& image, size_t index) {
    T value{};
    std::memcpy(&value, image.bytes.data() + index * sizeof(T), sizeof(T));
    return value;
}

template <class T>
Values ValuesOf(const Image& image) {
    Values values(size_t{image.width} * image.height);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = static_cast<double>(ElementOf<T>(image, i));
    return values;
}

/// One number per pixel; those of a colour only tell that it is one.
Values ReadValues(const Image& image, kxbase::ComponentType component) {
    switch (component) {
        case kxbase::Range:
        case kxbase::VerticalAngle:
        case kxbase::HorizontalAngle:
            return ValuesOf<float>(image);
        case kxbase::Luminance8:
            return ValuesOf<uint8_t>(image);
        case kxbase::Luminance16:
            return ValuesOf<uint16_t>(image);
        case kxbase::Color:
            return Values(size_t{image.width} * image.height);
        default:
            throw UsageError(
                fmt::format("component {} has no picture; write it as .raw", ComponentShortName(component)));
    }
}

/// \param ranges  of the same cells; those without a return stay transparent
Picture Draw(const Image& image, kxbase::ComponentType component, const std::optional<Image>& ranges) {
    Values values = ReadValues(image, component);
    for (size_t i = 0; ranges && i < values.size(); ++i) {
        if (!(ElementOf<float>(*ranges, i) > 0)) values[i] = std::numeric_limits<double>::quiet_NaN();
    }
    Picture picture(image.width, image.height);
    if (component == kxbase::Color) {
        for (size_t i = 0; i < values.size(); ++i) {
            if (values[i] != values[i]) continue;
            const auto color = ElementOf<kxio::Rgb8>(image, i);
            picture.At(static_cast<uint32_t>(i % image.width), static_cast<uint32_t>(i / image.width)) = {
                color.red, color.green, color.blue, 255};
        }
        return picture;
    }
    const ValueSpan span = MiddleSpan(values);
    const bool grey = component == kxbase::Luminance8 || component == kxbase::Luminance16;
    PaintValues(picture, image.width, image.height, values,
                [&](double v) { return grey ? Grey(ShareOf(v, span)) : ScaleColor(ShareOf(v, span)); });
    return picture;
}

class LodCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file to read")->required()->type_name("");
        app.add_option("OUT", m_output,
                       "The .png picture to write, or .raw: the elements\n"
                       "row by row, in the byte order of the machine")
            ->required()
            ->type_name("");
        app.add_option("--component", m_component,
                       "What to take, by name or number as for preview\n"
                       "(default: range)")
            ->type_name("NAME");
        app.add_option("--level", m_level, "Every 2^N-th cell both ways (default: 1)")
            ->check(CLI::Range(0U, 30U).description(""))
            ->type_name("N");
        app.add_option("--row", m_row,
                       "Only this row of reduced patches, from 0\n"
                       "(default: the whole grid)")
            ->type_name("R");
        app.add_option("--column", m_column, "Only this column of reduced patches, from 0")->type_name("C");
        app.add_flag("--json", m_json, "JSON of the schema qsn.lod, version 1");
    }

    void Run(const Session& session) override {
        const kxbase::ComponentType component =
            m_component.empty() ? kxbase::Range : ParseComponent(m_component);
        const bool raw = HasEnding(m_output, ".raw");
        if (!raw && !HasEnding(m_output, ".png"))
            throw UsageError(fmt::format("{}: unknown ending; expected .png or .raw", m_output));
        OutputFile output(m_output, session.force, {m_input});
        const kxio::QSNScanReader reader(kxbase::Decode_UTF8(m_input), 0);
        const kxio::ScanAccess access(reader);
        unsigned level = m_level;
        const Image image = Fetch(access, component, level, session.threads);
        if (raw) {
            output.Write(image.bytes);
        } else {
            std::optional<Image> ranges;
            if (component == kxbase::Range)
                ranges = image;
            else if (access.Has(kxbase::Range))
                ranges = Fetch(access, kxbase::Range, level, session.threads);
            const Picture picture = Draw(image, component, ranges);
            output.Guard([&] { WritePng(output.PartialPath(), picture); });
        }
        CheckInterrupt();
        output.Commit();
        if (m_json)
            WriteOutput(JsonText(Document(component, level, image)));
        else if (!session.quiet)
            WriteError(fmt::format("{} -> {}\n  {}, level {}{}, {} x {} elements of {} bytes\n",
                                   Printable(m_input), Printable(m_output), ComponentShortName(component),
                                   level, level == m_level ? "" : " (the highest that this scan has)",
                                   image.width, image.height, image.elementBytes));
        if (image.report.damaged > 0)
            throw Failure(fmt::format("{}: {} patches could not be read and are left empty", m_input,
                                      image.report.damaged),
                          ExitPartial);
    }

private:
    Json Document(kxbase::ComponentType component, unsigned level, const Image& image) const {
        Json json = JsonDocument("qsn.lod", 1, m_input);
        json["output"] = m_output;
        json["component"] = static_cast<uint32_t>(component);
        json["level"] = level;
        json["width"] = image.width;
        json["height"] = image.height;
        json["elementBytes"] = image.elementBytes;
        json["damagedPatches"] = image.report.damaged;
        return json;
    }

    /// \param level  in: wanted; out: used
    Image Fetch(const kxio::ScanAccess& access, kxbase::ComponentType component, unsigned& level,
                unsigned threads) const {
        const uint32_t elementBytes = access.ElementBytes(component);
        kxio::PreviewImage<unsigned char> patch;
        const uint32_t firstRow = m_row.value_or(0);
        const uint32_t firstColumn = m_column.value_or(0);
        // The first patch tells the level that the scan has.
        if (level > 0)
            patch = access.ReadReducedPatchBytes(component, firstRow, firstColumn, elementBytes, level);
        const kxbase::GridTopology& grid = access.Grid();
        const Stretch rows =
            StretchOf("--row", m_row, grid.PatchesPerColumn(), grid.patchHeight, grid.rows, level);
        const Stretch columns =
            StretchOf("--column", m_column, grid.PatchesPerRow(), grid.patchWidth, grid.columns, level);
        Image image = EmptyImage(rows, columns, elementBytes);
        if (level == 0) {
            const kxio::PatchRect rect{rows.first * grid.patchHeight, columns.first * grid.patchWidth,
                                       rows.cells, columns.cells};
            image.report = access.ReadRectBytes(component, rect, elementBytes, image.bytes,
                                                {kxio::MissingPatches::ZeroUnreadable, threads});
            return image;
        }
        for (uint32_t row = rows.first; row < rows.end; ++row) {
            for (uint32_t column = columns.first; column < columns.end; ++column) {
                CheckInterrupt();
                if (row != rows.first || column != columns.first)
                    patch = access.ReadReducedPatchBytes(component, row, column, elementBytes, level);
                Place(patch, uint64_t{row - rows.first} * grid.patchHeight,
                      uint64_t{column - columns.first} * grid.patchWidth, image);
            }
        }
        return image;
    }

    std::string m_input;
    std::string m_output;
    std::string m_component;
    unsigned m_level = 1;
    std::optional<uint32_t> m_row;
    std::optional<uint32_t> m_column;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeLodCommand() {
    return std::make_unique<LodCommand>();
}

}  // namespace qsn
