// SPDX-License-Identifier: MIT
// Walks over a scan patch by patch, so that memory stays small whatever the scan's size, and turns cells
// into points.
//
//   read_patches FILE.qsn
#include <kxio/kxio.h>

#include <algorithm>
#include <iostream>
#include <limits>
#include <vector>

namespace {

void Describe(const std::wstring& path) {
    const kxio::QSNScanReader reader(path);
    const kxio::ScanAccess scan(reader);
    const kxbase::GridTopology& grid = scan.Grid();

    std::cout << "components:";
    for (const kxbase::ComponentType component : scan.Components())
        std::cout << ' ' << kxbase::ComponentToString(component);
    std::cout << '\n';

    uint64_t points = 0;
    kxbase::tBaseXYZPoint<float> low(std::numeric_limits<float>::max(), std::numeric_limits<float>::max(),
                                     std::numeric_limits<float>::max());
    kxbase::tBaseXYZPoint<float> high(-low.x, -low.y, -low.z);
    for (uint32_t row = 0; row < grid.PatchesPerColumn(); ++row) {
        for (uint32_t column = 0; column < grid.PatchesPerRow(); ++column) {
            const auto ranges = scan.ReadPatch<float>(kxbase::Range, row, column);
            const auto verticals = scan.ReadPatch<float>(kxbase::VerticalAngle, row, column);
            const auto horizontals = scan.ReadPatch<float>(kxbase::HorizontalAngle, row, column);
            for (size_t i = 0; i < ranges.size(); ++i) {
                if (!(ranges[i] > 0)) continue;  // no return
                ++points;
                const kxbase::tBaseXYZPoint<float> p(
                    kxbase::tBasePolarPoint<float>(ranges[i], horizontals[i], verticals[i]));
                low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
                high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
            }
        }
    }
    std::cout << points << " points\n";
    if (points != 0) {
        std::cout.setf(std::ios::fixed);
        std::cout.precision(0);
        std::cout << "x " << low.x << " to " << high.x << ", y " << low.y << " to " << high.y << ", z "
                  << low.z << " to " << high.z << " (millimetres)\n";
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: read_patches FILE.qsn\n";
        return 2;
    }
    try {
        Describe(kxbase::Decode_UTF8(argv[1]));
    } catch (const kxbase::KXException& e) {
        std::cerr << e.Describe() << '\n';
        return 1;
    }
    return 0;
}
