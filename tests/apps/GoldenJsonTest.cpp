// SPDX-License-Identifier: MIT
// What --json writes about one small file, letter by letter. A difference means that programs that read it
// may break: raise the schema's version, or keep the keys.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "../format/SmallFile.h"
#include "ImportedScan.h"

namespace qsn {
namespace {

/// The small file of the format's description, and the same with one letter of its message and one range
/// changed.
class GoldenJson : public ImportedScan {
protected:
    void SetUp() override {
        const kxtest::Bytes bytes = kxtest::SmallFile();
        const std::string text(bytes.begin(), bytes.end());
        m_folder.Write("small.qsn", text);
        std::string changed = text;
        changed.replace(changed.find("small"), 5, "smell");
        changed.at(154) = 0x45;  // the first range: 8005 eighths of a millimetre
        m_folder.Write("changed.qsn", changed);
        changed.at(124) = 'X';  // the codec of the first chunk
        m_folder.Write("damaged.qsn", changed.substr(0, changed.size() - 10));
    }
    void ExpectGolden(const std::vector<std::string>& line, int exitCode, const std::string& name) const {
        const ProgramResult result = Run(line);
        EXPECT_EQ(result.exitCode, exitCode) << result.err;
        const std::string path = std::string(KXIO_SOURCE_DIR "/tests/golden/json/") + name;
        if (std::getenv("KXIO_WRITE_GOLDEN") != nullptr) std::ofstream(path, std::ios::binary) << result.out;
        std::ifstream in(path, std::ios::binary);
        ASSERT_TRUE(in.good()) << path;
        const std::string golden((std::istreambuf_iterator<char>(in)), {});
        EXPECT_EQ(result.out, golden) << name;
    }
};

TEST_F(GoldenJson, Info) {
    ExpectGolden({"info", "--json", "small.qsn"}, 0, "info.json");
}
TEST_F(GoldenJson, VerifyOfAWholeFile) {
    ExpectGolden({"verify", "--deep", "--json", "small.qsn"}, 0, "verify.json");
}
TEST_F(GoldenJson, VerifyOfADamagedFile) {
    ExpectGolden({"verify", "--deep", "--json", "damaged.qsn"}, 1, "verify-damaged.json");
}
TEST_F(GoldenJson, Diff) {
    ExpectGolden({"diff", "--json", "small.qsn", "changed.qsn"}, 1, "diff.json");
}
TEST_F(GoldenJson, Dump) {
    ExpectGolden({"dump", "--json", "small.qsn"}, 0, "dump.json");
}
TEST_F(GoldenJson, DumpOfADamagedFile) {
    ExpectGolden({"dump", "--json", "damaged.qsn"}, 0, "dump-damaged.json");
}

}  // namespace
}  // namespace qsn
