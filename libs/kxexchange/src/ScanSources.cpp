// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <string_view>

#include "Paths.h"
#include "PcdSource.h"
#include "PlySource.h"
#include "PointTextSource.h"
#include "PtxSource.h"
#include "QsnSource.h"
#include "e57/E57Source.h"
#include "kxbase/Exceptions.h"
#include "kxbase/kxInFile.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

namespace {

template <class Source>
std::unique_ptr<ScanSource> Make(std::unique_ptr<kxbase::IInFileStream> stream, const std::string& name,
                                 const SourceOptions& options) {
    return std::make_unique<Source>(std::move(stream), name, options);
}

constexpr std::array<std::string_view, 1> kE57Endings{".e57"};
constexpr std::array<std::string_view, 2> kPtxEndings{".ptx", ".ptx.gz"};
constexpr std::array<std::string_view, 1> kPlyEndings{".ply"};
constexpr std::array<std::string_view, 1> kPcdEndings{".pcd"};
constexpr std::array<std::string_view, 2> kXyzEndings{".xyz", ".xyz.gz"};
constexpr std::array<std::string_view, 2> kPtsEndings{".pts", ".pts.gz"};
constexpr std::array<std::string_view, 1> kQsnEndings{".qsn"};
// The tag of the first record.
constexpr std::string_view kQsnMagic = "\x5e\xde\x73\x9b\xdb\x7e\x79\xab";

// Every format that can be read: one line each.
constexpr std::array kFormats{
    SourceFormat{"E57", kE57Endings, "ASTM-E57", &Make<E57Source>},
    SourceFormat{"PTX", kPtxEndings, {}, &Make<PtxSource>},
    SourceFormat{"PLY", kPlyEndings, "ply", &Make<PlySource>},
    SourceFormat{"PCD", kPcdEndings, "# .PCD", &Make<PcdSource>},
    SourceFormat{"XYZ", kXyzEndings, {}, &Make<XyzSource>},
    SourceFormat{"PTS", kPtsEndings, {}, &Make<PtsSource>},
    SourceFormat{"QSN", kQsnEndings, kQsnMagic, &Make<QsnSource>},
};

constexpr size_t kMostMagicBytes = 16;

const SourceFormat* FormatOfName(const std::string& name) {
    const std::string lower = LowerCase(name);
    for (const SourceFormat& format : kFormats) {
        for (const std::string_view ending : format.endings) {
            if (lower.size() > ending.size() && lower.ends_with(ending)) return &format;
        }
    }
    return nullptr;
}

const SourceFormat* FormatOfBytes(kxbase::IInFileStream& stream) {
    std::string first(kMostMagicBytes, '\0');
    stream.Seek(0);
    first.resize(static_cast<size_t>(stream.Read(first.data(), first.size())));
    stream.Seek(0);
    for (const SourceFormat& format : kFormats) {
        if (!format.magic.empty() && first.starts_with(format.magic)) return &format;
    }
    return nullptr;
}

[[noreturn]] void RefuseUnknown(const std::string& name, const std::string& asked) {
    kxbase::ErrorContext context;
    context.file = name;
    context.detail = asked.empty() ? "expected a name that ends in" : "found " + asked + ", expected";
    for (const SourceFormat& format : kFormats) {
        if (!asked.empty()) context.detail += " " + std::string(format.name);
        if (asked.empty()) {
            for (const std::string_view ending : format.endings)
                context.detail += " " + std::string(ending);
        }
    }
    throw kxbase::KXBadInputException("Unknown kind of scan file", context);
}

const SourceFormat* FormatCalled(const std::string& wanted) {
    const auto found = std::find_if(kFormats.begin(), kFormats.end(), [&](const SourceFormat& format) {
        return LowerCase(std::string(format.name)) == LowerCase(wanted);
    });
    return found == kFormats.end() ? nullptr : &*found;
}

}  // namespace

std::span<const SourceFormat> SourceFormats() {
    return kFormats;
}

bool IsImportable(const std::filesystem::path& path) {
    return FormatOfName(PathText(path)) != nullptr;
}

std::unique_ptr<ScanSource> OpenScanSource(std::unique_ptr<kxbase::IInFileStream> stream,
                                           const std::string& name, const SourceOptions& options) {
    const SourceFormat* format = options.format.empty() ? FormatOfName(name) : FormatCalled(options.format);
    const bool open = stream && stream->IsOpen();
    if (!format && open && options.format.empty()) format = FormatOfBytes(*stream);
    if (!format) RefuseUnknown(name, options.format);
    if (!open) {
        kxbase::ErrorContext context;
        context.file = name;
        throw kxbase::KXFileNotOpenException("Cannot open file", context);
    }
    return format->make(std::move(stream), name, options);
}

std::unique_ptr<ScanSource> OpenScanSource(const std::filesystem::path& path, const SourceOptions& options) {
    return OpenScanSource(std::make_unique<kxbase::kxInFile>(WidePath(path)), PathText(path), options);
}

}  // namespace kxexchange
