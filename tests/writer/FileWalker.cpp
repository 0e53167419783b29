// SPDX-License-Identifier: MIT
#include "FileWalker.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

#include "kxcodecs/QKXChunkCodec.h"
#include "kxcodecs/Quantise.h"

namespace walker {

namespace {

[[noreturn]] void Fail(uint64_t position, const std::string& what) {
    throw std::runtime_error("byte " + std::to_string(position) + ": " + what);
}

class Cursor {
public:
    Cursor(const Bytes& bytes, uint64_t position, uint64_t end) : m_bytes(bytes), m_at(position), m_end(end) {
        if (position > end || end > bytes.size()) Fail(position, "begins or ends behind the file");
    }
    uint64_t At() const { return m_at; }
    uint64_t Left() const { return m_end - m_at; }
    uint64_t Little(unsigned count) {
        if (Left() < count)
            Fail(m_at, std::to_string(count) + " bytes needed, " + std::to_string(Left()) + " left");
        uint64_t value = 0;
        for (unsigned i = 0; i < count; ++i)
            value |= uint64_t{m_bytes[m_at + i]} << (8 * i);
        m_at += count;
        return value;
    }
    uint8_t U8() { return static_cast<uint8_t>(Little(1)); }
    uint32_t U32() { return static_cast<uint32_t>(Little(4)); }
    uint64_t U64() { return Little(8); }
    float F32() { return std::bit_cast<float>(U32()); }
    double F64() { return std::bit_cast<double>(U64()); }
    Bytes Take(uint64_t count) {
        if (Left() < count)
            Fail(m_at, std::to_string(count) + " bytes needed, " + std::to_string(Left()) + " left");
        const auto first = m_bytes.begin() + static_cast<std::ptrdiff_t>(m_at);
        m_at += count;
        return Bytes(first, first + static_cast<std::ptrdiff_t>(count));
    }
    std::string Text() {
        std::string text;
        while (const char c = static_cast<char>(U8()))
            text += c;
        return text;
    }
    void ExpectEnd() const {
        if (m_at != m_end) Fail(m_at, std::to_string(Left()) + " bytes too many");
    }

private:
    const Bytes& m_bytes;
    uint64_t m_at;
    uint64_t m_end;
};

constexpr uint64_t kChunkTag = 0x982157cf2cfe1ec6;

// The payload of the record at `position`, after checking tag and version; `size` becomes the whole size.
Cursor Record(const Bytes& bytes, uint64_t position, uint64_t tag, uint32_t version, uint64_t& size) {
    Cursor frame(bytes, position, bytes.size());
    const uint64_t foundTag = frame.U64();
    const uint32_t foundVersion = frame.U32();
    const uint32_t payload = frame.U32();
    if (foundTag != tag) Fail(position, "another tag");
    if (foundVersion != version) Fail(position, "version " + std::to_string(foundVersion));
    size = 16 + uint64_t{payload};
    return Cursor(bytes, position + 16, position + size);
}

MainHeader ReadMain(const Bytes& bytes) {
    uint64_t size = 0;
    Cursor in = Record(bytes, 0, 0xab797edb9b73de5e, 210, size);
    MainHeader m{};
    for (uint64_t* field : {&m.scanHeader, &m.firstComponent, &m.firstChunk, &m.firstExtended,
                            &m.chunkDataEnd, &m.thumbnail, &m.lookup, &m.previewLookup, &m.limits}) {
        *field = in.U64();
    }
    m.writerRevision = in.U32();
    in.ExpectEnd();
    return m;
}

ScanHeaderFields ReadScan(const Bytes& bytes, uint64_t position, uint64_t& size) {
    Cursor in = Record(bytes, position, 0x9cb282fc40c502d8, 270, size);
    ScanHeaderFields s{};
    s.rowStep = in.F64();
    s.columnStep = in.F64();
    s.rowStart = in.F64();
    s.columnStart = in.F64();
    s.rows = in.U32();
    s.columns = in.U32();
    s.patchWidth = in.U32();
    s.points = in.U64();
    for (double& value : s.registration)
        value = in.F64();
    s.speckle = in.U8();
    s.sampling = in.F32();
    s.locked = in.U8();
    s.projected = in.U8();
    s.framing = in.U32();
    for (uint32_t& word : s.words)
        word = in.U32();
    s.tiltKind = in.U32();
    for (double& angle : s.tilt)
        angle = in.F64();
    s.dateStatus = in.U32();
    for (std::string& text : s.texts)
        text = in.Text();
    for (uint32_t& word : s.words260)
        word = in.U32();
    s.patchHeight = in.U32();
    in.ExpectEnd();
    return s;
}

Table ReadTable(const Bytes& bytes, uint64_t position, uint64_t& size) {
    Cursor in = Record(bytes, position, 0xa76e52dba1ebd435, 200, size);
    Table table;
    int64_t previous = -1;
    for (uint32_t left = in.U32(); left > 0; --left) {
        const uint32_t component = in.U32();
        if (int64_t{component} <= previous) Fail(in.At(), "components do not ascend");
        previous = component;
        auto& entries = table[component];
        for (uint32_t count = in.U32(); count > 0; --count) {
            Entry entry{};
            entry.position = in.U64();
            entry.bytes = in.U32();
            entries.push_back(entry);
        }
    }
    in.ExpectEnd();
    return table;
}

std::vector<Chunk> ReadChunks(const Bytes& bytes, uint64_t end,
                              const std::map<uint64_t, uint64_t>& rawBlocks) {
    std::vector<Chunk> chunks;
    uint64_t position = 92;
    while (position < end) {
        const auto raw = rawBlocks.find(position);
        if (raw != rawBlocks.end()) {
            position += raw->second;
            continue;
        }
        uint64_t size = 0;
        Cursor in = Record(bytes, position, kChunkTag, 200, size);
        Chunk chunk{};
        chunk.record = position;
        chunk.position = position + size;
        chunk.bytes = in.U32();
        chunk.component = in.U32();
        chunk.row = in.U32();
        chunk.column = in.U32();
        in.ExpectEnd();
        position = chunk.position + chunk.bytes;
        chunks.push_back(chunk);
    }
    if (position != end) Fail(position, "the chunks do not end where the scan header begins");
    return chunks;
}

}  // namespace

std::string Extended::Text() const {
    if (data.empty() || data.back() != 0) Fail(position, "text without a closing NUL");
    return std::string(data.begin(), data.end() - 1);
}

const Chunk* File::ChunkAt(uint64_t position) const {
    const auto found = std::lower_bound(chunks.begin(), chunks.end(), position,
                                        [](const Chunk& chunk, uint64_t p) { return chunk.position < p; });
    return found != chunks.end() && found->position == position ? &*found : nullptr;
}

Bytes File::Slice(const Entry& entry) const {
    return Cursor(bytes, entry.position, bytes.size()).Take(entry.bytes);
}

std::vector<const Extended*> File::OfType(uint64_t type) const {
    std::vector<const Extended*> found;
    for (const Extended& record : extended) {
        if (record.type == type) found.push_back(&record);
    }
    return found;
}

File Walk(const Bytes& bytes, const std::map<uint64_t, uint64_t>& rawBlocks) {
    File file{};
    file.bytes = bytes;
    file.main = ReadMain(bytes);
    const MainHeader& m = file.main;
    if (m.firstChunk != 92) Fail(32, "the first chunk is not announced at 92");
    if (m.firstComponent != 0) Fail(24, "component records are announced");
    if (m.chunkDataEnd != m.scanHeader) Fail(48, "the chunk data does not end at the scan header");
    if (m.writerRevision != 240) Fail(88, "writer revision");
    file.chunks = ReadChunks(bytes, m.chunkDataEnd, rawBlocks);

    // The tail, piece after piece without gaps.
    uint64_t at = m.scanHeader;
    file.scan = ReadScan(bytes, at, file.scanHeaderSize);
    at += file.scanHeaderSize;
    if (m.lookup != at) Fail(at, "the lookup table does not follow the scan header");
    file.lookup = ReadTable(bytes, at, file.lookupSize);
    at += file.lookupSize;
    if (m.thumbnail != at) Fail(at, "the thumbnail does not follow the lookup table");
    {
        Cursor in = Record(bytes, at, 0xb63bc13134b042c8, 200, file.thumbnailSize);
        file.thumbnailWidth = in.U32();
        file.thumbnailHeight = in.U32();
        const uint32_t length = in.U32();
        file.jpeg = in.Take(length);
        in.ExpectEnd();
    }
    at += file.thumbnailSize;
    if ((m.previewLookup == 0) != (m.limits == 0))
        Fail(72, "previews without limits, or limits without previews");
    if (m.previewLookup != 0) {
        file.previews = ReadTable(bytes, m.previewLookup, file.previewLookupSize);
        if (m.previewLookup < at) Fail(m.previewLookup, "the preview table lies before the thumbnail's end");
        // Without previews handed over earlier, those made at the end lie here, by ascending component.
        if (rawBlocks.empty()) {
            for (const auto& [component, entries] : file.previews) {
                if (entries.size() != 1) Fail(m.previewLookup, "a component has several previews");
                if (entries[0].position != at) Fail(at, "preview of component " + std::to_string(component));
                at += entries[0].bytes;
            }
            if (at != m.previewLookup) Fail(at, "bytes between the previews and their table");
        }
        at = m.previewLookup + file.previewLookupSize;
        if (m.limits != at) Fail(at, "the limits do not follow the preview table");
        Cursor in = Record(bytes, at, 0xa16177f6a29638cb, 200, file.limitsSize);
        file.limits.minimumBits = in.U32();
        file.limits.maximumBits = in.U32();
        for (uint32_t count = in.U32(); count > 0; --count) {
            const float minimum = in.F32();
            file.limits.pairs.emplace_back(minimum, in.F32());
        }
        in.ExpectEnd();
        at += file.limitsSize;
    }
    if (m.firstExtended != at) Fail(at, "the extended records do not follow");
    while (at < bytes.size()) {
        Extended record{};
        record.position = at;
        Cursor in = Record(bytes, at, 0xa45065483053115f, 100, record.size);
        record.link = in.U64();
        record.type = in.U64();
        const uint32_t length = in.U32();
        record.data = in.Take(length);
        in.ExpectEnd();
        at += record.size;
        if (record.link != (at == bytes.size() ? 0 : at))
            Fail(record.position, "link does not lead to the next record");
        file.extended.push_back(std::move(record));
    }
    return file;
}

Decoded Decode(const Bytes& chunk) {
    kxcodecs::ChunkHeaderInfo header;
    Decoded result{};
    if (kxcodecs::QKXChunkCodec::DecodeChunk(chunk, header, result.values) !=
        kxcodecs::DecodeStatus::Decoded) {
        throw std::runtime_error("a chunk of " + std::to_string(chunk.size()) + " bytes does not decode");
    }
    result.width = header.width;
    result.height = header.height;
    result.elementBytes = header.ElementBytes();
    result.step = header.step;
    kxcodecs::Dequantise(result.values, result.elementBytes, result.step);
    return result;
}

Histogram ReadHistogram(const Extended& record) {
    Cursor block(record.data, 0, record.data.size());
    const uint64_t length = block.U64();
    const Decoded decoded = Decode(block.Take(length));
    block.ExpectEnd();
    Histogram histogram;
    Cursor in(decoded.values, 0, decoded.values.size());
    for (uint64_t entries = in.U64(); entries > 0; --entries) {
        auto& counts = histogram[in.U64()];
        for (uint64_t left = in.U64(); left > 0; --left) {
            const uint64_t key = in.U64();
            counts[key] = in.U64();
        }
    }
    in.ExpectEnd();
    return histogram;
}

}  // namespace walker
