// SPDX-License-Identifier: MIT
#include "writer/PreviewSampler.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "writer/ValueCopy.h"

namespace kxio {

namespace {

// Above this no float is a grid position (grids have 32-bit sides), and the conversion stays defined.
constexpr float kFarAway = 4.0e18F;

int64_t Truncate(float value) {
    return value < kFarAway ? static_cast<int64_t>(value) : static_cast<int64_t>(kFarAway);
}

struct Axis {
    uint64_t extent;  // of the preview along this axis
    uint64_t origin;  // first grid position of the patch
    uint32_t size;    // of the patch
    float ratio;      // preview / grid
    float inverse;    // grid / preview
};

struct KeptPixel {
    uint64_t preview;  // position along the axis in the preview
    uint64_t source;   // position along the axis in the patch
};

// The preview pixels along one axis whose centre lies inside the patch. A run of neighbours.
std::vector<KeptPixel> KeptAlong(const Axis& axis) {
    const auto origin = static_cast<int64_t>(std::min<uint64_t>(axis.origin, uint64_t{1} << 62));
    const auto extent = static_cast<int64_t>(axis.extent);
    const int64_t half = Truncate(axis.inverse * 0.5F);
    const auto sourceOf = [&](int64_t pixel) {
        return Truncate(static_cast<float>(pixel) * axis.inverse) - origin + half;
    };

    const int64_t candidates = Truncate(static_cast<float>(axis.size) * axis.ratio + 0.5F) + 1;
    int64_t first = std::min(Truncate(static_cast<float>(axis.origin) * axis.ratio), extent);
    while (first < extent && sourceOf(first) < 0)
        ++first;
    // Pixels outside the preview are kept by no rule, so the walk can end there.
    const int64_t end = std::min(first + candidates, extent);

    std::vector<KeptPixel> kept;
    kept.reserve(static_cast<size_t>(std::min<int64_t>(std::max<int64_t>(end - first, 0), axis.size)));
    for (int64_t pixel = first; pixel < end; ++pixel) {
        const int64_t source = sourceOf(pixel);
        if (source >= 0 && source < int64_t{axis.size}) {
            kept.push_back({static_cast<uint64_t>(pixel), static_cast<uint64_t>(source)});
        }
    }
    return kept;
}

struct Image {
    uint64_t valueCount;
    uint64_t width;
};

// Calls `copy` with the positions, in values, of each kept pixel and its source.
template <class Copy>
void ForEachKept(const std::vector<KeptPixel>& rows, const std::vector<KeptPixel>& columns, const Image& from,
                 uint64_t previewWidth, Copy copy) {
    for (const KeptPixel& row : rows) {
        const uint64_t sourceStart = row.source * from.width;
        const uint64_t previewStart = row.preview * previewWidth;
        for (const KeptPixel& column : columns) {
            const uint64_t source = sourceStart + column.source;
            if (source >= from.valueCount) break;  // sources only grow along the row
            copy(previewStart + column.preview, source);
        }
    }
}

// The usual value lengths, with copies that the compiler sees through.
template <unsigned Bytes>
void CopyKept(const std::vector<KeptPixel>& rows, const std::vector<KeptPixel>& columns,
              const unsigned char* patch, const Image& from, unsigned char* preview, uint64_t previewWidth) {
    ForEachKept(rows, columns, from, previewWidth, [&](uint64_t to, uint64_t source) {
        std::memcpy(preview + to * Bytes, patch + source * Bytes, Bytes);
    });
}

// Any other length.
void CopyKept(const std::vector<KeptPixel>& rows, const std::vector<KeptPixel>& columns,
              const unsigned char* patch, const Image& from, unsigned char* preview, uint64_t previewWidth,
              uint64_t bytes) {
    const ValueCopier copy = CopierFor(bytes);
    ForEachKept(rows, columns, from, previewWidth, [&](uint64_t to, uint64_t source) {
        copy(preview + to * bytes, patch + source * bytes, bytes);
    });
}

}  // namespace

void SamplePatchIntoPreview(const PreviewSampling& s, std::span<unsigned char> preview,
                            std::span<const unsigned char> patch) {
    const uint64_t bytes = s.pixelLength;
    const uint64_t previewPixels = uint64_t{s.previewWidth} * s.previewHeight;
    if (bytes == 0 || previewPixels == 0 || s.patchWidth == 0 || s.patchHeight == 0 || s.gridWidth == 0 ||
        s.gridHeight == 0 || preview.size() / bytes < previewPixels) {
        return;
    }

    Axis across{s.previewWidth, uint64_t{s.patchColumn} * s.patchWidth, s.patchWidth,
                static_cast<float>(s.previewWidth) / static_cast<float>(s.gridWidth),
                static_cast<float>(s.gridWidth) / static_cast<float>(s.previewWidth)};
    Axis down{s.previewHeight, uint64_t{s.patchRow} * s.patchHeight, s.patchHeight,
              static_cast<float>(s.previewHeight) / static_cast<float>(s.gridHeight),
              static_cast<float>(s.gridHeight) / static_cast<float>(s.previewHeight)};
    if (s.transposed) {
        std::swap(across.extent, down.extent);
        across.origin = uint64_t{s.patchRow} * s.patchWidth;
        down.origin = uint64_t{s.patchColumn} * s.patchHeight;
    }

    const std::vector<KeptPixel> columns = KeptAlong(across);
    const std::vector<KeptPixel> rows = KeptAlong(down);
    const Image from{patch.size() / bytes, s.patchWidth};
    switch (bytes) {
        case 1:
            return CopyKept<1>(rows, columns, patch.data(), from, preview.data(), across.extent);
        case 2:
            return CopyKept<2>(rows, columns, patch.data(), from, preview.data(), across.extent);
        case 3:
            return CopyKept<3>(rows, columns, patch.data(), from, preview.data(), across.extent);
        case 4:
            return CopyKept<4>(rows, columns, patch.data(), from, preview.data(), across.extent);
        case 8:
            return CopyKept<8>(rows, columns, patch.data(), from, preview.data(), across.extent);
        default:
            return CopyKept(rows, columns, patch.data(), from, preview.data(), across.extent, bytes);
    }
}

}  // namespace kxio
