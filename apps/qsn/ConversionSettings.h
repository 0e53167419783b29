// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ImportSettings.h"
#include "kxexchange/ExportScan.h"
#include "kxexchange/ImportScan.h"
#include "kxexchange/ScanSource.h"

namespace CLI {
class App;
}

namespace qsn {

struct Session;

/// The three commands that run the same code.
enum class ConversionVerb { Convert, Import, Export };
/// "convert", "import", "export".
const char* VerbText(ConversionVerb verb);

/// The options of `convert`, `import` and `export`, as they were given.
class ConversionSettings {
public:
    /// Adds the options that the verb has.
    void Define(CLI::App& app, ConversionVerb verb);
    /// \throws UsageError  options that exclude each other or cannot be meant
    void Check() const;

    /// How a scan becomes a .qsn file; what was not given stays as in `start`.
    kxexchange::ImportOptions ImportOptions(const Session& session,
                                            kxexchange::ImportOptions start = {}) const;
    kxexchange::ExportOptions ExportOptions(const Session& session) const;
    kxexchange::SourceOptions SourceOptions(const Session& session) const;

    const std::string& From() const { return m_from; }
    const std::string& To() const { return m_to; }
    bool Json() const { return m_json; }
    bool Strict() const { return m_strict; }
    bool Regrid() const { return m_regrid; }
    /// The scan asked for, from 1; nothing when a name or none was given.
    std::optional<uint64_t> ScanNumber() const;
    /// The name asked for; empty when a number or none was given.
    std::string ScanName() const;
    /// All that shapes the outputs, as one text.
    std::string Text() const;

private:
    std::string m_scan;
    std::string m_from;
    std::string m_to;
    std::string m_patch;
    std::vector<std::string> m_codecs;
    CodecPresetFlags m_presets;
    std::vector<std::string> m_scales;
    std::string m_color;
    double m_anglePrecision = 0;
    std::string m_coordinates;
    std::string m_plane;
    int m_decimals = -1;
    bool m_registered = false;
    bool m_local = false;
    bool m_noIntensity = false;
    bool m_noColor = false;
    bool m_onlyReturns = false;
    bool m_regrid = false;
    bool m_noHashes = false;
    bool m_strict = false;
    bool m_json = false;
};

}  // namespace qsn
