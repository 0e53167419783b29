// SPDX-License-Identifier: MIT
#include "services/FileEdit.h"

#include <algorithm>

#include "format/PendingEdit.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxio/IntegrityExtendedHeader.h"
#include "services/ExtendedChain.h"

namespace kxio {

namespace {

constexpr uint64_t kTagBytes = 8;

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
    const auto tail = FindInterruptedTail(in, mainHeader);
    if (!tail) return in.GetSize();
    m_out.Resize(tail->position);
    m_out.Sync();
    return tail->position;
}

void FileEdit::RequireUncut(const MainFileHeader& mainHeader, uint64_t end) const {
    const auto refuse = [&](const char* record, std::string detail) {
        throw kxbase::KXBadInputException("File is damaged",
                                          {kxbase::Encode_UTF8(m_path), record, {}, end, std::move(detail)});
    };
    if (mainHeader.firstExtendedHeaderPosition > end) {
        refuse("ExtendedHeader", "the file ends before its extended records, which began at byte " +
                                     std::to_string(mainHeader.firstExtendedHeaderPosition));
    }
    kxbase::kxInFile in(m_path);
    if (!in.IsOpen()) CannotWrite(m_path, "it cannot be opened for reading");
    const std::pair<const char*, uint64_t> named[] = {
        {"ScanHeader", mainHeader.scanHeaderPosition},
        {"ComponentHeader", mainHeader.firstComponentHeaderPosition},
        {"LookupTableHeader", mainHeader.lookupTablePosition},
        {"PreviewLookupTableHeader", mainHeader.previewLookupTablePosition},
        {"ThumbnailHeader", mainHeader.thumbnailHeaderPosition},
        {"MinMaxHeader", mainHeader.boundingInformationPosition},
    };
    for (const auto& [record, position] : named) {
        if (position == 0) continue;
        const auto frame = FrameAt(in, position);
        const uint64_t bytes = kxbase::IOHeader::FrameSize + (frame ? uint64_t{frame->payloadSize} : 0);
        if (position < end && bytes <= end - position) continue;
        refuse(record,
               "the file ends inside of this record, which begins at byte " + std::to_string(position));
    }
}

void FileEdit::Append(uint64_t end, std::span<const unsigned char> records,
                      std::span<const unsigned char> note) {
    try {
        // While the tag is missing there is no record, and while its trailer is missing the note is no whole
        // one: neither is met before everything in front of it is on the medium. A note alone gets its tag
        // last, too: the start of a record, cut, may be anybody's.
        const uint64_t trailerBytes = std::min<uint64_t>(IntegrityExtendedHeader::TrailerBytes, note.size());
        const auto body = note.first(note.size() - trailerBytes);
        if (!records.empty() && !body.empty()) WriteAt(end + records.size(), body);
        WriteTagLast(end, records.empty() ? body : records);
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
            WriteTagLast(promise.position, record);
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

void FileEdit::WriteTagLast(uint64_t position, std::span<const unsigned char> records) {
    const uint64_t tagBytes = std::min<uint64_t>(kTagBytes, records.size());
    if (records.size() > tagBytes) WriteAt(position + tagBytes, records.subspan(tagBytes));
    m_out.Sync();
    if (tagBytes == 0) return;
    WriteAt(position, records.first(tagBytes));
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
