// SPDX-License-Identifier: MIT
// Files that E57Builder made, opened, and what a description says of them.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "E57Builder.h"
#include "TestTools.h"
#include "kxbase/InMemoryStream.h"

namespace kxexchange::plain {

/// Opens bytes in memory.
inline std::unique_ptr<ScanSource> Open(const Bytes& file, const SourceOptions& options = {}) {
    return OpenScanSource(std::make_unique<kxbase::InMemoryStream>(file), "built.e57", options);
}

/// Whether a field is among what is not held.
inline bool Names(const ScanDescription& description, const std::string& field) {
    return std::any_of(description.unheld.begin(), description.unheld.end(),
                       [&](const UnheldFact& fact) { return fact.field == field; });
}

/// The value of a keepsake, or "none".
inline std::string Keepsake(const ScanDescription& description, const std::string& key) {
    for (const auto& [name, value] : description.keepsakes) {
        if (name == key) return value;
    }
    return "none";
}

/// x 1..12 in a grid of 3 columns x 4 rows; places[i] is column * 4 + row of record i.
inline Builder Ordered(const std::vector<unsigned char>& places) {
    Bytes x, rows, columns;
    for (size_t i = 0; i < places.size(); ++i) {
        x.push_back(static_cast<unsigned char>(i + 1));
        rows.push_back(places[i] % 4);
        columns.push_back(places[i] / 4);
    }
    Builder builder;
    builder.Scan(
        "<columnIndex type=\"Integer\" minimum=\"0\" maximum=\"255\"/>"
        "<cartesianX type=\"Integer\" minimum=\"0\" maximum=\"255\"/>"
        "<cartesianZ type=\"Integer\" minimum=\"0\" maximum=\"0\"/>"
        "<rowIndex type=\"Integer\" minimum=\"0\" maximum=\"255\"/>"
        "<cartesianY type=\"Integer\" minimum=\"0\" maximum=\"0\"/>",
        {columns, x, {}, rows, {}});
    return builder;
}

}  // namespace kxexchange::plain
