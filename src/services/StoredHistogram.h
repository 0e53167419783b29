// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "writer/PatchHistograms.h"

namespace kxbase {
class IInFileStream;
}

namespace kxio {

struct ExtendedFrame;

/// The histogram of one component as a file holds it, for comparing patch by patch: of each patch the number
/// of its values and a hash of them with their counts. The numbers themselves, up to 16 bytes for each value
/// of each patch, are unpacked once more when a patch differs, to tell in what.
///
/// A record that this library wrote is unpacked patch by patch, any other as a whole. `Compare` may be called
/// from several threads.
class StoredHistogram {
public:
    /// What the file says of a patch.
    struct Entry {
        uint64_t firstNumber = 0;  ///< of its values
        uint64_t values = 0;
        uint64_t hash = 0;  ///< of the bytes of its values and counts
    };

    /// Reads the record at `position`. Stream and lock must outlive this; the stream is used with the lock
    /// held. \throws kxbase::KXException when the data is damaged
    StoredHistogram(kxbase::IInFileStream& in, std::mutex& lock, uint64_t position);

    /// Patches that have an entry, ascending; larger ones than 2^32 - 1 and places inside patches left out.
    const std::map<uint32_t, Entry>& Patches() const { return m_patches; }
    /// Compares the counts of one patch: nothing when they are equal, otherwise what differs.
    /// \throws kxbase::KXException when the record cannot be read any more
    std::optional<std::string> Compare(uint32_t patch, const ValueCounts& counts) const;

private:
    bool ReadPieces(const ExtendedFrame& frame);
    void ReadWhole();
    std::vector<unsigned char> AllNumbers() const;
    const std::vector<unsigned char>& KeptNumbers() const;

    kxbase::IInFileStream& m_in;
    std::mutex& m_lock;
    const uint64_t m_position;
    std::map<uint32_t, Entry> m_patches;
    mutable std::vector<unsigned char> m_numbers;  // since a patch differed
};

}  // namespace kxio
