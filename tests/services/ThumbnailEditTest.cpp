// SPDX-License-Identifier: MIT
#include "kxio/ThumbnailEdit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "kxbase/UTF8.h"
#include "kxcodecs/JPEG.h"
#include "kxio/ProtectFile.h"
#include "kxio/QSNInfo.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/VerifyScan.h"
#include "support/ScanFileBuilder.h"
#include "support/StoredFile.h"
#include "support/TempFolder.h"
#include "support/TinyScan.h"

namespace {

using kxtest::Bytes;

Bytes Jpeg(unsigned width, unsigned height) {
    Bytes jpeg;
    const Bytes rgb(size_t{3} * width * height, 120);
    EXPECT_TRUE(kxcodecs::JPEG::Encode(rgb.data(), width, height, 90, jpeg));
    return jpeg;
}

TEST(SetThumbnail, ReplacesTheImageAndKeepsEverythingElse) {
    const TempFolder folder;
    const std::wstring path = Wide(folder / "scan.qsn");
    kxio::QSNScanWriter writer;
    writer.CreateNew(path);
    writer.AddMessage(L"one");
    writer.AddMessage(L"two");
    writer.AddWarning(L"three");
    writer.EndCreation();
    const kxbase::UUID id = kxio::QSNInfo::GetScanUUID(path);
    const Bytes before = kxtest::LoadFile(folder / "scan.qsn");

    const Bytes jpeg = Jpeg(64, 32);
    kxio::SetThumbnail(path, jpeg);
    const Bytes after = kxtest::LoadFile(folder / "scan.qsn");
    ASSERT_GT(after.size(), before.size());
    for (size_t i = 0; i < before.size(); ++i) {
        if (i < 16 + 24 || i >= 16 + 48) {
            ASSERT_EQ(after[i], before[i]) << "byte " << i;
        }
    }
    Bytes stored;
    ASSERT_TRUE(kxio::QSNScanReader::GetThumbnailJPEG(path, stored));
    EXPECT_EQ(stored, jpeg);
    EXPECT_EQ(kxio::QSNInfo::GetMessages(path), (std::list<std::wstring>{L"one", L"two"}));
    EXPECT_EQ(kxio::QSNInfo::GetWarnings(path), (std::list<std::wstring>{L"three"}));
    EXPECT_EQ(kxio::QSNInfo::GetScanUUID(path), id);

    // Appends after it are found, and so is a second thumbnail.
    kxio::QSNInfo::AddMessage(path, L"four");
    kxio::SetThumbnail(path, Jpeg(20, 30));
    EXPECT_EQ(kxio::QSNInfo::GetMessages(path), (std::list<std::wstring>{L"one", L"two", L"four"}));
    unsigned width = 0;
    unsigned height = 0;
    ASSERT_TRUE(kxio::QSNScanReader::GetThumbnailRGB(path, stored, width, height));
    EXPECT_EQ(width, 20u);
    EXPECT_EQ(height, 30u);
}

TEST(SetThumbnail, TheRecordsThatItLeavesBehindAreNoDamage) {
    const TempFolder folder;
    const std::wstring path = Wide(folder / "scan.qsn");
    for (const bool hashes : {false, true}) {
        kxtest::StoreFile(path, kxtest::TinyScan().Build());
        if (hashes) kxio::ProtectFile(path);
        kxio::SetThumbnail(path, Jpeg(20, 30));
        kxio::QSNInfo::AddMessage(path, L"between");
        kxio::SetThumbnail(path, Jpeg(30, 20));
        const kxio::VerifyReport report = kxio::VerifyScan(path);
        EXPECT_EQ(report.errors, 0u);
        const auto leftBehind = std::count_if(report.findings.begin(), report.findings.end(),
                                              [](const kxio::VerifyFinding& finding) {
                                                  return finding.text.starts_with("left behind by an edit");
                                              });
        EXPECT_EQ(leftBehind, hashes ? 4 + 5 + 3 : 4 + 5);  // twice the tail, and its hash records
    }
}

TEST(SetThumbnail, ARecordThatTheChainDoesNotHoldIsStillDamage) {
    const TempFolder folder;
    const std::wstring path = Wide(folder / "scan.qsn");
    kxtest::StoreFile(path, kxtest::TinyScan().Build());
    kxio::SetThumbnail(path, Jpeg(20, 30));
    Bytes bytes = kxtest::LoadFile(folder / "scan.qsn");
    // Another text in the record that was left behind: nobody can say that it is kept.
    const Bytes text{'h', 'i', 0};
    const auto place = std::search(bytes.begin(), bytes.end(), text.begin(), text.end());
    ASSERT_NE(place, bytes.end());
    *place = 'H';
    kxtest::StoreFile(path, bytes);
    EXPECT_EQ(kxio::VerifyScan(path).errors, 1u);
}

TEST(SetThumbnail, RefusesWhatIsNoJpegAndLeavesTheFileAlone) {
    const TempFolder folder;
    const std::wstring path = Wide(folder / "scan.qsn");
    kxio::QSNScanWriter writer;
    writer.CreateNew(path);
    writer.EndCreation();
    const Bytes before = kxtest::LoadFile(folder / "scan.qsn");
    try {
        kxio::SetThumbnail(path, Bytes(100, 1));
        ADD_FAILURE() << "accepted";
    } catch (const kxbase::KXBadInputException& e) {
        EXPECT_STREQ(e.what(), "Unknown thumbnail data size");
    }
    EXPECT_EQ(kxtest::LoadFile(folder / "scan.qsn"), before);
    EXPECT_THROW(kxio::SetThumbnail(Wide(folder / "missing.qsn"), Jpeg(20, 20)),
                 kxbase::KXHeaderReadingException);
    EXPECT_FALSE(std::filesystem::exists(folder / "missing.qsn"));
}

TEST(SetThumbnail, WorksOnAFileWithoutThumbnailAndTail) {
    const TempFolder folder;
    kxtest::ScanFileBuilder file(4, 4, 4, 4);
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>(16, 5.0f), 4, 4));
    const std::wstring path = kxtest::StoreFile(Wide(folder / "scan.qsn"), file.Build());
    const Bytes jpeg = Jpeg(40, 40);
    kxio::SetThumbnail(path, jpeg);
    Bytes stored;
    ASSERT_TRUE(kxio::QSNScanReader::GetThumbnailJPEG(path, stored));
    EXPECT_EQ(stored, jpeg);
}

}  // namespace
