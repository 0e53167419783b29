// SPDX-License-Identifier: MIT
#include "ByteFilter.h"

#include <algorithm>
#include <limits>
#include <type_traits>

#include "ZstdFrame.h"

namespace kxcodecs {
namespace {

// Rows of the image that decide about the filter.
constexpr uint32_t kTrialRows = 32;

template <class T>
T Zigzag(T value) {
    constexpr int kTop = std::numeric_limits<T>::digits - 1;
    return static_cast<T>(static_cast<T>(value << 1) ^ static_cast<T>(T{0} - static_cast<T>(value >> kTop)));
}
template <class T>
T UndoZigzag(T value) {
    return static_cast<T>(static_cast<T>(value >> 1) ^ static_cast<T>(T{0} - static_cast<T>(value & 1)));
}

// One integer per element, of which byte k lies in plane k.
template <class T>
T Gather(const unsigned char* bytes, std::size_t stride) {
    T value = 0;
    for (std::size_t k = 0; k < sizeof(T); ++k)
        value = static_cast<T>(value | static_cast<T>(static_cast<T>(bytes[k * stride]) << (8 * k)));
    return value;
}
template <class T>
void Scatter(T value, unsigned char* bytes, std::size_t stride) {
    for (std::size_t k = 0; k < sizeof(T); ++k)
        bytes[k * stride] = static_cast<unsigned char>(value >> (8 * k));
}

// `at(i)` is the integer of the element with the index i.
template <class T, class At>
T Predicted(Delta delta, const At& at, std::size_t i, std::size_t column, std::size_t width) {
    const T left = column > 0 && delta != Delta::Up ? at(i - 1) : T{0};
    const T up = i >= width && delta != Delta::Left ? at(i - width) : T{0};
    const T corner = delta == Delta::Gradient && column > 0 && i >= width ? at(i - width - 1) : T{0};
    return static_cast<T>(left + up - corner);
}

template <class T>
void ApplyTo(Delta delta, const unsigned char* bytes, std::size_t count, std::size_t width, std::size_t step,
             unsigned char* planes) {
    const auto at = [&](std::size_t i) { return Gather<T>(bytes + i * step, 1); };
    std::size_t column = 0;
    for (std::size_t i = 0; i < count; ++i) {
        T value = at(i);
        if (delta != Delta::None) {
            value = Zigzag(static_cast<T>(value - Predicted<T>(delta, at, i, column, width)));
            column = column + 1 == width ? 0 : column + 1;
        }
        Scatter(value, planes + i, count);
    }
}

template <class T>
void UndoTo(Delta delta, const unsigned char* planes, std::size_t count, std::size_t width, std::size_t step,
            unsigned char* bytes) {
    const auto at = [&](std::size_t i) { return Gather<T>(bytes + i * step, 1); };
    std::size_t column = 0;
    for (std::size_t i = 0; i < count; ++i) {
        T value = Gather<T>(planes + i, count);
        if (delta != Delta::None) {
            value = static_cast<T>(UndoZigzag(value) + Predicted<T>(delta, at, i, column, width));
            column = column + 1 == width ? 0 : column + 1;
        }
        Scatter(value, bytes + i * step, 1);
    }
}

// Calls `run(T{}, first byte, step between elements, lanes)` with the integer that elements consist of.
template <class Run>
void ForLanes(uint64_t elementBytes, const Run& run) {
    switch (elementBytes) {
        case 2:
            return run(uint16_t{0}, std::size_t{1});
        case 4:
            return run(uint32_t{0}, std::size_t{1});
        case 8:
            return run(uint64_t{0}, std::size_t{1});
        default:
            return run(uint8_t{0}, static_cast<std::size_t>(elementBytes));
    }
}

// Red and blue become their difference to green.
void SubtractGreen(std::span<const unsigned char> bytes, std::vector<unsigned char>& out) {
    out.assign(bytes.begin(), bytes.end());
    for (std::size_t i = 0; i + 2 < out.size(); i += 3) {
        out[i] = static_cast<unsigned char>(out[i] - out[i + 1]);
        out[i + 2] = static_cast<unsigned char>(out[i + 2] - out[i + 1]);
    }
}

std::size_t PackedSize(const ByteFilter& filter, std::span<const unsigned char> bytes, uint32_t width,
                       uint64_t elementBytes) {
    std::vector<unsigned char> planes(bytes.size()), packed;
    ApplyFilter(filter, bytes, width, elementBytes, planes);
    AppendZstdFrame(planes, {1, false, false}, packed);
    return packed.size();
}

}  // namespace

bool ByteFilter::FromByte(uint8_t byte, uint64_t elementBytes, ByteFilter& out) {
    if (byte > 7 || (byte >= 4 && elementBytes != 3)) return false;
    out.delta = static_cast<Delta>(byte & 3);
    out.colour = byte >= 4;
    return true;
}

void ApplyFilter(const ByteFilter& filter, std::span<const unsigned char> bytes, uint32_t width,
                 uint64_t elementBytes, std::span<unsigned char> planes) {
    if (bytes.empty()) return;
    std::vector<unsigned char> coloured;
    if (filter.colour) {
        SubtractGreen(bytes, coloured);
        bytes = coloured;
    }
    const auto count = static_cast<std::size_t>(bytes.size() / elementBytes);
    ForLanes(elementBytes, [&](auto type, std::size_t lanes) {
        using T = decltype(type);
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            ApplyTo<T>(filter.delta, bytes.data() + lane, count, width, elementBytes,
                       planes.data() + lane * count);
        }
    });
}

