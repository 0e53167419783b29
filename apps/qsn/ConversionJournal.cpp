// SPDX-License-Identifier: MIT
#include "ConversionJournal.h"

#include <fmt/format.h>

#include <cstdint>
#include <fstream>
#include <nlohmann/json.hpp>

#include "OutputFile.h"

namespace qsn {

namespace fs = std::filesystem;

namespace {

constexpr const char* kSchema = "qsn.convert.journal";

uint64_t Hash(const std::string& text) {
    uint64_t hash = 14695981039346656037ULL;  // FNV-1a
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    return hash;
}

std::string Canonical(const std::string& path) {
    std::error_code error;
    const fs::path canonical = fs::canonical(ToPath(path), error);
    return error ? path : ToUtf8(canonical);
}

}  // namespace

std::string FileStamp(const fs::path& path) {
    std::error_code sizeError, timeError;
    const auto size = fs::file_size(path, sizeError);
    const auto time = fs::last_write_time(path, timeError);
    if (sizeError || timeError) return {};
    return fmt::format("{} bytes, {}", size, time.time_since_epoch().count());
}

ConversionJournal::ConversionJournal(const fs::path& folder, const std::string& command)
    : m_path(folder / fmt::format(".qsn-convert-{:016x}.journal", Hash(command))), m_command(command) {}

void ConversionJournal::Load() {
    m_entries.clear();
    std::ifstream in(m_path, std::ios::binary);
    std::string line;
    bool mine = false;
    while (std::getline(in, line)) {
        // A line that was cut short by a crash is no line.
        const auto json = nlohmann::json::parse(line, nullptr, false);
        try {
            if (!mine) {
                mine = json.at("schema") == kSchema && json.at("command") == m_command;
                if (!mine) return;
                continue;
            }
            m_entries.push_back({json.at("source"), json.at("sourceStamp"), json.at("output"),
                                 json.at("outputStamp"), json.at("scan")});
        } catch (const nlohmann::json::exception&) {
            if (!mine) return;
        }
    }
}

std::string ConversionJournal::Finished(const std::string& source, uint64_t scan) const {
    const std::string name = Canonical(source), stamp = FileStamp(ToPath(source));
    if (stamp.empty()) return {};
    for (auto entry = m_entries.rbegin(); entry != m_entries.rend(); ++entry) {
        if (entry->source != name || entry->scan != scan || entry->sourceStamp != stamp) continue;
        const std::string now = FileStamp(ToPath(entry->output));
        return !now.empty() && now == entry->outputStamp ? entry->output : std::string();
    }
    return {};
}

void ConversionJournal::Note(const std::string& source, uint64_t scan, const std::string& partial,
                             const std::string& output) {
    const bool fresh = m_entries.empty();
    m_entries.push_back(
        {Canonical(source), FileStamp(ToPath(source)), output, FileStamp(ToPath(partial)), scan});
    const Entry& entry = m_entries.back();
    std::ofstream out(m_path, std::ios::binary | (fresh ? std::ios::trunc : std::ios::app));
    const auto write = [&](const nlohmann::ordered_json& json) { out << json.dump() << '\n'; };
    if (fresh) write({{"schema", kSchema}, {"command", m_command}});
    write({{"source", entry.source},
           {"sourceStamp", entry.sourceStamp},
           {"scan", entry.scan},
           {"output", entry.output},
           {"outputStamp", entry.outputStamp}});
}

void ConversionJournal::Remove() {
    std::error_code ignored;  // there may be none
    fs::remove(m_path, ignored);
}

}  // namespace qsn
