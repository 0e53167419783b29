// SPDX-License-Identifier: MIT
#pragma once

#include "kxio/Export.h"

namespace kxio {

struct EmptyPatchDescriptor;
struct EncodedPatchDescriptor;
struct FlatPatchDescriptor;

/// What takes patches in: one operation per kind of descriptor. `PatchDescriptor::Process` calls the one
/// of its own kind. The scan writer is the implementation; a caller may write another, to count or to
/// check what would be written.
///
/// The writer calls descriptors from several threads at once, so every operation must allow that.
class KXIO_EXPORT PatchProcessor {
public:
    // The order of these three and the destructor is part of the class's binary interface.
    /// Takes a patch where nothing was measured.
    virtual void ProcessEmpty(EmptyPatchDescriptor* descriptor, unsigned row, unsigned column) = 0;
    /// Takes a patch of plain values.
    virtual void ProcessFlat(FlatPatchDescriptor* descriptor, unsigned row, unsigned column) = 0;
    /// Takes a patch that the caller has compressed.
    virtual void ProcessEncoded(EncodedPatchDescriptor* descriptor, unsigned row, unsigned column) = 0;
    virtual ~PatchProcessor();
};

}  // namespace kxio
