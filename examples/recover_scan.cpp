// SPDX-License-Identifier: MIT
// Damages a copy of a scan and saves what survived: as a whole scan file, and as text.
//
//   recover_scan FILE.qsn      (works on copies beside it)
#include <kxio/kxio.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

std::wstring Wide(const std::filesystem::path& path) {
    return kxbase::Decode_UTF8(path.string());
}

// A disk that lost its first kilobyte and the file's end: no main header, no tables, part of the chunks.
void Damage(const std::filesystem::path& path) {
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 4);
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.write(std::string(1024, '\0').c_str(), 1024);
}

void Rescue(const std::wstring& damaged, const std::wstring& rescued) {
    const kxio::RecoveryReport report = kxio::RecoverToFile(damaged, rescued);
    std::cout << report.Summary() << "\n\n";
    for (const kxio::RecoveredComponent& c : report.components)
        std::cout << kxbase::ComponentToString(c.component) << ": " << c.recovered << " of " << c.found
                  << " patches found were whole\n";
    for (const std::string& warning : report.warnings)
        std::cout << "check: " << warning << '\n';
    if (!report.Complete()) std::cout << report.chunksLost << " chunks are lost\n";
}

// The new file opens like any other; what was lost reads as cells without a return.
void LookAtIt(const std::wstring& rescued) {
    const kxio::QSNScanReader reader(rescued);
    const kxio::ScanAccess scan(reader);
    std::vector<float> ranges(scan.GetGridRect().CellCount());
    scan.ReadLayer<float>(kxbase::Range, ranges);
    uint64_t points = 0;
    for (const float range : ranges)
        points += range > 0 ? 1 : 0;
    std::cout << points
              << " points saved; first warning: " << kxbase::Encode_UTF8(reader.GetWarningList().front())
              << '\n';
}

// Points alone, as text. The outermost row and column of patches are left out.
void SavePointsAsText(const std::wstring& damaged, const std::wstring& text) {
    kxio::QSNFileRecovery recovery(damaged);
    kxio::ScanProperties properties;
    if (!recovery.TryToFindScanProperties(properties)) std::cout << "no scan header survived\n";
    recovery.ExportAscii(text);
}

void Recover(const std::filesystem::path& scan) {
    const std::filesystem::path folder = scan.parent_path();
    std::filesystem::copy_file(scan, folder / "damaged.qsn",
                               std::filesystem::copy_options::overwrite_existing);
    Damage(folder / "damaged.qsn");
    Rescue(Wide(folder / "damaged.qsn"), Wide(folder / "rescued.qsn"));
    LookAtIt(Wide(folder / "rescued.qsn"));
    SavePointsAsText(Wide(folder / "damaged.qsn"), Wide(folder / "rescued.txt"));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: recover_scan FILE.qsn\n";
        return 2;
    }
    try {
        Recover(argv[1]);
    } catch (const kxbase::KXException& e) {
        std::cerr << e.Describe() << '\n';
        return 1;
    }
    return 0;
}
