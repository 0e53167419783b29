// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "kxexchange/Export.h"
#include "kxexchange/ScanDescription.h"

namespace kxexchange {

struct FormatCapabilities;

/// What became of something on its way from one file to another.
enum class Fate {
    Kept,       ///< the same, to the last bit
    Converted,  ///< changed within a stated bound or by a stated rule
    Lost,       ///< not in the output
};

/// One line of a loss report.
struct LossEntry {
    std::string field;  ///< "grid", "intensity", "extension demo"
    Fate fate = Fate::Kept;
    std::string
        detail;  ///< for people: what was done, within which bound; empty when there is no more to say
    std::string inverse;  ///< Converted: how to get the original back; empty when it cannot be had

    bool operator==(const LossEntry&) const = default;
};

/// What became of everything a scan has. Fields that the scan does not have do not appear.
struct KXEXCHANGE_EXPORT LossReport {
    std::vector<LossEntry> entries;

    /// Appends an entry; one of the same field gives way.
    void Add(LossEntry entry);
    bool AnyLost() const;
    bool AnyConverted() const;
    const LossEntry* Find(const std::string& field) const;
    /// \throws LossException  something is lost; `file` is named
    void RequireNoLoss(const std::string& file) const;
};

/// "kept", "converted", "lost".
KXEXCHANGE_EXPORT const char* FateText(Fate fate);

/// What a format of these capabilities makes of a scan that is described so; known before a cell is read.
///
/// Whatever the description's `unheld` names is lost.
KXEXCHANGE_EXPORT LossReport ForeseeLosses(const ScanDescription& description,
                                           const FormatCapabilities& capabilities);

}  // namespace kxexchange
