// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxbase/CylindricalTopology.h"
#include "kxbase/GridTopology.h"
#include "kxbase/RegistrationInformation.h"
#include "kxbase/UUID.h"
#include "kxio/EmptyPatchDescriptor.h"
#include "kxio/EncodedPatchDescriptor.h"
#include "kxio/Export.h"
#include "kxio/FlatPatchDescriptor.h"
#include "kxio/PatchDescriptor.h"
#include "kxio/ScanProperties.h"

namespace kxbase {
class IOutFileStream;
}

namespace kxio {

using kxbase::CylindricalTopology;

class QSNScanWriterImpl;

/// Creates one .qsn file, patch by patch.
///
///     kxcodecs::ZLibChunkCodec codec;
///     kxio::QSNScanWriter writer;
///     writer.CreateNew(L"scan.qsn", grid);                     // angles, size, 256 x 256 patches
///     for (each patch) {
///         kxio::FlatPatchDescriptor range(kxbase::Range, 4, kxio::RowMajor, 0.1, &codec);
///         range.data = bytes; range.size = 256 * 256;
///         writer.AddPatch({&range}, row, column);
///     }
///     writer.EndCreation();                                    // without it the file does not open
///
/// Order of calls: one `CreateNew`, any number of `AddPatch` and setters, one `EndCreation`. Chunks go to
/// the stream as they come, so memory is bounded by the previews and 16 bytes per patch and component.
/// A writer dropped without `EndCreation` leaves a file that does not open, whose chunks can be recovered.
///
/// Threads: `AddPatch` may be called from several threads at once for different patches; inside it works
/// on the descriptors of the call in parallel (OpenMP, the process's default number of threads). The order
/// of the chunks in the file is then that in which the threads finish. Everything else belongs to one
/// thread and must not overlap `AddPatch`. Writers of one process take turns at writing, as they share
/// their locks.
///
/// Lifetime: a codec of a flat descriptor must live until `EndCreation` has returned, since it compresses
/// previews and empty patches; descriptors and their bytes only for their `AddPatch` call; a caller's
/// stream until the writer is destroyed.
class KXIO_EXPORT QSNScanWriter {
public:
    QSNScanWriter();
    /// A copy is a second handle on the same scan, not a second scan.
    QSNScanWriter(const QSNScanWriter&);
    QSNScanWriter& operator=(const QSNScanWriter&);
    /// The last handle closes a file that the writer has opened itself. Never throws; a failure to close
    /// is reported by `EndCreation` alone.
    virtual ~QSNScanWriter();

    /// \name Creation
    /// Opens the output and writes a provisional main header. Once per writer.
    ///
    /// A path is created or emptied. A stream is borrowed: it is neither closed nor destroyed, and should
    /// stand at position 0, where `EndCreation` rewrites the main header.
    /// \throws KXFileNotOpenException "Cannot file not open": the path cannot be opened for writing, the
    ///         stream is null, or this writer has been given an output before
    /// \throws KXWritingException  writing failed
    ///@{

    /// A grid with angles, patch size and, if wanted, a preview size. Previews larger than the grid shrink
    /// to it; with a preview size of 0 they get about 2^20 x 2 pixels at most. With `rows` 0 the number of
    /// rows stays 0, so patches are stored but lie outside the grid: use a `CylindricalTopology` for a scan
    /// whose number of rows is not known yet.
    void CreateNew(const std::wstring& path, const kxbase::GridTopology& topology);
    /// The same into a stream.
    void CreateNew(kxbase::IOutFileStream* stream, const kxbase::GridTopology& topology);
    /// A grid without angles: both angular steps are 0.1. With `height` 0 the grid grows downwards with
    /// the patches, and there are no previews and no limits.
    void CreateNew(const std::wstring& path, const CylindricalTopology& topology);
    /// The same into a stream.
    void CreateNew(kxbase::IOutFileStream* stream, const CylindricalTopology& topology);
    /// No grid: a single row of patches, one cell each, that grows as they come. No previews, no limits.
    void CreateNew(const std::wstring& path);
    /// The same into a stream.
    void CreateNew(kxbase::IOutFileStream* stream);
    ///@}

    /// \name Properties of the scan
    /// Kept until `EndCreation` writes them.
    ///@{

