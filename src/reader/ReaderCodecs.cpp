// SPDX-License-Identifier: MIT
// What the first chunk of each component tells about its codec.
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/QSNScanReader.h"

namespace kxio {

// The first patch that the file holds; a patch that was never written must not hide the others. False when
// no chunk of the component is long enough to name a codec.
bool QSNScanReader::ReadFirstStoredChunk(kxbase::ComponentType component,
                                         std::vector<unsigned char>& out) const {
    const std::vector<LookupEntry>& entries = RequireComponent(component);
    if (entries.empty()) {
        kxbase::ErrorContext context = FileContext();
        context.detail =
            "the lookup table has no entry for component " + kxbase::ComponentToString(component);
        throw kxbase::KXUnreadablePatchException("Patch not in database", context);
    }
    const uint64_t count = std::min<uint64_t>(entries.size(), m_scanProperties.grid.PatchCount());
    for (uint64_t index = 0; index < count; ++index) {
        const LookupEntry& entry = entries[index];
        if (entry.position == 0 || entry.byteCount < kxcodecs::QKXChunkCodec::HeaderSize) continue;
        ReadChunk(index, out, component);
        return true;
    }
    return false;
}

void QSNScanReader::AnalyseCodecs() {
    std::vector<unsigned char> chunk;
    for (const auto& [component, entries] : m_patchTable) {
        if (!ReadFirstStoredChunk(component, chunk)) continue;
        if (!kxcodecs::QKXChunkCodec::IsCodecAvailable(chunk)) {
            kxbase::ErrorContext context = FileContext();
            context.record = "first chunk of component " + kxbase::ComponentToString(component);
            context.field = "codec identifier";
            throw kxbase::KXUnkownCodecException(
                "The codec " + kxcodecs::QKXChunkCodec::GetName(chunk) + "is not supported.", context);
        }
        kxcodecs::ChunkHeaderInfo header;
        if (component >= 1 && component <= 3 && kxcodecs::QKXChunkCodec::ReadHeader(chunk, header)) {
            m_scanProperties.componentValue[component - 1] = 1.0 / static_cast<double>(header.step);
        }
    }
}

void QSNScanReader::SetupComponentMap() {
    m_scanProperties.componentCodecs.clear();
    std::vector<unsigned char> chunk;
    for (const auto& [component, entries] : m_patchTable) {
        std::string& name = m_scanProperties.componentCodecs[component];
        if (ReadFirstStoredChunk(component, chunk)) name = kxcodecs::QKXChunkCodec::GetName(chunk);
    }
}

}  // namespace kxio
