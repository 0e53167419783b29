// SPDX-License-Identifier: MIT
#include "Conversion.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>

#include "Console.h"
#include "Errors.h"
#include "Numbers.h"
#include "OutputFile.h"
#include "kxbase/Exceptions.h"
#include "kxexchange/RecodeScan.h"
#include "kxexchange/Regrid.h"

namespace qsn {

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

bool HasScan(kxexchange::ScanSource& source, uint64_t index) {
    if (auto* const regrid = dynamic_cast<kxexchange::RegridSource*>(&source)) return regrid->HasScan(index);
    try {
        source.OpenScan(index);
        return true;
    } catch (const kxbase::KXIndexOutOfBoundsException&) {
        return false;
    }
}

/// A failure of one input that says nothing about the others.
bool ConcernsTheInput(ExitCode code) {
    return code == ExitCannotOpen || code == ExitUnknownFormat || code == ExitDamaged ||
           code == ExitPartial || code == ExitDifferent;
}

}  // namespace

Conversion::Conversion(const ConversionSettings& settings, const Session& session, ConversionVerb verb)
    : m_settings(settings), m_session(session), m_verb(verb), m_label(VerbText(verb)) {}

void Conversion::Run(const std::vector<std::string>& inputs, const std::string& output) {
    m_settings.Check();
    m_settings.ImportOptions(m_session);  // says what is wrong with them before any work
    // The narrower verbs are for one file.
    m_inputPaths = m_verb == ConversionVerb::Convert ? ExpandInputs(inputs) : inputs;
    for (const std::string& name : m_inputPaths)
        m_inputs.push_back({name, name});
    PlanOutput(output);
    for (Input& input : m_inputs) {
        if (input.name != kStandardStream) continue;
        m_spooled.push_back(SpoolStandardInput());
        input.path = m_spooled.back()->Path();
    }
    const bool collects = !m_folder && m_target.HoldsSeveral();
    if (collects) {
        CollectAll();
    } else {
        for (const Input& input : m_inputs)
            Convert(input);
    }
    Finish();
}

void Conversion::PlanOutput(const std::string& output) {
    std::error_code error;
    const bool slash = output.ends_with('/');
    m_output = output;
    const bool import = m_verb == ConversionVerb::Import;
    if (output == kStandardStream) {
        if (m_settings.To().empty() && !import)
            throw UsageError("-: --to says what standard output shall be");
        if (m_settings.Json()) throw UsageError("--json and the output - exclude each other");
        m_target = TargetFormatOf(import ? kQsnFormat : m_settings.To(), output);
        m_standardOutput = std::make_unique<TemporaryFile>(m_target.ending);
        m_output = m_standardOutput->Path();
        return;
    }
    m_folder = slash || fs::is_directory(ToPath(output), error);
    if (m_folder && m_settings.To().empty() && !import)
        throw UsageError(fmt::format("{}: a folder; --to says what the files in it shall be", output));
    m_target = import ? TargetFormat{kQsnFormat, ".qsn", nullptr} : TargetFormatOf(m_settings.To(), output);
    if (m_folder && slash) {
        fs::create_directories(ToPath(output), error);
        if (error) throw Failure(fmt::format("{}: {}", output, error.message()), ExitWriteFailed);
    }
    const fs::path folder = m_folder ? ToPath(output) : ToPath(output).parent_path();
    const std::string command =
        fmt::format("{} inputs={} output={} in={} {}", m_label, fmt::join(m_inputPaths, "|"), output,
                    ToUtf8(fs::absolute(folder.empty() ? fs::path(".") : folder, error)), m_settings.Text());
    m_journal = std::make_unique<ConversionJournal>(folder, command);
    if (!m_session.force) m_journal->Load();
}

std::unique_ptr<kxexchange::ScanSource> Conversion::Open(const Input& input) const {
    kxexchange::SourceOptions options = m_settings.SourceOptions(m_session);
    if (m_target.sink) {
        options.coordinateKind = kxexchange::ScanFileExport::WantedCoordinates(
            *m_target.sink, m_settings.ExportOptions(m_session));
    }
    auto source = kxexchange::OpenScanSource(ToPath(input.path), options);
    if (!m_settings.Regrid()) return source;
    return std::make_unique<kxexchange::RegridSource>(std::move(source));
}

