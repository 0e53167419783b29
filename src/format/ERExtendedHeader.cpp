// SPDX-License-Identifier: MIT
#include "kxio/ERExtendedHeader.h"

namespace kxio {

ERExtendedHeader::ERExtendedHeader(const std::wstring& text) : CommentExtendedHeader(Type, text) {}
ERExtendedHeader::ERExtendedHeader(const ExtendedHeader& record) : CommentExtendedHeader(Type, record) {}
ERExtendedHeader::ERExtendedHeader(const kxbase::UUID& scan)
    : CommentExtendedHeader(Type, scan.ToWString()) {}

kxbase::UUID ERExtendedHeader::GetUUID() const {
    return kxbase::UUID(Message());
}

const char* ERExtendedHeader::GetRecordName() const {
    return "ERExtendedHeader";
}

}  // namespace kxio
