// SPDX-License-Identifier: MIT
// The three kinds of descriptors: sampling, limits, histograms and compression, up to the chunk.
#include <algorithm>
#include <cmath>
#include <limits>

#include "kxbase/Exceptions.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/EmptyPatchDescriptor.h"
#include "kxio/EncodedPatchDescriptor.h"
#include "kxio/FlatPatchDescriptor.h"
#include "writer/PatchLimits.h"
#include "writer/PreviewSampler.h"
#include "writer/QSNScanWriterImpl.h"
#include "writer/WriterLocks.h"

namespace kxio {

namespace {

constexpr uint64_t kMaxBytes = std::numeric_limits<uint32_t>::max();

kxbase::ErrorContext Detail(std::string detail) {
    kxbase::ErrorContext context;
    context.detail = std::move(detail);
    return context;
}

void RequireData(const PatchDescriptor& descriptor) {
    if (descriptor.data == nullptr && descriptor.size > 0) {
        throw kxbase::KXBadInputException(
            "Patch has no data", Detail(std::to_string(descriptor.size) + " values announced, null data"));
    }
}

std::span<const unsigned char> FlatValues(const FlatPatchDescriptor& descriptor) {
    RequireData(descriptor);
    const uint64_t length = std::max<uint64_t>(1, descriptor.pixelLength);
    if (length > kMaxBytes || descriptor.size > kMaxBytes / length) {
        throw kxbase::KXWrongDataSizeofException(
            "Patch too large",
            Detail(std::to_string(descriptor.size) + " values of " + std::to_string(descriptor.pixelLength) +
                   " bytes, at most 2^32 - 1 bytes"));
    }
    return {descriptor.data, static_cast<size_t>(descriptor.size * descriptor.pixelLength)};
}

// The codec's quality is the reciprocal of the smallest difference to be kept.
float QualityOf(const FlatPatchDescriptor& descriptor) {
    const double quality = 1.0 / descriptor.scale;
    if (!(quality > 0) || quality > static_cast<double>(std::numeric_limits<float>::max()) ||
        static_cast<float>(quality) == 0) {
        throw kxbase::KXBadInputException(
            "Unsupported scale",
            Detail("scale " + std::to_string(descriptor.scale) + ", must be above 0 and finite"));
    }
    return static_cast<float>(quality);
}

bool IsTransposed(const FlatPatchDescriptor& descriptor) {
    return descriptor.orientation == Transposed;
}

}  // namespace

void QSNScanWriterImpl::NotePixelLength(kxbase::ComponentType component, uint64_t pixelLength) {
    if (pixelLength == 0) return;
    const std::lock_guard lock(PreviewLock());
    m_previewInfo[component].pixelLength = pixelLength;
}

void QSNScanWriterImpl::ProcessFlat(FlatPatchDescriptor* descriptor, unsigned row, unsigned column) {
    BufferPool::Loan chunk(m_buffers);
    const PatchPlace place = EncodeFlat(*descriptor, row, column, *chunk);
    WriteChunk(descriptor->component, *chunk, place);
}

PatchPlace QSNScanWriterImpl::EncodeFlat(const FlatPatchDescriptor& d, unsigned row, unsigned column,
                                         std::vector<unsigned char>& chunk) {
    const PatchPlace place = Locate(row, column);
    const std::span<const unsigned char> values = FlatValues(d);
    NotePixelLength(d.component, d.pixelLength);
    const float quality = QualityOf(d);
    if (d.codec == nullptr) throw kxbase::KXBadInputException("Patch has no codec");

    if (d.pixelLength != 0 && HasPreviews(place.grid)) SampleIntoPreview(d, values, place);
    if (d.component == kxbase::Range) TakeLimits(d, values, place);
    if (m_histogramsEnabled) m_histograms.Count(d.component, d.pixelLength, values, place);

    const uint64_t patchCells = uint64_t{place.grid.patchWidth} * place.grid.patchHeight;
    const bool wholePatch = patchCells == d.size;
    const uint32_t width = wholePatch ? place.grid.patchWidth : static_cast<uint32_t>(d.size);
    const uint32_t height = wholePatch ? place.grid.patchHeight : 1;
    d.codec->Encode(values.data(), width, height, values.size(), quality, chunk);
    return place;
}

void QSNScanWriterImpl::SampleIntoPreview(const FlatPatchDescriptor& d, std::span<const unsigned char> values,
                                          const PatchPlace& place) {
    const uint64_t pixels = uint64_t{m_previewWidth} * m_previewHeight;
    if (pixels > std::numeric_limits<uint64_t>::max() / d.pixelLength) {
        throw kxbase::KXWrongDataSizeofException("Preview too large");
    }
    const auto bytes = static_cast<size_t>(pixels * d.pixelLength);
    std::shared_ptr<std::vector<unsigned char>> image;
    {
        const std::lock_guard lock(PreviewLock());
        PreviewInfo& info = m_previewInfo[d.component];
        if (info.image == nullptr || info.image->size() != bytes) {
            auto resized = std::make_shared<std::vector<unsigned char>>();
            resized->reserve(bytes);
            if (info.image != nullptr) {
                resized->assign(
                    info.image->begin(),
                    info.image->begin() + static_cast<std::ptrdiff_t>(std::min(bytes, info.image->size())));
            }
            resized->resize(bytes);
            info.image = std::move(resized);
        }
        info.orientation = d.orientation;
        image = info.image;
    }
    {
        const std::lock_guard lock(CodecLock());
        m_codecs[d.component] = d.codec;
    }
    PreviewSampling sampling;
    sampling.pixelLength = d.pixelLength;
    sampling.previewWidth = m_previewWidth;
    sampling.previewHeight = m_previewHeight;
    sampling.patchWidth = place.grid.patchWidth;
    sampling.patchHeight = place.grid.patchHeight;
    sampling.gridWidth = place.grid.columns;
    sampling.gridHeight = place.grid.rows;
    sampling.patchRow = place.row;
    sampling.patchColumn = place.column;
    sampling.transposed = IsTransposed(d);
    SamplePatchIntoPreview(sampling, *image, values);
}

void QSNScanWriterImpl::TakeLimits(const FlatPatchDescriptor& d, std::span<const unsigned char> values,
                                   const PatchPlace& place) {
    PatchLimits limits;
    if (d.pixelLength == sizeof(float)) {
        const CountedValues counted =
            m_topologyMode == TopologyMode::None ? CountedValues::All : CountedValues::InsideGrid;
        limits = MeasurePatch(values, place, IsTransposed(d), counted);
    }
    m_pointCount += limits.points;
    const std::lock_guard lock(LimitsLock());
    if (m_limits.size() <= place.index) m_limits.resize(size_t{place.index} + 1, MinMaxPair{0.0F, 0.0F});
    m_limits[place.index] = limits.pair;
}

void QSNScanWriterImpl::ProcessEncoded(EncodedPatchDescriptor* descriptor, unsigned row, unsigned column) {
    const EncodedPatchDescriptor& d = *descriptor;
    const PatchPlace place = Locate(row, column);
    RequireData(d);
    if (d.size > kMaxBytes) {
        throw kxbase::KXWrongDataSizeofException("Patch too large",
                                                 Detail(std::to_string(d.size) + " bytes, at most 2^32 - 1"));
    }
    NotePixelLength(d.component, d.pixelLength);
    if (d.size == 0) return;
    WriteChunk(d.component, {d.data, static_cast<size_t>(d.size)}, place);
    if (d.component == kxbase::Range) StoreLimits(place.index, {d.min, d.max});
}

void QSNScanWriterImpl::ProcessEmpty(EmptyPatchDescriptor* descriptor, unsigned row, unsigned column) {
    const EmptyPatchDescriptor& d = *descriptor;
    const PatchPlace place = Locate(row, column);
    const kxcodecs::QKXChunkCodec* codec = nullptr;
    {
        const std::lock_guard lock(CodecLock());
        const auto known = m_codecs.find(d.component);
        if (known != m_codecs.end()) codec = known->second;
    }
    WriteEmpty(d.component, std::max<uint64_t>(1, d.pixelLength), codec, place);
    if (d.component == kxbase::Range) StoreLimits(place.index, {0.0F, 0.0F});
}

// Only flat patches make the limits longer: where they have no known length they are not written anyway.
void QSNScanWriterImpl::StoreLimits(uint32_t index, const MinMaxPair& pair) {
    const std::lock_guard lock(LimitsLock());
    if (index < m_limits.size()) m_limits[index] = pair;
}

}  // namespace kxio
