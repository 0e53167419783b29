// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "ColorMap.h"
#include "Commands.h"
#include "ComponentNames.h"
#include "Console.h"
#include "Errors.h"
#include "Interrupt.h"
#include "Numbers.h"
#include "OutputFile.h"
#include "PngFile.h"
#include "ValuePainting.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxOutFile.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxcodecs/Quantise.h"
#include "kxio/QSNScanReader.h"

namespace qsn {

namespace {

/// Elements of one component, row by row.
struct Image {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t elementBytes = 0;
    std::vector<unsigned char> bytes;
};

constexpr uint64_t kMostBytes = uint64_t{1} << 30;

/// `cells` at a reduction to every 2^level-th one.
uint32_t Reduced(uint32_t cells, unsigned level) {
    return static_cast<uint32_t>((uint64_t{cells} + (uint64_t{1} << level) - 1) >> level);
}

/// Puts the part of a patch that lies inside `image` into its place.
void Place(const std::vector<unsigned char>& patch, const kxcodecs::ChunkHeaderInfo& header,
           uint32_t firstColumn, Image& image) {
    const uint32_t columns = std::min(header.width, image.width - std::min(image.width, firstColumn));
    const uint32_t rows = std::min(header.height, image.height);
    const size_t element = image.elementBytes;
    for (uint32_t row = 0; row < rows; ++row) {
        std::memcpy(image.bytes.data() + (size_t{row} * image.width + firstColumn) * element,
                    patch.data() + size_t{row} * header.width * element, columns * element);
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

Values ReadValues(const Image& image, kxbase::ComponentType component) {
    Values values;
    switch (component) {
        case kxbase::Range:
            values = ValuesOf<float>(image);
            for (double& value : values) {
                if (!(value > 0)) value = std::numeric_limits<double>::quiet_NaN();
            }
            return values;
        case kxbase::VerticalAngle:
        case kxbase::HorizontalAngle:
            return ValuesOf<float>(image);
        case kxbase::Luminance8:
            return ValuesOf<uint8_t>(image);
        case kxbase::Luminance16:
            return ValuesOf<uint16_t>(image);
        default:
            throw UsageError(
                fmt::format("component {} has no picture; write it as .raw", ComponentShortName(component)));
    }
}

Picture Draw(const Image& image, kxbase::ComponentType component) {
    Picture picture(image.width, image.height);
    if (component == kxbase::Color) {
        for (uint32_t y = 0; y < image.height; ++y) {
            for (uint32_t x = 0; x < image.width; ++x) {
                const unsigned char* p = image.bytes.data() + (size_t{y} * image.width + x) * 3;
                picture.At(x, y) = {p[0], p[1], p[2], 255};
            }
        }
        return picture;
    }
    const Values values = ReadValues(image, component);
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
                       "The .png picture to write, or .raw: the elements,\nrow by row, little-endian")
            ->required()
            ->type_name("");
        app.add_option("--component", m_component, "What to take, by name or number (default: range)")
            ->type_name("NAME");
        app.add_option("--level", m_level, "Every 2^N-th cell both ways (default: 1)")
            ->check(CLI::Range(0U, 30U).description(""))
            ->type_name("N");
        app.add_option("--row", m_row, "Row of reduced patches to take as one strip\n(default: 0)")
            ->type_name("R");
        app.add_option("--column", m_column, "Take only this reduced patch of the row")->type_name("C");
    }

    void Run(const Session& session) override {
        const kxbase::ComponentType component =
            m_component.empty() ? kxbase::Range : ParseComponent(m_component);
        const bool raw = m_output.ends_with(".raw");
        if (!raw && !m_output.ends_with(".png"))
            throw UsageError(fmt::format("{}: unknown ending; expected .png or .raw", m_output));
        OutputFile output(m_output, session.force, {m_input});
        const kxio::QSNScanReader reader(kxbase::Decode_UTF8(m_input), 0);
        unsigned level = m_level;
        const Image image = Fetch(reader, component, level);
        if (raw) {
            kxbase::kxOutFile out(kxbase::Decode_UTF8(output.PartialPath()));
            if (!out.IsOpen()) throw Failure(m_output + ": cannot be written");
            out.Write(image.bytes.data(), image.bytes.size());
            out.Close();
        } else {
            WritePng(output.PartialPath(), Draw(image, component));
        }
        output.Commit();
        if (!session.quiet)
            WriteError(fmt::format("{} -> {}\n  {}, level {}{}, {} x {} elements of {} bytes\n",
                                   Printable(m_input), Printable(m_output), ComponentShortName(component),
                                   level, level == m_level ? "" : " (the highest that this scan has)",
                                   image.width, image.height, image.elementBytes));
    }

private:
    /// \param level  in: wanted; out: used
    Image Fetch(const kxio::QSNScanReader& reader, kxbase::ComponentType component, unsigned& level) const {
        const kxbase::GridTopology& grid = reader.GetScanInformation().grid;
        std::vector<unsigned char> values;
        kxcodecs::ChunkHeaderInfo header = FetchPatch(reader, component, 0, level, values, true);
        const uint32_t perRow = Reduced(grid.PatchesPerRow(), level);
        const uint32_t perColumn = Reduced(grid.PatchesPerColumn(), level);
        if (m_row >= perColumn || (m_column && *m_column >= perRow))
            throw UsageError(
                fmt::format("level {} has {} rows and {} columns of patches", level, perColumn, perRow));

        const uint32_t first = m_column.value_or(0);
        const uint32_t end = m_column ? *m_column + 1 : perRow;
        const uint64_t columns = Reduced(grid.columns, level);
        const uint64_t rows = Reduced(grid.rows, level);
        Image image;
        image.elementBytes = static_cast<uint32_t>(header.ElementBytes());
        image.width = static_cast<uint32_t>(std::min(uint64_t{end} * grid.patchWidth, columns) -
                                            std::min(uint64_t{first} * grid.patchWidth, columns));
        image.height = static_cast<uint32_t>(std::min((uint64_t{m_row} + 1) * grid.patchHeight, rows) -
                                             std::min(uint64_t{m_row} * grid.patchHeight, rows));
        const uint64_t elements = uint64_t{image.width} * image.height;
        if (elements > kMostBytes / std::max(1U, image.elementBytes))
            throw Failure(
                fmt::format("a strip of {} x {} elements is too large; take a higher --level or one --column",
                            image.width, image.height));
        image.bytes.resize(elements * image.elementBytes);
        for (uint32_t column = first; column < end; ++column) {
            CheckInterrupt();
            header = FetchPatch(reader, component, column, level, values, false);
            if (header.ElementBytes() != image.elementBytes) continue;  // stays zero
            Place(values, header, (column - first) * grid.patchWidth, image);
        }
        return image;
    }

    /// One decoded patch. A stored patch that the file does not hold is left empty, as at every other level.
    kxcodecs::ChunkHeaderInfo FetchPatch(const kxio::QSNScanReader& reader, kxbase::ComponentType component,
                                         uint32_t column, unsigned& level, std::vector<unsigned char>& values,
                                         bool mustExist) const {
        std::vector<unsigned char> chunk;
        kxcodecs::ChunkHeaderInfo header;
        try {
            reader.GetPatchCompressed(m_row, column, chunk, component, level, false);
        } catch (const kxbase::KXUnreadablePatchException&) {
            if (mustExist) throw;
            return header;
        }
        if (kxcodecs::QKXChunkCodec::DecodeChunk(chunk, header, values) != kxcodecs::DecodeStatus::Decoded) {
            if (mustExist)
                throw kxbase::KXUnreadablePatchException(
                    "Patch cannot be decoded",
                    {m_input, fmt::format("patch ({}, {})", m_row, column), {}, {}, {}});
            return {};
        }
        kxcodecs::Dequantise(values, header.ElementBytes(), header.step);
        return header;
    }

    std::string m_input;
    std::string m_output;
    std::string m_component;
    unsigned m_level = 1;
    uint32_t m_row = 0;
    std::optional<uint32_t> m_column;
};

}  // namespace

std::unique_ptr<Command> MakeLodCommand() {
    return std::make_unique<LodCommand>();
}

}  // namespace qsn
