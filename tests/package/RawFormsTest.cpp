// SPDX-License-Identifier: MIT
// Bytes from outside become fields through the cursor, and sizes from outside are multiplied by the checked
// product. The forms that get around both are found by their looks here. A few places need them; each is
// listed with its reason, and with their number, so that one more there is noticed too.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

enum class Form {
    Copy,        // memory copied over an object, whatever its layout
    Cast,        // bytes called something else
    Product,     // sizes multiplied without a check, for memory, for the cursor or with three factors
    Assembling,  // integers put together from bytes by hand
    RawRead,     // a file read past the streams
};

struct Rule {
    Form form;
    const char* name;
    std::regex look;
};

const std::vector<Rule>& Rules() {
    static const std::vector<Rule> rules{
        {Form::Copy, "copy", std::regex(R"(\bmem(cpy|move)\s*\()")},
        {Form::Cast, "cast", std::regex(R"(\breinterpret_cast\s*<)")},
        {Form::Product, "product",
         std::regex(R"([\w\])}] \* [\w.(){}:>\[\]-]+ \* [\w(])"
                    R"(|\b(resize|reserve|assign|Take|Skip|RequireElements)\([^;]* \* )"
                    R"(|\bstd::vector<[\w: <>*]+> \w+\([^;]* \* )"
                    R"(|\bnew [\w:() ]+\[[^\]]* \* )")},
        {Form::Assembling, "assembling", std::regex(R"([A-Za-z_\])] ?<< ?(8|16|24)\b)")},
        {Form::RawRead, "raw read",
         std::regex(R"(\b(fread|fopen|pread|mmap)\s*\(|\bi?fstream\b|::read\s*\()")},
    };
    return rules;
}

std::string WithoutComment(const std::string& line) {
    return line.substr(0, line.find("//"));
}

// The rules that a line of code breaks.
std::vector<std::string> Broken(const std::string& line) {
    std::vector<std::string> names;
    const std::string code = WithoutComment(line);
    for (const Rule& rule : Rules()) {
        if (std::regex_search(code, rule.look)) names.emplace_back(rule.name);
    }
    return names;
}

struct Allowance {
    int count;
    const char* reason;
};

// File and rule.
const std::map<std::pair<std::string, std::string>, Allowance>& Allowed() {
    static const std::map<std::pair<std::string, std::string>, Allowance> places{
        // The cursor, its mirror and the streams themselves: behind their checks.
        {{"libs/kxbase/src/ByteReader.cpp", "copy"}, {1, "the cursor"}},
        {{"libs/kxbase/src/ByteWriter.cpp", "copy"}, {2, "the cursor's mirror"}},
        {{"libs/kxbase/src/InMemoryStream.cpp", "copy"}, {2, "a stream"}},
        {{"src/reader/PositionedInput.cpp", "copy"}, {1, "a stream"}},
        {{"libs/kxbase/src/FileHandlePosix.cpp", "raw read"}, {1, "the system's file"}},
        {{"libs/kxbase/src/FileHandleWindows.cpp", "cast"}, {2, "the system's handle is a number"}},
        {{"libs/kxbase/src/UUID.cpp", "copy"}, {1, "sixteen bytes into sixteen"}},
        // Other libraries' interfaces.
        {{"libs/kxcodecs/src/JPEGImage.cpp", "cast"}, {3, "the JPEG library's base structures"}},
        {{"libs/kxcodecs/src/SnappyChunkCodec.cpp", "cast"}, {2, "the library takes char"}},
        // Elements of arrays whose size was checked as a whole, for speed.
        {{"libs/kxcodecs/src/Quantise.cpp", "copy"}, {4, "elements of a checked array"}},
        {{"libs/kxcodecs/src/ByteFilter.cpp", "assembling"}, {1, "a hash of the encoder"}},
        {{"libs/kxcodecs/src/ColorChunkCodec.cpp", "assembling"}, {2, "the first word of what is written"}},
        {{"libs/kxcodecs/src/ColorPlanes.cpp", "assembling"}, {1, "costs, not sizes"}},
        {{"libs/kxcodecs/src/grid/GridCheck.cpp", "assembling"}, {2, "words of a checked array"}},
        {{"libs/kxcodecs/src/grid/GridPacking.cpp", "copy"}, {4, "units whose bytes the caller counted"}},
        {{"libs/kxcodecs/src/grid/GridPacking.cpp", "product"}, {5, "bits of units that the caller counted"}},
        {{"libs/kxcodecs/src/grid/GridPayload.cpp", "assembling"}, {1, "words of a checked array"}},
        {{"libs/kxcodecs/src/grid/GridPayload.cpp", "product"}, {1, "the encoder's own values"}},
        {{"libs/kxcodecs/src/grid/GridPlan.cpp", "product"}, {2, "the encoder's own values"}},
        {{"libs/kxcodecs/src/grid/GridPlane.cpp", "assembling"}, {1, "masks of the encoder"}},
        {{"libs/kxcodecs/src/grid/GridPlane.cpp", "product"}, {6, "the encoder's own values"}},
        {{"libs/kxcodecs/src/grid/GridResiduals.cpp", "product"}, {1, "costs, not sizes"}},
        {{"libs/kxcodecs/src/grid/GridSettle.cpp", "product"}, {1, "the encoder's own values"}},
        {{"libs/kxcodecs/src/grid/GridSource.cpp", "copy"}, {2, "the encoder's own values"}},
        {{"libs/kxcodecs/src/grid/GridSource.cpp", "product"}, {3, "the encoder's own values"}},
        {{"libs/kxcodecs/src/grid/GridStore.cpp", "cast"}, {5, "rows of numbers seen as bytes"}},
        {{"libs/kxcodecs/src/grid/GridStore.cpp", "copy"}, {4, "values into a checked output"}},
        {{"libs/kxcodecs/src/grid/GridVoids.cpp", "product"}, {3, "the encoder's own values"}},
        {{"libs/kxcodecs/src/ZLibPieces.cpp", "assembling"}, {1, "the halves of a checksum"}},
        {{"src/reader/Patch3D.cpp", "copy"}, {3, "elements of a decoded patch"}},
        {{"src/reader/ReaderLayer.cpp", "copy"}, {1, "rows of a patch into a layer"}},
        {{"src/reader/ReaderPatches.cpp", "copy"}, {1, "a decoded patch into the caller's memory"}},
        {{"src/reader/ScanAccess.cpp", "copy"}, {2, "rows of a decoded patch"}},
        {{"src/services/PatchCells.cpp", "copy"}, {1, "an element of a decoded patch"}},
        {{"src/services/PreviewComparison.cpp", "cast"}, {1, "numbers made here, seen as bytes"}},
        {{"src/services/PreviewComparison.cpp", "copy"}, {5, "elements of decoded previews"}},
        {{"src/services/QSNFileRecovery.cpp", "copy"}, {1, "an element of a decoded patch"}},
        {{"src/services/ScanRebuildWriting.cpp", "copy"}, {1, "an element of a decoded patch"}},
        {{"src/services/ScanStatistics.cpp", "copy"}, {1, "an element of a decoded patch"}},
        {{"src/services/DumpRecords.cpp", "assembling"}, {1, "a field that the cursor took, to be shown"}},
        // Numbers that are no sizes.
        {{"libs/kxbase/src/Date.cpp", "product"}, {1, "minutes"}},
        {{"libs/kxbase/src/GridTopology.cpp", "product"}, {1, "double precision"}},
        {{"src/services/PreviewComparison.cpp", "product"}, {1, "double precision"}},
        {{"src/services/VerifyHeaders.cpp", "product"}, {1, "double precision"}},
    };
    return places;
}

