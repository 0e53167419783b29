// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "format/Hash64.h"
#include "format/IntegrityTable.h"
#include "kxbase/InMemoryStream.h"
#include "kxbase/kxInFile.h"
#include "kxcodecs/JPEG.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxio/CommentExtendedHeader.h"
#include "kxio/DumpRecords.h"
#include "kxio/HistogramHeader.h"
#include "kxio/ProtectFile.h"
#include "kxio/QSNFileRecovery.h"
#include "kxio/QSNInfo.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/ScanAccess.h"
#include "kxio/ScanHeader.h"
#include "kxio/ThumbnailEdit.h"
#include "kxio/VerifyScan.h"
#include "support/GivenByReader.h"
#include "support/ScanFileBuilder.h"
#include "support/StoredFile.h"
#include "support/TempFolder.h"
#include "support/Thrown.h"

namespace {

using namespace kxio;
using Bytes = std::vector<unsigned char>;

/// A scan of 5 x 4 cells in four patches, with everything that a writer can be asked for.
Bytes SmallScan(bool integrity) {
    kxbase::GridTopology grid;
    grid.columnStartAngle = 3;
    grid.rowStartAngle = 0.5F;
    grid.columnAngularStep = grid.rowAngularStep = 0.01F;
    grid.columns = 5;
    grid.rows = 4;
    grid.patchWidth = 4;
    grid.patchHeight = 3;
    kxbase::InMemoryStream stream;
    kxcodecs::ZLibChunkCodec zlib;
    kxcodecs::SnappyChunkCodec snappy;
    QSNScanWriter writer;
    writer.CreateNew(&stream, grid);
    writer.SetIntegrity(integrity);
    writer.GetScanProperties().scanUUID = kxbase::UUID(L"00112233-4455-6677-8899-aabbccddeeff");
    writer.AddMessage(L"seen from the yard");
    writer.AddWarning(L"rain");
    for (unsigned index = 0; index < 3; ++index) {
        std::vector<float> ranges;
        std::vector<uint16_t> intensities;
        for (unsigned cell = 0; cell < 12; ++cell) {
            ranges.push_back(cell == 5 ? 0.0F : static_cast<float>(1000 + index * 100 + cell * 7));
            intensities.push_back(static_cast<uint16_t>(700 + cell % 3));
        }
        FlatPatchDescriptor range(kxbase::Range, 4, RowMajor, 0.1, &zlib);
        range.data = reinterpret_cast<unsigned char*>(ranges.data());
        range.size = ranges.size();
        FlatPatchDescriptor intensity(kxbase::Luminance16, 2, RowMajor, 1, &snappy);
        intensity.data = reinterpret_cast<unsigned char*>(intensities.data());
        intensity.size = intensities.size();
        writer.AddPatch({&range, &intensity}, index / 2, index % 2);
    }
    writer.EndCreation();
    return stream.GetBytes();
}

using kxtest::Given;

std::optional<Given> TryRead(const Bytes& bytes) {
    return kxtest::TryReadGiven(bytes);
}

/// Empty when everything that is given out of `damaged` is right or marked; else what is not.
std::string Unmarked(const Given& whole, const Bytes& damaged) {
    return kxtest::Unmarked(whole, TryRead(damaged));
}

Bytes FileBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

void Store(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

/// Positions of the scan header and the registration in it.
uint64_t RegistrationPosition(const Bytes& file) {
    kxbase::InMemoryStream stream(file);
    MainFileHeader header;
    header.Read(&stream);
    return header.scanHeaderPosition + kxbase::IOHeader::FrameSize + 52;
}

TEST(Integrity, RecordIsLaidOutAsDescribed) {
    IntegrityExtendedHeader record({{7, 3, 0x1122334455667788}}, {}, 0x99);
    kxbase::InMemoryStream stream;
    record.Write(&stream);
    Bytes data = stream.GetBytes();
    data.erase(data.begin(), data.begin() + 36);  // frame, link, type tag, data length
    const Bytes head{1, 0, 0, 0, 1, 0, 0, 0, 0,    0,    0,    0,    0,    0,    0,    0,
                     1, 0, 0, 0, 1, 0, 0, 0, 7,    0,    0,    0,    0,    0,    0,    0,
                     3, 0, 0, 0, 0, 0, 0, 0, 0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11};
    ASSERT_EQ(data.size(), 72U);
    EXPECT_EQ(Bytes(data.begin(), data.begin() + 48), head);
    const Bytes tail{0x99, 0, 0, 0, 0, 0, 0, 0, 0x61, 0x74, 0xf2, 0xe0, 0xc3, 0x5a, 0x1d, 0x9b};
    EXPECT_EQ(Bytes(data.end() - 16, data.end()), tail);
    EXPECT_TRUE(record.IsIntact());
}

TEST(Integrity, HashIsXXH3) {
    // As `xxhsum -H3` prints them.
    EXPECT_EQ(Hash64({}), 0x2d06800538d394c2ULL);
    const Bytes text{'k', 'x', 'i', 'o'};
    EXPECT_EQ(Hash64(text), Hash64(Bytes(text)));
    EXPECT_NE(Hash64(text), Hash64(Bytes{'k', 'x', 'i', 'p'}));
}

TEST(Integrity, IsOffUnlessAskedForAndAddsOneRecordAtTheEnd) {
    const Bytes plain = SmallScan(false);
    const Bytes with = SmallScan(true);
    kxbase::InMemoryStream stream(plain);
    EXPECT_FALSE(QSNScanReader(&stream).HasIntegrity());
    kxbase::InMemoryStream protectedStream(with);
    EXPECT_TRUE(QSNScanReader(&protectedStream).HasIntegrity());
    ASSERT_GT(with.size(), plain.size());
    // Until the last record of the plain file, whose link leads on in the other, only dates may differ.
    EXPECT_EQ(kxtest::ReadGiven(stream).cells, kxtest::ReadGiven(protectedStream).cells);
    EXPECT_EQ(VerifyScan(protectedStream).errors, 0U);
}

TEST(Integrity, MustBeChosenBeforeTheFirstPatch) {
    kxbase::InMemoryStream stream;
    QSNScanWriter writer;
    kxbase::GridTopology grid;
    grid.columns = grid.rows = grid.patchWidth = grid.patchHeight = 2;
    writer.CreateNew(&stream, grid);
    kxcodecs::SnappyChunkCodec codec;
    std::vector<float> values(4, 1.0F);
    FlatPatchDescriptor range(kxbase::Range, 4, RowMajor, 1, &codec);
    range.data = reinterpret_cast<unsigned char*>(values.data());
    range.size = 4;
    writer.AddPatch({&range}, 0, 0);
    EXPECT_EQ(kxtest::ThrownBy<kxbase::KXException>([&] { static_cast<void>(writer.SetIntegrity(true)); }),
              "Integrity must be chosen before the first patch");
    EXPECT_NO_THROW(writer.SetIntegrity(false));
}

TEST(Integrity, NoChangedByteGivesAWrongValueUnmarked) {
    const Bytes file = SmallScan(true);
    const auto whole = TryRead(file);
    ASSERT_TRUE(whole);
    ASSERT_FALSE(whole->marked);
    ASSERT_GE(whole->cells.size(), 20U);
    uint64_t unmarked = 0;
    uint64_t refused = 0;
    for (size_t at = 0; at < file.size(); ++at) {
        Bytes damaged = file;
        for (unsigned change = 0; change < 10; ++change) {
            const auto old = file[at];
            damaged[at] = change < 8 ? static_cast<unsigned char>(old ^ (1U << change))
                                     : static_cast<unsigned char>(change == 8 ? 0x00 : 0xff);
            if (damaged[at] == old) continue;
            const std::string what = Unmarked(*whole, damaged);
            if (!what.empty() && ++unmarked < 10) ADD_FAILURE() << "byte " << at << ": " << what;
            if (!TryRead(damaged)) ++refused;
        }
    }
    EXPECT_EQ(unmarked, 0U);
    EXPECT_GT(refused, 0U);
}

TEST(Integrity, AnOldScanHeaderOfAnotherVersionThanWasWrittenIsRefused) {
    const TempFolder folder;
    const std::wstring path = Wide(folder / "old.qsn");
    kxtest::ScanFileBuilder file(7, 3, 4, 3);
    for (uint32_t index = 0; index < 2; ++index)
        file.Chunk(1, 0, index, kxtest::SnappyChunk(std::vector<float>(12, 5.0F), 4, 3));
    ScanHeader header;
    header.properties = file.properties;
    file.scanHeader = kxtest::WithVersion(kxtest::Written(header), 200);  // has no registration
    Bytes bytes = file.Build();
    const uint64_t version = kxtest::GetMainField(bytes, kxtest::MainField::ScanHeader) + 8;
    kxtest::StoreFile(path, bytes);
    ASSERT_TRUE(ProtectFile(path));
    bytes = kxtest::LoadFile(folder / "old.qsn");
    for (const unsigned bit : {1U, 2U, 4U, 8U, 16U, 32U, 64U, 128U}) {
        Bytes damaged = bytes;
        damaged[version] = static_cast<unsigned char>(damaged[version] ^ bit);
        kxbase::InMemoryStream stream(damaged);
        EXPECT_THROW(QSNScanReader reader(&stream), kxbase::KXException) << bit;
    }
}

TEST(Integrity, AChangedChunkDoesNotSpeakForTheElementSizeOfOthers) {
    // The size of an element of component 10 is told by its chunks alone.
    kxbase::GridTopology grid;
    grid.columnAngularStep = grid.rowAngularStep = 0.01F;
    grid.columns = grid.rows = 4;
    grid.patchWidth = grid.patchHeight = 3;
    constexpr auto kComponent = static_cast<kxbase::ComponentType>(10);
    kxbase::InMemoryStream stream;
    kxcodecs::SnappyChunkCodec codec;
    QSNScanWriter writer;
    writer.CreateNew(&stream, grid);
    writer.SetIntegrity(true);
    Bytes values(36, 7);
    for (unsigned index = 0; index < 2; ++index) {
        FlatPatchDescriptor patch(kComponent, 4, RowMajor, 1.0, &codec);
        patch.data = values.data();
        patch.size = 9;
        writer.AddPatch({&patch}, index);
    }
    writer.EndCreation();
    Bytes bytes = stream.GetBytes();
    {
        const QSNScanReader reader(&stream);
        const ScanAccess access(reader);
        EXPECT_EQ(access.ElementBytes(kComponent), 4U);
        // The width: six elements of six bytes instead of nine of four.
        bytes[access.PatchEntries(kComponent)[0].position + 8] = 2;
    }
    kxbase::InMemoryStream damaged(bytes);
    const QSNScanReader reader(&damaged);
    const ScanAccess access(reader);
    EXPECT_EQ(access.ElementBytes(kComponent), 4U);
    const auto empty = access.ReadStoredPatchBytes(kComponent, 1, 0, 4).values;
    EXPECT_EQ(empty, Bytes(36, 0));
}

TEST(Integrity, WithoutChecksADamagedChunkIsGivenOut) {
    Bytes file = SmallScan(true);
    kxbase::InMemoryStream whole(file);
    QSNScanReader first(&whole);
    const LookupEntry entry = ScanAccess(first).PatchEntries(kxbase::Luminance16)[0];
    file[entry.position + entry.byteCount - 1] ^= 1;
    kxbase::InMemoryStream stream(file);
    QSNScanReader checked(&stream);
    Bytes chunk;
    try {
        checked.GetPatchCompressed(0U, chunk, kxbase::Luminance16);
        FAIL() << "a damaged chunk was given out";
    } catch (const kxbase::KXUnreadablePatchException& e) {
        EXPECT_STREQ(e.what(), "Cannot read file");
        EXPECT_EQ(e.Context().detail, "the bytes do not match their hash");
        EXPECT_EQ(e.Context().offset, entry.position);
        EXPECT_TRUE(chunk.empty());
    }
    QSNScanReader unchecked;
    unchecked.SetIntegrityChecks(false);
    unchecked.Open(&stream);
    EXPECT_FALSE(unchecked.HasIntegrity());
    unchecked.GetPatchCompressed(0U, chunk, kxbase::Luminance16);
    EXPECT_EQ(chunk.size(), entry.byteCount);
}

class IntegrityOfEdits : public testing::Test {
protected:
    void SetUp() override { Store(m_path, SmallScan(true)); }

    void ExpectSound() {
        const QSNScanReader reader(Wide(m_path));
        EXPECT_TRUE(reader.HasIntegrity());
        for (const kxbase::ErrorContext& problem : reader.GetIntegrityProblems())
            ADD_FAILURE() << problem.record << " at " << problem.offset.value_or(0) << ": " << problem.detail;
    }

    TempFolder m_folder;
    std::filesystem::path m_path = m_folder / "scan.qsn";
};

TEST_F(IntegrityOfEdits, HashesStayTrueThroughEveryEdit) {
    const std::wstring path = Wide(m_path);
    QSNInfo::AddMessage(path, L"later");
    ExpectSound();
    const kxbase::RegistrationInformation registration(kxbase::Frame3D(), {1, 2, 3});
    QSNInfo::SetRegistrationInfo(path, registration);
    ExpectSound();
    QSNFileRecovery::SetSpekleBit(path);
    ExpectSound();
    QSNFileRecovery::ClearSpekleBit(path);
    ExpectSound();
    QSNInfo::AddHQLink(path, kxbase::UUID::Generate());
    Bytes jpeg;
    kxcodecs::JPEG::Encode(Bytes(192, 80).data(), 8, 8, 50, jpeg);
    SetThumbnail(path, jpeg);
    ExpectSound();
    QSNInfo::AddWarning(path, L"and later");
    ExpectSound();
    EXPECT_EQ(QSNInfo::GetMessages(path).back(), L"later");
    EXPECT_EQ(QSNInfo::GetRegistrationInfo(path).GetTranslation().z, 3);

    // Damage is still told afterwards, everywhere.
    const Bytes file = FileBytes(m_path);
    const auto whole = TryRead(file);
    ASSERT_TRUE(whole);
    for (size_t at = 0; at < file.size(); ++at) {
        Bytes damaged = file;
        damaged[at] ^= 0x10;
        EXPECT_EQ(Unmarked(*whole, damaged), "") << "byte " << at;
    }
}

TEST_F(IntegrityOfEdits, AnEditThatWasCutShortIsOldOrNewOrMarked) {
    const Bytes before = FileBytes(m_path);
    const kxbase::RegistrationInformation registration(kxbase::Frame3D(), {1, 2, 3});
    QSNInfo::SetRegistrationInfo(Wide(m_path), registration);
    const Bytes after = FileBytes(m_path);
    const auto oldOne = TryRead(before);
    const auto newOne = TryRead(after);
    ASSERT_TRUE(oldOne && newOne);
    ASSERT_NE(oldOne->properties, newOne->properties);
    // The hash is appended, byte after byte.
    for (size_t size = before.size(); size <= after.size(); ++size) {
        Bytes cut(after.begin(), after.begin() + static_cast<ptrdiff_t>(size));
        std::copy(before.begin(), before.end(), cut.begin());
        const auto given = TryRead(cut);
        ASSERT_TRUE(given) << size;
        EXPECT_EQ(given->properties, oldOne->properties) << size;
    }
    // Then the registration is overwritten.
    const uint64_t at = RegistrationPosition(before);
    for (uint64_t done = 0; done <= 96; ++done) {
        Bytes half = after;
        std::copy_n(before.begin() + static_cast<ptrdiff_t>(at + done), 96 - done,
                    half.begin() + static_cast<ptrdiff_t>(at + done));
        const auto given = TryRead(half);
        ASSERT_TRUE(given);
        EXPECT_TRUE(given->marked || given->properties == oldOne->properties ||
                    given->properties == newOne->properties)
            << done;
    }
}

TEST_F(IntegrityOfEdits, ARegistrationThatAnotherProgramChangedIsListedAndTheScanOpens) {
    Bytes file = FileBytes(m_path);
    file[RegistrationPosition(file) + 8] ^= 1;
    kxbase::InMemoryStream stream(file);
    const QSNScanReader reader(&stream);
    ASSERT_EQ(reader.GetIntegrityProblems().size(), 1U);
    EXPECT_EQ(reader.GetIntegrityProblems()[0].record, "ScanHeader");
    EXPECT_EQ(reader.GetIntegrityProblems()[0].field, "registration");
}

TEST_F(IntegrityOfEdits, ARecordThatAnotherProgramAppendedChangesNothing) {
    Bytes file = FileBytes(m_path);
    CommentExtendedHeader message(L"foreign");
    kxbase::InMemoryStream appended;
    message.Write(&appended);
    file.insert(file.end(), appended.GetBytes().begin(), appended.GetBytes().end());
    kxbase::InMemoryStream stream(file);
    const QSNScanReader reader(&stream);
    EXPECT_TRUE(reader.HasIntegrity());
    EXPECT_TRUE(reader.GetIntegrityProblems().empty());
    EXPECT_EQ(reader.GetMessageList().back(), L"foreign");
}

TEST_F(IntegrityOfEdits, VerificationNamesWhatDoesNotMatch) {
    Bytes file = FileBytes(m_path);
    kxbase::InMemoryStream whole(file);
    EXPECT_EQ(VerifyScan(whole).errors, 0U);
    QSNScanReader first(&whole);
    const LookupEntry entry = ScanAccess(first).PatchEntries(kxbase::Luminance16)[0];
    const uint64_t at = entry.position + entry.byteCount - 1;
    file[at] ^= 1;  // a stored value; no codec can tell
    kxbase::InMemoryStream stream(file);
    const VerifyReport report = VerifyScan(stream);
    ASSERT_GE(report.errors, 1U);
    const bool named = std::any_of(report.findings.begin(), report.findings.end(), [&](const auto& finding) {
        return finding.offset == entry.position &&
               finding.text.find("do not match their hash") != std::string::npos;
    });
    EXPECT_TRUE(named);
    VerifyOptions quick;
    quick.level = VerifyLevel::Quick;
    EXPECT_EQ(VerifyScan(stream, quick).errors, 0U);  // looks at headers alone
    file[at] ^= 1;
    file[RegistrationPosition(file)] ^= 1;
    kxbase::InMemoryStream changed(file);
    EXPECT_EQ(VerifyScan(changed, quick).errors, 1U);
}

TEST_F(IntegrityOfEdits, AnOlderFileIsProtectedAfterwardsAndKeepsItsBytes) {
    const Bytes plain = SmallScan(false);
    Store(m_path, plain);
    EXPECT_TRUE(ProtectFile(Wide(m_path)));
    ExpectSound();
    const Bytes file = FileBytes(m_path);
    ASSERT_GT(file.size(), plain.size());
    EXPECT_TRUE(std::equal(plain.begin(), plain.end(), file.begin()));
    EXPECT_FALSE(ProtectFile(Wide(m_path)));
    EXPECT_EQ(FileBytes(m_path), file);
    const auto whole = TryRead(file);
    ASSERT_TRUE(whole);
    for (size_t at = 0; at < file.size(); ++at) {
        Bytes damaged = file;
        damaged[at] ^= 0x04;
        EXPECT_EQ(Unmarked(*whole, damaged), "") << "byte " << at;
    }
}

TEST_F(IntegrityOfEdits, ADamagedFileIsNotProtected) {
    Bytes file = SmallScan(false);
    kxbase::InMemoryStream stream(file);
    const QSNScanReader reader(&stream);
    const LookupEntry entry = ScanAccess(reader).PatchEntries(kxbase::Range)[0];
    file[entry.position + 30] ^= 0x55;
    Store(m_path, file);
    try {
        ProtectFile(Wide(m_path));
        FAIL() << "it was protected";
    } catch (const kxbase::KXBadInputException& e) {
        EXPECT_STREQ(e.what(), "File is damaged");
        EXPECT_TRUE(e.Context().offset);
    }
    EXPECT_EQ(FileBytes(m_path), file);
}

TEST(Integrity, AHostileListCostsNoMoreThanTheFile) {
    const Bytes plain = SmallScan(false);
    std::vector<IntegritySpan> headers;
    for (uint64_t i = 0; i < 20000; ++i)
        headers.push_back({i % 50, plain.size() - 100, i});
    headers.push_back({~uint64_t{0} - 5, ~uint64_t{0}, 0});
    IntegrityExtendedHeader record(headers, {}, plain.size(), 12);
    kxbase::InMemoryStream stream(plain);
    stream.SeekEnd(0);
    record.Write(&stream);
    stream.Seek(0);
    // Whatever the list says, the walk ends; byte 0 has a wrong hash, so the file is refused.
    EXPECT_THROW(QSNScanReader reader(&stream), kxbase::KXHeaderReadingException);
}

TEST(Integrity, RecordsThatNameEachOtherAreTakenOnce) {
    kxbase::InMemoryStream stream;
    for (const uint64_t previous : {uint64_t{0}, uint64_t{0}, uint64_t{1} << 40}) {
        IntegrityExtendedHeader record({}, {{1, 2, 3}}, stream.GetSize(), previous);
        record.Write(&stream);
    }
    IntegrityTable table;
    table.Complete(stream);
    EXPECT_TRUE(table.Present());
    EXPECT_EQ(table.HeaderSpans().size() + table.OtherSpans().size(), 1U);
    EXPECT_TRUE(table.Damaged().empty());
    EXPECT_EQ(table.Check(1, Bytes{1, 2}), IntegrityTable::Verdict::Wrong);
    EXPECT_EQ(table.Check(1, Bytes{1}), IntegrityTable::Verdict::Unlisted);
    EXPECT_EQ(table.Check(2, Bytes{1, 2}), IntegrityTable::Verdict::Unlisted);
}

}  // namespace
