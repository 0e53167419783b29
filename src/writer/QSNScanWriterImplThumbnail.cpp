// SPDX-License-Identifier: MIT
// The thumbnail: supplied, sampled from a preview, or blank.
#include <algorithm>

#include "kxbase/Exceptions.h"
#include "kxio/FlatPatchDescriptor.h"
#include "writer/PreviewSampler.h"
#include "writer/QSNScanWriterImpl.h"
#include "writer/ValueCopy.h"

namespace kxio {

namespace {

struct Sides {
    uint32_t width;
    uint32_t height;
};

// The longer side of the thumbnail is the grid's, within these; the shorter one keeps the grid's shape.
constexpr uint32_t kMinLongSide = 200;
constexpr uint32_t kMaxLongSide = 400;
constexpr uint32_t kMinShortSide = 100;

Sides ThumbnailSides(const kxbase::GridTopology& grid) {
    const uint32_t side = std::clamp(std::max(grid.columns, grid.rows), kMinLongSide, kMaxLongSide);
    const double width = grid.columns;
    const double height = grid.rows;
    if (grid.rows > grid.columns) {
        return {std::max(kMinShortSide, static_cast<uint32_t>(side * width / height)), side};
    }
    return {side, std::max(kMinShortSide, static_cast<uint32_t>(side / (width / height)))};
}

// `image`, `width` x `height` values, becomes `height` x `width`.
std::vector<unsigned char> Transpose(std::span<const unsigned char> image, uint32_t width, uint32_t height,
                                     uint64_t pixelLength) {
    std::vector<unsigned char> turned(image.size());
    const ValueCopier copy = CopierFor(pixelLength);
    for (uint64_t row = 0; row < height; ++row) {
        for (uint64_t column = 0; column < width; ++column) {
            copy(turned.data() + (column * height + row) * pixelLength,
                 image.data() + (row * width + column) * pixelLength, pixelLength);
        }
    }
    return turned;
}

}  // namespace

void QSNScanWriterImpl::WriteThumbnail() {
    if (!m_thumbnailSupplied && !ThumbnailFrom(kxbase::Color) && !ThumbnailFrom(kxbase::Luminance8)) {
        m_thumbnail.SetUp(ThumbnailHeader::BlankSide, ThumbnailHeader::BlankSide, 1);
    }
    m_mainHeader.thumbnailHeaderPosition = m_stream->Tell();
    WriteRecord(m_thumbnail);
    m_statistics["Thumbnail"] = m_thumbnail.HeaderSize();
}

bool QSNScanWriterImpl::ThumbnailFrom(kxbase::ComponentType component) {
    const auto found = m_previewInfo.find(component);
    const kxbase::GridTopology& grid = m_properties.grid;
    if (found == m_previewInfo.end() || found->second.image == nullptr || found->second.image->empty() ||
        grid.columns == 0 || grid.rows == 0) {
        return false;
    }
    const PreviewInfo& source = found->second;
    // The image's own value length: that of the component may have been told otherwise since.
    const uint64_t pixelLength = source.image->size() / (uint64_t{m_previewWidth} * m_previewHeight);
    const bool transposed = source.orientation == Transposed;
    if (transposed && pixelLength > 4) {
        kxbase::ErrorContext context;
        context.record = m_thumbnail.GetRecordName();
        context.detail = kxbase::ComponentToString(component) + " has a transposed preview of " +
                         std::to_string(pixelLength) + " bytes per value, at most 4 can be turned";
        throw kxbase::KXException("Unsupported preview pixel Length", context);
    }

    const Sides sides = ThumbnailSides(grid);
    m_thumbnail.SetUp(sides.height, sides.width, static_cast<unsigned>(pixelLength));
    // The whole preview is one patch of a grid of its own size. A transposed one is sampled as it lies, into
    // a thumbnail that lies the same way, which is then turned upright.
    PreviewSampling sampling;
    sampling.pixelLength = pixelLength;
    sampling.previewWidth = transposed ? sides.height : sides.width;
    sampling.previewHeight = transposed ? sides.width : sides.height;
    sampling.patchWidth = transposed ? m_previewHeight : m_previewWidth;
    sampling.patchHeight = transposed ? m_previewWidth : m_previewHeight;
    sampling.gridWidth = sampling.patchWidth;
    sampling.gridHeight = sampling.patchHeight;
    std::vector<unsigned char>& pixels = m_thumbnail.GetPixels();
    SamplePatchIntoPreview(sampling, pixels, *source.image);
    if (transposed) pixels = Transpose(pixels, sides.height, sides.width, pixelLength);
    return true;
}

}  // namespace kxio
