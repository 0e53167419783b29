// SPDX-License-Identifier: MIT
#include "services/ValueCounts.h"

#include <algorithm>
#include <cmath>

#include "kxbase/Sizes.h"

namespace kxio {

namespace {

constexpr uint64_t kFirstSlots = 1024;

/// Spreads the bits of a key: two rounds of multiplying and folding, with odd constants near 2^64 / golden
/// ratio.
uint64_t Spread(uint64_t key) {
    key = (key ^ (key >> 32)) * 0x9e3779b97f4a7c15ULL;
    key = (key ^ (key >> 29)) * 0xbf58476d1ce4e5b9ULL;
    return key ^ (key >> 32);
}

}  // namespace

ValueCounts::ValueCounts(uint64_t mostKeys) : m_most(std::max(kFirstSlots, mostKeys)) {}

void ValueCounts::Begin(uint64_t pass, uint64_t passes) {
    m_pass = pass;
    m_passes = passes;
    m_used = 0;
    m_slots.assign(kFirstSlots, {});
}

ValueCounts::Slot& ValueCounts::Find(uint64_t key) {
    const uint64_t mask = m_slots.size() - 1;  // a power of two
    uint64_t at = Spread(key) & mask;
    while (m_slots[at].count != 0 && m_slots[at].key != key)
        at = (at + 1) & mask;
    return m_slots[at];
}

void ValueCounts::Grow() {
    std::vector<Slot> old(kxbase::SizeProduct(m_slots.size(), 2));
    old.swap(m_slots);
    for (const Slot& slot : old) {
        if (slot.count != 0) Find(slot.key) = slot;
    }
}

bool ValueCounts::Add(uint64_t key) {
    // The upper bits choose the pass, the lower ones the slot.
    if (m_passes > 1 && (Spread(key) >> 40) % m_passes != m_pass) return true;
    Slot* slot = &Find(key);
    if (slot->count == 0) {
        if (m_used == m_most) return false;
        if (2 * (m_used + 1) > m_slots.size()) {
            Grow();
            slot = &Find(key);
        }
        slot->key = key;
        ++m_used;
    }
    ++slot->count;
    return true;
}

double ValueCounts::SumOfCountLogs() const {
    // Sorted, so that the sum of floating-point numbers is always that of one order.
    std::vector<uint64_t> counts;
    counts.reserve(m_used);
    for (const Slot& slot : m_slots) {
        if (slot.count > 1) counts.push_back(slot.count);
    }
    std::sort(counts.begin(), counts.end());
    double sum = 0;
    for (const uint64_t count : counts)
        sum += static_cast<double>(count) * std::log2(static_cast<double>(count));
    return sum;
}

}  // namespace kxio
