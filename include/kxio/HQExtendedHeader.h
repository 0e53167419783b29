// SPDX-License-Identifier: MIT
#pragma once

#include "kxbase/UUID.h"
#include "kxio/CommentExtendedHeader.h"

namespace kxio {

/// A link to a related high-quality scan.
///
/// Data: the text form of the other scan's UUID (36 characters) and one NUL.
class KXIO_EXPORT HQExtendedHeader : public CommentExtendedHeader {
public:
    static constexpr uint64_t Type = 0xbfb6c3129e0b3496ULL;

    /// \param text  a UUID's text form; stored as it is
    explicit HQExtendedHeader(const std::wstring& text);
    /// A link to the scan with this identifier.
    explicit HQExtendedHeader(const kxbase::UUID& scan);
    /// Decodes the data of a record just read, whatever its type tag.
    explicit HQExtendedHeader(const ExtendedHeader& record);

    /// The linked scan. \throws kxbase::KXBadInputException when the text is no UUID
    kxbase::UUID GetUUID() const;
    const char* GetRecordName() const override;
};

}  // namespace kxio
