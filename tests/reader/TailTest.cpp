// SPDX-License-Identifier: MIT
// The extended records at the end of the file, and the scanning mode that follows from the step.
#include <gtest/gtest.h>

#include <cctype>
#include <ostream>

#include "SampleScans.h"
#include "kxio/HistogramHeader.h"
#include "kxio/ScanningModeExtendedHeader.h"
#include "reader/ScanningMode.h"

namespace {

using namespace kxtest;

constexpr uint64_t kMessage = 0xac14e2e7714a591eULL;
constexpr uint64_t kWarning = 0xaa661a5ee949e151ULL;
constexpr uint64_t kHqLink = 0xbfb6c3129e0b3496ULL;
constexpr uint64_t kErLink = 0x87d56a371c93300cULL;
constexpr uint64_t kHdrLink = 0xacbbe8c8d0fce365ULL;
constexpr uint64_t kScanningMode = 0x91acbfc234bec3a9ULL;
constexpr uint64_t kColorizationMode = 0x9554a8463740bb07ULL;
constexpr uint64_t kUuids = 0x84968181ef2d2134ULL;
constexpr uint64_t kPreregistration = 0x940a8701d02f837bULL;

Bytes TextRecord(uint64_t type, const std::string& text, uint64_t link = 0) {
    return ExtendedRecord(type, ByteList().Text(text), link);
}

ScanFileBuilder BareScan() {
    ScanFileBuilder file(4, 3, 4, 3);
    AddLayer<float>(file, 1, RangeAt);
    return file;
}

const std::string kUuidText = "00112233-4455-6677-8899-aabbccddeeff";
const Bytes kUuidBytes = Hex("00 11 22 33 44 55 66 77 88 99 aa bb cc dd ee ff");

TEST(Tail, FileWithoutItHasNothingOfIt) {
    ScanFileBuilder file = BareScan();
    file.properties.scannerModel = L"Ostrak RM7";
    file.properties.grid.rowAngularStep = 0.00019F;
    const Bytes bytes = file.Build();
    EXPECT_EQ(GetMainField(bytes, MainField::FirstExtendedHeader), 0U);
    MemoryScan scan(bytes);
    const kxio::ScanProperties& properties = scan.reader.GetScanInformation();
    EXPECT_TRUE(properties.messages.empty());
    EXPECT_TRUE(properties.warnings.empty());
    EXPECT_TRUE(properties.hqLinks.empty());
    EXPECT_TRUE(properties.erLinks.empty());
    EXPECT_TRUE(properties.hdrLinks.empty());
    EXPECT_TRUE(scan.reader.GetAvailableHistograms().empty());
    EXPECT_EQ(properties.scanUUID, kxbase::UUID());
    EXPECT_EQ(properties.parentUUID, kxbase::UUID());
    EXPECT_TRUE(scan.reader.IsRm());
    EXPECT_EQ(properties.scanningMode, L"") << "not inferred without extended records";
}

TEST(Tail, EveryKindReachesItsField) {
    ScanFileBuilder file = BareScan();
    file.Tail(TextRecord(kMessage, "one"));
    file.Tail(TextRecord(kWarning, "careful"));
    file.Tail(TextRecord(kMessage, "two"));
    file.Tail(TextRecord(kHqLink, kUuidText));
    file.Tail(TextRecord(kErLink, kUuidText));
    file.Tail(TextRecord(kErLink, "ffeeddcc-bbaa-9988-7766-554433221100"));
    file.Tail(TextRecord(kHdrLink, kUuidText));
    file.Tail(TextRecord(kScanningMode, "slow"));
    file.Tail(TextRecord(kColorizationMode, "by hand"));
    file.Tail(ExtendedRecord(0x1234, Bytes(50, 9)));  // a kind of another time
    file.Tail(ExtendedRecord(kUuids, ByteList().Raw(kUuidBytes).Fill(16, 7)));
    ByteList preregistration;
    preregistration.F64(2.5).Raw(kUuidBytes);
    for (int i = 1; i <= 12; ++i)
        preregistration.F64(i);
    file.Tail(ExtendedRecord(kPreregistration, preregistration));
    MemoryScan scan(file.Build());
    const kxio::ScanProperties& properties = scan.reader.GetScanInformation();
    const kxbase::UUID uuid = kxbase::UUID::FromBytes(kUuidBytes.data());
    EXPECT_EQ(properties.messages, (std::list<std::wstring>{L"one", L"two"}));
    EXPECT_EQ(scan.reader.GetMessageList(), properties.messages);
    EXPECT_EQ(scan.reader.GetWarningList(), std::list<std::wstring>{L"careful"});
    EXPECT_EQ(properties.hqLinks, std::list<kxbase::UUID>{uuid});
    EXPECT_EQ(properties.erLinks.size(), 2U);
    EXPECT_EQ(properties.hdrLinks, std::list<kxbase::UUID>{uuid});
    EXPECT_EQ(properties.scanningMode, L"slow");
    EXPECT_EQ(properties.colorizationMode, L"by hand");
    EXPECT_EQ(properties.scanUUID, uuid);
    EXPECT_EQ(properties.parentUUID, kxbase::UUID::FromBytes(Bytes(16, 7).data()));
    EXPECT_EQ(properties.preregistrationValue, 2.5);
    EXPECT_EQ(properties.preregistrationUUID, uuid);
    EXPECT_EQ(properties.preregistration.Values()[0], 1);
    EXPECT_EQ(properties.preregistration.Values()[11], 12);
}

TEST(Tail, LastOfSeveralModesAndIdentifiersWins) {
    ScanFileBuilder file = BareScan();
    file.Tail(TextRecord(kScanningMode, "first")).Tail(TextRecord(kScanningMode, "second"));
    file.Tail(ExtendedRecord(kUuids, Bytes(32, 1))).Tail(ExtendedRecord(kUuids, Bytes(32, 2)));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetScanInformation().scanningMode, L"second");
    EXPECT_EQ(scan.reader.GetScanUUID(), kxbase::UUID::FromBytes(Bytes(16, 2).data()));
}

