// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxbase/Exceptions.h"
#include "kxbase/GridTopology.h"
#include "kxbase/IInFileStream.h"
#include "kxbase/Points.h"
#include "kxbase/QSNIndex.h"
#include "kxbase/RegistrationInformation.h"
#include "kxbase/UUID.h"
#include "kxbase/kxInFile.h"
#include "kxbase/tBoundingBox.h"
#include "kxcodecs/ChunkCodecFactory.h"
#include "kxio/Export.h"
#include "kxio/ExtendedHeader.h"
#include "kxio/IntegrityExtendedHeader.h"
#include "kxio/Limits.h"
#include "kxio/LookupTableHeader.h"
#include "kxio/MainFileHeader.h"
#include "kxio/ScanHeader.h"
#include "kxio/ScanProperties.h"

namespace kxio {

class IntegrityTable;
enum class IntegrityVerdict;
struct DecodedPatch;
struct PendingEdit;
struct PatchBuffers;
struct PositionedInput;
class InputWindow;

/// Opens a scan file and serves its properties, patches, previews and thumbnail.
///
/// Opening reads the headers and tables once; later requests are answered from the tables and read only
/// what they need. One reader serves one file at a time. Who wants values rather than stored chunks puts a
/// `ScanAccess` on an open reader.
///
/// Threads: opening and closing must not overlap other calls on the same reader. All const members may run
/// at the same time on an open reader; reading goes through one lock of the whole process, decoding runs
/// outside it.
///
/// Every exception is a `kxbase::KXException`; its context tells file, record or patch, byte and reason.
///
///     QSNScanReader reader(L"room.qsn");
///     const GridTopology grid = reader.GetScanInformation().grid;
///     ScanAccess access(reader);
///     std::vector<float> ranges(uint64_t{grid.rows} * grid.columns);
///     access.ReadLayer<float>(kxbase::Range, ranges);
class KXIO_EXPORT QSNScanReader {
public:
    /// A closed reader.
    QSNScanReader();
    /// As `Open(path, prefetchBlock)`; nothing is left behind when it throws.
    explicit QSNScanReader(const std::wstring& path, uint64_t prefetchBlock = 0);
    /// As `Open(stream)`.
    QSNScanReader(kxbase::IInFileStream* stream);  // NOLINT(google-explicit-constructor)
    QSNScanReader(const QSNScanReader&) = delete;
    QSNScanReader& operator=(const QSNScanReader&) = delete;
    virtual ~QSNScanReader();

    /// Opens a file.
    ///
    /// \param prefetchBlock  when not 0, a background thread of its own reads the file once from front to
    ///                       back in blocks of this many bytes, so that the operating system holds it in its
    ///                       cache. It shares nothing with the reader, may outlive it and never reports.
    /// \throws KXHeaderReadingException   "Cannot open file", "Invalid main header", "Invalid scan headers",
    ///                                    "Error opening file", or a record's own version message
    /// \throws KXUnkownCodecException     "Invalid codec ", "The codec " + name + "is not supported."
    /// \throws KXIncompleteFileException  "Lookup table not found", "No preview found"
    /// \throws KXUnreadablePatchException a component's first chunk or the first preview cannot be read
    /// The reader is closed after a failure, except that one between attaching the file and having read its
    /// tables leaves it attached until `Close`.
    void Open(const std::wstring& path, uint64_t prefetchBlock = 0);
    /// Reads from a stream that stays the caller's and must outlive its use here. Its name is
    /// "No name stream". Errors as above; a null stream gives "Cannot open file".
    void Open(kxbase::IInFileStream* stream);
    /// True when `path` is, unit by unit, what `Open` was given. A closed reader has the empty path.
    bool IsOpen(const std::wstring& path) const;
    /// What files may ask for, from the next opening on. What exceeds a limit is refused with the message of
    /// its place, and the context's detail names the limit.
    void SetLimits(const Limits& limits);
    /// As they were set, or the defaults.
    const Limits& GetLimits() const;
    /// Closes and forgets a file that the reader opened; a caller's stream is left as it is. The tables keep
    /// their contents until the next `Open`.
    void Close();

    // What the opening found. None of these reads the file.

