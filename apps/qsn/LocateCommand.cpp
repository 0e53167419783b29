// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

#include "Commands.h"
#include "ComponentNames.h"
#include "Console.h"
#include "Errors.h"
#include "JsonOutput.h"
#include "Numbers.h"
#include "TextLayout.h"
#include "Units.h"
#include "kxbase/UTF8.h"
#include "kxio/CoordConverter3D.h"

namespace qsn {

namespace {

using kxbase::QSNCoordinates;
using kxmath::Vector3;
using PolarPoint = kxbase::tBasePolarPoint<float>;
using XYZPoint = kxbase::tBaseXYZPoint<float>;

/// What is looked for: one of these.
struct Query {
    std::optional<Vector3> point;                        ///< metres
    std::optional<std::pair<double, double>> direction;  ///< horizontal, from the zenith; degrees
    std::optional<std::pair<uint32_t, uint32_t>> cell;   ///< row, column
};

/// A cell, what it stores, and how it was found.
struct Located {
    QSNCoordinates cell;
    PolarPoint stored;
    std::optional<bool> exact;           ///< for a point: the cell stores this very one
    std::optional<double> distance;      ///< for a point: from it to the stored one, metres
    std::optional<double> offDirection;  ///< for a direction: from it to the stored one, radians
};

double Length(const Vector3& v) {
    return std::sqrt(kxmath::Dot(v, v));
}

Vector3 ToMetres(const PolarPoint& polar) {
    const double r = Metres(polar.range);
    const auto h = static_cast<double>(polar.horizontal);
    const auto v = static_cast<double>(polar.vertical);
    return {r * std::sin(v) * std::cos(h), r * std::sin(v) * std::sin(h), r * std::cos(v)};
}

class LocateCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file to read")->required()->type_name("");
        app.add_option("--point", m_point,
                       "A point, metres: the cell that stores it, or\n"
                       "else the nearest return in its direction")
            ->type_name("X,Y,Z");
        app.add_option("--direction", m_direction,
                       "Horizontal angle (from x towards y) and angle\n"
                       "from the zenith, degrees: the nearest return")
            ->type_name("H,V");
        app.add_option("--cell", m_cell,
                       "Row and column of the grid, from 0: what this\n"
                       "cell stores")
            ->type_name("R,C");
        app.add_flag("--registered", m_registered,
                     "The point or direction is in the project's\n"
                     "frame, not in the scanner's own");
        app.add_flag("--json", m_json, "JSON of the schema qsn.locate, version 1");
    }

    void Run(const Session&) override {
        if (!m_point.empty() + !m_direction.empty() + !m_cell.empty() != 1)
            throw UsageError("expected one of --point, --direction and --cell");
        if (m_registered && !m_cell.empty())
            throw UsageError("--registered goes with --point and --direction");
        const Query query = ParseQuery();
        const kxio::CoordConverter3D converter(kxbase::Decode_UTF8(m_input));
        RequireComponents(converter);
        const Located located = Find(converter, query);
        WriteOutput(m_json ? AsJson(converter, located) : AsText(converter, located));
    }

private:
    void RequireComponents(const kxio::CoordConverter3D& converter) const {
        for (const auto component : {kxbase::Range, kxbase::VerticalAngle, kxbase::HorizontalAngle}) {
            if (!converter.IsComponentAvailable(component))
                throw Failure(fmt::format("{}: the file has no component {}; its cells have no place",
                                          m_input, ComponentShortName(component)),
                              ExitWrongUsage);
        }
    }

    Query ParseQuery() const {
        Query query;
        if (!m_point.empty()) {
            const auto numbers = ParseNumbers(m_point, 3);
            if (!numbers)
                throw UsageError(fmt::format("--point {}: expected x,y,z, three numbers in metres", m_point));
            query.point = Vector3{(*numbers)[0], (*numbers)[1], (*numbers)[2]};
        } else if (!m_direction.empty()) {
            const auto angles = ParseNumbers(m_direction, 2);
            if (!angles || (*angles)[1] < 0 || (*angles)[1] > 180)
                throw UsageError(fmt::format(
                    "--direction {}: expected the horizontal angle and, from 0 to 180, the angle from the "
                    "zenith",
                    m_direction));
            query.direction = std::pair((*angles)[0], (*angles)[1]);
        } else {
            query.cell = ParsePlace(m_cell);
            if (!query.cell) throw UsageError(fmt::format("--cell {}: expected row,column", m_cell));
        }
        return query;
    }

