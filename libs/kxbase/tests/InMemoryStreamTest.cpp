// SPDX-License-Identifier: MIT
#include "kxbase/InMemoryStream.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "kxbase/Exceptions.h"

namespace kxbase {
namespace {

using Bytes = std::vector<unsigned char>;

TEST(InMemoryStream, StartsEmptyAndOpen) {
    InMemoryStream stream;
    EXPECT_TRUE(stream.IsOpen());
    EXPECT_EQ(stream.GetSize(), 0u);
    EXPECT_EQ(stream.Tell(), 0u);
    EXPECT_FALSE(stream.HasDataLeft());
    unsigned char byte = 7;
    EXPECT_EQ(stream.Read(&byte, 1), 0u);
    EXPECT_EQ(byte, 7);
}

TEST(InMemoryStream, CopiesTheBytesItIsGiven) {
    Bytes source = {1, 2, 3};
    InMemoryStream stream(source.data(), source.size());
    source[0] = 9;
    EXPECT_EQ(stream.GetBytes(), (Bytes{1, 2, 3}));
}

TEST(InMemoryStream, ReadsAreShortAtTheEndAndCounted) {
    InMemoryStream stream(Bytes{1, 2, 3, 4, 5});
    Bytes out(3, 0);
    EXPECT_EQ(stream.Read(out.data(), 3), 3u);
    EXPECT_EQ(out, (Bytes{1, 2, 3}));
    EXPECT_EQ(stream.Read(out.data(), 3), 2u);
    EXPECT_EQ(out, (Bytes{4, 5, 3}));
    EXPECT_EQ(stream.GetLastReadCount(), 2u);
    EXPECT_EQ(stream.Tell(), 5u);
    EXPECT_EQ(stream.Read(out.data(), 3), 0u);
    EXPECT_EQ(stream.GetLastReadCount(), 0u);
}

TEST(InMemoryStream, SeeksKeepThePositionWhenTheyFail) {
    InMemoryStream stream(Bytes(10, 1));
    EXPECT_TRUE(stream.Seek(4));
    EXPECT_TRUE(stream.SeekForward(2));
    EXPECT_EQ(stream.Tell(), 6u);
    EXPECT_TRUE(stream.SeekBackward(6));
    EXPECT_EQ(stream.Tell(), 0u);
    EXPECT_FALSE(stream.SeekBackward(1));
    EXPECT_TRUE(stream.SeekEnd(3));
    EXPECT_EQ(stream.Tell(), 7u);
    EXPECT_FALSE(stream.SeekEnd(11));
    EXPECT_FALSE(stream.SeekForward(std::numeric_limits<uint64_t>::max()));
    EXPECT_EQ(stream.Tell(), 7u);
}

TEST(InMemoryStream, PositionsBehindTheEndGiveNoBytes) {
    InMemoryStream stream(Bytes(10, 1));
    EXPECT_TRUE(stream.Seek(uint64_t{1} << 40));
    EXPECT_FALSE(stream.HasDataLeft());
    unsigned char byte = 7;
    EXPECT_EQ(stream.Read(&byte, 1), 0u);
    EXPECT_EQ(byte, 7);
}

TEST(InMemoryStream, WritesOverwriteExtendAndFillGapsWithZeros) {
    InMemoryStream stream;
    EXPECT_EQ(stream.Write("abcd", 4), 4u);
    ASSERT_TRUE(stream.Seek(2));
    stream.Write("XYZ", 3);
    EXPECT_EQ(stream.Tell(), 5u);
    ASSERT_TRUE(stream.Seek(7));
    stream.Write("!", 1);
    EXPECT_EQ(stream.GetBytes(), (Bytes{'a', 'b', 'X', 'Y', 'Z', 0, 0, '!'}));
    EXPECT_EQ(stream.GetSize(), 8u);
    ASSERT_TRUE(stream.SeekEnd(8));
    Bytes out(2);
    EXPECT_EQ(stream.Read(out.data(), 2), 2u);
    EXPECT_EQ(out, (Bytes{'a', 'b'}));
}

TEST(InMemoryStream, AnImpossibleWriteThrowsTheWritingException) {
    InMemoryStream stream;
    ASSERT_EQ(stream.Write("a", 1), 1u);
    if (!stream.Seek(uint64_t{1} << 62)) GTEST_SKIP() << "the position itself is refused";
    EXPECT_THROW(stream.Write("b", 1), KXWritingException);
    EXPECT_EQ(stream.GetBytes(), (Bytes{'a'}));
}

TEST(InMemoryStream, ClosedStreamKeepsItsBytesOnly) {
    InMemoryStream stream(Bytes{1, 2});
    stream.Close();
    EXPECT_FALSE(stream.IsOpen());
    EXPECT_FALSE(stream.HasDataLeft());
    unsigned char byte = 7;
    EXPECT_EQ(stream.Read(&byte, 1), 0u);
    EXPECT_THROW(stream.Write(&byte, 1), KXWritingException);
    EXPECT_EQ(stream.GetBytes(), (Bytes{1, 2}));
}

TEST(InMemoryStream, CopiesOwnTheirBytes) {
    InMemoryStream first(Bytes{1, 2});
    InMemoryStream second(first);
    second.Write("x", 1);
    EXPECT_EQ(first.GetBytes(), (Bytes{1, 2}));
    EXPECT_EQ(first.Tell(), 0u);
    EXPECT_EQ(second.GetBytes(), (Bytes{'x', 2}));
}

RC_GTEST_PROP(InMemoryStream, BehavesAsAGrowingArray, ()) {
    // Random writes and reads beside a plain vector.
    InMemoryStream stream;
    Bytes model;
    const auto steps = *rc::gen::container<std::vector<std::tuple<bool, uint8_t, Bytes>>>(
        rc::gen::arbitrary<std::tuple<bool, uint8_t, Bytes>>());
    for (const auto& [write, position, bytes] : steps) {
        RC_ASSERT(stream.Seek(position));
        if (write) {
            RC_ASSERT(stream.Write(bytes.data(), bytes.size()) == bytes.size());
            if (!bytes.empty()) model.resize(std::max<size_t>(model.size(), position + bytes.size()));
            std::copy(bytes.begin(), bytes.end(),
                      bytes.empty() ? model.end() : model.begin() + static_cast<std::ptrdiff_t>(position));
        } else {
            Bytes got(bytes.size());
            const size_t start = std::min<size_t>(position, model.size());
            const size_t left = std::min(bytes.size(), model.size() - start);
            RC_ASSERT(stream.Read(got.data(), got.size()) == left);
            RC_ASSERT(std::equal(got.begin(), got.begin() + static_cast<std::ptrdiff_t>(left),
                                 model.begin() + static_cast<std::ptrdiff_t>(start)));
        }
    }
    RC_ASSERT(stream.GetBytes() == model);
}

}  // namespace
}  // namespace kxbase
