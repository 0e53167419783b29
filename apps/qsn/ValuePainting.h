// SPDX-License-Identifier: MIT
#pragma once

#include <utility>
#include <vector>

#include "Picture.h"

namespace qsn {

/// What is drawn from: one number per pixel, NaN where nothing is to be seen.
using Values = std::vector<double>;

struct ValueSpan {
    double low = 0;
    double high = 0;
};

/// The middle 98 % of what is seen: a few stray values must not wash out all others.
ValueSpan MiddleSpan(const Values& values);

/// The least and the greatest value; infinities the other way round when nothing is seen.
std::pair<double, double> Extremes(const Values& values);

/// How far `value` lies in `span`, 0 to 1 inside; 0.5 in an empty one.
double ShareOf(double value, const ValueSpan& span);

/// Opaque grey from black (0) to white (1).
Pixel Grey(double share);

/// Colours the pixels of a `width` x `height` image at the picture's upper left whose value is seen.
template <class ColorOf>
void PaintValues(Picture& picture, uint32_t width, uint32_t height, const Values& values, ColorOf colorOf) {
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const double value = values[size_t{y} * width + x];
            if (value == value) picture.At(x, y) = colorOf(value);  // NaN equals nothing
        }
    }
}

}  // namespace qsn
