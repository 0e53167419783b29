// SPDX-License-Identifier: MIT
#include "kxio/DiffScans.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>

#include "kxbase/Exceptions.h"
#include "kxbase/Sizes.h"
#include "kxbase/UTF8.h"
#include "kxio/QSNScanReader.h"
#include "reader/PatchTasks.h"
#include "services/PatchCells.h"
#include "services/PropertyTexts.h"

namespace kxio {

namespace {

using kxbase::ComponentType;

/// Patches whose results wait at most.
constexpr uint64_t kBatch = 64;

/// What one patch adds.
struct PatchDifference {
    uint64_t cells = 0;
    uint64_t different = 0;
    uint64_t notCompared = 0;
    std::optional<std::pair<uint32_t, uint32_t>> firstCell;
    double largest = 0;
    std::string problem;
};

class CellComparison {
public:
    CellComparison(const QSNScanReader& first, const QSNScanReader& second, const DiffOptions& options)
        : m_first(first), m_second(second), m_options(options) {
        const kxbase::GridTopology& a = m_first.Access().Grid();
        const kxbase::GridTopology& b = m_second.Access().Grid();
        // Each patch of the scan with the larger ones is then decoded once.
        m_driver = uint64_t{a.patchWidth} * a.patchHeight >= uint64_t{b.patchWidth} * b.patchHeight
                       ? &m_first
                       : &m_second;
    }

    void Compare(ComponentDifference& difference, uint64_t& done, uint64_t total);

private:
    void Patch(uint64_t index, PatchDifference& result);
    void Cells(const PatchRect& rect, const std::vector<unsigned char>& a,
               const std::vector<unsigned char>& b, PatchDifference& result) const;
    bool Differs(const unsigned char* a, const unsigned char* b, double& difference) const;

    PatchCells m_first;
    PatchCells m_second;
    const DiffOptions& m_options;
    const PatchCells* m_driver;

