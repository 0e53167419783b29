// SPDX-License-Identifier: MIT
#pragma once

#include "kxcodecs/JPEG.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxio/HistogramHeader.h"
#include "support/ScanFileBuilder.h"

namespace kxtest {

/// A file with something of everything, as small as it gets: 5 x 4 cells in four patches; component 1
/// quantised, two of its patches empty; component 5 with two patches absent.
inline ScanFileBuilder TinyScan() {
    ScanFileBuilder file(5, 4, 4, 3);
    file.properties.scannerModel = L"Ostrak RM7";
    for (const uint32_t index : {0U, 3U}) {
        std::vector<float> ranges;
        for (uint32_t cell = 0; cell < 12; ++cell)
            ranges.push_back(static_cast<float>(index * 100 + cell + 1));
        file.Chunk(1, index / 2, index % 2, SnappyChunk(ranges, 4, 3, 10.0F));
        file.Chunk(5, index / 2, index % 2,
                   EncodedChunk(kxcodecs::ZLibChunkCodec(), std::vector<uint16_t>(12, 700), 4, 3));
    }
    file.SharedChunk(1, {1, 2}, SnappyChunk(std::vector<float>(12, 0.0F), 4, 3));
    file.Preview(1, SnappyChunk(std::vector<float>{1, 2}, 2, 1));
    Bytes jpeg;
    kxcodecs::JPEG::Encode(Bytes(192, 80).data(), 8, 8, 50, jpeg);
    file.Thumbnail(jpeg, 8, 8);
    file.Limits(1, 2, {{1.0F, 2.0F}, {0.0F, 0.0F}, {0.0F, 0.0F}, {1.0F, 2.0F}});
    file.ComponentRecord(1, kSnappyCodec, 0.5);
    file.Message("hi");
    file.Tail(ExtendedRecord(0xbfb6c3129e0b3496ULL, ByteList().Text("00112233-4455-6677-8899-aabbccddeeff")));
    file.Tail(ExtendedRecord(0x84968181ef2d2134ULL, Bytes(32, 3)));
    kxio::Luminance16HistogramHeader histogram(kxio::Luminance16Histogram{{{0, 0}, {{uint16_t{700}, 12}}}});
    file.Tail(Written(histogram));
    return file;
}

}  // namespace kxtest
