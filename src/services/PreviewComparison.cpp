// SPDX-License-Identifier: MIT
#include "services/PreviewComparison.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include "kxbase/Sizes.h"

namespace kxio {

PreviewComparison::PreviewComparison(const kxbase::GridTopology& grid, const DecodedPatch& stored)
    : m_grid(grid),
      m_width(stored.header.width),
      m_height(stored.header.height),
      m_elementBytes(stored.elementBytes),
      m_stored(stored.bytes.begin(), stored.bytes.end()),
      m_expected(stored.bytes.size()) {}

PreviewSampling PreviewComparison::SamplingOf(uint32_t row, uint32_t column) const {
    PreviewSampling sampling;
    sampling.pixelLength = m_elementBytes;
    sampling.previewWidth = m_width;
    sampling.previewHeight = m_height;
    sampling.patchWidth = m_grid.patchWidth;
    sampling.patchHeight = m_grid.patchHeight;
    sampling.gridWidth = m_grid.columns;
    sampling.gridHeight = m_grid.rows;
    sampling.patchRow = row;
    sampling.patchColumn = column;
    sampling.transposed = m_transposed;
    return sampling;
}

void PreviewComparison::Sample(const DecodedPatch& patch, uint32_t row, uint32_t column) {
    if (patch.elementBytes != m_elementBytes) return;
    if (patch.header.step != 1.0F && (m_elementBytes == 4 || m_elementBytes == 8)) {
        float before = m_smallestStep.load();
        while ((before == 0 || patch.header.step < before) &&
               !m_smallestStep.compare_exchange_weak(before, patch.header.step)) {
        }
    }
    SamplePatchIntoPreview(SamplingOf(row, column), m_expected, patch.bytes);
}

void PreviewComparison::StartTransposed() {
    m_transposed = true;
    std::fill(m_expected.begin(), m_expected.end(), static_cast<unsigned char>(0));
}

bool PreviewComparison::Equal(uint64_t pixel, double halfStep) const {
    const unsigned char* stored = m_stored.data() + pixel * m_elementBytes;
    const unsigned char* expected = m_expected.data() + pixel * m_elementBytes;
    if (std::memcmp(stored, expected, m_elementBytes) == 0) return true;
    if (halfStep == 0) return false;
    double a = 0;
    double b = 0;
    if (m_elementBytes == sizeof(float)) {
        float narrowA = 0;
        float narrowB = 0;
        std::memcpy(&narrowA, stored, sizeof(float));
        std::memcpy(&narrowB, expected, sizeof(float));
        a = static_cast<double>(narrowA);
        b = static_cast<double>(narrowB);
    } else {
        std::memcpy(&a, stored, sizeof(double));
        std::memcpy(&b, expected, sizeof(double));
    }
    // Quantising knows neither numbers beyond 32 bits nor what is no number.
    if (!std::isfinite(a) || std::abs(a) > 1e9 * halfStep * 4) return true;
    return std::abs(a - b) <= halfStep * (1 + 1e-5) + std::abs(a) * 2.4e-7;
}

std::vector<PreviewDifference> PreviewComparison::Differences() const {
    const uint64_t pixels = m_elementBytes == 0 ? 0 : m_stored.size() / m_elementBytes;
    const float step = m_smallestStep.load();
    const double halfStep = step == 0 ? 0 : 0.5 / static_cast<double>(step);
    std::vector<bool> bad(pixels);
    bool any = false;
    for (uint64_t i = 0; i < pixels; ++i) {
        bad[i] = !Equal(i, halfStep);
        any = any || bad[i];
    }
    if (!any) return {};

    // Whose pixels they are: each patch samples its own number.
    std::vector<unsigned char> owners(kxbase::SizeProduct(pixels, sizeof(uint32_t)), 0xff);
    std::vector<uint32_t> numbers(kxbase::SizeProduct(m_grid.patchWidth, m_grid.patchHeight));
    std::vector<PreviewDifference> differences;
    const uint32_t perRow = m_grid.PatchesPerRow();
    for (uint64_t index = 0; index < m_grid.PatchCount64(); ++index) {
        std::fill(numbers.begin(), numbers.end(), static_cast<uint32_t>(index));
        PreviewSampling sampling =
            SamplingOf(static_cast<uint32_t>(index / perRow), static_cast<uint32_t>(index % perRow));
        sampling.pixelLength = sizeof(uint32_t);
        SamplePatchIntoPreview(
            sampling, owners,
            {reinterpret_cast<const unsigned char*>(numbers.data()), numbers.size() * sizeof(uint32_t)});
    }
    struct Seen {
        PreviewDifference difference;
        bool stored = false;  // a pixel of the patch is in the preview
    };
    std::map<uint32_t, Seen> seen;
    for (uint64_t i = 0; i < pixels; ++i) {
        uint32_t owner = 0;
        std::memcpy(&owner, owners.data() + i * sizeof(uint32_t), sizeof(uint32_t));
        Seen& patch = seen[owner];
        const unsigned char* value = m_stored.data() + i * m_elementBytes;
        patch.stored = patch.stored ||
                       std::any_of(value, value + m_elementBytes, [](unsigned char b) { return b != 0; });
        if (!bad[i]) continue;
        if (patch.difference.pixels++ != 0) continue;
        patch.difference.row = owner / perRow;
        patch.difference.column = owner % perRow;
        patch.difference.firstPixelRow = static_cast<uint32_t>(i / m_width);
        patch.difference.firstPixelColumn = static_cast<uint32_t>(i % m_width);
    }
    for (const auto& [owner, patch] : seen) {
        if (patch.difference.pixels != 0 && patch.stored && !m_skipped.contains(owner))
            differences.push_back(patch.difference);
    }
    return differences;
}

}  // namespace kxio
