// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kxexchange::plain {

using Bytes = std::vector<unsigned char>;

/// CRC-32C by its definition, bit after bit; shares nothing with the library.
uint32_t BitwiseCrc32c(const unsigned char* bytes, size_t count);

/// The content of a file of pages. Throws std::runtime_error with the page's number when the file is no
/// row of whole pages or a checksum is wrong.
Bytes PlainContent(const Bytes& file);
/// A file of pages around a content, filled with zeros.
Bytes PlainPages(const Bytes& content);

uint64_t PlainNumber(const Bytes& bytes, size_t at, size_t count);

/// All streams of the CompressedVector that begins at `physical`, put together from its data packets; throws
/// std::runtime_error when its parts contradict each other.
struct PlainVector {
    std::vector<Bytes> streams;
    struct Entry {
        uint64_t record, physical;
    };
    std::vector<Entry> index;
    std::vector<uint64_t> packets;  ///< physical offsets of the data packets
};
PlainVector PlainStreams(const Bytes& content, uint64_t physical);

/// Number `index` of so many bits, taken bit after bit.
uint64_t PlainBits(const Bytes& stream, uint64_t index, unsigned bits);

/// The XML part of a file's content.
std::string PlainXml(const Bytes& content);

}  // namespace kxexchange::plain
