// SPDX-License-Identifier: MIT
#include "Command.h"

#include <fmt/format.h>
#include <omp.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <thread>

#include "Commands.h"
#include "Console.h"
#include "Errors.h"
#include "Manual.h"
#include "Numbers.h"
#include "ProgramSettings.h"
#include "kxbase/UTF8.h"

namespace qsn {

namespace {

const CommandDescription kCommands[] = {
    {"convert",
     "Turn scans of any format into any other",
     {{"qsn convert scan.ptx room.qsn", "one scan; what changes or is lost is reported"},
      {"qsn convert --json --to qsn several.ptx folder/",
       "every scan a file of its own; report for programs"},
      {"qsn convert scan.qsn several.ptx all.ptx", "all scans in one file"},
      {"qsn convert --codec color=jpeg scan.qsn small.qsn", "the same scan, stored otherwise"},
      {"qsn convert --strict scan.qsn copy.ptx", "only if nothing is lost by it"}},
     true,
     MakeConvertCommand},
    {"import",
     "Turn a scan in another format into a .qsn file",
     {{"qsn import scan.ptx scan.qsn", "the whole scan, with the usual settings"},
      {"qsn import --scan 2 several.ptx second.qsn", "one scan of a file that holds several"},
      {"qsn import --codec range=snappy --scale range=1 scan.ptx.gz quick.qsn",
       "faster to read, ranges to the millimetre"}},
     true,
     MakeImportCommand},
    {"info",
     "Tell what a .qsn file holds, without decoding it",
     {{"qsn info scan.qsn", "for people"}, {"qsn info --json scan.qsn", "for programs"}},
     false,
     MakeInfoCommand},
    {"preview",
     "Draw a .qsn file as a panorama",
     {{"qsn preview scan.qsn scan.png", "ranges in colours, with a scale in metres"},
      {"qsn preview --component intensity --size 800x400 scan.qsn intensity.png",
       "intensity, no larger than this"}},
     true,
     MakePreviewCommand},
    {"export",
     "Write the points of a .qsn file in another format",
     {{"qsn export scan.qsn points.ply", "binary PLY in the project's frame, with intensity and colour"},
      {"qsn export --local scan.qsn points.xyz", "text, in the scanner's own frame"},
      {"qsn export scan.qsn copy.ptx", "every cell, also those without a return"}},
     true,
     MakeExportCommand},
    {"edit",
     "Append texts and links, set pose and flags",
     {{"qsn edit --message \"checked\" scan.qsn", "one more message at the end of the file"},
      {"qsn edit --registration 0,1,0,-1,0,0,0,0,1,10,20,0 scan.qsn",
       "a quarter turn to the left, standing at 10, 20, 0"},
      {"qsn edit --speckle off --warning \"moved\" --dry-run scan.qsn", "only say what would be done"}},
     false,
     MakeEditCommand},
    {"parts",
     "Tell which files beside a .qsn file belong to it",
     {{"qsn parts scan.qsn", "all files of the set, and the parts to merge"},
      {"qsn parts --json scan.qsn", "for programs"}},
     false,
     MakePartsCommand},
    {"thumbnail",
     "Fetch or replace the thumbnail",
     {{"qsn thumbnail scan.qsn scan.jpg", "the stored image, byte for byte"},
      {"qsn thumbnail scan.qsn scan.png", "the same as PNG"},
      {"qsn thumbnail --set photo.jpg scan.qsn", "another image instead"}},
     true,
     MakeThumbnailCommand},
    {"locate",
     "Find the cell of a point or a direction",
     {{"qsn locate --cell 3,5 scan.qsn", "what this cell stores"},
      {"qsn locate --direction 40,90 --json scan.qsn", "the nearest return to a direction, for programs"},
      {"qsn locate --registered --point 11.61,21.21,3.2 scan.qsn", "a point of the project"}},
     false,
     MakeLocateCommand},
    {"bbox",
     "Tell where a scan lies in space",
     {{"qsn bbox scan.qsn", "ranges, angles and an axis-aligned box in metres"},
      {"qsn bbox --patch 0,0 scan.qsn", "one patch, with the corners of its box"}},
     false,
     MakeBoxCommand},
    {"lod",
     "Write a reduced level of detail",
     {{"qsn lod --level 2 scan.qsn small.png", "the whole grid, a quarter as wide and as high"},
      {"qsn lod --level 1 --row 0 --component color scan.qsn strip.png", "the topmost reduced patches"},
      {"qsn lod --level 0 --row 0 --column 0 --component intensity scan.qsn patch.raw",
       "one patch as it is, 16-bit values without a header"}},
     true,
     MakeLodCommand},
    {"histogram",
     "Tell how often each value of a component occurs",
     {{"qsn histogram scan.qsn", "the first component that has a histogram"},
      {"qsn histogram --component intensity16 --json scan.qsn", "for programs"},
      {"qsn histogram --patch 0,0 scan.qsn", "of one patch"}},
     false,
     MakeHistogramCommand},
    {"verify",
     "Look for damage and contradictions in .qsn files",
     {{"qsn verify scan.qsn", "decodes every chunk"},
      {"qsn verify --quick scan.qsn", "structure, positions and tables only"},
      {"qsn verify --deep --json scan.qsn", "also what was derived from the patches, for programs"}},
     false,
     MakeVerifyCommand},
    {"diff",
     "Compare two .qsn files: properties and every cell",
     {{"qsn diff scan.qsn copy.qsn", "exit code 1 when they differ"},
      {"qsn diff --cells --tolerance range=0.1,angles=1e-6 scan.qsn copy.qsn",
       "cells only, to the tenth of a millimetre"}},
     false,
     MakeDiffCommand},
    {"dump",
     "Show the records of a .qsn file, damaged ones too",
     {{"qsn dump scan.qsn", "offset, size, version and fields"},
      {"qsn dump --damaged broken.qsn", "only what is damaged"}},
     false,
     MakeDumpCommand},
    {"stats",
     "Tell minimum, maximum, mean, entropy of values",
     {{"qsn stats scan.qsn", "a table of the components"}, {"qsn stats --json scan.qsn", "for programs"}},
     false,
     MakeStatsCommand},
    {"protect",
     "Add hashes of every part, so that damage is told",
     {{"qsn protect old.qsn", "verifies the file first; what it held before stays as it is"}},
     false,
     MakeProtectCommand},
    {"recode",
     "Store a .qsn file with other codecs, lossless",
     {{"qsn recode scan.qsn small.qsn", "as small as it gets; all that is no chunk stays as it is"},
      {"qsn recode --fast scan.qsn quick.qsn", "quickest to read"},
      {"qsn recode --codec range=zstd,angles=zstd scan.qsn other.qsn", "only these components"}},
     true,
     MakeRecodeCommand},
    {"recover",
     "Save what survives of a damaged .qsn file",
     {{"qsn recover broken.qsn saved.qsn", "a whole file again, with empty patches where data is lost"},
      {"qsn recover --json broken.qsn saved.qsn", "what was found, lost and made anew, for programs"},
      {"qsn recover broken.qsn --ascii points.txt", "the points alone, as text"}},
     true,
     MakeRecoverCommand},
};

constexpr unsigned kMostThreads = 1024;

unsigned DefaultThreads() {
    return std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
}

std::string ExamplesText(const CommandDescription& description) {
    std::string text = "Examples:";
    for (const Example& example : description.examples)
        text += fmt::format("\n  {}\n      {}", example.commandLine, example.meaning);
    return text;
}

std::string ExitCodesText() {
    std::string text = "Exit codes:";
    for (const ExitCodeMeaning& meaning : ExitCodeMeanings())
        text += fmt::format("\n  {:>3}  {}", static_cast<int>(meaning.code), meaning.meaning);
    return text;
}

/// The parser itself would only say that a command is missing.
void RequireKnownCommand(const std::vector<std::string>& arguments) {
    if (arguments.empty() || arguments.front().starts_with('-')) return;
    std::string names;
    for (const CommandDescription& description : Commands()) {
        if (arguments.front() == description.name) return;
        names += (names.empty() ? "" : ", ") + std::string(description.name);
    }
    throw UsageError(fmt::format("'{}' is no command; expected one of {}", arguments.front(), names));
}

void RequireUtf8(const std::vector<std::string>& arguments) {
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (kxbase::Encode_UTF8(kxbase::Decode_UTF8(arguments[i])) != arguments[i])
            throw UsageError(fmt::format("argument {} is not valid UTF-8", i + 1));
    }
}

/// The same text with lines of at most `columns`, broken at blanks where they are longer.
std::string Wrapped(const std::string& text, size_t columns) {
    std::string wrapped;
    size_t column = 0;
    for (size_t begin = 0; begin < text.size();) {
        if (text[begin] == '\n') {
            wrapped += '\n';
            column = 0;
            ++begin;
            continue;
        }
        const size_t end = std::min(text.find_first_of(" \n", begin + 1), text.size());
        const size_t blank = text[begin] == ' ' ? 1 : 0;
        if (column != 0 && column + end - begin > columns) {
            wrapped += '\n';
            begin += blank;
            column = 0;
        }
        wrapped.append(text, begin, end - begin);
        column += end - begin;
        begin = end;
    }
    return wrapped;
}

/// The whole command line, ready to parse.
class CommandLine {
public:
    CommandLine() : m_app("Reads, writes and shows terrestrial laser scans (.qsn files).", "qsn") {
        m_app.set_version_flag("--version", "qsn " QSN_VERSION, "Show the version and leave");
        m_app.set_help_flag("-h,--help", "Show this help and leave");
        m_app.require_subcommand(1);
        m_app.get_formatter()->column_width(kHelpColumn);
        m_app.get_formatter()->label("REQUIRED", "");  // the line of usage says so
        m_app.footer("Each command has a help of its own with examples: qsn import --help\n\n" +
                     ExitCodesText());
        for (const CommandDescription& description : Commands())
            Add(description);
    }

