// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <string>

#include "Commands.h"
#include "ComponentNames.h"
#include "Console.h"
#include "Errors.h"
#include "Interrupt.h"
#include "JsonOutput.h"
#include "Numbers.h"
#include "OutputFile.h"
#include "Panorama.h"
#include "PngFile.h"
#include "Progress.h"
#include "kxbase/UTF8.h"
#include "kxio/QSNScanReader.h"

namespace qsn {

namespace {

constexpr uint32_t kLeastSide = 16;
constexpr uint32_t kGreatestSide = 32768;

class PreviewCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file to read")->required()->type_name("");
        app.add_option("OUT", m_output, "The .png file to write")->required()->type_name("");
        app.add_option("--component", m_component,
                       "What to draw: range, vertical, horizontal,\n"
                       "intensity8, intensity16 (or intensity), color,\n"
                       "or the component's number (default: range)")
            ->type_name("NAME");
        app.add_option("--size", m_size,
                       "The picture fits into this many pixels\n"
                       "(default: 2000x1000)")
            ->type_name("WxH");
        app.add_flag("--json", m_json, "JSON of the schema qsn.preview, version 1");
    }

    void Run(const Session& session) override {
        PanoramaRequest request;
        request.threads = session.threads;
        if (!m_component.empty()) request.component = ParseComponent(m_component);
        if (!m_size.empty()) request.box = ParseBox();

        OutputFile output(m_output, session.force, {m_input});
        const kxio::QSNScanReader reader(kxbase::Decode_UTF8(m_input), 0);
        const kxio::ScanAccess access(reader);
        Progress progress("preview", !session.quiet);
        const uint64_t cells = uint64_t{access.Grid().columns} * access.Grid().rows;
        request.onPatch = [&](uint64_t done, uint64_t total) {
            CheckInterrupt();
            progress.Update(cells / total * done, cells, 0, 0);
        };

        const Panorama panorama = DrawPanorama(access, request);
        output.Guard([&] { WritePng(output.PartialPath(), panorama.picture); });
        CheckInterrupt();
        output.Commit();
        progress.Finish();
        if (m_json)
            WriteOutput(JsonText(Document(request.component, panorama)));
        else if (!session.quiet)
            WriteError(fmt::format("{} -> {}\n  {}, {} x {} pixels\n", Printable(m_input),
                                   Printable(m_output), ComponentShortName(request.component),
                                   panorama.picture.Width(), panorama.picture.Height()));
        if (panorama.gaps.damagedPatches > 0)
            throw Failure(
                fmt::format("{}: {} patches could not be read and are left empty in the picture; first: {}",
                            m_input, panorama.gaps.damagedPatches, panorama.gaps.firstProblem),
                ExitPartial);
    }

private:
    Json Document(kxbase::ComponentType component, const Panorama& panorama) const {
        Json json = JsonDocument("qsn.preview", 1, m_input);
        json["output"] = m_output;
        json["component"] = static_cast<uint32_t>(component);
        json["width"] = panorama.picture.Width();
        json["height"] = panorama.picture.Height();
        json["damagedPatches"] = panorama.gaps.damagedPatches;
        return json;
    }

    PictureSize ParseBox() const {
        const auto size = ParseSize(m_size);
        const auto fits = [](uint32_t side) { return side >= kLeastSide && side <= kGreatestSide; };
        if (!size || !fits(size->first) || !fits(size->second))
            throw UsageError(fmt::format("--size {}: expected WxH with sides from {} to {}", m_size,
                                         kLeastSide, kGreatestSide));
        return {size->first, size->second};
    }

    std::string m_input;
    std::string m_output;
    std::string m_component;
    std::string m_size;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakePreviewCommand() {
    return std::make_unique<PreviewCommand>();
}

}  // namespace qsn