    // Of the component at hand.
    ComponentType m_component{};
    uint32_t m_elementBytes = 0;
    double m_tolerance = 0;
};

/// Whether two values differ beyond the tolerance; `difference` is by how much where that means something.
bool CellComparison::Differs(const unsigned char* a, const unsigned char* b, double& difference) const {
    difference = 0;
    if (std::memcmp(a, b, m_elementBytes) == 0) return false;
    if (!IsMeasure(m_component)) return true;
    if (m_component == kxbase::Color) {
        for (int channel = 0; channel < 3; ++channel)
            difference =
                std::max(difference, static_cast<double>(std::abs(int{a[channel]} - int{b[channel]})));
        return difference > m_tolerance;
    }
    const double x = CellNumber(m_component, a);
    const double y = CellNumber(m_component, b);
    if (std::isnan(x) || std::isnan(y)) {
        if (std::isnan(x) && std::isnan(y)) return false;
        difference = std::numeric_limits<double>::infinity();
        return true;
    }
    difference = x == y ? 0 : std::abs(x - y);  // infinities of one sign are equal
    if (m_component == kxbase::Range && (x > 0) != (y > 0)) return true;
    return difference > m_tolerance;
}

void CellComparison::Cells(const PatchRect& rect, const std::vector<unsigned char>& a,
                           const std::vector<unsigned char>& b, PatchDifference& result) const {
    const uint64_t countA = a.size() / m_elementBytes;
    const uint64_t countB = b.size() / m_elementBytes;
    const uint64_t count = std::min(countA, countB);
    const auto note = [&](uint64_t cell) {
        ++result.different;
        if (result.firstCell) return;
        const uint64_t width = std::max(1U, rect.columns);
        result.firstCell = {static_cast<uint32_t>(rect.firstRow + cell / width),
                            static_cast<uint32_t>(rect.firstColumn + cell % width)};
    };
    for (uint64_t i = 0; i < count; ++i) {
        double difference = 0;
        if (Differs(a.data() + i * m_elementBytes, b.data() + i * m_elementBytes, difference)) note(i);
        result.largest = std::max(result.largest, difference);
    }
    // Patches of a scan without a grid may hold more values in one of the two.
    for (uint64_t i = count; i < std::max(countA, countB); ++i)
        note(i);
    result.cells = std::max(countA, countB);
}

void CellComparison::Patch(uint64_t index, PatchDifference& result) {
    const PatchRect rect = m_driver->RectOf(index);
    std::vector<unsigned char> a;
    std::vector<unsigned char> b;
    const char* which = "first";
    const uint64_t stored =
        std::max(m_first.StoredBytes(m_component, rect), m_second.StoredBytes(m_component, rect));
    if (stored == 0 && !m_first.WithoutGrid()) {
        result.cells = rect.CellCount();  // nothing is there, which is the same in both
        return;
    }
    try {
        m_driver->RequireBacked(rect, m_elementBytes, stored);
        m_first.Read(m_component, rect, m_elementBytes, a);
        which = "second";
        m_second.Read(m_component, rect, m_elementBytes, b);
    } catch (const kxbase::KXException& e) {
        result.notCompared = rect.CellCount();
        result.problem = std::string(which) + " scan: " + e.Describe();
        return;
    }
    Cells(rect, a, b, result);
}

void CellComparison::Compare(ComponentDifference& difference, uint64_t& done, uint64_t total) {
    m_component = difference.component;
    m_elementBytes = m_first.Access().ElementBytes(m_component);
    const uint32_t other = m_second.Access().ElementBytes(m_component);
    if (m_elementBytes != other || m_elementBytes == 0) {
        difference.problem =
            "elements of " + std::to_string(m_elementBytes) + " and of " + std::to_string(other) + " bytes";
        return;
    }
    if (m_first.WithoutGrid() != m_second.WithoutGrid()) {
        difference.problem = "one of the scans has no grid";
        return;
    }
    const auto tolerance = m_options.tolerance.find(m_component);
    m_tolerance = tolerance == m_options.tolerance.end() ? 0 : tolerance->second;
    const uint64_t patches = m_driver->PatchCount(m_component);
    if (patches < m_driver->Access().Grid().PatchCount64())
        difference.problem = "the lookup table ends after " + std::to_string(patches) + " patches";
    double largest = 0;
    std::vector<PatchDifference> results;
    for (uint64_t first = 0; first < patches; first += kBatch) {
        const uint64_t count = std::min(kBatch, patches - first);
        results.assign(count, {});
        RunPatchTasks(count, m_options.threads,
                      [&](uint64_t i, PatchBuffers&) { Patch(first + i, results[i]); });
        for (const PatchDifference& patch : results) {
            difference.cells += patch.cells;
            difference.different += patch.different;
            difference.notCompared += patch.notCompared;
            if (!difference.firstCell) difference.firstCell = patch.firstCell;
            if (difference.problem.empty()) difference.problem = patch.problem;
            largest = std::max(largest, patch.largest);
            done += patch.cells + patch.notCompared;
        }
        if (m_options.progress) m_options.progress(std::min(done, total), total);
    }
    if (IsMeasure(m_component) && difference.cells != 0) difference.largest = largest;
}

}  // namespace

bool DiffReport::CellsEqual() const {
    return sameSize && std::all_of(components.begin(), components.end(),
                                   [](const ComponentDifference& c) { return c.Equal(); });
}

bool DiffReport::Equal() const {
    return CellsEqual() && std::all_of(properties.begin(), properties.end(),
                                       [](const PropertyDifference& p) { return p.storage; });
}

DiffReport DiffScans(const QSNScanReader& first, const QSNScanReader& second, const DiffOptions& options) {
    DiffReport report;
    const std::vector<PropertyText> a = PropertyTexts(first);
    const std::vector<PropertyText> b = PropertyTexts(second);
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i].text != b[i].text)
            report.properties.push_back({a[i].name, a[i].text, b[i].text, a[i].storage});
    }
    const kxbase::GridTopology& gridA = first.GetScanInformation().grid;
    const kxbase::GridTopology& gridB = second.GetScanInformation().grid;
    report.sameSize = gridA.columns == gridB.columns && gridA.rows == gridB.rows;

    std::set<ComponentType> components;
    for (const QSNScanReader* reader : {&first, &second}) {
        for (const ComponentType component : reader->GetAvailableComponents())
            components.insert(component);
    }
    CellComparison comparison(first, second, options);
    uint64_t done = 0;
    const uint64_t total = kxbase::SizeProduct(gridA.columns, gridA.rows, components.size());
    for (const ComponentType component : components) {
        ComponentDifference difference;
        difference.component = component;
        difference.inFirst = first.IsComponentAvailable(component);
        difference.inSecond = second.IsComponentAvailable(component);
        if (difference.inFirst && difference.inSecond && report.sameSize)
            comparison.Compare(difference, done, total);
        report.components.push_back(std::move(difference));
    }
    return report;
}

}  // namespace kxio
