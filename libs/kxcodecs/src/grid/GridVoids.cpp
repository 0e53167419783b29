// SPDX-License-Identifier: MIT
#include "grid/GridVoids.h"

#include <algorithm>
#include <bit>

#include "grid/GridPlaces.h"
#include "grid/GridPrediction.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grid/GridVoids.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

#include "grid/GridLanes.h"

#ifndef KXGRID_COVER
#define KXGRID_COVER
namespace kxcodecs::grid {
// Cells that hold their void value, and how many of them follow another.
struct Cover {
    std::size_t cells = 0;
    std::size_t pairs = 0;
    bool Clustered() const { return cells > 0 && 2 * pairs >= cells; }
};
}  // namespace kxcodecs::grid
#endif

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

// Bits of the cells of a group that hold what `other` holds.
HWY_INLINE uint32_t EqualBits(const uint32_t* cells, const uint32_t* other) {
    const U32 d;
    uint32_t word = 0;
    for (std::size_t i = 0; i < kBlock; i += hn::Lanes(d))
        word |= BitsOf(hn::Eq(hn::LoadU(d, cells + i), hn::LoadU(d, other + i))) << i;
    return word;
}
HWY_INLINE uint32_t EqualBits(const uint32_t* cells, uint32_t value) {
    const U32 d;
    uint32_t word = 0;
    for (std::size_t i = 0; i < kBlock; i += hn::Lanes(d))
        word |= BitsOf(hn::Eq(hn::LoadU(d, cells + i), hn::Set(d, value))) << i;
    return word;
}

// Bit i of a word: the cell equals its right neighbour. \return how many do
std::size_t EqualToTheRight(const RawImage& image, uint16_t* words) {
    const std::size_t groups = image.Groups();
    const uint32_t lastWord = static_cast<uint32_t>(image.LastWord()) >> 1;
    std::size_t count = 0;
    for (std::size_t y = 0; y < image.height; ++y) {
        const uint32_t* const row = image.cells + y * image.Stride();
        for (std::size_t g = 0; g < groups; ++g) {
            uint32_t word = EqualBits(row + g * kBlock, row + g * kBlock + 1);
            if (g + 1 == groups) word &= lastWord;
            words[y * groups + g] = static_cast<uint16_t>(word);
            count += CountBits(word);
        }
    }
    return count;
}

// The longest run of each column: cells that equal the one above, and their value. \return how many cells do
std::size_t LongestDownwards(const RawImage& image, uint32_t* now, uint32_t* longest, uint32_t* values) {
    const U32 d;
    const I32 di;
    const std::size_t stride = image.Stride();
    std::fill_n(now, stride, 0U);
    std::fill_n(longest, stride, 0U);
    std::copy_n(image.cells, stride, values);
    V all = hn::Zero(d);
    for (std::size_t y = 1; y < image.height; ++y) {
        const uint32_t* const row = image.cells + y * stride;
        for (std::size_t x = 0; x < stride; x += hn::Lanes(d)) {
            const V value = hn::LoadU(d, row + x);
            const M equal = hn::Eq(value, hn::LoadU(d, row + x - stride));
            const V one = hn::IfThenElseZero(equal, hn::Set(d, 1));
            const V length = hn::IfThenElseZero(equal, hn::Add(hn::LoadU(d, now + x), one));
            const V before = hn::LoadU(d, longest + x);
            const M longer = hn::RebindMask(d, hn::Gt(hn::BitCast(di, length), hn::BitCast(di, before)));
            hn::StoreU(length, d, now + x);
            hn::StoreU(hn::IfThenElse(longer, length, before), d, longest + x);
            hn::StoreU(hn::IfThenElse(longer, value, hn::LoadU(d, values + x)), d, values + x);
            all = hn::Add(all, one);
        }
    }
    return hn::GetLane(hn::SumOfLanes(d, all));
}

// Bit i of a word: the cell holds the value of its row, or of its column, or the one value.
Cover CoverBits(const RawImage& image, VoidKind kind, const uint32_t* values, uint16_t* words) {
    const std::size_t groups = image.Groups();
    Cover cover;
    for (std::size_t y = 0; y < image.height; ++y) {
        const uint32_t* const row = image.cells + y * image.Stride();
        uint16_t* const rowWords = words + y * groups;
        const uint32_t value = values[kind == VoidKind::PerRow ? y : 0];
        uint32_t left = 0;
        for (std::size_t g = 0; g < groups; ++g) {
            uint32_t word = kind == VoidKind::PerColumn ? EqualBits(row + g * kBlock, values + g * kBlock)
                                                        : EqualBits(row + g * kBlock, value);
            if (g + 1 == groups) word &= image.LastWord();
            rowWords[g] = static_cast<uint16_t>(word);
            const uint32_t others = kind != VoidKind::PerColumn ? (word << 1) | left
                                    : y > 0                     ? (rowWords - groups)[g]
                                                                : 0U;
            cover.cells += CountBits(word);
            cover.pairs += CountBits(word & others);
            left = word >> 15;
        }
    }
    return cover;
}

