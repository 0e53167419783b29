// SPDX-License-Identifier: MIT
#include "kxio/ExtendedHeader.h"

#include <gtest/gtest.h>

#include "kxio/ColorizationModeExtendedHeader.h"
#include "kxio/CommentExtendedHeader.h"
#include "kxio/ERExtendedHeader.h"
#include "kxio/HDRExtendedHeader.h"
#include "kxio/HQExtendedHeader.h"
#include "kxio/PreregistrationExtendedHeader.h"
#include "kxio/ScanHeader.h"
#include "kxio/ScanningModeExtendedHeader.h"
#include "kxio/UUIDExtendedHeader.h"
#include "kxio/WarningExtendedHeader.h"
#include "support/AllocationWatch.h"
#include "support/RecordBytes.h"

namespace {

using kxbase::UUID;
using kxio::ExtendedHeader;
using kxtest::ByteList;
using kxtest::Bytes;
using kxtest::GoldenHex;

const wchar_t* const kUuidA = L"10111213-1415-1617-1819-1a1b1c1d1e1f";
const wchar_t* const kUuidB = L"a0a1a2a3-a4a5-a6a7-a8a9-aaabacadaeaf";

Bytes DataOf(const ExtendedHeader& header) {
    return {header.GetDataBuffer(), header.GetDataBuffer() + header.GetDataBufferSize()};
}

ExtendedHeader Generic(const Bytes& record) {
    ExtendedHeader header;
    EXPECT_EQ(kxtest::ReadFrom(header, record), record.size());
    return header;
}
ExtendedHeader GenericWithData(const Bytes& data, uint64_t type = 1) {
    return Generic(kxtest::ExtendedRecord(type, data));
}

TEST(ExtendedHeader, ReadsLinkTypeAndData) {
    const ExtendedHeader header = Generic(GoldenHex("records/extended-comment.hex"));
    EXPECT_EQ(header.GetLink(), 0x1234U);
    EXPECT_FALSE(header.IsLastHeader());
    EXPECT_EQ(header.GetType(), 0xac14e2e7714a591eULL);
    EXPECT_EQ(DataOf(header), kxtest::Hex("67 72 c3 bc c3 9f 65 00"));
    EXPECT_EQ(header.GetVersion(), 100U);
    EXPECT_TRUE(Generic(GoldenHex("records/extended-warning.hex")).IsLastHeader());
}

TEST(ExtendedHeader, GenericRecordIsRewrittenByteForByte) {
    for (const char* name : {"comment", "warning", "hq", "er", "hdr", "scanning-mode", "colorization-mode",
                             "uuid", "preregistration", "histogram-class", "histogram-segment",
                             "histogram-luminance8", "histogram-luminance16"}) {
        const Bytes record = GoldenHex(std::string("records/extended-") + name + ".hex");
        ExtendedHeader header = Generic(record);
        EXPECT_EQ(kxtest::Written(header), record) << name;
    }
}

TEST(ExtendedHeader, AnyVersionIsAccepted) {
    const Bytes record = kxtest::ExtendedRecord(7, {1, 2});
    for (const uint32_t version : {0U, 1U, 99U, 101U, 0xffffffffU}) {
        ExtendedHeader header;
        EXPECT_EQ(kxtest::ReadFrom(header, kxtest::WithVersion(record, version)), record.size());
        EXPECT_EQ(header.GetType(), 7U);
    }
}

TEST(ExtendedHeader, BytesBehindTheDataAreIgnored) {
    const Bytes payload = ByteList().U64(0).U64(7).U32(2).U8(1).U8(2).Fill(5, 0xee);
    ExtendedHeader header;
    EXPECT_EQ(kxtest::ReadFrom(header, kxtest::Record(kxtest::kExtendedRecord, payload)), 16U + 27U);
    EXPECT_EQ(DataOf(header), (Bytes{1, 2}));
    EXPECT_EQ(header.HeaderSize(), 43U);
}

TEST(ExtendedHeader, DataBufferGrowsWithZerosOrIsCut) {
    ExtendedHeader header(5);
    EXPECT_EQ(header.GetDataBufferSize(), 0U);
    EXPECT_EQ(header.DataSize(100), 20U);
    header.SetDataBufferSize(3);
    header.GetDataBuffer()[0] = 9;
    header.GetDataBuffer()[2] = 8;
    header.SetDataBufferSize(5);
    EXPECT_EQ(DataOf(header), (Bytes{9, 0, 8, 0, 0}));
    EXPECT_EQ(header.DataSize(100), 25U);
    header.SetDataBufferSize(1);
    EXPECT_EQ(DataOf(header), (Bytes{9}));
    header.SetDataBufferSize(2);
    EXPECT_EQ(DataOf(header), (Bytes{9, 0}));
    EXPECT_EQ(kxtest::Written(header), kxtest::ExtendedRecord(5, {9, 0}));
}

TEST(ExtendedHeader, DataLengthBeyondThePayloadIsRefusedWithoutTakingMemory) {
    for (const uint32_t length : {0xffffffffU, 81U}) {
        const Bytes payload = ByteList().U64(3).U64(7).U32(length).Fill(80, 1);
        ExtendedHeader header(42);
        kxbase::InMemoryStream in(kxtest::Record(kxtest::kExtendedRecord, payload));
        const kxtest::AllocationWatch watch;
        EXPECT_EQ(header.Read(&in), 0U);
        EXPECT_LT(watch.Largest(), 4096U);
        EXPECT_EQ(header.GetType(), 42U);
        EXPECT_EQ(header.GetLink(), 0U);
        EXPECT_EQ(header.GetDataBufferSize(), 0U);
        EXPECT_EQ(in.Tell(), 0U);
    }
}

TEST(ExtendedHeader, DataAboveTheWorkingAreaRoundTrips) {
    const Bytes record = kxtest::ExtendedRecord(9, Bytes(5000, 0x5a));
    ExtendedHeader header = Generic(record);
    EXPECT_EQ(header.GetDataBufferSize(), 5000U);
    EXPECT_EQ(kxtest::Written(header), record);
}

TEST(ExtendedHeader, EachKindHasItsTypeTag) {
    EXPECT_EQ(kxio::CommentExtendedHeader::Type, 0xac14e2e7714a591eULL);
    EXPECT_EQ(kxio::WarningExtendedHeader::Type, 0xaa661a5ee949e151ULL);
    EXPECT_EQ(kxio::HQExtendedHeader::Type, 0xbfb6c3129e0b3496ULL);
    EXPECT_EQ(kxio::ERExtendedHeader::Type, 0x87d56a371c93300cULL);
    EXPECT_EQ(kxio::HDRExtendedHeader::Type, 0xacbbe8c8d0fce365ULL);
    EXPECT_EQ(kxio::ScanningModeExtendedHeader::Type, 0x91acbfc234bec3a9ULL);
    EXPECT_EQ(kxio::ColorizationModeExtendedHeader::Type, 0x9554a8463740bb07ULL);
    EXPECT_EQ(kxio::UUIDExtendedHeader::Type, 0x84968181ef2d2134ULL);
    EXPECT_EQ(kxio::PreregistrationExtendedHeader::Type, 0x940a8701d02f837bULL);
}

// The text kinds: from a value, to bytes, from bytes.
template <class Kind>
void ExpectTextKind(const char* golden, const std::wstring& text) {
    const Bytes record = GoldenHex(std::string("records/extended-") + golden + ".hex");
    Kind made(text);
    made.SetLink(Generic(record).GetLink());
    EXPECT_EQ(made.GetType(), Kind::Type);
    EXPECT_EQ(kxtest::ToHex(kxtest::Written(made)), kxtest::ToHex(record)) << golden;
    const Kind decoded{Generic(record)};
    EXPECT_EQ(decoded.Message(), text) << golden;
    EXPECT_EQ(decoded.GetType(), Kind::Type);
    Kind direct(L"something else");
    EXPECT_EQ(kxtest::ReadFrom(direct, record), record.size());
    EXPECT_EQ(direct.Message(), text) << golden << ", read directly";
    const kxio::CommentExtendedHeader& asComment = decoded;
    EXPECT_EQ(asComment.Message(), text);
}

template <class Kind>
void ExpectLinkKind(const char* golden, const wchar_t* uuid) {
    ExpectTextKind<Kind>(golden, uuid);
    Kind fromUuid{UUID(std::wstring(uuid))};
    EXPECT_EQ(kxtest::Written(fromUuid), GoldenHex(std::string("records/extended-") + golden + ".hex"));
    EXPECT_EQ(fromUuid.GetUUID(), UUID(std::wstring(uuid)));
    EXPECT_EQ(fromUuid.GetDataBufferSize(), 37U);
}

TEST(TextExtendedHeaders, MatchTheirGoldenRecords) {
    ExpectTextKind<kxio::CommentExtendedHeader>("comment", L"gr\u00fc\u00dfe");
    ExpectTextKind<kxio::WarningExtendedHeader>("warning", L"low battery");
    ExpectTextKind<kxio::ScanningModeExtendedHeader>("scanning-mode", L"Level 2");
    ExpectTextKind<kxio::ColorizationModeExtendedHeader>("colorization-mode", L"HDR");
}

TEST(LinkExtendedHeaders, MatchTheirGoldenRecords) {
    ExpectLinkKind<kxio::HQExtendedHeader>("hq", kUuidA);
    ExpectLinkKind<kxio::ERExtendedHeader>("er", kUuidB);
    ExpectLinkKind<kxio::HDRExtendedHeader>("hdr", kUuidA);
}

TEST(LinkExtendedHeaders, TextThatIsNoUuidIsKeptAndOnlyItsUseFails) {
    const kxio::HQExtendedHeader header{GenericWithData({'h', 'e', 'l', 'l', 'o', 0})};
    EXPECT_EQ(header.Message(), L"hello");
    EXPECT_THROW(static_cast<void>(header.GetUUID()), kxbase::KXBadInputException);
}

TEST(CommentExtendedHeader, EmptyTextTakesOneByte) {
    kxio::CommentExtendedHeader header(L"");
    EXPECT_EQ(header.GetDataBufferSize(), 1U);
    EXPECT_EQ(header.HeaderSize(), 37U);
    EXPECT_EQ(kxtest::Written(header), kxtest::ExtendedRecord(0xac14e2e7714a591eULL, {0}));
    EXPECT_EQ(kxio::CommentExtendedHeader{GenericWithData({0})}.Message(), L"");
    EXPECT_EQ(kxio::CommentExtendedHeader{GenericWithData({})}.Message(), L"");
}

TEST(CommentExtendedHeader, RecordIsThirtySixBytesAndTheTextWithItsNul) {
    kxio::CommentExtendedHeader header(L"\u00e4\U0001F4F7");
    EXPECT_EQ(kxtest::Written(header).size(), 36U + 2 + 4 + 1);
    EXPECT_EQ(kxio::CommentExtendedHeader(static_cast<const ExtendedHeader&>(header)).Message(),
              L"\u00e4\U0001F4F7");
}

TEST(CommentExtendedHeader, BytesThatAreNoUtf8BecomeOneReplacementCharacter) {
    kxio::CommentExtendedHeader header{GenericWithData({0xff, 0})};
    EXPECT_EQ(header.Message(), L"\xfffd");
    EXPECT_EQ(kxtest::Written(header), kxtest::ExtendedRecord(0xac14e2e7714a591eULL, {0xef, 0xbf, 0xbd, 0}));
}

TEST(CommentExtendedHeader, TextWithoutNulIsTakenWhole) {
    kxio::CommentExtendedHeader header{GenericWithData({'a', 'b', 'c'})};
    EXPECT_EQ(header.Message(), L"abc");
    EXPECT_EQ(kxtest::Written(header), kxtest::ExtendedRecord(0xac14e2e7714a591eULL, {'a', 'b', 'c', 0}));
}

TEST(CommentExtendedHeader, TextEndsAtItsFirstNul) {
    EXPECT_EQ(kxio::CommentExtendedHeader{GenericWithData({'a', 0, 'b', 0})}.Message(), L"a");
}

TEST(CommentExtendedHeader, EmbeddedNulKeepsTheLengthAndCutsTheText) {
    kxio::CommentExtendedHeader header(std::wstring(L"AB\0C", 4));
    EXPECT_EQ(header.GetDataBufferSize(), 5U);
    EXPECT_EQ(kxtest::Written(header), kxtest::ExtendedRecord(0xac14e2e7714a591eULL, {'A', 'B', 0, 0, 0}));
}

TEST(CommentExtendedHeader, BufferOfAnotherSizeIsFilledWithinItsBounds) {
    kxio::CommentExtendedHeader header(L"hello");
    header.SetDataBufferSize(3);
    EXPECT_EQ(kxtest::Written(header), kxtest::ExtendedRecord(0xac14e2e7714a591eULL, {'h', 'e', 0}));
    header.SetDataBufferSize(8);
    EXPECT_EQ(kxtest::Written(header),
              kxtest::ExtendedRecord(0xac14e2e7714a591eULL, {'h', 'e', 'l', 'l', 'o', 0, 0, 0}));
    header.SetDataBufferSize(0);
    EXPECT_EQ(kxtest::Written(header), kxtest::ExtendedRecord(0xac14e2e7714a591eULL, {}));
}

TEST(CommentExtendedHeader, KindOfAnotherTypeIsDecodedAnyway) {
    const kxio::WarningExtendedHeader header{Generic(GoldenHex("records/extended-comment.hex"))};
    EXPECT_EQ(header.Message(), L"gr\u00fc\u00dfe");
    EXPECT_EQ(header.GetType(), kxio::WarningExtendedHeader::Type);
    EXPECT_EQ(header.GetLink(), 0x1234U);
}

TEST(CommentExtendedHeader, CopiesKeepEverything) {
    const kxio::CommentExtendedHeader original{Generic(GoldenHex("records/extended-comment.hex"))};
    kxio::CommentExtendedHeader copy(original);
    kxio::CommentExtendedHeader moved(std::move(copy));
    kxio::CommentExtendedHeader assigned(L"x");
    assigned = moved;
    EXPECT_EQ(assigned.Message(), original.Message());
    EXPECT_EQ(assigned.GetLink(), original.GetLink());
    EXPECT_EQ(kxtest::Written(assigned), GoldenHex("records/extended-comment.hex"));
}

TEST(UUIDExtendedHeader, MatchesItsGoldenRecord) {
    kxio::UUIDExtendedHeader made{UUID(std::wstring(kUuidA)), UUID(std::wstring(kUuidB))};
    const Bytes record = GoldenHex("records/extended-uuid.hex");
    EXPECT_EQ(kxtest::ToHex(kxtest::Written(made)), kxtest::ToHex(record));
    const kxio::UUIDExtendedHeader decoded{Generic(record)};
    EXPECT_EQ(decoded.GetScanUUID(), UUID(std::wstring(kUuidA)));
    EXPECT_EQ(decoded.GetParentUUID(), UUID(std::wstring(kUuidB)));
    kxio::UUIDExtendedHeader direct;
    kxtest::ReadFrom(direct, record);
    EXPECT_EQ(direct.GetParentUUID(), UUID(std::wstring(kUuidB)));
}

TEST(UUIDExtendedHeader, StartsWithZeroIdentifiers) {
    kxio::UUIDExtendedHeader header;
    EXPECT_TRUE(header.GetScanUUID().IsZero());
    EXPECT_TRUE(header.GetParentUUID().IsZero());
    EXPECT_EQ(kxtest::Written(header), kxtest::ExtendedRecord(0x84968181ef2d2134ULL, Bytes(32, 0)));
}

TEST(UUIDExtendedHeader, ShortDataYieldsZeroIdentifiers) {
    for (const size_t size : {0U, 1U, 16U, 31U}) {
        kxio::UUIDExtendedHeader header{GenericWithData(Bytes(size, 0x77))};
        EXPECT_TRUE(header.GetScanUUID().IsZero()) << size;
        EXPECT_TRUE(header.GetParentUUID().IsZero()) << size;
        EXPECT_EQ(header.GetDataBufferSize(), 32U);
    }
}

TEST(PreregistrationExtendedHeader, MatchesItsGoldenRecord) {
    const double values[12] = {0, 1, 0, -1, 0, 0, 0, 0, 1, 1, 2, 3};
    const auto registration = kxbase::RegistrationInformation::FromValues(values);
    kxio::PreregistrationExtendedHeader made(0.75, UUID(std::wstring(kUuidB)), registration);
    const Bytes record = GoldenHex("records/extended-preregistration.hex");
    EXPECT_EQ(kxtest::ToHex(kxtest::Written(made)), kxtest::ToHex(record));
    const kxio::PreregistrationExtendedHeader decoded{Generic(record)};
    EXPECT_EQ(decoded.GetValue(), 0.75);
    EXPECT_EQ(decoded.GetUUID(), UUID(std::wstring(kUuidB)));
    EXPECT_EQ(decoded.GetRegistration(), registration);
    EXPECT_EQ(decoded.GetDataBufferSize(), 120U);
}

TEST(PreregistrationExtendedHeader, ShortDataYieldsTheDefaults) {
    for (const size_t size : {0U, 8U, 24U, 119U}) {
        const kxio::PreregistrationExtendedHeader header{GenericWithData(Bytes(size, 0x41))};
        EXPECT_EQ(header.GetValue(), 0.0) << size;
        EXPECT_TRUE(header.GetUUID().IsZero()) << size;
        EXPECT_EQ(header.GetRegistration(), kxbase::RegistrationInformation()) << size;
    }
}

TEST(PreregistrationExtendedHeader, StoresTheSame96BytesAsTheScanHeader) {
    const double values[12] = {0.1, 0.2, 0.3, -0.4, 0.5, -0.6, 7, 8, 9, 1e10, -1e-10, 3};
    const auto registration = kxbase::RegistrationInformation::FromValues(values);
    kxio::ScanHeader scan;
    scan.properties.registration = registration;
    kxio::PreregistrationExtendedHeader pre(0, UUID(), registration);
    const Bytes scanBytes = kxtest::Written(scan);
    const Bytes preBytes = kxtest::Written(pre);
    EXPECT_EQ(Bytes(scanBytes.begin() + 68, scanBytes.begin() + 164),
              Bytes(preBytes.begin() + 36 + 24, preBytes.begin() + 36 + 120));
}

}  // namespace
