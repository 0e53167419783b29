// SPDX-License-Identifier: MIT
#include "kxio/HistogramHeader.h"

#include <bit>
#include <limits>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "format/HistogramLimit.h"
#include "format/HistogramNumbers.h"
#include "format/RecordSize.h"
#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Sizes.h"
#include "kxcodecs/ElementOrder.h"
#include "kxcodecs/ZLibChunkCodec.h"

namespace kxio {

namespace {

constexpr uint64_t kNumberSize = 8;
constexpr uint64_t kPairSize = 2 * kNumberSize;

[[noreturn]] void FailDecoding(const char* recordName, kxbase::ErrorContext context) {
    context.record = recordName;
    throw kxbase::KXUnreadablePatchException("Patch cannot be decoded", context);
}

// Truncates towards 0 into T; what does not fit becomes the nearest value that does.
template <class T>
T Truncated(double value) {
    if (!(value >= 1.0)) return 0;
    if (value >= static_cast<double>(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
    return static_cast<T>(value);
}

// Turns quantised elements back into whole numbers, in place: integer x (1 / step), cut to a whole number.
// This library writes none such.
void Rescale(std::vector<unsigned char>& numbers, uint64_t elementBytes, float step) {
    if (step == 1.0F || (elementBytes != 4 && elementBytes != 8)) return;
    kxbase::ByteReader in(numbers);
    std::vector<unsigned char> whole(numbers.size());
    kxbase::ByteWriter out(whole);
    while (in.Remaining() >= elementBytes) {
        if (elementBytes == 8) {
            const auto stored = static_cast<double>(static_cast<int64_t>(in.U64("element")));
            out.U64(Truncated<uint64_t>(stored * (1.0 / static_cast<double>(step))));
        } else {
            const auto stored = static_cast<float>(static_cast<int32_t>(in.U32("element")));
            out.U32(Truncated<uint32_t>(static_cast<double>(stored * (1.0F / step))));
        }
    }
    numbers = std::move(whole);
}

template <class Map>
std::vector<unsigned char> EncodeNumbers(const Map& histogram, const char* recordName) {
    uint64_t count = 1;
    for (const auto& [index, values] : histogram)
        count += 2 + 2 * uint64_t{values.size()};
    const uint64_t bytes = kxbase::SizeProduct(count, kNumberSize);
    CheckedPayloadSize(bytes, recordName);
    std::vector<unsigned char> numbers(bytes);
    kxbase::ByteWriter out(numbers);
    out.U64(histogram.size());
    for (const auto& [index, values] : histogram) {
        out.U64(index.Pack());
        out.U64(values.size());
        for (const auto& [key, occurrences] : values) {
            out.U64(key);
            out.U64(occurrences);
        }
    }
    return numbers;
}

}  // namespace

std::vector<unsigned char> DecodeHistogramNumbers(std::span<const unsigned char> data,
                                                  const char* recordName) {
    kxbase::ByteReader in(data, 0, recordName);
    const uint64_t chunkSize = in.U64("chunk size");
    const auto chunk = in.Take(chunkSize, "chunk");
    kxcodecs::ChunkHeaderInfo header;
    std::vector<unsigned char> numbers;
    const kxcodecs::DecodeStatus status =
        kxcodecs::QKXChunkCodec::DecodeChunk(chunk, header, numbers, MaxDecodedHistogramBytes(chunk.size()));
    if (status != kxcodecs::DecodeStatus::Decoded) {
        FailDecoding(recordName, {{}, {}, "chunk", {}, kxcodecs::ToText(status)});
    }
    kxcodecs::TurnElements(numbers, header.ElementBytes());  // fields of a record, as in the chunk
    Rescale(numbers, header.ElementBytes(), header.step);
    return numbers;
}

std::optional<kxbase::ComponentType> HistogramComponent(uint64_t typeTag) {
    switch (typeTag) {
        case kRangeHistogramType:
            return kxbase::ComponentType::Range;
        case kVerticalAngleHistogramType:
            return kxbase::ComponentType::VerticalAngle;
        case kHorizontalAngleHistogramType:
            return kxbase::ComponentType::HorizontalAngle;
        case ClassHistogramHeader::Type:
            return ClassHistogramHeader::Component;
        case SegmentHistogramHeader::Type:
            return SegmentHistogramHeader::Component;
        case Luminance8HistogramHeader::Type:
            return Luminance8HistogramHeader::Component;
        case Luminance16HistogramHeader::Type:
            return Luminance16HistogramHeader::Component;
        default:
            return std::nullopt;
    }
}

template <class Map>
HistogramHeader<Map>::HistogramHeader(const Map& histogram) : ExtendedHeader(Type) {
    SetNumbers(EncodeNumbers(histogram, HistogramHeader::GetRecordName()));
}

template <class Map>
void HistogramHeader<Map>::SetNumbers(const std::vector<unsigned char>& numbers) {
    std::vector<unsigned char> chunk;
    // Numbers of few bytes each: level 3 packs them as small as the default does, in half the time (measured
    // on counts of 16-bit intensities).
    kxcodecs::ZLibChunkCodec codec;
    codec.SetCompressionLevel(3);
    std::span<const unsigned char> native = numbers;
    std::vector<unsigned char> turned;
    if constexpr (std::endian::native != std::endian::little) {
        turned = numbers;
        kxcodecs::TurnElements(turned, kNumberSize);
        native = turned;
    }
    codec.Encode(native.data(), static_cast<uint32_t>(native.size() / kNumberSize), 1, native.size(), 1.0F,
                 chunk);
    std::vector<unsigned char> data(kNumberSize + chunk.size());
    kxbase::ByteWriter out(data);
    out.U64(chunk.size());
    out.Bytes(chunk);
    SetData(std::move(data));
}

template <class Map>
HistogramHeader<Map>::HistogramHeader(const ExtendedHeader& record) : ExtendedHeader(Type, record) {}

template <class Map>
Map HistogramHeader<Map>::GetHistogram() const {
    using Key = typename Map::mapped_type::key_type;
    try {
        const std::vector<unsigned char> numbers = DecodeHistogramNumbers(Data(), GetRecordName());
        Map histogram;
        kxbase::ByteReader in(numbers, 0, GetRecordName());
        if (in.Remaining() < kPairSize) return histogram;
        const uint64_t entryCount = in.U64("number of entries");
        in.RequireElements(entryCount, kPairSize, "number of entries");
        for (uint64_t i = 0; i < entryCount; ++i) {
            auto& values = histogram[kxbase::QSNIndex::Unpack(in.U64("index"))];
            const uint64_t valueCount = in.U64("number of values");
            in.RequireElements(valueCount, kPairSize, "number of values");
            for (uint64_t v = 0; v < valueCount; ++v) {
                const uint64_t key = in.U64("key");
                if (key > std::numeric_limits<Key>::max()) {
                    FailDecoding(GetRecordName(), {{}, {}, "key", {}, std::to_string(key) + " is too large"});
                }
                values[static_cast<Key>(key)] = in.U64("count");
            }
        }
        return histogram;
    } catch (const kxbase::ByteRangeException& e) {
        // Offsets of the decoded numbers are no offsets in a file.
        FailDecoding(GetRecordName(), {{}, {}, e.Context().field, {}, e.Context().detail});
    }
}

template <class Map>
void HistogramHeader<Map>::_Write(unsigned char* payload, uint32_t size) {
    // The data buffer has held the serialised histogram since construction.
    ExtendedHeader::_Write(payload, size);
}

template <class Map>
const char* HistogramHeader<Map>::GetRecordName() const {
    if constexpr (Component == kxbase::ComponentType::Class) return "ClassHistogramHeader";
    if constexpr (Component == kxbase::ComponentType::Segment) return "SegmentHistogramHeader";
    if constexpr (Component == kxbase::ComponentType::Luminance8) return "Luminance8HistogramHeader";
    return "Luminance16HistogramHeader";
}

template class HistogramHeader<ClassHistogram>;
template class HistogramHeader<SegmentHistogram>;
template class HistogramHeader<Luminance8Histogram>;
template class HistogramHeader<Luminance16Histogram>;

}  // namespace kxio
