// SPDX-License-Identifier: MIT
#include "format/PendingEdit.h"

#include <algorithm>
#include <array>

#include "format/Hash64.h"
#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/IInFileStream.h"
#include "kxbase/InMemoryStream.h"
#include "kxio/ExtendedHeader.h"

namespace kxio {

namespace {

constexpr uint32_t kHeadBytes = 12;
constexpr uint32_t kTrailerBytes = 16;
constexpr uint32_t kFixedBytes = kHeadBytes + 8 + kTrailerBytes;

uint64_t HashOf(std::span<const unsigned char> data) {
    RunningHash64 hash;
    hash.Add(data.first(data.size() - kTrailerBytes - 8));
    hash.Add(data.last(kTrailerBytes));
    return hash.Get();
}

}  // namespace

std::vector<unsigned char> EncodePendingEdit(const PendingEdit& edit) {
    ExtendedHeader record(PendingEdit::Type);
    const auto count = static_cast<uint32_t>(edit.bytes.size());
    record.SetDataBufferSize(kFixedBytes + count);
    const std::span data(record.GetDataBuffer(), record.GetDataBufferSize());
    kxbase::ByteWriter head(data);
    head.U64(edit.target);
    head.U32(count);
    head.Bytes(edit.bytes);
    kxbase::ByteWriter trailer(data.last(kTrailerBytes));
    trailer.U64(edit.position);
    trailer.U64(PendingEdit::Type);
    kxbase::ByteWriter(data.last(kTrailerBytes + 8)).U64(HashOf(data));
    kxbase::InMemoryStream encoded;
    record.Write(&encoded);
    return encoded.GetBytes();
}

std::optional<PendingEdit> FindPendingEdit(kxbase::IInFileStream& in, uint64_t size) {
    std::array<unsigned char, kTrailerBytes> bytes{};
    if (size < bytes.size() || !in.Seek(size - bytes.size()) ||
        in.Read(bytes.data(), bytes.size()) != bytes.size()) {
        return std::nullopt;
    }
    kxbase::ByteReader trailer(bytes);
    PendingEdit edit;
    edit.position = trailer.U64("own position");
    if (trailer.U64("type tag") != PendingEdit::Type || edit.position >= size || !in.Seek(edit.position))
        return std::nullopt;
    ExtendedHeader record;
    record.LimitPayload(ExtendedHeader::FixedSize + kFixedBytes + PendingEdit::MaximumBytes, "pending edit");
    if (record.Read(&in) == 0 || in.Tell() != size || record.GetType() != PendingEdit::Type)
        return std::nullopt;
    const std::span<const unsigned char> data(record.GetDataBuffer(), record.GetDataBufferSize());
    if (data.size() < kFixedBytes) return std::nullopt;
    kxbase::ByteReader fields(data);
    edit.target = fields.U64("target");
    const uint32_t count = fields.U32("number of bytes");
    if (count != data.size() - kFixedBytes) return std::nullopt;
    const auto taken = fields.Take(count, "bytes");
    if (fields.U64("hash") != HashOf(data)) return std::nullopt;
    // Only what lies before the record is overwritten.
    if (edit.target > edit.position || count > edit.position - edit.target) return std::nullopt;
    edit.bytes.assign(taken.begin(), taken.end());
    return edit;
}

void ApplyPendingEdit(const PendingEdit& edit, uint64_t position, std::span<unsigned char> bytes) {
    const uint64_t first = std::max(position, edit.target);
    const uint64_t end = std::min(position + bytes.size(), edit.target + edit.bytes.size());
    for (uint64_t i = first; i < end; ++i)
        bytes[i - position] = edit.bytes[i - edit.target];
}

}  // namespace kxio
