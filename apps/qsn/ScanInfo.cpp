// SPDX-License-Identifier: MIT
#include "ScanInfo.h"

#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ThumbnailHeader.h"

namespace qsn {

namespace {

std::optional<PreviewInfo> ReadPreviewInfo(const kxio::QSNScanReader& reader, const kxio::ScanAccess& access,
                                           kxbase::ComponentType component) {
    const auto entry = access.PreviewEntry(component);
    if (!entry) return std::nullopt;
    std::vector<unsigned char> chunk;
    reader.GetCompressedPreview(chunk, component);
    kxcodecs::ChunkHeaderInfo header;
    if (!kxcodecs::QKXChunkCodec::ReadHeader(chunk, header)) return std::nullopt;
    return PreviewInfo{header.width, header.height, entry->byteCount,
                       kxcodecs::QKXChunkCodec::GetName(chunk)};
}

std::optional<ThumbnailInfo> ReadThumbnailInfo(const std::wstring& path, uint64_t position) {
    if (position == 0) return std::nullopt;
    kxbase::kxInFile file(path);
    kxio::ThumbnailHeader record;
    if (!file.Seek(position) || record.Read(&file) == 0) return std::nullopt;
    return ThumbnailInfo{record.GetSecondSide(), record.GetFirstSide(), record.GetCompressed().size()};
}

std::optional<double> ScaleOf(const kxio::ScanProperties& properties, kxbase::ComponentType component) {
    switch (component) {
        case kxbase::Range:
            return properties.componentValue[0];
        case kxbase::VerticalAngle:
            return properties.componentValue[1];
        case kxbase::HorizontalAngle:
            return properties.componentValue[2];
        default:
            return std::nullopt;
    }
}

}  // namespace

ScanInfo ReadScanInfo(const std::string& path) {
    const std::wstring widePath = kxbase::Decode_UTF8(path);
    const kxio::QSNScanReader reader(widePath, 0);
    const kxio::ScanAccess access(reader);

    ScanInfo info;
    info.path = path;
    info.fileBytes = access.GetFileSize();
    info.mainHeaderVersion = access.GetMainHeader().GetVersion();
    info.scanHeaderVersion = access.GetScanHeader().GetVersion();
    info.properties = reader.GetScanInformation();
    info.registrationModified = reader.HasRegistrationBeenModified();
    info.previewSamplingRatioIssue = reader.HasPreviewSamplingRatioIssue();

    const kxbase::GridTopology& grid = info.properties.grid;
    const double cells = static_cast<double>(grid.columns) * grid.rows;
    for (const kxio::ComponentSummary& summary : access.Summarise()) {
        ComponentInfo component;
        component.summary = summary;
        component.bitsPerCell = cells > 0 ? 8 * static_cast<double>(summary.storedBytes) / cells : 0;
        component.scale = ScaleOf(info.properties, summary.component);
        component.preview = ReadPreviewInfo(reader, access, summary.component);
        component.hasHistogram = reader.IsHistogramAvailable(summary.component);
        info.components.push_back(component);
    }

    if (const auto limits = access.ReadLimits()) {
        info.limitPairs = limits->patches.size();
        // Start values mean that nothing was measured.
        if (limits->maximum > 0 && limits->minimum <= limits->maximum) {
            info.minimumRange = limits->minimum;
            info.maximumRange = limits->maximum;
        }
    }
    info.thumbnail = ReadThumbnailInfo(widePath, access.GetMainHeader().thumbnailHeaderPosition);
    return info;
}

}  // namespace qsn
