// SPDX-License-Identifier: MIT
#include "format/HeaderPieces.h"

#include <algorithm>
#include <array>

#include "format/Hash64.h"
#include "kxbase/RegistrationInformation.h"
#include "kxio/HistogramHeader.h"
#include "kxio/ThumbnailHeader.h"

namespace kxio {

namespace {

constexpr uint32_t kFrame = kxbase::IOHeader::FrameSize;
// In scan headers since version 210 the registration begins behind 52 bytes of other fields.
constexpr uint32_t kFirstVersionWithRegistration = 210;
constexpr uint32_t kRegistrationOffset = 52;

}  // namespace

HeaderPiece RegistrationPiece(const ScanHeader& header) {
    constexpr uint32_t kBytes = kxbase::RegistrationInformation::ByteSize;
    const bool held = header.GetVersion() >= kFirstVersionWithRegistration &&
                      header.HeaderSize() >= kFrame + kRegistrationOffset + kBytes;
    return held ? HeaderPiece{kFrame + kRegistrationOffset, kBytes} : HeaderPiece{};
}

HeaderPiece SpecklePiece(const ScanHeader& header) {
    const uint32_t offset = header.GetSpeckleOffset();
    return offset == 0 ? HeaderPiece{} : HeaderPiece{kFrame + offset, 1};
}

void AddHeaderSpans(const kxbase::IOHeader& record, uint64_t position, std::span<const unsigned char> bytes,
                    std::vector<IntegritySpan>& headers, std::vector<IntegritySpan>& others) {
    const auto add = [&](std::vector<IntegritySpan>& spans, uint64_t offset, uint64_t count) {
        if (count != 0) spans.push_back({position + offset, count, Hash64(bytes.subspan(offset, count))});
    };
    const auto* extended = dynamic_cast<const ExtendedHeader*>(&record);
    const bool isHistogram = extended != nullptr && HistogramComponent(extended->GetType());
    if (isHistogram || record.GetMagic() == ThumbnailHeader::Magic) {
        add(others, 0, bytes.size());
        if (isHistogram) add(headers, 0, std::min<uint64_t>(bytes.size(), kHistogramHeadBytes));
        return;
    }
    uint64_t done = 0;
    if (const auto* scan = dynamic_cast<const ScanHeader*>(&record)) {
        std::array pieces{RegistrationPiece(*scan), SpecklePiece(*scan)};
        std::sort(pieces.begin(), pieces.end(),
                  [](const HeaderPiece& a, const HeaderPiece& b) { return a.offset < b.offset; });
        for (const HeaderPiece& piece : pieces) {
            if (piece.byteCount == 0 || piece.offset < done ||
                uint64_t{piece.offset} + piece.byteCount > bytes.size()) {
                continue;
            }
            add(headers, done, piece.offset - done);
            add(headers, piece.offset, piece.byteCount);
            done = uint64_t{piece.offset} + piece.byteCount;
        }
    }
    add(headers, done, bytes.size() - done);
}

}  // namespace kxio
