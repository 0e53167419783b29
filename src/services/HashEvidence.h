// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <unordered_set>
#include <utility>
#include <vector>

#include "format/IntegrityTable.h"
#include "kxio/LookupTableHeader.h"
#include "kxio/MinMaxHeader.h"
#include "services/FileWindow.h"
#include "services/RecordSurvey.h"

namespace kxio {

/// What the hashes of a damaged file tell of its chunks.
class HashEvidence {
public:
    /// What the file holds of a component whose chunks are all as they were written.
    struct Component {
        LookupEntry preview;
        uint64_t histogram = 0;  ///< position of the record; 0 without one
    };

    /// No hashes.
    HashEvidence() = default;
    /// Reads the hashes; what the stream throws counts as none.
    HashEvidence(FileWindow& file, const Survey& survey);

    /// Whether a chunk is not the one that was written there: its hash is wrong, and it is none that was
    /// written elsewhere and came to lie there.
    bool IsChanged(uint64_t position, std::span<const unsigned char> chunk) const;

    /// Finds the components of which every chunk, preview and histogram is as it was written. They can be
    /// saved without decoding them, with their preview, limits and histogram as the file has them. There are
    /// none unless everything else matches its hash, too: whatever leads to the chunks, and is told about
    /// them, is then right. Reads each piece that has a hash once.
    /// \param candidates     the chunks of patches, at their places in the grid, by component
    /// \param patchesPerRow  of the grid
    void FindWhole(FileWindow& file, const Survey& survey, const std::vector<FoundChunk>& candidates,
                   uint32_t patchesPerRow, const SurveyProgress& progress);
    /// What `FindWhole` found.
    const std::map<kxbase::ComponentType, Component>& Whole() const { return m_whole; }
    /// Of the ranges of a patch, where they are among these.
    MinMaxPair LimitsOf(uint64_t patch) const { return m_limits.at(static_cast<size_t>(patch)); }

private:
    using Piece = std::pair<uint64_t, uint64_t>;  // position and byte count

    /// An extended record that is one.
    struct Histogram {
        kxbase::ComponentType component;
        Piece piece;
    };

    bool CheckPieces(FileWindow& file, const std::vector<FoundChunk>& candidates,
                     const SurveyProgress& progress);
    bool AreChangesOf(const LookupTable& previews, const std::vector<Histogram>& histograms) const;
    bool IsRight(const Piece& piece) const;
    bool IsRightFrom(uint64_t position) const;
    bool HasItsChunks(const std::vector<LookupEntry>& entries, const std::unordered_set<uint64_t>& empty,
                      std::span<const FoundChunk> candidates, uint32_t patchesPerRow) const;

    IntegrityTable m_integrity;
    std::unordered_set<uint64_t> m_hashes;  // of all pieces but headers
    std::vector<Piece> m_right;             // ascending
    std::vector<Piece> m_changed;           // none of them a chunk of a patch
    std::vector<MinMaxPair> m_limits;
    std::map<kxbase::ComponentType, Component> m_whole;
};

}  // namespace kxio
