// SPDX-License-Identifier: MIT
#include "services/ExtendedChain.h"

#include <algorithm>
#include <array>
#include <set>
#include <span>
#include <vector>

#include "format/Hash64.h"
#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"
#include "kxbase/IInFileStream.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/IntegrityExtendedHeader.h"
#include "kxio/LookupTableHeader.h"
#include "kxio/ThumbnailHeader.h"
#include "services/FileWindow.h"
#include "services/TagSearch.h"

namespace kxio {

namespace {

constexpr uint64_t kTagBytes = 8;
constexpr uint64_t kFrameBytes = kxbase::IOHeader::FrameSize;

/// Behind the last extended record of the run that begins there.
uint64_t EndOfRun(kxbase::IInFileStream& in, uint64_t position, uint64_t size) {
    while (position < size) {
        const auto frame = FrameAt(in, position);
        if (!frame || frame->tag != ExtendedHeader::Magic || frame->payloadSize < ExtendedHeader::FixedSize ||
            frame->payloadSize > size - position - kFrameBytes) {
            break;
        }
        position += kFrameBytes + frame->payloadSize;
    }
    return position;
}

/// Whether the bytes are the start of a record of that kind, of which any bytes may still be missing and
/// read as zeros.
bool MayBecome(std::span<const unsigned char> bytes, uint64_t tag, uint32_t version) {
    std::array<unsigned char, kTagBytes + 4> wanted{};
    kxbase::ByteWriter out(wanted);
    out.U64(tag);
    out.U32(version);
    for (size_t i = 0; i < std::min(bytes.size(), wanted.size()); ++i) {
        if (bytes[i] != 0 && bytes[i] != wanted[i]) return false;
    }
    return true;
}

/// Whether it is a record of hashes, of whose type any bytes may still be missing and read as zeros.
bool MayBecomeHashes(const ExtendedHeader& record) {
    for (unsigned shift = 0; shift < 64; shift += 8) {
        const uint64_t byte = uint64_t{0xff} << shift;
        const uint64_t found = record.GetType() & byte;
        if (found != 0 && found != (IntegrityExtendedHeader::Type & byte)) return false;
    }
    return true;
}

/// The last position that a header or a table leads to; the largest number where that cannot be told.
uint64_t LastNamedPosition(kxbase::IInFileStream& in, const MainFileHeader& main) {
    uint64_t last = std::max({main.scanHeaderPosition, main.firstComponentHeaderPosition,
                              main.firstChunkPosition, main.thumbnailHeaderPosition, main.lookupTablePosition,
                              main.previewLookupTablePosition, main.boundingInformationPosition});
    for (const uint64_t position : {main.lookupTablePosition, main.previewLookupTablePosition}) {
        LookupTable table;
        LookupTableHeader record(&table);
        try {
            if (position == 0) continue;
            if (!in.Seek(position) || record.Read(&in) == 0) return UINT64_MAX;
        } catch (const kxbase::KXUnreadablePatchException&) {
            throw;  // the device does not answer
        } catch (const kxbase::KXException&) {
            return UINT64_MAX;
        }
        for (const auto& [component, entries] : table) {
            for (const LookupEntry& entry : entries)
                last = std::max(last, entry.position);
        }
    }
    return last;
}

bool ReadExtended(kxbase::IInFileStream& in, uint64_t position, ExtendedHeader& record) {
    try {
        return in.Seek(position) && record.Read(&in) != 0;
    } catch (const kxbase::KXUnreadablePatchException&) {
        throw;  // the device does not answer
    } catch (const kxbase::KXException&) {
        return false;
    }
}

/// What lies behind an extended chain: whether an edit of the chain can have left it.
class TailJudge {
public:
    TailJudge(kxbase::IInFileStream& in, uint64_t first, uint64_t end)
        : m_file(in), m_end(end), m_sectorsLeft(kFreeSectors + in.GetSize() / kSector) {
        ExtendedHeader record;
        for (uint64_t position = first; position < end && ReadExtended(in, position, record);
             position += m_chain.back().bytes) {
            m_chain.push_back({position, kFrameBytes + record.GetDataSize()});
            m_contents.insert(ContentOf(record));
        }
    }

