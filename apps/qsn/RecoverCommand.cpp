// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <string>

#include "Commands.h"
#include "ComponentNames.h"
#include "Console.h"
#include "Errors.h"
#include "Interrupt.h"
#include "Numbers.h"
#include "OutputFile.h"
#include "Progress.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxio/QSNFileRecovery.h"
#include "kxio/RecoverToFile.h"

namespace qsn {

namespace {

using Json = nlohmann::ordered_json;
using kxio::QSNFileRecovery;
using kxio::RecoveredComponent;
using kxio::RecoveredGrid;
using kxio::RecoveryReport;

std::string GridSourceText(RecoveredGrid source) {
    switch (source) {
        case RecoveredGrid::ScanHeader:
            return "scan header";
        case RecoveredGrid::ScanHeaderAndChunks:
            return "scan header and chunks";
        case RecoveredGrid::Chunks:
            break;
    }
    return "chunks";
}

std::string AsText(const std::string& input, const std::string& output, const RecoveryReport& report) {
    std::string text = fmt::format("{} -> {}\n", Printable(input), Printable(output));
    text +=
        fmt::format("  {} of {} chunks saved, {} lost; {} points saved\n", Grouped(report.chunksRecovered),
                    Grouped(report.chunksFound), Grouped(report.chunksLost), Grouped(report.pointsSaved));
    for (const RecoveredComponent& c : report.components)
        text += fmt::format("    {:12} {:>8} saved {:>8} lost {:>8} missing or empty\n",
                            ComponentShortName(c.component), Grouped(c.recovered), Grouped(c.lost),
                            Grouped(c.missing));
    text += fmt::format("  grid of {} x {} cells from the {}{}\n", report.grid.columns, report.grid.rows,
                        GridSourceText(report.gridSource), report.anglesFitted ? ", angles fitted" : "");
    std::string rebuilt;
    for (const std::string& piece : report.rebuilt)
        rebuilt += (rebuilt.empty() ? "" : ", ") + piece;
    text += fmt::format("  made anew: {}\n", rebuilt);
    for (const std::string& warning : report.warnings)
        text += fmt::format("  warning: {}\n", Printable(warning));
    return text;
}

Json Head(const char* mode, const std::string& input, const std::string& output, uint64_t found,
          uint64_t recovered, uint64_t lost, uint64_t points) {
    Json json;
    json["schema"] = "qsn.recover";
    json["version"] = 1;
    json["mode"] = mode;
    json["input"] = input;
    json["output"] = output;
    json["chunks"] = {{"found", found}, {"recovered", recovered}, {"lost", lost}};
    json["pointsSaved"] = points;
    return json;
}

std::string AsJson(const std::string& input, const std::string& output, const RecoveryReport& report) {
    Json json = Head("rebuild", input, output, report.chunksFound, report.chunksRecovered, report.chunksLost,
                     report.pointsSaved);
    json["fileBytes"] = report.fileBytes;
    json["damagedPlaces"] = report.damagedPlaces;
    json["unreadableBytes"] = report.unreadableBytes;
    json["grid"] = {{"source", GridSourceText(report.gridSource)},
                    {"anglesFitted", report.anglesFitted},
                    {"columns", report.grid.columns},
                    {"rows", report.grid.rows},
                    {"patchWidth", report.grid.patchWidth},
                    {"patchHeight", report.grid.patchHeight}};
    json["survived"] = {{"mainHeader", report.mainHeaderFound},
                        {"scanHeader", report.scanHeaderFound},
                        {"lookupTable", report.lookupTableFound},
                        {"thumbnail", report.thumbnailKept},
                        {"extendedRecords", report.extendedRecordsFound}};
    json["components"] = Json::array();
    for (const RecoveredComponent& c : report.components) {
        json["components"].push_back({{"component", static_cast<uint32_t>(c.component)},
                                      {"name", ComponentShortName(c.component)},
                                      {"found", c.found},
                                      {"recovered", c.recovered},
                                      {"lost", c.lost},
                                      {"missing", c.missing},
                                      {"storedBytes", c.storedBytes}});
    }
    json["rebuilt"] = report.rebuilt;
    json["warnings"] = report.warnings;
    return json.dump(2) + "\n";
}

class RecoverCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The damaged .qsn file; it is only read")->required()->type_name("");
        app.add_option("OUT", m_output, "The .qsn file to write")->type_name("");
        app.add_option("--ascii", m_text,
                       "Write the points as text instead; the last\n"
                       "row and column of patches are left out")
            ->type_name("OUT");
        app.add_flag("--json", m_json, "Report as JSON of the schema qsn.recover,\nversion 1");
    }

    void Run(const Session& session) override {
        if (m_output.empty() == m_text.empty()) {
            throw UsageError("either OUT or --ascii OUT is needed, and not both");
        }
        bool complete = true;
        const std::string report =
            m_text.empty() ? Rebuild(session, complete) : ExportText(session, complete);
        if (m_json) {
            WriteOutput(report);
        } else if (!session.quiet) {
            WriteError(report);
        }
        if (!complete) throw Ended(ExitPartial);
    }

private:
    std::string Rebuild(const Session& session, bool& complete) const {
        OutputFile output(m_output, session.force, {m_input});
        Progress progress("recover", !session.quiet);
        kxio::RecoveryOptions options;
        options.progress = [&](uint64_t done, uint64_t total) {
            CheckInterrupt();
            progress.Update(0, 0, done, total);
        };
        const RecoveryReport report = output.Guard([&] {
            return kxio::RecoverToFile(kxbase::Decode_UTF8(m_input),
                                       kxbase::Decode_UTF8(output.PartialPath()), options);
        });
        output.Commit();
        progress.Finish();
        complete = report.Complete();
        return m_json ? AsJson(m_input, m_output, report) : AsText(m_input, m_output, report);
    }

    std::string ExportText(const Session& session, bool& complete) const {
        OutputFile output(m_text, session.force, {m_input});
        RequireReadable();
        Progress progress("recover", !session.quiet);
        QSNFileRecovery::AsciiOptions options;
        options.rowDone = [&](uint32_t done, uint32_t total) {
            CheckInterrupt();
            progress.Update(done, total, 0, 0);
        };
        const QSNFileRecovery::AsciiReport report = output.Guard([&] {
            QSNFileRecovery recovery(kxbase::Decode_UTF8(m_input));
            return recovery.ExportAscii(kxbase::Decode_UTF8(output.PartialPath()), options);
        });
        output.Commit();
        progress.Finish();
        complete = report.chunksLost == 0;
        if (m_json) {
            Json json = Head("ascii", m_input, m_text, report.chunksFound,
                             report.chunksFound - report.chunksLost, report.chunksLost, report.points);
            json["rowsMissing"] = report.rowsMissing;
            return json.dump(2) + "\n";
        }
        return fmt::format("{} -> {}\n  {} chunks found, {} lost; {} points saved\n", Printable(m_input),
                           Printable(m_text), Grouped(report.chunksFound), Grouped(report.chunksLost),
                           Grouped(report.points));
    }

    /// The recovery itself takes a file that cannot be opened for an empty one.
    void RequireReadable() const {
        if (!kxbase::kxInFile(kxbase::Decode_UTF8(m_input)).IsOpen())
            throw Failure(fmt::format("{}: cannot be opened", m_input), ExitCannotOpen);
    }

    std::string m_input;
    std::string m_output;
    std::string m_text;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeRecoverCommand() {
    return std::make_unique<RecoverCommand>();
}

}  // namespace qsn
