// SPDX-License-Identifier: MIT
#include "kxio/RecoverToFile.h"

#include <filesystem>
#include <system_error>

#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/UUID.h"
#include "kxbase/kxInFile.h"
#include "kxbase/kxOutFile.h"
#include "services/ScanRebuild.h"

namespace kxio {

namespace {

namespace fs = std::filesystem;
using kxbase::Encode_UTF8;

fs::path SystemPath(const std::wstring& path) {
    const std::string text = Encode_UTF8(path);
    return {std::u8string(text.begin(), text.end())};
}

kxbase::ErrorContext Context(const std::wstring& path, std::string detail) {
    kxbase::ErrorContext context;
    context.file = Encode_UTF8(path);
    context.detail = std::move(detail);
    return context;
}

/// The file beside the output that becomes it, or goes.
class PartialFile {
public:
    explicit PartialFile(const std::wstring& output)
        : m_output(output),
          m_path(PathBeside(output)),
          m_systemPath(SystemPath(m_path)),
          m_file(std::make_unique<kxbase::kxOutFile>(m_path)) {
        if (!m_file->IsOpen()) {
            throw kxbase::KXFileNotOpenException("Cannot file not open",
                                                 Context(output, "nothing can be written into its folder"));
        }
    }
    ~PartialFile() {
        if (!m_file) return;
        m_file.reset();
        std::error_code ignored;
        fs::remove(m_systemPath, ignored);
    }
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    kxbase::kxOutFile& File() { return *m_file; }

    void Complete() {
        // A name may reach the medium before the bytes that it stands for.
        m_file->Sync();
        m_file->Close();
        std::error_code error;
        fs::rename(m_systemPath, SystemPath(m_output), error);
        if (error) {
            throw kxbase::KXWritingException("Cannot write file", Context(m_output, error.message()));
        }
        m_file.reset();
    }

private:
    /// A hidden name of its own, short whatever the output is called.
    static std::wstring PathBeside(const std::wstring& output) {
        const std::wstring name = L"." + kxbase::UUID::Generate().ToWString() + L".partial";
        const std::u8string path = (SystemPath(output).parent_path() / SystemPath(name)).u8string();
        return kxbase::Decode_UTF8(std::string(path.begin(), path.end()));
    }

    std::wstring m_output;
    std::wstring m_path;
    fs::path m_systemPath;                      // of it, made while it may fail: the destructor must not
    std::unique_ptr<kxbase::kxOutFile> m_file;  // none once the file has its name
};

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
    RecoveryReport report = RecoverToStream(in, partial.File(), options);
    if (report.unreadableBytes == 0 && in.RefusedBytes() != 0) {
        report.unreadableBytes = in.RefusedBytes();
        report.warnings.push_back("a record could not be read from the device and is left out");
    }
    partial.Complete();
    return report;
}

}  // namespace kxio
