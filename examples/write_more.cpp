// SPDX-License-Identifier: MIT
// The less usual ways to write: several threads, lossy colour, patches that the caller has compressed,
// patches where nothing was measured; into memory instead of a file.
//
//   write_more
#include <kxio/kxio.h>

#include <future>
#include <iostream>
#include <vector>

namespace {

constexpr uint32_t kSide = 32;
constexpr uint32_t kCells = kSide * kSide;

kxbase::GridTopology MakeGrid() {
    kxbase::GridTopology grid;
    grid.columns = 4 * kSide;
    grid.rows = 2 * kSide;
    grid.columnStartAngle = 3.0F;
    grid.columnAngularStep = 0.04F;
    grid.rowStartAngle = 0.02F;
    grid.rowAngularStep = 0.04F;
    grid.patchWidth = kSide;
    grid.patchHeight = kSide;
    return grid;
}

// Everything about the scan that is not a value of a cell.
void Describe(kxio::QSNScanWriter& writer) {
    kxio::ScanProperties& properties = writer.GetScanProperties();
    properties.scannerModel = L"Example";
    properties.firstDate = kxbase::Date(L"2024-05-17T08:00:00Z");
    properties.secondDate = kxbase::Date(L"2024-05-17T08:04:30Z");
    properties.dateStatus = 0;  // the dates are good
    writer.SetRegistration(kxbase::RegistrationInformation(kxbase::Frame3D(), {12.0, 5.5, 1.7}));
    writer.SetSpeckleFilteringNeeded(true);
    writer.AddMessage(L"Hall, north side");
}

// Range and colour of one patch; the colour is compressed with losses.
void AddMeasuredPatch(kxio::QSNScanWriter& writer, kxcodecs::QKXChunkCodec& lossless,
                      kxcodecs::QKXChunkCodec& jpeg, uint32_t row, uint32_t column) {
    std::vector<float> ranges(kCells, 5000.0F + static_cast<float>(column));
    std::vector<kxio::Rgb8> colours(kCells, kxio::Rgb8{120, 130, 90});
    kxio::FlatPatchDescriptor range(kxbase::Range, sizeof(float), kxio::RowMajor, 0.1, &lossless);
    range.data = reinterpret_cast<unsigned char*>(ranges.data());
    range.size = kCells;
    kxio::FlatPatchDescriptor colour(kxbase::Color, sizeof(kxio::Rgb8), kxio::RowMajor, 1.0, &jpeg);
    colour.data = reinterpret_cast<unsigned char*>(colours.data());
    colour.size = kCells;
    writer.AddPatch({&range, &colour}, row, column);
}

// A patch that arrives compressed: stored byte for byte. Its limits come with it, its points are counted by
// us.
void AddCompressedPatch(kxio::QSNScanWriter& writer, kxcodecs::QKXChunkCodec& codec, uint32_t row,
                        uint32_t column) {
    const std::vector<float> ranges(kCells, 7500.0F);
    std::vector<unsigned char> chunk;
    codec.Encode(ranges.data(), kSide, kSide, kCells * sizeof(float), 10.0F, chunk);  // 1 / 0.1 mm
    kxio::EncodedPatchDescriptor range(kxbase::Range, sizeof(float));
    range.data = chunk.data();
    range.size = chunk.size();
    range.min = 7500.0F;
    range.max = 7500.0F;
    writer.AddPatch({&range}, row, column);
}

void Write(kxbase::InMemoryStream& file) {
    kxcodecs::ZLibChunkCodec lossless;  // codecs must outlive EndCreation
    lossless.SetCompressionLevel(9);
    kxcodecs::JPEGChunkCodec jpeg;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&file, MakeGrid());
    Describe(writer);
    writer.SetPointcount(kCells);  // of the patch that comes compressed

    // Different patches may come from different threads, in any order.
    std::vector<std::future<void>> patches;
    for (uint32_t column = 0; column < 4; ++column)
        patches.push_back(std::async(std::launch::async,
                                     [&, column] { AddMeasuredPatch(writer, lossless, jpeg, 0, column); }));
    for (std::future<void>& patch : patches)
        patch.get();  // throws what went wrong there
    AddCompressedPatch(writer, lossless, 1, 0);
    // Nothing was measured in the three other patches of the second row: they need not be mentioned.
    const std::map<std::string, uint64_t> statistics = writer.EndCreation();
    for (const auto& [name, bytes] : statistics)
        if (name == "Range" || name == "Color_Preview" || name == "PointCount")
            std::cout << name << ' ' << (name == "PointCount" ? bytes : bytes > 0 ? 1 : 0) << '\n';
}

}  // namespace

int main() {
    try {
        kxbase::InMemoryStream file;
        Write(file);
        const kxio::QSNScanReader reader(&file);
        const kxio::ScanAccess scan(reader);
        for (const kxio::ComponentSummary& c : scan.Summarise())
            std::cout << kxbase::ComponentToString(c.component) << ": " << c.codec << ", " << c.storedPatches
                      << " patches stored, " << c.emptyPatches << " empty\n";
    } catch (const kxbase::KXException& e) {
        std::cerr << e.Describe() << '\n';
        return 1;
    }
    return 0;
}
