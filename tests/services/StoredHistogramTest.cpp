// SPDX-License-Identifier: MIT
// A stored histogram against the counts of patches: made of pieces, as a whole, damaged.
#include "services/StoredHistogram.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <thread>

#include "kxbase/InMemoryStream.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxio/HistogramHeader.h"
#include "support/AllocationWatch.h"
#include "support/RecordBytes.h"
#include "writer/HistogramRecords.h"

namespace {

using namespace kxio;
using kxtest::ByteList;
using kxtest::Bytes;

// A histogram record behind some other bytes, as in a file.
struct Stored {
    explicit Stored(const Bytes& record) : in(Joined(Bytes(kBefore, 1), record)) {}

    StoredHistogram Read() { return {in, lock, kBefore}; }

    static constexpr size_t kBefore = 100;
    static Bytes Joined(Bytes a, const Bytes& b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    }

    kxbase::InMemoryStream in;
    std::mutex lock;
};

std::map<uint32_t, ValueCounts> Patches() {
    std::mt19937 random(21);
    std::map<uint32_t, ValueCounts> patches;
    for (uint32_t patch = 0; patch < 60; ++patch) {
        uint64_t value = 0;
        for (uint32_t i = 0; i < patch * 50; ++i)
            patches[patch * 3].emplace_back(value += 1 + random() % 9, 1 + random() % 5);
        patches[patch * 3];  // the first has no values
    }
    return patches;
}

Luminance16Histogram AsMap(const std::map<uint32_t, ValueCounts>& patches) {
    Luminance16Histogram map;
    for (const auto& [patch, counts] : patches) {
        auto& values = map[kxbase::QSNIndex(patch)];
        for (const auto& [value, count] : counts)
            values[static_cast<uint16_t>(value)] = count;
    }
    return map;
}

Bytes AtOnce(const std::map<uint32_t, ValueCounts>& patches) {
    Luminance16HistogramHeader record(AsMap(patches));
    return kxtest::Written(record);
}

// As the writer makes it.
Bytes InPieces(const std::map<uint32_t, ValueCounts>& patches) {
    PackedPatches packed;
    for (const auto& [patch, counts] : patches) {
        ByteList numbers;
        numbers.U64(patch).U64(counts.size());
        for (const auto& [value, count] : counts)
            numbers.U64(value).U64(count);
        packed[kxbase::QSNIndex(patch)] = kxcodecs::PackPairs(Bytes(numbers));
    }
    PackedHistogram histogram(Luminance16HistogramHeader::Type, "Luminance16HistogramHeader",
                              std::move(packed));
    Bytes record;
    histogram.Write(0, [&](std::span<const unsigned char> more) {
        record.insert(record.end(), more.begin(), more.end());
    });
    return record;
}

// Numbers in a chunk of any codec.
Bytes Around(const std::vector<uint64_t>& numbers, const kxcodecs::QKXChunkCodec& codec) {
    Bytes bytes(numbers.size() * sizeof(uint64_t)), chunk;
    std::memcpy(bytes.data(), numbers.data(), bytes.size());
    codec.Encode(bytes.data(), static_cast<uint32_t>(numbers.size()), 1, bytes.size(), 1.0F, chunk);
    return kxtest::ExtendedRecord(Luminance16HistogramHeader::Type, ByteList().U64(chunk.size()).Raw(chunk));
}

void ExpectComparesRight(const Bytes& record) {
    const auto patches = Patches();
    Stored stored(record);
    const StoredHistogram histogram = stored.Read();
    ASSERT_EQ(histogram.Patches().size(), patches.size());
    for (const auto& [patch, counts] : patches) {
        EXPECT_EQ(histogram.Patches().at(patch).values, counts.size());
        EXPECT_EQ(histogram.Compare(patch, counts), std::nullopt) << patch;
    }
    EXPECT_EQ(histogram.Compare(1, patches.at(3)), std::nullopt);  // without an entry nothing is said
    ValueCounts other = patches.at(6);
    other.pop_back();
    EXPECT_EQ(histogram.Compare(6, other), "100 values, but the patch has 99");
    other = patches.at(9);
    other[70].second += 2;
    const auto& [value, count] = patches.at(9)[70];
    EXPECT_EQ(histogram.Compare(9, other), "value " + std::to_string(value) + " " + std::to_string(count) +
                                               " times, but the patch has " + std::to_string(value) + " " +
                                               std::to_string(count + 2) + " times");
    other = patches.at(177);
    --other[0].first;
    EXPECT_EQ(histogram.Compare(177, other),
              "value " + std::to_string(patches.at(177)[0].first) + " " + std::to_string(other[0].second) +
                  " times, but the patch has " + std::to_string(other[0].first) + " " +
                  std::to_string(other[0].second) + " times");
    EXPECT_EQ(histogram.Compare(9, patches.at(9)), std::nullopt);
}

TEST(StoredHistogram, MadeOfPiecesTellsWhatDiffers) {
    ExpectComparesRight(InPieces(Patches()));
}

TEST(StoredHistogram, MadeAtOnceTellsWhatDiffers) {
    ExpectComparesRight(AtOnce(Patches()));
}

TEST(StoredHistogram, OfAnotherCodecTellsWhatDiffers) {
    std::vector<uint64_t> numbers{Patches().size()};
    for (const auto& [patch, counts] : Patches()) {
        numbers.insert(numbers.end(), {patch, counts.size()});
        for (const auto& [value, count] : counts)
            numbers.insert(numbers.end(), {value, count});
    }
    ExpectComparesRight(Around(numbers, kxcodecs::SnappyChunkCodec()));
    ExpectComparesRight(Around(numbers, kxcodecs::ZLibChunkCodec()));
}

TEST(StoredHistogram, SeveralThreadsAreToldTheSame) {
    const auto patches = Patches();
    Stored stored(InPieces(patches));
    const StoredHistogram histogram = stored.Read();
    std::vector<int> told(4, 0);
    std::vector<std::thread> threads;
    for (int& count : told) {
        threads.emplace_back([&] {
            for (auto [patch, counts] : patches) {
                if (counts.empty()) continue;
                ++counts.back().second;
                if (histogram.Compare(patch, counts)) ++count;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(told, std::vector<int>(4, static_cast<int>(patches.size()) - 1));
}

TEST(StoredHistogram, MadeOfPiecesTakesTheMemoryOfAPiece) {
    std::map<uint32_t, ValueCounts> patches;
    for (uint32_t patch = 0; patch < 300; ++patch) {
        for (uint64_t value = 0; value < 5000; ++value)
            patches[patch].emplace_back(7 * value + patch, 1 + value % 3);
    }
    Stored stored(InPieces(patches));
    const kxtest::AllocationWatch watch;
    const StoredHistogram histogram = stored.Read();
    for (const auto& [patch, counts] : patches)
        EXPECT_EQ(histogram.Compare(patch, counts), std::nullopt);
    EXPECT_LT(watch.Peak(), size_t{1} << 20);  // the numbers are 23 MiB
}

// What a record of these numbers is refused with, empty when it is read, whether it is made of pieces or not.
std::string Refusal(const Bytes& record) {
    Stored stored(record);
    try {
        static_cast<void>(stored.Read());
        return {};
    } catch (const kxbase::KXException& e) {
        return std::string(e.what()) + ": " + e.Context().detail;
    }
}

TEST(StoredHistogram, NumbersThatDoNotFitAreRefusedWhateverTheCodec) {
    const uint64_t huge = uint64_t{1} << 60;
    struct Case {
        std::vector<uint64_t> numbers;
        bool isRead;
    };
    const Case cases[] = {
        {{5}, true},      // fewer than two numbers
        {{0, 1}, false},  // more than no entries
        {{1, 0, 1, 2, 3}, true},
        {{2, 0, 1, 2, 3, 9, 0}, true},
        {{1, huge, 1, 2, 3}, true},       // an index that no patch has
        {{1, 0, huge, 2, 3}, false},      // too many values
        {{1, 0, huge + 1, 2, 3}, false},  // 16-fold wraps around
        {{huge, 0, 1, 2, 3}, false},      // too many entries
        {{1, 0, 2, 7, 1, 8}, false},      // a cut pair
        {{2, 0, 1, 2, 3}, false},         // a missing entry
        {{2, 0, 1, 2, 3, 9}, false},      // a cut entry
        {{1, 0, 1, 2, 3, 4}, false},      // more behind the last
    };
    for (const Case& test : cases) {
        const Bytes record = Around(test.numbers, kxcodecs::ZLibChunkCodec());
        const std::string refusal = Refusal(record);
        EXPECT_EQ(refusal.empty(), test.isRead) << refusal;
        // Snappy is never unpacked by pieces.
        EXPECT_EQ(refusal, Refusal(Around(test.numbers, kxcodecs::SnappyChunkCodec())));
    }
    EXPECT_EQ(Refusal(Around({1, 0, 1, 2, 3, 4}, kxcodecs::ZLibChunkCodec())),
              "Patch cannot be decoded: 8 bytes behind the last entry");
}

TEST(StoredHistogram, DamageIsRefusedOrToldOrWithoutEffect) {
    const std::map<uint32_t, ValueCounts> patches{{0, {{3, 4}, {5, 1}}}, {7, {{2, 9}, {600, 1}, {601, 2}}}};
    const Bytes record = InPieces(patches);
    EXPECT_EQ(Refusal(record), "");
    for (size_t size = 0; size < record.size(); ++size) {
        const Bytes cut(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(Refusal(cut).find("Cannot read file: "), 0U) << size;
    }
    // Behind record, chunk size and chunk header lies the stream, which has a checksum.
    for (size_t at = 36 + 8 + 28; at < record.size(); ++at) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            Bytes damaged = record;
            damaged[at] = static_cast<unsigned char>(damaged[at] ^ 1U << bit);
            Stored stored(damaged);
            try {
                const StoredHistogram histogram = stored.Read();
                for (const auto& [patch, counts] : patches)
                    EXPECT_EQ(histogram.Compare(patch, counts), std::nullopt) << at;
            } catch (const kxbase::KXUnreadablePatchException& e) {
                EXPECT_EQ(e.Context().detail, "the payload does not unpack to what the header claims") << at;
            }
        }
    }
    // Whatever is claimed in front of it.
    for (size_t at = 0; at < 36 + 8 + 28; ++at) {
        Bytes damaged = record;
        damaged[at] = static_cast<unsigned char>(damaged[at] ^ 0xff);
        const kxtest::AllocationWatch watch;
        static_cast<void>(Refusal(damaged));
        EXPECT_LT(watch.Largest(), size_t{1} << 20) << at;
    }
}

TEST(StoredHistogram, ARecordThatIsGoneWhenAPatchDiffersIsAnError) {
    const auto patches = Patches();
    Stored stored(InPieces(patches));
    const StoredHistogram histogram = stored.Read();
    stored.in = kxbase::InMemoryStream(Bytes(10, 0));
    EXPECT_EQ(histogram.Compare(9, patches.at(9)), std::nullopt);
    ValueCounts other = patches.at(9);
    ++other[0].second;
    EXPECT_THROW(static_cast<void>(histogram.Compare(9, other)), kxbase::KXUnreadablePatchException);
}

}  // namespace
