// SPDX-License-Identifier: MIT
// Every chunk whose bytes survive is recovered, however the file was cut or damaged.
#include <gtest/gtest.h>

#include "RecoveryRate.h"

namespace {

using recovery_test::Bytes;
using recovery_test::ChunksOf;
using recovery_test::Piece;
using recovery_test::SampleScan;

using recovery_test::Check;
using recovery_test::Rate;

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
