// SPDX-License-Identifier: MIT
#include "kxio/ScanStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "kxbase/Exceptions.h"
#include "kxio/QSNScanReader.h"
#include "reader/PatchTasks.h"
#include "services/PatchCells.h"
#include "services/ValueCounts.h"

namespace kxio {

namespace {

/// Patches decoded ahead.
constexpr uint64_t kBatch = 16;

/// Elements of more than 8 bytes stand for themselves by a hash of 64 bits (FNV-1a).
uint64_t KeyOf(const unsigned char* value, uint32_t bytes) {
    if (bytes <= sizeof(uint64_t)) {
        uint64_t key = 0;
        std::memcpy(&key, value, bytes);
        return key;
    }
    uint64_t hash = 0xcbf29ce484222325ULL;
    for (uint32_t i = 0; i < bytes; ++i)
        hash = (hash ^ value[i]) * 0x100000001b3ULL;
    return hash;
}

class ComponentMeasurement {
public:
    ComponentMeasurement(const PatchCells& cells, const StatisticsOptions& options,
                         ComponentStatistics& result)
        : m_cells(cells), m_options(options), m_result(result), m_counts(options.mostDistinct) {}

    void Run(uint64_t& done, uint64_t total);

private:
    struct PatchValues {
        std::vector<unsigned char> bytes;
        uint64_t notRead = 0;
        std::string problem;
    };

    template <class Take>
    bool ForEachPatch(Take take, const std::function<void(uint64_t)>& progress) const;
    bool CountPass(uint64_t pass, uint64_t passes);
    void Measure(const PatchValues& patch);

