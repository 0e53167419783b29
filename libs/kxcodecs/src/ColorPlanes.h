// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace kxcodecs {

/// What a channel's value is predicted by, from the left (l), upper (u) and upper left (c) neighbour. The
/// numbers stand in files.
enum class ColorPredictor : uint8_t {
    Zero = 0,
    Left = 1,
    Up = 2,
    Gradient = 3,  ///< l + u - c
    Median = 4,    ///< of l, u and l + u - c
    Mean = 5,      ///< (l + u) >> 1
    Plane = 6,     ///< (3 (l + u) - 2 c + 2) >> 2
};
inline constexpr uint8_t kColorPredictors = 7;

/// One channel of an image as numbers modulo 256: those of a difference of channels count from -128 to 127.
struct ColorPlane {
    uint32_t width = 0;
    bool difference = false;
    std::vector<unsigned char> values;  ///< row by row
};

/// Replaces the values of cells that are not kept by what is predicted for them, and lists for the kept ones
/// value - prediction, modulo 256, in zigzag order (0, -1, 1, -2, ...).
/// \param kept  one byte per cell, 0 or 1
std::vector<unsigned char> PredictTokens(ColorPlane& plane, ColorPredictor predictor,
                                         std::span<const unsigned char> kept);

/// The way back. \param tokens  as many as there are kept cells
void RestorePlane(ColorPlane& plane, ColorPredictor predictor, std::span<const unsigned char> kept,
                  std::span<const unsigned char> tokens);

/// The predictor after which the middle rows of the plane take the fewest bits, by how often each token
/// occurs.
/// \param cost  about these bits, in 256ths
ColorPredictor BestPredictor(const ColorPlane& plane, std::span<const unsigned char> kept, uint64_t& cost);

}  // namespace kxcodecs
