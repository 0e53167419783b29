// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kxio/HistogramHeader.h"

namespace kxio {

/// The histogram of one component as a file holds it, for comparing patch by patch: the numbers as they were
/// decoded and where those of each patch begin.
class StoredHistogram {
public:
    /// \throws kxbase::KXException when the data is damaged
    explicit StoredHistogram(const ExtendedHeader& record);

    /// Patches that have an entry, ascending; larger ones than 2^32 - 1 and places inside patches left out.
    const std::map<uint32_t, std::pair<uint64_t, uint64_t>>& Patches() const { return m_patches; }
    /// Compares the counts of one patch: nothing when they are equal, otherwise what differs.
    template <class Key>
    std::optional<std::string> Compare(uint32_t patch,
                                       const std::vector<std::pair<Key, uint64_t>>& counts) const {
        const auto entry = m_patches.find(patch);
        if (entry == m_patches.end()) return std::nullopt;
        const auto [first, count] = entry->second;
        if (count != counts.size())
            return std::to_string(count) + " values, but the patch has " + std::to_string(counts.size());
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t key = Number(first + 2 * i);
            const uint64_t occurrences = Number(first + 2 * i + 1);
            if (key == counts[i].first && occurrences == counts[i].second) continue;
            return "value " + std::to_string(key) + " " + std::to_string(occurrences) +
                   " times, but the patch has " + std::to_string(uint64_t{counts[i].first}) + " " +
                   std::to_string(counts[i].second) + " times";
        }
        return std::nullopt;
    }

private:
    uint64_t Number(uint64_t index) const;

    std::vector<unsigned char> m_numbers;
    std::map<uint32_t, std::pair<uint64_t, uint64_t>> m_patches;  // first number and count of its pairs
};

}  // namespace kxio
