// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "Commands.h"
#include "Console.h"
#include "Errors.h"
#include "JsonOutput.h"
#include "Numbers.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxbase/kxOutFile.h"
#include "kxio/QSNFileRecovery.h"
#include "kxio/QSNInfo.h"
#include "kxio/ScanAccess.h"

namespace qsn {

namespace {

/// One change: what is said about it, and the call that makes it.
struct Change {
    std::string plan;  ///< "append the message ..."
    std::string done;  ///< "appended the message ..."
    std::function<void(const std::wstring& path)> make;
};

kxbase::UUID ParseIdentifier(const std::string& option, const std::string& text) {
    try {
        return kxbase::UUID(kxbase::Decode_UTF8(text));
    } catch (const kxbase::KXBadInputException&) {
        throw UsageError(
            fmt::format("{} {}: expected a UUID such as 01234567-89ab-cdef-0123-456789abcdef", option, text));
    }
}

/// Whether the axes are those of a rotation, as far as a printed matrix has digits.
bool IsRotation(const kxmath::Frame& frame) {
    constexpr double kTolerance = 1e-3;
    const kxmath::Vector3 x = frame.GetXAxis();
    const kxmath::Vector3 y = frame.GetYAxis();
    const kxmath::Vector3 z = frame.GetZAxis();
    const kxmath::Vector3 off = kxmath::Cross(x, y) - z;
    return std::abs(kxmath::Dot(x, x) - 1) < kTolerance && std::abs(kxmath::Dot(y, y) - 1) < kTolerance &&
           std::abs(kxmath::Dot(x, y)) < kTolerance && kxmath::Dot(off, off) < kTolerance * kTolerance;
}

/// "identity", or twelve numbers: X axis, Y axis, Z axis, translation in metres.
kxbase::RegistrationInformation ParseRegistration(const std::string& text) {
    if (text == "identity") return {};
    const auto values = ParseNumbers(text, kxbase::RegistrationInformation::ValueCount);
    if (!values)
        throw UsageError(
            fmt::format("--registration {}: expected identity, or twelve numbers with commas between them: "
                        "X axis, Y axis, Z axis, translation",
                        text));
    const auto registration = kxbase::RegistrationInformation::FromValues(values->data());
    if (!IsRotation(registration.ToFrame()))
        throw UsageError(fmt::format(
            "--registration {}: the axes must have length 1, stand at right angles and be right-handed",
            text));
    return registration;
}

/// The twelve numbers as --registration takes them, to the last bit.
std::string RegistrationText(const kxbase::RegistrationInformation& registration) {
    std::string text;
    for (unsigned i = 0; i < kxbase::RegistrationInformation::ValueCount; ++i)
        text += fmt::format("{}{}", i == 0 ? "" : ",", registration.Values()[i]);
    return text;
}

/// Appended records are found by walking from the first one: another byte between the last and the end of
/// the file would hide them.
void RequireChainToTheEnd(const std::string& input, const kxio::ScanAccess& access) {
    uint64_t position = access.GetMainHeader().firstExtendedHeaderPosition;
    if (position == 0)
        throw Failure(
            fmt::format("{}: the file has no chain of extended records; nobody would find what is appended",
                        input),
            ExitUnknownFormat);
    kxbase::kxInFile in(kxbase::Decode_UTF8(input));
    kxio::ExtendedHeader record;
    while (in.Seek(position) && record.Read(&in) != 0)
        position += record.HeaderSize();
    if (position != access.GetFileSize())
        throw Failure(
            fmt::format("{}: the chain of extended records ends at byte {}, the file at byte {}; nobody "
                        "would find what is "
                        "appended",
                        input, position, access.GetFileSize()),
            ExitDamaged);
}

class EditCommand : public Command {
public:
    void Define(CLI::App& app) override {
        m_app = &app;
        app.add_option("FILE", m_input, "The .qsn file to change, in place")->required()->type_name("");
        AddTexts(app, "--message", m_messages, "Append a message", "TEXT");
        AddTexts(app, "--warning", m_warnings, "Append a warning", "TEXT");
        AddTexts(app, "--hq-link", m_hqLinks, "Append a link to a high-quality scan", "UUID");
        AddTexts(app, "--er-link", m_erLinks, "Append a link to an ER scan", "UUID");
        AddTexts(app, "--hdr-link", m_hdrLinks, "Append a link to an HDR scan", "UUID");
        app.add_option("--registration", m_registration,
                       "Overwrite the registration: identity, or 12\n"
                       "numbers: X, Y and Z axis in the project, then\n"
                       "the translation in metres")
            ->type_name("X,X,X,...");
        app.add_option("--speckle", m_speckle, "Set or clear the speckle flag: on or off")
            ->type_name("on|off");
        app.add_flag("--dry-run", m_dryRun, "Check, say what would be done, change nothing");
        app.add_flag("--json", m_json, "JSON of the schema qsn.edit, version 1");
    }

