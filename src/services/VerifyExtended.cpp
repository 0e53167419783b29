// SPDX-License-Identifier: MIT
#include "services/VerifyExtended.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <utility>

#include "kxbase/UTF8.h"
#include "kxio/ColorizationModeExtendedHeader.h"
#include "kxio/CommentExtendedHeader.h"
#include "kxio/ERExtendedHeader.h"
#include "kxio/HDRExtendedHeader.h"
#include "kxio/HQExtendedHeader.h"
#include "kxio/HistogramHeader.h"
#include "kxio/IntegrityExtendedHeader.h"
#include "kxio/PreregistrationExtendedHeader.h"
#include "kxio/ScanningModeExtendedHeader.h"
#include "kxio/UUIDExtendedHeader.h"
#include "kxio/WarningExtendedHeader.h"
#include "reader/ExtendedFrame.h"
#include "services/ExtendedChain.h"
#include "services/HashOfBytes.h"

namespace kxio {

namespace {

enum class DataShape { Text, Link, Fixed, Histogram, Integrity };

struct Kind {
    uint64_t type;
    const char* name;
    DataShape shape;
    uint32_t bytes = 0;  ///< of fixed data
};

constexpr std::array<Kind, 14> kKinds = {{
    {CommentExtendedHeader::Type, "message", DataShape::Text},
    {WarningExtendedHeader::Type, "warning", DataShape::Text},
    {HQExtendedHeader::Type, "HQ link", DataShape::Link},
    {ERExtendedHeader::Type, "ER link", DataShape::Link},
    {HDRExtendedHeader::Type, "HDR link", DataShape::Link},
    {ScanningModeExtendedHeader::Type, "scanning mode", DataShape::Text},
    {ColorizationModeExtendedHeader::Type, "colorization mode", DataShape::Text},
    {UUIDExtendedHeader::Type, "identifiers", DataShape::Fixed, UUIDExtendedHeader::ByteSize},
    {PreregistrationExtendedHeader::Type, "pre-registration", DataShape::Fixed,
     PreregistrationExtendedHeader::ByteSize},
    {ClassHistogramHeader::Type, "class histogram", DataShape::Histogram},
    {SegmentHistogramHeader::Type, "segment histogram", DataShape::Histogram},
    {Luminance8HistogramHeader::Type, "8-bit intensity histogram", DataShape::Histogram},
    {Luminance16HistogramHeader::Type, "16-bit intensity histogram", DataShape::Histogram},
    {IntegrityExtendedHeader::Type, "integrity", DataShape::Integrity},
}};

const Kind* KindOf(uint64_t type) {
    const auto kind =
        std::find_if(kKinds.begin(), kKinds.end(), [&](const Kind& k) { return k.type == type; });
    return kind == kKinds.end() ? nullptr : &*kind;
}

std::string Number(uint64_t value) {
    return std::to_string(value);
}

/// An extended record as far as it is looked at here: histograms, which are long, without their data.
struct ExtendedView {
    ExtendedFrame frame;
    ExtendedHeader record;
    ExtendedContent content;
};

/// False, and `problem` filled, where no such record lies.
bool Find(FileWindow& file, uint64_t position, ExtendedView& found, kxbase::ErrorContext& problem) {
    const auto frame = PeekExtended(file.Stream(), position);
    if (frame && HistogramComponent(frame->type)) {
        const uint64_t hash = HashOfBytes(file, frame->DataPosition(), frame->dataBytes);
        if (file.UnreadableBytes() == 0) {
            found = {*frame,
                     ExtendedHeader(frame->type),
                     {frame->type, static_cast<uint32_t>(frame->dataBytes), hash}};
            return true;
        }
    }
    ExtendedHeader record;
    if (!ReadRecord(file, position, record, problem)) return false;
    found.frame = {position,
                   record.GetVersion(),
                   record.GetLink(),
                   record.GetType(),
                   record.GetDataBufferSize(),
                   uint64_t{kxbase::IOHeader::FrameSize} + record.GetDataSize()};
    found.content = ContentOf(record);
    found.record = std::move(record);
    return true;
}

class ExtendedCheck {
public:
    ExtendedCheck(const ExtendedView& found, FindingList& findings)
        : m_frame(found.frame),
          m_record(found.record),
          m_position(found.frame.position),
          m_findings(findings) {}

    void Run(const Kind* kind) {
        if (m_frame.version != ExtendedHeader::CurrentVersion)
            Add(Warning(Name(kind)).At(m_position + 8).Field("version"),
                Number(m_frame.version) + ", where " + Number(ExtendedHeader::CurrentVersion) + " is known");
        if (m_frame.recordBytes != ExtendedFrame::kBytes + m_frame.dataBytes)
            Add(Warning(Name(kind)).At(m_position + kLengthAt).Field("data length"),
                Number(m_frame.dataBytes) + ", but the record has " +
                    Number(m_frame.recordBytes - ExtendedFrame::kBytes) + " bytes for it");
        if (kind == nullptr) {
            if (!HistogramComponent(m_frame.type))
                Add(Warning(Name(kind)).At(m_position + kTypeAt).Field("type tag"),
                    "an unknown kind, which is passed over");
            return;
        }
        if (kind->shape == DataShape::Text || kind->shape == DataShape::Link) Text(*kind);
        if (kind->shape == DataShape::Fixed && m_frame.dataBytes != kind->bytes)
            Add(Warning(kind->name).At(m_position + kLengthAt).Field("data length"),
                Number(m_frame.dataBytes) + ", but this kind has " + Number(kind->bytes));
    }

