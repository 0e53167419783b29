// SPDX-License-Identifier: MIT
// The first byte picks what is done with the rest:
//   0  content of an E57 file: it is put into pages with right checksums, then every scan and image is read
//   1  an E57 file as it is
//   2  XML: what is read from it is written and read again
//   3  cells: they are written and must come back
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "e57/E57Checksum.h"
#include "e57/E57Node.h"
#include "e57/E57Pages.h"
#include "kxbase/InMemoryStream.h"
#include "kxexchange/kxexchange.h"

namespace {

using namespace kxexchange;

constexpr uint64_t kMaxCells = 1 << 18;

std::vector<unsigned char> IntoPages(const uint8_t* data, size_t size) {
    std::vector<unsigned char> file;
    for (size_t at = 0; at < size; at += kE57PageContent) {
        const size_t begin = file.size();
        file.insert(file.end(), data + at, data + std::min<size_t>(size, at + kE57PageContent));
        file.resize(begin + kE57PageContent);
        const uint32_t crc = Crc32c({file.data() + begin, kE57PageContent});
        for (int shift = 24; shift >= 0; shift -= 8)
            file.push_back(static_cast<unsigned char>(crc >> shift));
    }
    // The header says how long the file is; a fuzzer cannot guess it.
    if (file.size() >= kE57PageBytes) {
        for (size_t i = 0; i < 8; ++i)
            file[16 + i] = static_cast<unsigned char>(static_cast<uint64_t>(file.size()) >> (8 * i));
        const uint32_t crc = Crc32c({file.data(), kE57PageContent});
        for (size_t i = 0; i < 4; ++i)
            file[kE57PageContent + i] = static_cast<unsigned char>(crc >> (24 - 8 * i));
    }
    return file;
}

void CheckCell(const Cell& cell, const ScanDescription& description) {
    Require(std::isfinite(cell.x) && std::isfinite(cell.y) && std::isfinite(cell.z) &&
                std::isfinite(cell.intensity),
            "values are finite");
    if (description.coordinateKind == CoordinateKind::Spherical) {
        Require(std::abs(cell.Elevation()) <= 1.5707963267949, "an elevation lies between nadir and zenith");
        Require(!cell.valid || cell.Range() > 0, "a return has a range");
    } else {
        Require(!cell.valid || cell.x != 0 || cell.y != 0 || cell.z != 0, "a return lies somewhere");
    }
    Require(cell.valid || cell.direction || (cell.x == 0 && cell.y == 0 && cell.z == 0),
            "nothing is nowhere");
    Require(!(cell.valid && cell.direction), "a return is no mere direction");
    Require(description.colorBits == 16 || (cell.red | cell.green | cell.blue) <= 255, "8 bits are 8 bits");
}

// One scan to its end, or as far as is worth while.
void ReadScan(ScanSource& source, uint64_t index) {
    const ScanDescription description = source.OpenScan(index);
    std::vector<Cell> cells;
    uint64_t columns = 0, total = 0;
    while (const uint64_t read = source.ReadColumns(3, cells)) {
        columns += read;
        total += cells.size();
        if (description.HasGrid()) Require(cells.size() == read * description.rows, "columns are whole");
        for (const Cell& cell : cells)
            CheckCell(cell, description);
        if (total > kMaxCells) return;
    }
    Require(description.HasGrid() ? columns == description.columns : total == description.points,
            "a scan that ends well is complete");
    for (const ImageDescription& image : description.images) {
        try {
            Require(image.load().size() == image.byteCount, "an image has its bytes");
        } catch (const SourceFormatException&) {
        }
    }
}

void ReadFile(std::vector<unsigned char> file) {
    try {
        SourceOptions options;
        options.format = "E57";
        const auto source =
            OpenScanSource(std::make_unique<kxbase::InMemoryStream>(std::move(file)), "fuzz.e57", options);
        const uint64_t count = std::min<uint64_t>(4, source->ScanCount());
        for (uint64_t index = 0; index < count; ++index) {
            try {
                ReadScan(*source, index);
            } catch (const SourceFormatException& e) {
                Require(!e.Context().detail.empty(), "a refusal says what was found");
            }
        }
    } catch (const SourceFormatException& e) {
        Require(!e.Context().detail.empty(), "a refusal says what was found");
    }
}

void ReadXml(const uint8_t* data, size_t size) {
    try {
        const E57Document document = ParseE57Xml({reinterpret_cast<const char*>(data), size}, "fuzz.e57");
        const std::string xml = FormatE57Xml(document);
        const std::string again = FormatE57Xml(ParseE57Xml(xml, "fuzz.e57"));
        Require(again == xml, "what was written reads back the same");
    } catch (const SourceFormatException& e) {
        Require(!e.Context().detail.empty(), "a refusal says what was found");
    }
}

void WriteCells(const uint8_t* data, size_t size) {
    constexpr size_t kBytes = 16;
    if (size < 4) return;
    SinkOptions options;
    options.noReturns = (data[0] & 1) != 0;
    if ((data[0] & 2) != 0) {
        options.coordinateKind = (data[0] & 4) != 0 ? CoordinateKind::Spherical : CoordinateKind::Cartesian;
    }
    options.coordinates = static_cast<NumberKind>(data[1] % 6);
    ScanDescription description;
    description.rows = 1 + data[2] % 16;
    description.columns = (size - 4) / kBytes / description.rows;
    if (description.columns == 0) return;
    description.coordinates.present = description.intensity.present = true;
    description.coordinates.maximum = 70000;
    description.coordinates.precision = 1.0 / (1 + data[3]);
    description.intensity.numbers = static_cast<NumberKind>(data[3] % 6);
    description.intensity.minimum = -4;
    description.intensity.maximum = 300;
    description.intensity.precision = 0.25;
    std::vector<Cell> cells(static_cast<size_t>(description.columns * description.rows));
    for (size_t i = 0; i < cells.size(); ++i) {
        float values[4];
        std::memcpy(values, data + 4 + i * kBytes, sizeof values);
        Cell& cell = cells[i];
        cell.valid = std::isfinite(values[0]) && std::abs(values[0]) > 1 && std::abs(values[0]) < 1e4F;
        if (cell.valid) cell.x = static_cast<double>(values[0]);
        if (cell.valid && std::abs(values[1]) < 1e4F) cell.y = static_cast<double>(values[1]);
        if (cell.valid && std::abs(values[2]) < 1e4F) cell.z = static_cast<double>(values[2]);
        if (std::abs(values[3]) < 1e6F) cell.intensity = static_cast<double>(values[3]);
    }
    kxbase::InMemoryStream stream;
    const auto sink = FindSinkFormat("E57")->make(stream, options);
    sink->BeginScan(description);
    sink->WriteColumns(cells, description.columns);
    sink->EndScan();
    sink->Finish();
    const auto source =
        OpenScanSource(std::make_unique<kxbase::InMemoryStream>(stream.GetBytes()), "out.e57");
    const ScanDescription back = source->OpenScan(0);
    Require(back.columns == description.columns && back.rows == description.rows, "the grid comes back");
    std::vector<Cell> all, block;
    while (source->ReadColumns(5, block) != 0)
        all.insert(all.end(), block.begin(), block.end());
    Require(all.size() == cells.size(), "all cells come back");
    if (back.coordinateKind == CoordinateKind::Spherical) ToCartesian(all);
    for (size_t i = 0; i < all.size(); ++i) {
        Require(all[i].valid == cells[i].valid, "returns come back");
        const double shift = std::hypot(all[i].x - cells[i].x, all[i].y - cells[i].y, all[i].z - cells[i].z);
        const double range = std::hypot(cells[i].x, cells[i].y, cells[i].z);
        Require(!cells[i].valid || shift <= 0.5 * *description.coordinates.precision + range * 1e-6,
                "points come back where they were");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    switch (data[0] % 4) {
        case 0:
            ReadFile(IntoPages(data + 1, size - 1));
            break;
        case 1:
            ReadFile({data + 1, data + size});
            break;
        case 2:
            ReadXml(data + 1, size - 1);
            break;
        default:
            WriteCells(data + 1, size - 1);
            break;
    }
    return 0;
}
