// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kxcodecs/Export.h"
#include "kxcodecs/QKXChunkCodec.h"

namespace kxcodecs {

/// Makes codecs by the identifier that stands in a chunk. Stateless; safe from any number of threads.
class KXCODECS_EXPORT ChunkCodecFactory {
public:
    /// One codec of the library.
    struct Description {
        uint64_t identifier;  ///< as it stands in chunks
        std::string name;     ///< for people
    };
    /// Deleter of `CodecPtr`.
    struct Deleter {
        /// `DeleteCodec`.
        void operator()(QKXChunkCodec* codec) const { DeleteCodec(codec); }
    };
    /// A codec that deletes itself.
    using CodecPtr = std::unique_ptr<QKXChunkCodec, Deleter>;

    /// A new codec with its default level; null when the identifier is unknown. The caller gives it back
    /// with `DeleteCodec`.
    static QKXChunkCodec* CreateCodec(uint64_t codecIdentifier);
    /// Deletes a codec made by `CreateCodec`; accepts null.
    static void DeleteCodec(QKXChunkCodec* codec);
    /// The same as `CreateCodec`, owned; empty when the identifier is unknown.
    static CodecPtr MakeCodec(uint64_t codecIdentifier) { return CodecPtr(CreateCodec(codecIdentifier)); }

    /// Whether `CreateCodec` knows the identifier.
    static bool IsKnown(uint64_t codecIdentifier);
    /// Name of the codec; of an unknown one "0x" and 16 hexadecimal digits.
    static std::string GetName(uint64_t codecIdentifier);
    /// All codecs of the library, in a fixed order.
    static std::vector<Description> GetCodecs();
};

}  // namespace kxcodecs
