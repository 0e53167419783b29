// SPDX-License-Identifier: MIT
// Text to numbers without a branch per digit: first the places of all values in a piece of text, then as many
// values at once as a vector has lanes of 64 bits. This file is compiled once for every kind of vector unit;
// all that is done in floating point but one division is exact, so that all give the same bits.
#include "PlainLines.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "PlainLines.cpp"
#include <hwy/foreach_target.h>
// After foreach_target.h.
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kxexchange {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR

// Text looked at together: some dozens of lines. One odd value makes all of it be read otherwise.
constexpr size_t kPieceBytes = 1024;
constexpr size_t kStep = 64;
constexpr size_t kMostLanes = 8;

// Where the values of a piece of text lie.
struct Places {
    std::array<int32_t, 1 + kPieceBytes + kMostLanes> begin;
    std::array<int32_t, 1 + kPieceBytes + kMostLanes> end;
    size_t count = 0;
    size_t lines = 0;
};

template <class D>
HWY_INLINE uint64_t BitsOf(D d, hn::Mask<D> mask) {
    uint64_t bits = 0;
    hn::StoreMaskBits(d, mask, reinterpret_cast<uint8_t*>(&bits));
    return bits;
}

// One bit for each of 64 bytes.
struct Marks {
    uint64_t blanks = 0;  // and all below
    uint64_t lineEnds = 0;
    uint64_t returns = 0;
};

HWY_INLINE Marks MarksOf(const char* text) {
    const hn::CappedTag<uint8_t, kStep> d;
    Marks marks;
    for (size_t i = 0; i < kStep; i += hn::Lanes(d)) {
        const auto bytes = hn::LoadU(d, reinterpret_cast<const uint8_t*>(text) + i);
        const auto lineEnds = hn::Eq(bytes, hn::Set(d, uint8_t{'\n'}));
        const auto returns = hn::Eq(bytes, hn::Set(d, uint8_t{'\r'}));
        const auto spaces =
            hn::Or(hn::Eq(bytes, hn::Set(d, uint8_t{' '})), hn::Eq(bytes, hn::Set(d, uint8_t{'\t'})));
        marks.blanks |= BitsOf(d, hn::Or(hn::Or(lineEnds, returns), spaces)) << i;
        marks.lineEnds |= BitsOf(d, lineEnds) << i;
        marks.returns |= BitsOf(d, returns) << i;
    }
    return marks;
}

// A '\n' behind a '\r' ends a line and no value.
HWY_INLINE void FindValues(const char* text, size_t bytes, Places& places) {
    int32_t* begin = places.begin.data();
    int32_t* end = places.end.data();
    *begin++ = 0;
    places.lines = 0;
    uint64_t returnBefore = 0;
    for (size_t i = 0; i < bytes; i += kStep) {
        Marks marks = MarksOf(text + i);
        if (bytes - i < kStep) {
            const uint64_t inside = (uint64_t{1} << (bytes - i)) - 1;
            marks.blanks &= inside;
            marks.lineEnds &= inside;
        }
        places.lines += static_cast<size_t>(std::popcount(marks.lineEnds));
        const uint64_t lineEndBehind = text[i + kStep] == '\n' ? 1 : 0;
        const uint64_t pairs = marks.returns & (marks.lineEnds >> 1 | lineEndBehind << 63);
        uint64_t left = marks.blanks & ~(marks.lineEnds & (marks.returns << 1 | returnBefore));
        returnBefore = marks.returns >> 63;
        for (; left != 0; left &= left - 1) {
            const int bit = std::countr_zero(left);
            const int32_t at = static_cast<int32_t>(i) + bit;
            *end++ = at;
            *begin++ = at + 1 + static_cast<int32_t>(pairs >> bit & 1);
        }
    }
    places.count = static_cast<size_t>(end - places.end.data());
    // What fills up the last vector is read and not used.
    for (size_t i = 0; i < kMostLanes; ++i, ++begin) {
        *end++ = begin[-1] + 1;
        *begin = begin[-1] + 2;
    }
}

using D64 = hn::CappedTag<uint64_t, kMostLanes>;
using DF = hn::Rebind<double, D64>;
using Words = hn::Vec<D64>;
using Numbers = hn::Vec<DF>;

HWY_INLINE Words EachByte(uint8_t byte) {
    return hn::Set(D64(), 0x0101010101010101 * byte);
}

// All bits of the last bytes of a word: 0 to 8 of them.
HWY_INLINE Words LastBytes(Words count) {
    const D64 d;
    const auto half = hn::ShiftLeft<2>(hn::Sub(hn::Set(d, uint64_t{8}), count));  // 64 at once has no meaning
    return hn::Shl(hn::Shl(hn::Set(d, ~uint64_t{0}), half), half);
}

HWY_INLINE Words AtMostEight(Words count) {
    const D64 d;
    const hn::RebindToSigned<D64> signedWords;
    const auto least = hn::Min(hn::BitCast(signedWords, count), hn::Set(signedWords, int64_t{8}));
    return hn::BitCast(d, least);
}

// The numbers of eight digits each, the first in the low byte: of pairs, of pairs of these, and so on.
HWY_INLINE Numbers NumbersOf(Words digits) {
    const D64 d;
    const DF df;
    const hn::Repartition<uint16_t, D64> d16;
    const hn::Repartition<uint32_t, D64> d32;
    const auto ones = hn::BitCast(d16, digits);
    const auto tens =
        hn::Add(hn::Mul(hn::And(ones, hn::Set(d16, uint16_t{0xff})), hn::Set(d16, uint16_t{10})),
                hn::ShiftRight<8>(ones));
    const auto pairs = hn::BitCast(d32, tens);
    const auto hundreds = hn::Add(hn::Mul(hn::And(pairs, hn::Set(d32, 0xffffU)), hn::Set(d32, 100U)),
                                  hn::ShiftRight<16>(pairs));
    const auto all =
        hn::Add(hn::MulEven(hundreds, hn::Set(d32, 10000U)), hn::ShiftRight<32>(hn::BitCast(d, hundreds)));
    // Up to 2^52 the bits of a number are the low ones of the double 2^52 plus that number.
    const auto large = hn::Set(d, uint64_t{0x4330000000000000});
    return hn::Sub(hn::BitCast(df, hn::Or(all, large)), hn::BitCast(df, large));
}

// Bits where a byte is above 9.
HWY_INLINE Words NonDigits(Words digits) {
    const D64 d;
    const hn::Repartition<uint8_t, D64> d8;
    const auto bytes = hn::BitCast(d8, digits);
    return hn::BitCast(d, hn::SaturatedSub(bytes, hn::Set(d8, uint8_t{9})));
}

// The eight bytes of text from each place on.
HWY_INLINE Words Load(const char* text, Words place) {
    const D64 d;
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
    const hn::RebindToSigned<D64> signedWords;
    return hn::GatherOffset(d, reinterpret_cast<const uint64_t*>(text), hn::BitCast(signedWords, place));
#else
    // What the others do for a gathering reads words that lie as words do.
    HWY_ALIGN std::array<uint64_t, kMostLanes> places;
    HWY_ALIGN std::array<uint64_t, kMostLanes> words;
    hn::Store(place, d, places.data());
    for (size_t i = 0; i < hn::Lanes(d); ++i)
        std::memcpy(&words[i], text + static_cast<std::ptrdiff_t>(places[i]), sizeof(uint64_t));
    return hn::Load(d, words.data());
#endif
}

// Eight bytes of values, with the point taken out.
struct Eight {
    Words bytes;
    Words decimals;       // behind the point
    hn::Mask<D64> point;  // whether it was among them
};

// The eight bytes in front of `end`, of which the last `count` are looked at. What is in front of a point
// moves up by one byte.
HWY_INLINE Eight TakePoint(const char* text, Words end, Words count) {
    const D64 d;
    const hn::Repartition<uint8_t, D64> d8;
    const auto zero = hn::Zero(d);
    const auto bytes = Load(text, hn::Sub(end, hn::Set(d, uint64_t{8})));
    const auto moved = Load(text, hn::Sub(end, hn::Set(d, uint64_t{9})));
    const auto isPoint = hn::Eq(hn::BitCast(d8, bytes), hn::Set(d8, uint8_t{'.'}));
    const auto points = hn::And(hn::BitCast(d, hn::VecFromMask(d8, isPoint)), LastBytes(count));
    const auto first = hn::And(points, hn::Sub(zero, points));  // its lowest bit; a second one is no digit
    const auto point = hn::Ne(first, zero);
    const auto behind = hn::Not(hn::Sub(hn::ShiftLeft<8>(first), hn::Set(d, uint64_t{1})));
    const auto kept = hn::IfThenElse(point, behind, hn::Set(d, ~uint64_t{0}));
    const auto decimals = hn::SumsOf8(hn::BitCast(d8, hn::And(behind, EachByte(1))));
    return {hn::Or(hn::And(bytes, kept), hn::AndNot(kept, moved)), hn::IfThenElseZero(point, decimals),
            point};
}

// Two points give no power that is used, but one that is looked up.
constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                              1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// As many values as there are lanes. `odd` gets bits for a value that is none, or not such a one.
HWY_INLINE Numbers Read(const char* text, Words start, Words end, Words& odd) {
    const D64 d;
    const DF df;
    const hn::RebindToSigned<D64> signedWords;
    const auto one = hn::Set(d, uint64_t{1});
    const auto eight = hn::Set(d, uint64_t{8});
    const auto negative =
        hn::Eq(hn::And(Load(text, start), hn::Set(d, uint64_t{0xff})), hn::Set(d, uint64_t{'-'}));
    const auto length = hn::Sub(hn::Sub(end, start), hn::IfThenElseZero(negative, one));

    const Eight low = TakePoint(text, end, AtMostEight(length));
    auto decimals = low.decimals;
    auto count = hn::Sub(length, hn::IfThenElseZero(low.point, one));
    const auto lowDigits = hn::And(hn::Xor(low.bytes, EachByte('0')), LastBytes(AtMostEight(count)));
    auto wrong = NonDigits(lowDigits);
    auto value = NumbersOf(lowDigits);
    const auto isLong = hn::Gt(hn::BitCast(signedWords, count), hn::Set(signedWords, int64_t{8}));
    if (!hn::AllFalse(signedWords, isLong)) {
        // Eight bytes more; the point is among them, or was among the last ones, or is nowhere.
        const auto more = hn::IfThenElseZero(hn::RebindMask(d, isLong), AtMostEight(hn::Sub(count, eight)));
        const auto highEnd = hn::Sub(hn::Sub(end, eight), hn::IfThenElseZero(low.point, one));
        const Eight high = TakePoint(text, highEnd, more);
        decimals = hn::Add(decimals, hn::IfThenElseZero(high.point, hn::Add(high.decimals, eight)));
        count = hn::Sub(count, hn::IfThenElseZero(high.point, one));
        const auto left = hn::IfThenElseZero(hn::RebindMask(d, isLong), AtMostEight(hn::Sub(count, eight)));
        const auto highDigits = hn::And(hn::Xor(high.bytes, EachByte('0')), LastBytes(left));
        wrong = hn::Or(wrong, NonDigits(highDigits));
        // Exact up to 2^53; digits that make more are left to others.
        value = hn::Add(hn::Mul(NumbersOf(highDigits), hn::Set(df, 1e8)), value);
        const auto large = hn::Gt(value, hn::Set(df, 9007199254740991.0));
        const auto tooMany = hn::Gt(hn::BitCast(signedWords, count), hn::Set(signedWords, int64_t{16}));
        wrong = hn::Or(wrong, hn::Or(hn::BitCast(d, hn::VecFromMask(df, large)),
                                     hn::BitCast(d, hn::VecFromMask(signedWords, tooMany))));
        const auto twice = hn::And(low.point, high.point);
        wrong = hn::Or(wrong, hn::BitCast(d, hn::VecFromMask(d, twice)));
    }
    odd = hn::Or(odd, hn::Or(wrong, hn::IfThenElseZero(hn::Eq(count, hn::Zero(d)), one)));
    const auto power = hn::GatherIndex(df, kPowers, hn::BitCast(signedWords, decimals));
    const auto sign = hn::ShiftLeft<63>(hn::IfThenElseZero(negative, one));
    return hn::Or(hn::Div(value, power), hn::BitCast(df, sign));
}

// The first `count` values; false when one of them is odd.
HWY_INLINE bool ReadValues(const char* text, const Places& places, size_t count, double* values) {
    const D64 d;
    const DF df;
    const hn::RebindToSigned<D64> signedWords;
    const hn::Rebind<int32_t, D64> d32;
    auto odd = hn::Zero(d);
    for (size_t i = 0; i < count; i += hn::Lanes(d)) {
        const auto begin = hn::PromoteTo(signedWords, hn::LoadU(d32, places.begin.data() + i));
        const auto end = hn::PromoteTo(signedWords, hn::LoadU(d32, places.end.data() + i));
        auto wrong = hn::Zero(d);
        hn::StoreU(Read(text, hn::BitCast(d, begin), hn::BitCast(d, end), wrong), df, values + i);
        const auto counts = hn::FirstN(d, std::min(count - i, hn::Lanes(d)));
        odd = hn::Or(odd, hn::IfThenElseZero(counts, wrong));
    }
    return hn::AllTrue(d, hn::Eq(odd, hn::Zero(d)));
}

// Whether the values are those of whole lines of so many each.
HWY_INLINE bool AreLines(const char* text, const Places& places, size_t perLine) {
    if (places.count < places.lines * perLine) return false;
    bool whole = true;
    for (size_t line = 1; line <= places.lines; ++line) {
        const char* const at = text + places.end[line * perLine - 1];
        whole = whole && *(at + (*at == '\r' ? 1 : 0)) == '\n';
    }
    return whole;  // as many lines end as there are, so none between
}

// A colour without sign, point and zeros in front is as long as it is large.
HWY_INLINE bool IsColor(double value, int32_t length) {
    return length == (value < 10 ? 1 : value < 100 ? 2 : 3) && value <= 255;
}

template <bool HasIntensity, bool HasColor>
size_t ReadPiece(const char*& begin, size_t bytes, size_t lines, bool originIsEmpty, Cell* out) {
    constexpr size_t kPerLine = 3 + (HasIntensity ? 1 : 0) + (HasColor ? 3 : 0);
    Places places;
    FindValues(begin, bytes, places);
    if (!AreLines(begin, places, kPerLine)) return 0;
    lines = std::min(lines, places.lines);
    std::array<double, kPieceBytes + kMostLanes> values;
    if (!ReadValues(begin, places, lines * kPerLine, values.data())) return 0;
    const double* value = values.data();
    for (size_t i = 0; i < lines; ++i, value += kPerLine) {
        Cell& cell = out[i];
        cell = Cell();
        cell.x = value[0];
        cell.y = value[1];
        cell.z = value[2];
        if constexpr (HasIntensity) cell.intensity = value[3];
        if constexpr (HasColor) {
            const size_t first = (i + 1) * kPerLine - 3;
            const double* const color = values.data() + first;
            for (size_t c = 0; c < 3; ++c) {
                if (!IsColor(color[c], places.end[first + c] - places.begin[first + c])) return 0;
            }
            cell.red = static_cast<uint16_t>(color[0]);
            cell.green = static_cast<uint16_t>(color[1]);
            cell.blue = static_cast<uint16_t>(color[2]);
        }
        const bool atOrigin = (cell.x == 0) & (cell.y == 0) & (cell.z == 0);
        cell.valid = !(originIsEmpty & atOrigin);
    }
    begin += places.begin[lines * kPerLine];  // of the first value behind them
    return lines;
}

size_t ReadPlainLines(const LineShape& shape, const char*& begin, const char* end, size_t lines, Cell* out) {
    // Digits of a word are taken from its low byte up, as little-endian machines load them.
    if constexpr (std::endian::native != std::endian::little) return 0;
    const auto read = shape.intensity ? (shape.color ? ReadPiece<true, true> : ReadPiece<true, false>)
                                      : (shape.color ? ReadPiece<false, true> : ReadPiece<false, false>);
    size_t done = 0;
    while (done < lines && begin != end) {
        const size_t bytes = std::min(kPieceBytes, static_cast<size_t>(end - begin));
        const size_t more = read(begin, bytes, lines - done, shape.originIsEmpty, out + done);
        if (more == 0) break;
        done += more;
    }
    return done;
}

#else

size_t ReadPlainLines(const LineShape&, const char*&, const char*, size_t, Cell*) {
    return 0;  // every line the careful way
}

#endif
}  // namespace HWY_NAMESPACE
}  // namespace kxexchange
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxexchange {

HWY_EXPORT(ReadPlainLines);

size_t ParsePlainLines(const LineShape& shape, const char*& begin, const char* end, size_t lines, Cell* out) {
    return HWY_DYNAMIC_DISPATCH(ReadPlainLines)(shape, begin, end, lines, out);
}

}  // namespace kxexchange
#endif  // HWY_ONCE
