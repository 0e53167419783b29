// SPDX-License-Identifier: MIT
// Histograms. The first byte picks the kind (0 to 3) and what the rest is: below 128 the data of a record,
// from there on the numbers inside its chunk, eight bytes each.
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "FuzzCheck.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"
#include "kxbase/InMemoryStream.h"
#include "kxcodecs/ElementOrder.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxio/HistogramHeader.h"

namespace {

using Bytes = std::vector<unsigned char>;

kxio::ExtendedHeader RecordOf(uint64_t type, const Bytes& data) {
    Bytes bytes;
    const auto put = [&bytes](uint64_t value, int count) {
        for (int i = 0; i < count; ++i)
            bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
    };
    put(kxio::ExtendedHeader::Magic, 8);
    put(100, 4);
    put(20 + data.size(), 4);
    put(0, 8);
    put(type, 8);
    put(data.size(), 4);
    bytes.insert(bytes.end(), data.begin(), data.end());
    kxbase::InMemoryStream stream(bytes);
    kxio::ExtendedHeader record;
    Require(record.Read(&stream) == bytes.size(), "a record with any data is read");
    return record;
}

// The data of a record with these numbers.
Bytes DataOf(const Bytes& numbers) {
    Bytes native = numbers;
    kxcodecs::TurnElements(native, 8);
    Bytes chunk;
    kxcodecs::ZLibChunkCodec().Encode(native.data(), static_cast<uint32_t>(native.size() / 8), 1,
                                      native.size(), 1.0F, chunk);
    Bytes data(8);
    kxbase::ByteWriter(data).U64(chunk.size());
    data.insert(data.end(), chunk.begin(), chunk.end());
    return data;
}

template <class Header>
void Decode(const Header& header) {
    try {
        const auto histogram = header.GetHistogram();
        Header again(histogram);
        Require(again.GetHistogram() == histogram, "a histogram comes back as it was");
        kxbase::InMemoryStream out;
        again.Write(&out);
        out.Seek(0);
        kxio::ExtendedHeader record;
        Require(record.Read(&out) != 0, "a written histogram is a record");
        Require(Header(record).GetHistogram() == histogram, "and holds what was written");
    } catch (const kxbase::KXUnreadablePatchException& e) {
        Require(std::string(e.what()) == "Patch cannot be decoded", "a damaged histogram has the known text");
    }
}

/// What the numbers mean, read without the library's cursor; nothing when they are damaged.
template <class Map>
std::optional<Map> Meaning(const std::vector<uint64_t>& numbers) {
    using Key = typename Map::mapped_type::key_type;
    Map histogram;
    if (numbers.size() < 2) return histogram;
    size_t at = 0;
    const auto left = [&] { return numbers.size() - at; };
    const uint64_t entries = numbers[at++];
    for (uint64_t entry = 0; entry < entries; ++entry) {
        if (left() < 2) return std::nullopt;
        const uint64_t packed = numbers[at++];
        auto& values = histogram[kxbase::QSNIndex(static_cast<uint32_t>(packed & 0xffffffffU),
                                                  static_cast<uint32_t>(packed >> 32))];
        const uint64_t count = numbers[at++];
        if (count > left() / 2) return std::nullopt;
        for (uint64_t value = 0; value < count; ++value) {
            const uint64_t key = numbers[at++];
            if (static_cast<uint64_t>(static_cast<Key>(key)) != key) return std::nullopt;
            values[static_cast<Key>(key)] = numbers[at++];
        }
    }
    return histogram;
}

template <class Header>
void CompareWithMeaning(const Header& header, const Bytes& bytes) {
    std::vector<uint64_t> numbers(bytes.size() / 8);
    for (size_t i = 0; i < bytes.size(); ++i)
        numbers[i / 8] |= uint64_t{bytes[i]} << (8 * (i % 8));
    using Map = std::decay_t<decltype(header.GetHistogram())>;
    const std::optional<Map> meaning = Meaning<Map>(numbers);
    try {
        const Map histogram = header.GetHistogram();
        Require(meaning == histogram, "the numbers mean what they say");
    } catch (const kxbase::KXUnreadablePatchException&) {
        Require(!meaning, "numbers that make sense are read");
    }
}

template <class Header>
void Run(bool numbers, const Bytes& bytes) {
    if (numbers) {
        const Header header(RecordOf(Header::Type, DataOf(bytes)));
        Decode(header);
        CompareWithMeaning(header, bytes);
    } else {
        Decode(Header(RecordOf(Header::Type, bytes)));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const bool numbers = data[0] >= 128;
    Bytes bytes(data + 1, data + size);
    if (numbers) bytes.resize(bytes.size() / 8 * 8);
    if (numbers && bytes.empty()) return 0;  // a chunk holds at least one
    switch (data[0] % 4) {
        case 0:
            Run<kxio::ClassHistogramHeader>(numbers, bytes);
            break;
        case 1:
            Run<kxio::SegmentHistogramHeader>(numbers, bytes);
            break;
        case 2:
            Run<kxio::Luminance8HistogramHeader>(numbers, bytes);
            break;
        default:
            Run<kxio::Luminance16HistogramHeader>(numbers, bytes);
            break;
    }
    return 0;
}
