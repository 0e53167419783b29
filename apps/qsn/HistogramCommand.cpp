// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <map>
#include <optional>
#include <string>

#include "Commands.h"
#include "ComponentNames.h"
#include "Console.h"
#include "Errors.h"
#include "JsonOutput.h"
#include "Numbers.h"
#include "PatchOption.h"
#include "TextLayout.h"
#include "kxbase/UTF8.h"
#include "kxio/HistogramHeader.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace qsn {

namespace {

using Counts = std::map<uint64_t, uint64_t>;

/// All values of one patch, or of the whole scan, with how often they occur.
template <class Header>
Counts CountsOf(const kxbase::ComponentType component, const kxio::ScanAccess& access,
                std::optional<uint32_t> patch) {
    Counts counts;
    for (const auto& [place, values] : Header(access.ReadHistogramRecord(component)).GetHistogram()) {
        if (patch && place.patchIndex != *patch) continue;
        for (const auto& [value, count] : values)
            counts[value] += count;
    }
    return counts;
}

Counts ReadCounts(const kxio::ScanAccess& access, kxbase::ComponentType component,
                  std::optional<uint32_t> patch) {
    switch (component) {
        case kxbase::Luminance8:
            return CountsOf<kxio::Luminance8HistogramHeader>(component, access, patch);
        case kxbase::Luminance16:
            return CountsOf<kxio::Luminance16HistogramHeader>(component, access, patch);
        case kxbase::Class:
            return CountsOf<kxio::ClassHistogramHeader>(component, access, patch);
        case kxbase::Segment:
            return CountsOf<kxio::SegmentHistogramHeader>(component, access, patch);
        default:
            throw UsageError(fmt::format("component {} has no histogram that this program reads",
                                         ComponentShortName(component)));
    }
}

class HistogramCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file to read")->required()->type_name("");
        app.add_option("--component", m_component,
                       "intensity8, intensity16, class or segment\n"
                       "(default: the first that has a histogram)")
            ->type_name("NAME");
        app.add_option("--patch", m_patch, kPatchOptionHelp)->type_name("R,C");
        app.add_flag("--json", m_json, "JSON of the schema qsn.histogram, version 1");
    }

    void Run(const Session&) override {
        std::optional<kxbase::ComponentType> asked;
        if (!m_component.empty()) asked = ParseComponent(m_component);
        const kxio::QSNScanReader reader(kxbase::Decode_UTF8(m_input), 0);
        const kxio::ScanAccess access(reader);
        if (!m_patch.empty()) m_place = ParsePatch(m_patch, access.Grid());
        const kxbase::ComponentType component = asked ? *asked : FirstOf(reader);
        if (!reader.IsHistogramAvailable(component))
            throw Failure(
                fmt::format("{}: no histogram of component {}", m_input, ComponentShortName(component)),
                ExitWrongUsage);
        std::optional<uint32_t> patch;
        if (m_place) patch = access.Grid().PatchesPerRow() * m_place->first + m_place->second;
        const Counts counts = ReadCounts(access, component, patch);
        uint64_t total = 0;
        for (const auto& [value, count] : counts)
            total += count;
        WriteOutput(m_json ? AsJson(component, counts, total) : AsText(component, counts, total));
    }

private:
    kxbase::ComponentType FirstOf(const kxio::QSNScanReader& reader) const {
        const auto available = reader.GetAvailableHistograms();
        if (available.empty()) throw Failure(m_input + ": the file has no histograms", ExitWrongUsage);
        return available.front();
    }

    std::string AsJson(kxbase::ComponentType component, const Counts& counts, uint64_t total) const {
        Json json = JsonDocument("qsn.histogram", 1, m_input);
        json["component"] = ComponentShortName(component);
        json["patchRow"] = m_place ? Json(m_place->first) : Json(nullptr);
        json["patchColumn"] = m_place ? Json(m_place->second) : Json(nullptr);
        json["total"] = total;
        json["values"] = Json::array();
        for (const auto& [value, count] : counts)
            json["values"].push_back({{"value", value}, {"count", count}});
        return JsonText(json);
    }

    std::string AsText(kxbase::ComponentType component, const Counts& counts, uint64_t total) const {
        TextLayout text;
        text.Section(fmt::format(
            "{}{}: {} values, {} cells", ComponentShortName(component),
            m_place ? fmt::format(" of the patch at row {}, column {}", m_place->first, m_place->second) : "",
            Grouped(counts.size()), Grouped(total)));
        std::vector<std::vector<std::string>> lines{{"value", "count", "share"}};
        for (const auto& [value, count] : counts)
            lines.push_back(
                {std::to_string(value), Grouped(count),
                 fmt::format("{:.3f} %", 100 * static_cast<double>(count) / static_cast<double>(total))});
        if (lines.size() > 1) text.Table(lines, {true, true, true});
        return text.ToString();
    }

    std::string m_input;
    std::string m_component;
    std::string m_patch;
    std::optional<std::pair<uint32_t, uint32_t>> m_place;  ///< of the patch
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeHistogramCommand() {
    return std::make_unique<HistogramCommand>();
}

}  // namespace qsn
