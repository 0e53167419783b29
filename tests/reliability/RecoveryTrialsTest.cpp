// SPDX-License-Identifier: MIT
// Recovery by numbers: every chunk that was not hit comes back bit for bit, none comes from elsewhere, and a
// file that is whole stays as it is. The everyday tier makes a few trials of each kind, the full one 1,000
// (10,000 for chunks from elsewhere).
#include <gtest/gtest.h>

#include "../services/RecoveryRate.h"
#include "kxbase/ByteReader.h"
#include "kxio/MainFileHeader.h"
#include "support/GivenByReader.h"
#include "support/Soak.h"
#include "support/Watchdog.h"

namespace {

using kxtest::Given;
using recovery_test::Bytes;
using recovery_test::ChunksOf;
using recovery_test::Piece;
using recovery_test::Rate;
using recovery_test::SampleScan;
using recovery_test::StoredChunk;

struct Damage {
    const char* name;
    uint64_t count;  ///< places
    uint64_t bytes;  ///< of each
    bool zeros;      ///< otherwise random bytes
};

class RecoveryTrials : public testing::TestWithParam<Damage> {};

TEST_P(RecoveryTrials, EveryChunkThatWasNotHitIsSaved) {
    const Damage& damage = GetParam();
    SampleScan scan;
    // Large damage wants a file of which something is left.
    scan.columns = damage.bytes > 100000 ? 800 : 150;
    scan.rows = damage.bytes > 100000 ? 500 : 120;
    scan.patchWidth = scan.patchHeight = damage.bytes > 100000 ? 64 : 32;
    const Bytes original = scan.Write();
    ASSERT_GT(original.size(), 2 * damage.bytes);
    const auto chunks = ChunksOf(original);
    const int trials = kxtest::Trials(damage.bytes > 100000 ? 3 : 8, 1000);
    kxtest::Watchdog dog(damage.name, 600);
    Rate rate;
    for (int trial = 0; trial < trials && !testing::Test::HasFailure(); ++trial) {
        SCOPED_TRACE("trial " + std::to_string(trial));
        dog.Case(static_cast<uint64_t>(trial), 0);
        std::mt19937_64 random(static_cast<uint64_t>(trial));
        Bytes damaged = original;
        for (uint64_t i = 0; i < damage.count; ++i) {
            const uint64_t at = random() % (damaged.size() - damage.bytes + 1);
            for (uint64_t k = 0; k < damage.bytes; ++k)
                damaged[at + k] =
                    damage.zeros ? static_cast<unsigned char>(0) : static_cast<unsigned char>(random());
        }
        Check(original, chunks, damaged, rate);
    }
    rate.Print(std::string("recovery, ") + damage.name);
    EXPECT_GT(rate.intact, 0U);
    EXPECT_EQ(rate.recovered, rate.intact);
}

INSTANTIATE_TEST_SUITE_P(
    Of, RecoveryTrials,
    testing::Values(Damage{"OneRandomByte", 1, 1, false}, Damage{"FourRandomBytes", 4, 1, false},
                    Damage{"SixteenRandomBytes", 16, 1, false}, Damage{"SixtyFourRandomBytes", 64, 1, false},
                    Damage{"ARandomBlockOf4KiB", 1, 4096, false}, Damage{"AZeroBlockOf4KiB", 1, 4096, true},
                    Damage{"AZeroRunOf1MiB", 1, 1 << 20, true}),
    [](const auto& damage) { return std::string(damage.param.name); });

kxio::MainFileHeader MainHeaderOf(const Bytes& file) {
    kxbase::InMemoryStream stream(file);
    kxio::MainFileHeader header;
    header.Read(&stream);
    return header;
}

void Zero(Bytes& bytes, uint64_t first, uint64_t end) {
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(first),
              bytes.begin() + static_cast<std::ptrdiff_t>(end), static_cast<unsigned char>(0));
}

