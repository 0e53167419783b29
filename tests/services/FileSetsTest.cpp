// SPDX-License-Identifier: MIT
// Which files beside a scan belong to it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "kxbase/UTF8.h"
#include "kxio/QSNInfo.h"
#include "support/TempFolder.h"

namespace {

using kxio::QSNInfo;
using Paths = std::list<std::wstring>;

class FileSets : public ::testing::Test {
protected:
    void Make(std::initializer_list<const char*> names) {
        for (const char* name : names)
            std::ofstream(m_folder.Path() / std::filesystem::u8path(name)) << "x";
    }
    std::wstring At(const wchar_t* name) const {
        return kxbase::Decode_UTF8(m_folder.Path().string()) + L"/" + name;
    }
    Paths All(std::initializer_list<const wchar_t*> names) const {
        Paths paths;
        for (const wchar_t* name : names)
            paths.push_back(At(name));
        return paths;
    }

    TempFolder m_folder;
};

TEST_F(FileSets, DependenciesComeInPlainPathOrderWithoutTheFileItself) {
    Make({"scan.qsn", "scan.qsn1", "scan.qsn2", "scan.qsn10", "scan.jpg"});
    EXPECT_EQ(QSNInfo::GetAllDependencyFileList(At(L"scan.qsn")),
              All({L"scan.jpg", L"scan.qsn1", L"scan.qsn10", L"scan.qsn2"}));
    EXPECT_EQ(QSNInfo::GetQSNtoMergeList(At(L"scan.qsn")), All({L"scan.qsn1", L"scan.qsn10", L"scan.qsn2"}));
    EXPECT_TRUE(QSNInfo::IsMergeNeeded(At(L"scan.qsn")));
}

TEST_F(FileSets, TheMainFileLeadsWhenAPartIsAskedFor) {
    Make({"scan.qsn", "scan.qsn1", "scan.qsn2", "scan.abc"});
    EXPECT_EQ(QSNInfo::GetAllDependencyFileList(At(L"scan.qsn1")),
              All({L"scan.qsn", L"scan.abc", L"scan.qsn2"}));
    EXPECT_EQ(QSNInfo::GetQSNtoMergeList(At(L"scan.qsn1")), All({L"scan.qsn", L"scan.qsn2"}));
}

TEST_F(FileSets, StemsMustBeEqualAndNotShareAPrefixOnly) {
    Make({"scan.qsn", "scanA.qsn1", "sca.qsn1", "scan.more.qsn1"});
    EXPECT_TRUE(QSNInfo::GetAllDependencyFileList(At(L"scan.qsn")).empty());
}

TEST_F(FileSets, StemsThatDifferInCaseDoNotMatch) {
    Make({"scan.qsn", "Scan.qsn1"});
    EXPECT_TRUE(QSNInfo::GetAllDependencyFileList(At(L"scan.qsn")).empty());
}

TEST_F(FileSets, AnExtensionMustMatchAsAWholeToBeAPart) {
    Make({"scan.qsn", "scan.qsn1a", "scan.qsn1"});
    EXPECT_EQ(QSNInfo::GetAllDependencyFileList(At(L"scan.qsn")), All({L"scan.qsn1", L"scan.qsn1a"}));
    EXPECT_EQ(QSNInfo::GetQSNtoMergeList(At(L"scan.qsn")), All({L"scan.qsn1"}));
}

TEST_F(FileSets, AScanWithoutCompanionsNeedsNoMerge) {
    Make({"scan.qsn", "other.qsn1"});
    EXPECT_TRUE(QSNInfo::GetAllDependencyFileList(At(L"scan.qsn")).empty());
    EXPECT_TRUE(QSNInfo::GetQSNtoMergeList(At(L"scan.qsn")).empty());
    EXPECT_FALSE(QSNInfo::IsMergeNeeded(At(L"scan.qsn")));
}

TEST_F(FileSets, DirectoriesAreListedLikeFiles) {
    Make({"scan.qsn"});
    std::filesystem::create_directory(m_folder.Path() / "scan.qsn7");
    EXPECT_EQ(QSNInfo::GetQSNtoMergeList(At(L"scan.qsn")), All({L"scan.qsn7"}));
}

TEST_F(FileSets, TheGivenFileNeedNotExist) {
    Make({"scan.qsn1"});
    EXPECT_EQ(QSNInfo::GetQSNtoMergeList(At(L"scan.qsn")), All({L"scan.qsn1"}));
}

TEST_F(FileSets, AMissingDirectoryIsTheFileSystemsError) {
    EXPECT_THROW(QSNInfo::GetAllDependencyFileList(At(L"none/scan.qsn")), std::filesystem::filesystem_error);
}

TEST_F(FileSets, NamesWithALeadingDotOnlyHaveNoExtension) {
    Make({".qsn", ".qsn.qsn1", "plain"});
    EXPECT_EQ(QSNInfo::GetAllDependencyFileList(At(L".qsn")), All({L".qsn.qsn1"}));
    EXPECT_TRUE(QSNInfo::GetAllDependencyFileList(At(L"plain")).empty());
}

TEST_F(FileSets, BackslashesSeparateToo) {
    std::filesystem::create_directory(m_folder.Path() / "in");
    Make({"in/scan.qsn", "in/scan.qsn1"});
    const std::wstring folder = kxbase::Decode_UTF8(m_folder.Path().string());
    EXPECT_EQ(QSNInfo::GetAllDependencyFileList(folder + L"\\in\\scan.qsn"),
              Paths{folder + L"\\in\\scan.qsn1"});
}

TEST_F(FileSets, ABareNameIsLookedUpInTheCurrentFolderAndGivesBareNames) {
    Make({"scan.qsn", "scan.qsn1"});
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_folder.Path());
    const Paths list = QSNInfo::GetAllDependencyFileList(L"scan.qsn");
    std::filesystem::current_path(before);
    EXPECT_EQ(list, Paths{L"scan.qsn1"});
}

TEST_F(FileSets, NamesBeyondAsciiAreCompared) {
    Make({"Gebäude-七.qsn", "Gebäude-七.qsn3", "Gebaude-七.qsn1"});
    EXPECT_EQ(QSNInfo::GetQSNtoMergeList(At(L"Geb\u00e4ude-\u4e03.qsn")), All({L"Geb\u00e4ude-\u4e03.qsn3"}));
}

}  // namespace
