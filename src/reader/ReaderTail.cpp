// SPDX-License-Identifier: MIT
// The extended records at the end of the file.
#include <optional>
#include <utility>

#include "format/IntegrityTable.h"
#include "kxbase/Sizes.h"
#include "kxio/ColorizationModeExtendedHeader.h"
#include "kxio/CommentExtendedHeader.h"
#include "kxio/ERExtendedHeader.h"
#include "kxio/HDRExtendedHeader.h"
#include "kxio/HQExtendedHeader.h"
#include "kxio/HistogramHeader.h"
#include "kxio/PreregistrationExtendedHeader.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanningModeExtendedHeader.h"
#include "kxio/UUIDExtendedHeader.h"
#include "kxio/WarningExtendedHeader.h"
#include "reader/ExtendedFrame.h"
#include "reader/PositionedInput.h"
#include "reader/RecordAt.h"
#include "reader/ScanningMode.h"

namespace kxio {

namespace {

template <class Link>
void AppendLink(const ExtendedHeader& record, std::list<kxbase::UUID>& links) {
    try {
        links.push_back(Link(record).GetUUID());
    } catch (const kxbase::KXBadInputException&) {
        // A link whose text names no scan leads nowhere; the scan itself stays readable.
        return;
    }
}

void Take(const ExtendedHeader& record, ScanProperties& properties) {
    switch (record.GetType()) {
        case CommentExtendedHeader::Type:
            properties.messages.push_back(CommentExtendedHeader(record).Message());
            break;
        case WarningExtendedHeader::Type:
            properties.warnings.push_back(WarningExtendedHeader(record).Message());
            break;
        case HQExtendedHeader::Type:
            AppendLink<HQExtendedHeader>(record, properties.hqLinks);
            break;
        case ERExtendedHeader::Type:
            AppendLink<ERExtendedHeader>(record, properties.erLinks);
            break;
        case HDRExtendedHeader::Type:
            AppendLink<HDRExtendedHeader>(record, properties.hdrLinks);
            break;
        case ScanningModeExtendedHeader::Type:
            properties.scanningMode = ScanningModeExtendedHeader(record).Message();
            break;
        case ColorizationModeExtendedHeader::Type:
            properties.colorizationMode = ColorizationModeExtendedHeader(record).Message();
            break;
        case UUIDExtendedHeader::Type: {
            const UUIDExtendedHeader uuids(record);
            properties.scanUUID = uuids.GetScanUUID();
            properties.parentUUID = uuids.GetParentUUID();
            break;
        }
        case PreregistrationExtendedHeader::Type: {
            const PreregistrationExtendedHeader preregistration(record);
            properties.preregistrationValue = preregistration.GetValue();
            properties.preregistrationUUID = preregistration.GetUUID();
            properties.preregistration = preregistration.GetRegistration();
            break;
        }
        default:
            break;
    }
}

// Records that opening takes something from besides hashes.
bool IsTaken(uint64_t type) {
    switch (type) {
        case CommentExtendedHeader::Type:
        case WarningExtendedHeader::Type:
        case HQExtendedHeader::Type:
        case ERExtendedHeader::Type:
        case HDRExtendedHeader::Type:
        case ScanningModeExtendedHeader::Type:
        case ColorizationModeExtendedHeader::Type:
        case UUIDExtendedHeader::Type:
        case PreregistrationExtendedHeader::Type:
            return true;
        default:
            return false;
    }
}

}  // namespace

void QSNScanReader::ReadTailHeaders() {
    *m_integrity = {};
    m_integrity->LimitBytes(m_streamBytes);
    m_textBytes = m_scanHeader.GetDataSize();
    m_integrityProblems.clear();
    if (const uint64_t first = m_mainHeader.firstExtendedHeaderPosition; first != 0) ReadTailRecords(first);
    if (m_limits.checkHashes) CheckHeaders();
}

void QSNScanReader::ChargeText(uint64_t bytes, uint64_t position) {
    m_textBytes = kxbase::SizeSum(m_textBytes, bytes);
    if (m_textBytes <= m_limits.textBytes) return;
    kxbase::ErrorContext context;
    context.record = "ExtendedHeader";
    context.offset = position;
    context.detail = kxbase::OverLimit("textBytes", m_textBytes, m_limits.textBytes);
    throw kxbase::KXHeaderReadingException("Error opening file", context);
}

void QSNScanReader::ReadTailRecords(uint64_t first) {
    InputWindow input = RecordInput(InputWindow::kUsualBytes);
    std::optional<uint64_t> link;
    std::optional<ExtendedFrame> frame;
    const bool reachable = input.Seek(first);
    while (reachable && (frame = PeekExtended(input))) {
        const uint64_t position = input.Tell();
        if (const auto component = HistogramComponent(frame->type))
            m_histogramPositions[*component] = position;
        const bool isIntegrity = frame->type == IntegrityExtendedHeader::Type;
        if (!isIntegrity && !IsTaken(frame->type)) {
            if (!input.SeekForward(frame->recordBytes)) break;
            link = frame->link;
            continue;
        }
        if (!isIntegrity) ChargeText(frame->recordBytes, position);
        ExtendedHeader record;
        BoundRecord(record);
        if (record.Read(&input) == 0) {
            if (isIntegrity) m_integrity->AddDamaged(position);
            break;
        }
        link = frame->link;
        if (isIntegrity) {
            m_integrity->Add(IntegrityExtendedHeader(std::move(record)), position);
        } else {
            Take(record, m_scanProperties);
        }
    }
    if (m_limits.checkHashes) JudgeTailEnd(first, link, input.Tell());
    m_hqLinks = m_scanProperties.hqLinks;
    m_erLinks = m_scanProperties.erLinks;
    m_hdrLinks = m_scanProperties.hdrLinks;
    if (m_scanProperties.scanningMode.empty() && IsRm()) {
        m_scanProperties.scanningMode = ScanningModeOfStep(m_scanProperties.grid.rowAngularStep);
    }
}

// A file that was cut in its last records has lost the list of its hashes first. What leads nowhere tells of
// it: the main header, or the link of the last record that is left.
void QSNScanReader::JudgeTailEnd(uint64_t first, std::optional<uint64_t> lastLink, uint64_t end) {
    // Links of old writers may lead anywhere; those that lead on to the next byte mean it.
    if (lastLink && *lastLink != end) return;
    kxbase::ErrorContext context = FileContext();
    context.record = "ExtendedHeader";
    context.offset = lastLink ? end : first;
    context.detail = "no record lies where the one before leads to";
    m_integrityProblems.push_back(context);
}

bool QSNScanReader::IsRm() const {
    return IsRmModel(m_scanHeader.properties.scannerModel);
}

ExtendedHeader QSNScanReader::GetCompressedHistogram(kxbase::ComponentType component) const {
    const auto entry = m_histogramPositions.find(component);
    if (entry == m_histogramPositions.end()) {
        kxbase::ErrorContext context = FileContext();
        context.detail = "no histogram of component " + kxbase::ComponentToString(component);
        throw kxbase::KXComponentNotInFileException("Cannot use this component", context);
    }
    RequireIntactRecord(entry->second);
    InputWindow input = RecordInput(0);
    ExtendedHeader record;
    record.LimitPayload(m_limits.recordBytes, "recordBytes");
    if (!ReadRecordAt(&input, entry->second, record)) {
        throw kxbase::KXUnreadablePatchException("Cannot read file", ProblemOf(record, entry->second));
    }
    return record;
}

}  // namespace kxio