TEST(Tail, RecordsAreWalkedBackToBackWhateverTheirLinks) {
    for (const uint64_t link : {uint64_t{0}, uint64_t{1}, ~uint64_t{0}}) {
        ScanFileBuilder file = BareScan();
        file.Tail(TextRecord(kMessage, "a", link)).Tail(TextRecord(kMessage, "b", link));
        MemoryScan scan(file.Build());
        EXPECT_EQ(scan.reader.GetMessageList().size(), 2U) << link;
    }
}

TEST(Tail, WalkEndsAtTheFirstForeignBytes) {
    ScanFileBuilder file = BareScan();
    file.Tail(TextRecord(kMessage, "a")).Tail(Bytes(3, 0)).Tail(TextRecord(kMessage, "b"));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetMessageList(), std::list<std::wstring>{L"a"});
}

TEST(Tail, EmptyMessageIsAMessage) {
    ScanFileBuilder file = BareScan();
    file.Tail(TextRecord(kMessage, ""));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetMessageList(), std::list<std::wstring>{L""});
}

TEST(Tail, BytesThatAreNoTextBecomeReplacementCharacters) {
    ScanFileBuilder file = BareScan();
    file.Tail(ExtendedRecord(kMessage, Hex("61 ff 62 00")));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetMessageList(), std::list<std::wstring>{L"a\ufffdb"});
}

TEST(Tail, TextWithoutClosingNulGoesToItsEnd) {
    ScanFileBuilder file = BareScan();
    file.Tail(ExtendedRecord(kMessage, Hex("61 62 63")));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetMessageList(), std::list<std::wstring>{L"abc"});
}

TEST(Tail, LinkThatNamesNoScanIsLeftOut) {
    ScanFileBuilder file = BareScan();
    file.Tail(TextRecord(kHqLink, "hello")).Tail(TextRecord(kErLink, "")).Tail(TextRecord(kMessage, "on"));
    MemoryScan scan(file.Build());
    EXPECT_TRUE(scan.reader.GetScanInformation().hqLinks.empty());
    EXPECT_TRUE(scan.reader.GetScanInformation().erLinks.empty());
    EXPECT_EQ(scan.reader.GetMessageList().size(), 1U);
}

TEST(Tail, DataLengthBeyondTheRecordEndsTheChain) {
    for (const uint32_t length : {0xffffffffU, 7U}) {
        ScanFileBuilder file = BareScan();
        Bytes record = TextRecord(kMessage, "hello");  // six bytes of data
        PutU32(record, 16 + 16, length);
        file.Tail(record).Tail(TextRecord(kMessage, "behind"));
        MemoryScan scan(file.Build());
        EXPECT_TRUE(scan.reader.GetMessageList().empty());
    }
}

