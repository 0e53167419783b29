// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <string>

#include "Commands.h"
#include "Console.h"
#include "Errors.h"
#include "Interrupt.h"
#include "JsonOutput.h"
#include "Progress.h"
#include "kxbase/UTF8.h"
#include "kxio/DumpRecords.h"

namespace qsn {

namespace {

using kxio::DumpedField;
using kxio::DumpedRecord;

/// Tags and identifiers are read in hexadecimal.
bool IsTag(const DumpedField& field) {
    return field.name == "type tag" || field.name == "codec identifier";
}

Json ValueAsJson(const DumpedField& field) {
    if (const auto* number = std::get_if<uint64_t>(&field.value)) {
        if (IsTag(field)) return fmt::format("0x{:016x}", *number);
        return *number;
    }
    if (const auto* real = std::get_if<double>(&field.value)) {
        // What is no number has no place in JSON.
        if (!std::isfinite(*real)) return fmt::format("{}", *real);
        return field.type == "f32" ? ShortNumber(static_cast<float>(*real)) : Json(*real);
    }
    return std::get<std::string>(field.value);
}

std::string ValueAsText(const DumpedField& field) {
    if (const auto* number = std::get_if<uint64_t>(&field.value))
        return IsTag(field) ? fmt::format("0x{:016x}", *number) : fmt::format("{}", *number);
    if (const auto* real = std::get_if<double>(&field.value))
        return field.type == "f32" ? fmt::format("{}", static_cast<float>(*real)) : fmt::format("{}", *real);
    const std::string& text = std::get<std::string>(field.value);
    return field.type == "text" ? "\"" + Printable(text) + "\"" : text;
}

Json RecordAsJson(const DumpedRecord& record) {
    Json json = {{"kind", record.kind},     {"offset", record.offset},        {"bytes", record.bytes},
                 {"version", nullptr},      {"damaged", record.damaged},      {"problem", record.problem},
                 {"fields", Json::array()}, {"fieldsLeftOut", record.leftOut}};
    if (record.version) json["version"] = *record.version;
    for (const DumpedField& field : record.fields)
        json["fields"].push_back({{"name", field.name},
                                  {"type", field.type},
                                  {"offset", field.offset},
                                  {"bytes", field.bytes},
                                  {"value", ValueAsJson(field)}});
    return json;
}

std::string RecordAsText(const DumpedRecord& record) {
    std::string text = fmt::format("{:>12}  {} bytes  {}", record.offset, record.bytes, record.kind);
    if (record.version) text += fmt::format("  version {}", *record.version);
    if (record.damaged) text += "  DAMAGED: " + Printable(record.problem);
    text += "\n";
    for (const DumpedField& field : record.fields)
        text +=
            fmt::format("{:>12}    {:5}  {}: {}\n", field.offset, field.type, field.name, ValueAsText(field));
    if (record.leftOut != 0)
        text += fmt::format("{:>12}    and {} more entries' fields\n", "", record.leftOut);
    return text;
}

class DumpCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file to read, whole or damaged")->required()->type_name("");
        app.add_option("--entries", m_entries, "Entries of each table that are shown\n(default: 16)")
            ->type_name("N");
        app.add_flag("--no-decode", m_noDecode, "Do not look whether the data of chunks is whole");
        app.add_flag("--damaged", m_damagedOnly, "Only what is damaged");
        app.add_flag("--json", m_json, "JSON of the schema qsn.dump, version 1; one\nrecord per line");
    }

    void Run(const Session& session) override {
        kxio::DumpOptions options;
        options.decode = !m_noDecode;
        options.mostEntries = m_entries;
        Progress progress("dump", !session.quiet);
        options.progress = [&](uint64_t done, uint64_t total) {
            CheckInterrupt();
            progress.Update(0, 0, done, total);
        };
        uint64_t records = 0;
        uint64_t damaged = 0;
        uint64_t known = 0;
        bool begun = false;
        // Record by record: a file may have millions.
        const auto take = [&](const DumpedRecord& record) {
            ++records;
            damaged += record.damaged ? 1 : 0;
            known += record.version ? 1 : 0;
            if (m_damagedOnly && !record.damaged) return;
            if (!m_json) return WriteOutput(RecordAsText(record));
            if (!begun) WriteOutput(Head());
            WriteOutput((begun ? ",\n    " : "\n    ") + JsonLine(RecordAsJson(record)));
            begun = true;
        };
        kxio::DumpRecords(kxbase::Decode_UTF8(m_input), take, options);
        progress.Finish();
        if (m_json) {
            if (!begun) WriteOutput(Head());
            WriteOutput(fmt::format("\n  ],\n  \"count\": {},\n  \"damaged\": {}\n}}\n", records, damaged));
        }
        if (known == 0) throw Failure(m_input + ": no record of a scan file", ExitUnknownFormat);
    }

private:
    std::string Head() const {
        const std::string head = JsonDocument("qsn.dump", 1, m_input).dump(2);
        return head.substr(0, head.rfind('\n')) + ",\n  \"records\": [";
    }

    std::string m_input;
    uint64_t m_entries = 16;
    bool m_noDecode = false;
    bool m_damagedOnly = false;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeDumpCommand() {
    return std::make_unique<DumpCommand>();
}

}  // namespace qsn
