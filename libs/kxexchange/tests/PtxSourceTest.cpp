// SPDX-License-Identifier: MIT
// The PTX reader: what it takes, what it refuses and how it says so.
#include "PtxSource.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "TestTools.h"
#include "kxbase/InMemoryStream.h"
#include "kxbase/kxInFile.h"

namespace kxexchange::testing {
namespace {

using kxbase::ErrorContext;

// Two columns of two cells.
const std::string kHeader = PtxHeader(2, 2);
const std::string kCells = "1 2 3 0.5\n0 0 0 0.5\n-1 0.25 4e1 1\n7 8 9 0\n";

ErrorContext RefusalOf(ScanSource& source, uint64_t index = 0) {
    try {
        ReadScan(source, index);
    } catch (const SourceFormatException& e) {
        return e.Context();
    }
    ADD_FAILURE() << "nothing was refused";
    return {};
}

ErrorContext RefusalOf(const std::string& text) {
    return RefusalOf(*SourceOf(text));
}

TEST(PtxSource, CellsComeColumnByColumnAsTheTextSays) {
    const auto source = SourceOf(kHeader + kCells);
    EXPECT_EQ(source->FormatName(), "PTX");
    EXPECT_EQ(source->Name(), "test.ptx");
    const Scan scan = ReadScan(*source);
    EXPECT_EQ(scan.description.columns, 2U);
    EXPECT_EQ(scan.description.rows, 2U);
    EXPECT_EQ(scan.description.points, 4U);
    EXPECT_TRUE(scan.description.HasGrid());
    EXPECT_TRUE(scan.description.coordinates.present);
    EXPECT_TRUE(scan.description.intensity.present);
    EXPECT_FALSE(scan.description.color.present);
    EXPECT_TRUE(scan.description.keepsakes.empty());
    EXPECT_EQ(scan.description.pose, kxbase::RegistrationInformation());
    ASSERT_EQ(scan.cells.size(), 4U);
    EXPECT_EQ(scan.At(0, 0).x, 1);
    EXPECT_EQ(scan.At(0, 0).y, 2);
    EXPECT_EQ(scan.At(0, 0).z, 3);
    EXPECT_EQ(scan.At(0, 0).intensity, 0.5);
    EXPECT_TRUE(scan.At(0, 0).valid);
    EXPECT_FALSE(scan.At(0, 1).valid);
    EXPECT_EQ(scan.At(0, 1).intensity, 0.5);
    EXPECT_EQ(scan.At(1, 0).z, 40);
    EXPECT_EQ(scan.At(1, 1).y, 8);
}

TEST(PtxSource, ColourIsReadWhereTheFirstCellHasIt) {
    const Scan scan = ReadScan(*SourceOf(PtxHeader(1, 2) + "1 2 3 0.5 255 0 128\n0 0 0 0.5 0 0 0\n"));
    EXPECT_TRUE(scan.description.color.present);
    EXPECT_EQ(scan.description.color.maximum, 255);
    EXPECT_EQ(scan.cells[0].red, 255);
    EXPECT_EQ(scan.cells[0].green, 0);
    EXPECT_EQ(scan.cells[0].blue, 128);
}

TEST(PtxSource, MatrixRowsAreAxesAndTranslationToTheLastBit) {
    const std::string text =
        "1\n1\n0.1 0.2 0.3\n0 1 0\n-1 0 0\n0 0 1\n"
        "0.3333333333333333 -0.9 1e-17 0\n0.1 0.7 -0 0\n.5 5. +1 0\n"
        "637012.2412345678 -849028.31 431.6600000000001 1\n1 1 1 1\n";
    const Scan scan = ReadScan(*SourceOf(text));
    const double expected[12] = {
        0.3333333333333333, -0.9, 1e-17, 0.1, 0.7, -0.0, .5, 5., 1, 637012.2412345678, -849028.31,
        431.6600000000001};
    EXPECT_EQ(scan.description.pose, kxbase::RegistrationInformation::FromValues(expected));
    // Position and axes say something else than the matrix and are kept.
    const std::vector<std::pair<std::string, std::string>> keepsakes{{"position", "0.1,0.2,0.3"},
                                                                     {"axes", "0,1,0,-1,0,0,0,0,1"}};
    EXPECT_EQ(scan.description.keepsakes, keepsakes);
}

struct Form {
    const char* name;
    std::string text;
};
void PrintTo(const Form& form, std::ostream* out) {
    *out << form.name;
}

class AcceptedForm : public ::testing::TestWithParam<Form> {};

TEST_P(AcceptedForm, ReadsAsThePlainOne) {
    const Scan plain = ReadScan(*SourceOf(kHeader + kCells));
    const Scan scan = ReadScan(*SourceOf(GetParam().text));
    ASSERT_EQ(scan.cells.size(), plain.cells.size());
    for (size_t i = 0; i < scan.cells.size(); ++i) {
        EXPECT_EQ(scan.cells[i].x, plain.cells[i].x);
        EXPECT_EQ(scan.cells[i].y, plain.cells[i].y);
        EXPECT_EQ(scan.cells[i].z, plain.cells[i].z);
        EXPECT_EQ(scan.cells[i].intensity, plain.cells[i].intensity);
        EXPECT_EQ(scan.cells[i].valid, plain.cells[i].valid);
    }
}

std::string WithCrlf(const std::string& text) {
    std::string result;
    for (const char c : text)
        result += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return result;
}

INSTANTIATE_TEST_SUITE_P(
    PtxSource, AcceptedForm,
    ::testing::Values(
        Form{"CarriageReturns", WithCrlf(kHeader + kCells)},
        Form{"Tabs", kHeader + "1\t2\t3\t0.5\n0\t0\t0\t0.5\n-1\t0.25\t4e1\t1\n7\t8\t9\t0\n"},
        Form{"TrailingBlanks", kHeader + "1 2 3 0.5 \n0 0 0 0.5\t \n-1 0.25 4e1 1  \n7 8 9 0 \n"},
        Form{"LeadingBlanks",
             " 2\n\t2\n" + PtxHeader(2, 2).substr(4) + "  1 2 3 0.5\n 0 0 0 0.5\n-1 0.25 4e1 1\n7 8 9 0\n"},
        Form{"RunsOfBlanks", kHeader + "1  2   3 \t 0.5\n0 0 0 0.5\n-1 0.25 4e1 1\n7 8 9 0\n"},
        Form{"LeadingPlus", kHeader + "+1 +2 +3.0 +0.5\n0 0 0 0.5\n-1 +.25 +4e+1 1\n7 8 9 0\n"},
        Form{"Exponents", kHeader + "10e-1 0.2E1 3e0 5E-01\n0e5 -0 0.0e-3 0.5\n-1 25e-2 4e1 1\n7 8 9 0\n"},
        Form{"ManyDigits",
             kHeader + "1.000000000000000000000000000000 2 3 0.5\n0 0 0 0.5\n-1 0.25 40 1\n7 8 9 0\n"},
        Form{"NoFinalLineEnd", (kHeader + kCells).substr(0, (kHeader + kCells).size() - 1)},
        Form{"BlankLinesInFrontAndBehind", "\n \r\n" + kHeader + kCells + "\n\t\n"},
        Form{"ByteOrderMark", "\xef\xbb\xbf" + kHeader + kCells}, Form{"Gzip", Gzip(kHeader + kCells)},
        Form{"GzipOfTwoMembers", Gzip(kHeader + kCells.substr(0, 7)) + Gzip(kCells.substr(7))},
        Form{"GzipWithAnEmptyMember", Gzip("") + Gzip(kHeader + kCells)},
        Form{"GzipWithZeroPadding", Gzip(kHeader + kCells) + std::string(600, '\0')}),
    [](const auto& test) { return test.param.name; });

// What is refused, where, and what was expected.
struct Refusal {
    const char* name;
    std::string text;
    uint64_t line;
    uint64_t offset;
    const char* field;
    const char* detail;
};
void PrintTo(const Refusal& refusal, std::ostream* out) {
    *out << refusal.name;
}

class RefusedText : public ::testing::TestWithParam<Refusal> {};

TEST_P(RefusedText, NamesLineByteAndWhatWasExpected) {
    const Refusal& refusal = GetParam();
    for (const bool packed : {false, true}) {
        const std::string text = packed ? Gzip(refusal.text) : refusal.text;
        const ErrorContext context = RefusalOf(text);
        EXPECT_EQ(context.file, "test.ptx");
        EXPECT_EQ(context.record, "line " + std::to_string(refusal.line));
        EXPECT_EQ(context.offset, refusal.offset);
        EXPECT_EQ(context.field, refusal.field);
        EXPECT_EQ(context.detail, refusal.detail);
    }
}

// The header of kHeader begins "2\n2\n0 0 0\n1 0 0\n"; its cells begin at byte 60 in line 11.
static const uint64_t kBody = 60;

INSTANTIATE_TEST_SUITE_P(
    PtxSource, RefusedText,
    ::testing::Values(
        Refusal{"EmptyText", "", 1, 0, "columns", "found the end of the text, expected a scan"},
        Refusal{"BlankText", " \n\n", 3, 3, "columns", "found the end of the text, expected a scan"},
        Refusal{"WordForColumns", "x\n", 1, 0, "columns",
                "found 'x', expected a whole number from 1 to 2147483647"},
        Refusal{"NoColumns", "0\n2\n", 1, 0, "columns",
                "found '0', expected a whole number from 1 to 2147483647"},
        Refusal{"NegativeRows", "2\n -3\n", 2, 3, "rows",
                "found '-3', expected a whole number from 1 to 2147483647"},
        Refusal{"FractionalRows", "2\n2.5\n", 2, 2, "rows",
                "found '2.5', expected a whole number from 1 to 2147483647"},
        Refusal{"ColumnsBeyondTheLimit", "2147483648\n2\n", 1, 0, "columns",
                "found '2147483648', expected a whole number from 1 to 2147483647"},
        Refusal{"ColumnsBeyond64Bits", "99999999999999999999999\n2\n", 1, 0, "columns",
                "found '99999999999999999999999', expected a whole number from 1 to 2147483647"},
        Refusal{"CellsBeyondTheLimit", "2000000\n2000000\n", 2, 8, "rows",
                "found 2000000 columns x 2000000 rows, expected at most 1099511627776 cells"},
        Refusal{"TwoNumbersForColumns", "2 2\n", 1, 2, "", "found '2', expected nothing more in this line"},
        Refusal{"RowsMissing", "2\n", 2, 2, "rows",
                "found the end of the text, expected a line with a count"},
        Refusal{"PositionOfTwo", "2\n2\n0 0\n", 3, 7, "scanner position",
                "found the end of the line, expected a number"},
        Refusal{"PositionOfFour", "2\n2\n0 0 0 0\n", 3, 10, "", "found '0', expected a line of 3 numbers"},
        Refusal{"AxisMissing", "2\n2\n0 0 0\n1 0 0\n", 5, 16, "scanner axis y",
                "found the end of the text, expected a line of 3 numbers"},
        Refusal{"FourthColumnOfTheFirstRow", "2\n2\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0.5\n", 7, 34,
                "matrix row 1", "found '0.5', expected 0 in the fourth column"},
        Refusal{"FourthColumnOfTheLastRow",
                "2\n2\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 0\n", 10, 58,
                "matrix row 4", "found '0', expected 1 in the fourth column"},
        Refusal{"MatrixWithoutFourthColumn", "2\n2\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n1 0 0\n", 7, 33,
                "matrix row 1", "found the end of the line, expected a number"},
        Refusal{"NoCells", kHeader, 11, kBody, "cell", "found the end of the text, expected the first cell"},
        Refusal{"ThreeValues", kHeader + "1 2 3\n", 11, kBody, "cell",
                "found 3 values, expected x y z intensity or x y z intensity red green blue"},
        Refusal{"SixValues", kHeader + "1 2 3 4 5 6\n", 11, kBody, "cell",
                "found 6 values, expected x y z intensity or x y z intensity red green blue"},
        Refusal{"BlankLineForAFirstCell", kHeader + "\n" + kCells, 11, kBody, "cell",
                "found 0 values, expected x y z intensity or x y z intensity red green blue"},
        Refusal{"BlankLineAmongCells", kHeader + "1 2 3 4\n\n" + kCells, 12, kBody + 8, "x",
                "found the end of the line, expected 4 values: x y z intensity"},
        Refusal{"WordForX", kHeader + "one 2 3 4\n", 11, kBody, "x", "found 'one', expected a number"},
        Refusal{"NanForY", kHeader + "1 nan 3 4\n", 11, kBody + 2, "y", "found 'nan', expected a number"},
        Refusal{"InfForZ", kHeader + "1 2 -inf 4\n", 11, kBody + 4, "z", "found '-inf', expected a number"},
        Refusal{"HexForX", kHeader + "0x10 2 3 4\n", 11, kBody, "x", "found '0x10', expected a number"},
        Refusal{"CommaForAPoint", kHeader + "1 2,5 3 4\n", 11, kBody + 2, "y",
                "found '2,5', expected a number"},
        Refusal{"TwoSigns", kHeader + "1 +-2 3 4\n", 11, kBody + 2, "y", "found '+-2', expected a number"},
        Refusal{"TwoPoints", kHeader + "1 2.5.1 3 4\n", 11, kBody + 2, "y",
                "found '2.5.1', expected a number"},
        Refusal{"PointAlone", kHeader + "1 . 3 4\n", 11, kBody + 2, "y", "found '.', expected a number"},
        Refusal{"ExponentAlone", kHeader + "1 2e 3 4\n", 11, kBody + 2, "y", "found '2e', expected a number"},
        Refusal{"Overflow", kHeader + "1 2 3 1e309\n", 11, kBody + 6, "intensity",
                "found '1e309', expected a number that fits double precision"},
        Refusal{"FarAway", kHeader + "1 2 -1.5e12 4\n", 11, kBody + 4, "z",
                "found '-1.5e12', expected metres, at most 1e12"},
        Refusal{"FiveValuesLater", kHeader + "1 2 3 4\n1 2 3 4 5\n", 12, kBody + 16, "cell",
                "found '5', expected no more than 4 values: x y z intensity"},
        Refusal{"ThreeValuesLater", kHeader + "1 2 3 4\n1 2 3\n", 12, kBody + 13, "intensity",
                "found the end of the line, expected 4 values: x y z intensity"},
        Refusal{"ColourMissingLater", kHeader + "1 2 3 4 5 6 7\n1 2 3 4\n", 12, kBody + 21, "red",
                "found the end of the line, expected 7 values: x y z intensity red green blue"},
        Refusal{"ColourAbove255", kHeader + "1 2 3 4 5 6 256\n", 11, kBody + 12, "blue",
                "found '256', expected a whole number from 0 to 255"},
        Refusal{"ColourBelow0", kHeader + "1 2 3 4 5 -6 7\n", 11, kBody + 10, "green",
                "found '-6', expected a whole number from 0 to 255"},
        Refusal{"ColourWithFraction", kHeader + "1 2 3 4 5.0 6 7\n", 11, kBody + 8, "red",
                "found '5.0', expected a whole number from 0 to 255"},
        Refusal{"CellsMissing", kHeader + "1 2 3 4\n1 2 3 4\n1 2 3 4\n", 14, kBody + 24, "cell",
                "found the end of the text, expected a cell (column 2 of 2, row 2 of 2)"},
        Refusal{"ControlCharacters", kHeader + std::string("1 a\0\x01\xff 3 4\n", 12), 11, kBody + 2, "y",
                "found 'a\\x00\\x01\\xff', expected a number"},
        Refusal{"LongWord", kHeader + "1 " + std::string(100, 'w') + " 3 4\n", 11, kBody + 2, "y",
                "found 'wwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwww...', expected a number"}),
    [](const auto& test) { return test.param.name; });

TEST(PtxSource, TheHeaderTheTablesCountFromIsSixtyBytesLong) {
    EXPECT_EQ(kHeader.size(), kBody);
}

TEST(PtxSource, ALineWithoutEndIsRefusedInBoundedMemory) {
    const ErrorContext context = RefusalOf(kHeader + std::string(3 << 20, ' '));
    EXPECT_EQ(context.record, "line 11");
    EXPECT_EQ(context.offset, kBody);
    EXPECT_EQ(context.detail, "found more than 524288 bytes without a line end");
}

TEST(PtxSource, ClaimsOfTheHeaderAllocateNothing) {
    // 2^31 - 1 rows are claimed, three are there.
    const auto source =
        SourceOf("500\n2147483647\n" + PtxHeader(1, 1).substr(4) + "1 2 3 4\n1 2 3 4\n1 2 3 4\n");
    source->OpenScan(0);
    std::vector<Cell> cells;
    EXPECT_THROW(source->ReadColumns(500, cells), SourceFormatException);
    EXPECT_LE(cells.capacity(), 8192U);
}

TEST(PtxSource, SeveralScansAreCountedAndOpenedInAnyOrder) {
    const std::string first = PtxHeader(1, 2) + "1 0 0 0\n2 0 0 0\n";
    const std::string second = PtxHeader(2, 1) + "3 0 0 0 1 2 3\n4 0 0 0 4 5 6\n";
    const std::string third = PtxHeader(1, 1) + "5 0 0 0";
    for (const std::string& text : {first + second + third, Gzip(first + "\n\n" + second + third)}) {
        const auto source = SourceOf(text);
        EXPECT_EQ(ReadScan(*source, 2).cells.front().x, 5);
        EXPECT_EQ(ReadScan(*source, 0).cells.back().x, 2);
        EXPECT_EQ(source->ScanCount(), 3U);
        const Scan middle = ReadScan(*source, 1);
        EXPECT_EQ(middle.description.columns, 2U);
        EXPECT_TRUE(middle.description.color.present);
        EXPECT_EQ(middle.cells.back().blue, 6);
        EXPECT_EQ(source->ScanCount(), 3U);
    }
}

TEST(PtxSource, AScanThatTheFileDoesNotHoldIsOutOfBounds) {
    const auto source = SourceOf(kHeader + kCells);
    try {
        source->OpenScan(1);
        FAIL();
    } catch (const kxbase::KXIndexOutOfBoundsException& e) {
        EXPECT_STREQ(e.what(), "No such scan in the file");
        EXPECT_EQ(e.Context().detail, "asked for scan 2, the file holds 1");
    }
    EXPECT_EQ(ReadScan(*source).cells.size(), 4U);
}

TEST(PtxSource, DamageBehindTheFirstScanIsNamedByItsOwnLine) {
    const auto source = SourceOf(kHeader + kCells + "2\nrows\n");
    EXPECT_EQ(ReadScan(*source).cells.size(), 4U);
    const ErrorContext context = RefusalOf(*source, 1);
    EXPECT_EQ(context.record, "line 16");
    EXPECT_EQ(context.offset, kHeader.size() + kCells.size() + 2);
    // A first scan cut short is noticed when walking to the second.
    const ErrorContext cut = RefusalOf(*SourceOf(kHeader + "1 2 3 4\n"), 1);
    EXPECT_EQ(cut.detail, "found the end of the text, expected a cell (column 1 of 2, row 2 of 2)");
}

TEST(PtxSource, RewindingGivesTheSameCellsAgain) {
    const std::string text = kHeader + kCells;
    for (const std::string& stored : {text, Gzip(text)}) {
        const auto source = SourceOf(stored);
        const Scan once = ReadScan(*source);
        source->OpenScan(0);
        std::vector<Cell> cells;
        EXPECT_EQ(source->ReadColumns(1, cells), 1U);
        const Scan again = ReadScan(*source);
        ASSERT_EQ(again.cells.size(), once.cells.size());
        EXPECT_EQ(again.cells.back().y, once.cells.back().y);
        EXPECT_GE(source->BytesRead(), 2 * stored.size());
        EXPECT_EQ(source->FileBytes(), stored.size());
    }
}

TEST(PtxSource, BlocksHoldWholeColumnsAndEndWithNone) {
    const auto source = SourceOf(PtxText(MakeSweep({}), 12, 9));
    source->OpenScan(0);
    std::vector<Cell> cells;
    EXPECT_EQ(source->ReadColumns(5, cells), 5U);
    EXPECT_EQ(cells.size(), 45U);
    EXPECT_EQ(source->ReadColumns(0, cells), 0U);
    EXPECT_EQ(source->ReadColumns(100, cells), 7U);
    EXPECT_EQ(source->ReadColumns(100, cells), 0U);
    EXPECT_TRUE(cells.empty());
}

TEST(PtxSource, NumbersAreTheNearestDoubles) {
    // Against the standard library, over lengths and exponents on both sides of the exact shortcut.
    std::mt19937_64 random(20240607);
    for (int i = 0; i < 200000; ++i) {
        std::string text = random() % 2 != 0 ? "-" : "";
        const auto whole = random() % 12, decimals = random() % 14;
        for (uint64_t d = 0; d < whole; ++d)
            text += static_cast<char>('0' + random() % 10);
        if (decimals != 0) text += '.';
        for (uint64_t d = 0; d < decimals; ++d)
            text += static_cast<char>('0' + random() % 10);
        if (whole + decimals == 0) text += '7';
        if (random() % 4 == 0) text += "e" + std::to_string(static_cast<int>(random() % 80) - 40);
        const std::string line = text + "\n";
        const char* at = line.c_str();
        double value = 0;
        ASSERT_EQ(ParseNumber(at, value), NumberStatus::Ok) << text;
        ASSERT_EQ(*at, '\n');
        double expected = 0;
        std::from_chars(text.data(), text.data() + text.size(), expected);
        ASSERT_EQ(value, expected) << text;
    }
}

TEST(PtxSource, NumbersBeyondDoublesAreToldApartBySide) {
    const auto parse = [](const std::string& text, double& value) {
        const std::string line = text + "\n";
        const char* at = line.c_str();
        return ParseNumber(at, value);
    };
    double value = 1;
    EXPECT_EQ(parse("1e-400", value), NumberStatus::Ok);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(parse("0." + std::string(400, '0') + "1", value), NumberStatus::Ok);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(parse("0." + std::string(400, '0') + "1e402", value), NumberStatus::Ok);
    EXPECT_EQ(value, 10);
    EXPECT_EQ(parse("1" + std::string(400, '0'), value), NumberStatus::TooLarge);
    EXPECT_EQ(parse("1" + std::string(400, '0') + ".5", value), NumberStatus::TooLarge);
    EXPECT_EQ(parse("1e999999999999", value), NumberStatus::TooLarge);
    EXPECT_EQ(parse("1e-999999999999", value), NumberStatus::Ok);
}

TEST(GzipData, DamageNamesTheByteOfTheFile) {
    const std::string packed = Gzip(kHeader + kCells);
    {
        const ErrorContext context = RefusalOf(packed.substr(0, packed.size() - 9));
        EXPECT_EQ(context.record, "gzip data");
        EXPECT_EQ(context.offset, packed.size() - 9);
        EXPECT_EQ(context.detail, "the compressed data ends early");
    }
    {
        const ErrorContext context = RefusalOf(packed + "junk");
        EXPECT_EQ(context.offset, packed.size());
        EXPECT_EQ(context.detail, "bytes behind the compressed data that belong to nothing");
    }
    {
        std::string damaged = packed;
        damaged[packed.size() - 6] = static_cast<char>(damaged[packed.size() - 6] ^ 1);
        EXPECT_EQ(RefusalOf(damaged).detail, "incorrect data check");
    }
}

TEST(GzipData, CutAtAnyByteIsRefusedOrReadsWhole) {
    const std::string packed = Gzip(kHeader + kCells);
    for (size_t length = 0; length < packed.size(); ++length) {
        EXPECT_THROW(ReadScan(*SourceOf(packed.substr(0, length))), SourceFormatException) << length;
    }
}

TEST(PtxSource, CutAtAnyByteIsRefusedOrReadsWhole) {
    const std::string text = kHeader + kCells;
    for (size_t length = 0; length < text.size(); ++length) {
        const auto source = SourceOf(text.substr(0, length));
        // Only the last digit and the line end behind it may be missing.
        if (length + 1 == text.size()) {
            EXPECT_EQ(ReadScan(*source).cells.size(), 4U);
        } else {
            EXPECT_THROW(ReadScan(*source), SourceFormatException) << length;
        }
    }
}

TEST(ScanSources, TheNameTellsTheFormat) {
    EXPECT_TRUE(IsImportable("a.ptx"));
    EXPECT_TRUE(IsImportable("folder/A.PTX.GZ"));
    EXPECT_FALSE(IsImportable("a.gz"));
    EXPECT_FALSE(IsImportable(".ptx"));
    EXPECT_TRUE(IsImportable("a.pts"));
    EXPECT_TRUE(IsImportable("a.ply"));
    EXPECT_TRUE(IsImportable("a.PCD"));
    EXPECT_TRUE(IsImportable("a.xyz.gz"));
    EXPECT_FALSE(IsImportable("a.las"));
    try {
        OpenScanSource("a.las");
        FAIL();
    } catch (const kxbase::KXBadInputException& e) {
        EXPECT_STREQ(e.what(), "Unknown kind of scan file");
        EXPECT_EQ(e.Context().file, "a.las");
        EXPECT_TRUE(e.Context().detail.starts_with("expected a name that ends in "));
        EXPECT_NE(e.Context().detail.find(" .ptx .ptx.gz"), std::string::npos);
        EXPECT_NE(e.Context().detail.find(" .ply .pcd .xyz .xyz.gz .pts .pts.gz"), std::string::npos);
    }
    EXPECT_THROW(OpenScanSource("no-such-file.ptx"), kxbase::KXFileNotOpenException);
}

}  // namespace
}  // namespace kxexchange::testing
