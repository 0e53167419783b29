// SPDX-License-Identifier: MIT
#pragma once

#include "kxio/CommentExtendedHeader.h"

namespace kxio {

/// A warning about the scan.
///
/// Data: UTF-8 text and one NUL, as `CommentExtendedHeader` has it.
class KXIO_EXPORT WarningExtendedHeader : public CommentExtendedHeader {
public:
    static constexpr uint64_t Type = 0xaa661a5ee949e151ULL;

    /// A record that carries `text`.
    explicit WarningExtendedHeader(const std::wstring& text);
    /// Decodes the data of a record just read, whatever its type tag.
    explicit WarningExtendedHeader(const ExtendedHeader& record);

    const char* GetRecordName() const override;
};

}  // namespace kxio
