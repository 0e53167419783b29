// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>
#include <string>

#include "Commands.h"
#include "Console.h"
#include "ScanInfo.h"

namespace qsn {

namespace {

class InfoCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file to read")->required()->type_name("");
        app.add_flag("--json", m_json, "JSON of the schema qsn.info, version 1");
    }

    void Run(const Session&) override {
        const ScanInfo info = ReadScanInfo(m_input);
        WriteOutput(m_json ? InfoAsJson(info) : InfoAsText(info));
    }

private:
    std::string m_input;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeInfoCommand() {
    return std::make_unique<InfoCommand>();
}

}  // namespace qsn
