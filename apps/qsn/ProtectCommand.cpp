// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <string>

#include "Commands.h"
#include "Console.h"
#include "Errors.h"
#include "JsonOutput.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxio/ProtectFile.h"

namespace qsn {

namespace {

class ProtectCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file that gets hashes, in place")
            ->required()
            ->type_name("");
        app.add_flag("--json", m_json, "JSON of the schema qsn.protect, version 1");
    }

    void Run(const Session& session) override {
        const std::wstring path = kxbase::Decode_UTF8(m_input);
        const uint64_t before = kxbase::kxInFile(path).GetSize();
        bool added = false;
        try {
            added = kxio::ProtectFile(path);
        } catch (const kxbase::KXBadInputException& e) {
            throw Failure(e.Describe(), ExitDamaged);
        }
        const uint64_t bytes = kxbase::kxInFile(path).GetSize() - before;
        if (m_json) {
            Json json = JsonDocument("qsn.protect", 1, m_input);
            json["added"] = added;
            json["bytes"] = bytes;
            WriteOutput(JsonText(json));
        } else if (!session.quiet) {
            WriteError(
                added ? fmt::format("{}: hashes of every part added, {} bytes\n", Printable(m_input), bytes)
                      : fmt::format("{}: has hashes already\n", Printable(m_input)));
        }
    }

private:
    std::string m_input;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeProtectCommand() {
    return std::make_unique<ProtectCommand>();
}

}  // namespace qsn
