// SPDX-License-Identifier: MIT
#include "kxio/ScanHeader.h"

#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "format/RecordSize.h"
#include "format/RegistrationBytes.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/UTF8.h"

namespace kxio {

namespace {

constexpr uint32_t kGridSize = 44;  // the whole payload of version 200
constexpr uint32_t kRegistrationAndCount = 104;
constexpr uint32_t kCountAlone = 8;
constexpr uint32_t kFlagsOf250 = 37;

// A double beyond the floats becomes infinite; a plain conversion would be undefined.
float NarrowAngle(double value) {
    constexpr double kLargest = std::numeric_limits<float>::max();
    if (std::abs(value) > kLargest) {
        return std::copysign(std::numeric_limits<float>::infinity(), value > 0 ? 1.0F : -1.0F);
    }
    return static_cast<float>(value);
}

// The six texts in the order of the record.
std::array<std::string, 6> Texts(const ScanProperties& properties) {
    return {properties.firstDate.ToISOString(),
            properties.secondDate.ToISOString(),
            kxbase::Encode_UTF8(properties.scannerModel),
            kxbase::Encode_UTF8(properties.descriptions[0]),
            kxbase::Encode_UTF8(properties.descriptions[1]),
            kxbase::Encode_UTF8(properties.descriptions[2])};
}

// What is written of a text ends at its first NUL.
uint64_t WrittenSize(const std::string& text) {
    const size_t nul = text.find('\0');
    return uint64_t{nul == std::string::npos ? text.size() : nul} + 1;
}

std::wstring DecodeText(kxbase::ByteReader& in, const char* field) {
    return kxbase::Decode_UTF8(in.TextToNul(field));
}

// A text that is no date leaves no date and makes the status say so.
kxbase::Date DecodeDate(kxbase::ByteReader& in, const char* field, uint32_t& status) {
    const std::wstring text = DecodeText(in, field);
    try {
        return kxbase::Date(text);
    } catch (const kxbase::KXException&) {
        status = 1;
        return {};
    }
}

void DecodeGrid(kxbase::ByteReader& in, kxbase::GridTopology& grid) {
    grid.rowAngularStep = NarrowAngle(in.F64("row angular step"));
    grid.columnAngularStep = NarrowAngle(in.F64("column angular step"));
    grid.rowStartAngle = NarrowAngle(in.F64("row start angle"));
    grid.columnStartAngle = NarrowAngle(in.F64("column start angle"));
    grid.rows = in.U32("row count");
    grid.columns = in.U32("column count");
    grid.patchWidth = in.U32("patch width");
    grid.patchHeight = grid.patchWidth;
}

void Decode250(kxbase::ByteReader& in, ScanProperties& properties) {
    properties.projectionMode = in.U8("projection mode") != 0;
    properties.framingMode = static_cast<ScanProperties::ScanFrameType>(in.U32("framing mode"));
    for (uint32_t& word : properties.furtherWords)
        word = in.U32("further words");
    properties.tilt.kind = in.U32("tilt kind");
    properties.tilt.angles.first = in.F64("first tilt angle");
    properties.tilt.angles.second = in.F64("second tilt angle");
    properties.dateStatus = in.U32("date status");
    properties.firstDate = DecodeDate(in, "first date", properties.dateStatus);
    properties.secondDate = DecodeDate(in, "second date", properties.dateStatus);
    properties.scannerModel = DecodeText(in, "scanner model");
    for (std::wstring& text : properties.descriptions)
        text = DecodeText(in, "description");
}

// The layout step that a version belongs to: one of the eight, 270 for every unlisted version.
uint32_t LayoutOf(uint32_t version) {
    switch (version) {
        case 200:
        case 210:
        case 220:
        case 230:
        case 240:
        case 250:
        case 260:
            return version;
        default:
            return ScanHeader::CurrentVersion;
    }
}

}  // namespace

ScanHeader::ScanHeader() = default;
ScanHeader::ScanHeader(const ScanHeader&) = default;
ScanHeader::ScanHeader(ScanHeader&&) noexcept = default;
ScanHeader& ScanHeader::operator=(const ScanHeader&) = default;
ScanHeader& ScanHeader::operator=(ScanHeader&&) noexcept = default;
ScanHeader::~ScanHeader() = default;

uint64_t ScanHeader::GetMagic() const {
    return Magic;
}
uint32_t ScanHeader::GetCurrentVersion() const {
    return CurrentVersion;
}
const char* ScanHeader::GetRecordName() const {
    return "ScanHeader";
}
uint32_t ScanHeader::DataSize(uint32_t version) const {
    uint64_t size = kGridSize;
    // The version that the record itself holds decides about the registration, not the one asked for.
    if (version >= 210) size += GetVersion() >= 210 ? kRegistrationAndCount : kCountAlone;
    if (version >= 220) size += 1;
    if (version >= 230) size += 4;
    if (version >= 240) size += 1;
    if (version >= 250) {
        size += kFlagsOf250;
        for (const std::string& text : Texts(properties))
            size += WrittenSize(text);
    }
    if (version >= 260) size += 12;
    if (version >= 270) size += 4;
    return CheckedPayloadSize(size, GetRecordName());
}

void ScanHeader::_Read(const unsigned char* payload) {
    RequireVersion(MinimumVersion, "Unsupported ScanHeader version");
    kxbase::ByteReader in = PayloadReader(payload);
    const uint32_t layout = LayoutOf(GetVersion());

    ScanProperties read;
    DecodeGrid(in, read.grid);
    if (layout >= 210) {
        read.validPointCount = in.U64("valid point count");
        read.registration = DecodeRegistration(in);
    }
    if (layout >= 220) {
        const bool needed = in.U8("speckle correction needed") != 0;
        // Files of version 220 were never read with this flag; it stays so.
        if (layout >= 230) read.speckleCorrectionNeeded = needed;
    }
    if (layout >= 230) read.spatialSamplingDistance = in.F32("spatial sampling distance");
    if (layout >= 240) read.locked3D = in.U8("3D lock") != 0;
    if (layout >= 250) Decode250(in, read);
    if (layout >= 260) {
        for (uint32_t& word : read.words260)
            word = in.U32("words of version 260");
    }
    if (layout >= 270) read.grid.patchHeight = in.U32("patch height");
    read.grid.UpdatePreview(PreviewFactor);
    read.grid.UpdateHalfSteps();

    properties = std::move(read);
    m_speckleOffset = GetVersion() >= 220 ? SpeckleOffset : 0;
}

void ScanHeader::_Write(unsigned char* payload, uint32_t size) {
    const kxbase::GridTopology& grid = properties.grid;
    kxbase::ByteWriter out({payload, size});
    out.F64(std::abs(static_cast<double>(grid.rowAngularStep)));
    out.F64(std::abs(static_cast<double>(grid.columnAngularStep)));
    out.F64(static_cast<double>(grid.rowStartAngle));
    out.F64(static_cast<double>(grid.columnStartAngle));
    out.U32(grid.rows);
    out.U32(grid.columns);
    out.U32(grid.patchWidth);
    out.U64(properties.validPointCount);
    EncodeRegistration(properties.registration, out);
    out.U8(properties.speckleCorrectionNeeded ? 1 : 0);
    out.F32(properties.spatialSamplingDistance);
    out.U8(properties.locked3D ? 1 : 0);
    out.U8(properties.projectionMode ? 1 : 0);
    out.U32(properties.framingMode);
    for (const uint32_t word : properties.furtherWords)
        out.U32(word);
    out.U32(properties.tilt.kind);
    out.F64(properties.tilt.angles.first);
    out.F64(properties.tilt.angles.second);
    out.U32(properties.dateStatus);
    for (const std::string& text : Texts(properties))
        out.TextWithNul(text);
    for (const uint32_t word : properties.words260)
        out.U32(word);
    out.U32(grid.patchHeight);
    m_speckleOffset = SpeckleOffset;
}

}  // namespace kxio
