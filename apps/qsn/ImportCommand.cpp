// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <string>
#include <vector>

#include "Commands.h"
#include "Console.h"
#include "Errors.h"
#include "ExchangeProgress.h"
#include "ImportSettings.h"
#include "Numbers.h"
#include "OutputFile.h"
#include "kxbase/Exceptions.h"
#include "kxexchange/ImportScan.h"

namespace qsn {

namespace {

/// "folder/scan.qsn" and 2 give "folder/scan_2.qsn".
std::string NumberedName(const std::string& path, uint64_t number) {
    const std::filesystem::path whole = ToPath(path);
    std::filesystem::path name = whole.stem();
    name += fmt::format("_{}", number);
    name += whole.extension();
    return ToUtf8(whole.parent_path() / name);
}

/// \param number  from 1
bool HasScan(kxexchange::ScanSource& source, uint64_t number) {
    try {
        source.OpenScan(number - 1);
        return true;
    } catch (const kxbase::KXIndexOutOfBoundsException&) {
        return false;
    }
}

struct ImportResult {
    kxexchange::ImportReport report;
    uint64_t sourceBytes = 0;
    double seconds = 0;
};

std::string ReportText(const std::string& input, const std::string& output, const ImportResult& result) {
    const kxexchange::ImportReport& report = result.report;
    const double cells = static_cast<double>(report.grid.columns) * report.grid.rows;
    const double bits = cells > 0 ? 8 * static_cast<double>(report.bytesWritten) / cells : 0;
    std::string text = fmt::format("{} -> {}\n", Printable(input), Printable(output));
    text += fmt::format("  {} x {} cells, {} returns, farthest {:.3f} m\n", report.grid.columns,
                        report.grid.rows, Grouped(report.returns), report.greatestRange);
    text += fmt::format("  {} from {}, {:.1f} bits per cell, {:.1f} s\n", ShortBytes(report.bytesWritten),
                        ShortBytes(result.sourceBytes), bits, result.seconds);
    for (const std::string& warning : report.warnings)
        text += fmt::format("  warning: {}\n", Printable(warning));
    return text;
}

class ImportCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("SCAN", m_input, "The scan to read: .ptx or .ptx.gz")->required()->type_name("");
        app.add_option("OUT", m_output,
                       "The .qsn file to write; OUT_1, OUT_2 ...\n"
                       "when SCAN holds several scans")
            ->required()
            ->type_name("");
        app.add_option("--scan", m_scan, "Only this scan of the file, from 1")
            ->check(CLI::PositiveNumber.description(""))
            ->type_name("N");
        app.add_option("--patch", m_patch,
                       "Cells per patch: one number, or WxH\n"
                       "(default: 256)")
            ->type_name("SIZE");
        app.add_option("--codec", m_codecs,
                       "Codec of range, angles, intensity or color:\n"
                       "zlib, snappy or (color only) jpeg; may be\n"
                       "repeated (default: zlib)")
            ->allow_extra_args(false)
            ->delimiter(',')
            ->type_name("COMPONENT=CODEC");
        app.add_option("--scale", m_scales,
                       "Smallest difference kept: range in\n"
                       "millimetres; vertical, horizontal or angles in\n"
                       "radians; may be repeated\n"
                       "(default: range=0.1, angles=1e-6)")
            ->allow_extra_args(false)
            ->delimiter(',')
            ->type_name("COMPONENT=VALUE");
        app.add_option("--color", m_color,
                       "jpeg: smaller, colours change a little;\n"
                       "lossless (default)")
            ->type_name("KIND");
    }

    void Run(const Session& session) override {
        const kxexchange::ImportOptions options = Options(session);
        OutputFile output(m_output, session.force, {m_input});
        kxexchange::SourceOptions sourceOptions;
        sourceOptions.threads = options.threads;
        const auto source = kxexchange::OpenScanSource(ToPath(m_input), sourceOptions);
        if (m_scan > 0) {
            const ImportResult result = ImportOne(*source, m_scan, output, options, session);
            output.Commit();
            Tell(m_output, result, session);
            return;
        }
        // Whether a file holds further scans may show only behind the first one.
        const ImportResult firstResult = ImportOne(*source, 1, output, options, session);
        bool more = HasScan(*source, 2);
        const std::string firstName = more ? NumberedName(m_output, 1) : m_output;
        output.CommitAs(firstName);
        Tell(firstName, firstResult, session);
        for (uint64_t number = 2; more; ++number) {
            OutputFile next(NumberedName(m_output, number), session.force, {m_input});
            const ImportResult result = ImportOne(*source, number, next, options, session);
            next.Commit();
            Tell(next.Path(), result, session);
            more = HasScan(*source, number + 1);
        }
    }

private:
    kxexchange::ImportOptions Options(const Session& session) const {
        kxexchange::ImportOptions options;
        options.threads = static_cast<int>(session.threads);
        if (!m_patch.empty()) ApplyPatch(m_patch, options);
        if (!m_color.empty()) ApplyColor(m_color, options);
        for (const std::string& text : m_codecs)
            ApplyCodec(text, options);
        for (const std::string& text : m_scales)
            ApplyScale(text, options);
        return options;
    }

    /// \param number  from 1
    ImportResult ImportOne(kxexchange::ScanSource& source, uint64_t number, const OutputFile& output,
                           const kxexchange::ImportOptions& options, const Session& session) const {
        const auto start = std::chrono::steady_clock::now();
        ExchangeProgress progress("import", !session.quiet);
        ImportResult result;
        result.report = output.Guard([&] {
            return kxexchange::ImportScan(source, number - 1, ToPath(output.PartialPath()), options,
                                          &progress);
        });
        result.sourceBytes = source.FileBytes();
        result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return result;
    }

    void Tell(const std::string& output, const ImportResult& result, const Session& session) const {
        if (!session.quiet) WriteError(ReportText(m_input, output, result));
    }

    std::string m_input;
    std::string m_output;
    uint64_t m_scan = 0;  // from 1; 0: all
    std::string m_patch;
    std::vector<std::string> m_codecs;
    std::vector<std::string> m_scales;
    std::string m_color;
};

}  // namespace

std::unique_ptr<Command> MakeImportCommand() {
    return std::make_unique<ImportCommand>();
}

}  // namespace qsn