    /// \param next  position behind the record when another one follows there
    void Link(const Kind* kind, std::optional<uint64_t> next) {
        const uint64_t link = m_frame.link;
        // The last one has 0, and so have those that were appended; what they follow was left as it was.
        if (link == 0 || (next && link == *next)) return;
        Add(Warning(Name(kind)).At(m_position + kLinkAt).Field("link"),
            next ? Number(link) + ", but the next record lies at byte " + Number(*next)
                 : Number(link) + ", but this is the last record");
    }

private:
    static constexpr uint64_t kLinkAt = 16;
    static constexpr uint64_t kTypeAt = 24;
    static constexpr uint64_t kLengthAt = 32;
    static constexpr uint64_t kDataAt = 36;

    static std::string Name(const Kind* kind) { return kind == nullptr ? "ExtendedHeader" : kind->name; }
    void Add(FindingDraft& draft, std::string text) { m_findings.Add(draft.Says(std::move(text))); }

    void Text(const Kind& kind) {
        const unsigned char* data = m_record.GetDataBuffer();
        const unsigned char* end = data + m_record.GetDataBufferSize();
        const unsigned char* nul = std::find(data, end, 0);
        if (nul == end) {
            Add(Warning(kind.name).At(m_position + kDataAt).Field("text"), "no closing NUL");
        } else if (std::any_of(nul, end, [](unsigned char byte) { return byte != 0; })) {
            Add(Warning(kind.name).At(m_position + kDataAt).Field("text"), "more bytes behind its NUL");
        }
        const std::string text(data, nul);
        if (kxbase::Encode_UTF8(kxbase::Decode_UTF8(text)) != text)
            Add(Warning(kind.name).At(m_position + kDataAt).Field("text"), "it is no valid UTF-8");
        if (kind.shape != DataShape::Link) return;
        try {
            const kxbase::UUID uuid(kxbase::Decode_UTF8(text));
            if (uuid.IsZero()) Add(Note(kind.name).At(m_position + kDataAt).Field("text"), "all zero");
        } catch (const kxbase::KXException&) {
            Add(Warning(kind.name).At(m_position + kDataAt).Field("text"),
                "it is no identifier; the link is passed over");
        }
    }

    const ExtendedFrame& m_frame;
    const ExtendedHeader& m_record;
    const uint64_t m_position;
    FindingList& m_findings;
};

}  // namespace

std::string ExtendedKindName(uint64_t typeTag) {
    if (const Kind* kind = KindOf(typeTag)) return kind->name;
    const auto component = HistogramComponent(typeTag);
    return component ? kxbase::ComponentToString(*component) + " histogram" : std::string();
}

void VerifyExtendedRecords(FileWindow& file, const FileLayout& layout, FindingList& findings,
                           std::map<kxbase::ComponentType, uint64_t>& histograms) {
    const uint64_t first = layout.mainHeader->firstExtendedHeaderPosition;
    uint64_t position = first;
    std::set<ExtendedContent> held;  // the contents of the chain
    kxbase::ErrorContext problem;
    ExtendedView found;
    if (first != 0 && !Find(file, first, found, problem)) {
        findings.Add(
            Error("ExtendedHeader")
                .At(problem.offset)
                .Field(problem.field)
                .Says("no such record where the main header's first extended header position points, byte " +
                      Number(first) + ": " + problem.detail));
    } else if (first != 0) {
        bool identified = false;
        for (bool more = true; more;) {
            const uint64_t type = found.frame.type;
            const uint64_t next = position + found.frame.recordBytes;
            const Kind* kind = KindOf(type);
            ExtendedCheck check(found, findings);
            check.Run(kind);
            held.insert(found.content);
            if (const auto component = HistogramComponent(type)) {
                if (histograms.contains(*component))
                    findings.Add(Warning(ExtendedKindName(type))
                                     .At(position)
                                     .Of(*component)
                                     .Says("a second one; the last one counts"));
                histograms[*component] = position;
            }
            identified = identified || type == UUIDExtendedHeader::Type;
            ExtendedView following;
            more = Find(file, next, following, problem);
            check.Link(kind, more ? std::optional(next) : std::nullopt);
            position = next;
            if (more) found = std::move(following);
        }
        if (!identified)
            findings.Add(Note("ExtendedHeader").At(first).Says("the file has no record of identifiers"));
    }
    // What no reader comes to.
    for (const FilePiece& piece : layout.pieces) {
        if (piece.kind != PieceKind::Record || piece.tag != ExtendedHeader::Magic) continue;
        if (first != 0 && piece.offset >= first && piece.offset < position) continue;
        if (piece.offset < first && Find(file, piece.offset, found, problem) &&
            (held.contains(found.content) || found.frame.type == IntegrityExtendedHeader::Type)) {
            findings.Add(
                Note("ExtendedHeader")
                    .At(piece.offset)
                    .Says("left behind by an edit that moved the extended records to byte " + Number(first)));
            continue;
        }
        findings.Add(Error("ExtendedHeader")
                         .At(piece.offset)
                         .Says("the chain of extended records ends before it, at byte " +
                               Number(first == 0 ? 0 : position)));
    }
}

}  // namespace kxio
