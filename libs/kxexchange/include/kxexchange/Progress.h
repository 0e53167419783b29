// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kxexchange/Export.h"

namespace kxexchange {

/// Told how far an import or export has come, and asked whether to go on.
///
/// Called from the thread that called ImportScan or ExportScan, a few times per second at most on ordinary
/// scans (once per block of columns).
class KXEXCHANGE_EXPORT ProgressSink {
public:
    virtual ~ProgressSink();

    /// `cellsTotal` cells are to be handled, `cellsDone` are; an import counts every cell twice, since it
    /// reads its source twice. `bytesDone` counts bytes read from the source (import) or written (export).
    /// Both counts only grow. \return false to stop: the operation then removes what it has written and
    /// throws CancelledException.
    virtual bool Update(uint64_t cellsDone, uint64_t cellsTotal, uint64_t bytesDone) = 0;
};

}  // namespace kxexchange
