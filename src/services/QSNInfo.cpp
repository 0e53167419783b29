// SPDX-License-Identifier: MIT
#include "kxio/QSNInfo.h"

#include <array>
#include <memory>

#include "format/Hash64.h"
#include "format/HeaderPieces.h"
#include "format/RegistrationBytes.h"
#include "kxbase/Exceptions.h"
#include "kxbase/InMemoryStream.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxbase/kxOutFile.h"
#include "kxio/CommentExtendedHeader.h"
#include "kxio/ERExtendedHeader.h"
#include "kxio/HDRExtendedHeader.h"
#include "kxio/HQExtendedHeader.h"
#include "kxio/QSNScanReader.h"
#include "kxio/WarningExtendedHeader.h"
#include "services/IntegrityEdit.h"

namespace kxio {

namespace {

// Opens a closed file for an edit that keeps its content.
std::unique_ptr<kxbase::kxOutFile> OpenForEdit(const std::wstring& path) {
    auto out = std::make_unique<kxbase::kxOutFile>(path, kxbase::kxOutFile::KeepContent);
    if (!out->IsOpen()) {
        throw kxbase::KXWritingException(
            "Cannot write file", {kxbase::Encode_UTF8(path), {}, {}, {}, "it cannot be opened for writing"});
    }
    return out;
}

void ToEnd(kxbase::kxOutFile& out, const std::wstring& path) {
    if (out.SeekEnd(0)) return;
    throw kxbase::KXWritingException("Cannot write file",
                                     {kxbase::Encode_UTF8(path), {}, {}, {}, "its end cannot be reached"});
}

// The record, and its hash in a file that carries hashes, leave in one write, so that a failure rarely
// leaves half a record behind.
template <class Record>
void AppendRecord(const std::wstring& path, const IntegrityTable& integrity, Record record) {
    const auto out = OpenForEdit(path);
    ToEnd(*out, path);
    const uint64_t position = out->Tell();
    kxbase::InMemoryStream appended;
    record.Write(&appended);
    const std::vector<unsigned char>& bytes = appended.GetBytes();
    const auto note =
        NoteOfEdit(integrity, position + bytes.size(), {{position, bytes.size(), Hash64(bytes)}});
    appended.Write(note.data(), note.size());
    out->Write(bytes.data(), bytes.size());
    out->Close();
}

}  // namespace

std::unique_ptr<QSNScanReader> QSNInfo::OpenHeaders(const std::wstring& path) {
    auto reader = std::make_unique<QSNScanReader>();
    auto stream = std::make_unique<kxbase::kxInFile>(path);
    if (!stream->IsOpen()) {
        throw kxbase::KXHeaderReadingException(
            "Cannot open file",
            {kxbase::Encode_UTF8(path), {}, {}, {}, "it is missing, not a regular file or not readable"});
    }
    reader->UseStream(std::move(stream), nullptr);
    reader->m_fileName = path;
    if (reader->ReadHeaders() == 0) {
        reader->Close();
        throw kxbase::KXHeaderReadingException(
            "Error opening file",
            {kxbase::Encode_UTF8(path), "MainFileHeader", "first chunk position", {}, "found 0"});
    }
    reader->FillupPatchPosition();
    reader->FillupPreviewPosition();
    reader->SetupGrid();
    reader->FillupScanProperties();
    reader->ReadTailHeaders();
    reader->AnalyseCodecs();
    reader->SetupComponentMap();
    return reader;
}

IntegrityTable QSNInfo::ReadIntegrity(const std::wstring& path) {
    return std::move(*OpenHeaders(path)->m_integrity);
}

kxbase::RegistrationInformation QSNInfo::GetRegistrationInfo(const std::wstring& path) {
    return OpenHeaders(path)->m_scanProperties.registration;
}

void QSNInfo::SetRegistrationInfo(const std::wstring& path, kxbase::RegistrationInformation registration) {
    const auto reader = OpenHeaders(path);
    const uint64_t scanHeaderPosition = reader->m_mainHeader.scanHeaderPosition;
    const ScanHeader& header = reader->m_scanHeader;
    const HeaderPiece piece = RegistrationPiece(header);
    if (piece.byteCount == 0) {
        throw kxbase::KXHeaderOperationException(
            "File does not support this write operation. Use a valid (released) file format for this "
            "operation to work.",
            {kxbase::Encode_UTF8(path), "ScanHeader", "version", scanHeaderPosition,
             "found " + std::to_string(header.GetVersion()) + ", the registration is part of 210 and later"});
    }
    std::array<unsigned char, kxbase::RegistrationInformation::ByteSize> block{};
    kxbase::ByteWriter encode(block);
    EncodeRegistration(registration, encode);
    const uint64_t position = scanHeaderPosition + piece.offset;
    const IntegrityTable integrity = std::move(*reader->m_integrity);
    reader->Close();
    const auto out = OpenForEdit(path);
    if (integrity.Present()) {
        ToEnd(*out, path);
        const auto note = NoteOfEdit(integrity, out->Tell(), {{position, block.size(), Hash64(block)}});
        out->Write(note.data(), note.size());
    }
    if (!out->Seek(position)) {
        throw kxbase::KXWritingException(
            "Cannot write file",
            {kxbase::Encode_UTF8(path), "ScanHeader", "registration", scanHeaderPosition, {}});
    }
    out->Write(block.data(), block.size());
    out->Close();
}

void QSNInfo::AddMessage(const std::wstring& path, const std::wstring& text) {
    AppendRecord(path, ReadIntegrity(path), CommentExtendedHeader(text));
}
std::list<std::wstring> QSNInfo::GetMessages(const std::wstring& path) {
    return OpenHeaders(path)->GetMessageList();
}

void QSNInfo::AddWarning(const std::wstring& path, const std::wstring& text) {
    AppendRecord(path, ReadIntegrity(path), WarningExtendedHeader(text));
}
std::list<std::wstring> QSNInfo::GetWarnings(const std::wstring& path) {
    return OpenHeaders(path)->GetWarningList();
}

void QSNInfo::AddHQLink(const std::wstring& path, const kxbase::UUID& link) {
    AppendRecord(path, ReadIntegrity(path), HQExtendedHeader(link));
}
std::list<kxbase::UUID> QSNInfo::GetHQLink(const std::wstring& path) {
    return OpenHeaders(path)->m_hqLinks;
}

void QSNInfo::AddERLink(const std::wstring& path, const kxbase::UUID& link) {
    AppendRecord(path, ReadIntegrity(path), ERExtendedHeader(link));
}
std::list<kxbase::UUID> QSNInfo::GetERLink(const std::wstring& path) {
    return OpenHeaders(path)->m_erLinks;
}

void QSNInfo::AddHDRLink(const std::wstring& path, const kxbase::UUID& link) {
    AppendRecord(path, ReadIntegrity(path), HDRExtendedHeader(link));
}
std::list<kxbase::UUID> QSNInfo::GetHDRLink(const std::wstring& path) {
    return OpenHeaders(path)->m_hdrLinks;
}

QSNInfo::SpeckleFlag QSNInfo::GetSpeckleFlag(const std::wstring& path) {
    return OpenHeaders(path)->IsSpeckleCorrectionNeeded() ? SpeckleSet : SpeckleClear;
}
bool QSNInfo::HasPreviewSamplingRatioIssue(const std::wstring& path) {
    return OpenHeaders(path)->HasPreviewSamplingRatioIssue();
}
kxbase::GridTopology QSNInfo::GetGridInfo(const std::wstring& path) {
    return OpenHeaders(path)->Grid();
}
float QSNInfo::GetSpatialSamplingDistance(const std::wstring& path) {
    return OpenHeaders(path)->GetSpatialSamplingDistance();
}
uint64_t QSNInfo::GetValidPointCount(const std::wstring& path) {
    return OpenHeaders(path)->GetValidPointCount();
}
QSNInfo::LockStatus QSNInfo::Get3DLockStatus(const std::wstring& path) {
    return OpenHeaders(path)->Is3DLocked() ? Locked : Unlocked;
}

bool QSNInfo::IsScanColored(const std::wstring& path) {
    return IsScanColored(GetAllInfo(path));
}
bool QSNInfo::IsScanColored(const ScanProperties& properties) {
    return properties.componentCodecs.contains(kxbase::Color);
}

ScanProperties QSNInfo::GetAllInfo(const std::wstring& path) {
    const auto reader = OpenHeaders(path);
    if (reader->m_stream == nullptr) {
        throw kxbase::KXFileNotOpenException("No file open", {kxbase::Encode_UTF8(path), {}, {}, {}, {}});
    }
    return reader->GetScanInformation();
}

kxbase::UUID QSNInfo::GetScanUUID(const std::wstring& path) {
    return OpenHeaders(path)->GetScanUUID();
}
kxbase::UUID QSNInfo::GetParentUUID(const std::wstring& path) {
    return OpenHeaders(path)->GetParentUUID();
}

void QSNInfo::SetParentUUID(const std::wstring& path, const kxbase::UUID&) {
    throw kxbase::KXHeaderOperationException("This functionality has not been implemented",
                                             {kxbase::Encode_UTF8(path), {}, {}, {}, {}});
}

}  // namespace kxio
