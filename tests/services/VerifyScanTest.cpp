// SPDX-License-Identifier: MIT
#include "kxio/VerifyScan.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <set>

#include "../reader/SampleScans.h"
#include "RecoveryScan.h"
#include "kxbase/kxInFile.h"
#include "kxcodecs/JPEG.h"
#include "kxio/CommentExtendedHeader.h"
#include "kxio/DiffScans.h"
#include "kxio/EmptyPatchDescriptor.h"
#include "kxio/EncodedPatchDescriptor.h"
#include "kxio/QSNInfo.h"
#include "support/TinyScan.h"

namespace {

using namespace kxio;
using recovery_test::Bytes;
using recovery_test::SampleScan;

VerifyReport Verify(const Bytes& bytes, VerifyLevel level = VerifyLevel::Deep, unsigned threads = 1) {
    kxbase::InMemoryStream stream(bytes);
    VerifyOptions options;
    options.level = level;
    options.threads = threads;
    return VerifyScan(stream, options);
}

std::string Text(const VerifyFinding& f) {
    std::string text = f.severity == FindingSeverity::Error     ? "error "
                       : f.severity == FindingSeverity::Warning ? "warning "
                                                                : "note ";
    text += f.record;
    if (f.offset) text += " @" + std::to_string(*f.offset);
    if (!f.field.empty()) text += " " + f.field;
    if (f.component) text += " of " + kxbase::ComponentToString(*f.component);
    if (f.patchRow) text += " patch " + std::to_string(*f.patchRow) + "," + std::to_string(*f.patchColumn);
    return text + ": " + f.text;
}

std::string Text(const VerifyReport& report) {
    std::string text;
    for (const VerifyFinding& finding : report.findings)
        text += Text(finding) + "\n";
    return text;
}

/// True when some finding's text holds all the pieces.
bool Found(const VerifyReport& report, const std::vector<std::string>& pieces) {
    for (const VerifyFinding& finding : report.findings) {
        const std::string text = Text(finding);
        if (std::all_of(pieces.begin(), pieces.end(),
                        [&](const std::string& piece) { return text.find(piece) != std::string::npos; }))
            return true;
    }
    return false;
}

/// A patch handed to a writer, with values that live as long as it.
template <class T>
struct Patch : FlatPatchDescriptor {
    Patch(kxbase::ComponentType type, std::vector<T> list, kxcodecs::QKXChunkCodec& with,
          double scaleOf = 1.0, PreviewPatchOrientation order = RowMajor)
        : FlatPatchDescriptor(type, sizeof(T), order, scaleOf, &with), values(std::move(list)) {
        data = reinterpret_cast<unsigned char*>(values.data());
        size = values.size();
    }
    Patch(const Patch&) = delete;
    std::vector<T> values;
};

/// Everything that a writer can be asked for; `write` hands over the patches.
Bytes Written(const std::function<void(QSNScanWriter&, kxbase::IOutFileStream*)>& create,
              const std::function<void(QSNScanWriter&)>& write) {
    kxbase::InMemoryStream stream;
    QSNScanWriter writer;
    create(writer, &stream);
    write(writer);
    writer.EndCreation();
    return stream.GetBytes();
}

kxbase::GridTopology SmallGrid(uint32_t columns = 10, uint32_t rows = 7, uint32_t width = 4,
                               uint32_t height = 3) {
    kxbase::GridTopology grid;
    grid.columnStartAngle = 3;
    grid.rowStartAngle = 0.5F;
    grid.columnAngularStep = grid.rowAngularStep = 0.01F;
    grid.columns = columns;
    grid.rows = rows;
    grid.patchWidth = width;
    grid.patchHeight = height;
    return grid;
}

Bytes OnGrid(const kxbase::GridTopology& grid, const std::function<void(QSNScanWriter&)>& write) {
    return Written([&](QSNScanWriter& writer, kxbase::IOutFileStream* out) { writer.CreateNew(out, grid); },
                   write);
}

std::vector<float> Ranges(uint32_t count, uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<float> values(count);
    for (float& value : values)
        value = random() % 7 == 0 ? 0.0F : static_cast<float>(random() % 100000) * 0.37F;
    return values;
}

/// The writer's variants: name and bytes.
std::vector<std::pair<std::string, Bytes>> Variants() {
    std::vector<std::pair<std::string, Bytes>> files;
    SampleScan sample;
    files.emplace_back("seven components", sample.Write());
    sample.histograms = false;
    files.emplace_back("without histograms", sample.Write());
    sample = {};
    sample.absent.clear();
    sample.patchWidth = 24;
    files.emplace_back("oblong patches", sample.Write());
    sample.columns = sample.rows = 16;
    sample.patchWidth = 16;
    files.emplace_back("one patch", sample.Write());

    kxcodecs::ZLibChunkCodec zlib;
    kxcodecs::SnappyChunkCodec snappy;
    const kxbase::GridTopology grid = SmallGrid();
    files.emplace_back("no patches at all", OnGrid(grid, [](QSNScanWriter&) {}));
    files.emplace_back("transposed square patches", OnGrid(SmallGrid(8, 8, 4, 4), [&](QSNScanWriter& writer) {
                           for (unsigned i = 0; i < 4; ++i) {
                               Patch<float> patch(kxbase::Range, Ranges(16, i), zlib, 0.1, Transposed);
                               writer.AddPatch({&patch}, i / 2, i % 2);
                           }
                       }));
    files.emplace_back("encoded patches", OnGrid(grid, [&](QSNScanWriter& writer) {
                           const std::vector<float> values(12, 5);
                           Bytes chunk;
                           zlib.Encode(values.data(), 4, 3, 48, 1.0F, chunk);
                           EncodedPatchDescriptor encoded(kxbase::Range, 4);
                           encoded.data = chunk.data();
                           encoded.size = chunk.size();
                           encoded.min = encoded.max = 5;
                           writer.AddPatch({&encoded}, 0, 0);
                           Patch<float> flat(kxbase::Range, Ranges(12, 3), snappy);
                           writer.AddPatch({&flat}, 0, 1);
                           const auto points = std::count_if(flat.values.begin(), flat.values.end(),
                                                             [](float v) { return v > 0; });
                           EmptyPatchDescriptor empty(kxbase::Range, 4);
                           writer.AddPatch({&empty}, 1, 1);
                           writer.SetPointcount(12 + static_cast<uint64_t>(points));
                       }));
    files.emplace_back("previews by the caller", OnGrid(grid, [&](QSNScanWriter& writer) {
                           std::vector<float> image(6, 7);
                           Bytes chunk;
                           zlib.Encode(image.data(), 3, 2, 24, 1.0F, chunk);
                           Patch<float> first(kxbase::Range, Ranges(12, 4), zlib);
                           writer.AddPatch({&first}, 0, 0);
                           writer.SetCompressedPreview(chunk.data(), chunk.size(), kxbase::Range);
                           Patch<float> second(kxbase::Range, Ranges(12, 5), zlib);
                           writer.AddPatch({&second}, 1, 0);
                       }));
    files.emplace_back("without a grid",
                       Written([](QSNScanWriter& w, kxbase::IOutFileStream* out) { w.CreateNew(out); },
                               [&](QSNScanWriter& writer) {
                                   for (const unsigned i : {0U, 1U, 3U}) {
                                       Patch<float> ranges(kxbase::Range, Ranges(5 + i, i), zlib, 0.1);
                                       Patch<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(5 + i, 9),
                                                           zlib);
                                       writer.AddPatch({&ranges, &grey}, 0, i);
                                   }
                               }));
    files.emplace_back("height unknown",
                       Written(
                           [](QSNScanWriter& w, kxbase::IOutFileStream* out) {
                               kxbase::CylindricalTopology topology;
                               topology.width = 10;
                               topology.height = 0;
                               topology.patchWidth = 4;
                               topology.patchHeight = 3;
                               w.CreateNew(out, topology);
                           },
                           [&](QSNScanWriter& writer) {
                               for (unsigned i = 0; i < 8; ++i) {
                                   Patch<float> ranges(kxbase::Range, Ranges(12, i), zlib, 0.1);
                                   Patch<uint16_t> grey(kxbase::Luminance16, std::vector<uint16_t>(12, 700),
                                                        snappy);
                                   if (i != 4) writer.AddPatch({&ranges, &grey}, i / 3, i % 3);
                               }
                           }));
    files.emplace_back("own thumbnail, texts appended", [&] {
        Bytes bytes = OnGrid(grid, [&](QSNScanWriter& writer) {
            Bytes jpeg;
            kxcodecs::JPEG::Encode(Bytes(192, 80).data(), 8, 8, 50, jpeg);
            writer.SetCompressedThumbnail(jpeg);
            Patch<uint64_t> segments(kxbase::Segment, std::vector<uint64_t>(12, 1ULL << 40), zlib);
            writer.AddPatch({&segments}, 0, 0);
        });
        kxbase::InMemoryStream stream(bytes);
        stream.SeekEnd(0);
        CommentExtendedHeader(L"appended").Write(&stream);
        return stream.GetBytes();
    }());
    return files;
}

