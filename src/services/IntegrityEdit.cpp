// SPDX-License-Identifier: MIT
#include "services/IntegrityEdit.h"

#include <utility>

#include "kxbase/IInFileStream.h"
#include "kxbase/InMemoryStream.h"

namespace kxio {

IntegrityTable LoadIntegrity(kxbase::IInFileStream& in, const MainFileHeader& mainHeader) {
    IntegrityTable integrity;
    integrity.LimitBytes(in.GetSize());
    uint64_t position = mainHeader.firstExtendedHeaderPosition;
    ExtendedHeader record;
    if (position != 0 && in.Seek(position)) {
        for (; record.Read(&in) != 0; position = in.Tell()) {
            if (record.GetType() == IntegrityExtendedHeader::Type)
                integrity.Add(IntegrityExtendedHeader(std::move(record)), position);
        }
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
