// SPDX-License-Identifier: MIT
#include "kxcodecs/GridChunkCodec.h"

#include <new>

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

// False, with nothing appended, when the values are nothing for the grid form.
bool AppendGrid(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout, bool fast, bool ranks,
                bool& ranked, std::vector<unsigned char>& out) {
    using namespace grid;
    if (bytes.empty() || !HasIntegers(layout.ElementBytes())) return false;
    GridSource source;
    if (!TakeApart(bytes, layout.width, layout.height, ranks, source)) return false;
    ranked = source.map == ValueMap::Ranks;
    GridPlan plan;
    MakePlan(source, layout.width, layout.height, fast, plan);
    GridResiduals residuals;
    if (!PartResiduals(plan, !fast, residuals)) return false;
    WritePayload(source, plan, residuals, fast ? Form::Widths : Form::Tokens, bytes.size(), out);
    return true;
}

// Ranks help numbers whose neighbours among the values have nothing to do with each other; those of a regular
// grid, which leave gaps too, are foretold better as they are. Only trying tells.
bool AppendBetterGrid(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout, bool fast,
                      std::vector<unsigned char>& out) {
    bool ranked = false;
    const std::size_t start = out.size();
    const bool made = AppendGrid(bytes, layout, fast, true, ranked, out);
    if (!ranked || fast || layout.ElementBytes() < 4) return made;
    std::vector<unsigned char> other;
    if (AppendGrid(bytes, layout, fast, false, ranked, other) &&
        (!made || other.size() < out.size() - start)) {
        out.resize(start);
        out.insert(out.end(), other.begin(), other.end());
        return true;
    }
    return made;
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
    if (AppendBetterGrid(bytes, layout, fast, out) && out.size() - start < bytes.size() / 2) return;
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
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const kxbase::ByteRangeException&) {
        return false;
    }
}

}  // namespace kxcodecs
