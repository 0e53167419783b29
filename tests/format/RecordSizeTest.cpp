// SPDX-License-Identifier: MIT
#include "format/RecordSize.h"

#include <gtest/gtest.h>

namespace {

TEST(RecordSize, WholeRecordFitsThirtyTwoBits) {
    EXPECT_EQ(kxio::CheckedPayloadSize(0, "x"), 0U);
    EXPECT_EQ(kxio::CheckedPayloadSize(0xffffffffULL - 16, "x"), 0xffffffefU);
    for (const uint64_t bytes : {0xffffffffULL - 15, 0xffffffffULL, 0x100000000ULL, ~0ULL}) {
        try {
            kxio::CheckedPayloadSize(bytes, "LookupTableHeader");
            FAIL() << bytes;
        } catch (const kxbase::KXWritingException& e) {
            EXPECT_STREQ(e.what(), "Record too large");
            EXPECT_EQ(e.Context().record, "LookupTableHeader");
        }
    }
}

}  // namespace
