// SPDX-License-Identifier: MIT
#include "services/VerifyIntegrity.h"

#include <algorithm>

#include "format/IntegrityTable.h"
#include "kxbase/IInFileStream.h"
#include "services/HashOfBytes.h"
#include "services/IntegrityEdit.h"

namespace kxio {

void VerifyIntegrity(FileWindow& file, const FileLayout& layout, bool everything, FindingList& findings,
                     const SurveyProgress& progress) {
    const IntegrityTable integrity =
        LoadIntegrity(file.Stream(), layout.mainHeader ? *layout.mainHeader : MainFileHeader());
    for (const uint64_t position : integrity.Damaged())
        findings.Add(
            Error("integrity").At(position).Says("the record is damaged or not where it is said to be"));
    uint64_t done = 0;
    const auto check = [&](const IntegritySpan& span) {
        const uint64_t available = span.position < file.Size() ? file.Size() - span.position : 0;
        if (span.byteCount > available) {
            findings.Add(Error("bytes")
                             .At(span.position)
                             .Says(std::to_string(span.byteCount) + " bytes are listed there, " +
                                   std::to_string(available) + " are left of the file"));
            return true;
        }
        const auto hash = [&] { return HashOfBytes(file, span.position, span.byteCount); };
        if (integrity.Check(span.position, span.byteCount, hash) == IntegrityTable::Verdict::Wrong)
            findings.Add(Error("bytes")
                             .At(span.position)
                             .Says(std::to_string(span.byteCount) + " bytes do not match their hash"));
        if (progress) progress(done += span.byteCount);
        return true;
    };
    if (!integrity.EachPiece(file.Size(), everything, check))
        findings.Add(Error("integrity").At(integrity.Newest()).Says("it lists more bytes than the file has"));
}

}  // namespace kxio
