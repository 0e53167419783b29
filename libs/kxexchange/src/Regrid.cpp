// SPDX-License-Identifier: MIT
#include "kxexchange/Regrid.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <optional>

#include "AngleComb.h"
#include "GridGather.h"
#include "TextFormat.h"

namespace kxexchange {

namespace {

constexpr double kPi = std::numbers::pi;
constexpr size_t kAzimuthBins = size_t{1} << 19;
constexpr size_t kElevationBins = size_t{1} << 18;
constexpr size_t kAzimuthBands = 24;
constexpr size_t kElevationBands = 96;
// Nearer to the zenith the azimuth says little.
constexpr double kGreatestElevation = 1.4;
// Columns in a turn and rows in half a turn that a scanner may have.
constexpr double kLeastColumns = 60;
constexpr double kLeastRows = 60;
// Of the points that lie on the lines of a comb.
constexpr double kLeastCoherence = 0.25;
// Rows may drift more than the bands can follow; whether they are rows shows in the collisions.
constexpr double kLeastRowCoherence = 0.05;
// Rows of a comb are told more surely than rows of clusters, unless many of their points collide.
constexpr double kManyCollisions = 0.01;
constexpr uint64_t kLeastPoints = 200;
constexpr size_t kLeastGaps = 50;
constexpr double kSampledColumns = 64;
// A grid has at most so many cells for each point.
constexpr uint64_t kCellsPerPoint = 64;
constexpr uint64_t kColumnsPerRead = 64;
constexpr uint64_t kMostSampled = uint64_t{1} << 21;
constexpr int64_t kMostIndex = int64_t{1} << 30;

struct Direction {
    double azimuth = 0;    // -pi to pi
    double elevation = 0;  // -pi/2 to pi/2
};

std::optional<Direction> DirectionOf(const Cell& cell, CoordinateKind kind) {
    if (!cell.valid) return std::nullopt;
    Direction direction;
    if (kind == CoordinateKind::Spherical) {
        if (!(cell.Range() > 0)) return std::nullopt;
        direction.azimuth = std::remainder(cell.Azimuth(), 2 * kPi);
        direction.elevation = cell.Elevation();
    } else {
        const double flat = std::sqrt(cell.x * cell.x + cell.y * cell.y);
        if (!(flat > 0) && cell.z == 0) return std::nullopt;
        direction.azimuth = std::atan2(cell.y, cell.x);
        direction.elevation = std::atan2(cell.z, flat);
    }
    if (!std::isfinite(direction.azimuth) || !(std::abs(direction.elevation) <= kPi / 2 + 1e-9))
        return std::nullopt;
    return direction;
}

double ElevationPlace(double elevation) {
    return std::clamp(elevation / kPi + 0.5, 0.0, 1.0);
}
double AzimuthPlace(double azimuth) {
    return std::clamp(azimuth / (2 * kPi) + 0.5, 0.0, 1.0);
}

struct Bounds {
    int64_t least = std::numeric_limits<int64_t>::max();
    int64_t greatest = std::numeric_limits<int64_t>::min();
    void Add(int64_t value) {
        least = std::min(least, value);
        greatest = std::max(greatest, value);
    }
    uint64_t Count() const { return greatest < least ? 0 : static_cast<uint64_t>(greatest - least) + 1; }
};

}  // namespace

NotOneStationException::~NotOneStationException() = default;

class RegridSource::Impl {
public:
    Impl(std::unique_ptr<ScanSource> source, const RegridOptions& given)
        : inner(std::move(source)), options(given) {}

    void Regrid(uint64_t index);

    std::unique_ptr<ScanSource> inner;
    RegridOptions options;
    ScanDescription description;
    RegridReport report;
    std::unique_ptr<GridGather> gather;  // of a scan that had no grid
    uint64_t gathered = ~uint64_t{0};    // which scan
    bool open = false;

private:
    template <class Visit>
    void VisitPoints(uint64_t index, const Visit& visit);
    [[noreturn]] void Refuse(const std::string& detail) const;
    void FindColumns(const AngleComb& azimuths);
    int64_t Column(const Direction& direction) const;
    bool FindUnevenRows(const std::vector<uint64_t>& histogram);
    int64_t UnevenRow(double elevation) const {
        return std::upper_bound(m_rows.begin(), m_rows.end(), elevation) - m_rows.begin();
    }
    template <class RowOf>
    double Collisions(const RowOf& rowOf) const;
    bool RowsAreEven(const AngleComb& elevations, double coherence);

    // A point of one of the columns that the rows are learned from.
    struct Sample {
        int64_t column;
        float elevation;
        float azimuthPlace;
    };
    std::vector<Sample> m_samples;  // by column and elevation

