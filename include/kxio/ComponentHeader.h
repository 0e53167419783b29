// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kxbase/ComponentType.h"
#include "kxbase/IOHeader.h"
#include "kxio/Export.h"

namespace kxio {

/// Names the codec of one component. Files written today carry none: the chunks tell.
///
/// Payload, 20 bytes, little-endian:
///
///     @0   u32  component
///     @4   u64  codec identifier
///     @12  f64  value of the component
///
/// One object serves one thread at a time.
class KXIO_EXPORT ComponentHeader : public kxbase::IOHeader {
public:
    static constexpr uint64_t Magic = 0x8b72987f4b3b0a2dULL;
    static constexpr uint32_t CurrentVersion = 200;
    static constexpr uint32_t MinimumVersion = 200;
    static constexpr uint32_t PayloadSize = 20;

    kxbase::ComponentType component{};  ///< whose codec it is
    uint64_t codecIdentifier = 0;       ///< see `kxcodecs::ChunkCodecFactory`
    /// Kept as it is; readers copy it into `ScanProperties::componentValue` for the components 1, 2 and 3.
    double value = 0.0;

    /// All fields zero.
    ComponentHeader();
    ComponentHeader(const ComponentHeader&);
    ComponentHeader(ComponentHeader&&) noexcept;
    ComponentHeader& operator=(const ComponentHeader&);
    ComponentHeader& operator=(ComponentHeader&&) noexcept;
    ~ComponentHeader() override;

    uint64_t GetMagic() const override;
    uint32_t DataSize(uint32_t version) const override;
    uint32_t GetCurrentVersion() const override;
    /// \throws kxbase::KXHeaderReadingException "Unsupported ComponentHeader version" below 200
    void _Read(const unsigned char* payload) override;
    void _Write(unsigned char* payload, uint32_t size) override;
    const char* GetRecordName() const override;
};

}  // namespace kxio
