// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "CompareScan.h"

/// One way to pack the values of a patch. Both functions may run in several threads at once.
struct CompareWay {
    using Bytes = std::vector<unsigned char>;
    std::string name;
    std::function<void(const ComparePatch& patch, Bytes& packed)> pack;
    /// Into `out`, which has as many bytes as the patch; of it, only the shape counts. False when it fails.
    std::function<bool(const ComparePatch& patch, const Bytes& packed, unsigned char* out)> unpack;
    /// Whether it can pack such elements; null: any.
    std::function<bool(uint32_t elementBytes)> takes;
};

/// A memory copy and general compressors, then the codecs of this project.
void AddPlainWays(std::vector<CompareWay>& ways);
void AddOwnWays(std::vector<CompareWay>& ways);
/// Array and image compressors that were there when this was built.
void AddPeerWays(std::vector<CompareWay>& ways);
/// Compressors of points, for the component that AddPoints makes.
void AddPointWays(std::vector<CompareWay>& ways);
