// SPDX-License-Identifier: MIT
#pragma once

#include "kxio/PatchDescriptor.h"

namespace kxio {

/// A patch of one component that the caller has compressed: a whole chunk with its 28-byte codec header,
/// written as it is. It adds nothing to preview, histograms and point count; `SetCompressedPreview` and
/// `SetPointcount` serve those who know better.
///
/// With `size` 0 nothing is written and the position counts as filled: readers find no patch there.
struct KXIO_EXPORT EncodedPatchDescriptor : public PatchDescriptor {
    /// Pixel length 1, everything else zero.
    EncodedPatchDescriptor();
    /// Component and bytes per value of the patch once decoded; the rest zero.
    EncodedPatchDescriptor(kxbase::ComponentType c, uint64_t n);
    EncodedPatchDescriptor(const EncodedPatchDescriptor&);
    EncodedPatchDescriptor& operator=(const EncodedPatchDescriptor&);
    ~EncodedPatchDescriptor() override;

    /// `processor->ProcessEncoded(this, row, column)`.
    void Process(PatchProcessor* processor, unsigned row, unsigned column) override;

    /// Limits of the patch's values, in the file's length unit; used for component 1 alone. Both 0 for a
    /// patch without points.
    float min;
    float max;  ///< see `min`
};

}  // namespace kxio
