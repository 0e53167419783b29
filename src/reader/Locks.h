// SPDX-License-Identifier: MIT
#pragma once

#include <mutex>

namespace kxio {

// Locks of the whole process. Where both are held, the bounding-box lock comes first. They are never
// destroyed, so that a thread which outlives main() still finds them.

/// Held across every seek and read on any reader's stream: several readers may share one stream.
std::mutex& FileAccessLock();

/// Guards the lazy filling of the per-patch bounding boxes.
std::mutex& BoundingBoxLock();

}  // namespace kxio
