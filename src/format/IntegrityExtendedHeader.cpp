// SPDX-License-Identifier: MIT
#include "kxio/IntegrityExtendedHeader.h"

#include <limits>
#include <utility>

#include "format/Hash64.h"
#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"
#include "kxbase/Sizes.h"

namespace kxio {

namespace {

constexpr uint32_t kLayout = 1;
constexpr uint32_t kXXH3 = 1;
constexpr uint32_t kTailBytes = 24;  // from the hash on
// Frame and fixed part of the record besides the data.
constexpr uint64_t kMostDataBytes = std::numeric_limits<uint32_t>::max() - 64;

}  // namespace

IntegrityExtendedHeader::IntegrityExtendedHeader() : IntegrityExtendedHeader({}, {}, 0) {}

IntegrityExtendedHeader::IntegrityExtendedHeader(const std::vector<IntegritySpan>& headers,
                                                 const std::vector<IntegritySpan>& others, uint64_t position,
                                                 uint64_t previous)
    : ExtendedHeader(Type) {
    const uint64_t count = uint64_t{headers.size()} + others.size();
    if (count > (kMostDataBytes - FixedBytes) / SpanBytes) {
        kxbase::ErrorContext context;
        context.record = "IntegrityExtendedHeader";
        context.detail = std::to_string(count) + " spans";
        throw kxbase::KXWritingException("Record too large", context);
    }
    std::vector<unsigned char> bytes(FixedBytes + kxbase::SizeProduct(count, SpanBytes));
    kxbase::ByteWriter out(bytes);
    out.U32(kLayout);
    out.U32(kXXH3);
    out.U64(previous);
    out.U32(static_cast<uint32_t>(headers.size()));
    out.U32(static_cast<uint32_t>(count));
    for (const auto* spans : {&headers, &others}) {
        for (const IntegritySpan& span : *spans) {
            out.U64(span.position);
            out.U64(span.byteCount);
            out.U64(span.hash);
        }
    }
    out.U64(Hash64(std::span(bytes).first(bytes.size() - kTailBytes)));
    out.U64(position);
    out.U64(Type);
    SetData(std::move(bytes));
    IntegrityExtendedHeader::DecodeData();
}

IntegrityExtendedHeader::IntegrityExtendedHeader(const ExtendedHeader& record)
    : ExtendedHeader(Type, record) {
    Decode();
}

IntegrityExtendedHeader::IntegrityExtendedHeader(ExtendedHeader&& record)
    : ExtendedHeader(Type, std::move(record)) {
    Decode();
}

void IntegrityExtendedHeader::Decode() {
    IntegrityExtendedHeader::DecodeData();
    // A record of another size than its data lets the walk over the records go astray.
    if (GetDataSize() != uint64_t{FixedSize} + GetDataBufferSize()) {
        m_intact = false;
        m_headerSpans = 0;
        m_spans.clear();
    }
}

std::vector<IntegritySpan> IntegrityExtendedHeader::TakeSpans() {
    SetData({});
    return std::move(m_spans);
}

const char* IntegrityExtendedHeader::GetRecordName() const {
    return "IntegrityExtendedHeader";
}

void IntegrityExtendedHeader::DecodeData() {
    m_intact = false;
    m_previous = 0;
    m_headerSpans = 0;
    m_spans.clear();
    const std::span<const unsigned char> data = Data();
    if (data.size() < FixedBytes) return;
    kxbase::ByteReader in = PartReader(data, FixedSize);
    const uint32_t layout = in.U32("layout");
    const uint32_t hash = in.U32("hash");
    const uint64_t previous = in.U64("previous");
    const uint32_t headers = in.U32("number of header spans");
    const uint32_t count = in.U32("number of spans");
    if (layout != kLayout || hash != kXXH3 || headers > count ||
        data.size() != kxbase::SizeSum(FixedBytes, kxbase::SizeProduct(count, SpanBytes))) {
        return;
    }
    std::vector<IntegritySpan> spans(count);
    for (IntegritySpan& span : spans) {
        span.position = in.U64("position");
        span.byteCount = in.U64("byte count");
        span.hash = in.U64("hash of the span");
    }
    const uint64_t own = in.U64("hash of the record");
    in.U64("own position");
    in.U64("type tag");
    if (own != Hash64(data.first(data.size() - kTailBytes))) return;
    m_intact = true;
    m_previous = previous;
    m_headerSpans = headers;
    m_spans = std::move(spans);
}

}  // namespace kxio
