// SPDX-License-Identifier: MIT
#include "HuffmanCode.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>

namespace kxcodecs {
namespace {

constexpr unsigned kMostBits = 15;

// Depth of each leaf of a Huffman tree, by ascending weight. There are at least two.
std::vector<unsigned> Depths(std::span<const uint64_t> leaves) {
    const std::size_t count = leaves.size();
    std::vector<uint64_t> weights(leaves.begin(), leaves.end());
    std::vector<std::size_t> parents(count + count - 1, 0);
    // Joints come about by ascending weight too, so the lightest two are always at the front of one of both
    // lists.
    std::size_t leaf = 0;
    std::size_t joint = count;
    const auto takeLightest = [&] {
        const bool isLeaf = leaf < count && (joint == weights.size() || weights[leaf] <= weights[joint]);
        const std::size_t taken = isLeaf ? leaf++ : joint++;
        parents[taken] = weights.size();
        return weights[taken];
    };
    while (weights.size() < parents.size()) {
        const uint64_t first = takeLightest();
        const uint64_t second = takeLightest();
        weights.push_back(first + second);
    }
    std::vector<unsigned> depths(parents.size(), 0);
    for (std::size_t node = parents.size() - 1; node-- > 0;)
        depths[node] = depths[parents[node]] + 1;
    depths.resize(count);
    return depths;
}

}  // namespace

std::vector<uint8_t> HuffmanLengths(std::span<const uint32_t> counts, unsigned mostBits) {
    std::vector<uint8_t> lengths(counts.size(), 0);
    std::vector<std::size_t> symbols;
    for (std::size_t symbol = 0; symbol < counts.size(); ++symbol) {
        if (counts[symbol] != 0) symbols.push_back(symbol);
    }
    if (symbols.size() == 1) lengths[symbols.front()] = 1;
    if (symbols.size() < 2) return lengths;
    std::sort(symbols.begin(), symbols.end(), [&](std::size_t a, std::size_t b) {
        return counts[a] != counts[b] ? counts[a] < counts[b] : a < b;
    });
    std::vector<uint64_t> weights;
    for (const std::size_t symbol : symbols)
        weights.push_back(counts[symbol]);
    std::vector<unsigned> depths = Depths(weights);
    // Where the rarest become too long, all weights move closer together; at last all are 1.
    while (*std::max_element(depths.begin(), depths.end()) > mostBits) {
        for (uint64_t& weight : weights)
            weight = (weight + 1) / 2;
        depths = Depths(weights);
    }
    for (std::size_t i = 0; i < symbols.size(); ++i)
        lengths[symbols[i]] = static_cast<uint8_t>(depths[i]);
    return lengths;
}

std::vector<uint16_t> HuffmanCodes(std::span<const uint8_t> lengths) {
    std::array<uint32_t, kMostBits + 2> next{};
    for (const uint8_t length : lengths) {
        if (length != 0) ++next[length + 1U];
    }
    // From how many codes have a length to the first code of each.
    uint32_t first = 0;
    for (unsigned bits = 1; bits <= kMostBits; ++bits) {
        first = (first + next[bits]) * 2;
        next[bits] = first;
    }
    std::vector<uint16_t> codes(lengths.size(), 0);
    for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
        uint32_t code = lengths[symbol] == 0 ? 0 : next[lengths[symbol]]++;
        for (unsigned bit = 0; bit < lengths[symbol]; ++bit, code >>= 1)
            codes[symbol] = static_cast<uint16_t>(codes[symbol] * 2U + (code & 1));
    }
    return codes;
}

}  // namespace kxcodecs
