// SPDX-License-Identifier: MIT
// Recovery of files that carry hashes.
#include <gtest/gtest.h>

#include "RecoveredFile.h"
#include "kxio/HistogramHeader.h"
#include "kxio/ScanAccess.h"
#include "kxio/VerifyScan.h"

namespace {

using namespace recovery_test;
using kxbase::ComponentType;

class RecoverHashed : public testing::Test {
protected:
    RecoverHashed() {
        SampleScan scan;
        scan.hashes = true;
        original = scan.Write();
        chunks = ChunksOf(original);
        stream = InMemoryStream(original);
        reader.Open(&stream);
    }

    static bool MadeAnew(const Recovered& recovered, const std::string& what) {
        const auto& list = recovered.report.rebuilt;
        return std::find(list.begin(), list.end(), what) != list.end();
    }
    static uint64_t ErrorsOf(Recovered& recovered) {
        kxio::VerifyOptions options;
        options.level = kxio::VerifyLevel::Deep;
        recovered.out.Seek(0);
        const kxio::VerifyReport report = kxio::VerifyScan(recovered.out, options);
        for (const kxio::VerifyFinding& finding : report.findings) {
            if (finding.severity == kxio::FindingSeverity::Error) ADD_FAILURE() << finding.text;
        }
        return report.errors;
    }
    Bytes StoredPreview(const kxio::QSNScanReader& of, ComponentType component) const {
        Bytes chunk;
        of.GetCompressedPreview(chunk, component);
        return chunk;
    }
    /// All but the chunks that were hit.
    void ExpectAllBut(const Recovered& recovered, const std::vector<const StoredChunk*>& hit) const {
        for (const StoredChunk& chunk : chunks) {
            if (std::find(hit.begin(), hit.end(), &chunk) != hit.end()) continue;
            EXPECT_TRUE(recovered.Holds(original, chunk)) << chunk.component << ' ' << chunk.row;
        }
    }
    const StoredChunk& Of(ComponentType component, uint32_t row, uint32_t column) const {
        return ChunkOf(chunks, component, row, column);
    }

