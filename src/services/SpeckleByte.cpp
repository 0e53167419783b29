// SPDX-License-Identifier: MIT
#include <optional>

#include "format/Hash64.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxbase/kxOutFile.h"
#include "kxio/MainFileHeader.h"
#include "kxio/QSNFileRecovery.h"
#include "kxio/ScanHeader.h"
#include "services/IntegrityEdit.h"

namespace kxio {

namespace {

using kxbase::Encode_UTF8;
using kxbase::ErrorContext;
using kxbase::KXHeaderReadingException;

[[noreturn]] void CannotOpen(const std::wstring& path) {
    ErrorContext context;
    context.file = Encode_UTF8(path);
    throw KXHeaderReadingException("Cannot open file", context);
}

/// Absolute position of the speckle byte; nothing when the scan header has none.
std::optional<uint64_t> FindSpeckleByte(kxbase::kxInFile& in, MainFileHeader& mainHeader) {
    in.Seek(0);
    mainHeader.Read(&in);
    if (!mainHeader.IsValid()) {
        throw KXHeaderReadingException("Invalid main header", mainHeader.GetReadProblem());
    }
    ScanHeader scanHeader;
    const uint64_t position = mainHeader.scanHeaderPosition;
    if (!in.Seek(position)) {
        ErrorContext context{Encode_UTF8(in.GetName()), "MainFileHeader", "scan header position", position,
                             "beyond what a file can hold"};
        throw KXHeaderReadingException("Invalid scan headers", context);
    }
    scanHeader.Read(&in);
    if (!scanHeader.IsValid()) {
        throw KXHeaderReadingException("Invalid scan headers", scanHeader.GetReadProblem());
    }
    const uint32_t offset = scanHeader.GetSpeckleOffset();
    if (offset == 0) return std::nullopt;
    return position + kxbase::IOHeader::FrameSize + offset;
}

void WriteSpeckleByte(const std::wstring& path, unsigned char value) {
    std::optional<uint64_t> position;
    IntegrityTable integrity;
    {
        kxbase::kxInFile in(path);
        if (!in.IsOpen()) CannotOpen(path);
        MainFileHeader mainHeader;
        position = FindSpeckleByte(in, mainHeader);
        if (position) integrity = LoadIntegrity(in, mainHeader);
    }
    if (!position) {
        ErrorContext context{Encode_UTF8(path), "ScanHeader", "speckle correction needed", std::nullopt,
                             "records of this version have no such byte"};
        throw kxbase::KXHeaderOperationException(
            "File does not support this write operation. Use a valid (released) file format for this "
            "operation to work.",
            context);
    }
    kxbase::kxOutFile out(path, kxbase::kxOutFile::KeepContent);
    if (!out.IsOpen()) CannotOpen(path);
    if (integrity.Present() && out.SeekEnd(0)) {
        const auto note = NoteOfEdit(integrity, out.Tell(), {{*position, 1, Hash64({&value, 1})}});
        out.Write(note.data(), note.size());
    }
    out.Seek(*position);
    out.Write(&value, 1);
    out.Close();
}

}  // namespace

bool QSNFileRecovery::GetSpekleBit(const std::wstring& path) {
    kxbase::kxInFile in(path);
    if (!in.IsOpen()) CannotOpen(path);
    MainFileHeader mainHeader;
    const std::optional<uint64_t> position = FindSpeckleByte(in, mainHeader);
    unsigned char value = 0;
    return position && in.Seek(*position) && in.Read(&value, 1) == 1 && value != 0;
}

void QSNFileRecovery::SetSpekleBit(const std::wstring& path) {
    WriteSpeckleByte(path, 1);
}

void QSNFileRecovery::ClearSpekleBit(const std::wstring& path) {
    WriteSpeckleByte(path, 0);
}

}  // namespace kxio
