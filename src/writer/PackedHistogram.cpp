// SPDX-License-Identifier: MIT
#include "writer/PackedHistogram.h"

#include <array>
#include <utility>
#include <vector>

#include "format/RecordSize.h"
#include "kxbase/ByteWriter.h"
#include "kxcodecs/ChunkHeader.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxio/ExtendedHeader.h"

namespace kxio {

namespace {

constexpr uint64_t kNumberBytes = sizeof(uint64_t);
// Frame and fixed fields of the record, the chunk's size and the chunk's header.
constexpr uint64_t kBeforeChunk = kxbase::IOHeader::FrameSize + ExtendedHeader::FixedSize + kNumberBytes;
constexpr uint64_t kHeadBytes = kBeforeChunk + kxcodecs::ChunkHeaderInfo::kByteSize;
// Written at once.
constexpr size_t kBatchBytes = size_t{1} << 18;

}  // namespace

PackedHistogram::PackedHistogram(uint64_t type, std::string name, PackedPatches patches)
    : m_type(type), m_name(std::move(name)), m_patches(std::move(patches)) {
    std::array<unsigned char, kNumberBytes> count{};
    kxbase::ByteWriter(count).U64(m_patches.size());
    m_count = kxcodecs::PackPairs(count);
    m_sum.Add(m_count);
    for (const auto& [index, piece] : m_patches)
        m_sum.Add(piece);
}

uint64_t PackedHistogram::RecordBytes() const {
    return kHeadBytes + m_sum.PackedBytes();
}

std::vector<unsigned char> PackedHistogram::Head(uint64_t link) const {
    const uint32_t payload = CheckedPayloadSize(RecordBytes() - kxbase::IOHeader::FrameSize, m_name.c_str());
    std::vector<unsigned char> head(kHeadBytes);
    kxbase::ByteWriter out(head);
    out.U64(ExtendedHeader::Magic);
    out.U32(ExtendedHeader::CurrentVersion);
    out.U32(payload);
    out.U64(link);
    out.U64(m_type);
    out.U32(payload - ExtendedHeader::FixedSize);
    out.U64(RecordBytes() - kBeforeChunk);
    kxcodecs::ChunkHeaderInfo header;
    header.codecId = kxcodecs::ZLibChunkCodec::kIdentifier;
    header.width = static_cast<uint32_t>(m_sum.Bytes() / kNumberBytes);
    header.height = 1;
    header.decodedBytes = header.uncompressedBytes = static_cast<uint32_t>(m_sum.Bytes());
    kxcodecs::EncodeChunkHeader(header, std::span(head).subspan(kBeforeChunk));
    return head;
}

void PackedHistogram::Write(uint64_t link, const Sink& sink) {
    std::vector<unsigned char> bytes = Head(link);
    const auto add = [&](std::span<const unsigned char> more) {
        bytes.insert(bytes.end(), more.begin(), more.end());
        if (bytes.size() < kBatchBytes) return;
        sink(bytes);
        bytes.clear();
    };
    add(kxcodecs::ZLibPieceSum::Head());
    add(m_count.packed);
    for (auto entry = m_patches.begin(); entry != m_patches.end(); entry = m_patches.erase(entry))
        add(entry->second.packed);
    add(m_sum.Tail());
    if (!bytes.empty()) sink(bytes);
}

}  // namespace kxio
