// SPDX-License-Identifier: MIT
#include "Manual.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fstream>
#include <vector>

#include "Command.h"
#include "Errors.h"
#include "OutputFile.h"

namespace qsn {

namespace {

using Options = std::vector<const CLI::Option*>;

Options NamedOptions(const CLI::App& app) {
    Options named;
    for (const CLI::Option* option : app.get_options()) {
        if (!option->get_positional()) named.push_back(option);
    }
    return named;
}

Options Positionals(const CLI::App& app) {
    Options all;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) all.push_back(option);
    }
    return all;
}

std::vector<const CLI::App*> Subcommands(const CLI::App& program) {
    return program.get_subcommands({});
}

bool TakesValue(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

/// "-q", "--quiet" in this order.
std::vector<std::string> Names(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

/// Descriptions are broken for the help's columns; here each is one line.
std::string OneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

/// Values of an option that has a few fixed ones.
std::vector<std::string> Choices(const CLI::Option& option) {
    if (option.check_lname("progress")) return {"auto", "never", "json"};
    return {};
}

const CommandDescription* DescriptionOf(const CLI::App& subcommand) {
    for (const CommandDescription& description : Commands()) {
        if (subcommand.get_name() == description.name) return &description;
    }
    return nullptr;
}

// The manual.

/// Text for roff: nothing in it is taken for a command, and hyphens can be copied to a shell.
std::string Roff(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\\') {
            escaped += "\\e";
        } else if (c == '-') {
            escaped += "\\-";
        } else {
            escaped += c;
        }
    }
    return escaped.starts_with('.') || escaped.starts_with('\'') ? "\\&" + escaped : escaped;
}

std::string Head(const std::string& title, const std::string& name, const std::string& summary) {
    return fmt::format(".TH {} 1 \"\" \"qsn " QSN_VERSION "\" \"User Commands\"\n.SH NAME\n{} \\- {}\n",
                       title, Roff(name), Roff(summary));
}

/// "[OPTIONS] FILE...": what the line of usage says behind the verb.
std::string Arguments(const CLI::App& subcommand) {
    std::string usage = subcommand.help();
    usage.erase(0, usage.find("Usage:"));
    usage = OneLine(usage.substr(0, usage.find('\n')));
    const size_t options = usage.find("[OPTIONS]");
    if (options != std::string::npos) usage.erase(0, options);
    while (usage.ends_with(' '))
        usage.pop_back();
    return usage;
}

std::string OptionsSection(const CLI::App& app) {
    std::string text = ".SH OPTIONS\n";
    for (const CLI::Option* option : NamedOptions(app)) {
        std::string line;
        for (const std::string& name : Names(*option))
            line += (line.empty() ? "" : ", ") + ("\\fB" + Roff(name) + "\\fR");
        if (TakesValue(*option)) line += " \\fI" + Roff(option->get_type_name()) + "\\fR";
        text += ".TP\n" + line + "\n" + Roff(OneLine(option->get_description())) + "\n";
    }
    return text;
}

std::string ExitSection() {
    std::string text = ".SH EXIT STATUS\n";
    for (const ExitCodeMeaning& meaning : ExitCodeMeanings())
        text += fmt::format(".TP\n{}\n{}\n", static_cast<int>(meaning.code), Roff(meaning.meaning));
    return text;
}

// The shells.

/// Inside single quotes of a shell.
std::string Quoted(const std::string& text) {
    std::string escaped;
    for (const char c : text)
        escaped += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return "'" + escaped + "'";
}

/// In a description of zsh, where brackets and colons divide.
std::string ZshText(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '[' || c == ']' || c == ':' || c == '\\') escaped += '\\';
        escaped += c;
    }
    return escaped;
}

void WriteFile(const std::string& folder, const std::string& name, const std::string& text) {
    std::ofstream file(ToPath(folder) / name, std::ios::binary);
    file << text;
    file.close();
    if (!file) throw Failure(folder + "/" + name + ": cannot be written", ExitWriteFailed);
}

}  // namespace

std::string ManualPage(const CLI::App& program) {
    std::string text = Head("QSN", "qsn", "read, write and show terrestrial laser scans");
    text += ".SH SYNOPSIS\n.B qsn\n\\fICOMMAND\\fR [\\fIOPTION\\fR]... [\\fIARGUMENT\\fR]...\n";
    text += ".SH DESCRIPTION\n" + Roff(program.get_description()) +
            "\nData goes to standard output, everything else to standard error. File names are UTF\\-8, "
            "numbers have\n"
            "a decimal point, whatever the locale. Nothing is ever asked.\n";
    text += ".SH COMMANDS\n";
    for (const CLI::App* command : Subcommands(program))
        text += fmt::format(".TP\n\\fBqsn\\-{}\\fR(1)\n{}\n", Roff(command->get_name()),
                            Roff(command->get_description()));
    text += OptionsSection(program) + ExitSection();
    text +=
        ".SH ENVIRONMENT\n.TP\n\\fBNO_COLOR\\fR\nWhen it is set and not empty, messages are not coloured.\n";
    return text;
}

