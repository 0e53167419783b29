// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "DocumentedKeys.h"
#include "ImportedScan.h"
#include "SampleRegistration.h"

namespace qsn {
namespace {

using Json = nlohmann::json;
using Arguments = std::vector<std::string>;

constexpr const char* kIdentifier = "01234567-89ab-cdef-0123-456789abcdef";
/// Umlauts, Chinese, and a character beyond 16 bits.
const std::string kAnyScript = "R\xc3\xa4ume \xe7\x82\xb9\xe7\xbe\xa4 \xf0\x9f\x93\xa1";

uint64_t ReadU64(const std::string& bytes, size_t offset) {
    uint64_t value = 0;
    for (size_t i = 8; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes.at(offset + i));
    return value;
}

class Edit : public ImportedScan {
protected:
    void SetUp() override {
        Import(MakeSmallPtx(), {"--no-hashes"});
        m_before = m_folder.Read("scan.qsn");
        m_messages = Info()["messages"];
    }
    /// The messages of the import, and these behind them.
    Json MessagesAnd(const std::vector<std::string>& more) const {
        Json all = m_messages;
        for (const std::string& text : more)
            all.push_back(text);
        return all;
    }
    Json Info() const { return OutputJson({"info", "scan.qsn"}); }
    /// First byte of the scan header's record.
    size_t ScanHeader() const { return ReadU64(m_before, 16); }
    /// Offsets at which the file differs from what it was; it must be as long.
    std::vector<size_t> ChangedBytes() const {
        const std::string after = m_folder.Read("scan.qsn");
        EXPECT_EQ(after.size(), m_before.size());
        std::vector<size_t> changed;
        for (size_t i = 0; i < std::min(after.size(), m_before.size()); ++i) {
            if (after[i] != m_before[i]) changed.push_back(i);
        }
        return changed;
    }
    void ExpectUnchanged(const char* why) const { EXPECT_TRUE(m_folder.Read("scan.qsn") == m_before) << why; }
    /// The version of the scan header's record becomes another one.
    void SetScanHeaderVersion(unsigned char low) {
        m_before[ScanHeader() + 8] = static_cast<char>(low);
        m_before[ScanHeader() + 9] = 0;
        m_folder.Write("scan.qsn", m_before);
    }

