// SPDX-License-Identifier: MIT
#pragma once

#include "kxio/PatchDescriptor.h"

namespace kxcodecs {
class QKXChunkCodec;
}

namespace kxio {

/// How the values of a patch lie in memory. Any number but 1 means row by row.
enum PreviewPatchOrientation : uint32_t {
    RowMajor = 0,    ///< row after row of the grid
    Transposed = 1,  ///< column after column of the grid; meant for square patches only
};

/// Plain values of one component of a patch, which the writer compresses. From them it also makes the
/// preview, the limits and point count (component 1) and the histograms (components 4, 5, 18 and 19).
///
/// `size` is normally patchWidth x patchHeight also at the right and bottom edge of the grid; the values
/// outside the grid fill up the patch and are neither counted nor shown. The stored chunk then has
/// patchWidth x patchHeight elements; with any other size it is one row of `size` elements.
///
/// Limits and point count need values of 4 bytes (32-bit float); a value counts as a point when it is
/// greater than 0. Histograms need the component's own value size (1, 2, 4 and 8 bytes).
struct KXIO_EXPORT FlatPatchDescriptor : public PatchDescriptor {
    /// Everything zero, scale 1.0, no codec.
    FlatPatchDescriptor();
    /// \param c                component
    /// \param pixelLengthIn    bytes per value
    /// \param orientationIn    order of the values
    /// \param scaleIn          see `scale`
    /// \param codecIn          see `codec`
    /// Bytes and size stay zero; set `data` and `size` before use.
    FlatPatchDescriptor(kxbase::ComponentType c, uint64_t pixelLengthIn,
                        PreviewPatchOrientation orientationIn, double scaleIn,
                        kxcodecs::QKXChunkCodec* codecIn);
    FlatPatchDescriptor(const FlatPatchDescriptor&);
    FlatPatchDescriptor& operator=(const FlatPatchDescriptor&);
    ~FlatPatchDescriptor() override;

    /// `processor->ProcessFlat(this, row, column)`.
    void Process(PatchProcessor* processor, unsigned row, unsigned column) override;

    PreviewPatchOrientation orientation;  ///< order of the values
    /// Smallest difference that is kept, in the component's own unit (the file's length unit for range,
    /// radians for angles): 4- and 8-byte floats are stored as whole multiples of it. 1.0 stores the values
    /// unchanged. Must be above 0 and finite. Class and segment identifiers need 1.0.
    double scale;
    /// Compresses the values; borrowed. The writer uses the last codec of each component once more in
    /// `EndCreation`, so it must live until that has returned. Several descriptors may share one.
    kxcodecs::QKXChunkCodec* codec;
};

}  // namespace kxio
