// SPDX-License-Identifier: MIT
#include "ConversionSettings.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>

#include "Command.h"
#include "Errors.h"
#include "FormatNames.h"
#include "ImportSettings.h"
#include "Numbers.h"

namespace qsn {

namespace {

void DefineImport(CLI::App& app, std::string& patch, std::vector<std::string>& codecs,
                  std::vector<std::string>& scales, std::string& color, CodecPresetFlags& presets,
                  bool& noHashes, double& anglePrecision) {
    app.add_option("--patch", patch,
                   "Cells per patch of a .qsn file: one number,\n"
                   "or WxH (default: 256)")
        ->type_name("SIZE");
    app.add_option("--codec", codecs,
                   "Codec of range, angles, intensity or color\n"
                   "in a .qsn file: zlib, snappy, zstd, grid,\n"
                   "grid-fast or (color only) rgb or jpeg; may\n"
                   "be repeated; outranks the next three")
        ->allow_extra_args(false)
        ->delimiter(',')
        ->type_name("COMPONENT=CODEC");
    DefineCodecPresets(app, presets);
    app.add_flag("--no-hashes", noHashes,
                 "No hashes in a .qsn file; they tell damage and\n"
                 "are there unless --plain is given");
    app.add_option("--scale", scales,
                   "Smallest difference that a .qsn file keeps:\n"
                   "range in millimetres (default: 0.1);\n"
                   "vertical, horizontal or angles in radians\n"
                   "(default: 1e-6); may be repeated")
        ->allow_extra_args(false)
        ->delimiter(',')
        ->type_name("COMPONENT=VALUE");
    app.add_option("--angle-precision", anglePrecision,
                   "In a .qsn file: keep angles only so precise\n"
                   "that no point moves by more than this many\n"
                   "millimetres across the beam; smaller, e.g.\n"
                   "with 0.05 (default: as --scale says)")
        ->check(CLI::Range(0.0, 1000.0).description(""))
        ->type_name("MM");
    app.add_option("--color", color,
                   "In a .qsn file: jpeg is smaller, colours\n"
                   "change a little; lossless (default)")
        ->type_name("KIND");
}

}  // namespace

const char* VerbText(ConversionVerb verb) {
    switch (verb) {
        case ConversionVerb::Import:
            return "import";
        case ConversionVerb::Export:
            return "export";
        default:
            return "convert";
    }
}

void ConversionSettings::Define(CLI::App& app, ConversionVerb verb) {
    app.add_option("--scan", m_scan, "Only this scan of the file: its number, from 1,\nor its name")
        ->type_name("N|NAME");
    app.add_option("--from", m_from,
                   InHelpLines("Format of the input instead of what its ending says: " + SourceNames()))
        ->type_name("FORMAT");
    if (verb != ConversionVerb::Export) {
        app.add_flag("--regrid", m_regrid,
                     "Put points without a grid on one, when they\n"
                     "came from a single place; refuse them when\n"
                     "they did not");
    }
    if (verb != ConversionVerb::Import) {
        app.add_option("--to", m_to,
                       InHelpLines("Format of the output instead of what its ending says: " + SinkNames()))
            ->type_name("FORMAT");
        app.add_flag("--registered", m_registered,
                     "Points in the project's frame (default where\n"
                     "the format holds points and no pose)");
        app.add_flag("--local", m_local,
                     "Points in the scanner's own frame (default\n"
                     "of the other formats)");
        app.add_option("--coordinates", m_coordinates,
                       "cartesian or spherical, single or double,\n"
                       "where the format leaves a choice")
            ->type_name("KIND");
        app.add_option("--decimals", m_decimals,
                       "Decimals of coordinates in text, 1 to 12\n"
                       "(default: as fine as the scan)")
            ->check(CLI::Range(1, 12).description(""))
            ->type_name("N");
        app.add_option("--plane", m_plane,
                       "What npy and png hold: range (default),\n"
                       "azimuth, elevation, x, y, z, intensity, red,\n"
                       "green, blue, classification, valid; png:\n"
                       "also color")
            ->type_name("NAME");
        app.add_flag("--only-returns", m_onlyReturns,
                     "Leave out cells without a return where the\n"
                     "format may do without them");
    }
    if (verb != ConversionVerb::Export)
        DefineImport(app, m_patch, m_codecs, m_scales, m_color, m_presets, m_noHashes, m_anglePrecision);
    app.add_flag("--no-intensity", m_noIntensity, "Leave out intensities");
    app.add_flag("--no-color", m_noColor, "Leave out colours");
    app.add_flag("--strict", m_strict,
                 "Write nothing that would lose anything;\n"
                 "exit code 1 instead");
    app.add_flag("--json", m_json, "Report on standard output as JSON, losses\nincluded");
}

void ConversionSettings::Check() const {
    if (m_registered && m_local) throw UsageError("--registered and --local exclude each other");
    if (m_scan == "0") throw UsageError("--scan 0: scans are counted from 1");
    m_presets.Check();
    RequireSourceFormat(m_from);
    RequireSinkFormat(m_to);
    kxexchange::ExportOptions ignored;
    ApplyCoordinates(m_coordinates, ignored);
}

kxexchange::ImportOptions ConversionSettings::ImportOptions(const Session& session,
                                                            kxexchange::ImportOptions start) const {
    start.threads = static_cast<int>(session.threads);
    start.intensity = !m_noIntensity;
    start.color = !m_noColor;
    start.strict = m_strict;
    start.anglePrecision = m_anglePrecision;
    if (!m_patch.empty()) ApplyPatch(m_patch, start);
    if (m_presets.Any()) m_presets.Apply(start);
    start.hashes = !m_noHashes && !m_presets.plain;
    if (!m_color.empty()) ApplyColor(m_color, start);
    for (const std::string& text : m_codecs)
        ApplyCodec(text, start);
    for (const std::string& text : m_scales)
        ApplyScale(text, start);
    return start;
}

kxexchange::ExportOptions ConversionSettings::ExportOptions(const Session& session) const {
    kxexchange::ExportOptions options;
    options.sink.threads = static_cast<int>(session.threads);
    options.sink.decimals = m_decimals;
    options.sink.noReturns = !m_onlyReturns;
    options.sink.plane = m_plane;
    options.intensity = !m_noIntensity;
    options.color = !m_noColor;
    options.strict = m_strict;
    if (m_registered) options.registration = kxexchange::RegistrationUse::Apply;
    if (m_local) options.registration = kxexchange::RegistrationUse::Keep;
    ApplyCoordinates(m_coordinates, options);
    return options;
}

kxexchange::SourceOptions ConversionSettings::SourceOptions(const Session& session) const {
    kxexchange::SourceOptions options;
    options.threads = static_cast<int>(session.threads);
    options.format = m_from;
    return options;
}

std::optional<uint64_t> ConversionSettings::ScanNumber() const {
    if (const auto number = ParseCount(m_scan); number && *number > 0) return *number;
    return std::nullopt;
}

std::string ConversionSettings::ScanName() const {
    return ScanNumber() ? std::string() : m_scan;
}

std::string ConversionSettings::Text() const {
    return fmt::format(
        "scan={} from={} to={} patch={} codec={} scale={} angles={} color={} coordinates={} decimals={} "
        "plane={} "
        "flags={}{}{}{}{}{}{}{}{}{}{}",
        m_scan, m_from, m_to, m_patch, fmt::join(m_codecs, ","), fmt::join(m_scales, ","), m_anglePrecision,
        m_color, m_coordinates, m_decimals, m_plane, m_registered ? 'r' : '-', m_local ? 'l' : '-',
        m_noIntensity ? 'i' : '-', m_noColor ? 'c' : '-', m_onlyReturns ? 'o' : '-', m_strict ? 's' : '-',
        m_presets.fast ? 'f' : '-', m_presets.small ? 'm' : '-', m_presets.plain ? 'p' : '-',
        m_regrid ? 'g' : '-', m_noHashes ? 'h' : '-');
}

}  // namespace qsn
