// SPDX-License-Identifier: MIT
#include "services/VerifyHeaders.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "kxbase/IInFileStream.h"
#include "kxbase/UTF8.h"
#include "kxcodecs/ChunkCodecFactory.h"
#include "kxcodecs/JPEG.h"
#include "kxio/ComponentHeader.h"
#include "kxio/ThumbnailHeader.h"
#include "services/VerifyExtended.h"

namespace kxio {

namespace {

std::string Number(uint64_t value) {
    return std::to_string(value);
}

class HeaderCheck {
public:
    HeaderCheck(FileWindow& file, const FileLayout& layout, bool decode, FindingList& findings)
        : m_file(file), m_layout(layout), m_decode(decode), m_findings(findings) {}

    VerifiedHeaders Run() {
        MainHeader();
        Scan();
        if (m_layout.mainHeader) {
            Components();
            Limits();
            Thumbnail();
            VerifyExtendedRecords(m_file, m_layout, m_findings, m_result.histograms);
        }
        return std::move(m_result);
    }

private:
    void MainHeader();
    void Scan();
    void ScanNumbers(const ScanHeader& header);
    void Flags(const ScanHeader& header);
    void Components();
    void Limits();
    void Thumbnail();
    bool At(uint64_t position, const char* field, kxbase::IOHeader& record);

