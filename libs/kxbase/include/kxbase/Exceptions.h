// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>

#include "kxbase/Export.h"

namespace kxbase {

/// Where a failure happened and what was found there. It travels beside the message text of an
/// exception; empty fields are unknown. All texts are UTF-8.
struct ErrorContext {
    std::string file{};    ///< path of the file, or the stream's name
    std::string record{};  ///< kind of record or piece, e.g. "ScanHeader" or "patch 18 (row 2, column 0)"
    std::string field{};   ///< field inside the record, e.g. "row count"
    std::optional<uint64_t> offset{};  ///< absolute byte offset in the file
    std::string detail{};              ///< what was found and what was allowed

    /// True when nothing is known.
    KXBASE_EXPORT bool Empty() const noexcept;
    /// One line: "file: record at byte N, field F: detail", unknown pieces left out.
    KXBASE_EXPORT std::string ToString() const;
};

/// Base of every exception of the library family. `what()` is the bare message text; the context
/// (file, record, byte, field) can be asked for and completed on the way up.
/// Copies share the context and never throw.
class KXBASE_EXPORT KXException : public std::exception {
public:
    /// With an empty context.
    explicit KXException(const std::string& text);
    /// With what is known of the place.
    KXException(const std::string& text, ErrorContext context);
    KXException(const KXException&) noexcept;
    KXException& operator=(const KXException&) noexcept;
    ~KXException() override;

    /// The message text alone.
    const char* what() const noexcept override;
    /// What is known of the place.
    const ErrorContext& Context() const noexcept;
    /// Fills the fields of the context that are still empty from `more`; known fields are kept, so the
    /// innermost knowledge wins. Meant for `catch (KXException& e) { e.AddContext(...); throw; }`.
    void AddContext(const ErrorContext& more);
    /// Message text and context in one line, for people.
    std::string Describe() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
};

/// A record or header of a file cannot be read or is refused.
class KXBASE_EXPORT KXHeaderReadingException : public KXException {
public:
    using KXException::KXException;
    ~KXHeaderReadingException() override;
};
/// An in-place operation on a header is not possible for this file.
class KXBASE_EXPORT KXHeaderOperationException : public KXException {
public:
    using KXException::KXException;
    ~KXHeaderOperationException() override;
};
/// An operation needs an open file and has none.
class KXBASE_EXPORT KXFileNotOpenException : public KXException {
public:
    using KXException::KXException;
    ~KXFileNotOpenException() override;
};
/// A codec identifier that the codec library does not know. (The spelling is given.)
class KXBASE_EXPORT KXUnkownCodecException : public KXException {
public:
    using KXException::KXException;
    ~KXUnkownCodecException() override;
};
/// A component that the operation does not support. (The spelling is given.)
class KXBASE_EXPORT KXUnkownComponentException : public KXException {
public:
    using KXException::KXException;
    ~KXUnkownComponentException() override;
};
/// A patch is missing, unreadable or does not decode.
class KXBASE_EXPORT KXUnreadablePatchException : public KXException {
public:
    using KXException::KXException;
    ~KXUnreadablePatchException() override;
};
/// A table that the operation needs is missing from the file.
class KXBASE_EXPORT KXIncompleteFileException : public KXException {
public:
    using KXException::KXException;
    ~KXIncompleteFileException() override;
};
/// The size of the data does not fit the operation.
class KXBASE_EXPORT KXWrongDataSizeofException : public KXException {
public:
    using KXException::KXException;
    ~KXWrongDataSizeofException() override;
};
/// The file does not hold the component asked for.
class KXBASE_EXPORT KXComponentNotInFileException : public KXException {
public:
    using KXException::KXException;
    ~KXComponentNotInFileException() override;
};
/// An argument is not acceptable.
class KXBASE_EXPORT KXBadInputException : public KXException {
public:
    using KXException::KXException;
    ~KXBadInputException() override;
};
/// Writing failed.
class KXBASE_EXPORT KXWritingException : public KXException {
public:
    using KXException::KXException;
    ~KXWritingException() override;
};
/// An index lies outside its range.
class KXBASE_EXPORT KXIndexOutOfBoundsException : public KXException {
public:
    using KXException::KXException;
    ~KXIndexOutOfBoundsException() override;
};

}  // namespace kxbase
