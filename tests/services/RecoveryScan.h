// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>
#include <map>
#include <random>
#include <tuple>
#include <vector>

#include "kxbase/InMemoryStream.h"
#include "kxcodecs/JPEGChunkCodec.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/ScanAccess.h"

namespace recovery_test {

using Bytes = std::vector<unsigned char>;

/// A scan with seven components, written by the library's writer; which patches it has is the caller's.
struct SampleScan {
    SampleScan() {
        absent.emplace_back(1, 2);
        absent.emplace_back(3, 0);
    }

    uint32_t columns = 77;
    uint32_t rows = 59;
    uint32_t patchWidth = 16;
    uint32_t patchHeight = 16;
    bool histograms = true;
    bool hashes = false;
    /// Patches (row, column) that are never handed over.
    std::vector<std::pair<uint32_t, uint32_t>> absent;

    static constexpr float kColumnStart = 3.0F;
    static constexpr float kRowStart = 0.7F;
    static constexpr float kStep = 0.002F;

    kxbase::GridTopology Grid() const {
        kxbase::GridTopology grid;
        grid.columnStartAngle = kColumnStart;
        grid.rowStartAngle = kRowStart;
        grid.columnAngularStep = kStep;
        grid.rowAngularStep = kStep;
        grid.columns = columns;
        grid.rows = rows;
        grid.patchWidth = patchWidth;
        grid.patchHeight = patchHeight;
        return grid;
    }
    bool IsAbsent(uint32_t row, uint32_t column) const {
        return std::find(absent.begin(), absent.end(), std::pair(row, column)) != absent.end();
    }

    Bytes Write() const {
        kxbase::InMemoryStream stream;
        kxio::QSNScanWriter writer;
        const kxbase::GridTopology grid = Grid();
        writer.CreateNew(&stream, grid);
        writer.DisableHistogramComputation(!histograms);
        writer.SetIntegrity(hashes);
        kxio::ScanProperties& p = writer.GetScanProperties();
        p.scannerModel = L"Ostrak RM7";
        p.descriptions = {L"one", L"two", L"three"};
        p.parentUUID = kxbase::UUID(L"01020304-0506-0708-090a-0b0c0d0e0f10");
        p.hqLinks.push_back(kxbase::UUID(L"11111111-0506-0708-090a-0b0c0d0e0f10"));
        p.erLinks.push_back(kxbase::UUID(L"22222222-0506-0708-090a-0b0c0d0e0f10"));
        p.hdrLinks.push_back(kxbase::UUID(L"33333333-0506-0708-090a-0b0c0d0e0f10"));
        p.scanningMode = L"Level 2";
        p.colorizationMode = L"panorama";
        p.preregistrationValue = 2.5;
        writer.Set3DLock(true);
        writer.AddMessage(L"first message");
        writer.AddWarning(L"an old warning");
        const kxcodecs::ZLibChunkCodec zlib;
        kxcodecs::ZLibChunkCodec rangeCodec;
        kxcodecs::SnappyChunkCodec angleCodec;
        kxcodecs::JPEGChunkCodec colorCodec;
        for (uint32_t r = 0; r < grid.PatchesPerColumn(); ++r) {
            for (uint32_t c = 0; c < grid.PatchesPerRow(); ++c) {
                if (!IsAbsent(r, c)) AddPatch(writer, r, c, rangeCodec, angleCodec, colorCodec);
            }
        }
        writer.EndCreation();
        return stream.GetBytes();
    }

private:
    void AddPatch(kxio::QSNScanWriter& writer, uint32_t r, uint32_t c, kxcodecs::ZLibChunkCodec& zlib,
                  kxcodecs::SnappyChunkCodec& snappy, kxcodecs::JPEGChunkCodec& jpeg) const {
        const uint32_t cells = patchWidth * patchHeight;
        std::vector<float> range(cells), vertical(cells), horizontal(cells);
        std::vector<uint8_t> intensity8(cells), color(3 * size_t{cells});
        std::vector<uint16_t> intensity16(cells);
        std::vector<uint32_t> classes(cells);
        std::mt19937 noise(1000 * r + c);
        for (uint32_t i = 0; i < cells; ++i) {
            const uint32_t x = c * patchWidth + i % patchWidth;
            const uint32_t y = r * patchHeight + i / patchWidth;
            if (x >= columns || y >= rows) continue;  // beyond the grid: zeros
            const auto n = static_cast<float>(noise() % 1000);
            range[i] = noise() % 10 == 0 ? 0.0F : 5000.0F + 20.0F * static_cast<float>(x + y) + 0.1F * n;
            vertical[i] = kRowStart + kStep * static_cast<float>(y) + 1e-7F * n;
            horizontal[i] = kColumnStart - kStep * static_cast<float>(x) - 1e-7F * n;
            intensity16[i] = static_cast<uint16_t>(noise() % 3000);
            intensity8[i] = static_cast<uint8_t>(intensity16[i] / 16);
            classes[i] = (x + y) % 5;
            color[3 * i] = static_cast<uint8_t>(x * 3);
            color[3 * i + 1] = static_cast<uint8_t>(y * 3);
            color[3 * i + 2] = static_cast<uint8_t>(100 + noise() % 50);
        }
        using kxio::FlatPatchDescriptor;
        std::vector<FlatPatchDescriptor> list;
        const auto add = [&](kxbase::ComponentType component, auto& values, uint64_t length, double scale,
                             kxcodecs::QKXChunkCodec& codec) {
            FlatPatchDescriptor d(component, length, kxio::RowMajor, scale, &codec);
            d.data = reinterpret_cast<unsigned char*>(values.data());
            d.size = cells;
            list.push_back(d);
        };
        add(kxbase::Range, range, 4, 0.1, zlib);
        add(kxbase::VerticalAngle, vertical, 4, 1e-6, snappy);
        add(kxbase::HorizontalAngle, horizontal, 4, 1e-6, snappy);
        add(kxbase::Luminance8, intensity8, 1, 1.0, zlib);
        add(kxbase::Luminance16, intensity16, 2, 1.0, zlib);
        add(kxbase::Color, color, 3, 1.0, jpeg);
        add(kxbase::Class, classes, 4, 1.0, snappy);
        // One after the other, so that the order of the chunks does not depend on threads.
        for (FlatPatchDescriptor& d : list)
            writer.AddPatch({&d}, r, c);
    }
};

/// A chunk of a finished file.
struct StoredChunk {
    uint64_t record = 0;
    uint64_t data = 0;
    uint64_t end = 0;
    kxbase::ComponentType component{};
    uint32_t row = 0;
    uint32_t column = 0;
};

/// The chunks of patches in an undamaged file, one after the other from the end of the main header.
inline std::vector<StoredChunk> ChunksOf(const Bytes& file) {
    std::vector<StoredChunk> chunks;
    kxbase::InMemoryStream stream(file);
    stream.Seek(92);
    kxio::DataChunkHeader record;
    while (record.Read(&stream) != 0) {
        const uint64_t data = stream.Tell();
        if (!record.IsSharedEmpty()) {
            chunks.push_back({data - record.HeaderSize(), data, data + record.byteCount, record.component,
                              record.patchRow, record.patchColumn});
        }
        stream.SeekForward(record.byteCount);
    }
    return chunks;
}

inline Bytes Piece(const Bytes& bytes, uint64_t first, uint64_t end) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(first),
            bytes.begin() + static_cast<std::ptrdiff_t>(end)};
}

}  // namespace recovery_test
