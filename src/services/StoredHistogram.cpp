// SPDX-License-Identifier: MIT
#include "services/StoredHistogram.h"

#include "format/HistogramNumbers.h"
#include "kxbase/ByteReader.h"
#include "kxbase/Sizes.h"

namespace kxio {

namespace {

constexpr uint64_t kNumberBytes = 8;
constexpr uint64_t kPairBytes = 16;

}  // namespace

StoredHistogram::StoredHistogram(const ExtendedHeader& record) {
    m_numbers = DecodeHistogramNumbers({record.GetDataBuffer(), record.GetDataBufferSize()}, "histogram");
    kxbase::ByteReader in(m_numbers, 0, "histogram");
    if (in.Remaining() < kPairBytes) return;
    const uint64_t entries = in.U64("number of entries");
    in.RequireElements(entries, kPairBytes, "number of entries");
    for (uint64_t i = 0; i < entries; ++i) {
        const uint64_t index = in.U64("index");
        const uint64_t count = in.U64("number of values");
        in.RequireElements(count, kPairBytes, "number of values");
        const uint64_t first = in.Position() / kNumberBytes;
        in.Skip(kxbase::SizeProduct(count, kPairBytes), "values");
        if (index <= UINT32_MAX) m_patches[static_cast<uint32_t>(index)] = {first, count};
    }
    if (in.Remaining() != 0) {
        throw kxbase::KXUnreadablePatchException(
            "Patch cannot be decoded",
            {{}, "histogram", {}, {}, std::to_string(in.Remaining()) + " bytes behind the last entry"});
    }
}

uint64_t StoredHistogram::Number(uint64_t index) const {
    uint64_t value = 0;
    for (uint64_t i = kNumberBytes; i-- > 0;)
        value = value << 8 | m_numbers[index * kNumberBytes + i];
    return value;
}

}  // namespace kxio
