// SPDX-License-Identifier: MIT
#include "kxio/LineCache.h"

#include <exception>

#include "kxio/QSNScanReader.h"

namespace kxio {

namespace {

bool MayBeCached(kxbase::ComponentType component) {
    return (component >= kxbase::Range && component <= kxbase::Component12) || component == kxbase::Class ||
           component == kxbase::Segment;
}

}  // namespace

LineCache::LineCache(const QSNScanReader& reader) : m_reader(reader) {}

LineCache::~LineCache() {
    const std::lock_guard lock(m_mutex);
    for (const auto& [line, buffers] : m_lines) {
        for (const auto& [component, buffer] : buffers) {
            if (!MayBeCached(component)) std::terminate();
        }
    }
    m_lines.clear();
}

uint32_t LineCache::GetElementCount() const {
    return m_reader.GetScanInformation().grid.rows;
}

}  // namespace kxio
