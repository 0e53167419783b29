// SPDX-License-Identifier: MIT
#include "grid/GridPlan.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <span>

#include "grid/GridBlockChoice.h"

namespace kxcodecs::grid {
namespace {

constexpr Predictor kAll[] = {Predictor::Copy,   Predictor::Mean3,  Predictor::Mean5,  Predictor::Mean7,
                              Predictor::Mean15, Predictor::Both1,  Predictor::Both3,  Predictor::Both7,
                              Predictor::Both15, Predictor::Half1,  Predictor::Half3,  Predictor::Half7,
                              Predictor::Half15, Predictor::Slope3, Predictor::Slope7, Predictor::Slope15,
                              Predictor::Zero};
// What a quick plan tries on samples.
constexpr Predictor kQuick[] = {Predictor::Copy,  Predictor::Mean3,  Predictor::Both3, Predictor::Both7,
                                Predictor::Half7, Predictor::Slope7, Predictor::Zero};

// How much is tried.
struct Effort {
    std::span<const Predictor> predictors;  // on samples
    std::size_t shortlist;                  // of them on all blocks
    uint32_t tiles;                         // samples
    uint32_t lineStep;                      // every so many lines of a block are looked at
    int offsetRounds;                       // how often an offset is brought nearer to the middle
};
constexpr Effort kQuickEffort{kQuick, 3, 2, 2, 1};
constexpr Effort kFullEffort{kAll, 12, 6, 1, 3};
// Samples are squares, so that both axes are tried on the same cells.
constexpr uint32_t kTile = 64;
constexpr uint32_t kTrialStep = 2;
// Of axes that differ by less the residuals of some samples are looked at, unless it is to be quick.
constexpr double kClose = 1.1;
constexpr std::size_t kPlannedTiles = 2;
// What residuals of noise take beyond the logarithm of their mean, and a part of that which is no noise.
constexpr double kNoiseBits = 1.4;
constexpr double kFew = 0.8;
// A predictor that does not spare that part of the bits is not worth trying.
constexpr double kWorthwhile = 0.0003;

// Places of samples: spread over the image, but where cells are stored.
std::vector<ImagePart> Tiles(const GridSource& source, uint32_t most) {
    const uint32_t across = (source.width + kTile - 1) / kTile, down = (source.height + kTile - 1) / kTile;
    const std::size_t groups = (std::size_t{source.width} + kBlock - 1) / kBlock;
    struct Tile {
        bool filled;
        uint32_t order;
        ImagePart part;
    };
    std::vector<Tile> tiles;
    for (uint32_t y = 0; y < down; ++y) {
        for (uint32_t x = 0; x < across; ++x) {
            const ImagePart part{x * kTile, y * kTile, std::min(kTile, source.width - x * kTile),
                                 std::min(kTile, source.height - y * kTile)};
            uint32_t stored = 0;
            for (uint32_t row = 0; row < part.height; row += 4) {
                const uint16_t* const words =
                    source.found.stored.data() + (part.top + row) * groups + part.left / kBlock;
                for (uint32_t g = 0; g < (part.width + kBlock - 1) / kBlock; ++g)
                    stored += words[g] == 0xFFFF ? kBlock : static_cast<uint32_t>(std::popcount(words[g]));
            }
            // Those that are nearly empty come last, and neighbours not one after the other.
            const uint32_t order = (5 * y + 2 * x + 3) % 8 * 0x10000U + y * across + x;
            tiles.push_back({stored * 8 >= kTile * kTile / 4, order, part});
        }
    }
    std::sort(tiles.begin(), tiles.end(), [](const Tile& a, const Tile& b) {
        return a.filled != b.filled ? a.filled : a.order < b.order;
    });
    std::vector<ImagePart> out;
    for (std::size_t i = 0; i < tiles.size() && i < most; ++i)
        out.push_back(tiles[i].part);
    return out;
}

// What samples of one axis and one value map promise.
struct Trial {
    double bits = 0;  // all of them
    double cells = 0;
    std::vector<std::vector<double>> of;  // per predictor: bits of each block
};

void TryPlane(const Plane& plane, std::span<const Predictor> tried, Trial& trial) {
    std::vector<uint32_t> scores(tried.size() * plane.Groups()), stored(plane.Groups());
    for (uint32_t blockLine = 0; blockLine < plane.Lines(); blockLine += kBlock) {
        // Line 1 has but one line before it, which would speak against predictors from two.
        const uint32_t first = blockLine > 0 ? blockLine : std::min(2U, plane.Lines() - 1);
        const uint32_t end = std::min(plane.Lines(), blockLine + kBlock);
        if (first == 0 || first >= end) continue;
        const PlanRow row{plane.Line(first), plane.Stride(), plane.Mask() + first * plane.Groups(),
                          plane.Groups(), end - first};
        ScoreRow(row, tried, kTrialStep, scores.data(), stored.data());
        for (std::size_t group = 0; group < row.groups; ++group) {
            const double cells = stored[group];
            if (cells == 0) continue;
            uint32_t least = ~uint32_t{0};
            for (std::size_t k = 0; k < tried.size(); ++k) {
                const uint32_t score = scores[k * row.groups + group];
                trial.of[k].push_back(cells * std::log2(1.0 + 2 * score / cells));
                least = std::min(least, score);
            }
            trial.bits += cells * std::log2(1.0 + 2 * least / cells);
            trial.cells += cells;
        }
    }
}

Trial TryAxis(const GridSource& source, const LineVector<uint32_t>& codes, Axis axis,
              std::span<const ImagePart> tiles, std::span<const Predictor> tried, Plane& plane) {
    Trial trial;
    trial.of.resize(tried.size());
    for (const ImagePart& tile : tiles) {
        plane.Take(codes.data(), source.found.stored.data(), source.width, tile, axis);
        TryPlane(plane, tried, trial);
    }
    return trial;
}

// The few predictors that together leave the least, one by one.
std::vector<Predictor> Shortlist(const Trial& trial, const Effort& effort) {
    const std::size_t blocks = trial.of[0].size();
    std::vector<double> least(blocks, 1e300);
    std::vector<Predictor> out;
    double before = 1e300;
    while (out.size() < effort.shortlist) {
        std::size_t best = 0;
        double leastSum = 1e300;
        for (std::size_t k = 0; k < trial.of.size(); ++k) {
            double sum = 0;
            for (std::size_t i = 0; i < blocks; ++i)
                sum += std::min(least[i], trial.of[k][i]);
            if (sum < leastSum) {
                leastSum = sum;
                best = k;
            }
        }
        if (leastSum >= before * (1 - kWorthwhile)) break;
        before = leastSum;
        out.push_back(effort.predictors[best]);
        for (std::size_t i = 0; i < blocks; ++i)
            least[i] = std::min(least[i], trial.of[best][i]);
    }
    if (out.empty()) out.push_back(Predictor::Mean3);
    return out;
}

// Plans all blocks of a plane.
void PlanBlocks(const Plane& plane, std::span<const Predictor> tried, const Effort& effort, GridPlan& out) {
    const std::size_t groups = plane.Groups(), blocks = (plane.Lines() + kBlock - 1) / kBlock * groups;
    out.predictors.assign(blocks, 0);
    out.offsets.assign(blocks, 0);
    out.counts.assign(blocks, 0);
    if (out.residuals.size() < blocks * kBlockCells + kBlock)
        out.residuals.resize(blocks * kBlockCells + kBlock);
    uint32_t* next = out.residuals.data();
    std::size_t at = 0;
    for (uint32_t blockLine = 0; blockLine < plane.Lines(); blockLine += kBlock, at += groups) {
        const uint32_t first = std::max(1U, blockLine), end = std::min(plane.Lines(), blockLine + kBlock);
        if (first >= end) continue;
        const PlanRow row{plane.Line(first), plane.Stride(), plane.Mask() + first * groups, groups,
                          end - first};
        next +=
            ChooseRow(row, tried, {effort.lineStep, effort.offsetRounds},
                      {out.predictors.data() + at, out.offsets.data() + at, out.counts.data() + at}, next);
    }
}

// About the bits of residuals: by their size, and by how often each occurs. Few different ones, as those of
// settled values, take less than their size says.
class ResidualBits {
public:
    void Add(const GridPlan& plan) {
        const uint32_t* residual = plan.residuals.data();
        for (const uint16_t count : plan.counts) {
            if (count == 0) continue;
            double sum = 0;
            for (const uint32_t* const end = residual + count; residual < end; ++residual) {
                sum += *residual;
                ++m_counts[std::min(*residual, kMostToken)];
                if (*residual > kMostToken) m_beyond += std::bit_width(*residual);
            }
            m_bySize += count * (kNoiseBits + std::log2(1.0 + sum / count));
            m_all += count;
        }
    }
    // By how often each occurs, a residual.
    double ByOccurrence() const {
        const double all = std::max(1.0, m_all);
        double bits = m_beyond;
        for (const uint32_t count : m_counts)
            if (count > 0) bits += count * std::log2(all / count);
        return bits / all;
    }
    // Whether they are fewer different ones than those of noise.
    bool AreFew() const { return m_all > 0 && ByOccurrence() < kFew * m_bySize / m_all; }

private:
    uint32_t m_counts[kMostToken + 1] = {};
    double m_beyond = 0, m_bySize = 0, m_all = 0;
};

// The residuals of an axis when samples are planned as the chunk will be.
ResidualBits PlannedBits(const GridSource& source, const LineVector<uint32_t>& codes, Axis axis,
                         std::span<const ImagePart> tiles, const Trial& trial, const Effort& effort,
                         GridPlan& scratch) {
    ResidualBits bits;
    const std::vector<Predictor> tried = Shortlist(trial, effort);
    for (const ImagePart& tile : tiles) {
        scratch.plane.Take(codes.data(), source.found.stored.data(), source.width, tile, axis);
        PlanBlocks(scratch.plane, tried, effort, scratch);
        bits.Add(scratch);
    }
    return bits;
}

}  // namespace

void MakePlan(const GridSource& source, bool quick, bool ranks, GridPlan& out) {
    const Effort& effort = quick ? kQuickEffort : kFullEffort;
    const std::vector<ImagePart> tiles = Tiles(source, effort.tiles);
    Trial best;
    double least = 0;
    bool chosen = false;
    for (const ValueMap map : {ValueMap::Step, ValueMap::Ranks}) {
        if (map == ValueMap::Ranks && (!ranks || source.table.empty())) continue;
        const LineVector<uint32_t>& codes = map == ValueMap::Step ? source.codes : source.ranks;
        Trial trials[2];
        double bits[2];
        for (const Axis axis : {Axis::Rows, Axis::Columns}) {
            const auto k = static_cast<std::size_t>(axis);
            trials[k] = TryAxis(source, codes, axis, tiles, effort.predictors, out.plane);
            // Both leave out first lines, which may have more or fewer cells.
            bits[k] = trials[k].bits / std::max(1.0, trials[k].cells);
        }
        std::size_t better = bits[1] < bits[0] ? 1 : 0;
        if (!quick && bits[1 - better] < kClose * bits[better] && trials[better].cells > 0) {
            const auto some = std::span<const ImagePart>(tiles).first(std::min(tiles.size(), kPlannedTiles));
            const ResidualBits ofRows = PlannedBits(source, codes, Axis::Rows, some, trials[0], effort, out);
            const ResidualBits ofColumns =
                PlannedBits(source, codes, Axis::Columns, some, trials[1], effort, out);
            if (ofRows.AreFew() || ofColumns.AreFew())
                better = ofColumns.ByOccurrence() < ofRows.ByOccurrence() ? 1 : 0;
        }
        if (map == ValueMap::Ranks)
            bits[better] +=
                source.tableBits / static_cast<double>(std::max<std::size_t>(1, source.presentCount));
        if (chosen && bits[better] >= least) continue;
        least = bits[better];
        best = std::move(trials[better]);
        chosen = true;
        out.map = map;
        out.shape = Shape{source.width, source.height, static_cast<Axis>(better)};
    }
    const LineVector<uint32_t>& codes = out.map == ValueMap::Step ? source.codes : source.ranks;
    out.plane.Take(codes.data(), source.found.stored.data(), source.width,
                   {0, 0, source.width, source.height}, out.shape.axis);
    out.firstLine.assign(out.plane.Line(0), out.plane.Line(0) + out.shape.LineCells());
    PlanBlocks(out.plane, Shortlist(best, effort), effort, out);
}

}  // namespace kxcodecs::grid
