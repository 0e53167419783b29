// SPDX-License-Identifier: MIT
// Hashes of what was written, where they are wanted.
#include <utility>

#include "format/Hash64.h"
#include "format/HeaderPieces.h"
#include "kxbase/Exceptions.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/HistogramHeader.h"
#include "kxio/ScanHeader.h"
#include "writer/QSNScanWriterImpl.h"

namespace kxio {

void QSNScanWriterImpl::SetIntegrity(bool wanted) {
    if (wanted && !m_integrityWanted && !m_chunkLookup.empty())
        throw kxbase::KXException("Integrity must be chosen before the first patch");
    m_integrityWanted = wanted;
}

// With the stream lock held, or at the end of creation.
void QSNScanWriterImpl::NoteSpan(uint64_t position, std::span<const unsigned char> bytes) {
    if (m_integrityWanted) m_chunkSpans.push_back({position, bytes.size(), Hash64(bytes)});
}

// Opening a file takes the size of the previews from there.
void QSNScanWriterImpl::NotePreviewHeader(uint64_t position, std::span<const unsigned char> chunk) {
    constexpr size_t kBytes = kxcodecs::QKXChunkCodec::HeaderSize;
    if (!m_integrityWanted || chunk.size() <= kBytes) return;
    m_headerSpans.push_back({position, kBytes, Hash64(chunk.first(kBytes))});
}

void QSNScanWriterImpl::WriteRecord(kxbase::IOHeader& record) {
    if (!m_integrityWanted) {
        record.Write(m_stream);
        return;
    }
    const std::vector<unsigned char> bytes = record.Encode();
    AddHeaderSpans(record, m_stream->Tell(), bytes, m_headerSpans, m_chunkSpans);
    m_stream->Write(bytes.data(), bytes.size());
}

void QSNScanWriterImpl::WriteHistogram(PackedHistogram& histogram, uint64_t link) {
    const uint64_t position = m_stream->Tell();
    const uint64_t byteCount = histogram.RecordBytes();
    RunningHash64 hash;
    bool isFirst = true;
    histogram.Write(link, [&](std::span<const unsigned char> bytes) {
        if (m_integrityWanted) {
            if (std::exchange(isFirst, false))
                m_headerSpans.push_back(
                    {position, kHistogramHeadBytes, Hash64(bytes.first(kHistogramHeadBytes))});
            hash.Add(bytes);
        }
        m_stream->Write(bytes.data(), bytes.size());
    });
    if (m_integrityWanted) m_chunkSpans.push_back({position, byteCount, hash.Get()});
}

// All positions that the main header will hold are known by now.
void QSNScanWriterImpl::WriteIntegrity() {
    MainFileHeader header = m_mainHeader;
    const std::vector<unsigned char> encoded = header.Encode();
    m_headerSpans.push_back({0, encoded.size(), Hash64(encoded)});
    IntegrityExtendedHeader record(m_headerSpans, m_chunkSpans, m_stream->Tell());
    record.Write(m_stream);
    m_statistics[record.GetRecordName()] = record.HeaderSize();
}

}  // namespace kxio
