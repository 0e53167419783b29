// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "kxcodecs/ZLibPieces.h"
#include "writer/PatchHistograms.h"

namespace kxio {

/// A histogram record on its way into a file: `HistogramHeader` says what its bytes are. It goes there piece
/// by piece and is nowhere put together, since that of a large scan has tens of megabytes.
class PackedHistogram {
public:
    /// Takes the bytes of the record, a few thousand at a time.
    using Sink = std::function<void(std::span<const unsigned char>)>;

    /// \param type   tag of the kind of histogram
    /// \param name   of the record's class
    PackedHistogram(uint64_t type, std::string name, PackedPatches patches);

    uint64_t GetType() const { return m_type; }
    const std::string& Name() const { return m_name; }
    /// Bytes of frame and payload; one that has more than 32 bits hold cannot be written.
    uint64_t RecordBytes() const;
    /// Writes the record, frame first. The patches are gone. \throws what `sink` throws
    void Write(uint64_t link, const Sink& sink);

private:
    std::vector<unsigned char> Head(uint64_t link) const;

    uint64_t m_type;
    std::string m_name;
    PackedPatches m_patches;
    kxcodecs::ZLibPiece m_count;  // how many patches there are
    kxcodecs::ZLibPieceSum m_sum;
};

}  // namespace kxio
