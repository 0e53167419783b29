// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "E57Field.h"
#include "E57Node.h"
#include "kxexchange/ScanDescription.h"

namespace kxexchange {

/// Which field of the prototype plays which part; empty where none does.
struct E57Roles {
    using Index = std::optional<size_t>;
    Index x, y, z, cartesianInvalid;
    Index range, azimuth, elevation, sphericalInvalid;
    Index row, column;
    Index intensity, intensityInvalid;
    Index red, green, blue, colorInvalid;

    bool Cartesian() const { return x && y && z; }
    bool Spherical() const { return range && azimuth && elevation; }
    bool Indexed() const { return row && column; }
    bool Color() const { return red && green && blue; }
};

/// First and last row and column, as the file counts them.
struct E57IndexBounds {
    int64_t firstRow = 0;
    int64_t lastRow = -1;
    int64_t firstColumn = 0;
    int64_t lastColumn = -1;
};

/// What one element of data3D says.
struct E57Scan {
    std::string where;            ///< "points of scan 1"
    ScanDescription description;  ///< all but grid and images
    std::vector<E57Field> fields;
    E57Roles roles;
    const E57Node* points = nullptr;  ///< of the document
    std::string guid;
    std::optional<E57IndexBounds> declared;
    /// Colours: stored = (value - least) x factor, to 255 or 65535 (description.colorBits).
    std::array<double, 3> colorLeast{};
    double colorFactor = 1;
    /// What cells without a return say instead of an intensity, when the file tells.
    std::optional<double> emptyIntensity;
    std::vector<std::string> warnings;
};

/// Among this library's own facts of a scan: E57Scan::emptyIntensity.
constexpr std::string_view kEmptyIntensityFact = "empty-intensity";

/// Reads element `index` of data3D (which must exist). `document` must outlive the result.
/// \throws SourceFormatException
E57Scan DescribeE57Scan(const E57Document& document, size_t index, const std::string& file);

/// A UUID as this library writes it: upper case, in braces.
std::string E57GuidText(const kxbase::UUID& uuid);

/// The children of a Vector of the root; empty when there is none.
const std::vector<E57Node>& E57Children(const E57Document& document, std::string_view vector);

}  // namespace kxexchange