// The distance of the number nearest to `value` that is another one.
uint32_t Nearest(const RawImage& image, uint32_t value) {
    const U32 d;
    const V centre = hn::Set(d, value);
    const I32 di;
    V nearest = hn::Set(d, ~uint32_t{0});
    for (std::size_t y = 0; y < image.height; ++y) {
        const uint32_t* const row = image.cells + y * image.Stride();
        for (std::size_t x = 0; x < image.width; x += hn::Lanes(d)) {
            const V cell = hn::LoadU(d, row + x);
            const M above = hn::RebindMask(d, hn::Gt(hn::BitCast(di, cell), hn::BitCast(di, centre)));
            const V distance = hn::IfThenElse(above, hn::Sub(cell, centre), hn::Sub(centre, cell));
            M counts = hn::Ne(cell, centre);
            if (image.width - x < hn::Lanes(d)) counts = hn::And(counts, hn::FirstN(d, image.width - x));
            nearest = hn::Min(nearest, hn::IfThenElse(counts, distance, nearest));
        }
    }
    return hn::GetLane(hn::MinOfLanes(d, nearest));
}

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxcodecs::grid {

HWY_EXPORT(EqualToTheRight);
HWY_EXPORT(LongestDownwards);
HWY_EXPORT(CoverBits);
HWY_EXPORT(Nearest);

namespace {

// A row or column has a value for its voids when that many cells in a row hold it: noise hardly does.
constexpr uint32_t kShortestRun = 4;
// A value so far from all others costs as an exception wherever it appears.
constexpr uint32_t kFarAway = 256;

struct Run {
    uint32_t cells = 0;
    uint32_t at = 0;
};
// The longest run of cells that equal their right neighbours, given the bits of those that do.
Run LongestRun(const uint16_t* words, std::size_t groups) {
    Run best;
    uint32_t pairs = 0;  // of the run that reaches the end of the word before
    const auto offer = [&](uint32_t length, uint32_t end) {
        if (length + 1 > best.cells) best = {length + 1, end - length};
    };
    for (std::size_t g = 0; g < groups; ++g) {
        const uint32_t word = words[g], place = static_cast<uint32_t>(g) * kBlock;
        if (word == 0xFFFF) {
            pairs += kBlock;
            offer(pairs, place + kBlock);
            continue;
        }
        const auto first = static_cast<uint32_t>(std::countr_one(word));
        if (pairs + first > 0) offer(pairs + first, place + first);
        // Single pairs are of no use.
        uint32_t rest = (word & (word >> 1)) >> first << first;
        while (rest != 0) {
            const auto at = static_cast<uint32_t>(std::countr_zero(rest));
            const auto length = static_cast<uint32_t>(std::countr_one(word >> at));
            offer(length, place + at + length);
            rest = rest >> (at + length) << (at + length);
        }
        pairs = static_cast<uint32_t>(std::countl_one(static_cast<uint16_t>(word)));
    }
    return best;
}

// Each line that has no run of its own goes on as the lines before.
void FillGaps(const std::vector<uint32_t>& lengths, std::vector<uint32_t>& values) {
    for (std::size_t i = 1; i < values.size(); ++i) {
        if (lengths[i] >= kShortestRun) continue;
        const uint32_t before = values[i - 1], beforeThat = i > 1 ? values[i - 2] : before;
        values[i] = 2 * before - beforeThat;
    }
}

// Whether the lines that have a run have different values; otherwise one for all does as well.
bool Differ(const std::vector<uint32_t>& lengths, const std::vector<uint32_t>& values) {
    bool seen = false;
    uint32_t value = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (lengths[i] < kShortestRun) continue;
        if (seen && values[i] != value) return true;
        seen = true;
        value = values[i];
    }
    return false;
}

// One way to tell voids.
struct Candidate {
    std::vector<uint32_t> values;
    std::vector<uint16_t> words;
};

Cover CoverOf(const RawImage& image, VoidKind kind, Candidate& candidate) {
    candidate.words.resize(image.Groups() * image.height);
    return HWY_DYNAMIC_DISPATCH(CoverBits)(image, kind, candidate.values.data(), candidate.words.data());
}

void Take(const RawImage& image, VoidKind kind, Candidate& candidate, VoidsFound& out) {
    out.kind = kind;
    out.values = candidate.values;
    out.stored.resize(candidate.words.size());
    const std::size_t groups = image.Groups();
    for (std::size_t i = 0; i < candidate.words.size(); ++i)
        out.stored[i] = static_cast<uint16_t>(~static_cast<uint32_t>(candidate.words[i]));
    for (std::size_t i = groups; i <= out.stored.size(); i += groups)
        out.stored[i - 1] = static_cast<uint16_t>(out.stored[i - 1] & image.LastWord());
}

}  // namespace

