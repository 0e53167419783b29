// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxio/Export.h"
#include "kxio/Limits.h"

namespace kxbase {
class IInFileStream;
}  // namespace kxbase

namespace kxio {

/// How much of a file is looked at.
enum class VerifyLevel {
    Quick,  ///< records, positions and tables; no chunk is decoded
    Full,   ///< and decodes every chunk, preview, histogram and the thumbnail
    Deep,   ///< and computes point count, limits, histograms and previews anew from the patches
};

/// How bad a finding is.
enum class FindingSeverity {
    Note,     ///< odd, but nothing is wrong
    Warning,  ///< something is missing or not as this library would write it; every value can be read
    Error,    ///< the file is damaged or contradicts itself
};

/// One thing that is not as it should be, and where. Unknown pieces are empty.
struct KXIO_EXPORT VerifyFinding {
    FindingSeverity severity = FindingSeverity::Error;  ///< how bad it is
    std::string record;              ///< kind of record or piece: "ScanHeader", "chunk", "preview"
    std::optional<uint64_t> offset;  ///< byte in the file
    std::string field;               ///< in the record
    std::optional<kxbase::ComponentType> component;  ///< whose chunk, preview, table or histogram
    std::optional<uint32_t> patchRow;                ///< of the grid
    std::optional<uint32_t> patchColumn;             ///< of the grid
    std::string text;  ///< what was found and what was expected, UTF-8, without a full stop
};

/// What a verification found.
struct KXIO_EXPORT VerifyReport {
    VerifyLevel level = VerifyLevel::Quick;  ///< as it was asked for
    /// Headers and tables first, in the order of the main header; then chunks by component and position;
    /// then what was derived from them. The same for every number of threads.
    std::vector<VerifyFinding> findings;
    uint64_t errors = 0;    ///< of them and of those that were left out
    uint64_t warnings = 0;  ///< likewise
    uint64_t notes = 0;     ///< likewise
    uint64_t leftOut = 0;   ///< findings beyond the most that are kept

    uint64_t fileBytes = 0;          ///< of the file
    bool isScanFile = false;         ///< something of a scan file was found: a main header, a chunk, a record
    bool unsupported = false;        ///< the main or scan header has a version that is not read
    uint64_t records = 0;            ///< found, the chunk records and the main header among them
    uint64_t components = 0;         ///< that the file holds
    uint64_t patches = 0;            ///< of them all: places of the grid times components
    uint64_t emptyPatches = 0;       ///< of them, in which nothing was measured
    uint64_t absentPatches = 0;      ///< of them, not in the file
    uint64_t chunks = 0;             ///< stored chunks of patches, the empty one of a component counted once
    uint64_t damagedChunks = 0;      ///< of them, with an error
    uint64_t previews = 0;           ///< listed
    uint64_t recomputedPatches = 0;  ///< whose values entered limits, histograms or previews; deep only

    /// Nothing worse than notes.
    bool Clean() const { return errors == 0 && warnings == 0; }
    /// At least one chunk is whole, as far as the level tells.
    bool Usable() const { return chunks > damagedChunks; }
};

/// How a verification runs.
struct VerifyOptions {
    VerifyLevel level = VerifyLevel::Full;  ///< how much is looked at
    unsigned threads = 1;                   ///< that decode; 0 takes as many as the machine has
    uint64_t mostFindings = 10000;          ///< kept; the rest is counted
    /// Chunks that exceed them are errors and not decoded. Hashes are passed over when they say so.
    Limits limits;
    /// Called now and then, in the calling thread, with the bytes done and the bytes to do. What it throws
    /// ends the verification and leaves it unchanged.
    std::function<void(uint64_t done, uint64_t total)> progress;
};

/// Looks for damage and contradictions in a scan file, which is only read.
///
/// Takes any bytes: what is wrong becomes a finding, and the search goes on behind it as far as the rest can
/// be told apart. Where headers or tables are lost, records are searched for, and the chunks that are found
/// are verified all the same.
///
/// Quick finds: records that cannot be read or do not lie where the main header says; bytes that belong to
/// no record, and records that overlap; table entries that do not point just behind the chunk record of
/// their patch; chunks that no table lists; sizes, counts and links that do not fit; flags, texts and numbers
/// that cannot be. Full decodes. Deep compares point count, limits, histograms and previews with the
/// patches; not compared are values that went through JPEG, which changes them, and previews that the
/// writer was given.
///
/// Not to be found: changed bytes that leave a well-formed file which agrees with itself, in a text or a
/// registration for instance, or in values stored by Snappy that no preview, limit or histogram shows.
///
/// Memory: the tables, a patch per thread, one histogram and one preview; about 100 bytes per chunk.
/// Several verifications may run at once on different streams.
///
/// \throws KXHeaderReadingException "Cannot open file"
KXIO_EXPORT VerifyReport VerifyScan(const std::wstring& path, const VerifyOptions& options = {});
/// The same over a stream, which is borrowed and may stand anywhere.
KXIO_EXPORT VerifyReport VerifyScan(kxbase::IInFileStream& stream, const VerifyOptions& options = {});

}  // namespace kxio
