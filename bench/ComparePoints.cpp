// SPDX-License-Identifier: MIT
// Compressors of points: the three integers of a cell together, 12 bytes an element.
#include <algorithm>
#include <cstring>

#include "CompareWays.h"

#ifdef KXIO_COMPARE_DRACO
#include <draco/compression/decode.h>
#include <draco/compression/encode.h>
#include <draco/point_cloud/point_cloud_builder.h>
#endif
#ifdef KXIO_COMPARE_LZF
#include <liblzf/lzf.h>
#endif

namespace {

using Bytes = CompareWay::Bytes;

constexpr uint32_t kNumber = 4;
constexpr uint32_t kPointBytes = 3 * kNumber;

[[maybe_unused]] bool IsPoint(uint32_t elementBytes) {
    return elementBytes == kPointBytes;
}

#ifdef KXIO_COMPARE_DRACO
// In the order of the cells: the way that sorts them would lose the grid.
void DracoPack(const ComparePatch& patch, Bytes& packed) {
    const auto count = static_cast<uint32_t>(patch.values.size() / kPointBytes);
    draco::PointCloudBuilder builder;
    builder.Start(count);
    const int place = builder.AddAttribute(draco::GeometryAttribute::GENERIC, 3, draco::DT_INT32);
    builder.SetAttributeValuesForAllPoints(place, patch.values.data(), kPointBytes);
    const std::unique_ptr<draco::PointCloud> cloud = builder.Finalize(false);
    draco::Encoder encoder;
    encoder.SetEncodingMethod(draco::POINT_CLOUD_SEQUENTIAL_ENCODING);
    draco::EncoderBuffer buffer;
    packed.clear();
    if (encoder.EncodePointCloudToBuffer(*cloud, &buffer).ok())
        packed.assign(buffer.data(), buffer.data() + buffer.size());
}

bool DracoUnpack(const ComparePatch& patch, const Bytes& packed, unsigned char* out) {
    draco::DecoderBuffer buffer;
    buffer.Init(reinterpret_cast<const char*>(packed.data()), packed.size());
    draco::Decoder decoder;
    auto decoded = decoder.DecodePointCloudFromBuffer(&buffer);
    if (!decoded.ok()) return false;
    const draco::PointCloud& cloud = *decoded.value();
    const draco::PointAttribute* const values = cloud.attribute(0);
    if (values == nullptr || std::size_t{cloud.num_points()} * kPointBytes != patch.values.size())
        return false;
    for (uint32_t i = 0; i < cloud.num_points(); ++i)
        values->GetMappedValue(draco::PointIndex(i), out + std::size_t{i} * kPointBytes);
    return true;
}
#endif

#ifdef KXIO_COMPARE_LZF
// As packed PCD files do: number after number of all points, then the packer.
void LzfPack(const ComparePatch& patch, Bytes& packed) {
    Bytes planes(patch.values.size());
    const std::size_t count = planes.size() / kPointBytes;
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t k = 0; k < 3; ++k)
            std::memcpy(&planes[(k * count + i) * kNumber], &patch.values[i * kPointBytes + k * kNumber],
                        kNumber);
    }
    packed.resize(planes.size() + planes.size() / 16 + 64);
    packed.resize(lzf_compress(planes.data(), static_cast<unsigned>(planes.size()), packed.data(),
                               static_cast<unsigned>(packed.size())));
}

bool LzfUnpack(const ComparePatch& patch, const Bytes& packed, unsigned char* out) {
    Bytes planes(patch.values.size());
    if (lzf_decompress(packed.data(), static_cast<unsigned>(packed.size()), planes.data(),
                       static_cast<unsigned>(planes.size())) != planes.size())
        return false;
    const std::size_t count = planes.size() / kPointBytes;
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t k = 0; k < 3; ++k)
            std::memcpy(out + i * kPointBytes + k * kNumber, &planes[(k * count + i) * kNumber], kNumber);
    }
    return true;
}
#endif

}  // namespace

void AddPoints(CompareScan& scan) {
    std::vector<const CompareComponent*> parts;
    for (const CompareComponent& component : scan.components) {
        if (!component.patches.empty() && component.patches[0].elementBytes == kNumber && parts.size() < 3)
            parts.push_back(&component);
    }
    if (parts.size() != 3) return;
    CompareComponent points;
    points.name = "points";
    points.cells = parts[0]->cells;
    for (std::size_t i = 0; i < parts[0]->patches.size(); ++i) {
        const ComparePatch& first = parts[0]->patches[i];
        ComparePatch patch{first.width, first.height, kPointBytes, Bytes(3 * first.values.size())};
        for (std::size_t k = 0; k < 3; ++k) {
            const Bytes& values = parts[k]->patches[i].values;
            if (values.size() != first.values.size()) return;
            for (std::size_t at = 0; at < values.size(); at += kNumber)
                std::memcpy(&patch.values[at * 3 + k * kNumber], &values[at], kNumber);
        }
        points.patches.push_back(std::move(patch));
    }
    scan.components.push_back(std::move(points));
}

void AddPointWays([[maybe_unused]] std::vector<CompareWay>& ways) {
#ifdef KXIO_COMPARE_DRACO
    ways.push_back({"Draco sequential", DracoPack, DracoUnpack, IsPoint});
#endif
#ifdef KXIO_COMPARE_LZF
    ways.push_back({"PCD packed (LZF)", LzfPack, LzfUnpack, IsPoint});
#endif
}
