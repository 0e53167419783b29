// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <numbers>
#include <optional>
#include <string>

#include "Commands.h"
#include "Console.h"
#include "Errors.h"
#include "Numbers.h"
#include "TextLayout.h"
#include "kxbase/UTF8.h"
#include "kxio/CoordConverter3D.h"

namespace qsn {

namespace {

using Json = nlohmann::ordered_json;
using kxbase::QSNCoordinates;
using PolarPoint = kxbase::tBasePolarPoint<float>;
using XYZPoint = kxbase::tBaseXYZPoint<float>;

constexpr double kMetres = 1e-3;  // per unit of the file
constexpr double kDegrees = 180 / std::numbers::pi;

/// `count` numbers with commas between them.
template <size_t count>
std::array<double, count> ParseNumbers(const char* option, const std::string& text) {
    std::array<double, count> numbers{};
    size_t start = 0;
    for (size_t i = 0; i < count; ++i) {
        const size_t end = i + 1 < count ? text.find(',', start) : text.size();
        const auto number =
            end == std::string::npos ? std::nullopt : ParseNumber(text.substr(start, end - start));
        if (!number)
            throw UsageError(
                fmt::format("{} {}: expected {} numbers with commas between them", option, text, count));
        numbers[i] = *number;
        start = end + 1;
    }
    return numbers;
}

/// A cell, what it stores, and how it was found.
struct Located {
    QSNCoordinates cell;
    PolarPoint stored;
    std::optional<bool> exact;           ///< the cell stores the very point asked for
    std::optional<double> distance;      ///< metres between the point asked for and the stored one
    std::optional<double> offDirection;  ///< degrees between the direction asked for and the stored one
};

class LocateCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file to read")->required()->type_name("");
        app.add_option("--point", m_point, "A point in metres, in the scanner's own frame")
            ->type_name("X,Y,Z");
        app.add_flag("--registered", m_registered, "The point is in the project's frame");
        app.add_option("--direction", m_direction,
                       "Horizontal angle and angle from the zenith, in\n"
                       "degrees, in the scanner's own frame")
            ->type_name("H,V");
        app.add_option("--cell", m_cell, "Row and column of a grid cell, from 0")->type_name("R,C");
        app.add_flag("--json", m_json, "JSON of the schema qsn.locate, version 1");
    }

    void Run(const Session&) override {
        if (!m_point.empty() + !m_direction.empty() + !m_cell.empty() != 1)
            throw UsageError("expected one of --point, --direction and --cell");
        if (m_registered && m_point.empty()) throw UsageError("--registered goes with --point");
        const kxio::CoordConverter3D converter(kxbase::Decode_UTF8(m_input));
        const Located located = !m_point.empty()       ? AtPoint(converter)
                                : !m_direction.empty() ? AtDirection(converter)
                                                       : AtCell(converter);
        WriteOutput(m_json ? AsJson(converter, located) : AsText(converter, located));
    }

private:
    static QSNCoordinates CellOf(const kxio::CoordConverter3D& converter,
                                 const kxbase::QSNIndexCoordinates& index) {
        const kxbase::GridTopology& grid = converter.GetScanInformation().grid;
        const uint32_t perRow = grid.PatchesPerRow();
        return {static_cast<int32_t>(index.patchIndex / perRow),
                static_cast<int32_t>(index.patchIndex % perRow),
                static_cast<int32_t>(index.index / grid.patchWidth),
                static_cast<int32_t>(index.index % grid.patchWidth)};
    }

    Located AtPoint(const kxio::CoordConverter3D& converter) const {
        const auto [x, y, z] = ParseNumbers<3>("--point", m_point);
        kxmath::Vector3 local{x, y, z};
        if (m_registered)
            local = converter.GetScanInformation().registration.ToFrame().InverseTransform(local);
        const XYZPoint point(static_cast<float>(local.x / kMetres), static_cast<float>(local.y / kMetres),
                             static_cast<float>(local.z / kMetres));
        Located located;
        kxbase::QSNIndexCoordinates index;
        try {
            index = converter.GetClosestQSNCoordinate(point);
            located.exact = true;
        } catch (const kxbase::KXBadInputException&) {
            // No cell stores this very point: the nearest return in its direction is the answer.
            const PolarPoint polar(point);
            index = converter.GetClosestValidQSNCoordinate({polar.horizontal, polar.vertical});
            located.exact = false;
        }
        located.cell = CellOf(converter, index);
        located.stored = converter.GetPoint(located.cell);
        const kxmath::Vector3 difference = Metres(located.stored) - local;
        located.distance = std::sqrt(kxmath::Dot(difference, difference));
        return located;
    }

    Located AtDirection(const kxio::CoordConverter3D& converter) const {
        const auto [h, v] = ParseNumbers<2>("--direction", m_direction);
        const kxbase::Angles direction{static_cast<float>(h / kDegrees), static_cast<float>(v / kDegrees)};
        Located located;
        located.cell = CellOf(converter, converter.GetClosestValidQSNCoordinate(direction));
        located.stored = converter.GetPoint(located.cell);
        const XYZPoint a(PolarPoint(1, direction.horizontal, direction.vertical));
        const XYZPoint b(PolarPoint(1, located.stored.horizontal, located.stored.vertical));
        const double chord = std::hypot(static_cast<double>(a.x - b.x), static_cast<double>(a.y - b.y),
                                        static_cast<double>(a.z - b.z));
        located.offDirection = 2 * std::asin(std::min(1.0, chord / 2)) * kDegrees;
        return located;
    }

