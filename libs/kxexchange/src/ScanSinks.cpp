// SPDX-License-Identifier: MIT
#include "ScanSinks.h"

#include "PlySink.h"
#include "PtxSink.h"
#include "XyzSink.h"

namespace kxexchange {

std::unique_ptr<ScanSink> MakeScanSink(ExportFormat format, kxbase::IOutFileStream& stream,
                                       const SinkStyle& style) {
    switch (format) {
        case ExportFormat::Ptx:
            return std::make_unique<PtxSink>(stream, style);
        case ExportFormat::Ply:
            return std::make_unique<PlySink>(stream, style);
        case ExportFormat::Xyz:
            return std::make_unique<XyzSink>(stream, style);
    }
    return nullptr;
}

}  // namespace kxexchange
