// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxbase/CylindricalTopology.h"
#include "kxbase/Date.h"
#include "kxbase/GridTopology.h"
#include "kxbase/IOutFileStream.h"
#include "kxbase/kxOutFile.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/IntegrityExtendedHeader.h"
#include "kxio/LookupTableHeader.h"
#include "kxio/MainFileHeader.h"
#include "kxio/MinMaxHeader.h"
#include "kxio/PatchProcessor.h"
#include "kxio/ScanProperties.h"
#include "kxio/ThumbnailHeader.h"
#include "writer/BufferPool.h"
#include "writer/HistogramRecords.h"
#include "writer/PatchHistograms.h"
#include "writer/PatchPlace.h"

namespace kxcodecs {
class QKXChunkCodec;
}

namespace kxio {

struct PatchDescriptor;
class ExtendedHeader;

/// How the grid was described at creation.
enum class TopologyMode : uint32_t { Grid = 0, Cylindrical = 1, None = 2 };

/// What `QSNScanWriter` does. Sources, by idea: ...Impl.cpp creation, setters, release; ...Intake.cpp one
/// patch position and its list of descriptors; ...Patches.cpp what a descriptor of each kind does;
/// ...Chunks.cpp chunks, previews and empty patches on their way to the stream; ...Thumbnail.cpp;
/// ...Tail.cpp the end of creation;
/// ...Integrity.cpp the hashes of what was written.
class QSNScanWriterImpl : public PatchProcessor {
public:
    QSNScanWriterImpl();
    ~QSNScanWriterImpl() override;
    QSNScanWriterImpl(const QSNScanWriterImpl&) = delete;
    QSNScanWriterImpl& operator=(const QSNScanWriterImpl&) = delete;

    void CreateNew(const std::wstring& path, const kxbase::GridTopology& topology, TopologyMode mode);
    void CreateNew(kxbase::IOutFileStream* stream, const kxbase::GridTopology& topology, TopologyMode mode);
    static kxbase::GridTopology ToGrid(const kxbase::CylindricalTopology& topology);
    static kxbase::GridTopology NoGrid();

    ScanProperties& Properties() { return m_properties; }
    void SetPointcount(uint64_t count) { m_pointCount = count; }
    /// That number, or that of the points in the flat patches so far.
    uint64_t GetPointcount() const { return m_pointCount; }
    void SetCompressedThumbnail(const std::vector<unsigned char>& jpeg);
    void SetCompressedPreview(std::span<const unsigned char> chunk, kxbase::ComponentType component);
    void AddMessage(const std::wstring& text) { m_messages.push_back(text); }
    void AddWarning(const std::wstring& text) { m_warnings.push_back(text); }
    void EnableHistograms(bool enable) { m_histogramsEnabled = enable; }
    void SetIntegrity(bool wanted);

    /// For a component whose patches come encoded, from a file that is known to be right: the codec of its
    /// empty patches, borrowed, and the chunk of its preview, which is asked for when it is written and must
    /// last until the next one is asked for.
    void KeepPreview(kxbase::ComponentType component, kxcodecs::QKXChunkCodec* codec,
                     std::function<std::span<const unsigned char>()> chunk);
    /// The same for a histogram; asked for when the record is written. Null: there is none.
    void KeepHistogram(std::function<std::unique_ptr<ExtendedHeader>()> record) {
        m_keptHistograms.push_back(std::move(record));
    }

    void AddPatch(const std::vector<PatchDescriptor*>& descriptors, uint32_t row, uint32_t column);
    void AddPatch(const std::vector<PatchDescriptor*>& descriptors, uint32_t index);
    std::map<std::string, uint64_t> EndCreation();

    void ProcessEmpty(EmptyPatchDescriptor* descriptor, unsigned row, unsigned column) override;
    void ProcessFlat(FlatPatchDescriptor* descriptor, unsigned row, unsigned column) override;
    void ProcessEncoded(EncodedPatchDescriptor* descriptor, unsigned row, unsigned column) override;

private:
    enum class State { Constructed, Created, Ended };

    // The preview image is shared with threads that are sampling into it, so that a component whose value
    // size changes gets a new image without pulling the old one away from them.
    struct PreviewInfo {
        uint32_t orientation = 0;
        uint64_t pixelLength = 0;  // of the last descriptor that told one; 0 = unknown
        std::shared_ptr<std::vector<unsigned char>> image;
        std::function<std::span<const unsigned char>()> kept;  // a chunk to be written instead of the image
    };

    // Creation and release.
    void RequireCreated() const;
    void BeginFile();
    void SetUpPreviews();
    // A grid with rows and columns, whose height was known from the start.
    bool HasPreviews(const kxbase::GridTopology& grid) const;
    std::string StreamName() const;

