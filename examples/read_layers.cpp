// SPDX-License-Identifier: MIT
// The ways to read beside patch by patch: strips of rows, whole layers, the preview, the thumbnail,
// histograms, and what to do about patches that are missing.
//
//   read_layers FILE.qsn
#include <kxio/kxio.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <map>
#include <vector>

namespace {

// Strips of 32 rows: memory stays at a strip, whatever the height of the scan.
void FindFarthestRow(const kxio::ScanAccess& scan) {
    const kxbase::GridTopology& grid = scan.Grid();
    std::vector<float> strip;
    float farthest = 0;
    uint32_t farthestRow = 0;
    for (uint32_t row = 0; row < grid.rows; row += 32) {
        const uint32_t count = std::min(32U, grid.rows - row);
        strip.resize(uint64_t{count} * grid.columns);
        scan.ReadRows<float>(kxbase::Range, row, count, strip);
        const auto place = std::ranges::max_element(strip);
        if (*place <= farthest) continue;
        farthest = *place;
        farthestRow = row + static_cast<uint32_t>((place - strip.begin()) / grid.columns);
    }
    std::cout << "farthest return: " << std::lround(farthest) << " mm in row " << farthestRow << '\n';
}

// A rectangle of cells; each patch that it touches is decoded once, here on as many threads as there are.
void LookThroughTheWindow(const kxio::ScanAccess& scan) {
    const kxio::PatchRect window{.firstRow = 60, .firstColumn = 100, .rows = 20, .columns = 30};
    std::vector<float> ranges(window.CellCount());
    scan.ReadRect<float>(kxbase::Range, window, ranges, {.threads = 0});
    std::cout << "window: " << std::ranges::count(ranges, 0.0F) << " cells without a return\n";
}

// A scan with damage: zeros in place of what cannot be had, and a report of how much that is.
void ReadWhatIsThere(const kxio::ScanAccess& scan) {
    std::vector<uint8_t> brightness(scan.GetGridRect().CellCount());
    const kxio::ReadOptions options{.missing = kxio::MissingPatches::ZeroUnreadable, .threads = 2};
    const kxio::ReadReport report = scan.ReadLayer<uint8_t>(kxbase::Luminance8, brightness, options);
    std::cout << report.decoded << " patches decoded, " << report.absent << " absent, " << report.damaged
              << " damaged\n";
}

void ShowPreviewAndThumbnail(const kxio::QSNScanReader& reader, const kxio::ScanAccess& scan) {
    if (reader.IsPreviewAvailable(kxbase::Range)) {
        const kxio::PreviewImage<float> preview = scan.ReadPreview<float>(kxbase::Range);
        std::cout << "preview: " << preview.width << " x " << preview.height << '\n';
    }
    std::vector<unsigned char> rgb;
    unsigned width = 0;
    unsigned height = 0;
    const bool stored = reader.GetThumbnailRGB(rgb, width, height);
    std::cout << (stored ? "thumbnail: " : "no thumbnail, placeholder: ") << width << " x " << height << '\n';
}

// Counts come per patch; their sum is the histogram of the scan.
void CountBrightness(const kxio::QSNScanReader& reader, const kxio::ScanAccess& scan) {
    if (!reader.IsHistogramAvailable(kxbase::Luminance8)) return;
    const kxio::Luminance8HistogramHeader record(scan.ReadHistogramRecord(kxbase::Luminance8));
    std::map<uint8_t, uint64_t> total;
    for (const auto& [patch, counts] : record.GetHistogram())
        for (const auto& [value, count] : counts)
            total[value] += count;
    for (const auto& [value, count] : total)
        std::cout << "brightness " << unsigned{value} << ": " << count << " cells\n";
}

void Read(const std::wstring& path) {
    const kxio::QSNScanReader reader(path);
    const kxio::ScanAccess scan(reader);
    FindFarthestRow(scan);
    LookThroughTheWindow(scan);
    ReadWhatIsThere(scan);
    ShowPreviewAndThumbnail(reader, scan);
    CountBrightness(reader, scan);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: read_layers FILE.qsn\n";
        return 2;
    }
    try {
        Read(kxbase::Decode_UTF8(argv[1]));
    } catch (const kxbase::KXException& e) {
        std::cerr << e.Describe() << '\n';
        return 1;
    }
    return 0;
}
