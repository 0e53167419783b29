// SPDX-License-Identifier: MIT
// The points of real scans back to their cells.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <iostream>
#include <map>

#include "ImportSample.h"
#include "kxio/CoordConverter3D.h"

namespace {

using kxbase::QSNIndexCoordinates;
using PolarPoint = kxbase::tBasePolarPoint<float>;
using XYZPoint = kxbase::tBaseXYZPoint<float>;

constexpr double kTwoPi = 6.283185307179586;

QSNIndexCoordinates CellAt(const kxbase::GridTopology& grid, uint32_t row, uint32_t column) {
    return {grid.PatchesPerRow() * (row / grid.patchHeight) + column / grid.patchWidth,
            grid.patchWidth * (row % grid.patchHeight) + column % grid.patchWidth};
}

/// Where a point with a return lies, seen from its cell.
enum class Place {
    NearItsCell,  ///< among the 25 cells around the direction's place
    Away,         ///< farther off
    BeyondEdge,   ///< by more than half a cell before the first row or column, hence taken for a later turn
    StraightUp,   ///< at the zenith or nadir, where a position tells no horizontal angle
};

Place PlaceOf(const kxbase::GridTopology& grid, const PolarPoint& point, uint32_t row, uint32_t column) {
    const auto columnStep = static_cast<double>(grid.columnAngularStep);
    const auto rowStep = static_cast<double>(grid.rowAngularStep);
    const auto rowStart = static_cast<double>(grid.rowStartAngle);
    const auto vertical = static_cast<double>(point.vertical);
    if (std::abs(std::sin(vertical)) < 1e-6) return Place::StraightUp;
    const double ahead = static_cast<double>(grid.columnStartAngle) - column * columnStep -
                         static_cast<double>(point.horizontal);
    const double columns = std::remainder(ahead, kTwoPi) / columnStep;
    const double rows = (vertical - rowStart) / rowStep - row;
    // Half a step more: the search begins at the middle of the cell that the direction falls into.
    if (std::abs(columns) >= 2.5 || std::abs(rows) >= 2.5) return Place::Away;
    const bool closes = 2 * columnStep > std::abs(kTwoPi - grid.columns * columnStep);
    if (!closes && column + columns <= -0.499) return Place::BeyondEdge;
    if (row + rows <= -0.499 || vertical < 0) return Place::BeyondEdge;
    return Place::NearItsCell;
}

struct Sample {
    const char* name;
    uint64_t returns;
};

void PrintTo(const Sample& sample, std::ostream* out) {
    *out << sample.name;
}

class SampleScans : public testing::TestWithParam<Sample> {};

TEST_P(SampleScans, EveryPointNearItsPlaceOnTheGridIsFoundAgain) {
    const std::filesystem::path source = kxtest::SampleScan(GetParam().name);
    if (source.empty())
        GTEST_SKIP() << "the folder ../shared/data with " << GetParam().name << " is not there";
    const TempFolder folder;
    const kxio::CoordConverter3D scan(kxtest::ImportSample(source, folder));
    const kxbase::GridTopology& grid = scan.GetScanInformation().grid;
    const auto precision = scan.GetScanInformation().componentValue;

    uint64_t returns = 0;
    std::map<Place, uint64_t> places;
    uint64_t lost = 0;
    for (uint32_t column = 0; column < grid.columns; ++column) {
        for (uint32_t row = 0; row < grid.rows; ++row) {
            const QSNIndexCoordinates cell = CellAt(grid, row, column);
            const PolarPoint stored = scan.GetPoint(cell);
            if (!(stored.range > 0)) continue;
            ++returns;
            const Place place = PlaceOf(grid, stored, row, column);
            ++places[place];
            if (place != Place::NearItsCell) continue;
            try {
                const PolarPoint found = scan.GetPoint(scan.GetClosestQSNCoordinate(XYZPoint(stored)));
                // What is found stores the same point; a neighbour may.
                ASSERT_LT(std::abs(static_cast<double>(found.range - stored.range)), 2 * precision[0]);
                ASSERT_LT(std::abs(static_cast<double>(found.vertical - stored.vertical)), 2 * precision[1]);
            } catch (const kxbase::KXBadInputException& error) {
                if (++lost < 5)
                    ADD_FAILURE() << error.what() << ": row " << row << ", column " << column << ", range "
                                  << stored.range << ", horizontal " << stored.horizontal << ", vertical "
                                  << stored.vertical;
            }
        }
    }
    EXPECT_EQ(returns, GetParam().returns);
    EXPECT_EQ(lost, 0U);
    EXPECT_GE(places[Place::NearItsCell], returns / 1000 * 995);
    for (const auto& [place, name] : {std::pair{Place::NearItsCell, "near"},
                                      {Place::Away, "away"},
                                      {Place::BeyondEdge, "beyondTheEdge"},
                                      {Place::StraightUp, "straightUp"}})
        RecordProperty(name, std::to_string(places[place]));
    std::cout << GetParam().name << ": " << returns << " returns; " << places[Place::NearItsCell]
              << " found; " << places[Place::Away] << " farther than two steps from their cell, "
              << places[Place::BeyondEdge] << " beyond the grid's first row or column, "
              << places[Place::StraightUp] << " straight up\n";
}

INSTANTIATE_TEST_SUITE_P(Real, SampleScans,
                         testing::Values(Sample{"pump_345x1074.ptx.gz", 155201},
                                         Sample{"street_a_1024x128.ptx.gz", 107647},
                                         Sample{"forest_a_290x2103.ptx.gz", 489936},
                                         Sample{"tilt_226x360.ptx.gz", 79879}),
                         [](const testing::TestParamInfo<Sample>& sample) {
                             const std::string name = sample.param.name;
                             return name.substr(0, name.find('_'));
                         });

}  // namespace
