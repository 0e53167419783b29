// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "kxexchange/ExportScan.h"
#include "kxexchange/ScanSink.h"

namespace qsn {

/// Name of the own format among the others.
constexpr const char* kQsnFormat = "QSN";

/// A format that outputs can have: .qsn, or one of the exchange library.
struct TargetFormat {
    std::string name;                              ///< "QSN", "PTX"
    std::string ending;                            ///< ".qsn"
    const kxexchange::SinkFormat* sink = nullptr;  ///< null for .qsn

    bool IsQsn() const { return sink == nullptr; }
    /// One file can hold several scans.
    bool HoldsSeveral() const { return sink && sink->capabilities.severalScans != kxexchange::Fate::Lost; }
};

/// "e57, ptx, qsn": names of all formats that are read, or written, for help texts.
std::string SourceNames();
std::string SinkNames();
/// ".e57, .ptx": endings of all formats that are written but .qsn.
std::string SinkEndings();
/// A text whose words are put into lines as wide as help texts have place for.
std::string InHelpLines(const std::string& text);

/// \throws UsageError  there is no such format; the empty name is fine
void RequireSourceFormat(const std::string& name);
void RequireSinkFormat(const std::string& name);

/// The format called so, or else the one of the path's ending. `name` must be one of a format, or empty.
/// \throws UsageError  the ending says nothing
TargetFormat TargetFormatOf(const std::string& name, const std::string& path);

/// "cartesian", "spherical", "single", "double", or nothing. \throws UsageError
void ApplyCoordinates(const std::string& text, kxexchange::ExportOptions& options);

}  // namespace qsn
