// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxbase/GridTopology.h"
#include "kxcodecs/ChunkHeader.h"
#include "kxio/Export.h"
#include "kxio/ExtendedHeader.h"
#include "kxio/LookupTableHeader.h"
#include "kxio/MinMaxHeader.h"
#include "kxio/QSNScanReader.h"

namespace kxio {

/// A rectangle of grid cells.
struct PatchRect {
    uint32_t firstRow = 0;     ///< topmost row
    uint32_t firstColumn = 0;  ///< leftmost column
    uint32_t rows = 0;         ///< number of rows
    uint32_t columns = 0;      ///< number of columns

    /// rows x columns.
    uint64_t CellCount() const { return uint64_t{rows} * columns; }
    bool operator==(const PatchRect&) const = default;
};

/// Red, green, blue: an element of component 6.
struct Rgb8 {
    uint8_t red = 0;    ///< first byte
    uint8_t green = 0;  ///< second byte
    uint8_t blue = 0;   ///< third byte
    bool operator==(const Rgb8&) const = default;
};

/// What to do about patches that cannot be had.
enum class MissingPatches {
    Throw,          ///< any absent or damaged patch ends the call
    ZeroAbsent,     ///< patches that the file does not hold become zeros; damaged ones throw
    ZeroUnreadable  ///< absent and damaged patches become zeros: for rescuing a scan
};

/// How values are read.
struct ReadOptions {
    /// Policy for patches that cannot be had.
    MissingPatches missing = MissingPatches::Throw;
    /// Threads that decode; 1 keeps everything in the caller, 0 takes as many as the machine has.
    unsigned threads = 1;
};

/// How the patches of a call were had.
struct ReadReport {
    uint64_t decoded = 0;  ///< read and decoded
    uint64_t absent = 0;   ///< not in the file; zeros
    uint64_t damaged = 0;  ///< in the file but not readable or not decodable; zeros
    /// No patch was replaced by zeros.
    bool Complete() const { return absent == 0 && damaged == 0; }
    bool operator==(const ReadReport&) const = default;
};

/// One component as the file stores it.
struct KXIO_EXPORT ComponentSummary {
    kxbase::ComponentType component{};  ///< whose numbers these are
    std::string codec;                  ///< of its first chunk; empty when it has none
    uint32_t elementBytes = 0;          ///< bytes of a decoded element; 0 when nothing tells
    uint64_t storedPatches = 0;         ///< patches with a chunk of their own
    uint64_t emptyPatches = 0;          ///< patches that share one chunk: nothing was measured there
    uint64_t absentPatches = 0;         ///< patches of the grid that the file does not hold
    uint64_t storedBytes = 0;           ///< sum of the chunks, a shared one counted once
};

/// Limits of component 1, as the writer noted them.
struct KXIO_EXPORT ScanLimits {
    float minimum = 0;  ///< smallest value above 0 of the scan; the largest float when there is none
    float maximum = 0;  ///< largest value above 0 of the scan; below 0 when there is none
    std::vector<MinMaxPair> patches;  ///< by linear patch index; (0, 0) for a patch without values
};

/// A decoded preview or chunk: `height` rows of `width` values.
template <class T>
struct PreviewImage {
    uint32_t width = 0;     ///< columns
    uint32_t height = 0;    ///< rows
    std::vector<T> values;  ///< row by row
};

/// Typed access to the values of an open scan: the way to read cells.
///
/// `T` is any trivially copyable type of the size of the component's elements: float for 1, 2 and 3,
/// uint8_t for 4, uint16_t for 5, `Rgb8` for 6, uint32_t for 18, uint64_t for 19. Quantised values arrive as
/// what they stand for (float or double by size). Cells are given row by row; rows and columns are those of
/// the grid, and only cells of the grid are ever given, so patches at the right and bottom edge are smaller.
///
/// Lifetime: the reader must outlive this object and stay open. Threads: all members are const and may run
/// at the same time, on one or several objects over one reader.
///
/// Errors, all `kxbase::KXException`, of every reading member:
///   KXBadInputException            wrong element size or size of `out`; nothing is written
///   KXIndexOutOfBoundsException    cells or patches outside the grid; nothing is written
///   KXComponentNotInFileException  "Cannot use this component"
///   KXUnreadablePatchException     "Patch not in file", "Cannot read file", "Patch cannot be decoded", with
///                                  patch and byte in the context; `out` is then partly written. With
///                                  several bad patches the one of the smallest index is reported, whatever
///                                  the number of threads.
class KXIO_EXPORT ScanAccess {
public:
    /// Over an open reader, which is borrowed.
    explicit ScanAccess(const QSNScanReader& reader);
    ScanAccess(const QSNScanReader&&) = delete;  ///< a temporary would not live long enough

