// SPDX-License-Identifier: MIT
#include "grid/GridSource.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>

#include "grid/GridPlaces.h"
#include "grid/GridPrediction.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grid/GridSource.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

#include "grid/GridLanes.h"

#ifndef KXGRID_LIMITS
#define KXGRID_LIMITS
namespace kxcodecs::grid {
struct Limits {
    int32_t least = std::numeric_limits<int32_t>::max();
    int32_t greatest = std::numeric_limits<int32_t>::min();
    std::size_t stored = 0;
};
}  // namespace kxcodecs::grid
#endif

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

// Of the stored cells of so many groups.
void FindLimits(const uint32_t* cells, const uint16_t* stored, std::size_t groups, Limits& out) {
    const I32 d;
    auto least = hn::Set(d, out.least), greatest = hn::Set(d, out.greatest);
    for (std::size_t g = 0; g < groups; ++g) {
        const uint32_t word = stored[g];
        out.stored += CountBits(word);
        for (std::size_t i = 0; i < kBlock; i += hn::Lanes(d)) {
            const auto value = hn::BitCast(d, hn::LoadU(U32(), cells + g * kBlock + i));
            const auto counts = hn::RebindMask(d, LanesOf(LaneBits(word, i)));
            least = hn::Min(least, hn::IfThenElse(counts, value, least));
            greatest = hn::Max(greatest, hn::IfThenElse(counts, value, greatest));
        }
    }
    out.least = hn::GetLane(hn::MinOfLanes(d, least));
    out.greatest = hn::GetLane(hn::MaxOfLanes(d, greatest));
}

// Stored cells count from `least`; the others become 0.
void CountFrom(uint32_t least, const uint16_t* stored, std::size_t groups, uint32_t* cells) {
    const U32 d;
    for (std::size_t g = 0; g < groups; ++g) {
        for (std::size_t i = 0; i < kBlock; i += hn::Lanes(d)) {
            uint32_t* const at = cells + g * kBlock + i;
            const V value = hn::Sub(hn::LoadU(d, at), hn::Set(d, least));
            hn::StoreU(hn::IfThenElseZero(LanesOf(LaneBits(stored[g], i)), value), d, at);
        }
    }
}

// Numbers by rank; those that are not stored become 0.
void Rank(const uint32_t* codes, const uint16_t* stored, std::size_t groups, const uint32_t* rankOf,
          uint32_t* ranks) {
    const U32 d;
    for (std::size_t g = 0; g < groups; ++g) {
        for (std::size_t i = 0; i < kBlock; i += hn::Lanes(d)) {
            const std::size_t at = g * kBlock + i;
            const V rank = hn::GatherIndex(d, rankOf, hn::BitCast(I32(), hn::LoadU(d, codes + at)));
            hn::StoreU(hn::IfThenElseZero(LanesOf(LaneBits(stored[g], i)), rank), d, ranks + at);
        }
    }
}

