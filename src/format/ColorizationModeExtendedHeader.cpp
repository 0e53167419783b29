// SPDX-License-Identifier: MIT
#include "kxio/ColorizationModeExtendedHeader.h"

namespace kxio {

ColorizationModeExtendedHeader::ColorizationModeExtendedHeader(const std::wstring& text)
    : CommentExtendedHeader(Type, text) {}
ColorizationModeExtendedHeader::ColorizationModeExtendedHeader(const ExtendedHeader& record)
    : CommentExtendedHeader(Type, record) {}

const char* ColorizationModeExtendedHeader::GetRecordName() const {
    return "ColorizationModeExtendedHeader";
}

}  // namespace kxio
