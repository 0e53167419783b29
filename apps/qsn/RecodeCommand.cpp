// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "ComponentNames.h"
#include "Console.h"
#include "Errors.h"
#include "ImportSettings.h"
#include "Interrupt.h"
#include "JsonOutput.h"
#include "Numbers.h"
#include "OutputFile.h"
#include "Progress.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxcodecs/JPEGChunkCodec.h"
#include "kxexchange/MakeCodec.h"
#include "kxio/RecodeFile.h"

namespace qsn {

namespace {

using kxbase::ComponentType;
using kxcodecs::QKXChunkCodec;
using kxexchange::Codec;
using kxexchange::ImportOptions;

constexpr Codec ImportOptions::*kMembers[] = {&ImportOptions::rangeCodec, &ImportOptions::angleCodec,
                                              &ImportOptions::intensityCodec, &ImportOptions::colorCodec};

// What is neither range, angle nor colour is taken as intensity is: whole numbers, cell by cell.
Codec ImportOptions::*MemberOf(ComponentType component) {
    switch (component) {
        case ComponentType::Range:
            return &ImportOptions::rangeCodec;
        case ComponentType::VerticalAngle:
        case ComponentType::HorizontalAngle:
            return &ImportOptions::angleCodec;
        case ComponentType::Color:
            return &ImportOptions::colorCodec;
        default:
            return &ImportOptions::intensityCodec;
    }
}

/// The codecs asked for, each made once.
class WantedCodecs {
public:
    /// Components that nothing was said about keep their codecs where `--codec` stands alone.
    WantedCodecs(const std::vector<std::string>& assignments, const CodecPresetFlags& presets) {
        ImportOptions wanted;
        const bool all = presets.Any() || assignments.empty();
        CodecPresetFlags usual;
        usual.small = true;
        (presets.Any() ? presets : usual).Apply(wanted);
        for (const auto member : kMembers)
            if (all) m_codecs.push_back({member, kxexchange::MakeCodec(wanted.*member), false});
        for (const std::string& text : assignments) {
            const auto [member, codec] = ParseCodec(text);
            if (codec == Codec::Jpeg)
                throw UsageError(
                    fmt::format("--codec {}: jpeg would change the colours; 'qsn convert' does that", text));
            std::erase_if(m_codecs, [named = member](const Wanted& known) { return known.member == named; });
            m_codecs.push_back({member, kxexchange::MakeCodec(codec), true});
        }
    }

    /// Null to keep the chunk. Colours of JPEG chunks would only grow: they stay unless colour was named.
    const QKXChunkCodec* For(ComponentType component, const kxcodecs::ChunkHeaderInfo& stored) const {
        for (const Wanted& wanted : m_codecs) {
            if (wanted.member != MemberOf(component)) continue;
            const bool keep = stored.codecId == kxcodecs::JPEGChunkCodec::kIdentifier && !wanted.named;
            return keep ? nullptr : wanted.codec.get();
        }
        return nullptr;
    }

private:
    struct Wanted {
        Codec ImportOptions::*member;
        std::unique_ptr<QKXChunkCodec> codec;
        bool named;  // by --codec
    };
    std::vector<Wanted> m_codecs;
};

class RecodeCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("IN", m_input, "The .qsn file to read")->required()->type_name("");
        app.add_option("OUT", m_output, "The .qsn file to write")->required()->type_name("");
        app.add_option("--codec", m_codecs,
                       "Codec of range, angles, intensity or color:\n"
                       "zlib, snappy, zstd, grid, grid-fast or\n"
                       "(color only) rgb; may be repeated; outranks\n"
                       "the next three, and without them the rest\n"
                       "stays as it is")
            ->allow_extra_args(false)
            ->delimiter(',')
            ->type_name("COMPONENT=CODEC");
        DefineCodecPresets(app, m_presets);
        app.add_flag("--json", m_json, "JSON of the schema qsn.recode, version 1");
    }

    void Run(const Session& session) override {
        m_presets.Check();
        const WantedCodecs codecs(m_codecs, m_presets);
        OutputFile output(m_output, session.force, {m_input});
        kxio::RecodeOptions options;
        options.threads = session.threads;
        options.codec = [&](ComponentType component, const kxcodecs::ChunkHeaderInfo& stored) {
            return codecs.For(component, stored);
        };
        Progress progress("recode", !session.quiet);
        options.progress = [&](uint64_t done, uint64_t total) {
            CheckInterrupt();
            progress.Update(0, 0, done, total);
        };
        kxio::RecodeReport report;
        try {
            report = output.Guard([&] {
                return kxio::RecodeFile(kxbase::Decode_UTF8(m_input),
                                        kxbase::Decode_UTF8(output.PartialPath()), options);
            });
        } catch (const kxbase::KXBadInputException& e) {
            throw Failure(e.Describe(), ExitDamaged);
        }
        output.Commit();
        progress.Finish();
        if (m_json) {
            WriteOutput(JsonText(AsJson(report)));
        } else if (!session.quiet) {
            WriteError(AsText(report));
        }
    }

private:
    Json AsJson(const kxio::RecodeReport& report) const {
        Json json = JsonDocument("qsn.recode", 1, m_input);
        json["output"] = m_output;
        json["bytesBefore"] = report.bytesBefore;
        json["bytesAfter"] = report.bytesAfter;
        json["hashesMadeAnew"] = report.hashesMadeAnew;
        json["components"] = Json::array();
        for (const kxio::RecodedComponent& c : report.components) {
            json["components"].push_back({{"component", static_cast<uint32_t>(c.component)},
                                          {"name", ComponentShortName(c.component)},
                                          {"recoded", c.recoded},
                                          {"kept", c.kept},
                                          {"bytesBefore", c.bytesBefore},
                                          {"bytesAfter", c.bytesAfter}});
        }
        return json;
    }

    std::string AsText(const kxio::RecodeReport& report) const {
        const auto percent = [](uint64_t after, uint64_t before) {
            return before == 0 ? 100.0 : 100.0 * static_cast<double>(after) / static_cast<double>(before);
        };
        std::string text = fmt::format("{} -> {}\n", Printable(m_input), Printable(m_output));
        for (const kxio::RecodedComponent& c : report.components) {
            text += fmt::format("  {:12} {:>15} -> {:>15} bytes ({:5.1f} %), {} of {} chunks recoded\n",
                                ComponentShortName(c.component), Grouped(c.bytesBefore),
                                Grouped(c.bytesAfter), percent(c.bytesAfter, c.bytesBefore),
                                Grouped(c.recoded), Grouped(c.recoded + c.kept));
        }
        text +=
            fmt::format("  {:12} {:>15} -> {:>15} bytes ({:5.1f} %){}\n", "file", Grouped(report.bytesBefore),
                        Grouped(report.bytesAfter), percent(report.bytesAfter, report.bytesBefore),
                        report.hashesMadeAnew ? ", hashes made anew" : "");
        return text;
    }

    std::string m_input;
    std::string m_output;
    std::vector<std::string> m_codecs;
    CodecPresetFlags m_presets;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeRecodeCommand() {
    return std::make_unique<RecodeCommand>();
}

}  // namespace qsn
