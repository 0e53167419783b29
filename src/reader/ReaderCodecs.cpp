// SPDX-License-Identifier: MIT
// What the first chunk of each component tells about its codec.
#include "format/IntegrityTable.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/QSNScanReader.h"

namespace kxio {

// The first patch that the file holds; a patch that was never written must not hide the others. Gives the
// 28 bytes of its header; all of the chunk must be there. False when no chunk of the component is long enough
// to name a codec.
bool QSNScanReader::ReadFirstChunkHeader(kxbase::ComponentType component, std::vector<unsigned char>& out) {
    const std::vector<LookupEntry>& entries = RequireComponent(component);
    if (entries.empty()) {
        kxbase::ErrorContext context = FileContext();
        context.detail =
            "the lookup table has no entry for component " + kxbase::ComponentToString(component);
        throw kxbase::KXUnreadablePatchException("Patch not in database", context);
    }
    const uint64_t count = std::min<uint64_t>(entries.size(), m_scanProperties.grid.PatchCount());
    uint64_t left = m_streamBytes;
    bool listed = false;
    for (uint64_t index = 0; index < count; ++index) {
        const LookupEntry& entry = entries[index];
        if (entry.position == 0 || entry.byteCount < kxcodecs::QKXChunkCodec::HeaderSize) continue;
        try {
            RequireBytes(entry.position, entry.byteCount);
            // Where there are hashes a damaged chunk tells nothing; the next one will, though of a codec that
            // may be another: so it is listed, once. Chunks lie side by side: those that have been looked at
            // are together no longer than the file.
            if (HasIntegrity()) {
                if (entry.byteCount > left) return false;
                left -= entry.byteCount;
                if (Judge(entry.position, entry.byteCount) == IntegrityTable::Verdict::Wrong) {
                    if (!listed) {
                        kxbase::ErrorContext context = PatchContext(index, component);
                        context.offset = entry.position;
                        context.detail = "the bytes do not match their hash";
                        m_integrityProblems.push_back(context);
                    }
                    listed = true;
                    continue;
                }
            }
            ReadBytes(entry.position, kxcodecs::QKXChunkCodec::HeaderSize, out);
        } catch (kxbase::KXException& e) {
            out.clear();
            e.AddContext(PatchContext(index, component));
            throw;
        }
        return true;
    }
    return false;
}

void QSNScanReader::AnalyseCodecs() {
    m_firstChunkCodecs.clear();
    m_firstChunkElementBytes.clear();
    std::vector<unsigned char> chunk;
    for (const auto& [component, entries] : m_patchTable) {
        if (!ReadFirstChunkHeader(component, chunk)) continue;
        if (!kxcodecs::QKXChunkCodec::IsCodecAvailable(chunk)) {
            kxbase::ErrorContext context = FileContext();
            context.record = "first chunk of component " + kxbase::ComponentToString(component);
            context.field = "codec identifier";
            throw kxbase::KXUnkownCodecException(
                "The codec " + kxcodecs::QKXChunkCodec::GetName(chunk) + "is not supported.", context);
        }
        m_firstChunkCodecs[component] = kxcodecs::QKXChunkCodec::GetName(chunk);
        kxcodecs::ChunkHeaderInfo header;
        if (!kxcodecs::QKXChunkCodec::ReadHeader(chunk, header)) continue;
        m_firstChunkElementBytes[component] = header.ElementBytes();
        if (component >= 1 && component <= 3) {
            m_scanProperties.componentValue[component - 1] = 1.0 / static_cast<double>(header.step);
        }
    }
}

// Of components that were found after the file was opened; the problems stay those of the opening.
void QSNScanReader::NoteElementBytes() {
    const size_t problems = m_integrityProblems.size();
    std::vector<unsigned char> chunk;
    kxcodecs::ChunkHeaderInfo header;
    for (const auto& [component, entries] : m_patchTable) {
        if (m_firstChunkElementBytes.contains(component)) continue;
        try {
            if (ReadFirstChunkHeader(component, chunk) && kxcodecs::QKXChunkCodec::ReadHeader(chunk, header))
                m_firstChunkElementBytes[component] = header.ElementBytes();
        } catch (const kxbase::KXUnreadablePatchException&) {
            continue;  // it ends behind the file, and tells nothing
        }
    }
    m_integrityProblems.resize(problems);
}

void QSNScanReader::SetupComponentMap() {
    m_scanProperties.componentCodecs.clear();
    for (const auto& [component, entries] : m_patchTable) {
        const auto name = m_firstChunkCodecs.find(component);
        m_scanProperties.componentCodecs[component] =
            name != m_firstChunkCodecs.end() ? name->second : std::string();
    }
}

}  // namespace kxio
