// SPDX-License-Identifier: MIT
#include "ImportPlan.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "TextFormat.h"
#include "kxbase/Exceptions.h"
#include "kxcodecs/ColorChunkCodec.h"
#include "kxcodecs/GridChunkCodec.h"
#include "kxcodecs/JPEGChunkCodec.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxcodecs/ZstdChunkCodec.h"
#include "kxexchange/MakeCodec.h"

namespace kxexchange {

namespace {

constexpr uint32_t kMaxPatchSide = 16384;
constexpr uint64_t kMaxPatchCells = uint64_t{1} << 26;
constexpr int kMaxThreads = 1024;
// The stored numbers have 31 bits for the magnitude; the rounding of single precision takes a little.
constexpr double kGreatestStored = 2147483000.0;
// Finer angle scales would not fit the angles of a folded sweep, and single precision has no use for them.
constexpr double kLeastAngleScale = 1e-8;
constexpr double kGreatestAnglePrecision = 1000;
constexpr double kGreatestAngleScale = 0.1;
constexpr double kLeastRangeScale = 1e-6;
constexpr double kGreatestRangeScale = 1e6;
// A patch may be so many times wider than the grid (or the other way round) before it stops being square.
constexpr uint32_t kMaxPadding = 8;

[[noreturn]] void Refuse(const std::string& field, const std::string& detail) {
    kxbase::ErrorContext context;
    context.field = field;
    context.detail = detail;
    throw kxbase::KXBadInputException("Import option is not acceptable", context);
}

void CheckScale(const char* field, double scale, double least, double greatest, const char* unit) {
    if (!(scale >= least && scale <= greatest)) {
        Refuse(field, "found " + std::to_string(scale) + ", expected " + std::to_string(least) + " to " +
                          std::to_string(greatest) + " " + unit);
    }
}

}  // namespace

void CheckOptions(const ImportOptions& options) {
    if (options.patchWidth == 0 || options.patchHeight == 0 || options.patchWidth > kMaxPatchSide ||
        options.patchHeight > kMaxPatchSide ||
        uint64_t{options.patchWidth} * options.patchHeight > kMaxPatchCells) {
        Refuse("patch size", "found " + std::to_string(options.patchWidth) + " x " +
                                 std::to_string(options.patchHeight) + ", expected sides of 1 to " +
                                 std::to_string(kMaxPatchSide) + " and at most " +
                                 std::to_string(kMaxPatchCells) + " cells");
    }
    CheckScale("range scale", options.rangeScale, kLeastRangeScale, kGreatestRangeScale, "millimetres");
    CheckScale("vertical scale", options.verticalScale, kLeastAngleScale, kGreatestAngleScale, "radians");
    CheckScale("horizontal scale", options.horizontalScale, kLeastAngleScale, kGreatestAngleScale, "radians");
    if (options.rangeCodec == Codec::Jpeg || options.angleCodec == Codec::Jpeg ||
        options.intensityCodec == Codec::Jpeg) {
        Refuse("codec", "JPEG is for colour only");
    }
    if (options.compressionLevel < -1 || options.compressionLevel > 9) {
        Refuse("compression level",
               "found " + std::to_string(options.compressionLevel) + ", expected -1 (default) or 0 to 9");
    }
    if (!(options.anglePrecision >= 0 && options.anglePrecision <= kGreatestAnglePrecision)) {
        Refuse("angle precision", "found " + ShortestText(options.anglePrecision) + ", expected 0 to " +
                                      ShortestText(kGreatestAnglePrecision) + " millimetres");
    }
    if (options.previewSide == 0) Refuse("preview side", "found 0, expected at least 1");
    if (options.threads < 0 || options.threads > kMaxThreads) {
        Refuse("threads", "found " + std::to_string(options.threads) + ", expected 0 (all cores) to " +
                              std::to_string(kMaxThreads));
    }
}

void SetPatchSize(kxbase::GridTopology& grid, uint32_t width, uint32_t height) {
    const uint32_t longSide = std::max(grid.columns, grid.rows);
    const uint32_t shortSide = std::max<uint32_t>(1, std::min(grid.columns, grid.rows));
    width = std::min(width, longSide);
    height = std::min(height, longSide);
    if (std::max(width, height) / shortSide > kMaxPadding) {
        width = std::min(width, grid.columns);
        height = std::min(height, grid.rows);
    }
    grid.patchWidth = std::max<uint32_t>(1, width);
    grid.patchHeight = std::max<uint32_t>(1, height);
}

void SetPreviewSize(kxbase::GridTopology& grid, uint32_t greatestSide) {
    // Previews of a small grid cost little and show every cell.
    constexpr uint64_t kSmallGrid = 16384;
    const auto needed = [greatestSide](uint32_t side) { return (side - 1) / greatestSide + 1; };
    uint32_t step =
        std::max({1U, grid.columns > 0 ? needed(grid.columns) : 1, grid.rows > 0 ? needed(grid.rows) : 1});
    if (uint64_t{grid.columns} * grid.rows > kSmallGrid) step = std::max(step, 2U);
    const auto reduce = [step](uint32_t cells, uint32_t& side, float& ratio) {
        side = std::max(1U, cells / step);
        ratio = static_cast<float>(cells) / static_cast<float>(side);
    };
    reduce(grid.columns, grid.previewWidth, grid.columnRatio);
    reduce(grid.rows, grid.previewHeight, grid.rowRatio);
}

double FittingRangeScale(double wanted, double greatestRange) {
    const double needed = greatestRange * 1000.0 / kGreatestStored;
    if (needed <= wanted) return wanted;
    const double decade = std::pow(10.0, std::floor(std::log10(needed)));
    for (const double step : {1.0, 2.0, 5.0}) {
        if (step * decade >= needed) return step * decade;
    }
    return 10 * decade;
}

kxbase::GridTopology MakeTopology(const FittedGrid& fitted, const ImportOptions& options) {
    constexpr uint64_t kMaxSide = std::numeric_limits<uint32_t>::max();
    if (fitted.layout.GridColumns() > kMaxSide || fitted.layout.gridRows > kMaxSide) {
        kxbase::ErrorContext context;
        context.detail = "found " + std::to_string(fitted.layout.GridColumns()) + " x " +
                         std::to_string(fitted.layout.gridRows) + " cells, expected sides of at most " +
                         std::to_string(kMaxSide);
        throw kxbase::KXBadInputException("Scan is too large", context);
    }
    kxbase::GridTopology grid;
    grid.columnStartAngle = static_cast<float>(fitted.columnStart);
    grid.rowStartAngle = static_cast<float>(fitted.rowStart);
    grid.columnAngularStep = static_cast<float>(fitted.columnStep);
    grid.rowAngularStep = static_cast<float>(fitted.rowStep);
    grid.columns = static_cast<uint32_t>(fitted.layout.GridColumns());
    grid.rows = static_cast<uint32_t>(fitted.layout.gridRows);
    SetPatchSize(grid, options.patchWidth, options.patchHeight);
    SetPreviewSize(grid, options.previewSide);
    grid.UpdateHalfSteps();
    return grid;
}

std::unique_ptr<kxcodecs::QKXChunkCodec> MakeCodec(Codec codec, int compressionLevel) {
    std::unique_ptr<kxcodecs::QKXChunkCodec> made;
    switch (codec) {
        case Codec::Zlib:
            made = std::make_unique<kxcodecs::ZLibChunkCodec>();
            break;
        case Codec::Snappy:
            made = std::make_unique<kxcodecs::SnappyChunkCodec>();
            break;
        case Codec::Jpeg:
            made = std::make_unique<kxcodecs::JPEGChunkCodec>();
            break;
        case Codec::Zstd:
            made = std::make_unique<kxcodecs::ZstdChunkCodec>();
            break;
        case Codec::Color:
            return std::make_unique<kxcodecs::ColorChunkCodec>();
        case Codec::Grid:  // its modes have names, not levels
            return std::make_unique<kxcodecs::GridChunkCodec>(kxcodecs::GridChunkCodec::Mode::Balanced);
        case Codec::GridFast:
            return std::make_unique<kxcodecs::GridChunkCodec>(kxcodecs::GridChunkCodec::Mode::Fast);
    }
    if (!made) Refuse("codec", "no such codec");
    if (compressionLevel >= 0) made->SetCompressionLevel(compressionLevel);
    return made;
}

}  // namespace kxexchange
