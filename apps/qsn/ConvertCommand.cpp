// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Commands.h"
#include "Conversion.h"
#include "ConversionSettings.h"
#include "FormatNames.h"

namespace qsn {

namespace {

constexpr const char* kFidelityRules =
    "What is kept:\n"
    "  Intensities come back to the last bit where the file can hold them; otherwise\n"
    "  the mapping and its inverse stand in a message of the scan. The pose goes to\n"
    "  the registration and back to the last bit, GUIDs to UUIDs and back. Every cell\n"
    "  stays in its column and row, also those without a return. What is converted\n"
    "  (within a bound that is told) or lost is reported, and is in --json.\n\n";

/// Says that OUT is required, which the parser does not know.
class Formatter : public CLI::Formatter {
public:
    Formatter() {
        column_width(kHelpColumn);
        label("REQUIRED", "");
    }
    std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override {
        return "Usage: qsn convert [OPTIONS] IN... OUT\n";
    }

private:
    static constexpr size_t kHelpColumn = 31;
};

/// `convert`, and the two narrower verbs that run the same code.
class ConvertCommand : public Command {
public:
    explicit ConvertCommand(ConversionVerb verb) : m_verb(verb) {}

    void Define(CLI::App& app) override {
        if (m_verb == ConversionVerb::Convert) {
            // A list takes all names that there are, OUT too.
            app.formatter(std::make_shared<Formatter>());
            app.add_option(
                   "IN", m_inputs,
                   InHelpLines("Scans to read, folders of them, or - for standard input: " + SourceNames()))
                ->required()
                ->expected(2, -1)
                ->type_name("");
            app.add_option(
                   "OUT", m_output,
                   InHelpLines("The file to write (several scans go into it where the format can, else to "
                               "OUT_1, OUT_2 ...), a folder, or - for standard output; its ending names "
                               "the format: " +
                               SinkNames()))
                ->type_name("");
        } else if (m_verb == ConversionVerb::Import) {
            app.add_option("SCAN", m_input, InHelpLines("The scan to read: " + SourceNames()))
                ->required()
                ->type_name("");
            app.add_option("OUT", m_output,
                           "The .qsn file to write; OUT_1, OUT_2 ...\n"
                           "when SCAN holds several scans")
                ->required()
                ->type_name("");
        } else {
            app.add_option("FILE", m_input, "The .qsn file to read")->required()->type_name("");
            app.add_option("OUT", m_output,
                           InHelpLines("The file to write; its ending names the format: " + SinkEndings()))
                ->required()
                ->type_name("");
        }
        m_settings.Define(app, m_verb);
        app.footer(kFidelityRules + app.get_footer());
    }

    void Run(const Session& session) override {
        if (m_verb == ConversionVerb::Convert) {
            m_output = m_inputs.back();
            m_inputs.pop_back();
        } else {
            m_inputs = {m_input};
        }
        Conversion(m_settings, session, m_verb).Run(m_inputs, m_output);
    }

private:
    const ConversionVerb m_verb;
    ConversionSettings m_settings;
    std::vector<std::string> m_inputs;
    std::string m_input;
    std::string m_output;
};

}  // namespace

std::unique_ptr<Command> MakeConvertCommand() {
    return std::make_unique<ConvertCommand>(ConversionVerb::Convert);
}

std::unique_ptr<Command> MakeImportCommand() {
    return std::make_unique<ConvertCommand>(ConversionVerb::Import);
}

std::unique_ptr<Command> MakeExportCommand() {
    return std::make_unique<ConvertCommand>(ConversionVerb::Export);
}

}  // namespace qsn
