// SPDX-License-Identifier: MIT
// Chunks, shared empty chunks and previews on their way to the stream and into the tables.
#include <algorithm>
#include <limits>

#include "kxbase/Exceptions.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "writer/QSNScanWriterImpl.h"
#include "writer/WriterLocks.h"

namespace kxio {

namespace {

// Up to here copying a chunk behind its record costs less than a second call of the operating system.
constexpr size_t kJoinedBytes = 16 * 1024;

constexpr uint64_t kMaxBytes = std::numeric_limits<uint32_t>::max();

void RequireCountable(uint64_t bytes, const char* what) {
    if (bytes <= kMaxBytes) return;
    kxbase::ErrorContext context;
    context.record = what;
    context.detail = std::to_string(bytes) + " bytes, at most 2^32 - 1";
    throw kxbase::KXWrongDataSizeofException("Too many bytes", context);
}

}  // namespace

void EncodeOrSnappy(const kxcodecs::QKXChunkCodec* codec, std::span<const unsigned char> bytes,
                    uint32_t width, uint32_t height, std::vector<unsigned char>& out) {
    if (codec != nullptr) {
        try {
            codec->Encode(bytes.data(), width, height, bytes.size(), 1.0F, out);
            if (!out.empty()) return;
        } catch (...) {
            // A codec that does not take these values must not keep the file from being completed: the
            // fallback below takes any, and reports what is beyond it (memory, size) itself.
        }
    }
    kxcodecs::SnappyChunkCodec().Encode(bytes.data(), width, height, bytes.size(), 1.0F, out);
}

void QSNScanWriterImpl::WriteChunk(kxbase::ComponentType component, std::span<const unsigned char> bytes,
                                   const PatchPlace& place) {
    RequireCountable(bytes.size(), "chunk");
    DataChunkHeader header(static_cast<uint32_t>(bytes.size()), component, place.row, place.column);
    const uint64_t tableSize = m_heightKnown ? place.grid.PatchCount64() : 0;

    const std::lock_guard lock(StreamLock());
    LookupEntry entry = AppendChunk(header, bytes);
    entry.index = place.index;
    StoreEntry(component, entry, tableSize);
    m_statistics[kxbase::ComponentToString(component)] += entry.byteCount;
}

// With the stream lock held.
LookupEntry QSNScanWriterImpl::AppendChunk(DataChunkHeader& header, std::span<const unsigned char> bytes) {
    LookupEntry entry;
    entry.byteCount = header.byteCount;
    if (bytes.size() <= kJoinedBytes) {
        const std::vector<unsigned char> record = header.Encode();
        m_joined.assign(record.begin(), record.end());
        m_joined.insert(m_joined.end(), bytes.begin(), bytes.end());
        entry.position = m_stream->Tell() + record.size();
        m_stream->Write(m_joined.data(), m_joined.size());
    } else {
        header.Write(m_stream);
        entry.position = m_stream->Tell();
        m_stream->Write(bytes.data(), bytes.size());
    }
    m_statistics["Headers"] += header.HeaderSize();
    NoteSpan(entry.position, bytes);
    return entry;
}

// With the stream lock held.
void QSNScanWriterImpl::StoreEntry(kxbase::ComponentType component, const LookupEntry& entry,
                                   uint64_t tableSize) {
    std::vector<LookupEntry>& table = m_chunkLookup[component];
    if (table.size() <= entry.index) {
        table.resize(static_cast<size_t>(std::max<uint64_t>(tableSize, uint64_t{entry.index} + 1)));
    }
    table[entry.index] = entry;
}

void QSNScanWriterImpl::WriteEmpty(kxbase::ComponentType component, uint64_t pixelLength,
                                   const kxcodecs::QKXChunkCodec* codec, const PatchPlace& place) {
    const std::lock_guard lock(StreamLock());
    auto shared = m_emptyChunks.find(component);
    if (shared == m_emptyChunks.end()) {
        const LookupEntry entry = WriteSharedEmptyChunk(component, pixelLength, codec, place.grid);
        shared = m_emptyChunks.emplace(component, entry).first;
    }
    LookupEntry entry = shared->second;
    entry.index = place.index;
    StoreEntry(component, entry, place.grid.PatchCount64());
}

// With the stream lock held.
LookupEntry QSNScanWriterImpl::WriteSharedEmptyChunk(kxbase::ComponentType component, uint64_t pixelLength,
                                                     const kxcodecs::QKXChunkCodec* codec,
                                                     const kxbase::GridTopology& grid) {
    const uint64_t cells = uint64_t{grid.patchWidth} * grid.patchHeight;
    RequireCountable(cells, "empty patch");
    RequireCountable(pixelLength, "empty patch");
    RequireCountable(cells * pixelLength, "empty patch");
    const std::vector<unsigned char> zeros(static_cast<size_t>(cells * pixelLength));
    std::vector<unsigned char> chunk;  // none of the pool's: its lock is not taken inside another
    EncodeOrSnappy(codec, zeros, grid.patchWidth, grid.patchHeight, chunk);
    DataChunkHeader header(static_cast<uint32_t>(chunk.size()), component,
                           DataChunkHeader::SharedEmptyPosition, DataChunkHeader::SharedEmptyPosition);
    LookupEntry entry = AppendChunk(header, chunk);
    entry.index = DataChunkHeader::SharedEmptyPosition;
    m_statistics[kxbase::ComponentToString(component)] += 0;  // the component is listed, its bytes are not
    return entry;
}

void QSNScanWriterImpl::SetCompressedPreview(std::span<const unsigned char> chunk,
                                             kxbase::ComponentType component) {
    RequireCreated();
    // A preview of no bytes would take the place of a real one.
    if (chunk.empty()) return;
    WritePreview(chunk, component);
}

void QSNScanWriterImpl::KeepPreview(kxbase::ComponentType component, kxcodecs::QKXChunkCodec* codec,
                                    std::function<std::span<const unsigned char>()> chunk) {
    {
        const std::lock_guard lock(CodecLock());
        m_codecs[component] = codec;
    }
    const std::lock_guard lock(PreviewLock());
    m_previewInfo[component].kept = std::move(chunk);
}

void QSNScanWriterImpl::WritePreview(std::span<const unsigned char> chunk, kxbase::ComponentType component) {
    RequireCountable(chunk.size(), "preview");
    const std::lock_guard lock(StreamLock());
    LookupEntry entry;
    entry.position = m_stream->Tell();
    entry.byteCount = static_cast<uint32_t>(chunk.size());
    m_stream->Write(chunk.data(), chunk.size());
    m_statistics[kxbase::ComponentToString(component) + "_Preview"] += chunk.size();
    NoteSpan(entry.position, chunk);
    NotePreviewHeader(entry.position, chunk);
    // Only an empty table takes the entry: the first preview of a component is the one that is found.
    m_previewLookup[component].resize(1, entry);
}

}  // namespace kxio