TEST(Tail, ShortIdentifierRecordsGiveZeros) {
    ScanFileBuilder file = BareScan();
    file.Tail(ExtendedRecord(kUuids, Bytes(31, 1))).Tail(ExtendedRecord(kPreregistration, Bytes(119, 1)));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetScanUUID(), kxbase::UUID());
    EXPECT_EQ(scan.reader.GetScanInformation().preregistration, kxbase::RegistrationInformation());
}

TEST(Tail, ChainThatCannotBeReachedIsEmpty) {
    for (const uint64_t position : {uint64_t{1} << 50, ~uint64_t{0}, uint64_t{92}}) {
        Bytes bytes = SmallScan().Build();
        SetMainField(bytes, MainField::FirstExtendedHeader, position);
        MemoryScan scan(bytes);
        EXPECT_TRUE(scan.reader.GetMessageList().empty());
    }
}

struct HistogramTag {
    uint64_t type;
    uint32_t component;
};
void PrintTo(const HistogramTag& tag, std::ostream* out) {
    *out << "component " << tag.component;
}
class TailHistogram : public testing::TestWithParam<HistogramTag> {};

TEST_P(TailHistogram, IsLocatedByItsTag) {
    ScanFileBuilder file = BareScan();
    const Bytes data = ByteList().U64(0).Fill(5, 9);
    file.Tail(TextRecord(kMessage, "a")).Tail(ExtendedRecord(GetParam().type, data));
    file.Tail(TextRecord(kMessage, "b"));
    MemoryScan scan(file.Build());
    const auto component = static_cast<kxbase::ComponentType>(GetParam().component);
    EXPECT_TRUE(scan.reader.IsHistogramAvailable(component));
    EXPECT_EQ(scan.reader.GetAvailableHistograms(), std::vector{component});
    EXPECT_EQ(scan.reader.GetMessageList().size(), 2U);
    const kxio::ExtendedHeader record = scan.reader.GetCompressedHistogram(component);
    EXPECT_EQ(record.GetType(), GetParam().type);
    EXPECT_EQ(Bytes(record.GetDataBuffer(), record.GetDataBuffer() + record.GetDataBufferSize()), data);
}
INSTANTIATE_TEST_SUITE_P(
    Tags, TailHistogram,
    testing::Values(HistogramTag{0xac8391a3fbed04c7ULL, 18}, HistogramTag{0x947643b5f86b1820ULL, 19},
                    HistogramTag{0x913a4f40ca422a2fULL, 4}, HistogramTag{0xa62815c019d63650ULL, 5},
                    HistogramTag{0xb22bb13068c1b1a7ULL, 1}, HistogramTag{0x97ff05470e6123c5ULL, 2},
                    HistogramTag{0xb0293a2fd2a7dc74ULL, 3}));

TEST(TailHistogram, LastOfSeveralOfOneComponentWins) {
    ScanFileBuilder file = BareScan();
    file.Tail(ExtendedRecord(0xa62815c019d63650ULL, Bytes(8, 1)));
    file.Tail(ExtendedRecord(0xa62815c019d63650ULL, Bytes(9, 2)));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetCompressedHistogram(kxbase::Luminance16).GetDataBufferSize(), 9U);
}

TEST(TailHistogram, AbsentOneCannotBeUsed) {
    MemoryScan scan(BareScan().Build());
    EXPECT_FALSE(scan.reader.IsHistogramAvailable(kxbase::Luminance8));
    EXPECT_EQ(Failure([&] { scan.reader.GetCompressedHistogram(kxbase::Luminance8); }),
              "KXComponentNotInFileException: Cannot use this component");
}

TEST(TailHistogram, ComesThroughTheAccessLayerDecodable) {
    const kxio::Luminance8Histogram counts{{{0, 0}, {{7, 3}, {9, 1}}}};
    kxio::Luminance8HistogramHeader record(counts);
    ScanFileBuilder file = BareScan();
    file.Tail(Written(record));
    MemoryScan scan(file.Build());
    const kxio::ScanAccess access(scan.reader);
    const kxio::ExtendedHeader read = access.ReadHistogramRecord(kxbase::Luminance8);
    EXPECT_EQ(kxio::Luminance8HistogramHeader(read).GetHistogram(), counts);
}

