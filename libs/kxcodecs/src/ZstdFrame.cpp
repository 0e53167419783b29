// SPDX-License-Identifier: MIT
#include "ZstdFrame.h"

#include <zstd.h>

#include <memory>
#include <new>

#include "kxbase/Exceptions.h"

namespace kxcodecs {
namespace {

struct FreeContext {
    void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
    void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
};

// A context is made of some hundred kilobytes, which costs as much as unpacking a patch; so each thread keeps
// one. It carries nothing from one call to the next.
ZSTD_CCtx* PackingContext() {
    thread_local std::unique_ptr<ZSTD_CCtx, FreeContext> context;
    if (!context) context.reset(ZSTD_createCCtx());
    return context.get();
}
ZSTD_DCtx* UnpackingContext() {
    thread_local std::unique_ptr<ZSTD_DCtx, FreeContext> context;
    if (!context) context.reset(ZSTD_createDCtx());
    return context.get();
}

}  // namespace

void AppendZstdFrame(std::span<const unsigned char> bytes, const ZstdEffort& effort,
                     std::vector<unsigned char>& out) {
    ZSTD_CCtx* const context = PackingContext();
    if (context == nullptr) throw std::bad_alloc();
    ZSTD_CCtx_reset(context, ZSTD_reset_session_and_parameters);
    bool good = true;
    const auto set = [&](ZSTD_cParameter parameter, int value) {
        good = good && !ZSTD_isError(ZSTD_CCtx_setParameter(context, parameter, value));
    };
    set(ZSTD_c_compressionLevel, effort.literalsOnly ? 1 : effort.level);
    set(ZSTD_c_checksumFlag, effort.checksum ? 1 : 0);
    if (effort.literalsOnly) {
        // A table of 64 places that looks for 7 bytes finds runs and hardly anything else.
        set(ZSTD_c_strategy, ZSTD_fast);
        set(ZSTD_c_hashLog, 6);
        set(ZSTD_c_minMatch, 7);
    }
    const std::size_t start = out.size();
    out.resize(start + ZSTD_compressBound(bytes.size()));
    const std::size_t packed =
        ZSTD_compress2(context, out.data() + start, out.size() - start, bytes.data(), bytes.size());
    if (!good || ZSTD_isError(packed)) throw kxbase::KXException("Chunk cannot be encoded");
    out.resize(start + packed);
}

bool UnpackZstdFrame(std::span<const unsigned char> frame, std::span<unsigned char> out) {
    ZSTD_DCtx* const context = UnpackingContext();
    if (context == nullptr) throw std::bad_alloc();
    ZSTD_DCtx_reset(context, ZSTD_reset_session_and_parameters);
    const std::size_t filled =
        ZSTD_decompressDCtx(context, out.data(), out.size(), frame.data(), frame.size());
    return !ZSTD_isError(filled) && filled == out.size();
}

}  // namespace kxcodecs
