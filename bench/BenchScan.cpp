// SPDX-License-Identifier: MIT
#include "BenchScan.h"

#include <libdeflate.h>

#include <cstdlib>
#include <stdexcept>

#include "kxbase/UTF8.h"
#include "kxbase/UUID.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxexchange/ImportScan.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace fs = std::filesystem;

const BenchScan& BenchScan::Get() {
    static const BenchScan scan;
    return scan;
}

BenchScan::BenchScan() {
    const char* other = std::getenv("KXIO_BENCH_PTX");
    m_ptx = other ? fs::path(other) : fs::path(KXIO_SOURCE_DIR) / "tests/data/pump_345x1074.ptx.gz";
    m_folder = fs::temp_directory_path() /
               ("kxio-bench-" + kxbase::Encode_UTF8(kxbase::UUID::Generate().ToWString()));
    fs::create_directories(m_folder);
    m_qsn = m_folder / "scan.qsn";
    const auto source = kxexchange::OpenScanSource(m_ptx);
    kxexchange::ImportOptions options;  // zlib alone, so that raw zlib can be held beside it
    options.rangeCodec = options.angleCodec = options.intensityCodec = options.colorCodec =
        kxexchange::Codec::Zlib;
    kxexchange::ImportScan(*source, 0, m_qsn, options);
    CollectStreams();
}

BenchScan::~BenchScan() {
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
}

std::wstring BenchScan::QsnPath() const {
    return kxbase::Decode_UTF8(m_qsn.string());
}

void BenchScan::CollectStreams() {
    const kxio::QSNScanReader reader(QsnPath());
    const kxio::ScanAccess access(reader);
    const kxbase::GridTopology& grid = access.Grid();
    m_cells = access.GetGridRect().CellCount();
    m_patches = grid.PatchCount64();
    m_components = access.Components();
    libdeflate_decompressor* unpacker = libdeflate_alloc_decompressor();
    for (const kxbase::ComponentType component : m_components) {
        if (component == kxbase::Range) m_firstRangeStream = m_streams.size();
        m_valueBytes += m_cells * access.ElementBytes(component);
        for (uint32_t patch = 0; patch < grid.PatchCount(); ++patch) {
            std::vector<unsigned char> chunk;
            reader.GetPatchCompressed(patch, chunk, component);
            kxcodecs::ChunkHeaderInfo header;
            if (!kxcodecs::QKXChunkCodec::ReadHeader(chunk, header))
                throw std::runtime_error("chunk without header");
            chunk.erase(chunk.begin(), chunk.begin() + kxcodecs::QKXChunkCodec::HeaderSize);
            std::vector<unsigned char> values(header.uncompressedBytes);
            size_t got = 0;
            if (libdeflate_zlib_decompress(unpacker, chunk.data(), chunk.size(), values.data(), values.size(),
                                           &got) != LIBDEFLATE_SUCCESS ||
                got != values.size()) {
                throw std::runtime_error("a chunk of the benchmark's scan is not a zlib stream");
            }
            m_streamBytes += chunk.size();
            m_unpackedBytes += values.size();
            m_streams.push_back(std::move(chunk));
            m_unpacked.push_back(std::move(values));
        }
    }
    libdeflate_free_decompressor(unpacker);
}
