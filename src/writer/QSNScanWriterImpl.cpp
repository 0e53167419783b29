// SPDX-License-Identifier: MIT
#include "writer/QSNScanWriterImpl.h"

#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxcodecs/JPEG.h"

namespace kxio {

namespace {

constexpr float kDefaultAngularStep = 0.1F;
constexpr double kDefaultPreviewFactor = 2.0;

}  // namespace

QSNScanWriterImpl::QSNScanWriterImpl() {
    m_properties.scanUUID = kxbase::UUID::Generate();
}

QSNScanWriterImpl::~QSNScanWriterImpl() = default;

void QSNScanWriterImpl::RequireCreated() const {
    if (m_state == State::Created) return;
    kxbase::ErrorContext context;
    context.detail = m_state == State::Ended ? "the file has been completed" : "no file has been created";
    throw kxbase::KXFileNotOpenException("No file open", context);
}

std::string QSNScanWriterImpl::StreamName() const {
    return m_stream == nullptr ? std::string() : kxbase::Encode_UTF8(m_stream->GetName());
}

kxbase::GridTopology QSNScanWriterImpl::ToGrid(const kxbase::CylindricalTopology& topology) {
    kxbase::GridTopology grid;
    grid.columnAngularStep = kDefaultAngularStep;
    grid.rowAngularStep = kDefaultAngularStep;
    grid.columns = topology.width;
    grid.rows = topology.height;
    grid.patchWidth = topology.patchWidth;
    grid.patchHeight = topology.patchHeight;
    grid.UpdatePreview(topology.patchHeight != 0 ? topology.previewFactor : 0.0);
    return grid;
}

kxbase::GridTopology QSNScanWriterImpl::NoGrid() {
    kxbase::GridTopology grid;
    grid.columnAngularStep = kDefaultAngularStep;
    grid.rowAngularStep = kDefaultAngularStep;
    grid.patchWidth = 1;
    grid.patchHeight = 1;
    return grid;
}

void QSNScanWriterImpl::CreateNew(const std::wstring& path, const kxbase::GridTopology& topology,
                                  TopologyMode mode) {
    kxbase::ErrorContext context;
    context.file = kxbase::Encode_UTF8(path);
    // Before the path is touched: opening it would empty a file that is there.
    if (m_state != State::Constructed) {
        context.detail = "this writer has created a file before";
        throw kxbase::KXFileNotOpenException("Cannot file not open", context);
    }
    auto file = std::make_unique<kxbase::kxOutFile>(path, kxbase::kxOutFile::CreateOrTruncate);
    if (!file->IsOpen()) {
        context.detail =
            file->IsHeldByAnother() ? "another one is writing or editing it" : "cannot be opened for writing";
        throw kxbase::KXFileNotOpenException("Cannot file not open", context);
    }
    CreateNew(file.get(), topology, mode);
    m_ownedFile = std::move(file);
}

void QSNScanWriterImpl::CreateNew(kxbase::IOutFileStream* stream, const kxbase::GridTopology& topology,
                                  TopologyMode mode) {
    if (m_state != State::Constructed || stream == nullptr) {
        kxbase::ErrorContext context;
        context.detail = stream == nullptr ? "no stream" : "this writer has created a file before";
        throw kxbase::KXFileNotOpenException("Cannot file not open", context);
    }
    m_topologyMode = mode;
    m_heightKnown = topology.rows > 0;
    m_startTime = kxbase::Date::Now();
    m_stream = stream;
    m_properties.grid = topology;
    try {
        BeginFile();
    } catch (...) {
        m_stream = nullptr;  // the writer is as it was and may be given another output
        m_statistics.clear();
        throw;
    }
    m_state = State::Created;
}

void QSNScanWriterImpl::BeginFile() {
    m_mainHeader = MainFileHeader();
    m_mainHeader.writerRevision = MainFileHeader::CurrentWriterRevision;
    m_mainHeader.firstChunkPosition = m_mainHeader.HeaderSize();
    m_mainHeader.Write(m_stream);
    m_statistics["Headers"] += m_mainHeader.HeaderSize();
    if (m_topologyMode == TopologyMode::None) {
        m_properties.grid.columns = 0;
        m_properties.grid.rows = 1;  // every patch lands in patch row 0; columns grow with the patches
    } else if (HasPreviews(m_properties.grid)) {
        SetUpPreviews();
    }
    m_pointCount = 0;
}

bool QSNScanWriterImpl::HasPreviews(const kxbase::GridTopology& grid) const {
    return m_topologyMode != TopologyMode::None && m_heightKnown && grid.columns >= 1 && grid.rows >= 1;
}

void QSNScanWriterImpl::SetUpPreviews() {
    kxbase::GridTopology& grid = m_properties.grid;
    if (grid.previewWidth > grid.columns || grid.previewHeight > grid.rows) {
        grid.previewWidth = grid.columns;
        grid.previewHeight = grid.rows;
        grid.columnRatio = 1.0F;
        grid.rowRatio = 1.0F;
    }
    if (grid.previewWidth == 0 || grid.previewHeight == 0) {
        grid.UpdateHalfSteps();
        grid.UpdatePreview(kDefaultPreviewFactor);
    }
    m_previewWidth = grid.previewWidth;
    m_previewHeight = grid.previewHeight;
    // A grid beyond what a lookup table can list takes no patches, so it needs no limits either.
    const uint64_t patches = grid.PatchCount64();
    if (patches <= LookupTableHeader::MaximumEntryCount) {
        m_limits.assign(static_cast<size_t>(patches), MinMaxPair{0.0F, 0.0F});
    }
}

void QSNScanWriterImpl::SetCompressedThumbnail(const std::vector<unsigned char>& jpeg) {
    if (jpeg.empty()) {
        m_thumbnailSupplied = false;
        return;
    }
    unsigned char* pixels = nullptr;
    uint64_t bytes = 0;
    unsigned width = 0;
    unsigned height = 0;
    const bool decoded = kxcodecs::JPEG::Decode(jpeg.data(), jpeg.size(), pixels, bytes, width, height);
    kxcodecs::JPEG::Free(pixels);
    if (!decoded) {
        kxbase::ErrorContext context;
        context.record = "ThumbnailHeader";
        context.detail = "the " + std::to_string(jpeg.size()) + " bytes given are no JPEG image";
        throw kxbase::KXBadInputException("Unknown thumbnail data size", context);
    }
    m_thumbnail.SetCompressed(jpeg, height, width);
    m_thumbnailSupplied = true;
}

}  // namespace kxio
