// SPDX-License-Identifier: MIT
// Writes the seeds of fuzz_e57 from tests/data/e57 and from files put together here.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "E57Builder.h"
#include "SeedFolder.h"

namespace {

using namespace kxexchange::plain;

Bytes ReadBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A grid of 3 x 4 whose records come in the order of `places` (column x 4 + row).
Builder Grid(const Bytes& places) {
    Bytes x, rows, columns;
    for (size_t i = 0; i < places.size(); ++i) {
        x.push_back(static_cast<unsigned char>(i + 1));
        rows.push_back(static_cast<unsigned char>(places[i] % 4));
        columns.push_back(static_cast<unsigned char>(places[i] / 4));
    }
    Builder builder;
    builder.Scan(
        "<columnIndex type=\"Integer\" minimum=\"0\" maximum=\"255\"/>"
        "<cartesianX type=\"ScaledInteger\" minimum=\"-5\" maximum=\"250\" scale=\"0.01\"/>"
        "<cartesianZ type=\"Integer\" minimum=\"0\" maximum=\"0\"/>"
        "<rowIndex type=\"Integer\" minimum=\"0\" maximum=\"255\"/>"
        "<cartesianY type=\"Integer\" minimum=\"1\" maximum=\"1\"/>"
        "<intensity type=\"Integer\" minimum=\"0\" maximum=\"255\"/>",
        {columns, x, {}, rows, {}, x});
    builder.Extra(
        "<guid type=\"String\">A</guid><pose type=\"Structure\"><rotation type=\"Structure\">"
        "<w type=\"Float\">1</w></rotation></pose>");
    builder.Image("A", "visualReferenceRepresentation", "jpegImage", {1, 2, 3});
    return builder;
}

}  // namespace

int main(int argc, char** argv) {
    const SeedFolder folder(argc, argv);
    const auto write = [&](const std::string& name, unsigned char mode, Bytes bytes) {
        bytes.insert(bytes.begin(), mode);
        folder(name, bytes);
    };
    const auto content = [&](const std::string& name, Bytes bytes) {
        while (!bytes.empty() && bytes.back() == 0)
            bytes.pop_back();
        write(name, 0, bytes);
    };
    const auto data = std::filesystem::path(KXIO_SOURCE_DIR) / "tests" / "data" / "e57";
    for (const char* const name : {"cartesian_invalid_state_single", "empty_pc", "scaled_integer_intensity",
                                   "tiny_pc_with_extension", "tiny_spherical"}) {
        const Bytes file = ReadBytes(data / (std::string(name) + ".e57"));
        const Bytes inside = PlainContent(file);
        content(std::string("content-") + name, inside);
        const std::string xml = PlainXml(inside);
        write(std::string("xml-") + name, 2, {xml.begin(), xml.end()});
    }
    write("file-small", 1, ReadBytes(data / "scaled_integer_intensity.e57"));
    content("content-columns", PlainContent(Grid({0, 1, 2, 3, 4, 5, 8, 9}).File()));
    content("content-rows", PlainContent(Grid({0, 4, 8, 1, 5, 9, 2, 6}).File()));
    content("content-twice", PlainContent(Grid({3, 3, 3, 7, 7, 11}).File()));
    Bytes cells{1, 0, 3, 99};
    for (int i = 0; i < 12 * 16; ++i)
        cells.push_back(static_cast<unsigned char>(i % 4 == 3 ? 0x41 : i * 37));
    write("cells-cartesian", 3, cells);
    cells[0] = 6;
    write("cells-spherical", 3, cells);
    cells[1] = 4;
    write("cells-double", 3, cells);
}
