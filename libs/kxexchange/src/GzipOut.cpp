// SPDX-License-Identifier: MIT
#include "GzipOut.h"

#include <libdeflate.h>

#include <algorithm>
#include <memory>

#include "CellLines.h"
#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

constexpr size_t kBlockBytes = size_t{1} << 20;
constexpr int kDefaultLevel = 6;
constexpr int kMostLevel = 12;

struct FreeCompressor {
    void operator()(libdeflate_compressor* compressor) const { libdeflate_free_compressor(compressor); }
};

}  // namespace

GzipOut::GzipOut(kxbase::IOutFileStream& inner, int level, int threads)
    : m_inner(inner),
      m_level(level < 0 ? kDefaultLevel : std::min(level, kMostLevel)),
      m_blocks(static_cast<size_t>(ThreadCount(threads))) {
    m_waiting.reserve(m_blocks * kBlockBytes);
}

uint64_t GzipOut::Write(const void* data, uint64_t bytes) {
    const auto* at = static_cast<const unsigned char*>(data);
    for (uint64_t left = bytes; left != 0;) {
        const auto piece =
            static_cast<size_t>(std::min<uint64_t>(left, m_blocks * kBlockBytes - m_waiting.size()));
        m_waiting.insert(m_waiting.end(), at, at + piece);
        at += piece;
        left -= piece;
        if (m_waiting.size() == m_blocks * kBlockBytes) WriteMembers();
    }
    m_taken += bytes;
    return bytes;
}

void GzipOut::WriteMembers() {
    const auto count = static_cast<int>((m_waiting.size() + kBlockBytes - 1) / kBlockBytes);
    std::vector<std::vector<unsigned char>> members(static_cast<size_t>(count));
    bool failed = false;
#pragma omp parallel for num_threads(static_cast <int>(m_blocks)) schedule(static, 1) reduction(|| : failed)
    for (int i = 0; i < count; ++i) {
        try {
            const size_t first = static_cast<size_t>(i) * kBlockBytes;
            const size_t bytes = std::min(kBlockBytes, m_waiting.size() - first);
            const std::unique_ptr<libdeflate_compressor, FreeCompressor> compressor(
                libdeflate_alloc_compressor(m_level));
            std::vector<unsigned char>& member = members[static_cast<size_t>(i)];
            if (compressor) {
                member.resize(libdeflate_gzip_compress_bound(compressor.get(), bytes));
                member.resize(libdeflate_gzip_compress(compressor.get(), m_waiting.data() + first, bytes,
                                                       member.data(), member.size()));
            }
            failed = failed || member.empty();
        } catch (const std::bad_alloc&) {
            failed = true;
        }
    }
    if (failed) throw std::bad_alloc();
    for (const std::vector<unsigned char>& member : members)
        m_packed += m_inner.Write(member.data(), member.size());
    m_waiting.clear();
}

void GzipOut::Close() {
    // A text of nothing is a member of nothing.
    if (!m_waiting.empty() || m_packed == 0) {
        if (m_waiting.empty()) {
            const std::unique_ptr<libdeflate_compressor, FreeCompressor> compressor(
                libdeflate_alloc_compressor(m_level));
            unsigned char member[64];
            const size_t size =
                compressor ? libdeflate_gzip_compress(compressor.get(), nullptr, 0, member, sizeof member)
                           : 0;
            if (size == 0) throw std::bad_alloc();
            m_packed += m_inner.Write(member, size);
        } else {
            WriteMembers();
        }
    }
}

}  // namespace kxexchange
