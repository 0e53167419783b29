// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "kxio/Export.h"

namespace kxbase {
class IInFileStream;
}  // namespace kxbase

namespace kxio {

/// One field of a record as the file stores it.
struct KXIO_EXPORT DumpedField {
    std::string name;     ///< "row count"
    std::string type;     ///< "u8", "u16", "u32", "u64", "f32", "f64", "text" or "bytes"
    uint64_t offset = 0;  ///< of its first byte in the file
    uint64_t bytes = 0;   ///< that it takes
    /// A number, or a text: UTF-8, for bytes hexadecimal digits of the first 32.
    std::variant<uint64_t, double, std::string> value;
};

/// A record, or another piece of a scan file.
struct KXIO_EXPORT DumpedRecord {
    /// Class of the record, or "Preview" (a chunk without a record), "Chunk without a record" (which the
    /// lookup table lists) and "Unknown bytes".
    std::string kind;
    uint64_t offset = 0;              ///< of its first byte
    uint64_t bytes = 0;               ///< up to the next one, the data of a chunk included
    std::optional<uint32_t> version;  ///< of the frame; pieces without a frame have none
    bool damaged = false;             ///< cut, unreadable, does not decode, or no record at all
    std::string problem;              ///< what is wrong with it, when it is damaged
    std::vector<DumpedField> fields;  ///< in the order of the file, as far as they could be read
    uint64_t leftOut = 0;             ///< fields of repeated entries beyond the most
};

/// How records are dumped.
struct DumpOptions {
    /// Chunks, previews and the thumbnail are decoded to see whether they are whole.
    bool decode = true;
    /// Entries of a table that are listed, for each component anew; the rest is counted.
    uint64_t mostEntries = 16;
    /// Called now and then with the bytes done and the bytes to do. What it throws ends the dump and leaves
    /// it unchanged.
    std::function<void(uint64_t done, uint64_t total)> progress;
};

/// Tells every record of a scan file, whole or damaged, from front to back: no byte of the file is left out.
///
/// Where a record should begin and none does, the next one is searched for. Fields are told by the code that
/// decodes the records, so they are what a reader sees. Memory: about 100 bytes per record, and one record.
/// \param take  called once for each
/// \throws KXHeaderReadingException "Cannot open file"
KXIO_EXPORT void DumpRecords(const std::wstring& path, const std::function<void(const DumpedRecord&)>& take,
                             const DumpOptions& options = {});
/// The same over a stream, which is borrowed and may stand anywhere.
KXIO_EXPORT void DumpRecords(kxbase::IInFileStream& stream,
                             const std::function<void(const DumpedRecord&)>& take,
                             const DumpOptions& options = {});

}  // namespace kxio
