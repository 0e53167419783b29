// SPDX-License-Identifier: MIT
// Random grids go through a file and come back.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <numbers>

#include "LineFit.h"
#include "RoundTrip.h"

namespace kxexchange::testing {
namespace {

double Share() {
    return *rc::gen::inRange(0, 10001) / 10000.0;
}
double Between(double least, double greatest) {
    return least + (greatest - least) * Share();
}

Codec LosslessCodec() {
    return *rc::gen::element(Codec::Zlib, Codec::Snappy);
}

ImportOptions AnyOptions() {
    ImportOptions options;
    // Edges of all kinds, without hundreds of single-cell patches in every case.
    options.patchWidth = *rc::gen::element<uint32_t>(1, 5, 16, 40);
    options.patchHeight = *rc::gen::element<uint32_t>(3, 7, 16, 40);
    options.rangeCodec = LosslessCodec();
    options.angleCodec = LosslessCodec();
    options.intensityCodec = LosslessCodec();
    options.colorCodec = LosslessCodec();
    options.compressionLevel = *rc::gen::inRange(-1, 10);
    options.rangeScale = *rc::gen::element(0.1, 0.01, 1.0, 3.0);
    options.verticalScale = *rc::gen::element(1e-6, 1e-5, 1e-7);
    options.horizontalScale = *rc::gen::element(1e-6, 1e-4, 3e-7);
    options.threads = *rc::gen::inRange(1, 4);
    options.histograms = *rc::gen::arbitrary<bool>();
    return options;
}

RC_GTEST_PROP(RoundTrip, SweepsOfAnyOrientationComeBack, ()) {
    Sweep sweep;
    sweep.columns = *rc::gen::inRange<uint64_t>(1, 40);
    sweep.rows = *rc::gen::inRange<uint64_t>(1, 40);
    sweep.firstAzimuth = Between(-4, 4);
    sweep.azimuthStep = Between(-0.3, 0.3);
    sweep.firstAngle = Between(-3, 6);  // many of these pass over the zenith or the nadir
    sweep.angleStep = Between(-0.15, 0.15);
    sweep.wobble = Between(0, 0.5);
    sweep.azimuthDrift = Between(-0.1, 0.1);
    sweep.missing = *rc::gen::element(0.0, 0.3, 0.9, 1.0);
    sweep.seed = *rc::gen::inRange(0U, 1000000U);
    const bool color = *rc::gen::arbitrary<bool>();
    const ImportOptions options = AnyOptions();
    CheckRoundTripOfText(PtxText(MakeSweep(sweep), sweep.columns, sweep.rows, color), options);
    RC_ASSERT(!::testing::Test::HasFailure());
}

RC_GTEST_PROP(RoundTrip, CellsInNoOrderComeBack, ()) {
    const auto columns = *rc::gen::inRange<uint64_t>(1, 30);
    const auto rows = *rc::gen::inRange<uint64_t>(1, 30);
    const double far = std::pow(10, Between(-3, 6));
    std::vector<Cell> cells(static_cast<size_t>(columns * rows));
    for (Cell& cell : cells) {
        cell.intensity = 0.5;
        if (*rc::gen::inRange(0, 4) == 0) continue;
        // Some of them exactly on an axis or at a pole.
        cell.x = *rc::gen::inRange(0, 4) == 0 ? 0 : Between(-far, far);
        cell.y = *rc::gen::inRange(0, 4) == 0 ? 0 : Between(-far, far);
        cell.z = Between(-far, far);
        cell.valid = cell.x != 0 || cell.y != 0 || cell.z != 0;
        cell.intensity = cell.valid ? Between(-10, 10) : 0.5;
    }
    CheckRoundTripOfText(PtxText(cells, columns, rows), AnyOptions());
    RC_ASSERT(!::testing::Test::HasFailure());
}

RC_GTEST_PROP(GridFit, AnySweepEndsInAConsistentLayout, ()) {
    Sweep sweep;
    sweep.columns = *rc::gen::inRange<uint64_t>(1, 60);
    sweep.rows = *rc::gen::inRange<uint64_t>(1, 60);
    sweep.azimuthStep = Between(-7, 7);
    sweep.firstAngle = Between(-20, 20);
    sweep.angleStep = Between(-1, 1);
    sweep.wobble = Between(0, 3);
    sweep.missing = Share();
    sweep.seed = *rc::gen::inRange(0U, 1000000U);
    const std::vector<Cell> cells = MakeSweep(sweep);
    const std::span<const Cell> all(cells);
    kxexchange::GridFit fit;
    const auto rows = static_cast<size_t>(sweep.rows);
    for (size_t i = 0; i < sweep.columns; ++i)
        fit.AddColumn(all.subspan(i * rows, rows));
    const FittedGrid grid = fit.Finish();
    RC_ASSERT(grid.layout.IsConsistent());
    RC_ASSERT(std::isfinite(grid.columnStart) && std::isfinite(grid.rowStart));
    RC_ASSERT(grid.columnStep > 0 && grid.rowStep > 0);
    RC_ASSERT(grid.columnStep <= std::numbers::pi && grid.rowStep <= std::numbers::pi);
    LayoutMessage message;
    message.layout = grid.layout;
    const auto back = LayoutMessage::Parse(message.Format());
    RC_ASSERT(back.has_value());
    RC_ASSERT(back->layout == grid.layout);
}

RC_GTEST_PROP(LayoutMessage, AnyTextParsesOrDoesNot, (std::string text)) {
    // Spoils a good line in one place; whatever is accepted must be consistent.
    std::string line =
        "kxio-layout 1 columns=180 rows=100 order=reversed fold=181 gridrows=55 "
        "segments=0+45@far:44-,45+55@near:0+ intensity=integer:-2048:0.0625 empty=0.5 source=PTX";
    const auto at = *rc::gen::inRange<size_t>(0, line.size());
    const auto length = *rc::gen::inRange<size_t>(0, 5);
    line.replace(at, length, text.substr(0, 4));
    const auto message = kxexchange::LayoutMessage::Parse(line);
    if (message) RC_ASSERT(message->layout.IsConsistent());
}

}  // namespace
}  // namespace kxexchange::testing
