// SPDX-License-Identifier: MIT
#include "E57Spill.h"

#include <algorithm>
#include <random>

#include "Paths.h"
#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

// Bytes of records that wait in memory, all groups together.
constexpr size_t kWaitingBytes = size_t{32} << 20;
constexpr size_t kLeastWaiting = 16;
constexpr size_t kReadRecords = 8192;

std::filesystem::path NewName(std::filesystem::path folder) {
    if (folder.empty()) folder = std::filesystem::temp_directory_path();
    std::random_device random;
    std::filesystem::path path;
    std::error_code ignored;
    do {
        path = folder / ("kxio-sort-" + std::to_string(random()) + std::to_string(random()));
    } while (std::filesystem::exists(path, ignored));
    return path;
}

}  // namespace

E57Spill::E57Spill(const std::filesystem::path& folder, const std::vector<uint64_t>& groupRecords)
    : m_path(NewName(folder)),
      m_out(std::make_unique<kxbase::kxOutFile>(WidePath(m_path))),
      m_groups(groupRecords.size()),
      m_waitingLimit(std::max(kLeastWaiting,
                              kWaitingBytes / sizeof(Record) / std::max<size_t>(1, groupRecords.size()))) {
    if (!m_out->IsOpen()) FailOpen();
    uint64_t first = 0;
    for (size_t i = 0; i < groupRecords.size(); ++i) {
        m_groups[i].first = first;
        first += groupRecords[i];
    }
}

E57Spill::~E57Spill() {
    if (m_in) m_in->Close();
    m_out.reset();
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
}

void E57Spill::FailOpen() const {
    kxbase::ErrorContext context;
    context.file = PathText(m_path);
    context.detail = "the temporary file in which records are sorted";
    throw kxbase::KXFileNotOpenException("Cannot open file", context);
}

void E57Spill::Flush(Group& group) {
    if (!m_out->Seek((group.first + group.written) * sizeof(Record)))
        throw kxbase::KXWritingException("Cannot write file", {PathText(m_path), {}, {}, {}, {}});
    m_out->Write(group.waiting.data(), group.waiting.size() * sizeof(Record));
    group.written += group.waiting.size();
    group.waiting.clear();
}

void E57Spill::Add(size_t index, uint32_t place, const Cell& cell) {
    Group& group = m_groups[index];
    group.waiting.push_back({cell, place});
    if (group.waiting.size() >= m_waitingLimit) Flush(group);
}

void E57Spill::Close() {
    for (Group& group : m_groups) {
        if (!group.waiting.empty()) Flush(group);
        group.waiting.shrink_to_fit();
    }
    m_out->Close();
    m_in = std::make_unique<kxbase::kxInFile>(WidePath(m_path));
    if (!m_in->IsOpen()) FailOpen();
}

void E57Spill::ForEach(size_t index, const std::function<void(uint32_t, const Cell&)>& take) {
    const Group& group = m_groups[index];
    std::vector<Record> records(static_cast<size_t>(std::min<uint64_t>(group.written, kReadRecords)));
    for (uint64_t done = 0; done < group.written;) {
        const auto count = static_cast<size_t>(std::min<uint64_t>(records.size(), group.written - done));
        if (!m_in->Seek((group.first + done) * sizeof(Record)) ||
            m_in->Read(records.data(), count * sizeof(Record)) != count * sizeof(Record)) {
            FailOpen();
        }
        for (size_t i = 0; i < count; ++i)
            take(records[i].place, records[i].cell);
        done += count;
    }
}

}  // namespace kxexchange
