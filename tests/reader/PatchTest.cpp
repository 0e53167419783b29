// SPDX-License-Identifier: MIT
// Stored chunks and their decoding through the reader's own members.
#include <gtest/gtest.h>

#include <cmath>

#include "SampleScans.h"
#include "kxcodecs/JPEGChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"

namespace {

using namespace kxtest;
using kxbase::Range;

// One patch of 4 x 3 floats, or what stands for it.
ScanFileBuilder OnePatch(const Bytes& chunk, uint32_t component = 1) {
    ScanFileBuilder file(4, 3, 4, 3);
    file.Chunk(component, 0, 0, chunk);
    return file;
}

std::string DecodeFailure(const Bytes& chunk) {
    MemoryScan scan(OnePatch(chunk).Build());
    Bytes out(1 << 20);
    return Failure([&] { scan.reader.GetPatch(0, 0, out.data(), out.size(), Range); });
}

TEST(PatchCompressed, GivesTheStoredBytesByPositionAndByIndex) {
    ScanFileBuilder file(10, 7, 4, 3);
    std::vector<Bytes> chunks;
    for (uint32_t index = 0; index < 9; ++index) {
        chunks.push_back(SnappyChunk(std::vector<float>(12, static_cast<float>(index)), 4, 3));
        file.Chunk(1, index / 3, index % 3, chunks.back());
    }
    MemoryScan scan(file.Build());
    for (uint32_t index = 0; index < 9; ++index) {
        Bytes byPosition;
        Bytes byIndex;
        Bytes inner;
        scan.reader.GetPatchCompressed(index / 3, index % 3, byPosition, Range);
        scan.reader.GetPatchCompressed(index, byIndex, Range);
        scan.reader.GetCompressedChunk(index, inner, Range);
        EXPECT_EQ(byPosition, chunks[index]);
        EXPECT_EQ(byIndex, chunks[index]);
        EXPECT_EQ(inner, chunks[index]);
    }
}

TEST(PatchCompressed, IndexBehindTheLastPatchIsOutsideBounds) {
    // 10 x 20 patches.
    ScanFileBuilder file(10000, 5000, 512, 512);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(4, 1), 2, 2));
    file.Chunk(1, 9, 19, SnappyChunk(std::vector<float>(4, 2), 2, 2));
    MemoryScan scan(file.Build());
    Bytes out{1};
    EXPECT_EQ(Failure([&] { scan.reader.GetPatchCompressed(200, out, Range); }),
              "KXUnreadablePatchException: Index 200 is outside bounds");
    EXPECT_TRUE(out.empty());
    scan.reader.GetPatchCompressed(199, out, Range);
    EXPECT_EQ(out, SnappyChunk(std::vector<float>(4, 2), 2, 2));
}

TEST(PatchCompressed, OnlyTheLinearIndexIsChecked) {
    MemoryScan scan(SmallScan().Build());
    Bytes aliased;
    Bytes second;
    scan.reader.GetPatchCompressed(0, 3, aliased, Range);
    scan.reader.GetPatchCompressed(1, 0, second, Range);
    EXPECT_EQ(aliased, second);
}

TEST(PatchCompressed, HugeRowsDoNotWrapIntoTheGrid) {
    MemoryScan scan(SmallScan().Build());
    Bytes out{1};
    // 3 patches per row: 3 x 0x80000000 and 3 x 0xffffffff + 0xffffffff.
    EXPECT_EQ(Failure([&] { scan.reader.GetPatchCompressed(0x80000000U, 0, out, Range); }),
              "KXUnreadablePatchException: Index 6442450944 is outside bounds");
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(Failure([&] { scan.reader.GetPatchCompressed(0xffffffffU, 0xffffffffU, out, Range); }),
              "KXUnreadablePatchException: Index 17179869180 is outside bounds");
}

TEST(PatchCompressed, AbsentComponentIsNotInTheDatabase) {
    MemoryScan scan(SmallScan().Build());
    Bytes out{1};
    float values[12];
    const std::string text = "KXUnreadablePatchException: Patch not in database";
    EXPECT_EQ(Failure([&] { scan.reader.GetPatchCompressed(0, 0, out, kxbase::Class); }), text);
    EXPECT_EQ(Failure([&] { scan.reader.GetPatchCompressed(0, out, kxbase::Class); }), text);
    EXPECT_EQ(Failure([&] { scan.reader.GetPatch(0, 0, values, sizeof values, kxbase::Class); }), text);
    EXPECT_EQ(Failure([&] { scan.reader.GetUncompressedPatchByteCount(0, 0, kxbase::Class); }), text);
    EXPECT_EQ(Failure([&] { scan.reader.GetCompressedChunk(0, out, kxbase::Class); }),
              "KXUnreadablePatchException: Patch not in file");
    EXPECT_TRUE(out.empty());
}

