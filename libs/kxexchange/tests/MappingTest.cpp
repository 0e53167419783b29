// SPDX-License-Identifier: MIT
// The layout line, the intensity mapping and the bound on how far a point may move.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>

#include "TextFormat.h"
#include "kxexchange/GridLayout.h"
#include "kxexchange/IntensityMapping.h"
#include "kxexchange/PositionBound.h"

namespace kxexchange::testing {
namespace {

using Kind = IntensityMapping::Kind;

LayoutMessage FoldedMessage() {
    LayoutMessage message;
    message.layout.columns = 180;
    message.layout.rows = 100;
    message.layout.columnsReversed = true;
    message.layout.farColumn = 181;
    message.layout.gridRows = 55;
    message.layout.segments = {{0, 45, true, 44, true}, {45, 55, false, 0, false}};
    message.intensity = {Kind::Integer, -2048, 0.0625};
    message.emptyIntensity = 0.5;
    message.source = "PTX";
    message.keepsakes = {{"position", "0.1,0,-3e-05"}, {"axes", "0,1,0,-1,0,0,0,0,1"}};
    return message;
}

const std::string kFoldedText =
    "kxio-layout 1 columns=180 rows=100 order=reversed fold=181 gridrows=55 "
    "segments=0+45@far:44-,45+55@near:0+ "
    "intensity=integer:-2048:0.0625 empty=0.5 source=PTX position=0.1,0,-3e-05 axes=0,1,0,-1,0,0,0,0,1";

const std::string kPlainText =
    "kxio-layout 1 columns=3 rows=2 order=forward gridrows=2 segments=0+2@near:1- intensity=unit";

TEST(LayoutMessage, SaysEverythingInOneLine) {
    EXPECT_EQ(FoldedMessage().Format(), kFoldedText);
}

TEST(LayoutMessage, ComesBackFromItsLine) {
    const auto message = LayoutMessage::Parse(kFoldedText);
    ASSERT_TRUE(message);
    const LayoutMessage expected = FoldedMessage();
    EXPECT_EQ(message->layout, expected.layout);
    EXPECT_EQ(message->intensity, expected.intensity);
    EXPECT_EQ(message->emptyIntensity, expected.emptyIntensity);
    EXPECT_EQ(message->source, expected.source);
    EXPECT_EQ(message->keepsakes, expected.keepsakes);
    EXPECT_EQ(message->layout.GridColumns(), 361U);
    EXPECT_EQ(message->layout.NearColumn(0), 179U);
    EXPECT_FALSE(message->layout.RowsReversed());
    ASSERT_TRUE(LayoutMessage::Parse(kPlainText));
}

TEST(LayoutMessage, NumbersComeBackToTheLastBit) {
    LayoutMessage message = *LayoutMessage::Parse(kPlainText);
    message.intensity = {Kind::Real, -1.0 / 3, 1e-17 / 7};
    message.emptyIntensity = 0.1 + 0.2;
    const auto back = LayoutMessage::Parse(message.Format());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->intensity, message.intensity);
    EXPECT_EQ(back->emptyIntensity, message.emptyIntensity);
}

TEST(LayoutMessage, OtherTextsAreNoLayout) {
    const auto with = [](const std::string& from, const std::string& to) {
        std::string text = kPlainText;
        text.replace(text.find(from), from.size(), to);
        return text;
    };
    const std::string refused[] = {
        "",
        "a message",
        "kxio-layout 1",
        "kxio-layout 2 columns=3",
        with("kxio-layout 1 ", "kxio-layout 1"),
        with("columns=3 ", ""),
        with("columns=3", "columns=0"),
        with("columns=3", "columns=-3"),
        with("columns=3", "columns=3x"),
        with("columns=3", "columns=99999999999999999999"),
        with("columns=3", "columns"),
        with("columns=3", "=3"),
        with("rows=2 ", "rows=3 "),
        with("order=forward", "order=sideways"),
        with("order=forward ", ""),
        with("gridrows=2", "gridrows=1"),
        with("segments=0+2@near:1-", "segments="),
        with("segments=0+2@near:1-", "segments=0+2@near:0-"),              // would leave the grid at the top
        with("segments=0+2@near:1-", "segments=0+2@near:1+"),              // and at the bottom
        with("segments=0+2@near:1-", "segments=0+1@near:1-"),              // a row without a place
        with("segments=0+2@near:1-", "segments=1+1@near:1-"),              // the first row without a place
        with("segments=0+2@near:1-", "segments=0+1@near:1-,1+1@near:1-"),  // two rows in one place
        with("segments=0+2@near:1-", "segments=0+1@near:1-,1+1@far:1-"),   // a far row, but no fold
        with("segments=0+2@near:1-", "segments=0+0@near:1-,0+2@near:1-"),
        with("segments=0+2@near:1-", "segments=0+2@near:1"),
        with("segments=0+2@near:1-", "segments=0+2@middle:1-"),
        with("segments=0+2@near:1-", "segments=0+2@near:1-,"),
        with("gridrows=2", "fold=3 gridrows=2"),  // a fold, but no far row
        with("intensity=unit", "intensity=something"),
        with("intensity=unit", "intensity=unit:"),
        with("intensity=unit", "intensity=unit:0"),
        with("intensity=unit", "intensity=unit:1023.5"),
        with("intensity=unit", "intensity=unit:65535"),
        with("intensity=unit", "intensity=real:0"),
        with("intensity=unit", "intensity=real:0:0"),
        with("intensity=unit", "intensity=real:0:-1"),
        with("intensity=unit", "intensity=real:nan:1"),
        with("intensity=unit", "intensity=unit empty=x"),
        with("intensity=unit", "intensity=unit empty=1,2"),
    };
    for (const std::string& text : refused)
        EXPECT_FALSE(LayoutMessage::Parse(text)) << text;
    std::string many = "segments=";
    for (int i = 0; i < 100; ++i)
        many += "0+1@near:0+,";
    EXPECT_FALSE(LayoutMessage::Parse(with("segments=0+2@near:1-", many + "0+1@near:0+")));
}

TEST(LayoutMessage, AFoldBesideItsNearBlockIsConsistent) {
    LayoutMessage message = FoldedMessage();
    EXPECT_TRUE(message.layout.IsConsistent());
    message.layout.farColumn = 179;  // overlaps the first block
    EXPECT_FALSE(message.layout.IsConsistent());
}

IntensityMapping MappingOf(std::initializer_list<double> values) {
    IntensitySurvey survey;
    for (const double value : values)
        survey.Add(value);
    return survey.Mapping();
}

TEST(IntensityMapping, AStatedStepThatIsFinerIsTakenWhileItsLevelsFit) {
    IntensitySurvey shares;
    shares.Add(0.25);
    shares.Add(0.5);
    EXPECT_EQ(shares.Mapping(1.0 / 32767).kind, Kind::Unit);  // coarser: its levels stay apart
    EXPECT_EQ(shares.Mapping(5e-6), (IntensityMapping{Kind::Real, 0.25, 5e-6}));
    EXPECT_EQ(shares.Mapping(1e-6).kind, Kind::Unit);  // 250,000 levels
    const IntensityMapping fine = shares.Mapping(5e-6);
    for (int level = 0; level <= 50000; level += 77)
        EXPECT_EQ(fine.Store(0.25 + level * 5e-6), level);
    IntensitySurvey wide;
    wide.Add(-100.5);
    wide.Add(500);
    EXPECT_EQ(wide.Mapping(0.25).kind, Kind::Real);
    EXPECT_EQ(wide.Mapping(0.25).scale, 600.5 / 65535);  // finer than the step already
}

TEST(IntensityMapping, SharesOfAnInstrumentsNumbersInSixDecimalsComeBackAsThoseShares) {
    for (const uint32_t levels : {1023U, 4095U, 16383U, 32767U}) {
        IntensitySurvey exact, text;
        const auto inText = [](double value) { return std::round(value * 1e6) / 1e6; };
        for (uint32_t number = 1; number <= 1023; ++number) {
            exact.Add(static_cast<double>(number) / levels);
            text.Add(inText(static_cast<double>(number) / levels));
        }
        const IntensityMapping mapping = text.Mapping();
        EXPECT_EQ(mapping, (IntensityMapping{Kind::Unit, 0, 1.0 / 65535, levels}));
        EXPECT_EQ(exact.Mapping(), mapping);
        for (uint32_t number = 0; number <= levels; ++number) {
            const double value = static_cast<double>(number) / levels;
            EXPECT_EQ(mapping.Store(inText(value)), mapping.Store(value));
            EXPECT_NEAR(mapping.Store(value), value * 65535, 0.5);
            EXPECT_DOUBLE_EQ(mapping.Restore(mapping.Store(value)), value);
        }
        text.Add(0.1234567);
        EXPECT_EQ(text.Mapping().levels, 0U);
    }
    EXPECT_EQ(MappingOf({0, 0.2, 1}).levels, 0U);  // too few to tell
}

TEST(IntensityMapping, TheRangesThatFilesUseAreRecognised) {
    EXPECT_EQ(MappingOf({}), (IntensityMapping{Kind::None, 0, 1}));
    EXPECT_EQ(MappingOf({0.2, 1, 0}), (IntensityMapping{Kind::Unit, 0, 1.0 / 65535}));
    EXPECT_EQ(MappingOf({0.5}), (IntensityMapping{Kind::Unit, 0, 1.0 / 65535}));
    EXPECT_EQ(MappingOf({0, 255, 17}), (IntensityMapping{Kind::Integer, 0, 1.0 / 257}));
    EXPECT_EQ(MappingOf({0, 256}), (IntensityMapping{Kind::Integer, 0, 1.0 / 16}));
    EXPECT_EQ(MappingOf({4095, 0}), (IntensityMapping{Kind::Integer, 0, 1.0 / 16}));
    EXPECT_EQ(MappingOf({-1, 2047}), (IntensityMapping{Kind::Integer, -2048, 1.0 / 16}));
    EXPECT_EQ(MappingOf({65535, 4096}), (IntensityMapping{Kind::Integer, 0, 1}));
    EXPECT_EQ(MappingOf({-32768, 3000}), (IntensityMapping{Kind::Integer, -32768, 1}));
    EXPECT_EQ(MappingOf({100000, 100100}), (IntensityMapping{Kind::Integer, 100000, 1.0 / 655}));
    EXPECT_EQ(MappingOf({70000}), (IntensityMapping{Kind::Integer, 70000, 1}));
    EXPECT_EQ(MappingOf({0, 65536}), (IntensityMapping{Kind::Real, 0, 65536 / 65535.0}));
    EXPECT_EQ(MappingOf({-0.5, 0.5}).kind, Kind::Real);
    EXPECT_EQ(MappingOf({1.5, 1.5}), (IntensityMapping{Kind::Real, 1.5, 1}));
    EXPECT_EQ(MappingOf({-1e308, 1e308}).kind, Kind::Real);
    EXPECT_TRUE(std::isfinite(MappingOf({-1.7e308, 1.7e308}).scale));
    EXPECT_EQ(MappingOf({1e300, -3}).kind, Kind::Real);
}

TEST(IntensityMapping, WholeNumbersComeBackExactly) {
    for (const auto& [least, greatest] : {std::pair{0, 255},
                                          {0, 4095},
                                          {-2048, 2047},
                                          {0, 65535},
                                          {-32768, 32767},
                                          {1000000, 1000007},
                                          {-70000, -69000},
                                          {100, 20100}}) {
        const IntensityMapping mapping = MappingOf({double(least), double(greatest)});
        ASSERT_EQ(mapping.kind, Kind::Integer);
        EXPECT_EQ(mapping.Bound(), 0);
        for (int value = least; value <= greatest; ++value) {
            ASSERT_EQ(mapping.Restore(mapping.Store(value)), value) << least << ".." << greatest;
        }
    }
}

TEST(IntensityMapping, SharesComeBackWithinHalfAStep) {
    const IntensityMapping unit = MappingOf({0, 0.3, 1});
    EXPECT_EQ(unit.Store(0), 0);
    EXPECT_EQ(unit.Store(1), 65535);
    EXPECT_EQ(unit.Store(0.5), 32768);
    EXPECT_EQ(unit.Restore(65535), 1);
    const IntensityMapping real = MappingOf({-1234.5, 77.25});
    std::mt19937 random(3);
    for (int i = 0; i < 10000; ++i) {
        const double share = static_cast<double>(random()) / 4294967295.0;
        ASSERT_NEAR(unit.Restore(unit.Store(share)), share, unit.Bound() * (1 + 1e-9));
        const double value = -1234.5 + share * 1311.75;
        ASSERT_NEAR(real.Restore(real.Store(value)), value, real.Bound() * (1 + 1e-9));
    }
    EXPECT_EQ(real.Restore(real.Store(-1234.5)), -1234.5);
    const IntensityMapping huge = MappingOf({-1.7e308, 1.7e308});
    EXPECT_EQ(huge.Store(1.7e308), 65535);
    EXPECT_EQ(huge.Store(-1.7e308), 0);
}

TEST(IntensityMapping, ValuesBeyondTheMappingAreClamped) {
    const IntensityMapping unit = MappingOf({0, 1});
    EXPECT_EQ(unit.Store(-3), 0);
    EXPECT_EQ(unit.Store(7), 65535);
    EXPECT_EQ(IntensityMapping().Store(5), 0);
}

TEST(IntensityMapping, TheEightBitViewRounds) {
    EXPECT_EQ(IntensityMapping::To8Bit(0), 0);
    EXPECT_EQ(IntensityMapping::To8Bit(128), 0);
    EXPECT_EQ(IntensityMapping::To8Bit(129), 1);
    EXPECT_EQ(IntensityMapping::To8Bit(65535), 255);
    for (uint16_t value = 0; value < 256; ++value) {
        EXPECT_EQ(IntensityMapping::To8Bit(static_cast<uint16_t>(value * 257)), value);
    }
}

// A value through the file: single precision, whole number, single precision again.
double Stored(double value, double scale) {
    const auto single = static_cast<float>(value);
    const auto quality = static_cast<float>(1 / scale);
    if (quality == 1.0F) return static_cast<double>(single);
    const auto whole =
        static_cast<int32_t>(std::round(static_cast<double>(single) * static_cast<double>(quality)));
    return static_cast<double>(static_cast<float>(whole) * (1.0F / quality));
}

TEST(PositionBound, HoldsForRandomPointsAndScales) {
    std::mt19937_64 random(11);
    std::uniform_real_distribution<double> uniform(0, 1);
    for (int i = 0; i < 200000; ++i) {
        StoragePrecision precision;
        precision.rangeScale = std::pow(10, -2 + 4 * uniform(random));
        precision.verticalScale = std::pow(10, -7 + 4 * uniform(random));
        precision.horizontalScale = std::pow(10, -7 + 4 * uniform(random));
        precision.greatestHorizontal = 9;
        const double range = std::pow(10, -3 + 6 * uniform(random));  // up to a kilometre, in metres
        if (range * 1000 / precision.rangeScale > 2e9) continue;
        const double v = std::numbers::pi * uniform(random), h = 18 * uniform(random) - 9;
        const double r2 = std::max(Stored(range * 1000, precision.rangeScale), 0.0) / 1000;
        if (r2 == 0) continue;
        const double v2 = Stored(v, precision.verticalScale), h2 = Stored(h, precision.horizontalScale);
        const double dx = range * std::sin(v) * std::cos(h) - r2 * std::sin(v2) * std::cos(h2);
        const double dy = range * std::sin(v) * std::sin(h) - r2 * std::sin(v2) * std::sin(h2);
        const double dz = range * std::cos(v) - r2 * std::cos(v2);
        ASSERT_LE(std::hypot(dx, dy, dz), PositionBound(range, precision)) << range;
    }
}

TEST(PositionBound, IsNotMuchMoreThanTheStepsSay) {
    // 0.05 mm of range and 0.5 + 0.5 microradians at 10 m, plus single precision.
    EXPECT_GT(PositionBound(10, {}), 0.05e-3 + 7e-6);
    EXPECT_LT(PositionBound(10, {}), 0.05e-3 + 25e-6);
    EXPECT_NEAR(PositionBound(10, {}, 3) - PositionBound(10, {}), std::sqrt(3.0) * 0.5e-3, 1e-12);
    // A return at the origin may move by one whole step.
    EXPECT_GE(PositionBound(0.00001, {}), 0.1e-3);
    EXPECT_LT(PositionBound(0.00001, {}), 0.11e-3);
}

TEST(TextFormat, FixedNumbersRoundToTheLastDigit) {
    const auto fixed = [](double value, int decimals) {
        char text[kMaxNumberBytes];
        return std::string(text, AppendFixed(text, value, decimals));
    };
    EXPECT_EQ(fixed(1.5, 3), "1.500");
    EXPECT_EQ(fixed(-0.0004, 3), "0.000");
    EXPECT_EQ(fixed(-0.0006, 3), "-0.001");
    EXPECT_EQ(fixed(0, 1), "0.0");
    EXPECT_EQ(fixed(9.9999, 2), "10.00");
    EXPECT_EQ(fixed(637012.2412, 6), "637012.241200");
    EXPECT_EQ(fixed(-1e12, 9), "-1000000000000.000000000");
    EXPECT_EQ(fixed(12, 0), "12");
    EXPECT_EQ(fixed(1e300, 2).size(), 301U + 3U);
    std::mt19937_64 random(5);
    std::uniform_real_distribution<double> uniform(-1000, 1000);
    for (int i = 0; i < 10000; ++i) {
        const double value = uniform(random);
        ASSERT_NEAR(std::stod(fixed(value, 6)), value, 0.5000001e-6);
    }
}

}  // namespace
}  // namespace kxexchange::testing