    Bytes original;
    std::vector<StoredChunk> chunks;
    InMemoryStream stream;
    kxio::QSNScanReader reader;
};

TEST_F(RecoverHashed, WhatTheHashesVouchForIsCopiedWithPreviewLimitsAndCounts) {
    Recovered recovered(original);
    ExpectAllBut(recovered, {});
    // Everything in front of the scan header is the same, byte for byte: chunks, and the empty one they
    // share.
    const uint64_t end = MainHeaderOf(original).chunkDataEndPosition;
    const Bytes& made = recovered.out.GetBytes();
    EXPECT_EQ(MainHeaderOf(made).chunkDataEndPosition, end);
    EXPECT_EQ(Piece(made, kxio::MainFileHeader::RecordSize, end),
              Piece(original, kxio::MainFileHeader::RecordSize, end));
    for (const ComponentType component : reader.GetAvailablePreviews())
        EXPECT_EQ(StoredPreview(recovered.reader, component), StoredPreview(reader, component)) << component;
    EXPECT_EQ(recovered.reader.GetAvailablePreviews(), reader.GetAvailablePreviews());
    const auto limits = kxio::ScanAccess(recovered.reader).ReadLimits();
    const auto limitsBefore = kxio::ScanAccess(reader).ReadLimits();
    ASSERT_TRUE(limits && limitsBefore);
    EXPECT_EQ(limits->patches, limitsBefore->patches);
    unsigned histograms = 0;
    for (const kxio::ExtendedHeader& old : TailOf(original)) {
        if (!kxio::HistogramComponent(old.GetType())) continue;
        for (const kxio::ExtendedHeader& now : TailOf(made)) {
            if (now.GetType() != old.GetType()) continue;
            ++histograms;
            EXPECT_EQ(DataOf(now), DataOf(old));
        }
    }
    EXPECT_EQ(histograms, 3U);
    EXPECT_EQ(recovered.report.pointsSaved, reader.GetScanInformation().validPointCount);
    EXPECT_EQ(recovered.reader.GetScanInformation().validPointCount,
              reader.GetScanInformation().validPointCount);
    EXPECT_EQ(recovered.report.rebuilt, (std::vector<std::string>{"lookup tables"}));
    EXPECT_TRUE(recovered.reader.HasIntegrity());
    EXPECT_TRUE(recovered.reader.GetIntegrityProblems().empty());
    EXPECT_EQ(ErrorsOf(recovered), 0U);
}

TEST_F(RecoverHashed, OnlyTheComponentOfAHitChunkIsMadeAnew) {
    const StoredChunk& hit = Of(kxbase::Luminance16, 2, 1);
    Bytes damaged = original;
    Zero(damaged, hit.data + 30, hit.data + 60);
    Recovered recovered(damaged);
    ExpectAllBut(recovered, {&hit});
    EXPECT_EQ(recovered.report.chunksLost, 1U);
    EXPECT_EQ(StoredPreview(recovered.reader, kxbase::Range), StoredPreview(reader, kxbase::Range));
    EXPECT_NE(StoredPreview(recovered.reader, kxbase::Luminance16),
              StoredPreview(reader, kxbase::Luminance16));
    EXPECT_TRUE(MadeAnew(recovered, "previews"));
    EXPECT_TRUE(MadeAnew(recovered, "histograms"));
    EXPECT_FALSE(MadeAnew(recovered, "point count and limits"));
    EXPECT_EQ(recovered.reader.GetAvailableHistograms(), reader.GetAvailableHistograms());
    EXPECT_EQ(ErrorsOf(recovered), 0U);
}

TEST_F(RecoverHashed, AHitRangeChunkTakesItsPointsWithIt) {
    const StoredChunk& hit = Of(kxbase::Range, 1, 1);
    Bytes damaged = original;
    Zero(damaged, hit.data + 30, hit.data + 60);
    Recovered recovered(damaged);
    ExpectAllBut(recovered, {&hit});
    EXPECT_TRUE(MadeAnew(recovered, "point count and limits"));
    EXPECT_LT(recovered.report.pointsSaved, reader.GetScanInformation().validPointCount);
    EXPECT_GT(recovered.report.pointsSaved, reader.GetScanInformation().validPointCount * 9 / 10);
    EXPECT_EQ(ErrorsOf(recovered), 0U);
}

TEST_F(RecoverHashed, AChunkThatStillDecodesButHasOtherValuesIsLost) {
    // Colours of a JPEG and literals of a chunk that is packed without checks change without a word.
    const StoredChunk& hit = Of(kxbase::VerticalAngle, 1, 0);
    Bytes damaged = original;
    damaged[hit.end - 2] ^= 1;
    Bytes values;
    kxcodecs::ChunkHeaderInfo header;
    ASSERT_EQ(kxcodecs::QKXChunkCodec::DecodeChunk(Piece(damaged, hit.data, hit.end), header, values),
              kxcodecs::DecodeStatus::Decoded);
    Recovered recovered(damaged);
    ExpectAllBut(recovered, {&hit});
    EXPECT_EQ(recovered.Of(kxbase::VerticalAngle).lost, 1U);
    EXPECT_EQ(ErrorsOf(recovered), 0U);

    // Who wants the rest of its values asks for it.
    kxio::RecoveryOptions options;
    options.limits.checkHashes = false;
    InMemoryStream in(damaged), out;
    EXPECT_EQ(kxio::RecoverToStream(in, out, options).chunksLost, 0U);
}

TEST_F(RecoverHashed, ChunksThatMovedAreNotTakenForChangedOnes) {
    // One chunk and its record are cut out: where the next has the same size it comes to lie in its place.
    for (size_t i = 0; i + 1 < chunks.size(); ++i) {
        Bytes damaged = original;
        damaged.erase(damaged.begin() + static_cast<std::ptrdiff_t>(chunks[i].record),
                      damaged.begin() + static_cast<std::ptrdiff_t>(chunks[i].end));
        const Recovered recovered(damaged);
        kxio::RecoveryOptions options;
        options.limits.checkHashes = false;
        InMemoryStream in(damaged), out;
        const auto unasked = kxio::RecoverToStream(in, out, options);
        EXPECT_EQ(recovered.report.chunksRecovered, unasked.chunksRecovered) << i;
        EXPECT_EQ(recovered.report.chunksFound, unasked.chunksFound) << i;
    }
}

TEST_F(RecoverHashed, AHitPreviewIsMadeAnewAndAllOthersAreKept) {
    kxio::LookupTable previews;
    kxio::LookupTableHeader table(&previews);
    InMemoryStream in(original);
    in.Seek(MainHeaderOf(original).previewLookupTablePosition);
    ASSERT_NE(table.Read(&in), 0U);
    for (const ComponentType hit : reader.GetAvailablePreviews()) {
        const kxio::LookupEntry& entry = previews.at(hit).front();
        Bytes damaged = original;
        damaged[entry.position + entry.byteCount / 2] ^= 0x20;
        Recovered recovered(damaged);
        ExpectAllBut(recovered, {});
        EXPECT_TRUE(MadeAnew(recovered, "previews"));
        EXPECT_EQ(MadeAnew(recovered, "point count and limits"), hit == kxbase::Range);
        for (const ComponentType other : reader.GetAvailablePreviews()) {
            if (other == hit) continue;
            EXPECT_EQ(StoredPreview(recovered.reader, other), StoredPreview(reader, other)) << other;
        }
        EXPECT_EQ(recovered.reader.GetAvailablePreviews(), reader.GetAvailablePreviews());
        EXPECT_EQ(recovered.reader.GetAvailableHistograms(), reader.GetAvailableHistograms());
        EXPECT_EQ(recovered.report.pointsSaved, reader.GetScanInformation().validPointCount);
        EXPECT_EQ(ErrorsOf(recovered), 0U) << hit;
        // Its header says how large all previews are.
        damaged = original;
        damaged[entry.position + 9] ^= 0x20;
        const Recovered decoded(damaged);
        ExpectAllBut(decoded, {});
        EXPECT_TRUE(MadeAnew(decoded, "point count and limits")) << hit;
    }
}

TEST_F(RecoverHashed, AHitHistogramIsCountedAnewAndAllElseIsKept) {
    const std::vector<kxio::ExtendedHeader> tail = TailOf(original);
    uint64_t position = MainHeaderOf(original).firstExtendedHeaderPosition;
    unsigned histograms = 0;
    for (const kxio::ExtendedHeader& record : tail) {
        const uint64_t start = position;
        position += record.HeaderSize();
        const auto component = kxio::HistogramComponent(record.GetType());
        if (!component) continue;
        ++histograms;
        Bytes damaged = original;
        damaged[(start + 36 + position) / 2] ^= 0x20;
        Recovered recovered(damaged);
        ExpectAllBut(recovered, {});
        EXPECT_TRUE(MadeAnew(recovered, "histograms")) << *component;
        EXPECT_FALSE(MadeAnew(recovered, "point count and limits")) << *component;
        // What is counted is what was counted.
        for (const kxio::ExtendedHeader& old : tail) {
            if (!kxio::HistogramComponent(old.GetType())) continue;
            unsigned found = 0;
            for (const kxio::ExtendedHeader& now : TailOf(recovered.out.GetBytes())) {
                if (now.GetType() != old.GetType()) continue;
                ++found;
                EXPECT_EQ(DataOf(now), DataOf(old)) << *component;
            }
            EXPECT_EQ(found, 1U);
        }
        EXPECT_EQ(ErrorsOf(recovered), 0U) << *component;
        // What leads past it to the other records is not to be doubted.
        damaged = original;
        damaged[start + 17] ^= 0x20;
        EXPECT_TRUE(MadeAnew(Recovered(damaged), "point count and limits")) << *component;
    }
    EXPECT_EQ(histograms, 3U);
}

TEST_F(RecoverHashed, WhereAHeaderOrATableWasHitEverythingIsDecoded) {
    const kxio::MainFileHeader header = MainHeaderOf(original);
    for (const uint64_t place : {header.boundingInformationPosition + 30, header.lookupTablePosition + 40,
                                 header.scanHeaderPosition + 100}) {
        Bytes damaged = original;
        damaged[place] ^= 0x10;
        Recovered recovered(damaged);
        EXPECT_TRUE(MadeAnew(recovered, "previews")) << place;
        EXPECT_TRUE(MadeAnew(recovered, "point count and limits")) << place;
        EXPECT_EQ(ErrorsOf(recovered), 0U) << place;
    }
}

TEST_F(RecoverHashed, RecoveringTheResultChangesNothing) {
    Bytes damaged = original;
    const StoredChunk& hit = Of(kxbase::Class, 0, 1);
    Zero(damaged, hit.data, hit.end);
    const Recovered once(damaged);
    const Recovered twice(once.out.GetBytes());
    EXPECT_EQ(twice.report.chunksLost, 0U);
    EXPECT_EQ(twice.report.pointsSaved, once.report.pointsSaved);
    const auto end = MainHeaderOf(once.out.GetBytes()).chunkDataEndPosition;
    EXPECT_EQ(Piece(twice.out.GetBytes(), 92, end), Piece(once.out.GetBytes(), 92, end));
    for (const ComponentType component : once.reader.GetAvailablePreviews())
        EXPECT_EQ(StoredPreview(twice.reader, component), StoredPreview(once.reader, component));
}

}  // namespace
