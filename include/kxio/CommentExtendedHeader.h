// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "kxio/ExtendedHeader.h"

namespace kxio {

/// A message about the scan, and the base of all kinds that carry one text.
///
/// Data: the text as UTF-8 up to its first NUL, one NUL, zeros up to the data length (UTF-8 length of the
/// whole text + 1). Reading takes the text up to the first NUL, or all the data where there is none; bytes
/// that are no UTF-8 become U+FFFD.
/// One object serves one thread at a time.
class KXIO_EXPORT CommentExtendedHeader : public ExtendedHeader {
public:
    static constexpr uint64_t Type = 0xac14e2e7714a591eULL;

    /// A record that carries `text`.
    explicit CommentExtendedHeader(const std::wstring& text);
    /// Decodes the data of a record just read, whatever its type tag.
    explicit CommentExtendedHeader(const ExtendedHeader& record);
    CommentExtendedHeader(const CommentExtendedHeader&);
    CommentExtendedHeader(CommentExtendedHeader&&) noexcept;
    CommentExtendedHeader& operator=(const CommentExtendedHeader&);
    CommentExtendedHeader& operator=(CommentExtendedHeader&&) noexcept;
    ~CommentExtendedHeader() override;

    void _Write(unsigned char* payload, uint32_t size) override;
    const char* GetRecordName() const override;

    /// The text.
    const std::wstring& Message() const { return m_text; }

protected:
    /// A record of another kind that carries `text`.
    CommentExtendedHeader(uint64_t type, const std::wstring& text);
    /// The same, its text decoded from a record just read.
    CommentExtendedHeader(uint64_t type, const ExtendedHeader& record);
    void DecodeData() override;

private:
    std::vector<unsigned char> Encoded() const;

    std::wstring m_text;
};

}  // namespace kxio
