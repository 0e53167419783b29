// SPDX-License-Identifier: MIT
// The window through which damaged files are read.
#include "services/FileWindow.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <stdexcept>

#include "support/CountingStream.h"

namespace {

using kxio::FileWindow;
using Bytes = std::vector<unsigned char>;

Bytes Noise(size_t count) {
    std::mt19937 random(7);
    Bytes bytes(count);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

Bytes Piece(const Bytes& bytes, uint64_t position, uint64_t count) {
    const auto first = static_cast<std::ptrdiff_t>(std::min<uint64_t>(position, bytes.size()));
    const auto end = static_cast<std::ptrdiff_t>(std::min<uint64_t>(position + count, bytes.size()));
    return {bytes.begin() + first, bytes.begin() + end};
}

TEST(FileWindow, WhateverWasReadBeforeTheBytesAreThoseOfTheFile) {
    const Bytes bytes = Noise(3'000'000);
    std::mt19937 random(11);
    for (const bool ahead : {false, true}) {
        kxbase::InMemoryStream stream(bytes);
        FileWindow file(stream);
        if (ahead) file.ReadAhead();
        Bytes out;
        uint64_t position = 0;
        for (int i = 0; i < 3000; ++i) {
            const uint64_t count = random() % (random() % 30 == 0 ? 200000 : 9000);
            if (random() % 50 == 0 || position > bytes.size()) position = random() % (bytes.size() + 1000);
            switch (random() % 8) {
                case 0: {
                    const auto got = file.Block(position);
                    ASSERT_EQ(Bytes(got.begin(), got.end()), Piece(bytes, position, got.size()));
                    ASSERT_TRUE(got.size() >= (1 << 16) || position + got.size() >= bytes.size());
                    break;
                }
                case 1: {
                    const auto got = file.Peek(position, count);
                    ASSERT_EQ(Bytes(got.begin(), got.end()), Piece(bytes, position, count));
                    break;
                }
                default:
                    file.Read(position, count, out);
                    ASSERT_EQ(out, Piece(bytes, position, count));
                    position += count + random() % 100;
            }
        }
        EXPECT_EQ(file.UnreadableBytes(), 0U);
    }
}

TEST(FileWindow, ChunksInSuccessionCostOneReadForMany) {
    const Bytes bytes = Noise(10'000'000);
    kxtest::CountingStream stream(bytes);
    FileWindow file(stream);
    file.ReadAhead();
    Bytes out;
    for (uint64_t position = 0; position + 5000 <= bytes.size(); position += 5032)
        file.Read(position, 5000, out);
    EXPECT_LT(stream.reads, 60);
    EXPECT_LT(stream.bytesRead, bytes.size() + bytes.size() / 10);
}

TEST(FileWindow, JumpingNeverReadsMoreThanTwiceWhatIsAskedFor) {
    const Bytes bytes = Noise(10'000'000);
    std::mt19937 random(13);
    kxtest::CountingStream stream(bytes);
    FileWindow file(stream);
    file.ReadAhead();
    Bytes out;
    uint64_t asked = 0;
    for (int i = 0; i < 2000; ++i) {
        // Runs of one to eight small chunks, here and there.
        uint64_t position = random() % 9'000'000;
        for (uint64_t left = 1 + random() % 8; left != 0; --left) {
            const uint64_t count = 1 + random() % 3000;
            file.Read(position, count, out);
            position += count;
            asked += count;
        }
    }
    EXPECT_LE(stream.bytesRead, 2 * asked);
}

TEST(FileWindow, HeadersThatLieTogetherCostOneRead) {
    kxtest::CountingStream stream(Noise(1000));
    FileWindow file(stream);
    file.Peek(500, 16);
    file.Peek(500, 32);
    file.Peek(532, 28);
    EXPECT_EQ(stream.reads, 1);
}

TEST(FileWindow, WhatCannotBeReadIsZerosAndIsCountedOnce) {
    const Bytes bytes = Noise(600'000);
    for (const bool ahead : {false, true}) {
        kxtest::CountingStream stream(bytes);
        stream.refusedFrom = 300'000;
        stream.refusedEnd = 301'000;
        FileWindow file(stream);
        if (ahead) file.ReadAhead();
        // Up to the end of the sector.
        Bytes shown = bytes;
        const auto first = shown.begin() + 300'000;
        std::fill(first, shown.begin() + (300'000 / 4096 + 1) * 4096, static_cast<unsigned char>(0));
        Bytes out, all;
        for (int times = 0; times < 2; ++times) {
            all.clear();
            for (uint64_t position = 0; position < bytes.size(); position += out.size()) {
                file.Read(position, 10'000, out);
                all.insert(all.end(), out.begin(), out.end());
            }
            EXPECT_EQ(all, shown);
            EXPECT_EQ(file.UnreadableBytes(), 4096 - 300'000 % 4096);
        }
    }
}

TEST(FileWindow, AnErrorLeavesNoBytesBehindThatWereNotRead) {
    const Bytes bytes = Noise(500'000);
    kxtest::CountingStream stream(bytes);
    FileWindow file(stream);
    file.ReadAhead();
    Bytes out;
    uint64_t position = 0;
    for (; position < 100'000; position += 5000)
        file.Read(position, 5000, out);
    stream.onRead = [] { throw std::runtime_error("gone"); };
    EXPECT_THROW(file.Block(200'000), std::runtime_error);
    EXPECT_THROW(file.Peek(300'000, 16), std::runtime_error);
    EXPECT_THROW(file.Read(400'000, 5000, out), std::runtime_error);
    EXPECT_THROW(for (;; position += 5000) file.Read(position, 5000, out), std::runtime_error);
    stream.onRead = nullptr;
    for (const uint64_t at : {uint64_t{0}, position, uint64_t{200'000}, uint64_t{300'000}}) {
        const auto peeked = file.Peek(at, 100);
        EXPECT_EQ(Bytes(peeked.begin(), peeked.end()), Piece(bytes, at, 100));
        const auto block = file.Block(at);
        EXPECT_EQ(Bytes(block.begin(), block.end()), Piece(bytes, at, block.size()));
        file.Read(at, 5000, out);
        EXPECT_EQ(out, Piece(bytes, at, 5000));
    }
}

}  // namespace
