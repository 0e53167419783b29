// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "PointRecord.h"
#include "kxbase/IInFileStream.h"

namespace kxexchange {

/// Binary records of points from a stretch of a stream, a block at a time.
class PointBytes {
public:
    /// The stream is borrowed. `format` begins the text of exceptions: "PLY".
    PointBytes(kxbase::IInFileStream& stream, std::string name, std::string format)
        : m_stream(stream), m_name(std::move(name)), m_format(std::move(format)) {}

    /// Goes to `count` records that begin at `offset`.
    void Begin(const PointRecord& record, uint64_t offset, uint64_t count);
    /// Decodes up to `most` further records into `cells` from index `filled` on, growing it with the bytes
    /// that are there. \return records; 0 at the end of the count
    /// \throws SourceFormatException  the file ends before the count does, or a coordinate is damaged
    size_t Read(uint64_t most, std::vector<Cell>& cells, size_t filled);
    uint64_t BytesTaken() const { return m_taken; }

private:
    [[noreturn]] void Fail(uint64_t offset, const std::string& detail) const;

    kxbase::IInFileStream& m_stream;
    std::string m_name;
    std::string m_format;
    const PointRecord* m_record = nullptr;
    uint64_t m_offset = 0;
    uint64_t m_left = 0;
    uint64_t m_done = 0;
    uint64_t m_taken = 0;
    std::vector<unsigned char> m_block;
};

}  // namespace kxexchange