    std::unique_ptr<AngleComb> m_azimuths;
    double m_seam = -kPi;        // azimuths begin here
    uint64_t m_closed = 0;       // columns of a full turn; 0: the sweep is open
    std::vector<double> m_rows;  // boundaries between uneven rows
};

template <class Visit>
void RegridSource::Impl::VisitPoints(uint64_t index, const Visit& visit) {
    const CoordinateKind kind = inner->OpenScan(index).coordinateKind;
    std::vector<Cell> cells;
    while (inner->ReadColumns(kColumnsPerRead, cells) != 0) {
        for (const Cell& cell : cells)
            visit(cell, DirectionOf(cell, kind));
    }
}

void RegridSource::Impl::Refuse(const std::string& detail) const {
    kxbase::ErrorContext context;
    context.file = inner->Name();
    context.detail = detail;
    throw NotOneStationException("Cloud is no scan from one place", context);
}

// Where the turn begins: inside the widest gap, or anywhere when the columns close around.
void RegridSource::Impl::FindColumns(const AngleComb& azimuths) {
    const std::vector<uint64_t> histogram = azimuths.Histogram();
    const size_t bins = histogram.size();
    size_t widest = 0, widestEnd = 0, run = 0;
    for (size_t i = 0; i < 2 * bins && run < bins; ++i) {
        run = histogram[i % bins] == 0 ? run + 1 : 0;
        if (run > widest) {
            widest = run;
            widestEnd = i % bins;
        }
    }
    const double binWidth = 2 * kPi / static_cast<double>(bins);
    const double gap = static_cast<double>(widest) * binWidth;
    const double lines = azimuths.Frequency();
    if (gap < 2.5 * azimuths.Step() && std::abs(lines - std::round(lines)) < 0.25) {
        m_closed = static_cast<uint64_t>(std::llround(lines));
        m_seam = -kPi;
    } else {
        m_closed = 0;
        m_seam = -kPi + (static_cast<double>(widestEnd) + 1) * binWidth - 0.5 * gap;
    }
}

int64_t RegridSource::Impl::Column(const Direction& direction) const {
    double azimuth = direction.azimuth;
    if (m_closed == 0 && azimuth < m_seam) azimuth += 2 * kPi;
    const int64_t index = m_azimuths->Index(azimuth, ElevationPlace(direction.elevation));
    if (m_closed == 0) return index;
    const auto turn = static_cast<int64_t>(m_closed);
    return (index % turn + turn) % turn;
}

// Rows as clusters of elevation: the histogram, smoothed by a part of the typical distance between neighbours
// in a column, falls to a minimum between them.
bool RegridSource::Impl::FindUnevenRows(const std::vector<uint64_t>& histogram) {
    m_rows.clear();
    std::vector<double> gaps;
    for (size_t i = 1; i < m_samples.size(); ++i) {
        if (m_samples[i].column == m_samples[i - 1].column)
            gaps.push_back(static_cast<double>(m_samples[i].elevation - m_samples[i - 1].elevation));
    }
    if (gaps.size() < kLeastGaps) return false;
    std::nth_element(gaps.begin(), gaps.begin() + static_cast<std::ptrdiff_t>(gaps.size() / 2), gaps.end());
    const double typical = gaps[gaps.size() / 2];
    const double binWidth = kPi / static_cast<double>(histogram.size());
    const auto reach = static_cast<size_t>(std::clamp(typical / binWidth / 8, 1.0, 4096.0));
    // Two running means make a triangle.
    std::vector<double> smooth(histogram.begin(), histogram.end());
    for (int round = 0; round < 2; ++round) {
        std::vector<double> next(smooth.size());
        double sum = 0;
        for (size_t i = 0; i < smooth.size() + reach; ++i) {
            if (i < smooth.size()) sum += smooth[i];
            if (i > 2 * reach) sum -= smooth[i - 2 * reach - 1];
            if (i >= reach) next[i - reach] = sum;
        }
        smooth = std::move(next);
    }
    // Peak, valley, peak: a valley counts when both peaks stand well above it.
    constexpr double kValley = 0.8;
    double peak = 0, valley = 0;
    size_t valleyAt = 0;
    bool falling = false;
    for (size_t i = 0; i < smooth.size(); ++i) {
        if (!falling) {
            peak = std::max(peak, smooth[i]);
            if (smooth[i] < kValley * peak) {
                falling = true;
                valley = smooth[i];
                valleyAt = i;
            }
        } else if (smooth[i] < valley) {
            valley = smooth[i];
            valleyAt = i;
        } else if (valley < kValley * smooth[i] && smooth[i] > 0) {
            // In the middle of a stretch of nothing.
            size_t end = valleyAt;
            while (end + 1 < i && smooth[end + 1] <= valley)
                ++end;
            m_rows.push_back(-kPi / 2 + (static_cast<double>(valleyAt + end) / 2 + 0.5) * binWidth);
            falling = false;
            peak = smooth[i];
        }
    }
    return m_rows.size() >= 2;
}

// The share of the samples that would find their cell taken.
template <class RowOf>
double RegridSource::Impl::Collisions(const RowOf& rowOf) const {
    std::vector<std::pair<int64_t, int64_t>> cells;
    cells.reserve(m_samples.size());
    for (const Sample& sample : m_samples)
        cells.emplace_back(sample.column, rowOf(sample));
    std::sort(cells.begin(), cells.end());
    size_t taken = 0;
    for (size_t i = 1; i < cells.size(); ++i)
        taken += cells[i] == cells[i - 1] ? 1 : 0;
    return static_cast<double>(taken) / static_cast<double>(std::max<size_t>(1, cells.size()));
}

bool RegridSource::Impl::RowsAreEven(const AngleComb& elevations, double coherence) {
    std::sort(m_samples.begin(), m_samples.end(), [](const Sample& a, const Sample& b) {
        return std::pair(a.column, a.elevation) < std::pair(b.column, b.elevation);
    });
    const bool comb = coherence >= kLeastRowCoherence;
    const double ofComb = Collisions([&](const Sample& sample) {
        return elevations.Index(static_cast<double>(sample.elevation),
                                static_cast<double>(sample.azimuthPlace));
    });
    if (comb && ofComb <= kManyCollisions) return true;
    if (!FindUnevenRows(elevations.Histogram())) {
        if (!comb) Refuse("the directions lie in no rows");
        return true;
    }
    const double ofClusters =
        Collisions([&](const Sample& sample) { return UnevenRow(static_cast<double>(sample.elevation)); });
    return comb && ofComb <= 2 * ofClusters;
}

void RegridSource::Impl::Regrid(uint64_t index) {
    gathered = ~uint64_t{0};
    gather.reset();
    report = {};
    // First pass: the histograms.
    m_azimuths = std::make_unique<AngleComb>(-kPi, 2 * kPi, kAzimuthBins, kAzimuthBands, false);
    AngleComb elevations(-kPi / 2, kPi, kElevationBins, kElevationBands, true);
    VisitPoints(index, [&](const Cell&, const std::optional<Direction>& direction) {
        ++report.points;
        if (!direction) return;
        elevations.Add(direction->elevation, AzimuthPlace(direction->azimuth));
        if (std::abs(direction->elevation) < kGreatestElevation)
            m_azimuths->Add(direction->azimuth, ElevationPlace(direction->elevation));
    });
    if (m_azimuths->Count() < kLeastPoints) {
        Refuse("found " + std::to_string(m_azimuths->Count()) + " points with a direction, expected " +
               std::to_string(kLeastPoints) + " at least");
    }
    const double most = static_cast<double>(report.points) / 4;
    const double columnCoherence = m_azimuths->Find(kLeastColumns, most);
    if (columnCoherence < kLeastCoherence) {
        Refuse("the azimuths lie in no columns: " + std::to_string(std::lround(100 * columnCoherence)) +
               " % of them agree on a step, expected " + std::to_string(std::lround(100 * kLeastCoherence)) +
               " %");
    }
    FindColumns(*m_azimuths);
    const double rowCoherence = elevations.Find(kLeastRows, most);

    // Second pass: the grid's bounds, and columns that tell which rows fit better.
    Bounds columns, rows;
    m_samples.clear();
    const auto stride = static_cast<int64_t>(std::max(1.0, m_azimuths->Frequency() / kSampledColumns));
    VisitPoints(index, [&](const Cell&, const std::optional<Direction>& direction) {
        if (!direction) return;
        const int64_t column = Column(*direction);
        const double azimuthPlace = AzimuthPlace(direction->azimuth);
        columns.Add(column);
        rows.Add(elevations.Index(direction->elevation, azimuthPlace));
        if (column % stride == 0 && m_samples.size() < kMostSampled) {
            m_samples.push_back(
                {column, static_cast<float>(direction->elevation), static_cast<float>(azimuthPlace)});
        }
    });
    const bool even = RowsAreEven(elevations, rowCoherence);
    m_samples = {};
    report.unevenRows = !even;
    if (!even) {
        rows = {};
        rows.Add(0);
        rows.Add(static_cast<int64_t>(m_rows.size()));
    }
    report.columns = columns.Count();
    report.rows = rows.Count();
    report.columnStep = m_azimuths->Step();
    report.rowStep =
        even ? elevations.Step() : (m_rows.back() - m_rows.front()) / static_cast<double>(m_rows.size() - 1);
    if (report.columns >= static_cast<uint64_t>(kMostIndex) ||
        report.rows >= static_cast<uint64_t>(kMostIndex) ||
        report.columns >
            (report.points * kCellsPerPoint + (uint64_t{1} << 20)) / std::max<uint64_t>(1, report.rows)) {
        Refuse("the points are too few for a grid of " + std::to_string(report.columns) + " x " +
               std::to_string(report.rows) + " cells");
    }

    // Third pass: every point to its cell.
    auto placing = std::make_unique<GridGather>(report.columns, report.rows, options.temporaryFolder);
    std::vector<bool> taken(static_cast<size_t>(report.columns * report.rows));
    VisitPoints(index, [&](const Cell& cell, const std::optional<Direction>& direction) {
        if (!direction) {
            ++report.leftOut;
            return;
        }
        const auto column = static_cast<uint64_t>(Column(*direction) - columns.least);
        const int64_t rowIndex =
            even ? elevations.Index(direction->elevation, AzimuthPlace(direction->azimuth))
                 : UnevenRow(direction->elevation);
        const auto row = static_cast<uint64_t>(rowIndex - rows.least);
        if (column >= report.columns || row >= report.rows) {  // the source changed between the passes
            ++report.leftOut;
            return;
        }
        const auto at = static_cast<size_t>(column * report.rows + row);
        if (taken[at]) {
            ++report.collided;
            return;
        }
        taken[at] = true;
        placing->Put(column, row, cell);
        ++report.placed;
    });
    const auto lost = static_cast<double>(report.collided + report.leftOut);
    if (lost > options.mostLeftOut * static_cast<double>(report.points)) {
        Refuse("on the likeliest grid, " + std::to_string(report.columns) + " x " +
               std::to_string(report.rows) + " cells, " + std::to_string(report.collided) + " of " +
               std::to_string(report.points) + " points share a cell with another and " +
               std::to_string(report.leftOut) + " have no place; expected at most " +
               std::to_string(std::lround(100 * options.mostLeftOut)) + " %");
    }
    gather = std::move(placing);
    gathered = index;
}

RegridSource::RegridSource(std::unique_ptr<ScanSource> inner, const RegridOptions& options)
    : m_impl(std::make_unique<Impl>(std::move(inner), options)) {}

RegridSource::~RegridSource() = default;

std::string RegridSource::FormatName() const {
    return m_impl->inner->FormatName();
}
std::string RegridSource::Name() const {
    return m_impl->inner->Name();
}
uint64_t RegridSource::BytesRead() const {
    return m_impl->inner->BytesRead();
}
uint64_t RegridSource::FileBytes() const {
    return m_impl->inner->FileBytes();
}

uint64_t RegridSource::ScanCount() {
    m_impl->open = false;
    return m_impl->inner->ScanCount();
}

bool RegridSource::HasScan(uint64_t index) {
    m_impl->open = false;
    try {
        m_impl->inner->OpenScan(index);
        return true;
    } catch (const kxbase::KXIndexOutOfBoundsException&) {
        return false;
    }
}

ScanDescription RegridSource::OpenScan(uint64_t index) {
    Impl& impl = *m_impl;
    impl.open = false;
    ScanDescription description = impl.inner->OpenScan(index);
    if (description.HasGrid()) {
        impl.gather.reset();
        impl.gathered = ~uint64_t{0};
    } else {
        if (impl.gathered != index) impl.Regrid(index);
        impl.gather->Rewind();
        description.columns = impl.report.columns;
        description.rows = impl.report.rows;
        description.points = impl.report.columns * impl.report.rows;
        if (impl.report.placed != impl.report.points) {
            description.unheld.push_back(
                {"points", std::to_string(impl.report.collided) + " share a cell with another, " +
                               std::to_string(impl.report.leftOut) + " have no place"});
        }
    }
    impl.open = true;
    return description;
}

uint64_t RegridSource::ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) {
    cells.clear();
    if (!m_impl->open) return 0;
    if (!m_impl->gather) return m_impl->inner->ReadColumns(maxColumns, cells);
    return m_impl->gather->Read(maxColumns, cells);
}

std::vector<std::string> RegridSource::Warnings() const {
    std::vector<std::string> warnings = m_impl->inner->Warnings();
    if (const RegridReport* const report = Report()) {
        warnings.push_back("Put on a grid of " + std::to_string(report->columns) + " x " +
                           std::to_string(report->rows) + " cells: " + std::to_string(report->placed) +
                           " of " + std::to_string(report->points) + " points, " +
                           std::to_string(report->collided) + " collided, " +
                           std::to_string(report->leftOut) + " left out");
    }
    return warnings;
}

const RegridReport* RegridSource::Report() const {
    return m_impl->gather ? &m_impl->report : nullptr;
}

}  // namespace kxexchange
