// SPDX-License-Identifier: MIT
#pragma once

#include "kxbase/UUID.h"
#include "kxio/CommentExtendedHeader.h"

namespace kxio {

/// A link to a related scan of the ER kind.
///
/// Data: the text form of the other scan's UUID (36 characters) and one NUL.
class KXIO_EXPORT ERExtendedHeader : public CommentExtendedHeader {
public:
    static constexpr uint64_t Type = 0x87d56a371c93300cULL;

    /// \param text  a UUID's text form; stored as it is
    explicit ERExtendedHeader(const std::wstring& text);
    /// A link to the scan with this identifier.
    explicit ERExtendedHeader(const kxbase::UUID& scan);
    /// Decodes the data of a record just read, whatever its type tag.
    explicit ERExtendedHeader(const ExtendedHeader& record);

    /// The linked scan. \throws kxbase::KXBadInputException when the text is no UUID
    kxbase::UUID GetUUID() const;
    const char* GetRecordName() const override;
};

}  // namespace kxio
