// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxio/Export.h"

namespace kxcodecs {
class QKXChunkCodec;
struct ChunkHeaderInfo;
}  // namespace kxcodecs

namespace kxio {

/// How the chunks of a file become others.
struct RecodeOptions {
    /// The codec that packs the next chunk, borrowed, or null to keep the chunk as it is. Is given what the
    /// chunk's header says; may be called from several threads at once.
    std::function<const kxcodecs::QKXChunkCodec*(kxbase::ComponentType component,
                                                 const kxcodecs::ChunkHeaderInfo& stored)>
        codec;
    unsigned threads = 1;  ///< that unpack and pack; 0 takes as many as the machine has
    /// Called now and then, in the calling thread, with the bytes of the input done and to do. What it throws
    /// ends the work and leaves it unchanged; no output is left behind.
    std::function<void(uint64_t done, uint64_t total)> progress;
};

/// One component in a recoded file.
struct RecodedComponent {
    kxbase::ComponentType component{};  ///< whose chunks these are
    uint64_t recoded = 0;               ///< chunks that were packed anew
    uint64_t kept = 0;                  ///< chunks that stayed as they are
    uint64_t bytesBefore = 0;           ///< of all its chunks
    uint64_t bytesAfter = 0;            ///< of all its chunks
};

/// What a recoding did.
struct RecodeReport {
    std::vector<RecodedComponent> components;  ///< ascending by number
    uint64_t bytesBefore = 0;                  ///< of the whole input
    uint64_t bytesAfter = 0;                   ///< of the whole output
    bool hashesMadeAnew = false;               ///< the input has hashes, and so has the output
};

/// Writes a closed scan file anew with the chunks of its patches packed by other codecs.
///
/// Only the chunks that the lookup table names are unpacked and packed again; every other byte of the file is
/// copied as it is: headers, texts, links, identifiers, thumbnail, previews, limits, histograms, records of
/// unknown kinds and what lies between the records. In these bytes only the positions (main header, tables,
/// links of extended records), the byte counts of the chunks and the codec of a component record are
/// adjusted. The stored values of a chunk, also the integers of quantised ones, and its step stay exactly;
/// each new chunk is unpacked and compared before it is written. A chunk of an unknown codec, or whose sizes
/// do not fit each other, is kept.
///
/// Hashes are checked before and made anew behind, as `ProtectFile` does. A file without stays without.
///
/// Time: one pass over the file. Memory: a few chunks per thread and the tables. The output does not depend
/// on the number of threads and appears under its name when it is complete.
///
/// \throws what opening a reader throws
/// \throws KXBadInputException  "Output is the input"; "File is damaged": pieces overlap, are cut or do not
///         match their hash; "Codec is not lossless"
/// \throws KXUnreadablePatchException "Patch cannot be decoded"
/// \throws KXFileNotOpenException "Cannot file not open", KXWritingException "Cannot write file"
KXIO_EXPORT RecodeReport RecodeFile(const std::wstring& input, const std::wstring& output,
                                    const RecodeOptions& options);

}  // namespace kxio
