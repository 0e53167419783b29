// SPDX-License-Identifier: MIT
#include "writer/HistogramRecords.h"

#include "kxio/HistogramHeader.h"

namespace kxio {

namespace {

// How many bytes the numbers of a histogram take: their count, then per patch its index, the number of its
// values, and each value with its count.
template <class Key>
uint64_t BytesOf(const HistogramCounts<Key>& counts) {
    uint64_t numbers = 1;
    for (const auto& [index, values] : counts)
        numbers += 2 + 2 * uint64_t{values.size()};
    return 8 * numbers;
}

template <class Header, class Key>
void Append(const HistogramCounts<Key>& counts, uint64_t maxBytes, HistogramRecords& result) {
    if (counts.empty()) return;
    const uint64_t bytes = BytesOf(counts);
    if (bytes <= maxBytes) {
        result.records.push_back(std::make_unique<Header>(counts));
        return;
    }
    const std::string name = kxbase::ComponentToString(Header::Component);
    result.warnings.push_back(L"The histogram of " + std::wstring(name.begin(), name.end()) +
                              L" is too large for the file (" + std::to_wstring(bytes) +
                              L" bytes) and was left out");
}

}  // namespace

HistogramRecords MakeHistogramRecords(const PatchHistograms& histograms, uint64_t maxBytes) {
    HistogramRecords result;
    Append<ClassHistogramHeader>(histograms.Classes(), maxBytes, result);
    Append<SegmentHistogramHeader>(histograms.Segments(), maxBytes, result);
    Append<Luminance8HistogramHeader>(histograms.Luminance8(), maxBytes, result);
    Append<Luminance16HistogramHeader>(histograms.Luminance16(), maxBytes, result);
    return result;
}

}  // namespace kxio
