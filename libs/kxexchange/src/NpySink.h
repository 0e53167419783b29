// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ByteSink.h"
#include "CellPlanes.h"
#include "Spool.h"
#include "kxexchange/ScanSink.h"

namespace kxexchange {

/// How a plane lies in a NumPy array: 32-bit numbers for coordinates, 64-bit ones for intensity, which is
/// kept as the source says it, bytes (or 16 bits) for the rest.
class NpyArray {
public:
    NpyArray(PlaneKind plane, const ScanDescription& description);

    PlaneKind Plane() const { return m_plane; }
    /// Shape (rows, columns) in Fortran order, which is the order in which cells come.
    std::string Header() const;
    size_t ValueBytes() const { return m_bytes; }
    unsigned char* Put(const Cell& cell, unsigned char* out) const;

private:
    PlaneKind m_plane;
    uint64_t m_columns;
    uint64_t m_rows;
    const char* m_type = "";
    size_t m_bytes = 0;
};

/// Writes one plane of one scan as an NPY array, value[row, column]. The plane is the one of the options,
/// "range" unless told.
class NpySink final : public ScanSink {
public:
    NpySink(kxbase::IOutFileStream& stream, const SinkOptions& options)
        : m_bytes(stream), m_options(options) {}

    static FormatCapabilities Capabilities();

    void BeginScan(const ScanDescription& description) override;
    void WriteColumns(std::span<const Cell> cells, uint64_t columns) override;
    void EndScan() override {}
    void Finish() override { m_bytes.Flush(); }
    uint64_t BytesWritten() const override { return m_bytes.BytesWritten(); }
    uint64_t PointsWritten() const override { return m_points; }
    void AddLosses(LossReport& losses) const override;

private:
    ByteSink m_bytes;
    SinkOptions m_options;
    std::unique_ptr<NpyArray> m_array;
    uint64_t m_points = 0;
};

/// Writes all planes of one scan as an NPZ: a zip of NPY arrays named range.npy and so on, deflated. Planes
/// beyond 16 MiB wait in temporary files.
class NpzSink final : public ScanSink {
public:
    NpzSink(kxbase::IOutFileStream& stream, const SinkOptions& options)
        : m_bytes(stream), m_options(options) {}

    static FormatCapabilities Capabilities();

    void BeginScan(const ScanDescription& description) override;
    void WriteColumns(std::span<const Cell> cells, uint64_t columns) override;
    void EndScan() override;
    void Finish() override;
    uint64_t BytesWritten() const override { return m_bytes.BytesWritten(); }
    uint64_t PointsWritten() const override { return m_points; }

private:
    struct Plane {
        NpyArray array;
        std::unique_ptr<Spool> values;
    };
    struct Member {
        std::string name;
        uint32_t crc = 0;
        uint64_t bytes = 0;
        uint64_t packed = 0;
        uint64_t offset = 0;
    };
    void WriteMember(Plane& plane);
    std::string LocalHeader(const Member& member) const;

    ByteSink m_bytes;
    SinkOptions m_options;
    std::vector<Plane> m_planes;
    std::vector<Member> m_members;
    uint64_t m_points = 0;
};

}  // namespace kxexchange