    int Run(const std::vector<std::string>& arguments) {
        try {
            RequireUtf8(arguments);
            RequireKnownCommand(arguments);
            // The parser takes its arguments from the back.
            m_app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        } catch (const CLI::CallForHelp&) {
            WriteOutput(HelpText());
            FlushOutput();
            return ExitFine;
        } catch (const CLI::CallForVersion& version) {
            WriteOutput(std::string(version.what()) + "\n");
            FlushOutput();
            return ExitFine;
        } catch (const CLI::ParseError& error) {
            throw UsageError(error.what());
        }
        for (Entry& entry : m_entries) {
            if (!entry.app->parsed()) continue;
            ApplySettings();
            const Verbosity verbosity(entry.app->get_name(), m_session.threads, m_verbose);
            const LimitGuard guard;
            try {
                entry.command->Run(m_session);
            } catch (const Ended&) {
                FlushOutput();
                throw;
            }
            FlushOutput();
        }
        return ExitFine;
    }

    const CLI::App& Parser() const { return m_app; }

    /// "qsn" or "qsn import", as far as the parsing came.
    std::string Name() const {
        for (const Entry& entry : m_entries) {
            if (entry.app->parsed()) return "qsn " + entry.app->get_name();
        }
        return "qsn";
    }

private:
    static constexpr size_t kHelpColumn = 31;
    static constexpr size_t kHelpColumns = 80;