TEST(VerifyScan, WhatTheWriterWritesHasNoFindings) {
    for (const auto& [name, bytes] : Variants()) {
        for (const VerifyLevel level : {VerifyLevel::Quick, VerifyLevel::Full, VerifyLevel::Deep}) {
            const VerifyReport report = Verify(bytes, level);
            // A scan that is open at the end has neither previews nor limits, and that is noted.
            EXPECT_EQ(report.errors + report.warnings, 0U) << name << "\n" << Text(report);
            EXPECT_EQ(report.notes, name == "height unknown" ? 1U : 0U) << name << "\n" << Text(report);
            EXPECT_TRUE(report.isScanFile);
        }
    }
}

/// What a reader of both would see: "equal", "different", or "unreadable".
std::string Content(const Bytes& whole, const Bytes& changed) {
    kxbase::InMemoryStream a(whole);
    kxbase::InMemoryStream b(changed);
    const QSNScanReader first(&a);
    try {
        const QSNScanReader second(&b);
        return DiffScans(first, second).Equal() ? "equal" : "different";
    } catch (const kxbase::KXException&) {
        return "unreadable";
    }
}

/// A scan all of whose chunks have checksums.
Bytes ZLibScan() {
    kxcodecs::ZLibChunkCodec zlib;
    return OnGrid(SmallGrid(), [&](QSNScanWriter& writer) {
        writer.AddMessage(L"text");
        writer.GetScanProperties().scannerModel = L"model";
        for (unsigned i = 0; i < 8; ++i) {
            Patch<float> ranges(kxbase::Range, Ranges(12, i), zlib, 0.1);
            Patch<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(12, static_cast<uint8_t>(i)), zlib);
            writer.AddPatch({&ranges}, i / 3, i % 3);
            writer.AddPatch({&grey}, i / 3, i % 3);
        }
    });
}

