// SPDX-License-Identifier: MIT
#include "CellPlanes.h"

#include <array>
#include <cmath>
#include <limits>

#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

constexpr std::array<std::string_view, 12> kNames{"range", "azimuth", "elevation",      "x",
                                                  "y",     "z",       "intensity",      "red",
                                                  "green", "blue",    "classification", "valid"};

bool Has(PlaneKind plane, const ScanDescription& description) {
    switch (plane) {
        case PlaneKind::Intensity:
            return description.intensity.present;
        case PlaneKind::Red:
        case PlaneKind::Green:
        case PlaneKind::Blue:
            return description.color.present;
        case PlaneKind::Classification:
            return description.classification.present;
        default:
            return true;
    }
}

}  // namespace

std::string_view NameOf(PlaneKind plane) {
    return kNames[static_cast<size_t>(plane)];
}

std::vector<PlaneKind> PlanesOf(const ScanDescription& description) {
    std::vector<PlaneKind> planes;
    for (size_t i = 0; i < kNames.size(); ++i) {
        const auto plane = static_cast<PlaneKind>(i);
        const bool derived = plane == PlaneKind::X || plane == PlaneKind::Y || plane == PlaneKind::Z;
        if (!derived && Has(plane, description)) planes.push_back(plane);
    }
    return planes;
}

PlaneKind FindPlane(std::string_view name, const ScanDescription& description) {
    for (size_t i = 0; i < kNames.size(); ++i) {
        if (kNames[i] == name && Has(static_cast<PlaneKind>(i), description))
            return static_cast<PlaneKind>(i);
    }
    kxbase::ErrorContext context;
    context.field = "plane";
    context.detail = "found " + std::string(name) + ", expected one of";
    for (size_t i = 0; i < kNames.size(); ++i) {
        if (Has(static_cast<PlaneKind>(i), description)) context.detail += " " + std::string(kNames[i]);
    }
    throw kxbase::KXBadInputException("Scan has no such plane", context);
}

void RequireGrid(const ScanDescription& description, const char* format) {
    if (description.HasGrid()) return;
    kxbase::ErrorContext context;
    context.detail = std::string(format) + " holds grids; the scan is a list of points";
    throw kxbase::KXBadInputException("Scan has no grid", context);
}

double PlaneValue(const Cell& cell, PlaneKind plane) {
    constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
    switch (plane) {
        case PlaneKind::Range:
            return cell.valid ? std::hypot(std::hypot(cell.x, cell.y), cell.z) : kNone;
        case PlaneKind::Azimuth:
            return cell.valid || cell.direction ? std::atan2(cell.y, cell.x) : kNone;
        case PlaneKind::Elevation:
            return cell.valid || cell.direction ? std::atan2(cell.z, std::hypot(cell.x, cell.y)) : kNone;
        case PlaneKind::X:
            return cell.valid ? cell.x : kNone;
        case PlaneKind::Y:
            return cell.valid ? cell.y : kNone;
        case PlaneKind::Z:
            return cell.valid ? cell.z : kNone;
        case PlaneKind::Intensity:
            return cell.valid && !cell.intensityInvalid ? cell.intensity : kNone;
        case PlaneKind::Red:
            return cell.red;
        case PlaneKind::Green:
            return cell.green;
        case PlaneKind::Blue:
            return cell.blue;
        case PlaneKind::Classification:
            return cell.classification;
        case PlaneKind::Valid:
            return cell.valid ? 1 : 0;
    }
    return kNone;
}

}  // namespace kxexchange
