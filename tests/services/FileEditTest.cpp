// SPDX-License-Identifier: MIT
// Edits are there as a whole or not at all, one at a time, and what fails to open stays as it was.
#include "services/FileEdit.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <list>
#include <set>

#include "format/PendingEdit.h"
#include "kxcodecs/JPEG.h"
#include "kxio/DumpRecords.h"
#include "kxio/ProtectFile.h"
#include "kxio/QSNFileRecovery.h"
#include "kxio/QSNInfo.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/RecoverToFile.h"
#include "kxio/ThumbnailEdit.h"
#include "kxio/VerifyScan.h"
#include "support/ScanFileBuilder.h"
#include "support/Soak.h"
#include "support/StoredFile.h"
#include "support/TempFolder.h"
#include "support/Thrown.h"
#include "support/TinyScan.h"

namespace {

using namespace kxtest;
using kxbase::KXFileLockedException;
using kxio::QSNInfo;
using Texts = std::list<std::wstring>;

Bytes SmallScan() {
    ScanFileBuilder file(4, 4, 4, 4);
    file.Chunk(kxbase::Range, 0, 0, SnappyChunk(std::vector<float>(16, 5.0F), 4, 4));
    file.Limits(5, 5, {{5.0F, 5.0F}});
    return file.Message("first").Build();
}

kxbase::RegistrationInformation Shifted() {
    const double values[12] = {0, 1, 0, -1, 0, 0, 0, 0, 1, 10.25, -20.5, 1e-3};
    return kxbase::RegistrationInformation::FromValues(values);
}

std::vector<unsigned char> SmallImage() {
    std::vector<unsigned char> jpeg;
    kxcodecs::JPEG::Encode(std::vector<unsigned char>(3 * 16 * 16, 90).data(), 16, 16, 90, jpeg);
    return jpeg;
}

class EditOfAFile : public ::testing::TestWithParam<bool> {
protected:
    EditOfAFile() {
        m_path = StoreFile(Wide(m_folder / "scan.qsn"), SmallScan());
        if (GetParam()) kxio::ProtectFile(m_path);
        m_old = Stored();
    }

    Bytes Stored() const { return LoadFile(m_folder / "scan.qsn"); }
    void Store(const Bytes& bytes) const { StoreFile(m_path, bytes); }
    void ExpectClean(const std::string& where) const {
        const kxio::QSNScanReader reader(m_path, 0);
        EXPECT_EQ(reader.GetIntegrityProblems().size(), 0U) << where;
        EXPECT_EQ(reader.HasIntegrity(), GetParam()) << where;
        const kxio::VerifyReport report = kxio::VerifyScan(m_path);
        for (const kxio::VerifyFinding& finding : report.findings) {
            EXPECT_NE(finding.severity, kxio::FindingSeverity::Error)
                << where << ": " << finding.record << " " << finding.text;
        }
    }
    // The edits that there are.
    std::vector<std::function<void()>> Edits() const {
        return {[this] { QSNInfo::AddMessage(m_path, L"m"); },
                [this] { QSNInfo::AddWarning(m_path, L"w"); },
                [this] { QSNInfo::AddHQLink(m_path, kxbase::UUID::Generate()); },
                [this] { QSNInfo::AddERLink(m_path, kxbase::UUID::Generate()); },
                [this] { QSNInfo::AddHDRLink(m_path, kxbase::UUID::Generate()); },
                [this] { QSNInfo::SetRegistrationInfo(m_path, Shifted()); },
                [this] { kxio::QSNFileRecovery::SetSpekleBit(m_path); },
                [this] { kxio::QSNFileRecovery::ClearSpekleBit(m_path); },
                [this] { kxio::SetThumbnail(m_path, SmallImage()); }};
    }