/// Damages what is no chunk and expects all chunks, each at its place.
void ExpectAllPlaced(const std::string& what,
                     void (*damage)(Bytes& file, const kxio::MainFileHeader& header)) {
    Rate rate;
    const std::pair<uint32_t, uint32_t> sides[] = {{77, 59}, {150, 120}, {33, 200}, {400, 17}};
    for (const auto& [columns, rows] : sides) {
        for (const bool filled : {true, false}) {
            SCOPED_TRACE(std::to_string(columns) + " x " + std::to_string(rows));
            SampleScan scan;
            scan.columns = columns;
            scan.rows = rows;
            scan.absent.clear();
            if (!filled) scan.absent = {{0, 1}};
            const Bytes original = scan.Write();
            Bytes damaged = original;
            damage(damaged, MainHeaderOf(original));
            Check(original, ChunksOf(original), damaged, rate);
        }
    }
    rate.Print("recovery, " + what);
    EXPECT_EQ(rate.recovered, rate.chunks);
}

TEST(RecoveryTrials, WithoutTheMainHeaderAllChunksArePlaced) {
    ExpectAllPlaced("main header zeroed",
                    [](Bytes& file, const kxio::MainFileHeader&) { Zero(file, 0, 92); });
}
TEST(RecoveryTrials, WithoutHeadersAllChunksArePlaced) {
    ExpectAllPlaced("main and scan header zeroed", [](Bytes& file, const kxio::MainFileHeader& header) {
        Zero(file, 0, 92);
        Zero(file, header.scanHeaderPosition, header.lookupTablePosition);
    });
}
TEST(RecoveryTrials, WithoutHeadersAndTablesAllChunksArePlaced) {
    ExpectAllPlaced("headers and tables zeroed", [](Bytes& file, const kxio::MainFileHeader& header) {
        Zero(file, 0, 92);
        Zero(file, header.scanHeaderPosition, file.size());
    });
}
kxio::RecoveryReport Recover(const Bytes& damaged, Bytes& out) {
    kxbase::InMemoryStream in(damaged);
    kxbase::InMemoryStream made;
    const kxio::RecoveryReport report = kxio::RecoverToStream(in, made);
    out = made.GetBytes();
    return report;
}

TEST(RecoveryTrials, OfNothingButChunksAllArePlaced) {
    uint64_t placed = 0, chunks = 0;
    for (const uint32_t columns : {77U, 150U, 33U, 400U}) {
        SampleScan scan;
        scan.columns = columns;
        scan.absent.clear();
        const Bytes original = scan.Write();
        Bytes out;
        Recover(Piece(original, 92, MainHeaderOf(original).chunkDataEndPosition), out);
        kxbase::InMemoryStream stream(out);
        const kxio::QSNScanReader reader(&stream);
        for (const StoredChunk& chunk : ChunksOf(original)) {
            Bytes bytes;
            EXPECT_NO_THROW(reader.GetPatchCompressed(chunk.row, chunk.column, bytes, chunk.component));
            ++chunks;
            placed += bytes == Piece(original, chunk.data, chunk.end) ? 1 : 0;
        }
    }
    std::cout << "recovery, chunks alone: " << placed << " of " << chunks << " chunks placed\n";
    EXPECT_GT(chunks, 0U);
    EXPECT_EQ(placed, chunks);
}

/// 2 x 2 patches of 4 x 4 cells.
kxbase::GridTopology FourPatches() {
    kxbase::GridTopology grid;
    grid.columnAngularStep = grid.rowAngularStep = 0.01F;
    grid.columns = grid.rows = 8;
    grid.patchWidth = grid.patchHeight = 4;
    return grid;
}

/// A file of two components in 2 x 2 patches; one patch of the second holds a whole other scan file, as it
/// is.
struct Nested {
    Bytes file;
    std::vector<StoredChunk> chunks;

