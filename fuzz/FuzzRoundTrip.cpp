// SPDX-License-Identifier: MIT
// The input describes a scan: its grid, its components with their codecs and scales, and the values. It is
// written with hashes, must verify without an error, and is read again; then it is recovered and read again.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <span>

#include "FuzzCheck.h"
#include "kxbase/Exceptions.h"
#include "kxbase/InMemoryStream.h"
#include "kxcodecs/kxcodecs.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/RecoverToFile.h"
#include "kxio/ScanAccess.h"
#include "kxio/VerifyScan.h"

namespace {

using Bytes = std::vector<unsigned char>;

/// The input, taken piece by piece; zeros behind its end.
class Choices {
public:
    Choices(const uint8_t* data, size_t size) : m_left(data, size) {}
    uint8_t Byte() {
        if (m_left.empty()) return 0;
        const uint8_t value = m_left.front();
        m_left = m_left.subspan(1);
        return value;
    }
    uint32_t Below(uint32_t limit) { return Byte() % limit; }

private:
    std::span<const uint8_t> m_left;
};

constexpr std::array<uint32_t, 20> kElementBytes = {0, 4, 4, 4,  1,  2,  3,  16, 8, 12,
                                                    4, 4, 4, 20, 12, 16, 16, 24, 4, 8};

std::unique_ptr<kxcodecs::QKXChunkCodec> MakeCodec(uint32_t kind) {
    using kxcodecs::GridChunkCodec;
    switch (kind) {
        case 0:
            return std::make_unique<kxcodecs::SnappyChunkCodec>();
        case 1:
            return std::make_unique<kxcodecs::ZLibChunkCodec>();
        case 2:
            return std::make_unique<kxcodecs::ZstdChunkCodec>();
        case 3:
            return std::make_unique<GridChunkCodec>(GridChunkCodec::Mode::Fast);
        case 4:
            return std::make_unique<GridChunkCodec>(GridChunkCodec::Mode::Balanced);
        default:
            return std::make_unique<kxcodecs::ColorChunkCodec>();
    }
}

struct Plane {
    kxbase::ComponentType component;
    std::unique_ptr<kxcodecs::QKXChunkCodec> codec;
    double scale = 1.0;
    std::map<uint32_t, Bytes> patches;
};

/// Values that repeat, step or jump, as the input says.
Bytes Values(Choices& choices, size_t bytes) {
    Bytes values(bytes);
    const uint8_t kind = choices.Byte();
    const uint8_t seed = choices.Byte();
    for (size_t i = 0; i < bytes; ++i) {
        values[i] = kind < 80    ? seed
                    : kind < 160 ? static_cast<unsigned char>(seed + i / 4)
                                 : static_cast<unsigned char>(choices.Byte() + i % 3);
    }
    return values;
}

// What is stored of a value that is quantised comes back within half a step.
bool ComesBack(const Plane& plane, const Bytes& given, const Bytes& found) {
    if (given.size() != found.size()) return false;
    if (plane.scale == 1.0) return given == found;
    for (size_t at = 0; at + 4 <= given.size(); at += 4) {
        float a = 0;
        float b = 0;
        std::memcpy(&a, given.data() + at, 4);
        std::memcpy(&b, found.data() + at, 4);
        // Beyond what 32 bits hold it is clamped.
        if (!std::isfinite(a) || std::abs(static_cast<double>(a)) / plane.scale > 1e9) continue;
        const double slack = 0.5 * plane.scale + 2e-7 * std::abs(static_cast<double>(a));
        if (!(std::abs(static_cast<double>(a) - static_cast<double>(b)) <= slack * 1.001)) return false;
    }
    return true;
}

void Compare(kxbase::IInFileStream& stream, const std::vector<Plane>& planes, bool bits) {
    const kxio::QSNScanReader reader(&stream);
    Require(reader.GetIntegrityProblems().empty(), "the hashes are right");
    const kxio::ScanAccess access(reader);
    const uint32_t across = access.Grid().PatchesPerRow();
    for (const Plane& plane : planes) {
        const uint32_t elementBytes = kElementBytes[plane.component];
        for (const auto& [index, values] : plane.patches) {
            const Bytes found =
                access.ReadStoredPatchBytes(plane.component, index / across, index % across, elementBytes)
                    .values;
            Require(ComesBack(plane, values, found),
                    bits ? "a recovered patch comes back" : "a patch comes back");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices choices(data, size);
    kxbase::GridTopology grid;
    grid.columns = 1 + choices.Below(24);
    grid.rows = 1 + choices.Below(24);
    grid.patchWidth = 1 + choices.Below(12);
    grid.patchHeight = 1 + choices.Below(12);
    grid.columnAngularStep = grid.rowAngularStep = 0.01F;
    std::vector<Plane> planes(1 + choices.Below(4));
    uint32_t number = 0;
    for (Plane& plane : planes) {
        number += 1 + choices.Below(5);
        plane.component = static_cast<kxbase::ComponentType>(number > 19 ? 19 : number);
        plane.codec = MakeCodec(choices.Below(6));
        if (plane.component <= 3) plane.scale = choices.Below(2) == 0 ? 1.0 : 0.125;
    }
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, grid);
    writer.SetIntegrity(true);
    const auto cells = static_cast<uint32_t>(grid.patchWidth * grid.patchHeight);
    const uint32_t patches = std::min<uint32_t>(grid.PatchCount(), 12);
    for (uint32_t index = 0; index < patches; ++index) {
        for (Plane& plane : planes) {
            if (choices.Below(8) == 7) continue;  // absent
            const uint32_t elementBytes = kElementBytes[plane.component];
            Bytes values = Values(choices, size_t{cells} * elementBytes);
            kxio::FlatPatchDescriptor patch(plane.component, elementBytes, kxio::RowMajor, plane.scale,
                                            plane.codec.get());
            patch.data = values.data();
            patch.size = cells;
            writer.AddPatch({&patch}, index);
            plane.patches[index] = std::move(values);
        }
    }
    writer.EndCreation();
    bool any = false;
    for (const Plane& plane : planes)
        any = any || !plane.patches.empty();
    if (!any) return 0;  // no scan
    Require(kxio::VerifyScan(stream).errors == 0, "what was written is sound");
    Compare(stream, planes, false);
    kxbase::InMemoryStream saved;
    stream.Seek(0);
    const kxio::RecoveryReport report = kxio::RecoverToStream(stream, saved);
    Require(report.Complete(), "nothing of a whole file is lost");
    Compare(saved, planes, true);
    return 0;
}