    /// The properties, until the next opening.
    const ScanProperties& GetScanInformation() const;
    /// Copies the properties. \throws KXFileNotOpenException "No file open"
    void GetScanInformation(ScanProperties& out) const;
    /// The properties of a closed file. \throws as `Open`
    static void GetScanInformation(ScanProperties& out, const std::wstring& path);

    /// Angles, size and patches.
    kxbase::GridTopology Grid();
    /// Cells with a return, as the writer counted them.
    uint64_t GetValidPointCount() const;
    /// Where the scan stands.
    kxbase::RegistrationInformation GetRegistrationInformation();
    /// Points that are no surface have not been removed yet.
    bool IsSpeckleCorrectionNeeded() const;
    /// Point distance that the scan was thinned to, in the file's length unit; 0 when it was not.
    float GetSpatialSamplingDistance() const;
    /// Zero for a file without identifiers.
    kxbase::UUID GetScanUUID();
    /// Zero for a scan without a parent.
    kxbase::UUID GetParentUUID();
    /// The lock flag, which applications respect; the library does not enforce it.
    bool Is3DLocked() const;

    /// Whether the lookup table lists the component.
    bool IsComponentAvailable(kxbase::ComponentType component) const;
    /// Whether the file holds a preview of the component.
    bool IsPreviewAvailable(kxbase::ComponentType component) const;
    /// Whether the file holds a histogram of the component.
    bool IsHistogramAvailable(kxbase::ComponentType component) const;
    /// Ascending by number.
    std::vector<kxbase::ComponentType> GetAvailableComponents() const;
    /// Ascending by number.
    std::vector<kxbase::ComponentType> GetAvailableHistograms() const;
    /// Ascending by number.
    std::vector<kxbase::ComponentType> GetAvailablePreviews() const;

    /// In the order of the file.
    const std::list<std::wstring>& GetMessageList() const;
    /// In the order of the file.
    const std::list<std::wstring>& GetWarningList() const;

    /// Number of patches of the grid, truncated to 32 bits.
    unsigned GetPatchNumber() const;
    /// True for files of a writer revision below 240, whose previews may have another sampling ratio than
    /// the grid says.
    bool HasPreviewSamplingRatioIssue() const;
    /// True when the registration differs from what the scanner itself knew: a translation that is not
    /// exactly zero, or a rotation other than its tilt (identity where no tilt took effect; tolerance 1e-6).
    bool HasRegistrationBeenModified() const;

    // Integrity: hashes that some files carry, see `IntegrityExtendedHeader`. Where they are, opening checks
    // headers and tables, and every later request checks what it reads before a value leaves. A main
    // header, scan header or table that does not match makes opening fail with the message of that record;
    // a chunk, preview or histogram that does not makes the request fail with "Cannot read file", and
    // limits with "No bounding information found". What can be changed or left out without harm to the
    // cells, as registration, speckle flag, texts and links, is only listed.

    /// False: hashes are passed over from the next opening on, for a look at what a damaged file still
    /// holds. True unless it is set. The same as `Limits::checkHashes`.
    void SetIntegrityChecks(bool wanted);
    /// The file carries hashes and they are checked.
    bool HasIntegrity() const;
    /// What does not match its hash and did not keep the file from opening; also, with or without hashes, a
    /// chain of extended records that leads to where no record is, as in a file that was cut. Empty for a
    /// whole file.
    const std::vector<kxbase::ErrorContext>& GetIntegrityProblems() const;

    // Stored chunks of patches. Row and column count patches, not cells; the linear index is
    // patches per row x row + column, and only that index is checked against the grid.

    /// The stored chunk of one patch, as it lies in the file. `out` is empty after a failure.
    /// \throws KXUnreadablePatchException "Patch not in database" (no such component), "Index N is outside
    ///         bounds", "Patch not in file", "Cannot read file"
    void GetPatchCompressed(unsigned row, unsigned column, std::vector<unsigned char>& out,
                            kxbase::ComponentType component) const;
    /// The same by linear patch index.
    void GetPatchCompressed(unsigned index, std::vector<unsigned char>& out,
                            kxbase::ComponentType component) const;

