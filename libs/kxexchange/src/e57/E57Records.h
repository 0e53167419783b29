// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "E57Packets.h"
#include "E57Scan.h"
#include "kxexchange/Cell.h"

namespace kxexchange {

/// Reads the records of a scan as cells, in the order of the file, a few thousand at a time. Only the
/// fields that play a part are unpacked.
class E57RecordReader {
public:
    /// Metres; beyond it a coordinate is taken for damage.
    static constexpr double kMaxCoordinate = 1e12;

    /// All three must outlive the reader.
    E57RecordReader(E57PageReader& pages, const E57Section& section, const E57Scan& scan);

    /// Takes the next records. \return how many; 0 at the end
    /// \throws SourceFormatException
    size_t Next();
    std::span<const Cell> Cells() const { return std::span(m_cells).first(m_count); }
    /// As the file counts; empty without indexes.
    std::span<const int64_t> Rows() const { return m_rows; }
    std::span<const int64_t> Columns() const { return m_columns; }

    /// Returns so far whose coordinates are no numbers, or beyond kMaxCoordinate: given as no return.
    uint64_t Unusable() const { return m_unusable; }
    /// Returns so far that lie at the instrument itself: given as no return.
    uint64_t AtOrigin() const { return m_atOrigin; }

private:
    using Field = std::optional<E57FieldReader>;
    void Read(Field& field, std::vector<double>& values);
    void Positions(Field (&fields)[4], bool spherical, std::vector<Cell>& cells);
    void Judge(Cell& cell, int state, bool spherical);
    void Colors();

    const E57Scan& m_scan;
    uint64_t m_left;
    size_t m_count = 0;
    Field m_cartesian[4], m_spherical[4];  // three coordinates, invalid state
    Field m_row, m_column, m_intensity, m_intensityInvalid, m_color[3], m_colorInvalid;
    std::vector<Cell> m_cells, m_second;
    std::vector<int64_t> m_rows, m_columns;
    std::vector<double> m_values, m_values2, m_values3, m_states;
    uint64_t m_unusable = 0;
    uint64_t m_atOrigin = 0;
};

}  // namespace kxexchange
