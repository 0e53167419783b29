// SPDX-License-Identifier: MIT
// Damaging a file and looking at what recovery makes of it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "RecoveryFixture.h"
#include "RecoveryScan.h"
#include "kxio/ExtendedHeader.h"
#include "kxio/QSNScanReader.h"
#include "kxio/RecoverToFile.h"
#include "support/ScanFileBuilder.h"

namespace recovery_test {

using kxbase::ComponentType;
using kxbase::InMemoryStream;

/// A recovery in memory and a reader on its result.
struct Recovered {
    explicit Recovered(const Bytes& damaged) : in(damaged) {
        report = kxio::RecoverToStream(in, out);
        EXPECT_EQ(in.GetBytes(), damaged);
        reader.Open(&out);
    }

    Bytes Chunk(ComponentType component, uint32_t row, uint32_t column) const {
        Bytes bytes;
        reader.GetPatchCompressed(row, column, bytes, component);
        return bytes;
    }
    bool Holds(const Bytes& original, const StoredChunk& chunk) const {
        return Chunk(chunk.component, chunk.row, chunk.column) == Piece(original, chunk.data, chunk.end);
    }
    const kxio::RecoveredComponent& Of(ComponentType component) const {
        for (const kxio::RecoveredComponent& c : report.components) {
            if (c.component == component) return c;
        }
        ADD_FAILURE() << "component " << component << " not in the report";
        return report.components.front();
    }
    bool Warns(const std::string& piece) const {
        for (const std::string& text : report.warnings) {
            if (text.find(piece) != std::string::npos) return true;
        }
        return false;
    }

    InMemoryStream in;
    InMemoryStream out;
    kxio::RecoveryReport report;
    kxio::QSNScanReader reader;
};

inline kxio::MainFileHeader MainHeaderOf(const Bytes& file) {
    InMemoryStream stream(file);
    kxio::MainFileHeader header;
    header.Read(&stream);
    return header;
}

inline void Zero(Bytes& bytes, uint64_t first, uint64_t end) {
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(first),
              bytes.begin() + static_cast<std::ptrdiff_t>(end), 0);
}

/// Everything from the scan header on cut away, and the main header as it was before the end of creation.
inline Bytes Unfinished(const Bytes& file) {
    const kxio::MainFileHeader header = MainHeaderOf(file);
    Bytes bytes = Piece(file, 0, header.chunkDataEndPosition);
    for (size_t field = 0; field < 72; field += 8) {
        if (field != kxtest::MainField::FirstChunk) kxtest::SetMainField(bytes, field, 0);
    }
    return bytes;
}

inline const StoredChunk& ChunkOf(const std::vector<StoredChunk>& chunks, ComponentType component,
                                  uint32_t row, uint32_t column) {
    for (const StoredChunk& chunk : chunks) {
        if (chunk.component == component && chunk.row == row && chunk.column == column) return chunk;
    }
    throw std::logic_error("no such chunk in the sample");
}

template <class T>
inline std::vector<T> PreviewOf(const kxio::QSNScanReader& reader, ComponentType component) {
    Bytes chunk;
    Bytes values;
    kxcodecs::ChunkHeaderInfo header;
    reader.GetCompressedPreview(chunk, component);
    EXPECT_EQ(kxcodecs::QKXChunkCodec::DecodeChunk(chunk, header, values), kxcodecs::DecodeStatus::Decoded);
    std::vector<T> result(values.size() / sizeof(T));
    std::memcpy(result.data(), values.data(), values.size());
    return result;
}

/// The extended records of a file, in order.
inline std::vector<kxio::ExtendedHeader> TailOf(const Bytes& file) {
    InMemoryStream stream(file);
    stream.Seek(MainHeaderOf(file).firstExtendedHeaderPosition);
    std::vector<kxio::ExtendedHeader> records;
    kxio::ExtendedHeader record;
    while (record.Read(&stream) != 0)
        records.push_back(record);
    return records;
}

inline Bytes DataOf(const kxio::ExtendedHeader& record) {
    return {record.GetDataBuffer(), record.GetDataBuffer() + record.GetDataBufferSize()};
}

}  // namespace recovery_test
