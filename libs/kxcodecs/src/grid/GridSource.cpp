// SPDX-License-Identifier: MIT
#include "grid/GridSource.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <type_traits>

namespace kxcodecs::grid {
namespace {

// A row or column has a value for its voids when that many cells in a row hold it: noise hardly does.
constexpr std::size_t kShortestRun = 4;
// No table of ranks is made for values that lie further apart.
constexpr uint32_t kMostRankSpan = uint32_t{1} << 22;
// A value so far from all others costs as an exception wherever it appears.
constexpr uint64_t kFarAway = 256;

template <class T>
std::vector<T> LoadValues(std::span<const unsigned char> bytes) {
    std::vector<T> values(bytes.size() / sizeof(T));
    if constexpr (std::endian::native == std::endian::little) {
        if (!values.empty()) std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
    } else {
        for (std::size_t i = 0; i < values.size(); ++i) {
            std::make_unsigned_t<T> value = 0;
            for (std::size_t k = sizeof(T); k-- > 0;)
                value = static_cast<std::make_unsigned_t<T>>((value << 7 << 1) | bytes[i * sizeof(T) + k]);
            values[i] = static_cast<T>(value);
        }
    }
    return values;
}

template <class T>
struct Run {
    std::size_t length = 0;
    T value = 0;
};
template <class T>
Run<T> LongestRun(const T* first, std::size_t count, std::size_t step) {
    Run<T> best, now;
    for (std::size_t i = 0; i < count; ++i) {
        const T value = first[i * step];
        now.length = now.length > 0 && value == now.value ? now.length + 1 : 1;
        now.value = value;
        if (now.length > best.length) best = now;
    }
    return best;
}

// What one kind of void would cover: cells that hold their void value, and how many of them follow another.
struct Cover {
    std::size_t cells = 0;
    std::size_t pairs = 0;
    bool Clustered() const { return cells > 0 && 2 * pairs >= cells; }
};

template <class T>
struct Image {
    const std::vector<T>& values;
    std::size_t width, height;
};

// `downwards`: pairs lie one below the other.
template <class T, class VoidOf>
Cover CoverOf(const Image<T>& image, const VoidOf& voidOf, bool downwards = false) {
    Cover cover;
    std::vector<uint8_t> above(image.width, 0);
    std::size_t i = 0;
    for (std::size_t y = 0; y < image.height; ++y) {
        bool left = false;
        for (std::size_t x = 0; x < image.width; ++x, ++i) {
            const bool covered = image.values[i] == voidOf(x, y);
            cover.cells += covered;
            cover.pairs += covered && (downwards ? above[x] != 0 : left);
            left = covered;
            above[x] = covered;
        }
    }
    return cover;
}

// One value per line of cells that are `step` apart: that of its longest run, or else as the lines before go
// on.
template <class T>
std::vector<T> VoidsOfLines(const T* first, std::size_t lines, std::size_t lineStep, std::size_t cells,
                            std::size_t step) {
    using Bits = std::make_unsigned_t<T>;
    std::vector<T> voids(lines);
    for (std::size_t line = 0; line < lines; ++line) {
        const Run<T> run = LongestRun(first + line * lineStep, cells, step);
        if (run.length >= kShortestRun || line == 0) {
            voids[line] = run.value;
        } else {
            const T before = voids[line - 1], beforeThat = line > 1 ? voids[line - 2] : before;
            voids[line] = static_cast<T>(static_cast<Bits>(
                static_cast<Bits>(before) + static_cast<Bits>(before) - static_cast<Bits>(beforeThat)));
        }
    }
    return voids;
}

template <class T>
uint64_t Widen(T value) {
    return static_cast<uint64_t>(static_cast<int64_t>(value));
}

// The distance of the value nearest to `value` that is another one.
template <class T>
uint64_t NearestOther(const std::vector<T>& values, T value) {
    uint64_t nearest = std::numeric_limits<uint64_t>::max();
    for (const T other : values) {
        if (other == value) continue;
        nearest =
            std::min(nearest, other > value ? Widen(other) - Widen(value) : Widen(value) - Widen(other));
    }
    return nearest;
}

template <class T, class VoidOf>
void SetPresence(const Image<T>& image, const VoidOf& voidOf, GridSource& out) {
    std::size_t i = 0;
    for (std::size_t y = 0; y < image.height; ++y) {
        for (std::size_t x = 0; x < image.width; ++x, ++i)
            out.present[i] = image.values[i] == voidOf(x, y) ? 0 : 1;
    }
}

template <class T>
void FindVoids(const Image<T>& image, GridSource& out) {
    const auto& values = image.values;
    T constant = LongestRun(values.data(), values.size(), 1).value;
    Cover ofConstant = CoverOf(image, [&](std::size_t, std::size_t) { return constant; });
    bool constantHelps = ofConstant.Clustered();
    if (!constantHelps) {
        constant = 0;
        ofConstant = CoverOf(image, [&](std::size_t, std::size_t) { return constant; });
        constantHelps =
            ofConstant.Clustered() || (ofConstant.cells > 0 && NearestOther(values, constant) >= kFarAway);
    }
    const auto rows = VoidsOfLines(values.data(), image.height, image.width, image.width, 1);
    const Cover ofRows = CoverOf(image, [&](std::size_t, std::size_t y) { return rows[y]; });
    const auto columns = VoidsOfLines(values.data(), image.width, 1, image.height, image.width);
    const Cover ofColumns = CoverOf(
        image, [&](std::size_t x, std::size_t) { return columns[x]; }, true);

    std::size_t covered = constantHelps ? ofConstant.cells + ofConstant.cells / 16 + 16 : values.size() / 64;
    if (constantHelps) out.voidKind = VoidKind::Constant;
    if (ofColumns.Clustered() && ofColumns.cells > covered) {
        out.voidKind = VoidKind::PerColumn;
        covered = ofColumns.cells;
    }
    if (ofRows.Clustered() && ofRows.cells > covered) out.voidKind = VoidKind::PerRow;

    const auto take = [&](const std::vector<T>& list) {
        for (const T value : list)
            out.voids.push_back(Widen(value));
    };
    switch (out.voidKind) {
        case VoidKind::None:
            std::fill(out.present.begin(), out.present.end(), uint8_t{1});
            break;
        case VoidKind::Constant:
            out.voids.push_back(Widen(constant));
            SetPresence(
                image, [&](std::size_t, std::size_t) { return constant; }, out);
            break;
        case VoidKind::PerRow:
            take(rows);
            SetPresence(
                image, [&](std::size_t, std::size_t y) { return rows[y]; }, out);
            break;
        case VoidKind::PerColumn:
            take(columns);
            SetPresence(
                image, [&](std::size_t x, std::size_t) { return columns[x]; }, out);
            break;
    }
}

// Numbers with a common step, or few different ones in a wide span, become smaller numbers.
void PackHistogram(GridSource& out, uint32_t greatest, bool ranks) {
    uint32_t step = 0;
    for (std::size_t i = 0; i < out.codes.size() && step != 1; ++i) {
        if (out.present[i]) step = std::gcd(step, out.codes[i]);
    }
    if (step > 1) {
        out.step = step;
        for (uint32_t& code : out.codes)
            code /= step;
        greatest /= step;
    }
    if (!ranks || greatest < 2 || greatest >= kMostRankSpan) return;
    std::vector<uint32_t> rankOf(std::size_t{greatest} + 1);
    for (std::size_t i = 0; i < out.codes.size(); ++i)
        rankOf[out.codes[i]] |= out.present[i];
    const auto distinct = std::accumulate(rankOf.begin(), rankOf.end(), uint32_t{0});
    const double saved = std::log2(static_cast<double>(greatest) / std::max<uint32_t>(1, distinct));
    const double tableBits = static_cast<double>(distinct) * (saved + 3);
    if (saved < 0.2 || tableBits > 0.5 * saved * static_cast<double>(out.presentCount)) return;
    out.map = ValueMap::Ranks;
    for (uint32_t code = 0; code <= greatest; ++code) {
        if (rankOf[code] == 0) continue;
        rankOf[code] = static_cast<uint32_t>(out.table.size());
        out.table.push_back(code * out.step);
    }
    for (std::size_t i = 0; i < out.codes.size(); ++i)
        out.codes[i] = out.present[i] ? rankOf[out.codes[i]] : 0;
    out.step = 1;
}

template <class T>
bool TakeApartAs(std::span<const unsigned char> bytes, uint32_t width, uint32_t height, bool ranks,
                 GridSource& out) {
    const std::vector<T> values = LoadValues<T>(bytes);
    out.present.assign(values.size(), 1);
    FindVoids(Image<T>{values, width, height}, out);
    T least = std::numeric_limits<T>::max(), greatest = std::numeric_limits<T>::min();
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (!out.present[i]) continue;
        ++out.presentCount;
        least = std::min(least, values[i]);
        greatest = std::max(greatest, values[i]);
    }
    out.codes.assign(values.size(), 0);
    if (out.presentCount == 0) return true;
    const uint64_t span = Widen(greatest) - Widen(least);
    if (span > std::numeric_limits<uint32_t>::max()) return false;
    out.base = Widen(least);
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (out.present[i]) out.codes[i] = static_cast<uint32_t>(Widen(values[i]) - out.base);
    }
    PackHistogram(out, static_cast<uint32_t>(span), ranks);
    return true;
}

}  // namespace

bool TakeApart(std::span<const unsigned char> bytes, uint32_t width, uint32_t height, bool ranks,
               GridSource& out) {
    switch (bytes.size() / (uint64_t{width} * height)) {
        case 1:
            return TakeApartAs<uint8_t>(bytes, width, height, ranks, out);
        case 2:
            return TakeApartAs<uint16_t>(bytes, width, height, ranks, out);
        case 4:
            return TakeApartAs<int32_t>(bytes, width, height, ranks, out);
        case 8:
            return TakeApartAs<int64_t>(bytes, width, height, ranks, out);
        default:
            return false;
    }
}

}  // namespace kxcodecs::grid
