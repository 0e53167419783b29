// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>

#include "kxio/HistogramHeader.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace kxtest {

struct ReadOutcome {
    bool opened = false;
    int read = 0;            ///< requests that gave something
    int failures = 0;        ///< requests that threw a KXException
    bool consistent = true;  ///< one cell came out the same on every way
};

namespace detail {

class WalkingReader : public kxio::QSNScanReader {
public:
    using QSNScanReader::FailSafeInit;
};

// Patch by patch and as a layer, with the bad patches as zeros: both must agree.
inline bool LayerAgreesWithPatches(const kxio::ScanAccess& access, kxbase::ComponentType component) {
    constexpr uint64_t kMaxBytes = uint64_t{1} << 18;
    const kxbase::GridTopology& grid = access.Grid();
    const uint32_t elementBytes = access.ElementBytes(component);
    if (elementBytes == 0 || grid.PatchCount64() == 0 || grid.PatchCount64() > 64) return true;
    if (access.GetGridRect().CellCount() > kMaxBytes / elementBytes) return true;

    const kxio::ReadOptions rescue{kxio::MissingPatches::ZeroUnreadable, 1};
    const uint64_t stride = uint64_t{grid.columns} * elementBytes;
    std::vector<unsigned char> layer(stride * grid.rows, 0xaa);
    const kxio::ReadReport whole =
        access.ReadRectBytes(component, access.GetGridRect(), elementBytes, layer, rescue);
    kxio::ReadReport sum;
    bool same = true;
    for (uint32_t row = 0; row < grid.PatchesPerColumn(); ++row) {
        for (uint32_t column = 0; column < grid.PatchesPerRow(); ++column) {
            const kxio::PatchRect rect = access.GetPatchRect(row, column);
            std::vector<unsigned char> patch(rect.CellCount() * elementBytes, 0xbb);
            const kxio::ReadReport one = access.ReadRectBytes(component, rect, elementBytes, patch, rescue);
            sum.decoded += one.decoded;
            sum.absent += one.absent;
            sum.damaged += one.damaged;
            const uint64_t rowBytes = uint64_t{rect.columns} * elementBytes;
            for (uint32_t r = 0; r < rect.rows; ++r) {
                const unsigned char* cells = layer.data() + (uint64_t{rect.firstRow} + r) * stride +
                                             uint64_t{rect.firstColumn} * elementBytes;
                same = same && std::equal(cells, cells + rowBytes, patch.data() + r * rowBytes);
            }
        }
    }
    return same && sum == whole && whole.decoded + whole.absent + whole.damaged == grid.PatchCount64();
}

}  // namespace detail

/// Opens the stream and asks for everything that a file can give. Exceptions that are no KXException leave.
inline ReadOutcome ReadEverything(kxbase::IInFileStream& stream) {
    ReadOutcome outcome;
    detail::WalkingReader reader;
    const auto attempt = [&outcome](auto request) {
        try {
            request();
            ++outcome.read;
        } catch (const kxbase::KXException&) {
            ++outcome.failures;
        }
    };
    try {
        reader.Open(&stream);
        outcome.opened = true;
    } catch (const kxbase::KXException&) {
        // Some failures leave the stream attached: the walk must cope with what is there.
        attempt([&] { reader.FailSafeInit(); });
    }
    std::vector<unsigned char> bytes;
    unsigned width = 0;
    unsigned height = 0;
    kxio::QSNScanReader::GetThumbnailRGB(&stream, bytes, width, height);
    const kxio::ScanAccess access(reader);
    for (const kxbase::ComponentType component : access.Components()) {
        const auto entries = static_cast<uint32_t>(access.PatchEntries(component).size());
        for (uint32_t index = 0; index < std::min(entries, 20U); ++index) {
            attempt([&] { reader.GetPatchCompressed(index, bytes, component); });
            attempt([&] {
                const uint32_t perRow = access.Grid().PatchesPerRow();
                access.ReadPatchBytes(component, index / perRow, index % perRow,
                                      access.ElementBytes(component));
            });
        }
        attempt([&] {
            outcome.consistent = outcome.consistent && detail::LayerAgreesWithPatches(access, component);
        });
        attempt([&] { access.ReadPreviewBytes(component, access.ElementBytes(component)); });
        attempt([&] {
            std::vector<kxbase::ImageCoordinates> list;
            reader.GetOrderedPatchList(list, component);
        });
        attempt(
            [&] { kxio::Luminance16HistogramHeader(access.ReadHistogramRecord(component)).GetHistogram(); });
    }
    attempt([&] { access.ReadLimits(); });
    attempt([&] { access.Summarise(); });
    attempt([&] {
        kxbase::tBasePolarPoint<float> min;
        kxbase::tBasePolarPoint<float> max;
        reader.GetBoundingBox(0, 0, min, max);
    });
    reader.HasRegistrationBeenModified();
    return outcome;
}

}  // namespace kxtest
