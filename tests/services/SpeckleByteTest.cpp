// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "RecoveryFixture.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"
#include "kxio/QSNFileRecovery.h"

namespace {

using kxio::QSNFileRecovery;
using recovery_test::Bytes;
using recovery_test::ExpectFailure;
using recovery_test::FileBytes;
using recovery_test::ReadBytes;
using recovery_test::TemporaryFolder;
using recovery_test::WriteBytes;

constexpr const char* kRefusal =
    "File does not support this write operation. Use a valid (released) file format for this operation to "
    "work.";

/// Main header at 0, some bytes, then a scan header record of `version` at `kScanHeaderAt` whose payload
/// has `payload` bytes of zeros, then a tail that must never change.
constexpr uint64_t kScanHeaderAt = 100;

Bytes FileOfVersion(uint32_t version, uint32_t payload) {
    FileBytes file;
    file.MainHeader().scanHeaderPosition = kScanHeaderAt;
    file.WriteMainHeader();
    file.AddBytes(Bytes(kScanHeaderAt - file.Size(), 0xaa));
    Bytes record(16 + payload, 0);
    kxbase::ByteWriter frame(record);
    frame.U64(0x9cb282fc40c502d8ULL);
    frame.U32(version);
    frame.U32(payload);
    file.AddBytes(record);
    file.AddBytes(Bytes(50, 0xbb));
    return file.Get();
}

struct Version {
    uint32_t version;
    uint32_t payload;
};

TEST(SpeckleByte, SetAndClearChangeExactlyThatByte) {
    for (const Version v : {Version{220, 149}, Version{230, 153}, Version{240, 154}, Version{250, 197},
                            Version{260, 209}, Version{270, 213}, Version{275, 213}, Version{300, 400}}) {
        SCOPED_TRACE(v.version);
        const TemporaryFolder folder;
        const std::wstring path = folder / "scan.qsn";
        const Bytes before = FileOfVersion(v.version, v.payload);
        WriteBytes(path, before);
        EXPECT_FALSE(QSNFileRecovery::GetSpekleBit(path));
        EXPECT_EQ(ReadBytes(path), before);

        QSNFileRecovery::SetSpekleBit(path);
        Bytes expected = before;
        expected[kScanHeaderAt + 16 + 148] = 1;
        EXPECT_EQ(ReadBytes(path), expected);
        EXPECT_TRUE(QSNFileRecovery::GetSpekleBit(path));

        QSNFileRecovery::ClearSpekleBit(path);
        EXPECT_EQ(ReadBytes(path), before);
        EXPECT_FALSE(QSNFileRecovery::GetSpekleBit(path));
    }
}

TEST(SpeckleByte, AnyValueButZeroIsSet) {
    const TemporaryFolder folder;
    const std::wstring path = folder / "scan.qsn";
    Bytes bytes = FileOfVersion(270, 213);
    bytes[kScanHeaderAt + 16 + 148] = 0x80;
    WriteBytes(path, bytes);
    EXPECT_TRUE(QSNFileRecovery::GetSpekleBit(path));
    QSNFileRecovery::SetSpekleBit(path);
    EXPECT_EQ(ReadBytes(path)[kScanHeaderAt + 16 + 148], 1);
}

TEST(SpeckleByte, VersionsWithoutTheByteAreRefusedAndUntouched) {
    for (const Version v : {Version{200, 44}, Version{210, 148}, Version{210, 200}, Version{200, 200}}) {
        SCOPED_TRACE(v.version);
        const TemporaryFolder folder;
        const std::wstring path = folder / "scan.qsn";
        const Bytes before = FileOfVersion(v.version, v.payload);
        WriteBytes(path, before);
        EXPECT_FALSE(QSNFileRecovery::GetSpekleBit(path));
        ExpectFailure<kxbase::KXHeaderOperationException>(kRefusal,
                                                          [&] { QSNFileRecovery::SetSpekleBit(path); });
        ExpectFailure<kxbase::KXHeaderOperationException>(kRefusal,
                                                          [&] { QSNFileRecovery::ClearSpekleBit(path); });
        EXPECT_EQ(ReadBytes(path), before);
    }
}

TEST(SpeckleByte, Version220StoresTheByteButItsReaderDoesNotSeeIt) {
    const TemporaryFolder folder;
    const std::wstring path = folder / "scan.qsn";
    WriteBytes(path, FileOfVersion(220, 149));
    QSNFileRecovery::SetSpekleBit(path);
    EXPECT_TRUE(QSNFileRecovery::GetSpekleBit(path));
    kxbase::InMemoryStream stream(ReadBytes(path));
    stream.Seek(kScanHeaderAt);
    kxio::ScanHeader header;
    ASSERT_NE(header.Read(&stream), 0U);
    EXPECT_FALSE(header.properties.speckleCorrectionNeeded);
}

TEST(SpeckleByte, FilesThatCannotBeReadAreRefused) {
    const TemporaryFolder folder;
    const auto allThree = [](const std::wstring& path, const char* text) {
        ExpectFailure<kxbase::KXHeaderReadingException>(text, [&] { QSNFileRecovery::GetSpekleBit(path); });
        ExpectFailure<kxbase::KXHeaderReadingException>(text, [&] { QSNFileRecovery::SetSpekleBit(path); });
        ExpectFailure<kxbase::KXHeaderReadingException>(text, [&] { QSNFileRecovery::ClearSpekleBit(path); });
    };
    allThree(folder / "missing.qsn", "Cannot open file");
    EXPECT_FALSE(std::filesystem::exists(folder.Path() / "missing.qsn"));

    Bytes bytes = FileOfVersion(270, 213);
    bytes[0] ^= 1;
    WriteBytes(folder / "nomain.qsn", bytes);
    allThree(folder / "nomain.qsn", "Invalid main header");

    bytes = FileOfVersion(270, 213);
    bytes[8] = 209;
    WriteBytes(folder / "oldmain.qsn", bytes);
    allThree(folder / "oldmain.qsn", "Unsupported MainFileHeader version");

    bytes = FileOfVersion(270, 213);
    bytes[kScanHeaderAt] ^= 1;
    WriteBytes(folder / "noscan.qsn", bytes);
    allThree(folder / "noscan.qsn", "Invalid scan headers");

    bytes = FileOfVersion(199, 213);
    WriteBytes(folder / "oldscan.qsn", bytes);
    allThree(folder / "oldscan.qsn", "Unsupported ScanHeader version");

    FileBytes far;
    far.MainHeader().scanHeaderPosition = UINT64_MAX;
    far.WriteMainHeader();
    WriteBytes(folder / "far.qsn", far.Get());
    allThree(folder / "far.qsn", "Invalid scan headers");
    EXPECT_EQ(ReadBytes(folder / "far.qsn"), far.Get());
}

}  // namespace
