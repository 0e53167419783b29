// SPDX-License-Identifier: MIT
#include "kxio/QSNScanReader.h"

#include <cmath>
#include <limits>
#include <utility>

#include "format/IntegrityTable.h"
#include "format/PendingEdit.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxio/Tilt.h"
#include "reader/PositionedInput.h"
#include "reader/Prefetch.h"

namespace kxio {

namespace {

using PolarPoint = kxbase::tBasePolarPoint<float>;

constexpr float kLargest = std::numeric_limits<float>::max();

template <class Table>
std::vector<kxbase::ComponentType> Keys(const Table& table) {
    std::vector<kxbase::ComponentType> keys;
    keys.reserve(table.size());
    for (const auto& entry : table)
        keys.push_back(entry.first);
    return keys;
}

}  // namespace

QSNScanReader::QSNScanReader()
    : m_scanBoxMinimum(kLargest, kLargest, kLargest),
      m_scanBoxMaximum(-kLargest, -kLargest, -kLargest),
      m_integrity(std::make_unique<IntegrityTable>()) {}

QSNScanReader::QSNScanReader(const std::wstring& path, uint64_t prefetchBlock) : QSNScanReader() {
    Open(path, prefetchBlock);
}

QSNScanReader::QSNScanReader(kxbase::IInFileStream* stream) : QSNScanReader() {
    Open(stream);
}

QSNScanReader::~QSNScanReader() {
    Close();
}

void QSNScanReader::Open(const std::wstring& path, uint64_t prefetchBlock) {
    if (prefetchBlock != 0) StartPrefetch(path, prefetchBlock);
    auto stream = std::make_unique<kxbase::kxInFile>(path);
    if (!stream->IsOpen()) {
        kxbase::ErrorContext context;
        context.file = kxbase::Encode_UTF8(path);
        throw kxbase::KXHeaderReadingException("Cannot open file", context);
    }
    m_fileName = path;
    UseStream(std::move(stream), nullptr);
    SetupPostOpening();
}

void QSNScanReader::Open(kxbase::IInFileStream* stream) {
    if (stream == nullptr) {
        kxbase::ErrorContext context;
        context.detail = "no stream given";
        throw kxbase::KXHeaderReadingException("Cannot open file", context);
    }
    UseStream(nullptr, stream);
    if (m_fileName.empty()) m_fileName = L"No name stream";
    SetupPostOpening();
}

bool QSNScanReader::IsOpen(const std::wstring& path) const {
    return m_fileName == path;
}

void QSNScanReader::SetLimits(const Limits& limits) {
    m_limits = limits;
}
const Limits& QSNScanReader::GetLimits() const {
    return m_limits;
}

void QSNScanReader::Close() {
    if (m_ownedStream) {
        m_ownedStream->Close();
        m_ownedStream.reset();
        m_stream = nullptr;
    }
    m_codecs.clear();
    m_fileName.clear();
    m_patchBoxMinima.clear();
    m_patchBoxMaxima.clear();
}

// A stream is lent unless it is the reader's own file. Its size is asked for here and then trusted: a file
// that has become shorter ends a read early, one that has become longer is asked again.
void QSNScanReader::UseStream(std::unique_ptr<kxbase::kxInFile> owned, kxbase::IInFileStream* stream) {
    m_stream = owned ? owned.get() : stream;
    m_ownedStream = std::move(owned);
    m_pendingEdit.reset();
    m_streamBytes = Input().Size();
    InputWindow end = RecordInput(0);
    if (auto edit = FindPendingEdit(end, m_streamBytes)) {
        m_pendingEdit = std::make_unique<PendingEdit>(std::move(*edit));
        m_streamBytes = m_pendingEdit->position;
    }
}

PositionedInput QSNScanReader::Input() const {
    return {m_ownedStream.get(), m_stream, m_pendingEdit.get()};
}

InputWindow QSNScanReader::RecordInput(uint64_t windowBytes) const {
    return {Input(), m_streamBytes, windowBytes};
}

void QSNScanReader::ResetTables() {
    m_patchBoxMinima.clear();
    m_patchBoxMaxima.clear();
    m_scanBoxMinimum = PolarPoint(kLargest, kLargest, kLargest);
    m_scanBoxMaximum = PolarPoint(-kLargest, -kLargest, -kLargest);
    *m_integrity = {};
    m_integrityProblems.clear();
    m_mainHeader = {};
    m_patchTable.clear();
    m_previewTable.clear();
    m_histogramPositions.clear();
    m_codecs.clear();
    m_componentValues.clear();
    m_scanHeader = {};
    m_scanProperties = {};
    m_hqLinks.clear();
    m_erLinks.clear();
    m_hdrLinks.clear();
    m_furtherLinks.clear();
}

kxbase::ErrorContext QSNScanReader::FileContext() const {
    kxbase::ErrorContext context;
    const std::wstring streamName = m_stream != nullptr ? m_stream->GetName() : std::wstring();
    context.file = kxbase::Encode_UTF8(streamName.empty() ? m_fileName : streamName);
    return context;
}

const ScanProperties& QSNScanReader::GetScanInformation() const {
    return m_scanProperties;
}

void QSNScanReader::GetScanInformation(ScanProperties& out) const {
    if (m_fileName.empty()) throw kxbase::KXFileNotOpenException("No file open");
    out = m_scanProperties;
}

void QSNScanReader::GetScanInformation(ScanProperties& out, const std::wstring& path) {
    const QSNScanReader reader(path, 0);
    out = reader.m_scanProperties;
}

kxbase::GridTopology QSNScanReader::Grid() {
    return m_scanProperties.grid;
}
uint64_t QSNScanReader::GetValidPointCount() const {
    return m_scanProperties.validPointCount;
}
kxbase::RegistrationInformation QSNScanReader::GetRegistrationInformation() {
    return m_scanProperties.registration;
}
bool QSNScanReader::IsSpeckleCorrectionNeeded() const {
    return m_scanProperties.speckleCorrectionNeeded;
}
float QSNScanReader::GetSpatialSamplingDistance() const {
    return m_scanProperties.spatialSamplingDistance;
}
kxbase::UUID QSNScanReader::GetScanUUID() {
    return m_scanProperties.scanUUID;
}
kxbase::UUID QSNScanReader::GetParentUUID() {
    return m_scanProperties.parentUUID;
}
bool QSNScanReader::Is3DLocked() const {
    return m_scanProperties.locked3D;
}

bool QSNScanReader::IsComponentAvailable(kxbase::ComponentType component) const {
    return m_patchTable.contains(component);
}
bool QSNScanReader::IsPreviewAvailable(kxbase::ComponentType component) const {
    return m_previewTable.contains(component);
}
bool QSNScanReader::IsHistogramAvailable(kxbase::ComponentType component) const {
    return m_histogramPositions.contains(component);
}
std::vector<kxbase::ComponentType> QSNScanReader::GetAvailableComponents() const {
    return Keys(m_patchTable);
}
std::vector<kxbase::ComponentType> QSNScanReader::GetAvailableHistograms() const {
    return Keys(m_histogramPositions);
}
std::vector<kxbase::ComponentType> QSNScanReader::GetAvailablePreviews() const {
    return Keys(m_previewTable);
}
const std::list<std::wstring>& QSNScanReader::GetMessageList() const {
    return m_scanProperties.messages;
}
const std::list<std::wstring>& QSNScanReader::GetWarningList() const {
    return m_scanProperties.warnings;
}

unsigned QSNScanReader::GetPatchNumber() const {
    return m_scanProperties.grid.PatchCount();
}

bool QSNScanReader::HasPreviewSamplingRatioIssue() const {
    return m_scanProperties.writerRevision < MainFileHeader::CurrentWriterRevision;
}

bool QSNScanReader::HasRegistrationBeenModified() const {
    constexpr double tolerance = 1e-6;
    const kxbase::RegistrationInformation& registration = m_scanProperties.registration;
    if (registration.GetTranslation() != kxmath::Vector3{}) return true;
    const uint32_t kind = m_scanProperties.tilt.kind;
    if (kind > 4) return true;
    const bool tilted = kind == 3 || kind == 4;
    const kxbase::RegistrationInformation reference(
        tilted ? Frame3DFromTiltAngles(m_scanProperties.tilt.angles) : kxbase::Frame3D(), kxmath::Vector3{});
    for (unsigned i = 0; i < 9; ++i) {
        const double difference = std::fabs(registration.Values()[i] - reference.Values()[i]);
        // Not the same test twice: they part at exactly 1e-6 and where a value is not a number.
        if (tilted ? !(difference < tolerance) : difference > tolerance) return true;
    }
    return false;
}

}  // namespace kxio
