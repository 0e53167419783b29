// SPDX-License-Identifier: MIT
// Hashes of the file's parts: headers are checked by the opening, all else when it is read.
#include <algorithm>

#include "format/Hash64.h"
#include "format/HeaderPieces.h"
#include "format/IntegrityTable.h"
#include "kxio/ComponentHeader.h"
#include "kxio/QSNScanReader.h"
#include "reader/PositionedInput.h"

namespace kxio {

namespace {

constexpr const char* kMismatch = "the bytes do not match their hash";

// They lie one after the other and have one size.
bool IsComponentRecord(const MainFileHeader& main, const IntegritySpan& span) {
    constexpr uint64_t kBytes = kxbase::IOHeader::FrameSize + ComponentHeader::PayloadSize;
    const uint64_t first = main.firstComponentHeaderPosition;
    return first != 0 && span.byteCount == kBytes && span.position >= first &&
           (span.position - first) % kBytes == 0 && (span.position - first) / kBytes < 64;
}

}  // namespace

void QSNScanReader::SetIntegrityChecks(bool wanted) {
    m_limits.checkHashes = wanted;
}
bool QSNScanReader::HasIntegrity() const {
    return m_limits.checkHashes && m_integrity->Present();
}
const std::vector<kxbase::ErrorContext>& QSNScanReader::GetIntegrityProblems() const {
    return m_integrityProblems;
}

void QSNScanReader::RequireIntact(uint64_t position, const std::vector<unsigned char>& bytes) const {
    if (HasIntegrity() && m_integrity->Check(position, bytes) == IntegrityTable::Verdict::Wrong)
        ThrowMismatch(position);
}

void QSNScanReader::ThrowMismatch(uint64_t position) const {
    kxbase::ErrorContext context = FileContext();
    context.offset = position;
    context.detail = kMismatch;
    throw kxbase::KXUnreadablePatchException("Cannot read file", context);
}

// Bytes of the file against their hashes, if there are any; costs no memory to speak of.
IntegrityVerdict QSNScanReader::Judge(uint64_t position, uint64_t byteCount) const {
    constexpr uint64_t kPiece = uint64_t{1} << 18;
    return m_integrity->Check(position, byteCount, [&] {
        RunningHash64 hash;
        std::vector<unsigned char> piece;
        for (uint64_t done = 0; done < byteCount; done += piece.size()) {
            ReadBytes(position + done, std::min(kPiece, byteCount - done), piece);
            hash.Add(piece);
        }
        return hash.Get();
    });
}

void QSNScanReader::RequireIntactRecord(uint64_t position) const {
    if (!HasIntegrity()) return;
    const auto count = m_integrity->BytesAt(position);
    if (!count) return;
    RequireBytes(position, *count);
    if (Judge(position, *count) == IntegrityTable::Verdict::Wrong) ThrowMismatch(position);
}

void QSNScanReader::CheckHeaders() {
    InputWindow input = RecordInput(0);
    m_integrity->Complete(input);
    uint64_t left = input.GetSize();
    for (const uint64_t position : m_integrity->Damaged()) {
        kxbase::ErrorContext context = FileContext();
        context.record = "IntegrityExtendedHeader";
        context.offset = position;
        context.detail = kMismatch;
        m_integrityProblems.push_back(context);
    }
    // Headers do not overlap.
    const bool fits = ForEachPiece(m_integrity->HeaderSpans(), left, [this](const IntegritySpan& span) {
        JudgeHeader(span);
        return true;
    });
    if (fits) return;
    kxbase::ErrorContext context = FileContext();
    context.record = "IntegrityExtendedHeader";
    context.offset = m_integrity->Newest();
    context.detail = "the headers that are listed are longer than the file";
    m_integrityProblems.push_back(context);
}

void QSNScanReader::JudgeHeader(const IntegritySpan& span) {
    kxbase::ErrorContext context = FileContext();
    context.offset = span.position;
    context.detail = kMismatch;
    try {
        RequireBytes(span.position, span.byteCount);
        if (Judge(span.position, span.byteCount) == IntegrityTable::Verdict::Right) return;
    } catch (const kxbase::KXException& e) {
        context.detail = e.Context().detail;
    }
    const MainFileHeader& main = m_mainHeader;
    if (span.position == 0) {
        context.record = main.GetRecordName();
        throw kxbase::KXHeaderReadingException("Invalid main header", context);
    }
    if (span.position == main.lookupTablePosition) {
        context.record = "lookup table of the patches";
        throw kxbase::KXIncompleteFileException("Lookup table not found", context);
    }
    if (span.position == main.previewLookupTablePosition) {
        context.record = "lookup table of the previews";
        throw kxbase::KXIncompleteFileException("No preview found", context);
    }
    const uint64_t intoScanHeader = span.position - main.scanHeaderPosition;
    if (span.position >= main.scanHeaderPosition && intoScanHeader < m_scanHeader.HeaderSize()) {
        context.record = m_scanHeader.GetRecordName();
        // Old versions have no such pieces, and which version it is may be what is damaged.
        const auto is = [&](const HeaderPiece& piece) {
            return piece.byteCount != 0 && intoScanHeader == piece.offset &&
                   span.byteCount == piece.byteCount;
        };
        if (is(RegistrationPiece(m_scanHeader))) {
            context.field = "registration";
        } else if (is(SpecklePiece(m_scanHeader))) {
            context.field = "speckle correction needed";
        } else {
            throw kxbase::KXHeaderReadingException("Invalid scan headers", context);
        }
    } else if (span.position == main.boundingInformationPosition) {
        context.record = "MinMaxHeader";
    } else if (IsComponentRecord(main, span)) {
        context.record = "ComponentHeader";
    } else if (span.position >= main.firstExtendedHeaderPosition && main.firstExtendedHeaderPosition != 0) {
        context.record = "ExtendedHeader";
    } else {
        context.record = "preview";
        for (const auto& [component, entries] : m_previewTable) {
            if (entries.empty() || entries.front().position != span.position) continue;
            context.record += " of component " + kxbase::ComponentToString(component);
            // The sizes came from the first one.
            kxbase::GridTopology& grid = m_scanProperties.grid;
            if (component != m_previewTable.begin()->first) break;
            grid.previewWidth = grid.previewHeight = 0;
            grid.columnRatio = grid.rowRatio = 1.0F;
        }
    }
    m_integrityProblems.push_back(context);
}

}  // namespace kxio
