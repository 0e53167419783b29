// SPDX-License-Identifier: MIT
#include "kxexchange/LossReport.h"

#include <algorithm>
#include <cmath>

#include "kxexchange/Errors.h"
#include "kxexchange/FormatCapabilities.h"

namespace kxexchange {

namespace {

// Significant bits that the values of a field need, as far as its description tells; 53 when it does not.
int BitsNeeded(const FieldDescription& field) {
    constexpr int kDouble = 53, kSingle = 24;
    if (field.numbers == NumberKind::Single) return kSingle;
    if (field.numbers != NumberKind::Integer || !field.minimum || !field.maximum) return kDouble;
    const double greatest = std::max(std::abs(*field.minimum), std::abs(*field.maximum));
    return greatest < 1 ? 1 : std::min(kDouble, static_cast<int>(std::log2(greatest)) + 1);
}

Fate Worse(Fate one, Fate other) {
    return std::max(one, other);
}

class Foresight {
public:
    LossReport report;

    void Add(bool present, const char* field, Fate fate, std::string detail = {}, std::string inverse = {}) {
        if (!present) return;
        if (fate == Fate::Kept) detail.clear();
        report.Add({field, fate, std::move(detail), std::move(inverse)});
    }
};

}  // namespace

void LossReport::Add(LossEntry entry) {
    const auto same = std::find_if(entries.begin(), entries.end(),
                                   [&](const LossEntry& other) { return other.field == entry.field; });
    if (same == entries.end()) {
        entries.push_back(std::move(entry));
    } else {
        *same = std::move(entry);
    }
}

bool LossReport::AnyLost() const {
    return std::any_of(entries.begin(), entries.end(),
                       [](const LossEntry& entry) { return entry.fate == Fate::Lost; });
}

bool LossReport::AnyConverted() const {
    return std::any_of(entries.begin(), entries.end(),
                       [](const LossEntry& entry) { return entry.fate == Fate::Converted; });
}

const LossEntry* LossReport::Find(const std::string& field) const {
    for (const LossEntry& entry : entries) {
        if (entry.field == field) return &entry;
    }
    return nullptr;
}

void LossReport::RequireNoLoss(const std::string& file) const {
    std::string list;
    for (const LossEntry& entry : entries) {
        if (entry.fate != Fate::Lost) continue;
        list += (list.empty() ? "" : ", ") + entry.field;
        if (!entry.detail.empty()) list += " (" + entry.detail + ")";
    }
    if (list.empty()) return;
    kxbase::ErrorContext context;
    context.file = file;
    context.detail = list;
    throw LossException("Something would be lost", context);
}

const char* FateText(Fate fate) {
    switch (fate) {
        case Fate::Kept:
            return "kept";
        case Fate::Converted:
            return "converted";
        case Fate::Lost:
            return "lost";
    }
    return "";
}

LossReport ForeseeLosses(const ScanDescription& description, const FormatCapabilities& capabilities) {
    Foresight foresight;
    const bool grid = description.HasGrid();
    foresight.Add(grid, "grid", capabilities.grid, "the format has no columns and rows");
    foresight.Add(grid, "cells without a return", capabilities.noReturns);
    foresight.Add(grid && description.directions, "directions of cells without a return",
                  capabilities.directions);
    const bool identity = description.pose == kxbase::RegistrationInformation();
    foresight.Add(!identity, "pose", capabilities.pose,
                  capabilities.pose == Fate::Converted ? "applied to the points" : "");

    const bool spherical = description.coordinateKind == CoordinateKind::Spherical;
    Fate coordinates = spherical ? capabilities.spherical : capabilities.cartesian;
    std::string how;
    if (coordinates == Fate::Converted) how = spherical ? "spherical to Cartesian" : "Cartesian to spherical";
    if (BitsNeeded(description.coordinates) > capabilities.coordinateBits) {
        coordinates = Worse(coordinates, Fate::Converted);
        how += std::string(how.empty() ? "" : "; ") + "to " + std::to_string(capabilities.coordinateBits) +
               " significant bits";
    }
    foresight.Add(true, "coordinates", coordinates, how);

    Fate intensity = capabilities.intensity;
    how.clear();
    if (intensity != Fate::Lost && BitsNeeded(description.intensity) > capabilities.intensityBits) {
        intensity = Worse(intensity, Fate::Converted);
        how = "to " + std::to_string(capabilities.intensityBits) + " significant bits";
    }
    foresight.Add(description.intensity.present, "intensity", intensity, how);
    foresight.Add(description.intensity.present && description.intensity.minimum &&
                      description.intensity.maximum && !description.intensity.assumedRange,
                  "declared intensity range", capabilities.intensityRange);

    Fate color = capabilities.color;
    how.clear();
    if (color != Fate::Lost && description.colorBits > capabilities.colorBits) {
        color = Worse(color, Fate::Converted);
        how = "16 to 8 bits per channel";
    }
    foresight.Add(description.color.present, "colour", color, how,
                  color == Fate::Converted && !how.empty() ? "value x 257, within 128" : "");
    foresight.Add(description.classification.present, "classes", capabilities.classes);
    foresight.Add(!description.images.empty(), "images", capabilities.images);
    foresight.Add(!description.name.empty(), "name", capabilities.name);
    foresight.Add(!description.text.empty(), "description", capabilities.text);
    foresight.Add(description.uuid.has_value() && !description.uuidMade, "UUID", capabilities.uuid);
    foresight.Add(description.acquisitionStart.IsSet() || description.acquisitionEnd.IsSet(), "dates",
                  capabilities.dates);
    foresight.Add(!description.sensor.Empty(), "sensor", capabilities.sensor);
    for (const UnheldFact& fact : description.unheld)
        foresight.report.Add({fact.field, Fate::Lost, fact.detail, {}});
    return std::move(foresight.report);
}

}  // namespace kxexchange
