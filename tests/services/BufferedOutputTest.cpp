// SPDX-License-Identifier: MIT
// Small writes that reach a stream in large pieces.
#include "services/BufferedOutput.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "kxbase/Exceptions.h"
#include "kxbase/InMemoryStream.h"
#include "support/StreamStub.h"

namespace {

using kxio::BufferedOutput;
using Bytes = std::vector<unsigned char>;

/// Keeps the sizes of the writes; each fails while `fails` is set.
class WatchedStream final : public kxtest::StreamStub {
public:
    uint64_t Write(const void*, uint64_t bytes) override {
        if (fails) throw kxbase::KXWritingException("Cannot write file");
        writes.push_back(bytes);
        return bytes;
    }
    std::vector<uint64_t> writes;
    bool fails = false;
};

TEST(BufferedOutput, AnyWritesAndMovesLeadToTheSameBytes) {
    std::mt19937 random(5);
    for (int round = 0; round < 20; ++round) {
        kxbase::InMemoryStream plain, behind;
        BufferedOutput buffered(behind);
        const auto both = [&](auto&& call) { ASSERT_EQ(call(plain), call(buffered)); };
        for (int i = 0; i < 200; ++i) {
            const uint64_t number = random() % 1000;
            switch (random() % 12) {
                case 0:
                    both([&](auto& out) { return out.Seek(number); });
                    break;
                case 1:
                    both([&](auto& out) { return out.SeekBackward(number); });
                    break;
                case 2:
                    both([&](auto& out) { return out.SeekForward(number); });
                    break;
                case 3:
                    both([&](auto& out) { return out.SeekEnd(number); });
                    break;
                default: {
                    // Now and then more than is held back at once.
                    Bytes bytes(random() % 40 == 0 ? 300000 + number : 20 * number);
                    for (unsigned char& byte : bytes)
                        byte = static_cast<unsigned char>(random());
                    both([&](auto& out) { return out.Write(bytes.data(), bytes.size()); });
                }
            }
            ASSERT_EQ(buffered.Tell(), plain.Tell());
        }
        buffered.Flush();
        ASSERT_EQ(behind.GetBytes(), plain.GetBytes());
    }
}

TEST(BufferedOutput, SmallWritesAreJoinedAndLargeOnesGoThrough) {
    WatchedStream stream;
    BufferedOutput buffered(stream);
    const Bytes bytes(1 << 20);
    for (int i = 0; i < 1024; ++i)
        buffered.Write(bytes.data(), 1000);
    buffered.Write(bytes.data(), bytes.size());
    buffered.Flush();
    buffered.Flush();
    const std::vector<uint64_t> expected = {262000, 262000, 262000, 238000, 1 << 20};
    EXPECT_EQ(stream.writes, expected);
}

TEST(BufferedOutput, WhatTheStreamRefusesIsReportedByTheCallThatHandsItOn) {
    WatchedStream stream;
    stream.fails = true;
    BufferedOutput buffered(stream);
    EXPECT_EQ(buffered.Write("abc", 3), 3U);
    EXPECT_THROW(buffered.Flush(), kxbase::KXWritingException);
    EXPECT_THROW(buffered.Seek(0), kxbase::KXWritingException);
    EXPECT_THROW(buffered.Close(), kxbase::KXWritingException);
    stream.fails = false;
    buffered.Flush();
    EXPECT_EQ(stream.writes, std::vector<uint64_t>{3}) << "nothing was lost meanwhile";
}

TEST(BufferedOutput, WithoutAFlushNothingIsHandedOn) {
    WatchedStream stream;
    { BufferedOutput(stream).Write("abc", 3); }
    EXPECT_TRUE(stream.writes.empty());
}

TEST(BufferedOutput, ClosingHandsOnWhatIsHeldBack) {
    kxbase::InMemoryStream stream;
    BufferedOutput buffered(stream);
    EXPECT_TRUE(buffered.IsOpen());
    EXPECT_EQ(buffered.GetName(), stream.GetName());
    buffered.Write("abc", 3);
    buffered.Close();
    EXPECT_FALSE(buffered.IsOpen());
    EXPECT_EQ(stream.GetBytes(), (Bytes{'a', 'b', 'c'}));
}

}  // namespace
