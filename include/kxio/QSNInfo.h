// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "kxbase/GridTopology.h"
#include "kxbase/RegistrationInformation.h"
#include "kxbase/UUID.h"
#include "kxio/Export.h"
#include "kxio/Limits.h"
#include "kxio/ScanProperties.h"

namespace kxio {

class ExtendedHeader;
class QSNScanReader;

/// One-call access to a closed scan file: each operation opens the file, reads its headers and tables,
/// answers or changes one thing, and closes it again. No patch is decoded and nothing is cached; a caller
/// that wants several properties takes `GetAllInfo` once, or a reader.
///
/// Edits either append one extended record at the end of the file or overwrite a fixed block of the scan
/// header where it lies; every other byte stays. An edit is there as a whole or not at all, whenever it is
/// interrupted, and on the medium when the call returns. Callable from any thread; of two edits of one file
/// at the same time one is refused with KXFileLockedException "File is being edited". A file that is being
/// written must not be edited.
///
/// Every operation but `SetParentUUID` and the file-set members throws KXHeaderReadingException
/// "Cannot open file" for a path that cannot be opened, and whatever opening a reader throws for a file
/// that is damaged or no scan; the file is closed and unchanged then. Edits pass on the
/// KXWritingException of the output.
class KXIO_EXPORT QSNInfo {
public:
    /// Whether speckles are still to be removed.
    enum SpeckleFlag { SpeckleClear = 0, SpeckleSet = 1 };
    /// Whether the scan's points are locked.
    enum LockStatus { Unlocked = 0, Locked = 1 };

    /// An object without state; all operations are static.
    QSNInfo() = default;
    QSNInfo(const QSNInfo&) = default;
    /// Does nothing.
    QSNInfo& operator=(const QSNInfo&) { return *this; }
    /// Does nothing.
    QSNInfo& operator=(QSNInfo&&) noexcept { return *this; }

    /// Where the scan stands.
    static kxbase::RegistrationInformation GetRegistrationInfo(const std::wstring& path);
    /// Overwrites the 96 bytes of the registration, 68 bytes behind the start of the scan header record.
    /// \throws KXHeaderOperationException for a scan header older than version 210; the file is untouched
    static void SetRegistrationInfo(const std::wstring& path, kxbase::RegistrationInformation registration);

    /// Appends a message record at the end of the file. No header is updated: a file without any extended
    /// record keeps the text, but a reader, which starts at the first such record, does not find it.
    /// \throws KXBadInputException "File is damaged": the file was cut before its extended records, and the bytes
    /// of a new one would be read as part of what is missing
    static void AddMessage(const std::wstring& path, const std::wstring& text);
    /// In the order of the file.
    static std::list<std::wstring> GetMessages(const std::wstring& path);
    /// As `AddMessage`, for a warning.
    static void AddWarning(const std::wstring& path, const std::wstring& text);
    /// In the order of the file.
    static std::list<std::wstring> GetWarnings(const std::wstring& path);
    /// As `AddMessage`, for a link to a related high-quality file. Adding twice gives two records.
    static void AddHQLink(const std::wstring& path, const kxbase::UUID& link);
    /// In the order of the file; texts that are no UUID are left out.
    static std::list<kxbase::UUID> GetHQLink(const std::wstring& path);
    /// As `AddHQLink`, for a file of the ER kind.
    static void AddERLink(const std::wstring& path, const kxbase::UUID& link);
    /// In the order of the file; texts that are no UUID are left out.
    static std::list<kxbase::UUID> GetERLink(const std::wstring& path);
    /// As `AddHQLink`, for an HDR file.
    static void AddHDRLink(const std::wstring& path, const kxbase::UUID& link);
    /// In the order of the file; texts that are no UUID are left out.
    static std::list<kxbase::UUID> GetHDRLink(const std::wstring& path);

    /// Set for any stored byte but 0.
    static SpeckleFlag GetSpeckleFlag(const std::wstring& path);
    /// True for a writer revision below 240: the sampling ratio of such a file's previews is not reliable.
    static bool HasPreviewSamplingRatioIssue(const std::wstring& path);
    /// Angles, size and patches.
    static kxbase::GridTopology GetGridInfo(const std::wstring& path);
    /// In the file's length unit; 0 when the scan was not sampled.
    static float GetSpatialSamplingDistance(const std::wstring& path);
    /// Cells with a return, as the writer counted them.
    static uint64_t GetValidPointCount(const std::wstring& path);
    /// Locked for any stored byte but 0.
    static LockStatus Get3DLockStatus(const std::wstring& path);
    /// Whether the scan holds the colour component.
    static bool IsScanColored(const std::wstring& path);
    /// Whether the properties' component list holds the colour component. Reads no file.
    static bool IsScanColored(const ScanProperties& properties);
    /// Everything known without decoding.
    /// \throws KXFileNotOpenException "No file open" when the file was lost while it was read
    static ScanProperties GetAllInfo(const std::wstring& path);
    /// The same of a file that asks for more than the default limits allow.
    static ScanProperties GetAllInfo(const std::wstring& path, const Limits& limits);
    /// Zero for a file without identifiers.
    static kxbase::UUID GetScanUUID(const std::wstring& path);
    /// Zero for a scan without a parent.
    static kxbase::UUID GetParentUUID(const std::wstring& path);
    /// Never succeeds: throws KXHeaderOperationException, without touching the path.
    [[noreturn]] static void SetParentUUID(const std::wstring& path, const kxbase::UUID& parent);

    /// Every other file of the same directory with the same stem (the name up to its last dot): the main
    /// file (".qsn") first, the rest in plain path order. Names only; no file is opened. Both "/" and "\"
    /// separate. A path without a directory stands for the current one and gives bare names.
    /// \throws std::filesystem::filesystem_error when the directory cannot be read
    /// \throws std::range_error for an extension that has no UTF-8 form
    static std::list<std::wstring> GetAllDependencyFileList(const std::wstring& path);
    /// Those of `GetAllDependencyFileList` that are parts: extension ".qsn" and any number of digits.
    static std::list<std::wstring> GetQSNtoMergeList(const std::wstring& path);
    /// True when `GetQSNtoMergeList` is not empty.
    static bool IsMergeNeeded(const std::wstring& path);

private:
    static std::unique_ptr<QSNScanReader> OpenHeaders(const std::wstring& path, const Limits& limits = {});
    static void Append(const std::wstring& path, ExtendedHeader& record);
};

}  // namespace kxio
