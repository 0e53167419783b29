// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <list>
#include <numbers>

#include "ComponentNames.h"
#include "Console.h"
#include "Numbers.h"
#include "ScanInfo.h"
#include "TextLayout.h"
#include "kxbase/UTF8.h"

namespace qsn {

namespace {

double ToDegrees(double radians) {
    return radians * 180 / std::numbers::pi;
}

std::string Angle(double radians) {
    return fmt::format("{:.6f} deg  ({:.9f} rad)", ToDegrees(radians), radians);
}

std::string YesNo(bool value) {
    return value ? "yes" : "no";
}

std::string PlainText(const std::wstring& text) {
    return Printable(kxbase::Encode_UTF8(text));
}

std::string MomentText(const kxbase::Date& date) {
    return date.IsSet() ? date.ToISOString() : "none";
}

std::string IdentifierText(const kxbase::UUID& uuid) {
    return uuid.IsZero() ? "none" : PlainText(uuid.ToWString());
}

/// A row only for what is there.
void OptionalRow(TextLayout& layout, const std::string& label, const std::wstring& text) {
    if (!text.empty()) layout.Row(label, PlainText(text));
}

void AddFile(TextLayout& layout, const ScanInfo& info) {
    layout.Section("File");
    layout.Row("path", Printable(info.path));
    layout.Row("size", info.fileBytes < 1000 ? ShortBytes(info.fileBytes)
                                             : fmt::format("{} ({} bytes)", ShortBytes(info.fileBytes),
                                                           Grouped(info.fileBytes)));
    layout.Row("writer revision", fmt::format("{}", info.properties.writerRevision));
    layout.Row("record versions",
               fmt::format("main header {}, scan header {}", info.mainHeaderVersion, info.scanHeaderVersion));
}

void AddScan(TextLayout& layout, const kxio::ScanProperties& p) {
    layout.Section("Scan");
    layout.Row("identifier", IdentifierText(p.scanUUID));
    layout.Row("parent", IdentifierText(p.parentUUID));
    layout.Row("model", p.scannerModel.empty() ? "none" : PlainText(p.scannerModel));
    layout.Row("first date", MomentText(p.firstDate));
    layout.Row("second date", MomentText(p.secondDate));
    OptionalRow(layout, "scanning mode", p.scanningMode);
    OptionalRow(layout, "colour mode", p.colorizationMode);
    for (const std::wstring& text : p.descriptions)
        OptionalRow(layout, "description", text);
    layout.Row("valid points", Grouped(p.validPointCount));
}

void AddGrid(TextLayout& layout, const ScanInfo& info) {
    const kxbase::GridTopology& grid = info.properties.grid;
    layout.Section("Grid");
    layout.Row("columns x rows", fmt::format("{} x {} = {} cells", grid.columns, grid.rows,
                                             Grouped(uint64_t{grid.columns} * grid.rows)));
    layout.Row("patches", fmt::format("{} x {} of {} x {} cells", grid.PatchesPerRow(),
                                      grid.PatchesPerColumn(), grid.patchWidth, grid.patchHeight));
    layout.Row("horizontal start", Angle(static_cast<double>(grid.columnStartAngle)));
    layout.Row("horizontal step", Angle(static_cast<double>(grid.columnAngularStep)));
    layout.Row("vertical start", Angle(static_cast<double>(grid.rowStartAngle)));
    layout.Row("vertical step", Angle(static_cast<double>(grid.rowAngularStep)));
    layout.Row("preview",
               fmt::format("{} x {}, every {} columns and {} rows{}", grid.previewWidth, grid.previewHeight,
                           grid.columnRatio, grid.rowRatio,
                           info.previewSamplingRatioIssue ? " (of an old writer: not to be relied on)" : ""));
    if (info.minimumRange && info.maximumRange) {
        layout.Row("range", fmt::format("{:.4f} to {:.4f} m", static_cast<double>(*info.minimumRange) / 1000,
                                        static_cast<double>(*info.maximumRange) / 1000));
    } else {
        layout.Row("range", info.limitPairs > 0 ? "no returns" : "no limits in the file");
    }
}

void AddVector(TextLayout& layout, const std::string& label, const kxmath::Vector3& v, int decimals) {
    layout.Row(label,
               fmt::format("{:>16.{}f} {:>16.{}f} {:>16.{}f}", v.x, decimals, v.y, decimals, v.z, decimals));
}

void AddRegistration(TextLayout& layout, const std::string& title,
                     const kxbase::RegistrationInformation& registration) {
    const kxbase::Frame3D rotation = registration.GetRotation();
    layout.Section(title);
    AddVector(layout, "x axis", rotation.xAxis, 9);
    AddVector(layout, "y axis", rotation.yAxis, 9);
    AddVector(layout, "z axis", rotation.zAxis, 9);
    AddVector(layout, "translation (m)", registration.GetTranslation(), 6);
}

void AddPose(TextLayout& layout, const ScanInfo& info) {
    const kxio::ScanProperties& p = info.properties;
    AddRegistration(layout, "Registration", p.registration);
    layout.Row("modified", YesNo(info.registrationModified));
    layout.Row("tilt", fmt::format("kind {}, {:.6f} and {:.6f} deg", p.tilt.kind,
                                   ToDegrees(p.tilt.angles.first), ToDegrees(p.tilt.angles.second)));
    if (p.preregistrationUUID.IsZero() && p.preregistrationValue == 0 &&
        p.preregistration == kxbase::RegistrationInformation())
        return;
    AddRegistration(layout, "Registration before", p.preregistration);
    layout.Row("identifier", IdentifierText(p.preregistrationUUID));
    layout.Row("value", fmt::format("{}", p.preregistrationValue));
}

void AddFlags(TextLayout& layout, const kxio::ScanProperties& p) {
    layout.Section("Flags");
    layout.Row("speckle correction needed", YesNo(p.speckleCorrectionNeeded));
    layout.Row("locked", YesNo(p.locked3D));
    layout.Row("projection mode", YesNo(p.projectionMode));
    layout.Row("framing mode", fmt::format("{}", static_cast<uint32_t>(p.framingMode)));
    layout.Row("thinned to distance",
               p.spatialSamplingDistance == 0.0F ? "no" : fmt::format("{}", p.spatialSamplingDistance));
}

std::string Scale(const ComponentInfo& component) {
    if (!component.scale) return "-";
    const char* unit = component.summary.component == kxbase::Range ? "mm" : "rad";
    // The file holds the reciprocal in single precision; seven digits are all it knows.
    return fmt::format("{:.6g} {}", *component.scale, unit);
}

void AddComponents(TextLayout& layout, const ScanInfo& info) {
    layout.Section("Components");
    std::vector<std::vector<std::string>> lines = {{"no", "name", "codec", "bytes/cell", "scale", "bytes",
                                                    "bits/cell", "stored", "empty", "absent", "preview",
                                                    "histogram"}};
    uint64_t bytes = 0;
    double bits = 0;
    for (const ComponentInfo& component : info.components) {
        const kxio::ComponentSummary& s = component.summary;
        bytes += s.storedBytes;
        bits += component.bitsPerCell;
        lines.push_back(
            {fmt::format("{}", static_cast<uint32_t>(s.component)), ComponentShortName(s.component), s.codec,
             fmt::format("{}", s.elementBytes), Scale(component), Grouped(s.storedBytes),
             fmt::format("{:.2f}", component.bitsPerCell), Grouped(s.storedPatches), Grouped(s.emptyPatches),
             Grouped(s.absentPatches),
             component.preview ? fmt::format("{} x {}, {} bytes", component.preview->width,
                                             component.preview->height, Grouped(component.preview->bytes))
                               : "-",
             component.hasHistogram ? "yes" : "-"});
    }
    lines.push_back({"", "all", "", "", "", Grouped(bytes), fmt::format("{:.2f}", bits)});
    layout.Table(lines, {true, false, false, true, true, true, true, true, true, true, false, false});
}

void AddThumbnail(TextLayout& layout, const ScanInfo& info) {
    layout.Section("Thumbnail");
    if (!info.thumbnail) {
        layout.Row("picture", "none");
        return;
    }
    layout.Row("picture", fmt::format("{} x {}, {} bytes of JPEG", info.thumbnail->width,
                                      info.thumbnail->height, Grouped(info.thumbnail->bytes)));
}

void AddTexts(TextLayout& layout, const std::string& title, const std::list<std::wstring>& texts) {
    if (texts.empty()) return;
    layout.Section(title);
    size_t number = 0;
    for (const std::wstring& text : texts)
        layout.Row(fmt::format("{}", ++number), PlainText(text));
}

void AddLinks(TextLayout& layout, const kxio::ScanProperties& p) {
    if (p.hqLinks.empty() && p.erLinks.empty() && p.hdrLinks.empty()) return;
    layout.Section("Links");
    for (const kxbase::UUID& uuid : p.hqLinks)
        layout.Row("HQ", IdentifierText(uuid));
    for (const kxbase::UUID& uuid : p.erLinks)
        layout.Row("ER", IdentifierText(uuid));
    for (const kxbase::UUID& uuid : p.hdrLinks)
        layout.Row("HDR", IdentifierText(uuid));
}

}  // namespace

std::string InfoAsText(const ScanInfo& info) {
    TextLayout layout;
    AddFile(layout, info);
    AddScan(layout, info.properties);
    AddGrid(layout, info);
    AddPose(layout, info);
    AddFlags(layout, info.properties);
    AddComponents(layout, info);
    AddThumbnail(layout, info);
    AddTexts(layout, "Messages", info.properties.messages);
    AddTexts(layout, "Warnings", info.properties.warnings);
    AddLinks(layout, info.properties);
    return layout.ToString();
}

}  // namespace qsn
