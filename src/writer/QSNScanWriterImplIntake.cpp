// SPDX-License-Identifier: MIT
// One patch position: growing the grid, running the descriptors, reporting the ones that failed.
#include <algorithm>
#include <exception>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <set>

#include "kxbase/Exceptions.h"
#include "kxio/EmptyPatchDescriptor.h"
#include "kxio/EncodedPatchDescriptor.h"
#include "kxio/FlatPatchDescriptor.h"
#include "kxio/PatchDescriptor.h"
#include "writer/QSNScanWriterImpl.h"
#include "writer/WriterLocks.h"

namespace kxio {

namespace {

std::string PlaceName(uint64_t row, uint64_t column) {
    return "patch (row " + std::to_string(row) + ", column " + std::to_string(column) + ")";
}

[[noreturn]] void RefusePosition(uint32_t row, uint32_t column, std::string detail) {
    throw kxbase::KXWritingException(
        "AddPatch (" + std::to_string(row) + "," + std::to_string(column) + ")",
        kxbase::ErrorContext{{}, PlaceName(row, column), {}, {}, std::move(detail)});
}

// Below this a team of threads costs more than it saves.
constexpr uint64_t kParallelBytes = 32 * 1024;

uint64_t BytesOf(const PatchDescriptor& descriptor) {
    // In double, so that absurd sizes cannot wrap.
    const double bytes = static_cast<double>(descriptor.size) * static_cast<double>(descriptor.pixelLength);
    return static_cast<uint64_t>(std::min(bytes, double{kParallelBytes}));
}

// What went wrong with the descriptors of one call, in the order of the list, whatever the order in time.
class Failures {
public:
    explicit Failures(const std::vector<PatchDescriptor*>& descriptors)
        : m_descriptors(descriptors), m_errors(descriptors.size()) {}

    // The first failure of a descriptor counts. Each descriptor has one thread.
    void Keep(size_t which, std::exception_ptr error) noexcept {
        if (m_errors[which] == nullptr) m_errors[which] = std::move(error);
    }

    void Report(uint32_t row, uint32_t column) const {
        std::optional<std::string> first;
        for (size_t i = 0; i < m_errors.size(); ++i) {
            if (m_errors[i] == nullptr) continue;
            // Anything but a KXException, for want of memory say, goes on to the caller as it is.
            try {
                std::rethrow_exception(m_errors[i]);
            } catch (const kxbase::KXException& e) {
                if (!first)
                    first = kxbase::ComponentToString(m_descriptors[i]->component) + ": " + e.Describe();
            }
        }
        if (first) RefusePosition(row, column, *first);
    }

private:
    const std::vector<PatchDescriptor*>& m_descriptors;
    std::vector<std::exception_ptr> m_errors;
};

}  // namespace

// What one descriptor of a call leads to. Descriptors are worked on side by side, but what they write waits
// until it is their turn in the list: the file must not depend on which thread was quicker.
class QSNScanWriterImpl::Turn final : public PatchProcessor {
public:
    explicit Turn(QSNScanWriterImpl& writer) : m_writer(writer) {}

    void ProcessFlat(FlatPatchDescriptor* descriptor, unsigned row, unsigned column) override {
        auto chunk = std::make_unique<BufferPool::Loan>(m_writer.m_buffers);
        const PatchPlace place = m_writer.EncodeFlat(*descriptor, row, column, **chunk);
        m_writes.push_back(
            [this, component = descriptor->component, place, chunk = std::shared_ptr(std::move(chunk))] {
                m_writer.WriteChunk(component, **chunk, place);
            });
    }
    void ProcessEncoded(EncodedPatchDescriptor* descriptor, unsigned row, unsigned column) override {
        m_writes.push_back(
            [this, descriptor, row, column] { m_writer.ProcessEncoded(descriptor, row, column); });
    }
    void ProcessEmpty(EmptyPatchDescriptor* descriptor, unsigned row, unsigned column) override {
        m_writes.push_back(
            [this, descriptor, row, column] { m_writer.ProcessEmpty(descriptor, row, column); });
    }

