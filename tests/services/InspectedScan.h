// SPDX-License-Identifier: MIT
// What the tests of comparing, dumping and measuring share.
#pragma once

#include <vector>

#include "../reader/SampleScans.h"
#include "kxio/DiffScans.h"
#include "kxio/DumpRecords.h"

namespace kxtest {

/// A scan of one row: one patch of one component.
template <class T>
Bytes OneRow(uint32_t component, const std::vector<T>& values) {
    const auto width = static_cast<uint32_t>(values.size());
    ScanFileBuilder file(width, 1, width, 1);
    file.Chunk(component, 0, 0, SnappyChunk(values, width, 1));
    return file.Build();
}

inline kxio::DiffReport Diff(const Bytes& a, const Bytes& b, const kxio::DiffOptions& options = {}) {
    const MemoryScan first(a);
    const MemoryScan second(b);
    return kxio::DiffScans(first.reader, second.reader, options);
}

/// Everything that DumpRecords tells.
inline std::vector<kxio::DumpedRecord> Dump(const Bytes& bytes, const kxio::DumpOptions& options = {}) {
    kxbase::InMemoryStream stream(bytes);
    std::vector<kxio::DumpedRecord> records;
    kxio::DumpRecords(
        stream, [&](const kxio::DumpedRecord& record) { records.push_back(record); }, options);
    return records;
}

}  // namespace kxtest
