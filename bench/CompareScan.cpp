// SPDX-License-Identifier: MIT
#include "CompareScan.h"

#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "kxbase/UTF8.h"
#include "kxcodecs/kxcodecs.h"
#include "kxexchange/ImportScan.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace {

namespace fs = std::filesystem;

// The scan as a .qsn file for as long as this lives.
class AsQsn {
public:
    explicit AsQsn(const fs::path& path) : m_path(path) {
        if (path.extension() == ".qsn") return;
        m_made = fs::temp_directory_path() / ("kxio_compare_" + std::to_string(getpid()) + ".qsn");
        m_path = m_made;
        const auto source = kxexchange::OpenScanSource(path);
        kxexchange::ImportOptions options;
        options.rangeCodec = options.angleCodec = options.intensityCodec = options.colorCodec =
            kxexchange::Codec::Snappy;
        kxexchange::ImportScan(*source, 0, m_path, options);
    }
    ~AsQsn() {
        std::error_code ignored;
        if (!m_made.empty()) fs::remove(m_made, ignored);
    }
    AsQsn(const AsQsn&) = delete;
    AsQsn& operator=(const AsQsn&) = delete;
    const fs::path& Path() const { return m_path; }

private:
    fs::path m_path, m_made;
};

}  // namespace

CompareScan LoadCompareScan(const fs::path& path) {
    const AsQsn qsn(path);
    const kxio::QSNScanReader reader(kxbase::Decode_UTF8(qsn.Path().string()));
    const kxio::ScanAccess access(reader);
    CompareScan scan;
    std::vector<float> ranges(access.GetGridRect().CellCount());
    access.ReadLayer<float>(kxbase::Range, ranges);
    scan.returns =
        static_cast<uint64_t>(std::count_if(ranges.begin(), ranges.end(), [](float r) { return r > 0; }));
    for (const kxbase::ComponentType component : access.Components()) {
        CompareComponent& made = scan.components.emplace_back();
        made.name = kxbase::ComponentToString(component);
        for (uint32_t i = 0; i < access.Grid().PatchCount(); ++i) {
            std::vector<unsigned char> chunk;
            reader.GetPatchCompressed(i, chunk, component);
            kxcodecs::ChunkHeaderInfo header;
            ComparePatch patch;
            if (kxcodecs::QKXChunkCodec::DecodeChunk(chunk, header, patch.values) !=
                kxcodecs::DecodeStatus::Decoded)
                throw std::runtime_error("a chunk of the scan does not decode");
            patch.width = header.width;
            patch.height = header.height;
            patch.elementBytes = static_cast<uint32_t>(header.ElementBytes());
            made.cells += header.ElementCount();
            made.patches.push_back(std::move(patch));
        }
    }
    return scan;
}
