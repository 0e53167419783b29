// SPDX-License-Identifier: MIT
// The first byte picks the kind of record, then u32 version, then the payload:
//   0 main file header   1 scan header   2 component   3 chunk   4 lookup table   5 limits   6 thumbnail
//   7 extended record, made into every kind it may be
// A payload is read, refused in a known way, or no record; what was read is written, read again and must not
// change any more.
#include <span>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/InMemoryStream.h"
#include "kxio/ColorizationModeExtendedHeader.h"
#include "kxio/CommentExtendedHeader.h"
#include "kxio/ComponentHeader.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/ERExtendedHeader.h"
#include "kxio/HDRExtendedHeader.h"
#include "kxio/HQExtendedHeader.h"
#include "kxio/HistogramHeader.h"
#include "kxio/LookupTableHeader.h"
#include "kxio/MainFileHeader.h"
#include "kxio/MinMaxHeader.h"
#include "kxio/PreregistrationExtendedHeader.h"
#include "kxio/ScanHeader.h"
#include "kxio/ScanningModeExtendedHeader.h"
#include "kxio/ThumbnailHeader.h"
#include "kxio/UUIDExtendedHeader.h"
#include "kxio/WarningExtendedHeader.h"

namespace {

using Bytes = std::vector<unsigned char>;

struct Input {
    uint32_t version = 0;
    std::span<const unsigned char> payload;
};

Bytes Framed(const kxbase::IOHeader& record, const Input& input) {
    Bytes bytes(kxbase::IOHeader::FrameSize + input.payload.size());
    kxbase::ByteWriter out(bytes);
    out.U64(record.GetMagic());
    out.U32(input.version);
    out.U32(static_cast<uint32_t>(input.payload.size()));
    out.Bytes(input.payload);
    return bytes;
}

Bytes Written(kxbase::IOHeader& record) {
    kxbase::InMemoryStream out;
    const uint64_t bytes = record.Write(&out);
    Require(bytes == out.GetBytes().size() && bytes == record.HeaderSize(), "a record writes its size");
    return out.GetBytes();
}

bool IsKnownRefusal(const kxbase::KXException& e) {
    const std::string text = e.what();
    return text.starts_with("Unsupported ") || text == "Unknown thumbnail data size";
}

// True when the input was a record.
bool Read(kxbase::IOHeader& record, const Bytes& bytes) {
    kxbase::InMemoryStream in(bytes);
    uint64_t read = 0;
    try {
        read = record.Read(&in);
    } catch (const kxbase::KXException& e) {
        Require(IsKnownRefusal(e), "a refusal has one of the known texts");
        Require(in.Tell() == 0 && !record.IsValid(), "a refused record moves nothing and is not valid");
        return false;
    }
    Require(read == 0 || read == bytes.size(), "a record is as long as its frame says");
    Require(in.Tell() == read && record.IsValid() == (read != 0), "position and validity follow");
    Require(record.GetReadProblem().Empty() == (read != 0),
            "there is a reason exactly when there is no record");
    return read != 0;
}

// What was read keeps its content through writing and reading.
void CheckRewriting(kxbase::IOHeader& record) {
    const Bytes first = Written(record);
    Require(Read(record, first), "what was written is a record");
    Require(Written(record) == first, "a rewritten record stays the same");
}

template <class Record>
void CheckRecord(const Input& input) {
    Record record;
    if (Read(record, Framed(record, input))) CheckRewriting(record);
}

void CheckLookupTable(const Input& input) {
    kxio::LookupTable table;
    kxio::LookupTableHeader record(&table);
    kxio::LookupTableHeader without;
    const bool read = Read(record, Framed(record, input));
    Require(Read(without, Framed(without, input)) == read, "the same bytes with and without a table");
    if (!read) {
        Require(table.empty(), "nothing of a refused table is kept");
        return;
    }
    const kxio::LookupTable before = table;
    CheckRewriting(record);
    Require(table == before, "a table reads back as it was");
}

void CheckLimits(const Input& input) {
    std::vector<kxio::MinMaxPair> pairs;
    kxio::MinMaxHeader record(&pairs);
    if (Read(record, Framed(record, input))) CheckRewriting(record);
}

void CheckThumbnail(const Input& input) {
    kxio::ThumbnailHeader record;
    // Without JPEG bytes a black image of the stored sides would be made: a matter of the JPEG encoder.
    if (Read(record, Framed(record, input)) && !record.GetCompressed().empty()) CheckRewriting(record);
}

template <class Kind>
void CheckTextKind(const kxio::ExtendedHeader& record) {
    Kind kind(record);
    const Kind again{static_cast<const kxio::ExtendedHeader&>(kind)};
    Require(again.Message() == kind.Message(), "a text stays the same");
    CheckRewriting(kind);
}

template <class Kind>
void CheckLinkKind(const kxio::ExtendedHeader& record) {
    CheckTextKind<Kind>(record);
    const Kind kind(record);
    try {
        const kxbase::UUID uuid = kind.GetUUID();
        Require(Kind(uuid).GetUUID() == uuid, "a link's text is its UUID");
    } catch (const kxbase::KXBadInputException&) {
        return;
    }
}

template <class Header>
void CheckHistogram(const kxio::ExtendedHeader& record) {
    Header header(record);
    CheckRewriting(header);
    try {
        const auto histogram = header.GetHistogram();
        Require(Header(histogram).GetHistogram() == histogram, "a histogram encodes and decodes to itself");
    } catch (const kxbase::KXUnreadablePatchException& e) {
        Require(std::string(e.what()) == "Patch cannot be decoded", "a damaged histogram has the known text");
    }
}

void CheckExtended(const Input& input) {
    kxio::ExtendedHeader record;
    const Bytes bytes = Framed(record, input);
    if (!Read(record, bytes)) return;
    CheckTextKind<kxio::CommentExtendedHeader>(record);
    CheckTextKind<kxio::WarningExtendedHeader>(record);
    CheckTextKind<kxio::ScanningModeExtendedHeader>(record);
    CheckTextKind<kxio::ColorizationModeExtendedHeader>(record);
    CheckLinkKind<kxio::HQExtendedHeader>(record);
    CheckLinkKind<kxio::ERExtendedHeader>(record);
    CheckLinkKind<kxio::HDRExtendedHeader>(record);
    kxio::UUIDExtendedHeader identifiers(record);
    CheckRewriting(identifiers);
    kxio::PreregistrationExtendedHeader preregistration(record);
    CheckRewriting(preregistration);
    CheckHistogram<kxio::ClassHistogramHeader>(record);
    CheckHistogram<kxio::SegmentHistogramHeader>(record);
    CheckHistogram<kxio::Luminance8HistogramHeader>(record);
    CheckHistogram<kxio::Luminance16HistogramHeader>(record);
    CheckRewriting(record);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kxbase::ByteReader in({data, size});
    if (in.Remaining() < 5) return 0;
    const uint8_t kind = in.U8("kind");
    Input input;
    input.version = in.U32("version");
    input.payload = in.Take(in.Remaining(), "payload");
    switch (kind) {
        case 0:
            CheckRecord<kxio::MainFileHeader>(input);
            break;
        case 1:
            CheckRecord<kxio::ScanHeader>(input);
            break;
        case 2:
            CheckRecord<kxio::ComponentHeader>(input);
            break;
        case 3:
            CheckRecord<kxio::DataChunkHeader>(input);
            break;
        case 4:
            CheckLookupTable(input);
            break;
        case 5:
            CheckLimits(input);
            break;
        case 6:
            CheckThumbnail(input);
            break;
        case 7:
            CheckExtended(input);
            break;
        default:
            break;
    }
    return 0;
}