std::string ManualPage(const CLI::App& /*program*/, const CLI::App& subcommand) {
    const std::string& verb = subcommand.get_name();
    std::string upper = "QSN-" + verb;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    std::string text = Head(upper, "qsn-" + verb, subcommand.get_description());
    text += ".SH SYNOPSIS\n.B qsn " + Roff(verb) + "\n" + Roff(Arguments(subcommand));
    text += "\n.SH DESCRIPTION\n" + Roff(subcommand.get_description()) + ".\n";
    for (const CLI::Option* argument : Positionals(subcommand))
        text += ".TP\n\\fI" + Roff(argument->get_name(true)) + "\\fR\n" +
                Roff(OneLine(argument->get_description())) + "\n";
    text += OptionsSection(subcommand);
    if (const CommandDescription* description = DescriptionOf(subcommand)) {
        text += ".SH EXAMPLES\n";
        for (const Example& example : description->examples)
            text += fmt::format(".TP\n\\fB{}\\fR\n{}\n", Roff(example.commandLine), Roff(example.meaning));
    }
    return text + ExitSection() + ".SH SEE ALSO\n\\fBqsn\\fR(1)\n";
}

std::string BashCompletion(const CLI::App& program) {
    std::string verbs;
    std::string cases;
    std::string values;
    for (const CLI::App* command : Subcommands(program)) {
        verbs += (verbs.empty() ? "" : " ") + command->get_name();
        std::string names;
        for (const CLI::Option* option : NamedOptions(*command)) {
            for (const std::string& name : Names(*option))
                names += (names.empty() ? "" : " ") + name;
        }
        cases += fmt::format("        {}) options={} ;;\n", command->get_name(), Quoted(names));
    }
    for (const std::string& choice : Choices(*Subcommands(program).front()->get_option("--progress")))
        values += (values.empty() ? "" : " ") + choice;
    std::string names;
    for (const CLI::Option* option : NamedOptions(program)) {
        for (const std::string& name : Names(*option))
            names += (names.empty() ? "" : " ") + name;
    }
    return fmt::format(R"(# Completion of qsn for bash.
_qsn() {{
    local word="${{COMP_WORDS[COMP_CWORD]}}" before="${{COMP_WORDS[COMP_CWORD-1]}}" options=''
    if [ "$COMP_CWORD" -eq 1 ]; then
        COMPREPLY=($(compgen -W {} -- "$word"))
        return
    fi
    if [ "$before" = --progress ]; then
        COMPREPLY=($(compgen -W {} -- "$word"))
        return
    fi
    case "${{COMP_WORDS[1]}}" in
{}    esac
    case "$word" in
        -*) COMPREPLY=($(compgen -W "$options" -- "$word")) ;;
        *) local IFS=$'\n'; COMPREPLY=($(compgen -f -- "$word")) ;;
    esac
}}
complete -o filenames -F _qsn qsn
)",
                       Quoted(verbs + " " + names), Quoted(values), cases);
}

std::string ZshCompletion(const CLI::App& program) {
    std::string verbs;
    std::string cases;
    for (const CLI::App* command : Subcommands(program)) {
        verbs += "        " + Quoted(command->get_name() + ":" + command->get_description()) + "\n";
        cases += "        " + command->get_name() + ")\n            _arguments \\\n";
        for (const CLI::Option* option : NamedOptions(*command)) {
            for (const std::string& name : Names(*option)) {
                std::string line = name + "[" + ZshText(OneLine(option->get_description())) + "]";
                if (TakesValue(*option)) {
                    line += ":" + ZshText(option->get_type_name()) + ":";
                    std::string choices;
                    for (const std::string& choice : Choices(*option))
                        choices += (choices.empty() ? "" : " ") + choice;
                    line += choices.empty() ? "_files" : "(" + choices + ")";
                }
                cases += "                " + Quoted(line) + " \\\n";
            }
        }
        cases += "                '*:file:_files'\n            ;;\n";
    }
    return fmt::format(R"(#compdef qsn
# Completion of qsn for zsh.
_qsn() {{
    local -a verbs
    verbs=(
{}    )
    if (( CURRENT == 2 )); then
        _describe 'command' verbs
        return
    fi
    local verb=$words[2]
    shift words
    (( CURRENT-- ))
    case $verb in
{}    esac
}}
_qsn "$@"
)",
                       verbs, cases);
}

std::string FishCompletion(const CLI::App& program) {
    std::string text = "# Completion of qsn for fish.\n";
    const auto options = [&](const CLI::App& app, const std::string& condition) {
        for (const CLI::Option* option : NamedOptions(app)) {
            std::string line = "complete -c qsn -n " + Quoted(condition);
            for (const std::string& name : option->get_snames())
                line += " -s " + name;
            for (const std::string& name : option->get_lnames())
                line += " -l " + name;
            if (TakesValue(*option)) line += " -r";
            std::string choices;
            for (const std::string& choice : Choices(*option))
                choices += (choices.empty() ? "" : " ") + choice;
            if (!choices.empty()) line += " -f -a " + Quoted(choices);
            text += line + " -d " + Quoted(OneLine(option->get_description())) + "\n";
        }
    };
    options(program, "__fish_use_subcommand");
    for (const CLI::App* command : Subcommands(program)) {
        text += fmt::format("complete -c qsn -f -n '__fish_use_subcommand' -a {} -d {}\n",
                            command->get_name(), Quoted(command->get_description()));
        options(*command, "__fish_seen_subcommand_from " + command->get_name());
    }
    return text;
}

void WriteManual(const std::string& folder) {
    WithCommandLine([&](const CLI::App& program) {
        WriteFile(folder, "qsn.1", ManualPage(program));
        for (const CLI::App* command : Subcommands(program))
            WriteFile(folder, "qsn-" + command->get_name() + ".1", ManualPage(program, *command));
        WriteFile(folder, "qsn.bash", BashCompletion(program));
        WriteFile(folder, "_qsn", ZshCompletion(program));
        WriteFile(folder, "qsn.fish", FishCompletion(program));
    });
}

}  // namespace qsn