    const PatchCells& m_cells;
    const StatisticsOptions& m_options;
    ComponentStatistics& m_result;
    ValueCounts m_counts;
    std::vector<double> m_sums;
};

/// Calls `take` for each stored patch, in order, until it says false.
template <class Take>
bool ComponentMeasurement::ForEachPatch(Take take, const std::function<void(uint64_t)>& progress) const {
    const uint64_t patches = m_cells.PatchCount(m_result.component);
    std::vector<PatchValues> batch;
    for (uint64_t first = 0; first < patches; first += kBatch) {
        const uint64_t count = std::min(kBatch, patches - first);
        batch.assign(count, {});
        RunPatchTasks(count, m_options.threads, [&](uint64_t i, PatchBuffers&) {
            const PatchRect rect = m_cells.RectOf(first + i);
            if (!m_cells.IsStored(m_result.component, first + i)) {
                batch[i].notRead = rect.CellCount();
                return;
            }
            try {
                m_cells.RequireBacked(rect, m_result.elementBytes,
                                      m_cells.StoredBytes(m_result.component, rect));
                m_cells.Read(m_result.component, rect, m_result.elementBytes, batch[i].bytes);
            } catch (const kxbase::KXUnreadablePatchException& e) {
                batch[i].bytes.clear();
                batch[i].notRead = rect.CellCount();
                batch[i].problem = e.Describe();
            }
        });
        for (const PatchValues& patch : batch) {
            if (!take(patch)) return false;
        }
        if (progress) progress(first + count);
    }
    return true;
}

void ComponentMeasurement::Measure(const PatchValues& patch) {
    m_result.notRead += patch.notRead;
    if (m_result.problem.empty()) m_result.problem = patch.problem;
    const uint64_t count = patch.bytes.size() / m_result.elementBytes;
    m_result.cells += count;
    const bool numbers = IsMeasure(m_result.component) || m_result.component == kxbase::Class ||
                         m_result.component == kxbase::Segment;
    if (!numbers) {
        m_result.values += count;
        return;
    }
    const size_t channels = m_result.component == kxbase::Color ? 3 : 1;
    for (uint64_t i = 0; i < count; ++i) {
        const unsigned char* value = patch.bytes.data() + i * m_result.elementBytes;
        for (size_t c = 0; c < channels; ++c) {
            const double number = CellNumber(m_result.component, value + c);
            if (!std::isfinite(number) || (m_result.component == kxbase::Range && !(number > 0))) continue;
            if (m_result.values == 0) {
                if (c == 0) m_result.channels.clear();
                m_result.channels.push_back({number, number, 0});
                m_sums.resize(c + 1);
            }
            ChannelStatistics& channel = m_result.channels[c];
            channel.minimum = std::min(channel.minimum, number);
            channel.maximum = std::max(channel.maximum, number);
            m_sums[c] += number;
            if (c + 1 == channels) ++m_result.values;
        }
    }
}

bool ComponentMeasurement::CountPass(uint64_t pass, uint64_t passes) {
    m_counts.Begin(pass, passes);
    return ForEachPatch(
        [&](const PatchValues& patch) {
            const uint64_t count = patch.bytes.size() / m_result.elementBytes;
            for (uint64_t i = 0; i < count; ++i) {
                if (!m_counts.Add(
                        KeyOf(patch.bytes.data() + i * m_result.elementBytes, m_result.elementBytes)))
                    return false;
            }
            return true;
        },
        {});
}

void ComponentMeasurement::Run(uint64_t& done, uint64_t total) {
    if (m_result.elementBytes == 0) return;  // no patch is stored
    // Counted on the way; only where the values are too many everything is read again.
    m_counts.Begin(0, 1);
    bool fits = true;
    ForEachPatch(
        [&](const PatchValues& patch) {
            Measure(patch);
            const uint64_t count = patch.bytes.size() / m_result.elementBytes;
            for (uint64_t i = 0; fits && i < count; ++i)
                fits = m_counts.Add(
                    KeyOf(patch.bytes.data() + i * m_result.elementBytes, m_result.elementBytes));
            return true;
        },
        [&](uint64_t patches) {
            if (m_options.progress) m_options.progress(done + patches, total);
        });
    done += m_cells.PatchCount(m_result.component);

    double logs = m_counts.SumOfCountLogs();
    m_result.distinctValues = m_counts.Distinct();
    for (uint64_t passes = 2; !fits; passes *= 2) {
        logs = 0;
        m_result.distinctValues = 0;
        fits = true;
        for (uint64_t pass = 0; fits && pass < passes; ++pass) {
            fits = CountPass(pass, passes);
            logs += m_counts.SumOfCountLogs();
            m_result.distinctValues += m_counts.Distinct();
            if (m_options.progress) m_options.progress(done, total);
        }
    }
    for (size_t c = 0; c < m_result.channels.size(); ++c)
        m_result.channels[c].mean = m_sums[c] / static_cast<double>(m_result.values);
    if (m_result.cells == 0) return;
    const auto cells = static_cast<double>(m_result.cells);
    m_result.entropyBits = std::max(0.0, std::log2(cells) - logs / cells);
    if (m_result.component == kxbase::Range)
        m_result.noReturnShare = static_cast<double>(m_result.cells - m_result.values) / cells;
}

}  // namespace

std::vector<ComponentStatistics> MeasureScan(const QSNScanReader& reader, const StatisticsOptions& options) {
    const PatchCells cells(reader);
    const kxbase::GridTopology& grid = cells.Access().Grid();
    const double gridCells = static_cast<double>(grid.columns) * static_cast<double>(grid.rows);
    std::vector<ComponentStatistics> all;
    uint64_t total = 0;
    for (const ComponentSummary& summary : cells.Access().Summarise()) {
        ComponentStatistics statistics;
        statistics.component = summary.component;
        statistics.codec = summary.codec;
        statistics.elementBytes = summary.elementBytes;
        statistics.storedBytes = summary.storedBytes;
        statistics.bytesPerCell = gridCells > 0 ? static_cast<double>(summary.storedBytes) / gridCells : 0;
        all.push_back(statistics);
        total += cells.PatchCount(summary.component);
    }
    uint64_t done = 0;
    for (ComponentStatistics& statistics : all)
        ComponentMeasurement(cells, options, statistics).Run(done, total);
    return all;
}

}  // namespace kxio
