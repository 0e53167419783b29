// SPDX-License-Identifier: MIT
#pragma once

namespace kxtest {

// GCC tells its sanitizers by macros, Clang by features.
#if defined(__has_feature)
inline constexpr bool kAddressSanitizer = __has_feature(address_sanitizer);
inline constexpr bool kThreadSanitizer = __has_feature(thread_sanitizer);
#else
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kAddressSanitizer = true;
#else
inline constexpr bool kAddressSanitizer = false;
#endif
#if defined(__SANITIZE_THREAD__)
inline constexpr bool kThreadSanitizer = true;
#else
inline constexpr bool kThreadSanitizer = false;
#endif
#endif

}  // namespace kxtest
