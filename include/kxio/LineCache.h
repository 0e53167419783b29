// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "kxbase/ComponentType.h"
#include "kxio/Export.h"

namespace kxio {

class QSNScanReader;

/// Owns component buffers of single grid lines for a reader; a derived class decides what is loaded.
/// Must not outlive the reader it refers to.
class KXIO_EXPORT LineCache {
public:
    /// No lines yet.
    explicit LineCache(const QSNScanReader& reader);
    /// Releases every buffer under the mutex. A buffer under a component for which none can exist (other
    /// than 1 to 12, 18 and 19) is a broken invariant and ends the program.
    ~LineCache();
    LineCache(const LineCache&) = delete;
    LineCache& operator=(const LineCache&) = delete;

    /// Elements in one line: the grid's row count.
    uint32_t GetElementCount() const;

protected:
    /// The values of one component in one line.
    using Buffer = std::unique_ptr<unsigned char[]>;

    const QSNScanReader& m_reader;                                        ///< whose lines they are
    std::map<uint32_t, std::map<kxbase::ComponentType, Buffer>> m_lines;  ///< by line number
    std::mutex m_mutex;                                                   ///< guards the lines
};

}  // namespace kxio
