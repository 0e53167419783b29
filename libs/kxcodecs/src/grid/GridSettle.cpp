// SPDX-License-Identifier: MIT
#include <algorithm>
#include <limits>
#include <vector>

#include "grid/GridPlan.h"
#include "grid/GridPrediction.h"
#include "grid/GridSource.h"
#include "kxbase/Exceptions.h"
#include "kxcodecs/GridChunkCodec.h"
#include "kxcodecs/SettleValues.h"

namespace kxcodecs {
namespace {

using namespace grid;

// The number from low to high that divides by the greatest power of two; 0 where it is among them. Numbers
// that are all multiples of few powers have few different tokens.
int64_t Roundest(int64_t low, int64_t high) {
    if (low <= 0 && high >= 0) return 0;
    for (int bits = 31;; --bits) {
        const int64_t multiple = high >> bits << bits;
        if (multiple >= low) return multiple;
    }
}

// Lines along the plan's axis with their aprons, filled one after the other as a decoder does it: what is
// predicted follows from the lines that have settled already.
class Settling {
public:
    Settling(const GridSource& source, const GridPlan& plan, std::span<const uint32_t> reach,
             std::span<int32_t> values)
        : m_source(source),
          m_plan(plan),
          m_reach(reach),
          m_values(values),
          m_lines(3 * plan.shape.Stride()) {}

    uint64_t Run() {
        const uint32_t lines = m_plan.shape.Lines();
        FirstLine();
        for (uint32_t line = 1; line < lines; ++line)
            NextLine(line);
        return m_moved;
    }

private:
    // Three lines are kept in turn.
    uint32_t* Line(uint32_t line) { return m_lines.data() + line % 3 * m_plan.shape.Stride() + kApron; }
    std::size_t CellAt(uint32_t line, uint32_t i) const {
        const Shape& shape = m_plan.shape;
        return shape.axis == Axis::Rows ? std::size_t{line} * shape.width + i
                                        : std::size_t{i} * shape.width + line;
    }
    bool IsStored(uint32_t line, uint32_t i) const {
        return m_plan.shape.axis == Axis::Rows ? m_source.IsStored(i, line) : m_source.IsStored(line, i);
    }
    uint32_t CodeAt(uint32_t line, uint32_t i) const {
        return m_source.codes[m_plan.shape.axis == Axis::Rows ? m_source.At(i, line) : m_source.At(line, i)];
    }
    void FillAprons(uint32_t* line) const {
        const std::size_t padded = std::size_t{m_plan.shape.Groups()} * kBlock;
        std::fill_n(line - kApron, kApron, line[0]);
        std::fill_n(line + padded, kApron, line[padded - 1]);
    }
    void FirstLine() {
        uint32_t* const line = Line(0);
        const std::vector<uint32_t>& first = m_plan.firstLine;
        std::copy(first.begin(), first.end(), line);
        std::fill(line + first.size(), line + std::size_t{m_plan.shape.Groups()} * kBlock, first.back());
        FillAprons(line);
        std::copy_n(line - kApron, m_plan.shape.Stride(), Line(2) - kApron);
    }
    void NextLine(uint32_t line) {
        const Shape& shape = m_plan.shape;
        uint32_t* const now = Line(line);
        const uint32_t* const before = Line(line + 2);
        const uint32_t* const beforeThat = Line(line + 1);
        for (uint32_t group = 0; group < shape.Groups(); ++group) {
            const std::size_t block = std::size_t{line / kBlock} * shape.Groups() + group;
            const uint32_t at = group * kBlock;
            uint32_t predicted[kBlock];
            Predict16(static_cast<Predictor>(m_plan.predictors[block]), before + at, beforeThat + at,
                      predicted);
            for (uint32_t i = 0; i < kBlock; ++i) {
                const uint32_t cell = at + i;
                now[cell] = before[cell];
                if (cell < shape.LineCells() && IsStored(line, cell))
                    now[cell] =
                        Settle(CellAt(line, cell), CodeAt(line, cell), predicted[i] + m_plan.offsets[block]);
            }
        }
        FillAprons(now);
    }
    // Returns the number that the cell has now.
    uint32_t Settle(std::size_t cell, uint32_t code, uint32_t predicted) {
        const int64_t reach = m_reach[cell];
        if (reach == 0) return code;
        const int64_t residual = static_cast<int32_t>(code - predicted);
        const int64_t change = Roundest(residual - reach, residual + reach) - residual;
        const int64_t value = m_values[cell] + change;
        if (change == 0 || value < std::numeric_limits<int32_t>::min() ||
            value > std::numeric_limits<int32_t>::max()) {
            return code;
        }
        m_values[cell] = static_cast<int32_t>(value);
        ++m_moved;
        return code + static_cast<uint32_t>(change);
    }

    const GridSource& m_source;
    const GridPlan& m_plan;
    std::span<const uint32_t> m_reach;
    std::span<int32_t> m_values;
    std::vector<uint32_t> m_lines;
    uint64_t m_moved = 0;
};

// Values settled with a long reach may look like cells without a return, whose mask costs more than is won;
// so shorter ones are tried too.
constexpr uint32_t kShorter[] = {16, 7, 4, 2};

// As they lie in a chunk.
std::vector<unsigned char> BytesOf(std::span<const int32_t> values) {
    std::vector<unsigned char> bytes(values.size() * sizeof(int32_t));
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(static_cast<uint32_t>(values[i / 4]) >> (8 * (i % 4)));
    return bytes;
}

std::size_t ChunkBytes(std::span<const int32_t> values, uint32_t width, uint32_t height) {
    std::vector<unsigned char> chunk;
    GridChunkCodec().Encode(values.data(), width, height, values.size_bytes(), 1.0F, chunk);
    return chunk.size();
}

}  // namespace

uint64_t SettleValues(std::span<int32_t> values, uint32_t width, uint32_t height,
                      std::span<const uint32_t> reach) {
    constexpr uint32_t kMostReach = uint32_t{1} << 30;
    if (values.size() != uint64_t{width} * height || reach.size() != values.size() ||
        std::any_of(reach.begin(), reach.end(), [](uint32_t r) { return r >= kMostReach; })) {
        throw kxbase::KXBadInputException("Values cannot be settled");
    }
    const uint32_t longest = values.empty() ? 0 : *std::max_element(reach.begin(), reach.end());
    if (longest == 0) return 0;
    GridSource source;
    // Numbers with a step are few already; a move would take them out of it.
    if (!TakeApart(BytesOf(values), width, height, false, source) || source.step != 1 ||
        source.presentCount == 0) {
        return 0;
    }
    GridPlan plan;
    MakePlan(source, false, false, plan);
    std::size_t least = ChunkBytes(values, width, height);
    uint64_t moved = 0;
    std::vector<int32_t> best(values.begin(), values.end());
    std::vector<uint32_t> capped(reach.begin(), reach.end());
    const auto tryOut = [&] {
        std::vector<int32_t> settled(values.begin(), values.end());
        const uint64_t count = Settling(source, plan, capped, settled).Run();
        const std::size_t bytes = ChunkBytes(settled, width, height);
        if (bytes >= least) return;
        least = bytes;
        moved = count;
        best = std::move(settled);
    };
    tryOut();
    for (const uint32_t cap : kShorter) {
        if (cap >= longest) continue;
        for (uint32_t& r : capped)
            r = std::min(r, cap);
        tryOut();
    }
    std::copy(best.begin(), best.end(), values.begin());
    return moved;
}

}  // namespace kxcodecs
