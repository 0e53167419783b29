// SPDX-License-Identifier: MIT
#include "kxio/HDRExtendedHeader.h"

namespace kxio {

HDRExtendedHeader::HDRExtendedHeader(const std::wstring& text) : CommentExtendedHeader(Type, text) {}
HDRExtendedHeader::HDRExtendedHeader(const ExtendedHeader& record) : CommentExtendedHeader(Type, record) {}
HDRExtendedHeader::HDRExtendedHeader(const kxbase::UUID& scan)
    : CommentExtendedHeader(Type, scan.ToWString()) {}

kxbase::UUID HDRExtendedHeader::GetUUID() const {
    return kxbase::UUID(Message());
}

const char* HDRExtendedHeader::GetRecordName() const {
    return "HDRExtendedHeader";
}

}  // namespace kxio