struct ModelCase {
    std::wstring model;
    bool isRm;
};
void PrintTo(const ModelCase& tested, std::ostream* out) {
    // Letters and digits only: the text becomes part of a test's name.
    if (tested.model.empty()) *out << "empty";
    for (const wchar_t c : tested.model.substr(0, 24)) {
        if (c < 0x80 && std::isalnum(static_cast<int>(c)) != 0) {
            *out << static_cast<char>(c);
        } else {
            *out << "_" << static_cast<unsigned>(c) << "_";
        }
    }
}
class ScannerModel : public testing::TestWithParam<ModelCase> {};
TEST_P(ScannerModel, IsMatchedAsAWhole) {
    EXPECT_EQ(kxio::IsRmModel(GetParam().model), GetParam().isRm);
}
INSTANTIATE_TEST_SUITE_P(Models, ScannerModel,
                         testing::Values(ModelCase{L"Ostrak RM7", true}, ModelCase{L"Ostrak RM", true},
                                         ModelCase{L"Ostrak RM 7 plus", true}, ModelCase{L"Ostrak RX", false},
                                         ModelCase{L"xOstrak RM7", false},
                                         ModelCase{L"Ostrak RM7\nfoo", false},
                                         ModelCase{L"Ostrak RM7\r", false},
                                         ModelCase{L"Ostrak RM\u2028", false},
                                         ModelCase{L"Ostrak RM\u2029", false}, ModelCase{L"", false},
                                         ModelCase{L"Ostrak", false}, ModelCase{L"ostrak rm7", false},
                                         ModelCase{L"Ostrak RM" + std::wstring(200000, L'x'), true}));

TEST(ScannerModel, VeryLongModelOpens) {
    ScanFileBuilder file = BareScan();
    file.properties.scannerModel = L"Ostrak RM" + std::wstring(200000, L'x');
    file.properties.grid.rowAngularStep = 0.00019F;
    file.Tail(TextRecord(kMessage, "x"));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetScanInformation().scanningMode, L"Level 3");
}

struct StepCase {
    float step;
    std::wstring mode;
};
void PrintTo(const StepCase& tested, std::ostream* out) {
    *out << tested.step;
}
class ScanningModeOfStep : public testing::TestWithParam<StepCase> {};
TEST_P(ScanningModeOfStep, IsTheNearestNominalOne) {
    EXPECT_EQ(kxio::ScanningModeOfStep(GetParam().step), GetParam().mode) << GetParam().step;
    ScanFileBuilder file = BareScan();
    file.properties.scannerModel = L"Ostrak RM7";
    file.properties.grid.rowAngularStep = GetParam().step;
    file.Tail(TextRecord(kScanningMode, ""));  // present and empty counts as absent
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetScanInformation().scanningMode, GetParam().mode);
}
INSTANTIATE_TEST_SUITE_P(Steps, ScanningModeOfStep,
                         testing::Values(StepCase{0.00014F, L""}, StepCase{0.00019F, L"Level 3"},
                                         StepCase{0.000221F, L"Level 3"}, StepCase{0.0002211F, L"Extended"},
                                         StepCase{0.000252F, L"Extended"}, StepCase{0.000316F, L"Extended"},
                                         StepCase{0.00038F, L"Level 2"}, StepCase{0.000754F, L"Level 1"},
                                         StepCase{0.001F, L""}, StepCase{0.001131F, L""},
                                         StepCase{0.001508F, L"Preview"}, StepCase{0.0019F, L""},
                                         StepCase{0.0F, L""}));

TEST(ScanningMode, StoredOneIsNotReplaced) {
    ScanFileBuilder file = BareScan();
    file.properties.scannerModel = L"Ostrak RM7";
    file.properties.grid.rowAngularStep = 0.00019F;
    file.Tail(TextRecord(kScanningMode, "own"));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetScanInformation().scanningMode, L"own");
}

TEST(ScanningMode, OtherModelsHaveNone) {
    ScanFileBuilder file = BareScan();
    file.properties.scannerModel = L"Ostrak RX";
    file.properties.grid.rowAngularStep = 0.00019F;
    file.Tail(TextRecord(kMessage, "x"));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetScanInformation().scanningMode, L"");
}

}  // namespace