// One input that fails does not keep the others from being converted, nor does it cost the scans in front of
// the failure.
void Conversion::Convert(const Input& input) {
    try {
        const auto source = Open(input);
        ConvertEach(input, *source);
    } catch (const std::exception& error) {
        const bool nothingElse = m_inputs.size() == 1 && m_scans.empty();
        if (!ConcernsTheInput(ExitCodeOf(error)) || (nothingElse && !m_settings.Json())) throw;
        NoteFailure(input, error);
    }
}

void Conversion::NoteFailure(const Input& input, const std::exception& error) {
    const std::string text = DescribeError(error);
    WriteFailure(text);
    m_failures.push_back({input.name, text, ExitCodeOf(error)});
}

/// Indexes of the scans asked for by name; nothing when none was.
std::vector<uint64_t> Conversion::Wanted(kxexchange::ScanSource& source) const {
    std::vector<uint64_t> wanted;
    if (m_settings.ScanNumber()) return {*m_settings.ScanNumber() - 1};
    const std::string name = m_settings.ScanName();
    if (name.empty()) return wanted;
    const uint64_t count = source.ScanCount();
    for (uint64_t index = 0; index < count; ++index) {
        if (source.OpenScan(index).name == name) wanted.push_back(index);
    }
    if (wanted.empty()) throw UsageError(fmt::format("{}: no scan is called '{}'", source.Name(), name));
    return wanted;
}

void Conversion::ConvertEach(const Input& input, kxexchange::ScanSource& source) {
    const std::vector<uint64_t> wanted = Wanted(source);
    for (const uint64_t index : wanted)
        ConvertOne(input, source, index, wanted.size() > 1);
    if (!wanted.empty()) return;
    // Whether a file holds further scans may show only behind the first one.
    bool more = true, numbered = false;
    for (uint64_t index = 0; more; ++index) {
        if (index == 0) numbered = HasScan(source, 1);
        ConvertOne(input, source, index, numbered);
        more = numbered && HasScan(source, index + 1);
    }
}

std::string Conversion::TargetOf(const Input& input, uint64_t number, bool numbered) {
    std::string name = m_output;
    if (m_folder) {
        const std::string stem = input.name == kStandardStream ? "stdin" : StemOf(input.name);
        name = ToUtf8(ToPath(m_output) / ToPath(stem + m_target.ending));
        if (numbered) name = NumberedName(name, number);
    } else if (m_inputs.size() > 1) {
        name = NumberedName(name, m_made + 1);
    } else if (numbered) {
        name = NumberedName(name, number);
    }
    if (m_standardOutput && name != m_output)
        throw UsageError("-: several scans; --scan says which one goes to standard output");
    if (std::find(m_taken.begin(), m_taken.end(), name) != m_taken.end())
        throw UsageError(fmt::format("{}: two scans would become this file", name));
    m_taken.push_back(name);
    return name;
}

void Conversion::ConvertOne(const Input& input, kxexchange::ScanSource& source, uint64_t index,
                            bool numbered) {
    const std::string target = TargetOf(input, index + 1, numbered);
    ++m_made;
    ConvertedScan result;
    result.source = input.name;
    result.scan = index + 1;
    result.output = m_standardOutput ? kStandardStream : target;
    result.format = m_target.name;
    const bool journaled = m_journal && input.name != kStandardStream && (numbered || m_inputs.size() > 1);
    if (journaled && m_journal->Finished(input.path, index) == target) {
        result.finishedBefore = true;
        Tell(std::move(result));
        return;
    }
    OutputFile output(target, m_session.force, m_inputPaths);
    const auto start = Clock::now();
    output.Guard([&] {
        Write(input, source, index, output.PartialPath(), result);
        return 0;
    });
    result.seconds = SecondsSince(start);
    if (journaled) m_journal->Note(input.path, index, output.PartialPath(), target);
    output.Commit();
    Tell(std::move(result));
}