TEST(PatchCompressed, PatchWithoutEntryIsNotInTheFile) {
    for (const auto& [position, bytes] : {std::pair(0U, 0U), std::pair(0U, 40U), std::pair(92U, 0U)}) {
        ScanFileBuilder file(8, 3, 4, 3);
        file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 1), 4, 3));
        file.Entry0(1, 1, position, bytes);
        MemoryScan scan(file.Build());
        Bytes out{1};
        const auto read = [&] { scan.reader.GetPatchCompressed(0, 1, out, Range); };
        EXPECT_EQ(Failure(read), "KXUnreadablePatchException: Patch not in file");
        EXPECT_TRUE(out.empty());
        EXPECT_EQ(FailureContext(read).record, "patch 1 (row 0, column 1) of component Range");
    }
}

TEST(PatchCompressed, TableShorterThanTheGridHasNoLaterPatches) {
    ScanFileBuilder file(4, 3, 4, 3);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 1), 4, 3));
    file.properties.grid.columns = 8;  // two patches now, one entry
    MemoryScan scan(file.Build());
    Bytes out;
    EXPECT_EQ(Failure([&] { scan.reader.GetPatchCompressed(0, 1, out, Range); }),
              "KXUnreadablePatchException: Patch not in file");
}

TEST(PatchCompressed, ChunkBeyondTheEndCannotBeRead) {
    const Bytes whole = SmallScan().Build();
    for (const auto& [position, bytes] :
         {std::pair(uint64_t{whole.size()} - 3, 40U), std::pair(uint64_t{92}, 0xffffffffU),
          std::pair(~uint64_t{0}, 1U), std::pair(uint64_t{1} << 62, 100U)}) {
        ScanFileBuilder file(8, 3, 4, 3);
        file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 1), 4, 3));
        file.Entry0(1, 1, position, bytes);
        MemoryScan scan(file.Build());
        Bytes out{1};
        const auto read = [&] { scan.reader.GetPatchCompressed(0, 1, out, Range); };
        EXPECT_EQ(Failure(read), "KXUnreadablePatchException: Cannot read file") << position;
        EXPECT_TRUE(out.empty());
        EXPECT_EQ(FailureContext(read).offset, position);
    }
}

TEST(PatchCompressed, ReaderWithoutAStreamCannotRead) {
    kxbase::InMemoryStream stream(SmallScan().Build());
    OpenReader reader(&stream);
    stream.Close();
    Bytes out;
    EXPECT_EQ(Failure([&] { reader.GetPatchCompressed(0, 0, out, Range); }),
              "KXUnreadablePatchException: Cannot read file");
}

TEST(Patch, DecodesEveryCodec) {
    const std::vector<float> values = PatchValues<float>(OnePatch({}).properties.grid, 0, 0, RangeAt);
    for (const Bytes& chunk :
         {SnappyChunk(values, 4, 3), EncodedChunk(kxcodecs::ZLibChunkCodec(), values, 4, 3)}) {
        MemoryScan scan(OnePatch(chunk).Build());
        std::vector<float> out(12);
        EXPECT_EQ(scan.reader.GetPatch(0, 0, out.data(), 48, Range), 12U);
        EXPECT_EQ(out, values);
        std::fill(out.begin(), out.end(), 0.0F);
        EXPECT_EQ(scan.reader.GetPatch(0, out.data(), 48, Range), 12U);
        EXPECT_EQ(out, values);
        EXPECT_EQ(scan.reader.GetUncompressedPatchByteCount(0, 0, Range), 48U);
    }
    const std::vector<kxio::Rgb8> grey(64, kxio::Rgb8{90, 90, 90});
    ScanFileBuilder file(8, 8, 8, 8);
    file.Chunk(6, 0, 0, EncodedChunk(kxcodecs::JPEGChunkCodec(), grey, 8, 8));
    MemoryScan scan(file.Build());
    std::vector<kxio::Rgb8> out(64);
    EXPECT_EQ(scan.reader.GetPatch(0, 0, out.data(), 192, kxbase::Color), 64U);
    EXPECT_NEAR(out[30].green, 90, 2);
}

