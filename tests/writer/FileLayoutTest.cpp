// SPDX-License-Identifier: MIT
// Whole files of random scans, taken apart byte by byte and compared with a plain model of the grid.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <memory>
#include <random>
#include <set>

#include "WriterSupport.h"

namespace {

using namespace support;
using walker::Walk;

enum class Topology { Grid, Cylinder, OpenCylinder, None };
const char* TopologyName(Topology topology) {
    static const char* const kNames[] = {"Grid", "Cylinder", "OpenCylinder", "NoTopology"};
    return kNames[static_cast<int>(topology)];
}
void PrintTo(Topology topology, std::ostream* out) {
    *out << TopologyName(topology);
}
enum class Kind { Flat, Empty, Encoded, Missing };

struct ComponentSpec {
    uint32_t number;
    uint32_t bytes;
};
constexpr ComponentSpec kComponents[] = {{1, 4}, {4, 1}, {5, 2}, {6, 3}, {9, 12}, {18, 4}, {19, 8}};

// What was handed to the writer for one component of one patch.
struct Given {
    Kind kind = Kind::Missing;
    bool transposed = false;
    Bytes values;  // as handed over, patchWidth x patchHeight of them
    float minimum = 0, maximum = 0;
};

struct Scan {
    Topology topology = Topology::Grid;
    uint32_t columns = 0, rows = 0, patchWidth = 1, patchHeight = 1;
    uint32_t previewWidth = 0, previewHeight = 0;
    bool transposed = false;
    std::vector<ComponentSpec> components;
    std::map<uint32_t, std::vector<Given>> given;  // component -> by linear patch index

    uint32_t Across() const { return (columns + patchWidth - 1) / patchWidth; }
    uint32_t Down() const { return (rows + patchHeight - 1) / patchHeight; }
    bool HasPreviews() const { return topology == Topology::Grid || topology == Topology::Cylinder; }
    bool Mode2() const { return topology == Topology::None; }

