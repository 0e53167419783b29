// SPDX-License-Identifier: MIT
// The extended records at the end of the file.
#include <mutex>

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
#include "reader/Locks.h"
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

}  // namespace

void QSNScanReader::ReadTailHeaders() {
    const uint64_t first = m_mainHeader.firstExtendedHeaderPosition;
    if (first == 0) return;
    {
        const std::lock_guard lock(FileAccessLock());
        ExtendedHeader record;
        uint64_t position = first;
        for (bool found = ReadRecordAt(m_stream, first, record); found;
             position = m_stream->Tell(), found = record.Read(m_stream) != 0) {
            if (const auto component = HistogramComponent(record.GetType())) {
                m_histogramPositions[*component] = position;
            } else {
                Take(record, m_scanProperties);
            }
        }
    }
    m_hqLinks = m_scanProperties.hqLinks;
    m_erLinks = m_scanProperties.erLinks;
    m_hdrLinks = m_scanProperties.hdrLinks;
    if (m_scanProperties.scanningMode.empty() && IsRm()) {
        m_scanProperties.scanningMode = ScanningModeOfStep(m_scanProperties.grid.rowAngularStep);
    }
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
    const std::lock_guard lock(FileAccessLock());
    ExtendedHeader record;
    if (!ReadRecordAt(m_stream, entry->second, record)) {
        throw kxbase::KXUnreadablePatchException("Cannot read file", ProblemOf(record, entry->second));
    }
    return record;
}

}  // namespace kxio
