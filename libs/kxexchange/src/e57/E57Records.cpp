// SPDX-License-Identifier: MIT
#include "E57Records.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kxexchange {

namespace {

constexpr size_t kBatch = 4096;

// cartesianInvalidState and sphericalInvalidState
constexpr int kValid = 0;
constexpr int kDirectionOnly = 1;
constexpr int kNothing = 2;

bool Usable(double value) {
    return std::abs(value) <= E57RecordReader::kMaxCoordinate;
}

// Elevations beyond the zenith or the nadir, which some files have, are on the other side.
void FoldElevation(Cell& cell) {
    constexpr double kPi = std::numbers::pi;
    if (std::abs(cell.Elevation()) <= kPi / 2) return;
    double elevation = std::remainder(cell.Elevation(), 2 * kPi);
    double azimuth = cell.Azimuth();
    if (std::abs(elevation) > kPi / 2) {
        elevation = std::copysign(kPi, elevation) - elevation;
        azimuth += azimuth > 0 ? -kPi : kPi;
    }
    cell.SetSpherical(cell.Range(), azimuth, elevation);
}

}  // namespace

E57RecordReader::E57RecordReader(E57PageReader& pages, const E57Section& section, const E57Scan& scan)
    : m_scan(scan), m_left(section.records) {
    const auto open = [&](Field& field, E57Roles::Index index) {
        if (index) field.emplace(pages, section, scan.fields[*index], *index);
    };
    const E57Roles& roles = scan.roles;
    if (roles.Cartesian()) {
        open(m_cartesian[0], roles.x);
        open(m_cartesian[1], roles.y);
        open(m_cartesian[2], roles.z);
        open(m_cartesian[3], roles.cartesianInvalid);
    }
    // Beside Cartesian coordinates the spherical ones are of use where those are said to be invalid.
    if (roles.Spherical() && (!roles.Cartesian() || roles.cartesianInvalid)) {
        open(m_spherical[0], roles.range);
        open(m_spherical[1], roles.azimuth);
        open(m_spherical[2], roles.elevation);
        open(m_spherical[3], roles.sphericalInvalid);
    }
    if (roles.Indexed()) {
        open(m_row, roles.row);
        open(m_column, roles.column);
    }
    open(m_intensity, roles.intensity);
    open(m_intensityInvalid, roles.intensityInvalid);
    if (roles.Color()) {
        open(m_color[0], roles.red);
        open(m_color[1], roles.green);
        open(m_color[2], roles.blue);
        open(m_colorInvalid, roles.colorInvalid);
    }
    m_cells.reserve(kBatch);
}

void E57RecordReader::Read(Field& field, std::vector<double>& values) {
    values.resize(m_count);
    field->ReadReal(values);
}

// Turns three numbers and a state into a return, a direction or nothing.
void E57RecordReader::Judge(Cell& cell, int state, bool spherical) {
    const bool numbers = spherical ? Usable(cell.y) && Usable(cell.z) && (state != kValid || Usable(cell.x))
                                   : Usable(cell.x) && Usable(cell.y) && Usable(cell.z);
    const bool somewhere = spherical ? cell.x > 0 : cell.x != 0 || cell.y != 0 || cell.z != 0;
    if (spherical && numbers) FoldElevation(cell);
    if (state == kValid && numbers && somewhere) {
        cell.valid = true;
        return;
    }
    if (state == kValid && !numbers) ++m_unusable;
    if (state == kValid && numbers) ++m_atOrigin;
    cell.direction = numbers && state != kNothing && (spherical || somewhere);
    if (!cell.direction) cell.y = cell.z = 0;
    if (!cell.direction || spherical) cell.x = 0;
}

void E57RecordReader::Positions(Field (&fields)[4], bool spherical, std::vector<Cell>& cells) {
    Read(fields[0], m_values);
    Read(fields[1], m_values2);
    Read(fields[2], m_values3);
    if (fields[3]) {
        Read(fields[3], m_states);
    } else {
        m_states.assign(m_count, kValid);
    }
    cells.assign(m_count, Cell());
    for (size_t i = 0; i < m_count; ++i) {
        Cell& cell = cells[i];
        cell.x = m_values[i];
        cell.y = m_values2[i];
        cell.z = m_values3[i];
        const int state = m_states[i] == kValid           ? kValid
                          : m_states[i] == kDirectionOnly ? kDirectionOnly
                                                          : kNothing;
        Judge(cell, state, spherical);
    }
}

void E57RecordReader::Colors() {
    const double full = m_scan.description.colorBits == 16 ? 65535 : 255;
    for (size_t channel = 0; channel < 3; ++channel) {
        Read(m_color[channel], m_values);
        const double least = m_scan.colorLeast[channel];
        for (size_t i = 0; i < m_count; ++i) {
            const double value = std::round((m_values[i] - least) * m_scan.colorFactor);
            const auto stored = static_cast<uint16_t>(value > 0 ? std::min(value, full) : 0);
            Cell& cell = m_cells[i];
            (channel == 0 ? cell.red : channel == 1 ? cell.green : cell.blue) = stored;
        }
    }
    if (!m_colorInvalid) return;
    Read(m_colorInvalid, m_values);
    for (size_t i = 0; i < m_count; ++i) {
        if (m_values[i] != 0) {
            m_cells[i].colorInvalid = true;
            m_cells[i].red = m_cells[i].green = m_cells[i].blue = 0;
        }
    }
}

size_t E57RecordReader::Next() {
    m_count = static_cast<size_t>(std::min<uint64_t>(kBatch, m_left));
    if (m_count == 0) return 0;
    m_left -= m_count;
    if (m_cartesian[0]) {
        Positions(m_cartesian, false, m_cells);
        if (m_spherical[0]) {
            Positions(m_spherical, true, m_second);
            ToCartesian(m_second);
            for (size_t i = 0; i < m_count; ++i) {
                const bool better = m_second[i].valid || (m_second[i].direction && !m_cells[i].direction);
                if (!m_cells[i].valid && better) m_cells[i] = m_second[i];
            }
        }
    } else {
        Positions(m_spherical, true, m_cells);
    }
    if (m_row) {
        m_rows.resize(m_count);
        m_columns.resize(m_count);
        m_row->ReadWhole(m_rows);
        m_column->ReadWhole(m_columns);
    }
    if (m_intensity) {
        Read(m_intensity, m_values);
        if (m_intensityInvalid) Read(m_intensityInvalid, m_values2);
        for (size_t i = 0; i < m_count; ++i) {
            Cell& cell = m_cells[i];
            cell.intensityInvalid = !std::isfinite(m_values[i]) || (m_intensityInvalid && m_values2[i] != 0);
            cell.intensity = cell.intensityInvalid ? 0 : m_values[i];
            if (!cell.valid && m_scan.emptyIntensity) cell.intensity = *m_scan.emptyIntensity;
        }
    }
    if (m_color[0]) Colors();
    return m_count;
}

}  // namespace kxexchange
