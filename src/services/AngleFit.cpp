// SPDX-License-Identifier: MIT
#include "services/AngleFit.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kxio {

namespace {

constexpr size_t kMostSamples = 15;
constexpr double kTurn = 2 * std::numbers::pi;

/// The same angle between minus and plus half a turn.
double Wrapped(double angle) {
    return angle - kTurn * std::round(angle / kTurn);
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

struct Angle {
    double index;
    double value;
};

/// Median difference per index of neighbours.
double TypicalStep(const std::vector<Angle>& angles) {
    double closest = angles.back().index - angles.front().index;
    for (size_t i = 1; i < angles.size(); ++i)
        closest = std::min(closest, angles[i].index - angles[i - 1].index);
    std::vector<double> steps;
    for (size_t i = 1; i < angles.size(); ++i) {
        // Over a wide gap the difference is known only up to full turns.
        const double gap = angles[i].index - angles[i - 1].index;
        if (gap <= 2 * closest) steps.push_back(Wrapped(angles[i].value - angles[i - 1].value) / gap);
    }
    return Median(steps);
}

/// The angle that lies closest to the others, in the sense of the median.
double Centre(const std::vector<double>& angles) {
    constexpr size_t kCandidates = 64;
    const size_t stride = std::max<size_t>(1, angles.size() / kCandidates);
    double best = angles.front();
    double least = kTurn;
    for (size_t c = 0; c < angles.size(); c += stride) {
        std::vector<double> distances;
        distances.reserve(angles.size());
        for (const double angle : angles)
            distances.push_back(std::abs(Wrapped(angle - angles[c])));
        const double distance = Median(std::move(distances));
        if (distance < least) {
            least = distance;
            best = angles[c];
        }
    }
    return best;
}

}  // namespace

void AngleFit::Add(uint32_t index, float angle) {
    if (!std::isfinite(angle) || angle == 0 || std::abs(angle) > 1000) return;
    std::vector<float>& samples = m_samples[index];
    if (samples.size() < kMostSamples) samples.push_back(angle);
}

std::optional<AngleFit::Line> AngleFit::Fit() const {
    std::vector<Angle> angles;
    for (const auto& [index, samples] : m_samples) {
        const std::vector<double> values(samples.begin(), samples.end());
        angles.push_back({static_cast<double>(index), Centre(values)});
    }
    if (angles.size() < 2) return std::nullopt;

    Line line;
    line.given = angles.size();
    line.step = TypicalStep(angles);
    std::vector<double> offsets;
    for (const Angle& angle : angles)
        offsets.push_back(Wrapped(angle.value - line.step * angle.index));
    line.start = Centre(offsets);
    // Least squares on what lies near the line, nearer each time.
    for (int round = 0; round < 3; ++round) {
        std::vector<double> distances;
        for (const Angle& angle : angles)
            distances.push_back(std::abs(Wrapped(angle.value - line.start - line.step * angle.index)));
        line.spread = Median(distances);
        const double near = std::max({4 * line.spread, std::abs(line.step), 1e-5});
        double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
        const double middle = angles[angles.size() / 2].index;  // keeps the sums small
        for (size_t i = 0; i < angles.size(); ++i) {
            if (distances[i] > near) continue;
            const double x = angles[i].index - middle;
            const double y = Wrapped(angles[i].value - line.start - line.step * angles[i].index);
            n += 1;
            sx += x;
            sy += y;
            sxx += x * x;
            sxy += x * y;
        }
        const double determinant = n * sxx - sx * sx;
        if (n < 2 || !(determinant > 0)) return std::nullopt;
        const double slope = (n * sxy - sx * sy) / determinant;
        line.start += (sy - slope * sx) / n - slope * middle;
        line.step += slope;
        line.used = static_cast<uint64_t>(n);
    }
    if (2 * line.used < line.given || line.step == 0) return std::nullopt;
    // The turn that the first angle is in.
    const double first = line.start + line.step * angles.front().index;
    line.start += kTurn * std::round((angles.front().value - first) / kTurn);
    return line;
}

}  // namespace kxio
