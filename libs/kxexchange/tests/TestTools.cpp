// SPDX-License-Identifier: MIT
#include "TestTools.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>
#include <sstream>

#include "TextFormat.h"
#include "kxbase/InMemoryStream.h"

namespace kxexchange::testing {

std::unique_ptr<ScanSource> SourceOf(const std::string& text, const std::string& name) {
    return OpenScanSource(std::make_unique<kxbase::InMemoryStream>(text.data(), text.size()), name);
}

Scan ReadScan(ScanSource& source, uint64_t index) {
    Scan scan;
    scan.description = source.OpenScan(index);
    std::vector<Cell> block;
    while (source.ReadColumns(~uint64_t{0}, block) != 0) {
        scan.cells.insert(scan.cells.end(), block.begin(), block.end());
    }
    return scan;
}

std::string PtxHeader(uint64_t columns, uint64_t rows) {
    return std::to_string(columns) + "\n" + std::to_string(rows) +
           "\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n";
}

std::string PtxText(const std::vector<Cell>& cells, uint64_t columns, uint64_t rows, bool color) {
    std::string text = PtxHeader(columns, rows);
    for (const Cell& cell : cells) {
        text += ShortestText(cell.x) + " " + ShortestText(cell.y) + " " + ShortestText(cell.z) + " " +
                ShortestText(cell.intensity);
        if (color) {
            text += " " + std::to_string(cell.red) + " " + std::to_string(cell.green) + " " +
                    std::to_string(cell.blue);
        }
        text += "\n";
    }
    return text;
}

std::string Gzip(const std::string& text) {
    z_stream stream{};
    deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
    std::string packed(deflateBound(&stream, static_cast<uLong>(text.size())) + 64, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

std::vector<std::string> Entries(const TempFolder& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

void WriteFile(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::filesystem::path TestData(const std::string& name) {
    return std::filesystem::path(KXIO_SOURCE_DIR) / "tests" / "data" / name;
}

std::filesystem::path SharedData(const std::string& name) {
    const auto path = std::filesystem::path(KXIO_SOURCE_DIR) / ".." / "shared" / "data" / name;
    return std::filesystem::exists(path) ? path : std::filesystem::path();
}

Cell PolarCell(double range, double horizontal, double vertical) {
    Cell cell;
    cell.x = range * std::sin(vertical) * std::cos(horizontal);
    cell.y = range * std::sin(vertical) * std::sin(horizontal);
    cell.z = range * std::cos(vertical);
    cell.valid = true;
    return cell;
}

std::vector<Cell> MakeSweep(const Sweep& sweep) {
    std::mt19937 random(sweep.seed);
    const auto uniform = [&](double least, double greatest) {
        return least + (greatest - least) * static_cast<double>(random()) / 4294967295.0;
    };
    std::vector<Cell> cells;
    for (uint64_t column = 0; column < sweep.columns; ++column) {
        for (uint64_t row = 0; row < sweep.rows; ++row) {
            const double share =
                sweep.rows > 1 ? static_cast<double>(row) / static_cast<double>(sweep.rows - 1) : 0;
            const double azimuth = sweep.firstAzimuth + sweep.azimuthStep * static_cast<double>(column) +
                                   sweep.azimuthDrift * share +
                                   sweep.wobble * sweep.azimuthStep * uniform(-1, 1);
            const double angle = sweep.firstAngle + sweep.angleStep * static_cast<double>(row) +
                                 sweep.wobble * sweep.angleStep * uniform(-1, 1);
            // A negative angle, or one above pi, is the other side of the axis.
            Cell cell = PolarCell(uniform(1, 30), azimuth, angle);
            cell.intensity = uniform(0, 1);
            cell.red = static_cast<uint8_t>(random() & 255);
            cell.green = static_cast<uint8_t>(random() & 255);
            cell.blue = static_cast<uint8_t>(random() & 255);
            if (uniform(0, 1) < sweep.missing) {
                cell = {};
                cell.intensity = 0.5;
            }
            cells.push_back(cell);
        }
    }
    return cells;
}

}  // namespace kxexchange::testing
