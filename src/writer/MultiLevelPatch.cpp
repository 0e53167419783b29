// SPDX-License-Identifier: MIT
#include "kxio/MultiLevelPatch.h"

#include <limits>

#include "kxbase/Exceptions.h"
#include "writer/ValueCopy.h"

namespace kxio {

namespace {

constexpr int kMaxLevel = 30;

void CheckArguments(int pixelLength, int level, int patchSize) {
    kxbase::ErrorContext context;
    context.record = "reduced patch";
    const uint64_t side = patchSize < 1 ? 0 : static_cast<uint64_t>(patchSize);
    const uint64_t length = pixelLength < 1 ? 0 : static_cast<uint64_t>(pixelLength);
    constexpr uint64_t kMaxBytes = std::numeric_limits<int32_t>::max();
    if (level < 0 || level > kMaxLevel) {
        context.detail = "level " + std::to_string(level) + ", allowed are 0 to 30";
    } else if (side == 0 || length == 0) {
        context.detail = "side " + std::to_string(patchSize) + " and value length " +
                         std::to_string(pixelLength) + ", both must be at least 1";
    } else if (length > kMaxBytes / side / side) {
        context.detail = std::to_string(patchSize) + " x " + std::to_string(patchSize) + " values of " +
                         std::to_string(pixelLength) + " bytes, more than 2^31 - 1 bytes";
    } else {
        return;
    }
    throw kxbase::KXBadInputException("Patch cannot be reduced", context);
}

}  // namespace

MultiLevelPatch::MultiLevelPatch(int pixelLength, int level, int patchSize) {
    CheckArguments(pixelLength, level, patchSize);
    m_rowStride = pixelLength * patchSize;
    m_pixelLength = pixelLength;
    m_patchSize = patchSize;
    m_level = level;
    const int32_t kept = patchSize >> level;
    m_columnOffsets.reserve(static_cast<size_t>(kept));
    m_rowOffsets.reserve(static_cast<size_t>(kept));
    for (int32_t i = 0; i < kept; ++i) {
        m_columnOffsets.push_back((i << level) * pixelLength);
        m_rowOffsets.push_back((i << level) * m_rowStride);
    }
}

MultiLevelPatch::MultiLevelPatch(const MultiLevelPatch&) = default;
MultiLevelPatch& MultiLevelPatch::operator=(const MultiLevelPatch&) = default;
MultiLevelPatch::~MultiLevelPatch() = default;

void MultiLevelPatch::DownSampling(const unsigned char* source, int x, int y,
                                   unsigned char* destination) const {
    if (x < 0 || y < 0 || (x >> m_level) != 0 || (y >> m_level) != 0) return;
    // s x fits no 32 bits; the block start itself is at most s.
    const int64_t firstColumn = (int64_t{m_patchSize} * x) >> m_level;
    const int64_t firstRow = (int64_t{m_patchSize} * y) >> m_level;
    const auto bytes = static_cast<uint64_t>(m_pixelLength);
    const ValueCopier copy = CopierFor(bytes);
    unsigned char* row = destination + firstRow * m_rowStride + firstColumn * m_pixelLength;
    for (const int32_t rowOffset : m_rowOffsets) {
        unsigned char* to = row;
        for (const int32_t columnOffset : m_columnOffsets) {
            copy(to, source + rowOffset + columnOffset, bytes);
            to += m_pixelLength;
        }
        row += m_rowStride;
    }
}

}  // namespace kxio
