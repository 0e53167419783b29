// SPDX-License-Identifier: MIT
#include "services/FileEdit.h"

#include <algorithm>
#include <array>
#include <optional>

#include "format/PendingEdit.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"
#include "kxbase/Sizes.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxio/ExtendedHeader.h"
#include "kxio/IntegrityExtendedHeader.h"
#include "kxio/LookupTableHeader.h"
#include "kxio/ThumbnailHeader.h"

namespace kxio {

namespace {

constexpr uint64_t kTagBytes = 8;
constexpr uint64_t kFrameBytes = kxbase::IOHeader::FrameSize;

std::optional<kxbase::RecordFrame> FrameAt(kxbase::kxInFile& in, uint64_t position) {
    std::array<unsigned char, kFrameBytes> bytes{};
    if (in.ReadAt(position, bytes.data(), bytes.size()) != bytes.size()) return std::nullopt;
    return kxbase::IOHeader::DecodeFrame(bytes);
}

/// Behind the last extended record of the run that begins there.
uint64_t EndOfRun(kxbase::kxInFile& in, uint64_t position) {
    const uint64_t size = in.GetSize();
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

/// The last position that a header or a table leads to.
uint64_t LastNamedPosition(kxbase::kxInFile& in, const MainFileHeader& main) {
    uint64_t last = std::max({main.scanHeaderPosition, main.firstComponentHeaderPosition,
                              main.firstChunkPosition, main.thumbnailHeaderPosition, main.lookupTablePosition,
                              main.previewLookupTablePosition, main.boundingInformationPosition});
    for (const uint64_t position : {main.lookupTablePosition, main.previewLookupTablePosition}) {
        LookupTable table;
        LookupTableHeader record(&table);
        try {
            if (position == 0 || !in.Seek(position) || record.Read(&in) == 0) continue;
        } catch (const kxbase::KXException&) {
            continue;
        }
        for (const auto& [component, entries] : table) {
            for (const LookupEntry& entry : entries)
                last = std::max(last, entry.position);
        }
    }
    return last;
}

[[noreturn]] void CannotWrite(const std::wstring& path, const char* detail) {
    throw kxbase::KXWritingException("Cannot write file", {kxbase::Encode_UTF8(path), {}, {}, {}, detail});
}

}  // namespace

FileEdit::FileEdit(const std::wstring& path) : m_path(path), m_out(path, kxbase::kxOutFile::KeepContent) {
    if (!m_out.IsOpen()) CannotWrite(path, "it cannot be opened for writing");
    m_out.Lock();
    kxbase::kxInFile in(path);
    if (!in.IsOpen()) CannotWrite(path, "it cannot be opened for reading");
    if (const auto promised = FindPendingEdit(in, in.GetSize())) {
        WriteAt(promised->target, promised->bytes);
        m_out.Sync();
        m_out.Resize(promised->position);
        m_out.Sync();
    }
}

uint64_t FileEdit::End(const MainFileHeader& mainHeader) {
    kxbase::kxInFile in(m_path);
    if (!in.IsOpen()) CannotWrite(m_path, "it cannot be opened for reading");
    const uint64_t size = in.GetSize();
    const uint64_t first = mainHeader.firstExtendedHeaderPosition;
    if (first == 0 || first >= size) return size;
    const uint64_t end = EndOfRun(in, first);
    if (end == size) return size;
    std::array<unsigned char, kFrameBytes> bytes{};
    const uint64_t got = in.ReadAt(end, bytes.data(), std::min<uint64_t>(bytes.size(), size - end));
    const auto tail = std::span<const unsigned char>(bytes).first(got);
    const bool interrupted = MayBecome(tail, ExtendedHeader::Magic, ExtendedHeader::CurrentVersion) ||
                             MayBecome(tail, ThumbnailHeader::Magic, ThumbnailHeader::CurrentVersion);
    if (end == first || !interrupted || LastNamedPosition(in, mainHeader) >= end) return size;
    m_out.Resize(end);
    m_out.Sync();
    return end;
}

void FileEdit::Append(uint64_t end, std::span<const unsigned char> records,
                      std::span<const unsigned char> note) {
    try {
        // While the tag is missing there is no record, and while its trailer is missing the note is no whole
        // one: neither is met before everything in front of it is on the medium.
        const uint64_t tagBytes = std::min<uint64_t>(kTagBytes, records.size());
        const uint64_t trailerBytes = std::min<uint64_t>(IntegrityExtendedHeader::TrailerBytes, note.size());
        const auto body = note.first(note.size() - trailerBytes);
        if (records.size() > tagBytes) WriteAt(end + tagBytes, records.subspan(tagBytes));
        if (!body.empty()) WriteAt(end + records.size(), body);
        m_out.Sync();
        if (tagBytes != 0) {
            WriteAt(end, records.first(tagBytes));
            m_out.Sync();
        }
        if (trailerBytes != 0) {
            WriteAt(end + records.size() + body.size(), note.last(trailerBytes));
            m_out.Sync();
        }
    } catch (const kxbase::KXWritingException&) {
        try {
            m_out.Resize(end);
        } catch (const kxbase::KXWritingException&) {
            // What is left is cleared up by the next edit.
        }
        throw;
    }
}

void FileEdit::Overwrite(uint64_t position, std::span<const unsigned char> bytes) {
    if (bytes.size() > 1) {
        kxbase::kxInFile in(m_path);
        if (!in.IsOpen()) CannotWrite(m_path, "it cannot be opened for reading");
        const PendingEdit promise{in.GetSize(), position, {bytes.begin(), bytes.end()}};
        const auto record = EncodePendingEdit(promise);
        try {
            WriteAt(promise.position, record);
            m_out.Sync();
        } catch (const kxbase::KXWritingException&) {
            try {
                m_out.Resize(promise.position);
            } catch (const kxbase::KXWritingException&) {
                // A promise that is not whole binds nobody.
            }
            throw;
        }
        WriteAt(position, bytes);
        m_out.Sync();
        m_out.Resize(promise.position);
    } else {
        // One byte is old or new by itself.
        WriteAt(position, bytes);
    }
    m_out.Sync();
}

void FileEdit::Close() {
    m_out.Close();
}

void FileEdit::WriteAt(uint64_t position, std::span<const unsigned char> bytes) {
    if (!m_out.Seek(position)) CannotWrite(m_path, "a position cannot be reached");
    m_out.Write(bytes.data(), bytes.size());
}

}  // namespace kxio
