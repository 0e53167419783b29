// SPDX-License-Identifier: MIT
#include "AngleComb.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace kxexchange {

namespace {

using Complex = std::complex<double>;
constexpr double kTurn = 2 * std::numbers::pi;
// Fewer points in a band do not show their lines.
constexpr uint64_t kPointsPerBand = 4000;
// Segments of the length, for frequencies between the spectrum's whole ones.
constexpr size_t kSegments = 64;
constexpr double kRefineReach = 1.5;
constexpr double kRefineStep = 0.01;
// Of several strong frequencies the lowest is the step; the others are its multiples.
constexpr double kStrong = 0.6;
// A band whose lines show less than this says nothing of their place.
constexpr double kLeastBandCoherence = 0.15;

// Fast Fourier transform in place; the size is a power of 2.
void Transform(std::vector<Complex>& values) {
    const size_t size = values.size();
    for (size_t i = 1, j = 0; i < size; ++i) {
        size_t bit = size >> 1;
        for (; (j & bit) != 0; bit >>= 1)
            j ^= bit;
        j ^= bit;
        if (i < j) std::swap(values[i], values[j]);
    }
    std::vector<Complex> roots(size / 2);
    for (size_t i = 0; i < roots.size(); ++i) {
        const double angle = -kTurn * static_cast<double>(i) / static_cast<double>(size);
        roots[i] = {std::cos(angle), std::sin(angle)};
    }
    for (size_t half = 1; half < size; half *= 2) {
        const size_t stride = size / (2 * half);
        for (size_t first = 0; first < size; first += 2 * half) {
            for (size_t i = 0; i < half; ++i) {
                Complex& low = values[first + i];
                Complex& high = values[first + half + i];
                const Complex& root = roots[i * stride];
                const Complex turned(high.real() * root.real() - high.imag() * root.imag(),
                                     high.real() * root.imag() + high.imag() * root.real());
                high = low - turned;
                low += turned;
            }
        }
    }
}

}  // namespace

AngleComb::AngleComb(double begin, double length, size_t bins, size_t bands, bool circular)
    : m_begin(begin),
      m_length(length),
      m_bins(bins),
      m_bands(bands),
      m_circular(circular),
      m_counts(bins * bands) {}

void AngleComb::Add(double angle, double bandPlace) {
    const double place = (angle - m_begin) / m_length;
    if (!(place >= 0 && place <= 1) || !(bandPlace >= 0 && bandPlace <= 1)) return;
    const auto bin = std::min(static_cast<size_t>(place * static_cast<double>(m_bins)), m_bins - 1);
    const auto band = std::min(static_cast<size_t>(bandPlace * static_cast<double>(m_bands)), m_bands - 1);
    uint16_t& count = m_counts[band * m_bins + bin];
    if (count < std::numeric_limits<uint16_t>::max()) ++count;
    ++m_count;
}

std::vector<uint64_t> AngleComb::Histogram() const {
    std::vector<uint64_t> all(m_bins);
    for (size_t i = 0; i < m_counts.size(); ++i)
        all[i % m_bins] += m_counts[i];
    return all;
}

void AngleComb::JoinBands(size_t bands) {
    m_joined = std::clamp<size_t>(bands, 1, m_bands);
    while (m_bands % m_joined != 0)
        ++m_joined;
}

void AngleComb::SeekFrequency(double leastLines, double mostLines) {
    const auto first = static_cast<size_t>(std::max(1.0, leastLines));
    const size_t end = std::max(first + 1, std::min(m_bins / 4, static_cast<size_t>(mostLines)));
    std::vector<double> strength(end + 1);
    std::vector<Complex> values(m_bins);
    for (size_t band = 0; band < m_bands; band += m_joined) {
        for (size_t bin = 0; bin < m_bins; ++bin) {
            double count = 0;
            for (size_t joined = 0; joined < m_joined; ++joined)
                count += m_counts[(band + joined) * m_bins + bin];
            values[bin] = count;
        }
        Transform(values);
        for (size_t k = first; k <= end; ++k)
            strength[k] += std::abs(values[k]);
    }
    const double greatest = *std::max_element(strength.begin(), strength.end());
    size_t best = first;
    while (best < end && strength[best] < kStrong * greatest)
        ++best;
    // Up to the top of that peak.
    for (size_t k = best; k <= std::min(end, best + 3); ++k) {
        if (strength[k] > strength[best]) best = k;
    }
    m_frequency = static_cast<double>(best);
}

