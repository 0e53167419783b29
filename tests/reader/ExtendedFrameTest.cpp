// SPDX-License-Identifier: MIT
// What an extended record is, told by its start alone.
#include <gtest/gtest.h>

#include "kxbase/ByteWriter.h"
#include "kxbase/InMemoryStream.h"
#include "reader/ExtendedFrame.h"
#include "support/CountingStream.h"

namespace {

using kxio::ExtendedHeader;
using Bytes = std::vector<unsigned char>;

constexpr uint64_t kType = 0x1122334455667788;
constexpr uint64_t kPosition = 5;

/// A record of 1000 bytes of data and two that nobody knows behind them, in the middle of other bytes.
Bytes RecordInside() {
    constexpr uint32_t kPayload = ExtendedHeader::FixedSize + 1002;
    Bytes bytes(kPosition + 16 + kPayload + 3);
    kxbase::ByteWriter out(std::span<unsigned char>(bytes).subspan(kPosition));
    out.U64(ExtendedHeader::Magic);
    out.U32(100);
    out.U32(kPayload);
    out.U64(0);
    out.U64(kType);
    out.U32(1000);
    return bytes;
}

TEST(ExtendedFrame, TellsKindAndSizeWithoutReadingTheData) {
    kxtest::CountingStream stream(RecordInside());
    const auto start = kxio::PeekExtended(stream, kPosition);
    ASSERT_TRUE(start);
    EXPECT_EQ(start->position, kPosition);
    EXPECT_EQ(start->type, kType);
    EXPECT_EQ(start->recordBytes, 16U + 20 + 1002);
    EXPECT_EQ(start->End(), kPosition + start->recordBytes);
    EXPECT_EQ(stream.bytesRead, 36U);
}

// Each byte of the start changed, and each length of the file.
TEST(ExtendedFrame, LiesExactlyWhereARecordCanBeRead) {
    const Bytes whole = RecordInside();
    const auto expectAgreement = [](const Bytes& bytes, const char* what, size_t at) {
        kxbase::InMemoryStream stream(bytes);
        const auto start = kxio::PeekExtended(stream, kPosition);
        ExtendedHeader record;
        stream.Seek(kPosition);
        const uint64_t read = record.Read(&stream);
        EXPECT_EQ(start.has_value(), read != 0) << what << ' ' << at;
        if (!start || read == 0) return;
        EXPECT_EQ(start->recordBytes, read) << what << ' ' << at;
        EXPECT_EQ(start->type, record.GetType()) << what << ' ' << at;
    };
    for (size_t at = 0; at < kPosition + 36; ++at) {
        for (const unsigned change : {0x01U, 0x80U, 0xffU}) {
            Bytes bytes = whole;
            bytes[at] = static_cast<unsigned char>(bytes[at] ^ change);
            expectAgreement(bytes, "byte", at);
        }
    }
    for (size_t length = 0; length <= whole.size(); ++length)
        expectAgreement({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)}, "length",
                        length);
}

}  // namespace
