// SPDX-License-Identifier: MIT
// Streams made of pieces, read by libdeflate, by zlib and piece by piece.
#include "kxcodecs/ZLibPieces.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <random>

#include "TestCodecs.h"
#include "kxbase/Exceptions.h"
#include "kxcodecs/kxcodecs.h"
#include "support/AllocationWatch.h"

namespace {

using namespace kxcodecs;
using namespace kxcodecs::test;

// As a histogram has them: ascending values, small counts.
Bytes Table(std::mt19937& random, std::size_t pairs, uint64_t mostStep) {
    Bytes bytes;
    uint64_t value = 0;
    for (std::size_t i = 0; i < pairs; ++i) {
        value += 1 + random() % mostStep;
        for (const uint64_t number : {value, uint64_t{1 + random() % 9}}) {
            for (int shift = 0; shift < 64; shift += 8)
                bytes.push_back(static_cast<unsigned char>(number >> shift));
        }
    }
    return bytes;
}

Bytes Noise(std::mt19937& random, std::size_t count) {
    Bytes bytes(count);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

Bytes Stream(const std::vector<Bytes>& parts) {
    ZLibPieceSum sum;
    const auto head = ZLibPieceSum::Head();
    Bytes stream(head.begin(), head.end());
    for (const Bytes& part : parts) {
        const ZLibPiece piece = PackPairs(part);
        EXPECT_EQ(piece.bytes, part.size());
        EXPECT_EQ(Unpacked(piece), part);
        sum.Add(piece);
        stream = stream + piece.packed;
    }
    const auto tail = sum.Tail();
    stream.insert(stream.end(), tail.begin(), tail.end());
    EXPECT_EQ(sum.PackedBytes(), stream.size());
    return stream;
}

Bytes Whole(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all = all + part;
    return all;
}

// What `ReadZLibPieces` makes of a stream that comes in small portions; nothing where it says no.
std::optional<Bytes> InPieces(const Bytes& stream, uint64_t bytes, std::size_t portion = 1000000) {
    std::size_t given = 0;
    const auto source = [&](std::span<unsigned char> out) {
        const std::size_t count = std::min({out.size(), stream.size() - given, portion});
        std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(given), count, out.begin());
        given += count;
        return uint64_t{count};
    };
    Bytes all;
    const auto take = [&](std::span<const unsigned char> part) {
        all.insert(all.end(), part.begin(), part.end());
        return true;
    };
    if (!ReadZLibPieces(stream.size(), bytes, source, take)) return std::nullopt;
    return all;
}

void ExpectReadable(const std::vector<Bytes>& parts) {
    const Bytes stream = Stream(parts);
    const Bytes whole = Whole(parts);
    EXPECT_EQ(InPieces(stream, whole.size()), whole);
    Bytes out(whole.size());
    uLongf filled = static_cast<uLongf>(out.size());
    EXPECT_EQ(uncompress(out.data(), &filled, stream.data(), static_cast<uLong>(stream.size())), Z_OK);
    EXPECT_EQ(filled, whole.size());
    EXPECT_EQ(out, whole);
    if (whole.empty()) return;
    ZLibChunkCodec codec;
    codec.SetLayout(static_cast<uint32_t>(whole.size()), 1, static_cast<uint32_t>(whole.size()), 1.0F);
    Bytes decoded(whole.size());
    EXPECT_TRUE(codec.DecodeInto(stream.data(), stream.size(), decoded));
    EXPECT_EQ(decoded, whole);
}

TEST(ZLibPieces, OneByteByHand) {
    const ZLibPiece piece = PackPairs(Bytes{0});
    // Lowest bit first: 0 not the last, 10 fixed code, 00110000 byte 0, 0000000 the end; 0 not the last,
    // 00 stored, padding; no bytes and the complement of 0.
    EXPECT_EQ(piece.packed, (Bytes{0x62, 0x00, 0x00, 0x00, 0x00, 0xff, 0xff}));
    EXPECT_EQ(piece.bytes, 1U);
    EXPECT_EQ(piece.adler, 0x00010001U);
    EXPECT_EQ(Stream({{0}, {0}}), (Bytes{0x78, 0x01, 0x62, 0,    0,    0,    0,    0xff, 0xff, 0x62, 0,
                                         0,    0,    0,    0xff, 0xff, 0x03, 0x00, 0x00, 0x02, 0x00, 0x01}));
}

TEST(ZLibPieces, EveryReaderReadsThem) {
    std::mt19937 random(11);
    ExpectReadable({});
    ExpectReadable({{}});
    ExpectReadable({{}, Bytes(1, 7), {}});
    for (std::size_t size = 1; size < 70; ++size)
        ExpectReadable({Bytes(size, 0), Noise(random, size)});
    ExpectReadable({Table(random, 1, 1), Table(random, 10000, 7), Table(random, 300, 1 << 20)});
    ExpectReadable({Table(random, 2000, std::numeric_limits<uint64_t>::max() / 4000), Noise(random, 1000)});
    // More than one block, runs of the greatest length, all lengths of matches.
    ExpectReadable({Table(random, 60000, 3), Noise(random, 200000), Bytes(1000000, 5)});
    for (std::size_t match = 0; match < 600; match += 7) {
        const Bytes row = Noise(random, 16);
        Bytes bytes;
        while (bytes.size() < 16 + match)
            bytes.push_back(row[bytes.size() % 16]);
        ExpectReadable({bytes + Noise(random, 5)});
    }
}

TEST(ZLibPieces, TablesPackWellAndNoiseHardlyGrows) {
    std::mt19937 random(12);
    const Bytes table = Table(random, 10000, 7);
    EXPECT_LT(PackPairs(table).packed.size(), table.size() / 5);
    const Bytes noise = Noise(random, 100000);
    EXPECT_LT(PackPairs(noise).packed.size(), noise.size() + noise.size() / 500);
}

TEST(ZLibPieces, ReadingTakesTheMemoryOfAPiece) {
    std::mt19937 random(13);
    std::vector<Bytes> parts;
    for (int i = 0; i < 200; ++i)
        parts.push_back(Table(random, 4000, 5));
    const Bytes stream = Stream(parts);
    std::size_t given = 0;
    uint64_t taken = 0;
    const kxtest::AllocationWatch watch;
    EXPECT_TRUE(ReadZLibPieces(
        stream.size(), 200 * parts[0].size(),
        [&](std::span<unsigned char> out) {
            std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(given), out.size(), out.begin());
            given += out.size();
            return out.size();
        },
        [&](std::span<const unsigned char> part) {
            taken += part.size();
            return true;
        }));
    EXPECT_EQ(taken, 200 * parts[0].size());
    EXPECT_LT(watch.Peak(), std::size_t{1} << 20);
}

