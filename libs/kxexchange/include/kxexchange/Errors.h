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

/// A file of another format breaks that format's rules. The context names the file, the place (for text:
/// record "line N", offset the byte of the text where the offending piece begins; of the unpacked text when
/// the file is compressed) and, as detail, what was found and what was expected.
class KXEXCHANGE_EXPORT SourceFormatException : public kxbase::KXException {
public:
    using KXException::KXException;
    ~SourceFormatException() override;
};

}  // namespace kxexchange
