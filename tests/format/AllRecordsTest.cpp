// SPDX-License-Identifier: MIT
// What holds for every kind of record: cut short, too old, newer, foreign.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "kxio/ComponentHeader.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/ExtendedHeader.h"
#include "kxio/LookupTableHeader.h"
#include "kxio/MainFileHeader.h"
#include "kxio/MinMaxHeader.h"
#include "kxio/ScanHeader.h"
#include "kxio/ThumbnailHeader.h"
#include "support/AllocationWatch.h"
#include "support/RecordBytes.h"

namespace {

using kxbase::IOHeader;
using kxtest::Bytes;

// A record object with what it borrows.
struct Subject {
    std::unique_ptr<kxio::LookupTable> table = std::make_unique<kxio::LookupTable>();
    std::unique_ptr<std::vector<kxio::MinMaxPair>> pairs = std::make_unique<std::vector<kxio::MinMaxPair>>();
    std::unique_ptr<IOHeader> record;
};

template <class Record>
Subject Make() {
    Subject subject;
    subject.record = std::make_unique<Record>();
    return subject;
}
template <>
Subject Make<kxio::LookupTableHeader>() {
    Subject subject;
    subject.record = std::make_unique<kxio::LookupTableHeader>(subject.table.get());
    return subject;
}
template <>
Subject Make<kxio::MinMaxHeader>() {
    Subject subject;
    subject.record = std::make_unique<kxio::MinMaxHeader>(subject.pairs.get());
    return subject;
}

struct Kind {
    const char* name;
    std::function<Subject()> make;
    kxtest::RecordKind frame;
    std::vector<const char*> golden;  // whole records, newest layout last
    const char* refused;              // a record one version too old
    const char* refusal;
    uint32_t minimum;
};
void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

const std::vector<Kind>& Kinds() {
    static const std::vector<Kind> kinds = {
        {"MainFileHeader",
         Make<kxio::MainFileHeader>,
         kxtest::kMainRecord,
         {"main-210"},
         "main-209",
         "Unsupported MainFileHeader version",
         210},
        {"ScanHeader",
         Make<kxio::ScanHeader>,
         kxtest::kScanRecord,
         {"scan-200", "scan-210", "scan-220", "scan-230", "scan-240", "scan-250", "scan-260", "scan-205",
          "scan-215", "scan-270"},
         "scan-199",
         "Unsupported ScanHeader version",
         200},
        {"ComponentHeader",
         Make<kxio::ComponentHeader>,
         kxtest::kComponentRecord,
         {"component-200"},
         "component-199",
         "Unsupported ComponentHeader version",
         200},
        {"DataChunkHeader",
         Make<kxio::DataChunkHeader>,
         kxtest::kChunkRecord,
         {"chunk-200"},
         "chunk-199",
         "Unsupported Chunk version",
         200},
        {"LookupTableHeader",
         Make<kxio::LookupTableHeader>,
         kxtest::kLookupRecord,
         {"lookup-200"},
         "lookup-199",
         "Unsupported LookupTableHeader version",
         200},
        {"MinMaxHeader",
         Make<kxio::MinMaxHeader>,
         kxtest::kMinMaxRecord,
         {"minmax-200"},
         "minmax-199",
         "Unsupported MinMax version",
         200},
        {"ThumbnailHeader",
         Make<kxio::ThumbnailHeader>,
         kxtest::kThumbnailRecord,
         {"thumbnail-200"},
         "thumbnail-199",
         "Unsupported ThumbnailHeader version",
         200},
        {"ExtendedHeader",
         Make<kxio::ExtendedHeader>,
         kxtest::kExtendedRecord,
         {"extended-comment", "extended-uuid", "extended-preregistration", "extended-histogram-class"},
         nullptr,
         nullptr,
         0},
    };
    return kinds;
}

Bytes Golden(const char* name) {
    return kxtest::GoldenHex(std::string("records/") + name + ".hex");
}

class EveryRecord : public testing::TestWithParam<Kind> {};

TEST_P(EveryRecord, HasItsTagVersionAndName) {
    const Subject subject = GetParam().make();
    EXPECT_EQ(subject.record->GetMagic(), GetParam().frame.tag);
    EXPECT_EQ(subject.record->GetCurrentVersion(), GetParam().frame.version);
    EXPECT_STREQ(subject.record->GetRecordName(), GetParam().name);
}

TEST_P(EveryRecord, GoldenRecordIsReadFromAnyPlaceInTheStream) {
    for (const char* name : GetParam().golden) {
        const Bytes record = Golden(name);
        const Bytes file = kxtest::ByteList().Fill(1000, 0xaa).Raw(record).Fill(7, 0xbb);
        kxbase::InMemoryStream in(file);
        in.Seek(1000);
        Subject subject = GetParam().make();
        EXPECT_EQ(subject.record->Read(&in), record.size()) << name;
        EXPECT_TRUE(subject.record->IsValid());
        EXPECT_EQ(subject.record->HeaderSize(), record.size());
        EXPECT_EQ(in.Tell(), 1000 + record.size());
        EXPECT_TRUE(subject.record->GetReadProblem().Empty());
    }
}

TEST_P(EveryRecord, FileCutAtAnyByteHoldsNoRecord) {
    const Subject untouched = GetParam().make();
    const Bytes before = kxtest::Written(*untouched.record);
    for (const char* name : GetParam().golden) {
        const Bytes record = Golden(name);
        for (size_t size = 0; size < record.size(); ++size) {
            kxbase::InMemoryStream in(record.data(), size);
            Subject subject = GetParam().make();
            EXPECT_EQ(subject.record->Read(&in), 0U) << name << " cut to " << size;
            EXPECT_FALSE(subject.record->IsValid());
            EXPECT_EQ(in.Tell(), 0U);
            EXPECT_EQ(subject.record->GetReadProblem().record, GetParam().name);
            EXPECT_EQ(kxtest::Written(*subject.record), before) << "nothing of it is kept";
        }
    }
}

// The frame announces the shortened payload, so only the layout itself can notice.
TEST_P(EveryRecord, PayloadShorterThanItsLayoutIsNoRecord) {
    const Subject untouched = GetParam().make();
    const Bytes before = kxtest::Written(*untouched.record);
    for (const char* name : GetParam().golden) {
        const Bytes record = Golden(name);
        for (size_t size = 16; size < record.size(); ++size) {
            Bytes cut(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(size));
            cut = kxtest::WithPayloadSize(cut, static_cast<uint32_t>(size - 16));
            kxbase::InMemoryStream in(cut);
            Subject subject = GetParam().make();
            try {
                EXPECT_EQ(subject.record->Read(&in), 0U) << name << " cut to " << size;
                EXPECT_FALSE(subject.record->GetReadProblem().detail.empty());
            } catch (const kxbase::KXWrongDataSizeofException& e) {
                // Only the thumbnail has a text of its own, once its three numbers are there.
                EXPECT_STREQ(e.what(), "Unknown thumbnail data size");
                EXPECT_STREQ(GetParam().name, "ThumbnailHeader");
                EXPECT_GE(size, 16U + 12U);
            }
            EXPECT_FALSE(subject.record->IsValid());
            EXPECT_EQ(in.Tell(), 0U);
            EXPECT_EQ(kxtest::Written(*subject.record), before) << "nothing of it is kept";
        }
    }
}

TEST_P(EveryRecord, VersionBelowTheMinimumIsRefusedWithItsText) {
    if (GetParam().refused == nullptr) return;  // every version of an extended record is read
    const Bytes record = Golden(GetParam().refused);
    for (const uint32_t version : {GetParam().minimum - 1, 0U, 1U}) {
        Subject subject = GetParam().make();
        kxbase::InMemoryStream in(kxtest::WithVersion(record, version));
        try {
            subject.record->Read(&in);
            ADD_FAILURE() << "not refused: " << version;
        } catch (const kxbase::KXHeaderReadingException& e) {
            EXPECT_STREQ(e.what(), GetParam().refusal);
            EXPECT_EQ(e.Context().record, GetParam().name);
            EXPECT_EQ(e.Context().offset, 8U);
        }
        EXPECT_FALSE(subject.record->IsValid());
        EXPECT_EQ(in.Tell(), 0U);
    }
}

TEST_P(EveryRecord, OldVersionIsRefusedEvenWhenItsPayloadIsShort) {
    if (GetParam().refused == nullptr) return;
    Subject subject = GetParam().make();
    EXPECT_THROW(
        kxtest::ReadFrom(*subject.record, kxtest::Record(GetParam().frame.tag, GetParam().minimum - 1, {})),
        kxbase::KXHeaderReadingException);
}

TEST_P(EveryRecord, NewerVersionWithTrailingBytesIsReadAndSkippedWhole) {
    const Bytes record = Golden(GetParam().golden.back());
    Subject reference = GetParam().make();
    kxtest::ReadFrom(*reference.record, record);
    for (const uint32_t version : {GetParam().frame.version + 1, 999U, 0xffffffffU}) {
        Bytes longer = record;
        longer.insert(longer.end(), 10, 0xee);
        longer = kxtest::WithVersion(
            kxtest::WithPayloadSize(longer, static_cast<uint32_t>(record.size() - 6)), version);
        Subject subject = GetParam().make();
        EXPECT_EQ(kxtest::ReadFrom(*subject.record, longer), record.size() + 10) << version;
        EXPECT_EQ(subject.record->GetVersion(), version);
        EXPECT_EQ(subject.record->HeaderSize(), record.size() + 10);
        EXPECT_EQ(kxtest::Written(*subject.record), kxtest::Written(*reference.record));
    }
}

TEST_P(EveryRecord, ForeignTagIsNoRecordAndMovesNothing) {
    Bytes record = Golden(GetParam().golden.back());
    record[3] ^= 0x40;
    kxbase::InMemoryStream in(kxtest::ByteList().Fill(5, 0).Raw(record));
    in.Seek(5);
    Subject subject = GetParam().make();
    EXPECT_EQ(subject.record->Read(&in), 0U);
    EXPECT_EQ(in.Tell(), 5U);
    EXPECT_EQ(subject.record->GetReadProblem().field, "tag");
}

TEST_P(EveryRecord, PayloadSizeBeyondTheStreamIsRefusedWithoutTakingMemory) {
    const Bytes record = kxtest::WithPayloadSize(
        kxtest::Record(GetParam().frame.tag, GetParam().frame.version, Bytes(84, 0)), 0xffffffffU);
    ASSERT_EQ(record.size(), 100U);
    Subject subject = GetParam().make();
    kxbase::InMemoryStream in(record);
    const kxtest::AllocationWatch watch;
    EXPECT_EQ(subject.record->Read(&in), 0U);
    EXPECT_LT(watch.Largest(), 4096U);
    EXPECT_EQ(subject.record->GetReadProblem().field, "payload size");
}

// Whatever the payload's bytes are: a record, none, or one of the known refusals, and little memory.
TEST_P(EveryRecord, HundredBytesOfAnyOneValueEndInAKnownWay) {
    for (unsigned value = 0; value < 256; ++value) {
        const Bytes record = kxtest::Record(GetParam().frame, Bytes(84, static_cast<unsigned char>(value)));
        Subject subject = GetParam().make();
        kxbase::InMemoryStream in(record);
        const kxtest::AllocationWatch watch;
        uint64_t read = 0;
        try {
            read = subject.record->Read(&in);
        } catch (const kxbase::KXWrongDataSizeofException& e) {
            EXPECT_STREQ(e.what(), "Unknown thumbnail data size");
        }
        EXPECT_LT(watch.Largest(), 8192U) << value;
        EXPECT_EQ(subject.record->IsValid(), read != 0);
        EXPECT_TRUE(read == 0 || read == record.size());
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, EveryRecord, testing::ValuesIn(Kinds()),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST(EveryRecord, GoldenRecordsOfNewerVersionsAreRead) {
    const std::pair<const char*, size_t> names[] = {
        {"main-300", 0},   {"scan-275", 1},   {"component-299", 2}, {"chunk-299", 3},
        {"lookup-299", 4}, {"minmax-299", 5}, {"thumbnail-299", 6}};
    for (const auto& [name, kind] : names) {
        const Bytes record = Golden(name);
        Subject subject = Kinds()[kind].make();
        EXPECT_EQ(kxtest::ReadFrom(*subject.record, record), record.size()) << name;
        EXPECT_EQ(kxtest::Written(*subject.record), Golden(Kinds()[kind].golden.back())) << name;
    }
}

}  // namespace
