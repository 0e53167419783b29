// SPDX-License-Identifier: MIT
// Writes the scan of a made-up room: a box seen from inside, with an open window that returns nothing.
//
//   write_scan OUT.qsn
#include <kxio/kxio.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <limits>
#include <numbers>
#include <vector>

namespace {

// A grid of one degree. Angles are radians; vertical angles count from the zenith, and the horizontal
// angle falls from column to column.
kxbase::GridTopology MakeGrid() {
    constexpr double kDegree = std::numbers::pi / 180;
    kxbase::GridTopology grid;
    grid.columns = 360;
    grid.rows = 140;  // the tripod hides what lies below it
    grid.columnStartAngle = static_cast<float>(179.5 * kDegree);
    grid.columnAngularStep = static_cast<float>(kDegree);
    grid.rowStartAngle = static_cast<float>(0.5 * kDegree);
    grid.rowAngularStep = static_cast<float>(kDegree);
    grid.patchWidth = 64;
    grid.patchHeight = 64;
    return grid;
}

// Distance in millimetres to the walls of a room of 8 x 6 x 3 metres; 0 through the window.
float RangeAt(uint32_t row, uint32_t column, double horizontal, double vertical) {
    if (row >= 60 && row < 80 && column >= 100 && column < 130) return 0;
    const double direction[3] = {std::sin(vertical) * std::cos(horizontal),
                                 std::sin(vertical) * std::sin(horizontal), std::cos(vertical)};
    const double halfSize[3] = {4000, 3000, 1500};
    double nearest = std::numeric_limits<double>::max();
    for (int axis = 0; axis < 3; ++axis)
        if (direction[axis] != 0) nearest = std::min(nearest, halfSize[axis] / std::abs(direction[axis]));
    return static_cast<float>(nearest);
}

unsigned char* BytesOf(void* values) {
    return static_cast<unsigned char*>(values);
}

void WriteRoom(const std::wstring& path) {
    const kxbase::GridTopology grid = MakeGrid();
    kxcodecs::ZLibChunkCodec codec;  // must outlive EndCreation
    kxio::QSNScanWriter writer;
    writer.CreateNew(path, grid);
    writer.GetScanProperties().scannerModel = L"Example";
    writer.AddMessage(L"A room that never was");

    const size_t cells = size_t{grid.patchWidth} * grid.patchHeight;
    for (uint32_t patchRow = 0; patchRow < grid.PatchesPerColumn(); ++patchRow) {
        for (uint32_t patchColumn = 0; patchColumn < grid.PatchesPerRow(); ++patchColumn) {
            // Patches always have their full size; cells beyond the edge of the grid stay 0.
            std::vector<float> ranges(cells);
            std::vector<float> verticals(cells);
            std::vector<float> horizontals(cells);
            std::vector<uint8_t> brightness(cells);
            for (uint32_t r = 0; r < grid.RowsInPatch(patchRow); ++r) {
                for (uint32_t c = 0; c < grid.ColumnsInPatch(patchColumn); ++c) {
                    const uint32_t row = patchRow * grid.patchHeight + r;
                    const uint32_t column = patchColumn * grid.patchWidth + c;
                    const size_t i = size_t{r} * grid.patchWidth + c;
                    horizontals[i] =
                        grid.columnStartAngle - static_cast<float>(column) * grid.columnAngularStep;
                    verticals[i] = grid.rowStartAngle + static_cast<float>(row) * grid.rowAngularStep;
                    ranges[i] = RangeAt(row, column, horizontals[i], verticals[i]);
                    brightness[i] = (row / 10 + column / 10) % 2 == 0 ? 200 : 80;
                }
            }
            // The fourth argument is the smallest difference kept: 0.1 mm and a microradian.
            kxio::FlatPatchDescriptor range(kxbase::Range, sizeof(float), kxio::RowMajor, 0.1, &codec);
            kxio::FlatPatchDescriptor vertical(kxbase::VerticalAngle, sizeof(float), kxio::RowMajor, 1e-6,
                                               &codec);
            kxio::FlatPatchDescriptor horizontal(kxbase::HorizontalAngle, sizeof(float), kxio::RowMajor, 1e-6,
                                                 &codec);
            kxio::FlatPatchDescriptor luminance(kxbase::Luminance8, 1, kxio::RowMajor, 1.0, &codec);
            range.data = BytesOf(ranges.data());
            vertical.data = BytesOf(verticals.data());
            horizontal.data = BytesOf(horizontals.data());
            luminance.data = BytesOf(brightness.data());
            range.size = vertical.size = horizontal.size = luminance.size = cells;
            writer.AddPatch({&range, &vertical, &horizontal, &luminance}, patchRow, patchColumn);
        }
    }
    const auto statistics = writer.EndCreation();
    std::cout << grid.columns << " x " << grid.rows << " cells, " << statistics.at("PointCount")
              << " returns\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: write_scan OUT.qsn\n";
        return 2;
    }
    try {
        WriteRoom(kxbase::Decode_UTF8(argv[1]));
    } catch (const kxbase::KXException& e) {
        std::cerr << e.Describe() << '\n';
        return 1;
    }
    return 0;
}
