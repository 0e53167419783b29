// SPDX-License-Identifier: MIT
#include "services/IntegrityEdit.h"

#include <utility>

#include "kxbase/IInFileStream.h"
#include "kxbase/InMemoryStream.h"
#include "reader/ExtendedFrame.h"

namespace kxio {

IntegrityTable LoadIntegrity(kxbase::IInFileStream& in, const MainFileHeader& mainHeader) {
    IntegrityTable integrity;
    integrity.LimitBytes(in.GetSize());
    uint64_t position = mainHeader.firstExtendedHeaderPosition;
    // Only records of hashes are read; others may be long.
    for (auto frame = PeekExtended(in, position); position != 0 && frame;
         frame = PeekExtended(in, position)) {
        if (frame->type == IntegrityExtendedHeader::Type) {
            ExtendedHeader record;
            if (record.Read(&in) == 0) break;
            integrity.Add(IntegrityExtendedHeader(std::move(record)), position);
        }
        position += frame->recordBytes;
    }
    integrity.Complete(in);
    return integrity;
}

std::vector<unsigned char> NoteOfEdit(const IntegrityTable& integrity, uint64_t position,
                                      const std::vector<IntegritySpan>& headers,
                                      const std::vector<IntegritySpan>& others) {
    if (!integrity.Present()) return {};
    IntegrityExtendedHeader note(headers, others, position, integrity.Newest());
    kxbase::InMemoryStream encoded;
    note.Write(&encoded);
    return encoded.GetBytes();
}

}  // namespace kxio
