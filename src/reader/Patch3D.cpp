// SPDX-License-Identifier: MIT
// Cartesian points of patches and previews, and the grid places of points.
#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <span>

#include "kxbase/PolarConversion.h"
#include "kxbase/Sizes.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"
#include "reader/PatchDecoder.h"

namespace kxio {

using XYZPoint = kxbase::tBaseXYZPoint<float>;
using ColoredPoint = kxbase::tXYZLuminance8Point;

namespace {

// Three equally long columns of values: range, vertical angle, horizontal angle.
using PolarColumns = std::array<std::vector<float>, 3>;
constexpr std::array<kxbase::ComponentType, 3> kPolarComponents{kxbase::Range, kxbase::VerticalAngle,
                                                                kxbase::HorizontalAngle};

[[noreturn]] void ThrowUndecodable(kxbase::ErrorContext context) {
    throw kxbase::KXUnreadablePatchException("Patch cannot be decoded", std::move(context));
}

// Fetches the three components side by side. Of several failures the one of the lowest component is
// reported, so that the outcome does not depend on timing.
template <class Fetch>
PolarColumns FetchPolar(const Fetch& fetch) {
    PolarColumns columns;
    std::array<std::exception_ptr, 3> failures;
#pragma omp parallel for schedule(static, 1)
    for (int i = 0; i < 3; ++i) {
        const auto k = static_cast<size_t>(i);
        try {
            fetch(kPolarComponents[k], columns[k]);
        } catch (...) {
            failures[k] = std::current_exception();
        }
    }
    for (const std::exception_ptr& failure : failures) {
        if (!failure) continue;
        try {
            std::rethrow_exception(failure);
        } catch (const kxbase::KXException& e) {
            throw kxbase::KXException(e.what(), e.Context());
        } catch (...) {
            throw kxbase::KXException("Unknown Exception");
        }
    }
    if (columns[1].size() != columns[0].size() || columns[2].size() != columns[0].size()) {
        kxbase::ErrorContext context;
        context.detail = "range and angles have " + std::to_string(columns[0].size()) + ", " +
                         std::to_string(columns[1].size()) + " and " + std::to_string(columns[2].size()) +
                         " values";
        throw kxbase::KXException("Patch cannot be decoded", context);
    }
    return columns;
}

// Cells converted at a time: what passes between the steps stays in the first cache.
constexpr size_t kBatchCells = 512;
// Fewer cells are done before other threads have woken up.
constexpr size_t kWorthThreads = size_t{1} << 17;

// Calls make(xyz, k) for cell k of each batch from `first` to `end`; the points of a batch lie side by side.
template <class Make>
void ConvertBatches(const PolarColumns& polar, size_t first, size_t end, const Make& make) {
    std::array<float, 3 * kBatchCells> xyz;  // NOLINT: written before it is read
    for (; first < end; first += kBatchCells) {
        const size_t count = std::min(kBatchCells, end - first);
        const auto part = [&](size_t column) { return std::span(polar[column]).subspan(first, count); };
        kxbase::PolarToCartesian(part(0), part(2), part(1), std::span(xyz).first(3 * count));
        for (size_t i = 0; i < count; ++i)
            make(xyz.data() + 3 * i, first + i);
    }
}

// All points in their order, the same whatever the number of threads.
template <class Point, class Make>
void MakePoints(const PolarColumns& polar, bool validOnly, std::vector<Point>& out, const Make& make) {
    const std::vector<float>& range = polar[0];
    if (!validOnly) {
        out.resize(range.size());
        const auto batches = static_cast<int64_t>((range.size() + kBatchCells - 1) / kBatchCells);
#pragma omp parallel for schedule(static) if (range.size() >= kWorthThreads)
        for (int64_t batch = 0; batch < batches; ++batch) {
            const size_t first = static_cast<size_t>(batch) * kBatchCells;
            ConvertBatches(polar, first, std::min(first + kBatchCells, range.size()),
                           [&](const float* p, size_t k) { out[k] = make(p, k); });
        }
        return;
    }
    size_t kept = 0;
    out.resize(range.size());
    ConvertBatches(polar, 0, range.size(), [&](const float* p, size_t k) {
        // Written in any case: whether a cell holds a return is hard to foretell.
        out[kept] = make(p, k);
        kept += range[k] > 0 ? 1 : 0;
    });
    out.resize(kept);
}

void MakePlainPoints(const PolarColumns& polar, bool validOnly, std::vector<XYZPoint>& out) {
    MakePoints(polar, validOnly, out, [](const float* p, size_t) { return XYZPoint(p[0], p[1], p[2]); });
}

void MakeColoredPoints(const PolarColumns& polar, const std::vector<uint8_t>& luminance, bool validOnly,
                       std::vector<ColoredPoint>& out) {
    MakePoints(polar, validOnly, out, [&luminance](const float* p, size_t k) {
        return ColoredPoint{p[0], p[1], p[2], k < luminance.size() ? luminance[k] : uint8_t{0}};
    });
}

std::vector<uint8_t> HighBytes(std::span<const uint16_t> values) {
    std::vector<uint8_t> high(values.size());
    for (size_t i = 0; i < values.size(); ++i)
        high[i] = static_cast<uint8_t>(values[i] >> 8);
    return high;
}

}  // namespace

void QSNScanReader::GetPatchAsFloats(unsigned row, unsigned column, kxbase::ComponentType component,
                                     std::vector<float>& out) const {
    PatchBuffers buffers;
    RequireComponent(component);
    const uint64_t index = LinearIndex(row, column);
    const DecodedPatch patch = DecodePatch(index, component, buffers);
    out.resize(patch.bytes.size() / patch.elementBytes);
    if (patch.elementBytes == sizeof(float)) {
        if (!out.empty()) std::memcpy(out.data(), patch.bytes.data(), out.size() * sizeof(float));
    } else if (patch.elementBytes == sizeof(double)) {
        for (size_t i = 0; i < out.size(); ++i) {
            double value = 0;
            std::memcpy(&value, patch.bytes.data() + i * sizeof(double), sizeof value);
            out[i] = static_cast<float>(value);
        }
    } else {
        kxbase::ErrorContext context = PatchContext(index, component);
        context.detail =
            "elements of " + std::to_string(patch.elementBytes) + " bytes are no numbers of 4 or 8";
        ThrowUndecodable(context);
    }
}

std::vector<uint8_t> QSNScanReader::GetPatchLuminance(unsigned row, unsigned column) const {
    PatchBuffers buffers;
    const uint64_t index = LinearIndex(row, column);
    if (IsComponentAvailable(kxbase::Luminance8)) {
        const DecodedPatch patch = DecodePatch(index, kxbase::Luminance8, buffers);
        if (patch.elementBytes == 1) return {patch.bytes.begin(), patch.bytes.end()};
    } else if (IsComponentAvailable(kxbase::Luminance16)) {
        const DecodedPatch patch = DecodePatch(index, kxbase::Luminance16, buffers);
        if (patch.elementBytes == sizeof(uint16_t)) {
            std::vector<uint16_t> values(patch.bytes.size() / sizeof(uint16_t));
            std::memcpy(values.data(), patch.bytes.data(), values.size() * sizeof(uint16_t));
            return HighBytes(values);
        }
    }
    return {};
}

void QSNScanReader::Get3DPatch(unsigned patchRow, unsigned patchColumn, std::vector<XYZPoint>& out,
                               bool validOnly) const {
    const PolarColumns polar = FetchPolar([&](kxbase::ComponentType component, std::vector<float>& values) {
        GetPatchAsFloats(patchRow, patchColumn, component, values);
    });
    MakePlainPoints(polar, validOnly, out);
}

void QSNScanReader::Get3DPatch(unsigned patchRow, unsigned patchColumn, std::vector<ColoredPoint>& out,
                               bool validOnly) const {
    const PolarColumns polar = FetchPolar([&](kxbase::ComponentType component, std::vector<float>& values) {
        GetPatchAsFloats(patchRow, patchColumn, component, values);
    });
    MakeColoredPoints(polar, GetPatchLuminance(patchRow, patchColumn), validOnly, out);
}

void QSNScanReader::Get3DPreview(std::vector<XYZPoint>& out, bool validOnly) const {
    const ScanAccess access(*this);
    const PolarColumns polar = FetchPolar([&](kxbase::ComponentType component, std::vector<float>& values) {
        values = access.ReadPreview<float>(component).values;
    });
    MakePlainPoints(polar, validOnly, out);
}

void QSNScanReader::Get3DPreview(std::vector<ColoredPoint>& out, bool validOnly) const {
    const ScanAccess access(*this);
    const PolarColumns polar = FetchPolar([&](kxbase::ComponentType component, std::vector<float>& values) {
        values = access.ReadPreview<float>(component).values;
    });
    std::vector<uint8_t> luminance;
    if (IsPreviewAvailable(kxbase::Luminance8)) {
        luminance = access.ReadPreview<uint8_t>(kxbase::Luminance8).values;
    } else if (IsPreviewAvailable(kxbase::Luminance16)) {
        luminance = HighBytes(access.ReadPreview<uint16_t>(kxbase::Luminance16).values);
    }
    MakeColoredPoints(polar, luminance, validOnly, out);
}

void QSNScanReader::GetProjectedPatchCoordinates(unsigned patchIndex, std::vector<kxbase::QSNIndex>& out,
                                                 unsigned& count, bool validOnly) const {
    count = 0;
    out.clear();
    const kxbase::GridTopology& grid = m_scanProperties.grid;
    const uint32_t perRow = grid.PatchesPerRow();
    std::vector<float> ranges;
    if (validOnly) {
        // Splitting by hand keeps an index outside the grid what it is: the chunk lookup names it.
        const uint32_t width = perRow == 0 ? 1 : perRow;
        GetPatchAsFloats(patchIndex / width, patchIndex % width, kxbase::Range, ranges);
    } else if (patchIndex >= grid.PatchCount64()) {
        kxbase::ErrorContext context = PatchContext(patchIndex, kxbase::Range);
        context.detail = "the grid has " + std::to_string(grid.PatchCount64()) + " patches";
        throw kxbase::KXUnreadablePatchException("Index " + std::to_string(patchIndex) + " is outside bounds",
                                                 context);
    }
    const uint32_t rows = grid.RowsInPatch(patchIndex / perRow);
    const uint32_t columns = grid.ColumnsInPatch(patchIndex % perRow);
    if (const uint64_t cells = kxbase::SizeProduct(rows, columns); cells > m_limits.cells) {
        kxbase::ErrorContext context = PatchContext(patchIndex, kxbase::Range);
        context.detail = kxbase::OverLimit("cells", cells, m_limits.cells);
        ThrowUndecodable(context);
    }
    for (uint32_t row = 0; row < rows; ++row) {
        for (uint32_t column = 0; column < columns; ++column) {
            const uint64_t position = uint64_t{row} * grid.patchWidth + column;
            if (position > UINT32_MAX || (validOnly && position >= ranges.size())) break;
            if (validOnly && !(ranges[position] > 0)) continue;
            out.emplace_back(patchIndex, static_cast<uint32_t>(position));
        }
    }
    count = static_cast<unsigned>(out.size());
}

void QSNScanReader::GetProjectedCoordinates(std::vector<kxbase::QSNIndex>& out, bool validOnly) const {
    out.clear();
    // The table's length is backed by the file; the grid's own patch count may claim anything.
    const auto& entries = RequireComponent(kxbase::Range);
    const auto patches = static_cast<unsigned>(std::min<uint64_t>(entries.size(), GetPatchNumber()));
    std::vector<kxbase::QSNIndex> patch;
    for (unsigned index = 0; index < patches; ++index) {
        const bool held = entries[index].position != 0 && entries[index].byteCount != 0;
        if (validOnly && !held) continue;  // nothing was measured there
        unsigned count = 0;
        GetProjectedPatchCoordinates(index, patch, count, validOnly);
        out.insert(out.end(), patch.begin(), patch.end());
    }
}

}  // namespace kxio
