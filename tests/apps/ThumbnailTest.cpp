// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "DocumentedKeys.h"
#include "ImportedScan.h"
#include "ReadPng.h"

namespace qsn {
namespace {

using Json = nlohmann::json;

class Thumbnail : public ImportedScan {
protected:
    void SetUp() override { Import(MakeSmallPtx(80, 60)); }
};

TEST_F(Thumbnail, AsJpegIsTheStoredImageAndAsPngItsPixels) {
    EXPECT_EQ(Run({"thumbnail", "-q", "scan.qsn", "out.JPG"}).exitCode, 0);
    const Json thumbnail = OutputJson({"info", "scan.qsn"})["thumbnail"];
    const std::string jpeg = m_folder.Read("out.JPG");
    EXPECT_EQ(jpeg.size(), thumbnail["bytes"].get<size_t>());
    EXPECT_TRUE(jpeg.starts_with("\xff\xd8"));
    EXPECT_NE(m_folder.Read("scan.qsn").find(jpeg), std::string::npos);

    const ProgramResult result = Run({"thumbnail", "scan.qsn", "out.png"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const Picture picture = ReadPng(m_folder.File("out.png"));
    EXPECT_EQ(picture.Width(), thumbnail["width"].get<uint32_t>());
    EXPECT_EQ(picture.Height(), thumbnail["height"].get<uint32_t>());
    EXPECT_EQ(result.err, "scan.qsn -> out.png\n  " + std::to_string(picture.Width()) + " x " +
                              std::to_string(picture.Height()) + " pixels\n");
    // Red grows along the columns of this scan, green along its rows.
    const Pixel left = picture.At(1, 1);
    const Pixel right = picture.At(picture.Width() - 2, 1);
    const Pixel low = picture.At(1, picture.Height() - 2);
    EXPECT_LT(left.red + 100, right.red);
    EXPECT_LT(left.green + 100, low.green);
    EXPECT_EQ(left.alpha, 255);
}

TEST_F(Thumbnail, JsonTellsWhatWasFetchedOrStored) {
    const Json fetched = OutputJson({"thumbnail", "scan.qsn", "out.jpg"});
    EXPECT_EQ(fetched["bytes"].get<size_t>(), m_folder.Read("out.jpg").size());
    EXPECT_EQ(fetched["output"], "out.jpg");
    const Json stored = OutputJson({"thumbnail", "--set", "out.jpg", "scan.qsn"});
    EXPECT_EQ(stored["output"], nullptr);
    for (const char* key : {"bytes", "width", "height"})
        EXPECT_EQ(stored[key], fetched[key]) << key;
    ExpectDocumentedKeys({fetched, stored}, "### JSON of `qsn thumbnail`");
}

TEST_F(Thumbnail, WhatIsStoredComesBackByteForByte) {
    ASSERT_NO_FATAL_FAILURE(Import(MakeSmallPtx(30, 20), {}, "other.qsn"));
    ASSERT_EQ(Run({"thumbnail", "-q", "other.qsn", "other.jpg"}).exitCode, 0);
    ASSERT_EQ(Run({"edit", "-q", "--message", "kept", "scan.qsn"}).exitCode, 0);
    const Json before = OutputJson({"info", "scan.qsn"});

    const ProgramResult result = Run({"thumbnail", "--set", "other.jpg", "scan.qsn"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "");
    ASSERT_EQ(Run({"thumbnail", "-q", "scan.qsn", "again.jpg"}).exitCode, 0);
    EXPECT_TRUE(m_folder.Read("again.jpg") == m_folder.Read("other.jpg"));
    const Json after = OutputJson({"info", "scan.qsn"});
    EXPECT_EQ(after["thumbnail"], OutputJson({"info", "other.qsn"})["thumbnail"]);
    for (const char* key : {"scan", "grid", "limits", "registration", "components", "messages", "flags"})
        EXPECT_EQ(after[key], before[key]) << key;
    // Texts are still found, and new ones too.
    ASSERT_EQ(Run({"edit", "-q", "--message", "more", "scan.qsn"}).exitCode, 0);
    Json messages = before["messages"];
    messages.push_back("more");
    EXPECT_EQ(OutputJson({"info", "scan.qsn"})["messages"], messages);
    EXPECT_EQ(messages[messages.size() - 2], "kept");
}

TEST_F(Thumbnail, AFileThatIsNoJpegIsRefusedAndTheScanStays) {
    m_folder.Write("letter.jpg", "This is a letter.\n");
    m_folder.Write("empty.jpg", "");
    const std::string before = m_folder.Read("scan.qsn");
    for (const char* name : {"letter.jpg", "empty.jpg", "missing.jpg"}) {
        ExpectFailure({"thumbnail", "--set", name, "scan.qsn"}, name == std::string("missing.jpg") ? 3 : 4,
                      name);
        EXPECT_TRUE(m_folder.Read("scan.qsn") == before) << name;
    }
}

TEST_F(Thumbnail, AScanWithoutOneSaysSo) {
    ASSERT_NO_FATAL_FAILURE(Import(MakeSmallPtx(80, 60), {"--no-hashes"}));
    std::string bytes = m_folder.Read("scan.qsn");
    for (size_t i = 0; i < 8; ++i)
        bytes[16 + 40 + i] = 0;
    m_folder.Write("scan.qsn", bytes);
    ExpectFailure({"thumbnail", "scan.qsn", "out.jpg"}, 2, "scan.qsn: the file has no thumbnail");
    EXPECT_FALSE(m_folder.Has("out.jpg"));
}

TEST_F(Thumbnail, ADamagedImageIsNotPassedOn) {
    ASSERT_EQ(Run({"thumbnail", "-q", "scan.qsn", "good.jpg"}).exitCode, 0);
    std::string bytes = m_folder.Read("scan.qsn");
    bytes[bytes.find(m_folder.Read("good.jpg"))] = 'x';
    m_folder.Write("scan.qsn", bytes);
    for (const char* name : {"out.jpg", "out.png"}) {
        ExpectFailure({"thumbnail", "scan.qsn", name}, 5, "scan.qsn: the stored thumbnail is no readable");
        EXPECT_FALSE(m_folder.Has(name));
    }
}

TEST_F(Thumbnail, WrongUseIsRefused) {
    ExpectFailure({"thumbnail", "scan.qsn"}, 2, "OUT");
    ExpectFailure({"thumbnail", "scan.qsn", "out.jpg", "--set", "other.jpg"}, 2, "OUT");
    ExpectFailure({"thumbnail", "scan.qsn", "out.gif"}, 2, ".jpeg");
    ExpectFailure({"thumbnail", "-f", "scan.qsn", "scan.qsn"}, 2, "ending");
}

}  // namespace
}  // namespace qsn
