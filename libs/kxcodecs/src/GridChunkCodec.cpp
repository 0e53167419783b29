// SPDX-License-Identifier: MIT
#include "kxcodecs/GridChunkCodec.h"

#include "ByteFilter.h"
#include "ZstdFrame.h"
#include "grid/GridDecode.h"
#include "grid/GridPayload.h"
#include "grid/GridPlan.h"
#include "grid/GridResiduals.h"
#include "grid/GridSource.h"
#include "kxbase/ByteReader.h"

namespace kxcodecs {
namespace {

// Levels of what the grid form does not help.
constexpr int kFastFilterLevel = 1;
constexpr int kBalancedFilterLevel = 3;

bool HasIntegers(uint64_t elementBytes) {
    return elementBytes == 1 || elementBytes == 2 || elementBytes == 4 || elementBytes == 8;
}

// A thread keeps its memory from one chunk to the next, but not that of a giant: getting it anew from the
// system would cost as much as the work.
constexpr uint64_t kMostKeptCells = uint64_t{1} << 20;
struct Scratch {
    grid::GridSource source;
    grid::GridPlan plan;
    grid::GridResiduals residuals;
};

bool AppendGridWith(Scratch& scratch, std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout,
                    bool fast, std::vector<unsigned char>& out) {
    using namespace grid;
    if (!TakeApart(bytes, layout.width, layout.height, true, scratch.source)) return false;
    MakePlan(scratch.source, fast, true, scratch.plan);
    if (!PartResiduals(scratch.plan, !fast, scratch.residuals)) return false;
    WritePayload(scratch.source, scratch.plan, scratch.residuals, fast ? Form::Widths : Form::Tokens,
                 bytes.size(), out);
    return true;
}

// False, with nothing appended, when the values are nothing for the grid form.
bool AppendGrid(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout, bool fast,
                std::vector<unsigned char>& out) {
    if (bytes.empty() || !HasIntegers(layout.ElementBytes())) return false;
    if (layout.ElementCount() > kMostKeptCells) {
        Scratch scratch;
        return AppendGridWith(scratch, bytes, layout, fast, out);
    }
    thread_local Scratch scratch;
    return AppendGridWith(scratch, bytes, layout, fast, out);
}

}  // namespace

GridChunkCodec::~GridChunkCodec() = default;

void GridChunkCodec::SetCompressionLevel(int level) {
    m_mode = level <= 3 ? Mode::Fast : Mode::Balanced;
}

void GridChunkCodec::EncodePayload(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout,
                                   std::vector<unsigned char>& out) const {
    const bool fast = m_mode == Mode::Fast;
    const std::size_t start = out.size();
    if (AppendGrid(bytes, layout, fast, out) && out.size() - start < bytes.size() / 4 * 3) return;
    std::vector<unsigned char> filtered;
    filtered.push_back(static_cast<unsigned char>(grid::Form::Filtered));
    AppendFiltered(bytes, layout.width, layout.height, fast ? kFastFilterLevel : kBalancedFilterLevel,
                   filtered);
    if (out.size() > start && out.size() - start <= filtered.size()) return;
    out.resize(start);
    out.insert(out.end(), filtered.begin(), filtered.end());
}

bool GridChunkCodec::CanHold(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout) const {
    return !payload.empty() && payload[0] <= static_cast<unsigned char>(grid::Form::Tokens) &&
           layout.uncompressedBytes <= payload.size() * kMostZstdExpansion &&
           layout.uncompressedBytes == layout.decodedBytes;
}

bool GridChunkCodec::DecodePayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                                   std::span<unsigned char> out) const {
    try {
        if (payload[0] == static_cast<unsigned char>(grid::Form::Filtered))
            return UnpackFiltered(payload.subspan(1), layout.width, layout.height, out);
        if (!HasIntegers(layout.ElementBytes())) return false;
        return grid::DecodeGrid(payload, layout, out);
    } catch (const kxbase::ByteRangeException&) {
        return false;
    }
}

}  // namespace kxcodecs