TEST(VerifyScan, EveryChangedByteIsFoundOrChangesNothingButValuesThatNothingElseTells) {
    const Bytes whole = ZLibScan();
    ASSERT_EQ(Text(Verify(whole)), "");
    const auto main = [&](size_t field) { return kxtest::GetMainField(whole, field); };
    const uint64_t scan = main(kxtest::MainField::ScanHeader) + 16;
    const uint64_t thumbnail = main(kxtest::MainField::Thumbnail);
    uint64_t silent = 0;
    for (uint64_t i = 0; i < whole.size(); ++i) {
        for (const unsigned mask : {0xffU, 0x01U}) {
            Bytes changed = whole;
            changed[i] = static_cast<unsigned char>(changed[i] ^ mask);
            const VerifyReport report = Verify(changed);
            if (!report.findings.empty()) continue;
            const std::string content = Content(whole, changed);
            EXPECT_NE(content, "unreadable") << "byte " << i;
            if (content == "equal") continue;
            ++silent;
            // Numbers and texts of the scan header, and the data of extended records that are no histograms.
            const bool header = i >= scan && i < thumbnail;
            const bool tail = i >= main(kxtest::MainField::FirstExtendedHeader);
            EXPECT_TRUE(header || tail) << "byte " << i << " ^ " << mask;
        }
    }
    const uint64_t values = thumbnail - scan + whole.size() - main(kxtest::MainField::FirstExtendedHeader);
    EXPECT_LT(silent, 2 * values);
}

