// SPDX-License-Identifier: MIT
#include "writer/HistogramRecords.h"

#include <limits>
#include <utility>

#include "kxio/HistogramHeader.h"

namespace kxio {

namespace {

template <class Header>
void Append(PatchHistograms& histograms, uint64_t maxBytes, HistogramRecords& result) {
    const uint64_t bytes = histograms.NumberBytes(Header::Component);
    if (bytes == 0) return;
    if (bytes <= maxBytes) {
        const Header kind{ExtendedHeader(Header::Type)};
        PackedHistogram record(Header::Type, kind.GetRecordName(), histograms.Take(Header::Component));
        if (record.RecordBytes() <= std::numeric_limits<uint32_t>::max()) {
            result.records.push_back(std::move(record));
            return;
        }
    }
    const std::string name = kxbase::ComponentToString(Header::Component);
    result.warnings.push_back(L"The histogram of " + std::wstring(name.begin(), name.end()) +
                              L" is too large for the file (" + std::to_wstring(bytes) +
                              L" bytes) and was left out");
}

}  // namespace

HistogramRecords MakeHistogramRecords(PatchHistograms& histograms, uint64_t maxBytes) {
    HistogramRecords result;
    Append<ClassHistogramHeader>(histograms, maxBytes, result);
    Append<SegmentHistogramHeader>(histograms, maxBytes, result);
    Append<Luminance8HistogramHeader>(histograms, maxBytes, result);
    Append<Luminance16HistogramHeader>(histograms, maxBytes, result);
    return result;
}

}  // namespace kxio
