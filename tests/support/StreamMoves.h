// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "kxbase/IInFileStream.h"

namespace kxtest {

/// An open input stream that shows these bytes (ten at least) moves, reads and tells as every stream does.
inline void ExpectMovesLikeAStream(kxbase::IInFileStream& in, const std::vector<unsigned char>& shown) {
    ASSERT_GE(shown.size(), 10U);
    const uint64_t size = shown.size();
    EXPECT_TRUE(in.IsOpen());
    EXPECT_EQ(in.GetSize(), size);
    const auto next = [&](uint64_t expectedPlace) {
        EXPECT_EQ(in.Tell(), expectedPlace);
        unsigned char byte = 0;
        EXPECT_EQ(in.Read(&byte, 1), 1U);
        EXPECT_EQ(in.GetLastReadCount(), 1U);
        EXPECT_EQ(byte, shown[expectedPlace]) << expectedPlace;
    };
    EXPECT_TRUE(in.Seek(4));
    next(4);
    EXPECT_TRUE(in.SeekForward(2));
    next(7);
    EXPECT_TRUE(in.SeekBackward(5));
    next(3);
    EXPECT_FALSE(in.SeekBackward(5));  // in front of the first byte
    next(4);
    EXPECT_TRUE(in.SeekEnd(1));
    EXPECT_TRUE(in.HasDataLeft());
    next(size - 1);
    EXPECT_FALSE(in.HasDataLeft());
    EXPECT_FALSE(in.SeekEnd(size + 1));
    EXPECT_FALSE(in.SeekForward(UINT64_MAX));
    EXPECT_EQ(in.Tell(), size);
    unsigned char none = 77;
    EXPECT_EQ(in.Read(&none, 1), 0U);
    EXPECT_EQ(in.GetLastReadCount(), 0U);
    EXPECT_EQ(none, 77);
    EXPECT_TRUE(in.SeekEnd(0));
    EXPECT_EQ(in.Tell(), size);
    EXPECT_TRUE(in.Seek(0));
    std::vector<unsigned char> all(size + 5);
    EXPECT_EQ(in.Read(all.data(), all.size()), size);
    all.resize(size);
    EXPECT_EQ(all, shown);
}

}  // namespace kxtest
