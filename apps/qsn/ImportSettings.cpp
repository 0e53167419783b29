// SPDX-License-Identifier: MIT
#include "ImportSettings.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <cmath>
#include <utility>

#include "Errors.h"
#include "Numbers.h"

namespace qsn {

namespace {

using kxexchange::Codec;
using kxexchange::ImportOptions;

std::pair<std::string, std::string> SplitAssignment(const std::string& option, const std::string& text) {
    const size_t sign = text.find('=');
    if (sign == std::string::npos)
        throw UsageError(fmt::format("{} {}: expected COMPONENT=VALUE", option, text));
    return {text.substr(0, sign), text.substr(sign + 1)};
}

}  // namespace

void CodecPresetFlags::Check() const {
    if (fast + small + plain > 1) throw UsageError("--fast, --small and --plain exclude each other");
}

void CodecPresetFlags::Apply(ImportOptions& options) const {
    const Codec scan = fast ? Codec::GridFast : small ? Codec::Grid : Codec::Zlib;
    options.rangeCodec = options.angleCodec = options.intensityCodec = scan;
    options.colorCodec = plain ? Codec::Zlib : fast ? Codec::Zstd : Codec::Color;
}

void DefineCodecPresets(CLI::App& app, CodecPresetFlags& flags) {
    app.add_flag("--fast", flags.fast, "Codecs that are quickest to read");
    app.add_flag("--small", flags.small, "Codecs that make the file smallest (default)");
    app.add_flag("--plain", flags.plain, "zlib alone, which every reader knows, and no\nhashes");
}

void ApplyPatch(const std::string& text, ImportOptions& options) {
    if (const auto side = ParseCount(text); side && *side > 0) {
        options.patchWidth = options.patchHeight = *side;
    } else if (const auto size = ParseSize(text)) {
        options.patchWidth = size->first;
        options.patchHeight = size->second;
    } else {
        throw UsageError(fmt::format("--patch {}: expected a number from 1, or two as in 512x128", text));
    }
}

std::pair<Codec ImportOptions::*, Codec> ParseCodec(const std::string& text) {
    static constexpr std::pair<const char*, Codec ImportOptions::*> kTargets[] = {
        {"range", &ImportOptions::rangeCodec},
        {"angles", &ImportOptions::angleCodec},
        {"intensity", &ImportOptions::intensityCodec},
        {"color", &ImportOptions::colorCodec},
    };
    static constexpr std::pair<const char*, Codec> kCodecs[] = {
        {"zlib", Codec::Zlib}, {"snappy", Codec::Snappy},      {"jpeg", Codec::Jpeg}, {"zstd", Codec::Zstd},
        {"grid", Codec::Grid}, {"grid-fast", Codec::GridFast}, {"rgb", Codec::Color}};

    const auto [component, wanted] = SplitAssignment("--codec", text);
    for (const auto& [name, member] : kTargets) {
        if (component != name) continue;
        for (const auto& [codecName, codec] : kCodecs) {
            if (wanted != codecName) continue;
            if (codec == Codec::Jpeg && member != &ImportOptions::colorCodec)
                throw UsageError(fmt::format("--codec {}: jpeg is for color only", text));
            if (codec == Codec::Color && member != &ImportOptions::colorCodec)
                throw UsageError(fmt::format("--codec {}: rgb is for color only", text));
            return {member, codec};
        }
        throw UsageError(fmt::format(
            "--codec {}: '{}' is no codec; expected zlib, snappy, zstd, grid, grid-fast, rgb or jpeg", text,
            wanted));
    }
    throw UsageError(fmt::format("--codec {}: '{}' has no codec; expected range, angles, intensity or color",
                                 text, component));
}

void ApplyCodec(const std::string& text, ImportOptions& options) {
    const auto [member, codec] = ParseCodec(text);
    options.*member = codec;
}

void ApplyScale(const std::string& text, ImportOptions& options) {
    const auto [component, number] = SplitAssignment("--scale", text);
    const auto value = ParseNumber(number);
    if (!value || !std::isfinite(*value) || *value <= 0)
        throw UsageError(fmt::format("--scale {}: expected a number above 0", text));
    if (component == "range") {
        options.rangeScale = *value;
    } else if (component == "vertical") {
        options.verticalScale = *value;
    } else if (component == "horizontal") {
        options.horizontalScale = *value;
    } else if (component == "angles") {
        options.verticalScale = options.horizontalScale = *value;
    } else {
        throw UsageError(
            fmt::format("--scale {}: '{}' has no scale; expected range, vertical, horizontal or angles", text,
                        component));
    }
}

void ApplyColor(const std::string& text, ImportOptions& options) {
    if (text == "jpeg") {
        options.colorCodec = Codec::Jpeg;
    } else if (text == "lossless") {
        options.colorCodec = Codec::Color;
    } else {
        throw UsageError(fmt::format("--color {}: expected jpeg or lossless", text));
    }
}

}  // namespace qsn
