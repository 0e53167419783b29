// SPDX-License-Identifier: MIT
#include "support/AllocationWatch.h"

#include <algorithm>
#include <cstdlib>
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

}  // namespace

namespace kxtest {

AllocationWatch::AllocationWatch() {
    g_largest = 0;
}
std::size_t AllocationWatch::Largest() const {
    return g_largest;
}

}  // namespace kxtest

#ifdef KXTEST_SANITIZER_HOOK

namespace {

void OnAllocation(const volatile void* /*place*/, std::size_t bytes) {
    g_largest = std::max(g_largest, bytes);
}
void OnRelease(const volatile void* /*place*/) {}
const int g_installed = __sanitizer_install_malloc_and_free_hooks(OnAllocation, OnRelease);

}  // namespace

#else

namespace {

void* Allocate(std::size_t bytes) {
    g_largest = std::max(g_largest, bytes);
    void* place = std::malloc(bytes == 0 ? 1 : bytes);
    if (place == nullptr) throw std::bad_alloc();
    return place;
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
    g_largest = std::max(g_largest, bytes);
    return std::malloc(bytes == 0 ? 1 : bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t& nothrow) noexcept {
    return operator new(bytes, nothrow);
}
void operator delete(void* place) noexcept {
    std::free(place);
}
void operator delete[](void* place) noexcept {
    std::free(place);
}
void operator delete(void* place, std::size_t) noexcept {
    std::free(place);
}
void operator delete[](void* place, std::size_t) noexcept {
    std::free(place);
}

#endif  // KXTEST_SANITIZER_HOOK
