// SPDX-License-Identifier: MIT
#include "grid/GridPlan.h"

#include <algorithm>
#include <cmath>

#include "grid/GridBlockChoice.h"

namespace kxcodecs::grid {
namespace {

constexpr Predictor kAll[] = {Predictor::Copy,   Predictor::Mean3,  Predictor::Mean5,  Predictor::Mean7,
                              Predictor::Mean15, Predictor::Both1,  Predictor::Both3,  Predictor::Both7,
                              Predictor::Both15, Predictor::Half1,  Predictor::Half3,  Predictor::Half7,
                              Predictor::Half15, Predictor::Slope3, Predictor::Slope7, Predictor::Slope15,
                              Predictor::Zero};
constexpr Predictor kQuick[] = {Predictor::Copy,   Predictor::Mean3, Predictor::Both3, Predictor::Both7,
                                Predictor::Both15, Predictor::Half7, Predictor::Zero};
// What is tried to compare the axes, in every so many lines of a block.
constexpr Predictor kTrial[] = {Predictor::Copy,  Predictor::Mean3,  Predictor::Both7,
                                Predictor::Half7, Predictor::Slope7, Predictor::Zero};
constexpr uint32_t kTrialLines = 4;
// Axes that differ by less are both planned in full, unless it is to be quick.
constexpr double kClose = 1.1;
constexpr uint32_t kQuickLines = 3;
// What residuals of noise take beyond the logarithm of their mean.
constexpr double kNoiseBits = 1.4;

// All lines of one axis with their aprons; cells that are not stored continue the line before. The line in
// front of line 0 repeats it.
class Plane {
public:
    Plane(const uint32_t* codes, const uint8_t* present, const Shape& shape)
        : m_shape(shape), m_stride(shape.Stride()), m_cells(m_stride * (std::size_t{shape.Lines()} + 1)) {
        const std::size_t cells = shape.LineCells(), padded = std::size_t{shape.Groups()} * kBlock;
        m_mask.assign(shape.MaskWords(), 0);
        for (std::size_t line = 0; line < shape.Lines(); ++line) {
            uint32_t* const out = Line(line);
            const uint32_t* const code = codes + line * cells;
            const uint8_t* const stored = present + line * cells;
            if (line == 0) {
                uint32_t carried = FirstStored(code, stored, cells);
                for (std::size_t i = 0; i < padded; ++i) {
                    if (i < cells && stored[i]) carried = code[i];
                    out[i] = carried;
                }
            } else {
                Continue(code, stored, out - m_stride, cells, out);
                std::copy(out - m_stride + cells, out - m_stride + padded, out + cells);
            }
            uint16_t* const words = m_mask.data() + line * shape.Groups();
            for (std::size_t i = 0; i < cells; ++i)
                words[i / kBlock] = static_cast<uint16_t>(words[i / kBlock] | (stored[i] << (i % kBlock)));
            std::fill_n(out - kApron, kApron, out[0]);
            std::fill_n(out + padded, kApron, out[padded - 1]);
            if (line == 0) std::copy_n(out - kApron, m_stride, out - kApron - m_stride);
        }
    }
    const Shape& GetShape() const { return m_shape; }
    const std::vector<uint16_t>& Mask() const { return m_mask; }
    uint32_t* Line(std::size_t line) { return m_cells.data() + (line + 1) * m_stride + kApron; }

    // The lines of a row of blocks that are predicted: first and end.
    std::pair<uint32_t, uint32_t> LinesOf(uint32_t blockRow) const {
        return {std::max(1U, blockRow * kBlock), std::min(m_shape.Lines(), (blockRow + 1) * kBlock)};
    }
    void TakeBlock(uint32_t blockRow, uint32_t group, PlanBlock& block) {
        const auto [first, end] = LinesOf(blockRow);
        block.first = Line(first) + std::size_t{group} * kBlock;
        block.stride = m_stride;
        block.lines = end - first;
        TakeMask(m_mask.data() + std::size_t{first} * m_shape.Groups() + group, m_shape.Groups(), block);
    }

private:
    static uint32_t FirstStored(const uint32_t* codes, const uint8_t* stored, std::size_t cells) {
        const auto found = std::find(stored, stored + cells, uint8_t{1});
        return found == stored + cells ? 0 : codes[found - stored];
    }
    static void Continue(const uint32_t* KXGRID_RESTRICT code, const uint8_t* KXGRID_RESTRICT stored,
                         const uint32_t* KXGRID_RESTRICT before, std::size_t cells,
                         uint32_t* KXGRID_RESTRICT out) {
        for (std::size_t i = 0; i < cells; ++i) {
            const uint32_t lane = 0U - stored[i];
            out[i] = (code[i] & lane) | (before[i] & ~lane);
        }
    }