    /// The chunk of a patch at a reduced level of detail. At level n the patch (row, column) shows the
    /// 2^n x 2^n stored patches from (row x 2^n, column x 2^n) on, every 2^n-th value of each, and has the
    /// size of a full patch; where a source patch is missing, unreadable or outside the grid it holds zeros.
    /// It is encoded afresh with zlib, step 1.0 (colour: JPEG, compression level 1).
    ///
    /// \param level  in: the level wanted; out: the level used, lowered while 2^level exceeds both counts of
    ///               patches. 0 gives the stored chunk.
    /// \param flag   component 4 only: copy point by point in parallel; the values are the same
    /// \throws as the form without a level, and KXUnkownComponentException "Component not supported for LoD:
    /// N"
    ///         above 19, KXWrongDataSizeofException "Cannot sample on non square patch"
    void GetPatchCompressed(unsigned row, unsigned column, std::vector<unsigned char>& out,
                            kxbase::ComponentType component, unsigned& level, bool flag) const;
    /// The same by linear patch index.
    void GetPatchCompressed(unsigned index, std::vector<unsigned char>& out, kxbase::ComponentType component,
                            unsigned& level, bool flag) const;

    /// Puts patches (row, column) into the order in which their chunks lie in the file, so that reading goes
    /// front to back; absent patches come first. An empty list stands for all patches that the component's
    /// table lists.
    /// \throws KXComponentNotInFileException "Cannot use this component"
    /// \throws KXUnreadablePatchException    "Index N is outside bounds"; the list is then unchanged
    void GetOrderedPatchList(std::vector<kxbase::ImageCoordinates>& patches,
                             kxbase::ComponentType component) const;

    /// The stored preview chunk of a component, to be decoded like any chunk.
    /// \throws KXUnreadablePatchException "Patch not in file", "Cannot read file"
    void GetCompressedPreview(std::vector<unsigned char>& out, kxbase::ComponentType component) const;

    // The thumbnail. The static forms need no reader. Each call reads the main header again, wherever the
    // stream stands, and holds the process's file access lock meanwhile.

    /// The stored JPEG bytes. False, with `out` empty, when there is none or it cannot be read.
    static bool GetThumbnailJPEG(kxbase::IInFileStream* stream, std::vector<unsigned char>& out);
    /// \throws KXHeaderReadingException "Cannot open file"
    static bool GetThumbnailJPEG(const std::wstring& path, std::vector<unsigned char>& out);
    /// The same of the open file.
    bool GetThumbnailJPEG(std::vector<unsigned char>& out) const;
    /// The thumbnail as 8-bit red, green, blue, rows top to bottom: 3 x width x height bytes. False, with a
    /// grey placeholder of 100 x 100 (every byte 40), when there is none or it cannot be decoded.
    static bool GetThumbnailRGB(kxbase::IInFileStream* stream, std::vector<unsigned char>& out,
                                unsigned& width, unsigned& height);
    /// \throws KXHeaderReadingException "Cannot open file"
    static bool GetThumbnailRGB(const std::wstring& path, std::vector<unsigned char>& out, unsigned& width,
                                unsigned& height);
    /// The same of the open file.
    bool GetThumbnailRGB(std::vector<unsigned char>& out, unsigned& width, unsigned& height) const;

    // Where the scan lies in space, told from the grid and the limits record without decoding. Boxes are
    // filled on the first query and kept until `Close`. A box is stored as start and end corner along the
    // grid, not as sorted minima and maxima: `min` carries the larger horizontal angle (the edge of the first
    // column) and the smaller vertical one, `max` the opposite. Edges lie half a step outside the cells.
    // All throw KXIncompleteFileException "No bounding information found" for a file without limits record,
    // and KXHeaderReadingException "Unsupported MinMax version" for one of an old version.

