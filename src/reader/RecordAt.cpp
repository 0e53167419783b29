// SPDX-License-Identifier: MIT
#include "reader/RecordAt.h"

namespace kxio {

bool ReadRecordAt(kxbase::IInFileStream* stream, uint64_t position, kxbase::IOHeader& record) {
    // A failed seek must not read whatever lies at the old position.
    return stream != nullptr && stream->Seek(position) && record.Read(stream) != 0;
}

kxbase::ErrorContext ProblemOf(const kxbase::IOHeader& record, uint64_t position) {
    kxbase::ErrorContext context = record.GetReadProblem();
    if (context.record.empty()) context.record = record.GetRecordName();
    if (!context.offset) context.offset = position;
    if (context.detail.empty()) context.detail = "the position cannot be reached";
    return context;
}

}  // namespace kxio
