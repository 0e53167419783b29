// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "kxbase/IOHeader.h"
#include "kxio/Export.h"

namespace kxio {

/// The scan's JPEG thumbnail.
///
/// Payload, 12 + J bytes, little-endian:
///
///     @0   u32  second side: columns of the image
///     @4   u32  first side: rows of the image
///     @8   u32  JPEG length J
///     @12  J bytes, a JPEG file
///
/// A record holds JPEG bytes (read, or given by `SetCompressed`) or raw pixels to make them of. They are made
/// when the payload size is first asked for: from one or three channels, at quality 90; an image with a side
/// below 8 becomes a black one of 512 x 512, and the sides follow.
/// One object serves one thread at a time, const members included.
class KXIO_EXPORT ThumbnailHeader : public kxbase::IOHeader {
public:
    static constexpr uint64_t Magic = 0xb63bc13134b042c8ULL;
    static constexpr uint32_t CurrentVersion = 200;
    static constexpr uint32_t MinimumVersion = 200;
    /// Sides of a new record.
    static constexpr unsigned DefaultSide = 100;
    /// `SetUp` makes smaller sides this large.
    static constexpr unsigned MinimumSide = 20;
    /// Sides of the thumbnail that a writer stores when it has none.
    static constexpr unsigned BlankSide = 200;
    /// JPEG quality of thumbnails made from pixels.
    static constexpr int Quality = 90;

    /// Raw pixels, all 0, of the sides as given (no minimum). 0 channels are taken as 1.
    /// \throws kxbase::KXWrongDataSizeofException "Unknown thumbnail data size" when no JPEG can be so large
    explicit ThumbnailHeader(unsigned firstSide = DefaultSide, unsigned secondSide = DefaultSide,
                             unsigned channels = 1);
    ThumbnailHeader(const ThumbnailHeader&);
    ThumbnailHeader(ThumbnailHeader&&) noexcept;
    ThumbnailHeader& operator=(const ThumbnailHeader&);
    ThumbnailHeader& operator=(ThumbnailHeader&&) noexcept;
    ~ThumbnailHeader() override;

    /// Starts afresh: sides of at least 20, pixels all 0, no JPEG bytes. 0 channels are taken as 1.
    /// \param firstSide   rows
    /// \param secondSide  columns
    /// \throws as the constructor; the record is then as before
    void SetUp(unsigned firstSide, unsigned secondSide, unsigned channels);
    /// Takes over the bytes of a JPEG file and its sides (as they are); they are written unchanged.
    void SetCompressed(std::vector<unsigned char> jpeg, unsigned firstSide, unsigned secondSide);

    unsigned GetFirstSide() const { return m_firstSide; }    ///< rows
    unsigned GetSecondSide() const { return m_secondSide; }  ///< columns
    unsigned GetChannels() const { return m_channels; }      ///< bytes per raw pixel
    /// The JPEG bytes held; empty while there are only raw pixels.
    const std::vector<unsigned char>& GetCompressed() const { return m_jpeg; }
    /// Raw pixels, rows top to bottom, channels interleaved. Fill them before the record is written or its
    /// size is asked for. Missing ones count as 0, surplus ones are ignored.
    std::vector<unsigned char>& GetPixels() { return m_pixels; }
    /// The raw pixels, to be looked at.
    const std::vector<unsigned char>& GetPixels() const { return m_pixels; }

    uint64_t GetMagic() const override;
    /// Makes the JPEG bytes when none are held.
    /// \throws kxbase::KXWrongDataSizeofException "Unknown thumbnail data size" when the raw pixels have
    ///         neither one nor three channels
    uint32_t DataSize(uint32_t version) const override;
    uint32_t GetCurrentVersion() const override;
    /// \throws kxbase::KXHeaderReadingException "Unsupported ThumbnailHeader version" below 200
    /// \throws kxbase::KXWrongDataSizeofException "Unknown thumbnail data size" when the JPEG length exceeds
    ///         the payload
    void _Read(const unsigned char* payload) override;
    void _Write(unsigned char* payload, uint32_t size) override;
    const char* GetRecordName() const override;

private:
    void EnsureCompressed() const;

    // Mutable because asking for the payload size may make the JPEG bytes.
    mutable uint32_t m_firstSide;
    mutable uint32_t m_secondSide;
    mutable std::vector<unsigned char> m_jpeg;
    std::vector<unsigned char> m_pixels;
    uint32_t m_channels;
};

}  // namespace kxio
