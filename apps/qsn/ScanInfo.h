// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kxio/ScanAccess.h"
#include "kxio/ScanProperties.h"

namespace qsn {

struct PreviewInfo {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t bytes = 0;
    std::string codec;
};

struct ComponentInfo {
    kxio::ComponentSummary summary;
    double bitsPerCell = 0;       ///< stored bits over the cells of the grid
    std::optional<double> scale;  ///< smallest difference kept, for quantised components
    std::optional<PreviewInfo> preview;
    bool hasHistogram = false;
};

struct ThumbnailInfo {
    uint32_t width = 0;
    uint32_t height = 0;
    uint64_t bytes = 0;
};

/// All that a file tells about itself without decoding a patch.
struct ScanInfo {
    std::string path;  ///< UTF-8, as given
    uint64_t fileBytes = 0;
    uint32_t mainHeaderVersion = 0;
    uint32_t scanHeaderVersion = 0;
    kxio::ScanProperties properties;
    bool registrationModified = false;
    bool previewSamplingRatioIssue = false;
    std::vector<ComponentInfo> components;
    std::optional<float> minimumRange;  ///< in the file's unit; nothing without limits or returns
    std::optional<float> maximumRange;
    uint64_t limitPairs = 0;
    std::optional<ThumbnailInfo> thumbnail;
};

/// Opens and reads `path` (UTF-8). \throws as kxio::QSNScanReader::Open
ScanInfo ReadScanInfo(const std::string& path);

/// The documented JSON ("qsn.info", version 1), ending with a line end.
std::string InfoAsJson(const ScanInfo& info);

/// The same for people.
std::string InfoAsText(const ScanInfo& info);

}  // namespace qsn
