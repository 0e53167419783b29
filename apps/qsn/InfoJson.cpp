// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <list>
#include <nlohmann/json.hpp>
#include <numbers>

#include "ComponentNames.h"
#include "Numbers.h"
#include "ScanInfo.h"
#include "kxbase/UTF8.h"

namespace qsn {

namespace {

using Json = nlohmann::ordered_json;

/// A float with the digits that it needs, not those of its double.
Json Short(float value) {
    const auto number = ParseNumber(fmt::format("{}", value));
    return number ? Json(*number) : Json(nullptr);
}

Json Degrees(double radians) {
    // Ten decimals are a ten-billionth of a degree: noise of the conversion stays out.
    return Json(std::round(radians * 180 / std::numbers::pi * 1e10) / 1e10);
}

Json Text(const std::wstring& text) {
    return kxbase::Encode_UTF8(text);
}

Json Texts(const std::list<std::wstring>& texts) {
    Json list = Json::array();
    for (const std::wstring& text : texts)
        list.push_back(Text(text));
    return list;
}

Json Identifier(const kxbase::UUID& uuid) {
    return uuid.IsZero() ? Json(nullptr) : Text(uuid.ToWString());
}

Json Identifiers(const std::list<kxbase::UUID>& uuids) {
    Json list = Json::array();
    for (const kxbase::UUID& uuid : uuids)
        list.push_back(Text(uuid.ToWString()));
    return list;
}

Json Moment(const kxbase::Date& date) {
    return date.IsSet() ? Json(date.ToISOString()) : Json(nullptr);
}

Json Vector(const kxmath::Vector3& v) {
    return Json::array({v.x, v.y, v.z});
}

Json Registration(const kxbase::RegistrationInformation& registration) {
    const kxbase::Frame3D rotation = registration.GetRotation();
    return {{"xAxis", Vector(rotation.xAxis)},
            {"yAxis", Vector(rotation.yAxis)},
            {"zAxis", Vector(rotation.zAxis)},
            {"translation", Vector(registration.GetTranslation())}};
}

Json Direction(float start, float step, float halfStep) {
    return {{"startRadians", Short(start)},
            {"startDegrees", Degrees(static_cast<double>(start))},
            {"stepRadians", Short(step)},
            {"stepDegrees", Degrees(static_cast<double>(step))},
            {"halfStepRadians", Short(halfStep)}};
}

Json Grid(const kxbase::GridTopology& grid) {
    return {{"columns", grid.columns},
            {"rows", grid.rows},
            {"cells", uint64_t{grid.columns} * grid.rows},
            {"patchWidth", grid.patchWidth},
            {"patchHeight", grid.patchHeight},
            {"patchesPerRow", grid.PatchesPerRow()},
            {"patchesPerColumn", grid.PatchesPerColumn()},
            {"patches", grid.PatchCount64()},
            {"horizontal", Direction(grid.columnStartAngle, grid.columnAngularStep, grid.columnHalfStep)},
            {"vertical", Direction(grid.rowStartAngle, grid.rowAngularStep, grid.rowHalfStep)},
            {"previewWidth", grid.previewWidth},
            {"previewHeight", grid.previewHeight},
            {"columnsPerPreviewColumn", Short(grid.columnRatio)},
            {"rowsPerPreviewRow", Short(grid.rowRatio)}};
}

Json Component(const ComponentInfo& component) {
    const kxio::ComponentSummary& summary = component.summary;
    Json json = {{"number", static_cast<uint32_t>(summary.component)},
                 {"name", ComponentShortName(summary.component)},
                 {"codec", summary.codec},
                 {"elementBytes", summary.elementBytes},
                 {"scale", component.scale ? Json(*component.scale) : Json(nullptr)},
                 {"storedPatches", summary.storedPatches},
                 {"emptyPatches", summary.emptyPatches},
                 {"absentPatches", summary.absentPatches},
                 {"bytes", summary.storedBytes},
                 {"bitsPerCell", component.bitsPerCell},
                 {"histogram", component.hasHistogram},
                 {"preview", nullptr}};
    if (component.preview) {
        json["preview"] = {{"width", component.preview->width},
                           {"height", component.preview->height},
                           {"codec", component.preview->codec},
                           {"bytes", component.preview->bytes}};
    }
    return json;
}

}  // namespace

std::string InfoAsJson(const ScanInfo& info) {
    const kxio::ScanProperties& p = info.properties;
    Json json;
    json["schema"] = "qsn.info";
    json["version"] = 1;
    json["file"] = {{"path", info.path},
                    {"bytes", info.fileBytes},
                    {"writerRevision", p.writerRevision},
                    {"mainHeaderVersion", info.mainHeaderVersion},
                    {"scanHeaderVersion", info.scanHeaderVersion}};
    json["scan"] = {{"uuid", Identifier(p.scanUUID)},       {"parentUuid", Identifier(p.parentUUID)},
                    {"model", Text(p.scannerModel)},        {"firstDate", Moment(p.firstDate)},
                    {"secondDate", Moment(p.secondDate)},   {"dateStatus", p.dateStatus},
                    {"scanningMode", Text(p.scanningMode)}, {"colorizationMode", Text(p.colorizationMode)},
                    {"descriptions", Json::array()},        {"validPoints", p.validPointCount}};
    for (const std::wstring& text : p.descriptions)
        json["scan"]["descriptions"].push_back(Text(text));
    json["grid"] = Grid(p.grid);
    json["limits"] = nullptr;
    if (info.minimumRange && info.maximumRange)
        json["limits"] = {{"minimumRange", Short(*info.minimumRange)},
                          {"maximumRange", Short(*info.maximumRange)}};
    json["registration"] = Registration(p.registration);
    json["registration"]["modified"] = info.registrationModified;
    json["preregistration"] = nullptr;
    if (!p.preregistrationUUID.IsZero() || p.preregistrationValue != 0 ||
        p.preregistration != kxbase::RegistrationInformation()) {
        json["preregistration"] = Registration(p.preregistration);
        json["preregistration"]["uuid"] = Identifier(p.preregistrationUUID);
        json["preregistration"]["value"] = p.preregistrationValue;
    }
    json["tilt"] = {{"kind", p.tilt.kind},
                    {"firstRadians", p.tilt.angles.first},
                    {"firstDegrees", Degrees(p.tilt.angles.first)},
                    {"secondRadians", p.tilt.angles.second},
                    {"secondDegrees", Degrees(p.tilt.angles.second)}};
    json["flags"] = {{"speckleCorrectionNeeded", p.speckleCorrectionNeeded},
                     {"locked3D", p.locked3D},
                     {"projectionMode", p.projectionMode},
                     {"framingMode", static_cast<uint32_t>(p.framingMode)},
                     {"spatialSamplingDistance", Short(p.spatialSamplingDistance)},
                     {"previewSamplingRatioIssue", info.previewSamplingRatioIssue},
                     {"furtherWords", p.furtherWords},
                     {"words260", p.words260}};
    json["components"] = Json::array();
    for (const ComponentInfo& component : info.components)
        json["components"].push_back(Component(component));
    json["thumbnail"] = nullptr;
    if (info.thumbnail) {
        json["thumbnail"] = {{"width", info.thumbnail->width},
                             {"height", info.thumbnail->height},
                             {"bytes", info.thumbnail->bytes}};
    }
    json["messages"] = Texts(p.messages);
    json["warnings"] = Texts(p.warnings);
    json["links"] = {
        {"hq", Identifiers(p.hqLinks)}, {"er", Identifiers(p.erLinks)}, {"hdr", Identifiers(p.hdrLinks)}};
    // File texts are valid UTF-8 already; the path was checked with the arguments.
    return json.dump(2) + "\n";
}

}  // namespace qsn
