// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxcodecs/ChunkHeader.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/MainFileHeader.h"
#include "services/FileWindow.h"

namespace kxio {

/// How much stands behind a chunk that was found in a damaged file; more is better.
enum class ChunkTrust : uint8_t {
    Repaired,  ///< the frame of its record is damaged, but its size leads to the next record
    Framed,    ///< its record is whole
    Listed,    ///< the file's lookup table names it
};

/// A chunk that may be one: nothing was decoded yet.
struct FoundChunk {
    uint64_t recordPosition = 0;
    uint64_t dataPosition = 0;
    uint32_t byteCount = 0;
    kxbase::ComponentType component{};
    uint32_t row = 0;
    uint32_t column = 0;
    ChunkTrust trust = ChunkTrust::Framed;
    uint32_t run = 0;  ///< of the survey

    uint64_t End() const { return dataPosition + byteCount; }
};

/// Any other record.
struct FoundRecord {
    uint64_t tag = 0;
    uint64_t position = 0;
    uint64_t size = 0;
    uint32_t run = 0;  ///< of the survey

    uint64_t End() const { return position + size; }
};

struct Survey {
    std::vector<FoundChunk> chunks;       ///< of patches, by position; end inside the file
    std::vector<FoundChunk> cutChunks;    ///< their record lies whole in the file, their data does not
    std::vector<FoundChunk> sharedEmpty;  ///< chunks that the empty patches of a component share
    std::vector<FoundRecord> records;     ///< all but chunks and main headers, by position
    std::optional<MainFileHeader> mainHeader;
    /// Where each run of records ends of which one leads to the next. Between runs bytes were searched.
    std::vector<uint64_t> runEnds{0};
    uint64_t damagedPlaces = 0;  ///< places where a record should begin and none does
    uint64_t foreignFiles = 0;   ///< whole scan files that lie inside this one and were passed over
    /// Where the chunk or record ends, and all that follows it without a gap.
    template <class Found>
    uint64_t EndOfRun(const Found& found) const {
        return std::max(found.End(), runEnds[found.run]);
    }
    std::optional<uint64_t> secondFile;  ///< where another scan file begins behind this one
};

/// Called now and then with the bytes done so far; what it throws ends the work.
using SurveyProgress = std::function<void(uint64_t bytes)>;

/// Finds the records of a damaged scan file, from front to back in one pass.
///
/// From each record the end leads to the next one, so what the data of a chunk may contain is never looked
/// at, not even a whole other scan file. Only where an end leads nowhere the bytes are searched for the next
/// record. Time is bounded by a multiple of the file's size, memory by the number of records (48 bytes each),
/// whatever the file holds.
Survey SurveyRecords(FileWindow& file, const SurveyProgress& progress);

/// The codec header at the start of a chunk's data; nothing when there is none that could be decoded: an
/// unknown codec, sizes that do not fit each other, or more decoded bytes than that.
std::optional<kxcodecs::ChunkHeaderInfo> PlausibleCodecHeader(
    FileWindow& file, uint64_t dataPosition, uint32_t byteCount,
    uint64_t mostDecodedBytes = kxcodecs::QKXChunkCodec::kDefaultMaxDecodedBytes);

}  // namespace kxio
