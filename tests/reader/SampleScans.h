// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>
#include <string>
#include <typeinfo>
#include <vector>

#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"
#include "support/ScanFileBuilder.h"

namespace kxtest {

/// The protected members made public.
class OpenReader : public kxio::QSNScanReader {
public:
    using QSNScanReader::QSNScanReader;

    using QSNScanReader::AnalyseCodecs;
    using QSNScanReader::FailSafeInit;
    using QSNScanReader::FillupPatchPosition;
    using QSNScanReader::FillupPreviewPosition;
    using QSNScanReader::FillupScanProperties;
    using QSNScanReader::GetCompressedChunk;
    using QSNScanReader::GetCompressedHistogram;
    using QSNScanReader::GetFullLayer;
    using QSNScanReader::GetPatch;
    using QSNScanReader::GetUncompressedPatchByteCount;
    using QSNScanReader::InitFile;
    using QSNScanReader::IsRm;
    using QSNScanReader::ReadHeaders;
    using QSNScanReader::ReadTailHeaders;
    using QSNScanReader::SetupComponentMap;
    using QSNScanReader::SetupGrid;
    using QSNScanReader::SetupPostOpening;
};

/// A value that tells its cell.
inline float RangeAt(uint32_t row, uint32_t column) {
    return static_cast<float>(row * 1000 + column + 1);
}
inline uint8_t LuminanceAt(uint32_t row, uint32_t column) {
    return static_cast<uint8_t>(row * 16 + column);
}
inline kxio::Rgb8 ColorAt(uint32_t row, uint32_t column) {
    return {static_cast<uint8_t>(row), static_cast<uint8_t>(column), 200};
}

/// The cells of one whole patch, those outside the grid too.
template <class T, class Value>
std::vector<T> PatchValues(const kxbase::GridTopology& grid, uint32_t patchRow, uint32_t patchColumn,
                           Value value) {
    std::vector<T> values;
    for (uint32_t row = 0; row < grid.patchHeight; ++row) {
        for (uint32_t column = 0; column < grid.patchWidth; ++column) {
            values.push_back(
                value(patchRow * grid.patchHeight + row, patchColumn * grid.patchWidth + column));
        }
    }
    return values;
}

/// Every patch of one component.
template <class T, class Value>
void AddLayer(ScanFileBuilder& file, uint32_t component, Value value, float quality = 1.0F) {
    const kxbase::GridTopology grid = file.properties.grid;
    for (uint32_t row = 0; row < grid.PatchesPerColumn(); ++row) {
        for (uint32_t column = 0; column < grid.PatchesPerRow(); ++column) {
            file.Chunk(component, row, column,
                       SnappyChunk(PatchValues<T>(grid, row, column, value), grid.patchWidth,
                                   grid.patchHeight, quality));
        }
    }
}

/// Ranges, 8-bit intensities and colours on a grid that the patches do not divide: 10 columns and 7 rows in
/// patches of 4 x 3.
inline ScanFileBuilder SmallScan() {
    ScanFileBuilder file(10, 7, 4, 3);
    AddLayer<float>(file, 1, RangeAt);
    AddLayer<uint8_t>(file, 4, LuminanceAt);
    AddLayer<kxio::Rgb8>(file, 6, ColorAt);
    file.Preview(1, SnappyChunk(std::vector<float>{1, 2, 3, 4, 5, 6}, 3, 2));
    file.Message("hello");
    return file;
}

/// Type and text of what a call throws: "KXHeaderReadingException: Cannot open file"; "nothing" when it
/// returns.
template <class Call>
std::string Failure(Call call) {
    try {
        call();
    } catch (const kxbase::KXException& e) {
        const auto is = [&e](const std::type_info& type) { return typeid(e) == type; };
        const char* name = "another KXException";
        if (is(typeid(kxbase::KXHeaderReadingException))) name = "KXHeaderReadingException";
        if (is(typeid(kxbase::KXFileNotOpenException))) name = "KXFileNotOpenException";
        if (is(typeid(kxbase::KXUnkownCodecException))) name = "KXUnkownCodecException";
        if (is(typeid(kxbase::KXUnkownComponentException))) name = "KXUnkownComponentException";
        if (is(typeid(kxbase::KXUnreadablePatchException))) name = "KXUnreadablePatchException";
        if (is(typeid(kxbase::KXIncompleteFileException))) name = "KXIncompleteFileException";
        if (is(typeid(kxbase::KXWrongDataSizeofException))) name = "KXWrongDataSizeofException";
        if (is(typeid(kxbase::KXComponentNotInFileException))) name = "KXComponentNotInFileException";
        if (is(typeid(kxbase::KXBadInputException))) name = "KXBadInputException";
        if (is(typeid(kxbase::KXIndexOutOfBoundsException))) name = "KXIndexOutOfBoundsException";
        return std::string(name) + ": " + e.what();
    }
    return "nothing";
}

/// The context of what a call throws.
template <class Call>
kxbase::ErrorContext FailureContext(Call call) {
    try {
        call();
    } catch (const kxbase::KXException& e) {
        return e.Context();
    }
    return {};
}

/// A reader on bytes that live as long as it.
struct MemoryScan {
    explicit MemoryScan(const Bytes& bytes) : stream(bytes), reader(&stream) {}
    kxbase::InMemoryStream stream;
    OpenReader reader;
};

/// What opening these bytes throws.
inline std::string OpenFailure(const Bytes& bytes) {
    return Failure([&] { MemoryScan scan(bytes); });
}

}  // namespace kxtest
