// SPDX-License-Identifier: MIT
#pragma once

/// KXCODECS_EXPORT marks what the shared library shows; everything else stays hidden.
#if defined(_WIN32)
#if defined(KXCODECS_BUILDING)
#define KXCODECS_EXPORT __declspec(dllexport)
#else
#define KXCODECS_EXPORT __declspec(dllimport)
#endif
#else
#define KXCODECS_EXPORT __attribute__((visibility("default")))
#endif
