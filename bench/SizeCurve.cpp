// SPDX-License-Identifier: MIT
// Cost against size, one line of figures for one size: kxio_size_curve write|read FILE COLUMNS ROWS.
//
// `write` makes a scan up, patch by patch, and writes it; `read` opens it, converts one patch to points, and
// reads all of it. Two calls, so that each has a peak of its own. Times are of the processor (user and
// system), the least of several rounds where an operation is short: the machine may have other work.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "kxcodecs/GridChunkCodec.h"
#include "kxio/FlatPatchDescriptor.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/ScanAccess.h"

namespace {

constexpr uint32_t kPatchSide = 256;
constexpr size_t kPatchCells = size_t{kPatchSide} * kPatchSide;
constexpr int kRounds = 20;

double ProcessorMilliseconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

template <class Work>
double Cost(int rounds, const Work& work) {
    double least = 1e300;
    for (int i = 0; i < rounds; ++i) {
        const double before = ProcessorMilliseconds();
        work();
        least = std::min(least, ProcessorMilliseconds() - before);
    }
    return least;
}

double PeakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024;
}

kxbase::GridTopology Grid(uint32_t columns, uint32_t rows) {
    kxbase::GridTopology grid;
    grid.columns = columns;
    grid.rows = rows;
    grid.patchWidth = grid.patchHeight = kPatchSide;
    grid.columnStartAngle = 3.14F;
    grid.columnAngularStep = 6.28F / static_cast<float>(columns);
    grid.rowStartAngle = 0.1F;
    grid.rowAngularStep = 2.6F / static_cast<float>(rows);
    grid.previewWidth = 512;
    grid.previewHeight = 256;
    return grid;
}

// Smooth walls with 1.5 mm of noise, 8 urad of jitter, every tenth or so cell without a return.
struct Patch {
    std::vector<float> range = std::vector<float>(kPatchCells);
    std::vector<float> vertical = std::vector<float>(kPatchCells);
    std::vector<float> horizontal = std::vector<float>(kPatchCells);
    std::vector<uint16_t> intensity = std::vector<uint16_t>(kPatchCells);
    uint32_t random = 1;

    float Noise() {
        random = random * 1664525U + 1013904223U;
        return static_cast<float>(random >> 8) * (2.0F / 16777216.0F) - 1.0F;
    }
    void Fill(const kxbase::GridTopology& grid, uint32_t patchRow, uint32_t patchColumn) {
        for (size_t i = 0; i < kPatchCells; ++i) {
            const auto row = static_cast<float>(patchRow * kPatchSide + i / kPatchSide);
            const auto column = static_cast<float>(patchColumn * kPatchSide + i % kPatchSide);
            const float h = grid.columnStartAngle - column * grid.columnAngularStep;
            const float v = grid.rowStartAngle + row * grid.rowAngularStep;
            const bool empty = (random >> 28) == 0;
            range[i] = empty ? 0.0F : 9000.0F + 4000.0F * h * v + 2.6F * Noise();
            vertical[i] = v + 14e-6F * Noise();
            horizontal[i] = h + 14e-6F * Noise();
            intensity[i] = static_cast<uint16_t>(empty ? 0.0F : 20000.0F + 8000.0F * v + 900.0F * Noise());
        }
    }
};

void Write(const std::string& path, uint32_t columns, uint32_t rows) {
    const kxbase::GridTopology grid = Grid(columns, rows);
    kxcodecs::GridChunkCodec codec(kxcodecs::GridChunkCodec::Mode::Fast);
    kxio::QSNScanWriter writer;
    writer.CreateNew(std::wstring(path.begin(), path.end()), grid);
    Patch patch;
    double making = 0;
    const double whole = Cost(1, [&] {
        for (uint32_t row = 0; row < grid.PatchesPerColumn(); ++row) {
            for (uint32_t column = 0; column < grid.PatchesPerRow(); ++column) {
                making += Cost(1, [&] { patch.Fill(grid, row, column); });
                using Flat = kxio::FlatPatchDescriptor;
                Flat range(kxbase::Range, 4, kxio::RowMajor, 0.1, &codec);
                Flat vertical(kxbase::VerticalAngle, 4, kxio::RowMajor, 1e-6, &codec);
                Flat horizontal(kxbase::HorizontalAngle, 4, kxio::RowMajor, 1e-6, &codec);
                Flat intensity(kxbase::Luminance16, 2, kxio::RowMajor, 1.0, &codec);
                const auto give = [](Flat& flat, auto& values) {
                    flat.data = reinterpret_cast<unsigned char*>(values.data());
                    flat.size = kPatchCells;
                };
                give(range, patch.range);
                give(vertical, patch.vertical);
                give(horizontal, patch.horizontal);
                give(intensity, patch.intensity);
                writer.AddPatch({&range, &vertical, &horizontal, &intensity}, row, column);
            }
        }
        writer.EndCreation();
    });
    std::printf("%.0f,%.3f,%.1f\n", static_cast<double>(columns) * rows, whole - making, PeakMegabytes());
}

void Read(const std::string& path, uint32_t columns, uint32_t rows) {
    const std::wstring wide(path.begin(), path.end());
    const double open = Cost(kRounds, [&] { const kxio::QSNScanReader reader(wide, 0); });
    const kxio::QSNScanReader reader(wide, 0);
    const kxio::ScanAccess access(reader);
    std::vector<kxbase::tBaseXYZPoint<float>> points;
    std::vector<uint16_t> intensity(kPatchCells);
    const double patch = Cost(kRounds, [&] {
        reader.Get3DPatch(0, 0, points, false);
        access.ReadPatch<uint16_t>(kxbase::Luminance16, 0, 0, intensity);
    });
    std::vector<float> values(kPatchCells);
    const double all = Cost(1, [&] {
        const kxbase::GridTopology& grid = access.Grid();
        for (uint32_t row = 0; row < grid.PatchesPerColumn(); ++row) {
            for (uint32_t column = 0; column < grid.PatchesPerRow(); ++column) {
                const auto cells = static_cast<size_t>(access.GetPatchRect(row, column).CellCount());
                for (const auto component : {kxbase::Range, kxbase::VerticalAngle, kxbase::HorizontalAngle})
                    access.ReadPatch<float>(component, row, column, std::span(values).first(cells));
                access.ReadPatch<uint16_t>(kxbase::Luminance16, row, column,
                                           std::span(intensity).first(cells));
            }
        }
    });
    // What copying as many bytes as are decoded takes, from and to memory that is warm.
    std::vector<char> from(kPatchCells * 14, 1), to(from.size());
    const double copy = Cost(kRounds, [&] { std::memcpy(to.data(), from.data(), from.size()); });
    const double cells = static_cast<double>(columns) * rows;
    std::printf("%.0f,%.3f,%.3f,%.3f,%.3f,%.1f,%ju\n", cells, open, patch, all,
                copy * cells / static_cast<double>(kPatchCells), PeakMegabytes(),
                static_cast<uintmax_t>(std::filesystem::file_size(path)));
}

}  // namespace

int main(int count, char** values) {
    const std::string_view what = count == 5 ? values[1] : "";
    if (what != "write" && what != "read") {
        std::fputs("usage: kxio_size_curve write|read FILE COLUMNS ROWS\n", stderr);
        return 2;
    }
    const auto columns = static_cast<uint32_t>(std::strtoul(values[3], nullptr, 10));
    const auto rows = static_cast<uint32_t>(std::strtoul(values[4], nullptr, 10));
    try {
        (what == "write" ? Write : Read)(values[2], columns, rows);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "error: %s\n", e.what());
        return 1;
    }
    return 0;
}
