// SPDX-License-Identifier: MIT
// The small file of docs/format.md: what the page lists is what is written and what reads.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "SmallFile.h"
#include "kxio/QSNScanReader.h"

namespace {

using kxtest::Bytes;

// The last fenced block of the page, which is the listing.
std::string Listing() {
    std::ifstream file(std::string(KXIO_SOURCE_DIR) + "/docs/format.md", std::ios::binary);
    const std::string page(std::istreambuf_iterator<char>(file), {});
    const size_t heading = page.find("## One small file, byte by byte");
    if (heading == std::string::npos) return {};
    const size_t begin = page.find("```\n", heading);
    const size_t end = page.find("\n```", begin + 4);
    return begin == std::string::npos || end == std::string::npos ? ""
                                                                  : page.substr(begin + 4, end - begin - 3);
}

TEST(SmallFile, IsWrittenAsThePageListsIt) {
    const Bytes written = kxtest::SmallFile();
    const Bytes listed = kxtest::Hex(Listing());
    ASSERT_EQ(listed.size(), written.size());
    for (size_t i = 0; i < listed.size(); ++i)
        ASSERT_EQ(listed[i], written[i]) << "at byte " << i;
}

TEST(SmallFile, EveryLineOfTheListingStatesItsPosition) {
    size_t position = 0;
    size_t lines = 0;
    const std::string listing = Listing();
    for (size_t begin = 0; begin < listing.size();) {
        const size_t end = listing.find('\n', begin);
        const std::string line = listing.substr(begin, end - begin);
        begin = end == std::string::npos ? listing.size() : end + 1;
        const size_t bytes = kxtest::Hex(line).size();
        if (bytes == 0) continue;
        EXPECT_EQ(std::stoul(line.substr(line.find('#') + 1)), position) << line;
        position += bytes;
        ++lines;
    }
    EXPECT_GT(lines, 200U);
}

TEST(SmallFile, ListedBytesOpenAndReadBack) {
    kxbase::InMemoryStream in(kxtest::Hex(Listing()));
    kxio::QSNScanReader reader(&in);
    EXPECT_EQ(reader.GetPatchNumber(), 4U);
    EXPECT_EQ(reader.GetValidPointCount(), 7U);
    EXPECT_EQ(reader.Grid().columns, 3U);
    EXPECT_EQ(reader.GetMessageList(), (std::list<std::wstring>{L"small"}));
    EXPECT_EQ(reader.GetScanUUID(), kxbase::UUID(L"10111213-1415-4617-9819-1a1b1c1d1e1f"));
    Bytes thumbnail;
    EXPECT_TRUE(reader.GetThumbnailJPEG(thumbnail));
    EXPECT_EQ(thumbnail, kxtest::SmallJpeg());
}

}  // namespace