    Located Find(const kxio::CoordConverter3D& converter, const Query& query) const {
        try {
            if (query.point) return AtPoint(converter, *query.point);
            if (query.direction)
                return AtDirection(converter, query.direction->first, query.direction->second);
            return AtCell(converter, query.cell->first, query.cell->second);
        } catch (kxbase::KXBadInputException& problem) {
            problem.AddContext({m_input, {}, {}, {}, {}});
            throw;
        }
    }

    /// A point of the frame that --registered names, in the scanner's.
    Vector3 ToLocal(const kxmath::Frame& registration, const Vector3& given) const {
        if (!m_registered) return given;
        const Vector3 local = registration.InverseTransform(given);
        const double error = Length(registration.Transform(local) - given);
        if (!(error <= 1e-6 * (1 + Length(given))))
            throw Failure(
                fmt::format("{}: the registration is no rotation with a shift and cannot be undone", m_input),
                ExitWrongUsage);
        return local;
    }

    static QSNCoordinates CellOf(const kxio::CoordConverter3D& converter,
                                 const kxbase::QSNIndexCoordinates& index) {
        const kxbase::GridTopology& grid = converter.GetScanInformation().grid;
        const uint32_t perRow = grid.PatchesPerRow();
        return {static_cast<int32_t>(index.patchIndex / perRow),
                static_cast<int32_t>(index.patchIndex % perRow),
                static_cast<int32_t>(index.index / grid.patchWidth),
                static_cast<int32_t>(index.index % grid.patchWidth)};
    }

    Located AtPoint(const kxio::CoordConverter3D& converter, const Vector3& given) const {
        const Vector3 local = ToLocal(converter.GetScanInformation().registration.ToFrame(), given);
        const auto inUnits = [](double metres) { return static_cast<float>(metres / kMetresPerUnit); };
        const XYZPoint point(inUnits(local.x), inUnits(local.y), inUnits(local.z));
        const PolarPoint polar(point);
        if (!(polar.range > 0))
            throw UsageError(fmt::format(
                "--point {}: this is the scanner's own place, no direction leads there", m_point));
        Located located;
        kxbase::QSNIndexCoordinates index;
        try {
            index = converter.GetClosestQSNCoordinate(point);
            located.exact = true;
        } catch (const kxbase::KXBadInputException&) {
            // No cell stores this very point: the nearest return in its direction is the answer.
            index = converter.GetClosestValidQSNCoordinate({polar.horizontal, polar.vertical});
            located.exact = false;
        }
        located.cell = CellOf(converter, index);
        located.stored = converter.GetPoint(located.cell);
        located.distance = Length(ToMetres(located.stored) - local);
        return located;
    }

    Located AtDirection(const kxio::CoordConverter3D& converter, double horizontal, double vertical) const {
        const double h = horizontal / kDegreesPerRadian;
        const double v = vertical / kDegreesPerRadian;
        Vector3 wanted{std::sin(v) * std::cos(h), std::sin(v) * std::sin(h), std::cos(v)};
        const kxmath::Frame registration = converter.GetScanInformation().registration.ToFrame();
        // A direction is the way from one place of the project to another.
        if (m_registered) wanted = ToLocal(registration, registration.GetOrigin() + wanted);
        const PolarPoint polar(XYZPoint(static_cast<float>(wanted.x), static_cast<float>(wanted.y),
                                        static_cast<float>(wanted.z)));
        Located located;
        located.cell =
            CellOf(converter, converter.GetClosestValidQSNCoordinate({polar.horizontal, polar.vertical}));
        located.stored = converter.GetPoint(located.cell);
        const Vector3 stored = ToMetres({1000, located.stored.horizontal, located.stored.vertical});
        located.offDirection = 2 * std::asin(std::min(1.0, Length(stored - wanted) / 2));
        return located;
    }

