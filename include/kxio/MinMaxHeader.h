// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "kxbase/IOHeader.h"
#include "kxio/Export.h"

namespace kxio {

/// Smallest and largest value above 0 in one patch. (0, 0) for a patch without such a value.
struct MinMaxPair {
    float minimum = std::numeric_limits<float>::max();   ///< starts as the bits 0x7f7fffff
    float maximum = -std::numeric_limits<float>::min();  ///< starts as the bits 0x80800000
    bool operator==(const MinMaxPair&) const = default;
};

/// The file's bounding information: limits of component 1 (range) per patch and overall.
///
/// Payload, 12 + 8 n bytes, little-endian:
///
///     @0   f32  overall minimum
///     @4   f32  overall maximum
///     @8   u32  number of pairs n
///     @12  n times, in the order of the linear patch index: f32 minimum, f32 maximum
///
/// The overall values are computed on writing: the smallest minimum above 0 and the largest maximum above 0.
/// Where no pair has one they keep the start values 0x7f7fffff and 0x80800000 (the negative of the smallest
/// normal float).
/// The record works on a vector that it does not own and that must outlive its reads and writes. Without one
/// it writes no pairs and passes over those it meets.
/// One object serves one thread at a time.
class KXIO_EXPORT MinMaxHeader : public kxbase::IOHeader {
public:
    static constexpr uint64_t Magic = 0xa16177f6a29638cbULL;
    static constexpr uint32_t CurrentVersion = 200;
    static constexpr uint32_t MinimumVersion = 200;

    float minimum = MinMaxPair().minimum;  ///< overall
    float maximum = MinMaxPair().maximum;  ///< overall

    /// Without pairs.
    MinMaxHeader();
    /// \param pairs  borrowed; may be null
    explicit MinMaxHeader(std::vector<MinMaxPair>* pairs);
    MinMaxHeader(const MinMaxHeader&);
    MinMaxHeader(MinMaxHeader&&) noexcept;
    MinMaxHeader& operator=(const MinMaxHeader&);
    MinMaxHeader& operator=(MinMaxHeader&&) noexcept;
    ~MinMaxHeader() override;

    /// The pairs it works on; null without any.
    std::vector<MinMaxPair>* GetPairs() const { return m_pairs; }
    /// Other pairs to work on, or null.
    void SetPairs(std::vector<MinMaxPair>* pairs) { m_pairs = pairs; }

    uint64_t GetMagic() const override;
    /// \throws kxbase::KXWritingException "Record too large" above 2^32 - 17 bytes
    uint32_t DataSize(uint32_t version) const override;
    uint32_t GetCurrentVersion() const override;
    /// Sets the overall values and makes the vector hold exactly the n pairs of the record.
    /// \throws kxbase::KXHeaderReadingException "Unsupported MinMax version" below 200
    void _Read(const unsigned char* payload) override;
    /// Computes `minimum` and `maximum`, then writes.
    void _Write(unsigned char* payload, uint32_t size) override;
    const char* GetRecordName() const override;

private:
    std::vector<MinMaxPair>* m_pairs = nullptr;
};

}  // namespace kxio