// Quotients of a division by an odd number times a power of two: the product with the inverse of the odd one,
// its lowest bits turned to the front, is small where nothing is left over, and then it is the quotient.
HWY_INLINE V Quotients(V numbers, uint32_t inverse, int bits) {
    const U32 d;
    const V product = hn::Mul(numbers, hn::Set(d, inverse));
    if (bits == 0) return product;
    return hn::Or(hn::ShiftRightSame(product, bits), hn::ShiftLeftSame(product, 32 - bits));
}
// The first place from `start` on where numbers have a rest; or `count`.
std::size_t FirstRest(uint32_t inverse, int bits, uint32_t mostQuotient, const uint32_t* numbers,
                      std::size_t start, std::size_t count) {
    const U32 d;
    const std::size_t n = hn::Lanes(d);
    const V most = hn::Set(d, mostQuotient);
    for (std::size_t i = start / n * n; i < count; i += n) {
        const V quotients = Quotients(hn::LoadU(d, numbers + i), inverse, bits);
        if (!hn::AllTrue(d, hn::Eq(hn::Min(quotients, most), quotients))) return i;
    }
    return count;
}
void Divide(uint32_t inverse, int bits, std::size_t count, uint32_t* numbers) {
    const U32 d;
    for (std::size_t i = 0; i < count; i += hn::Lanes(d))
        hn::StoreU(Quotients(hn::LoadU(d, numbers + i), inverse, bits), d, numbers + i);
}

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxcodecs::grid {

HWY_EXPORT(FindLimits);
HWY_EXPORT(CountFrom);
HWY_EXPORT(Rank);
HWY_EXPORT(FirstRest);
HWY_EXPORT(Divide);

namespace {

// No table of ranks is made for values that lie further apart.
constexpr uint32_t kMostRankSpan = uint32_t{1} << 20;
// How many cells tell whether there may be few different numbers.
constexpr std::size_t kSample = 2048;

template <class T>
T LoadElement(const unsigned char* bytes) {
    T value = 0;
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(&value, bytes, sizeof value);
    } else {
        for (std::size_t k = sizeof value; k-- > 0;)
            value = static_cast<T>((value << 7 << 1) | bytes[k]);
    }
    return value;
}

template <class T>
void LoadRows(const unsigned char* bytes, const RawImage& image, uint32_t* cells) {
    for (std::size_t y = 0; y < image.height; ++y) {
        uint32_t* const row = cells + y * image.Stride();
        const unsigned char* const from = bytes + y * image.width * sizeof(T);
        if constexpr (sizeof(T) == 4 && std::endian::native == std::endian::little) {
            std::memcpy(row, from, image.width * sizeof(T));
        } else {
            for (std::size_t x = 0; x < image.width; ++x)
                row[x] = LoadElement<T>(from + x * sizeof(T));
        }
        std::fill(row + image.width, row + image.Stride(), 0U);
    }
}

// Numbers of 8 bytes that lie within 32 bits; zeros may lie elsewhere, if all of them are void.
struct Wide {
    uint64_t base = 0;
    bool zerosAreVoid = false;
    bool good = false;
};
constexpr uint32_t kVoidZero = 0x7FFFFFFF;
Wide LoadWideRows(const unsigned char* bytes, const RawImage& image, uint32_t* cells) {
    const std::size_t count = std::size_t{image.width} * image.height;
    const auto value = [&](std::size_t i) {
        return static_cast<int64_t>(LoadElement<uint64_t>(bytes + 8 * i));
    };
    int64_t least = std::numeric_limits<int64_t>::max(), greatest = std::numeric_limits<int64_t>::min();
    bool zeros = false;
    for (std::size_t i = 0; i < count; ++i) {
        const int64_t v = value(i);
        zeros = zeros || v == 0;
        if (v == 0) continue;
        least = std::min(least, v);
        greatest = std::max(greatest, v);
    }
    if (least > greatest) least = greatest = 0;
    const auto span = [](int64_t a, int64_t b) {
        return static_cast<uint64_t>(b) - static_cast<uint64_t>(a);
    };
    const int64_t withZero[2] = {zeros ? std::min<int64_t>(least, 0) : least,
                                 zeros ? std::max<int64_t>(greatest, 0) : greatest};
    constexpr uint64_t kMost = std::numeric_limits<uint32_t>::max();
    Wide out;
    if (span(withZero[0], withZero[1]) <= kMost) {
        least = withZero[0];
    } else if (span(least, greatest) < kMost) {
        out.zerosAreVoid = true;
    } else {
        return out;
    }
    out.good = true;
    constexpr uint64_t kHalf = uint64_t{1} << 31;
    out.base = static_cast<uint64_t>(least) + kHalf;
    std::size_t i = 0;
    for (std::size_t y = 0; y < image.height; ++y) {
        uint32_t* const row = cells + y * image.Stride();
        for (std::size_t x = 0; x < image.width; ++x, ++i) {
            const int64_t v = value(i);
            row[x] = out.zerosAreVoid && v == 0 ? kVoidZero
                                                : static_cast<uint32_t>(static_cast<uint64_t>(v) - out.base);
        }
        std::fill(row + image.width, row + image.Stride(), 0U);
    }
    return out;
}

uint32_t InverseOf(uint32_t odd) {
    uint32_t inverse = odd;  // right in the lowest three bits; each round doubles them
    for (int round = 0; round < 4; ++round)
        inverse *= 2 - odd * inverse;
    return inverse;
}

// Takes the greatest common divisor out of all numbers, whose count is a multiple of 16. \return it
uint32_t TakeStep(LineVector<uint32_t>& numbers, std::size_t count) {
    uint32_t step = 0;
    for (std::size_t i = 0; i < count && step != 1;) {
        if (step == 0) {
            step = numbers[i++];
            continue;
        }
        const int bits = std::countr_zero(step);
        i = HWY_DYNAMIC_DISPATCH(FirstRest)(InverseOf(step >> bits), bits,
                                            std::numeric_limits<uint32_t>::max() / step, numbers.data(), i,
                                            count);
        for (std::size_t k = i; k < std::min(count, i + kBlock); ++k)
            step = std::gcd(step, numbers[k]);
    }
    if (step <= 1) return 1;
    const int bits = std::countr_zero(step);
    HWY_DYNAMIC_DISPATCH(Divide)(InverseOf(step >> bits), bits, count, numbers.data());
    return step;
}

// Whether a sample of the numbers repeats itself as few different ones do.
// \param mostTenths  so many tenths of the sample may be different
bool MayBeFew(const GridSource& source, std::size_t mostTenths) {
    constexpr uint32_t kPlaces = 4 * kSample;
    const std::size_t cells = source.found.stored.size() * kBlock;
    const std::size_t step = std::max<std::size_t>(1, cells / kSample) | 1;
    std::vector<uint32_t> seen(kPlaces, 0);
    std::size_t sampled = 0, distinct = 0;
    for (std::size_t i = 0; i < cells && sampled < kSample; i += step) {
        if (((source.found.stored[i / kBlock] >> (i % kBlock)) & 1) == 0) continue;
        ++sampled;
        const uint32_t key = source.codes[i] + 1;
        uint32_t at = (key * 0x9E3779B1U) >> 19;
        while (seen[at] != 0 && seen[at] != key)
            at = (at + 1) % kPlaces;
        distinct += seen[at] == 0;
        seen[at] = key;
    }
    return 10 * distinct <= mostTenths * sampled || sampled < 64;
}

// A table of the numbers that appear, where they are few in a wide span.
void MakeRanks(uint32_t greatest, uint32_t elementBytes, GridSource& out) {
    if (greatest < 2 || greatest >= kMostRankSpan || !MayBeFew(out, elementBytes <= 2 ? 9 : 5)) return;
    std::vector<uint32_t> rankOf(std::size_t{greatest} + 1);
    const std::size_t groups = out.found.stored.size();
    for (std::size_t g = 0; g < groups; ++g) {
        const uint32_t* const codes = out.codes.data() + g * kBlock;
        uint32_t word = out.found.stored[g];
        if (word == 0xFFFF) {
            for (std::size_t i = 0; i < kBlock; ++i)
                rankOf[codes[i]] = 1;
        } else {
            for (; word != 0; word &= word - 1)
                rankOf[codes[std::countr_zero(word)]] = 1;
        }
    }
    const auto distinct = std::accumulate(rankOf.begin(), rankOf.end(), uint32_t{0});
    const double saved = std::log2(static_cast<double>(greatest) / std::max<uint32_t>(1, distinct));
    out.tableBits = static_cast<double>(distinct) * (saved + 3);
    if (saved < 0.2 || out.tableBits > 0.5 * saved * static_cast<double>(out.presentCount)) return;
    for (uint32_t code = 0; code <= greatest; ++code) {
        if (rankOf[code] == 0) continue;
        rankOf[code] = static_cast<uint32_t>(out.table.size());
        out.table.push_back(code * out.step);
    }
    out.ranks.resize(out.codes.size());
    HWY_DYNAMIC_DISPATCH(Rank)
    (out.codes.data(), out.found.stored.data(), groups, rankOf.data(), out.ranks.data());
}

}  // namespace

