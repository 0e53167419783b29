// SPDX-License-Identifier: MIT
// Previews and the thumbnail.
#include <algorithm>

#include "format/PendingEdit.h"
#include "kxbase/Sizes.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxcodecs/JPEG.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ThumbnailHeader.h"
#include "reader/PositionedInput.h"
#include "reader/RecordAt.h"

namespace kxio {

namespace {

// Stands in for a thumbnail that cannot be had: a uniform dark grey.
constexpr unsigned kPlaceholderSide = 100;
constexpr unsigned char kPlaceholderGrey = 40;

bool Placeholder(std::vector<unsigned char>& out, unsigned& width, unsigned& height) {
    width = kPlaceholderSide;
    height = kPlaceholderSide;
    out.assign(kxbase::SizeProduct(kPlaceholderSide, kPlaceholderSide, 3), kPlaceholderGrey);
    return false;
}

bool DecodeThumbnail(const std::vector<unsigned char>& jpeg, const Limits& limits,
                     std::vector<unsigned char>& out, unsigned& width, unsigned& height) {
    if (!kxcodecs::JPEG::ReadSize(jpeg.data(), jpeg.size(), width, height) ||
        kxbase::SizeProduct(width, height) > limits.thumbnailPixels) {
        return false;
    }
    unsigned char* pixels = nullptr;
    uint64_t bytes = 0;
    if (!kxcodecs::JPEG::Decode(jpeg.data(), jpeg.size(), pixels, bytes, width, height)) return false;
    const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owner(pixels, kxcodecs::JPEG::Free);
    if (bytes != kxbase::SizeProduct(width, height, 3)) return false;
    out.assign(pixels, pixels + bytes);
    return true;
}

// `alone`: no reader has looked whether the file's last edit was interrupted.
// The main header is read again, wherever the thumbnail is asked for: a file that was edited names its new
// one.
bool ReadThumbnail(const PositionedInput& input, bool alone, const Limits& limits,
                   std::vector<unsigned char>& out) {
    out.clear();
    try {
        const uint64_t size = input.Size();
        InputWindow stored(input, size, 0);
        const auto edit = alone ? FindPendingEdit(stored, size) : std::nullopt;
        const PositionedInput edited{input.file, input.stream, edit ? &*edit : input.edit};
        InputWindow records(edited, edit ? edit->position : size, 0);
        MainFileHeader mainHeader;
        if (!ReadRecordAt(&records, 0, mainHeader) || mainHeader.thumbnailHeaderPosition == 0) return false;
        ThumbnailHeader thumbnail;
        thumbnail.LimitPayload(limits.recordBytes, "recordBytes");
        if (!ReadRecordAt(&records, mainHeader.thumbnailHeaderPosition, thumbnail)) return false;
        out = thumbnail.GetCompressed();
        return true;
    } catch (const kxbase::KXException&) {
        out.clear();
        return false;
    }
}

bool ThumbnailOrPlaceholder(const PositionedInput& input, std::vector<unsigned char>& out, unsigned& width,
                            unsigned& height) {
    std::vector<unsigned char> jpeg;
    const Limits limits;
    if (ReadThumbnail(input, true, limits, jpeg) && DecodeThumbnail(jpeg, limits, out, width, height))
        return true;
    return Placeholder(out, width, height);
}

void RequireOpen(const kxbase::kxInFile& file, const std::wstring& path) {
    if (file.IsOpen()) return;
    kxbase::ErrorContext context;
    context.file = kxbase::Encode_UTF8(path);
    throw kxbase::KXHeaderReadingException("Cannot open file", context);
}

}  // namespace

void QSNScanReader::GetCompressedPreview(std::vector<unsigned char>& out,
                                         kxbase::ComponentType component) const {
    ReadPreviewChunk(out, component, UINT32_MAX);
}

// The chunk up to `maxBytes`; all of it must be there.
void QSNScanReader::ReadPreviewChunk(std::vector<unsigned char>& out, kxbase::ComponentType component,
                                     uint64_t maxBytes) const {
    out.clear();
    kxbase::ErrorContext context = FileContext();
    context.record = "preview of component " + kxbase::ComponentToString(component);
    const auto entries = m_previewTable.find(component);
    if (entries == m_previewTable.end() || entries->second.empty() || entries->second.front().position == 0 ||
        entries->second.front().byteCount == 0) {
        context.detail = "the file has none";
        throw kxbase::KXUnreadablePatchException("Patch not in file", context);
    }
    try {
        const LookupEntry& entry = entries->second.front();
        RequireBytes(entry.position, entry.byteCount);
        ReadBytes(entry.position, std::min<uint64_t>(entry.byteCount, maxBytes), out);
        RequireIntact(entry.position, out);
    } catch (kxbase::KXException& e) {
        out.clear();
        e.AddContext(context);
        throw;
    }
}

bool QSNScanReader::GetThumbnailJPEG(kxbase::IInFileStream* stream, std::vector<unsigned char>& out) {
    return ReadThumbnail({nullptr, stream}, true, {}, out);
}

bool QSNScanReader::GetThumbnailJPEG(const std::wstring& path, std::vector<unsigned char>& out) {
    kxbase::kxInFile file(path);
    RequireOpen(file, path);
    return ReadThumbnail({&file, &file}, true, {}, out);
}

bool QSNScanReader::GetThumbnailJPEG(std::vector<unsigned char>& out) const {
    out.clear();
    try {
        RequireIntactRecord(m_mainHeader.thumbnailHeaderPosition);
    } catch (const kxbase::KXException&) {
        return false;
    }
    return ReadThumbnail(Input(), false, m_limits, out);
}

bool QSNScanReader::GetThumbnailRGB(kxbase::IInFileStream* stream, std::vector<unsigned char>& out,
                                    unsigned& width, unsigned& height) {
    return ThumbnailOrPlaceholder({nullptr, stream}, out, width, height);
}

bool QSNScanReader::GetThumbnailRGB(const std::wstring& path, std::vector<unsigned char>& out,
                                    unsigned& width, unsigned& height) {
    kxbase::kxInFile file(path);
    RequireOpen(file, path);
    return ThumbnailOrPlaceholder({&file, &file}, out, width, height);
}

bool QSNScanReader::GetThumbnailRGB(std::vector<unsigned char>& out, unsigned& width,
                                    unsigned& height) const {
    std::vector<unsigned char> jpeg;
    if (GetThumbnailJPEG(jpeg) && DecodeThumbnail(jpeg, m_limits, out, width, height)) return true;
    return Placeholder(out, width, height);
}

}  // namespace kxio
