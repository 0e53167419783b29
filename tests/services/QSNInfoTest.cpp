// SPDX-License-Identifier: MIT
// One-call inspection and editing of closed files.
#include "kxio/QSNInfo.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <type_traits>

#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "support/ScanFileBuilder.h"
#include "support/StoredFile.h"
#include "support/TempFolder.h"
#include "support/Thrown.h"

namespace {

using kxio::QSNInfo;
using kxtest::ByteList;
using kxtest::Bytes;
using kxtest::ThrownBy;

kxtest::ScanFileBuilder InspectedScan() {
    kxtest::ScanFileBuilder file(4, 4, 4, 4);
    file.Chunk(kxbase::Range, 0, 0, kxtest::SnappyChunk(std::vector<float>(16, 5.0f), 4, 4));
    return file;
}

// A version-210 scan header: grid, point count, registration.
Bytes OldScanHeader(uint32_t version) {
    ByteList payload;
    payload.F64(0.01).F64(0.01).F64(0).F64(0).U32(4).U32(4).U32(4);
    if (version >= 210) {
        payload.U64(16);
        for (int i = 0; i < 12; ++i)
            payload.F64(i % 4 == 0 && i < 9 ? 1 : 0);
    }
    return kxtest::Record({0x9cb282fc40c502d8ULL, version}, payload);
}

kxbase::RegistrationInformation SomeRegistration() {
    const double values[12] = {0, 1, 0, -1, 0, 0, 0, 0, 1, 10.25, -20.5, 1e-3};
    return kxbase::RegistrationInformation::FromValues(values);
}

class InfoOfAFile : public ::testing::Test {
protected:
    std::wstring Store(const Bytes& bytes) { return kxtest::StoreFile(Wide(m_folder / "scan.qsn"), bytes); }
    std::wstring Missing() const { return Wide(m_folder / "missing.qsn"); }

