// SPDX-License-Identifier: MIT
#include "services/StoredHistogram.h"

#include <algorithm>
#include <array>
#include <functional>
#include <span>

#include "format/Hash64.h"
#include "format/HistogramLimit.h"
#include "format/HistogramNumbers.h"
#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Sizes.h"
#include "kxcodecs/ChunkHeader.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxcodecs/ZLibPieces.h"
#include "reader/ExtendedFrame.h"
#include "reader/RecordAt.h"

namespace kxio {

namespace {

constexpr uint64_t kNumberBytes = 8;
constexpr uint64_t kPairBytes = 16;

/// Follows the numbers of a record as they come, in portions of any length.
class EntryWalk {
public:
    /// Takes the index of a patch and what is said of it.
    using Sink = std::function<void(uint64_t, const StoredHistogram::Entry&)>;

    EntryWalk(uint64_t bytes, Sink sink) : m_bytesLeft(bytes), m_sink(std::move(sink)) {}

    /// False as soon as the numbers do not fit each other.
    bool Take(std::span<const unsigned char> bytes) {
        while (!bytes.empty()) {
            const uint64_t count = std::min<uint64_t>(
                bytes.size(), m_pairBytesLeft != 0 ? m_pairBytesLeft : kNumberBytes - m_held);
            const auto part = bytes.first(static_cast<size_t>(count));
            bytes = bytes.subspan(part.size());
            m_bytesLeft -= part.size();
            if (!(m_pairBytesLeft != 0 ? Pairs(part) : Number(part))) return false;
        }
        return true;
    }
    /// Whether all entries came, and nothing behind them.
    bool IsComplete() const { return m_next == Next::Nothing && m_bytesLeft == 0; }

private:
    enum class Next { Entries, Index, Count, Nothing };

    bool Pairs(std::span<const unsigned char> part) {
        m_hash->Add(part);
        m_pairBytesLeft -= part.size();
        if (m_pairBytesLeft == 0) EndEntry();
        return true;
    }

    bool Number(std::span<const unsigned char> part) {
        std::copy(part.begin(), part.end(), m_number.begin() + static_cast<std::ptrdiff_t>(m_held));
        m_held += part.size();
        if (m_held < kNumberBytes) return true;
        m_held = 0;
        ++m_numbers;
        const uint64_t number = kxbase::ByteReader(m_number).U64("number");
        switch (m_next) {
            case Next::Entries:
                m_entriesLeft = number;
                m_next = number == 0 ? Next::Nothing : Next::Index;
                return number <= m_bytesLeft / kPairBytes;
            case Next::Index:
                m_index = number;
                m_next = Next::Count;
                return true;
            case Next::Count:
                if (number > m_bytesLeft / kPairBytes) return false;
                m_entry = {m_numbers, number, 0};
                m_pairBytesLeft = kxbase::SizeProduct(number, kPairBytes);
                m_hash.emplace();
                if (number == 0) EndEntry();
                return true;
            case Next::Nothing:
                break;
        }
        return false;
    }

    void EndEntry() {
        m_entry.hash = m_hash->Get();
        m_numbers += 2 * m_entry.values;
        m_sink(m_index, m_entry);
        m_next = --m_entriesLeft == 0 ? Next::Nothing : Next::Index;
    }

