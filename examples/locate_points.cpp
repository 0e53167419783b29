// SPDX-License-Identifier: MIT
// Where a scan lies in space: boxes, corners and points of its patches, the way from a point to its cell and
// back, and the scanner's tilt.
//
//   locate_points FILE.qsn
#include <kxio/kxio.h>

#include <cmath>
#include <iostream>
#include <numbers>
#include <vector>

namespace {

constexpr double kDegree = std::numbers::pi / 180;

// A box is told by its corners along the grid: `start` is the edge of the first column and row.
void ShowBox(const kxio::QSNScanReader& reader) {
    kxbase::tBasePolarPoint<float> start;
    kxbase::tBasePolarPoint<float> end;
    reader.GetBoundingBox(1, 2, start, end);
    std::cout << "patch (1, 2): columns from " << std::lround(start.horizontal / kDegree) << " to "
              << std::lround(end.horizontal / kDegree) << " degrees, rows from "
              << std::lround(start.vertical / kDegree) << " to " << std::lround(end.vertical / kDegree)
              << ", " << std::lround(start.range) << " to " << std::lround(end.range) << " mm away\n";
}

void ShowExtent(const kxio::QSNScanReader& reader) {
    const kxbase::tBoundingBox<float> box = reader.GetScanEstimatedBoundingBox();
    std::cout << "estimated box: x " << (box.min.x < -3999 && box.max.x > 3999 ? "holds" : "misses")
              << " the room\n";
    const std::vector<kxbase::tBaseXYZPoint<float>> corners = reader.GetPatchVertices(1, 2);
    std::cout << corners.size() << " corners: four of the far face, four of the near one\n";

    std::vector<kxbase::tBaseXYZPoint<float>> points;
    reader.Get3DPatch(1, 2, points, true);  // true: returns only
    std::cout << points.size() << " points in patch (1, 2)\n";
}

// From a point to the cell that stores it, from a direction to the nearest cell with a return, and back.
void Locate(const kxio::CoordConverter3D& scan) {
    const kxbase::tBasePolarPoint<float> stored = scan.GetPoint(kxbase::QSNCoordinates{1, 2, 10, 20});
    const kxbase::tBaseXYZPoint<float> point(stored);
    const kxbase::QSNIndexCoordinates cell = scan.GetClosestQSNCoordinate(point);
    const uint32_t patchWidth = scan.GetScanInformation().grid.patchWidth;
    std::cout << "point found in patch " << cell.patchIndex << ", row " << cell.index / patchWidth
              << ", column " << cell.index % patchWidth << '\n';

    const kxbase::Angles east{.horizontal = 0, .vertical = std::numbers::pi_v<float> / 2};
    const auto ahead = scan.GetPoint(scan.GetClosestValidQSNCoordinate(east));
    std::cout << "east wall: " << std::lround(ahead.range) << " mm\n";
    try {
        scan.GetClosestQSNCoordinate({0, 0, 100000});
    } catch (const kxbase::KXBadInputException& e) {
        std::cout << "100 m above: " << e.what() << '\n';
    }
}

// A tilt of kind 3 or 4 takes effect; putting it into the registration and taking it out are inverse.
void Tilt(const kxio::ScanProperties& properties) {
    kxio::ScanProperties::TiltInfo tilt = properties.tilt;
    tilt.kind = 3;
    tilt.angles = {.first = 1 * kDegree, .second = 0};
    const auto tilted = kxio::ApplyTilt(tilt, properties.registration);
    const auto back = kxio::RemoveTilt(tilt, tilted);
    std::cout << "there and back: off by less than 1e-12: "
              << (std::abs(back.Values()[0] - properties.registration.Values()[0]) < 1e-12 ? "yes" : "no")
              << '\n';
    const kxbase::tBaseXYZPoint<float> p =
        kxio::ApplyTiltToPoint(tilt, kxbase::tBaseXYZPoint<float>(10000, 0, 0));
    std::cout << "ten metres out, " << std::lround(p.z) << " mm up\n";
}

// The registration takes the scanner's frame, in metres, to the project's.
void Place(const kxio::ScanProperties& properties, const kxbase::tBaseXYZPoint<float>& millimetres) {
    const kxmath::Frame toProject = properties.registration.ToFrame();
    const kxmath::Vector3 local{millimetres.x / 1000.0, millimetres.y / 1000.0, millimetres.z / 1000.0};
    const kxmath::Vector3 placed = toProject.Transform(local);
    std::cout << "in the project: " << placed.x << ' ' << placed.y << ' ' << placed.z << '\n';
}

void Explore(const std::wstring& path) {
    const kxio::CoordConverter3D scan(path);  // a reader that converts
    ShowBox(scan);
    ShowExtent(scan);
    Locate(scan);
    Tilt(scan.GetScanInformation());
    Place(scan.GetScanInformation(), {4000, 0, -1500});
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: locate_points FILE.qsn\n";
        return 2;
    }
    try {
        Explore(kxbase::Decode_UTF8(argv[1]));
    } catch (const kxbase::KXException& e) {
        std::cerr << e.Describe() << '\n';
        return 1;
    }
    return 0;
}
