// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxio/Export.h"

namespace kxio {

class QSNScanReader;

/// A property of two scans that is not the same.
struct KXIO_EXPORT PropertyDifference {
    std::string name;      ///< "grid.columns", "messages": as `qsn info --json` calls it
    std::string first;     ///< of the first scan, as text
    std::string second;    ///< of the second
    bool storage = false;  ///< only how the scan is stored: patch size, codecs, sizes of previews
};

/// How the cells of one component differ.
struct KXIO_EXPORT ComponentDifference {
    kxbase::ComponentType component{};  ///< whose cells these are
    bool inFirst = false;               ///< the first scan has it
    bool inSecond = false;              ///< the second has it
    uint64_t cells = 0;                 ///< compared
    uint64_t different = 0;             ///< of them, beyond the tolerance
    uint64_t notCompared = 0;           ///< in patches that cannot be read in one of the scans
    /// First cell that differs, row by row of patches.
    std::optional<std::pair<uint32_t, uint32_t>> firstCell;
    /// Largest difference of all cells, also within the tolerance: range in the file's unit, angles in
    /// radians, intensity and colour (of one channel) in counts. Infinite where one value is no number;
    /// nothing for identifiers and components of unknown meaning.
    std::optional<double> largest;
    std::string problem;  ///< why cells cannot be compared; or what the first patch not compared says

    /// In both scans, all cells compared, and none differs.
    bool Equal() const {
        return inFirst && inSecond && different == 0 && notCompared == 0 && problem.empty();
    }
};

/// What is not the same in two scans.
struct KXIO_EXPORT DiffReport {
    std::vector<PropertyDifference> properties;   ///< in the order of the properties
    std::vector<ComponentDifference> components;  ///< ascending, those of both scans
    bool sameSize = true;                         ///< columns and rows agree; cells are compared only then

    /// Cells agree, whatever the properties say.
    bool CellsEqual() const;
    /// Nothing differs but how the scans are stored.
    bool Equal() const;
};

/// How two scans are compared.
struct DiffOptions {
    /// Differences up to this much count as none; 0 for components that are not listed. Cells with and
    /// without a return differ always.
    std::map<kxbase::ComponentType, double> tolerance;
    unsigned threads = 1;  ///< that decode; 0 takes as many as the machine has
    /// Called now and then, in the calling thread, with the cells done and to do, over all components. What
    /// it throws ends the comparison and leaves it unchanged.
    std::function<void(uint64_t done, uint64_t total)> progress;
};

/// Compares two open scans: properties, and every cell of every component.
///
/// Patch sizes and codecs may differ. Works patch by patch of the scan with the larger patches; memory is a
/// few patches per thread. The result does not depend on the number of threads. Reads nothing but the two
/// scans.
KXIO_EXPORT DiffReport DiffScans(const QSNScanReader& first, const QSNScanReader& second,
                                 const DiffOptions& options = {});

}  // namespace kxio
