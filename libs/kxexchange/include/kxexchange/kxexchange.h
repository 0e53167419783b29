// SPDX-License-Identifier: MIT
#pragma once

/// Everything of the exchange library: scans of other formats in and out.
#include "kxexchange/Cell.h"
#include "kxexchange/Errors.h"
#include "kxexchange/ExportScan.h"
#include "kxexchange/FormatCapabilities.h"
#include "kxexchange/GridFit.h"
#include "kxexchange/GridLayout.h"
#include "kxexchange/ImportScan.h"
#include "kxexchange/IntensityMapping.h"
#include "kxexchange/LossReport.h"
#include "kxexchange/MakeCodec.h"
#include "kxexchange/PositionBound.h"
#include "kxexchange/Progress.h"
#include "kxexchange/RecodeScan.h"
#include "kxexchange/Regrid.h"
#include "kxexchange/ScanDescription.h"
#include "kxexchange/ScanSink.h"
#include "kxexchange/ScanSource.h"