TEST(Patch, BytesSpelledOutDecode) {
    // Four bytes 1, 2, 3, 4 of component 4 as a Snappy block: length 4, one literal of 4.
    const Bytes chunk = Hex(R"(
        4b 58 53 4e 41 50 50 59   # codec identifier
        02 00 00 00 02 00 00 00   # 2 x 2 elements
        04 00 00 00               # 4 bytes decoded
        00 00 80 3f               # step 1.0
        04 00 00 00               # 4 bytes uncompressed
        04 0c 01 02 03 04)");
    ScanFileBuilder file(2, 2, 2, 2);
    file.Chunk(4, 0, 0, chunk);
    MemoryScan scan(file.Build());
    uint8_t out[4] = {};
    EXPECT_EQ(scan.reader.GetPatch(0, 0, out, 4, kxbase::Luminance8), 4U);
    EXPECT_EQ(Bytes(out, out + 4), Hex("01 02 03 04"));
}

TEST(Patch, QuantisedIntegersBecomeFloats) {
    // Resolution 0.001: step field 1000, the integer 1500 stands for 1.5.
    const Bytes chunk = LiteralChunk(ByteList().U32(1500).U32(0xfffffa24U).U32(0), 3, 1, 1000.0F);
    ScanFileBuilder file(3, 1, 3, 1);
    file.Chunk(1, 0, 0, chunk);
    MemoryScan scan(file.Build());
    float out[3] = {};
    EXPECT_EQ(scan.reader.GetPatch(0, 0, out, 12, Range), 3U);
    EXPECT_NEAR(out[0], 1.5F, 1.5e-6);
    EXPECT_NEAR(out[1], -1.5F, 1.5e-6);
    EXPECT_EQ(out[2], 0.0F);
    EXPECT_NEAR(scan.reader.GetScanInformation().componentValue[0], 0.001, 1e-9);
}

TEST(Patch, QuantisedLongIntegersBecomeDoubles) {
    const Bytes chunk = LiteralChunk(ByteList().U64(uint64_t{1} << 40).U64(~uint64_t{0}), 2, 1, 4.0F);
    ScanFileBuilder file(2, 1, 2, 1);
    file.Chunk(8, 0, 0, chunk);
    MemoryScan scan(file.Build());
    double out[2] = {};
    EXPECT_EQ(scan.reader.GetPatch(0, 0, out, 16, kxbase::Component8), 2U);
    EXPECT_EQ(out[0], std::ldexp(1.0, 38));
    EXPECT_EQ(out[1], -0.25);
}

TEST(Patch, OtherElementSizesAreNotDequantised) {
    const Bytes chunk = LiteralChunk(ByteList().U16(100).U16(200), 2, 1, 10.0F);
    ScanFileBuilder file(2, 1, 2, 1);
    file.Chunk(5, 0, 0, chunk);
    MemoryScan scan(file.Build());
    uint16_t out[2] = {};
    EXPECT_EQ(scan.reader.GetPatch(0, 0, out, 4, kxbase::Luminance16), 2U);
    EXPECT_EQ(out[0], 100);
    EXPECT_EQ(out[1], 200);
}

TEST(Patch, StepZeroGivesInfinitiesAndNoCrash) {
    const Bytes chunk = LiteralChunk(ByteList().U32(1).U32(0), 2, 1, 0.0F);
    ScanFileBuilder file(2, 1, 2, 1);
    file.Chunk(1, 0, 0, chunk);
    MemoryScan scan(file.Build());
    float out[2] = {};
    scan.reader.GetPatch(0, 0, out, 8, Range);
    EXPECT_TRUE(std::isinf(out[0]));
    EXPECT_TRUE(std::isnan(out[1]));
    EXPECT_TRUE(std::isinf(scan.reader.GetScanInformation().componentValue[0]));
}

TEST(Patch, SmallerPayloadIsCopiedInWholeElements) {
    // A foreign chunk: three floats decoded, its payload unpacks to ten bytes.
    Bytes chunk = ChunkHeader(kSnappyCodec, 3, 1, 12, 1.0F, 10);
    const Bytes payload = ByteList().U8(10).U8(9 << 2).F32(1).F32(2).U16(0x7777);
    chunk.insert(chunk.end(), payload.begin(), payload.end());
    ScanFileBuilder file(3, 1, 3, 1);
    file.Chunk(1, 0, 0, chunk);
    MemoryScan scan(file.Build());
    float out[3] = {9, 9, 9};
    EXPECT_EQ(scan.reader.GetPatch(0, 0, out, 12, Range), 3U);
    EXPECT_EQ(out[0], 1.0F);
    EXPECT_EQ(out[1], 2.0F);
    EXPECT_EQ(out[2], 9.0F);
}

