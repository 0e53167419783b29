// SPDX-License-Identifier: MIT
#include <optional>
#include <span>

#include "format/Hash64.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxio/MainFileHeader.h"
#include "kxio/QSNFileRecovery.h"
#include "kxio/ScanHeader.h"
#include "services/FileEdit.h"
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

uint64_t RequireSpeckleByte(const std::wstring& path, kxbase::kxInFile& in, MainFileHeader& mainHeader) {
    if (!in.IsOpen()) CannotOpen(path);
    if (const std::optional<uint64_t> position = FindSpeckleByte(in, mainHeader)) return *position;
    ErrorContext context{Encode_UTF8(path), "ScanHeader", "speckle correction needed", std::nullopt,
                         "records of this version have no such byte"};
    throw kxbase::KXHeaderOperationException(
        "File does not support this write operation. Use a valid (released) file format for this "
        "operation to work.",
        context);
}

void WriteSpeckleByte(const std::wstring& path, unsigned char value) {
    MainFileHeader mainHeader;
    {
        kxbase::kxInFile in(path);
        RequireSpeckleByte(path, in, mainHeader);
    }
    FileEdit edit(path);
    // Read again: between looking and locking somebody else may have edited the file.
    kxbase::kxInFile in(path);
    const uint64_t position = RequireSpeckleByte(path, in, mainHeader);
    const IntegrityTable integrity = LoadIntegrity(in, mainHeader);
    const std::span<const unsigned char> byte(&value, 1);
    const uint64_t end = edit.End(mainHeader);
    if (integrity.Present()) {
        edit.Append(end, {}, NoteOfEdit(integrity, end, {{position, 1, Hash64(byte)}}));
    }
    edit.Overwrite(position, byte);
    edit.Close();
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