    Shape m_shape;
    std::size_t m_stride;
    std::vector<uint32_t> m_cells;
    std::vector<uint16_t> m_mask;
};

// About the bits of a residual, from a part of the blocks.
double TrialBits(Plane& plane) {
    PlanBlock block;
    double bits = 0, all = 0;
    const Shape& shape = plane.GetShape();
    for (uint32_t blockRow = 0; blockRow < shape.BlockRows(); ++blockRow) {
        const auto [first, end] = plane.LinesOf(blockRow);
        if (first >= end) continue;
        for (uint32_t group = 0; group < shape.Groups(); ++group) {
            plane.TakeBlock(blockRow, group, block);
            if (block.stored == 0) continue;
            uint64_t score = 0;
            BestPredictor(kTrial, kTrialLines, block, score);
            const double cells = block.stored;
            const double tried = std::max(1.0, cells / kTrialLines);
            bits += cells * std::log2(1.0 + 2 * static_cast<double>(score) / tried);
            all += cells;
        }
    }
    return bits / std::max(1.0, all);
}

template <class T>
std::vector<T> Turned(const std::vector<T>& image, uint32_t width, uint32_t height) {
    std::vector<T> turned(image.size());
    for (uint32_t top = 0; top < height; top += kBlock) {
        const uint32_t end = std::min(height, top + kBlock);
        for (uint32_t x = 0; x < width; ++x) {
            for (uint32_t y = top; y < end; ++y)
                turned[std::size_t{x} * height + y] = image[std::size_t{y} * width + x];
        }
    }
    return turned;
}

// The median of the stored differences makes the sum of what is left least.
uint32_t MedianOf(const uint32_t* stored, uint32_t count) {
    int32_t sorted[kBlockCells];
    for (uint32_t i = 0; i < count; ++i)
        sorted[i] = static_cast<int32_t>(stored[i]);
    std::nth_element(sorted, sorted + count / 2, sorted + count);
    return static_cast<uint32_t>(sorted[count / 2]);
}

// How often each residual occurs: few different ones, as those of settled values, take less than their size
// says.
class Occurrences {
public:
    void Count(uint32_t residual) {
        ++m_counts[std::min(residual, kMostToken)];
        if (residual > kMostToken) m_beyond += std::log2(static_cast<double>(residual) / kMostToken);
    }
    double Bits() const {
        double all = 0, bits = m_beyond;
        for (const uint32_t count : m_counts)
            all += count;
        for (const uint32_t count : m_counts)
            if (count > 0) bits += count * std::log2(all / count);
        return bits;
    }

private:
    uint32_t m_counts[kMostToken + 1] = {};
    double m_beyond = 0;
};

// \return about the bits of all residuals
double PlanBlocks(Plane& plane, bool quick, GridPlan& out) {
    const Shape& shape = plane.GetShape();
    out.shape = shape;
    out.mask = plane.Mask();
    out.firstLine.assign(plane.Line(0), plane.Line(0) + shape.LineCells());
    out.predictors.assign(shape.Blocks(), 0);
    out.offsets.assign(shape.Blocks(), 0);
    out.counts.assign(shape.Blocks(), 0);
    out.residuals.clear();
    out.residuals.reserve(shape.Cells());
    double bits = 0;
    Occurrences occurrences;
    PlanBlock block;
    for (uint32_t blockRow = 0; blockRow < shape.BlockRows(); ++blockRow) {
        const auto [first, end] = plane.LinesOf(blockRow);
        if (first >= end) continue;
        for (uint32_t group = 0; group < shape.Groups(); ++group) {
            plane.TakeBlock(blockRow, group, block);
            const std::size_t index = std::size_t{blockRow} * shape.Groups() + group;
            out.counts[index] = static_cast<uint16_t>(block.stored);
            if (block.stored == 0) continue;
            uint64_t score = 0;
            out.predictors[index] =
                static_cast<uint8_t>(quick ? BestPredictor(kQuick, kQuickLines, block, score)
                                           : BestPredictor(kAll, 1, block, score));
            uint32_t stored[kBlockCells + 1];
            uint32_t count = 0;
            for (uint32_t i = 0; i < block.lines * kBlock; ++i) {
                stored[count] = block.differences[i];
                count += block.lanes[i] & 1;
            }
            const uint32_t offset = MedianOf(stored, count);
            out.offsets[index] = offset;
            const std::size_t before = out.residuals.size();
            out.residuals.resize(before + count);
            uint64_t sum = 0;
            for (uint32_t i = 0; i < count; ++i) {
                const uint32_t residual = Zigzag(stored[i] - offset);
                out.residuals[before + i] = residual;
                sum += residual;
                if (!quick) occurrences.Count(residual);
            }
            bits += count * (kNoiseBits + std::log2(1.0 + static_cast<double>(sum) / std::max(1U, count)));
        }
    }
    return quick ? bits : std::min(bits, occurrences.Bits());
}

}  // namespace

void MakePlan(const GridSource& source, uint32_t width, uint32_t height, bool quick, GridPlan& out) {
    Plane rows(source.codes.data(), source.present.data(), Shape{width, height, Axis::Rows});
    Plane columns(Turned(source.codes, width, height).data(), Turned(source.present, width, height).data(),
                  Shape{width, height, Axis::Columns});
    const double ofRows = TrialBits(rows), ofColumns = TrialBits(columns);
    const bool close = !quick && std::max(ofRows, ofColumns) < kClose * std::min(ofRows, ofColumns);
    Plane& plane = ofColumns < ofRows ? columns : rows;
    const double bits = PlanBlocks(plane, quick, out);
    if (!close) return;
    GridPlan other;
    if (PlanBlocks(&plane == &rows ? columns : rows, quick, other) < bits) out = std::move(other);
}

}  // namespace kxcodecs::grid
