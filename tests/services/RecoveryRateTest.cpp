// SPDX-License-Identifier: MIT
// Every chunk whose bytes survive is recovered, however the file was cut or damaged.
#include <gtest/gtest.h>

#include <iostream>

#include "RecoveryScan.h"
#include "kxbase/Exceptions.h"
#include "kxio/RecoverToFile.h"

namespace {

using recovery_test::Bytes;
using recovery_test::ChunksOf;
using recovery_test::Piece;
using recovery_test::SampleScan;
using recovery_test::StoredChunk;

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

bool Survives(const Bytes& original, const Bytes& damaged, const StoredChunk& chunk) {
    return chunk.end <= damaged.size() &&
           std::equal(original.begin() + static_cast<std::ptrdiff_t>(chunk.record),
                      original.begin() + static_cast<std::ptrdiff_t>(chunk.end),
                      damaged.begin() + static_cast<std::ptrdiff_t>(chunk.record));
}

/// Recovers `damaged`, opens the result and compares it with the original.
void Check(const Bytes& original, const std::vector<StoredChunk>& chunks, const Bytes& damaged, Rate& rate) {
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

SampleScan RateScan() {
    SampleScan scan;
    scan.columns = 12 * 32 - 9;
    scan.rows = 8 * 32 - 20;
    scan.patchWidth = scan.patchHeight = 32;
    return scan;
}

TEST(RecoveryRate, CutAtTwoHundredPlaces) {
    const Bytes original = RateScan().Write();
    const auto chunks = ChunksOf(original);
    ASSERT_EQ(chunks.size(), 7U * (12 * 8 - 2));
    std::mt19937_64 random(4711);
    Rate rate;
    for (int i = 0; i < 200; ++i) {
        // One in four near the end, where the tables are.
        const uint64_t at = i % 4 == 0 ? original.size() - random() % 40000 : random() % original.size();
        SCOPED_TRACE("cut at byte " + std::to_string(at) + " of " + std::to_string(original.size()));
        Check(original, chunks, Piece(original, 0, at), rate);
    }
    rate.Print("cut files");
    EXPECT_EQ(rate.files, 200U);
    EXPECT_GT(rate.intact, rate.chunks / 2);
    EXPECT_LT(rate.intact, rate.chunks);
    EXPECT_EQ(rate.recovered, rate.intact);
}

/// One damage of 1 byte to 64 KiB, small ones as likely as large ones.
void Damage(Bytes& bytes, std::mt19937_64& random) {
    const uint64_t size = (uint64_t{1} << (random() % 17)) - (random() % 2) * (random() % 2);
    const uint64_t count = std::min<uint64_t>(std::max<uint64_t>(1, size), bytes.size());
    const uint64_t at = random() % (bytes.size() - count + 1);
    const uint64_t kind = random() % 3;
    for (uint64_t i = 0; i < count; ++i) {
        bytes[at + i] = kind == 0   ? static_cast<unsigned char>(random())
                        : kind == 1 ? static_cast<unsigned char>(0)
                                    : static_cast<unsigned char>(0xff);
    }
}

TEST(RecoveryRate, OneToSixtyFourDamages) {
    const Bytes original = RateScan().Write();
    const auto chunks = ChunksOf(original);
    Rate rate;
    for (uint64_t seed = 0; seed < 128; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937_64 random(seed);
        Bytes damaged = original;
        const uint64_t count = 1 + seed % 64;
        for (uint64_t i = 0; i < count; ++i)
            Damage(damaged, random);
        Check(original, chunks, damaged, rate);
    }
    rate.Print("damaged files");
    EXPECT_GT(rate.intact, rate.chunks / 2);
    EXPECT_LT(rate.intact, rate.chunks);
    EXPECT_EQ(rate.recovered, rate.intact);
}

TEST(RecoveryRate, CutAndDamaged) {
    const Bytes original = RateScan().Write();
    const auto chunks = ChunksOf(original);
    Rate rate;
    for (uint64_t seed = 1000; seed < 1030; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937_64 random(seed);
        Bytes damaged = Piece(original, 0, original.size() / 4 + random() % (original.size() * 3 / 4));
        for (uint64_t i = 0; i < 1 + seed % 16; ++i)
            Damage(damaged, random);
        Check(original, chunks, damaged, rate);
    }
    rate.Print("cut and damaged files");
    EXPECT_GT(rate.intact, rate.chunks / 4);
    EXPECT_LT(rate.intact, rate.chunks);
    EXPECT_EQ(rate.recovered, rate.intact);
}

}  // namespace
