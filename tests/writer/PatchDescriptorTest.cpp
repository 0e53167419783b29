// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "kxcodecs/SnappyChunkCodec.h"
#include "kxio/EmptyPatchDescriptor.h"
#include "kxio/EncodedPatchDescriptor.h"
#include "kxio/FlatPatchDescriptor.h"
#include "kxio/PatchProcessor.h"

namespace {

using namespace kxio;

struct Recorder : PatchProcessor {
    std::string calls;
    void Note(const char* kind, const PatchDescriptor* d, unsigned row, unsigned column) {
        calls += std::string(kind) + "(" + std::to_string(d->component) + "," + std::to_string(row) + "," +
                 std::to_string(column) + ")";
    }
    void ProcessEmpty(EmptyPatchDescriptor* d, unsigned row, unsigned column) override {
        Note("empty", d, row, column);
    }
    void ProcessFlat(FlatPatchDescriptor* d, unsigned row, unsigned column) override {
        Note("flat", d, row, column);
    }
    void ProcessEncoded(EncodedPatchDescriptor* d, unsigned row, unsigned column) override {
        Note("encoded", d, row, column);
    }
};

TEST(PatchDescriptor, EachKindReachesItsOwnOperation) {
    Recorder recorder;
    kxcodecs::SnappyChunkCodec codec;
    std::unique_ptr<PatchDescriptor> kinds[] = {
        std::make_unique<FlatPatchDescriptor>(kxbase::Range, 4, RowMajor, 1.0, &codec),
        std::make_unique<EncodedPatchDescriptor>(kxbase::Color, 3),
        std::make_unique<EmptyPatchDescriptor>(kxbase::Class, 4)};
    unsigned place = 1;
    for (const auto& kind : kinds) {
        kind->Process(&recorder, place, 10 * place);
        ++place;
    }
    EXPECT_EQ(recorder.calls, "flat(1,1,10)encoded(6,2,20)empty(18,3,30)");
}

TEST(PatchDescriptor, NullProcessorIsIgnored) {
    FlatPatchDescriptor flat;
    EncodedPatchDescriptor encoded;
    EmptyPatchDescriptor empty;
    EXPECT_NO_THROW(flat.Process(nullptr, 1, 2));
    EXPECT_NO_THROW(encoded.Process(nullptr, 1, 2));
    EXPECT_NO_THROW(empty.Process(nullptr, 1, 2));
}

TEST(PatchDescriptor, DefaultsAreZeroButForThoseThatCannotBe) {
    const FlatPatchDescriptor flat;
    EXPECT_EQ(flat.data, nullptr);
    EXPECT_EQ(flat.pixelLength, 0U);
    EXPECT_EQ(flat.size, 0U);
    EXPECT_EQ(flat.component, 0U);
    EXPECT_EQ(flat.orientation, 0U);
    EXPECT_EQ(flat.scale, 1.0);
    EXPECT_EQ(flat.codec, nullptr);

    const EncodedPatchDescriptor encoded;
    EXPECT_EQ(encoded.data, nullptr);
    EXPECT_EQ(encoded.pixelLength, 1U);
    EXPECT_EQ(encoded.size, 0U);
    EXPECT_EQ(encoded.component, 0U);
    EXPECT_EQ(encoded.min, 0.0F);
    EXPECT_EQ(encoded.max, 0.0F);

    const EmptyPatchDescriptor empty;
    EXPECT_EQ(empty.data, nullptr);
    EXPECT_EQ(empty.pixelLength, 1U);
    EXPECT_EQ(empty.size, 0U);
    EXPECT_EQ(empty.component, 0U);
    EXPECT_EQ(empty.min, 0.0F);
    EXPECT_EQ(empty.max, 0.0F);
}

TEST(PatchDescriptor, ConstructorsSetWhatTheyAreGiven) {
    kxcodecs::SnappyChunkCodec codec;
    const FlatPatchDescriptor flat(kxbase::Luminance16, 2, Transposed, 0.001, &codec);
    EXPECT_EQ(flat.component, kxbase::Luminance16);
    EXPECT_EQ(flat.pixelLength, 2U);
    EXPECT_EQ(flat.orientation, Transposed);
    EXPECT_EQ(flat.scale, 0.001);
    EXPECT_EQ(flat.codec, &codec);
    EXPECT_EQ(flat.data, nullptr);
    EXPECT_EQ(flat.size, 0U);

    const EncodedPatchDescriptor encoded(kxbase::Color, 3);
    EXPECT_EQ(encoded.component, kxbase::Color);
    EXPECT_EQ(encoded.pixelLength, 3U);
    EXPECT_EQ(encoded.size, 0U);

    const EmptyPatchDescriptor empty(kxbase::Segment, 8);
    EXPECT_EQ(empty.component, kxbase::Segment);
    EXPECT_EQ(empty.pixelLength, 8U);
}

TEST(PatchDescriptor, CopiesBorrowTheSameBytes) {
    unsigned char bytes[4] = {1, 2, 3, 4};
    FlatPatchDescriptor flat(kxbase::Range, 4, Transposed, 0.5, nullptr);
    flat.data = bytes;
    flat.size = 1;
    const FlatPatchDescriptor copied(flat);
    FlatPatchDescriptor assigned;
    assigned = flat;
    for (const FlatPatchDescriptor* d : {&copied, static_cast<const FlatPatchDescriptor*>(&assigned)}) {
        EXPECT_EQ(d->data, bytes);
        EXPECT_EQ(d->size, 1U);
        EXPECT_EQ(d->component, kxbase::Range);
        EXPECT_EQ(d->orientation, Transposed);
        EXPECT_EQ(d->scale, 0.5);
    }
    EncodedPatchDescriptor encoded(kxbase::Range, 4);
    encoded.min = 1;
    encoded.max = 2;
    EncodedPatchDescriptor other;
    other = encoded;
    EXPECT_EQ(EncodedPatchDescriptor(other).max, 2.0F);
    EmptyPatchDescriptor empty(kxbase::Range, 4);
    empty.min = 3;
    EmptyPatchDescriptor otherEmpty;
    otherEmpty = empty;
    EXPECT_EQ(EmptyPatchDescriptor(otherEmpty).min, 3.0F);
}

}  // namespace
