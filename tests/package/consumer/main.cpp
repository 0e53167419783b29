// SPDX-License-Identifier: MIT
#include <kxio/kxio.h>

#include <cstdio>
#include <vector>

int main() {
    // A record through the base library's stream.
    kxio::MainFileHeader written;
    written.scanHeaderPosition = 4711;
    kxbase::InMemoryStream stream;
    written.Write(&stream);
    stream.Seek(0);
    kxio::MainFileHeader read;
    if (read.Read(&stream) != 92 || read.scanHeaderPosition != 4711) return 1;

    // A chunk through the codec library.
    const std::vector<float> ranges(64 * 64, 1.5F);
    std::vector<unsigned char> chunk;
    kxcodecs::SnappyChunkCodec().Encode(ranges.data(), 64, 64, ranges.size() * sizeof(float), 1.0F, chunk);
    kxcodecs::ChunkHeaderInfo header;
    std::vector<unsigned char> values;
    if (kxcodecs::QKXChunkCodec::DecodeChunk(chunk, header, values) != kxcodecs::DecodeStatus::Decoded)
        return 2;
    if (values.size() != ranges.size() * sizeof(float)) return 3;

    // An exception that crosses the border of the shared library keeps its type.
    std::vector<unsigned char> oldVersion = stream.GetBytes();
    oldVersion[8] = 209;
    kxbase::InMemoryStream old(oldVersion);
    try {
        read.Read(&old);
        return 4;
    } catch (const kxbase::KXHeaderReadingException& e) {
        std::printf("refused as expected: %s\n", e.what());
    }
    std::puts("kxio ok");
    return 0;
}
