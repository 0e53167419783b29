// SPDX-License-Identifier: MIT
#include "E57PageWriter.h"

#include <algorithm>
#include <array>

#include "E57Checksum.h"
#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

constexpr size_t kBufferPages = 512;

void Seal(unsigned char* page) {
    const uint32_t crc = Crc32c({page, kE57PageContent});
    unsigned char* const end = page + kE57PageContent;
    for (int i = 0; i < 4; ++i)
        end[i] = static_cast<unsigned char>(crc >> (24 - 8 * i));
}

}  // namespace

E57PageWriter::E57PageWriter(kxbase::IOutFileStream& stream) : m_stream(stream) {
    m_buffer.reserve(kBufferPages * kE57PageBytes);
}

void E57PageWriter::Append(std::span<const unsigned char> bytes) {
    while (!bytes.empty()) {
        const uint64_t at = m_position % kE57PageContent;
        if (at == 0) {
            if (m_buffer.size() == kBufferPages * kE57PageBytes) Flush();
            m_buffer.resize(m_buffer.size() + kE57PageBytes);
        }
        const size_t count = std::min(bytes.size(), static_cast<size_t>(kE57PageContent - at));
        std::copy_n(bytes.begin(), count, m_buffer.end() - static_cast<ptrdiff_t>(kE57PageBytes - at));
        bytes = bytes.subspan(count);
        m_position += count;
    }
}

void E57PageWriter::Align(uint64_t alignment) {
    static constexpr std::array<unsigned char, 64> kZeros{};
    const uint64_t over = m_position % alignment;
    if (over != 0) Append(std::span(kZeros).first(static_cast<size_t>(alignment - over)));
}

uint64_t E57PageWriter::Reserve(uint64_t count) {
    const uint64_t first = m_position;
    const std::vector<unsigned char> zeros(static_cast<size_t>(count));
    m_reserved.emplace_back(first, first + count);
    Append(zeros);
    return first;
}

void E57PageWriter::WritePages(uint64_t first, std::span<const unsigned char> pages) {
    if (!m_stream.Seek(first * kE57PageBytes)) throw kxbase::KXWritingException("Cannot write file");
    m_stream.Write(pages.data(), pages.size());
}

// Writes the buffered pages; those with reserved places are kept beside for Fill.
void E57PageWriter::Flush() {
    if (m_buffer.empty()) return;
    const uint64_t pages = m_buffer.size() / kE57PageBytes;
    for (uint64_t i = 0; i < pages; ++i)
        Seal(m_buffer.data() + i * kE57PageBytes);
    for (const auto& [first, end] : m_reserved) {
        for (uint64_t page = first / kE57PageContent; page * kE57PageContent < end; ++page) {
            if (page < m_flushedPages || page >= m_flushedPages + pages) continue;
            const auto begin =
                m_buffer.begin() + static_cast<ptrdiff_t>((page - m_flushedPages) * kE57PageBytes);
            m_kept[page].assign(begin, begin + static_cast<ptrdiff_t>(kE57PageBytes));
        }
    }
    WritePages(m_flushedPages, m_buffer);
    m_flushedPages += pages;
    m_buffer.clear();
}

void E57PageWriter::Fill(uint64_t logical, std::span<const unsigned char> bytes) {
    const auto place = std::find_if(m_reserved.begin(), m_reserved.end(), [&](const auto& reserved) {
        return logical >= reserved.first && logical + bytes.size() <= reserved.second;
    });
    if (place == m_reserved.end()) {
        kxbase::ErrorContext context;
        context.detail = "no reserved place at content byte " + std::to_string(logical);
        throw kxbase::KXWrongDataSizeofException("Wrong data size", context);
    }
    while (!bytes.empty()) {
        const uint64_t page = logical / kE57PageContent;
        const uint64_t at = logical % kE57PageContent;
        const size_t count = std::min(bytes.size(), static_cast<size_t>(kE57PageContent - at));
        if (page >= m_flushedPages) {
            std::copy_n(
                bytes.begin(), count,
                m_buffer.begin() + static_cast<ptrdiff_t>((page - m_flushedPages) * kE57PageBytes + at));
        } else {
            std::vector<unsigned char>& kept = m_kept.at(page);
            std::copy_n(bytes.begin(), count, kept.begin() + static_cast<ptrdiff_t>(at));
            Seal(kept.data());
            WritePages(page, kept);
        }
        bytes = bytes.subspan(count);
        logical += count;
    }
}

uint64_t E57PageWriter::Finish() {
    Flush();
    m_position = m_flushedPages * kE57PageContent;
    return m_flushedPages * kE57PageBytes;
}

}  // namespace kxexchange
