// SPDX-License-Identifier: MIT
// What verification says of the values in chunks, previews and limits, and of lists of hashes.
#include <gtest/gtest.h>

#include <cmath>

#include "VerifyTold.h"
#include "format/Hash64.h"
#include "kxio/IntegrityExtendedHeader.h"
#include "support/Hex.h"
#include "support/TinyScan.h"

namespace verify_texts {
namespace {

using kxtest::ByteList;
using kxtest::Bytes;
using kxtest::ScanFileBuilder;

template <class T>
Bytes ChunkOf(T value, uint32_t width = 4, uint32_t height = 3, float quality = 1.0F) {
    return kxtest::SnappyChunk(std::vector<T>(size_t{width} * height, value), width, height, quality);
}

/// One patch of 4 x 3 cells.
ScanFileBuilder OnePatch(uint32_t component, const Bytes& chunk) {
    ScanFileBuilder file(4, 3, 4, 3);
    file.properties.validPointCount = component == 1 ? 12 : 0;
    file.Chunk(component, 0, 0, chunk);
    return file;
}

std::string ToldOf(uint32_t component, const Bytes& chunk) {
    return Told(OnePatch(component, chunk).Build());
}

void ExpectSays(const std::string& told, const std::string& text) {
    EXPECT_NE(told.find(text), std::string::npos) << text << "\nwas not said, but\n" << told;
}
void ExpectDoesNotSay(const std::string& told, const std::string& text) {
    EXPECT_EQ(told.find(text), std::string::npos) << told;
}

TEST(VerifyPatchTexts, OfStepsThatAreNone) {
    for (const float step : {0.0F, -1.0F, INFINITY, std::nanf("")}) {
        Bytes chunk = ChunkOf(2.5F);
        PutF32(chunk, 20, step);
        ExpectSays(ToldOf(1, chunk), "error chunk: ");
    }
    Bytes chunk = ChunkOf(2.5F);
    PutF32(chunk, 20, INFINITY);
    ExpectSays(ToldOf(1, chunk), "step inf, must be above 0");
    ExpectDoesNotSay(ToldOf(1, ChunkOf(2.5F)), "chunk: ");
}

TEST(VerifyPatchTexts, OfElementsOfAnotherSize) {
    ExpectSays(ToldOf(1, ChunkOf(uint16_t{7})),
               "error chunk: elements of 2 bytes, where the component has 4");
    // Nothing but zeros is what stands for an empty patch.
    ExpectDoesNotSay(ToldOf(1, ChunkOf(uint16_t{0})), "elements of 2 bytes");
    // Of a component of unknown meaning nobody knows the size.
    ExpectDoesNotSay(ToldOf(10, ChunkOf(uint16_t{7})), "error");
}

TEST(VerifyPatchTexts, OfPatchesOfAnotherShape) {
    ExpectSays(ToldOf(1, ChunkOf(2.5F, 3, 4)),
               "warning chunk: 3 x 4 elements, the other way round than the patch");
    ExpectSays(ToldOf(1, ChunkOf(2.5F, 3, 3)), "warning chunk: 3 x 3 elements, where a patch has 4 x 3");
}

TEST(VerifyPatchTexts, OfAnEmptyChunkThatHoldsValues) {
    ScanFileBuilder file(8, 3, 4, 3);
    file.SharedChunk(4, {0, 1}, ChunkOf(uint8_t{0}));
    ExpectDoesNotSay(Told(file.Build()), "stands for empty patches");
    ScanFileBuilder other(8, 3, 4, 3);
    other.SharedChunk(4, {0, 1}, ChunkOf(uint8_t{9}));
    ExpectSays(Told(other.Build()), "error chunk: the chunk that stands for empty patches holds values");
}

TEST(VerifyPatchTexts, OfPreviews) {
    const auto with = [](const Bytes& preview) {
        return Told(OnePatch(1, ChunkOf(2.5F)).Preview(1, preview).Build());
    };
    ExpectDoesNotSay(with(ChunkOf(2.5F, 2, 1)), "error preview");
    ExpectSays(with(ChunkOf(uint16_t{9}, 2, 1)),
               "error preview: elements of 2 bytes, where the component has 4");
    ExpectSays(with(ChunkOf(2.0F, 2, 1)), "error preview");
    Bytes damaged = ChunkOf(2.5F, 2, 1);
    damaged[28] ^= 0x40;
    ExpectSays(with(damaged), "error preview: Patch cannot be decoded: ");
    // Also of a component that has no patches at all.
    ExpectSays(Told(OnePatch(1, ChunkOf(2.5F)).Preview(4, ChunkOf(uint16_t{9}, 2, 1)).Build()),
               "error preview: elements of 2 bytes, where the component has 1");
}

TEST(VerifyPatchTexts, OfPreviewsOfQuantisedValues) {
    // Stored in steps of a tenth: 1000.04 is 1000.0, and the preview may be either.
    const auto told = [](float preview) {
        return Told(OnePatch(1, ChunkOf(1000.04F, 4, 3, 10)).Preview(1, ChunkOf(preview, 2, 1)).Build());
    };
    for (const float value : {1000.0F, 1000.04F, std::nanf(""), INFINITY, 1e12F})
        ExpectDoesNotSay(told(value), "error preview");
    for (const float value : {1000.2F, -1000.0F})
        ExpectSays(told(value), "error preview");
    const auto wide = [](double preview) {
        return Told(OnePatch(8, ChunkOf(1000.04, 4, 3, 10)).Preview(8, ChunkOf(preview, 2, 1)).Build());
    };
    ExpectDoesNotSay(wide(1000.04), "error preview");
    ExpectSays(wide(1000.2), "error preview");
}

TEST(VerifyPatchTexts, OfLimitsOfQuantisedValues) {
    // A tenth is the step; 0.04 became 0, which is no return.
    const auto told = [](float stored, float minimum, uint64_t points) {
        std::vector<float> values(12, 1000.0F);
        values[0] = stored;
        ScanFileBuilder file(4, 3, 4, 3);
        file.properties.validPointCount = points;
        file.Chunk(1, 0, 0, kxtest::SnappyChunk(values, 4, 3, 10));
        file.Limits(minimum, 1000, {{minimum, 1000.0F}});
        return Told(file.Build());
    };
    ExpectDoesNotSay(told(0.04F, 0.04F, 12), "error");
    ExpectDoesNotSay(told(0.04F, 1000, 11), "error");
    ExpectSays(told(0.04F, 1000, 12), "error ScanHeader valid point count: 12, but the patches hold 11");
    ExpectSays(told(500, 600, 12), "error MinMaxHeader minimum: ");
    ExpectDoesNotSay(told(500, 500.05F, 12), "error");  // half a step
}

TEST(VerifyPatchTexts, ListsWithoutAGridAreAsLongAsTheyAre) {
    ScanFileBuilder file(2, 1, 1, 1);
    file.properties.validPointCount = 5;
    file.Chunk(1, 0, 0, ChunkOf(2.5F, 3, 1)).Chunk(1, 0, 1, ChunkOf(1.5F, 2, 1));
    ExpectDoesNotSay(Told(file.Build()), "error");
    ExpectDoesNotSay(Told(file.Build()), "elements");
    file.properties.validPointCount = 6;
    ExpectSays(Told(file.Build()), "error ScanHeader valid point count: 6, but the patches hold 5");
}

TEST(VerifyPatchTexts, EveryVersionOfTheScanHeaderIsKnown) {
    for (const char* version : {"200", "210", "220", "230", "240", "250", "260", "270"}) {
        ScanFileBuilder file = OnePatch(1, ChunkOf(2.5F));
        file.scanHeader = kxtest::GoldenHex(std::string("records/scan-") + version + ".hex");
        ExpectDoesNotSay(Told(file.Build()), "is not known");
    }
    ScanFileBuilder file = OnePatch(1, ChunkOf(2.5F));
    file.scanHeader = kxtest::GoldenHex("records/scan-275.hex");
    ExpectSays(Told(file.Build()), "warning ScanHeader version: version 275 is not known and read as 270");
}

TEST(VerifyPatchTexts, OfScanNumbersThatAreNone) {
    const auto told = [](auto change) {
        ScanFileBuilder file = OnePatch(1, ChunkOf(2.5F));
        change(file.properties);
        return Told(file.Build());
    };
    for (const float distance : {-1.0F, INFINITY}) {
        ExpectSays(told([&](auto& p) { p.spatialSamplingDistance = distance; }),
                   "warning ScanHeader spatial sampling distance: ");
    }
    for (const bool first : {true, false}) {
        ExpectSays(told([&](auto& p) { (first ? p.tilt.angles.first : p.tilt.angles.second) = INFINITY; }),
                   "warning ScanHeader tilt: holds values that are no angles");
    }
}

/// The file, and behind it a record that lists these bytes of it.
Bytes WithHashes(const Bytes& file, const std::vector<kxio::IntegritySpan>& spans) {
    kxio::IntegrityExtendedHeader record({}, spans, file.size());
    return ByteList().Raw(file).Raw(kxtest::Written(record));
}

TEST(VerifyPatchTexts, OfListsOfHashes) {
    const Bytes file = OnePatch(1, ChunkOf(2.5F)).Message("hi").Build();
    const auto span = [&](uint64_t position, uint64_t count) {
        return kxio::IntegritySpan{position, count, kxio::Hash64(std::span(file).subspan(position, count))};
    };
    ExpectDoesNotSay(Told(WithHashes(file, {span(0, 92), span(92, 32)})), "error");
    kxio::IntegritySpan wrong = span(92, 32);
    wrong.hash ^= 1;
    ExpectSays(Told(WithHashes(file, {span(0, 92), wrong})), "32 bytes do not match their hash");
    // Claims beyond the end of the file.
    kxio::IntegritySpan beyond = span(92, 32);
    beyond.position = uint64_t{1} << 40;
    ExpectSays(Told(WithHashes(file, {beyond})), "32 bytes are listed there, 0 are left of the file");
    std::vector<kxio::IntegritySpan> many;
    for (uint64_t i = 0; i < 5; ++i)
        many.push_back(span(i, file.size() - i));
    ExpectSays(Told(WithHashes(file, many)), "it lists more bytes than the file has");
    // One bit of the list itself.
    Bytes damaged = WithHashes(file, {span(0, 92)});
    damaged[file.size() + 60] ^= 1;
    ExpectSays(Told(damaged), "the record is damaged or not where it is said to be");
}

}  // namespace
}  // namespace verify_texts
