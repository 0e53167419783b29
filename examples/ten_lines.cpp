// SPDX-License-Identifier: MIT
// The ten lines of the README.
#include <kxio/kxio.h>

#include <algorithm>
#include <iostream>
#include <vector>

int main(int, char** argv) {
    const kxio::QSNScanReader reader(kxbase::Decode_UTF8(argv[1]));
    const kxio::ScanAccess scan(reader);
    const kxbase::GridTopology& grid = scan.Grid();
    std::vector<float> ranges(uint64_t{grid.rows} * grid.columns);
    scan.ReadLayer<float>(kxbase::Range, ranges, {.threads = 0});
    const auto returns = std::ranges::count_if(ranges, [](float range) { return range > 0; });
    std::cout << grid.columns << " x " << grid.rows << " cells, " << returns << " returns\n";
}