    TempFolder m_folder;
};

TEST_F(InfoOfAFile, AMissingPathCannotBeOpenedByAnyOperation) {
    const std::wstring path = Missing();
    const kxbase::UUID id = kxbase::UUID::Generate();
    const std::vector<std::function<void()>> calls{
        [&] { QSNInfo::GetRegistrationInfo(path); }, [&] { QSNInfo::SetRegistrationInfo(path, {}); },
        [&] { QSNInfo::AddMessage(path, L"m"); },    [&] { QSNInfo::GetMessages(path); },
        [&] { QSNInfo::AddWarning(path, L"w"); },    [&] { QSNInfo::GetWarnings(path); },
        [&] { QSNInfo::AddHQLink(path, id); },       [&] { QSNInfo::GetHQLink(path); },
        [&] { QSNInfo::AddERLink(path, id); },       [&] { QSNInfo::GetERLink(path); },
        [&] { QSNInfo::AddHDRLink(path, id); },      [&] { QSNInfo::GetHDRLink(path); },
        [&] { QSNInfo::GetSpeckleFlag(path); },      [&] { QSNInfo::HasPreviewSamplingRatioIssue(path); },
        [&] { QSNInfo::GetGridInfo(path); },         [&] { QSNInfo::GetSpatialSamplingDistance(path); },
        [&] { QSNInfo::GetValidPointCount(path); },  [&] { QSNInfo::Get3DLockStatus(path); },
        [&] { QSNInfo::IsScanColored(path); },       [&] { QSNInfo::GetAllInfo(path); },
        [&] { QSNInfo::GetScanUUID(path); },         [&] { QSNInfo::GetParentUUID(path); }};
    for (const auto& call : calls)
        EXPECT_EQ(ThrownBy<kxbase::KXHeaderReadingException>(call), "Cannot open file");
    EXPECT_FALSE(std::filesystem::exists(m_folder / "missing.qsn"));
}

TEST_F(InfoOfAFile, AFileOfAnotherKindFailsInHeaderReadingAndStaysAsItIs) {
    const Bytes text(500, 'x');
    const std::wstring path = Store(text);
    EXPECT_EQ(ThrownBy<kxbase::KXHeaderReadingException>([&] { QSNInfo::GetAllInfo(path); }),
              "Invalid main header");
    EXPECT_EQ(ThrownBy<kxbase::KXHeaderReadingException>([&] { QSNInfo::AddMessage(path, L"m"); }),
              "Invalid main header");
    EXPECT_EQ(kxtest::LoadFile(kxbase::Encode_UTF8(path)), text);
}

// Handles of this process, where the system lists them.
std::optional<std::ptrdiff_t> OpenHandles() {
    std::error_code error;
    const std::filesystem::directory_iterator handles("/proc/self/fd", error);
    if (error) return std::nullopt;
    return std::distance(begin(handles), end(handles));
}

TEST_F(InfoOfAFile, NoCallLeavesTheFileOpenWhetherItFailsOrNot) {
    const auto before = OpenHandles();
    if (!before) GTEST_SKIP() << "this system does not list the handles of a process";
    const std::wstring other = kxtest::StoreFile(Wide(m_folder / "other.qsn"), Bytes(500, 'x'));
    EXPECT_THROW(QSNInfo::GetAllInfo(other), kxbase::KXHeaderReadingException);
    EXPECT_THROW(QSNInfo::AddMessage(other, L"m"), kxbase::KXHeaderReadingException);
    EXPECT_THROW(QSNInfo::SetRegistrationInfo(other, {}), kxbase::KXHeaderReadingException);
    auto old = InspectedScan();
    old.scanHeader = OldScanHeader(200);
    EXPECT_THROW(QSNInfo::SetRegistrationInfo(Store(old.Build()), {}), kxbase::KXHeaderOperationException);
    const std::wstring path = Store(InspectedScan().Message("tail").Build());
    QSNInfo::AddMessage(path, L"m");
    QSNInfo::SetRegistrationInfo(path, SomeRegistration());
    EXPECT_EQ(QSNInfo::GetMessages(path).size(), 2u);
    EXPECT_EQ(OpenHandles(), before);
}

TEST_F(InfoOfAFile, AFirstChunkPositionOfZeroIsAnErrorOfOpening) {
    Bytes bytes = InspectedScan().Build();
    kxtest::SetMainField(bytes, kxtest::MainField::FirstChunk, 0);
    const std::wstring path = Store(bytes);
    EXPECT_EQ(ThrownBy<kxbase::KXHeaderReadingException>([&] { QSNInfo::GetGridInfo(path); }),
              "Error opening file");
}

TEST_F(InfoOfAFile, VersionRefusalsPassThroughUnchanged) {
    auto file = InspectedScan();
    file.scanHeader = OldScanHeader(199);
    const std::wstring path = Store(file.Build());
    EXPECT_EQ(ThrownBy<kxbase::KXHeaderReadingException>([&] { QSNInfo::GetGridInfo(path); }),
              "Unsupported ScanHeader version");
}

TEST_F(InfoOfAFile, QueriesGiveWhatTheScanHeaderHolds) {
    auto file = InspectedScan();
    file.properties.registration = SomeRegistration();
    file.properties.validPointCount = 16;
    file.properties.spatialSamplingDistance = 2.5f;
    const std::wstring path = Store(file.Build());
    EXPECT_EQ(QSNInfo::GetRegistrationInfo(path), SomeRegistration());
    EXPECT_EQ(QSNInfo::GetValidPointCount(path), 16u);
    EXPECT_EQ(QSNInfo::GetSpatialSamplingDistance(path), 2.5f);
    EXPECT_EQ(QSNInfo::GetGridInfo(path).columns, 4u);
    EXPECT_EQ(QSNInfo::GetGridInfo(path).columnAngularStep, 0.01f);
    const kxio::ScanProperties all = QSNInfo::GetAllInfo(path);
    EXPECT_EQ(all.validPointCount, 16u);
    EXPECT_EQ(all.componentCodecs.at(kxbase::Range), "Snappy");
}

TEST_F(InfoOfAFile, FlagsAreOneForAnyNonZeroByte) {
    auto file = InspectedScan();
    Bytes bytes = file.Build();
    const std::wstring clear = Store(bytes);
    EXPECT_EQ(QSNInfo::GetSpeckleFlag(clear), QSNInfo::SpeckleClear);
    EXPECT_EQ(QSNInfo::Get3DLockStatus(clear), QSNInfo::Unlocked);
    const uint64_t header = kxtest::GetMainField(bytes, kxtest::MainField::ScanHeader);
    bytes.at(header + 16 + 148) = 7;
    bytes.at(header + 16 + 153) = 200;
    const std::wstring set = Store(bytes);
    EXPECT_EQ(static_cast<int>(QSNInfo::GetSpeckleFlag(set)), 1);
    EXPECT_EQ(static_cast<int>(QSNInfo::Get3DLockStatus(set)), 1);
}

TEST_F(InfoOfAFile, PreviewRatiosAreDoubtedBelowRevision240) {
    auto file = InspectedScan();
    for (const auto& [revision, doubted] : {std::pair{239u, true}, {240u, false}, {241u, false}}) {
        file.writerRevision = revision;
        EXPECT_EQ(QSNInfo::HasPreviewSamplingRatioIssue(Store(file.Build())), doubted) << revision;
    }
}

TEST_F(InfoOfAFile, AScanIsColouredWhenItsComponentListHoldsColour) {
    auto file = InspectedScan();
    EXPECT_FALSE(QSNInfo::IsScanColored(Store(file.Build())));
    file.Chunk(kxbase::Color, 0, 0, kxtest::SnappyChunk(std::vector<unsigned char>(48, 9), 4, 4));
    EXPECT_TRUE(QSNInfo::IsScanColored(Store(file.Build())));
    kxio::ScanProperties properties;
    EXPECT_FALSE(QSNInfo::IsScanColored(properties));
    properties.componentCodecs[kxbase::Range] = "ZLib";
    EXPECT_FALSE(QSNInfo::IsScanColored(properties));
    properties.componentCodecs[kxbase::Color] = "JPEG";
    EXPECT_TRUE(QSNInfo::IsScanColored(properties));
}

TEST_F(InfoOfAFile, IdentifiersComeFromTheTail) {
    kxbase::UUID scan;
    const kxbase::UUID parent = kxbase::UUID::Generate();
    const std::wstring path = Wide(m_folder / "written.qsn");
    {
        kxio::QSNScanWriter writer;
        scan = writer.GetScanUUID();
        writer.CreateNew(path);
        writer.SetParentUUID(parent);
        writer.EndCreation();
    }
    EXPECT_EQ(QSNInfo::GetScanUUID(path), scan);
    EXPECT_EQ(QSNInfo::GetParentUUID(path), parent);
    EXPECT_FALSE(scan.IsZero());
}

TEST_F(InfoOfAFile, MessagesAreListedInTheOrderOfAdditionAndTwiceWhenAddedTwice) {
    auto file = InspectedScan();
    file.Tail(kxtest::ExtendedRecord(0x91acbfc234bec3a9ULL, ByteList().Text("Level 1")));
    const std::wstring path = Store(file.Build());
    EXPECT_TRUE(QSNInfo::GetMessages(path).empty());
    QSNInfo::AddMessage(path, L"first");
    EXPECT_EQ(QSNInfo::GetMessages(path), (std::list<std::wstring>{L"first"}));
    QSNInfo::AddMessage(path, L"first");
    QSNInfo::AddMessage(path, L"");
    QSNInfo::AddMessage(path, L"\U0001F4CD \u4e03 \u00e4");
    EXPECT_EQ(QSNInfo::GetMessages(path),
              (std::list<std::wstring>{L"first", L"first", L"", L"\U0001F4CD \u4e03 \u00e4"}));
    QSNInfo::AddWarning(path, L"beware");
    EXPECT_EQ(QSNInfo::GetWarnings(path), (std::list<std::wstring>{L"beware"}));
    EXPECT_EQ(QSNInfo::GetMessages(path).size(), 4u);
}

TEST_F(InfoOfAFile, AnAppendAddsExactlyOneRecordAndLeavesTheOldBytesAlone) {
    auto file = InspectedScan();
    file.Message("here");
    const Bytes before = file.Build();
    const std::wstring path = Store(before);
    QSNInfo::AddMessage(path, L"h\u00e9");
    const Bytes after = kxtest::LoadFile(kxbase::Encode_UTF8(path));
    ASSERT_EQ(after.size(), before.size() + 36 + 3 + 1);
    EXPECT_TRUE(std::equal(before.begin(), before.end(), after.begin()));
    const Bytes record(after.begin() + static_cast<std::ptrdiff_t>(before.size()), after.end());
    const Bytes expected = ByteList()
                               .U64(0xa45065483053115fULL)
                               .U32(100)
                               .U32(24)
                               .U64(0)  // link
                               .U64(0xac14e2e7714a591eULL)
                               .U32(4)
                               .U8('h')
                               .U8(0xc3)
                               .U8(0xa9)
                               .U8(0);
    EXPECT_EQ(record, expected);
}

TEST_F(InfoOfAFile, LinksOfEachKindComeBackAndGrowTheFileByOneRecord) {
    auto file = InspectedScan();
    file.Message("tail");
    const Bytes before = file.Build();
    const std::wstring path = Store(before);
    const kxbase::UUID hq = kxbase::UUID::Generate();
    const kxbase::UUID er = kxbase::UUID::Generate();
    QSNInfo::AddHQLink(path, hq);
    Bytes after = kxtest::LoadFile(kxbase::Encode_UTF8(path));
    ASSERT_EQ(after.size(), before.size() + 36 + 37);
    EXPECT_TRUE(std::equal(before.begin(), before.end(), after.begin()));
    QSNInfo::AddERLink(path, er);
    QSNInfo::AddERLink(path, er);
    QSNInfo::AddHDRLink(path, kxbase::UUID::Generate_Zeros());
    after = kxtest::LoadFile(kxbase::Encode_UTF8(path));
    ASSERT_EQ(after.size(), before.size() + 4 * (36 + 37));
    EXPECT_TRUE(std::equal(before.begin(), before.end(), after.begin()));
    EXPECT_EQ(QSNInfo::GetHQLink(path), (std::list<kxbase::UUID>{hq}));
    EXPECT_EQ(QSNInfo::GetERLink(path), (std::list<kxbase::UUID>{er, er}));
    EXPECT_EQ(QSNInfo::GetHDRLink(path), (std::list<kxbase::UUID>{kxbase::UUID()}));
}

TEST_F(InfoOfAFile, AnAppendToAFileWithoutATailIsWrittenButNotFound) {
    const Bytes before = InspectedScan().Build();
    ASSERT_EQ(kxtest::GetMainField(before, kxtest::MainField::FirstExtendedHeader), 0u);
    const std::wstring path = Store(before);
    QSNInfo::AddMessage(path, L"unseen");
    EXPECT_GT(kxtest::LoadFile(kxbase::Encode_UTF8(path)).size(), before.size());
    EXPECT_TRUE(QSNInfo::GetMessages(path).empty());
}

TEST_F(InfoOfAFile, SettingTheRegistrationChangesExactly96Bytes) {
    for (const uint32_t version : {210u, 270u}) {
        auto file = InspectedScan();
        if (version == 210) file.scanHeader = OldScanHeader(210);
        const Bytes before = file.Build();
        const std::wstring path = Store(before);
        // Every byte of the new block differs from the old one, so that all 96 must be seen to change.
        const uint64_t block = kxtest::GetMainField(before, kxtest::MainField::ScanHeader) + 68;
        Bytes inverted(before.begin() + static_cast<std::ptrdiff_t>(block),
                       before.begin() + static_cast<std::ptrdiff_t>(block + 96));
        for (unsigned char& byte : inverted)
            byte = static_cast<unsigned char>(byte ^ 0x2a);
        double values[12];
        std::memcpy(values, inverted.data(), 96);
        const auto registration = kxbase::RegistrationInformation::FromValues(values);
        QSNInfo::SetRegistrationInfo(path, registration);
        const Bytes after = kxtest::LoadFile(kxbase::Encode_UTF8(path));
        ASSERT_EQ(after.size(), before.size());
        for (uint64_t i = 0; i < after.size(); ++i)
            ASSERT_EQ(after[i] != before[i], i >= block && i < block + 96) << "byte " << i;
        EXPECT_EQ(QSNInfo::GetRegistrationInfo(path), registration);
    }
}

TEST_F(InfoOfAFile, ARegistrationIsRefusedBelowVersion210AndTheFileStaysAsItIs) {
    auto file = InspectedScan();
    file.scanHeader = OldScanHeader(200);
    const Bytes before = file.Build();
    const std::wstring path = Store(before);
    EXPECT_EQ(ThrownBy<kxbase::KXHeaderOperationException>(
                  [&] { QSNInfo::SetRegistrationInfo(path, SomeRegistration()); }),
              "File does not support this write operation. Use a valid (released) file format for this "
              "operation to work.");
    EXPECT_EQ(kxtest::LoadFile(kxbase::Encode_UTF8(path)), before);
}

TEST_F(InfoOfAFile, TheParentCanNeverBeSet) {
    const Bytes before = InspectedScan().Build();
    const std::wstring path = Store(before);
    for (const std::wstring& target : {path, Missing()}) {
        EXPECT_EQ(ThrownBy<kxbase::KXHeaderOperationException>(
                      [&] { QSNInfo::SetParentUUID(target, kxbase::UUID::Generate()); }),
                  "This functionality has not been implemented");
    }
    EXPECT_EQ(kxtest::LoadFile(kxbase::Encode_UTF8(path)), before);
    EXPECT_FALSE(std::filesystem::exists(m_folder / "missing.qsn"));
}

TEST_F(InfoOfAFile, AReadOnlyFileReportsTheFailedAppend) {
    auto file = InspectedScan();
    file.Message("tail");
    const Bytes before = file.Build();
    const std::wstring path = Store(before);
    std::filesystem::permissions(m_folder / "scan.qsn", std::filesystem::perms::owner_read);
    std::ofstream probe(m_folder / "scan.qsn", std::ios::app);
    if (probe.is_open()) GTEST_SKIP() << "this user may write read-only files";
    EXPECT_EQ(ThrownBy<kxbase::KXWritingException>([&] { QSNInfo::AddMessage(path, L"m"); }),
              "Cannot write file");
    EXPECT_EQ(kxtest::LoadFile(kxbase::Encode_UTF8(path)), before);
}

TEST_F(InfoOfAFile, PropertiesCopiedToAWriterKeepTheirLinks) {
    auto file = InspectedScan();
    file.Message("tail");
    const std::wstring path = Store(file.Build());
    const kxbase::UUID hq = kxbase::UUID::Generate();
    QSNInfo::AddHQLink(path, hq);
    const std::wstring copy = Wide(m_folder / "copy.qsn");
    {
        kxio::QSNScanWriter writer;
        writer.CreateNew(copy);
        const kxbase::GridTopology grid = writer.GetScanProperties().grid;
        writer.GetScanProperties() = QSNInfo::GetAllInfo(path);
        writer.GetScanProperties().grid = grid;
        writer.EndCreation();
    }
    EXPECT_EQ(QSNInfo::GetHQLink(copy), (std::list<kxbase::UUID>{hq}));
    EXPECT_EQ(QSNInfo::GetMessages(copy), (std::list<std::wstring>{L"tail"}));
}

TEST(QSNInfoObject, AssignmentsDoNothingButReturnTheObject) {
    QSNInfo a;
    QSNInfo b;
    EXPECT_EQ(&(a = b), &a);
    EXPECT_EQ(&(a = QSNInfo()), &a);
    static_assert(std::is_empty_v<QSNInfo>);
}

}  // namespace
