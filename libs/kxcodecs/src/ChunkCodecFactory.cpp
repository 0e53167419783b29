// SPDX-License-Identifier: MIT
#include "kxcodecs/ChunkCodecFactory.h"

#include "kxcodecs/ColorChunkCodec.h"
#include "kxcodecs/GridChunkCodec.h"
#include "kxcodecs/JPEGChunkCodec.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxcodecs/ZstdChunkCodec.h"

namespace kxcodecs {
namespace {

struct Entry {
    uint64_t identifier;
    const char* name;
    QKXChunkCodec* (*create)();
};

template <class Codec>
constexpr Entry EntryOf() {
    return {Codec::kIdentifier, Codec::kName, []() -> QKXChunkCodec* { return new Codec; }};
}

// All codecs there are. Identifiers stand in files: never renumber or reuse one.
constexpr Entry kCodecs[] = {
    EntryOf<SnappyChunkCodec>(),
    EntryOf<ZLibChunkCodec>(),
    EntryOf<JPEGChunkCodec>(),
    EntryOf<ZstdChunkCodec>(),
    EntryOf<GridChunkCodec>(),
    EntryOf<ColorChunkCodec>(),
};

const Entry* Find(uint64_t identifier) {
    for (const Entry& entry : kCodecs) {
        if (entry.identifier == identifier) return &entry;
    }
    return nullptr;
}

std::string Hexadecimal(uint64_t value) {
    std::string text = "0x";
    for (int shift = 60; shift >= 0; shift -= 4)
        text += "0123456789abcdef"[(value >> shift) & 0xF];
    return text;
}

}  // namespace

QKXChunkCodec* ChunkCodecFactory::CreateCodec(uint64_t codecIdentifier) {
    const Entry* entry = Find(codecIdentifier);
    return entry ? entry->create() : nullptr;
}

void ChunkCodecFactory::DeleteCodec(QKXChunkCodec* codec) {
    delete codec;
}

bool ChunkCodecFactory::IsKnown(uint64_t codecIdentifier) {
    return Find(codecIdentifier) != nullptr;
}

std::string ChunkCodecFactory::GetName(uint64_t codecIdentifier) {
    const Entry* entry = Find(codecIdentifier);
    return entry ? entry->name : Hexadecimal(codecIdentifier);
}

std::vector<ChunkCodecFactory::Description> ChunkCodecFactory::GetCodecs() {
    std::vector<Description> all;
    for (const Entry& entry : kCodecs)
        all.push_back({entry.identifier, entry.name});
    return all;
}

}  // namespace kxcodecs
