// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "kxio/ExtendedHeader.h"

namespace kxio {

/// A piece of a file and the hash of its bytes.
struct IntegritySpan {
    uint64_t position = 0;   ///< of the first byte
    uint64_t byteCount = 0;  ///< of the piece
    uint64_t hash = 0;       ///< 64-bit XXH3 of the bytes, seed 0

    /// Piece by piece.
    bool operator==(const IntegritySpan&) const = default;
};

/// Hashes of the parts of a file, so that a reader can tell a damaged part before a value leaves it.
///
/// Data, 48 + 24 n bytes:
///
///     @0          u32  layout            1
///     @4          u32  hash              1: 64-bit XXH3
///     @8          u64  previous          position of the integrity record that this one adds to; 0: none
///     @16         u32  number of header spans h, which come first
///     @20         u32  number of spans n, those of headers among them
///     @24         n x (u64 position, u64 byte count, u64 hash)
///     @24 + 24 n  u64  hash of the 24 + 24 n bytes before
///     @32 + 24 n  u64  position of this record in the file
///     @40 + 24 n  u64  the type tag again
///
/// Header spans are records of which opening a file makes use: main header, scan header, tables, limits,
/// texts and links. The other spans are chunks without their records, previews, thumbnail and histograms.
/// The last 16 bytes let a reader find the record from the end of the file, where the chain of extended
/// records is broken. A file may hold several: each adds spans to those before it, and where one lists a
/// piece again, as an edit does, both hashes are right.
/// One object serves one thread at a time.
class KXIO_EXPORT IntegrityExtendedHeader : public ExtendedHeader {
public:
    static constexpr uint64_t Type = 0x9b1d5ac3e0f27461ULL;
    static constexpr uint32_t FixedBytes = 48;    ///< of the data, without spans
    static constexpr uint32_t SpanBytes = 24;     ///< of one span
    static constexpr uint32_t TrailerBytes = 16;  ///< at the end of the data: own position, type tag

    /// No spans.
    IntegrityExtendedHeader();
    /// \param position  where in the file the record will begin
    /// \throws kxbase::KXWritingException "Record too large" when the spans fit no record
    IntegrityExtendedHeader(const std::vector<IntegritySpan>& headers,
                            const std::vector<IntegritySpan>& others, uint64_t position,
                            uint64_t previous = 0);
    /// Decodes the data of a record just read, whatever its type tag.
    explicit IntegrityExtendedHeader(const ExtendedHeader& record);
    /// The same, taking the record's data away.
    explicit IntegrityExtendedHeader(ExtendedHeader&& record);

    const char* GetRecordName() const override;

    /// The data has a known layout and matches its own hash. Without it there are no spans.
    bool IsIntact() const { return m_intact; }
    /// All spans, those of headers first.
    const std::vector<IntegritySpan>& Spans() const { return m_spans; }
    /// Takes the spans out of the record and forgets its data: what is left is good for nothing but its
    /// `GetPrevious()`.
    std::vector<IntegritySpan> TakeSpans();
    /// How many of them are headers.
    uint32_t HeaderSpanCount() const { return m_headerSpans; }
    /// The record that this one adds to; 0 without one.
    uint64_t GetPrevious() const { return m_previous; }

protected:
    void DecodeData() override;

private:
    void Decode();

    bool m_intact = false;
    uint64_t m_previous = 0;
    uint32_t m_headerSpans = 0;
    std::vector<IntegritySpan> m_spans;
};

}  // namespace kxio
