// SPDX-License-Identifier: MIT
#pragma once

#include "kxio/PatchDescriptor.h"

namespace kxio {

/// A patch where nothing was measured. All empty patches of a component share one chunk of zeros, whose
/// value size is that of the component's first empty patch; each costs 12 bytes in the file.
///
/// `QSNScanWriter::EndCreation` fills in every missing patch of a component by itself, so handing over
/// empty ones is optional.
struct KXIO_EXPORT EmptyPatchDescriptor : public PatchDescriptor {
    /// Pixel length 1, everything else zero.
    EmptyPatchDescriptor();
    /// Component and bytes per value (0 is taken as 1); the rest zero.
    EmptyPatchDescriptor(kxbase::ComponentType c, uint64_t n);
    EmptyPatchDescriptor(const EmptyPatchDescriptor&);
    EmptyPatchDescriptor& operator=(const EmptyPatchDescriptor&);
    ~EmptyPatchDescriptor() override;

    /// `processor->ProcessEmpty(this, row, column)`.
    void Process(PatchProcessor* processor, unsigned row, unsigned column) override;

    /// Carried for symmetry with the encoded kind; an empty patch has the limits (0, 0) whatever they say.
    float min;
    float max;  ///< see `min`
};

}  // namespace kxio
