// SPDX-License-Identifier: MIT
#pragma once

#include "kxio/CommentExtendedHeader.h"

namespace kxio {

/// The mode in which the scan was taken.
///
/// Data: UTF-8 text and one NUL, as `CommentExtendedHeader` has it.
class KXIO_EXPORT ScanningModeExtendedHeader : public CommentExtendedHeader {
public:
    static constexpr uint64_t Type = 0x91acbfc234bec3a9ULL;

    /// A record that carries `text`.
    explicit ScanningModeExtendedHeader(const std::wstring& text);
    /// Decodes the data of a record just read, whatever its type tag.
    explicit ScanningModeExtendedHeader(const ExtendedHeader& record);

    const char* GetRecordName() const override;
};

}  // namespace kxio
