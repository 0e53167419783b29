// SPDX-License-Identifier: MIT
// A file as it will be once an interrupted edit is cleared up.
#include "services/SettledInput.h"

#include <gtest/gtest.h>

#include "format/PendingEdit.h"
#include "kxbase/InMemoryStream.h"
#include "support/InterruptedStream.h"
#include "support/StreamMoves.h"
#include "support/TinyScan.h"

namespace {

using kxtest::Bytes;

Bytes Behind(Bytes file, const Bytes& more) {
    file.insert(file.end(), more.begin(), more.end());
    return file;
}

TEST(SettledInput, AWholeFileLooksAsItIs) {
    const Bytes whole = kxtest::TinyScan().Build();
    kxbase::InMemoryStream stream(whole);
    kxio::SettledInput in(stream);
    kxtest::ExpectMovesLikeAStream(in, whole);
    EXPECT_FALSE(in.IsPromised());
    EXPECT_EQ(in.HiddenFrom(), std::nullopt);
    EXPECT_EQ(in.GetName(), stream.GetName());
    in.Close();
    EXPECT_FALSE(in.IsOpen());
}

TEST(SettledInput, APromisedEditIsShownAsMadeAndItsRecordIsNot) {
    const Bytes whole = kxtest::TinyScan().Build();
    Bytes edited = whole;
    std::fill_n(edited.begin() + 50, 20, 0x77);
    const Bytes promise = kxio::EncodePendingEdit({whole.size(), 50, Bytes(20, 0x77)});
    // Nothing of it is done yet, half, and all.
    for (const size_t done : {size_t{0}, size_t{10}, size_t{20}}) {
        Bytes stored = whole;
        std::fill_n(stored.begin() + 50, done, 0x77);
        kxbase::InMemoryStream stream(Behind(stored, promise));
        kxio::SettledInput in(stream);
        kxtest::ExpectMovesLikeAStream(in, edited);
        EXPECT_TRUE(in.IsPromised());
        EXPECT_EQ(in.HiddenFrom(), whole.size());
    }
}

TEST(SettledInput, ARecordThatWasNotFinishedIsNotShown) {
    const Bytes whole = kxtest::TinyScan().Build();
    // The last record of an append lacks its tag, which is written last.
    Bytes record = kxtest::ExtendedRecord(0xac14e2e7714a591eULL, kxtest::ByteList().Text("half"));
    std::fill_n(record.begin(), 8, 0);
    kxbase::InMemoryStream stream(Behind(whole, record));
    kxio::SettledInput in(stream);
    EXPECT_FALSE(in.IsPromised());
    EXPECT_EQ(in.HiddenFrom(), whole.size());
    kxtest::ExpectMovesLikeAStream(in, whole);
}

TEST(SettledInput, OfAFileThatIsNoneOfOursNothingIsHidden) {
    Bytes old = kxtest::TinyScan().Build();
    old[8] = 209;  // an older version of the main header, of which nothing is known
    for (const Bytes& bytes : {Bytes(300, 0x5a), old, Bytes(old.begin(), old.begin() + 40)}) {
        kxbase::InMemoryStream stream(bytes);
        kxio::SettledInput in(stream);
        EXPECT_EQ(in.HiddenFrom(), std::nullopt);
        kxtest::ExpectMovesLikeAStream(in, bytes);
    }
}

TEST(SettledInput, AStreamThatOthersMoveMeanwhileIsPutRight) {
    const Bytes whole = kxtest::TinyScan().Build();
    kxtest::InterruptedStream stream(whole);
    kxio::SettledInput in(stream);
    in.Seek(20);
    stream.Seek(3);
    unsigned char byte = 0;
    EXPECT_EQ(in.Read(&byte, 1), 1U);
    EXPECT_EQ(byte, whole[20]);
}

}  // namespace
