// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "E57Keepsakes.h"
#include "E57PageWriter.h"
#include "E57VectorWriter.h"
#include "kxexchange/ScanSink.h"

namespace kxexchange {

/// Writes E57 files (ASTM E2807, version 1), any number of scans.
///
/// Coordinates are Cartesian or spherical as asked for, otherwise as the scan is: whole multiples of the
/// step that the description states, or of a tenth of it where the values are no multiples of it; single or
/// double precision when asked for or when no step or greatest value is known. Row and column of every cell,
/// invalid states, intensity packed as in the E57 it came from, else as its description says; colour with 8
/// or 16 bits; the pose as quaternion, and its twelve numbers in an extension where the quaternion does not
/// give them back to the last bit. Images become visual references.
class E57Sink final : public ScanSink {
public:
    E57Sink(kxbase::IOutFileStream& stream, const SinkOptions& options);
    static FormatCapabilities Capabilities();

    void BeginScan(const ScanDescription& description) override;
    void WriteColumns(std::span<const Cell> cells, uint64_t columns) override;
    void EndScan() override;
    void Finish() override;
    uint64_t BytesWritten() const override { return m_pages.BytesWritten(); }
    uint64_t PointsWritten() const override { return m_points; }
    void AddLosses(LossReport& losses) const override;

private:
    struct Limits {
        double least = std::numeric_limits<double>::infinity();
        double most = -std::numeric_limits<double>::infinity();
        void Add(double value) {
            least = value < least ? value : least;
            most = value > most ? value : most;
        }
        bool Any() const { return least <= most; }
    };
    size_t AddField(E57Field field);
    void PlanCoordinates();
    void PlanIntensity();
    void PutNumber(size_t field, const E57Scaling& scaling, double value);
    bool Fits(const Cell& cell) const;
    void PutCell(Cell cell);
    void PutIntensity(const Cell& cell);
    void WriteImages();
    void AddTexts(E57Node& node) const;
    void AddPose(E57Node& node);
    void AddBounds(E57Node& node) const;

    E57PageWriter m_pages;
    SinkOptions m_options;
    E57Document m_document;
    E57Node m_data3D, m_images2D;
    uint64_t m_points = 0;

    // of the scan
    ScanDescription m_scan;
    std::string m_guid;
    std::vector<E57Field> m_fields;
    std::vector<E57Scaling> m_scalings;
    std::unique_ptr<E57VectorWriter> m_vector;
    bool m_spherical = false;
    std::optional<size_t> m_state, m_row, m_column, m_intensity, m_intensityInvalid, m_colorInvalid;
    std::optional<std::array<size_t, 3>> m_color;
    int64_t m_firstRow = 0, m_firstColumn = 0;
    uint64_t m_columnsDone = 0;
    std::array<Limits, 3> m_bounds{};
    Limits m_intensityBounds;
    std::optional<double> m_emptyIntensity;
    bool m_emptyDiffers = false;
    std::string m_coordinateLoss;
    double m_poseError = 0;
    uint64_t m_outside = 0;
    uint64_t m_intensityChanged = 0;
    uint64_t m_marksLost = 0;
    uint64_t m_projectionsLost = 0;
};

}  // namespace kxexchange
