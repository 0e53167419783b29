// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <array>
#include <functional>
#include <string>
#include <vector>

#include "Commands.h"
#include "Console.h"
#include "Errors.h"
#include "Numbers.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxio/QSNFileRecovery.h"
#include "kxio/QSNInfo.h"

namespace qsn {

namespace {

/// One change: what is said about it, and the call that makes it.
struct Change {
    std::string what;
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

/// "identity", or twelve numbers: X axis, Y axis, Z axis, translation in metres.
kxbase::RegistrationInformation ParseRegistration(const std::string& text) {
    if (text == "identity") return {};
    std::array<double, kxbase::RegistrationInformation::ValueCount> values{};
    size_t count = 0;
    for (size_t start = 0; start <= text.size() && count <= values.size();) {
        const size_t end = std::min(text.find(',', start), text.size());
        const auto number = ParseNumber(text.substr(start, end - start));
        if (!number || count == values.size()) {
            count = 0;
            break;
        }
        values[count++] = *number;
        start = end + 1;
    }
    if (count != values.size())
        throw UsageError(
            fmt::format("--registration {}: expected identity or twelve numbers with commas between "
                        "them: X axis, Y axis, Z axis, translation",
                        text));
    return kxbase::RegistrationInformation::FromValues(values.data());
}

class EditCommand : public Command {
public:
    void Define(CLI::App& app) override {
        app.add_option("FILE", m_input, "The .qsn file to change")->required()->type_name("");
        AddTexts(app, "--message", m_messages, "Append a message");
        AddTexts(app, "--warning", m_warnings, "Append a warning");
        AddTexts(app, "--hq-link", m_hqLinks, "Append a link to a high-quality file", "UUID");
        AddTexts(app, "--er-link", m_erLinks, "Append a link to an ER file", "UUID");
        AddTexts(app, "--hdr-link", m_hdrLinks, "Append a link to an HDR file", "UUID");
        app.add_option("--registration", m_registration,
                       "identity, or 12 numbers: X, Y and Z axis,\n"
                       "then the translation in metres")
            ->type_name("X,X,X,...");
        app.add_option("--speckle", m_speckle, "Set or clear the speckle flag: on or off")
            ->type_name("on|off");
        app.add_flag("--dry-run", m_dryRun, "Check and say what would be done, change nothing");
    }

    void Run(const Session& session) override {
        const std::vector<Change> changes = Plan();
        if (changes.empty())
            throw UsageError("nothing to change: name at least one --message, --warning or other");
        const std::wstring path = kxbase::Decode_UTF8(m_input);
        kxio::QSNInfo::GetAllInfo(path);  // a file that does not open is not touched at all
        for (const Change& change : changes) {
            const std::string line = fmt::format("{}: {}\n", Printable(m_input), Printable(change.what));
            if (m_dryRun) {
                WriteOutput(line);
                continue;
            }
            change.make(path);
            if (!session.quiet) WriteError(line);
        }
    }

private:
    static void AddTexts(CLI::App& app, const char* name, std::vector<std::string>& texts, const char* help,
                         const char* type = "TEXT") {
        app.add_option(name, texts, help)->type_name(type)->take_all()->type_size(1)->allow_extra_args(false);
    }

    /// All options are read before the first change is made.
    std::vector<Change> Plan() const {
        using kxio::QSNInfo;
        std::vector<Change> changes;
        const auto addLinks = [&changes](const char* option, const char* kind,
                                         const std::vector<std::string>& texts,
                                         void (*add)(const std::wstring&, const kxbase::UUID&)) {
            for (const std::string& text : texts) {
                const kxbase::UUID id = ParseIdentifier(option, text);
                changes.push_back(
                    {fmt::format("{} link {} appended", kind, kxbase::Encode_UTF8(id.ToWString())),
                     [id, add](const std::wstring& path) { add(path, id); }});
            }
        };
        for (const std::string& text : m_messages)
            changes.push_back(
                {fmt::format("message \"{}\" appended", text),
                 [text](const std::wstring& path) { QSNInfo::AddMessage(path, kxbase::Decode_UTF8(text)); }});
        for (const std::string& text : m_warnings)
            changes.push_back(
                {fmt::format("warning \"{}\" appended", text),
                 [text](const std::wstring& path) { QSNInfo::AddWarning(path, kxbase::Decode_UTF8(text)); }});
        addLinks("--hq-link", "HQ", m_hqLinks, QSNInfo::AddHQLink);
        addLinks("--er-link", "ER", m_erLinks, QSNInfo::AddERLink);
        addLinks("--hdr-link", "HDR", m_hdrLinks, QSNInfo::AddHDRLink);
        if (!m_registration.empty()) {
            const auto registration = ParseRegistration(m_registration);
            changes.push_back({"registration overwritten", [registration](const std::wstring& path) {
                                   QSNInfo::SetRegistrationInfo(path, registration);
                               }});
        }
        if (!m_speckle.empty()) {
            if (m_speckle != "on" && m_speckle != "off")
                throw UsageError(fmt::format("--speckle {}: expected on or off", m_speckle));
            const bool on = m_speckle == "on";
            changes.push_back(
                {on ? "speckle flag set" : "speckle flag cleared", [on](const std::wstring& path) {
                     on ? kxio::QSNFileRecovery::SetSpekleBit(path)
                        : kxio::QSNFileRecovery::ClearSpekleBit(path);
                 }});
        }
        return changes;
    }

    std::string m_input;
    std::vector<std::string> m_messages;
    std::vector<std::string> m_warnings;
    std::vector<std::string> m_hqLinks;
    std::vector<std::string> m_erLinks;
    std::vector<std::string> m_hdrLinks;
    std::string m_registration;
    std::string m_speckle;
    bool m_dryRun = false;
};

}  // namespace

std::unique_ptr<Command> MakeEditCommand() {
    return std::make_unique<EditCommand>();
}

}  // namespace qsn