void Conversion::Write(const Input& input, kxexchange::ScanSource& source, uint64_t index,
                       const std::string& path, ConvertedScan& result) {
    ExchangeProgress progress(m_label, !m_session.quiet);
    const auto take = [&](auto& report) {
        result.name = report.name;
        result.bytes = report.bytesWritten;
        result.losses = std::move(report.losses);
        result.warnings = std::move(report.warnings);
    };
    result.sourceBytes = source.FileBytes();
    if (m_target.IsQsn()) {
        const bool recode = source.FormatName() == kQsnFormat;
        kxexchange::ImportOptions start;
        if (recode) start = kxexchange::OptionsOf(ToPath(input.path));
        const kxexchange::ImportOptions options = m_settings.ImportOptions(m_session, start);
        kxexchange::ImportReport report =
            recode ? kxexchange::RecodeScan(ToPath(input.path), ToPath(path), options, &progress)
                   : kxexchange::ImportScan(source, index, ToPath(path), options, &progress);
        result.columns = report.grid.columns;
        result.rows = report.grid.rows;
        result.points = report.returns;
        result.greatestRange = report.greatestRange;
        take(report);
    } else {
        kxexchange::ScanFileExport file(ToPath(path), *m_target.sink, m_settings.ExportOptions(m_session));
        kxexchange::ExportReport report = file.Add(source, index, &progress);
        report.bytesWritten = file.Commit();
        result.columns = report.columns;
        result.rows = report.rows;
        result.points = report.points;
        take(report);
    }
    progress.Finish();
}

// All scans of all inputs into one file, which is not made when one of them fails.
void Conversion::CollectAll() {
    OutputFile output(m_output, m_session.force, m_inputPaths);
    const auto start = Clock::now();
    std::vector<ConvertedScan> scans = output.Guard([&] {
        kxexchange::ScanFileExport file(ToPath(output.PartialPath()), *m_target.sink,
                                        m_settings.ExportOptions(m_session));
        for (const Input& input : m_inputs) {
            try {
                Collect(input, file);
            } catch (const std::exception& error) {
                if (!m_settings.Json() || !ConcernsTheInput(ExitCodeOf(error))) throw;
                NoteFailure(input, error);
                return std::vector<ConvertedScan>();
            }
        }
        const uint64_t bytes = file.Commit();
        if (m_scans.size() == 1) m_scans[0].bytes = bytes;
        return std::move(m_scans);
    });
    m_scans.clear();
    if (!m_failures.empty()) return;
    if (scans.size() == 1) scans[0].seconds = SecondsSince(start);
    output.Commit();
    for (ConvertedScan& scan : scans)
        Tell(std::move(scan));
}

void Conversion::Collect(const Input& input, kxexchange::ScanFileExport& file) {
    const auto source = Open(input);
    const std::vector<uint64_t> wanted = Wanted(*source);
    const auto add = [&](uint64_t index) {
        const auto start = Clock::now();
        ExchangeProgress progress(m_label, !m_session.quiet);
        kxexchange::ExportReport report = file.Add(*source, index, &progress);
        progress.Finish();
        ConvertedScan& scan = m_scans.emplace_back();
        scan.source = input.name;
        scan.scan = index + 1;
        scan.name = report.name;
        scan.output = m_standardOutput ? kStandardStream : m_output;
        scan.format = m_target.name;
        scan.columns = report.columns;
        scan.rows = report.rows;
        scan.points = report.points;
        scan.sourceBytes = source->FileBytes();
        scan.bytes = report.bytesWritten;
        scan.seconds = SecondsSince(start);
        scan.losses = std::move(report.losses);
        scan.warnings = std::move(report.warnings);
    };
    for (const uint64_t index : wanted)
        add(index);
    if (!wanted.empty()) return;
    add(0);
    for (uint64_t index = 1; HasScan(*source, index); ++index)
        add(index);
}

void Conversion::Tell(ConvertedScan scan) {
    if (!m_session.quiet && !m_settings.Json()) WriteError(ReportText(scan));
    m_scans.push_back(std::move(scan));
}

void Conversion::Finish() {
    if (m_standardOutput && m_failures.empty()) WriteFileToOutput(m_output);
    if (m_settings.Json()) WriteOutput(JsonText(ReportJson(m_label, m_scans, m_failures)));
    // With a single input there is nothing to go on with: its next version is another file.
    if (m_journal && (m_failures.empty() || m_inputs.size() == 1)) m_journal->Remove();
    if (m_failures.empty()) return;
    throw Ended(m_scans.empty() ? m_failures.front().code : ExitPartial);
}

}  // namespace qsn
