// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "kxbase/ComponentType.h"

/// Adds the scenarios of codecs, one for each component that the scan has.
void RegisterCodecScenarios();

/// The scan that every scenario works on: the sample PTX of the tree, or the one that the environment
/// variable KXIO_BENCH_PTX names, imported once into a temporary folder.
class BenchScan {
public:
    /// The one of this process. Made on first use; removed at the end.
    static const BenchScan& Get();

    const std::filesystem::path& Ptx() const { return m_ptx; }
    const std::filesystem::path& Qsn() const { return m_qsn; }
    std::wstring QsnPath() const;
    const std::filesystem::path& Folder() const { return m_folder; }

    uint64_t Cells() const { return m_cells; }
    uint64_t Patches() const { return m_patches; }
    const std::vector<kxbase::ComponentType>& Components() const { return m_components; }
    /// Bytes of all components decoded.
    uint64_t ValueBytes() const { return m_valueBytes; }
    /// All chunks of all components, component after component, without their headers: zlib streams. And
    /// what they unpack to.
    const std::vector<std::vector<unsigned char>>& ZlibStreams() const { return m_streams; }
    const std::vector<std::vector<unsigned char>>& UnpackedStreams() const { return m_unpacked; }
    /// Index of the first stream of component 1, or of the first stream at all.
    uint64_t FirstRangeStream(bool ofAll) const { return ofAll ? 0 : m_firstRangeStream; }
    uint64_t UnpackedBytes() const { return m_unpackedBytes; }
    uint64_t StreamBytes() const { return m_streamBytes; }

    BenchScan(const BenchScan&) = delete;
    BenchScan& operator=(const BenchScan&) = delete;

private:
    BenchScan();
    ~BenchScan();
    void CollectStreams();

    std::filesystem::path m_ptx;
    std::filesystem::path m_folder;
    std::filesystem::path m_qsn;
    uint64_t m_cells = 0;
    uint64_t m_patches = 0;
    uint64_t m_valueBytes = 0;
    uint64_t m_unpackedBytes = 0;
    uint64_t m_streamBytes = 0;
    uint64_t m_firstRangeStream = 0;
    std::vector<kxbase::ComponentType> m_components;
    std::vector<std::vector<unsigned char>> m_streams;
    std::vector<std::vector<unsigned char>> m_unpacked;
};
