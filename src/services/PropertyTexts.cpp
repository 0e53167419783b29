// SPDX-License-Identifier: MIT
#include "services/PropertyTexts.h"

#include <array>
#include <charconv>
#include <list>

#include "kxbase/UTF8.h"
#include "kxio/QSNScanReader.h"

namespace kxio {

namespace {

/// The shortest text that reads back to the same bits, whatever the locale.
template <class Float>
std::string Exact(Float value) {
    std::array<char, 64> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value);
    return std::string(text.data(), end.ptr);
}

std::string Joined(const std::list<std::wstring>& texts) {
    std::string all;
    for (const std::wstring& text : texts)
        all += (all.empty() ? "" : "\n") + kxbase::Encode_UTF8(text);
    return all + (texts.empty() ? "" : "\n");
}

std::string Joined(const std::list<kxbase::UUID>& identifiers) {
    std::string all;
    for (const kxbase::UUID& identifier : identifiers)
        all += kxbase::Encode_UTF8(identifier.ToWString()) + "\n";
    return all;
}

std::string Registration(const kxbase::RegistrationInformation& registration) {
    std::string all;
    for (unsigned i = 0; i < kxbase::RegistrationInformation::ValueCount; ++i)
        all += (i == 0 ? "" : ",") + Exact(registration.Values()[i]);
    return all;
}

template <class Words>
std::string Numbers(const Words& words) {
    std::string all;
    for (const auto word : words)
        all += (all.empty() ? "" : ",") + std::to_string(word);
    return all;
}

std::string Flag(bool value) {
    return value ? "true" : "false";
}

}  // namespace

std::vector<PropertyText> PropertyTexts(const QSNScanReader& reader) {
    const ScanProperties& p = reader.GetScanInformation();
    const kxbase::GridTopology& grid = p.grid;
    std::vector<PropertyText> all;
    const auto add = [&](const char* name, std::string text) {
        all.push_back({name, std::move(text), false});
    };
    const auto stored = [&](const char* name, std::string text) {
        all.push_back({name, std::move(text), true});
    };
    add("scan.uuid", kxbase::Encode_UTF8(p.scanUUID.ToWString()));
    add("scan.parentUuid", kxbase::Encode_UTF8(p.parentUUID.ToWString()));
    add("scan.model", kxbase::Encode_UTF8(p.scannerModel));
    add("scan.firstDate", p.firstDate.IsSet() ? p.firstDate.ToISOString() : "");
    add("scan.secondDate", p.secondDate.IsSet() ? p.secondDate.ToISOString() : "");
    add("scan.dateStatus", std::to_string(p.dateStatus));
    add("scan.scanningMode", kxbase::Encode_UTF8(p.scanningMode));
    add("scan.colorizationMode", kxbase::Encode_UTF8(p.colorizationMode));
    for (const std::wstring& text : p.descriptions)
        add("scan.descriptions", kxbase::Encode_UTF8(text));
    add("scan.validPoints", std::to_string(p.validPointCount));
    add("grid.columns", std::to_string(grid.columns));
    add("grid.rows", std::to_string(grid.rows));
    add("grid.horizontal.startRadians", Exact(grid.columnStartAngle));
    add("grid.horizontal.stepRadians", Exact(grid.columnAngularStep));
    add("grid.vertical.startRadians", Exact(grid.rowStartAngle));
    add("grid.vertical.stepRadians", Exact(grid.rowAngularStep));
    add("registration", Registration(p.registration));
    add("preregistration", Registration(p.preregistration));
    add("preregistration.uuid", kxbase::Encode_UTF8(p.preregistrationUUID.ToWString()));
    add("preregistration.value", Exact(p.preregistrationValue));
    add("tilt.kind", std::to_string(p.tilt.kind));
    add("tilt.firstRadians", Exact(p.tilt.angles.first));
    add("tilt.secondRadians", Exact(p.tilt.angles.second));
    add("flags.speckleCorrectionNeeded", Flag(p.speckleCorrectionNeeded));
    add("flags.locked3D", Flag(p.locked3D));
    add("flags.projectionMode", Flag(p.projectionMode));
    add("flags.framingMode", std::to_string(static_cast<uint32_t>(p.framingMode)));
    add("flags.spatialSamplingDistance", Exact(p.spatialSamplingDistance));
    add("flags.furtherWords", Numbers(p.furtherWords));
    add("flags.words260", Numbers(p.words260));
    add("messages", Joined(p.messages));
    add("warnings", Joined(p.warnings));
    add("links.hq", Joined(p.hqLinks));
    add("links.er", Joined(p.erLinks));
    add("links.hdr", Joined(p.hdrLinks));
    stored("file.writerRevision", std::to_string(p.writerRevision));
    stored("grid.patchWidth", std::to_string(grid.patchWidth));
    stored("grid.patchHeight", std::to_string(grid.patchHeight));
    stored("grid.previewWidth", std::to_string(grid.previewWidth));
    stored("grid.previewHeight", std::to_string(grid.previewHeight));
    std::string codecs;
    for (const auto& [component, codec] : p.componentCodecs)
        codecs += kxbase::ComponentToString(component) + " " + codec + "\n";
    stored("components.codec", codecs);
    return all;
}

}  // namespace kxio
