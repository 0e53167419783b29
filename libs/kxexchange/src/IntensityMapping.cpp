// SPDX-License-Identifier: MIT
#include "kxexchange/IntensityMapping.h"

#include <algorithm>
#include <cmath>

namespace kxexchange {

namespace {

constexpr double kLevels = 65535;

}  // namespace

uint16_t IntensityMapping::Store(double value) const {
    if (kind == Kind::None) return 0;
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
            return stored / kLevels;
        case Kind::Integer:
            return std::round(offset + stored * scale);
        case Kind::Real:
            break;
    }
    return offset + stored * scale;
}

double IntensityMapping::Bound() const {
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

IntensityMapping IntensitySurvey::UsualMapping() const {
    using Kind = IntensityMapping::Kind;
    if (m_minimum >= 0 && m_maximum <= 1) return {Kind::Unit, 0, 1 / kLevels};
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
