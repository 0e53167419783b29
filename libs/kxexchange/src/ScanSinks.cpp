// SPDX-License-Identifier: MIT
#include <array>

#include "ExrSink.h"
#include "LasSink.h"
#include "NpySink.h"
#include "Paths.h"
#include "PcdSink.h"
#include "PlySink.h"
#include "PngSink.h"
#include "PtsSink.h"
#include "PtxSink.h"
#include "XyzSink.h"
#include "e57/E57Sink.h"
#include "kxexchange/ScanSink.h"

namespace kxexchange {

namespace {

template <class Sink>
std::unique_ptr<ScanSink> Make(kxbase::IOutFileStream& stream, const SinkOptions& options) {
    return std::make_unique<Sink>(stream, options);
}

constexpr std::array<std::string_view, 1> kE57Endings{".e57"};
constexpr std::array<std::string_view, 2> kPtxEndings{".ptx", ".ptx.gz"};
constexpr std::array<std::string_view, 1> kPlyEndings{".ply"};
constexpr std::array<std::string_view, 2> kXyzEndings{".xyz", ".xyz.gz"};
constexpr std::array<std::string_view, 1> kPtsEndings{".pts"};
constexpr std::array<std::string_view, 1> kPcdEndings{".pcd"};
constexpr std::array<std::string_view, 1> kLasEndings{".las"};
constexpr std::array<std::string_view, 1> kNpyEndings{".npy"};
constexpr std::array<std::string_view, 1> kNpzEndings{".npz"};
constexpr std::array<std::string_view, 1> kPngEndings{".png"};
constexpr std::array<std::string_view, 1> kExrEndings{".exr"};

// Every format that can be written: one line each.
const std::array kFormats{
    SinkFormat{"E57", kE57Endings, E57Sink::Capabilities(), &Make<E57Sink>},
    SinkFormat{"PTX", kPtxEndings, PtxSink::Capabilities(), &Make<PtxSink>},
    SinkFormat{"PLY", kPlyEndings, PlySink::Capabilities(), &Make<PlySink>},
    SinkFormat{"XYZ", kXyzEndings, XyzSink::Capabilities(), &Make<XyzSink>},
    SinkFormat{"PTS", kPtsEndings, PtsSink::Capabilities(), &Make<PtsSink>},
    SinkFormat{"PCD", kPcdEndings, PcdSink::Capabilities(), &Make<PcdSink>},
    SinkFormat{"LAS", kLasEndings, LasSink::Capabilities(), &Make<LasSink>},
    SinkFormat{"NPY", kNpyEndings, NpySink::Capabilities(), &Make<NpySink>},
    SinkFormat{"NPZ", kNpzEndings, NpzSink::Capabilities(), &Make<NpzSink>},
    SinkFormat{"PNG", kPngEndings, PngSink::Capabilities(), &Make<PngSink>},
    SinkFormat{"EXR", kExrEndings, ExrSink::Capabilities(), &Make<ExrSink>},
};

}  // namespace

std::span<const SinkFormat> SinkFormats() {
    return kFormats;
}

const SinkFormat* FindSinkFormat(std::string_view name) {
    for (const SinkFormat& format : kFormats) {
        if (LowerCase(std::string(format.name)) == LowerCase(std::string(name))) return &format;
    }
    return nullptr;
}

const SinkFormat* SinkFormatOf(const std::filesystem::path& path) {
    const std::string name = LowerCase(PathText(path.filename()));
    for (const SinkFormat& format : kFormats) {
        for (const std::string_view ending : format.endings) {
            if (name.size() > ending.size() && name.ends_with(ending)) return &format;
        }
    }
    return nullptr;
}

}  // namespace kxexchange
