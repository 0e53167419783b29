// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "format/IntegrityTable.h"
#include "kxio/MainFileHeader.h"

namespace kxio {

/// What the integrity records of a file say; nothing present in a file without.
IntegrityTable LoadIntegrity(kxbase::IInFileStream& in, const MainFileHeader& mainHeader);

/// The bytes of an integrity record that an edit appends at `position`: what it changes or adds is listed
/// there, and what was listed before stays right too. A file is so never without a right hash: before the
/// edit's bytes are overwritten the old one is, afterwards the new one.
/// Empty for a file without integrity records.
std::vector<unsigned char> NoteOfEdit(const IntegrityTable& integrity, uint64_t position,
                                      const std::vector<IntegritySpan>& headers,
                                      const std::vector<IntegritySpan>& others = {});

}  // namespace kxio
