// SPDX-License-Identifier: MIT
#pragma once

/// KXIO_EXPORT marks what the shared library shows; everything else stays hidden.
#if defined(_WIN32)
#if defined(KXIO_BUILDING)
#define KXIO_EXPORT __declspec(dllexport)
#else
#define KXIO_EXPORT __declspec(dllimport)
#endif
#else
#define KXIO_EXPORT __attribute__((visibility("default")))
#endif