    /// The grid of the scan.
    const kxbase::GridTopology& Grid() const { return m_reader->GetScanInformation().grid; }
    /// Components of the file, ascending.
    std::vector<kxbase::ComponentType> Components() const { return m_reader->GetAvailableComponents(); }
    /// Whether the file holds the component.
    bool Has(kxbase::ComponentType component) const { return m_reader->IsComponentAvailable(component); }
    /// Bytes of a decoded element: fixed for most components, otherwise those of the first chunk of which the
    /// bytes are right; 0 when nothing tells.
    uint32_t ElementBytes(kxbase::ComponentType component) const;
    /// The grid cells of a patch.
    PatchRect GetPatchRect(uint32_t patchRow, uint32_t patchColumn) const;
    /// The whole grid.
    PatchRect GetGridRect() const;

    /// The cells of one patch that lie in the grid: `GetPatchRect().CellCount()` values. Costs one read and
    /// one decode; an inner patch is decoded straight into `out`.
    template <class T>
    ReadReport ReadPatch(kxbase::ComponentType component, uint32_t patchRow, uint32_t patchColumn,
                         std::span<T> out, const ReadOptions& options = {}) const {
        return Read(component, GetPatchRect(patchRow, patchColumn), out, options);
    }
    /// The same into a new vector, which is sized by what was decoded, never by what the file claims.
    template <class T>
    std::vector<T> ReadPatch(kxbase::ComponentType component, uint32_t patchRow, uint32_t patchColumn) const {
        static_assert(std::is_trivially_copyable_v<T>);
        return ToValues<T>(ReadPatchBytes(component, patchRow, patchColumn, sizeof(T)));
    }

    /// Rows firstRow to firstRow + rowCount - 1 in full width: rowCount x columns values.
    template <class T>
    ReadReport ReadRows(kxbase::ComponentType component, uint32_t firstRow, uint32_t rowCount,
                        std::span<T> out, const ReadOptions& options = {}) const {
        return Read(component, {firstRow, 0, rowCount, Grid().columns}, out, options);
    }
    /// Columns firstColumn to firstColumn + columnCount - 1 in full height: rows x columnCount values, still
    /// row by row, so cell (row, firstColumn + c) is at row x columnCount + c.
    template <class T>
    ReadReport ReadColumns(kxbase::ComponentType component, uint32_t firstColumn, uint32_t columnCount,
                           std::span<T> out, const ReadOptions& options = {}) const {
        return Read(component, {0, firstColumn, Grid().rows, columnCount}, out, options);
    }
    /// All cells: rows x columns values.
    template <class T>
    ReadReport ReadLayer(kxbase::ComponentType component, std::span<T> out,
                         const ReadOptions& options = {}) const {
        return Read(component, GetGridRect(), out, options);
    }
    /// Any rectangle of cells. Each patch that it touches is decoded once.
    template <class T>
    ReadReport ReadRect(kxbase::ComponentType component, const PatchRect& rect, std::span<T> out,
                        const ReadOptions& options = {}) const {
        return Read(component, rect, out, options);
    }
    /// The reduced image of the whole grid that the file stores. Its size is its own and need not be that
    /// of the grid's preview fields. Needs no patches of the component.
    template <class T>
    PreviewImage<T> ReadPreview(kxbase::ComponentType component) const {
        static_assert(std::is_trivially_copyable_v<T>);
        const PreviewImage<unsigned char> bytes = ReadPreviewBytes(component, sizeof(T));
        return {bytes.width, bytes.height, ToValues<T>(bytes.values)};
    }

    /// Everything that the chunk of a patch holds, in the chunk's own shape. For scans without a grid, whose
    /// patches are one cell each and may store any number of values.
    template <class T>
    PreviewImage<T> ReadStoredPatch(kxbase::ComponentType component, uint32_t patchRow,
                                    uint32_t patchColumn) const {
        const PreviewImage<unsigned char> bytes =
            ReadStoredPatchBytes(component, patchRow, patchColumn, sizeof(T));
        return {bytes.width, bytes.height, ToValues<T>(bytes.values)};
    }

