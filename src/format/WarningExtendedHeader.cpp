// SPDX-License-Identifier: MIT
#include "kxio/WarningExtendedHeader.h"

namespace kxio {

WarningExtendedHeader::WarningExtendedHeader(const std::wstring& text) : CommentExtendedHeader(Type, text) {}
WarningExtendedHeader::WarningExtendedHeader(const ExtendedHeader& record)
    : CommentExtendedHeader(Type, record) {}

const char* WarningExtendedHeader::GetRecordName() const {
    return "WarningExtendedHeader";
}

}  // namespace kxio