    TempFolder m_folder;
    std::wstring m_path;
    Bytes m_old;
};

TEST_P(EditOfAFile, IsRefusedWhileAnotherOneHasTheFile) {
    std::vector<std::function<void()>> edits = Edits();
    if (!GetParam()) edits.emplace_back([this] { kxio::ProtectFile(m_path); });
    {
        kxio::FileEdit other(m_path);
        for (const auto& edit : edits) {
            try {
                edit();
                ADD_FAILURE() << "nothing was thrown";
            } catch (const KXFileLockedException& e) {
                EXPECT_STREQ(e.what(), "File is being edited");
            }
        }
        EXPECT_THROW(kxio::QSNScanWriter().CreateNew(m_path), kxbase::KXFileNotOpenException);
        EXPECT_EQ(QSNInfo::GetMessages(m_path), Texts{L"first"});
        EXPECT_EQ(Stored(), m_old);
    }
    for (const auto& edit : edits)
        EXPECT_NO_THROW(edit());
    EXPECT_TRUE(kxio::QSNScanReader(m_path, 0).GetIntegrityProblems().empty());
    EXPECT_EQ(QSNInfo::GetRegistrationInfo(m_path), Shifted());
    EXPECT_EQ(QSNInfo::GetMessages(m_path), Texts({L"first", L"m"}));
}

TEST_P(EditOfAFile, AppendedRecordIsThereOrNotWhereverItIsCut) {
    QSNInfo::AddMessage(m_path, L"second");
    const Bytes after = Stored();
    for (size_t length = m_old.size(); length <= after.size(); ++length) {
        // The tag of the record comes after everything else of it.
        for (const size_t tagBytes : {size_t{0}, size_t{3}, size_t{8}}) {
            Bytes bytes(after.begin(), after.begin() + static_cast<std::ptrdiff_t>(length));
            for (size_t i = m_old.size() + tagBytes; i < std::min(length, m_old.size() + 8); ++i)
                bytes[i] = 0;
            const std::string where =
                std::to_string(length - m_old.size()) + " bytes, " + std::to_string(tagBytes) + " of the tag";
            Store(bytes);
            const Texts seen = QSNInfo::GetMessages(m_path);
            ASSERT_TRUE(seen == Texts{L"first"} || seen == Texts({L"first", L"second"})) << where;
            if (length == m_old.size() || tagBytes < 8) {
                ASSERT_EQ(seen.size(), 1U) << where;
            } else if (length == after.size()) {
                ASSERT_EQ(seen.size(), 2U) << where;
            }
            QSNInfo::AddMessage(m_path, L"third");
            Texts wanted = seen;
            wanted.push_back(L"third");
            ASSERT_EQ(QSNInfo::GetMessages(m_path), wanted) << where;
            const Bytes stored = Stored();
            ASSERT_TRUE(std::equal(m_old.begin(), m_old.end(), stored.begin())) << where;
        }
    }
    ExpectClean("at the end");
}

TEST_P(EditOfAFile, ALengthWithoutBytesIsNoRecord) {
    for (const size_t zeros : {size_t{1}, size_t{15}, size_t{16}, size_t{100}, size_t{5000}}) {
        Bytes bytes = m_old;
        bytes.resize(bytes.size() + zeros);
        Store(bytes);
        EXPECT_EQ(QSNInfo::GetMessages(m_path), Texts{L"first"});
        QSNInfo::AddMessage(m_path, L"second");
        EXPECT_EQ(QSNInfo::GetMessages(m_path), Texts({L"first", L"second"}));
        ExpectClean(std::to_string(zeros));
    }
}

TEST_P(EditOfAFile, BytesOfOthersBehindTheRecordsStay) {
    Bytes bytes = m_old;
    const Bytes strange(40, 'x');
    bytes.insert(bytes.end(), strange.begin(), strange.end());
    Store(bytes);
    QSNInfo::AddMessage(m_path, L"second");
    const Bytes stored = Stored();
    ASSERT_GT(stored.size(), bytes.size());
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), stored.begin()));
}