    struct Entry {
        CLI::App* app;
        std::unique_ptr<Command> command;
    };

    std::string HelpText() const {
        for (const Entry& entry : m_entries) {
            if (entry.app->parsed()) return entry.app->help("qsn") + "\n";
        }
        return m_app.help();
    }

    void Add(const CommandDescription& description) {
        CLI::App* app = m_app.add_subcommand(description.name, description.summary);
        app->set_help_flag("-h,--help", "Show this help and leave");
        app->footer(ExamplesText(description));
        Entry& entry = m_entries.emplace_back(Entry{app, description.make()});
        entry.command->Define(*app);
        app->add_option("--threads", m_session.threads, "Threads to work with\n(default: one per processor)")
            ->check(CLI::Range(1U, kMostThreads).description(""))
            ->type_name("N");
        app->add_flag("-q,--quiet", m_session.quiet, "No progress and no report");
        app->add_flag("-v,--verbose", m_verbose, "Tell time, threads and memory at the end");
        app->add_option(
               "--progress", m_progress,
               "auto (on a terminal), never, or json: lines of\nJSON on standard error (default: auto)")
            ->type_name("MODE");
        app->add_option("--limit-memory", m_memoryLimit,
                        "Most memory for data, as in 500M or 2G; at\nleast 64M (default: no limit)")
            ->type_name("SIZE");
        if (description.writesFile)
            app->add_flag("-f,--force", m_session.force, "Replace an output that exists already");
        // Lists of formats and the like have lengths that nobody counts.
        for (CLI::Option* option : app->get_options())
            option->description(Wrapped(option->get_description(), kHelpColumns - kHelpColumn));
    }