    /// \throws KXIndexOutOfBoundsException "Call to GetBoundingBox with invalid parameters"
    void GetBoundingBox(unsigned patchRow, unsigned patchColumn, kxbase::tBasePolarPoint<float>& min,
                        kxbase::tBasePolarPoint<float>& max) const;
    /// Only the patch index of `index` counts.
    void GetBoundingBox(kxbase::QSNIndex index, kxbase::tBasePolarPoint<float>& min,
                        kxbase::tBasePolarPoint<float>& max) const;
    /// The box of the whole scan; the initial one (largest float, lowest float) for an empty grid.
    void GetScanBoundingBox(kxbase::tBasePolarPoint<float>& min, kxbase::tBasePolarPoint<float>& max) const;
    /// The eight Cartesian corners of a patch's box, in the file's length unit: far face, then near face, in
    /// each (end column, end row), (start column, end row), (end column, start row), (start column, start
    /// row). The far face is drawn out to range / cos(half of the larger extent), the near one is not; meant
    /// for patches well below a half turn. The middle of a patch that is wide both ways may still lie beyond
    /// its flat far face, by (1 - cos(half diagonal) / cos(half larger extent)) of the range.
    /// \throws KXIndexOutOfBoundsException "Patch out of range"
    std::vector<kxbase::tBaseXYZPoint<float>> GetPatchVertices(kxbase::QSNIndex index) const;
    /// The same by row and column of the patch.
    std::vector<kxbase::tBaseXYZPoint<float>> GetPatchVertices(unsigned patchRow, unsigned patchColumn) const;
    /// Those of every patch, one after the other.
    std::vector<kxbase::tBaseXYZPoint<float>> GetPatchVertices() const;
    /// An axis-aligned box around all patches with data. It also holds the far corner of the first patch,
    /// hence the scanner's origin when that patch has no data.
    kxbase::tBoundingBox<float> GetScanEstimatedBoundingBox() const;

    /// The Cartesian points of a whole patch, patchWidth x patchHeight or as many as its chunk holds, in the
    /// scanner's frame and the file's length unit. `validOnly` leaves out what has no range above 0; the rest
    /// keeps its order. Each coordinate is the nearest single-precision number to the exact one or next to it
    /// (`kxbase::PolarToCartesian`), the same on every machine and with any number of threads.
    /// \throws KXException with the text of what went wrong with the first of the components 1, 2, 3
    void Get3DPatch(unsigned patchRow, unsigned patchColumn, std::vector<kxbase::tBaseXYZPoint<float>>& out,
                    bool validOnly) const;
    /// The same with intensity: component 4, else the upper byte of component 5, else 0.
    void Get3DPatch(unsigned patchRow, unsigned patchColumn, std::vector<kxbase::tXYZLuminance8Point>& out,
                    bool validOnly) const;
    /// The points of the previews of components 1, 2, 3, as `Get3DPatch` does it for a patch.
    void Get3DPreview(std::vector<kxbase::tBaseXYZPoint<float>>& out, bool validOnly) const;
    /// The same with intensity.
    void Get3DPreview(std::vector<kxbase::tXYZLuminance8Point>& out, bool validOnly) const;

    /// The grid places of a patch's points: (patch, patchWidth x row + column), row by row, cells of the grid
    /// only. `validOnly` keeps those with a range above 0. `count` is their number.
    /// \throws KXUnreadablePatchException as reading component 1
    void GetProjectedPatchCoordinates(unsigned patchIndex, std::vector<kxbase::QSNIndex>& out,
                                      unsigned& count, bool validOnly) const;
    /// Those of every patch, one after the other; with `validOnly`, patches that the file does not hold are
    /// passed over.
    void GetProjectedCoordinates(std::vector<kxbase::QSNIndex>& out, bool validOnly) const;

protected:
    // The steps of the opening, each callable by itself on an attached stream.

