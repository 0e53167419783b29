// SPDX-License-Identifier: MIT
// From a patch's address to its stored chunk, and on to its values.
#include <algorithm>
#include <cstring>

#include "kxbase/Sizes.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/QSNScanReader.h"
#include "reader/PatchDecoder.h"
#include "reader/PositionedInput.h"

namespace kxio {

namespace {

// No component has larger elements; a patch that claims more lies.
constexpr uint64_t kMaxElementBytes = 64;

}  // namespace

uint64_t QSNScanReader::MostPatchBytes() const {
    const kxbase::GridTopology& grid = m_scanProperties.grid;
    return kxbase::SizeProduct(grid.patchWidth, grid.patchHeight, kMaxElementBytes);
}

kxbase::ErrorContext QSNScanReader::PatchContext(uint64_t index, kxbase::ComponentType component) const {
    kxbase::ErrorContext context = FileContext();
    context.record = "patch " + std::to_string(index);
    if (const uint32_t perRow = m_scanProperties.grid.PatchesPerRow(); perRow != 0) {
        context.record +=
            " (row " + std::to_string(index / perRow) + ", column " + std::to_string(index % perRow) + ")";
    }
    context.record += " of component " + kxbase::ComponentToString(component);
    return context;
}

uint64_t QSNScanReader::LinearIndex(uint64_t row, uint64_t column) const {
    return m_scanProperties.grid.PatchesPerRow() * row + column;
}

const std::vector<LookupEntry>& QSNScanReader::RequireComponent(kxbase::ComponentType component) const {
    const auto entries = m_patchTable.find(component);
    if (entries == m_patchTable.end()) {
        kxbase::ErrorContext context = FileContext();
        context.detail = "the file has no component " + kxbase::ComponentToString(component);
        throw kxbase::KXUnreadablePatchException("Patch not in database", context);
    }
    return entries->second;
}

const LookupEntry& QSNScanReader::LocateChunk(uint64_t index, kxbase::ComponentType component) const {
    const uint64_t patchCount = m_scanProperties.grid.PatchCount();
    if (index >= patchCount) {
        kxbase::ErrorContext context = PatchContext(index, component);
        context.detail = "the grid has " + std::to_string(patchCount) + " patches";
        throw kxbase::KXUnreadablePatchException("Index " + std::to_string(index) + " is outside bounds",
                                                 context);
    }
    const auto entries = m_patchTable.find(component);
    const char* why = nullptr;
    if (entries == m_patchTable.end()) {
        why = "the file has no such component";
    } else if (index >= entries->second.size()) {
        why = "the lookup table ends before it";
    } else if (entries->second[index].position == 0 || entries->second[index].byteCount == 0) {
        why = "its lookup entry is empty";
    }
    if (why != nullptr) {
        kxbase::ErrorContext context = PatchContext(index, component);
        context.detail = why;
        throw kxbase::KXUnreadablePatchException("Patch not in file", context);
    }
    return entries->second[index];
}

// That the input is long enough. Only one that seems too short is asked again how long it is.
void QSNScanReader::RequireBytes(uint64_t position, uint64_t count) const {
    const auto leftOf = [position](uint64_t size) { return position < size ? size - position : 0; };
    if (count <= leftOf(m_streamBytes)) return;
    const uint64_t left = leftOf(Input().Size());
    if (count <= left) return;
    kxbase::ErrorContext context;
    context.offset = position;
    context.detail = std::to_string(count) + " bytes announced, " + std::to_string(left) + " left";
    throw kxbase::KXUnreadablePatchException("Cannot read file", context);
}

void QSNScanReader::ReadBytes(uint64_t position, uint64_t count, std::vector<unsigned char>& out) const {
    RequireBytes(position, count);
    out.resize(count);
    const uint64_t got = Input().ReadAt(position, out.data(), count);
    if (got == count) return;
    out.clear();
    kxbase::ErrorContext context;
    context.offset = position;
    context.detail = std::to_string(got) + " of " + std::to_string(count) + " bytes could be read";
    throw kxbase::KXUnreadablePatchException("Cannot read file", context);
}

void QSNScanReader::ReadChunk(uint64_t index, std::vector<unsigned char>& out,
                              kxbase::ComponentType component) const {
    try {
        const LookupEntry& entry = LocateChunk(index, component);
        ReadBytes(entry.position, entry.byteCount, out);
        RequireIntact(entry.position, out);
    } catch (kxbase::KXException& e) {
        out.clear();
        e.AddContext(PatchContext(index, component));
        throw;
    }
}

DecodedPatch QSNScanReader::DecodePatch(uint64_t index, kxbase::ComponentType component,
                                        PatchBuffers& buffers) const {
    ReadChunk(index, buffers.chunk, component);
    try {
        return DecodeChunk(buffers, m_limits, MostPatchBytes());
    } catch (kxbase::KXException& e) {
        kxbase::ErrorContext context = PatchContext(index, component);
        context.offset = LocateChunk(index, component).position;
        e.AddContext(context);
        throw;
    }
}

void QSNScanReader::GetCompressedChunk(unsigned index, std::vector<unsigned char>& out,
                                       kxbase::ComponentType component) const {
    ReadChunk(index, out, component);
}

void QSNScanReader::GetPatchCompressed(unsigned row, unsigned column, std::vector<unsigned char>& out,
                                       kxbase::ComponentType component) const {
    out.clear();
    RequireComponent(component);
    ReadChunk(LinearIndex(row, column), out, component);
}

void QSNScanReader::GetPatchCompressed(unsigned index, std::vector<unsigned char>& out,
                                       kxbase::ComponentType component) const {
    out.clear();
    RequireComponent(component);
    ReadChunk(index, out, component);
}

uint64_t QSNScanReader::GetUncompressedPatchByteCount(unsigned row, unsigned column,
                                                      kxbase::ComponentType component) const {
    std::vector<unsigned char> chunk;
    GetPatchCompressed(row, column, chunk, component);
    return kxcodecs::QKXChunkCodec::GetUncompressedSize(chunk);
}

uint64_t QSNScanReader::GetPatch(unsigned row, unsigned column, void* out, uint64_t /*outBytes*/,
                                 kxbase::ComponentType component) const {
    RequireComponent(component);
    PatchBuffers buffers;
    const DecodedPatch patch = DecodePatch(LinearIndex(row, column), component, buffers);
    std::memcpy(out, patch.bytes.data(), patch.bytes.size());
    return patch.header.ElementCount();
}

uint64_t QSNScanReader::GetPatch(unsigned index, void* out, uint64_t outBytes,
                                 kxbase::ComponentType component) const {
    const uint32_t perRow = std::max(1U, m_scanProperties.grid.PatchesPerRow());
    return GetPatch(index / perRow, index % perRow, out, outBytes, component);
}

}  // namespace kxio
