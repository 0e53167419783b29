// SPDX-License-Identifier: MIT
// Compressors that are compared with when they are installed; nothing else needs them.
#include <cstring>

#include "CompareWays.h"

#ifdef KXIO_COMPARE_LZ4
#include <lz4.h>
#endif
#ifdef KXIO_COMPARE_BLOSC
#include <blosc.h>
#endif
#ifdef KXIO_COMPARE_ZFP
#include <zfp.h>
#endif
#ifdef KXIO_COMPARE_OPENEXR
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfTiledInputFile.h>
#include <ImfTiledOutputFile.h>
#endif

namespace {

using Bytes = CompareWay::Bytes;

#ifdef KXIO_COMPARE_LZ4
void AddLz4(std::vector<CompareWay>& ways) {
    ways.push_back({"lz4",
                    [](const ComparePatch& patch, Bytes& packed) {
                        const auto size = static_cast<int>(patch.values.size());
                        packed.resize(static_cast<std::size_t>(LZ4_compressBound(size)));
                        packed.resize(static_cast<std::size_t>(LZ4_compress_default(
                            reinterpret_cast<const char*>(patch.values.data()),
                            reinterpret_cast<char*>(packed.data()), size, static_cast<int>(packed.size()))));
                    },
                    [](const ComparePatch& patch, const Bytes& packed, unsigned char* out) {
                        const auto size = static_cast<int>(patch.values.size());
                        return LZ4_decompress_safe(reinterpret_cast<const char*>(packed.data()),
                                                   reinterpret_cast<char*>(out),
                                                   static_cast<int>(packed.size()), size) == size;
                    },
                    nullptr});
}
#endif

#ifdef KXIO_COMPARE_BLOSC
void AddBlosc(std::vector<CompareWay>& ways, const std::string& name, int shuffle, const char* packer) {
    ways.push_back({name,
                    [=](const ComparePatch& patch, Bytes& packed) {
                        packed.resize(patch.values.size() + BLOSC_MAX_OVERHEAD);
                        const int size = blosc_compress_ctx(5, shuffle, patch.elementBytes,
                                                            patch.values.size(), patch.values.data(),
                                                            packed.data(), packed.size(), packer, 0, 1);
                        packed.resize(static_cast<std::size_t>(size > 0 ? size : 0));
                    },
                    [](const ComparePatch& patch, const Bytes& packed, unsigned char* out) {
                        return blosc_decompress_ctx(packed.data(), out, patch.values.size(), 1) ==
                               static_cast<int>(patch.values.size());
                    },
                    nullptr});
}
#endif

#ifdef KXIO_COMPARE_ZFP
// Lossless; elements of 2 bytes go in as 4.
bool Zfp(const ComparePatch& patch, std::vector<int32_t>& values, Bytes& packed, bool pack) {
    zfp_field* const field = zfp_field_2d(values.data(), zfp_type_int32, patch.width, patch.height);
    zfp_stream* const stream = zfp_stream_open(nullptr);
    zfp_stream_set_reversible(stream);
    if (pack) packed.resize(zfp_stream_maximum_size(stream, field));
    bitstream* const bits = stream_open(packed.data(), packed.size());
    zfp_stream_set_bit_stream(stream, bits);
    zfp_stream_rewind(stream);
    const std::size_t size = pack ? zfp_compress(stream, field) : zfp_decompress(stream, field);
    if (pack) packed.resize(size);
    zfp_field_free(field);
    zfp_stream_close(stream);
    stream_close(bits);
    return size != 0;
}

void AddZfp(std::vector<CompareWay>& ways) {
    ways.push_back({"zfp reversible",
                    [](const ComparePatch& patch, Bytes& packed) {
                        std::vector<int32_t> values(patch.values.size() / patch.elementBytes);
                        for (std::size_t i = 0; i < values.size(); ++i)
                            std::memcpy(&values[i], patch.values.data() + i * patch.elementBytes,
                                        patch.elementBytes);
                        Zfp(patch, values, packed, true);
                    },
                    [](const ComparePatch& patch, const Bytes& packed, unsigned char* out) {
                        std::vector<int32_t> values(patch.values.size() / patch.elementBytes);
                        Bytes copy = packed;
                        if (!Zfp(patch, values, copy, false)) return false;
                        for (std::size_t i = 0; i < values.size(); ++i)
                            std::memcpy(out + i * patch.elementBytes, &values[i], patch.elementBytes);
                        return true;
                    },
                    [](uint32_t bytes) { return bytes == 2 || bytes == 4; }});
}
#endif

#ifdef KXIO_COMPARE_OPENEXR
class MemoryOut : public Imf::OStream {
public:
    explicit MemoryOut(Bytes& bytes) : OStream("memory"), m_bytes(bytes) {}
    void write(const char bytes[], int count) override {
        const auto size = static_cast<std::size_t>(count);
        if (m_at + size > m_bytes.size()) m_bytes.resize(m_at + size);
        std::memcpy(m_bytes.data() + m_at, bytes, size);
        m_at += size;
    }
    uint64_t tellp() override { return m_at; }
    void seekp(uint64_t at) override { m_at = at; }

private:
    Bytes& m_bytes;
    std::size_t m_at = 0;
};
class MemoryIn : public Imf::IStream {
public:
    explicit MemoryIn(const Bytes& bytes) : IStream("memory"), m_bytes(bytes) {}
    bool read(char bytes[], int count) override {
        const auto size = static_cast<std::size_t>(count);
        if (size > m_bytes.size() - m_at) throw std::runtime_error("the image ends early");
        std::memcpy(bytes, m_bytes.data() + m_at, size);
        m_at += size;
        return m_at < m_bytes.size();
    }
    uint64_t tellg() override { return m_at; }
    void seekg(uint64_t at) override { m_at = at; }

private:
    const Bytes& m_bytes;
    std::size_t m_at = 0;
};

// One tile per patch. Elements of 2 bytes are taken for half floats: their bits come back.
Imf::FrameBuffer FrameOf(const ComparePatch& patch, unsigned char* values) {
    Imf::FrameBuffer frame;
    frame.insert("V",
                 Imf::Slice(patch.elementBytes == 2 ? Imf::HALF : Imf::UINT, reinterpret_cast<char*>(values),
                            patch.elementBytes, std::size_t{patch.elementBytes} * patch.width));
    return frame;
}

void AddOpenExr(std::vector<CompareWay>& ways, const std::string& name, Imf::Compression compression) {
    ways.push_back(
        {name,
         [=](const ComparePatch& patch, Bytes& packed) {
             packed.clear();
             MemoryOut stream(packed);
             Imf::Header header(static_cast<int>(patch.width), static_cast<int>(patch.height));
             header.compression() = compression;
             header.channels().insert("V", Imf::Channel(patch.elementBytes == 2 ? Imf::HALF : Imf::UINT));
             header.setTileDescription(Imf::TileDescription(patch.width, patch.height, Imf::ONE_LEVEL));
             Imf::TiledOutputFile file(stream, header, 0);
             Bytes values = patch.values;
             file.setFrameBuffer(FrameOf(patch, values.data()));
             file.writeTile(0, 0);
         },
         [](const ComparePatch& patch, const Bytes& packed, unsigned char* out) {
             MemoryIn stream(packed);
             Imf::TiledInputFile file(stream, 0);
             file.setFrameBuffer(FrameOf(patch, out));
             file.readTile(0, 0);
             return true;
         },
         [](uint32_t bytes) { return bytes == 2 || bytes == 4; }});
}
#endif

}  // namespace

void AddPeerWays([[maybe_unused]] std::vector<CompareWay>& ways) {
#ifdef KXIO_COMPARE_LZ4
    AddLz4(ways);
#endif
#ifdef KXIO_COMPARE_BLOSC
    AddBlosc(ways, "blosc shuffle lz4", BLOSC_SHUFFLE, "lz4");
    AddBlosc(ways, "blosc bitshuffle lz4", BLOSC_BITSHUFFLE, "lz4");
    AddBlosc(ways, "blosc bitshuffle zstd", BLOSC_BITSHUFFLE, "zstd");
#endif
#ifdef KXIO_COMPARE_OPENEXR
    AddOpenExr(ways, "OpenEXR ZIP", Imf::ZIP_COMPRESSION);
    AddOpenExr(ways, "OpenEXR PIZ", Imf::PIZ_COMPRESSION);
#endif
#ifdef KXIO_COMPARE_ZFP
    AddZfp(ways);
#endif
}
