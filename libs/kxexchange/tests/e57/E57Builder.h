// SPDX-License-Identifier: MIT
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "PlainE57.h"

namespace kxexchange::plain {

/// Little-endian bytes of doubles.
Bytes DoubleBytes(std::initializer_list<double> values);

/// Puts an E57 file together from XML text and streams of bytes, without the library's writer.
class Builder {
public:
    /// A scan: the elements of its prototype, one stream for each. `records` 0: as many as the first stream
    /// that is not empty has values, at its field's 8 bits (Integer), 16 bits (0..65535) or 64 bits (Float).
    void Scan(const std::string& prototype, const std::vector<Bytes>& streams, uint64_t records = 0);
    /// Elements beside the points of the last scan.
    void Extra(const std::string& elements) { m_scans.back().extra += elements; }
    /// An image2D of 40 x 30 pixels that names a scan. `claimed`: the length that it states, 0 for the true
    /// one.
    void Image(const std::string& guid, const std::string& representation, const std::string& element,
               const Bytes& bytes, uint64_t claimed = 0);
    Bytes File() const;

private:
    struct OneScan {
        std::string prototype, extra;
        uint64_t physical, records;
    };
    void Align();
    uint64_t Here() const { return m_content.size() / 1020 * 1024 + m_content.size() % 1020; }

    Bytes m_content = Bytes(48);
    std::vector<OneScan> m_scans;
    std::string m_images;
};

}  // namespace kxexchange::plain
