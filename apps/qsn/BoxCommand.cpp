// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <numbers>
#include <string>

#include "Commands.h"
#include "Console.h"
#include "Errors.h"
#include "Numbers.h"
#include "TextLayout.h"
#include "kxbase/UTF8.h"
#include "kxio/QSNScanReader.h"

namespace qsn {

namespace {

using Json = nlohmann::ordered_json;
using PolarPoint = kxbase::tBasePolarPoint<float>;
using XYZPoint = kxbase::tBaseXYZPoint<float>;

constexpr double kMetres = 1e-3;  // per unit of the file
constexpr double kDegrees = 180 / std::numbers::pi;

double Metres(float value) {
    return kMetres * static_cast<double>(value);
}
double Degrees(float radians) {
    return kDegrees * static_cast<double>(radians);
}

Json Corner(const PolarPoint& p) {
    return {{"range", Metres(p.range)},
            {"horizontal", static_cast<double>(p.horizontal)},
            {"vertical", static_cast<double>(p.vertical)}};
}
Json Point(const XYZPoint& p) {
    return Json::array({Metres(p.x), Metres(p.y), Metres(p.z)});
}
std::string PointText(const XYZPoint& p) {
    return fmt::format("{:12.4f} {:12.4f} {:12.4f}", Metres(p.x), Metres(p.y), Metres(p.z));
}

void AddBox(TextLayout& text, const PolarPoint& start, const PolarPoint& end) {
    text.Row("range", fmt::format("{:.4f} to {:.4f} m", Metres(start.range), Metres(end.range)));
    text.Row("horizontal",
             fmt::format("{:.5f} to {:.5f} deg", Degrees(start.horizontal), Degrees(end.horizontal)));
    text.Row("from the zenith",
             fmt::format("{:.5f} to {:.5f} deg", Degrees(start.vertical), Degrees(end.vertical)));
}

class BoxCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file to read")->required()->type_name("");
        app.add_option("--patch", m_patch, "Row and column of one patch, from 0, instead of\nthe whole scan")
            ->type_name("R,C");
        app.add_flag("--json", m_json, "JSON of the schema qsn.bbox, version 1");
    }

    void Run(const Session&) override {
        const kxio::QSNScanReader reader(kxbase::Decode_UTF8(m_input), 0);
        WriteOutput(m_patch.empty() ? OfScan(reader) : OfPatch(reader));
    }

private:
    std::string OfScan(const kxio::QSNScanReader& reader) const {
        PolarPoint start;
        PolarPoint end;
        reader.GetScanBoundingBox(start, end);
        const auto box = reader.GetScanEstimatedBoundingBox();
        if (m_json) {
            return Dump({{"schema", "qsn.bbox"},
                         {"version", 1},
                         {"file", m_input},
                         {"start", Corner(start)},
                         {"end", Corner(end)},
                         {"minimum", Point(box.min)},
                         {"maximum", Point(box.max)}});
        }
        TextLayout text;
        text.Section("Whole scan, scanner's frame");
        AddBox(text, start, end);
        text.Row("x, y, z from", PointText(box.min) + " m");
        text.Row("x, y, z to", PointText(box.max) + " m");
        return text.ToString();
    }

    std::string OfPatch(const kxio::QSNScanReader& reader) const {
        const size_t comma = m_patch.find(',');
        const auto row = ParseCount(std::string_view(m_patch).substr(0, comma));
        const auto column = comma == std::string::npos
                                ? std::nullopt
                                : ParseCount(std::string_view(m_patch).substr(comma + 1));
        if (!row || !column) throw UsageError(fmt::format("--patch {}: expected row,column", m_patch));
        const kxbase::GridTopology& grid = reader.GetScanInformation().grid;
        if (*row >= grid.PatchesPerColumn() || *column >= grid.PatchesPerRow())
            throw UsageError(fmt::format("--patch {}: the scan has {} rows and {} columns of patches",
                                         m_patch, grid.PatchesPerColumn(), grid.PatchesPerRow()));
        PolarPoint start;
        PolarPoint end;
        reader.GetBoundingBox(*row, *column, start, end);
        const std::vector<XYZPoint> vertices = reader.GetPatchVertices(*row, *column);
        if (m_json) {
            Json points = Json::array();
            for (const XYZPoint& vertex : vertices)
                points.push_back(Point(vertex));
            return Dump({{"schema", "qsn.bbox"},
                         {"version", 1},
                         {"file", m_input},
                         {"patchRow", *row},
                         {"patchColumn", *column},
                         {"start", Corner(start)},
                         {"end", Corner(end)},
                         {"vertices", points}});
        }
        TextLayout text;
        text.Section(fmt::format("Patch {}, {}, scanner's frame", *row, *column));
        AddBox(text, start, end);
        for (size_t i = 0; i < vertices.size(); ++i)
            text.Row(fmt::format("vertex {}", i + 1), PointText(vertices[i]) + " m");
        return text.ToString();
    }

    static std::string Dump(const Json& json) {
        return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    }

    std::string m_input;
    std::string m_patch;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeBoxCommand() {
    return std::make_unique<BoxCommand>();
}

}  // namespace qsn
