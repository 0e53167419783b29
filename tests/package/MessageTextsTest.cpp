// SPDX-License-Identifier: MIT
// Every text that the libraries (base, codecs, io, exchange) say to a caller, and every failure that the
// command tells, is expected by some test. Texts are found in the sources by their looks: the first argument
// of an exception, and in the libraries also what begins like a sentence. A test expects one when a string of
// its own holds it; of a text with places for values, the longest stretch between them.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// The code of a file: comments and lines of the preprocessor are gone, and strings that stand beside each
/// other are one.
std::string CodeOf(const std::string& text) {
    static const std::regex comments(R"((^|[^:"])//[^\n]*|(^|\n)\s*#[^\n]*)");
    static const std::regex seams(R"("\s*\n\s*(u8|L)?")");
    return std::regex_replace(std::regex_replace(text, comments, "$1"), seams, "");
}

std::set<std::string> TextsIn(const std::string& code) {
    static const std::regex looks(R"re((?:Exception(?:\s+\w+)?\s*[({]\s*"((?:[^"\\\n]|\\.)+)"))re"
                                  R"re(|"([A-Z](?:[^"\\\n]|\\.)* (?:[^"\\\n]|\\.)*)")re");
    std::set<std::string> texts;
    for (std::sregex_iterator at(code.begin(), code.end(), looks), end; at != end; ++at)
        texts.insert((*at)[1].matched ? (*at)[1].str() : (*at)[2].str());
    return texts;
}

/// What the command throws: its texts begin with a name as often as not.
std::set<std::string> FailuresIn(const std::string& code) {
    static const std::regex looks(R"re((?:Exception|UsageError|Failure)(?:\s+\w+)?\s*[({]\s*)re"
                                  R"re((?:\w+\s*\+\s*)?(?:fmt::format\(\s*)?"((?:[^"\\\n]|\\.)+)")re");
    std::set<std::string> texts;
    for (std::sregex_iterator at(code.begin(), code.end(), looks), end; at != end; ++at)
        texts.insert((*at)[1].str());
    return texts;
}

/// The longest stretch without a place for a value.
std::string LongestStretch(const std::string& text) {
    static const std::regex place(R"(\{[^}]*\})");
    std::string longest;
    for (std::sregex_token_iterator at(text.begin(), text.end(), place, -1), end; at != end; ++at)
        if (static_cast<size_t>(at->length()) > longest.size()) longest = at->str();
    return longest;
}

std::vector<std::string> StringsIn(const std::string& code) {
    static const std::regex string(R"re("((?:[^"\\\n]|\\.)*)")re");
    std::vector<std::string> strings;
    for (std::sregex_iterator at(code.begin(), code.end(), string), end; at != end; ++at)
        strings.push_back((*at)[1].str());
    return strings;
}

std::string Load(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

template <class Use>
void ForEachSource(const char* folder, const Use& use) {
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(KXIO_SOURCE_DIR) / folder)) {
        const fs::path& path = entry.path();
        if (path.extension() != ".cpp" && path.extension() != ".h") continue;
        const std::string name = fs::relative(path, KXIO_SOURCE_DIR).generic_string();
        use(name, CodeOf(Load(path)));
    }
}

bool OfTests(const std::string& name) {
    return name.starts_with("tests/") || name.find("/tests/") != std::string::npos;
}

/// Texts that no test can meet, each with the reason.
const std::map<std::string, const char*>& Unreachable() {
    static const std::map<std::string, const char*> texts{
        {"Patch row too large", "takes patches that decode to more than a gibibyte"},
        {"--limit-memory: this system cannot limit memory", "takes a system that sets programs no limits"},
        {": cannot be read", "takes an image file that is cut while it is read"},
    };
    return texts;
}

TEST(MessageTexts, EveryOneIsExpectedBySomeTest) {
    std::map<std::string, std::string> texts;  // and the file where each stands
    std::vector<std::string> expected;
    size_t ofTheCommand = 0;
    for (const char* folder :
         {"include", "src", "libs/kxbase", "libs/kxcodecs", "libs/kxexchange", "apps", "tests"}) {
        ForEachSource(folder, [&](const std::string& name, const std::string& code) {
            if (name == "tests/package/MessageTextsTest.cpp") return;
            if (OfTests(name)) {
                const std::vector<std::string> strings = StringsIn(code);
                expected.insert(expected.end(), strings.begin(), strings.end());
                return;
            }
            const bool command = name.starts_with("apps/");
            for (const std::string& text : command ? FailuresIn(code) : TextsIn(code))
                ofTheCommand += texts.emplace(text, name).second && command ? 1 : 0;
        });
    }
    ASSERT_GT(texts.size() - ofTheCommand, 130u) << "the search itself is broken";
    ASSERT_GT(ofTheCommand, 80u) << "the search itself is broken";
    for (const auto& [text, file] : texts) {
        const std::string stretch = file.starts_with("apps/") ? LongestStretch(text) : text;
        bool found = false;
        for (const std::string& one : expected)
            found = found || one.find(stretch) != std::string::npos;
        if (Unreachable().contains(text)) {
            EXPECT_FALSE(found) << text << " is expected by a test, and need not be listed";
        } else {
            EXPECT_TRUE(found) << "no test expects \"" << stretch << "\" of " << file;
        }
    }
    for (const auto& [text, reason] : Unreachable())
        EXPECT_TRUE(texts.contains(text)) << text << " is listed, but no source says it";
}

TEST(MessageTexts, AreFoundByTheirLooks) {
    EXPECT_EQ(TextsIn(CodeOf("throw kxbase::KXBadInputException(\n    \"tiny\", {});")),
              std::set<std::string>{"tiny"});
    EXPECT_EQ(TextsIn(CodeOf("KXWritingException error{\"Cannot \"\n  \"write\"};")),
              std::set<std::string>{"Cannot write"});
    EXPECT_EQ(TextsIn(CodeOf("Refuse(\"Unsupported Chunk version\");")),
              std::set<std::string>{"Unsupported Chunk version"});
    EXPECT_EQ(FailuresIn(CodeOf("throw UsageError(\n    fmt::format(\"--size {}: too {}\", size, how));")),
              std::set<std::string>{"--size {}: too {}"});
    EXPECT_EQ(FailuresIn(CodeOf("throw Failure(m_input + \": is damaged\", ExitDamaged);")),
              std::set<std::string>{": is damaged"});
    EXPECT_EQ(LongestStretch("{}: the grid has {:.3f} rows"), ": the grid has ");
    EXPECT_TRUE(TextsIn(CodeOf("in.U32(\"JPEG\"); // \"No such thing\"\n#include \"A b\"\n")).empty());
}

}  // namespace
