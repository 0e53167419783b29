// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxbase/QSNIndex.h"
#include "kxio/ExtendedHeader.h"

namespace kxio {

/// Per cell group of the grid how often each value occurs.
template <class Key>
using HistogramMap = std::map<kxbase::QSNIndex, std::map<Key, uint64_t>>;

using ClassHistogram = HistogramMap<kxbase::ClassId>;      ///< component 18
using SegmentHistogram = HistogramMap<kxbase::SegmentId>;  ///< component 19
using Luminance8Histogram = HistogramMap<uint8_t>;         ///< component 4
using Luminance16Histogram = HistogramMap<uint16_t>;       ///< component 5

/// Type tag and component of each kind of histogram.
template <class Map>
struct HistogramKind;
/// Tag and component of `ClassHistogram`.
template <>
struct HistogramKind<ClassHistogram> {
    static constexpr uint64_t kType = 0xac8391a3fbed04c7ULL;
    static constexpr kxbase::ComponentType kComponent = kxbase::ComponentType::Class;
};
/// Tag and component of `SegmentHistogram`.
template <>
struct HistogramKind<SegmentHistogram> {
    static constexpr uint64_t kType = 0x947643b5f86b1820ULL;
    static constexpr kxbase::ComponentType kComponent = kxbase::ComponentType::Segment;
};
/// Tag and component of `Luminance8Histogram`.
template <>
struct HistogramKind<Luminance8Histogram> {
    static constexpr uint64_t kType = 0x913a4f40ca422a2fULL;
    static constexpr kxbase::ComponentType kComponent = kxbase::ComponentType::Luminance8;
};
/// Tag and component of `Luminance16Histogram`.
template <>
struct HistogramKind<Luminance16Histogram> {
    static constexpr uint64_t kType = 0xa62815c019d63650ULL;
    static constexpr kxbase::ComponentType kComponent = kxbase::ComponentType::Luminance16;
};

/// Tags of histogram kinds that files may hold and this library never writes: only their positions are
/// known to a reader.
inline constexpr uint64_t kRangeHistogramType = 0xb22bb13068c1b1a7ULL;
inline constexpr uint64_t kVerticalAngleHistogramType = 0x97ff05470e6123c5ULL;
inline constexpr uint64_t kHorizontalAngleHistogramType = 0xb0293a2fd2a7dc74ULL;

/// The component that a histogram with this type tag describes (seven tags); nothing for other tags.
KXIO_EXPORT std::optional<kxbase::ComponentType> HistogramComponent(uint64_t typeTag);

/// How often each value of one component occurs, per patch.
///
/// Data, little-endian:
///
///     @0   u64  byte length B of the chunk
///     @8   B bytes, one chunk of the zlib codec (1 row of n u64 values, step 1.0)
///
/// Values in the chunk: number of outer entries; then, by ascending index, the packed index, the number of
/// inner entries M and M pairs (key, count) by ascending key.
/// Packed index: low 32 bits the linear patch index, high 32 bits the position in the patch (0 as written).
///
/// One object serves one thread at a time; const members may run at the same time.
template <class Map>
class KXIO_EXPORT HistogramHeader : public ExtendedHeader {
public:
    static constexpr uint64_t Type = HistogramKind<Map>::kType;
    static constexpr kxbase::ComponentType Component = HistogramKind<Map>::kComponent;  ///< what it counts

    /// Compresses `histogram` into the data.
    explicit HistogramHeader(const Map& histogram);
    /// Takes over the data of a record just read, whatever its type tag.
    explicit HistogramHeader(const ExtendedHeader& record);

    /// Decodes the data. Fewer than two numbers, or a first number below 1, is an empty histogram.
    /// \throws kxbase::KXUnreadablePatchException "Patch cannot be decoded" when the data is damaged: a
    ///         length or count runs past the end, the chunk does not decode, a key does not fit its type
    Map GetHistogram() const;

    void _Write(unsigned char* payload, uint32_t size) override;
    const char* GetRecordName() const override;

private:
    void SetNumbers(const std::vector<unsigned char>& numbers);
};

using ClassHistogramHeader = HistogramHeader<ClassHistogram>;              ///< component 18
using SegmentHistogramHeader = HistogramHeader<SegmentHistogram>;          ///< component 19
using Luminance8HistogramHeader = HistogramHeader<Luminance8Histogram>;    ///< component 4
using Luminance16HistogramHeader = HistogramHeader<Luminance16Histogram>;  ///< component 5

extern template class HistogramHeader<ClassHistogram>;
extern template class HistogramHeader<SegmentHistogram>;
extern template class HistogramHeader<Luminance8Histogram>;
extern template class HistogramHeader<Luminance16Histogram>;

}  // namespace kxio
