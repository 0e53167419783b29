// SPDX-License-Identifier: MIT
#include "support/AllocationWatch.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

// Clang's sanitizer runtimes bring operators of their own, which cannot be replaced, and a hook instead.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KXTEST_SANITIZER_HOOK
#include <sanitizer/allocator_interface.h>
#endif
#endif

namespace {

thread_local std::size_t g_largest = 0;
thread_local long long g_inUse = 0;
thread_local long long g_peak = 0;
thread_local std::size_t g_untilRefused = 0;  // requests; 0: none is refused
thread_local bool g_refused = false;

void Note(std::size_t bytes) {
    g_largest = std::max(g_largest, bytes);
}
void Take(std::size_t bytes) {
    g_inUse += static_cast<long long>(bytes);
    g_peak = std::max(g_peak, g_inUse);
}
void Give(std::size_t bytes) {
    g_inUse -= static_cast<long long>(bytes);
}

}  // namespace

namespace kxtest {

AllocationWatch::AllocationWatch() {
    g_largest = 0;
    g_inUse = 0;
    g_peak = 0;
}
std::size_t AllocationWatch::Largest() const {
    return g_largest;
}

std::size_t AllocationWatch::Peak() const {
    return static_cast<std::size_t>(g_peak);
}

AllocationRefusal::AllocationRefusal(std::size_t request) {
    g_untilRefused = request;
    g_refused = false;
}
AllocationRefusal::~AllocationRefusal() {
    g_untilRefused = 0;
}
bool AllocationRefusal::Happened() const {
    return g_refused;
}
bool AllocationRefusal::IsPossible() {
#ifdef KXTEST_SANITIZER_HOOK
    return false;
#else
    return true;
#endif
}

}  // namespace kxtest

#ifdef KXTEST_SANITIZER_HOOK

namespace {

void OnAllocation(const volatile void* /*place*/, std::size_t bytes) {
    Note(bytes);
    Take(bytes);
}
void OnRelease(const volatile void* place) {
    if (place != nullptr) Give(__sanitizer_get_allocated_size(place));
}
const int g_installed = __sanitizer_install_malloc_and_free_hooks(OnAllocation, OnRelease);

}  // namespace

#else

namespace {

// The size lies in front of each block, so that it is known when the block is given back.
constexpr std::size_t kFront = alignof(std::max_align_t);

void* AllocateOrNull(std::size_t bytes) {
    Note(bytes);
    if (g_untilRefused > 0 && --g_untilRefused == 0) {
        g_refused = true;
        return nullptr;
    }
    auto* block =
        bytes > SIZE_MAX - kFront ? nullptr : static_cast<unsigned char*>(std::malloc(bytes + kFront));
    if (block == nullptr) return nullptr;
    std::memcpy(block, &bytes, sizeof bytes);
    Take(bytes);
    return block + kFront;
}

void* Allocate(std::size_t bytes) {
    void* place = AllocateOrNull(bytes);
    if (place == nullptr) throw std::bad_alloc();
    return place;
}

void Release(void* place) {
    if (place == nullptr) return;
    auto* block = static_cast<unsigned char*>(place) - kFront;
    std::size_t bytes = 0;
    std::memcpy(&bytes, block, sizeof bytes);
    Give(bytes);
    std::free(block);
}

}  // namespace

// All forms but the aligned ones: one that is left out would pair with a sanitizer's own.
void* operator new(std::size_t bytes) {
    return Allocate(bytes);
}
void* operator new[](std::size_t bytes) {
    return Allocate(bytes);
}
void* operator new(std::size_t bytes, const std::nothrow_t& /*nothrow*/) noexcept {
    return AllocateOrNull(bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t& nothrow) noexcept {
    return operator new(bytes, nothrow);
}
void operator delete(void* place) noexcept {
    Release(place);
}
void operator delete[](void* place) noexcept {
    Release(place);
}
void operator delete(void* place, std::size_t) noexcept {
    Release(place);
}
void operator delete[](void* place, std::size_t) noexcept {
    Release(place);
}

#endif  // KXTEST_SANITIZER_HOOK
