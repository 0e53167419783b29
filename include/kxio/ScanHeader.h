// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kxbase/IOHeader.h"
#include "kxio/Export.h"
#include "kxio/ScanProperties.h"

namespace kxio {

/// The record of the scan's properties: grid, registration, flags, tilt, dates and texts.
///
/// Payload of version 270, 207 + S bytes, little-endian, no alignment (S: the six texts with their NULs):
///
///     @0    f64      row angular step, written as its absolute value [rad]
///     @8    f64      column angular step, written as its absolute value [rad]
///     @16   f64      row start angle [rad]
///     @24   f64      column start angle [rad]
///     @32   u32      row count
///     @36   u32      column count
///     @40   u32      patch width
///     @44   u64      valid point count                         from 210 on
///     @52   f64 x12  registration: X, Y, Z axis, translation   from 210 on
///     @148  u8       speckle correction needed                 from 220 on; in that version it is not read
///     @149  f32      spatial sampling distance                 from 230 on
///     @153  u8       3D lock                                   from 240 on
///     @154  u8       projection mode                           from 250 on, as all that follows to @191
///     @155  u32      framing mode
///     @159  u32 x2   two words, kept as they are
///     @167  u32      tilt kind
///     @171  f64      first tilt angle [rad]
///     @179  f64      second tilt angle [rad]
///     @187  u32      date status
///     @191  text x6  NUL-terminated UTF-8: first date, second date (ISO 8601), scanner model, three texts
///     then  u32 x3   three words, kept as they are             from 260 on
///     then  u32      patch height                              from 270 on; before, the patch width
///
/// The versions 200, 210, 220, 230, 240, 250 and 260 end where the fields of the next one begin; any other
/// version from 200 up has the version-270 layout, and what follows it is ignored. Flag bytes are true when
/// they are not 0. Angles are doubles on disk and floats in memory. After every read the preview size
/// (factor 2.0) and the half-steps of the grid are computed anew.
/// One object serves one thread at a time.
class KXIO_EXPORT ScanHeader : public kxbase::IOHeader {
public:
    static constexpr uint64_t Magic = 0x9cb282fc40c502d8ULL;
    static constexpr uint32_t CurrentVersion = 270;
    static constexpr uint32_t MinimumVersion = 200;
    /// Payload offset and size of the registration, which may be rewritten in place from version 210 on.
    static constexpr uint32_t RegistrationOffset = 52;
    /// Bytes of it.
    static constexpr uint32_t RegistrationSize = 96;
    /// Payload offset of the speckle byte, which may be rewritten in place.
    static constexpr uint32_t SpeckleOffset = 148;
    /// Preview factor of the grid that a reader presents.
    static constexpr double PreviewFactor = 2.0;

    /// What the record carries; the fields that it does not carry are left at their defaults.
    ScanProperties properties;

    ScanHeader();
    ScanHeader(const ScanHeader&);
    ScanHeader(ScanHeader&&) noexcept;
    ScanHeader& operator=(const ScanHeader&);
    ScanHeader& operator=(ScanHeader&&) noexcept;
    ~ScanHeader() override;

    uint64_t GetMagic() const override;
    /// For the versions from 210 on the result counts the registration only when the version that this
    /// record holds (read, or stamped for writing) is 210 or later.
    uint32_t DataSize(uint32_t version) const override;
    uint32_t GetCurrentVersion() const override;
    /// Replaces `properties`. A date text that is no date leaves that date unset and makes the date status 1.
    /// \throws kxbase::KXHeaderReadingException "Unsupported ScanHeader version" below 200
    void _Read(const unsigned char* payload) override;
    /// Writes the version-270 payload.
    void _Write(unsigned char* payload, uint32_t size) override;
    const char* GetRecordName() const override;

    /// Payload offset of the speckle byte of the record last read or written: 148, or 0 when that record
    /// has none (its version is below 220, or its payload ends before).
    uint32_t GetSpeckleOffset() const { return m_speckleOffset; }

private:
    uint32_t m_speckleOffset = SpeckleOffset;
};

}  // namespace kxio