TEST(ZLibPieces, StreamsOfOthersAreReadWhereTheirPiecesAreSuch) {
    std::mt19937 random(14);
    const Bytes table = Table(random, 5000, 7);
    const auto byZLib = [&](int flush) {
        z_stream deflater{};
        EXPECT_EQ(deflateInit(&deflater, 6), Z_OK);
        Bytes out(table.size() + 1000), in = table;
        deflater.next_out = out.data();
        deflater.avail_out = static_cast<uInt>(out.size());
        for (std::size_t at = 0; at < in.size(); at += 10000) {
            deflater.next_in = in.data() + at;
            deflater.avail_in = static_cast<uInt>(std::min<std::size_t>(10000, in.size() - at));
            EXPECT_EQ(deflate(&deflater, flush), Z_OK);
        }
        EXPECT_EQ(deflate(&deflater, Z_FINISH), Z_STREAM_END);
        out.resize(deflater.total_out);
        deflateEnd(&deflater);
        return out;
    };
    EXPECT_EQ(InPieces(byZLib(Z_FULL_FLUSH), table.size()), table);
    EXPECT_EQ(InPieces(byZLib(Z_NO_FLUSH), table.size()), table);  // one piece
    // These look back to what was before.
    EXPECT_EQ(InPieces(byZLib(Z_SYNC_FLUSH), table.size()), std::nullopt);
}

TEST(ZLibPieces, WrongLengthsAndDamageAreTold) {
    std::mt19937 random(15);
    const std::vector<Bytes> parts{Table(random, 20, 5), Table(random, 30, 900), Noise(random, 20)};
    const Bytes stream = Stream(parts), whole = Whole(parts);
    ASSERT_EQ(InPieces(stream, whole.size()), whole);
    EXPECT_EQ(InPieces(stream, whole.size() - 1), std::nullopt);
    EXPECT_EQ(InPieces(stream, whole.size() + 1), std::nullopt);
    EXPECT_EQ(InPieces(stream, 0), std::nullopt);
    EXPECT_EQ(InPieces(stream + Bytes{0}, whole.size()), std::nullopt);
    EXPECT_EQ(InPieces(stream, whole.size(), 100), std::nullopt);  // a source that gives less
    EXPECT_EQ(InPieces({}, 0), std::nullopt);
    for (std::size_t size = 0; size < stream.size(); ++size)
        EXPECT_EQ(
            InPieces(Bytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(size)), whole.size()),
            std::nullopt)
            << size;
    // A changed bit is told, or changes nothing: padding, the distance of a match among zeros.
    int told = 0;
    for (std::size_t bit = 0; bit < 8 * stream.size(); ++bit) {
        Bytes damaged = stream;
        damaged[bit / 8] = static_cast<unsigned char>(damaged[bit / 8] ^ 1U << bit % 8);
        const auto read = InPieces(damaged, whole.size());
        EXPECT_EQ(read.value_or(whole), whole) << bit;
        told += read ? 0 : 1;
    }
    EXPECT_GT(told, static_cast<int>(7 * stream.size()));
}

TEST(ZLibPieces, ClaimsTakeNoMemoryAndWhoTakesMayEnd) {
    const Bytes stream = Stream({Bytes(1000, 1), Bytes(1000, 2)});
    int taken = 0;
    const kxtest::AllocationWatch watch;
    EXPECT_FALSE(ReadZLibPieces(
        stream.size(), uint64_t{1} << 40, [](std::span<unsigned char>) { return uint64_t{0}; },
        [](std::span<const unsigned char>) { return true; }));
    std::size_t given = 0;
    EXPECT_FALSE(ReadZLibPieces(
        stream.size(), 2000,
        [&](std::span<unsigned char> out) {
            std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(given), out.size(), out.begin());
            given += out.size();
            return out.size();
        },
        [&](std::span<const unsigned char>) { return ++taken, false; }));
    EXPECT_EQ(taken, 1);
    EXPECT_LT(watch.Largest(), std::size_t{1} << 19);
}

TEST(ZLibPieces, APieceOfSomethingElseIsRefused) {
    const auto refusal = [](const ZLibPiece& piece) -> std::string {
        try {
            return std::to_string(Unpacked(piece).size()) + " bytes";
        } catch (const kxbase::KXException& e) {
            return e.what();
        }
    };
    ZLibPiece piece = PackPairs(Bytes(100, 3));
    EXPECT_EQ(refusal(piece), "100 bytes");
    piece.bytes = 99;
    EXPECT_EQ(refusal(piece), "Chunk cannot be decoded");
    piece.bytes = 101;
    EXPECT_EQ(refusal(piece), "Chunk cannot be decoded");
    piece.packed = {0xff, 0xff};
    EXPECT_EQ(refusal(piece), "Chunk cannot be decoded");
}

}  // namespace
