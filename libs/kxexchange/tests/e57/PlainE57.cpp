// SPDX-License-Identifier: MIT
#include "PlainE57.h"

#include <algorithm>
#include <stdexcept>

namespace kxexchange::plain {

uint32_t BitwiseCrc32c(const unsigned char* bytes, size_t count) {
    uint32_t crc = 0xffffffffU;
    for (size_t i = 0; i < count; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) != 0 ? (crc >> 1) ^ 0x82f63b78U : crc >> 1;
    }
    return ~crc;
}

Bytes PlainContent(const Bytes& file) {
    if (file.empty() || file.size() % 1024 != 0) throw std::runtime_error("no whole pages");
    Bytes content;
    for (size_t page = 0; page < file.size() / 1024; ++page) {
        const unsigned char* const at = file.data() + page * 1024;
        const uint32_t stored = static_cast<uint32_t>(at[1020]) << 24 |
                                static_cast<uint32_t>(at[1021]) << 16 | static_cast<uint32_t>(at[1022]) << 8 |
                                at[1023];
        if (stored != BitwiseCrc32c(at, 1020)) {
            throw std::runtime_error("checksum of page " + std::to_string(page));
        }
        content.insert(content.end(), at, at + 1020);
    }
    return content;
}

Bytes PlainPages(const Bytes& content) {
    Bytes file;
    for (size_t at = 0; at < content.size(); at += 1020) {
        Bytes page(content.begin() + static_cast<ptrdiff_t>(at),
                   content.begin() + static_cast<ptrdiff_t>(std::min(at + 1020, content.size())));
        page.resize(1020);
        const uint32_t crc = BitwiseCrc32c(page.data(), 1020);
        for (const int shift : {24, 16, 8, 0})
            page.push_back(static_cast<unsigned char>(crc >> shift));
        file.insert(file.end(), page.begin(), page.end());
    }
    return file;
}

uint64_t PlainNumber(const Bytes& bytes, size_t at, size_t count) {
    uint64_t value = 0;
    for (size_t i = count; i-- > 0;)
        value = value * 256 + bytes.at(at + i);
    return value;
}

namespace {

size_t Logical(uint64_t physical) {
    if (physical % 1024 >= 1020) throw std::runtime_error("an offset points into a checksum");
    return static_cast<size_t>(physical / 1024 * 1020 + physical % 1024);
}

}  // namespace

PlainVector PlainStreams(const Bytes& content, uint64_t physical) {
    PlainVector vector;
    const size_t start = Logical(physical);
    if (content.at(start) != 1) throw std::runtime_error("no section of a CompressedVector");
    for (size_t i = 1; i < 8; ++i) {
        if (content.at(start + i) != 0) throw std::runtime_error("reserved bytes are not 0");
    }
    const size_t end = start + static_cast<size_t>(PlainNumber(content, start + 8, 8));
    if (end > content.size() || end < start + 32) throw std::runtime_error("section length");
    if (end == start + 32) return vector;
    const size_t index = Logical(PlainNumber(content, start + 24, 8));
    bool indexSeen = false;
    for (size_t at = Logical(PlainNumber(content, start + 16, 8)); at < end;) {
        const size_t length = static_cast<size_t>(PlainNumber(content, at + 2, 2)) + 1;
        if (length % 4 != 0 || at + length > end) throw std::runtime_error("packet length");
        if (content.at(at) == 1) {
            vector.packets.push_back(at / 1020 * 1024 + at % 1020);
            const auto count = static_cast<size_t>(PlainNumber(content, at + 4, 2));
            vector.streams.resize(std::max(count, vector.streams.size()));
            size_t data = at + 6 + 2 * count;
            for (size_t i = 0; i < count; ++i) {
                const auto bytes = static_cast<size_t>(PlainNumber(content, at + 6 + 2 * i, 2));
                if (data + bytes > at + length) throw std::runtime_error("stream length");
                const auto from = content.begin() + static_cast<ptrdiff_t>(data);
                vector.streams[i].insert(vector.streams[i].end(), from, from + static_cast<ptrdiff_t>(bytes));
                data += bytes;
            }
        } else if (content.at(at) == 0) {
            indexSeen = indexSeen || at == index;
            const auto entries = static_cast<size_t>(PlainNumber(content, at + 4, 2));
            for (size_t i = 0; i < entries; ++i) {
                vector.index.push_back(
                    {PlainNumber(content, at + 16 + 16 * i, 8), PlainNumber(content, at + 24 + 16 * i, 8)});
            }
        } else if (content.at(at) != 2) {
            throw std::runtime_error("packet type");
        }
        at += length;
    }
    if (!indexSeen) throw std::runtime_error("the index packet is not where the section says");
    return vector;
}

uint64_t PlainBits(const Bytes& stream, uint64_t index, unsigned bits) {
    uint64_t value = 0;
    for (unsigned i = 0; i < bits; ++i) {
        const uint64_t bit = index * bits + i;
        const unsigned char byte = stream.at(static_cast<size_t>(bit / 8));
        if ((byte >> (bit % 8) & 1) != 0) value += uint64_t{1} << i;
    }
    return value;
}

std::string PlainXml(const Bytes& content) {
    const size_t at = Logical(PlainNumber(content, 24, 8));
    const auto length = static_cast<ptrdiff_t>(PlainNumber(content, 32, 8));
    const auto from = content.begin() + static_cast<ptrdiff_t>(at);
    if (static_cast<ptrdiff_t>(content.size() - at) < length) throw std::runtime_error("XML length");
    return {from, from + length};
}

}  // namespace kxexchange::plain
