// SPDX-License-Identifier: MIT
#include "kxio/RecoverToFile.h"

#include <filesystem>
#include <system_error>

#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "services/BufferedOutput.h"
#include "services/PartialFile.h"
#include "services/ScanRebuild.h"

namespace kxio {

namespace {

namespace fs = std::filesystem;
using kxbase::Encode_UTF8;

kxbase::ErrorContext Context(const std::wstring& path, std::string detail) {
    kxbase::ErrorContext context;
    context.file = Encode_UTF8(path);
    context.detail = std::move(detail);
    return context;
}

}  // namespace

RecoveryReport RecoverToStream(kxbase::IInFileStream& damaged, kxbase::IOutFileStream& output,
                               const RecoveryOptions& options) {
    return ScanRebuild(damaged, output, options).Run();
}

RecoveryReport RecoverToFile(const std::wstring& damaged, const std::wstring& output,
                             const RecoveryOptions& options) {
    kxbase::kxInFile in(damaged);
    if (!in.IsOpen()) {
        throw kxbase::KXHeaderReadingException("Cannot open file", Context(damaged, "cannot be read"));
    }
    std::error_code ignored;
    if (fs::equivalent(SystemPath(damaged), SystemPath(output), ignored)) {
        throw kxbase::KXBadInputException("Output is the damaged file",
                                          Context(output, "a recovery never changes the damaged file"));
    }
    in.SetPatient();
    PartialFile partial(output);
    BufferedOutput buffered(partial.File());
    RecoveryReport report = RecoverToStream(in, buffered, options);
    buffered.Flush();
    if (report.unreadableBytes == 0 && in.RefusedBytes() != 0) {
        report.unreadableBytes = in.RefusedBytes();
        report.warnings.push_back("a record could not be read from the device and is left out");
    }
    partial.Complete();
    return report;
}

}  // namespace kxio