bool TakeApart(std::span<const unsigned char> bytes, uint32_t width, uint32_t height, bool ranks,
               GridSource& out) {
    RawImage image{nullptr, width, height};
    const std::size_t groups = image.Groups() * height;
    const std::size_t blockRows = (std::size_t{height} + kBlock - 1) / kBlock;
    out.codes.resize(image.Stride() * blockRows * kBlock + kBlock);
    image.cells = out.codes.data();
    out.width = width;
    out.height = height;
    out.voids.clear();
    out.table.clear();
    out.base = 0;
    out.step = 1;
    Wide wide;
    switch (bytes.size() / (uint64_t{width} * height)) {
        case 1:
            LoadRows<uint8_t>(bytes.data(), image, out.codes.data());
            break;
        case 2:
            LoadRows<uint16_t>(bytes.data(), image, out.codes.data());
            break;
        case 4:
            LoadRows<uint32_t>(bytes.data(), image, out.codes.data());
            break;
        case 8:
            wide = LoadWideRows(bytes.data(), image, out.codes.data());
            if (!wide.good) return false;
            break;
        default:
            return false;
    }
    const auto widen = [&](uint32_t raw) {
        return wide.base + static_cast<uint64_t>(int64_t{static_cast<int32_t>(raw)});
    };
    if (wide.zerosAreVoid) {
        TakeVoid(image, kVoidZero, out.found);
        out.voids.push_back(0);
    } else {
        FindVoids(image, out.found);
        for (const uint32_t value : out.found.values)
            out.voids.push_back(widen(value));
    }
    out.voidKind = out.found.kind;
    Limits limits;
    HWY_DYNAMIC_DISPATCH(FindLimits)(out.codes.data(), out.found.stored.data(), groups, limits);
    out.presentCount = limits.stored;
    if (limits.stored == 0) {
        std::fill(out.codes.begin(), out.codes.end(), 0U);
        return true;
    }
    const auto least = static_cast<uint32_t>(limits.least);
    out.base = widen(least);
    HWY_DYNAMIC_DISPATCH(CountFrom)(least, out.found.stored.data(), groups, out.codes.data());
    out.step = TakeStep(out.codes, groups * kBlock);
    if (ranks)
        MakeRanks((static_cast<uint32_t>(limits.greatest) - least) / out.step,
                  static_cast<uint32_t>(bytes.size() / (uint64_t{width} * height)), out);
    return true;
}

}  // namespace kxcodecs::grid
#endif