    /// One patch at a reduced level of detail: every 2^level-th value of both directions, of the 2^level x
    /// 2^level patches from patch row `patchRow << level` and patch column `patchColumn << level` on, as one
    /// image of patchWidth x patchHeight values. Source patches outside the grid and those that cannot be had
    /// are zeros, and so is what lies between their images where the patch size is no multiple of 2^level.
    /// \param level  in: wanted; out: used, which is lower where the scan has too few patches
    /// \throws KXWrongDataSizeofException "Cannot sample on non square patch"
    template <class T>
    PreviewImage<T> ReadReducedPatch(kxbase::ComponentType component, uint32_t patchRow, uint32_t patchColumn,
                                     unsigned& level) const {
        static_assert(std::is_trivially_copyable_v<T>);
        const PreviewImage<unsigned char> bytes =
            ReadReducedPatchBytes(component, patchRow, patchColumn, sizeof(T), level);
        return {bytes.width, bytes.height, ToValues<T>(bytes.values)};
    }

    // The same with the element size as a number, for callers without types.

    /// \param out  rect.CellCount() x elementBytes bytes
    ReadReport ReadRectBytes(kxbase::ComponentType component, const PatchRect& rect, uint32_t elementBytes,
                             std::span<unsigned char> out, const ReadOptions& options = {}) const;
    /// The cells of one patch that lie in the grid.
    std::vector<unsigned char> ReadPatchBytes(kxbase::ComponentType component, uint32_t patchRow,
                                              uint32_t patchColumn, uint32_t elementBytes) const;
    /// Width and height count elements, here and below.
    PreviewImage<unsigned char> ReadStoredPatchBytes(kxbase::ComponentType component, uint32_t patchRow,
                                                     uint32_t patchColumn, uint32_t elementBytes) const;
    /// One patch at a reduced level of detail.
    PreviewImage<unsigned char> ReadReducedPatchBytes(kxbase::ComponentType component, uint32_t patchRow,
                                                      uint32_t patchColumn, uint32_t elementBytes,
                                                      unsigned& level) const;
    /// The stored preview.
    PreviewImage<unsigned char> ReadPreviewBytes(kxbase::ComponentType component,
                                                 uint32_t elementBytes) const;

    // What an inspector asks; nothing here decodes.

    /// Codec, bytes and patches of every component. Reads one chunk where the element size is not fixed.
    std::vector<ComponentSummary> Summarise() const;
    /// Where a component's patches lie, by linear index; may be shorter than the grid's patch count.
    std::span<const LookupEntry> PatchEntries(kxbase::ComponentType component) const;
    /// Where a component's preview lies; nothing when it has none.
    std::optional<LookupEntry> PreviewEntry(kxbase::ComponentType component) const;
    /// The first 28 bytes of a patch's chunk.
    kxcodecs::ChunkHeaderInfo ReadChunkHeader(kxbase::ComponentType component, uint32_t patchRow,
                                              uint32_t patchColumn) const;
    /// The limits record; nothing when the file has none.
    /// \throws KXIncompleteFileException "No bounding information found" when it cannot be read
    std::optional<ScanLimits> ReadLimits() const;
    /// The record of a component's histogram, to be made a `Luminance8HistogramHeader` and the like.
    /// \throws KXComponentNotInFileException "Cannot use this component"
    ExtendedHeader ReadHistogramRecord(kxbase::ComponentType component) const;
    const MainFileHeader& GetMainHeader() const { return m_reader->m_mainHeader; }  ///< as it was read
    const ScanHeader& GetScanHeader() const { return m_reader->m_scanHeader; }      ///< as it was read
    /// Bytes of the file.
    uint64_t GetFileSize() const;

private:
    void RequireComponent(kxbase::ComponentType component) const;
    void RequireElementBytes(kxbase::ComponentType component, uint32_t elementBytes) const;
    void RequireCells(const PatchRect& rect, uint32_t elementBytes, uint64_t outBytes) const;
    template <class T>
    ReadReport Read(kxbase::ComponentType component, const PatchRect& rect, std::span<T> out,
                    const ReadOptions& options) const {
        static_assert(std::is_trivially_copyable_v<T>);
        return ReadRectBytes(component, rect, sizeof(T),
                             {reinterpret_cast<unsigned char*>(out.data()), out.size_bytes()}, options);
    }
    template <class T>
    static std::vector<T> ToValues(const std::vector<unsigned char>& bytes) {
        std::vector<T> values(bytes.size() / sizeof(T));
        if (!values.empty()) std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
        return values;
    }

    const QSNScanReader* m_reader;
};

}  // namespace kxio