    uint64_t m_bytesLeft;
    Sink m_sink;
    Next m_next = Next::Entries;
    std::array<unsigned char, kNumberBytes> m_number{};
    size_t m_held = 0;  // bytes of the number at hand
    uint64_t m_numbers = 0;
    uint64_t m_entriesLeft = 0;
    uint64_t m_index = 0;
    StoredHistogram::Entry m_entry;
    uint64_t m_pairBytesLeft = 0;
    std::optional<RunningHash64> m_hash;
};

uint64_t HashOf(const ValueCounts& counts) {
    std::vector<unsigned char> bytes(static_cast<size_t>(kxbase::SizeProduct(counts.size(), kPairBytes)));
    kxbase::ByteWriter out(bytes);
    for (const auto& [value, count] : counts) {
        out.U64(value);
        out.U64(count);
    }
    return Hash64(bytes);
}

}  // namespace

StoredHistogram::StoredHistogram(kxbase::IInFileStream& in, std::mutex& lock, uint64_t position)
    : m_in(in), m_lock(lock), m_position(position) {
    const std::lock_guard guard(m_lock);
    const auto frame = PeekExtended(m_in, m_position);
    if (frame && ReadPieces(*frame)) return;
    m_patches.clear();
    ReadWhole();
}

/// False when the record is to be unpacked as a whole, which also says what is wrong with it.
bool StoredHistogram::ReadPieces(const ExtendedFrame& frame) {
    constexpr uint64_t kBefore = kNumberBytes + kxcodecs::ChunkHeaderInfo::kByteSize;
    std::array<unsigned char, kBefore> before{};
    if (frame.dataBytes < before.size() || !m_in.Seek(frame.DataPosition()) ||
        m_in.Read(before.data(), before.size()) != before.size()) {
        return false;
    }
    const uint64_t chunkBytes = kxbase::ByteReader(before).U64("chunk size");
    const auto header =
        kxcodecs::DecodeChunkHeader(std::span<const unsigned char>(before).subspan(kNumberBytes));
    if (chunkBytes < kxcodecs::ChunkHeaderInfo::kByteSize || chunkBytes > frame.dataBytes - kNumberBytes ||
        header.codecId != kxcodecs::ZLibChunkCodec::kIdentifier || header.step != 1.0F ||
        header.ElementBytes() != kNumberBytes || header.uncompressedBytes != header.decodedBytes ||
        header.uncompressedBytes < kPairBytes ||
        header.uncompressedBytes > MaxDecodedHistogramBytes(chunkBytes)) {
        return false;
    }
    EntryWalk walk(header.uncompressedBytes, [&](uint64_t index, const Entry& entry) {
        if (index <= UINT32_MAX) m_patches[static_cast<uint32_t>(index)] = entry;
    });
    const auto source = [&](std::span<unsigned char> out) { return m_in.Read(out.data(), out.size()); };
    const auto take = [&](std::span<const unsigned char> bytes) { return walk.Take(bytes); };
    return kxcodecs::ReadZLibPieces(chunkBytes - kxcodecs::ChunkHeaderInfo::kByteSize,
                                    header.uncompressedBytes, source, take) &&
           walk.IsComplete();
}

void StoredHistogram::ReadWhole() {
    const std::vector<unsigned char> numbers = AllNumbers();
    kxbase::ByteReader in(numbers, 0, "histogram");
    if (in.Remaining() < kPairBytes) return;
    const uint64_t entries = in.U64("number of entries");
    in.RequireElements(entries, kPairBytes, "number of entries");
    for (uint64_t i = 0; i < entries; ++i) {
        const uint64_t index = in.U64("index");
        const uint64_t count = in.U64("number of values");
        in.RequireElements(count, kPairBytes, "number of values");
        const uint64_t first = in.Position() / kNumberBytes;
        const auto pairs = in.Take(kxbase::SizeProduct(count, kPairBytes), "values");
        if (index <= UINT32_MAX) m_patches[static_cast<uint32_t>(index)] = {first, count, Hash64(pairs)};
    }
    if (in.Remaining() != 0) {
        throw kxbase::KXUnreadablePatchException(
            "Patch cannot be decoded",
            {{}, "histogram", {}, {}, std::to_string(in.Remaining()) + " bytes behind the last entry"});
    }
}

std::vector<unsigned char> StoredHistogram::AllNumbers() const {
    ExtendedHeader record;
    if (!ReadRecordAt(&m_in, m_position, record))
        throw kxbase::KXUnreadablePatchException("Cannot read file", ProblemOf(record, m_position));
    return DecodeHistogramNumbers({record.GetDataBuffer(), record.GetDataBufferSize()}, "histogram");
}

const std::vector<unsigned char>& StoredHistogram::KeptNumbers() const {
    const std::lock_guard guard(m_lock);
    if (m_numbers.empty()) m_numbers = AllNumbers();
    return m_numbers;
}

std::optional<std::string> StoredHistogram::Compare(uint32_t patch, const ValueCounts& counts) const {
    const auto found = m_patches.find(patch);
    if (found == m_patches.end()) return std::nullopt;
    const Entry& entry = found->second;
    if (entry.values != counts.size())
        return std::to_string(entry.values) + " values, but the patch has " + std::to_string(counts.size());
    if (entry.hash == HashOf(counts)) return std::nullopt;
    kxbase::ByteReader in(KeptNumbers(), 0, "histogram");
    in.Skip(kxbase::SizeProduct(entry.firstNumber, kNumberBytes), "values before");
    for (const auto& [value, count] : counts) {
        const uint64_t storedValue = in.U64("value");
        const uint64_t storedCount = in.U64("count");
        if (storedValue == value && storedCount == count) continue;
        return "value " + std::to_string(storedValue) + " " + std::to_string(storedCount) +
               " times, but the patch has " + std::to_string(value) + " " + std::to_string(count) + " times";
    }
    return std::nullopt;
}

}  // namespace kxio
