// SPDX-License-Identifier: MIT
// Draws a scan as text at a reduced level of detail, a strip of patches at a time.
//
//   level_of_detail FILE.qsn LEVEL
#include <kxio/kxio.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

namespace {

// Every 2^level-th cell of 2^level x 2^level patches, in the shape of one full patch.
std::vector<float> ReducedPatch(const kxio::QSNScanReader& reader, uint32_t row, uint32_t column,
                                unsigned& level) {
    std::vector<unsigned char> chunk;
    reader.GetPatchCompressed(row, column, chunk, kxbase::Range, level, false);  // may lower the level
    kxcodecs::ChunkHeaderInfo header;
    std::vector<unsigned char> bytes;
    const kxcodecs::DecodeStatus status = kxcodecs::QKXChunkCodec::DecodeChunk(chunk, header, bytes);
    if (status != kxcodecs::DecodeStatus::Decoded || header.ElementBytes() != sizeof(float))
        throw kxbase::KXUnreadablePatchException("not a patch of floats: " + kxcodecs::ToText(status));
    kxcodecs::Dequantise(bytes, sizeof(float), header.step);
    std::vector<float> values(bytes.size() / sizeof(float));
    std::memcpy(values.data(), bytes.data(), bytes.size());
    return values;
}

// What one row of reduced patches shows: `width` values in each of the patches' rows.
std::vector<float> ReducedStrip(const kxio::QSNScanReader& reader, const kxbase::GridTopology& grid,
                                uint32_t patchRow, uint32_t width, unsigned level) {
    std::vector<float> strip(uint64_t{width} * grid.patchHeight);
    for (uint32_t left = 0; left < width; left += grid.patchWidth) {
        const auto patch = ReducedPatch(reader, patchRow, left / grid.patchWidth, level);
        const uint32_t count = std::min(grid.patchWidth, width - left);
        for (uint32_t r = 0; r < grid.patchHeight; ++r)
            std::copy_n(patch.begin() + r * grid.patchWidth, count, strip.begin() + r * width + left);
    }
    return strip;
}

void Draw(const std::wstring& path, unsigned level) {
    const kxio::QSNScanReader reader(path);
    const kxbase::GridTopology& grid = reader.GetScanInformation().grid;
    ReducedPatch(reader, 0, 0, level);  // from here on the level that this scan allows

    const uint32_t factor = 1U << level;
    const uint32_t width = (grid.columns + factor - 1) / factor;
    const uint32_t height = (grid.rows + factor - 1) / factor;
    std::cout << "level " << level << ": " << width << " x " << height << " cells\n";
    for (uint32_t top = 0; top < height; top += grid.patchHeight) {
        const auto strip = ReducedStrip(reader, grid, top / grid.patchHeight, width, level);
        for (uint32_t row = top; row < std::min(height, top + grid.patchHeight); ++row) {
            std::string line;
            for (uint32_t column = 0; column < width; ++column) {
                const float range = strip[(row - top) * width + column];
                line += range <= 0 ? ' ' : range < 2000 ? '#' : range < 4000 ? '+' : '.';
            }
            std::cout << line << '\n';
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: level_of_detail FILE.qsn LEVEL\n";
        return 2;
    }
    try {
        Draw(kxbase::Decode_UTF8(argv[1]), static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)));
    } catch (const kxbase::KXException& e) {
        std::cerr << e.Describe() << '\n';
        return 1;
    }
    return 0;
}
