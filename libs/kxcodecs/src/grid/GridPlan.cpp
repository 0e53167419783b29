// SPDX-License-Identifier: MIT
#include "grid/GridPlan.h"

#include <algorithm>
#include <cmath>

#include "grid/GridPrediction.h"

namespace kxcodecs::grid {
namespace {

constexpr Predictor kAll[] = {Predictor::Copy,   Predictor::Mean3,  Predictor::Mean5,  Predictor::Mean7,
                              Predictor::Mean15, Predictor::Both1,  Predictor::Both3,  Predictor::Both7,
                              Predictor::Both15, Predictor::Half1,  Predictor::Half3,  Predictor::Half7,
                              Predictor::Half15, Predictor::Slope3, Predictor::Slope7, Predictor::Slope15,
                              Predictor::Zero};
constexpr Predictor kQuick[] = {Predictor::Copy,  Predictor::Mean3,  Predictor::Mean7, Predictor::Both3,
                                Predictor::Both7, Predictor::Both15, Predictor::Half7, Predictor::Zero};

// Greater differences count as this one when predictors are compared, so that sums stay in 32 bits.
constexpr int32_t kMostScored = 1 << 22;

// All lines of one axis with their aprons; cells that are not stored continue the line before. The line in
// front of line 0 repeats it.
class Plane {
public:
    Plane(const GridSource& source, const Shape& shape, std::vector<uint16_t>& mask)
        : m_stride(shape.Stride()), m_cells(m_stride * (std::size_t{shape.Lines()} + 1)) {
        const std::size_t cellStep = shape.axis == Axis::Rows ? 1 : shape.width;
        const std::size_t lineStep = shape.axis == Axis::Rows ? shape.width : 1;
        const std::size_t cells = shape.LineCells(), padded = std::size_t{shape.Groups()} * kBlock;
        mask.assign(shape.MaskWords(), 0);
        for (std::size_t line = 0; line < shape.Lines(); ++line) {
            uint32_t* const out = Line(line);
            const uint32_t* const before = Line(line) - m_stride;
            uint32_t carried = line == 0 ? FirstStored(source, cells, cellStep) : 0;
            for (std::size_t i = 0; i < cells; ++i) {
                const std::size_t at = line * lineStep + i * cellStep;
                if (source.present[at]) {
                    out[i] = source.codes[at];
                    uint16_t& word = mask[line * shape.Groups() + i / kBlock];
                    word = static_cast<uint16_t>(word | (1U << (i % kBlock)));
                } else {
                    out[i] = line == 0 ? carried : before[i];
                }
                carried = out[i];
            }
            for (std::size_t i = cells; i < padded; ++i)
                out[i] = line == 0 ? carried : before[i];
            std::fill_n(out - kApron, kApron, out[0]);
            std::fill_n(out + padded, kApron, out[padded - 1]);
            if (line == 0) std::copy_n(out - kApron, m_stride, out - kApron - m_stride);
        }
    }
    uint32_t* Line(std::size_t line) { return m_cells.data() + (line + 1) * m_stride + kApron; }
    std::size_t Stride() const { return m_stride; }

private:
    static uint32_t FirstStored(const GridSource& source, std::size_t cells, std::size_t step) {
        for (std::size_t i = 0; i < cells; ++i) {
            if (source.present[i * step]) return source.codes[i * step];
        }
        return 0;
    }
    std::size_t m_stride;
    std::vector<uint32_t> m_cells;
};

// One block of the plane while its predictor is sought.
struct Block {
    const uint32_t* first;  // of its first line that is predicted
    std::size_t stride;
    uint32_t lines;
    uint32_t stored;
    uint32_t lanes[kBlockCells];        // all bits set: the cell is stored
    uint32_t differences[kBlockCells];  // to the predictor tried last; 0 in cells that are not stored
};

KXGRID_INLINE uint64_t ScorePredictor(Predictor predictor, Block& block) {
    uint32_t sum = 0;
    for (uint32_t line = 0; line < block.lines; ++line) {
        const uint32_t* const now = block.first + line * block.stride;
        uint32_t predicted[kBlock];
        Predict16(predictor, now - block.stride, now - 2 * block.stride, predicted);
        uint32_t* const out = block.differences + line * kBlock;
        const uint32_t* const lanes = block.lanes + line * kBlock;
        for (uint32_t i = 0; i < kBlock; ++i) {
            const uint32_t difference = (now[i] - predicted[i]) & lanes[i];
            out[i] = difference;
            sum += static_cast<uint32_t>(
                std::clamp(static_cast<int32_t>(difference), -kMostScored, kMostScored));
        }
    }
    const auto mean =
        static_cast<uint32_t>(static_cast<int32_t>(sum) / static_cast<int32_t>(std::max(1U, block.stored)));
    uint32_t score = 0;
    for (uint32_t i = 0; i < block.lines * kBlock; ++i) {
        const auto rest = static_cast<int32_t>(block.differences[i] - mean);
        const uint32_t size = rest < 0 ? 0U - static_cast<uint32_t>(rest) : static_cast<uint32_t>(rest);
        score += std::min(size, static_cast<uint32_t>(kMostScored)) & block.lanes[i];
    }
    return score;
}

KXGRID_INLINE Predictor BestPredictor(Block& block, const Predictor* tried, std::size_t count) {
    Predictor best = tried[0], last = tried[0];
    uint64_t least = ~uint64_t{0};
    for (std::size_t k = 0; k < count; ++k) {
        last = tried[k];
        const uint64_t score = ScorePredictor(last, block);
        if (score < least) {
            least = score;
            best = last;
        }
    }
    if (best != last) ScorePredictor(best, block);
    return best;
}

Predictor BestPlain(Block& block, const Predictor* tried, std::size_t count) {
    return BestPredictor(block, tried, count);
}
#ifdef KXGRID_WIDE
KXGRID_WIDE_TARGET Predictor BestWide(Block& block, const Predictor* tried, std::size_t count) {
    return BestPredictor(block, tried, count);
}
#endif

Predictor Best(Block& block, bool quick) {
    const Predictor* const tried = quick ? kQuick : kAll;
    const std::size_t count = quick ? std::size(kQuick) : std::size(kAll);
#ifdef KXGRID_WIDE
    if (VectorsInUse() == Vectors::Wide) return BestWide(block, tried, count);
#endif
    return BestPlain(block, tried, count);
}

// The median of the stored differences makes the sum of what is left least.
uint32_t MedianOf(const uint32_t* stored, uint32_t count) {
    int32_t sorted[kBlockCells];
    for (uint32_t i = 0; i < count; ++i)
        sorted[i] = static_cast<int32_t>(stored[i]);
    std::nth_element(sorted, sorted + count / 2, sorted + count);
    return static_cast<uint32_t>(sorted[count / 2]);
}

}  // namespace

void MakePlan(const GridSource& source, const Shape& shape, bool quick, GridPlan& out) {
    out.shape = shape;
    Plane plane(source, shape, out.mask);
    const uint32_t groups = shape.Groups();
    out.firstLine.assign(plane.Line(0), plane.Line(0) + shape.LineCells());
    out.predictors.assign(shape.Blocks(), 0);
    out.offsets.assign(shape.Blocks(), 0);
    out.counts.assign(shape.Blocks(), 0);
    out.residuals.clear();
    out.residuals.reserve(source.presentCount);
    out.bits = 0;
    Block block;
    block.stride = plane.Stride();
    for (uint32_t blockRow = 0; blockRow < shape.BlockRows(); ++blockRow) {
        const uint32_t firstLine = std::max(1U, blockRow * kBlock);
        const uint32_t endLine = std::min(shape.Lines(), (blockRow + 1) * kBlock);
        if (firstLine >= endLine) continue;
        block.lines = endLine - firstLine;
        for (uint32_t group = 0; group < groups; ++group) {
            block.first = plane.Line(firstLine) + std::size_t{group} * kBlock;
            block.stored = 0;
            for (uint32_t line = 0; line < block.lines; ++line) {
                const uint32_t word = out.mask[std::size_t{firstLine + line} * groups + group];
                for (uint32_t i = 0; i < kBlock; ++i) {
                    const uint32_t bit = (word >> i) & 1;
                    block.lanes[line * kBlock + i] = 0U - bit;
                    block.stored += bit;
                }
            }
            const std::size_t index = std::size_t{blockRow} * groups + group;
            out.counts[index] = static_cast<uint16_t>(block.stored);
            if (block.stored == 0) continue;
            out.predictors[index] = static_cast<uint8_t>(Best(block, quick));
            uint32_t stored[kBlockCells];
            uint32_t count = 0;
            for (uint32_t i = 0; i < block.lines * kBlock; ++i) {
                stored[count] = block.differences[i];
                count += block.lanes[i] & 1;
                if (count == block.stored) break;
            }
            const uint32_t offset = MedianOf(stored, count);
            out.offsets[index] = offset;
            uint64_t sum = 0;
            for (uint32_t i = 0; i < count; ++i) {
                const uint32_t residual = Zigzag(stored[i] - offset);
                out.residuals.push_back(residual);
                sum += residual;
            }
            out.bits += count * std::log2(1.0 + static_cast<double>(sum) / count);
        }
    }
}

}  // namespace kxcodecs::grid