    /// Everything after attaching the stream, again on the current one: empties the tables, then `InitFile`,
    /// `FillupScanProperties`, `ReadTailHeaders`, `AnalyseCodecs`, `SetupComponentMap`.
    void SetupPostOpening();
    /// Headers, both lookup tables, preview size.
    void InitFile();
    /// Main header, scan header, component records. Returns the first chunk position, 0 for a file that
    /// cannot be used. Closes the reader before it throws.
    uint64_t ReadHeaders();
    /// The lookup table of the patches. \throws KXIncompleteFileException "Lookup table not found"
    void FillupPatchPosition();
    /// The lookup table of the previews, where there is one.
    /// \throws KXIncompleteFileException "No preview found"
    void FillupPreviewPosition();
    /// Preview size and sampling ratios, from the first preview.
    void SetupGrid();
    /// The properties, from the scan header and the component records.
    void FillupScanProperties();
    /// The extended records at the end of the file, then the scanning mode where they name none.
    void ReadTailHeaders();
    /// Checks that each component's codec is known and takes the scale of the components 1, 2 and 3.
    void AnalyseCodecs();
    /// Names each component's codec in the scan properties.
    void SetupComponentMap();
    /// Rebuilds the patch table from the chunk records at the front of the file, for a file whose own table
    /// is missing or damaged; needs the grid. Never called by `Open`. Takes no lock.
    /// \throws KXUnreadablePatchException "Cannot read file" when the grid claims far more patches than the
    ///         file can hold
    void FailSafeInit();
    /// Whether the scanner model is one whose scanning mode follows from the row step.
    bool IsRm() const;
    /// The record of a component's histogram.
    /// \throws KXComponentNotInFileException "Cannot use this component"
    /// \throws KXUnreadablePatchException    "Cannot read file"
    ExtendedHeader GetCompressedHistogram(kxbase::ComponentType component) const;

    /// As `GetPatchCompressed`, but a component without a table is "Patch not in file".
    void GetCompressedChunk(unsigned index, std::vector<unsigned char>& out,
                            kxbase::ComponentType component) const;

    /// Decodes one patch into `out`: width x height elements, row by row; quantised values become floats
    /// (4 bytes) or doubles (8 bytes). Returns the number of elements.
    ///
    /// \param outBytes  is not looked at: `out` must hold whatever the chunk decodes to. Prefer `ScanAccess`.
    /// \throws KXUnreadablePatchException as `GetPatchCompressed`, and "Patch cannot be decoded"; `out` is
    ///         then untouched
    uint64_t GetPatch(unsigned row, unsigned column, void* out, uint64_t outBytes,
                      kxbase::ComponentType component) const;
    /// The same by linear patch index.
    uint64_t GetPatch(unsigned index, void* out, uint64_t outBytes, kxbase::ComponentType component) const;
    /// Decodes a reduced-detail patch (see `GetPatchCompressed`) into `out`, patchWidth x patchHeight
    /// elements of `elementBytes` bytes, which is cleared first. Source patches with other elements stay
    /// zero.
    void GetPatch(unsigned row, unsigned column, void* out, uint64_t elementBytes,
                  kxbase::ComponentType component, unsigned& level, bool flag) const;
    /// Decodes a whole patch of 4-byte or 8-byte numbers into floats.
    /// \throws KXUnreadablePatchException as `GetPatch`, and "Patch cannot be decoded" for other elements
    void GetPatchAsFloats(unsigned row, unsigned column, kxbase::ComponentType component,
                          std::vector<float>& out) const;
    /// Bytes that the stored chunk claims to unpack to. \throws as `GetPatchCompressed`
    uint64_t GetUncompressedPatchByteCount(unsigned row, unsigned column,
                                           kxbase::ComponentType component) const;

    /// Assembles an image of the whole grid, rows x columns elements row by row, from patches that `fill`
    /// provides. `fill(index, buffer)` writes patchWidth x patchHeight elements; it is called from several
    /// threads at once. The first exception it throws leaves after all threads have ended.
    /// \throws std::bad_function_call      `fill` is empty
    /// \throws KXUnreadablePatchException  "Patch cannot be decoded" when one patch would exceed a limit
    void GetFullLayer(void* out, uint64_t elementBytes, kxbase::ComponentType component,
                      std::function<void(kxbase::QSNIndex, void*)> fill) const;

    /// Fills the boxes once, under the bounding-box lock.
    void InitBoundingBoxes() const;
    /// Reads the limits record and computes all boxes.
    void FillupBoundingBox() const;

private:
    friend class QSNInfo;
    friend class ScanAccess;