    /// Whether points that are no surface are still to be removed.
    void SetSpeckleFilteringNeeded(bool needed);
    /// Distance between neighbouring points after spatial sampling, in the file's length unit; 0 = none.
    void SetHasBeenSpatiallySampledToDistance(float distance);
    /// Replaces the number of valid points. Flat range patches that come later add to it; `CreateNew` sets
    /// it to 0.
    void SetPointcount(uint64_t count);
    /// A JPEG image as thumbnail, stored byte for byte. An empty vector goes back to the thumbnail that is
    /// made from the preview of component 6 or else 4.
    /// \throws KXBadInputException "Unknown thumbnail data size": not a JPEG image; nothing is kept
    void SetCompressedThumbnail(const std::vector<unsigned char>& jpeg);
    /// Where the scan stands: the map from the scanner's frame to the project's; translation in metres.
    void SetRegistration(const kxbase::RegistrationInformation& registration);
    /// Writes a preview that the caller has compressed (one chunk with its codec header) at the stream's
    /// present position, at once.
    ///
    /// The first preview of a component is the one that readers find: a second call, or the preview that
    /// `EndCreation` makes of flat patches, still writes its bytes but is not referred to. The bytes lie
    /// among the patch chunks without a record of their own, so whoever walks the chunks one by one stops
    /// there: before the first patch nothing is found, after the last one everything. Recovery of damaged
    /// files is not affected. The preview is listed only by files with a grid of known height.
    /// Null `data` or `size` 0: nothing happens.
    /// \throws KXFileNotOpenException "No file open": before `CreateNew` or after `EndCreation`
    /// \throws KXWrongDataSizeofException  more than 2^32 - 1 bytes; nothing is written
    /// \throws KXWritingException  writing failed
    void SetCompressedPreview(void* data, uint64_t size, kxbase::ComponentType component);
    /// The lock flag, which applications respect.
    void Set3DLock(bool locked);
    /// Stored as it is; true unless it is set.
    void SetProjectionMode(bool projected);
    /// Stored as it is; 0 unless it is set.
    void SetFramingMode(ScanProperties::ScanFrameType mode);
    /// The scan that this one is made from.
    void SetParentUUID(const kxbase::UUID& parent);
    /// Generated when the writer is made.
    kxbase::UUID GetScanUUID() const;
    /// Everything that goes into the file's headers, for direct editing: tilt, dates, model, links,
    /// modes, pre-registration. Replacing all of it replaces the scan UUID and the grid too.
    /// Do not edit the grid's size once patches have come.
    ScanProperties& GetScanProperties();
    /// Appends a text; texts of the scan properties follow those added here.
    void AddMessage(const std::wstring& text);
    /// As `AddMessage`, for a warning.
    void AddWarning(const std::wstring& text);
    /// True: values of later flat patches are not counted into histograms. What was counted is written.
    void DisableHistogramComputation(bool disable);
    /// True: `EndCreation` adds an `IntegrityExtendedHeader`, hashes of every chunk, preview and record, by
    /// which readers tell damage. Before the first patch. Off unless asked for.
    /// \throws KXException "Integrity must be chosen before the first patch" when chunks were written already
    void SetIntegrity(bool wanted);
    ///@}

    /// \name Patches
    ///@{

    /// Takes the components of one patch, in any order of patches and components.
    ///
    /// Two flat descriptors of different components are worked on at the same time; of several descriptors
    /// of one component the last wins. Null pointers in the list are passed over. A descriptor that fails
    /// leaves a hole that `EndCreation` does not fill; the others of the call are written all the same, and
    /// the writer stays usable.
    ///
    /// The preview of a flat patch with `Transposed` values is stored as sampled, that is transposed, under
    /// width x height of the upright preview. Transposed values want square patches and equal ratios
    /// between grid and preview; otherwise the preview keeps gaps.
    ///
    /// \param descriptors  borrowed, as are their bytes
    /// \param row, column  of the patch, inside the grid; without a grid row 0
    /// \throws KXFileNotOpenException "No file open": before `CreateNew` or after `EndCreation`
    /// \throws KXWritingException "AddPatch (row,column)": the position lies outside the grid or beyond what
    ///         a file can list (nothing was done), or a descriptor failed; the context names the first one
    ///         in the list and what it said
    /// \throws std::exception of any other kind that a codec raised (for memory, say), after all descriptors
    ///         were done
    void AddPatch(const std::vector<PatchDescriptor*>& descriptors, unsigned row, unsigned column);
    /// The same by linear patch index: patches per row x row + column.
    void AddPatch(const std::vector<PatchDescriptor*>& descriptors, unsigned index);
    ///@}

    /// Completes the file: fills missing patches, writes tables, thumbnail, previews, limits, texts, links
    /// and histograms, rewrites the main header, and closes a file that the writer has opened itself.
    ///
    /// \returns bytes per kind of record: "Headers" (main header, chunk records, scan header),
    ///   "LookupTables", "Thumbnail", "Limits" (files with a grid of known height), the name of each
    ///   component (its chunks; the shared empty chunk is not counted), the name followed by "_Preview",
    ///   "ClassHistogramHeader", "SegmentHistogramHeader", "Luminance8HistogramHeader" and
    ///   "Luminance16HistogramHeader" where there is one; and "PointCount", the number of valid points.
    /// \throws KXFileNotOpenException "No file open": before `CreateNew`, or called a second time
    /// \throws KXWritingException  writing or closing failed; the file then does not open
    /// \throws KXException "Unsupported preview pixel Length", KXWrongDataSizeofException "Unknown thumbnail
    ///         data size": no thumbnail can be made of the values of component 6 or 4
    std::map<std::string, uint64_t> EndCreation();

private:
    friend class ScanRebuild;
    std::shared_ptr<QSNScanWriterImpl> m_impl;
};

}  // namespace kxio
