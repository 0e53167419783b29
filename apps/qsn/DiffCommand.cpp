// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "Commands.h"
#include "ComponentNames.h"
#include "Console.h"
#include "Errors.h"
#include "Interrupt.h"
#include "JsonOutput.h"
#include "Numbers.h"
#include "Progress.h"
#include "kxbase/UTF8.h"
#include "kxio/DiffScans.h"
#include "kxio/QSNScanReader.h"

namespace qsn {

namespace {

using kxio::ComponentDifference;
using kxio::DiffReport;
using kxio::PropertyDifference;

/// Where two texts become different; not inside a character.
size_t FirstDifference(const std::string& a, const std::string& b) {
    const auto end = std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first;
    auto place = static_cast<size_t>(end - a.begin());
    while (place > 0 && place < a.size() && (static_cast<unsigned char>(a[place]) & 0xC0) == 0x80)
        --place;
    return place;
}

/// One line of a property that may have several, from shortly before `place`.
std::string Shown(const std::string& text, size_t place) {
    constexpr size_t kMost = 60;
    constexpr size_t kBefore = 20;
    std::string line;
    if (place > kMost / 2 && text.size() > kMost) {
        size_t begin = place - kBefore;
        while (begin > 0 && (static_cast<unsigned char>(text[begin]) & 0xC0) == 0x80)
            --begin;
        line = "..." + Printable(std::string_view(text).substr(begin));
    } else {
        line = Printable(text);
    }
    while (!line.empty() && line.back() == ' ')
        line.pop_back();
    if (line.size() > kMost) {
        size_t end = kMost - 3;
        while (end > 0 && (static_cast<unsigned char>(line[end]) & 0xC0) == 0x80)
            --end;  // not inside a character
        line = line.substr(0, end) + "...";
    }
    return line.empty() ? "(none)" : line;
}

std::string ComponentAsText(const ComponentDifference& c) {
    const std::string name = ComponentShortName(c.component);
    if (!c.inFirst || !c.inSecond)
        return fmt::format("  {}: only in the {} scan\n", name, c.inFirst ? "first" : "second");
    std::string text =
        fmt::format("  {}: {} of {} cells differ", name, Grouped(c.different), Grouped(c.cells));
    if (c.firstCell)
        text += fmt::format(", first at row {}, column {}", c.firstCell->first, c.firstCell->second);
    if (c.largest && *c.largest > 0) text += fmt::format(", largest difference {:.6g}", *c.largest);
    if (c.notCompared != 0) text += fmt::format("; {} cells not compared", Grouped(c.notCompared));
    if (!c.problem.empty()) text += "; " + Printable(c.problem);
    return text + "\n";
}

class DiffCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("A", m_first, "A .qsn file")->required()->type_name("");
        app.add_option("B", m_second, "The .qsn file to compare it with")->required()->type_name("");
        app.add_option("--tolerance", m_tolerances,
                       "Differences up to this count as none: range in\n"
                       "millimetres, angles in radians, intensity and\n"
                       "color in counts; may be repeated (default: 0)")
            ->allow_extra_args(false)
            ->delimiter(',')
            ->type_name("COMPONENT=VALUE");
        app.add_flag("--cells", m_cellsOnly, "Only cells decide; properties are told all\nthe same");
        app.add_flag("--json", m_json, "JSON of the schema qsn.diff, version 1");
    }

    void Run(const Session& session) override {
        kxio::DiffOptions options;
        options.threads = session.threads;
        for (const std::string& text : m_tolerances)
            TakeTolerance(text, options);
        const kxio::QSNScanReader first(kxbase::Decode_UTF8(m_first));
        const kxio::QSNScanReader second(kxbase::Decode_UTF8(m_second));
        Progress progress("diff", !session.quiet);
        options.progress = [&](uint64_t done, uint64_t total) {
            CheckInterrupt();
            progress.Update(done, total, 0, 0);
        };
        const DiffReport report = kxio::DiffScans(first, second, options);
        progress.Finish();
        WriteOutput(m_json ? AsJson(report, options) : AsText(report));
        if (!Same(report)) throw Ended(ExitDifferent);
    }

private:
    bool Same(const DiffReport& report) const { return m_cellsOnly ? report.CellsEqual() : report.Equal(); }

    static void TakeTolerance(const std::string& text, kxio::DiffOptions& options) {
        const size_t sign = text.find('=');
        const auto value = sign == std::string::npos ? std::nullopt : ParseNumber(text.substr(sign + 1));
        if (!value || !(*value >= 0) || !std::isfinite(*value))
            throw UsageError(
                fmt::format("--tolerance {}: expected COMPONENT=VALUE with a number from 0", text));
        const std::string name = text.substr(0, sign);
        if (name == "angles") {
            options.tolerance[kxbase::VerticalAngle] = options.tolerance[kxbase::HorizontalAngle] = *value;
        } else {
            options.tolerance[ParseComponent(name)] = *value;
        }
    }

    std::string AsText(const DiffReport& report) const {
        std::string text = fmt::format("{} and {}: {}\n", Printable(m_first), Printable(m_second),
                                       Same(report) ? "equal" : "different");
        for (const PropertyDifference& p : report.properties) {
            const size_t place = FirstDifference(p.first, p.second);
            text += fmt::format("  {}{}: {} | {}\n", p.name, p.storage ? " (storage only)" : "",
                                Shown(p.first, place), Shown(p.second, place));
        }
        if (!report.sameSize) text += "  the grids have different sizes: cells were not compared\n";
        for (const ComponentDifference& c : report.components)
            text += ComponentAsText(c);
        return text;
    }

    std::string AsJson(const DiffReport& report, const kxio::DiffOptions& options) const {
        Json json = {{"schema", "qsn.diff"},
                     {"version", 1},
                     {"first", m_first},
                     {"second", m_second},
                     {"equal", report.Equal()},
                     {"cellsEqual", report.CellsEqual()},
                     {"sameSize", report.sameSize},
                     {"properties", Json::array()},
                     {"components", Json::array()}};
        for (const PropertyDifference& p : report.properties)
            json["properties"].push_back(
                {{"name", p.name}, {"first", p.first}, {"second", p.second}, {"storage", p.storage}});
        for (const ComponentDifference& c : report.components) {
            Json component = {{"component", static_cast<uint32_t>(c.component)},
                              {"name", ComponentShortName(c.component)},
                              {"inFirst", c.inFirst},
                              {"inSecond", c.inSecond},
                              {"cells", c.cells},
                              {"different", c.different},
                              {"notCompared", c.notCompared},
                              {"firstDifferent", nullptr},
                              {"largest", nullptr},
                              {"tolerance", 0.0},
                              {"problem", c.problem}};
            if (c.firstCell)
                component["firstDifferent"] = {{"row", c.firstCell->first}, {"column", c.firstCell->second}};
            if (c.largest && std::isfinite(*c.largest)) component["largest"] = *c.largest;
            if (const auto t = options.tolerance.find(c.component); t != options.tolerance.end())
                component["tolerance"] = t->second;
            json["components"].push_back(std::move(component));
        }
        return JsonText(json);
    }

    std::string m_first;
    std::string m_second;
    std::vector<std::string> m_tolerances;
    bool m_cellsOnly = false;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeDiffCommand() {
    return std::make_unique<DiffCommand>();
}

}  // namespace qsn
