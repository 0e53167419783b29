// SPDX-License-Identifier: MIT
#pragma once

#include "kxbase/Exceptions.h"
#include "kxexchange/Export.h"

namespace kxexchange {

/// The caller asked to stop. What was being written has been removed.
class KXEXCHANGE_EXPORT CancelledException : public kxbase::KXException {
public:
    using KXException::KXException;
    ~CancelledException() override;
};

/// Something would be lost, or was, and the caller does not want that. The context's detail lists it; what
/// was being written has been removed.
class KXEXCHANGE_EXPORT LossException : public kxbase::KXException {
public:
    using KXException::KXException;
    ~LossException() override;
};

/// A file of another format breaks that format's rules. The context names the file, the place (for text:
/// record "line N", offset the byte of the text where the offending piece begins; of the unpacked text when
/// the file is compressed) and, as detail, what was found and what was expected.
class KXEXCHANGE_EXPORT SourceFormatException : public kxbase::KXException {
public:
    using KXException::KXException;
    ~SourceFormatException() override;
};

}  // namespace kxexchange