TEST_P(EditOfAFile, RegistrationIsOldOrNewWhereverTheEditIsCut) {
    const auto before = QSNInfo::GetRegistrationInfo(m_path);
    QSNInfo::SetRegistrationInfo(m_path, Shifted());
    const Bytes after = Stored();
    std::vector<size_t> changed;
    for (size_t i = 0; i < m_old.size(); ++i) {
        if (m_old[i] != after[i]) changed.push_back(i);
    }
    ASSERT_FALSE(changed.empty());
    const uint64_t target = GetMainField(m_old, MainField::ScanHeader) + 68;
    ASSERT_GE(changed.front(), target);
    ASSERT_LT(changed.back(), target + 96);
    ASSERT_EQ(after.size() > m_old.size(), GetParam()) << "hashes are the only other change";

    const auto place = [](const Bytes& bytes, uint64_t at, uint64_t count) {
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        return Bytes(first, first + static_cast<std::ptrdiff_t>(count));
    };
    // Everything but the place itself as it is after the edit, then the promise.
    Bytes promised = after;
    std::copy_n(m_old.begin() + static_cast<std::ptrdiff_t>(target), 96,
                promised.begin() + static_cast<std::ptrdiff_t>(target));
    const Bytes promise = kxio::EncodePendingEdit({promised.size(), target, place(after, target, 96)});
    for (size_t length = 0; length < promise.size(); ++length) {
        Bytes bytes = promised;
        bytes.insert(bytes.end(), promise.begin(), promise.begin() + static_cast<std::ptrdiff_t>(length));
        Store(bytes);
        ASSERT_EQ(QSNInfo::GetRegistrationInfo(m_path), before) << length;
        const kxio::QSNScanReader reader(m_path, 0);
        ASSERT_EQ(reader.GetIntegrityProblems().size(), 0U) << length;
        ASSERT_EQ(reader.HasIntegrity(), GetParam()) << length;
    }
    promised.insert(promised.end(), promise.begin(), promise.end());
    for (size_t written = 0; written <= 96; ++written) {
        Bytes bytes = promised;
        // From the front, from the back, and every other byte.
        for (int pattern = 0; pattern < 3; ++pattern) {
            for (size_t i = 0; i < 96; ++i) {
                const bool there = pattern == 0   ? i < written
                                   : pattern == 1 ? i >= 96 - written
                                                  : i % 2 == 0 && i < written;
                bytes[target + i] = there ? after[target + i] : m_old[target + i];
            }
            Store(bytes);
            ASSERT_EQ(QSNInfo::GetRegistrationInfo(m_path), Shifted()) << written;
            const kxio::QSNScanReader reader(m_path, 0);
            ASSERT_EQ(reader.GetIntegrityProblems().size(), 0U) << written;
        }
    }
    // The next edit does what was promised, and nothing is left of the promise.
    kxio::FileEdit(m_path).Close();
    EXPECT_EQ(Stored(), after);
    ExpectClean("at the end");
}

TEST_P(EditOfAFile, ThumbnailIsOldOrNewWhereverTheEditIsCut) {
    kxio::SetThumbnail(m_path, SmallImage());
    const Bytes after = Stored();
    std::vector<unsigned char> wanted;
    ASSERT_TRUE(kxio::QSNScanReader(m_path, 0).GetThumbnailJPEG(wanted));
    Bytes appended = after;
    std::copy_n(m_old.begin(), m_old.size(), appended.begin());
    for (size_t length = m_old.size(); length <= appended.size(); length += length % 7 + 1) {
        Store(Bytes(appended.begin(), appended.begin() + static_cast<std::ptrdiff_t>(length)));
        std::vector<unsigned char> jpeg;
        ASSERT_FALSE(kxio::QSNScanReader(m_path, 0).GetThumbnailJPEG(jpeg)) << length;
        QSNInfo::AddMessage(m_path, L"second");
        ASSERT_EQ(QSNInfo::GetMessages(m_path), Texts({L"first", L"second"})) << length;
    }
    const Bytes fields(after.begin() + 40, after.begin() + 64);
    const Bytes promise = kxio::EncodePendingEdit({appended.size(), 40, fields});
    appended.insert(appended.end(), promise.begin(), promise.end());
    for (size_t written = 0; written <= fields.size(); ++written) {
        Bytes bytes = appended;
        std::copy_n(fields.begin(), written, bytes.begin() + 40);
        Store(bytes);
        std::vector<unsigned char> jpeg;
        const kxio::QSNScanReader reader(m_path, 0);
        ASSERT_TRUE(reader.GetThumbnailJPEG(jpeg)) << written;
        ASSERT_EQ(jpeg, wanted);
        ASSERT_EQ(reader.GetIntegrityProblems().size(), 0U) << written;
        ASSERT_TRUE(kxio::QSNScanReader::GetThumbnailJPEG(m_path, jpeg)) << written;
    }
}

