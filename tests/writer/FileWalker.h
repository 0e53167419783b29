// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// Takes a finished file apart byte by byte, with a cursor of its own and without any record class of the
/// library: what it finds is what the bytes say. Anything that breaks the layout throws
/// `std::runtime_error` with the place.
namespace walker {

using Bytes = std::vector<unsigned char>;

struct MainHeader {
    uint64_t scanHeader, firstComponent, firstChunk, firstExtended, chunkDataEnd, thumbnail, lookup,
        previewLookup, limits;
    uint32_t writerRevision;
};

struct ScanHeaderFields {
    double rowStep, columnStep, rowStart, columnStart;
    uint32_t rows, columns, patchWidth, patchHeight;
    uint64_t points;
    double registration[12];
    uint8_t speckle;
    float sampling;
    uint8_t locked, projected;
    uint32_t framing;
    uint32_t words[2], tiltKind, dateStatus;
    double tilt[2];
    std::string texts[6];
    uint32_t words260[3];
};

struct Entry {
    uint64_t position;
    uint32_t bytes;
    bool operator==(const Entry&) const = default;
};
using Table = std::map<uint32_t, std::vector<Entry>>;

struct Chunk {
    uint64_t record;    ///< where the chunk record begins
    uint64_t position;  ///< where the chunk's bytes begin
    uint32_t bytes, component, row, column;
    bool IsSharedEmpty() const { return row == 0xffffffff && column == 0xffffffff; }
};

struct Extended {
    uint64_t position, size;  ///< of the whole record
    uint64_t link, type;
    Bytes data;
    /// The data as text; it must end with its only NUL.
    std::string Text() const;
};

struct Limits {
    uint32_t minimumBits, maximumBits;
    std::vector<std::pair<float, float>> pairs;
};

/// patch index -> value -> count, as the record has them
using Histogram = std::map<uint64_t, std::map<uint64_t, uint64_t>>;

struct File {
    Bytes bytes;
    MainHeader main;
    ScanHeaderFields scan;
    Table lookup;
    Table previews;  ///< empty without previews
    Limits limits;
    uint32_t thumbnailWidth, thumbnailHeight;
    Bytes jpeg;
    std::vector<Extended> extended;
    std::vector<Chunk> chunks;  ///< in the order of the file, so ascending
    /// Whole size of each tail record, frame included.
    uint64_t scanHeaderSize, lookupSize, thumbnailSize, previewLookupSize = 0, limitsSize = 0;

    bool HasPreviews() const { return main.previewLookup != 0; }
    const Chunk* ChunkAt(uint64_t position) const;  ///< by the position of its bytes
    Bytes Slice(const Entry& entry) const;
    std::vector<const Extended*> OfType(uint64_t type) const;
};

/// Walks the whole file and checks that every byte belongs to exactly one piece, in the order of the
/// layout. `rawBlocks`: previews that were handed over while patches came, as position and size; nothing in
/// the file announces those.
File Walk(const Bytes& bytes, const std::map<uint64_t, uint64_t>& rawBlocks = {});

/// The decoded values of a chunk (through the codec library), de-quantised.
struct Decoded {
    uint32_t width, height;
    uint64_t elementBytes;
    float step;
    Bytes values;
};
Decoded Decode(const Bytes& chunk);

Histogram ReadHistogram(const Extended& record);

}  // namespace walker