    FileWindow& m_file;
    const FileLayout& m_layout;
    const bool m_decode;
    FindingList& m_findings;
    VerifiedHeaders m_result;
};

/// Reads the record that a field of the main header points to.
bool HeaderCheck::At(uint64_t position, const char* field, kxbase::IOHeader& record) {
    kxbase::ErrorContext problem;
    if (ReadRecord(m_file, position, record, problem)) return true;
    m_findings.Add(Error(record.GetRecordName())
                       .At(problem.offset)
                       .Field(problem.field)
                       .Says("no such record where the main header's " + std::string(field) +
                             " points, byte " + Number(position) + ": " + problem.detail));
    return false;
}

void HeaderCheck::MainHeader() {
    if (m_layout.refusal) {
        const kxbase::ErrorContext& context = m_layout.refusal->Context();
        m_findings.Add(Error("MainFileHeader")
                           .At(0)
                           .Field(context.field)
                           .Says(std::string(m_layout.refusal->what()) + ": " + context.detail));
        return;
    }
    if (!m_layout.mainHeader) {
        MainFileHeader header;
        kxbase::ErrorContext problem;
        ReadRecord(m_file, 0, header, problem);
        m_findings.Add(
            Error("MainFileHeader").At(0).Field(problem.field).Says("no main header: " + problem.detail));
        return;
    }
    const MainFileHeader& h = *m_layout.mainHeader;
    const auto finding = [&](FindingDraft draft, const char* field, uint64_t at, std::string text) {
        m_findings.Add(draft.At(kxbase::IOHeader::FrameSize + at).Field(field).Says(std::move(text)));
    };
    if (h.GetVersion() != MainFileHeader::CurrentVersion || h.GetDataSize() != MainFileHeader::PayloadSize) {
        m_findings.Add(Warning("MainFileHeader")
                           .At(8)
                           .Field("version")
                           .Says("version " + Number(h.GetVersion()) + " with " + Number(h.GetDataSize()) +
                                 " bytes, of which only version 210 with 76 is known"));
    }
    if (h.scanHeaderPosition == 0) {
        finding(Error("MainFileHeader"), "scan header position", 0, "0: the file was not finished");
    }
    if (h.firstChunkPosition == 0) {
        finding(Error("MainFileHeader"), "first chunk position", 16, "0: no reader opens such a file");
    } else if (h.firstChunkPosition != h.HeaderSize()) {
        finding(Warning("MainFileHeader"), "first chunk position", 16,
                Number(h.firstChunkPosition) + ", but the chunks begin behind the main header, at byte " +
                    Number(h.HeaderSize()));
    }
    if (h.scanHeaderPosition != 0 && h.chunkDataEndPosition != h.scanHeaderPosition) {
        finding(Warning("MainFileHeader"), "chunk data end position", 32,
                Number(h.chunkDataEndPosition) + ", but the scan header that ends the chunks lies at byte " +
                    Number(h.scanHeaderPosition));
    }
    if (h.writerRevision > MainFileHeader::CurrentWriterRevision) {
        finding(Warning("MainFileHeader"), "writer revision", 72,
                Number(h.writerRevision) + " is newer than the " +
                    Number(MainFileHeader::CurrentWriterRevision) + " that is known");
    } else if (h.writerRevision < MainFileHeader::CurrentWriterRevision) {
        finding(Note("MainFileHeader"), "writer revision", 72,
                Number(h.writerRevision) + ": the sampling ratio of its previews cannot be relied on");
    }
    if (h.thumbnailHeaderPosition == 0)
        finding(Note("MainFileHeader"), "thumbnail header position", 40, "0: the file has no thumbnail");
    const bool withoutGrid = m_layout.scanHeader && m_layout.scanHeader->properties.grid.patchWidth == 1 &&
                             m_layout.scanHeader->properties.grid.patchHeight == 1;
    if ((h.previewLookupTablePosition == 0) != (h.boundingInformationPosition == 0)) {
        finding(Warning("MainFileHeader"), "bounding information position", 64,
                h.boundingInformationPosition == 0 ? "0: the file has previews but no limits"
                                                   : "the file has limits but no table of previews");
    } else if (h.boundingInformationPosition == 0 && !withoutGrid) {
        finding(Note("MainFileHeader"), "bounding information position", 64,
                "0: the file has neither previews nor limits");
    }
}

void HeaderCheck::Scan() {
    if (m_layout.mainHeader && m_layout.mainHeader->scanHeaderPosition != 0) {
        ScanHeader header;
        At(m_layout.mainHeader->scanHeaderPosition, "scan header position", header);
    }
    if (!m_layout.scanHeader) {
        m_findings.Add(Error("ScanHeader").Says("no scan header was found; the grid is not known"));
        return;
    }
    const ScanHeader& header = *m_layout.scanHeader;
    if (header.GetDataSize() != header.DataSize(header.GetVersion())) {
        m_findings.Add(Warning("ScanHeader")
                           .At(*m_layout.scanHeaderPosition + 12)
                           .Field("payload size")
                           .Says(Number(header.GetDataSize()) + " bytes, of which version " +
                                 Number(header.GetVersion()) + " has " +
                                 Number(header.DataSize(header.GetVersion()))));
    }
    switch (header.GetVersion()) {
        case 200:
        case 210:
        case 220:
        case 230:
        case 240:
        case 250:
        case 260:
        case 270:
            break;
        default:
            m_findings.Add(
                Warning("ScanHeader")
                    .At(*m_layout.scanHeaderPosition + 8)
                    .Field("version")
                    .Says("version " + Number(header.GetVersion()) + " is not known and read as 270"));
    }
    ScanNumbers(header);
    Flags(header);
}

void HeaderCheck::ScanNumbers(const ScanHeader& header) {
    const ScanProperties& p = header.properties;
    const uint64_t base = *m_layout.scanHeaderPosition + kxbase::IOHeader::FrameSize;
    const auto finding = [&](FindingDraft draft, const char* field, uint64_t at, std::string text) {
        m_findings.Add(draft.At(base + at).Field(field).Says(std::move(text)));
    };
    const auto angle = [&](float value, const char* field, uint64_t at, bool step) {
        constexpr float kFullTurns = 100;  // radians; no scanner counts further
        if (!std::isfinite(value) || std::abs(value) > kFullTurns) {
            finding(Error("ScanHeader"), field, at, std::to_string(value) + " is no angle in radians");
        } else if (step && !(value > 0)) {
            finding(Warning("ScanHeader"), field, at,
                    std::to_string(value) + " is no step; it must be above 0");
        }
    };
    angle(p.grid.rowAngularStep, "row angular step", 0, true);
    angle(p.grid.columnAngularStep, "column angular step", 8, true);
    angle(p.grid.rowStartAngle, "row start angle", 16, false);
    angle(p.grid.columnStartAngle, "column start angle", 24, false);
    const bool holdsChunks = !m_layout.patches.empty() || !m_layout.survey.chunks.empty();
    if (holdsChunks && p.grid.PatchCount64() == 0) {
        finding(Error("ScanHeader"), "row count", 32,
                Number(p.grid.columns) + " x " + Number(p.grid.rows) + " cells in patches of " +
                    Number(p.grid.patchWidth) + " x " + Number(p.grid.patchHeight) +
                    ": no patches, but the file has chunks");
    }
    const uint64_t cells = uint64_t{p.grid.rows} * p.grid.columns;
    const bool withoutGrid = p.grid.patchWidth == 1 && p.grid.patchHeight == 1 && p.grid.rows == 1;
    if (!withoutGrid && p.validPointCount > cells) {
        finding(Error("ScanHeader"), "valid point count", 44,
                Number(p.validPointCount) + ", but the grid has " + Number(cells) + " cells");
    }
    const auto& registration = p.registration;
    const double* values = registration.Values();
    if (!std::all_of(values, values + kxbase::RegistrationInformation::ValueCount,
                     [](double value) { return std::isfinite(value); })) {
        finding(Error("ScanHeader"), "registration", 52, "holds values that are no numbers");
    } else {
        double worst = 0;  // of the scalar products of the axes
        for (int a = 0; a < 3; ++a) {
            for (int b = a; b < 3; ++b) {
                double product = a == b ? -1 : 0;
                for (int i = 0; i < 3; ++i)
                    product += values[3 * a + i] * values[3 * b + i];
                worst = std::max(worst, std::abs(product));
            }
        }
        constexpr double kRigid = 1e-3;
        if (!(worst <= kRigid))
            finding(Warning("ScanHeader"), "registration", 52, "its axes are no rotation");
    }
    if (!std::isfinite(p.spatialSamplingDistance) || p.spatialSamplingDistance < 0) {
        finding(Warning("ScanHeader"), "spatial sampling distance", 149,
                std::to_string(p.spatialSamplingDistance) + " is no distance");
    }
    if (!std::isfinite(p.tilt.angles.first) || !std::isfinite(p.tilt.angles.second))
        finding(Warning("ScanHeader"), "tilt", 171, "holds values that are no angles");
}

/// Bytes of the record that the decoded fields do not show: flags other than 0 and 1, texts that are no
/// UTF-8.
void HeaderCheck::Flags(const ScanHeader& header) {
    class Sink : public kxbase::FieldSink {
    public:
        explicit Sink(FindingList& findings) : m_findings(findings) {}
        void OnField(const char* field, kxbase::FieldKind kind, uint64_t offset,
                     std::span<const unsigned char> bytes) override {
            if (kind == kxbase::FieldKind::Unsigned && bytes.size() == 1 && bytes[0] > 1) {
                m_findings.Add(Warning("ScanHeader")
                                   .At(offset)
                                   .Field(field)
                                   .Says(std::to_string(bytes[0]) + " in a flag, which is 0 or 1"));
            }
            if (kind != kxbase::FieldKind::Text) return;
            const std::string text(bytes.begin(), bytes.end() - 1);
            if (kxbase::Encode_UTF8(kxbase::Decode_UTF8(text)) != text)
                m_findings.Add(
                    Warning("ScanHeader").At(offset).Field(field).Says("the text is no valid UTF-8"));
            if (std::strstr(field, "date") != nullptr && !text.empty()) {
                try {
                    kxbase::Date date(kxbase::Decode_UTF8(text));
                } catch (const kxbase::KXException&) {
                    m_findings.Add(Warning("ScanHeader").At(offset).Field(field).Says("the text is no date"));
                }
            }
        }

    private:
        FindingList& m_findings;
    };
    Sink sink(m_findings);
    ScanHeader again(header);
    again.SetFieldSink(&sink);
    kxbase::ErrorContext ignored;  // it could be read before
    ReadRecord(m_file, *m_layout.scanHeaderPosition, again, ignored);
}

void HeaderCheck::Components() {
    const uint64_t first = m_layout.mainHeader->firstComponentHeaderPosition;
    if (first == 0) return;
    ComponentHeader record;
    if (!At(first, "first component header position", record)) return;
    kxbase::ErrorContext end;
    for (uint64_t position = first; ReadRecord(m_file, position, record, end);
         position += record.HeaderSize()) {
        if (kxcodecs::ChunkCodecFactory::IsKnown(record.codecIdentifier)) continue;
        m_findings.Add(
            Error("ComponentHeader")
                .At(position)
                .Field("codec identifier")
                .Of(record.component)
                .Says("no such codec: " + kxcodecs::ChunkCodecFactory::GetName(record.codecIdentifier)));
    }
}

void HeaderCheck::Limits() {
    const uint64_t position = m_layout.mainHeader->boundingInformationPosition;
    if (position == 0) return;
    std::vector<MinMaxPair> pairs;
    MinMaxHeader record(&pairs);
    if (!At(position, "bounding information position", record)) return;
    const auto finding = [&](FindingDraft draft, const char* field, uint64_t at, std::string text) {
        m_findings.Add(
            draft.At(position + kxbase::IOHeader::FrameSize + at).Field(field).Says(std::move(text)));
    };
    if (record.GetDataSize() != record.DataSize(record.GetVersion())) {
        m_findings.Add(Warning("MinMaxHeader")
                           .At(position + 12)
                           .Field("payload size")
                           .Says(Number(record.GetDataSize()) + " bytes, of which " +
                                 Number(record.DataSize(record.GetVersion())) + " are used"));
    }
    if (m_layout.scanHeader && pairs.size() != m_layout.scanHeader->properties.grid.PatchCount64()) {
        finding(Error("MinMaxHeader"), "number of pairs", 8,
                Number(pairs.size()) + ", but the grid has " +
                    Number(m_layout.scanHeader->properties.grid.PatchCount64()) + " patches");
    }
    const uint32_t perRow = m_layout.scanHeader ? m_layout.scanHeader->properties.grid.PatchesPerRow() : 0;
    MinMaxPair overall;
    for (uint64_t i = 0; i < pairs.size(); ++i) {
        const MinMaxPair& pair = pairs[i];
        const bool empty = pair.minimum == 0 && pair.maximum == 0;
        const bool ordered = pair.minimum > 0 && pair.maximum >= pair.minimum;  // false for NaN, too
        if (!empty && !ordered) {
            FindingDraft draft = Error("MinMaxHeader");
            if (perRow != 0)
                draft.Patch(static_cast<uint32_t>(i / perRow), static_cast<uint32_t>(i % perRow));
            finding(draft, "minimum", 12 + 8 * i,
                    std::to_string(pair.minimum) + " to " + std::to_string(pair.maximum) + " are no limits");
        }
        if (pair.minimum > 0) overall.minimum = std::min(overall.minimum, pair.minimum);
        if (pair.maximum > 0) overall.maximum = std::max(overall.maximum, pair.maximum);
    }
    if (std::memcmp(&overall.minimum, &record.minimum, sizeof(float)) != 0) {
        finding(Error("MinMaxHeader"), "overall minimum", 0,
                std::to_string(record.minimum) + ", but the smallest of the pairs is " +
                    std::to_string(overall.minimum));
    }
    if (std::memcmp(&overall.maximum, &record.maximum, sizeof(float)) != 0) {
        finding(Error("MinMaxHeader"), "overall maximum", 4,
                std::to_string(record.maximum) + ", but the largest of the pairs is " +
                    std::to_string(overall.maximum));
    }
    m_result.limits = std::move(pairs);
    m_result.limitsPosition = position;
}

void HeaderCheck::Thumbnail() {
    const uint64_t position = m_layout.mainHeader->thumbnailHeaderPosition;
    if (position == 0) return;
    ThumbnailHeader record;
    if (!At(position, "thumbnail header position", record)) return;
    const auto finding = [&](FindingDraft draft, const char* field, uint64_t at, std::string text) {
        m_findings.Add(
            draft.At(position + kxbase::IOHeader::FrameSize + at).Field(field).Says(std::move(text)));
    };
    const std::vector<unsigned char>& jpeg = record.GetCompressed();
    if (record.GetDataSize() != 12 + jpeg.size()) {
        finding(Warning("ThumbnailHeader"), "JPEG length", 8,
                Number(jpeg.size()) + ", but the record has " + Number(record.GetDataSize() - 12) +
                    " bytes for it");
    }
    unsigned width = 0;
    unsigned height = 0;
    if (!kxcodecs::JPEG::ReadSize(jpeg.data(), jpeg.size(), width, height)) {
        finding(Error("ThumbnailHeader"), "JPEG bytes", 12, "they are no JPEG image");
        return;
    }
    if (width != record.GetSecondSide() || height != record.GetFirstSide()) {
        finding(Error("ThumbnailHeader"), "second side", 0,
                Number(record.GetSecondSide()) + " x " + Number(record.GetFirstSide()) +
                    ", but the image has " + Number(width) + " x " + Number(height) + " pixels");
    }
    if (!m_decode) return;
    unsigned char* pixels = nullptr;
    uint64_t bytes = 0;
    if (!kxcodecs::JPEG::Decode(jpeg.data(), jpeg.size(), pixels, bytes, width, height))
        finding(Error("ThumbnailHeader"), "JPEG bytes", 12, "the image is damaged");
    kxcodecs::JPEG::Free(pixels);
}

}  // namespace

VerifiedHeaders VerifyHeaders(FileWindow& file, const FileLayout& layout, bool decode,
                              FindingList& findings) {
    return HeaderCheck(file, layout, decode, findings).Run();
}

}  // namespace kxio