    Located AtCell(const kxio::CoordConverter3D& converter) const {
        const kxbase::GridTopology& grid = converter.GetScanInformation().grid;
        const size_t comma = m_cell.find(',');
        const auto row = ParseCount(std::string_view(m_cell).substr(0, comma));
        const auto column = comma == std::string::npos
                                ? std::nullopt
                                : ParseCount(std::string_view(m_cell).substr(comma + 1));
        if (!row || !column) throw UsageError(fmt::format("--cell {}: expected row,column", m_cell));
        if (*row >= grid.rows || *column >= grid.columns)
            throw UsageError(fmt::format("--cell {}: the grid has {} rows and {} columns", m_cell, grid.rows,
                                         grid.columns));
        Located located;
        located.cell = {
            static_cast<int32_t>(*row / grid.patchHeight), static_cast<int32_t>(*column / grid.patchWidth),
            static_cast<int32_t>(*row % grid.patchHeight), static_cast<int32_t>(*column % grid.patchWidth)};
        located.stored = converter.GetPoint(located.cell);
        if (located.stored == PolarPoint::Invalid())
            throw Failure(
                fmt::format("{}: the patch of row {}, column {} cannot be read", m_input, *row, *column));
        return located;
    }

    static kxmath::Vector3 Metres(const PolarPoint& polar) {
        const XYZPoint p(polar);
        return {kMetres * static_cast<double>(p.x), kMetres * static_cast<double>(p.y),
                kMetres * static_cast<double>(p.z)};
    }

    struct Place {
        uint32_t row, column, patchIndex, indexInPatch;
    };
    static Place PlaceOf(const kxbase::GridTopology& grid, const QSNCoordinates& cell) {
        const auto at = [](int32_t v) { return static_cast<uint32_t>(v); };
        return {at(cell.patchRow) * grid.patchHeight + at(cell.row),
                at(cell.patchColumn) * grid.patchWidth + at(cell.column),
                at(cell.patchRow) * grid.PatchesPerRow() + at(cell.patchColumn),
                at(cell.row) * grid.patchWidth + at(cell.column)};
    }

    std::string AsJson(const kxio::CoordConverter3D& converter, const Located& located) const {
        const Place place = PlaceOf(converter.GetScanInformation().grid, located.cell);
        const kxmath::Vector3 local = Metres(located.stored);
        const kxmath::Vector3 world = converter.GetScanInformation().registration.ToFrame().Transform(local);
        Json json{{"schema", "qsn.locate"},
                  {"version", 1},
                  {"file", m_input},
                  {"row", place.row},
                  {"column", place.column},
                  {"patchRow", located.cell.patchRow},
                  {"patchColumn", located.cell.patchColumn},
                  {"patchIndex", place.patchIndex},
                  {"rowInPatch", located.cell.row},
                  {"columnInPatch", located.cell.column},
                  {"indexInPatch", place.indexInPatch},
                  {"hasReturn", located.stored.range > 0},
                  {"range", kMetres * static_cast<double>(located.stored.range)},
                  {"horizontal", static_cast<double>(located.stored.horizontal)},
                  {"vertical", static_cast<double>(located.stored.vertical)},
                  {"local", Json::array({local.x, local.y, local.z})},
                  {"registered", Json::array({world.x, world.y, world.z})}};
        if (located.exact) json["exact"] = *located.exact;
        if (located.distance) json["distance"] = *located.distance;
        if (located.offDirection) json["offDirectionDegrees"] = *located.offDirection;
        return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    }

    static std::string AsText(const kxio::CoordConverter3D& converter, const Located& located) {
        const Place place = PlaceOf(converter.GetScanInformation().grid, located.cell);
        const kxmath::Vector3 local = Metres(located.stored);
        const kxmath::Vector3 world = converter.GetScanInformation().registration.ToFrame().Transform(local);
        const auto point = [](const kxmath::Vector3& p) {
            return fmt::format("{:.4f} {:.4f} {:.4f} m", p.x, p.y, p.z);
        };
        TextLayout text;
        text.Section(fmt::format("Row {}, column {}", place.row, place.column));
        text.Row("patch", fmt::format("row {}, column {} (index {})", located.cell.patchRow,
                                      located.cell.patchColumn, place.patchIndex));
        text.Row("in the patch", fmt::format("row {}, column {} (index {})", located.cell.row,
                                             located.cell.column, place.indexInPatch));
        text.Row("range", located.stored.range > 0
                              ? fmt::format("{:.4f} m", kMetres * static_cast<double>(located.stored.range))
                              : std::string("no return"));
        text.Row("horizontal",
                 fmt::format("{:.5f} deg", kDegrees * static_cast<double>(located.stored.horizontal)));
        text.Row("from the zenith",
                 fmt::format("{:.5f} deg", kDegrees * static_cast<double>(located.stored.vertical)));
        if (located.stored.range > 0) {
            text.Row("scanner's frame", point(local));
            text.Row("project's frame", point(world));
        }
        if (located.exact)
            text.Row("the point asked for",
                     fmt::format("{}, {:.4f} m away", *located.exact ? "this very one" : "not stored",
                                 *located.distance));
        if (located.offDirection)
            text.Row("off the direction", fmt::format("{:.5f} deg", *located.offDirection));
        return text.ToString();
    }

    std::string m_input;
    std::string m_point;
    std::string m_direction;
    std::string m_cell;
    bool m_registered = false;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeLocateCommand() {
    return std::make_unique<LocateCommand>();
}

}  // namespace qsn
