// SPDX-License-Identifier: MIT
#pragma once

#include <complex>
#include <cstdint>
#include <vector>

namespace kxexchange {

/// Finds the step of angles that lie on lines of equal distance, and how the lines drift over bands of
/// another angle. Memory: 2 bytes for each bin of each band, and 24 bytes for each bin while the step is
/// sought.
class AngleComb {
public:
    /// Angles of `begin` to `begin` + `length`. `bins`: a power of 2. `circular`: the last band adjoins the
    /// first.
    AngleComb(double begin, double length, size_t bins, size_t bands, bool circular);

    /// \param bandPlace  0 to 1, where among the bands
    void Add(double angle, double bandPlace);
    uint64_t Count() const { return m_count; }

    /// Seeks the step. \return how much of the points lies on the lines, 0 to 1; Step() and Index() are
    /// meaningful when it is well above 0.
    /// \param leastLines, mostLines  lines in the whole length
    double Find(double leastLines, double mostLines);
    double Step() const { return m_length / m_frequency; }
    /// Lines in the whole length; need not be whole.
    double Frequency() const { return m_frequency; }
    /// The number of the line nearest to an angle; may be negative.
    int64_t Index(double angle, double bandPlace) const;

    /// All bands together.
    std::vector<uint64_t> Histogram() const;
    size_t Bins() const { return m_bins; }

private:
    using Complex = std::complex<double>;
    void SeekFrequency(double leastLines, double mostLines);
    double Refine();
    void JoinBands(size_t bands);
    double Offset(double bandPlace) const;

    double m_begin;
    double m_length;
    size_t m_bins;
    size_t m_bands;
    bool m_circular;
    uint64_t m_count = 0;
    std::vector<uint16_t> m_counts;  // band after band
    size_t m_joined = 1;             // bands that are looked at as one
    double m_frequency = 1;
    std::vector<double> m_offsets;  // of the lines, by (joined) band, in lines
};

}  // namespace kxexchange
