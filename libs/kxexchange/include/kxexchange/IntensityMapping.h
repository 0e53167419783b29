// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <limits>

#include "kxexchange/Export.h"

namespace kxexchange {

/// How the intensities of a file become 16-bit numbers and come back.
///
/// stored = round((value - offset) / scale), value = offset + stored x scale; an Integer mapping rounds the
/// value to a whole number, so that integers come back exactly. With `levels` the values are shares of the
/// numbers of an instrument, k / levels, perhaps cut to a few decimals: value = round(stored x levels /
/// 65535) / levels is such a share again.
struct IntensityMapping {
    enum class Kind {
        None,     ///< no intensity
        Unit,     ///< values of 0 to 1: offset 0, scale 1/65535
        Integer,  ///< whole numbers that span at most 65535
        Real,     ///< anything else: offset the least value, scale a 65535th of the span
    };
    Kind kind = Kind::None;
    double offset = 0;
    double scale = 1;
    uint32_t levels = 0;  ///< Unit: greatest number of the instrument, 1023 to 32767; 0: not known

    /// The 16-bit number that stands for `value`, clamped to 0..65535.
    KXEXCHANGE_EXPORT uint16_t Store(double value) const;
    /// The value that a 16-bit number stands for.
    KXEXCHANGE_EXPORT double Restore(uint16_t stored) const;
    /// How far a value may move: half of the step between two stored values, 0 for Integer, half of the sixth
    /// decimal with `levels`.
    KXEXCHANGE_EXPORT double Bound() const;
    /// The 8-bit view of a stored value: stored / 257, rounded.
    static uint8_t To8Bit(uint16_t stored) { return static_cast<uint8_t>((stored + 128u) / 257u); }

    bool operator==(const IntensityMapping&) const = default;
};

/// Learns from the values of a scan which mapping fits them. O(1) memory.
class KXEXCHANGE_EXPORT IntensitySurvey {
public:
    /// `value` must be finite.
    void Add(double value) {
        m_minimum = value < m_minimum ? value : m_minimum;
        m_maximum = value > m_maximum ? value : m_maximum;
        m_whole = m_whole && value > -kWholeLimit && value < kWholeLimit &&
                  value == static_cast<double>(static_cast<int64_t>(value));
        if (m_candidates != 0) SiftLevels(value);
    }
    /// Unit for values within 0..1; when 1000 and more lie between them and all are shares of 10, 12, 14 or
    /// 15 bits to the sixth decimal, with the fewest levels that fit. Integer for whole numbers that fit:
    /// 0..255 is stretched by 257, 0..4095 and -2048..2047 by 16, 0..65535 and -32768..32767 by 1, so that
    /// the 16-bit values use their range; other spans by the greatest whole factor. Real otherwise. None when
    /// no value was added. \param step  the values are whole multiples of it, above the least of them; 0:
    /// unknown. When 65536
    ///              levels of it hold them but the mapping above is coarser: Real with that scale.
    IntensityMapping Mapping(double step = 0) const;

private:
    IntensityMapping UsualMapping() const;
    void SiftLevels(double value);

    static constexpr double kWholeLimit = 1e15;
    double m_minimum = std::numeric_limits<double>::infinity();
    double m_maximum = -std::numeric_limits<double>::infinity();
    bool m_whole = true;
    uint64_t m_shares = 0;      // values between 0 and 1
    uint8_t m_candidates = 15;  // of the levels that may be the instrument's, a bit each
};

}  // namespace kxexchange
