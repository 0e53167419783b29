// SPDX-License-Identifier: MIT
#include "kxio/MinMaxHeader.h"

#include <utility>

#include "format/RecordSize.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Sizes.h"

namespace kxio {

namespace {

constexpr uint64_t kFixedSize = 12;
constexpr uint64_t kPairSize = 8;

// Only values above 0 count, for the maximum too: (0, 0) is a patch without returns.
MinMaxPair OverallLimits(const std::vector<MinMaxPair>& pairs) {
    MinMaxPair overall;
    for (const MinMaxPair& pair : pairs) {
        if (pair.minimum > 0 && pair.minimum < overall.minimum) overall.minimum = pair.minimum;
        if (pair.maximum > 0 && pair.maximum > overall.maximum) overall.maximum = pair.maximum;
    }
    return overall;
}

}  // namespace

MinMaxHeader::MinMaxHeader() = default;
MinMaxHeader::MinMaxHeader(std::vector<MinMaxPair>* pairs) : m_pairs(pairs) {}
MinMaxHeader::MinMaxHeader(const MinMaxHeader&) = default;
MinMaxHeader::MinMaxHeader(MinMaxHeader&&) noexcept = default;
MinMaxHeader& MinMaxHeader::operator=(const MinMaxHeader&) = default;
MinMaxHeader& MinMaxHeader::operator=(MinMaxHeader&&) noexcept = default;
MinMaxHeader::~MinMaxHeader() = default;

uint64_t MinMaxHeader::GetMagic() const {
    return Magic;
}
uint32_t MinMaxHeader::GetCurrentVersion() const {
    return CurrentVersion;
}
const char* MinMaxHeader::GetRecordName() const {
    return "MinMaxHeader";
}
uint32_t MinMaxHeader::DataSize(uint32_t /*version*/) const {
    const uint64_t pairCount = m_pairs == nullptr ? 0 : m_pairs->size();
    return CheckedPayloadSize(kxbase::SizeSum(kFixedSize, kxbase::SizeProduct(kPairSize, pairCount)),
                              GetRecordName());
}

void MinMaxHeader::_Read(const unsigned char* payload) {
    RequireVersion(MinimumVersion, "Unsupported MinMax version");
    kxbase::ByteReader in = PayloadReader(payload);
    MinMaxPair overall;
    overall.minimum = in.F32("overall minimum");
    overall.maximum = in.F32("overall maximum");
    const uint32_t pairCount = in.U32("number of pairs");
    in.RequireElements(pairCount, kPairSize, "number of pairs");
    if (m_pairs != nullptr) {
        std::vector<MinMaxPair> pairs(pairCount);
        for (MinMaxPair& pair : pairs) {
            pair.minimum = in.F32("minimum");
            pair.maximum = in.F32("maximum");
        }
        *m_pairs = std::move(pairs);
    }
    minimum = overall.minimum;
    maximum = overall.maximum;
}

void MinMaxHeader::_Write(unsigned char* payload, uint32_t size) {
    static const std::vector<MinMaxPair> kNone;
    const std::vector<MinMaxPair>& pairs = m_pairs == nullptr ? kNone : *m_pairs;
    const MinMaxPair overall = OverallLimits(pairs);
    minimum = overall.minimum;
    maximum = overall.maximum;

    kxbase::ByteWriter out({payload, size});
    out.F32(minimum);
    out.F32(maximum);
    out.U32(static_cast<uint32_t>(pairs.size()));
    for (const MinMaxPair& pair : pairs) {
        out.F32(pair.minimum);
        out.F32(pair.maximum);
    }
}

}  // namespace kxio
