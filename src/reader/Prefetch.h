// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace kxio {

/// Reads a file once from front to back in blocks, so that the operating system holds it in its cache.
/// Opens the file itself, shares nothing, throws nothing. The body of the detached prefetch thread.
void FillUpOSCache(std::wstring path, uint64_t block) noexcept;

/// Starts `FillUpOSCache` on a detached thread.
/// \throws boost::thread_resource_error when no thread can be had
void StartPrefetch(const std::wstring& path, uint64_t block);

}  // namespace kxio
