// SPDX-License-Identifier: MIT
#include "kxexchange/IntensityMapping.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

namespace kxexchange {

namespace {

constexpr double kLevels = 65535;

// Numbers of instruments of 10, 12, 14 and 15 bits; 8 and 16 bits are kept by the 65535 steps themselves.
constexpr std::array<uint32_t, 4> kInstrumentLevels = {1023, 4095, 16383, 32767};
// Texts of shares have six decimals at least.
constexpr double kShareRounding = 0.5e-6;
// Fewer values may be shares of anything.
constexpr uint64_t kWorthLevels = 1000;

}  // namespace

uint16_t IntensityMapping::Store(double value) const {
    if (kind == Kind::None) return 0;
    if (levels != 0) value = std::floor(value * levels + 0.5) / levels;
    // Unit is by far the commonest and gains a bit by multiplying; Real values may span more than a double
    // holds, which the division by the scale on each side avoids.
    const double level = kind == Kind::Unit ? value * kLevels : value / scale - offset / scale;
    return static_cast<uint16_t>(std::clamp(std::floor(level + 0.5), 0.0, kLevels));
}

double IntensityMapping::Restore(uint16_t stored) const {
    switch (kind) {
        case Kind::None:
            return 0;
        case Kind::Unit:
            return levels != 0 ? std::round(stored * (levels / kLevels)) / levels : stored / kLevels;
        case Kind::Integer:
            return std::round(offset + stored * scale);
        case Kind::Real:
            break;
    }
    return offset + stored * scale;
}

double IntensityMapping::Bound() const {
    if (levels != 0) return kShareRounding;
    return kind == Kind::Unit || kind == Kind::Real ? 0.5 * scale : 0.0;
}

IntensityMapping IntensitySurvey::Mapping(double step) const {
    using Kind = IntensityMapping::Kind;
    if (!(m_minimum <= m_maximum)) return {};
    const IntensityMapping usual = UsualMapping();
    constexpr double kRounding = 1e-6;
    if (step > 0 && usual.kind != Kind::Integer && step < usual.scale * (1 - kRounding) &&
        (m_maximum - m_minimum) / step <= kLevels + 0.5) {
        return {Kind::Real, m_minimum, step};
    }
    return usual;
}

void IntensitySurvey::SiftLevels(double value) {
    if (!(value >= 0 && value <= 1)) {
        m_candidates = 0;
        return;
    }
    m_shares += value > 0 && value < 1 ? 1 : 0;
    for (size_t i = 0; i < kInstrumentLevels.size(); ++i) {
        const double number = value * kInstrumentLevels[i];
        const double off = std::abs(number - std::floor(number + 0.5));
        if (off > kInstrumentLevels[i] * (kShareRounding * 1.000001))
            m_candidates = static_cast<uint8_t>(m_candidates & ~(1U << i));
    }
}

IntensityMapping IntensitySurvey::UsualMapping() const {
    using Kind = IntensityMapping::Kind;
    if (m_minimum >= 0 && m_maximum <= 1) {
        IntensityMapping unit{Kind::Unit, 0, 1 / kLevels};
        if (m_shares >= kWorthLevels && m_candidates != 0)
            unit.levels = kInstrumentLevels[static_cast<size_t>(std::countr_zero(m_candidates))];
        return unit;
    }
    // The usual ranges first, so that files of one instrument agree whatever their values span.
    struct Usual {
        double least, greatest, factor;
    };
    static constexpr Usual kUsual[] = {
        {0, 255, 257}, {0, 4095, 16}, {-2048, 2047, 16}, {0, 65535, 1}, {-32768, 32767, 1}};
    if (m_whole && m_maximum - m_minimum <= kLevels) {
        for (const Usual& usual : kUsual) {
            if (m_minimum >= usual.least && m_maximum <= usual.greatest) {
                return {Kind::Integer, usual.least, 1 / usual.factor};
            }
        }
        const double span = m_maximum - m_minimum;
        return {Kind::Integer, m_minimum, span > 0 ? 1 / std::floor(kLevels / span) : 1};
    }
    const double scale = m_maximum / kLevels - m_minimum / kLevels;
    return {Kind::Real, m_minimum, scale > 0 ? scale : 1};
}

}  // namespace kxexchange