void TakeVoid(const RawImage& image, uint32_t value, VoidsFound& out) {
    Candidate candidate{{value}, {}};
    CoverOf(image, VoidKind::Constant, candidate);
    Take(image, VoidKind::Constant, candidate, out);
}

void FindVoids(const RawImage& image, VoidsFound& out) {
    const std::size_t groups = image.Groups(), stride = image.Stride(),
                      cells = std::size_t{image.width} * image.height;
    std::vector<uint16_t> equal(groups * image.height);
    const std::size_t toTheRight = HWY_DYNAMIC_DISPATCH(EqualToTheRight)(image, equal.data());

    Candidate rows, columns, constant{{0}, {}};
    std::vector<uint32_t> rowRuns(image.height);
    rows.values.resize(image.height);
    Run longest;
    for (std::size_t y = 0; y < image.height; ++y) {
        const Run run = toTheRight > 0 ? LongestRun(equal.data() + y * groups, groups) : Run{};
        rowRuns[y] = run.cells;
        rows.values[y] = image.cells[y * stride + run.at];
        if (run.cells > longest.cells) {
            longest = run;
            constant.values[0] = rows.values[y];
        }
    }
    // A column of patches may stand on its side.
    std::vector<uint32_t> now(stride), columnRuns(stride);
    columns.values.resize(stride);
    const std::size_t downwards =
        HWY_DYNAMIC_DISPATCH(LongestDownwards)(image, now.data(), columnRuns.data(), columns.values.data());
    for (uint32_t& length : columnRuns)
        ++length;
    if (longest.cells < kShortestRun && downwards > 0) {
        const auto tallest = std::max_element(columnRuns.begin(), columnRuns.begin() + image.width);
        constant.values[0] = *tallest >= kShortestRun
                                 ? columns.values[static_cast<std::size_t>(tallest - columnRuns.begin())]
                                 : 0;
    }

    // Half of the voids at least must be pairs, and one cell of 64 a void.
    const std::size_t least = cells / 128;
    Cover ofConstant = CoverOf(image, VoidKind::Constant, constant);
    bool constantHelps = ofConstant.Clustered();
    if (!constantHelps) {
        if (constant.values[0] != 0) {
            constant.values[0] = 0;
            ofConstant = CoverOf(image, VoidKind::Constant, constant);
        }
        constantHelps =
            ofConstant.Clustered() ||
            (ofConstant.cells > 0 && HWY_DYNAMIC_DISPATCH(Nearest)(image, constant.values[0]) >= kFarAway);
    }
    std::size_t covered = constantHelps ? ofConstant.cells + ofConstant.cells / 16 + 16 : cells / 64;
    VoidKind kind = constantHelps ? VoidKind::Constant : VoidKind::None;
    if (downwards >= least && Differ(columnRuns, columns.values)) {
        FillGaps(columnRuns, columns.values);
        const Cover cover = CoverOf(image, VoidKind::PerColumn, columns);
        if (cover.Clustered() && cover.cells > covered) {
            kind = VoidKind::PerColumn;
            covered = cover.cells;
        }
    }
    if (toTheRight >= least && Differ(rowRuns, rows.values)) {
        FillGaps(rowRuns, rows.values);
        const Cover cover = CoverOf(image, VoidKind::PerRow, rows);
        if (cover.Clustered() && cover.cells > covered) kind = VoidKind::PerRow;
    }
    switch (kind) {
        case VoidKind::None:
            out.kind = kind;
            out.values.clear();
            out.stored.assign(groups * image.height, 0xFFFF);
            for (std::size_t i = groups; i <= out.stored.size(); i += groups)
                out.stored[i - 1] = image.LastWord();
            break;
        case VoidKind::Constant:
            return Take(image, kind, constant, out);
        case VoidKind::PerRow:
            return Take(image, kind, rows, out);
        case VoidKind::PerColumn:
            columns.values.resize(image.width);
            return Take(image, kind, columns, out);
    }
}

}  // namespace kxcodecs::grid
#endif
