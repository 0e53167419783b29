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
#include "kxio/CommentExtendedHeader.h"
#include "kxio/ERExtendedHeader.h"
#include "kxio/HDRExtendedHeader.h"
#include "kxio/HQExtendedHeader.h"
#include "kxio/QSNScanReader.h"
#include "kxio/WarningExtendedHeader.h"
#include "services/FileEdit.h"
#include "services/IntegrityEdit.h"

namespace kxio {

namespace {

std::vector<unsigned char> Bytes(kxbase::IOHeader& record) {
    kxbase::InMemoryStream encoded;
    record.Write(&encoded);
    return encoded.GetBytes();
}

}  // namespace

std::unique_ptr<QSNScanReader> QSNInfo::OpenHeaders(const std::wstring& path, const Limits& limits) {
    auto reader = std::make_unique<QSNScanReader>();
    reader->SetLimits(limits);
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

// The record, and its hash in a file that carries hashes.
void QSNInfo::Append(const std::wstring& path, ExtendedHeader& record) {
    OpenHeaders(path);  // what is no scan is told as such, whether it can be written or not
    const auto bytes = Bytes(record);
    FileEdit edit(path);
    // Read again: between looking and locking somebody else may have edited the file.
    const auto reader = OpenHeaders(path);
    const uint64_t end = edit.End(reader->m_mainHeader);
    edit.RequireUncut(reader->m_mainHeader, end);
    edit.Append(end, bytes,
                NoteOfEdit(*reader->m_integrity, end + bytes.size(), {{end, bytes.size(), Hash64(bytes)}}));
    edit.Close();
}

kxbase::RegistrationInformation QSNInfo::GetRegistrationInfo(const std::wstring& path) {
    return OpenHeaders(path)->m_scanProperties.registration;
}

void QSNInfo::SetRegistrationInfo(const std::wstring& path, kxbase::RegistrationInformation registration) {
    const auto placeIn = [&path](const QSNScanReader& reader) {
        const ScanHeader& header = reader.m_scanHeader;
        const uint64_t start = reader.m_mainHeader.scanHeaderPosition;
        const HeaderPiece piece = RegistrationPiece(header);
        if (piece.byteCount == 0) {
            throw kxbase::KXHeaderOperationException(
                "File does not support this write operation. Use a valid (released) file format for this "
                "operation to work.",
                {kxbase::Encode_UTF8(path), "ScanHeader", "version", start,
                 "found " + std::to_string(header.GetVersion()) +
                     ", the registration is part of 210 and later"});
        }
        return start + piece.offset;
    };
    placeIn(*OpenHeaders(path));
    std::array<unsigned char, kxbase::RegistrationInformation::ByteSize> block{};
    kxbase::ByteWriter encode(block);
    EncodeRegistration(registration, encode);
    FileEdit edit(path);
    // Read again: between looking and locking somebody else may have edited the file.
    const auto reader = OpenHeaders(path);
    const uint64_t position = placeIn(*reader);
    const uint64_t end = edit.End(reader->m_mainHeader);
    if (reader->m_integrity->Present()) {
        edit.Append(end, {},
                    NoteOfEdit(*reader->m_integrity, end, {{position, block.size(), Hash64(block)}}));
    }
    edit.Overwrite(position, block);
    edit.Close();
}

void QSNInfo::AddMessage(const std::wstring& path, const std::wstring& text) {
    CommentExtendedHeader record(text);
    Append(path, record);
}
std::list<std::wstring> QSNInfo::GetMessages(const std::wstring& path) {
    return OpenHeaders(path)->GetMessageList();
}

void QSNInfo::AddWarning(const std::wstring& path, const std::wstring& text) {
    WarningExtendedHeader record(text);
    Append(path, record);
}
std::list<std::wstring> QSNInfo::GetWarnings(const std::wstring& path) {
    return OpenHeaders(path)->GetWarningList();
}

void QSNInfo::AddHQLink(const std::wstring& path, const kxbase::UUID& link) {
    HQExtendedHeader record(link);
    Append(path, record);
}
std::list<kxbase::UUID> QSNInfo::GetHQLink(const std::wstring& path) {
    return OpenHeaders(path)->m_hqLinks;
}

void QSNInfo::AddERLink(const std::wstring& path, const kxbase::UUID& link) {
    ERExtendedHeader record(link);
    Append(path, record);
}
std::list<kxbase::UUID> QSNInfo::GetERLink(const std::wstring& path) {
    return OpenHeaders(path)->m_erLinks;
}

void QSNInfo::AddHDRLink(const std::wstring& path, const kxbase::UUID& link) {
    HDRExtendedHeader record(link);
    Append(path, record);
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
    return GetAllInfo(path, {});
}
ScanProperties QSNInfo::GetAllInfo(const std::wstring& path, const Limits& limits) {
    const auto reader = OpenHeaders(path, limits);
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
