// SPDX-License-Identifier: MIT
// What verification says about each way in which a small file can be wrong.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "VerifyTold.h"
#include "support/TinyScan.h"

namespace verify_texts {
namespace {

using namespace kxio;
using kxtest::ByteList;
using kxtest::Bytes;
using kxtest::MainField;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Row {
    const char* told;
    std::function<void(Bytes&)> change;
};

void ExpectEach(const Bytes& whole, const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        ASSERT_EQ(Told(whole).find(row.told), std::string::npos) << row.told << " is said of the whole file";
        Bytes bytes = whole;
        row.change(bytes);
        EXPECT_NE(Told(bytes).find(row.told), std::string::npos) << row.told << "\nwas not said, but\n"
                                                                 << Told(bytes);
    }
}

Row Main(const char* told, size_t field, uint64_t value) {
    return {told, [=](Bytes& bytes) { kxtest::SetMainField(bytes, field, value); }};
}

TEST(VerifyTexts, OfTheMainHeader) {
    ExpectEach(
        kxtest::TinyScan().Build(),
        {
            {"warning MainFileHeader version: version 211 with 76 bytes, of which only version 210 with 76 "
             "is "
             "known",
             [](Bytes& b) { kxtest::PutU32(b, 8, 211); }},
            {"error MainFileHeader version: Unsupported MainFileHeader version: found 209, at least 210 is "
             "read",
             [](Bytes& b) { kxtest::PutU32(b, 8, 209); }},
            {"error MainFileHeader tag: no main header: ", [](Bytes& b) { b[0] ^= 1; }},
            Main("error MainFileHeader scan header position: 0: the file was not finished",
                 MainField::ScanHeader, 0),
            Main("error MainFileHeader first chunk position: 0: no reader opens such a file",
                 MainField::FirstChunk, 0),
            Main("warning MainFileHeader first chunk position: 100, but the chunks begin behind the main "
                 "header, at byte 92",
                 MainField::FirstChunk, 100),
            Main(
                "warning MainFileHeader chunk data end position: 1, but the scan header that ends the chunks "
                "lies at byte",
                MainField::ChunkDataEnd, 1),
            {"warning MainFileHeader writer revision: 250 is newer than the 240 that is known",
             [](Bytes& b) { kxtest::PutU32(b, 16 + 72, 250); }},
            {"note MainFileHeader writer revision: 239: the sampling ratio of its previews cannot be relied "
             "on",
             [](Bytes& b) { kxtest::PutU32(b, 16 + 72, 239); }},
            Main("note MainFileHeader thumbnail header position: 0: the file has no thumbnail",
                 MainField::Thumbnail, 0),
            Main("warning MainFileHeader bounding information position: 0: the file has previews but no "
                 "limits",
                 MainField::BoundingInformation, 0),
            Main("warning MainFileHeader bounding information position: the file has limits but no table of "
                 "previews",
                 MainField::PreviewLookupTable, 0),
            {"note MainFileHeader bounding information position: 0: the file has neither previews nor limits",
             [](Bytes& b) {
                 kxtest::SetMainField(b, MainField::BoundingInformation, 0);
                 kxtest::SetMainField(b, MainField::PreviewLookupTable, 0);
             }},
            Main("error ScanHeader tag: no such record where the main header's scan header position points, "
                 "byte 7: ",
                 MainField::ScanHeader, 7),
            Main("error MainFileHeader lookup table position: 0: the file was not finished",
                 MainField::LookupTable, 0),
        });
}

TEST(VerifyTexts, OfTheScanHeader) {
    kxtest::ScanFileBuilder file = kxtest::TinyScan();
    file.properties.firstDate = kxbase::Date(L"2024-02-03T04:05:06Z");
    const Bytes whole = file.Build();
    const size_t scan = PayloadAt(whole, MainField::ScanHeader);
    const auto number = [&](const char* told, size_t at, double value) {
        return Row{told, [=](Bytes& b) { PutF64(b, scan + at, value); }};
    };
    const auto replace = [](const char* told, const std::string& from, char to) {
        return Row{told, [=](Bytes& b) {
                       *std::search(b.begin(), b.end(), from.begin(), from.end()) =
                           static_cast<unsigned char>(to);
                   }};
    };
    ExpectEach(
        whole,
        {
            {"warning ScanHeader version: version 300 is not known and read as 270",
             [&](Bytes& b) { kxtest::PutU32(b, scan - 8, 300); }},
            {"error ScanHeader: no scan header was found; the grid is not known",
             [&](Bytes& b) { b[scan - 16] ^= 1; }},
            number("error ScanHeader row angular step: nan is no angle in radians", 0, kNaN),
            number("warning ScanHeader column angular step: 0.000000 is no step; it must be above 0", 8, 0),
            number("error ScanHeader row start angle: 1000.000000 is no angle in radians", 16, 1000),
            number("error ScanHeader column start angle: inf is no angle in radians", 24, 1e300),
            {"error ScanHeader row count: 5 x 0 cells in patches of 4 x 3: no patches, but the file has "
             "chunks",
             [&](Bytes& b) { kxtest::PutU32(b, scan + 32, 0); }},
            {"error ScanHeader valid point count: 1000, but the grid has 20 cells",
             [&](Bytes& b) { kxtest::PutU64(b, scan + 44, 1000); }},
            number("error ScanHeader registration: holds values that are no numbers", 52, kNaN),
            number("warning ScanHeader registration: its axes are no rotation", 52, 2),
            {"warning ScanHeader spatial sampling distance: -1.000000 is no distance",
             [&](Bytes& b) { PutF32(b, scan + 149, -1); }},
            number("warning ScanHeader tilt: holds values that are no angles", 171, kNaN),
            {": 7 in a flag, which is 0 or 1", [&](Bytes& b) { b[scan + 153] = 7; }},
            replace(": the text is no valid UTF-8", "Ostrak RM7", '\xff'),
            replace(": the text is no date", "2024-02-03T04:05:06", 'x'),
        });
}

TEST(VerifyTexts, OfComponentRecordsAndLimits) {
    const Bytes whole = kxtest::TinyScan().Build();
    const size_t component = PayloadAt(whole, MainField::FirstComponentHeader);
    const size_t limits = PayloadAt(whole, MainField::BoundingInformation);
    ExpectEach(whole,
               {
                   {"error ComponentHeader codec identifier: no such codec: 0x",
                    [&](Bytes& b) { b[component + 4] ^= 1; }},
                   Main("error ComponentHeader tag: no such record where the main header's first component "
                        "header position points, byte 7: ",
                        MainField::FirstComponentHeader, 7),
                   Main("error MinMaxHeader tag: no such record where the main header's bounding information "
                        "position points, byte 7: ",
                        MainField::BoundingInformation, 7),
                   {"error MinMaxHeader number of pairs: 3, but the grid has 4 patches",
                    [&](Bytes& b) { kxtest::PutU32(b, limits + 8, 3); }},
                   {"warning MinMaxHeader payload size: 44 bytes, of which 36 are used",
                    [&](Bytes& b) { kxtest::PutU32(b, limits + 8, 3); }},
                   {"error MinMaxHeader minimum: 3.000000 to 2.000000 are no limits",
                    [&](Bytes& b) { PutF32(b, limits + 12, 3); }},
                   {"error MinMaxHeader minimum: nan to 2.000000 are no limits",
                    [&](Bytes& b) { PutF32(b, limits + 12, std::numeric_limits<float>::quiet_NaN()); }},
                   {"error MinMaxHeader overall minimum: 0.500000, but the smallest of the pairs is 1.000000",
                    [&](Bytes& b) { PutF32(b, limits, 0.5F); }},
                   {"error MinMaxHeader overall maximum: 9.000000, but the largest of the pairs is 2.000000",
                    [&](Bytes& b) { PutF32(b, limits + 4, 9); }},
               });
}

TEST(VerifyTexts, OfTheThumbnail) {
    const Bytes whole = kxtest::TinyScan().Build();
    const size_t thumbnail = PayloadAt(whole, MainField::Thumbnail);
    ExpectEach(whole, {
                          {"warning ThumbnailHeader JPEG length: 100, but the record has ",
                           [&](Bytes& b) { kxtest::PutU32(b, thumbnail + 8, 100); }},
                          {"error ThumbnailHeader JPEG bytes: they are no JPEG image",
                           [&](Bytes& b) { b[thumbnail + 12] ^= 1; }},
                          {"error ThumbnailHeader second side: 9 x 8, but the image has 8 x 8 pixels",
                           [&](Bytes& b) { kxtest::PutU32(b, thumbnail, 9); }},
                          {"error ThumbnailHeader JPEG bytes: the image is damaged",
                           [&](Bytes& b) {
                               const Bytes scales{0xff, 0xdb};  // of the pixels: a comment now
                               *(std::search(b.begin() + static_cast<std::ptrdiff_t>(thumbnail), b.end(),
                                             scales.begin(), scales.end()) +
                                 1) = 0xfe;
                           }},
                      });
}

TEST(VerifyTexts, OfTheTables) {
    const Bytes whole = kxtest::TinyScan().Build();
    const size_t table = PayloadAt(whole, MainField::LookupTable);
    const size_t previews = PayloadAt(whole, MainField::PreviewLookupTable);
    const size_t firstEntry = table + 4 + 8;
    const size_t preview = previews + 4 + 8;
    ExpectEach(
        whole,
        {
            Main("error LookupTableHeader tag: no such record where the main header's lookup table position "
                 "points, byte 7: ",
                 MainField::LookupTable, 7),
            {"warning LookupTableHeader version: 201, where 200 is known",
             [&](Bytes& b) { kxtest::PutU32(b, table - 8, 201); }},
            {"warning LookupTableHeader payload size: ", [&](Bytes& b) { kxtest::PutU32(b, table, 1); }},
            {"error lookup table: entry 0 has position 0 and byte count 46; only both may be 0",
             [&](Bytes& b) {
                 kxtest::PutU64(b, firstEntry, 0);
                 kxtest::PutU32(b, firstEntry + 8, 46);
             }},
            {"error lookup table byte count: 1, but the chunk record says ",
             [&](Bytes& b) { kxtest::PutU32(b, firstEntry + 8, 1); }},
            {"error lookup table component: the chunk record says Range",
             [&](Bytes& b) { kxtest::PutU32(b, table + 4, 2); }},
            {"error lookup table position: the chunk of one patch stands for 2 patches",
             [&](Bytes& b) {
                 std::copy_n(b.begin() + static_cast<std::ptrdiff_t>(firstEntry), 12,
                             b.begin() + static_cast<std::ptrdiff_t>(firstEntry + 12));
             }},
            {"error chunk frame: the frame of its record is damaged", [](Bytes& b) { b[92] ^= 1; }},
            {"error preview lookup table: an entry without a preview",
             [&](Bytes& b) { kxtest::PutU64(b, preview, 0); }},
            {"error preview lookup table: 4294967295 bytes at byte ",
             [&](Bytes& b) { kxtest::PutU32(b, preview + 8, 0xffffffffU); }},
            {"error preview: no header of a codec that this library has",
             [&](Bytes& b) { kxtest::PutU64(b, preview, kxtest::GetU64(b, preview) + 1); }},
            {"warning preview lookup table: the file has no patches of this component",
             [&](Bytes& b) { kxtest::PutU32(b, previews + 4, 3); }},
            {"error bytes: 9 bytes up to byte ", [](Bytes& b) { b.resize(b.size() + 9, 1); }},
        });
}

/// The tiny file with one more record at its end.
Bytes WithTail(uint64_t type, const Bytes& data, uint64_t link = 0) {
    return kxtest::TinyScan().Tail(kxtest::ExtendedRecord(type, data, link)).Build();
}

TEST(VerifyTexts, OfExtendedRecords) {
    constexpr uint64_t kMessage = 0xac14e2e7714a591eULL, kIdentifiers = 0x84968181ef2d2134ULL;
    kxio::Luminance16HistogramHeader histogram(kxio::Luminance16Histogram{{{0, 0}, {{uint16_t{700}, 12}}}});
    const struct {
        const char* told;
        Bytes file;
    } rows[] = {
        {"warning message text: no closing NUL", WithTail(kMessage, {'a'})},
        {"warning message text: more bytes behind its NUL", WithTail(kMessage, {'a', 0, 'b', 0})},
        {"warning message text: it is no valid UTF-8", WithTail(kMessage, {0xff, 0})},
        {"warning message link: 5, but this is the last record", WithTail(kMessage, {'a', 0}, 5)},
        {"warning identifiers data length: 31, but this kind has 32", WithTail(kIdentifiers, Bytes(31, 1))},
        {"warning ExtendedHeader type tag: an unknown kind, which is passed over", WithTail(77, {1})},
        {"warning 16-bit intensity histogram: a second one; the last one counts",
         kxtest::TinyScan().Tail(kxtest::Written(histogram)).Build()},
        {"warning message version: 101, where 100 is known",
         kxtest::TinyScan()
             .Tail(kxtest::WithVersion(kxtest::ExtendedRecord(kMessage, {'a', 0}), 101))
             .Build()},
        {"warning message data length: 1, but the record has 2 bytes for it",
         kxtest::TinyScan()
             .Tail(
                 kxtest::Record(kxtest::kExtendedRecord, ByteList().U64(0).U64(kMessage).U32(1).U8(0).U8(0)))
             .Build()},
    };
    for (const auto& row : rows) {
        EXPECT_NE(Told(row.file).find(row.told), std::string::npos) << row.told << "\n" << Told(row.file);
    }
    const Bytes zero = ByteList().Text("00000000-0000-0000-0000-000000000000");
    for (const auto& [type, name] :
         {std::pair(0xbfb6c3129e0b3496ULL, "HQ link"), std::pair(0x87d56a371c93300cULL, "ER link"),
          std::pair(0xacbbe8c8d0fce365ULL, "HDR link")}) {
        EXPECT_NE(Told(WithTail(type, zero)).find(std::string("note ") + name + " text: all zero"),
                  std::string::npos);
        EXPECT_NE(
            Told(WithTail(type, {'x', 0}))
                .find(std::string("warning ") + name + " text: it is no identifier; the link is passed over"),
            std::string::npos);
    }
}

TEST(VerifyTexts, OfTheChainOfExtendedRecords) {
    const Bytes whole = kxtest::TinyScan().Build();
    const size_t first = RecordAt(whole, MainField::FirstExtendedHeader);
    ExpectEach(whole,
               {
                   Main("error ExtendedHeader tag: no such record where the main header's first extended "
                        "header position points, byte 7: ",
                        MainField::FirstExtendedHeader, 7),
                   Main("error ExtendedHeader: the chain of extended records ends before it, at byte 0",
                        MainField::FirstExtendedHeader, 0),
                   {"warning message link: 9, but the next record lies at byte ",
                    [&](Bytes& b) { kxtest::PutU64(b, first + 16, 9); }},
                   {"note ExtendedHeader: the file has no record of identifiers",
                    [](Bytes& b) {
                        const Bytes type = ByteList().U64(0x84968181ef2d2134ULL);
                        *std::search(b.begin(), b.end(), type.begin(), type.end()) ^= 1;
                    }},
               });
}

}  // namespace
}  // namespace verify_texts
