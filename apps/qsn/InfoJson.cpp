// SPDX-License-Identifier: MIT
#include <list>

#include "ComponentNames.h"
#include "JsonOutput.h"
#include "ScanInfo.h"
#include "kxbase/UTF8.h"

namespace qsn {

namespace {

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
    return {{"startRadians", ShortNumber(start)},
            {"startDegrees", RoundedDegrees(static_cast<double>(start))},
            {"stepRadians", ShortNumber(step)},
            {"stepDegrees", RoundedDegrees(static_cast<double>(step))},
            {"halfStepRadians", ShortNumber(halfStep)}};
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
            {"columnsPerPreviewColumn", ShortNumber(grid.columnRatio)},
            {"rowsPerPreviewRow", ShortNumber(grid.rowRatio)}};
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
        json["limits"] = {{"minimumRange", ShortNumber(*info.minimumRange)},
                          {"maximumRange", ShortNumber(*info.maximumRange)}};
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
                    {"firstDegrees", RoundedDegrees(p.tilt.angles.first)},
                    {"secondRadians", p.tilt.angles.second},
                    {"secondDegrees", RoundedDegrees(p.tilt.angles.second)}};
    json["flags"] = {{"speckleCorrectionNeeded", p.speckleCorrectionNeeded},
                     {"locked3D", p.locked3D},
                     {"projectionMode", p.projectionMode},
                     {"framingMode", static_cast<uint32_t>(p.framingMode)},
                     {"spatialSamplingDistance", ShortNumber(p.spatialSamplingDistance)},
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
    return JsonText(json);
}

}  // namespace qsn