void UndoFilter(const ByteFilter& filter, std::span<const unsigned char> planes, uint32_t width,
                uint64_t elementBytes, std::span<unsigned char> bytes) noexcept {
    if (bytes.empty()) return;
    const auto count = static_cast<std::size_t>(bytes.size() / elementBytes);
    ForLanes(elementBytes, [&](auto type, std::size_t lanes) {
        using T = decltype(type);
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            UndoTo<T>(filter.delta, planes.data() + lane * count, count, width, elementBytes,
                      bytes.data() + lane);
        }
    });
    if (!filter.colour) return;
    for (std::size_t i = 0; i + 2 < bytes.size(); i += 3) {
        bytes[i] = static_cast<unsigned char>(bytes[i] + bytes[i + 1]);
        bytes[i + 2] = static_cast<unsigned char>(bytes[i + 2] + bytes[i + 1]);
    }
}

uint32_t HashOf(std::initializer_list<uint32_t> numbers) noexcept {
    uint32_t hash = 0x2545F491U;
    for (const uint32_t number : numbers) {
        hash = (hash ^ number) * 0x9E3779B1U;
        hash ^= hash >> 15;
    }
    return hash;
}

void AppendFiltered(std::span<const unsigned char> bytes, uint32_t width, uint32_t height, int level,
                    std::vector<unsigned char>& out) {
    const uint64_t elements = uint64_t{width} * height;
    const uint64_t elementBytes = elements == 0 ? 1 : bytes.size() / elements;
    ByteFilter best;
    if (elements > 0) {
        const uint32_t rows = std::min(height, kTrialRows);
        const auto rowBytes = static_cast<std::size_t>(width * elementBytes);
        const auto trial = bytes.subspan((height - rows) / 2 * rowBytes, rows * rowBytes);
        std::size_t least = std::numeric_limits<std::size_t>::max();
        for (uint8_t byte = 0; byte < 8; ++byte) {
            ByteFilter filter;
            if (!ByteFilter::FromByte(byte, elementBytes, filter)) continue;
            const std::size_t size = PackedSize(filter, trial, width, elementBytes);
            if (size < least) {
                least = size;
                best = filter;
            }
        }
    }
    std::vector<unsigned char> planes(bytes.size());
    ApplyFilter(best, bytes, width, elementBytes, planes);
    out.push_back(best.ToByte());
    const uint32_t hash = HashOf({best.ToByte(), width, height, static_cast<uint32_t>(elementBytes)});
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<unsigned char>(hash >> shift));
    AppendZstdFrame(planes, {level, false, true}, out);
}

bool UnpackFiltered(std::span<const unsigned char> packed, uint32_t width, uint32_t height,
                    std::span<unsigned char> bytes) {
    const uint64_t elements = uint64_t{width} * height;
    constexpr std::size_t kFront = 5;
    if (packed.size() < kFront) return false;
    if (bytes.empty() != (elements == 0) || (elements > 0 && bytes.size() % elements != 0)) return false;
    const uint64_t elementBytes = elements == 0 ? 1 : bytes.size() / elements;
    ByteFilter filter;
    if (!ByteFilter::FromByte(packed[0], elementBytes, filter)) return false;
    uint32_t hash = 0;
    for (std::size_t i = kFront; i-- > 1;)
        hash = (hash << 8) | packed[i];
    if (hash != HashOf({packed[0], width, height, static_cast<uint32_t>(elementBytes)})) return false;
    std::vector<unsigned char> planes(bytes.size());
    if (!UnpackZstdFrame(packed.subspan(kFront), planes)) return false;
    UndoFilter(filter, planes, width, elementBytes, bytes);
    return true;
}

}  // namespace kxcodecs