    Nested() {
        SampleScan small;
        small.columns = small.rows = 12;
        small.patchWidth = small.patchHeight = 6;
        small.absent.clear();
        small.histograms = false;
        Bytes inner = small.Write();
        inner.resize((inner.size() + 15) / 16 * 16);
        Stored stored;
        kxcodecs::ZLibChunkCodec zlib;
        kxbase::InMemoryStream stream;
        kxio::QSNScanWriter writer;
        writer.CreateNew(&stream, FourPatches());
        for (uint32_t index = 0; index < 4; ++index) {
            std::vector<float> ranges;
            for (uint32_t i = 0; i < 16; ++i)
                ranges.push_back(1000.0F + static_cast<float>(100 * index + 7 * i * i));
            kxio::FlatPatchDescriptor range(kxbase::Range, 4, kxio::RowMajor, 0.1, &zlib);
            range.data = reinterpret_cast<unsigned char*>(ranges.data());
            range.size = 16;
            writer.AddPatch({&range}, index);
            Bytes values = index == 1 ? inner : Bytes(inner.size(), static_cast<unsigned char>(index));
            kxio::FlatPatchDescriptor host(
                static_cast<kxbase::ComponentType>(41), inner.size() / 16, kxio::RowMajor, 1.0,
                index == 1 ? static_cast<kxcodecs::QKXChunkCodec*>(&stored) : &zlib);
            host.data = values.data();
            host.size = 16;
            writer.AddPatch({&host}, index);
        }
        writer.EndCreation();
        file = stream.GetBytes();
        chunks = ChunksOf(file);
    }

private:
    /// zlib that compresses nothing, so that the bytes lie there as they are.
    struct Stored : kxcodecs::ZLibChunkCodec {
        Stored() { SetCompressionLevel(0); }
    };
};

TEST(RecoveryTrials, NoChunkComesFromElsewhere) {
    const Nested nested;
    const Bytes& original = nested.file;
    ASSERT_EQ(nested.chunks.size(), 8U);
    const int trials = kxtest::Trials(60, 10000);
    kxtest::Watchdog dog("chunks from elsewhere", 600);
    uint64_t recovered = 0, nothing = 0, elsewhere = 0, renamed = 0;
    for (int trial = 0; trial < trials; ++trial) {
        SCOPED_TRACE("trial " + std::to_string(trial));
        dog.Case(static_cast<uint64_t>(trial), 0);
        std::mt19937_64 random(static_cast<uint64_t>(trial));
        Bytes damaged = original;
        // Sometimes the headers are gone, sometimes the end; always a few bytes or a few runs.
        if (trial % 3 == 1) Zero(damaged, 0, 92);
        if (trial % 5 == 1) damaged.resize(damaged.size() - random() % (damaged.size() / 4));
        for (uint64_t i = 1 + random() % 8; i > 0; --i) {
            const uint64_t bytes = random() % 2 == 0 ? 1 : 1 + random() % 200;
            const uint64_t at = random() % (damaged.size() - bytes);
            const bool zeros = random() % 2 == 0;
            for (uint64_t k = 0; k < bytes; ++k)
                damaged[at + k] =
                    zeros ? static_cast<unsigned char>(0) : static_cast<unsigned char>(random());
        }
        Bytes out;
        try {
            Recover(damaged, out);
        } catch (const kxbase::KXIncompleteFileException&) {
            ++nothing;
            continue;
        }
        for (const StoredChunk& chunk : ChunksOf(out)) {
            const Bytes bytes = Piece(out, chunk.data, chunk.end);
            const auto isPlace = [&](const StoredChunk& one) {
                return one.component == chunk.component && one.row == chunk.row && one.column == chunk.column;
            };
            const StoredChunk* source = nullptr;
            for (const StoredChunk& one : nested.chunks) {
                const uint64_t end = one.data + bytes.size();
                if (end > damaged.size() || Piece(damaged, one.data, end) != bytes) continue;
                if (source == nullptr || isPlace(one)) source = &one;
            }
            ++recovered;
            elsewhere += source == nullptr ? 1 : 0;
            ASSERT_NE(source, nullptr)
                << "component " << chunk.component << " row " << chunk.row << " column " << chunk.column;
            // Where its record or the table of chunks was hit, a chunk may come back under another name.
            renamed += isPlace(*source) ? 0 : 1;
        }
        if (testing::Test::HasFailure()) break;
    }
    std::cout << "recovery, chunks from elsewhere: " << trials << " trials, " << recovered << " chunks, "
              << elsewhere << " from elsewhere, " << renamed << " under the name that damage gave them, "
              << nothing << " files without a scan\n";
    EXPECT_GT(recovered, 0U);
}

