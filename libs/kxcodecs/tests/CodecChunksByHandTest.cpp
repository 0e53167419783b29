// SPDX-License-Identifier: MIT
// Whole chunks put together byte by byte, so that encoder and decoder cannot share a mistake.
#include <gtest/gtest.h>

#include "TestCodecs.h"

namespace kxcodecs::test {
namespace {

// Header of 3 x 2 elements of one byte.
Bytes HeaderOf3x2(const Bytes& identifier) {
    return identifier + Bytes{
                            0x03, 0x00, 0x00, 0x00,  // width 3
                            0x02, 0x00, 0x00, 0x00,  // height 2
                            0x06, 0x00, 0x00, 0x00,  // decoded bytes 6
                            0x00, 0x00, 0x80, 0x3F,  // step 1.0
                            0x06, 0x00, 0x00, 0x00,  // uncompressed bytes 6
                        };
}

const Bytes kSnappyIdentifier = {'K', 'X', 'S', 'N', 'A', 'P', 'P', 'Y'};
const Bytes kZLibIdentifier = {'K', 'X', 'Z', 'L', 'I', 'B', 0, 0};
const Bytes kJPEGIdentifier = {'K', 'X', 'J', 'P', 'E', 'G', 0, 0};
const Bytes kSixBytes = {10, 20, 30, 40, 50, 60};

TEST(SnappyChunkByHand, LiteralBlock) {
    const Bytes chunk = HeaderOf3x2(kSnappyIdentifier) + Bytes{0x06,  // the block unpacks to 6 bytes
                                                               0x14,  // literal of 5 + 1 bytes
                                                               10,   20, 30, 40, 50, 60};
    Bytes out;
    ASSERT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
    EXPECT_EQ(out, kSixBytes);
    // Six different bytes leave the encoder no choice.
    EXPECT_EQ(EncodeWith(SnappyChunkCodec(), kSixBytes, 3, 2), chunk);
}

TEST(SnappyChunkByHand, CopyReachesBackIntoTheOutput) {
    const Bytes chunk =
        HeaderOf3x2(kSnappyIdentifier) + Bytes{0x06,               // 6 bytes
                                               0x04, 7,    9,      // literal of 1 + 1 bytes
                                               0x0E, 0x02, 0x00};  // copy 3 + 1 bytes from 2 back
    Bytes out;
    ASSERT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
    EXPECT_EQ(out, (Bytes{7, 9, 7, 9, 7, 9}));
}

TEST(ZLibChunkByHand, StoredBlock) {
    const Bytes chunk = HeaderOf3x2(kZLibIdentifier) +
                        Bytes{0x78, 0x01,              // deflate, 32 KiB window, fastest; 0x7801 is 31 x 991
                              0x01,                    // last block, stored
                              0x06, 0x00, 0xF9, 0xFF,  // 6 bytes, and the complement
                              10,   20,   30,   40,   50,
                              60,   0x02, 0x36, 0x00, 0xD3};  // Adler-32, big-endian: sums 211 and 566
    Bytes out;
    ASSERT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
    EXPECT_EQ(out, kSixBytes);

    ZLibChunkCodec stored;
    stored.SetCompressionLevel(0);
    EXPECT_EQ(EncodeWith(stored, kSixBytes, 3, 2), chunk);
}

TEST(ZLibChunkByHand, FixedCodes) {
    // Bits in the order they are packed, lowest of each byte first:
    //   1 last block; 10 fixed codes; 01110001 the letter A; 0000011 length 5; 00000 distance 1; 0000000 end
    const Bytes chunk = HeaderOf3x2(kZLibIdentifier) +
                        Bytes{0x78, 0x9C,               // deflate, 32 KiB window, default; 0x789C is 31 x 996
                              0x73, 0x04, 0x03, 0x00,   // the bits above
                              0x05, 0x5B, 0x01, 0x87};  // Adler-32: sums 391 and 1371
    Bytes out;
    ASSERT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
    EXPECT_EQ(out, (Bytes{'A', 'A', 'A', 'A', 'A', 'A'}));

    Bytes wrongChecksum = chunk;
    wrongChecksum.back() ^= 1;
    EXPECT_EQ(Decode(wrongChecksum, out), DecodeStatus::DamagedPayload);
    EXPECT_TRUE(out.empty());
}

TEST(ZLibChunkByHand, FourByteElementsWithAStepAreIntegers) {
    const Bytes chunk =
        kZLibIdentifier + Bytes{
                              0x01, 0x00, 0x00, 0x00,                    // width 1
                              0x01, 0x00, 0x00, 0x00,                    // height 1
                              0x04, 0x00, 0x00, 0x00,                    // decoded bytes 4
                              0x00, 0x00, 0x7A, 0x44,                    // step 1000.0
                              0x04, 0x00, 0x00, 0x00,                    // uncompressed bytes 4
                              0x78, 0x01, 0x01, 0x04, 0x00, 0xFB, 0xFF,  // zlib, last block stored, 4 bytes
                              0xDC, 0x05, 0x00, 0x00,                    // 1500
                              0x03, 0x83, 0x00, 0xE2,                    // Adler-32: sums 226 and 899
                          };
    ChunkHeaderInfo header;
    Bytes out;
    ASSERT_EQ(QKXChunkCodec::DecodeChunk(chunk, header, out), DecodeStatus::Decoded);
    EXPECT_EQ(ValuesOf<int32_t>(out), (std::vector<int32_t>{1500}));
    Dequantise(out, header.ElementBytes(), header.step);
    EXPECT_NEAR(ValuesOf<float>(out)[0], 1.5, 1.5e-6);

    ZLibChunkCodec stored;
    stored.SetCompressionLevel(0);
    EXPECT_EQ(EncodeWith(stored, BytesOf(std::vector<float>{1.5F}), 1, 1, 1000.0F), chunk);
}

// One grey block of 8 x 8: its mean is raised by one quantisation step of 16, that is by 16 / 8 = 2 shades.
TEST(JPEGChunkByHand, OneGreyBlock) {
    const Bytes header = kJPEGIdentifier + Bytes{
                                               0x08, 0x00, 0x00, 0x00,  // width 8
                                               0x08, 0x00, 0x00, 0x00,  // height 8
                                               0x40, 0x00, 0x00, 0x00,  // decoded bytes 64
                                               0x00, 0x00, 0x80, 0x3F,  // step 1.0
                                               0x40, 0x00, 0x00, 0x00,  // uncompressed bytes 64
                                           };
    const Bytes image =
        Bytes{0xFF, 0xD8} +                    // start of image
        Bytes{0xFF, 0xDB, 0x00, 0x43, 0x00} +  // quantisation table 0
        Bytes(64, 16) +                        // all steps 16
        Bytes{0xFF, 0xC0, 0x00, 0x0B, 0x08,    // frame: baseline, 8 bits
              0x00, 0x08, 0x00, 0x08, 0x01,    // 8 x 8, one component
              0x01, 0x11, 0x00} +              // number 1, sampling 1 x 1, table 0
        Bytes{0xFF, 0xC4, 0x00, 0x14, 0x00,    // codes of the means:
              1,    0,    0,    0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01} +  // "0": one bit follows
        Bytes{0xFF, 0xC4, 0x00, 0x14, 0x10,                                           // codes of the rest:
              1,    0,    0,    0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x00} +  // "0": end of block
        Bytes{0xFF, 0xDA, 0x00, 0x08, 0x01, 0x01, 0x00,  // scan: component 1, tables 0 and 0
              0x00, 0x3F, 0x00} +                        // all coefficients
        Bytes{0x5F} +                                    // 0, 1 (plus one), 0, padding
        Bytes{0xFF, 0xD9};                               // end of image
    Bytes out;
    ASSERT_EQ(Decode(header + image, out), DecodeStatus::Decoded);
    EXPECT_EQ(out, Bytes(64, 130));
}

const Bytes kZstdIdentifier = {'K', 'X', 'Z', 'S', 'T', 'D', 0, 0};
const Bytes kGridIdentifier = {'K', 'X', 'G', 'R', 'I', 'D', 0, 0};
// Four bytes that say "a zstd frame".
const Bytes kFrame = {0x28, 0xB5, 0x2F, 0xFD};

TEST(ZstdChunkByHand, TwoIntegersWithoutDifferences) {
    const Bytes chunk = kZstdIdentifier + Bytes{0x02, 0,    0,    0,       // width 2
                                                0x01, 0,    0,    0,       // height 1
                                                0x04, 0,    0,    0,       // decoded bytes 4
                                                0x00, 0,    0x80, 0x3F,    // step 1.0
                                                0x04, 0,    0,    0,       // uncompressed bytes 4
                                                0x00,                      // filter: no differences
                                                0x65, 0x15, 0x31, 0x17} +  // hash of 0, 2, 1, 2
                        kFrame +
                        Bytes{0x20, 0x04,               // one segment of 4 bytes, no checksum
                              0x21, 0x00, 0x00,         // last block, raw, 4 bytes
                              0x01, 0x02, 0x00, 0x00};  // lowest bytes, highest bytes
    Bytes out;
    ASSERT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
    EXPECT_EQ(ValuesOf<uint16_t>(out), (std::vector<uint16_t>{1, 2}));
}

// 1000 1003
//    0 1001, the 0 being a cell that is not stored.
TEST(GridChunkByHand, FourCellsOfOneBlock) {
    const Bytes header = kGridIdentifier + Bytes{0x02, 0, 0,    0,     // width 2
                                                 0x02, 0, 0,    0,     // height 2
                                                 0x08, 0, 0,    0,     // decoded bytes 8
                                                 0x00, 0, 0x80, 0x3F,  // step 1.0
                                                 0x08, 0, 0,    0};    // uncompressed bytes 8
    const Bytes payload = Bytes{0x01,                                  // form: widths
                                0x00,                                  // lines are rows
                                0x01,                      // one value stands in cells that are not stored
                                0x00,                      // value = base + step x number
                                0x20, 0x2D, 0xA1, 0x2A,    // check
                                0x0D, 0x00, 0x00, 0x00,    // mask: 13 bytes
                                0x34, 0x00, 0x00, 0x00,    // parameters: 52 bytes,
                                0x2B, 0x00, 0x00, 0x00,    // 43 unpacked
                                0x00, 0x00, 0x00, 0x00} +  // no tokens
                          kFrame +
                          Bytes{0x20, 0x04, 0x21, 0x00, 0x00,  // one raw block of 4 bytes
                                0x03, 0x00,                    // line 0: cells 0 and 1
                                0x01, 0x00} +                  // line 1: cell 0 is another
                          kFrame +
                          Bytes{0x20, 0x2B, 0x59, 0x01, 0x00,           // one raw block of 43 bytes
                                0xE8, 0x03, 0,    0,    0,    0, 0, 0,  // base 1000
                                0x01, 0,    0,    0,                    // step 1
                                0,    0,    0,    0,                    // no table
                                0,    0,    0,    0,                    // no exceptions
                                0,    0,    0,    0,    0,    0, 0, 0,  // the void is 0
                                0,    6,    0,    0,    0,    0, 0, 0,  // line 0: 0, and 3 more
                                0,                                      // predictor: the line before
                                1,                                      // exponent: 1 low bit
                                0,                                      // no exceptions
                                1,    0,    0,    0} +                  // offset -1
                          Bytes{0x01, 0x00} +
                          Bytes(30);  // low bits: 1, which is residual -1
    Bytes out;
    ASSERT_EQ(Decode(header + payload, out), DecodeStatus::Decoded);
    EXPECT_EQ(ValuesOf<uint16_t>(out), (std::vector<uint16_t>{1000, 1003, 0, 1001}));
}

TEST(JPEGChunkByHand, HeaderAndMarkersOfAnEncodedChunk) {
    const Bytes chunk = EncodeWith(JPEGChunkCodec(), SmoothImage(5, 3, 3), 5, 3, 250.0F);
    const Bytes header = kJPEGIdentifier + Bytes{
                                               0x05, 0x00, 0x00, 0x00,  // width 5
                                               0x03, 0x00, 0x00, 0x00,  // height 3
                                               0x2D, 0x00, 0x00, 0x00,  // decoded bytes 45
                                               0x00, 0x00, 0x80, 0x3F,  // step 1.0: JPEG does not quantise
                                               0x2D, 0x00, 0x00, 0x00,  // uncompressed bytes 45
                                           };
    ASSERT_GT(chunk.size(), header.size() + 4);
    EXPECT_EQ(Bytes(chunk.begin(), chunk.begin() + 28), header);
    EXPECT_EQ(Bytes(chunk.begin() + 28, chunk.begin() + 30), (Bytes{0xFF, 0xD8}));
    EXPECT_EQ(Bytes(chunk.end() - 2, chunk.end()), (Bytes{0xFF, 0xD9}));
}

TEST(ColorChunkByHand, OneColourAndOneBlackCell) {
    // A zstd frame of one raw block that holds one byte.
    const auto frame = [](unsigned char byte) {
        return Bytes{0x28, 0xB5, 0x2F, 0xFD, 0x20, 0x01, 0x09, 0x00, 0x00, byte};
    };
    const Bytes chunk = Bytes{'K', 'X', 'C', 'O', 'L', 'O', 'R', 0} +
                        Bytes{
                            0x02, 0x00, 0x00, 0x00,  // width 2
                            0x01, 0x00, 0x00, 0x00,  // height 1
                            0x06, 0x00, 0x00, 0x00,  // decoded bytes 6
                            0x00, 0x00, 0x80, 0x3F,  // step 1.0
                            0x06, 0x00, 0x00, 0x00,  // uncompressed bytes 6
                            0x01,                    // red and blue less green
                            0x00, 0x00, 0x00,        // predicted: 0
                            0xFF, 0xD7, 0x00, 0x21,  // hash of 1, 2, 1, 10, 10, 10, 10
                            0x0A, 0x00, 0x00, 0x00,  // bytes of the mask
                            0x0A, 0x00, 0x00, 0x00,  // of green
                            0x0A, 0x00, 0x00, 0x00,  // of red
                            0x0A, 0x00, 0x00, 0x00,  // of blue
                        } +
                        frame(0x02) +  // the second cell is not like a kept one
                        frame(40) +    // green 20
                        frame(19) +    // red less green: -10
                        frame(20);     // blue less green: 10
    Bytes out;
    ASSERT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
    EXPECT_EQ(out, (Bytes{10, 20, 30, 0, 0, 0}));
}

}  // namespace
}  // namespace kxcodecs::test