TEST_P(EditOfAFile, CopiesOfRecordsThatLostSectorsAreNoDamage) {
    for (wchar_t which = L'a'; which < L'g'; ++which)
        QSNInfo::AddMessage(m_path, std::wstring(300, which));
    const Bytes old = Stored();
    kxio::SetThumbnail(m_path, SmallImage());
    // All that was appended may be on the medium but the first tag, and any of its sectors not.
    Bytes appended = Stored();
    std::copy(old.begin(), old.end(), appended.begin());
    const auto end = static_cast<std::ptrdiff_t>(old.size());
    std::fill_n(appended.begin() + end, 8, static_cast<unsigned char>(0));
    constexpr std::ptrdiff_t kSector = 512;
    const auto size = static_cast<std::ptrdiff_t>(appended.size());
    for (std::ptrdiff_t sector = end / kSector; sector * kSector < size; ++sector) {
        Bytes torn = appended;
        std::fill(torn.begin() + std::max(end, sector * kSector),
                  torn.begin() + std::min(size, (sector + 1) * kSector), static_cast<unsigned char>(0));
        Store(torn);
        EXPECT_EQ(kxio::VerifyScan(m_path).errors, 0U) << sector;
        QSNInfo::AddMessage(m_path, L"later");
        EXPECT_EQ(QSNInfo::GetMessages(m_path).size(), 8U) << sector;
        ExpectClean(std::to_string(sector));
    }
    // Bytes that are neither lost nor those of the chain were there before: somebody else's.
    Bytes changed = appended;
    const auto copy = std::search_n(changed.begin() + end, changed.end(), 300, 'd');
    ASSERT_NE(copy, changed.end());
    *(copy + 20) = 'x';
    Store(changed);
    EXPECT_GT(kxio::VerifyScan(m_path).errors, 0U);
}

TEST_P(EditOfAFile, AWriteThatEndedAtAnyByteIsNoDamage) {
    for (wchar_t which = L'a'; which < L'e'; ++which)
        QSNInfo::AddMessage(m_path, std::wstring(300, which));
    const Bytes old = Stored();
    kxio::SetThumbnail(m_path, SmallImage());
    Bytes appended = Stored();
    std::copy(old.begin(), old.end(), appended.begin());
    const auto end = static_cast<std::ptrdiff_t>(old.size());
    std::fill_n(appended.begin() + end, 8, static_cast<unsigned char>(0));
    // The file has got its new size before.
    const auto size = static_cast<std::ptrdiff_t>(appended.size());
    for (std::ptrdiff_t written = end; written < size; written += 1 + written % 23) {
        Bytes torn = appended;
        std::fill(torn.begin() + written, torn.end(), static_cast<unsigned char>(0));
        Store(torn);
        ASSERT_EQ(kxio::VerifyScan(m_path).errors, 0U) << written;
    }
}

TEST_P(EditOfAFile, DamageBeforeOtherRecordsIsNoInterruptedEdit) {
    for (const wchar_t* text : {L"second", L"third", L"fourth"})
        QSNInfo::AddMessage(m_path, text);
    Bytes bytes = Stored();
    const std::string text = "second";
    const auto place = std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) - bytes.begin();
    constexpr std::ptrdiff_t kFrameAndFields = 16 + 20;
    std::fill_n(bytes.begin() + (place - kFrameAndFields), 12, static_cast<unsigned char>(0));
    Store(bytes);
    EXPECT_EQ(QSNInfo::GetMessages(m_path), Texts{L"first"});
    QSNInfo::SetRegistrationInfo(m_path, Shifted());
    // What recovery can still find is there.
    const Bytes after = Stored();
    for (const std::string& later : {std::string("third"), std::string("fourth")})
        EXPECT_NE(std::search(after.begin(), after.end(), later.begin(), later.end()), after.end()) << later;
}

TEST_P(EditOfAFile, RecoveryTakesAnInterruptedEditAsReadersDo) {
    const std::wstring saved = Wide(m_folder / "saved.qsn");
    const uint64_t warnings = kxio::VerifyScan(m_path).warnings;
    QSNInfo::SetRegistrationInfo(m_path, Shifted());
    const Bytes after = Stored();
    // The promise is there, and half of its bytes are overwritten.
    const auto target = static_cast<std::ptrdiff_t>(GetMainField(m_old, MainField::ScanHeader) + 68);
    Bytes torn = after;
    std::copy_n(m_old.begin() + target + 48, 48, torn.begin() + target + 48);
    const Bytes promise =
        kxio::EncodePendingEdit({torn.size(), static_cast<uint64_t>(target),
                                 Bytes(after.begin() + target, after.begin() + target + 96)});
    torn.insert(torn.end(), promise.begin(), promise.end());
    Store(torn);
    EXPECT_EQ(kxio::VerifyScan(m_path).errors, 0U);
    EXPECT_EQ(kxio::VerifyScan(m_path).warnings, warnings + 1);
    kxio::RecoverToFile(m_path, saved);
    EXPECT_EQ(QSNInfo::GetRegistrationInfo(saved), Shifted());

    // An append whose tag is missing.
    Store(m_old);
    QSNInfo::AddMessage(m_path, L"second");
    Bytes half = Stored();
    std::fill_n(half.begin() + static_cast<std::ptrdiff_t>(m_old.size()), 8, static_cast<unsigned char>(0));
    Store(half);
    EXPECT_EQ(kxio::VerifyScan(m_path).errors, 0U);
    kxio::RecoverToFile(m_path, saved);
    EXPECT_EQ(QSNInfo::GetMessages(saved), Texts{L"first"});
}

