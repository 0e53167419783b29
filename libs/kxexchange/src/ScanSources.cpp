// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "Paths.h"
#include "PtxSource.h"
#include "kxbase/Exceptions.h"
#include "kxbase/kxInFile.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

namespace {

using Maker = std::unique_ptr<ScanSource> (*)(std::unique_ptr<kxbase::IInFileStream>, const std::string&);

struct Format {
    std::string_view ending;
    Maker make;
};

template <class Source>
std::unique_ptr<ScanSource> Make(std::unique_ptr<kxbase::IInFileStream> stream, const std::string& name) {
    return std::make_unique<Source>(std::move(stream), name);
}

// Every format that can be read: one line each.
constexpr std::array kFormats{
    Format{".ptx", &Make<PtxSource>},
    Format{".ptx.gz", &Make<PtxSource>},
};

Maker FindMaker(const std::string& name) {
    const std::string lower = LowerCase(name);
    for (const Format& format : kFormats) {
        if (lower.size() > format.ending.size() && lower.ends_with(format.ending)) return format.make;
    }
    return nullptr;
}

}  // namespace

bool IsImportable(const std::filesystem::path& path) {
    return FindMaker(PathText(path)) != nullptr;
}

std::unique_ptr<ScanSource> OpenScanSource(std::unique_ptr<kxbase::IInFileStream> stream,
                                           const std::string& name) {
    kxbase::ErrorContext context;
    context.file = name;
    const Maker make = FindMaker(name);
    if (!make) {
        context.detail = "expected a name that ends in";
        for (const Format& format : kFormats)
            context.detail += " " + std::string(format.ending);
        throw kxbase::KXBadInputException("Unknown kind of scan file", context);
    }
    if (!stream || !stream->IsOpen()) throw kxbase::KXFileNotOpenException("Cannot open file", context);
    return make(std::move(stream), name);
}

std::unique_ptr<ScanSource> OpenScanSource(const std::filesystem::path& path) {
    return OpenScanSource(std::make_unique<kxbase::kxInFile>(WidePath(path)), PathText(path));
}

}  // namespace kxexchange