    // Intake.
    kxbase::GridTopology GridSnapshot();
    uint32_t GrowGrid(uint32_t row, uint32_t column);
    PatchPlace Locate(uint32_t row, uint32_t column);
    uint32_t CheckPosition(const kxbase::GridTopology& grid, uint32_t row, uint32_t column) const;
    void Intake(const std::vector<PatchDescriptor*>& descriptors, uint32_t row, uint32_t column);
    void MarkWritten(kxbase::ComponentType component, uint32_t index, const kxbase::GridTopology& grid);
    void NotePixelLength(kxbase::ComponentType component, uint64_t pixelLength);
    void SampleIntoPreview(const FlatPatchDescriptor& descriptor, std::span<const unsigned char> values,
                           const PatchPlace& place);
    void TakeLimits(const FlatPatchDescriptor& descriptor, std::span<const unsigned char> values,
                    const PatchPlace& place);

    void StoreLimits(uint32_t index, const MinMaxPair& pair);

    // Chunks.
    class Turn;
    /// Everything about a flat patch but its writing; `chunk` becomes its bytes.
    PatchPlace EncodeFlat(const FlatPatchDescriptor& descriptor, unsigned row, unsigned column,
                          std::vector<unsigned char>& chunk);
    void WriteChunk(kxbase::ComponentType component, std::span<const unsigned char> bytes,
                    const PatchPlace& place);
    void WriteEmpty(kxbase::ComponentType component, uint64_t pixelLength,
                    const kxcodecs::QKXChunkCodec* codec, const PatchPlace& place);
    LookupEntry WriteSharedEmptyChunk(kxbase::ComponentType component, uint64_t pixelLength,
                                      const kxcodecs::QKXChunkCodec* codec, const kxbase::GridTopology& grid);
    LookupEntry AppendChunk(DataChunkHeader& header, std::span<const unsigned char> bytes);
    void NoteSpan(uint64_t position, std::span<const unsigned char> bytes);
    void NotePreviewHeader(uint64_t position, std::span<const unsigned char> chunk);
    void StoreEntry(kxbase::ComponentType component, const LookupEntry& entry, uint64_t tableSize);
    void WritePreview(std::span<const unsigned char> chunk, kxbase::ComponentType component);

    // End of creation.
    void FillMissingPatches();
    void WriteScanHeader();
    void WriteLookupTable(LookupTable& table, uint64_t& position);
    void WriteThumbnail();
    bool ThumbnailFrom(kxbase::ComponentType component);
    void WritePreviewsAndLimits();
    void WriteExtendedHeaders();
    std::vector<std::unique_ptr<ExtendedHeader>> MakeExtendedHeaders(
        const std::vector<std::wstring>& histogramWarnings) const;
    void RewriteMainHeader();
    void WriteRecord(kxbase::IOHeader& record);
    void WriteHistogram(PackedHistogram& histogram, uint64_t link);
    void WriteIntegrity();

    // The scan.
    bool m_heightKnown = false;
    TopologyMode m_topologyMode = TopologyMode::Grid;
    bool m_histogramsEnabled = true;
    std::map<std::string, uint64_t> m_statistics;
    std::map<kxbase::ComponentType, kxcodecs::QKXChunkCodec*> m_codecs;  // borrowed
    std::unique_ptr<kxbase::kxOutFile> m_ownedFile;                      // when this writer opened a path
    kxbase::IOutFileStream* m_stream = nullptr;
    ThumbnailHeader m_thumbnail;
    bool m_thumbnailSupplied = false;
    uint32_t m_previewWidth = 0;
    uint32_t m_previewHeight = 0;
    std::atomic<uint64_t> m_pointCount = 0;
    MainFileHeader m_mainHeader;
    ScanProperties m_properties;
    std::map<kxbase::ComponentType, PreviewInfo> m_previewInfo;
    std::vector<unsigned char> m_joined;  // a record and its chunk, with the stream lock held
    LookupTable m_chunkLookup;
    std::map<kxbase::ComponentType, LookupEntry> m_emptyChunks;
    std::vector<MinMaxPair> m_limits;
    LookupTable m_previewLookup;
    std::map<kxbase::ComponentType, std::vector<bool>> m_writtenPatches;
    kxbase::Date m_startTime;
    kxbase::Date m_endTime;
    std::list<std::wstring> m_messages;
    std::list<std::wstring> m_warnings;
    PatchHistograms m_histograms;
    std::vector<std::function<std::unique_ptr<ExtendedHeader>()>> m_keptHistograms;
    bool m_integrityWanted = false;
    std::vector<IntegritySpan> m_headerSpans;  // of records, where integrity is wanted
    std::vector<IntegritySpan> m_chunkSpans;   // of chunks, previews, thumbnail and histograms

    State m_state = State::Constructed;
    // Guards the size of the grid, which grows with the patches of an open-ended scan.
    std::mutex m_gridMutex;
    BufferPool m_buffers;
};

/// Encodes with step 1.0; with Snappy when `codec` is null, fails, or yields nothing.
void EncodeOrSnappy(const kxcodecs::QKXChunkCodec* codec, std::span<const unsigned char> bytes,
                    uint32_t width, uint32_t height, std::vector<unsigned char>& out);

}  // namespace kxio