const std::vector<std::string>& Folders() {
    static const std::vector<std::string> folders{"libs/kxbase/src", "libs/kxcodecs/src", "src/format",
                                                  "src/reader", "src/services"};
    return folders;
}

TEST(RawForms, AreNotInDecodingCodeButWhereTheyAreListedWithAReason) {
    std::map<std::pair<std::string, std::string>, std::vector<std::string>> found;
    int lines = 0;
    const fs::path root = KXIO_SOURCE_DIR;
    for (const std::string& folder : Folders()) {
        for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
            const std::string kind = entry.path().extension().string();
            if (kind != ".cpp" && kind != ".h") continue;
            std::ifstream in(entry.path());
            ASSERT_TRUE(in.good()) << entry.path();
            const std::string file = fs::relative(entry.path(), root).generic_string();
            int number = 0;
            for (std::string line; std::getline(in, line); ++lines) {
                ++number;
                for (const std::string& rule : Broken(line))
                    found[{file, rule}].push_back("  line " + std::to_string(number) + ": " + line + "\n");
            }
        }
    }
    ASSERT_GT(lines, 10000) << "the search itself is broken";
    for (const auto& [place, hits] : found) {
        const auto allowed = Allowed().find(place);
        const int most = allowed == Allowed().end() ? 0 : allowed->second.count;
        std::string listed;
        for (const std::string& hit : hits)
            listed += hit;
        EXPECT_EQ(static_cast<int>(hits.size()), most)
            << place.first << ": " << place.second << "\n"
            << listed << "Use ByteReader, SizeProduct or a stream, or give the reason why not in this test.";
    }
    for (const auto& [place, allowance] : Allowed())
        EXPECT_TRUE(found.contains(place)) << place.first << " needs no leave for '" << place.second << "'";
}

TEST(RawForms, EachRuleFindsABadLineAndPassesAGoodOne) {
    using Names = std::vector<std::string>;
    const std::vector<std::pair<std::string, Names>> lines{
        {"    std::memcpy(&header, bytes.data(), sizeof header);", {"copy"}},
        {"    memmove(to, from, count);", {"copy"}},
        {"    const auto* record = reinterpret_cast<const Record*>(bytes.data());", {"cast"}},
        {"    values.resize(rows * columns);", {"product"}},
        {"    std::vector<unsigned char> pixels(width * height);", {"product"}},
        {"    const uint64_t bytes = uint64_t{rows} * columns * elementBytes;", {"product"}},
        {"    auto* p = new unsigned char[width * height];", {"product"}},
        {"    in.Skip(count * kEntryBytes, \"entries\");", {"product"}},
        {"    const uint32_t size = bytes[0] | bytes[1] << 8;", {"assembling"}},
        {"    std::ifstream in(path);", {"raw read"}},
        {"    const auto got = ::read(fd, buffer, count);", {"raw read"}},
        {"    // a memcpy( would do", {}},
        {"    values.resize(kxbase::SizeProduct(rows, columns));", {}},
        {"    const uint32_t size = in.U32(\"size\");", {}},
        {"    const double angle = start + column * step;", {}},
        {"    unsigned char* bytes = buffer.data();", {}},
    };
    for (const auto& [line, rules] : lines)
        EXPECT_EQ(Broken(line), rules) << line;
}

}  // namespace
