// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

#include "kxexchange/ImportScan.h"
#include "support/TempFolder.h"

namespace kxtest {

/// A sample scan beside the tests, or in the folder of further ones; empty when it is not there.
inline std::filesystem::path SampleScan(const std::string& name) {
    for (const char* folder : {KXIO_SOURCE_DIR "/tests/data/", KXIO_SOURCE_DIR "/../shared/data/"}) {
        if (std::filesystem::exists(folder + name)) return folder + name;
    }
    return {};
}

/// Makes scan.qsn of it in `folder`, in patches of `patch` x `patch` cells. \returns its path
inline std::wstring ImportSample(const std::filesystem::path& source, const TempFolder& folder,
                                 uint32_t patch = 256) {
    kxexchange::ImportOptions options;
    options.patchWidth = patch;
    options.patchHeight = patch;
    const std::filesystem::path path = folder / "scan.qsn";
    const auto ptx = kxexchange::OpenScanSource(source);
    kxexchange::ImportScan(*ptx, 0, path, options);
    return Wide(path);
}

}  // namespace kxtest