    /// Says at its end what the work took.
    class Verbosity {
    public:
        Verbosity(std::string name, unsigned threads, bool wanted)
            : m_name(std::move(name)),
              m_threads(threads),
              m_wanted(wanted),
              m_start(std::chrono::steady_clock::now()) {}
        Verbosity(const Verbosity&) = delete;
        Verbosity& operator=(const Verbosity&) = delete;
        ~Verbosity() {
            if (!m_wanted) return;
            const double seconds =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
            try {
                WriteError(fmt::format("qsn {}: {:.2f} s, up to {} threads, most memory {}\n", m_name,
                                       seconds, m_threads, ShortBytes(MostMemory())));
            } catch (...) {
                // There is no memory even for this line.
            }
        }

    private:
        const std::string m_name;
        const unsigned m_threads;
        const bool m_wanted;
        const std::chrono::steady_clock::time_point m_start;
    };

    void ApplySettings() {
        SetProgressMode(ParseProgressMode(m_progress));
        if (!m_memoryLimit.empty()) ApplyMemoryLimit();
        // For those parts of the library that take no count of threads.
        omp_set_num_threads(static_cast<int>(m_session.threads));
    }

    void ApplyMemoryLimit() {
        const auto bytes = ParseBytes(m_memoryLimit);
        if (!bytes || *bytes < kLeastMemory)
            throw UsageError(
                fmt::format("--limit-memory {}: expected a size from 64M, as in 500M or 2G", m_memoryLimit));
        if (!LimitMemory(*bytes)) throw UsageError("--limit-memory: this system cannot limit memory");
        // Each thread has a stack and its own share of the data in work.
        const auto most = static_cast<unsigned>(std::min<uint64_t>(*bytes / kMemoryOfThread, kMostThreads));
        m_session.threads = std::min(m_session.threads, most);
        // They start before the data comes: later there may be no room for their stacks.
        const int threads = static_cast<int>(m_session.threads);
#pragma omp parallel num_threads(threads)
        {}
    }

    static constexpr uint64_t kLeastMemory = uint64_t{64} << 20;
    static constexpr uint64_t kMemoryOfThread = uint64_t{32} << 20;

    Session m_session{DefaultThreads(), false, false};
    bool m_verbose = false;
    std::string m_progress = "auto";
    std::string m_memoryLimit;
    CLI::App m_app;
    std::vector<Entry> m_entries;
};

}  // namespace

Command::~Command() = default;

std::span<const CommandDescription> Commands() {
    return kCommands;
}

void WithCommandLine(const std::function<void(const CLI::App& program)>& use) {
    const CommandLine line;
    use(line.Parser());
}

int RunCommandLine(const std::vector<std::string>& arguments) {
    std::string name = "qsn";
    try {
        CommandLine line;
        try {
            return line.Run(arguments);
        } catch (...) {
            name = line.Name();
            throw;
        }
    } catch (const Ended& ended) {
        return ended.Code();
    } catch (const std::exception& error) {
        WriteFailure(DescribeError(error));
        if (const std::string advice = AdviceFor(error); !advice.empty()) WriteError(advice + "\n");
        if (dynamic_cast<const UsageError*>(&error) != nullptr)
            WriteError(fmt::format("Try '{} --help'.\n", name));
        return ExitCodeOf(error);
    }
}

}  // namespace qsn