TEST(VerifyScan, ACutFileIsNeverClean) {
    for (const Bytes& whole : {ZLibScan(), SampleScan().Write()}) {
        std::set<uint64_t> lengths = {0, 1, 15, 16, 91, 92, whole.size() - 1};
        for (const auto& chunk : recovery_test::ChunksOf(whole))
            lengths.insert({chunk.record, chunk.data, chunk.end});
        for (const size_t field :
             {kxtest::MainField::ScanHeader, kxtest::MainField::FirstExtendedHeader,
              kxtest::MainField::Thumbnail, kxtest::MainField::LookupTable,
              kxtest::MainField::PreviewLookupTable, kxtest::MainField::BoundingInformation})
            lengths.insert(kxtest::GetMainField(whole, field));
        std::mt19937 random(7);
        for (int i = 0; i < 60; ++i)
            lengths.insert(random() % whole.size());
        for (const uint64_t length : lengths) {
            const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
            for (const VerifyLevel level : {VerifyLevel::Quick, VerifyLevel::Deep}) {
                const VerifyReport report = Verify(cut, level);
                EXPECT_FALSE(report.Clean()) << length << " of " << whole.size();
                EXPECT_EQ(report.isScanFile, length >= 16) << "a whole frame says what the file was";
            }
        }
    }
}

TEST(VerifyScan, FindingsNameThePlace) {
    const Bytes whole = ZLibScan();
    const auto chunk = recovery_test::ChunksOf(whole).at(3);  // intensity of patch 0, 1
    Bytes bytes = whole;
    bytes.at(chunk.data + 30) ^= 0x55;
    const VerifyReport damaged = Verify(bytes, VerifyLevel::Full);
    ASSERT_EQ(damaged.errors, 1U) << Text(damaged);
    EXPECT_EQ(damaged.findings[0].component, kxbase::Luminance8);
    EXPECT_EQ(damaged.findings[0].patchRow, 0U);
    EXPECT_EQ(damaged.findings[0].patchColumn, 1U);
    EXPECT_EQ(damaged.findings[0].offset, chunk.data);
    EXPECT_EQ(damaged.damagedChunks, 1U);
    EXPECT_TRUE(damaged.Usable());
    EXPECT_TRUE(Verify(bytes, VerifyLevel::Quick).Clean());
}

TEST(VerifyScan, AllDamageIsToldNotOnlyTheFirst) {
    Bytes bytes = ZLibScan();
    const auto chunks = recovery_test::ChunksOf(bytes);
    for (const size_t i : {1U, 6U, 11U})
        bytes.at(chunks.at(i).data + 31) ^= 0x55;
    kxtest::SetMainField(bytes, kxtest::MainField::Thumbnail, 7);
    const VerifyReport report = Verify(bytes);
    EXPECT_EQ(report.damagedChunks, 3U) << Text(report);
    EXPECT_TRUE(Found(report, {"ThumbnailHeader", "points, byte 7"})) << Text(report);
}

TEST(VerifyScan, EntriesThatLieAreTold) {
    const Bytes whole = ZLibScan();
    const uint64_t entries = kxtest::GetMainField(whole, kxtest::MainField::LookupTable) + 16 + 4 + 8;
    Bytes bytes = whole;
    kxtest::PutU64(bytes, entries, kxtest::GetU64(whole, entries) + 1);
    EXPECT_TRUE(Found(Verify(bytes, VerifyLevel::Quick), {"patch 0,0", "no chunk record lies just before"}));
    bytes = whole;
    std::swap_ranges(bytes.begin() + static_cast<std::ptrdiff_t>(entries),
                     bytes.begin() + static_cast<std::ptrdiff_t>(entries + 12),
                     bytes.begin() + static_cast<std::ptrdiff_t>(entries + 12));
    EXPECT_TRUE(Found(Verify(bytes, VerifyLevel::Quick), {"patch 0,0", "says row 0, column 1"}));
    bytes = whole;
    kxtest::PutU64(bytes, entries, 1ULL << 40);
    EXPECT_TRUE(Found(Verify(bytes, VerifyLevel::Quick), {"patch 0,0", "the file ends at"}));
    EXPECT_TRUE(Found(Verify(bytes, VerifyLevel::Quick), {"chunk @92", "does not list it"}));
    bytes = whole;
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(entries), 12, static_cast<unsigned char>(0));
    EXPECT_TRUE(Found(Verify(bytes, VerifyLevel::Quick), {"warning", "1 patches are not in the file"}));
}

