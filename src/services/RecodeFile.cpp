// SPDX-License-Identifier: MIT
#include "kxio/RecodeFile.h"

#include <omp.h>

#include <algorithm>
#include <filesystem>
#include <future>
#include <map>
#include <optional>
#include <system_error>

#include "format/IntegrityTable.h"
#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxcodecs/ChunkCodecFactory.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/ComponentHeader.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/ExtendedHeader.h"
#include "kxio/ProtectFile.h"
#include "kxio/QSNScanReader.h"
#include "reader/ExtendedFrame.h"
#include "reader/PatchTasks.h"
#include "services/FileLayout.h"
#include "services/HashOfBytes.h"
#include "services/IntegrityEdit.h"
#include "services/PartialFile.h"

namespace kxio {

namespace {

using kxbase::ComponentType;
using kxcodecs::QKXChunkCodec;
using Bytes = std::vector<unsigned char>;

constexpr uint64_t kFrame = kxbase::IOHeader::FrameSize;
constexpr uint64_t kCopyBytes = uint64_t{1} << 20;
/// Stored bytes of one batch, besides the one chunk that may be larger. Three batches are held at once: one
/// is read, one coded, one written.
constexpr uint64_t kBatchBytes = uint64_t{24} << 20;
constexpr uint64_t kChunksPerThread = 8;

/// A piece of the input and what became of it.
struct Moved {
    FilePiece piece;
    bool listed = false;  // a chunk that the lookup table names
    uint64_t newOffset = 0;
    uint64_t newBytes = 0;
};

/// A chunk on its way.
struct Job {
    size_t moved = 0;  // its place in the list
    Bytes chunk;       // as it is stored, afterwards as it will be
    bool recoded = false;
};

/// Listed chunks that follow one another in the file, and are coded together.
struct Batch {
    size_t begin = 0;  // of the list of pieces
    size_t end = 0;
    std::vector<Job> jobs;
};

class Recoder {
public:
    Recoder(const std::wstring& input, kxbase::kxInFile& in, kxbase::kxOutFile& out,
            const RecodeOptions& options)
        : m_name(kxbase::Encode_UTF8(input)),
          m_in(in),
          m_file(in),
          m_out(out),
          m_options(options),
          m_threads(options.threads != 0 ? options.threads
                                         : static_cast<unsigned>(std::max(1, omp_get_num_procs()))) {}

    RecodeReport Run();

private:
    [[noreturn]] void Damaged(uint64_t offset, std::string detail) const;
    void Progress(uint64_t done) const {
        if (m_options.progress) m_options.progress(done, 2 * m_in.GetSize());
    }
    void CheckHashes();
    void ListPieces(const FileLayout& layout);
    void DropOldHashes();
    void CopyPiece(Moved& moved);
    void MovePieces();
    Batch ReadBatch(size_t from);
    void CodeBatch(Batch& batch) const;
    void WriteUpTo(const Batch& batch);
    void Recode(Job& job, PatchBuffers& buffers) const;
    void WriteChunk(const Job& job);
    uint64_t NewPosition(uint64_t position) const;
    const Moved* PieceHolding(uint64_t position) const;
    Moved* PieceAt(uint64_t position);
    void Overwrite(uint64_t position, std::span<const unsigned char> bytes);
    void AdjustMainHeader();
    void AdjustTable(uint64_t position);
    void AdjustComponentRecords();
    void AdjustLinks();
    RecodedComponent& Of(ComponentType component);

