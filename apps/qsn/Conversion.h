// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "ConversionInputs.h"
#include "ConversionJournal.h"
#include "ConversionReport.h"
#include "ConversionSettings.h"
#include "ExchangeProgress.h"
#include "FormatNames.h"

namespace qsn {

class OutputFile;

/// Converts scans of any format to any other: what `convert`, `import` and `export` do.
class Conversion {
public:
    Conversion(const ConversionSettings& settings, const Session& session, ConversionVerb verb);

    /// \param output  a file, a folder (one that exists, or a name with a slash behind it), or "-"
    /// \throws UsageError, Failure and what the library throws; Ended when some inputs failed that were
    ///         reported already
    void Run(const std::vector<std::string>& inputs, const std::string& output);

private:
    struct Input {
        std::string name;  ///< as given, for reports
        std::string path;  ///< where it is read
    };

    void PlanOutput(const std::string& output);
    void Convert(const Input& input);
    void NoteFailure(const Input& input, const std::exception& error);
    void ConvertEach(const Input& input, kxexchange::ScanSource& source);
    void ConvertOne(const Input& input, kxexchange::ScanSource& source, uint64_t index, bool numbered);
    void CollectAll();
    void Collect(const Input& input, kxexchange::ScanFileExport& file);
    std::string TargetOf(const Input& input, uint64_t number, bool numbered);
    void Write(const Input& input, kxexchange::ScanSource& source, uint64_t index, const std::string& path,
               ConvertedScan& result);
    std::vector<uint64_t> Wanted(kxexchange::ScanSource& source) const;
    std::unique_ptr<kxexchange::ScanSource> Open(const Input& input) const;
    void Tell(ConvertedScan scan);
    void Finish();

    const ConversionSettings& m_settings;
    const Session& m_session;
    const ConversionVerb m_verb;
    const char* const m_label;  // of the progress and the report
    std::vector<std::unique_ptr<TemporaryFile>> m_spooled;
    std::vector<Input> m_inputs;
    std::vector<std::string> m_inputPaths;
    TargetFormat m_target;
    std::string m_output;
    bool m_folder = false;
    std::unique_ptr<TemporaryFile> m_standardOutput;
    std::unique_ptr<ConversionJournal> m_journal;
    std::vector<std::string> m_taken;  // outputs of this run
    uint64_t m_made = 0;               // scans so far
    std::vector<ConvertedScan> m_scans;
    std::vector<FailedScan> m_failures;
};

}  // namespace qsn
