// SPDX-License-Identifier: MIT
#include "PlainLines.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <algorithm>
#include <bit>
#include <random>
#include <string>
#include <vector>

#include "TextNumbers.h"

using kxexchange::Cell;
using kxexchange::LineShape;

namespace {

constexpr LineShape kPtx{true, false, true};
constexpr LineShape kPtxColor{true, true, true};

// Lines of a text that lies as parsers have it: with bytes around it, which must not count.
struct Read {
    std::vector<Cell> cells;
    size_t bytes = 0;  // passed over
};

Read ReadPlain(const LineShape& shape, const std::string& text, size_t most = 10000) {
    const std::string around = "9.9 9\n1234567890.123456789 ";
    const std::string memory = std::string(kxexchange::kReadableInFront, '7') + text +
                               (around + around + around).substr(0, kxexchange::kReadableBehind);
    const char* const first = memory.data() + kxexchange::kReadableInFront;
    const char* at = first;
    Read read;
    read.cells.resize(most);
    read.cells.resize(kxexchange::ParsePlainLines(shape, at, first + text.size(), most, read.cells.data()));
    read.bytes = static_cast<size_t>(at - first);
    return read;
}

uint64_t Bits(double value) {
    return std::bit_cast<uint64_t>(value);
}

class Digits {
public:
    explicit Digits(uint64_t seed) : m_random(seed) {}
    uint64_t Below(uint64_t limit) { return m_random() % limit; }
    std::string Run(uint64_t count) {
        std::string digits;
        for (uint64_t i = 0; i < count; ++i)
            digits += static_cast<char>('0' + m_random() % 10);
        return digits;
    }
    // Of up to `most` digits, with or without sign and point, wherever it stands.
    std::string Value(uint64_t most) {
        std::string digits = Run(1 + Below(most));
        if (Below(4) != 0) digits.insert(Below(digits.size() + 1), ".");
        return (Below(2) != 0 ? "-" : "") + digits;
    }

private:
    std::mt19937_64 m_random;
};

// Values of lines of four, of up to `most` digits each, and what the careful parser makes of them.
void CompareLines(uint64_t most, uint64_t seed) {
    Digits digits(seed);
    std::string text;
    std::vector<double> expected;
    const uint64_t lines = 1 + digits.Below(60);
    const char* const lineEnd = digits.Below(3) == 0 ? "\r\n" : "\n";
    for (uint64_t i = 0; i < 4 * lines; ++i) {
        const std::string value = digits.Value(most) + (i % 4 == 3             ? lineEnd
                                                        : digits.Below(9) == 0 ? "\t"
                                                                               : " ");
        const char* at = value.c_str();
        double number = 0;
        ASSERT_EQ(kxexchange::ParseNumber(at, number), kxexchange::NumberStatus::Ok) << value;
        expected.push_back(number);
        text += value;
    }
    const Read read = ReadPlain(kPtx, text);
    ASSERT_EQ(read.cells.size(), lines) << text;
    ASSERT_EQ(read.bytes, text.size());
    for (size_t i = 0; i < lines; ++i) {
        const Cell& cell = read.cells[i];
        const double* const wanted = expected.data() + 4 * i;
        ASSERT_EQ(Bits(cell.x), Bits(wanted[0])) << text;
        ASSERT_EQ(Bits(cell.y), Bits(wanted[1])) << text;
        ASSERT_EQ(Bits(cell.z), Bits(wanted[2])) << text;
        ASSERT_EQ(Bits(cell.intensity), Bits(wanted[3])) << text;
        ASSERT_EQ(cell.valid, wanted[0] != 0 || wanted[1] != 0 || wanted[2] != 0);
    }
}

// The vectors of one kind of unit from here to the end of the block.
class VectorUnit {
public:
    explicit VectorUnit(int64_t target) {
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }
    ~VectorUnit() {
        hwy::SetSupportedTargetsForTest(0);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }
    VectorUnit(const VectorUnit&) = delete;
    VectorUnit& operator=(const VectorUnit&) = delete;
};

}  // namespace

// Words of digits are read as little-endian machines load them; others take each line the careful way.
class PlainLines : public testing::Test {
protected:
    void SetUp() override {
        if (std::endian::native != std::endian::little) GTEST_SKIP() << "this machine is big-endian";
    }
};

TEST_F(PlainLines, ValuesAreThoseOfTheCarefulParserOnEveryVectorUnit) {
    for (const int64_t target : hwy::SupportedAndGeneratedTargets()) {
        if (target == HWY_SCALAR) continue;  // has no vectors: every line the careful way
        const VectorUnit unit(target);
        for (const uint64_t most : {3U, 7U, 8U, 9U, 12U, 15U}) {
            for (uint64_t seed = 0; seed < 100; ++seed) {
                CompareLines(most, 100 * most + seed);
                if (HasFatalFailure()) FAIL() << hwy::TargetName(target);
            }
        }
    }
}

