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
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxio/VerifyScan.h"

namespace qsn {

namespace {

using kxio::FindingSeverity;
using kxio::VerifyFinding;
using kxio::VerifyLevel;
using kxio::VerifyReport;

const char* NameOf(VerifyLevel level) {
    return level == VerifyLevel::Quick ? "quick" : level == VerifyLevel::Full ? "full" : "deep";
}

const char* NameOf(FindingSeverity severity) {
    return severity == FindingSeverity::Error     ? "error"
           : severity == FindingSeverity::Warning ? "warning"
                                                  : "note";
}

Json FindingAsJson(const VerifyFinding& finding) {
    Json json = {{"severity", NameOf(finding.severity)},
                 {"record", finding.record},
                 {"offset", nullptr},
                 {"field", finding.field},
                 {"component", nullptr},
                 {"patch", nullptr},
                 {"text", finding.text}};
    if (finding.offset) json["offset"] = *finding.offset;
    if (finding.component) json["component"] = ComponentShortName(*finding.component);
    if (finding.patchRow) json["patch"] = {{"row", *finding.patchRow}, {"column", *finding.patchColumn}};
    return json;
}

std::string FindingAsText(const VerifyFinding& finding) {
    std::string text = fmt::format("  {}: {}", NameOf(finding.severity), finding.record);
    if (finding.component) text += " of " + ComponentShortName(*finding.component);
    if (finding.patchRow)
        text += fmt::format(", patch row {}, column {}", *finding.patchRow, *finding.patchColumn);
    if (finding.offset) text += fmt::format(", byte {}", *finding.offset);
    if (!finding.field.empty()) text += ", " + finding.field;
    return Printable(text + ": " + finding.text) + "\n";
}

/// "clean", "warnings", "errors", "unusable", "no scan" or "unsupported".
const char* Verdict(const VerifyReport& report) {
    if (!report.isScanFile) return "no scan";
    if (report.unsupported) return "unsupported";
    if (report.errors != 0) return report.Usable() ? "errors" : "unusable";
    return report.warnings != 0 ? "warnings" : "clean";
}

Json ReportAsJson(const std::string& path, const VerifyReport& report) {
    Json json = {
        {"file", path},
        {"bytes", report.fileBytes},
        {"verdict", Verdict(report)},
        {"errors", report.errors},
        {"warnings", report.warnings},
        {"notes", report.notes},
        {"leftOut", report.leftOut},
        {"records", report.records},
        {"components", report.components},
        {"patches",
         {{"all", report.patches}, {"empty", report.emptyPatches}, {"absent", report.absentPatches}}},
        {"chunks", {{"all", report.chunks}, {"damaged", report.damagedChunks}}},
        {"previews", report.previews},
        {"recomputedPatches", report.recomputedPatches},
        {"findings", Json::array()}};
    for (const VerifyFinding& finding : report.findings)
        json["findings"].push_back(FindingAsJson(finding));
    return json;
}

std::string ReportAsText(const std::string& path, const VerifyReport& report) {
    // The first finding says what is there instead; that all the rest is missing follows from it.
    if (!report.isScanFile && !report.findings.empty())
        return Printable(path + ": no scan: " + report.findings.front().text) + "\n";
    std::string text = fmt::format(
        "{}: {} ({}); {} chunks, {} damaged; {} of {} patches empty, {} absent\n", Printable(path),
        Verdict(report), NameOf(report.level), Grouped(report.chunks), Grouped(report.damagedChunks),
        Grouped(report.emptyPatches), Grouped(report.patches), Grouped(report.absentPatches));
    for (const VerifyFinding& finding : report.findings)
        text += FindingAsText(finding);
    if (report.leftOut != 0) text += fmt::format("  and {} more findings\n", Grouped(report.leftOut));
    return text;
}

class VerifyCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_inputs, "The .qsn files to verify; they are only read")
            ->required()
            ->type_name("");
        app.add_flag("--quick", m_quick, "Structure, positions and tables only");
        app.add_flag("--full", m_full, "And decode every chunk, preview and the\nthumbnail (default)");
        app.add_flag("--deep", m_deep,
                     "And compute point count, limits, histograms\nand previews anew and compare");
        app.add_flag("--strict", m_strict, "Warnings count as errors");
        app.add_flag("--json", m_json, "JSON of the schema qsn.verify, version 1");
    }

    void Run(const Session& session) override {
        if (int{m_quick} + int{m_full} + int{m_deep} > 1)
            throw UsageError("--quick, --full and --deep exclude each other");
        kxio::VerifyOptions options;
        options.level = m_quick ? VerifyLevel::Quick : m_deep ? VerifyLevel::Deep : VerifyLevel::Full;
        options.threads = session.threads;
        ExitCode worst = ExitFine;
        Json json = {{"schema", "qsn.verify"},
                     {"version", 1},
                     {"level", NameOf(options.level)},
                     {"files", Json::array()},
                     {"failures", Json::array()}};
        for (const std::string& input : m_inputs) {
            Progress progress("verify", !session.quiet);
            options.progress = [&](uint64_t done, uint64_t total) {
                CheckInterrupt();
                progress.Update(0, 0, done, total);
            };
            VerifyReport report;
            try {
                report = kxio::VerifyScan(kxbase::Decode_UTF8(input), options);
            } catch (const kxbase::KXException& error) {
                // The other files are verified all the same.
                progress.Finish();
                WriteFailure(DescribeError(error));
                json["failures"].push_back({{"file", input},
                                            {"error", DescribeError(error)},
                                            {"exitCode", static_cast<int>(ExitCodeOf(error))}});
                worst = std::max(worst, ExitCodeOf(error));
                continue;
            }
            progress.Finish();
            worst = std::max(worst, CodeOf(report));
            if (m_json) {
                json["files"].push_back(ReportAsJson(input, report));
            } else {
                WriteOutput(ReportAsText(input, report));
            }
        }
        if (m_json) WriteOutput(JsonText(json));
        if (worst != ExitFine) throw Ended(worst);
    }

private:
    ExitCode CodeOf(const VerifyReport& report) const {
        if (!report.isScanFile || report.unsupported) return ExitUnknownFormat;
        if (report.errors != 0) return report.Usable() ? ExitDifferent : ExitDamaged;
        return m_strict && report.warnings != 0 ? ExitDifferent : ExitFine;
    }

    std::vector<std::string> m_inputs;
    bool m_quick = false;
    bool m_full = false;
    bool m_deep = false;
    bool m_strict = false;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeVerifyCommand() {
    return std::make_unique<VerifyCommand>();
}

}  // namespace qsn
