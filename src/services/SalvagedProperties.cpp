// SPDX-License-Identifier: MIT
#include "services/SalvagedProperties.h"

#include "kxbase/Exceptions.h"
#include "kxbase/IInFileStream.h"
#include "kxcodecs/JPEG.h"
#include "kxio/ColorizationModeExtendedHeader.h"
#include "kxio/CommentExtendedHeader.h"
#include "kxio/ERExtendedHeader.h"
#include "kxio/HDRExtendedHeader.h"
#include "kxio/HQExtendedHeader.h"
#include "kxio/HistogramHeader.h"
#include "kxio/IntegrityExtendedHeader.h"
#include "kxio/PreregistrationExtendedHeader.h"
#include "kxio/ScanHeader.h"
#include "kxio/ScanningModeExtendedHeader.h"
#include "kxio/ThumbnailHeader.h"
#include "kxio/UUIDExtendedHeader.h"
#include "kxio/WarningExtendedHeader.h"
#include "reader/ExtendedFrame.h"

namespace kxio {

namespace {

/// Larger records are passed over: texts and images of that size are damage or another's mischief.
constexpr uint64_t kMostRecordBytes = uint64_t{16} << 20;
/// What all records together may take in memory.
constexpr uint64_t kMostBytes = uint64_t{256} << 20;

template <class Record>
bool ReadAt(FileWindow& file, const FoundRecord& found, Record& record) {
    file.Stream().Seek(found.position);
    try {
        return record.Read(&file.Stream()) != 0;
    } catch (const kxbase::KXException&) {
        return false;
    }
}

/// The component of the histogram that begins there; nothing for any other record.
std::optional<kxbase::ComponentType> HistogramAt(FileWindow& file, const FoundRecord& found) {
    try {
        const auto start = PeekExtended(file.Stream(), found.position);
        return start ? HistogramComponent(start->type) : std::nullopt;
    } catch (const kxbase::KXException&) {
        return std::nullopt;
    }
}

template <class Link>
void TakeLink(const ExtendedHeader& record, std::list<kxbase::UUID>& links) {
    try {
        links.push_back(Link(record).GetUUID());
    } catch (const kxbase::KXBadInputException&) {
        // A link that is no identifier leads nowhere.
    }
}

class Salvage {
public:
    Salvage(FileWindow& file, const Survey& survey, const TableEvidence& table)
        : m_file(file), m_survey(survey), m_table(table) {}

    SalvagedProperties Run();

private:
    bool Usable(const FoundRecord& record, uint64_t tag);
    void TakeScanHeader();
    void TakeThumbnail();
    void TakeExtendedRecords();
    void TakeExtended(const ExtendedHeader& record);
    bool TailIsWhole() const;

