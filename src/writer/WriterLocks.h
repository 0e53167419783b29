// SPDX-License-Identifier: MIT
#pragma once

#include <mutex>

namespace kxio {

// The locks that all writers of a process share. A thread holds one of them at a time. They are never
// destroyed, so a writer may outlive everything else at the end of the process.

/// The output stream, the chunk and preview tables, the shared empty chunks and the statistics.
std::mutex& StreamLock();
/// The limits of the patches.
std::mutex& LimitsLock();
/// Preview images and what is known about each component's values.
std::mutex& PreviewLock();
/// The codec last given for each component.
std::mutex& CodecLock();
/// Which patches have come.
std::mutex& WrittenPatchesLock();

}  // namespace kxio