INSTANTIATE_TEST_SUITE_P(Hashes, EditOfAFile, testing::Bool(),
                         [](const auto& made) { return made.param ? "With" : "Without"; });

TEST(PendingEdit, IsTakenOnlyWhenItIsWholeAndTheLast) {
    Bytes file(200, 1);
    const Bytes record = kxio::EncodePendingEdit({200, 50, Bytes(20, 7)});
    file.insert(file.end(), record.begin(), record.end());
    const auto find = [](const Bytes& bytes) {
        kxbase::InMemoryStream in(bytes);
        return kxio::FindPendingEdit(in, bytes.size());
    };
    const auto found = find(file);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->position, 200U);
    EXPECT_EQ(found->target, 50U);
    EXPECT_EQ(found->bytes, Bytes(20, 7));
    // The frame's version and the link say nothing.
    for (size_t i = 200; i < file.size(); ++i) {
        if ((i >= 208 && i < 212) || (i >= 216 && i < 224)) continue;
        Bytes bytes = file;
        bytes[i] ^= 1;
        EXPECT_FALSE(find(bytes)) << i - 200;
    }
    file.push_back(0);
    EXPECT_FALSE(find(file));
    // One that would overwrite itself, and one that is too long.
    for (const kxio::PendingEdit& odd :
         {kxio::PendingEdit{200, 190, Bytes(20, 7)}, kxio::PendingEdit{200, 0, Bytes(4097, 7)}}) {
        Bytes bytes(200, 1);
        const Bytes encoded = kxio::EncodePendingEdit(odd);
        bytes.insert(bytes.end(), encoded.begin(), encoded.end());
        EXPECT_FALSE(find(bytes));
    }
}

TEST(FailedOpening, CreatesTruncatesAndDeletesNothing) {
    TempFolder folder;
    std::filesystem::create_directory(folder / "folder");
    const Bytes garbage(3000, 0x5a);
    StoreFile(Wide(folder / "garbage"), garbage);
    StoreFile(Wide(folder / "empty"), {});
    const Bytes scan = SmallScan();
    const Bytes cut(scan.begin(), scan.begin() + 150);
    StoreFile(Wide(folder / "cut"), cut);
    const std::wstring out = Wide(folder / "out");
    const auto jpeg = SmallImage();
    const std::vector<std::pair<const char*, std::function<void(const std::wstring&)>>> calls{
        {"reader", [](const auto& path) { kxio::QSNScanReader(path, 0); }},
        {"reader with prefetch", [](const auto& path) { kxio::QSNScanReader(path, 4096); }},
        {"all info", [](const auto& path) { QSNInfo::GetAllInfo(path); }},
        {"message", [](const auto& path) { QSNInfo::AddMessage(path, L"m"); }},
        {"warning", [](const auto& path) { QSNInfo::AddWarning(path, L"m"); }},
        {"link", [](const auto& path) { QSNInfo::AddHQLink(path, kxbase::UUID::Generate()); }},
        {"registration", [](const auto& path) { QSNInfo::SetRegistrationInfo(path, Shifted()); }},
        {"speckle", [](const auto& path) { kxio::QSNFileRecovery::SetSpekleBit(path); }},
        {"thumbnail", [&](const auto& path) { kxio::SetThumbnail(path, jpeg); }},
        {"protection", [](const auto& path) { kxio::ProtectFile(path); }},
        {"recovery", [&](const auto& path) { kxio::RecoverToFile(path, out); }}};
    for (const char* name : {"missing", "folder", "garbage", "empty", "cut"}) {
        for (const auto& [what, call] : calls) {
            if (std::string(name) == "cut" && std::string(what) == "recovery") continue;  // it has a grid
            EXPECT_THROW(call(Wide(folder / name)), kxbase::KXException) << what << " of " << name;
        }
        if (std::string(name) == "cut") continue;  // it begins with a chunk
        const kxio::QSNFileRecovery recovery(Wide(folder / name));
        EXPECT_TRUE(recovery.GetPatchMap().empty());
    }
    EXPECT_THROW(kxio::VerifyScan(Wide(folder / "missing")), kxbase::KXException);
    EXPECT_THROW(kxio::DumpRecords(Wide(folder / "missing"), [](const kxio::DumpedRecord&) {}),
                 kxbase::KXException);
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path()))
        names.insert(entry.path().filename().string());
    EXPECT_EQ(names, (std::set<std::string>{"folder", "garbage", "empty", "cut"}));
    EXPECT_EQ(LoadFile(folder / "garbage"), garbage);
    EXPECT_EQ(LoadFile(folder / "cut"), cut);
    EXPECT_EQ(LoadFile(folder / "empty"), Bytes());
    EXPECT_TRUE(std::filesystem::is_empty(folder / "folder"));
}

