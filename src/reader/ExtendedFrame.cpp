// SPDX-License-Identifier: MIT
#include "reader/ExtendedFrame.h"

#include <array>
#include <span>

#include "kxbase/ByteReader.h"
#include "kxbase/Sizes.h"

namespace kxio {

std::optional<ExtendedFrame> PeekExtended(kxbase::IInFileStream& in) {
    const uint64_t start = in.Tell();
    std::array<unsigned char, ExtendedFrame::kBytes> bytes{};
    const uint64_t got = in.Read(bytes.data(), bytes.size());
    in.Seek(start);
    if (got != bytes.size()) return std::nullopt;
    const auto view = std::span<const unsigned char>(bytes);
    const kxbase::RecordFrame frame = kxbase::IOHeader::DecodeFrame(view);
    kxbase::ByteReader fields(view.subspan(kxbase::IOHeader::FrameSize));
    ExtendedFrame found;
    found.position = start;
    found.version = frame.version;
    found.link = fields.U64("link");
    found.type = fields.U64("type tag");
    found.dataBytes = fields.U32("data length");
    found.recordBytes = kxbase::SizeSum(kxbase::IOHeader::FrameSize, frame.payloadSize);
    const bool whole = frame.tag == ExtendedHeader::Magic &&
                       ExtendedHeader::FixedSize + found.dataBytes <= frame.payloadSize &&
                       found.recordBytes <= in.GetSize() - start;
    return whole ? std::optional(found) : std::nullopt;
}

std::optional<ExtendedFrame> PeekExtended(kxbase::IInFileStream& in, uint64_t position) {
    return in.Seek(position) ? PeekExtended(in) : std::nullopt;
}

}  // namespace kxio
