// SPDX-License-Identifier: MIT
#pragma once

/// KXBASE_EXPORT marks what the shared library shows; everything else stays hidden.
#if defined(_WIN32)
#if defined(KXBASE_BUILDING)
#define KXBASE_EXPORT __declspec(dllexport)
#else
#define KXBASE_EXPORT __declspec(dllimport)
#endif
#else
#define KXBASE_EXPORT __attribute__((visibility("default")))
#endif
