// SPDX-License-Identifier: MIT
#include "LineFit.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace kxexchange {

namespace {

constexpr double kTurn = 2 * std::numbers::pi;
constexpr int kRounds = 4;
// Samples this many typical distances away count half.
constexpr double kOutlier = 5;

Line WeightedFit(std::span<const Sample> samples, std::span<const double> factors) {
    double total = 0, meanPosition = 0, meanValue = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const double weight = samples[i].weight * factors[i];
        total += weight;
        meanPosition += weight * samples[i].position;
        meanValue += weight * samples[i].value;
    }
    Line line;
    if (!(total > 0)) return line;
    meanPosition /= total;
    meanValue /= total;
    double spread = 0, common = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const double weight = samples[i].weight * factors[i];
        const double position = samples[i].position - meanPosition;
        spread += weight * position * position;
        common += weight * position * (samples[i].value - meanValue);
    }
    line.determined = spread > 0;
    line.slope = line.determined ? common / spread : 0;
    line.intercept = meanValue - line.slope * meanPosition;
    return line;
}

double Median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

double WrapAngle(double angle) {
    return std::remainder(angle, kTurn);
}

Line FitLine(std::span<const Sample> samples) {
    std::vector<double> factors(samples.size(), 1.0);
    Line line = WeightedFit(samples, factors);
    std::vector<double> distances;
    for (int round = 0; round < kRounds && line.determined; ++round) {
        distances.clear();
        for (const Sample& sample : samples) {
            if (sample.weight > 0) distances.push_back(std::abs(sample.value - line.At(sample.position)));
        }
        const double typical = Median(distances);
        if (!(typical > 0)) break;
        for (size_t i = 0; i < samples.size(); ++i) {
            const double distance = (samples[i].value - line.At(samples[i].position)) / (kOutlier * typical);
            factors[i] = 1 / (1 + distance * distance);
        }
        const Line next = WeightedFit(samples, factors);
        if (!next.determined) break;
        line = next;
    }
    return line;
}

double LineResidual(std::span<const Sample> samples, const Line& line) {
    double total = 0, sum = 0;
    for (const Sample& sample : samples) {
        const double distance = sample.value - line.At(sample.position);
        total += sample.weight;
        sum += sample.weight * distance * distance;
    }
    return total > 0 ? std::sqrt(sum / total) : 0;
}

void UnwrapAngles(std::span<Sample> samples) {
    // The typical step comes from the closest pairs there are: farther ones may hide whole turns.
    double closest = 0;
    std::vector<double> steps;
    for (int pass = 0; pass < 2; ++pass) {
        const Sample* previous = nullptr;
        for (const Sample& sample : samples) {
            if (!(sample.weight > 0)) continue;
            if (previous) {
                const double gap = sample.position - previous->position;
                if (pass == 0) {
                    closest = closest == 0 ? gap : std::min(closest, gap);
                } else if (gap == closest) {
                    steps.push_back(WrapAngle(sample.value - previous->value) / gap);
                }
            }
            previous = &sample;
        }
    }
    const double step = steps.empty() ? 0 : Median(steps);
    const Sample* previous = nullptr;
    for (Sample& sample : samples) {
        if (!(sample.weight > 0)) continue;
        if (previous) {
            const double expected = previous->value + step * (sample.position - previous->position);
            sample.value = expected + WrapAngle(sample.value - expected);
        }
        previous = &sample;
    }
}

}  // namespace kxexchange
