// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kxio {

class FileWindow;

/// The hash of some bytes of a file (`Hash64`), however many: they are read little by little. Of those that
/// are there, where the file has fewer.
uint64_t HashOfBytes(FileWindow& file, uint64_t position, uint64_t count);

}  // namespace kxio
