// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>
#include <string>

#include "Commands.h"
#include "Console.h"
#include "JsonOutput.h"
#include "Numbers.h"
#include "PatchOption.h"
#include "TextLayout.h"
#include "Units.h"
#include "kxbase/UTF8.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace qsn {

namespace {

using PolarPoint = kxbase::tBasePolarPoint<float>;
using XYZPoint = kxbase::tBaseXYZPoint<float>;

/// An axis-aligned box, metres.
struct Box {
    kxmath::Vector3 minimum;
    kxmath::Vector3 maximum;
};

Json Point(const kxmath::Vector3& p) {
    return Json::array({RoundedMetres(p.x), RoundedMetres(p.y), RoundedMetres(p.z)});
}
Json AsJson(const std::optional<Box>& box) {
    if (!box) return nullptr;
    return {{"minimumMetres", Point(box->minimum)}, {"maximumMetres", Point(box->maximum)}};
}
kxmath::Vector3 InMetres(const XYZPoint& p) {
    return {Metres(p.x), Metres(p.y), Metres(p.z)};
}
std::string PointText(const kxmath::Vector3& p) {
    return fmt::format("{:>12} {:>12} {:>12} m", Fixed(p.x, 4), Fixed(p.y, 4), Fixed(p.z, 4));
}

/// Limits of 0 stand for a patch, or a scan, in which nothing was measured.
bool HasReturns(const PolarPoint& start, const PolarPoint& end) {
    return start.range > 0 && end.range >= start.range;
}

void AddPolarBox(TextLayout& text, const PolarPoint& start, const PolarPoint& end) {
    text.Row("range", HasReturns(start, end) ? fmt::format("{} to {} m", Fixed(Metres(start.range), 4),
                                                           Fixed(Metres(end.range), 4))
                                             : std::string("no returns"));
    text.Row("horizontal", fmt::format("{} to {} deg", Fixed(Degrees(start.horizontal), 5),
                                       Fixed(Degrees(end.horizontal), 5)));
    text.Row("from the zenith",
             fmt::format("{} to {} deg", Fixed(Degrees(start.vertical), 5), Fixed(Degrees(end.vertical), 5)));
}

class BoxCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file to read")->required()->type_name("");
        app.add_option("--patch", m_patch, kPatchOptionHelp)->type_name("R,C");
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
        const std::optional<Box> local = BoxOfReturns(reader, {});
        const std::optional<Box> registered =
            BoxOfReturns(reader, reader.GetScanInformation().registration.ToFrame());
        if (m_json) {
            Json json = Document(start, end, {});
            json["local"] = AsJson(local);
            json["registered"] = AsJson(registered);
            json["verticesMetres"] = nullptr;
            return JsonText(json);
        }
        TextLayout text;
        text.Section("Whole scan");
        AddPolarBox(text, start, end);
        for (const auto& [title, box] : {std::pair("Box in the scanner's frame", local),
                                         std::pair("Box in the project's frame", registered)}) {
            if (!box) continue;
            text.Section(title);
            text.Row("x, y, z from", PointText(box->minimum));
            text.Row("x, y, z to", PointText(box->maximum));
        }
        return text.ToString();
    }

    std::string OfPatch(const kxio::QSNScanReader& reader) const {
        const auto [row, column] = ParsePatch(m_patch, reader.GetScanInformation().grid);
        PolarPoint start;
        PolarPoint end;
        reader.GetBoundingBox(row, column, start, end);
        std::vector<XYZPoint> vertices;
        if (HasReturns(start, end)) vertices = reader.GetPatchVertices(row, column);
        if (m_json) {
            Json json = Document(start, end, std::pair(row, column));
            json["local"] = nullptr;
            json["registered"] = nullptr;
            json["verticesMetres"] = nullptr;
            for (const XYZPoint& vertex : vertices)
                json["verticesMetres"].push_back(Point(InMetres(vertex)));
            return JsonText(json);
        }
        TextLayout text;
        text.Section(fmt::format("Patch at row {}, column {}", row, column));
        AddPolarBox(text, start, end);
        if (!vertices.empty()) text.Section("Corners of its box in the scanner's frame");
        for (size_t i = 0; i < vertices.size(); ++i)
            text.Row(fmt::format("{}", i + 1), PointText(InMetres(vertices[i])));
        return text.ToString();
    }

    Json Document(const PolarPoint& start, const PolarPoint& end,
                  const std::optional<std::pair<uint32_t, uint32_t>>& patch) const {
        Json json = JsonDocument("qsn.bbox", 1, m_input);
        json["patchRow"] = patch ? Json(patch->first) : Json(nullptr);
        json["patchColumn"] = patch ? Json(patch->second) : Json(nullptr);
        const bool hasReturns = HasReturns(start, end);
        json["hasReturns"] = hasReturns;
        for (const auto& [key, corner] : {std::pair("start", start), std::pair("end", end)}) {
            json[key] = PolarPointKeys(corner);
            if (!hasReturns) json[key]["rangeMetres"] = nullptr;
        }
        return json;
    }

    /// The box around the corners of all patches with returns; nothing without any.
    /// \param frame  takes the scanner's coordinates to those of the box
    static std::optional<Box> BoxOfReturns(const kxio::QSNScanReader& reader, const kxmath::Frame& frame) {
        std::optional<Box> box;
        // No patch beyond the record's limits has any; the grid alone may claim patches without end.
        const auto limits = kxio::ScanAccess(reader).ReadLimits();
        const uint64_t count =
            std::min<uint64_t>(reader.GetPatchNumber(), limits ? limits->patches.size() : 0);
        for (uint32_t i = 0; i < count; ++i) {
            PolarPoint start;
            PolarPoint end;
            reader.GetBoundingBox(kxbase::QSNIndex{i, 0}, start, end);
            if (!HasReturns(start, end)) continue;
            for (const XYZPoint& vertex : reader.GetPatchVertices(kxbase::QSNIndex{i, 0})) {
                const kxmath::Vector3 p = frame.Transform(InMetres(vertex));
                if (!box) box = Box{p, p};
                box->minimum = {std::min(box->minimum.x, p.x), std::min(box->minimum.y, p.y),
                                std::min(box->minimum.z, p.z)};
                box->maximum = {std::max(box->maximum.x, p.x), std::max(box->maximum.y, p.y),
                                std::max(box->maximum.z, p.z)};
            }
        }
        return box;
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
