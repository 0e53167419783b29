// SPDX-License-Identifier: MIT
#include "services/RecordSurvey.h"

#include <algorithm>
#include <array>

#include "kxbase/Exceptions.h"
#include "kxbase/InMemoryStream.h"
#include "kxcodecs/ChunkCodecFactory.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/ComponentHeader.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/ExtendedHeader.h"
#include "kxio/LookupTableHeader.h"
#include "kxio/MinMaxHeader.h"
#include "kxio/ScanHeader.h"
#include "kxio/ThumbnailHeader.h"
#include "services/TagSearch.h"

namespace kxio {

namespace {

using kxbase::IOHeader;
using kxbase::RecordFrame;
using kxcodecs::QKXChunkCodec;

/// What a frame must say to be taken for a record.
struct KindLimits {
    uint64_t tag;
    uint32_t leastVersion;
    uint32_t leastPayload;
    uint32_t mostPayload;
};

// Records of fixed size may have grown in newer versions, but not without measure.
constexpr uint32_t kMostFixedPayload = 1 << 16;
constexpr uint32_t kAnyPayload = UINT32_MAX;
constexpr std::array<KindLimits, 8> kKinds = {{
    {MainFileHeader::Magic, MainFileHeader::MinimumVersion, MainFileHeader::PayloadSize, kMostFixedPayload},
    {ScanHeader::Magic, ScanHeader::MinimumVersion, 44, kAnyPayload},
    {ComponentHeader::Magic, ComponentHeader::MinimumVersion, ComponentHeader::PayloadSize,
     kMostFixedPayload},
    {DataChunkHeader::Magic, DataChunkHeader::MinimumVersion, DataChunkHeader::PayloadSize,
     kMostFixedPayload},
    {LookupTableHeader::Magic, LookupTableHeader::MinimumVersion, 4, kAnyPayload},
    {MinMaxHeader::Magic, MinMaxHeader::MinimumVersion, 12, kAnyPayload},
    {ThumbnailHeader::Magic, ThumbnailHeader::MinimumVersion, 12, kAnyPayload},
    {ExtendedHeader::Magic, 0, ExtendedHeader::FixedSize, kAnyPayload},
}};

std::vector<uint64_t> AllTags() {
    std::vector<uint64_t> tags;
    for (const KindLimits& kind : kKinds)
        tags.push_back(kind.tag);
    return tags;
}

template <class Record>
bool ReadFrom(Record& record, std::span<const unsigned char> bytes) {
    kxbase::InMemoryStream stream(bytes.data(), bytes.size());
    return record.Read(&stream) != 0;
}

class Surveyor {
public:
    Surveyor(FileWindow& file, const SurveyProgress& progress)
        : m_file(file),
          m_progress(progress),
          m_search(AllTags()),
          m_decodeBudget(4 * file.Size() + (64 << 20)) {}

    Survey Run();

private:
    std::optional<RecordFrame> FrameAt(uint64_t position);
    bool LeadsOn(uint64_t end) { return end == m_file.Size() || FrameAt(end).has_value(); }
    uint64_t FindFrame(uint64_t from);
    DataChunkHeader ChunkRecordAt(uint64_t position, const RecordFrame& frame);
    bool Decodes(const FoundChunk& chunk);
    std::optional<FoundChunk> RepairedAt(uint64_t position);
    /// These take what lies at `position` and tell where to go on.
    uint64_t TakeChunk(uint64_t position, const RecordFrame& frame);
    uint64_t TakeRecord(uint64_t position, const RecordFrame& frame);
    uint64_t TakeMainHeader(uint64_t position, const RecordFrame& frame);
    uint64_t TakeDamagedPlace(uint64_t position);
    uint64_t EndOfForeignFile(uint64_t start, const MainFileHeader& header);
    void Keep(FoundChunk chunk, bool sharedEmpty);
    /// Goes on at `position`, where the record that was just taken ends.
    uint64_t Follow(uint64_t position);
    /// Goes on at the next record at `from` or behind it.
    uint64_t Search(uint64_t from);
    uint32_t PresentRun() const { return static_cast<uint32_t>(m_found.runEnds.size() - 1); }