    void Write() {
        for (const auto& write : m_writes)
            write();
        m_writes.clear();
    }

private:
    QSNScanWriterImpl& m_writer;
    std::vector<std::function<void()>> m_writes;
};

kxbase::GridTopology QSNScanWriterImpl::GridSnapshot() {
    const std::lock_guard lock(m_gridMutex);
    return m_properties.grid;
}

uint32_t QSNScanWriterImpl::CheckPosition(const kxbase::GridTopology& grid, uint32_t row,
                                          uint32_t column) const {
    const uint64_t across = grid.PatchesPerRow();
    const uint64_t down = grid.PatchesPerColumn();
    if (grid.patchWidth == 0 || grid.patchHeight == 0) {
        RefusePosition(row, column,
                       "patches of " + std::to_string(grid.patchWidth) + " x " +
                           std::to_string(grid.patchHeight) + " cells hold nothing");
    }
    if (column >= across) {
        RefusePosition(row, column, "the grid has " + std::to_string(across) + " patches side by side");
    }
    if (m_topologyMode == TopologyMode::None ? row != 0 : m_heightKnown && row >= down) {
        RefusePosition(row, column, "the grid has " + std::to_string(down) + " rows of patches");
    }
    const uint64_t index = across * row + column;
    if (index >= LookupTableHeader::MaximumEntryCount ||
        across * down > LookupTableHeader::MaximumEntryCount) {
        RefusePosition(
            row, column,
            "a file lists at most " + std::to_string(LookupTableHeader::MaximumEntryCount) + " patches");
    }
    return static_cast<uint32_t>(index);
}

uint32_t QSNScanWriterImpl::GrowGrid(uint32_t row, uint32_t column) {
    const std::lock_guard lock(m_gridMutex);
    kxbase::GridTopology grown = m_properties.grid;
    uint64_t columns = grown.columns;
    uint64_t rows = grown.rows;
    if (m_topologyMode == TopologyMode::None) {
        columns = std::max(columns, uint64_t{column} + 1);
    } else if (m_topologyMode == TopologyMode::Cylindrical && !m_heightKnown) {
        rows = std::max(rows, (uint64_t{row} + 1) * grown.patchHeight);
    }
    constexpr uint64_t kMaxSide = std::numeric_limits<uint32_t>::max();
    if (columns > kMaxSide || rows > kMaxSide) {
        RefusePosition(row, column, "a grid has at most 2^32 - 1 rows and columns");
    }
    grown.columns = static_cast<uint32_t>(columns);
    grown.rows = static_cast<uint32_t>(rows);
    const uint32_t index = CheckPosition(grown, row, column);
    m_properties.grid = grown;
    return index;
}

PatchPlace QSNScanWriterImpl::Locate(uint32_t row, uint32_t column) {
    PatchPlace place;
    place.grid = GridSnapshot();
    place.row = row;
    place.column = column;
    place.index = CheckPosition(place.grid, row, column);
    return place;
}

void QSNScanWriterImpl::AddPatch(const std::vector<PatchDescriptor*>& descriptors, uint32_t row,
                                 uint32_t column) {
    RequireCreated();
    Intake(descriptors, row, column);
}

void QSNScanWriterImpl::AddPatch(const std::vector<PatchDescriptor*>& descriptors, uint32_t index) {
    RequireCreated();
    if (m_topologyMode == TopologyMode::None) return Intake(descriptors, 0, index);
    const uint32_t across = GridSnapshot().PatchesPerRow();
    if (across == 0) RefusePosition(0, index, "the grid has no patches");
    Intake(descriptors, index / across, index % across);
}

void QSNScanWriterImpl::Intake(const std::vector<PatchDescriptor*>& descriptors, uint32_t row,
                               uint32_t column) {
    const uint32_t index = GrowGrid(row, column);
    const kxbase::GridTopology grid = GridSnapshot();

    // Descriptors of one component share a preview image and a place in the tables, so all but the first
    // of a component wait until the others are done.
    std::vector<size_t> parallel;
    std::vector<size_t> repeated;
    std::set<kxbase::ComponentType> seen;
    uint64_t bytes = 0;
    for (size_t i = 0; i < descriptors.size(); ++i) {
        if (descriptors[i] == nullptr) continue;
        (seen.insert(descriptors[i]->component).second ? parallel : repeated).push_back(i);
        bytes += BytesOf(*descriptors[i]);
    }

    Failures failures(descriptors);
    std::vector<Turn> turns(descriptors.size(), Turn(*this));
    const auto process = [&](size_t which) noexcept {
        try {
            descriptors[which]->Process(&turns[which], row, column);
        } catch (...) {
            failures.Keep(which, std::current_exception());
        }
    };
    const auto write = [&](size_t which) noexcept {
        try {
            turns[which].Write();
        } catch (...) {
            failures.Keep(which, std::current_exception());
        }
        // Failed or not: the caller has had his say about this position.
        try {
            MarkWritten(descriptors[which]->component, index, grid);
        } catch (...) {
            failures.Keep(which, std::current_exception());
        }
    };
    const auto count = static_cast<int64_t>(parallel.size());
    // A region for one thread costs calls of the system, too.
    if (count > 1 && bytes >= kParallelBytes) {
#pragma omp parallel for schedule(static, 1)
        for (int64_t i = 0; i < count; ++i)
            process(parallel[static_cast<size_t>(i)]);
    } else {
        for (const size_t which : parallel)
            process(which);
    }
    for (const size_t which : parallel)
        write(which);
    for (const size_t which : repeated) {
        process(which);
        write(which);
    }
    failures.Report(row, column);
}

void QSNScanWriterImpl::MarkWritten(kxbase::ComponentType component, uint32_t index,
                                    const kxbase::GridTopology& grid) {
    const std::lock_guard lock(WrittenPatchesLock());
    std::vector<bool>& written = m_writtenPatches[component];
    if (written.empty()) written.resize(static_cast<size_t>(grid.PatchCount64()));
    if (written.size() <= index) written.resize(size_t{index} + 1);
    written[index] = true;
}

}  // namespace kxio
