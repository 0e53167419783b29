// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <string>

#include "Commands.h"
#include "Console.h"
#include "Errors.h"
#include "ExchangeProgress.h"
#include "Numbers.h"
#include "OutputFile.h"
#include "kxexchange/ExportScan.h"

namespace qsn {

namespace {

std::string ReportText(const std::string& input, const std::string& output,
                       const kxexchange::ExportReport& report, double seconds) {
    std::string text = fmt::format("{} -> {}\n", Printable(input), Printable(output));
    text +=
        fmt::format("  {} x {} cells, {} points{}{}, {} frame\n", report.columns, report.rows,
                    Grouped(report.points), report.intensity ? ", intensity" : "",
                    report.color ? ", colour" : "", report.registrationApplied ? "project's" : "scanner's");
    text += fmt::format("  {}, {:.1f} s\n", ShortBytes(report.bytesWritten), seconds);
    for (const std::string& warning : report.warnings)
        text += fmt::format("  warning: {}\n", Printable(warning));
    return text;
}

class ExportCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file to read")->required()->type_name("");
        app.add_option("OUT", m_output,
                       "The file to write; its ending, .ptx, .ply or\n"
                       ".xyz, names the format")
            ->required()
            ->type_name("");
        app.add_flag("--registered", m_registered,
                     "Points in the project's frame\n"
                     "(default for ply and xyz)");
        app.add_flag("--local", m_local,
                     "Points in the scanner's own frame\n"
                     "(default for ptx)");
    }

    void Run(const Session& session) override {
        if (m_registered && m_local) throw UsageError("--registered and --local exclude each other");
        const kxexchange::SinkFormat* const format = kxexchange::SinkFormatOf(ToPath(m_output));
        if (!format)
            throw UsageError(fmt::format("{}: unknown ending; expected .ptx, .ply or .xyz", m_output));
        OutputFile output(m_output, session.force, {m_input});

        kxexchange::ExportOptions options;
        options.sink.threads = static_cast<int>(session.threads);
        if (m_registered) options.registration = kxexchange::RegistrationUse::Apply;
        if (m_local) options.registration = kxexchange::RegistrationUse::Keep;

        const auto start = std::chrono::steady_clock::now();
        ExchangeProgress progress("export", !session.quiet);
        const kxexchange::ExportReport report = output.Guard([&] {
            return kxexchange::ExportScan(ToPath(m_input), ToPath(output.PartialPath()), format->name,
                                          options, &progress);
        });
        output.Commit();
        progress.Finish();
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (!session.quiet) WriteError(ReportText(m_input, m_output, report, seconds));
    }

private:
    std::string m_input;
    std::string m_output;
    bool m_registered = false;
    bool m_local = false;
};

}  // namespace

std::unique_ptr<Command> MakeExportCommand() {
    return std::make_unique<ExportCommand>();
}

}  // namespace qsn
