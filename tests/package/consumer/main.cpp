// SPDX-License-Identifier: MIT
#include <kxio/kxio.h>

#include <cstdio>
#include <vector>

int main() {
    // A chunk through the codec library.
    const std::vector<float> ranges(64 * 64, 1.5F);
    std::vector<unsigned char> chunk;
    kxcodecs::SnappyChunkCodec codec;
    codec.Encode(ranges.data(), 64, 64, ranges.size() * sizeof(float), 1.0F, chunk);
    kxcodecs::ChunkHeaderInfo header;
    std::vector<unsigned char> values;
    if (kxcodecs::QKXChunkCodec::DecodeChunk(chunk, header, values) != kxcodecs::DecodeStatus::Decoded)
        return 1;
    if (values.size() != ranges.size() * sizeof(float)) return 2;

    // A scan into memory and out again.
    kxbase::GridTopology grid;
    grid.columns = grid.rows = grid.patchWidth = grid.patchHeight = 64;
    grid.columnAngularStep = grid.rowAngularStep = 0.01F;
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, grid);
    std::vector<float> patch = ranges;
    kxio::FlatPatchDescriptor descriptor(kxbase::Range, sizeof(float), kxio::RowMajor, 0.1, &codec);
    descriptor.data = reinterpret_cast<unsigned char*>(patch.data());
    descriptor.size = patch.size();
    writer.AddPatch({&descriptor}, 0, 0);
    writer.EndCreation();
    const kxio::QSNScanReader reader(&stream);
    const std::vector<float> back = kxio::ScanAccess(reader).ReadPatch<float>(kxbase::Range, 0, 0);
    if (back != ranges) return 3;

    // An exception that crosses the border of the shared library keeps its type.
    try {
        const kxio::QSNScanReader missing(L"no such file.qsn");
        return 4;
    } catch (const kxbase::KXHeaderReadingException& e) {
        std::printf("refused as expected: %s\n", e.what());
    }
    std::puts("kxio ok");
    return 0;
}
