// SPDX-License-Identifier: MIT
#include "ConversionReport.h"

#include <fmt/format.h>

#include "Console.h"
#include "Numbers.h"

namespace qsn {

namespace {

Json TextOrNull(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

Json LossesJson(const kxexchange::LossReport& losses) {
    Json list = Json::array();
    for (const kxexchange::LossEntry& entry : losses.entries) {
        list.push_back({{"field", entry.field},
                        {"fate", kxexchange::FateText(entry.fate)},
                        {"detail", TextOrNull(entry.detail)},
                        {"inverse", TextOrNull(entry.inverse)}});
    }
    return list;
}

Json ScanJson(const ConvertedScan& scan) {
    Json json;
    json["source"] = scan.source;
    json["scan"] = scan.scan;
    json["name"] = TextOrNull(scan.name);
    json["output"] = scan.output;
    json["format"] = scan.format;
    json["finishedBefore"] = scan.finishedBefore;
    json["columns"] = scan.columns;
    json["rows"] = scan.rows;
    json["points"] = scan.points;
    json["bytes"] = scan.bytes;
    json["losses"] = LossesJson(scan.losses);
    json["warnings"] = scan.warnings;
    return json;
}

}  // namespace

std::string ReportText(const ConvertedScan& scan) {
    const std::string head = fmt::format("{} -> {}\n", Printable(scan.source), Printable(scan.output));
    if (scan.finishedBefore) return head + "  finished before\n";
    std::string text = head;
    if (scan.columns != 0) {
        text += fmt::format("  {} x {} cells, {} returns", scan.columns, scan.rows, Grouped(scan.points));
    } else {
        text += fmt::format("  {} points", Grouped(scan.points));
    }
    text += scan.greatestRange > 0 ? fmt::format(", farthest {:.3f} m\n", scan.greatestRange) : "\n";
    text += fmt::format("  {} from {}", ShortBytes(scan.bytes), ShortBytes(scan.sourceBytes));
    const double cells = scan.columns != 0
                             ? static_cast<double>(scan.columns) * static_cast<double>(scan.rows)
                             : static_cast<double>(scan.points);
    if (cells > 0) text += fmt::format(", {:.1f} bits per cell", 8 * static_cast<double>(scan.bytes) / cells);
    text += fmt::format(", {:.1f} s\n", scan.seconds);
    for (const kxexchange::Fate fate : {kxexchange::Fate::Converted, kxexchange::Fate::Lost}) {
        for (const kxexchange::LossEntry& entry : scan.losses.entries) {
            if (entry.fate != fate) continue;
            text += fmt::format("  {}: {}", kxexchange::FateText(fate), Printable(entry.field));
            if (!entry.detail.empty()) text += fmt::format(" ({})", Printable(entry.detail));
            text += "\n";
        }
    }
    for (const std::string& warning : scan.warnings)
        text += fmt::format("  warning: {}\n", Printable(warning));
    return text;
}

Json ReportJson(const char* command, const std::vector<ConvertedScan>& scans,
                const std::vector<FailedScan>& failures) {
    Json json;
    json["schema"] = "qsn.convert";
    json["version"] = 1;
    json["command"] = command;
    json["scans"] = Json::array();
    for (const ConvertedScan& scan : scans)
        json["scans"].push_back(ScanJson(scan));
    json["failures"] = Json::array();
    for (const FailedScan& failure : failures) {
        json["failures"].push_back({{"source", failure.source},
                                    {"error", failure.error},
                                    {"exitCode", static_cast<int>(failure.code)}});
    }
    return json;
}

}  // namespace qsn
