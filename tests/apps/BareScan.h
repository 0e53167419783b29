// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "support/ScanFileBuilder.h"

namespace qsn {

/// One patch of 4 x 4 ranges and its preview; no angles, limits, histograms, thumbnail or texts.
inline kxtest::ScanFileBuilder BareScan(float range = 1000.0F) {
    kxtest::ScanFileBuilder file(4, 4, 4, 4);
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>(16, range), 4, 4));
    file.Preview(1, kxtest::SnappyChunk(std::vector<float>{range}, 1, 1));
    return file;
}

/// The bytes of a scan, to be written with TemporaryFolder::Write.
inline std::string FileText(const kxtest::ScanFileBuilder& file) {
    const kxtest::Bytes bytes = file.Build();
    return {bytes.begin(), bytes.end()};
}

}  // namespace qsn
