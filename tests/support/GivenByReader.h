// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kxbase/Exceptions.h"
#include "kxbase/InMemoryStream.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace kxtest {

/// What a reader gives out of a file, for comparing a damaged one with the whole one.
struct Given {
    std::map<std::string, std::string> cells;  ///< what was measured and what was derived from it
    kxio::ScanProperties properties;           ///< what is told about the scan
    bool hashes = false;                       ///< the file has some
    bool marked = false;                       ///< the reader lists a problem
    uint64_t refused = 0;                      ///< requests that failed
};

namespace detail {

inline std::string BytesOf(const std::vector<unsigned char>& bytes) {
    return std::string(bytes.begin(), bytes.end());
}
template <class Value>
std::string BytesOf(const Value& value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace detail

/// Asks for everything, up to 16 patches of each component.
/// \throws kxbase::KXException  the file does not open
inline Given ReadGiven(kxbase::IInFileStream& stream) {
    using detail::BytesOf;
    Given given;
    kxio::QSNScanReader reader(&stream);
    given.hashes = reader.HasIntegrity();
    given.marked = !reader.GetIntegrityProblems().empty();
    const kxio::ScanAccess access(reader);
    const auto take = [&](const std::string& name, const auto& value) {
        try {
            given.cells[name] = value();
        } catch (const kxbase::KXException&) {
            ++given.refused;  // it was told, so nothing wrong was given out
        }
    };
    for (const kxbase::ComponentType component : access.Components()) {
        const std::string of = std::to_string(component);
        const uint64_t patches = std::min<uint64_t>(access.Grid().PatchCount64(), 16);
        for (unsigned index = 0; index < patches; ++index) {
            take("chunk " + of + " " + std::to_string(index), [&] {
                std::vector<unsigned char> chunk;
                reader.GetPatchCompressed(index, chunk, component);
                return BytesOf(chunk);
            });
            take("patch " + of + " " + std::to_string(index), [&] {
                const uint32_t across = access.Grid().PatchesPerRow();
                return BytesOf(access.ReadPatchBytes(component, index / across, index % across,
                                                     access.ElementBytes(component)));
            });
        }
        take("preview " + of, [&] {
            std::vector<unsigned char> chunk;
            reader.GetCompressedPreview(chunk, component);
            return BytesOf(chunk);
        });
        take("histogram " + of, [&] {
            const kxio::ExtendedHeader record = access.ReadHistogramRecord(component);
            return std::string(record.GetDataBuffer(), record.GetDataBuffer() + record.GetDataBufferSize());
        });
    }
    take("box", [&] {
        kxbase::tBasePolarPoint<float> min, max;
        reader.GetBoundingBox(0, 0, min, max);
        return BytesOf(min.range) + BytesOf(min.vertical) + BytesOf(max.range) + BytesOf(max.horizontal);
    });
    std::vector<unsigned char> jpeg;
    if (reader.GetThumbnailJPEG(jpeg)) given.cells["thumbnail"] = BytesOf(jpeg);
    given.properties = reader.GetScanInformation();
    return given;
}

/// Nothing when the file does not open.
inline std::optional<Given> TryReadGiven(const std::vector<unsigned char>& bytes) {
    try {
        kxbase::InMemoryStream stream(bytes);
        return ReadGiven(stream);
    } catch (const kxbase::KXException&) {
        return std::nullopt;
    }
}

/// Empty when everything that a reader gives out of a damaged file is right or marked; else what is not.
inline std::string Unmarked(const Given& whole, const std::optional<Given>& damaged) {
    if (!damaged) return {};
    for (const auto& [name, value] : damaged->cells) {
        const auto right = whole.cells.find(name);
        if (right == whole.cells.end() || right->second != value) return name;
    }
    if (!damaged->marked && damaged->properties != whole.properties) return "a property";
    return {};
}

/// Names of the values that differ; empty when none do.
inline std::string Differing(const Given& a, const Given& b) {
    std::string names;
    const auto compare = [&names](const Given& one, const Given& other) {
        for (const auto& [name, value] : one.cells) {
            const auto found = other.cells.find(name);
            if (found == other.cells.end() || found->second != value) names += name + "; ";
        }
    };
    compare(a, b);
    if (names.empty()) compare(b, a);
    if (!(a.properties == b.properties)) names += "a property; ";
    return names;
}

}  // namespace kxtest
