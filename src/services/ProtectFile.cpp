// SPDX-License-Identifier: MIT
#include "kxio/ProtectFile.h"

#include <optional>
#include <set>
#include <vector>

#include "format/Hash64.h"
#include "format/HeaderPieces.h"
#include "kxbase/Exceptions.h"
#include "kxbase/InMemoryStream.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/ComponentHeader.h"
#include "kxio/HistogramHeader.h"
#include "kxio/LookupTableHeader.h"
#include "kxio/MinMaxHeader.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanHeader.h"
#include "kxio/ThumbnailHeader.h"
#include "kxio/VerifyScan.h"
#include "reader/ExtendedFrame.h"
#include "services/FileEdit.h"
#include "services/FileWindow.h"
#include "services/HashOfBytes.h"
#include "services/IntegrityEdit.h"

namespace kxio {

namespace {

void RequireWhole(const std::wstring& path) {
    const VerifyReport report = VerifyScan(path);
    if (report.errors == 0) return;
    kxbase::ErrorContext context;
    context.file = kxbase::Encode_UTF8(path);
    for (const VerifyFinding& finding : report.findings) {
        if (finding.severity != FindingSeverity::Error) continue;
        context.record = finding.record;
        context.field = finding.field;
        context.offset = finding.offset;
        context.detail = finding.text + "; " + std::to_string(report.errors) + " errors in all";
        break;
    }
    throw kxbase::KXBadInputException("File is damaged", context);
}

/// Reads the parts of a whole file and lists their hashes.
class Lister {
public:
    explicit Lister(kxbase::IInFileStream& in) : m_in(in) {}

    void Run(MainFileHeader& main) {
        Record(0, main);
        ScanHeader scan;
        Record(main.scanHeaderPosition, scan);
        uint64_t componentAt = main.firstComponentHeaderPosition;
        for (ComponentHeader component; Record(componentAt, component);)
            componentAt += component.HeaderSize();
        Table(main.lookupTablePosition, false);
        Table(main.previewLookupTablePosition, true);
        ThumbnailHeader thumbnail;
        Record(main.thumbnailHeaderPosition, thumbnail);
        std::vector<MinMaxPair> pairs;
        MinMaxHeader limits(&pairs);
        Record(main.boundingInformationPosition, limits);
        uint64_t position = main.firstExtendedHeaderPosition;
        while (const uint64_t bytes = Extended(position))
            position += bytes;
    }

    std::vector<IntegritySpan> headers;
    std::vector<IntegritySpan> others;

private:
    // False where no record lies.
    bool Record(uint64_t position, kxbase::IOHeader& record) {
        if (position == 0 && record.GetMagic() != MainFileHeader::Magic) return false;
        if (!m_in.Seek(position) || record.Read(&m_in) == 0) return false;
        if (!Bytes(position, uint64_t{kxbase::IOHeader::FrameSize} + record.GetDataSize())) return false;
        AddHeaderSpans(record, position, m_bytes, headers, others);
        return true;
    }

    // Bytes of the extended record there; 0 where none lies.
    uint64_t Extended(uint64_t position) {
        const auto frame = position == 0 ? std::nullopt : PeekExtended(m_in, position);
        if (!frame) return 0;
        if (!HistogramComponent(frame->type)) {
            ExtendedHeader record;
            return Record(position, record) ? frame->recordBytes : 0;
        }
        FileWindow window(m_in);
        const auto span = [&](uint64_t bytes) {
            return IntegritySpan{position, bytes, HashOfBytes(window, position, bytes)};
        };
        others.push_back(span(frame->recordBytes));
        headers.push_back(span(kHistogramHeadBytes));
        return window.UnreadableBytes() == 0 ? frame->recordBytes : 0;
    }

    void Table(uint64_t position, bool previews) {
        LookupTable table;
        LookupTableHeader record(&table);
        if (!Record(position, record)) return;
        std::set<uint64_t> done;  // empty patches share a chunk
        for (const auto& [component, entries] : table) {
            for (const LookupEntry& entry : entries) {
                if (entry.position == 0 || entry.byteCount == 0 || !done.insert(entry.position).second)
                    continue;
                if (!Bytes(entry.position, entry.byteCount)) continue;
                others.push_back({entry.position, entry.byteCount, Hash64(m_bytes)});
                constexpr size_t kHead = kxcodecs::QKXChunkCodec::HeaderSize;
                if (previews && m_bytes.size() > kHead)
                    headers.push_back({entry.position, kHead, Hash64(std::span(m_bytes).first(kHead))});
            }
        }
    }

    bool Bytes(uint64_t position, uint64_t count) {
        const uint64_t size = m_in.GetSize();
        if (position > size || count > size - position) return false;
        m_bytes.resize(count);
        return m_in.Seek(position) && m_in.Read(m_bytes.data(), count) == count;
    }

    kxbase::IInFileStream& m_in;
    std::vector<unsigned char> m_bytes;
};

}  // namespace

bool ProtectFile(const std::wstring& path) {
    const auto isProtected = [&path] {
        const QSNScanReader reader(path);
        return reader.HasIntegrity() && reader.GetIntegrityProblems().empty();
    };
    if (isProtected()) return false;
    FileEdit edit(path);
    // Asked again: between looking and locking somebody else may have edited the file.
    if (isProtected()) return false;
    kxbase::kxInFile in(path);
    MainFileHeader main;
    main.Read(&in);
    RequireWhole(path);  // before anything is taken away
    const uint64_t end = edit.End(main);
    Lister lister(in);
    lister.Run(main);
    IntegrityExtendedHeader integrity(lister.headers, lister.others, end);
    kxbase::InMemoryStream encoded;
    integrity.Write(&encoded);
    edit.Append(end, {}, encoded.GetBytes());
    edit.Close();
    return true;
}

}  // namespace kxio
