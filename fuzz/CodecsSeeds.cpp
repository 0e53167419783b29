// SPDX-License-Identifier: MIT
// Writes the seeds of fuzz_codecs into a folder: small valid inputs of every mode, and a few damaged ones.
#include <cstring>
#include <string>

#include "SeedFolder.h"
#include "kxcodecs/kxcodecs.h"

namespace {

using namespace kxcodecs;
using Bytes = std::vector<unsigned char>;

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes Gradient(std::size_t count) {
    Bytes bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes.push_back(static_cast<unsigned char>(40 + i % 100));
    return bytes;
}

Bytes FloatBytes(std::initializer_list<float> values) {
    Bytes bytes(values.size() * sizeof(float));
    std::memcpy(bytes.data(), values.begin(), bytes.size());
    return bytes;
}

}  // namespace

int main(int argc, char** argv) {
    const SeedFolder write(argc, argv);

    const Bytes image = Gradient(12 * 9 * 3);
    const Bytes sides = {12, 0, 9, 0, 3};
    unsigned char codec = 0;
    for (const auto& [identifier, name] : ChunkCodecFactory::GetCodecs()) {
        Bytes chunk;
        ChunkCodecFactory::MakeCodec(identifier)->Encode(image.data(), 12, 9, image.size(), 1.0F, chunk);
        const Bytes payload(chunk.begin() + QKXChunkCodec::HeaderSize, chunk.end());
        const auto mode = static_cast<unsigned char>(codec < 3 ? codec : codec + 4);
        write("payload-" + name, Bytes{mode} + sides + payload);
        write("payload-" + name + "-cut", Bytes{mode} + sides + Bytes(payload.begin(), payload.end() - 3));
        write("chunk-" + name, Bytes{3} + chunk);
        Bytes bomb = chunk;
        EncodeChunkHeader({identifier, 65536, 65535, 0xFFFF0000, 1.0F, 0xFFFF0000}, bomb);
        bomb.resize(QKXChunkCodec::HeaderSize + 10);
        write("chunk-" + name + "-bomb", Bytes{3} + bomb);
        write("roundtrip-" + name, Bytes{5, codec, 11, 2, 6} + image);
        ++codec;
    }
    // The grid codec in its own forms: 20 x 18 elements of two bytes with holes.
    Bytes ranges;
    for (unsigned i = 0; i < 20 * 18; ++i) {
        const unsigned range = i % 7 == 3 || i % 20 > 15 ? 0 : 3000 + 9 * (i / 20) + i * i % 13;
        ranges.push_back(static_cast<unsigned char>(range));
        ranges.push_back(static_cast<unsigned char>(range >> 8));
    }
    for (const auto gridMode : {GridChunkCodec::Mode::Fast, GridChunkCodec::Mode::Balanced}) {
        Bytes made;
        GridChunkCodec(gridMode).Encode(ranges.data(), 20, 18, ranges.size(), 1.0F, made);
        const std::string name = gridMode == GridChunkCodec::Mode::Fast ? "fast" : "balanced";
        write("chunk-Grid-" + name, Bytes{3} + made);
        write("payload-Grid-" + name,
              Bytes{8, 20, 0, 18, 0, 2} + Bytes(made.begin() + QKXChunkCodec::HeaderSize, made.end()));
    }
    // The colour codec in its own form: 24 x 20 cells with a black corner, shades and a few sharp edges.
    Bytes colors;
    for (unsigned i = 0; i < 24 * 20; ++i) {
        const unsigned shade = i % 24 < 5 && i < 120 ? 0 : 60 + i / 3 % 40 + (i % 11 == 0 ? 90 : i * i % 5);
        for (const unsigned more : {0U, 7U, 3U + i % 3})
            colors.push_back(static_cast<unsigned char>(shade == 0 ? 0 : shade + more));
    }
    Bytes colored;
    ColorChunkCodec().Encode(colors.data(), 24, 20, colors.size(), 1.0F, colored);
    write("chunk-Color-own", Bytes{3} + colored);
    write("payload-Color-own",
          Bytes{9, 24, 0, 20, 0, 3} + Bytes(colored.begin() + QKXChunkCodec::HeaderSize, colored.end()));
    const Bytes floats = FloatBytes({1.5F, -1.5F, 0.0005F, 1e30F, 0.0F, 12.25F});
    Bytes chunk;
    ZLibChunkCodec().Encode(floats.data(), 3, 2, floats.size(), 1000.0F, chunk);
    write("chunk-ZLib-quantised", Bytes{3} + chunk);
    Bytes jpeg;
    if (!JPEG::Encode(image.data(), 12, 9, 80, jpeg)) return 1;
    write("image", Bytes{4} + jpeg);
    write("image-cut", Bytes{4} + Bytes(jpeg.begin(), jpeg.end() - 20));
    write("quantise", Bytes{6} + FloatBytes({1000.0F}) + floats);
    return 0;
}
