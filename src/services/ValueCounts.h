// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

namespace kxio {

/// Counts how often each 64-bit key occurs, in a table of bounded size.
///
/// Where the keys are too many the caller goes over them several times: a pass counts only those whose hash
/// falls to it.
class ValueCounts {
public:
    /// \param mostKeys  that are held at once
    explicit ValueCounts(uint64_t mostKeys);

    /// Starts pass number `pass` of `passes`.
    void Begin(uint64_t pass, uint64_t passes);
    /// False when the pass has more keys than fit; then nothing of it counts.
    bool Add(uint64_t key);
    uint64_t Distinct() const { return m_used; }
    /// Sum of count x log2(count) over the keys: entropy is log2(n) - sum / n. The same whatever the order in
    /// which keys came.
    double SumOfCountLogs() const;

private:
    struct Slot {
        uint64_t key = 0;
        uint64_t count = 0;  // 0: free
    };

    void Grow();
    Slot& Find(uint64_t key);

    std::vector<Slot> m_slots;
    uint64_t m_most;
    uint64_t m_used = 0;
    uint64_t m_pass = 0;
    uint64_t m_passes = 1;
};

}  // namespace kxio