    // Grid position of value i of a patch.
    std::pair<uint64_t, uint64_t> CellOf(uint32_t index, uint32_t i, bool turned) const {
        const uint64_t line = i / patchWidth, place = i % patchWidth;
        return {uint64_t{index / Across()} * patchHeight + (turned ? place : line),
                uint64_t{index % Across()} * patchWidth + (turned ? line : place)};
    }
    bool Inside(std::pair<uint64_t, uint64_t> cell) const {
        return cell.first < rows && cell.second < columns;
    }
};

template <class T>
T At(const Bytes& values, size_t i) {
    T value{};
    std::memcpy(&value, values.data() + i * sizeof(T), sizeof(T));
    return value;
}

// A value as it may come from a scanner; range is 0 now and then, classes and segments come in runs.
Bytes RandomValues(const ComponentSpec& component, size_t count, std::mt19937& random) {
    Bytes values(count * component.bytes);
    const uint32_t run = 1 + static_cast<uint32_t>(random() % 7);
    for (size_t i = 0; i < count; ++i) {
        unsigned char* to = values.data() + i * component.bytes;
        switch (component.number) {
            case 1: {
                const float range = random() % 4 == 0 ? (random() % 2 == 0 ? 0.0F : -1.0F)
                                                      : static_cast<float>(random() % 100000) * 0.37F;
                std::memcpy(to, &range, 4);
                break;
            }
            case 18: {
                const uint32_t id = static_cast<uint32_t>(i) / run % 5;
                std::memcpy(to, &id, 4);
                break;
            }
            case 19: {
                const uint64_t id = 0x100000000ULL * (random() % 3) + i / run % 4;
                std::memcpy(to, &id, 8);
                break;
            }
            default:
                for (uint32_t b = 0; b < component.bytes; ++b)
                    to[b] = static_cast<unsigned char>(random() % 251);
        }
    }
    return values;
}

Scan RandomScan(Topology topology, bool transposed, std::mt19937& random) {
    const auto upTo = [&](uint32_t limit) { return 1 + static_cast<uint32_t>(random() % limit); };
    Scan scan;
    scan.topology = topology;
    scan.transposed = transposed;
    if (topology == Topology::None) {
        scan.columns = upTo(40);
        scan.rows = 1;
    } else {
        scan.columns = upTo(60);
        scan.rows = upTo(45);
        scan.patchWidth = upTo(17);
        // Transposed patches are meant to be square, and to be shown without reduction.
        scan.patchHeight = transposed ? scan.patchWidth : upTo(17);
    }
    if (scan.HasPreviews()) {
        const bool reduced = !transposed && topology == Topology::Grid && random() % 2 == 0;
        scan.previewWidth = reduced ? upTo(scan.columns) : scan.columns;
        scan.previewHeight = reduced ? upTo(scan.rows) : scan.rows;
    }
    if (topology == Topology::OpenCylinder) scan.rows = scan.Down() * scan.patchHeight;
    for (const ComponentSpec& component : kComponents) {
        if (random() % 3 != 0) scan.components.push_back(component);
    }
    const size_t cells = size_t{scan.patchWidth} * scan.patchHeight;
    for (const ComponentSpec& component : scan.components) {
        std::vector<Given>& patches = scan.given[component.number];
        patches.resize(size_t{scan.Across()} * scan.Down());
        for (Given& g : patches) {
            constexpr Kind kKinds[] = {Kind::Flat,  Kind::Flat,    Kind::Flat,
                                       Kind::Empty, Kind::Encoded, Kind::Missing};
            g.kind = kKinds[random() % 6];
            g.transposed = transposed && g.kind == Kind::Flat;
            // Without a grid a patch holds as many values as the caller likes.
            const size_t count = scan.Mode2() ? upTo(9) : cells;
            if (g.kind == Kind::Flat || g.kind == Kind::Encoded)
                g.values = RandomValues(component, count, random);
            if (g.kind == Kind::Encoded) {
                g.minimum = static_cast<float>(1 + random() % 10);
                g.maximum = g.minimum + 5;
            }
        }
    }
    return scan;
}

struct Written {
    Bytes bytes;
    std::map<std::string, uint64_t> statistics;
};

Written WriteScan(const Scan& scan, std::mt19937& random) {
    kxbase::InMemoryStream stream;
    kxcodecs::ZLibChunkCodec zlib;
    kxcodecs::SnappyChunkCodec snappy;
    kxio::QSNScanWriter writer;
    if (scan.topology == Topology::Grid) {
        kxbase::GridTopology grid = MakeGrid(scan.columns, scan.rows, scan.patchWidth, scan.patchHeight);
        grid.previewWidth = scan.previewWidth;
        grid.previewHeight = scan.previewHeight;
        writer.CreateNew(&stream, grid);
    } else if (scan.topology == Topology::None) {
        writer.CreateNew(&stream);
    } else {
        const uint32_t height = scan.topology == Topology::Cylinder ? scan.rows : 0;
        writer.CreateNew(&stream, MakeCylinder(scan.columns, height, scan.patchWidth, scan.patchHeight));
    }

    std::vector<uint32_t> order(size_t{scan.Across()} * scan.Down());
    for (uint32_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::shuffle(order.begin(), order.end(), random);
    for (const uint32_t index : order) {
        std::vector<std::unique_ptr<kxio::PatchDescriptor>> owners;
        std::vector<kxio::PatchDescriptor*> list;
        std::vector<Bytes> chunks;
        chunks.reserve(scan.components.size());
        for (const ComponentSpec& component : scan.components) {
            const Given& g = scan.given.at(component.number)[index];
            const auto number = static_cast<kxbase::ComponentType>(component.number);
            if (g.kind == Kind::Flat) {
                auto flat = std::make_unique<kxio::FlatPatchDescriptor>(
                    number, component.bytes, g.transposed ? kxio::Transposed : kxio::RowMajor, 1.0,
                    component.number % 2 == 0 ? static_cast<kxcodecs::QKXChunkCodec*>(&snappy) : &zlib);
                flat->data = const_cast<unsigned char*>(g.values.data());
                flat->size = g.values.size() / component.bytes;
                owners.push_back(std::move(flat));
            } else if (g.kind == Kind::Encoded) {
                const auto count = static_cast<uint32_t>(g.values.size() / component.bytes);
                const bool whole = count == scan.patchWidth * scan.patchHeight;
                Bytes& chunk = chunks.emplace_back();
                zlib.Encode(g.values.data(), whole ? scan.patchWidth : count, whole ? scan.patchHeight : 1,
                            g.values.size(), 1.0F, chunk);
                auto encoded = std::make_unique<kxio::EncodedPatchDescriptor>(number, component.bytes);
                encoded->data = chunk.data();
                encoded->size = chunk.size();
                encoded->min = g.minimum;
                encoded->max = g.maximum;
                owners.push_back(std::move(encoded));
            } else if (g.kind == Kind::Empty) {
                owners.push_back(std::make_unique<kxio::EmptyPatchDescriptor>(number, component.bytes));
            }
        }
        for (const auto& owner : owners)
            list.push_back(owner.get());
        std::shuffle(list.begin(), list.end(), random);
        // An open-ended scan learns its size from the calls, also from one without descriptors.
        if (random() % 2 == 0 || scan.topology == Topology::None) {
            writer.AddPatch(list, index / scan.Across(), index % scan.Across());
        } else {
            writer.AddPatch(list, index);
        }
    }
    Written written;
    written.statistics = writer.EndCreation();
    written.bytes = stream.GetBytes();
    return written;
}

class FileLayout : public testing::TestWithParam<std::tuple<Topology, bool>> {
protected:
    void CheckChunks(const Scan& scan, const walker::File& file);
    void CheckLimitsAndPoints(const Scan& scan, const walker::File& file);
    void CheckHistograms(const Scan& scan, const walker::File& file);
    void CheckPreviews(const Scan& scan, const walker::File& file);
    void CheckStatistics(const Scan& scan, const walker::File& file, const Written& written);

    static bool HasComponent(const Scan& scan, uint32_t number) {
        const auto& patches = scan.given.at(number);
        return std::any_of(patches.begin(), patches.end(),
                           [](const Given& g) { return g.kind != Kind::Missing; });
    }
};

// Every entry points just behind the record of its chunk, and what lies there is what was given.
void FileLayout::CheckChunks(const Scan& scan, const walker::File& file) {
    std::set<uint64_t> reached;
    for (const ComponentSpec& component : scan.components) {
        const auto& patches = scan.given.at(component.number);
        if (!HasComponent(scan, component.number)) {
            EXPECT_EQ(file.lookup.count(component.number), 0U);
            continue;
        }
        ASSERT_EQ(file.lookup.count(component.number), 1U);
        const auto& entries = file.lookup.at(component.number);
        ASSERT_EQ(entries.size(), patches.size());
        std::set<uint64_t> emptyPositions;
        for (uint32_t index = 0; index < patches.size(); ++index) {
            SCOPED_TRACE("component " + std::to_string(component.number) + ", patch " +
                         std::to_string(index));
            const Given& g = patches[index];
            const walker::Chunk* chunk = file.ChunkAt(entries[index].position);
            ASSERT_NE(chunk, nullptr);
            EXPECT_EQ(chunk->position, chunk->record + 32);
            EXPECT_EQ(chunk->bytes, entries[index].bytes);
            EXPECT_EQ(chunk->component, component.number);
            reached.insert(chunk->position);
            const walker::Decoded decoded = walker::Decode(file.Slice(entries[index]));
            EXPECT_EQ(decoded.elementBytes, component.bytes);
            if (g.kind == Kind::Empty || g.kind == Kind::Missing) {
                EXPECT_TRUE(chunk->IsSharedEmpty());
                emptyPositions.insert(chunk->position);
                EXPECT_EQ(decoded.width, scan.patchWidth);
                EXPECT_EQ(decoded.height, scan.patchHeight);
                EXPECT_EQ(decoded.values,
                          Bytes(size_t{scan.patchWidth} * scan.patchHeight * component.bytes, 0));
            } else {
                EXPECT_EQ(chunk->row, index / scan.Across());
                EXPECT_EQ(chunk->column, index % scan.Across());
                EXPECT_EQ(decoded.values, g.values);
                if (!scan.Mode2()) {
                    EXPECT_EQ(decoded.width, scan.patchWidth);
                    EXPECT_EQ(decoded.height, scan.patchHeight);
                }
            }
        }
        EXPECT_LE(emptyPositions.size(), 1U) << "empty patches do not share one chunk";
    }
    EXPECT_EQ(reached.size(), file.chunks.size()) << "a chunk that no entry refers to";
}

void FileLayout::CheckLimitsAndPoints(const Scan& scan, const walker::File& file) {
    uint64_t points = 0;
    std::vector<std::pair<float, float>> expected(size_t{scan.Across()} * scan.Down());
    if (scan.given.count(1) != 0) {
        for (uint32_t index = 0; index < expected.size(); ++index) {
            const Given& g = scan.given.at(1)[index];
            if (g.kind == Kind::Encoded) expected[index] = {g.minimum, g.maximum};
            if (g.kind != Kind::Flat) continue;
            float low = 0, high = 0;
            for (uint32_t i = 0; i < g.values.size() / 4; ++i) {
                const float value = At<float>(g.values, i);
                if (!(value > 0)) continue;
                low = low == 0 ? value : std::min(low, value);
                high = std::max(high, value);
                points += scan.Mode2() || scan.Inside(scan.CellOf(index, i, g.transposed)) ? 1 : 0;
            }
            expected[index] = {low, high};
        }
    }
    EXPECT_EQ(file.scan.points, points);
    if (!scan.HasPreviews()) return;
    ASSERT_EQ(file.limits.pairs, expected);
    uint32_t low = 0x7f7fffff, high = 0x80800000;
    float lowest = std::bit_cast<float>(low), highest = 0;
    for (const auto& [minimum, maximum] : expected) {
        if (minimum > 0 && minimum < lowest) low = std::bit_cast<uint32_t>(lowest = minimum);
        if (maximum > highest) high = std::bit_cast<uint32_t>(highest = maximum);
    }
    EXPECT_EQ(file.limits.minimumBits, low);
    EXPECT_EQ(file.limits.maximumBits, high);
}

void FileLayout::CheckHistograms(const Scan& scan, const walker::File& file) {
    const std::pair<uint32_t, uint64_t> kinds[] = {
        {18, 0xac8391a3fbed04c7}, {19, 0x947643b5f86b1820}, {4, 0x913a4f40ca422a2f}, {5, 0xa62815c019d63650}};
    size_t place = file.extended.size();
    for (auto kind = std::rbegin(kinds); kind != std::rend(kinds); ++kind) {
        walker::Histogram expected;
        const auto found = scan.given.find(kind->first);
        if (found != scan.given.end()) {
            for (uint32_t index = 0; index < found->second.size(); ++index) {
                const Given& g = found->second[index];
                if (g.kind != Kind::Flat) continue;
                auto& counts = expected[index];
                const size_t bytes = kind->first == 4 ? 1 : kind->first == 5 ? 2 : kind->first == 18 ? 4 : 8;
                for (uint32_t i = 0; i < g.values.size() / bytes; ++i) {
                    // Row by row whatever the orientation.
                    if (!scan.Inside(scan.CellOf(index, i, false))) continue;
                    uint64_t key = 0;
                    std::memcpy(&key, g.values.data() + i * bytes, bytes);
                    ++counts[key];
                }
            }
        }
        const auto records = file.OfType(kind->second);
        ASSERT_EQ(records.size(), expected.empty() ? 0U : 1U) << "component " << kind->first;
        if (expected.empty()) continue;
        EXPECT_EQ(walker::ReadHistogram(*records[0]), expected) << "component " << kind->first;
        // Class, segment, luminance 8, luminance 16, at the end of the chain.
        EXPECT_EQ(records[0], &file.extended[--place]);
    }
    // Before them: identifiers, pre-registration, both modes.
    const uint64_t first[] = {0x84968181ef2d2134, 0x940a8701d02f837b, 0x91acbfc234bec3a9, 0x9554a8463740bb07};
    ASSERT_EQ(place, std::size(first));
    for (size_t i = 0; i < place; ++i)
        EXPECT_EQ(file.extended[i].type, first[i]);
}

// The grid value nearest the centre of a preview cell.
uint64_t Nearest(uint32_t pixel, uint32_t preview, uint32_t grid) {
    const float step = static_cast<float>(grid) / static_cast<float>(preview);
    return static_cast<uint64_t>(static_cast<float>(pixel) * step) + static_cast<uint64_t>(step * 0.5F);
}

void FileLayout::CheckPreviews(const Scan& scan, const walker::File& file) {
    ASSERT_EQ(file.HasPreviews(), scan.HasPreviews());
    if (!scan.HasPreviews()) return;
    for (const ComponentSpec& component : scan.components) {
        SCOPED_TRACE("component " + std::to_string(component.number));
        const auto& patches = scan.given.at(component.number);
        const bool anyFlat =
            std::any_of(patches.begin(), patches.end(), [](const Given& g) { return g.kind == Kind::Flat; });
        ASSERT_EQ(file.previews.count(component.number), anyFlat ? 1U : 0U);
        if (!anyFlat) continue;
        const walker::Decoded image = walker::Decode(file.Slice(file.previews.at(component.number)[0]));
        ASSERT_EQ(image.width, scan.previewWidth);
        ASSERT_EQ(image.height, scan.previewHeight);
        ASSERT_EQ(image.elementBytes, component.bytes);
        EXPECT_EQ(image.step, 1.0F);
        std::map<uint64_t, Bytes> decoded;  // by patch index
        for (uint32_t py = 0; py < scan.previewHeight; ++py) {
            for (uint32_t px = 0; px < scan.previewWidth; ++px) {
                const uint64_t x = Nearest(px, scan.previewWidth, scan.columns);
                const uint64_t y = Nearest(py, scan.previewHeight, scan.rows);
                const uint64_t index = y / scan.patchHeight * scan.Across() + x / scan.patchWidth;
                Bytes expected(component.bytes, 0);
                if (patches[index].kind == Kind::Flat) {
                    if (decoded.count(index) == 0) {
                        decoded[index] =
                            walker::Decode(file.Slice(file.lookup.at(component.number)[index])).values;
                    }
                    const uint64_t b = x % scan.patchWidth, a = y % scan.patchHeight;
                    const uint64_t i = scan.transposed ? b * scan.patchWidth + a : a * scan.patchWidth + b;
                    std::memcpy(expected.data(), decoded[index].data() + i * component.bytes,
                                component.bytes);
                }
                // A transposed preview lies column after column.
                const uint64_t pixel = scan.transposed ? uint64_t{px} * scan.previewHeight + py
                                                       : uint64_t{py} * scan.previewWidth + px;
                const auto at = image.values.begin() + static_cast<std::ptrdiff_t>(pixel * component.bytes);
                ASSERT_EQ(Bytes(at, at + component.bytes), expected) << "row " << py << ", column " << px;
            }
        }
    }
}

void FileLayout::CheckStatistics(const Scan& scan, const walker::File& file, const Written& written) {
    std::map<std::string, uint64_t> expected;
    expected["Headers"] = 92 + file.scanHeaderSize + 32 * file.chunks.size();
    expected["LookupTables"] = file.lookupSize + file.previewLookupSize;
    expected["Thumbnail"] = file.thumbnailSize;
    if (scan.HasPreviews()) expected["Limits"] = file.limitsSize;
    expected["PointCount"] = file.scan.points;
    for (const walker::Chunk& chunk : file.chunks) {
        const std::string name =
            kxbase::ComponentToString(static_cast<kxbase::ComponentType>(chunk.component));
        expected[name] += chunk.IsSharedEmpty() ? 0 : chunk.bytes;
    }
    for (const auto& [component, entries] : file.previews) {
        expected[kxbase::ComponentToString(static_cast<kxbase::ComponentType>(component)) + "_Preview"] =
            entries[0].bytes;
    }
    const std::pair<uint64_t, const char*> histograms[] = {
        {0xac8391a3fbed04c7, "ClassHistogramHeader"},
        {0x947643b5f86b1820, "SegmentHistogramHeader"},
        {0x913a4f40ca422a2f, "Luminance8HistogramHeader"},
        {0xa62815c019d63650, "Luminance16HistogramHeader"}};
    for (const auto& [type, name] : histograms) {
        for (const walker::Extended* record : file.OfType(type))
            expected[name] = record->size;
    }
    EXPECT_EQ(written.statistics, expected);
}

TEST_P(FileLayout, RandomScansObeyEveryRule) {
    const auto [topology, transposed] = GetParam();
    for (uint32_t seed = 1; seed <= 15; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const Scan scan = RandomScan(topology, transposed, random);
        const Written written = WriteScan(scan, random);
        const walker::File file = Walk(written.bytes);
        EXPECT_EQ(file.scan.columns, scan.columns);
        EXPECT_EQ(file.scan.rows, scan.rows);
        EXPECT_EQ(file.scan.patchWidth, scan.patchWidth);
        EXPECT_EQ(file.scan.patchHeight, scan.patchHeight);
        CheckChunks(scan, file);
        CheckLimitsAndPoints(scan, file);
        CheckHistograms(scan, file);
        CheckPreviews(scan, file);
        CheckStatistics(scan, file, written);
        if (HasFailure()) return;
    }
}

std::string NameOf(const testing::TestParamInfo<FileLayout::ParamType>& info) {
    return std::string(TopologyName(std::get<0>(info.param))) +
           (std::get<1>(info.param) ? "Transposed" : "RowMajor");
}

INSTANTIATE_TEST_SUITE_P(Topologies, FileLayout,
                         testing::Combine(testing::Values(Topology::Grid, Topology::Cylinder,
                                                          Topology::OpenCylinder, Topology::None),
                                          testing::Bool()),
                         NameOf);

}  // namespace
