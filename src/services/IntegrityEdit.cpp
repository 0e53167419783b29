// SPDX-License-Identifier: MIT
#include "services/IntegrityEdit.h"

#include <utility>

#include "kxbase/IInFileStream.h"
#include "kxbase/InMemoryStream.h"
#include "services/ExtendedChain.h"

namespace kxio {

IntegrityTable LoadIntegrity(kxbase::IInFileStream& in, const MainFileHeader& mainHeader) {
    IntegrityTable integrity;
    integrity.LimitBytes(in.GetSize());
    uint64_t position = mainHeader.firstExtendedHeaderPosition;
    while (position != 0) {
        const auto start = ExtendedStartAt(in, position);
        if (!start) break;
        if (start->type == IntegrityExtendedHeader::Type) {
            ExtendedHeader record;
            if (!in.Seek(position) || record.Read(&in) == 0) break;
            integrity.Add(IntegrityExtendedHeader(std::move(record)), position);
        }
        position = start->End();
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
