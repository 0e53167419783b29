// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxio/Export.h"

namespace kxio {

class QSNScanReader;

/// Numbers about the values of one channel: a component, or one of the three of a colour.
struct KXIO_EXPORT ChannelStatistics {
    double minimum = 0;  ///< smallest value
    double maximum = 0;  ///< largest value
    double mean = 0;     ///< of all values that count
};

/// Numbers about the cells of one component.
struct KXIO_EXPORT ComponentStatistics {
    kxbase::ComponentType component{};  ///< whose cells these are
    std::string codec;                  ///< of its first chunk
    uint32_t elementBytes = 0;          ///< of a decoded value
    uint64_t cells = 0;                 ///< of the grid, in patches that could be read
    uint64_t notRead = 0;               ///< cells in patches that are damaged or not in the file
    uint64_t values = 0;                ///< that count: returns for component 1, otherwise all finite ones
    /// One; three for component 6; none without values, and for components whose values are no numbers.
    std::vector<ChannelStatistics> channels;
    /// Share of the cells without a return; component 1 only.
    std::optional<double> noReturnShare;
    /// Entropy of the values as they are decoded, each taken by itself: what a codec that knows nothing of
    /// their order must spend at least, on average. In bits per cell; over all cells.
    double entropyBits = 0;
    uint64_t distinctValues = 0;  ///< that occur
    uint64_t storedBytes = 0;     ///< of all chunks
    double bytesPerCell = 0;      ///< the same divided by the cells of the grid
    std::string problem;          ///< what the first patch that was not read says
};

/// How statistics are made.
struct StatisticsOptions {
    unsigned threads = 1;  ///< that decode; 0 takes as many as the machine has
    /// Distinct values that are counted at once, 16 bytes each; where there are more, the component is read
    /// several times.
    uint64_t mostDistinct = uint64_t{1} << 22;
    /// Called now and then, in the calling thread, with the patches done and to do. What it throws ends the
    /// work and leaves it unchanged.
    std::function<void(uint64_t done, uint64_t total)> progress;
};

/// Decodes all patches of an open scan and tells about the values of each component, ascending by number. The
/// result does not depend on the number of threads. Memory: a few patches per thread and the counts.
/// \throws KXWrongDataSizeofException "Patch too large" when one patch claims more than 1 GiB
KXIO_EXPORT std::vector<ComponentStatistics> MeasureScan(const QSNScanReader& reader,
                                                         const StatisticsOptions& options = {});

}  // namespace kxio
