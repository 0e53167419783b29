// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "kxbase/GridTopology.h"
#include "kxexchange/GridLayout.h"
#include "kxexchange/IntensityMapping.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

/// The values of all patches of one column of patches, patch after patch, each row by row in full patch
/// size; what lies outside the grid is 0.
struct PatchColumn {
    uint32_t column = 0;            ///< patch column
    uint64_t missing = 0;           ///< source columns still to come
    std::vector<float> range;       ///< millimetres
    std::vector<float> vertical;    ///< radians
    std::vector<float> horizontal;  ///< radians
    std::vector<uint16_t> luminance16;
    std::vector<uint8_t> luminance8;
    std::vector<uint8_t> color;     ///< three bytes per cell
    std::vector<uint32_t> classes;  ///< class numbers
};

/// Which values an import keeps, and how.
struct StorageRules {
    double rangeScale = 0.1;     ///< millimetres
    IntensityMapping intensity;  ///< Kind::None: no intensity
    bool color = false;
    uint8_t colorBits = 8;  ///< of the cells; 16 bits are rounded to 8
    bool classes = false;
    bool directions = false;  ///< cells without a return keep a direction of their own
    CoordinateKind coordinateKind = CoordinateKind::Cartesian;
};

/// Turns cells, source column after source column, into values of patches.
///
/// Only columns of patches that have begun and are not complete are in memory: one, or three where the grid
/// is folded.
class PatchAssembler {
public:
    using Done = std::function<void(std::unique_ptr<PatchColumn>)>;

    /// `topology` is the grid as it will be written; `layout` must be consistent and fit it.
    PatchAssembler(const kxbase::GridTopology& topology, const GridLayout& layout, const StorageRules& rules);

    /// Takes the next source column; `done` receives every column of patches that is now complete.
    void AddColumn(std::span<const Cell> cells, const Done& done);
    /// Gives back a column's memory for the next one. May run at the same time as AddColumn.
    void Recycle(std::unique_ptr<PatchColumn> column);

    /// Columns of patches that have begun and are not complete.
    size_t OpenColumns() const { return m_open.size(); }

    // Greatest distances between the cells' own directions and the grid's, radians.
    double MaxHorizontalResidual() const {
        return m_maxHorizontalResidual;
    }  ///< along the circle of latitude
    double MaxVerticalResidual() const { return m_maxVerticalResidual; }
    /// Greatest magnitude of a horizontal angle.
    double GreatestHorizontal() const { return m_greatestHorizontal; }
    /// Returns nearer than half a range step, which are kept at one step.
    uint64_t ReturnsAtOrigin() const { return m_returnsAtOrigin; }
    /// Directions of cells without a return that were kept.
    uint64_t Directions() const { return m_directions; }

private:
    PatchColumn& Open(uint32_t patchColumn);
    void Fill(std::span<const Cell> cells, uint64_t gridColumn, bool far);
    double HorizontalAt(uint64_t gridColumn) const;
    /// Cells of one column whose places are found together: as many as stay in the nearest cache.
    struct Batch {
        static constexpr size_t kMost = 256;
        size_t count = 0;
        std::array<const Cell*, kMost> cells;
        std::array<size_t, kMost> rows;  ///< of the grid
        std::array<double, kMost> x, y, z;
        // Places as the file has them: range in millimetres, angles in radians.
        std::array<double, kMost> range, vertical, horizontal;
    };
    void FindPlaces(Batch& batch, double gridHorizontal) const;
    void Place(Batch& batch, PatchColumn& column, size_t inPatch, double gridHorizontal);
    void SetValues(PatchColumn& column, size_t at, const Cell& cell) const;

    kxbase::GridTopology m_topology;
    GridLayout m_layout;
    StorageRules m_rules;
    uint64_t m_nextColumn = 0;
    std::vector<size_t> m_rowOffsets;  // of a grid row's first value in a column of patches
    std::vector<double> m_rowAngles;   // vertical angle of a grid row
    std::map<uint32_t, std::unique_ptr<PatchColumn>> m_open;
    std::mutex m_spareMutex;
    std::vector<std::unique_ptr<PatchColumn>> m_spare;
    double m_maxHorizontalResidual = 0;
    double m_maxVerticalResidual = 0;
    double m_greatestHorizontal = 0;
    uint64_t m_returnsAtOrigin = 0;
    uint64_t m_directions = 0;
};

}  // namespace kxexchange
