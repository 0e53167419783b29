// SPDX-License-Identifier: MIT
// Random contents: what is written reads back as it was.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <bit>

#include "kxio/CommentExtendedHeader.h"
#include "kxio/HistogramHeader.h"
#include "kxio/LookupTableHeader.h"
#include "kxio/MinMaxHeader.h"
#include "kxio/ScanHeader.h"
#include "support/RecordBytes.h"

namespace {

using kxtest::Bytes;

// Any text of valid characters without NUL.
rc::Gen<std::wstring> Text() {
    const auto character = rc::gen::map(
        rc::gen::oneOf(rc::gen::inRange<uint32_t>(1, 0x80), rc::gen::inRange<uint32_t>(0x80, 0xd800),
                       rc::gen::inRange<uint32_t>(0xe000, 0x10000),
                       rc::gen::inRange<uint32_t>(0x10000, 0x110000)),
        [](uint32_t c) { return static_cast<wchar_t>(c); });
    return rc::gen::container<std::wstring>(character);
}

// Seconds from 1970 to 9999.
rc::Gen<kxbase::Date> DateTime() {
    return rc::gen::map(rc::gen::inRange<int64_t>(0, 253402300800),
                        [](int64_t seconds) { return kxbase::Date::FromUnixSeconds(seconds); });
}

float AnyFloat() {
    const float value = std::bit_cast<float>(*rc::gen::arbitrary<uint32_t>());
    return value == value ? value : 0.0F;
}
double AnyDouble() {
    const double value = std::bit_cast<double>(*rc::gen::arbitrary<uint64_t>());
    return value == value ? value : 0.0;
}

RC_GTEST_PROP(ScanHeaderProperty, WrittenRecordReadsBackAsItWas, ()) {
    kxio::ScanHeader header;
    kxio::ScanProperties& p = header.properties;
    p.grid.columnStartAngle = AnyFloat();
    p.grid.rowStartAngle = AnyFloat();
    p.grid.columnAngularStep = std::abs(AnyFloat());
    p.grid.rowAngularStep = std::abs(AnyFloat());
    p.grid.columns = *rc::gen::arbitrary<uint32_t>();
    p.grid.rows = *rc::gen::arbitrary<uint32_t>();
    p.grid.patchWidth = *rc::gen::arbitrary<uint32_t>();
    p.grid.patchHeight = *rc::gen::arbitrary<uint32_t>();
    p.grid.UpdatePreview(2.0);
    p.grid.UpdateHalfSteps();
    double values[12];
    for (double& value : values)
        value = AnyDouble();
    p.registration = kxbase::RegistrationInformation::FromValues(values);
    p.validPointCount = *rc::gen::arbitrary<uint64_t>();
    p.speckleCorrectionNeeded = *rc::gen::arbitrary<bool>();
    p.spatialSamplingDistance = AnyFloat();
    p.locked3D = *rc::gen::arbitrary<bool>();
    p.projectionMode = *rc::gen::arbitrary<bool>();
    p.framingMode = static_cast<kxio::ScanProperties::ScanFrameType>(*rc::gen::arbitrary<uint32_t>());
    for (uint32_t& word : p.furtherWords)
        word = *rc::gen::arbitrary<uint32_t>();
    for (uint32_t& word : p.words260)
        word = *rc::gen::arbitrary<uint32_t>();
    p.tilt.kind = *rc::gen::arbitrary<uint32_t>();
    p.tilt.angles.first = AnyDouble();
    p.tilt.angles.second = AnyDouble();
    p.dateStatus = *rc::gen::arbitrary<uint32_t>();
    p.firstDate = *DateTime();
    p.secondDate = *DateTime();
    p.scannerModel = *Text();
    for (std::wstring& text : p.descriptions)
        text = *Text();

    const Bytes bytes = kxtest::Written(header);
    RC_ASSERT(bytes.size() == 16U + header.DataSize(270));
    kxio::ScanHeader read;
    RC_ASSERT(kxtest::ReadFrom(read, bytes) == bytes.size());
    RC_ASSERT(read.properties == p);
    RC_ASSERT(kxtest::Written(read) == bytes);
}

RC_GTEST_PROP(LookupTableProperty, WrittenRecordReadsBackAsItWas, ()) {
    kxio::LookupTable table;
    const auto components = *rc::gen::container<std::vector<uint32_t>>(rc::gen::arbitrary<uint32_t>());
    for (const uint32_t component : components) {
        auto& entries = table[static_cast<kxbase::ComponentType>(component)];
        const auto count = *rc::gen::inRange<uint32_t>(0, 20);
        entries.clear();
        for (uint32_t i = 0; i < count; ++i)
            entries.push_back({*rc::gen::arbitrary<uint64_t>(), *rc::gen::arbitrary<uint32_t>(), i});
    }
    kxio::LookupTableHeader header(&table);
    const Bytes bytes = kxtest::Written(header);
    kxio::LookupTable read;
    kxio::LookupTableHeader reading(&read);
    RC_ASSERT(kxtest::ReadFrom(reading, bytes) == bytes.size());
    RC_ASSERT(read == table);
}

RC_GTEST_PROP(CommentProperty, TextReadsBackAsItWas, ()) {
    const std::wstring text = *Text();
    kxio::CommentExtendedHeader header(text);
    const Bytes bytes = kxtest::Written(header);
    RC_ASSERT(bytes.size() == 36U + header.GetDataBufferSize());
    kxio::ExtendedHeader generic;
    RC_ASSERT(kxtest::ReadFrom(generic, bytes) == bytes.size());
    RC_ASSERT(kxio::CommentExtendedHeader(generic).Message() == text);
}

RC_GTEST_PROP(HistogramProperty, MapReadsBackAsItWas, ()) {
    kxio::SegmentHistogram histogram;
    const auto entries = *rc::gen::inRange<int>(0, 10);
    for (int i = 0; i < entries; ++i) {
        auto& values =
            histogram[kxbase::QSNIndex(*rc::gen::arbitrary<uint32_t>(), *rc::gen::arbitrary<uint32_t>())];
        const auto count = *rc::gen::inRange<int>(0, 10);
        for (int v = 0; v < count; ++v)
            values[*rc::gen::arbitrary<uint64_t>()] = *rc::gen::arbitrary<uint64_t>();
    }
    kxio::SegmentHistogramHeader header(histogram);
    kxio::ExtendedHeader generic;
    RC_ASSERT(kxtest::ReadFrom(generic, kxtest::Written(header)) != 0U);
    RC_ASSERT(kxio::SegmentHistogramHeader(generic).GetHistogram() == histogram);
}

// A record of damaged bytes is read, is none, or is refused in a known way; then it can be written again.
RC_GTEST_PROP(DamageProperty, ScanHeaderWithFlippedBytesIsReadOrRefused, ()) {
    Bytes record = kxtest::GoldenHex("records/scan-270.hex");
    const auto flips = *rc::gen::inRange<int>(1, 6);
    for (int i = 0; i < flips; ++i)
        record[*rc::gen::inRange<size_t>(8, record.size())] = *rc::gen::arbitrary<unsigned char>();
    kxio::ScanHeader header;
    try {
        if (kxtest::ReadFrom(header, record) == 0) RC_DISCARD("no record");
    } catch (const kxbase::KXHeaderReadingException& e) {
        RC_ASSERT(std::string(e.what()) == "Unsupported ScanHeader version");
        RC_DISCARD("refused");
    }
    kxio::ScanHeader again;
    RC_ASSERT(kxtest::ReadFrom(again, kxtest::Written(header)) != 0U);
}

}  // namespace
