// SPDX-License-Identifier: MIT
#include "ImportSettings.h"

#include <gtest/gtest.h>

#include "ComponentNames.h"
#include "Errors.h"

namespace qsn {
namespace {

using kxexchange::Codec;
using kxexchange::ImportOptions;

TEST(ImportSettings, PatchIsOneNumberOrTwo) {
    ImportOptions options;
    ApplyPatch("64", options);
    EXPECT_EQ(options.patchWidth, 64U);
    EXPECT_EQ(options.patchHeight, 64U);
    ApplyPatch("512x128", options);
    EXPECT_EQ(options.patchWidth, 512U);
    EXPECT_EQ(options.patchHeight, 128U);
}

TEST(ImportSettings, PatchRefusesEverythingElse) {
    for (const char* text :
         {"", "0", "-1", "64x", "x64", "64x0", "64X64", "64x64x64", "64 ", "6.4", "99999999999"}) {
        ImportOptions options;
        EXPECT_THROW(ApplyPatch(text, options), UsageError) << text;
    }
}

TEST(ImportSettings, EachComponentHasItsCodec) {
    ImportOptions options;
    ApplyCodec("range=snappy", options);
    EXPECT_EQ(options.rangeCodec, Codec::Snappy);
    EXPECT_EQ(options.angleCodec, Codec::Grid);
    ApplyCodec("angles=snappy", options);
    EXPECT_EQ(options.angleCodec, Codec::Snappy);
    ApplyCodec("intensity=snappy", options);
    EXPECT_EQ(options.intensityCodec, Codec::Snappy);
    ApplyCodec("color=jpeg", options);
    EXPECT_EQ(options.colorCodec, Codec::Jpeg);
    ApplyCodec("color=zlib", options);
    EXPECT_EQ(options.colorCodec, Codec::Zlib);
    ApplyCodec("range=grid", options);
    EXPECT_EQ(options.rangeCodec, Codec::Grid);
    ApplyCodec("angles=grid-fast", options);
    EXPECT_EQ(options.angleCodec, Codec::GridFast);
    ApplyCodec("color=zstd", options);
    EXPECT_EQ(options.colorCodec, Codec::Zstd);
    ApplyCodec("color=rgb", options);
    EXPECT_EQ(options.colorCodec, Codec::Color);
}

TEST(ImportSettings, APresetSetsAllCodecs) {
    const auto codecsOf = [](const CodecPresetFlags& flags) {
        ImportOptions options;
        options.rangeCodec = Codec::Snappy;
        options.colorCodec = Codec::Jpeg;
        flags.Check();
        flags.Apply(options);
        return std::vector{options.rangeCodec, options.angleCodec, options.intensityCodec,
                           options.colorCodec};
    };
    CodecPresetFlags fast, small, plain;
    fast.fast = small.small = plain.plain = true;
    EXPECT_EQ(codecsOf(fast), (std::vector{Codec::GridFast, Codec::GridFast, Codec::GridFast, Codec::Zstd}));
    EXPECT_EQ(codecsOf(small), (std::vector{Codec::Grid, Codec::Grid, Codec::Grid, Codec::Color}));
    EXPECT_EQ(codecsOf(plain), std::vector(4, Codec::Zlib));
    const ImportOptions usual;
    EXPECT_EQ(codecsOf(small),
              (std::vector{usual.rangeCodec, usual.angleCodec, usual.intensityCodec, usual.colorCodec}));
}

TEST(ImportSettings, PresetsExcludeEachOther) {
    CodecPresetFlags flags;
    EXPECT_FALSE(flags.Any());
    EXPECT_NO_THROW(flags.Check());
    flags.fast = flags.plain = true;
    EXPECT_THROW(flags.Check(), UsageError);
}

TEST(ImportSettings, CodecRefusesWhatLosesRangesAndWhatIsUnknown) {
    for (const char* text : {"", "zlib", "range", "range=", "=zlib", "range=jpeg", "angles=jpeg",
                             "intensity=jpeg", "range=lzma", "height=zlib", "range=zlib=zlib"}) {
        ImportOptions options;
        EXPECT_THROW(ApplyCodec(text, options), UsageError) << text;
    }
}

TEST(ImportSettings, ScalesAreNumbersAboveZero) {
    ImportOptions options;
    ApplyScale("range=0.5", options);
    EXPECT_EQ(options.rangeScale, 0.5);
    ApplyScale("vertical=2e-6", options);
    EXPECT_EQ(options.verticalScale, 2e-6);
    EXPECT_EQ(options.horizontalScale, 1e-6);
    ApplyScale("angles=5e-7", options);
    EXPECT_EQ(options.verticalScale, 5e-7);
    EXPECT_EQ(options.horizontalScale, 5e-7);
    for (const char* text : {"", "range", "range=", "range=0", "range=-1", "range=nan", "range=inf",
                             "range=0,5", "range=1mm", "color=1", "1"})
        EXPECT_THROW(ApplyScale(text, options), UsageError) << text;
}

TEST(ImportSettings, ColorIsJpegOrLossless) {
    ImportOptions options;
    ApplyColor("jpeg", options);
    EXPECT_EQ(options.colorCodec, Codec::Jpeg);
    ApplyColor("lossless", options);
    EXPECT_EQ(options.colorCodec, Codec::Color);
    EXPECT_THROW(ApplyColor("png", options), UsageError);
}

TEST(ComponentNames, NamesAndNumbersAreUnderstood) {
    EXPECT_EQ(ParseComponent("range"), kxbase::Range);
    EXPECT_EQ(ParseComponent("Range"), kxbase::Range);
    EXPECT_EQ(ParseComponent("VerticalAngle"), kxbase::VerticalAngle);
    EXPECT_EQ(ParseComponent("intensity"), kxbase::Luminance16);
    EXPECT_EQ(ParseComponent("intensity8"), kxbase::Luminance8);
    EXPECT_EQ(ParseComponent("colour"), kxbase::Color);
    EXPECT_EQ(ParseComponent("18"), kxbase::Class);
    EXPECT_EQ(ParseComponent("4711"), static_cast<kxbase::ComponentType>(4711));
    for (const char* text : {"", "0", "-1", "height", "1.5"})
        EXPECT_THROW(ParseComponent(text), UsageError) << text;
}

TEST(ComponentNames, ShortNamesAreUnderstoodAgain) {
    for (uint32_t number = 1; number <= 19; ++number) {
        const auto component = static_cast<kxbase::ComponentType>(number);
        EXPECT_EQ(ParseComponent(ComponentShortName(component)), component);
    }
}

}  // namespace
}  // namespace qsn