TEST_F(PlainLines, SixteenDigitsAreReadUpToWhatADoubleHolds) {
    const Read read =
        ReadPlain(kPtx, "9007199254740991 -900719925474099.1 .123456789012345 0000000000000001\n");
    ASSERT_EQ(read.cells.size(), 1U);
    EXPECT_EQ(read.cells[0].x, 9007199254740991.0);
    EXPECT_EQ(read.cells[0].y, -900719925474099.1);
    EXPECT_EQ(read.cells[0].z, .123456789012345);
    EXPECT_EQ(read.cells[0].intensity, 1);
    EXPECT_TRUE(ReadPlain(kPtx, "9007199254740993 1 2 3\n").cells.empty());
    EXPECT_TRUE(ReadPlain(kPtx, "12345678901234567 1 2 3\n").cells.empty());
    EXPECT_TRUE(ReadPlain(kPtx, ".1234567890123456 1 2 3\n").cells.empty());
}

TEST_F(PlainLines, AnythingUnusualIsLeftToTheCarefulParser) {
    for (const char* odd : {"+1 2 3 4\n",
                            "1e5 2 3 4\n",
                            "1.2.3 2 3 4\n",
                            "1.2 3.4.56789012 5 6\n",
                            "1 .23456.78901234 5 6\n",
                            "--1 2 3 4\n",
                            "- 2 3 4\n",
                            ". 2 3 4\n",
                            "-. 2 3 4\n",
                            "1  2 3 4\n",
                            " 1 2 3 4\n",
                            "1 2 3 4 \n",
                            "1 2 3\n",
                            "1 2 3 4 5\n",
                            "1 2 3\n4\n",
                            "\n1 2 3 4\n",
                            "1 2 3 /\n",
                            "1 2 3 :\n",
                            "1 2 x 4\n",
                            "1 nan 3 4\n",
                            "1 2 3- 4\n",
                            "1,5 2 3 4\n",
                            "1 2 3 4\r\r\n",

                            "1\v2 3 4\n"}) {
        EXPECT_TRUE(ReadPlain(kPtx, odd).cells.empty()) << odd;
        // Nothing of the lines around it is taken either, so that they stay in their order.
        EXPECT_EQ(ReadPlain(kPtx, std::string("5 6 7 8\n") + odd).bytes, 0U) << odd;
    }
    EXPECT_TRUE(ReadPlain(kPtx, std::string("1 2\0003 4 5\n", 11)).cells.empty());
    EXPECT_TRUE(ReadPlain(kPtx, "1 2 3 " + std::string(2000, '4') + "\n").cells.empty());
}

TEST_F(PlainLines, ColoursAreWholeNumbersUpTo255) {
    const Read read = ReadPlain(kPtxColor, "1 2 3 .5 0 10 255\n0 0 0 .5 9 99 100\n");
    ASSERT_EQ(read.cells.size(), 2U);
    EXPECT_EQ(read.cells[0].red, 0);
    EXPECT_EQ(read.cells[0].green, 10);
    EXPECT_EQ(read.cells[0].blue, 255);
    EXPECT_TRUE(read.cells[0].valid);
    EXPECT_EQ(read.cells[1].red, 9);
    EXPECT_EQ(read.cells[1].green, 99);
    EXPECT_EQ(read.cells[1].blue, 100);
    EXPECT_FALSE(read.cells[1].valid);
    for (const char* color :
         {"256", "999", "-1", "-0", "1.", "1.0", ".5", "0.5", "2.5", "10.", "007", "00", "100.0"})
        EXPECT_TRUE(ReadPlain(kPtxColor, "1 2 3 .5 0 " + std::string(color) + " 0\n").cells.empty()) << color;
}

TEST_F(PlainLines, EveryShapeFillsItsFields) {
    const Read xyz = ReadPlain({}, "0 0 0\n1 2 3\n");
    ASSERT_EQ(xyz.cells.size(), 2U);
    EXPECT_TRUE(xyz.cells[0].valid);  // a point that is listed is one
    EXPECT_EQ(xyz.cells[1].z, 3);
    EXPECT_EQ(xyz.cells[1].intensity, 0);
    const Read colored = ReadPlain({false, true, false}, "1 2 3 4 5 6\n");
    ASSERT_EQ(colored.cells.size(), 1U);
    EXPECT_EQ(colored.cells[0].red, 4);
    EXPECT_EQ(colored.cells[0].intensity, 0);
}

TEST_F(PlainLines, NoMoreLinesAreReadThanWanted) {
    std::string text;
    for (int i = 0; i < 100; ++i)
        text += "1 2 3 " + std::to_string(i) + "\n";
    for (const size_t most : {0U, 1U, 29U, 99U, 100U, 101U}) {
        const Read read = ReadPlain(kPtx, text, most);
        ASSERT_EQ(read.cells.size(), std::min<size_t>(most, 100));
        for (size_t i = 0; i < read.cells.size(); ++i)
            EXPECT_EQ(read.cells[i].intensity, static_cast<double>(i));
        if (most != 0 && most < 100) {
            EXPECT_EQ(text.substr(read.bytes, 6), "1 2 3 ");
        }
    }
}
