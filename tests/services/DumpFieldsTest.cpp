// SPDX-License-Identifier: MIT
// What DumpRecords tells of each kind of record, and of records that are not whole.
#include <gtest/gtest.h>

#include <algorithm>

#include "InspectedScan.h"
#include "support/Thrown.h"
#include "support/TinyScan.h"

namespace {

using namespace kxio;
using kxtest::ByteList;
using kxtest::Bytes;
using kxtest::Dump;

/// The first record of a kind; an empty one when there is none.
DumpedRecord RecordOf(const std::vector<DumpedRecord>& records, const std::string& kind) {
    const auto found =
        std::find_if(records.begin(), records.end(), [&](const DumpedRecord& r) { return r.kind == kind; });
    EXPECT_NE(found, records.end()) << kind;
    return found == records.end() ? DumpedRecord() : *found;
}

std::string TextOf(const DumpedRecord& record, const std::string& name) {
    for (const DumpedField& field : record.fields) {
        if (field.name == name && std::holds_alternative<std::string>(field.value))
            return std::get<std::string>(field.value);
    }
    return "no such text";
}

kxtest::ScanFileBuilder OnePatch() {
    kxtest::ScanFileBuilder file(2, 2, 2, 2);
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>{1, 2, 3, 4}, 2, 2));
    return file;
}

TEST(DumpFields, TextsAndIdentifiersAreTold) {
    kxtest::ScanFileBuilder file = OnePatch();
    file.Message("caf\xc3\xa9 \xff");
    file.Tail(kxtest::ExtendedRecord(0x84968181ef2d2134ULL, Bytes(32, 3)));
    const std::vector<DumpedRecord> records = Dump(file.Build());
    // What is no UTF-8 becomes the sign for that.
    const auto message = std::find_if(records.begin(), records.end(), [](const DumpedRecord& record) {
        return TextOf(record, "text") == "caf\xc3\xa9 \xef\xbf\xbd";
    });
    ASSERT_NE(message, records.end());
    EXPECT_TRUE(message->kind.starts_with("ExtendedHeader (")) << message->kind;
    EXPECT_FALSE(message->damaged);
    const DumpedRecord& last = records.back();
    EXPECT_TRUE(last.kind.starts_with("ExtendedHeader (")) << last.kind;
    ASSERT_GE(last.fields.size(), 2U);
    for (const DumpedField& field : last.fields)
        EXPECT_LE(field.offset + field.bytes, last.offset + last.bytes) << field.name;
}

TEST(DumpFields, PreregistrationsAreToldNumberByNumber) {
    kxtest::ScanFileBuilder file = OnePatch();
    ByteList data;
    data.U64(5);
    for (int i = 0; i < 14; ++i)
        data.F64(i + 0.5);
    file.Tail(kxtest::ExtendedRecord(0x940a8701d02f837bULL, data));
    const DumpedRecord record = Dump(file.Build()).back();
    EXPECT_FALSE(record.damaged) << record.problem;
    EXPECT_GE(std::count_if(record.fields.begin(), record.fields.end(),
                            [](const DumpedField& field) { return field.type == "f64"; }),
              12);
}

TEST(DumpFields, ExtendedRecordsOfUnknownKindAreToldAsBytes) {
    kxtest::ScanFileBuilder file = OnePatch();
    file.Tail(kxtest::ExtendedRecord(0x1234, Bytes(40, 0xab)));
    const DumpedRecord record = Dump(file.Build()).back();
    EXPECT_EQ(record.kind, "ExtendedHeader");
    EXPECT_FALSE(record.damaged);
    const DumpedField& bytes = record.fields.back();
    EXPECT_EQ(bytes.type, "bytes");
    EXPECT_EQ(bytes.bytes, 40U);
    // The first 32.
    std::string shown;
    for (int i = 0; i < 32; ++i)
        shown += "ab";
    EXPECT_EQ(std::get<std::string>(bytes.value), shown + "...");
}

TEST(DumpFields, TablesAreToldUpToTheEntriesAskedFor) {
    kxtest::ScanFileBuilder file(10, 7, 4, 3);  // nine patches
    kxtest::AddLayer<float>(file, 1, kxtest::RangeAt);
    kxtest::AddLayer<uint8_t>(file, 4, kxtest::LuminanceAt);
    const auto positions = [&](uint64_t most, uint64_t leftOut) {
        DumpOptions options;
        options.mostEntries = most;
        const DumpedRecord table = RecordOf(Dump(file.Build(), options), "LookupTableHeader");
        EXPECT_EQ(table.leftOut, leftOut);
        return std::count_if(table.fields.begin(), table.fields.end(),
                             [](const DumpedField& field) { return field.name == "position"; });
    };
    EXPECT_EQ(positions(16, 0), 18);
    EXPECT_EQ(positions(9, 0), 18);
    EXPECT_EQ(positions(2, 2 * 2 * 7), 4);  // of both components: position and size of seven
    EXPECT_EQ(positions(0, 36), 0);
}

