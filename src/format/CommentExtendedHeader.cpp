// SPDX-License-Identifier: MIT
#include "kxio/CommentExtendedHeader.h"

#include <algorithm>

#include "kxbase/ByteWriter.h"
#include "kxbase/UTF8.h"

namespace kxio {

CommentExtendedHeader::CommentExtendedHeader(const std::wstring& text) : CommentExtendedHeader(Type, text) {}
CommentExtendedHeader::CommentExtendedHeader(const ExtendedHeader& record)
    : CommentExtendedHeader(Type, record) {}
CommentExtendedHeader::CommentExtendedHeader(uint64_t type, const std::wstring& text)
    : ExtendedHeader(type), m_text(text) {
    SetData(Encoded());
}
CommentExtendedHeader::CommentExtendedHeader(uint64_t type, const ExtendedHeader& record)
    : ExtendedHeader(type, record) {
    CommentExtendedHeader::DecodeData();
}

CommentExtendedHeader::CommentExtendedHeader(const CommentExtendedHeader&) = default;
CommentExtendedHeader::CommentExtendedHeader(CommentExtendedHeader&&) noexcept = default;
CommentExtendedHeader& CommentExtendedHeader::operator=(const CommentExtendedHeader&) = default;
CommentExtendedHeader& CommentExtendedHeader::operator=(CommentExtendedHeader&&) noexcept = default;
CommentExtendedHeader::~CommentExtendedHeader() = default;

const char* CommentExtendedHeader::GetRecordName() const {
    return "CommentExtendedHeader";
}

void CommentExtendedHeader::DecodeData() {
    const auto data = Data();
    const auto end = std::find(data.begin(), data.end(), 0);
    m_text = kxbase::Decode_UTF8(std::string(data.begin(), end));
    // What the data would be had this text been set: the length of a rewritten record follows from it.
    SetData(Encoded());
}

void CommentExtendedHeader::_Write(unsigned char* payload, uint32_t size) {
    FillData(Encoded());
    // A buffer that was made too small still ends in a NUL.
    if (GetDataBufferSize() != 0) GetDataBuffer()[GetDataBufferSize() - 1] = 0;
    ExtendedHeader::_Write(payload, size);
}

std::vector<unsigned char> CommentExtendedHeader::Encoded() const {
    const std::string text = kxbase::Encode_UTF8(m_text);
    std::vector<unsigned char> bytes(text.size() + 1);
    kxbase::ByteWriter(bytes).TextWithNul(text);
    return bytes;
}

}  // namespace kxio
