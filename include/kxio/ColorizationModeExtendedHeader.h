// SPDX-License-Identifier: MIT
#pragma once

#include "kxio/CommentExtendedHeader.h"

namespace kxio {

/// The way in which the scan was coloured.
///
/// Data: UTF-8 text and one NUL, as `CommentExtendedHeader` has it.
class KXIO_EXPORT ColorizationModeExtendedHeader : public CommentExtendedHeader {
public:
    static constexpr uint64_t Type = 0x9554a8463740bb07ULL;

    /// A record that carries `text`.
    explicit ColorizationModeExtendedHeader(const std::wstring& text);
    /// Decodes the data of a record just read, whatever its type tag.
    explicit ColorizationModeExtendedHeader(const ExtendedHeader& record);

    const char* GetRecordName() const override;
};

}  // namespace kxio