TEST(DumpFields, ADamagedThumbnailIsFoundUnlessNothingIsDecoded) {
    kxtest::ScanFileBuilder file = OnePatch();
    file.Thumbnail(Bytes(50, 0x11), 8, 8);
    const DumpedRecord thumbnail = RecordOf(Dump(file.Build()), "ThumbnailHeader");
    EXPECT_TRUE(thumbnail.damaged);
    EXPECT_EQ(thumbnail.problem, "the image is damaged");
    DumpOptions quick;
    quick.decode = false;
    EXPECT_FALSE(RecordOf(Dump(file.Build(), quick), "ThumbnailHeader").damaged);
}

TEST(DumpFields, ChunksOfNoCodecAreMarked) {
    kxtest::ScanFileBuilder file = OnePatch();
    Bytes chunk = kxtest::SnappyChunk(std::vector<float>{1, 2, 3, 4}, 2, 2);
    chunk.at(0) ^= 0xff;
    file.Chunk(4, 0, 0, chunk);
    file.Chunk(5, 0, 0, Bytes(20, 1));  // shorter than the codec's header
    std::vector<std::string> problems;
    for (const DumpedRecord& record : Dump(file.Build())) {
        if (record.damaged) problems.push_back(record.problem);
    }
    EXPECT_EQ(problems, (std::vector<std::string>{"no header of a codec that this library has",
                                                  "its data is shorter than the header of a codec"}));
}

TEST(DumpFields, ARecordThatDoesNotDecodeSaysWhichFieldIsWrong) {
    kxtest::ScanFileBuilder file = OnePatch();
    Bytes bytes = file.Message("hello").Build();
    const uint64_t table = kxtest::GetMainField(bytes, kxtest::MainField::LookupTable);
    kxtest::PutU32(bytes, table + 16, 0x7fffffff);  // so many components
    const DumpedRecord record = RecordOf(Dump(bytes), "LookupTableHeader");
    EXPECT_TRUE(record.damaged);
    EXPECT_NE(record.problem.find(": "), std::string::npos) << record.problem;
    EXPECT_EQ(record.version, 200U);
}

TEST(DumpFields, BytesOfNoRecordAreShownByTheirBeginning) {
    Bytes bytes = OnePatch().RawBytes(Bytes(100, 0xcd)).Build();
    const DumpedRecord unknown = RecordOf(Dump(bytes), "Unknown bytes");
    EXPECT_EQ(unknown.bytes, 100U);
    EXPECT_EQ(unknown.problem, "they belong to no record");
    EXPECT_FALSE(unknown.version.has_value());
    EXPECT_TRUE(TextOf(unknown, "bytes").starts_with("cdcdcd"));
    EXPECT_TRUE(TextOf(unknown, "bytes").ends_with("..."));
}

TEST(DumpFields, ARecordCutByTheEndOfTheFileIsMarked) {
    Bytes bytes = OnePatch().Message("hello").Build();
    bytes.resize(bytes.size() - 3);
    const std::vector<DumpedRecord> records = Dump(bytes);
    EXPECT_TRUE(records.back().damaged);
    EXPECT_EQ(records.back().offset + records.back().bytes, bytes.size());
}

TEST(DumpFields, ProgressEndsWithTheFileAndWhatItThrowsEndsTheDump) {
    const Bytes bytes = kxtest::TinyScan().Build();
    for (const bool decode : {true, false}) {
        uint64_t last = 0;
        DumpOptions options;
        options.decode = decode;
        options.progress = [&](uint64_t done, uint64_t total) {
            EXPECT_EQ(total, bytes.size());
            EXPECT_LE(done, total);
            last = done;
        };
        Dump(bytes, options);
        EXPECT_EQ(last, bytes.size());
    }
    DumpOptions options;
    options.progress = [](uint64_t, uint64_t) { throw std::runtime_error("enough"); };
    EXPECT_THROW(Dump(bytes, options), std::runtime_error);
}

TEST(DumpFields, AFileThatIsNotThereIsNamed) {
    const auto context = kxtest::ContextOf<kxbase::KXHeaderReadingException>(
        "Cannot open file", [] { DumpRecords(L"no such file.qsn", [](const DumpedRecord&) {}); });
    EXPECT_EQ(context.file, "no such file.qsn");
}

}  // namespace