/// Dates of the file's making are not compared.
Given GivenOf(const Bytes& bytes) {
    Given given = kxtest::TryReadGiven(bytes).value();
    given.properties.firstDate = given.properties.secondDate = {};
    return given;
}

TEST(RecoveryTrials, AWholeFileStaysAsItIsAndSoDoesARepairedOne) {
    for (const bool histograms : {true, false}) {
        SampleScan scan;
        scan.histograms = histograms;
        const Bytes original = scan.Write();
        Bytes once, twice;
        const kxio::RecoveryReport report = Recover(original, once);
        EXPECT_TRUE(report.Complete());
        EXPECT_EQ(report.damagedPlaces, 0U);
        Recover(once, twice);
        Given first = GivenOf(original), second = GivenOf(once), third = GivenOf(twice);
        // Each repair adds a note of what it found.
        EXPECT_EQ(second.properties.warnings.size(), first.properties.warnings.size() + 1);
        second.properties.warnings = third.properties.warnings = first.properties.warnings;
        EXPECT_EQ(kxtest::Differing(second, third), "");
        // Previews are made anew, from values that have been rounded once.
        for (Given* given : {&first, &second})
            std::erase_if(given->cells, [](const auto& cell) { return cell.first.starts_with("preview"); });
        EXPECT_EQ(kxtest::Differing(first, second), "");
    }
}

/// The bytes of a scan with hashes.
Bytes HashedScan() {
    kxcodecs::ZLibChunkCodec zlib;
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, FourPatches());
    writer.SetIntegrity(true);
    for (uint32_t index = 0; index < 4; ++index) {
        std::vector<float> ranges(16, 1000.0F + static_cast<float>(index));
        kxio::FlatPatchDescriptor range(kxbase::Range, 4, kxio::RowMajor, 0.1, &zlib);
        range.data = reinterpret_cast<unsigned char*>(ranges.data());
        range.size = 16;
        writer.AddPatch({&range}, index);
    }
    writer.EndCreation();
    return stream.GetBytes();
}

TEST(RecoveryTrials, AFileWithHashesGetsNewOnes) {
    Bytes damaged = HashedScan();
    damaged[100] ^= 0xff;  // the first chunk record
    Bytes out;
    Recover(damaged, out);
    kxbase::InMemoryStream stream(out);
    const kxio::QSNScanReader reader(&stream);
    EXPECT_TRUE(reader.HasIntegrity());
    EXPECT_TRUE(reader.GetIntegrityProblems().empty());
}

TEST(RecoveryTrials, RepairingARepairedFileChangesNothingMore) {
    SampleScan scan;
    const Bytes original = scan.Write();
    for (int trial = 0; trial < kxtest::Trials(5, 200); ++trial) {
        SCOPED_TRACE("trial " + std::to_string(trial));
        std::mt19937_64 random(static_cast<uint64_t>(trial) + 77);
        Bytes damaged = original;
        for (int i = 0; i < 20; ++i)
            damaged[random() % damaged.size()] = static_cast<unsigned char>(random());
        Bytes once, twice;
        Recover(damaged, once);
        Recover(once, twice);
        Given first = GivenOf(once), second = GivenOf(twice);
        second.properties.warnings = first.properties.warnings;
        EXPECT_EQ(kxtest::Differing(first, second), "");
    }
}

}  // namespace