    void ResetTables();
    void ReadTailRecords(uint64_t first);
    void JudgeTailEnd(uint64_t first, std::optional<uint64_t> lastLink, uint64_t end);
    void ChargeText(uint64_t bytes, uint64_t position);
    void BoundRecord(kxbase::IOHeader& record) const;
    uint64_t MostPatchBytes() const;
    void CheckHeaders();
    void JudgeHeader(const IntegritySpan& span);
    void RequireIntact(uint64_t position, const std::vector<unsigned char>& bytes) const;
    void RequireIntactRecord(uint64_t position) const;
    [[noreturn]] void ThrowMismatch(uint64_t position) const;
    IntegrityVerdict Judge(uint64_t position, uint64_t byteCount) const;
    kxbase::ErrorContext FileContext() const;
    kxbase::ErrorContext PatchContext(uint64_t index, kxbase::ComponentType component) const;

    uint64_t LinearIndex(uint64_t row, uint64_t column) const;
    const std::vector<LookupEntry>& RequireComponent(kxbase::ComponentType component) const;
    const LookupEntry& LocateChunk(uint64_t index, kxbase::ComponentType component) const;
    void ReadBytes(uint64_t position, uint64_t count, std::vector<unsigned char>& out) const;
    void ReadChunk(uint64_t index, std::vector<unsigned char>& out, kxbase::ComponentType component) const;
    void ReadPreviewChunk(std::vector<unsigned char>& out, kxbase::ComponentType component,
                          uint64_t maxBytes) const;
    bool ReadFirstChunkHeader(kxbase::ComponentType component, std::vector<unsigned char>& out);
    void NoteElementBytes();
    void UseStream(std::unique_ptr<kxbase::kxInFile> owned, kxbase::IInFileStream* stream);
    PositionedInput Input() const;
    InputWindow RecordInput(uint64_t windowBytes) const;
    void RequireBytes(uint64_t position, uint64_t count) const;
    void RequireSamplable(uint64_t index, kxbase::ComponentType component, uint64_t elementBytes) const;
    void RequirePatchSize(uint64_t index, kxbase::ComponentType component, uint64_t elementBytes) const;
    uint64_t FirstReadableElementBytes(uint64_t tableSize, kxbase::ComponentType component) const;
    std::vector<uint8_t> GetPatchLuminance(unsigned row, unsigned column) const;
    DecodedPatch DecodePatch(uint64_t index, kxbase::ComponentType component, PatchBuffers& buffers) const;

    mutable std::vector<kxbase::tBasePolarPoint<float>> m_patchBoxMinima;
    mutable std::vector<kxbase::tBasePolarPoint<float>> m_patchBoxMaxima;
    mutable kxbase::tBasePolarPoint<float> m_scanBoxMinimum;
    mutable kxbase::tBasePolarPoint<float> m_scanBoxMaximum;
    std::unique_ptr<IntegrityTable> m_integrity;
    std::vector<kxbase::ErrorContext> m_integrityProblems;
    std::unique_ptr<PendingEdit> m_pendingEdit;  // none, unless an edit of the file was interrupted
    Limits m_limits;
    uint64_t m_textBytes = 0;  // taken so far
    MainFileHeader m_mainHeader;
    LookupTable m_patchTable;
    LookupTable m_previewTable;
    std::map<kxbase::ComponentType, uint64_t> m_histogramPositions;
    std::map<kxbase::ComponentType, kxcodecs::ChunkCodecFactory::CodecPtr> m_codecs;
    std::map<kxbase::ComponentType, double> m_componentValues;
    std::map<kxbase::ComponentType, std::string> m_firstChunkCodecs;  // names
    std::map<kxbase::ComponentType, uint64_t> m_firstChunkElementBytes;
    ScanHeader m_scanHeader;
    ScanProperties m_scanProperties;
    std::wstring m_fileName;
    kxbase::IInFileStream* m_stream = nullptr;
    std::unique_ptr<kxbase::kxInFile> m_ownedStream;  // set when the reader opened the file itself
    uint64_t m_streamBytes = 0;                       // as of opening
    std::list<kxbase::UUID> m_hqLinks;
    std::list<kxbase::UUID> m_erLinks;
    std::list<kxbase::UUID> m_hdrLinks;
    std::list<kxbase::UUID> m_furtherLinks;  // no record kind fills it
};

}  // namespace kxio