    FileWindow& m_file;
    const SurveyProgress& m_progress;
    TagSearch m_search;
    Survey m_found;
    bool m_onTrack = true;  // the present position is where the record before it ended
    // Chunks whose end leads nowhere are decoded to see whether they are whole. Records made to overlap
    // could make that the square of the file's size.
    uint64_t m_decodeBudget;
};

/// The frame at `position` when it is that of a record.
std::optional<RecordFrame> Surveyor::FrameAt(uint64_t position) {
    const auto bytes = m_file.Peek(position, IOHeader::FrameSize);
    if (bytes.size() < IOHeader::FrameSize) return std::nullopt;
    const RecordFrame frame = IOHeader::DecodeFrame(bytes);
    for (const KindLimits& kind : kKinds) {
        if (frame.tag != kind.tag) continue;
        const uint64_t left = m_file.Size() - position - IOHeader::FrameSize;
        if (frame.version >= kind.leastVersion && frame.payloadSize >= kind.leastPayload &&
            frame.payloadSize <= kind.mostPayload && frame.payloadSize <= left) {
            return frame;
        }
        return std::nullopt;
    }
    return std::nullopt;
}

/// Position of the next record at `from` or behind it; the file's size when there is none.
uint64_t Surveyor::FindFrame(uint64_t from) {
    while (from + IOHeader::FrameSize <= m_file.Size()) {
        m_progress(from);
        const auto block = m_file.Block(from);
        const uint64_t hit = m_search.FindNext(block, 0);
        if (hit != TagSearch::kNotFound) {
            if (FrameAt(from + hit)) return from + hit;
            from += hit + 1;
        } else {
            if (block.size() < IOHeader::FrameSize) break;
            from += block.size() - (TagSearch::kTagBytes - 1);  // a tag may begin in the last bytes
        }
    }
    return m_file.Size();
}

DataChunkHeader Surveyor::ChunkRecordAt(uint64_t position, const RecordFrame& frame) {
    DataChunkHeader record;
    // The frame fits its version and size, so the read does not fail.
    ReadFrom(record, m_file.Peek(position, uint64_t{IOHeader::FrameSize} + frame.payloadSize));
    return record;
}

bool Surveyor::Decodes(const FoundChunk& chunk) {
    if (chunk.byteCount > m_decodeBudget) return false;
    if (!PlausibleCodecHeader(m_file, chunk.dataPosition, chunk.byteCount)) return false;
    m_decodeBudget -= chunk.byteCount;
    kxcodecs::ChunkHeaderInfo header;
    std::vector<unsigned char> bytes;
    std::vector<unsigned char> values;
    m_file.Read(chunk.dataPosition, chunk.byteCount, bytes);
    return QKXChunkCodec::DecodeChunk(bytes, header, values) == kxcodecs::DecodeStatus::Decoded;
}

uint64_t Surveyor::Follow(uint64_t position) {
    m_onTrack = true;
    m_found.runEnds.back() = position;
    return position;
}

uint64_t Surveyor::Search(uint64_t from) {
    m_onTrack = false;
    m_found.runEnds.push_back(0);
    return FindFrame(from);
}

void Surveyor::Keep(FoundChunk chunk, bool sharedEmpty) {
    chunk.run = PresentRun();
    if (sharedEmpty) {
        m_found.sharedEmpty.push_back(chunk);
    } else if (chunk.End() > m_file.Size()) {
        m_found.cutChunks.push_back(chunk);
    } else {
        m_found.chunks.push_back(chunk);
    }
}

uint64_t Surveyor::TakeChunk(uint64_t position, const RecordFrame& frame) {
    const DataChunkHeader record = ChunkRecordAt(position, frame);
    if (frame.payloadSize != DataChunkHeader::PayloadSize) {
        // Rather the size of the record itself is damaged than that it has fields that nobody knows.
        if (const auto repaired = RepairedAt(position)) {
            ++m_found.damagedPlaces;
            Keep(*repaired, record.IsSharedEmpty());
            return Follow(repaired->End());
        }
    }
    const uint64_t data = position + record.HeaderSize();
    const FoundChunk chunk{
        position,          data, record.byteCount, record.component, record.patchRow, record.patchColumn,
        ChunkTrust::Framed};
    // An end that leads to a record vouches for the size; where it does not, what follows is damaged or the
    // size is, and only a chunk that decodes has the right size: codecs take no byte more or less.
    const bool fits = chunk.End() <= m_file.Size();
    const bool trusted = fits && (LeadsOn(chunk.End()) || RepairedAt(chunk.End()) || Decodes(chunk));
    Keep(chunk, record.IsSharedEmpty());
    if (trusted) return Follow(chunk.End());
    ++m_found.damagedPlaces;
    // Not from where its data are said to lie: other chunks may lie before that.
    return Search(position + IOHeader::FrameSize + DataChunkHeader::PayloadSize);
}

uint64_t Surveyor::TakeRecord(uint64_t position, const RecordFrame& frame) {
    const uint64_t size = uint64_t{IOHeader::FrameSize} + frame.payloadSize;
    m_found.records.push_back({frame.tag, position, size, PresentRun()});
    // Previews without a record of their own lie between the records at the end of a file, so an end that
    // leads nowhere is no sign of damage here; but its size may be wrong, and it holds no records itself.
    return LeadsOn(position + size) ? Follow(position + size) : Search(position + IOHeader::FrameSize);
}

uint64_t Surveyor::TakeMainHeader(uint64_t position, const RecordFrame& frame) {
    MainFileHeader header;
    if (!ReadFrom(header, m_file.Peek(position, uint64_t{IOHeader::FrameSize} + frame.payloadSize))) {
        return Search(position + 1);
    }
    const bool first =
        !m_found.mainHeader && m_found.chunks.empty() && m_found.cutChunks.empty() && m_found.records.empty();
    if (first) {
        if (position == 0) m_found.mainHeader = header;  // elsewhere its positions mean nothing
        return Follow(position + header.HeaderSize());
    }
    if (m_onTrack) {
        m_found.secondFile = position;
        return m_file.Size();
    }
    ++m_found.foreignFiles;
    return Search(EndOfForeignFile(position, header));
}

/// Where the last record ends that belongs to the scan file beginning at `start`.
uint64_t Surveyor::EndOfForeignFile(uint64_t start, const MainFileHeader& header) {
    uint64_t end = start + header.HeaderSize();
    while (const auto frame = FrameAt(end)) {
        if (frame->tag != DataChunkHeader::Magic) break;
        const DataChunkHeader record = ChunkRecordAt(end, *frame);
        const uint64_t next = end + record.HeaderSize() + record.byteCount;
        if (next > m_file.Size()) break;
        end = next;
    }
    const auto reach = [&](uint64_t offset, bool chain) {
        if (offset == 0 || offset > m_file.Size() - start) return;
        uint64_t position = start + offset;
        while (const auto frame = FrameAt(position)) {
            position += uint64_t{IOHeader::FrameSize} + frame->payloadSize;
            end = std::max(end, position);
            if (!chain || frame->tag != ExtendedHeader::Magic) break;
        }
    };
    reach(header.scanHeaderPosition, false);
    reach(header.lookupTablePosition, false);
    reach(header.thumbnailHeaderPosition, false);
    reach(header.previewLookupTablePosition, false);
    reach(header.boundingInformationPosition, false);
    reach(header.firstExtendedHeaderPosition, true);
    return end;
}

/// The chunk at `position` whose record has a damaged frame, but a size that leads to the next record.
std::optional<FoundChunk> Surveyor::RepairedAt(uint64_t position) {
    constexpr uint64_t kRecordBytes = IOHeader::FrameSize + DataChunkHeader::PayloadSize;
    const auto bytes = m_file.Peek(position, kRecordBytes);
    if (bytes.size() < kRecordBytes) return std::nullopt;
    kxbase::InMemoryStream stream;
    DataChunkHeader().Write(&stream);  // an undamaged frame
    stream.Seek(IOHeader::FrameSize);
    stream.Write(bytes.data() + IOHeader::FrameSize, DataChunkHeader::PayloadSize);
    stream.Seek(0);
    DataChunkHeader record;
    record.Read(&stream);
    const FoundChunk chunk{position,        position + kRecordBytes, record.byteCount,    record.component,
                           record.patchRow, record.patchColumn,      ChunkTrust::Repaired};
    const bool leadsOn = record.byteCount >= QKXChunkCodec::HeaderSize && FrameAt(chunk.End());
    return leadsOn ? std::optional(chunk) : std::nullopt;
}

/// A record should begin here and does not.
uint64_t Surveyor::TakeDamagedPlace(uint64_t position) {
    // Previews may lie between the chunks without a record of their own; that is no damage.
    if (!PlausibleCodecHeader(m_file, position, UINT32_MAX)) ++m_found.damagedPlaces;
    if (const auto chunk = RepairedAt(position)) {
        // Passed over as a whole, with all that its data may hold.
        Keep(*chunk, chunk->row == DataChunkHeader::SharedEmptyPosition ||
                         chunk->column == DataChunkHeader::SharedEmptyPosition);
        return Follow(chunk->End());
    }
    return Search(position + 1);
}

Survey Surveyor::Run() {
    uint64_t position = 0;
    if (!FrameAt(0)) {
        // The main header is gone; chunks begin behind the place where it was.
        ++m_found.damagedPlaces;
        const bool chunksFollow = FrameAt(MainFileHeader::RecordSize).has_value();
        position = chunksFollow ? Follow(MainFileHeader::RecordSize) : Search(0);
    }
    while (position < m_file.Size()) {
        m_progress(position);
        const auto frame = FrameAt(position);
        if (!frame) {
            position = TakeDamagedPlace(position);
        } else if (frame->tag == DataChunkHeader::Magic) {
            position = TakeChunk(position, *frame);
        } else if (frame->tag == MainFileHeader::Magic) {
            position = TakeMainHeader(position, *frame);
        } else {
            position = TakeRecord(position, *frame);
        }
    }
    m_progress(m_file.Size());
    return std::move(m_found);
}

}  // namespace

std::optional<kxcodecs::ChunkHeaderInfo> PlausibleCodecHeader(FileWindow& file, uint64_t dataPosition,
                                                              uint32_t byteCount, uint64_t mostDecodedBytes) {
    if (byteCount < QKXChunkCodec::HeaderSize) return std::nullopt;
    const auto bytes = file.Peek(dataPosition, QKXChunkCodec::HeaderSize);
    kxcodecs::ChunkHeaderInfo header;
    if (!QKXChunkCodec::ReadHeader(bytes.data(), bytes.size(), header)) return std::nullopt;
    if (!kxcodecs::ChunkCodecFactory::IsKnown(header.codecId) || header.ElementBytes() == 0 ||
        std::max(header.decodedBytes, header.uncompressedBytes) > mostDecodedBytes) {
        return std::nullopt;
    }
    return header;
}

Survey SurveyRecords(FileWindow& file, const SurveyProgress& progress) {
    return Surveyor(file, progress).Run();
}

}  // namespace kxio
