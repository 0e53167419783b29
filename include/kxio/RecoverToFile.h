// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxbase/GridTopology.h"
#include "kxio/Export.h"
#include "kxio/Limits.h"

namespace kxbase {
class IInFileStream;
class IOutFileStream;
}  // namespace kxbase

namespace kxio {

/// Where the grid of a recovered scan comes from.
enum class RecoveredGrid {
    ScanHeader,           ///< the scan header survived and fits the chunks
    ScanHeaderAndChunks,  ///< parts of the scan header were damaged and replaced by what the chunks tell
    Chunks,               ///< no scan header survived; size and angles follow from the chunks
};

/// One component in a recovered scan. Counts are patches.
struct RecoveredComponent {
    kxbase::ComponentType component{};  ///< whose patches they are
    uint64_t found = 0;                 ///< of which a chunk, or the place of one, was found
    uint64_t recovered = 0;             ///< of them, copied byte for byte into the new file
    uint64_t lost = 0;                  ///< of them, damaged: empty in the new file
    /// Patches of the grid without any trace: nothing was measured there, or their chunk was destroyed
    /// together with its record. Empty in the new file.
    uint64_t missing = 0;
    uint64_t storedBytes = 0;  ///< sum of the chunks that were copied
};

/// What a recovery found and made of it. All texts are UTF-8 sentences for people, without a full stop.
struct KXIO_EXPORT RecoveryReport {
    std::vector<RecoveredComponent> components;  ///< ascending by number
    uint64_t chunksFound = 0;                    ///< sums over the components
    uint64_t chunksRecovered = 0;                ///< sums over the components
    uint64_t chunksLost = 0;                     ///< sums over the components
    /// Cells of component 1 above 0 that were saved.
    uint64_t pointsSaved = 0;

    RecoveredGrid gridSource = RecoveredGrid::Chunks;  ///< where the grid comes from
    bool anglesFitted = false;  ///< start angles and steps were fitted to components 2 and 3
    kxbase::GridTopology grid;  ///< as in the new file

    bool mainHeaderFound = false;       ///< readable at the start of the file
    bool scanHeaderFound = false;       ///< readable somewhere
    bool lookupTableFound = false;      ///< and it names chunks that are there
    bool thumbnailKept = false;         ///< copied; otherwise made anew
    uint64_t extendedRecordsFound = 0;  ///< messages, links, histograms and the like
    uint64_t damagedPlaces = 0;         ///< places where a record should begin and none does
    uint64_t unreadableBytes = 0;       ///< that the input refused to give
    uint64_t fileBytes = 0;             ///< of the damaged file

    std::vector<std::string> rebuilt;   ///< what was computed anew
    std::vector<std::string> warnings;  ///< what the user should know or check

    /// Nothing is known to be lost.
    bool Complete() const { return chunksLost == 0; }
    /// One paragraph, as it is stored in the new file's warning.
    std::string Summary() const;
};

/// How a recovery runs.
struct RecoveryOptions {
    /// Called now and then with the bytes done and the bytes to do (twice the file's size). What it throws
    /// ends the recovery and leaves it unchanged; no output is left behind.
    std::function<void(uint64_t done, uint64_t total)> progress;
    /// Chunks that exceed cells, decoded bytes or expansion ratio count as lost.
    Limits limits;
};

/// Writes a complete scan file from whatever survives of a damaged one.
///
/// The damaged file is only read. It may be cut anywhere, hold damage of any size in any number of places,
/// lack its headers and tables, or have bytes inserted or removed. In the new file
///   - every chunk that is whole is copied byte for byte. A chunk is whole when its record can be read, the
///     codec header fits itself and the data decodes to exactly the size it claims. Chunks whose record alone
///     is damaged are saved too when the lookup table or the size in the record still tells their place.
///     Of several chunks of one patch the last one that is whole counts. Patches without a whole chunk are
///     empty;
///   - grid and properties are those of the scan header when it survived and fits the chunks. Otherwise the
///     size of the grid follows from patch numbers, decoded sizes and the lookup table, and the angles are
///     fitted to the cells of components 2 and 3; the grid then ends where a preview tells, or else with the
///     last column and row that hold a value;
///   - point count, limits, previews, histograms and, unless the old one survived, the thumbnail are computed
///     from the decoded patches, as when the scan was first written (values taken row by row). Histograms of
///     a file that had none stay absent;
///   - messages, warnings, links, identifiers, modes, pre-registration and records of unknown kinds are
///     copied when they survived;
///   - a warning, the first in the list, says what was lost.
/// Damage that leaves a record or chunk readable, in the bytes of a text or of a Snappy or JPEG chunk for
/// instance, cannot be told from what was written and is copied, unless the file carries hashes: a chunk that
/// does not match its own is lost (`Limits::checkHashes` switches that off). Components of such a file of
/// which nothing was hit are copied with preview, limits and histogram, without decoding them.
///
/// Time: two passes over the file, three where it has hashes. Memory: a few patches, the previews and
/// histograms that the writer keeps, about 150 bytes per chunk, whatever the file holds. The new file appears
/// under its name when it is complete; until then it is written beside it, and a failure leaves nothing
/// behind. Several recoveries may run at once, on different outputs.
///
/// \throws KXHeaderReadingException   "Cannot open file": `damaged` cannot be opened
/// \throws KXBadInputException        "Output is the damaged file"
/// \throws KXFileNotOpenException     "Cannot file not open": nothing can be written beside `output`
/// \throws KXIncompleteFileException  "Nothing to recover": neither a chunk nor a scan header was found
/// \throws KXWritingException         writing failed
KXIO_EXPORT RecoveryReport RecoverToFile(const std::wstring& damaged, const std::wstring& output,
                                         const RecoveryOptions& options = {});

/// The same between streams, which are borrowed: `damaged` may stand anywhere, `output` must be empty and
/// stand at its start. After a failure `output` holds an incomplete file.
KXIO_EXPORT RecoveryReport RecoverToStream(kxbase::IInFileStream& damaged, kxbase::IOutFileStream& output,
                                           const RecoveryOptions& options = {});

}  // namespace kxio
