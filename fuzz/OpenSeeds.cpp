// SPDX-License-Identifier: MIT
// Writes the seeds of fuzz_open into a folder: small scan files, whole and damaged.
#include <string>

#include "SeedFolder.h"
#include "kxio/QSNScanWriter.h"
#include "support/TinyScan.h"

namespace {

using namespace kxtest;

// One component on one patch, nothing else.
ScanFileBuilder BareScan(uint32_t component, const Bytes& chunk) {
    ScanFileBuilder file(4, 3, 4, 3);
    file.Chunk(component, 0, 0, chunk);
    return file;
}

// As the writer makes it: one patch of three, the others empty, a histogram.
Bytes WrittenScan() {
    kxbase::InMemoryStream stream;
    kxbase::GridTopology grid;
    grid.columns = 9;
    grid.rows = 3;
    grid.patchWidth = 4;
    grid.patchHeight = 4;
    kxcodecs::ZLibChunkCodec codec;
    std::vector<float> ranges(16, 2.5F);
    std::vector<uint8_t> intensities(16, 7);
    kxio::FlatPatchDescriptor range(kxbase::Range, 4, kxio::RowMajor, 0.1, &codec);
    range.data = reinterpret_cast<unsigned char*>(ranges.data());
    range.size = ranges.size();
    kxio::FlatPatchDescriptor intensity(kxbase::Luminance8, 1, kxio::RowMajor, 1.0, &codec);
    intensity.data = intensities.data();
    intensity.size = intensities.size();
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, grid);
    writer.AddPatch({&range, &intensity}, 0, 1);
    writer.AddMessage(L"written");
    writer.EndCreation();
    return stream.GetBytes();
}

}  // namespace

int main(int argc, char** argv) {
    const SeedFolder write(argc, argv);

    const Bytes tiny = TinyScan().Build();
    write("written", WrittenScan());
    write("tiny", tiny);
    write("tiny-cut-in-tail", Bytes(tiny.begin(), tiny.end() - 40));
    Bytes noTable = tiny;
    SetMainField(noTable, MainField::LookupTable, 0);
    write("tiny-without-table", noTable);
    write("bare-floats", BareScan(1, LiteralChunk(Bytes(48, 0x3f), 4, 3)).Build());
    write("bare-bytes", BareScan(4, LiteralChunk(Bytes(12, 9), 4, 3)).Build());
    write("bare-unfixed", BareScan(10, LiteralChunk(Bytes(24, 9), 4, 3)).Build());
    for (const uint32_t version : {200U, 210U, 220U, 230U, 240U, 250U, 260U, 275U}) {
        ScanFileBuilder file = BareScan(1, LiteralChunk(Bytes(48, 0x3f), 4, 3));
        kxio::ScanHeader header;
        header.properties = file.properties;
        file.scanHeader = WithVersion(Written(header), version);
        write("scan-header-" + std::to_string(version), file.Build());
    }
    return 0;
}