    Located AtCell(const kxio::CoordConverter3D& converter, uint32_t row, uint32_t column) const {
        const kxbase::GridTopology& grid = converter.GetScanInformation().grid;
        if (row >= grid.rows || column >= grid.columns)
            throw UsageError(fmt::format("--cell {}: the grid has {} rows and {} columns", m_cell, grid.rows,
                                         grid.columns));
        Located located;
        if (grid.patchWidth != 0 && grid.patchHeight != 0) {
            located.cell = {
                static_cast<int32_t>(row / grid.patchHeight), static_cast<int32_t>(column / grid.patchWidth),
                static_cast<int32_t>(row % grid.patchHeight), static_cast<int32_t>(column % grid.patchWidth)};
            located.stored = converter.GetPoint(located.cell);
        } else {
            located.stored = PolarPoint::Invalid();
        }
        if (located.stored == PolarPoint::Invalid())
            throw Failure(
                fmt::format("{}: the patch of row {}, column {} cannot be read", m_input, row, column),
                ExitDamaged);
        return located;
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
        const auto point = [](const Vector3& p) {
            return Json::array({RoundedMetres(p.x), RoundedMetres(p.y), RoundedMetres(p.z)});
        };
        const Place place = PlaceOf(converter.GetScanInformation().grid, located.cell);
        const bool hasReturn = located.stored.range > 0;
        Json json = JsonDocument("qsn.locate", 1, m_input);
        json.update({{"row", place.row},
                     {"column", place.column},
                     {"patchRow", located.cell.patchRow},
                     {"patchColumn", located.cell.patchColumn},
                     {"patchIndex", place.patchIndex},
                     {"rowInPatch", located.cell.row},
                     {"columnInPatch", located.cell.column},
                     {"indexInPatch", place.indexInPatch},
                     {"hasReturn", hasReturn}});
        json.update(PolarPointKeys(located.stored));
        json["localMetres"] = nullptr;
        json["registeredMetres"] = nullptr;
        if (hasReturn) {
            const Vector3 local = ToMetres(located.stored);
            json["localMetres"] = point(local);
            json["registeredMetres"] =
                point(converter.GetScanInformation().registration.ToFrame().Transform(local));
        } else {
            json["rangeMetres"] = nullptr;
        }
        json["exact"] = located.exact ? Json(*located.exact) : Json(nullptr);
        json["distanceMetres"] = located.distance ? RoundedMetres(*located.distance) : Json(nullptr);
        json["offDirectionDegrees"] =
            located.offDirection ? RoundedDegrees(*located.offDirection) : Json(nullptr);
        return JsonText(json);
    }

    std::string AsText(const kxio::CoordConverter3D& converter, const Located& located) const {
        const Place place = PlaceOf(converter.GetScanInformation().grid, located.cell);
        const auto point = [](const Vector3& p) {
            return fmt::format("{} {} {} m", Fixed(p.x, 4), Fixed(p.y, 4), Fixed(p.z, 4));
        };
        TextLayout text;
        text.Section(fmt::format("Cell at row {}, column {}", place.row, place.column));
        text.Row("patch", fmt::format("row {}, column {} (index {})", located.cell.patchRow,
                                      located.cell.patchColumn, place.patchIndex));
        text.Row("in the patch", fmt::format("row {}, column {} (index {})", located.cell.row,
                                             located.cell.column, place.indexInPatch));
        text.Row("range", located.stored.range > 0 ? Fixed(Metres(located.stored.range), 4) + " m"
                                                   : std::string("no return"));
        text.Row("horizontal", Fixed(Degrees(located.stored.horizontal), 5) + " deg");
        text.Row("from the zenith", Fixed(Degrees(located.stored.vertical), 5) + " deg");
        if (located.stored.range > 0) {
            const Vector3 local = ToMetres(located.stored);
            text.Row("scanner's frame", point(local));
            text.Row("project's frame",
                     point(converter.GetScanInformation().registration.ToFrame().Transform(local)));
        }
        if (located.exact)
            text.Row("the point asked for",
                     *located.exact ? std::string("is stored here")
                                    : fmt::format("is {} m from this, the nearest return in its direction",
                                                  Fixed(*located.distance, 4)));
        if (located.offDirection)
            text.Row("off the direction", Fixed(*located.offDirection * kDegreesPerRadian, 5) + " deg");
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
