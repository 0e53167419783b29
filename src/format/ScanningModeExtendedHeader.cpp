// SPDX-License-Identifier: MIT
#include "kxio/ScanningModeExtendedHeader.h"

namespace kxio {

ScanningModeExtendedHeader::ScanningModeExtendedHeader(const std::wstring& text)
    : CommentExtendedHeader(Type, text) {}
ScanningModeExtendedHeader::ScanningModeExtendedHeader(const ExtendedHeader& record)
    : CommentExtendedHeader(Type, record) {}

const char* ScanningModeExtendedHeader::GetRecordName() const {
    return "ScanningModeExtendedHeader";
}

}  // namespace kxio
