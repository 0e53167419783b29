// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>
#include <filesystem>
#include <list>
#include <string>

#include "Commands.h"
#include "Console.h"
#include "Errors.h"
#include "JsonOutput.h"
#include "OutputFile.h"
#include "kxbase/UTF8.h"
#include "kxio/QSNInfo.h"

namespace qsn {

namespace {

Json Names(const std::list<std::wstring>& paths) {
    Json names = Json::array();
    for (const std::wstring& path : paths)
        names.push_back(kxbase::Encode_UTF8(path));
    return names;
}

std::string Lines(const char* title, const std::list<std::wstring>& paths) {
    std::string text = std::string(title) + (paths.empty() ? " none\n" : "\n");
    for (const std::wstring& path : paths)
        text += "  " + Printable(kxbase::Encode_UTF8(path)) + "\n";
    return text;
}

class PartsCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input,
                       "A file of the set; what belongs to it is told\n"
                       "by the names, no file is opened")
            ->required()
            ->type_name("");
        app.add_flag("--json", m_json, "JSON of the schema qsn.parts, version 1");
    }

    void Run(const Session&) override {
        std::error_code ignored;
        if (!std::filesystem::exists(ToPath(m_input), ignored))
            throw Failure(m_input + ": there is no such file", ExitCannotOpen);
        const std::wstring path = kxbase::Decode_UTF8(m_input);
        const auto dependencies = kxio::QSNInfo::GetAllDependencyFileList(path);
        const auto parts = kxio::QSNInfo::GetQSNtoMergeList(path);
        const bool mergeNeeded = kxio::QSNInfo::IsMergeNeeded(path);
        if (m_json) {
            Json json = JsonDocument("qsn.parts", 1, m_input);
            json["dependencies"] = Names(dependencies);
            json["parts"] = Names(parts);
            json["mergeNeeded"] = mergeNeeded;
            WriteOutput(JsonText(json));
            return;
        }
        WriteOutput(Lines("Other files of the set:", dependencies) + Lines("Parts to merge:", parts) +
                    "Merge needed: " + (mergeNeeded ? "yes" : "no") + "\n");
    }

private:
    std::string m_input;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakePartsCommand() {
    return std::make_unique<PartsCommand>();
}

}  // namespace qsn
