// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <set>
#include <vector>

#include "kxbase/GridTopology.h"
#include "reader/PatchDecoder.h"
#include "writer/PreviewSampler.h"

namespace kxio {

/// A patch whose pixels in a preview are not what sampling the patch gives.
struct PreviewDifference {
    uint32_t row = 0;  ///< of the patch
    uint32_t column = 0;
    uint64_t pixels = 0;
    uint32_t firstPixelRow = 0;
    uint32_t firstPixelColumn = 0;
};

/// Makes a preview anew from decoded patches and compares it with the stored one.
///
/// Patches may be sampled from several threads while they are upright. Values that were quantised may differ
/// by half a step. A patch that has no pixels in the stored preview, all bytes zero, came to the writer
/// encoded and is passed over.
class PreviewComparison {
public:
    /// \param stored  the decoded preview
    PreviewComparison(const kxbase::GridTopology& grid, const DecodedPatch& stored);

    /// Samples a decoded patch; nothing happens when its elements have another size than the preview's.
    void Sample(const DecodedPatch& patch, uint32_t row, uint32_t column);
    /// The pixels of this patch are not compared: it is damaged, or JPEG changed its values. One thread.
    void Skip(uint32_t patchIndex) { m_skipped.insert(patchIndex); }
    /// Starts anew, with patches whose values lie column after column. One thread from now on.
    void StartTransposed();
    /// Ascending by patch.
    std::vector<PreviewDifference> Differences() const;

private:
    PreviewSampling SamplingOf(uint32_t row, uint32_t column) const;
    bool Equal(uint64_t pixel, double tolerance) const;

    kxbase::GridTopology m_grid;
    uint32_t m_width;
    uint32_t m_height;
    uint64_t m_elementBytes;
    bool m_transposed = false;
    std::vector<unsigned char> m_stored;
    std::vector<unsigned char> m_expected;
    std::atomic<float> m_smallestStep{0};  // of quantised patches; 0: none
    std::set<uint32_t> m_skipped;
};

}  // namespace kxio
