// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kxbase/Date.h"
#include "kxbase/RegistrationInformation.h"
#include "kxbase/UUID.h"
#include "kxexchange/Cell.h"
#include "kxexchange/Export.h"

namespace kxexchange {

/// How a file stores the numbers of a field. Tells a writer what is needed to keep them bit by bit.
enum class NumberKind : uint8_t {
    Unknown,
    Integer,  ///< whole numbers
    Scaled,   ///< whole multiples of `precision`, plus an offset
    Single,   ///< single precision
    Double,   ///< double precision
    Text,     ///< decimal text of any length
};

/// What is known about one field of a scan before its cells are read.
struct FieldDescription {
    bool present = false;
    std::string unit;               ///< "m", "rad", "1" for a share of 1, "count"; empty when unknown
    std::optional<double> minimum;  ///< declared range, when the format declares one
    std::optional<double> maximum;
    bool assumedRange =
        false;  ///< minimum and maximum follow from the storage; the file does not declare them
    std::optional<double> precision;  ///< step of the stored values, in `unit`
    NumberKind numbers = NumberKind::Unknown;
};

/// The instrument, as far as a file names it. UTF-8; empty where it does not.
struct SensorDescription {
    std::string vendor;
    std::string model;
    std::string serial;
    std::string hardwareVersion;
    std::string softwareVersion;
    std::string firmwareVersion;

    bool Empty() const { return *this == SensorDescription(); }
    bool operator==(const SensorDescription&) const = default;
};

/// An image that belongs to a scan.
struct ImageDescription {
    enum class Encoding : uint8_t { Jpeg, Png };
    /// How the image relates to the scan.
    enum class Role : uint8_t { VisualReference, Pinhole, Spherical, Cylindrical };

    std::string name;  ///< UTF-8; may be empty
    Encoding encoding = Encoding::Jpeg;
    Role role = Role::VisualReference;
    uint64_t width = 0;  ///< pixels; 0 when unknown
    uint64_t height = 0;
    uint64_t byteCount = 0;
    /// Reads the image's bytes; may be called, in the source's thread, as long as the source lives, also
    /// between two calls of ReadColumns.
    std::function<std::vector<unsigned char>()> load;
};

/// Something a reader met in a file that this library cannot carry.
struct UnheldFact {
    std::string field;   ///< name in the file: "timeStamp", "extension demo"
    std::string detail;  ///< for people; may be empty
};

/// What a file says about one of its scans, in front of the cells.
struct ScanDescription {
    std::string name;                      ///< UTF-8; may be empty
    std::string text;                      ///< the file's own words about the scan
    std::optional<kxbase::UUID> uuid;      ///< of the scan
    bool uuidMade = false;                 ///< made up at the import: nothing is lost with it
    std::optional<kxbase::UUID> original;  ///< of the scan it was made from
    kxbase::Date acquisitionStart;         ///< UTC; not set when unknown
    kxbase::Date acquisitionEnd;
    SensorDescription sensor;

    uint64_t columns = 0;  ///< columns of the grid; 0 x 0 when the scan has no grid
    uint64_t rows = 0;
    uint64_t points = 0;      ///< cells, or points of a scan without grid, that the file announces
    bool directions = false;  ///< cells without a return may carry their direction
    CoordinateKind coordinateKind = CoordinateKind::Cartesian;
    kxbase::RegistrationInformation pose;  ///< instrument's frame to the project's; translation in metres

    /// x, y, z or range. `maximum` is the greatest magnitude that may appear, when the reader knows.
    FieldDescription coordinates;
    FieldDescription angles;  ///< of a spherical scan
    FieldDescription intensity;
    FieldDescription color;
    uint8_t colorBits = 8;            ///< 8 or 16
    FieldDescription classification;  ///< class numbers
    std::vector<ImageDescription> images;

    /// Facts of the format that have no place above and that its writer would like back, as (key, value)
    /// with keys of [a-z0-9-] and values without blanks.
    std::vector<std::pair<std::string, std::string>> keepsakes;
    /// What the reader met and cannot give: the loss report of every import and conversion names it.
    std::vector<UnheldFact> unheld;

    bool HasGrid() const { return columns != 0 && rows != 0; }
};

}  // namespace kxexchange
