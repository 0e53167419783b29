// SPDX-License-Identifier: MIT
#include "kxio/ThumbnailEdit.h"

#include <algorithm>
#include <array>
#include <memory>
#include <span>

#include "format/Hash64.h"
#include "format/HeaderPieces.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"
#include "kxbase/InMemoryStream.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxcodecs/JPEG.h"
#include "kxio/ExtendedHeader.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"
#include "kxio/ThumbnailHeader.h"
#include "services/FileEdit.h"
#include "services/IntegrityEdit.h"

namespace kxio {

namespace {

ThumbnailHeader MakeRecord(const std::vector<unsigned char>& jpeg) {
    unsigned char* pixels = nullptr;
    uint64_t bytes = 0;
    unsigned width = 0;
    unsigned height = 0;
    if (!kxcodecs::JPEG::Decode(jpeg.data(), jpeg.size(), pixels, bytes, width, height)) {
        throw kxbase::KXBadInputException("Unknown thumbnail data size",
                                          {{}, "ThumbnailHeader", {}, {}, "the bytes are no JPEG image"});
    }
    kxcodecs::JPEG::Free(pixels);
    ThumbnailHeader record;
    record.SetCompressed(jpeg, height, width);
    return record;
}

struct Spans {
    std::vector<IntegritySpan> headers;
    std::vector<IntegritySpan> others;
};

// The extended records from `position` on, as they stand but for their links, which lead to the next record
// of a chain that begins at `newPosition`. Integrity records stay where they are: they are told of.
void CopyTail(kxbase::IInFileStream& in, uint64_t position, uint64_t newPosition, kxbase::IOutFileStream& out,
              Spans& spans) {
    constexpr uint64_t kLinkOffset = kxbase::IOHeader::FrameSize;
    in.Seek(position);
    ExtendedHeader record;
    std::vector<unsigned char> bytes;
    while (record.Read(&in) != 0) {
        if (record.GetType() == IntegrityExtendedHeader::Type) continue;
        const uint64_t size = record.HeaderSize();
        bytes.resize(size);
        in.SeekBackward(size);
        if (in.Read(bytes.data(), size) != size) break;
        const uint64_t start = newPosition;
        newPosition += size;
        if (!record.IsLastHeader()) {
            kxbase::ByteWriter link(std::span<unsigned char>(bytes).subspan(kLinkOffset, sizeof(uint64_t)));
            link.U64(newPosition);
        }
        out.Write(bytes.data(), bytes.size());
        AddHeaderSpans(record, start, bytes, spans.headers, spans.others);
    }
}

}  // namespace

void SetThumbnail(const std::wstring& path, const std::vector<unsigned char>& jpeg) {
    ThumbnailHeader thumbnail = MakeRecord(jpeg);
    { const QSNScanReader looked(path, 0); }  // what is no scan is told as such
    FileEdit edit(path);
    // Read again: between looking and locking somebody else may have edited the file.
    const QSNScanReader reader(path, 0);
    MainFileHeader header = ScanAccess(reader).GetMainHeader();
    const uint64_t end = edit.End(header);
    header.thumbnailHeaderPosition = 0;  // the old one may be damaged: it goes
    edit.RequireUncut(header, end);
    kxbase::kxInFile in(path);
    const IntegrityTable integrity = LoadIntegrity(in, header);
    kxbase::InMemoryStream appended;
    Spans spans;
    thumbnail.Write(&appended);
    AddHeaderSpans(thumbnail, end, appended.GetBytes(), spans.headers, spans.others);
    if (header.firstExtendedHeaderPosition != 0) {
        const uint64_t tail = end + appended.GetSize();
        CopyTail(in, header.firstExtendedHeaderPosition, tail, appended, spans);
        header.firstExtendedHeaderPosition = tail;
    }
    header.thumbnailHeaderPosition = end;
    std::vector<unsigned char> newMainHeader(MainFileHeader::RecordSize);
    if (in.ReadAt(0, newMainHeader.data(), newMainHeader.size()) != newMainHeader.size()) {
        throw kxbase::KXHeaderReadingException("Invalid main header",
                                               {kxbase::Encode_UTF8(path), {}, {}, 0, "it cannot be read"});
    }
    // Three neighbouring fields of the main header: extended records, end of the chunks, thumbnail.
    constexpr uint64_t kFirstField = 24;
    std::array<unsigned char, 24> fields{};
    kxbase::ByteWriter encode(fields);
    encode.U64(header.firstExtendedHeaderPosition);
    encode.U64(header.chunkDataEndPosition);
    encode.U64(header.thumbnailHeaderPosition);

    const uint64_t fieldsAt = kxbase::IOHeader::FrameSize + kFirstField;
    std::copy(fields.begin(), fields.end(), newMainHeader.begin() + static_cast<std::ptrdiff_t>(fieldsAt));
    spans.headers.push_back({0, newMainHeader.size(), Hash64(newMainHeader)});
    edit.Append(end, appended.GetBytes(),
                NoteOfEdit(integrity, end + appended.GetSize(), spans.headers, spans.others));
    edit.Overwrite(fieldsAt, fields);
    edit.Close();
}

}  // namespace kxio