    /// Whether a record lies there that such an edit cannot have left. Damage in the middle of the chain
    /// looks like the start of a record, too.
    bool HoldsForeignRecord() {
        const TagSearch tags({ExtendedHeader::Magic, DataChunkHeader::Magic, LookupTableHeader::Magic});
        for (uint64_t position = m_end; position < m_file.Size();) {
            const std::span<const unsigned char> block = m_file.Block(position);
            if (block.size() < kTagBytes) return false;
            const uint64_t found = tags.FindNext(block, 0);
            if (found == TagSearch::kNotFound) {
                position += block.size() - (kTagBytes - 1);
                continue;
            }
            position += found;
            const auto frame = FrameAt(m_file.Stream(), position);
            if (frame && frame->tag != ExtendedHeader::Magic) return true;
            ExtendedHeader record;
            const bool whole = ReadExtended(m_file.Stream(), position, record);
            if (whole && (MayBecomeHashes(record) || m_contents.contains(ContentOf(record)))) {
                position += kFrameBytes + record.GetDataSize();
            } else if (whole && !IsTornCopy(position)) {
                return true;
            } else {
                position += kTagBytes;
            }
        }
        return false;
    }

private:
    struct Place {
        uint64_t position, bytes;
    };
    // The smallest that a medium writes at once.
    static constexpr uint64_t kSector = 512;
    // Comparing all with all must not take for ever.
    static constexpr uint64_t kFreeSectors = 1 << 12;

    /// Whether the record at `position` is a copy of one in the chain, with sectors that never reached the
    /// medium, or only up to some byte.
    bool IsTornCopy(uint64_t position) {
        return std::ranges::any_of(m_chain,
                                   [&](const Place& original) { return IsTornCopyOf(original, position); });
    }

    bool IsTornCopyOf(const Place& original, uint64_t position) {
        for (uint64_t done = 0; done < original.bytes;) {
            if (m_sectorsLeft == 0) return false;
            --m_sectorsLeft;
            const uint64_t count = std::min(original.bytes - done, kSector - (position + done) % kSector);
            m_file.Read(position + done, count, m_copy);
            m_file.Read(original.position + done, count, m_original);
            while (!m_copy.empty() && m_copy.back() == 0)
                m_copy.pop_back();  // zeros may be what was lost
            // Its link leads elsewhere.
            for (uint64_t i = 0; i < m_copy.size(); ++i) {
                const bool isLink = done + i >= kFrameBytes && done + i < kFrameBytes + sizeof(uint64_t);
                if (!isLink && m_copy[i] != m_original[i]) return false;
            }
            done += count;
        }
        return true;
    }

    FileWindow m_file;
    uint64_t m_end;
    uint64_t m_sectorsLeft;
    std::vector<Place> m_chain;
    std::set<ExtendedContent> m_contents;
    std::vector<unsigned char> m_copy, m_original;
};

}  // namespace

std::optional<kxbase::RecordFrame> FrameAt(kxbase::IInFileStream& in, uint64_t position) {
    std::array<unsigned char, kFrameBytes> bytes{};
    if (!in.Seek(position) || in.Read(bytes.data(), bytes.size()) != bytes.size()) return std::nullopt;
    return kxbase::IOHeader::DecodeFrame(bytes);
}

ExtendedContent ContentOf(const ExtendedHeader& record) {
    const std::span<const unsigned char> data(record.GetDataBuffer(), record.GetDataBufferSize());
    return {record.GetType(), record.GetDataBufferSize(), Hash64(data)};
}

std::optional<InterruptedTail> FindInterruptedTail(kxbase::IInFileStream& in,
                                                   const MainFileHeader& mainHeader) {
    const uint64_t size = in.GetSize();
    const uint64_t first = mainHeader.firstExtendedHeaderPosition;
    if (first == 0 || first >= size) return std::nullopt;
    const uint64_t end = EndOfRun(in, first, size);
    if (end == size || end == first) return std::nullopt;
    // A frame, a link and the type.
    std::array<unsigned char, kFrameBytes + 16> bytes{};
    if (!in.Seek(end)) return std::nullopt;
    const uint64_t got = in.Read(bytes.data(), std::min<uint64_t>(bytes.size(), size - end));
    const auto tail = std::span<const unsigned char>(bytes).first(got);
    const bool interrupted = MayBecome(tail, ExtendedHeader::Magic, ExtendedHeader::CurrentVersion) ||
                             MayBecome(tail, ThumbnailHeader::Magic, ThumbnailHeader::CurrentVersion);
    if (!interrupted || LastNamedPosition(in, mainHeader) >= end) return std::nullopt;
    if (TailJudge(in, first, end).HoldsForeignRecord()) return std::nullopt;
    // The tag is written last, but that of a record of hashes, which ends later instead.
    kxbase::ByteReader fields(bytes);
    const bool hasTag = fields.U64("tag") == ExtendedHeader::Magic;
    fields.Skip(kFrameBytes - kTagBytes + 8, "frame and link");
    const bool isHashes = got == bytes.size() && fields.U64("type tag") == IntegrityExtendedHeader::Type;
    return InterruptedTail{end, size - end > kTagBytes && (!hasTag || isHashes)};
}

}  // namespace kxio
