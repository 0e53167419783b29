// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kxio/QSNScanWriter.h"
#include "kxio/RecoverToFile.h"
#include "services/AngleFit.h"
#include "services/FileWindow.h"
#include "services/GridDecision.h"
#include "services/HashEvidence.h"
#include "services/RecordSurvey.h"
#include "services/SalvagedProperties.h"
#include "services/SettledInput.h"
#include "services/StoredChunkCodec.h"
#include "services/TableEvidence.h"

namespace kxio {

/// One recovery, from the survey of the damaged file to the last record of the new one. For a single `Run`.
class ScanRebuild {
public:
    ScanRebuild(kxbase::IInFileStream& in, kxbase::IOutFileStream& out, const RecoveryOptions& options);
    ~ScanRebuild();

    RecoveryReport Run();

private:
    // Finding.
    void Gather();
    void AddListedChunks(uint32_t patchesPerRow);
    void AddUnlistedChunks();
    void KeepCommonComponents();
    void CountFound();
    void TrimGrid();
    bool ReadValues(const FoundChunk& chunk, kxcodecs::ChunkHeaderInfo& header);

    // Writing.
    void Create();
    bool MakesHistograms() const;
    void SetPreviewSize(kxbase::GridTopology& grid) const;
    void WritePatches();
    bool WritePatch(const FoundChunk& chunk);
    void FindWholeComponents();
    void KeepWhole(kxbase::ComponentType component, uint64_t codecId);
    bool CopyChunk(const FoundChunk& chunk);
    bool MayBePreviewed(kxbase::ComponentType component, uint64_t elementBytes);
    void NoteAngles(const FoundChunk& chunk, const kxcodecs::ChunkHeaderInfo& header);
    void KeepWidthWithoutGrid();
    void SetAngles();
    void SetProperties();
    void AppendFurtherRecords();
    void CompleteReport();

    void Progress(uint64_t done);

    SettledInput m_in;
    FileWindow m_file;
    kxbase::IOutFileStream& m_out;
    const RecoveryOptions& m_options;
    RecoveryReport m_report;

    Survey m_survey;
    std::unique_ptr<TableEvidence> m_table;
    SalvagedProperties m_salvaged;
    std::vector<FoundChunk> m_candidates;  // best first within each patch and component
    GridDecision m_decision;
    HashEvidence m_hashes;

    QSNScanWriter m_writer;
    std::map<kxbase::ComponentType, RecoveredComponent> m_components;
    std::map<kxbase::ComponentType, std::unique_ptr<StoredChunkCodec>> m_codecs;
    std::map<kxbase::ComponentType, uint64_t> m_previewElementBytes;
    uint64_t m_previewBytesLeft;
    uint64_t m_readBudget;
    AngleFit m_columnAngles;
    AngleFit m_rowAngles;
    std::vector<unsigned char> m_chunk;
    std::vector<unsigned char> m_values;
};

}  // namespace kxio