    std::string m_before;
    Json m_messages;
};

TEST_F(Edit, TextsAndLinksAreAppendedInOrderAndTheOldBytesStay) {
    const ProgramResult result =
        Run({"edit", "scan.qsn", "--message", kAnyScript, "--warning", "-1 is no height", "--message=second",
             "--hq-link", kIdentifier, "--er-link", kIdentifier, "--hdr-link", kIdentifier});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("scan.qsn: appended the message \"" + kAnyScript + "\"\n"), std::string::npos)
        << result.err;
    EXPECT_TRUE(m_folder.Read("scan.qsn").starts_with(m_before));
    const Json info = Info();
    EXPECT_EQ(info["messages"], MessagesAnd({kAnyScript, "second"}));
    EXPECT_EQ(info["warnings"], Json::array({"-1 is no height"}));
    for (const char* kind : {"hq", "er", "hdr"})
        EXPECT_EQ(info["links"][kind], Json::array({kIdentifier})) << kind;
    // What came before still is there.
    EXPECT_EQ(info["components"][4]["histogram"], true);
}

TEST_F(Edit, TheSameTextTwiceIsThereTwice) {
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(Run({"edit", "-q", "--message", "again", "scan.qsn"}).err, "");
    EXPECT_EQ(Info()["messages"], MessagesAnd({"again", "again"}));
}

TEST_F(Edit, LongTextsAreKeptWhole) {
    std::string text;
    for (int i = 0; i < 4000; ++i)
        text += kAnyScript;
    EXPECT_EQ(Run({"edit", "--message", text, "scan.qsn"}).exitCode, 0);
    EXPECT_EQ(Info()["messages"], MessagesAnd({text}));
}

TEST_F(Edit, RegistrationComesBackToTheLastBitAndChangesItsBytesOnly) {
    const std::array<double, 12> values = TurnedAndMoved();
    const std::string text = RegistrationOption(values);
    const ProgramResult result = Run({"edit", "--registration", text, "scan.qsn"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.err.find("the registration is 1,0,0,0,1,0,0,0,1,10,20,3\n"), std::string::npos)
        << result.err;

    const std::vector<size_t> changed = ChangedBytes();
    ASSERT_FALSE(changed.empty());
    EXPECT_GE(changed.front(), ScanHeader() + 68);
    EXPECT_LT(changed.back(), ScanHeader() + 68 + 96);
    const Json registration = Info()["registration"];
    std::array<double, 12> read{};
    size_t place = 0;
    for (const char* key : {"xAxis", "yAxis", "zAxis", "translation"}) {
        for (const Json& number : registration[key])
            read[place++] = number.get<double>();
    }
    ASSERT_EQ(place, 12U);
    EXPECT_EQ(std::memcmp(read.data(), values.data(), sizeof(read)), 0) << registration;

    // The report of the change is all that is needed to take it back.
    EXPECT_EQ(Run({"edit", "--registration", "1,0,0,0,1,0,0,0,1,10,20,3", "scan.qsn"}).exitCode, 0);
    ExpectUnchanged("the former registration again");
}

TEST_F(Edit, IdentityIsARegistrationToo) {
    EXPECT_EQ(Run({"edit", "--registration", "identity", "scan.qsn"}).exitCode, 0);
    const Json registration = Info()["registration"];
    EXPECT_EQ(registration["translation"], Json::array({0, 0, 0}));
    EXPECT_EQ(registration["yAxis"], Json::array({0, 1, 0}));
}

TEST_F(Edit, TheSpeckleFlagIsOneByte) {
    const bool before = Info()["flags"]["speckleCorrectionNeeded"].get<bool>();
    EXPECT_EQ(Run({"edit", "--speckle", before ? "off" : "on", "scan.qsn"}).exitCode, 0);
    EXPECT_EQ(ChangedBytes(), std::vector<size_t>{ScanHeader() + 16 + 148});
    EXPECT_EQ(Info()["flags"]["speckleCorrectionNeeded"], !before);
    EXPECT_EQ(Run({"edit", "--speckle", before ? "on" : "off", "scan.qsn"}).exitCode, 0);
    ExpectUnchanged("on and off");
}

TEST_F(Edit, ADryRunSaysAllAndChangesNothing) {
    const Arguments line = {"edit",      "--dry-run",  "--quiet",        "--message", "one",
                            "--warning", "two",        "--registration", "identity",  "--speckle",
                            "on",        "--hdr-link", kIdentifier,      "scan.qsn"};
    EXPECT_EQ(Output(line), std::string("scan.qsn: the registration is 1,0,0,0,1,0,0,0,1,10,20,3\n"
                                        "scan.qsn: would set the registration to 1,0,0,0,1,0,0,0,1,0,0,0\n"
                                        "scan.qsn: would set the speckle flag\n"
                                        "scan.qsn: would append the message \"one\"\n"
                                        "scan.qsn: would append the warning \"two\"\n"
                                        "scan.qsn: would append the HDR link ") +
                                kIdentifier + "\n");
    ExpectUnchanged("dry run");
}

TEST_F(Edit, JsonTellsWhatIsOrWouldBeChanged) {
    const std::string before = m_folder.Read("scan.qsn");
    const auto plan = OutputJson({"edit", "--dry-run", "--message", "one", "--speckle", "on", "scan.qsn"});
    EXPECT_TRUE(m_folder.Read("scan.qsn") == before);
    EXPECT_EQ(plan["dryRun"], true);
    const std::vector<std::string> changes{"set the speckle flag", "append the message \"one\""};
    EXPECT_EQ(plan["changes"].get<std::vector<std::string>>(), changes);
    EXPECT_EQ(plan["registrationBefore"].size(), 12U);
    const auto done = OutputJson({"edit", "--message", "one", "--speckle", "on", "scan.qsn"});
    EXPECT_EQ(done["dryRun"], false);
    EXPECT_EQ(done["changes"], plan["changes"]);
    EXPECT_FALSE(m_folder.Read("scan.qsn") == before);
    ExpectDocumentedKeys({plan, done}, "### JSON of `qsn edit`");
}

TEST_F(Edit, WrongUseIsRefusedBeforeTheFileIsTouched) {
    const std::vector<std::pair<Arguments, const char*>> cases = {
        {{}, "nothing to change"},
        {{"--dry-run"}, "nothing to change"},
        {{"--message", "--dry-run"}, "--dry-run is an option"},
        {{"--message", ""}, "empty"},
        {{"--message"}, "--message"},
        {{"--message", "fine", "--hq-link", "1234"}, "--hq-link 1234"},
        {{"--message", "fine", "--speckle", "maybe"}, "--speckle maybe"},
        {{"--message", "fine", "--registration", "1,2,3"}, "twelve numbers"},
        {{"--message", "fine", "--registration", "1,0,0,0,1,0,0,0,1,0,0,0,0"}, "twelve numbers"},
        {{"--message", "fine", "--registration", "1,0,0,0,1,0,0,0,1,0,0,nan"}, "twelve numbers"},
        {{"--message", "fine", "--registration", "1,0,0,0,1,0,0,0,1,0,0,inf"}, "twelve numbers"},
        {{"--message", "fine", "--registration", "2,0,0,0,1,0,0,0,1,0,0,0"}, "length 1"},
        {{"--message", "fine", "--registration", "1,0,0,0,1,0,0,0,-1,0,0,0"}, "right-handed"},
        {{"--message", "fine", "--registration", "0,0,0,0,0,0,0,0,0,0,0,0"}, "length 1"},
        {{"--message", "fine\xff"}, "UTF-8"},
    };
    for (const auto& [options, said] : cases) {
        Arguments line = {"edit", "scan.qsn"};
        line.insert(line.end(), options.begin(), options.end());
        ExpectFailure(line, 2, said);
        ExpectUnchanged(said);
    }
}

TEST_F(Edit, NothingIsBegunWhenOneChangeCannotBeMade) {
    SetScanHeaderVersion(210);  // has a registration, but no speckle flag
    ExpectFailure({"edit", "--message", "fine", "--speckle", "on", "scan.qsn"}, 4, "no speckle flag");
    ExpectUnchanged("no speckle flag");
    SetScanHeaderVersion(200);
    ExpectFailure({"edit", "--message", "fine", "--registration", "identity", "scan.qsn"}, 4,
                  "no registration");
    ExpectUnchanged("no registration");
    ExpectFailure({"edit", "--message", "fine", "missing.qsn"}, 3, "missing.qsn");
    EXPECT_FALSE(m_folder.Has("missing.qsn"));
}

TEST_F(Edit, TextsThatNobodyWouldFindAreNotWritten) {
    m_before += "a partial record";
    m_folder.Write("scan.qsn", m_before);
    ExpectFailure({"edit", "--message", "lost", "scan.qsn"}, 5, "nobody would find");
    ExpectUnchanged("bytes behind the records");
    EXPECT_EQ(Run({"edit", "--registration", "identity", "scan.qsn"}).exitCode, 0);

    for (size_t i = 0; i < 8; ++i)
        m_before[16 + 24 + i] = 0;  // no first extended record
    m_folder.Write("scan.qsn", m_before);
    ExpectFailure({"edit", "--warning", "lost", "scan.qsn"}, 4, "no chain");
    ExpectUnchanged("no records");
}

TEST_F(Edit, AFileThatMayNotBeWrittenIsRefused) {
    const std::filesystem::path path = m_folder.Path() / "scan.qsn";
    std::filesystem::permissions(path, std::filesystem::perms::owner_read);
    if (std::ofstream(path, std::ios::in).is_open()) GTEST_SKIP() << "this user may write any file";
    ExpectFailure({"edit", "--dry-run", "--message", "fine", "scan.qsn"}, 7,
                  "scan.qsn: it cannot be opened for writing");
}

TEST_F(Edit, NamesInEveryScriptWork) {
    const std::string name = kAnyScript + ".qsn";
    std::filesystem::rename(m_folder.Path() / "scan.qsn", m_folder.Path() / name);
    const ProgramResult result =
        RunQsn({"edit", "--message", kAnyScript, name}, {m_folder.Path(), {{"LC_ALL", "C"}}, false});
    EXPECT_EQ(result.err, name + ": appended the message \"" + kAnyScript + "\"\n");
    EXPECT_EQ(OutputJson({"info", name})["messages"], MessagesAnd({kAnyScript}));
}

}  // namespace
}  // namespace qsn
