// SPDX-License-Identifier: MIT
#include "SweepFold.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kxexchange {

namespace {

constexpr double kPi = std::numbers::pi;

// A fold needs more rows than this behind it (a sweep that merely overshoots the zenith is not folded) ...
constexpr size_t kLeastFoldRows = 2;
constexpr double kLeastFoldShare = 0.01;
// ... rows that agree across the columns, and an angle that grows along them, nearly in a line.
constexpr double kLeastAgreement = 0.9;
constexpr double kMostRowResidual = 0.15;
constexpr double kMostSweep = 2 * kPi + 0.1;

// Rows between two crossings of the vertical axis, on one side of it.
struct Stretch {
    size_t first = 0;
    size_t count = 0;
    bool far = false;
    bool towardsZenith = false;  // the vertical angle falls along the rows
    double top = 0;              // least vertical angle
};

// Rows that overshoot the axis go on in the rows of the stretch before them.
void Join(Stretch& kept, const Stretch& overshoot, double step, bool atTop) {
    kept.count += overshoot.count;
    if (atTop) kept.top -= step * static_cast<double>(overshoot.count);
}

// Cuts the rows where the sweep's angle passes a multiple of pi: even ones are the zenith, odd the nadir.
std::vector<Stretch> CutAtAxis(const std::vector<Sample>& rows, const Line& line) {
    std::vector<Stretch> stretches;
    const size_t count = rows.size();
    // Angle of each row, of the line where no return says otherwise; made to grow, so that noise at the
    // axis cuts once.
    std::vector<double> angle(count);
    double shift = 0;
    size_t known = 0;
    for (size_t i = 0; i < count; ++i) {
        if (rows[i].weight > 0) {
            shift += rows[i].value - line.At(static_cast<double>(i));
            ++known;
        }
    }
    if (known != 0) shift /= static_cast<double>(known);
    for (size_t i = 0; i < count; ++i) {
        angle[i] = rows[i].weight > 0 ? rows[i].value : line.At(static_cast<double>(i)) + shift;
    }
    std::sort(angle.begin(), angle.end());
    for (size_t i = 0; i < count; ++i) {
        const double side = std::floor(angle[i] / kPi);
        if (i == 0 || side != std::floor(angle[i - 1] / kPi)) {
            Stretch stretch;
            stretch.first = i;
            // Between 0 and pi (even sides) the vertical angle is the sweep's own and grows.
            stretch.far = stretch.towardsZenith = std::fmod(std::abs(side), 2) == 1;
            stretches.push_back(stretch);
        }
        Stretch& last = stretches.back();
        ++last.count;
        const double vertical = std::abs(WrapAngle(angle[i]));
        last.top = last.count == 1 ? vertical : std::min(last.top, vertical);
    }
    return stretches;
}

// Stretches of a few rows at either end join their neighbour: those cells merely overshoot.
void DropOvershoot(std::vector<Stretch>& stretches, size_t rows, double step) {
    const size_t least =
        std::max(kLeastFoldRows, static_cast<size_t>(kLeastFoldShare * static_cast<double>(rows)));
    while (stretches.size() > 1 && stretches.front().count <= least) {
        Join(stretches[1], stretches[0], step, !stretches[1].towardsZenith);
        stretches[1].first = stretches[0].first;
        stretches.erase(stretches.begin());
    }
    while (stretches.size() > 1 && stretches.back().count <= least) {
        Stretch& kept = stretches[stretches.size() - 2];
        Join(kept, stretches.back(), step, kept.towardsZenith);
        stretches.pop_back();
    }
}

// In each block the stretches follow each other downwards without sharing rows, and both blocks start from
// the same vertical angle.
FoldedRows LayOut(const std::vector<Stretch>& stretches, size_t rows, double step) {
    std::vector<size_t> order(stretches.size());
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::sort(order.begin(), order.end(),
              [&](size_t a, size_t b) { return stretches[a].top < stretches[b].top; });
    FoldedRows folded;
    folded.segments.resize(stretches.size());
    uint64_t ends[2] = {0, 0};
    for (const size_t i : order) {
        const Stretch& stretch = stretches[i];
        const auto offset =
            static_cast<uint64_t>(std::llround((stretch.top - stretches[order[0]].top) / step));
        const uint64_t top = std::max(std::min<uint64_t>(offset, rows), ends[stretch.far]);
        ends[stretch.far] = top + stretch.count;
        const bool descending = stretch.towardsZenith;
        folded.segments[i] = {stretch.first, stretch.count, stretch.far,
                              descending ? top + stretch.count - 1 : top, descending};
    }
    folded.gridRows = std::max(ends[0], ends[1]);
    return folded;
}

}  // namespace

std::optional<FoldedRows> FoldSweep(std::vector<Sample> sweep, double agreement) {
    UnwrapAngles(sweep);
    const Line line = FitLine(sweep);
    if (!line.determined || !(line.slope > 0) ||
        line.slope * static_cast<double>(sweep.size() - 1) > kMostSweep || agreement < kLeastAgreement ||
        LineResidual(sweep, line) > kMostRowResidual) {
        return std::nullopt;
    }
    std::vector<Stretch> stretches = CutAtAxis(sweep, line);
    DropOvershoot(stretches, sweep.size(), line.slope);
    if (stretches.size() < 2) return std::nullopt;
    return LayOut(stretches, sweep.size(), line.slope);
}

}  // namespace kxexchange
