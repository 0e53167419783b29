// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace kxbase {
class IInFileStream;
}

namespace kxio {

/// Bytes that are to be written over others in the middle of a file. As long as such a record is the last of
/// a file, it holds: what lies at its target counts as overwritten, whether it is already, half or not at
/// all. An edit appends the record, overwrites, and takes the record away again; so the bytes are always the
/// old ones or the new ones, wherever it is interrupted.
///
/// An extended record; its data, 36 + n bytes:
///
///     @0       u64  target         position of the first byte to be overwritten
///     @8       u32  n              bytes, at most 4096
///     @12      n x u8
///     @12 + n  u64  hash           64-bit XXH3 of the 12 + n bytes before, then of the next 16
///     @20 + n  u64  position of this record in the file
///     @28 + n  u64  the type tag again
///
/// The hash tells a record that was cut short; the last 16 bytes let it be found from the end of the file.
struct PendingEdit {
    static constexpr uint64_t Type = 0x5be1d47a9c03e86fULL;
    static constexpr uint32_t MaximumBytes = 4096;

    uint64_t position = 0;  ///< of the record
    uint64_t target = 0;
    std::vector<unsigned char> bytes;
};

/// The whole record as it is appended.
std::vector<unsigned char> EncodePendingEdit(const PendingEdit& edit);

/// The record at the end of a stream of that size; nothing when there is none that is whole.
std::optional<PendingEdit> FindPendingEdit(kxbase::IInFileStream& in, uint64_t size);

/// What was read at `position` becomes what holds there.
void ApplyPendingEdit(const PendingEdit& edit, uint64_t position, std::span<unsigned char> bytes);

}  // namespace kxio
