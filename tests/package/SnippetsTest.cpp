// SPDX-License-Identifier: MIT
// Every piece of C++ in a document stands, line for line, in the example program that the comment above it
// names. The examples are compiled and run, so what the documents show works.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

std::string Trimmed(const std::string& line) {
    const size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    return line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
}

Lines TrimmedLines(const fs::path& path) {
    std::ifstream in(path);
    EXPECT_TRUE(in.good()) << path;
    Lines lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(Trimmed(line));
    return lines;
}

Lines WithoutBlanks(Lines lines) {
    std::erase(lines, "");
    return lines;
}

struct Snippet {
    fs::path document;
    size_t line = 0;      // of the fence, from 1
    std::string example;  // as the comment names it; empty without one
    Lines code;
};

// "<!-- examples/NAME.cpp ... -->" names an example.
std::string ExampleOf(const std::string& comment) {
    const std::string start = "<!-- examples/";
    if (!comment.starts_with(start)) return {};
    const size_t end = comment.find(".cpp");
    return end == std::string::npos ? "" : comment.substr(5, end + 4 - 5);
}

std::vector<Snippet> SnippetsOf(const fs::path& document) {
    std::vector<Snippet> snippets;
    std::string previous;
    bool inside = false;
    const Lines lines = TrimmedLines(document);
    for (size_t i = 0; i < lines.size(); ++i) {
        if (inside) {
            inside = lines[i] != "```";
            if (inside) snippets.back().code.push_back(lines[i]);
        } else if (lines[i] == "```cpp") {
            inside = true;
            snippets.push_back({document, i + 1, ExampleOf(previous), {}});
        }
        if (!lines[i].empty()) previous = lines[i];
    }
    EXPECT_FALSE(inside) << document << ": the last block is not closed";
    return snippets;
}

std::vector<Snippet> AllSnippets() {
    const fs::path source = KXIO_SOURCE_DIR;
    std::vector<Snippet> all = SnippetsOf(source / "README.md");
    for (const auto& entry : fs::directory_iterator(source / "docs")) {
        if (entry.path().extension() != ".md") continue;
        for (Snippet& snippet : SnippetsOf(entry.path()))
            all.push_back(std::move(snippet));
    }
    return all;
}

bool Holds(const Lines& program, const Lines& code) {
    return std::search(program.begin(), program.end(), code.begin(), code.end()) != program.end();
}

TEST(Snippets, StandInTheExampleThatTheyName) {
    size_t count = 0;
    for (const Snippet& snippet : AllSnippets()) {
        SCOPED_TRACE(snippet.document.string() + ":" + std::to_string(snippet.line));
        ASSERT_FALSE(snippet.example.empty()) << "no comment <!-- examples/NAME.cpp --> above it";
        const Lines code = WithoutBlanks(snippet.code);
        ASSERT_FALSE(code.empty());
        const Lines program = WithoutBlanks(TrimmedLines(fs::path(KXIO_SOURCE_DIR) / snippet.example));
        EXPECT_TRUE(Holds(program, code)) << "is not in " << snippet.example;
        ++count;
    }
    EXPECT_GE(count, 10U);
}

TEST(Snippets, ChangedLinesAndLinesLeftOutAreNoticed) {
    const Lines program = {"int a = 1;", "int b = 2;", "int c = 3;"};
    EXPECT_TRUE(Holds(program, {"int b = 2;", "int c = 3;"}));
    EXPECT_FALSE(Holds(program, {"int b = 3;"}));
    EXPECT_FALSE(Holds(program, {"int a = 1;", "int c = 3;"}));
}

TEST(Snippets, EveryExampleIsNamedByADocument) {
    const fs::path source = KXIO_SOURCE_DIR;
    std::string text;
    std::vector<fs::path> documents = {source / "README.md"};
    for (const auto& entry : fs::directory_iterator(source / "docs"))
        if (entry.path().extension() == ".md") documents.push_back(entry.path());
    for (const fs::path& document : documents)
        for (const std::string& line : TrimmedLines(document))
            text += line + "\n";
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator(source / "examples")) {
        if (entry.path().extension() != ".cpp") continue;
        ++count;
        EXPECT_NE(text.find("examples/" + entry.path().filename().string()), std::string::npos)
            << entry.path();
    }
    EXPECT_GE(count, 5U);
}

}  // namespace
