// SPDX-License-Identifier: MIT
#pragma once

#include "kxcodecs/QKXChunkCodec.h"

namespace kxcodecs {

/// Lossless, made for the regular grids of a scan: quantised ranges and angles, intensities. Elements of 1, 2,
/// 4 and 8 bytes are taken as integers (after quantisation, where a quality is given). Cells without a return
/// are told by a mask and cost next to nothing; the others are predicted from the lines before. Whatever that
/// does not help is stored as the zstd codec would.
class KXCODECS_EXPORT GridChunkCodec : public QKXChunkCodec {
public:
    static constexpr uint64_t kIdentifier = 0x000044495247584b;  // "KXGRID", read little-endian
    static constexpr const char* kName = "Grid";

    /// How residuals are stored. The decoder reads both.
    enum class Mode {
        Fast,      ///< blocks of equal width: decodes quickest
        Balanced,  ///< entropy coded: smaller
    };

    GridChunkCodec() = default;
    /// \param mode  for `Encode`
    explicit GridChunkCodec(Mode mode) : m_mode(mode) {}
    ~GridChunkCodec() override;

    uint64_t GetIdentifier() const override { return kIdentifier; }
    /// The mode of `Encode`; `Balanced` unless it was set.
    void SetMode(Mode mode) { m_mode = mode; }
    /// That mode.
    Mode GetMode() const { return m_mode; }
    /// 0 to 3: `Fast`; above: `Balanced`.
    void SetCompressionLevel(int level) override;

protected:
    void EncodePayload(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout,
                       std::vector<unsigned char>& out) const override;
    bool CanHold(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout) const override;
    bool DecodePayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                       std::span<unsigned char> out) const override;

private:
    Mode m_mode = Mode::Balanced;
};

}  // namespace kxcodecs
