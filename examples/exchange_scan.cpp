// SPDX-License-Identifier: MIT
// From another format into a scan file, and out again.
//
//   exchange_scan SCAN.ptx[.gz] FOLDER
#include <kxexchange/kxexchange.h>

#include <filesystem>
#include <iostream>

#include "kxbase/Exceptions.h"

namespace {

void Exchange(const std::filesystem::path& scan, const std::filesystem::path& folder) {
    const std::filesystem::path file = folder / "exchanged.qsn";
    auto source = kxexchange::OpenScanSource(scan);
    const auto report = kxexchange::ImportScan(*source, 0, file);
    const auto points = kxexchange::ExportScan(file, folder / "exchanged.ply", "PLY");
    std::cout << report.cells << " cells, " << report.returns << " returns, " << points.points << " points\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: exchange_scan SCAN.ptx[.gz] FOLDER\n";
        return 2;
    }
    try {
        Exchange(argv[1], argv[2]);
    } catch (const kxbase::KXException& e) {
        std::cerr << e.Describe() << '\n';
        return 1;
    }
    return 0;
}
