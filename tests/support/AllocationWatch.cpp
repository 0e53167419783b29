// SPDX-License-Identifier: MIT
#include "support/AllocationWatch.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t g_largest = 0;

void* Allocate(std::size_t bytes) {
    g_largest = std::max(g_largest, bytes);
    void* place = std::malloc(bytes == 0 ? 1 : bytes);
    if (place == nullptr) throw std::bad_alloc();
    return place;
}

}  // namespace

namespace kxtest {

AllocationWatch::AllocationWatch() {
    g_largest = 0;
}
std::size_t AllocationWatch::Largest() const {
    return g_largest;
}

}  // namespace kxtest

// The other forms of the standard library end in these.
void* operator new(std::size_t bytes) {
    return Allocate(bytes);
}
void* operator new[](std::size_t bytes) {
    return Allocate(bytes);
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