    void Run(const Session& session) override {
        const std::vector<Change> changes = Plan();
        if (changes.empty())
            throw UsageError(
                "nothing to change: expected --message, --warning, a link, --registration or "
                "--speckle");
        const kxio::ScanProperties before = RequirePossible();
        // Enough to take the change back.
        if (!m_json && !m_registration.empty() && (m_dryRun || !session.quiet))
            Report(m_dryRun, "the registration is " + RegistrationText(before.registration));
        const std::wstring path = kxbase::Decode_UTF8(m_input);
        for (const Change& change : changes) {
            if (m_dryRun) {
                if (!m_json) Report(true, "would " + change.plan);
                continue;
            }
            change.make(path);
            if (!m_json && !session.quiet) Report(false, change.done);
        }
        if (m_json) WriteOutput(JsonText(Document(changes, before.registration)));
    }

private:
    static void AddTexts(CLI::App& app, const char* name, std::vector<std::string>& texts, const char* help,
                         const char* type) {
        // Appended, never replaced: all that stands in the file stays.
        app.add_option(name, texts, std::string(help) + "; may be\nrepeated, those in the file stay")
            ->type_name(type)
            ->type_size(1)
            ->allow_extra_args(false);
    }

    Json Document(const std::vector<Change>& changes, const kxbase::RegistrationInformation& before) const {
        Json json = JsonDocument("qsn.edit", 1, m_input);
        json["dryRun"] = m_dryRun;
        json["changes"] = Json::array();
        for (const Change& change : changes)
            json["changes"].push_back(change.plan);
        json["registrationBefore"] = Json::array();
        for (unsigned i = 0; i < kxbase::RegistrationInformation::ValueCount; ++i)
            json["registrationBefore"].push_back(before.Values()[i]);
        return json;
    }

    /// A plan is what --dry-run is asked for: data.
    void Report(bool asData, const std::string& text) const {
        const std::string line = fmt::format("{}: {}\n", Printable(m_input), Printable(text));
        asData ? WriteOutput(line) : WriteError(line);
    }

    /// `--message --dry-run` is a text that was forgotten.
    void RequireTexts(const char* option, const std::vector<std::string>& texts) const {
        for (const std::string& text : texts) {
            if (text.empty()) throw UsageError(fmt::format("{}: the text is empty", option));
            if (text.starts_with('-') && m_app->get_option_no_throw(text) != nullptr)
                throw UsageError(fmt::format("{}: {} is an option, not a text", option, text));
        }
    }

