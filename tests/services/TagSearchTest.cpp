// SPDX-License-Identifier: MIT
#include "services/TagSearch.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "kxbase/ByteWriter.h"
#include "kxbase/IOHeader.h"

namespace {

using kxio::TagSearch;
using Bytes = std::vector<unsigned char>;

void Put(Bytes& bytes, uint64_t at, uint64_t tag) {
    kxbase::ByteWriter(std::span(bytes).subspan(at, 8)).U64(tag);
}

TEST(TagSearch, FindsATagAtEveryAlignmentAndAtBothEnds) {
    const TagSearch search({0x982157cf2cfe1ec6ULL});
    for (uint64_t at = 0; at <= 56; ++at) {
        Bytes bytes(64, 0);
        Put(bytes, at, 0x982157cf2cfe1ec6ULL);
        EXPECT_EQ(search.FindNext(bytes, 0), at);
        EXPECT_EQ(search.FindNext(bytes, at), at);
        EXPECT_EQ(search.FindNext(bytes, at + 1), TagSearch::kNotFound);
    }
}

TEST(TagSearch, TagCutByTheEndIsNotFound) {
    Bytes bytes(15, 0);
    Bytes whole(16, 0);
    Put(whole, 8, 0x9cb282fc40c502d8ULL);
    std::copy(whole.begin(), whole.end() - 1, bytes.begin());
    const TagSearch search({0x9cb282fc40c502d8ULL});
    EXPECT_EQ(search.FindNext(bytes, 0), TagSearch::kNotFound);
    EXPECT_EQ(search.FindNext(std::span(bytes).first(0), 0), TagSearch::kNotFound);
    EXPECT_EQ(search.FindNext(bytes, 1000), TagSearch::kNotFound);
}

TEST(TagSearch, TagsThatOverlapThemselvesAreAllFound) {
    const TagSearch search({0x0101010101010101ULL});
    const Bytes bytes(11, 1);
    EXPECT_EQ(search.FindNext(bytes, 0), 0U);
    EXPECT_EQ(search.FindNext(bytes, 1), 1U);
    EXPECT_EQ(search.FindNext(bytes, 3), 3U);
    EXPECT_EQ(search.FindNext(bytes, 4), TagSearch::kNotFound);
}

// Bytes of a small alphabet, so that near misses and overlaps are common.
RC_GTEST_PROP(TagSearch, AgreesWithComparingAtEveryByte, (uint32_t seed)) {
    const auto letters = *rc::gen::container<Bytes>(rc::gen::inRange<unsigned char>(0, 3));
    std::vector<uint64_t> tags;
    for (uint32_t t = 0; t < 1 + seed % 4; ++t) {
        Bytes tag = *rc::gen::container<Bytes>(8, rc::gen::inRange<unsigned char>(0, 3));
        uint64_t value = 0;
        for (unsigned i = 0; i < 8; ++i)
            value |= uint64_t{tag[i]} << (8 * i);
        tags.push_back(value);
    }
    const TagSearch search(tags);
    const auto plain = [&](uint64_t from) {
        for (uint64_t at = from; at + 8 <= letters.size(); ++at) {
            uint64_t value = 0;
            for (unsigned i = 0; i < 8; ++i)
                value |= uint64_t{letters[at + i]} << (8 * i);
            if (std::find(tags.begin(), tags.end(), value) != tags.end()) return at;
        }
        return TagSearch::kNotFound;
    };
    for (uint64_t from = 0; from <= letters.size(); ++from)
        RC_ASSERT(search.FindNext(letters, from) == plain(from));
}

TEST(RecordFrame, DecodesTagVersionAndPayloadSize) {
    const Bytes bytes = {0xc6, 0x1e, 0xfe, 0x2c, 0xcf, 0x57, 0x21, 0x98,  // tag
                         0xc8, 0x00, 0x00, 0x00,                          // version 200
                         0x10, 0x00, 0x00, 0x00};                         // payload size 16
    const kxbase::RecordFrame frame = kxbase::IOHeader::DecodeFrame(bytes);
    EXPECT_EQ(frame.tag, 0x982157cf2cfe1ec6ULL);
    EXPECT_EQ(frame.version, 200U);
    EXPECT_EQ(frame.payloadSize, 16U);
    EXPECT_THROW(kxbase::IOHeader::DecodeFrame(std::span(bytes).first(15)), kxbase::ByteRangeException);
}

}  // namespace