    const std::string m_name;
    kxbase::kxInFile& m_in;
    FileWindow m_file;
    kxbase::kxOutFile& m_out;
    const RecodeOptions& m_options;
    const unsigned m_threads;
    MainFileHeader m_main;
    std::vector<Moved> m_pieces;  // by offset, without a gap
    size_t m_unwritten = 0;       // the first piece that is not in the new file yet
    uint64_t m_written = 0;
    std::map<ComponentType, uint64_t> m_newCodecs;
    std::map<ComponentType, RecodedComponent> m_components;
    RecodeReport m_report;
};

void Recoder::Damaged(uint64_t offset, std::string detail) const {
    kxbase::ErrorContext context;
    context.file = m_name;
    context.offset = offset;
    context.detail = std::move(detail);
    throw kxbase::KXBadInputException("File is damaged", context);
}

RecodedComponent& Recoder::Of(ComponentType component) {
    RecodedComponent& found = m_components[component];
    found.component = component;
    return found;
}

// A hash that is made anew calls a damaged byte right for ever, so the old ones are asked before.
void Recoder::CheckHashes() {
    const IntegrityTable integrity = LoadIntegrity(m_in, m_main);
    m_report.hashesMadeAnew = integrity.Present();
    const auto check = [&](const IntegritySpan& span) {
        const auto hash = [&] { return HashOfBytes(m_file, span.position, span.byteCount); };
        if (integrity.Check(span.position, span.byteCount, hash) != IntegrityTable::Verdict::Right)
            Damaged(span.position, "the bytes do not match their hash");
        return true;
    };
    if (!integrity.EachPiece(m_in.GetSize(), true, check))
        Damaged(integrity.Newest(), "the hashes list more bytes than the file has");
}

void Recoder::ListPieces(const FileLayout& layout) {
    std::map<uint64_t, uint32_t> listed;
    for (const auto& [component, entries] : layout.patches) {
        for (const LookupEntry& entry : entries) {
            if (entry.position == 0 || entry.byteCount == 0) continue;
            if (entry.position > m_in.GetSize() || entry.byteCount > m_in.GetSize() - entry.position)
                Damaged(entry.position, "the lookup table names a chunk beyond the end of the file");
            listed[entry.position] = entry.byteCount;
        }
    }
    uint64_t end = 0;
    for (const FilePiece& piece : layout.pieces) {
        if (piece.chunk.trust == ChunkTrust::Repaired)
            Damaged(piece.offset, "the record of a chunk cannot be read");
        if (piece.cut) Damaged(piece.offset, "the file ends inside a piece");
        if (piece.offset != end) Damaged(piece.offset, "two pieces of the file overlap");
        end = piece.End();
        Moved moved{piece, false, 0, 0};
        if (piece.kind == PieceKind::Chunk || piece.kind == PieceKind::Listed) {
            const auto entry = listed.find(piece.chunk.dataPosition);
            moved.listed = entry != listed.end() && entry->second == piece.chunk.byteCount;
        }
        m_pieces.push_back(moved);
    }
}

// The last piece that begins at `position` or before it; null: none.
const Moved* Recoder::PieceHolding(uint64_t position) const {
    const auto next = std::upper_bound(m_pieces.begin(), m_pieces.end(), position,
                                       [](uint64_t at, const Moved& m) { return at < m.piece.offset; });
    return next == m_pieces.begin() ? nullptr : &*(next - 1);
}

Moved* Recoder::PieceAt(uint64_t position) {
    const Moved* const found = PieceHolding(position);
    if (found == nullptr || found->piece.offset != position) return nullptr;
    return &m_pieces[static_cast<size_t>(found - m_pieces.data())];
}

// Walks the chain of extended records as a reader does. A hash record that goes leaves no bytes behind.
void Recoder::DropOldHashes() {
    if (!m_report.hashesMadeAnew) return;
    Moved* const first = PieceAt(m_main.firstExtendedHeaderPosition);
    if (first == nullptr) return;
    for (auto i = static_cast<size_t>(first - m_pieces.data()); i < m_pieces.size(); ++i) {
        FilePiece& piece = m_pieces[i].piece;
        if (piece.tag != ExtendedHeader::Magic) return;
        const auto frame = PeekExtended(m_in, piece.offset);
        if (!frame) return;
        // Its place stays in the list, so that what points there comes to point to what follows.
        if (frame->type == IntegrityExtendedHeader::Type) piece.bytes = 0;
    }
}

void Recoder::CopyPiece(Moved& moved) {
    moved.newOffset = m_written;
    moved.newBytes = moved.piece.bytes;
    Bytes bytes;
    for (uint64_t at = 0; at < moved.piece.bytes; at += bytes.size()) {
        m_file.Read(moved.piece.offset + at, std::min(kCopyBytes, moved.piece.bytes - at), bytes);
        if (bytes.empty() || m_file.UnreadableBytes() != 0)
            Damaged(moved.piece.offset + at, "the file cannot be read");
        m_out.Write(bytes.data(), bytes.size());
        m_written += bytes.size();
    }
    if (moved.piece.kind == PieceKind::Chunk) {
        RecodedComponent& component = Of(moved.piece.chunk.component);
        ++component.kept;
        component.bytesBefore += moved.piece.chunk.byteCount;
        component.bytesAfter += moved.piece.chunk.byteCount;
    }
    Progress(m_in.GetSize() + moved.piece.End());
}

void Recoder::Recode(Job& job, PatchBuffers& buffers) const {
    kxcodecs::ChunkHeaderInfo header;
    if (!QKXChunkCodec::ReadHeader(job.chunk, header)) return;
    if (header.ElementBytes() == 0 || header.decodedBytes != header.uncompressedBytes ||
        !kxcodecs::ChunkCodecFactory::IsKnown(header.codecId)) {
        return;
    }
    const FilePiece& piece = m_pieces[job.moved].piece;
    const QKXChunkCodec* codec = m_options.codec ? m_options.codec(piece.chunk.component, header) : nullptr;
    if (codec == nullptr) return;
    kxbase::ErrorContext context;
    context.file = m_name;
    context.record =
        "patch in row " + std::to_string(piece.chunk.row) + ", column " + std::to_string(piece.chunk.column);
    context.field = kxbase::ComponentToString(piece.chunk.component);
    context.offset = piece.chunk.dataPosition;
    const auto status = QKXChunkCodec::DecodeChunk(job.chunk, header, buffers.values);
    if (status != kxcodecs::DecodeStatus::Decoded) {
        context.detail = kxcodecs::ToText(status);
        throw kxbase::KXUnreadablePatchException("Patch cannot be decoded", context);
    }
    Bytes made;
    codec->Encode(buffers.values.data(), header.width, header.height, buffers.values.size(), 1.0F, made);
    kxcodecs::ChunkHeaderInfo now;
    QKXChunkCodec::ReadHeader(made, now);
    now.step = header.step;
    kxcodecs::EncodeChunkHeader(now, made);
    Bytes again;
    if (QKXChunkCodec::DecodeChunk(made, now, again) != kxcodecs::DecodeStatus::Decoded ||
        again != buffers.values) {
        context.detail = kxcodecs::ChunkCodecFactory::GetName(codec->GetIdentifier());
        throw kxbase::KXBadInputException("Codec is not lossless", context);
    }
    job.chunk = std::move(made);
    job.recoded = true;
}

void Recoder::WriteChunk(const Job& job) {
    Moved& moved = m_pieces[job.moved];
    const FoundChunk& chunk = moved.piece.chunk;
    const uint64_t head = chunk.dataPosition - moved.piece.offset;
    Bytes bytes;
    m_file.Read(moved.piece.offset, head, bytes);
    if (head >= kFrame + sizeof(uint32_t)) {
        kxbase::ByteWriter(std::span<unsigned char>(bytes).subspan(kFrame))
            .U32(static_cast<uint32_t>(job.chunk.size()));
    }
    bytes.insert(bytes.end(), job.chunk.begin(), job.chunk.end());
    m_out.Write(bytes.data(), bytes.size());
    moved.newOffset = m_written;
    moved.newBytes = bytes.size();
    m_written += bytes.size();
    RecodedComponent& component = Of(chunk.component);
    ++(job.recoded ? component.recoded : component.kept);
    component.bytesBefore += chunk.byteCount;
    component.bytesAfter += job.chunk.size();
    if (!job.recoded) return;
    kxcodecs::ChunkHeaderInfo header;
    QKXChunkCodec::ReadHeader(job.chunk, header);
    m_newCodecs[chunk.component] = header.codecId;
}

// The next listed chunks behind piece number `from`; without jobs: there are no more.
Batch Recoder::ReadBatch(size_t from) {
    Batch batch;
    while (from < m_pieces.size() && !m_pieces[from].listed)
        ++from;
    batch.begin = batch.end = from;
    const uint64_t most = kChunksPerThread * m_threads;
    for (uint64_t bytes = 0; batch.end < m_pieces.size() && m_pieces[batch.end].listed; ++batch.end) {
        const FilePiece& piece = m_pieces[batch.end].piece;
        bytes += piece.bytes;
        if (!batch.jobs.empty() && (batch.jobs.size() == most || bytes > kBatchBytes)) break;
        Job& job = batch.jobs.emplace_back();
        job.moved = batch.end;
        m_file.Read(piece.chunk.dataPosition, piece.chunk.byteCount, job.chunk);
        if (m_file.UnreadableBytes() != 0) Damaged(piece.chunk.dataPosition, "the file cannot be read");
    }
    return batch;
}

void Recoder::CodeBatch(Batch& batch) const {
    RunPatchTasks(batch.jobs.size(), m_threads,
                  [&](uint64_t i, PatchBuffers& buffers) { Recode(batch.jobs[i], buffers); });
}

// The pieces that are no chunks and lie before the batch, and the batch.
void Recoder::WriteUpTo(const Batch& batch) {
    while (m_unwritten < batch.begin)
        CopyPiece(m_pieces[m_unwritten++]);
    for (const Job& job : batch.jobs)
        WriteChunk(job);
    m_unwritten = batch.end;
    if (!batch.jobs.empty()) Progress(m_in.GetSize() + m_pieces[batch.end - 1].piece.End());
}

// While one batch is coded, this thread, which alone uses the files, writes the one before and reads the
// next.
void Recoder::MovePieces() {
    Batch coded, next = ReadBatch(0);
    while (!next.jobs.empty()) {
        Batch current = std::move(next);
        std::future<void> coding;
        if (m_threads > 1) {
            try {
                coding = std::async(std::launch::async, [&] { CodeBatch(current); });
            } catch (const std::system_error&) {
                // No thread to be had: one after the other.
            }
        }
        WriteUpTo(coded);
        next = ReadBatch(current.end);
        if (coding.valid()) {
            coding.get();
        } else {
            CodeBatch(current);
        }
        coded = std::move(current);
    }
    WriteUpTo(coded);
    while (m_unwritten < m_pieces.size())
        CopyPiece(m_pieces[m_unwritten++]);
}

uint64_t Recoder::NewPosition(uint64_t position) const {
    if (position == 0) return 0;
    if (position == m_in.GetSize()) return m_written;
    const Moved* const found = PieceHolding(position);
    if (found == nullptr || position > m_in.GetSize()) Damaged(position, "a position leads out of the file");
    const Moved& moved = *found;
    const uint64_t inside = position - moved.piece.offset;
    const bool sameStart = !moved.listed || inside <= moved.piece.chunk.dataPosition - moved.piece.offset;
    if (!sameStart) Damaged(position, "a position leads into a chunk");
    return moved.newOffset + std::min(inside, moved.newBytes);
}

void Recoder::Overwrite(uint64_t position, std::span<const unsigned char> bytes) {
    if (!m_out.Seek(position)) throw kxbase::KXWritingException("Cannot write file");
    m_out.Write(bytes.data(), bytes.size());
}

void Recoder::AdjustMainHeader() {
    Bytes fields(9 * sizeof(uint64_t));
    kxbase::ByteWriter out(fields);
    for (const uint64_t position :
         {m_main.scanHeaderPosition, m_main.firstComponentHeaderPosition, m_main.firstChunkPosition,
          m_main.firstExtendedHeaderPosition, m_main.chunkDataEndPosition, m_main.thumbnailHeaderPosition,
          m_main.lookupTablePosition, m_main.previewLookupTablePosition,
          m_main.boundingInformationPosition}) {
        out.U64(NewPosition(position));
    }
    Overwrite(kFrame, fields);
}

// Bytes of the record that the table does not explain stay as they are.
void Recoder::AdjustTable(uint64_t position) {
    const Moved* const moved = position == 0 ? nullptr : PieceAt(position);
    if (moved == nullptr) return;
    Bytes bytes;
    m_file.Read(position, moved->piece.bytes, bytes);
    kxbase::ByteReader in(bytes, position, "LookupTableHeader");
    in.Skip(kFrame, "frame");
    for (uint32_t components = in.U32("number of components"); components > 0; --components) {
        in.U32("component");
        for (uint32_t entries = in.U32("number of entries"); entries > 0; --entries) {
            const uint64_t at = in.Position();
            const uint64_t chunk = in.U64("position");
            uint32_t byteCount = in.U32("byte count");
            if (chunk == 0 || byteCount == 0) continue;
            if (const Moved* const target = PieceHolding(chunk); target != nullptr && target->listed) {
                byteCount = static_cast<uint32_t>(target->newBytes -
                                                  (target->piece.chunk.dataPosition - target->piece.offset));
            }
            kxbase::ByteWriter out(std::span<unsigned char>(bytes).subspan(at));
            out.U64(NewPosition(chunk));
            out.U32(byteCount);
        }
    }
    Overwrite(moved->newOffset, bytes);
}

// The run of records, and where they lie in the payload: component, codec identifier, value.
void Recoder::AdjustComponentRecords() {
    if (m_main.firstComponentHeaderPosition == 0) return;
    for (const Moved* moved = PieceAt(m_main.firstComponentHeaderPosition);
         moved != nullptr && moved != m_pieces.data() + m_pieces.size() &&
         moved->piece.tag == ComponentHeader::Magic;
         ++moved) {
        ComponentHeader record;
        kxbase::ErrorContext ignored;
        if (!ReadRecord(m_file, moved->piece.offset, record, ignored)) return;
        const auto codec = m_newCodecs.find(record.component);
        if (codec == m_newCodecs.end()) continue;
        Bytes field(sizeof(uint64_t));
        kxbase::ByteWriter(field).U64(codec->second);
        Overwrite(moved->newOffset + kFrame + sizeof(uint32_t), field);
    }
}

void Recoder::AdjustLinks() {
    if (m_main.firstExtendedHeaderPosition == 0) return;
    for (const Moved* moved = PieceAt(m_main.firstExtendedHeaderPosition);
         moved != nullptr && moved != m_pieces.data() + m_pieces.size() &&
         moved->piece.tag == ExtendedHeader::Magic;
         ++moved) {
        if (moved->newBytes == 0) continue;
        const auto frame = PeekExtended(m_in, moved->piece.offset);
        // A link that leads nowhere is not made worse.
        if (!frame || frame->link == 0 || PieceAt(frame->link) == nullptr) continue;
        Bytes field(sizeof(uint64_t));
        kxbase::ByteWriter(field).U64(NewPosition(frame->link));
        Overwrite(moved->newOffset + kFrame, field);
    }
}

RecodeReport Recoder::Run() {
    const FileLayout layout = FindLayout(m_file, [&](uint64_t bytes) { Progress(bytes); });
    if (!layout.mainHeader || layout.tablePosition != layout.mainHeader->lookupTablePosition)
        Damaged(0, "main header or lookup table cannot be read");
    m_main = *layout.mainHeader;
    m_report.bytesBefore = m_in.GetSize();
    CheckHashes();
    ListPieces(layout);
    DropOldHashes();

    MovePieces();
    AdjustMainHeader();
    AdjustTable(m_main.lookupTablePosition);
    if (m_main.previewLookupTablePosition != m_main.lookupTablePosition)
        AdjustTable(m_main.previewLookupTablePosition);
    AdjustComponentRecords();
    AdjustLinks();
    for (const auto& [component, recoded] : m_components)
        m_report.components.push_back(recoded);
    return std::move(m_report);
}

}  // namespace

RecodeReport RecodeFile(const std::wstring& input, const std::wstring& output, const RecodeOptions& options) {
    {
        const QSNScanReader whole(input);  // what does not open is said as a reader says it
        if (!whole.GetIntegrityProblems().empty())
            throw kxbase::KXBadInputException("File is damaged", whole.GetIntegrityProblems().front());
    }
    std::error_code ignored;
    if (std::filesystem::equivalent(SystemPath(input), SystemPath(output), ignored)) {
        kxbase::ErrorContext context;
        context.file = kxbase::Encode_UTF8(output);
        context.detail = "a recoding never changes its input";
        throw kxbase::KXBadInputException("Output is the input", context);
    }
    kxbase::kxInFile in(input);
    PartialFile partial(output);
    RecodeReport report = Recoder(input, in, partial.File(), options).Run();
    if (report.hashesMadeAnew) {
        partial.File().Close();
        ProtectFile(partial.Path());
    }
    report.bytesAfter = kxbase::kxInFile(partial.Path()).GetSize();
    partial.Complete();
    return report;
}

}  // namespace kxio
