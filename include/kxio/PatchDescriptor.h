// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kxbase/ComponentType.h"
#include "kxio/Export.h"

namespace kxio {

class PatchProcessor;

/// One component of one patch, as handed to `QSNScanWriter::AddPatch`: base of the three kinds
/// `FlatPatchDescriptor`, `EncodedPatchDescriptor` and `EmptyPatchDescriptor`.
///
/// A plain structure. It borrows its bytes: the caller keeps descriptor and bytes alive, and unchanged,
/// for the duration of the `AddPatch` call. Copies borrow the same bytes.
struct KXIO_EXPORT PatchDescriptor {
    /// Everything zero.
    PatchDescriptor();
    /// Component and bytes per value; the rest zero.
    PatchDescriptor(kxbase::ComponentType c, uint64_t n);
    PatchDescriptor(const PatchDescriptor&);
    PatchDescriptor& operator=(const PatchDescriptor&);

    // Destructor, then Process: the order is part of the class's binary interface.
    virtual ~PatchDescriptor();
    /// Calls the operation of `processor` for this kind with this descriptor, `row` and `column`.
    /// Does nothing when `processor` is null. Throws what the operation throws.
    virtual void Process(PatchProcessor* processor, unsigned row, unsigned column) = 0;

    /// Flat: the values in native byte order, one behind the other. Encoded: the compressed bytes. Empty:
    /// ignored.
    unsigned char* data;
    /// Bytes per value.
    uint64_t pixelLength;
    /// Flat: number of values. Encoded: number of compressed bytes. Empty: ignored.
    uint64_t size;
    /// What the values are.
    kxbase::ComponentType component;
};

}  // namespace kxio
