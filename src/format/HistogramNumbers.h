// SPDX-License-Identifier: MIT
#pragma once

#include <span>
#include <vector>

namespace kxio {

/// The numbers of a histogram record, 8 bytes each, little-endian, as `HistogramHeader` lists them: not yet
/// held against each other.
/// \param data        of the record
/// \param recordName  for messages
/// \throws kxbase::ByteRangeException, KXUnreadablePatchException "Patch cannot be decoded"
std::vector<unsigned char> DecodeHistogramNumbers(std::span<const unsigned char> data,
                                                  const char* recordName);

}  // namespace kxio
