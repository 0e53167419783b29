// SPDX-License-Identifier: MIT
#include "E57Error.h"

#include "kxexchange/Errors.h"

namespace kxexchange {

void FailE57(const E57Fault& fault) {
    kxbase::ErrorContext context;
    context.file = fault.file;
    context.record = fault.record;
    context.field = fault.field;
    context.offset = fault.offset;
    context.detail = fault.detail;
    throw SourceFormatException("E57 file cannot be read", context);
}

}  // namespace kxexchange
