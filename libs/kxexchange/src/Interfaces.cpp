// SPDX-License-Identifier: MIT
// The interfaces' virtual tables live here, once.
#include "kxexchange/Errors.h"
#include "kxexchange/Progress.h"
#include "kxexchange/ScanSink.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

CancelledException::~CancelledException() = default;
LossException::~LossException() = default;
SourceFormatException::~SourceFormatException() = default;
ProgressSink::~ProgressSink() = default;
ScanSource::~ScanSource() = default;
ScanSink::~ScanSink() = default;

}  // namespace kxexchange