TEST(VerifyScan, DerivedNumbersAreHeldAgainstThePatches) {
    const Bytes whole = ZLibScan();
    const auto field = [&](size_t which) { return kxtest::GetMainField(whole, which); };
    Bytes bytes = whole;
    bytes.at(field(kxtest::MainField::ScanHeader) + 16 + 44) ^= 4;
    EXPECT_TRUE(Found(Verify(bytes), {"valid point count", "but the patches hold"})) << Text(Verify(bytes));
    EXPECT_TRUE(Verify(bytes, VerifyLevel::Full).Clean());
    bytes = whole;
    const uint64_t maximum =
        field(kxtest::MainField::BoundingInformation) + 16 + 12 + 8 * 4 + 4;  // of patch 4
    bytes.at(maximum + 2) ^= 0x10;
    EXPECT_TRUE(Found(Verify(bytes), {"MinMaxHeader", "maximum", "patch 1,1"})) << Text(Verify(bytes));
}

TEST(VerifyScan, ChunksAreVerifiedWithoutHeadersAndTables) {
    const Bytes whole = SampleScan().Write();
    const VerifyReport expected = Verify(whole, VerifyLevel::Full);
    // Without the tail, and without the main header.
    const uint64_t end = kxtest::GetMainField(whole, kxtest::MainField::ChunkDataEnd);
    Bytes chunks(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(end));
    std::fill_n(chunks.begin(), 92, static_cast<unsigned char>(0));
    const auto stored = recovery_test::ChunksOf(whole);
    chunks.at(stored.at(7).data + 40) ^= 0xff;
    const VerifyReport report = Verify(chunks, VerifyLevel::Full);
    EXPECT_EQ(report.chunks, expected.chunks);
    EXPECT_TRUE(Found(report, {"no main header"}));
    EXPECT_TRUE(Found(report, {"no lookup table"}));
    EXPECT_TRUE(Found(report, {"chunk @" + std::to_string(stored.at(7).data)})) << Text(report);
    EXPECT_EQ(report.damagedChunks, 1U) << Text(report);
}

TEST(VerifyScan, FindingsBeyondTheMostAreCounted) {
    Bytes bytes = ZLibScan();
    for (const auto& chunk : recovery_test::ChunksOf(bytes))
        bytes.at(chunk.data + 31) ^= 0x55;
    kxbase::InMemoryStream stream(bytes);
    VerifyOptions options;
    options.mostFindings = 3;
    const VerifyReport report = VerifyScan(stream, options);
    EXPECT_EQ(report.findings.size(), 3U);
    EXPECT_EQ(report.errors, 16U);
    EXPECT_EQ(report.leftOut, 13U);
    EXPECT_EQ(report.damagedChunks, 16U);
    EXPECT_TRUE(report.Usable());  // the empty ones are whole
}

TEST(VerifyScan, TheReportDoesNotDependOnTheThreads) {
    Bytes bytes = SampleScan().Write();
    for (const auto& chunk : recovery_test::ChunksOf(bytes))
        bytes.at(chunk.data + 29) ^= 0x55;
    EXPECT_EQ(Text(Verify(bytes, VerifyLevel::Deep, 1)), Text(Verify(bytes, VerifyLevel::Deep, 5)));
}

TEST(VerifyScan, ProgressEndsItByThrowing) {
    struct Stop {};
    kxbase::InMemoryStream stream(ZLibScan());
    VerifyOptions options;
    options.progress = [](uint64_t, uint64_t) { throw Stop(); };
    EXPECT_THROW(VerifyScan(stream, options), Stop);
}

TEST(VerifyScan, AFileThatIsNotThereCannotBeOpened) {
    EXPECT_THROW(VerifyScan(L"no/such/file.qsn"), kxbase::KXHeaderReadingException);
}

TEST(VerifyScan, RandomDamageEndsInAReport) {
    const Bytes whole = SampleScan().Write();
    std::mt19937 random(11);
    for (int round = 0; round < 60; ++round) {
        Bytes bytes = whole;
        for (uint32_t i = 0; i < 1 + random() % 200; ++i)
            bytes.at(random() % (round % 2 == 0 ? bytes.size() : 92)) = static_cast<unsigned char>(random());
        const VerifyReport report = Verify(bytes);
        EXPECT_FALSE(report.findings.empty()) << round;
    }
}

}  // namespace