    FileWindow& m_file;
    const Survey& m_survey;
    const TableEvidence& m_table;
    SalvagedProperties m_result;
    uint64_t m_bytesLeft = kMostBytes;
};

bool Salvage::Usable(const FoundRecord& record, uint64_t tag) {
    if (record.tag != tag || m_table.IsInsideChunk(record.position, m_survey.EndOfRun(record))) return false;
    if (record.size > kMostRecordBytes || record.size > m_bytesLeft) return false;
    m_bytesLeft -= record.size;
    return true;
}

/// The one that the main header names; else the last, as a file's own comes behind all its chunks.
void Salvage::TakeScanHeader() {
    std::optional<ScanHeader> best;
    uint64_t count = 0;
    for (const FoundRecord& record : m_survey.records) {
        if (!Usable(record, ScanHeader::Magic)) continue;
        ScanHeader header;
        if (!ReadAt(m_file, record, header)) continue;
        ++count;
        best = header;
        if (m_survey.mainHeader && m_survey.mainHeader->scanHeaderPosition == record.position) break;
    }
    if (!best) return;
    m_result.hasScanHeader = true;
    m_result.properties = best->properties;
    if (count > 1)
        m_result.notes.push_back(
            "several scan headers found; the one that the main header names, or else the last, was taken");
}

void Salvage::TakeThumbnail() {
    for (const FoundRecord& record : m_survey.records) {
        if (!Usable(record, ThumbnailHeader::Magic)) continue;
        ThumbnailHeader header;
        if (!ReadAt(m_file, record, header)) continue;
        const std::vector<unsigned char>& jpeg = header.GetCompressed();
        unsigned char* pixels = nullptr;
        uint64_t bytes = 0;
        unsigned width = 0;
        unsigned height = 0;
        const bool isImage = kxcodecs::JPEG::Decode(jpeg.data(), jpeg.size(), pixels, bytes, width, height);
        kxcodecs::JPEG::Free(pixels);  // before anything that may throw
        if (isImage) m_result.thumbnail = jpeg;
    }
}

bool Salvage::TailIsWhole() const {
    uint64_t end = 0;
    bool begun = false;
    for (const FoundRecord& record : m_survey.records) {
        if (record.tag != ExtendedHeader::Magic) continue;
        if (!begun) {
            begun =
                m_survey.mainHeader && record.position == m_survey.mainHeader->firstExtendedHeaderPosition;
            if (!begun) return false;
        } else if (record.position != end) {
            return false;
        }
        end = record.End();
    }
    return begun && end == m_file.Size();
}

void Salvage::TakeExtended(const ExtendedHeader& record) {
    ScanProperties& p = m_result.properties;
    switch (record.GetType()) {
        case CommentExtendedHeader::Type:
            p.messages.push_back(CommentExtendedHeader(record).Message());
            return;
        case WarningExtendedHeader::Type:
            p.warnings.push_back(WarningExtendedHeader(record).Message());
            return;
        case HQExtendedHeader::Type:
            return TakeLink<HQExtendedHeader>(record, p.hqLinks);
        case ERExtendedHeader::Type:
            return TakeLink<ERExtendedHeader>(record, p.erLinks);
        case HDRExtendedHeader::Type:
            return TakeLink<HDRExtendedHeader>(record, p.hdrLinks);
        case ScanningModeExtendedHeader::Type:
            p.scanningMode = ScanningModeExtendedHeader(record).Message();
            return;
        case ColorizationModeExtendedHeader::Type:
            p.colorizationMode = ColorizationModeExtendedHeader(record).Message();
            return;
        case UUIDExtendedHeader::Type: {
            const UUIDExtendedHeader ids(record);
            p.scanUUID = ids.GetScanUUID();
            p.parentUUID = ids.GetParentUUID();
            return;
        }
        case PreregistrationExtendedHeader::Type: {
            const PreregistrationExtendedHeader before(record);
            p.preregistrationValue = before.GetValue();
            p.preregistrationUUID = before.GetUUID();
            p.preregistration = before.GetRegistration();
            return;
        }
        case IntegrityExtendedHeader::Type:
            m_result.hashes = true;  // the new file gets its own
            return;
        default:
            break;
    }
    m_result.furtherRecords.push_back(record);  // goes into the new file as it is
}

void Salvage::TakeExtendedRecords() {
    m_result.tailWhole = TailIsWhole();
    uint64_t tooLarge = 0;
    for (const FoundRecord& found : m_survey.records) {
        if (found.tag != ExtendedHeader::Magic ||
            m_table.IsInsideChunk(found.position, m_survey.EndOfRun(found)))
            continue;
        ++m_result.extendedRecords;
        if (!Usable(found, ExtendedHeader::Magic)) {
            ++tooLarge;
            continue;
        }
        if (const auto component = HistogramAt(m_file, found)) {
            m_result.histograms.insert(*component);  // counted anew, so what it says is not asked
            continue;
        }
        ExtendedHeader record;
        if (ReadAt(m_file, found, record)) TakeExtended(record);
    }
    if (tooLarge != 0) {
        m_result.tailWhole = false;
        m_result.notes.push_back(std::to_string(tooLarge) +
                                 " very large extended records (histograms, as a rule) were not copied");
    }
}

SalvagedProperties Salvage::Run() {
    TakeScanHeader();
    TakeThumbnail();
    TakeExtendedRecords();
    return std::move(m_result);
}

}  // namespace

SalvagedProperties SalvageProperties(FileWindow& file, const Survey& survey, const TableEvidence& table) {
    return Salvage(file, survey, table).Run();
}

}  // namespace kxio
