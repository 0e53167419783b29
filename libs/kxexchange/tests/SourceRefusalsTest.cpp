// SPDX-License-Identifier: MIT
// What readers of other formats say about files that break the format, and where they say it is.
#include <gtest/gtest.h>

#include "PointFiles.h"
#include "support/Thrown.h"

namespace kxexchange::testing {
namespace {

struct Broken {
    const char* name;
    const char* file;  ///< its ending tells the format
    std::string bytes;
    const char* text;
    const char* record;
    const char* field;
    uint64_t offset;
    const char* detail;
};

const std::string kPtx = PtxHeader(1, 2);
const std::string kPly =
    "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\nproperty float y\nproperty float z\n"
    "end_header\n";
const std::string kPcd =
    "VERSION 0.7\nFIELDS x y z\nSIZE 4 4 4\nTYPE F F F\nWIDTH 2\nHEIGHT 1\nPOINTS 2\nDATA ascii\n";

std::string CutGzip() {
    const std::string packed = Gzip(kPtx + "1 2 3 4\n5 6 7 8\n");
    return packed.substr(0, packed.size() - 9);  // in front of the last byte of the data and the eight behind
}

std::string ShortPcd() {
    std::string pcd = kPcd;
    pcd.replace(pcd.find("ascii"), 5, "binary");
    return pcd + std::string(23, '\0');  // two points take 24
}

class BrokenSource : public ::testing::TestWithParam<Broken> {};

TEST_P(BrokenSource, IsRefusedWithItsPlace) {
    const Broken& broken = GetParam();
    const auto context = kxtest::ContextOf<SourceFormatException>(broken.text, [&] {
        const auto source = SourceOf(broken.bytes, broken.file);
        ReadScan(*source);
    });
    EXPECT_EQ(context.file, broken.file);
    EXPECT_EQ(context.record, broken.record);
    EXPECT_EQ(context.field, broken.field);
    EXPECT_EQ(context.offset, broken.offset);
    EXPECT_EQ(context.detail, broken.detail);
}

INSTANTIATE_TEST_SUITE_P(
    Sources, BrokenSource,
    ::testing::Values(
        Broken{"GzipDataCutShort", "a.ptx.gz", CutGzip(), "Compressed file cannot be unpacked", "gzip data",
               "", CutGzip().size(), "the compressed data ends early"},
        Broken{"PtxWordForRows", "a.ptx", "2\nmany\n", "PTX text cannot be read", "line 2", "rows", 2,
               "found 'many', expected a whole number from 1 to 2147483647"},
        Broken{"PtxCellOfThreeValues", "a.ptx", kPtx + "1 2 3\n", "PTX text cannot be read", "line 11",
               "cell", kPtx.size(),
               "found 3 values, expected x y z intensity or x y z intensity red green blue"},
        Broken{"PtxLineWithoutEnd", "a.ptx", kPtx + std::string(1 << 20, ' '), "Text cannot be read",
               "line 11", "", kPtx.size(), "found more than 524288 bytes without a line end"},
        Broken{"PlyFormatOfAnotherVersion", "a.ply", "ply\nformat ascii 2.0\n", "PLY header cannot be read",
               "line 2", "", 4, "expected a format of version 1.0"},
        Broken{"PlyHeaderWithoutEnd", "a.ply", "ply\nformat ascii 1.0\ncomment", "PLY header cannot be read",
               "line 3", "", 21, "found the end of the header's bytes, expected end_header"},
        Broken{"PlyVertexMissing", "a.ply", kPly + "1 2 3\n", "PLY file cannot be read", "line 9", "",
               kPly.size() + 6, "found the end of the text, expected 1 more vertices"},
        Broken{"PcdLineOfNoPcd", "a.pcd", "VERSION 0.7\nCOLOURS 3\n", "PCD file cannot be read", "line 2", "",
               12, "found 'COLOURS', which a PCD header does not have"},
        Broken{"PcdPointsMissing", "a.pcd", ShortPcd(), "PCD file cannot be read", "data", "",
               ShortPcd().size() - 23, "found 23 bytes, expected 2 points"}),
    [](const auto& test) { return test.param.name; });

TEST(PcdSource, AViewpointThatTurnsNothingIsNamedInTheWarning) {
    for (const char* viewpoint :
         {"VIEWPOINT 10 20 30 0 0 0 0\n", "VIEWPOINT 10 20 30\n", "VIEWPOINT a b c 1 0 0 0\n"}) {
        const auto source =
            SourceOf("VERSION 0.7\n" + (viewpoint + kPcd.substr(12)) + "1 2 3\n4 5 6\n", "a.pcd");
        EXPECT_EQ(source->OpenScan(0).pose, kxbase::RegistrationInformation()) << viewpoint;
        EXPECT_EQ(
            source->Warnings(),
            std::vector<std::string>{"VIEWPOINT is no translation and quaternion; the pose is left out"})
            << viewpoint;
        EXPECT_EQ(ReadPoints(*source).size(), 2U);
    }
}

}  // namespace
}  // namespace kxexchange::testing