    /// All options are read before the file is touched.
    std::vector<Change> Plan() const {
        using kxio::QSNInfo;
        std::vector<Change> changes;
        const auto addTexts = [&](const char* option, const char* kind, const std::vector<std::string>& texts,
                                  void (*add)(const std::wstring&, const std::wstring&)) {
            RequireTexts(option, texts);
            for (const std::string& text : texts)
                changes.push_back(
                    {fmt::format("append the {} \"{}\"", kind, text),
                     fmt::format("appended the {} \"{}\"", kind, text),
                     [text, add](const std::wstring& path) { add(path, kxbase::Decode_UTF8(text)); }});
        };
        const auto addLinks = [&](const char* option, const char* kind, const std::vector<std::string>& texts,
                                  void (*add)(const std::wstring&, const kxbase::UUID&)) {
            for (const std::string& text : texts) {
                const kxbase::UUID id = ParseIdentifier(option, text);
                const std::string shown = kxbase::Encode_UTF8(id.ToWString());
                changes.push_back({fmt::format("append the {} link {}", kind, shown),
                                   fmt::format("appended the {} link {}", kind, shown),
                                   [id, add](const std::wstring& path) { add(path, id); }});
            }
        };
        if (!m_registration.empty()) {
            const auto registration = ParseRegistration(m_registration);
            const std::string shown = RegistrationText(registration);
            changes.push_back({"set the registration to " + shown, "set the registration to " + shown,
                               [registration](const std::wstring& path) {
                                   QSNInfo::SetRegistrationInfo(path, registration);
                               }});
        }
        if (!m_speckle.empty()) {
            if (m_speckle != "on" && m_speckle != "off")
                throw UsageError(fmt::format("--speckle {}: expected on or off", m_speckle));
            const bool on = m_speckle == "on";
            changes.push_back({on ? "set the speckle flag" : "clear the speckle flag",
                               on ? "set the speckle flag" : "cleared the speckle flag",
                               [on](const std::wstring& path) {
                                   on ? kxio::QSNFileRecovery::SetSpekleBit(path)
                                      : kxio::QSNFileRecovery::ClearSpekleBit(path);
                               }});
        }
        addTexts("--message", "message", m_messages, QSNInfo::AddMessage);
        addTexts("--warning", "warning", m_warnings, QSNInfo::AddWarning);
        addLinks("--hq-link", "HQ", m_hqLinks, QSNInfo::AddHQLink);
        addLinks("--er-link", "ER", m_erLinks, QSNInfo::AddERLink);
        addLinks("--hdr-link", "HDR", m_hdrLinks, QSNInfo::AddHDRLink);
        return changes;
    }

    /// Either all changes can be made, or none is begun.
    /// \returns what the file says now
    kxio::ScanProperties RequirePossible() const {
        const std::wstring path = kxbase::Decode_UTF8(m_input);
        const kxio::ScanProperties properties = kxio::QSNInfo::GetAllInfo(path);
        const kxio::QSNScanReader reader(path, 0);
        const kxio::ScanAccess access(reader);
        const kxio::ScanHeader& header = access.GetScanHeader();
        constexpr uint32_t kRegistrationEnd =
            kxio::ScanHeader::RegistrationOffset + kxio::ScanHeader::RegistrationSize;
        constexpr uint32_t kFirstVersionWithRegistration = 210;
        if (!m_registration.empty() &&
            (header.GetVersion() < kFirstVersionWithRegistration || header.GetDataSize() < kRegistrationEnd))
            throw Failure(fmt::format("{}: its scan header, version {}, has no registration that can be set",
                                      m_input, header.GetVersion()),
                          ExitUnknownFormat);
        if (!m_speckle.empty() && header.GetSpeckleOffset() == 0)
            throw Failure(fmt::format("{}: its scan header, version {}, has no speckle flag", m_input,
                                      header.GetVersion()),
                          ExitUnknownFormat);
        if (!m_messages.empty() || !m_warnings.empty() || !m_hqLinks.empty() || !m_erLinks.empty() ||
            !m_hdrLinks.empty())
            RequireChainToTheEnd(m_input, access);
        if (!kxbase::kxOutFile(path, kxbase::kxOutFile::KeepContent).IsOpen())
            throw Failure(m_input + ": it cannot be opened for writing", ExitWriteFailed);
        return properties;
    }

    CLI::App* m_app = nullptr;
    std::string m_input;
    std::vector<std::string> m_messages;
    std::vector<std::string> m_warnings;
    std::vector<std::string> m_hqLinks;
    std::vector<std::string> m_erLinks;
    std::vector<std::string> m_hdrLinks;
    std::string m_registration;
    std::string m_speckle;
    bool m_dryRun = false;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> MakeEditCommand() {
    return std::make_unique<EditCommand>();
}

}  // namespace qsn
