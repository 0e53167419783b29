// SPDX-License-Identifier: MIT
#include "AllocationWatch.h"

#include <atomic>
#include <cstdlib>
#include <new>

// Clang's sanitizer runtimes bring operators of their own, which cannot be replaced, and a hook instead.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KXCODECS_SANITIZER_HOOK
#include <sanitizer/allocator_interface.h>
#endif
#endif

namespace {

std::atomic<bool> watching{false};
std::atomic<std::size_t> largest{0};

void Note(std::size_t bytes) noexcept {
    if (!watching) return;
    std::size_t before = largest;
    while (before < bytes && !largest.compare_exchange_weak(before, bytes)) {
    }
}

}  // namespace

#ifdef KXCODECS_SANITIZER_HOOK

namespace {

void OnAllocation(const volatile void* /*memory*/, std::size_t bytes) {
    Note(bytes);
}
void OnRelease(const volatile void* /*memory*/) {}
const int installed = __sanitizer_install_malloc_and_free_hooks(OnAllocation, OnRelease);

}  // namespace

#else

namespace {

void* Allocate(std::size_t bytes) noexcept {
    Note(bytes);
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void* AllocateOrThrow(std::size_t bytes) {
    void* memory = Allocate(bytes);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

}  // namespace

// Replacements for the whole test program; the aligned forms are left alone, codecs do not use them.
void* operator new(std::size_t bytes) {
    return AllocateOrThrow(bytes);
}
void* operator new[](std::size_t bytes) {
    return AllocateOrThrow(bytes);
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return Allocate(bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
    return Allocate(bytes);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

#endif

namespace kxcodecs::test {

AllocationWatch::AllocationWatch() {
    largest = 0;
    watching = true;
}
AllocationWatch::~AllocationWatch() {
    watching = false;
}
std::size_t AllocationWatch::Largest() const {
    return largest;
}

}  // namespace kxcodecs::test
