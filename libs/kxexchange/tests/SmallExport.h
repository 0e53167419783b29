// SPDX-License-Identifier: MIT
// A small scan, and what it becomes in another format.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "TestTools.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxexchange/ExportScan.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/ScanAccess.h"

namespace kxexchange::testing {

/// A scan of 2 columns and 3 rows as another program might have written it: no layout, unquantised.
class OneScan {
public:
    std::vector<float> range{1000, 0, 2000, 3000, 0, 4000};
    std::vector<float> vertical{0, 0, 1.5707964F, 1.5707964F, 3.1415927F, 3.1415927F};
    std::vector<float> horizontal{0, 0, 0, 1.5707964F, 0, 0};
    std::vector<uint16_t> luminance16;
    std::vector<uint8_t> luminance8;
    std::vector<kxio::Rgb8> color;
    std::vector<std::wstring> messages;
    kxbase::RegistrationInformation registration;
    bool withRange = true;
    kxbase::GridTopology grid;

    OneScan() {
        grid.columns = grid.patchWidth = 2;
        grid.rows = grid.patchHeight = 3;
        grid.columnStartAngle = 1.5707964F;
        grid.columnAngularStep = grid.rowAngularStep = 1.5707964F;
    }

    void Write(const std::filesystem::path& path) {
        kxcodecs::SnappyChunkCodec codec;
        kxio::QSNScanWriter writer;
        writer.CreateNew(path.wstring(), grid);
        std::vector<kxio::FlatPatchDescriptor> flats;
        const auto add = [&](kxbase::ComponentType component, auto& values) {
            if (values.empty()) return;
            kxio::FlatPatchDescriptor flat(component, sizeof values[0], kxio::RowMajor, 1.0, &codec);
            flat.data = reinterpret_cast<unsigned char*>(values.data());
            flat.size = values.size();
            flats.push_back(flat);
        };
        if (withRange) add(kxbase::Range, range);
        add(kxbase::VerticalAngle, vertical);
        add(kxbase::HorizontalAngle, horizontal);
        add(kxbase::Luminance16, luminance16);
        add(kxbase::Luminance8, luminance8);
        add(kxbase::Color, color);
        std::vector<kxio::PatchDescriptor*> pointers;
        for (auto& flat : flats)
            pointers.push_back(&flat);
        writer.AddPatch(pointers, 0, 0);
        for (const std::wstring& message : messages)
            writer.AddMessage(message);
        writer.SetRegistration(registration);
        writer.EndCreation();
    }
};

inline const std::string kIdentityHeader =
    "2\n3\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n";

inline std::string Exported(OneScan& scan, std::string_view format, const ExportOptions& options = {},
                            ExportReport* report = nullptr) {
    const TempFolder folder;
    scan.Write(folder / "a.qsn");
    const ExportReport made = ExportScan(folder / "a.qsn", folder / "out", format, options);
    if (report) *report = made;
    std::string bytes = ReadFile(folder / "out");
    EXPECT_EQ(made.bytesWritten, bytes.size());
    return bytes;
}

}  // namespace kxexchange::testing
