// SPDX-License-Identifier: MIT
#include "ReadBack.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>

#include "PlaneFiles.h"
#include "TestTools.h"

namespace kxexchange::testing {

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

// By the library's own reader.
ReadBackScan ReadSource(const std::filesystem::path& path) {
    ReadBackScan back;
    SourceOptions options;
    options.coordinateKind = CoordinateKind::Cartesian;
    const auto source = OpenScanSource(path, options);
    const uint64_t scans = source->ScanCount();
    for (uint64_t i = 0; i < scans; ++i) {
        Scan scan = ReadScan(*source, i);
        const ScanDescription& description = scan.description;
        if (description.coordinateKind == CoordinateKind::Spherical) ToCartesian(scan.cells);
        back.columns = description.HasGrid() ? description.columns : 0;
        back.rows = description.HasGrid() ? description.rows : 0;
        back.pose = description.pose;
        back.intensity = description.intensity.present;
        back.color = description.color.present;
        back.classes = description.classification.present;
        back.colorScale = description.colorBits == 16 ? 257 : 1;
        back.images += description.images.size();
        back.points.push_back(0);
        for (const Cell& cell : scan.cells)
            back.points.back() += cell.valid ? 1 : 0;
        back.cells.insert(back.cells.end(), scan.cells.begin(), scan.cells.end());
    }
    return back;
}

// Points of formats 6 and 7; all scans in one list.
ReadBackScan ReadLas(const std::filesystem::path& path) {
    ReadBackScan back;
    const std::string las = ReadFile(path);
    EXPECT_EQ(las.substr(0, 4), "LASF");
    back.color = las[104] == 7;
    back.intensity = back.classes = true;
    back.colorScale = 257;
    back.points.push_back(At<uint64_t>(las, 247));
    size_t at = At<uint32_t>(las, 96);
    for (uint64_t i = 0; i < back.points[0]; ++i, at += At<uint16_t>(las, 105)) {
        Cell& cell = back.cells.emplace_back();
        const auto axis = [&](size_t n) {
            return At<int32_t>(las, at + 4 * n) * At<double>(las, 131 + 8 * n) + At<double>(las, 155 + 8 * n);
        };
        cell.valid = true;
        cell.x = axis(0);
        cell.y = axis(1);
        cell.z = axis(2);
        cell.intensity = At<uint16_t>(las, at + 12);
        cell.classification = At<uint8_t>(las, at + 16);
        if (!back.color) continue;
        cell.red = At<uint16_t>(las, at + 30);
        cell.green = At<uint16_t>(las, at + 32);
        cell.blue = At<uint16_t>(las, at + 34);
    }
    return back;
}

// Numbers of one plane, column after column; NaN where there is none. Nothing: the file has no such plane.
using Plane = std::vector<double>;
using PlaneOf = std::function<Plane(const std::string& name)>;

ReadBackScan FromPlanes(uint64_t columns, uint64_t rows, const PlaneOf& planeOf) {
    ReadBackScan back;
    back.columns = columns;
    back.rows = rows;
    back.cells.resize(columns * rows);
    const Plane range = planeOf("range"), azimuth = planeOf("azimuth"), elevation = planeOf("elevation"),
                intensity = planeOf("intensity"), red = planeOf("red"), green = planeOf("green"),
                blue = planeOf("blue"), classes = planeOf("classification");
    back.intensity = !intensity.empty();
    back.color = !red.empty() && !green.empty() && !blue.empty();
    back.classes = !classes.empty();
    back.points.push_back(0);
    for (size_t i = 0; i < back.cells.size(); ++i) {
        Cell& cell = back.cells[i];
        cell.valid = !std::isnan(range[i]);
        if (!cell.valid) continue;
        ++back.points[0];
        const double flat = range[i] * std::cos(elevation[i]);
        cell.x = flat * std::cos(azimuth[i]);
        cell.y = flat * std::sin(azimuth[i]);
        cell.z = range[i] * std::sin(elevation[i]);
        if (back.intensity) cell.intensity = intensity[i];
        if (back.classes) cell.classification = static_cast<uint8_t>(classes[i]);
        if (!back.color) continue;
        cell.red = static_cast<uint16_t>(std::lround(red[i]));
        cell.green = static_cast<uint16_t>(std::lround(green[i]));
        cell.blue = static_cast<uint16_t>(std::lround(blue[i]));
    }
    return back;
}

Plane NumbersOf(const Array& array) {
    Plane plane;
    for (size_t column = 0; column < array.columns; ++column) {
        for (size_t row = 0; row < array.rows; ++row)
            plane.push_back(array.Number(row, column));
    }
    return plane;
}

ReadBackScan ReadNpy(const WriteFormat& write) {
    const auto read = [&](const std::string& name) {
        SinkOptions options;
        options.plane = name;
        return ParseNpy(ReadFile(write(options)));
    };
    const Array range = read("range");
    return FromPlanes(range.columns, range.rows,
                      [&](const std::string& name) { return NumbersOf(read(name)); });
}

ReadBackScan ReadNpz(const std::filesystem::path& path) {
    const auto members = Unzip(ReadFile(path));
    const Array range = ParseNpy(members.at("range.npy"));
    return FromPlanes(range.columns, range.rows, [&](const std::string& name) {
        const auto member = members.find(name + ".npy");
        return member == members.end() ? Plane() : NumbersOf(ParseNpy(member->second));
    });
}

// Through the mapping that the picture's text names.
ReadBackScan ReadPng(const WriteFormat& write) {
    const auto read = [&](const std::string& name) {
        SinkOptions options;
        options.plane = name;
        return ParsePng(ReadFile(write(options)));
    };
    const Picture range = read("range");
    return FromPlanes(range.width, range.height, [&](const std::string& name) {
        const Picture picture = read(name);
        double offset = 0, scale = 1, empty = kNone;
        const size_t at = picture.text.find("offset=");
        if (at != std::string::npos)
            std::sscanf(picture.text.c_str() + at, "offset=%lf scale=%lf empty=%lf", &offset, &scale, &empty);
        Plane plane;
        for (size_t column = 0; column < picture.width; ++column) {
            for (size_t row = 0; row < picture.height; ++row) {
                const double value = picture.Get(row, column);
                plane.push_back(value == empty ? kNone : offset + value * scale);
            }
        }
        return plane;
    });
}

ReadBackScan ReadExrScan(const std::filesystem::path& path) {
    const Channels channels = ReadExr(path);
    const auto planeOf = [&](const std::string& name) {
        const bool share = name == "red" || name == "green" || name == "blue";
        const auto found =
            channels.values.find(share ? std::string(1, static_cast<char>(name[0] - 'a' + 'A')) : name);
        Plane plane;
        if (found == channels.values.end()) return plane;
        for (size_t column = 0; column < channels.columns; ++column) {
            for (size_t row = 0; row < channels.rows; ++row)
                plane.push_back(static_cast<double>(found->second[row * channels.columns + column]) *
                                (share ? 255 : 1));
        }
        return plane;
    };
    return FromPlanes(channels.columns, channels.rows, planeOf);
}

}  // namespace

ReadBackScan ReadBack(const std::string& format, const WriteFormat& write) {
    for (const SourceFormat& source : SourceFormats()) {
        if (source.name == format) return ReadSource(write({}));
    }
    if (format == "LAS") return ReadLas(write({}));
    if (format == "NPY") return ReadNpy(write);
    if (format == "NPZ") return ReadNpz(write({}));
    if (format == "PNG") return ReadPng(write);
    if (format == "EXR") return ReadExrScan(write({}));
    ADD_FAILURE() << "nothing reads " << format << " back";
    return {};
}

}  // namespace kxexchange::testing
