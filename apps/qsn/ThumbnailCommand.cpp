// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Commands.h"
#include "Console.h"
#include "Errors.h"
#include "JsonOutput.h"
#include "OutputFile.h"
#include "Picture.h"
#include "PngFile.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"
#include "kxio/ThumbnailEdit.h"

namespace qsn {

namespace {

/// A thumbnail is a small picture; more than this is some other file by mistake.
constexpr uint64_t kMostBytes = 64 << 20;

class ThumbnailCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file")->required()->type_name("");
        app.add_option("OUT", m_output,
                       "Where to put it: .jpg, byte for byte as stored,\n"
                       "or .png")
            ->type_name("");
        app.add_option("--set", m_newImage,
                       "Fetch nothing; store this JPEG file as the\n"
                       "thumbnail, appended to FILE")
            ->type_name("JPEG");
        app.add_flag("--json", m_json, "JSON of the schema qsn.thumbnail, version 1");
    }

    void Run(const Session& session) override {
        if (m_output.empty() == m_newImage.empty()) throw UsageError("expected either OUT or --set JPEG");
        const std::string report = m_newImage.empty() ? Fetch(session) : Store();
        if (m_json)
            WriteOutput(report);
        else if (!session.quiet)
            WriteError(report);
    }

private:
    std::string Document(const Json& output, uint64_t bytes, unsigned width, unsigned height) const {
        Json json = JsonDocument("qsn.thumbnail", 1, m_input);
        json["output"] = output;
        json["bytes"] = bytes;
        json["width"] = width;
        json["height"] = height;
        return JsonText(json);
    }

    std::string Fetch(const Session& session) const {
        const bool png = HasEnding(m_output, ".png");
        if (!png && !HasEnding(m_output, ".jpg") && !HasEnding(m_output, ".jpeg"))
            throw UsageError(fmt::format("{}: unknown ending; expected .jpg, .jpeg or .png", m_output));
        OutputFile output(m_output, session.force, {m_input});
        const kxio::QSNScanReader reader(kxbase::Decode_UTF8(m_input), 0);
        std::vector<unsigned char> jpeg;
        std::vector<unsigned char> rgb;
        unsigned width = 0;
        unsigned height = 0;
        const bool none = kxio::ScanAccess(reader).GetMainHeader().thumbnailHeaderPosition == 0;
        if (none) throw Failure(m_input + ": the file has no thumbnail", ExitWrongUsage);
        // One that does not match its hash is not given out at all.
        if (!reader.GetThumbnailJPEG(jpeg) || !reader.GetThumbnailRGB(rgb, width, height))
            throw Failure(m_input + ": the stored thumbnail is no readable JPEG image", ExitDamaged);
        if (png) {
            Picture picture(width, height);
            for (uint32_t y = 0; y < height; ++y) {
                for (uint32_t x = 0; x < width; ++x) {
                    const unsigned char* p = rgb.data() + (size_t{y} * width + x) * 3;
                    picture.At(x, y) = {p[0], p[1], p[2], 255};
                }
            }
            output.Guard([&] { WritePng(output.PartialPath(), picture); });
        } else {
            output.Write(jpeg);
        }
        output.Commit();
        if (m_json) return Document(m_output, jpeg.size(), width, height);
        return fmt::format("{} -> {}\n  {} x {} pixels\n", Printable(m_input), Printable(m_output), width,
                           height);
    }

    std::string Store() const {
        kxbase::kxInFile in(kxbase::Decode_UTF8(m_newImage));
        if (!in.IsOpen()) throw Failure(m_newImage + ": cannot be opened", ExitCannotOpen);
        if (in.GetSize() > kMostBytes)
            throw Failure(fmt::format("{}: larger than {} bytes", m_newImage, kMostBytes), ExitLimit);
        std::vector<unsigned char> jpeg(in.GetSize());
        if (in.Read(jpeg.data(), jpeg.size()) != jpeg.size())
            throw Failure(m_newImage + ": cannot be read", ExitCannotOpen);
        try {
            kxio::SetThumbnail(kxbase::Decode_UTF8(m_input), jpeg);
        } catch (kxbase::KXBadInputException& e) {
            e.AddContext({m_newImage, {}, {}, {}, {}});
            throw Failure(e.Describe(), ExitUnknownFormat);
        }
        if (m_json) {
            const kxio::QSNScanReader reader(kxbase::Decode_UTF8(m_input), 0);
            std::vector<unsigned char> rgb;
            unsigned width = 0;
            unsigned height = 0;
            reader.GetThumbnailRGB(rgb, width, height);
            return Document(nullptr, jpeg.size(), width, height);
        }
        return fmt::format("{}: thumbnail stored, {} bytes\n", Printable(m_input), jpeg.size());
    }

    std::string m_input;
    std::string m_output;
    std::string m_newImage;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeThumbnailCommand() {
    return std::make_unique<ThumbnailCommand>();
}

}  // namespace qsn
