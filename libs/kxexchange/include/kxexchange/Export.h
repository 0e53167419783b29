// SPDX-License-Identifier: MIT
#pragma once

/// KXEXCHANGE_EXPORT marks what the shared library shows; everything else stays hidden.
#if defined(_WIN32)
#if defined(KXEXCHANGE_BUILDING)
#define KXEXCHANGE_EXPORT __declspec(dllexport)
#else
#define KXEXCHANGE_EXPORT __declspec(dllimport)
#endif
#else
#define KXEXCHANGE_EXPORT __attribute__((visibility("default")))
#endif
