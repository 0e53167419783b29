// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "kxexchange/Errors.h"
#include "kxexchange/Export.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

/// The points of a cloud are not those of one scan from the origin of its frame: their directions lie in no
/// columns, or many of them share a direction. The context's detail says which, with numbers.
class KXEXCHANGE_EXPORT NotOneStationException : public kxbase::KXException {
public:
    using KXException::KXException;
    ~NotOneStationException() override;
};

struct RegridOptions {
    std::filesystem::path temporaryFolder;  ///< for what does not fit in memory; empty: the system's
    /// The share of points that may collide or find no place; above it the cloud counts as no single scan.
    double mostLeftOut = 0.2;
};

/// What became of the points of one scan.
struct RegridReport {
    uint64_t columns = 0;
    uint64_t rows = 0;
    double columnStep = 0;  ///< radians
    double rowStep = 0;     ///< radians; the mean one where the rows are uneven
    bool unevenRows = false;
    uint64_t points = 0;    ///< of the cloud
    uint64_t placed = 0;    ///< in a cell of their own
    uint64_t collided = 0;  ///< whose cell was taken by an earlier point
    uint64_t leftOut = 0;   ///< at the origin, or without a place
};

/// Puts points without a grid that came from one place, the origin of their frame, on a grid.
///
/// Directions are counted in fine histograms of azimuth (in bands of elevation) and elevation (in bands of
/// azimuth). Columns and rows show as combs: the lowest strong frequency of the histograms' spectra is their
/// number per turn, and the phases along the bands are the drift of columns along the sweep, and of rows
/// along the turn. Rows may also be told apart as clusters of elevation, as of instruments with uneven beams;
/// whichever lets fewer points of some columns collide is taken. Every point then goes to the nearest column
/// and row; the first in a cell stays. Columns run with growing azimuth, rows with growing elevation.
///
/// Scans that have a grid pass through. The cloud is read three times before the first column is given.
/// Points that found no cell are named in the description's `unheld` and in a warning. Memory: 90 MB of
/// histograms and spectra while the grid is sought, one bit per cell, and a block of columns (at most 40 MB
/// for ordinary grids; what is more waits in a temporary file).
class KXEXCHANGE_EXPORT RegridSource final : public ScanSource {
public:
    explicit RegridSource(std::unique_ptr<ScanSource> inner, const RegridOptions& options = {});
    ~RegridSource() override;

    std::string FormatName() const override;
    std::string Name() const override;
    uint64_t ScanCount() override;
    /// Whether the file holds so many scans, of whatever kind. Closes the open one.
    bool HasScan(uint64_t index);
    /// \throws NotOneStationException  the scan has no grid and is none; also what the inner source throws
    ScanDescription OpenScan(uint64_t index) override;
    uint64_t ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) override;
    std::vector<std::string> Warnings() const override;
    uint64_t BytesRead() const override;
    uint64_t FileBytes() const override;

    /// Of the open scan; null when it had a grid.
    const RegridReport* Report() const;

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace kxexchange