// The frequency between whole ones that makes the bands most coherent, and then each band's phase.
double AngleComb::Refine() {
    const size_t bands = m_bands / m_joined;
    std::vector<Complex> sums(bands * kSegments);
    std::vector<double> weights(bands);
    for (size_t bin = 0; bin < m_bins; ++bin) {
        const double place = (static_cast<double>(bin) + 0.5) / static_cast<double>(m_bins);
        const double turns = m_frequency * place;
        const double angle = -kTurn * (turns - std::floor(turns));
        const Complex unit(std::cos(angle), std::sin(angle));
        const size_t segment = bin * kSegments / m_bins;
        for (size_t band = 0; band < m_bands; ++band) {
            const uint16_t count = m_counts[band * m_bins + bin];
            if (count == 0) continue;
            sums[band / m_joined * kSegments + segment] += static_cast<double>(count) * unit;
            weights[band / m_joined] += count;
        }
    }
    const auto bandSum = [&](size_t band, double shift) {
        Complex sum = 0;
        for (size_t segment = 0; segment < kSegments; ++segment) {
            const double angle = -kTurn * shift * (static_cast<double>(segment) + 0.5) / kSegments;
            sum += sums[band * kSegments + segment] * Complex(std::cos(angle), std::sin(angle));
        }
        return sum;
    };
    double best = 0, greatest = -1;
    for (double shift = -kRefineReach; shift <= kRefineReach; shift += kRefineStep) {
        double strength = 0;
        for (size_t band = 0; band < bands; ++band)
            strength += std::abs(bandSum(band, shift));
        if (strength > greatest) {
            greatest = strength;
            best = shift;
        }
    }
    // Offsets in lines, unwrapped from the heaviest band to both sides.
    std::vector<double> strengths(bands);
    m_offsets.assign(bands, 0);
    for (size_t band = 0; band < bands; ++band) {
        const Complex sum = bandSum(band, best);
        strengths[band] = std::abs(sum);
        m_offsets[band] = -std::arg(sum) / kTurn;
    }
    m_frequency += best;
    const auto start =
        static_cast<size_t>(std::max_element(strengths.begin(), strengths.end()) - strengths.begin());
    const auto unwrap = [&](auto from, auto to, int direction) {
        double known = m_offsets[start];
        for (auto i = from; i != to; i += direction) {
            const auto band = static_cast<size_t>(i);
            if (strengths[band] < kLeastBandCoherence * weights[band] || weights[band] < 16) {
                m_offsets[band] = known;
                continue;
            }
            m_offsets[band] -= std::round(m_offsets[band] - known);
            known = m_offsets[band];
        }
    };
    const auto middle = static_cast<std::ptrdiff_t>(start);
    unwrap(middle + 1, static_cast<std::ptrdiff_t>(bands), 1);
    unwrap(middle - 1, std::ptrdiff_t{-1}, -1);
    return m_count == 0 ? 0 : greatest / static_cast<double>(m_count);
}

double AngleComb::Find(double leastLines, double mostLines) {
    if (m_count == 0) return 0;
    JoinBands(static_cast<size_t>(m_bands * kPointsPerBand / m_count + 1));
    SeekFrequency(leastLines, mostLines);
    return Refine();
}

// Between the middles of bands linearly; at the ends as the last band, or around.
double AngleComb::Offset(double bandPlace) const {
    const auto bands = static_cast<double>(m_offsets.size());
    const double at = bandPlace * bands - 0.5;
    const double low = std::floor(at);
    const auto last = static_cast<double>(m_offsets.size() - 1);
    const auto of = [&](double band) {
        if (m_circular) band = band < 0 ? band + bands : band > last ? band - bands : band;
        return m_offsets[static_cast<size_t>(std::clamp(band, 0.0, last))];
    };
    double a = of(low), b = of(low + 1);
    // Around the seam the lines may have gone on by whole ones.
    if (m_circular && (low < 0 || low + 1 > last)) {
        if (low < 0) a -= std::round(a - b);
        if (low >= 0) b -= std::round(b - a);
    }
    return a + (at - low) * (b - a);
}

int64_t AngleComb::Index(double angle, double bandPlace) const {
    return static_cast<int64_t>(std::llround((angle - m_begin) / m_length * m_frequency - Offset(bandPlace)));
}

}  // namespace kxexchange
