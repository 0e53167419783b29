// SPDX-License-Identifier: MIT
#include "kxio/VerifyScan.h"

#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "services/FileLayout.h"
#include "services/FindingList.h"
#include "services/SettledInput.h"
#include "services/VerifyHeaders.h"
#include "services/VerifyIntegrity.h"
#include "services/VerifyPatches.h"
#include "services/VerifyTables.h"

namespace kxio {

namespace {

/// A main header that is cut short or damaged behind its frame still says what the file was.
bool BeginsLikeAScan(FileWindow& file) {
    MainFileHeader header;
    kxbase::ErrorContext problem;
    return ReadRecord(file, 0, header, problem) || (problem.field != "tag" && problem.field != "frame");
}

}  // namespace

VerifyReport VerifyScan(kxbase::IInFileStream& stream, const VerifyOptions& options) {
    VerifyReport report;
    report.level = options.level;
    FindingList findings(report, options.mostFindings);
    report.fileBytes = stream.GetSize();
    SettledInput settled(stream);  // readers see the file so, too
    if (const auto hidden = settled.HiddenFrom()) {
        findings.Add(Warning("bytes").At(hidden).Says(
            "an edit was interrupted; the next edit " +
            std::string(settled.IsPromised() ? "completes it" : "takes away what it left here")));
    }
    FileWindow file(settled);
    const bool decode = options.level != VerifyLevel::Quick;
    const FileLayout layout = FindLayout(file, [&](uint64_t done) {
        if (options.progress) options.progress(decode ? done / 100 : done, file.Size());
    });
    report.unsupported = layout.refusal.has_value();
    if (layout.mainHeader && !layout.scanHeader) {
        ScanHeader header;
        kxbase::ErrorContext problem;
        ReadRecord(file, layout.mainHeader->scanHeaderPosition, header, problem);
        report.unsupported = problem.detail.starts_with("Unsupported");
    }
    const VerifiedHeaders headers = VerifyHeaders(file, layout, decode, findings);
    if (options.limits.checkHashes) {
        VerifyIntegrity(file, layout, decode, findings, [&](uint64_t done) {
            if (options.progress) options.progress(decode ? done / 100 : file.Size(), file.Size());
        });
    }
    const ListedChunks chunks = VerifyTables(file, layout, findings, report);
    if (!report.isScanFile) report.isScanFile = BeginsLikeAScan(file);
    if (decode) {
        VerifyPatches(file, layout, headers, chunks, options, findings, report);
    } else {
        for (const auto& [component, list] : chunks) {
            for (const ListedChunk& chunk : list)
                report.damagedChunks += chunk.damaged ? 1 : 0;
        }
    }
    if (file.UnreadableBytes() != 0)
        findings.Add(
            Error("bytes").Says(std::to_string(file.UnreadableBytes()) + " bytes could not be read"));
    if (options.progress) options.progress(file.Size(), file.Size());
    return report;
}

VerifyReport VerifyScan(const std::wstring& path, const VerifyOptions& options) {
    kxbase::kxInFile file(path);
    if (!file.IsOpen()) {
        kxbase::ErrorContext context;
        context.file = kxbase::Encode_UTF8(path);
        throw kxbase::KXHeaderReadingException("Cannot open file", context);
    }
    file.SetPatient();  // what cannot be read is told with the rest
    return VerifyScan(file, options);
}

}  // namespace kxio