TEST(Patch, HeadersThatDoNotFitCannotBeDecoded) {
    const std::string text = "KXUnreadablePatchException: Patch cannot be decoded";
    const auto with = [](uint32_t width, uint32_t height, uint32_t decoded, uint32_t uncompressed) {
        Bytes chunk = LiteralChunk(Bytes(48, 1), 4, 3);
        const Bytes header = ChunkHeader(kSnappyCodec, width, height, decoded, 1.0F, uncompressed);
        std::copy(header.begin(), header.end(), chunk.begin());
        return chunk;
    };
    EXPECT_EQ(DecodeFailure(with(4, 3, 48, 48)), "nothing");
    EXPECT_EQ(DecodeFailure(with(0, 3, 48, 48)), text);
    EXPECT_EQ(DecodeFailure(with(4, 0, 48, 48)), text);
    EXPECT_EQ(DecodeFailure(with(0, 0, 0, 0)), text);
    EXPECT_EQ(DecodeFailure(with(4, 3, 47, 47)), text);
    EXPECT_EQ(DecodeFailure(with(4, 3, 0, 48)), text);
    EXPECT_EQ(DecodeFailure(with(7, 7, 48, 48)), text);
    EXPECT_EQ(DecodeFailure(with(0xffffffffU, 0xffffffffU, 48, 48)), text);
    EXPECT_EQ(DecodeFailure(with(4, 3, 48, 47)), text);
}

TEST(Patch, ChunkWithoutAWholeHeaderCannotBeDecoded) {
    for (const size_t size : {size_t{1}, size_t{27}})
        EXPECT_EQ(DecodeFailure(Bytes(size, 1)), "KXUnreadablePatchException: Patch cannot be decoded");
}

TEST(Patch, DamagedPayloadCannotBeDecoded) {
    Bytes chunk = LiteralChunk(Bytes(48, 1), 4, 3);
    chunk.resize(chunk.size() - 1);
    MemoryScan scan(OnePatch(chunk).Build());
    Bytes out(48, 9);
    const auto read = [&] { scan.reader.GetPatch(0, 0, out.data(), 48, Range); };
    EXPECT_EQ(Failure(read), "KXUnreadablePatchException: Patch cannot be decoded");
    EXPECT_EQ(out, Bytes(48, 9)) << "the caller's memory is untouched";
    const kxbase::ErrorContext context = FailureContext(read);
    EXPECT_EQ(context.record, "patch 0 (row 0, column 0) of component Range");
    EXPECT_EQ(context.offset, 92U + 32U);
    EXPECT_NE(context.detail.find("Snappy, 4 x 3 elements, 48 bytes decoded"), std::string::npos)
        << context.detail;
}

TEST(Patch, UnknownCodecBehindTheFirstChunkCannotBeDecoded) {
    ScanFileBuilder file(8, 3, 4, 3);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 1), 4, 3));
    file.Chunk(1, 0, 1, ByteList().Raw(ChunkHeader(77, 4, 3, 48, 1.0F, 48)).Fill(48, 0));
    MemoryScan scan(file.Build());
    Bytes out(48);
    EXPECT_EQ(Failure([&] { scan.reader.GetPatch(0, 1, out.data(), 48, Range); }),
              "KXUnreadablePatchException: Patch cannot be decoded");
}

TEST(Patch, ClaimOfFourGigabytesInAFewBytesCannotBeDecoded) {
    for (const uint64_t codec : {kSnappyCodec, kZLibCodec, uint64_t{0x00004745504a584bULL}}) {
        const Bytes chunk =
            ByteList().Raw(ChunkHeader(codec, 32768, 32767, 4294836224U, 1.0F, 4294836224U)).Fill(10, 0x55);
        EXPECT_EQ(DecodeFailure(chunk), "KXUnreadablePatchException: Patch cannot be decoded");
    }
}

TEST(Patch, ClaimBeyondThePatchesOwnSizeCannotBeDecoded) {
    // The payload would hold it: 769 zeros in a patch of 12 cells, that is more than 64 bytes a cell.
    EXPECT_EQ(DecodeFailure(EncodedChunk(kxcodecs::ZLibChunkCodec(), Bytes(769, 0), 769, 1)),
              "KXUnreadablePatchException: Patch cannot be decoded");
    EXPECT_EQ(DecodeFailure(EncodedChunk(kxcodecs::ZLibChunkCodec(), Bytes(768, 0), 768, 1)), "nothing");
}

}  // namespace
