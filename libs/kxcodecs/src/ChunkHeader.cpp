// SPDX-License-Identifier: MIT
#include "kxcodecs/ChunkHeader.h"

#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"

namespace kxcodecs {

ChunkHeaderInfo DecodeChunkHeader(std::span<const unsigned char> chunk, kxbase::FieldSink* sink,
                                  uint64_t offset) {
    kxbase::ByteReader in(chunk, offset, "chunk header");
    in.ReportTo(sink);
    in.RequireElements(1, ChunkHeaderInfo::kByteSize, "chunk header");
    ChunkHeaderInfo header;
    header.codecId = in.U64("codec identifier");
    header.width = in.U32("width");
    header.height = in.U32("height");
    header.decodedBytes = in.U32("decoded bytes");
    header.step = in.F32("step");
    header.uncompressedBytes = in.U32("uncompressed bytes");
    return header;
}

void EncodeChunkHeader(const ChunkHeaderInfo& header, std::span<unsigned char> chunk) {
    kxbase::ByteWriter out(chunk);
    out.U64(header.codecId);
    out.U32(header.width);
    out.U32(header.height);
    out.U32(header.decodedBytes);
    out.F32(header.step);
    out.U32(header.uncompressedBytes);
}

}  // namespace kxcodecs
