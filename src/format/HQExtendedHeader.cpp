// SPDX-License-Identifier: MIT
#include "kxio/HQExtendedHeader.h"

namespace kxio {

HQExtendedHeader::HQExtendedHeader(const std::wstring& text) : CommentExtendedHeader(Type, text) {}
HQExtendedHeader::HQExtendedHeader(const ExtendedHeader& record) : CommentExtendedHeader(Type, record) {}
HQExtendedHeader::HQExtendedHeader(const kxbase::UUID& scan)
    : CommentExtendedHeader(Type, scan.ToWString()) {}

kxbase::UUID HQExtendedHeader::GetUUID() const {
    return kxbase::UUID(Message());
}

const char* HQExtendedHeader::GetRecordName() const {
    return "HQExtendedHeader";
}

}  // namespace kxio
