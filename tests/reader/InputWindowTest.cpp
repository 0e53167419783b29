// SPDX-License-Identifier: MIT
// The stream through which a reader reads records.
#include <gtest/gtest.h>

#include "format/PendingEdit.h"
#include "kxbase/InMemoryStream.h"
#include "reader/PositionedInput.h"
#include "support/StreamMoves.h"

namespace {

using kxio::InputWindow;
using kxio::PositionedInput;

std::vector<unsigned char> Counted(size_t size) {
    std::vector<unsigned char> bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>(i * 31 + i / 256);
    return bytes;
}

TEST(InputWindow, MovesLikeAnyStreamWhateverItReadsAtOnce) {
    const std::vector<unsigned char> bytes = Counted(1000);
    kxbase::InMemoryStream stream(bytes);
    for (const uint64_t window : {0U, 1U, 7U, 64U, 999U, 1000U, 5000U}) {
        const PositionedInput input{nullptr, &stream, nullptr};
        InputWindow in(input, input.Size(), window);
        kxtest::ExpectMovesLikeAStream(in, bytes);
        EXPECT_EQ(in.GetName(), stream.GetName());
        in.Close();
        EXPECT_FALSE(in.IsOpen());
    }
}

TEST(InputWindow, AnEditThatWasPromisedIsSeenThroughIt) {
    const std::vector<unsigned char> bytes = Counted(1000);
    kxio::PendingEdit edit;
    edit.position = 900;  // the record of the edit begins there
    edit.target = 60;
    edit.bytes.assign(30, 0xee);
    std::vector<unsigned char> shown(bytes.begin(), bytes.begin() + 900);
    std::fill_n(shown.begin() + 60, 30, 0xee);
    kxbase::InMemoryStream stream(bytes);
    const PositionedInput input{nullptr, &stream, &edit};
    EXPECT_EQ(input.Size(), 900U);
    EXPECT_EQ(input.StoredSize(), 1000U);
    for (const uint64_t window : {0U, 16U, 4096U}) {
        InputWindow in(input, input.Size(), window);
        kxtest::ExpectMovesLikeAStream(in, shown);
    }
    unsigned char stored = 0;
    EXPECT_EQ(input.ReadStored(60, &stored, 1), 1U);
    EXPECT_EQ(stored, bytes[60]);
}

TEST(InputWindow, WithoutAnInputThereIsNothingToRead) {
    const PositionedInput none;
    EXPECT_EQ(none.Size(), 0U);
    unsigned char byte = 5;
    EXPECT_EQ(none.ReadAt(0, &byte, 1), 0U);
    InputWindow in(none, none.Size(), 64);
    EXPECT_FALSE(in.IsOpen());
    EXPECT_FALSE(in.HasDataLeft());
    EXPECT_EQ(in.Read(&byte, 1), 0U);
    EXPECT_EQ(byte, 5);
    EXPECT_EQ(in.GetName(), L"");
}

/// Refuses to be moved.
class StuckStream final : public kxbase::IInFileStream {
public:
    bool IsOpen() const override { return true; }
    bool Seek(uint64_t) override { return false; }
    bool SeekForward(uint64_t) override { return false; }
    bool SeekBackward(uint64_t) override { return false; }
    bool SeekEnd(uint64_t) override { return false; }
    uint64_t Tell() const override { return 0; }
    uint64_t Read(void*, uint64_t) override {
        ADD_FAILURE() << "read at a place that nobody asked for";
        return 0;
    }
    uint64_t GetLastReadCount() const override { return 0; }
    uint64_t GetSize() const override { return 100; }
    bool HasDataLeft() const override { return true; }
    void Close() override {}
};

TEST(InputWindow, AStreamThatCannotBeMovedIsNotRead) {
    StuckStream stream;
    const PositionedInput input{nullptr, &stream, nullptr};
    InputWindow in(input, input.Size(), 16);
    unsigned char byte = 0;
    EXPECT_EQ(in.Read(&byte, 1), 0U);
    EXPECT_EQ(in.Read(&byte, 50), 0U);
}

}  // namespace
