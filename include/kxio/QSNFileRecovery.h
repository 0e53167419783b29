// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxbase/InMemoryStream.h"
#include "kxio/Export.h"
#include "kxio/ScanProperties.h"

namespace kxio {

/// Salvages the points of a damaged scan file as text, and reads or sets a closed file's speckle byte.
///
/// The construction reads the whole file into memory and searches its raw bytes for chunk records; no
/// header and no table of the file is trusted. The object works on that copy ever after. To get a scan
/// file back instead of text, and for files that do not fit into memory, use `RecoverToFile`.
///
/// One object serves one thread at a time. A copy owns its own bytes.
///
///     QSNFileRecovery recovery(L"broken.qsn");
///     recovery.ExportAscii(L"points.txt");
class KXIO_EXPORT QSNFileRecovery {
public:
    /// Where one compressed chunk lies.
    struct ChunkAddress {
        uint32_t dataSize = 0;  ///< bytes of the chunk behind its record
        uint64_t position = 0;  ///< of the chunk record, not of the data
        bool operator==(const ChunkAddress&) const = default;
    };
    /// By patch row, patch column and component.
    using PatchMap = std::map<uint32_t, std::map<uint32_t, std::map<kxbase::ComponentType, ChunkAddress>>>;

    /// What a text export did.
    struct AsciiReport {
        uint64_t points = 0;       ///< lines written
        uint64_t chunksFound = 0;  ///< in the whole file, of all components
        uint64_t chunksLost = 0;   ///< of the exported components, that do not decode
        uint64_t rowsMissing = 0;  ///< patch rows without any chunk
    };
    /// How a text export tells what it does.
    struct AsciiOptions {
        /// Where the messages go; null: nowhere.
        std::ostream* messages = nullptr;
        /// Called after each patch row; without messages, once for rows without chunks that follow each
        /// other. What it throws ends the export; the text is then incomplete.
        std::function<void(uint32_t rowsDone, uint32_t rows)> rowDone;
    };

    /// Loads and analyses a file. One that cannot be opened counts as empty: nothing is found in it.
    /// \throws KXUnreadablePatchException "Patch cannot be decoded": the first range chunk, in the order of
    ///         the map, does not decode, so that the patch size stays unknown
    /// \throws std::bad_alloc  the file does not fit into memory
    explicit QSNFileRecovery(const std::wstring& path);
    QSNFileRecovery(const QSNFileRecovery&);
    QSNFileRecovery& operator=(const QSNFileRecovery&);
    ~QSNFileRecovery();

    /// Writes the salvaged points, one line each ("%.5f %.5f %.5f %u %u %u %u\n"): x, y and z in metres (the
    /// file's ranges taken as millimetres), then the value of component 5 four times (0 where there is none).
    /// Lines come by patch row, inside it by grid row, then by column; cells without a range have none.
    ///
    /// The patches of the largest patch row and of the largest patch column that were found are not
    /// exported, so a scan of one row or one column of patches yields an empty file.
    ///
    /// Reports on the standard output: "Missing row: " and the number for a patch row without chunks,
    /// "Beep Col size: " and the number of components for a patch that has not exactly four, "Cannot
    /// decompress: " for a chunk that does not decode (its place stays zero), each once for every one of
    /// the components 1, 2, 3 and 5; and after each patch row "row/rows".
    ///
    /// \throws KXFileNotOpenException "Cannot file not open": `path` cannot be written
    /// \throws KXWritingException "Cannot write file"
    /// \throws KXException "Patch row too large": one patch row decodes to more than 2^28 values
    void ExportAscii(const std::wstring& path);
    /// The same with messages and progress as the caller wants them.
    AsciiReport ExportAscii(const std::wstring& path, const AsciiOptions& options);

    /// Fills `properties` from the one scan header record in the file. False, with `properties` as they
    /// were, when there is none or more than one.
    bool TryToFindScanProperties(ScanProperties& properties);

    /// Whether the speckle byte in the scan header of a closed file is set. False for files whose scan
    /// header is of a version that has none (below 220).
    /// \throws KXHeaderReadingException "Cannot open file", "Invalid main header", "Invalid scan headers",
    ///         or the record's own text for a version that is too old
    static bool GetSpekleBit(const std::wstring& path);
    /// Writes 1 to that byte; no other byte changes.
    /// \throws as `GetSpekleBit`
    /// \throws KXHeaderOperationException "File does not support this write operation. Use a valid
    ///         (released) file format for this operation to work.": there is no such byte; nothing is written
    /// \throws KXWritingException "Cannot write file"
    static void SetSpekleBit(const std::wstring& path);
    /// Writes 0 to that byte; otherwise as `SetSpekleBit`.
    static void ClearSpekleBit(const std::wstring& path);

    /// What the analysis found: the last chunk record in the file for each patch and component.
    const PatchMap& GetPatchMap() const { return m_patches; }
    /// The largest patch row and column of any chunk record; 0 without any.
    uint32_t GetLargestPatchRow() const { return m_largestRow; }
    /// See `GetLargestPatchRow`.
    uint32_t GetLargestPatchColumn() const { return m_largestColumn; }
    /// Side of a patch in cells: the width of the first range chunk; 0 without range chunks.
    uint32_t GetPatchSide() const { return m_patchSide; }

protected:
    /// A recovery of bytes that are in memory already. \throws as the construction from a path
    explicit QSNFileRecovery(std::vector<unsigned char> bytes);
    /// As `ExportAscii(path, options)`, into a stream.
    AsciiReport ExportAscii(kxbase::IOutFileStream& out, const AsciiOptions& options);
    /// Searches all bytes for chunk records and raises the largest row and column.
    PatchMap AnalysePatches();
    /// The chunk's bytes; empty when they are not all there.
    std::vector<unsigned char> GetCompressedChunk(const ChunkAddress& address);
    /// The patch side, from the first range chunk of the map. \throws as the construction
    uint32_t GetPatchSize();

private:
    struct Strip;
    struct Export;

    Strip BuildStrip(uint32_t row, kxbase::ComponentType component, Export& state);

    PatchMap m_patches;
    uint32_t m_largestColumn = 0;
    uint32_t m_largestRow = 0;
    uint32_t m_patchSide = 0;
    kxbase::InMemoryStream m_stream;  // owns the file's bytes
};

}  // namespace kxio
