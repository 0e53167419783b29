// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kxbase/IInFileStream.h"
#include "kxbase/IOHeader.h"

namespace kxio {

/// Reads the record at an absolute position; false when none lies there. Streams that are lent to a reader
/// are read through an `InputWindow` only. \throws what the record's reading throws
bool ReadRecordAt(kxbase::IInFileStream* stream, uint64_t position, kxbase::IOHeader& record);

/// Why `ReadRecordAt` said no.
kxbase::ErrorContext ProblemOf(const kxbase::IOHeader& record, uint64_t position);

}  // namespace kxio
