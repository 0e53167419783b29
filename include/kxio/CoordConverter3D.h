// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "kxbase/Points.h"
#include "kxbase/QSNIndex.h"
#include "kxbase/tPolarVector.h"
#include "kxio/Export.h"
#include "kxio/QSNScanReader.h"

namespace kxio {

/// Converts between directions, 3D points and grid cells of one open scan.
///
/// Points are in the scanner's frame and in the file's length unit (x = r sin v cos h, y = r sin v sin h,
/// z = r cos v); angles in radians. Patches are decoded on first use and kept until the converter is
/// destroyed: three floats per cell of every patch visited. One converter therefore serves the scan it was
/// constructed on; for another file take another converter instead of opening it with this one. All const
/// members may run at the same time; one mutex per converter serialises cache and loading.
class KXIO_EXPORT CoordConverter3D : public QSNScanReader {
public:
    /// Opens the scan. \throws what opening a reader throws
    explicit CoordConverter3D(const std::wstring& path);
    /// The same on a stream that stays the caller's.
    explicit CoordConverter3D(kxbase::IInFileStream* stream);
    ~CoordConverter3D() override;

    /// The stored point of a cell, or the invalid point (-1, -1, -1) for a cell outside the grid, in an
    /// unreadable patch, or behind the end of its patch. Row and column in the patch are compared with the
    /// whole grid's extent only: column patchWidth of row 0 is column 0 of row 1. Never throws.
    kxbase::tBasePolarPoint<float> GetPoint(const kxbase::QSNIndexCoordinates& cell) const;
    /// The same by row and column.
    kxbase::tBasePolarPoint<float> GetPoint(const kxbase::QSNCoordinates& cell) const;

    /// The cell that stores this very point: the first match, within the scan's precision, of the 5 x 5
    /// cells around the point's place on the grid, the centre first.
    /// \throws KXBadInputException "Coordinate not found"
    kxbase::QSNIndexCoordinates GetClosestQSNCoordinate(const kxbase::tBaseXYZPoint<float>& point) const;
    /// The cell with a return whose direction is closest to `direction`, of the 5 x 5 cells around it.
    /// \throws KXBadInputException "Coordinate not found" when none of them has a return
    kxbase::QSNIndexCoordinates GetClosestValidQSNCoordinate(const kxbase::Angles& direction) const;

protected:
    /// Whether the patch (row, column) is loaded and holds the component. Call with the mutex held.
    bool IsInCache(const kxbase::ImageCoordinates& patch, kxbase::ComponentType component) const;
    /// Decodes range and angles of a patch into the cache. Call with the mutex held.
    /// \throws KXUnreadablePatchException; nothing is cached then
    void Load(const kxbase::ImageCoordinates& patch) const;
    /// Equal within the stored precision of range and angles; horizontal angles compare around the circle.
    bool IsSamePoint(kxbase::tBasePolarPoint<float> a, kxbase::tBasePolarPoint<float> b) const;

private:
    struct ColumnFirst {
        bool operator()(const kxbase::ImageCoordinates& a, const kxbase::ImageCoordinates& b) const {
            return a.column != b.column ? a.column < b.column : a.row < b.row;
        }
    };
    mutable std::map<kxbase::ImageCoordinates, kxbase::tPolarVector<float>, ColumnFirst> m_cache;
    mutable std::mutex m_mutex;
};

}  // namespace kxio