TEST(FileEdit, AFileThatWasCutBeforeItsExtendedRecordsIsNotAppendedTo) {
    // It opens: the component record at its end is cut and counts for none. Bytes behind it would complete
    // it.
    const TempFolder folder;
    const std::wstring path = Wide(folder / "cut.qsn");
    Bytes bytes = kxtest::TinyScan().Build();
    bytes.resize(kxtest::GetMainField(bytes, kxtest::MainField::FirstExtendedHeader) - 15);
    kxtest::StoreFile(path, bytes);
    const std::vector<std::function<void()>> appends{
        [&] { kxio::QSNInfo::AddMessage(path, L"text"); },
        [&] { kxio::QSNInfo::AddHDRLink(path, kxbase::UUID::Generate()); },
        [&] { kxio::SetThumbnail(path, SmallImage()); },
    };
    for (const auto& append : appends) {
        EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(append), "File is damaged");
        EXPECT_EQ(kxtest::LoadFile(folder / "cut.qsn"), bytes);
        EXPECT_NO_THROW(kxio::QSNScanReader reader(path));
    }
}

TEST(FileEdit, AFileThatOpensStillOpensAfterAnAppendWhereverItWasCut) {
    // Also where the position of the extended records is damaged and does not tell of the cut.
    const TempFolder folder;
    const std::wstring path = Wide(folder / "cut.qsn");
    const auto opens = [&] {
        try {
            const kxio::QSNScanReader reader(path, 0);
            return true;
        } catch (const kxbase::KXException&) {
            return false;
        }
    };
    const Bytes whole = kxtest::TinyScan().Build();
    const Bytes jpeg = SmallImage();
    const size_t step = kxtest::Trials<size_t>(11, 1);
    size_t refused = 0, appended = 0;
    for (const uint64_t claimed :
         {kxtest::GetMainField(whole, kxtest::MainField::FirstExtendedHeader), uint64_t{0}, uint64_t{100}}) {
        for (size_t size = kxio::MainFileHeader::RecordSize; size <= whole.size(); size += step) {
            Bytes bytes = whole;
            kxtest::SetMainField(bytes, kxtest::MainField::FirstExtendedHeader, claimed);
            bytes.resize(size);
            for (const bool thumbnail : {false, true}) {
                kxtest::StoreFile(path, bytes);
                if (!opens()) continue;
                try {
                    if (thumbnail) {
                        kxio::SetThumbnail(path, jpeg);
                    } else {
                        kxio::QSNInfo::AddMessage(path, L"text");
                    }
                    ++appended;
                } catch (const kxbase::KXBadInputException&) {
                    ++refused;
                    EXPECT_EQ(kxtest::LoadFile(folder / "cut.qsn"), bytes) << claimed << ' ' << size;
                }
                EXPECT_TRUE(opens()) << "position " << claimed << ", cut to " << size << ", thumbnail "
                                     << thumbnail;
            }
        }
    }
    EXPECT_GT(refused, 0U);
    EXPECT_GT(appended, 0U);
}

}  // namespace
