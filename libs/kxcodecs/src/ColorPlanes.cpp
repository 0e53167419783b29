// SPDX-License-Identifier: MIT
#include "ColorPlanes.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace kxcodecs {
namespace {

// Rows that decide about the predictor.
constexpr std::size_t kTrialRows = 48;

unsigned char Zigzag(int value) {
    const auto byte = static_cast<signed char>(value);
    return static_cast<unsigned char>((byte * 2) ^ (byte >> 7));
}
unsigned char UndoZigzag(unsigned char token) {
    return static_cast<unsigned char>((token >> 1) ^ (0U - (token & 1U)));
}

template <ColorPredictor P>
int Predict(int left, int up, int corner) {
    if constexpr (P == ColorPredictor::Zero) return 0;
    if constexpr (P == ColorPredictor::Left) return left;
    if constexpr (P == ColorPredictor::Up) return up;
    if constexpr (P == ColorPredictor::Gradient) return left + up - corner;
    if constexpr (P == ColorPredictor::Median) {
        const int low = std::min(left, up), high = std::max(left, up);
        return std::max(low, std::min(high, left + up - corner));
    }
    if constexpr (P == ColorPredictor::Mean) return (left + up) >> 1;
    if constexpr (P == ColorPredictor::Plane) return (3 * (left + up) - 2 * corner + 2) >> 2;
}

// Calls `step(cell, prediction)` for each cell in turn; it may change the cell's value. Neighbours outside
// are the one that there is, above the first cell 0.
template <ColorPredictor P, class Number, class Step>
void ForCells(ColorPlane& plane, const Step& step) {
    unsigned char* const values = plane.values.data();
    const std::size_t width = plane.width, count = plane.values.size();
    const auto at = [values](std::size_t i) { return static_cast<int>(static_cast<Number>(values[i])); };
    for (std::size_t row = 0; row < count; row += width) {
        const bool first = row == 0;
        const int above = first ? 0 : at(row - width);
        step(row, Predict<P>(above, above, above));
        for (std::size_t i = row + 1; i < row + width; ++i) {
            const int left = at(i - 1);
            const int up = first ? left : at(i - width);
            const int corner = first ? left : at(i - width - 1);
            step(i, Predict<P>(left, up, corner));
        }
    }
}

template <ColorPredictor P, class Step>
void ForCellsOf(ColorPlane& plane, const Step& step) {
    if (plane.difference) {
        ForCells<P, signed char>(plane, step);
    } else {
        ForCells<P, unsigned char>(plane, step);
    }
}

template <class Step>
void ForCells(ColorPlane& plane, ColorPredictor predictor, const Step& step) {
    switch (predictor) {
        case ColorPredictor::Zero:
            return ForCellsOf<ColorPredictor::Zero>(plane, step);
        case ColorPredictor::Left:
            return ForCellsOf<ColorPredictor::Left>(plane, step);
        case ColorPredictor::Up:
            return ForCellsOf<ColorPredictor::Up>(plane, step);
        case ColorPredictor::Gradient:
            return ForCellsOf<ColorPredictor::Gradient>(plane, step);
        case ColorPredictor::Median:
            return ForCellsOf<ColorPredictor::Median>(plane, step);
        case ColorPredictor::Mean:
            return ForCellsOf<ColorPredictor::Mean>(plane, step);
        case ColorPredictor::Plane:
            return ForCellsOf<ColorPredictor::Plane>(plane, step);
    }
}

// 256 times the logarithm to the base 2, straight between powers of two: the same on every machine.
uint64_t Logarithm(uint64_t number) {
    const auto whole = static_cast<int>(std::bit_width(number)) - 1;
    return static_cast<uint64_t>(whole) * 256 + (((number << 8) >> whole) - 256);
}

uint64_t Cost(std::span<const unsigned char> tokens) {
    std::array<uint64_t, 256> counts{};
    for (const unsigned char token : tokens)
        ++counts[token];
    uint64_t cost = 0;
    for (const uint64_t count : counts)
        if (count > 0) cost += count * (Logarithm(tokens.size()) - Logarithm(count));
    return cost;
}

}  // namespace

std::vector<unsigned char> PredictTokens(ColorPlane& plane, ColorPredictor predictor,
                                         std::span<const unsigned char> kept) {
    std::vector<unsigned char> tokens(plane.values.size());
    std::size_t count = 0;
    ForCells(plane, predictor, [&](std::size_t i, int prediction) {
        unsigned char& value = plane.values[i];
        tokens[count] = Zigzag(value - prediction);
        count += kept[i];
        if (kept[i] == 0) value = static_cast<unsigned char>(prediction);
    });
    tokens.resize(count);
    return tokens;
}

void RestorePlane(ColorPlane& plane, ColorPredictor predictor, std::span<const unsigned char> kept,
                  std::span<const unsigned char> tokens) {
    // Differences to their places first, 0 where none is stored: what is predicted needs no question then.
    std::size_t next = 0;
    for (std::size_t i = 0; i < plane.values.size(); ++i) {
        plane.values[i] = 0;
        if (kept[i] != 0) plane.values[i] = UndoZigzag(tokens[next++]);
    }
    ForCells(plane, predictor, [values = plane.values.data()](std::size_t i, int prediction) {
        values[i] = static_cast<unsigned char>(values[i] + prediction);
    });
}

ColorPredictor BestPredictor(const ColorPlane& plane, std::span<const unsigned char> kept, uint64_t& cost) {
    cost = 0;
    if (plane.values.empty()) return ColorPredictor::Zero;
    const std::size_t rows = plane.values.size() / plane.width;
    const std::size_t trialRows = std::min(rows, kTrialRows);
    const std::size_t begin = (rows - trialRows) / 2 * plane.width;
    const std::size_t count = trialRows * plane.width;
    ColorPredictor best = ColorPredictor::Zero;
    uint64_t least = std::numeric_limits<uint64_t>::max();
    for (uint8_t number = 0; number < kColorPredictors; ++number) {
        ColorPlane trial{plane.width, plane.difference, {}};
        trial.values.assign(plane.values.begin() + static_cast<std::ptrdiff_t>(begin),
                            plane.values.begin() + static_cast<std::ptrdiff_t>(begin + count));
        const auto predictor = static_cast<ColorPredictor>(number);
        const uint64_t bits = Cost(PredictTokens(trial, predictor, kept.subspan(begin, count)));
        if (bits < least) {
            least = bits;
            best = predictor;
        }
    }
    cost = least;
    return best;
}

}  // namespace kxcodecs
