// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "kxexchange/Export.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

/// Writes one scan into a file of another format, column by column.
///
/// Begin, then WriteColumns until all columns went in, then Finish. What the sink wrote is complete only
/// when Finish has returned. One sink serves one thread at a time.
class KXEXCHANGE_EXPORT ScanSink {
public:
    virtual ~ScanSink();

    /// Writes what stands in front of the cells. Formats without a pose of their own ignore it: the
    /// caller has transformed the cells if they shall be.
    /// \throws kxbase::KXWritingException, also from the other two
    virtual void Begin(const ScanDescription& description) = 0;
    /// Takes whole columns of the description's row count, column after column.
    virtual void WriteColumns(std::span<const Cell> cells, uint64_t columns) = 0;
    /// Writes what stands behind the cells and completes the header.
    virtual void Finish() = 0;
    /// Bytes written so far.
    virtual uint64_t BytesWritten() const = 0;
    /// Points written so far, cells without a return not counted.
    virtual uint64_t PointsWritten() const = 0;
};

}  // namespace kxexchange
