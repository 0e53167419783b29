// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <vector>

#include "RecoveryScan.h"
#include "kxbase/Exceptions.h"
#include "kxio/RecoverToFile.h"

namespace recovery_test {

/// How many of the chunks that survived a damage were found again.
struct Rate {
    uint64_t files = 0;
    uint64_t chunks = 0;     // in all the files before they were damaged
    uint64_t intact = 0;     // whose record and data survived
    uint64_t recovered = 0;  // of these, found in the new file byte for byte

    void Print(const std::string& what) const {
        std::cout << what << ": " << files << " files, " << recovered << " of " << intact
                  << " intact chunks recovered, of " << chunks << " in the originals\n";
    }
};

/// The bytes of a chunk and of its record are still there.
inline bool Survives(const Bytes& original, const Bytes& damaged, const StoredChunk& chunk) {
    return chunk.end <= damaged.size() &&
           std::equal(original.begin() + static_cast<std::ptrdiff_t>(chunk.record),
                      original.begin() + static_cast<std::ptrdiff_t>(chunk.end),
                      damaged.begin() + static_cast<std::ptrdiff_t>(chunk.record));
}

/// Recovers `damaged`, opens the result and compares it with the original.
inline void Check(const Bytes& original, const std::vector<StoredChunk>& chunks, const Bytes& damaged,
                  Rate& rate) {
    std::vector<StoredChunk> intact;
    for (const StoredChunk& chunk : chunks) {
        if (Survives(original, damaged, chunk)) intact.push_back(chunk);
    }
    ++rate.files;
    rate.chunks += chunks.size();
    rate.intact += intact.size();

    kxbase::InMemoryStream in(damaged);
    kxbase::InMemoryStream out;
    kxio::RecoveryReport report;
    try {
        report = kxio::RecoverToStream(in, out);
    } catch (const kxbase::KXIncompleteFileException& e) {
        EXPECT_STREQ(e.what(), "Nothing to recover");
        EXPECT_TRUE(intact.empty());
        return;
    }
    EXPECT_GE(report.chunksRecovered, intact.size());
    EXPECT_EQ(in.GetBytes(), damaged);
    kxio::QSNScanReader reader(&out);
    for (const StoredChunk& chunk : intact) {
        Bytes bytes;
        try {
            reader.GetPatchCompressed(chunk.row, chunk.column, bytes, chunk.component);
        } catch (const kxbase::KXException& e) {
            ADD_FAILURE() << e.Describe();
        }
        const bool same = bytes == Piece(original, chunk.data, chunk.end);
        EXPECT_TRUE(same) << kxbase::ComponentToString(chunk.component) << " of patch (" << chunk.row << ","
                          << chunk.column << ") at byte " << chunk.record;
        rate.recovered += same ? 1 : 0;
    }
    // Every patch of the new file decodes: what is lost is empty, not broken.
    for (const kxbase::ComponentType component : reader.GetAvailableComponents()) {
        for (unsigned index = 0; index < reader.GetPatchNumber(); ++index) {
            Bytes chunk;
            Bytes values;
            kxcodecs::ChunkHeaderInfo header;
            ASSERT_NO_THROW(reader.GetPatchCompressed(index, chunk, component));
            ASSERT_EQ(kxcodecs::QKXChunkCodec::DecodeChunk(chunk, header, values),
                      kxcodecs::DecodeStatus::Decoded);
        }
    }
}

}  // namespace recovery_test
