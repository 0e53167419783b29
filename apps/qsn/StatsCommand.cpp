// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
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
#include "TextLayout.h"
#include "kxbase/UTF8.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanStatistics.h"

namespace qsn {

namespace {

using kxio::ChannelStatistics;
using kxio::ComponentStatistics;

Json AsJson(const ComponentStatistics& s) {
    Json json = {{"component", static_cast<uint32_t>(s.component)},
                 {"name", ComponentShortName(s.component)},
                 {"codec", s.codec},
                 {"elementBytes", s.elementBytes},
                 {"cells", s.cells},
                 {"notRead", s.notRead},
                 {"values", s.values},
                 {"channels", Json::array()},
                 {"noReturnShare", nullptr},
                 {"entropyBits", s.entropyBits},
                 {"distinctValues", s.distinctValues},
                 {"bytes", s.storedBytes},
                 {"bytesPerCell", s.bytesPerCell},
                 {"problem", s.problem}};
    for (const ChannelStatistics& channel : s.channels)
        json["channels"].push_back(
            {{"minimum", channel.minimum}, {"maximum", channel.maximum}, {"mean", channel.mean}});
    if (s.noReturnShare) json["noReturnShare"] = *s.noReturnShare;
    return json;
}

const char* UnitOf(kxbase::ComponentType component) {
    switch (component) {
        case kxbase::Range:
            return "mm";
        case kxbase::VerticalAngle:
        case kxbase::HorizontalAngle:
            return "rad";
        default:
            return "";
    }
}

std::string AsText(const std::vector<ComponentStatistics>& all) {
    std::vector<std::vector<std::string>> lines = {
        {"component", "codec", "unit", "minimum", "maximum", "mean", "no return", "entropy", "bytes/cell"}};
    static const char* const kChannels[] = {" red", " green", " blue"};
    for (const ComponentStatistics& s : all) {
        const size_t rows = std::max<size_t>(1, s.channels.size());
        for (size_t c = 0; c < rows; ++c) {
            std::vector<std::string> line = {
                ComponentShortName(s.component) + (rows == 3 ? kChannels[c] : ""), s.codec,
                UnitOf(s.component)};
            if (s.channels.empty()) {
                line.insert(line.end(), 3, "");
            } else {
                for (const double number : {s.channels[c].minimum, s.channels[c].maximum, s.channels[c].mean})
                    line.push_back(fmt::format("{:.7g}", number));
            }
            const bool first = c == 0;  // the others share what belongs to the component
            line.push_back(first && s.noReturnShare ? fmt::format("{:.2f} %", 100 * *s.noReturnShare) : "");
            line.push_back(first ? fmt::format("{:.2f} bits", s.entropyBits) : "");
            line.push_back(first ? fmt::format("{:.3f}", s.bytesPerCell) : "");
            lines.push_back(std::move(line));
        }
    }
    TextLayout layout;
    layout.Table(lines, {false, false, false, true, true, true, true, true, true});
    std::string text = layout.ToString();
    for (const ComponentStatistics& s : all) {
        if (s.notRead != 0)
            text +=
                fmt::format("{}: {} cells not read{}{}\n", ComponentShortName(s.component),
                            Grouped(s.notRead), s.problem.empty() ? "" : "; first: ", Printable(s.problem));
    }
    return text;
}

class StatsCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file to read")->required()->type_name("");
        app.add_flag("--json", m_json, "JSON of the schema qsn.stats, version 1");
    }

    void Run(const Session& session) override {
        const kxio::QSNScanReader reader(kxbase::Decode_UTF8(m_input));
        Progress progress("stats", !session.quiet);
        kxio::StatisticsOptions options;
        options.threads = session.threads;
        options.progress = [&](uint64_t done, uint64_t total) {
            CheckInterrupt();
            progress.Update(done, total, 0, 0);
        };
        const std::vector<ComponentStatistics> all = kxio::MeasureScan(reader, options);
        progress.Finish();
        if (m_json) {
            Json json = JsonDocument("qsn.stats", 1, m_input);
            json["components"] = Json::array();
            for (const ComponentStatistics& statistics : all)
                json["components"].push_back(AsJson(statistics));
            WriteOutput(JsonText(json));
        } else {
            WriteOutput(AsText(all));
        }
        for (const ComponentStatistics& statistics : all) {
            if (!statistics.problem.empty())
                throw Failure(fmt::format("{}: patches could not be read and do not count; first: {}",
                                          m_input, statistics.problem),
                              ExitPartial);
        }
    }

private:
    std::string m_input;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeStatsCommand() {
    return std::make_unique<StatsCommand>();
}

}  // namespace qsn
