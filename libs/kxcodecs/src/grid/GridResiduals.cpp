// SPDX-License-Identifier: MIT
#include "grid/GridResiduals.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace kxcodecs::grid {
namespace {

// About what an exception takes: its place and how much more.
constexpr uint32_t kExceptionBits = 20;
// Tokens of a block whose residuals are 2^k in the mean: about 2^kTokenBits.
constexpr uint32_t kTokenBits = 3;

// Without tokens: the width that takes the fewest bits, exceptions included.
uint32_t ExponentForWidths(const uint32_t* residuals, uint32_t count) {
    uint32_t ofLength[33] = {};
    for (uint32_t i = 0; i < count; ++i)
        ++ofLength[std::bit_width(residuals[i])];
    uint32_t best = kMostExponent, longer = 0;
    uint64_t least = ~uint64_t{0};
    for (uint32_t width = 32;; --width) {
        if (width <= kMostExponent) {
            const uint64_t bits = uint64_t{width} * count + uint64_t{kExceptionBits} * longer;
            if (bits <= least && (longer < kMostToken || least == ~uint64_t{0})) {
                least = bits;
                best = width;
            }
        }
        if (width == 0) break;
        longer += ofLength[width];
    }
    return best;
}

uint32_t ExponentForTokens(const uint32_t* residuals, uint32_t count) {
    uint64_t sum = 0;
    for (uint32_t i = 0; i < count; ++i)
        sum += residuals[i];
    const auto size = static_cast<uint32_t>(std::bit_width(sum / std::max(1U, count)));
    return std::min(kMostExponent, size > kTokenBits ? size - kTokenBits : 0);
}

// The better of the exponents around the first guess, once it is known how often each token appears.
class TokenCosts {
public:
    explicit TokenCosts(const std::vector<uint8_t>& tokens) {
        uint32_t counts[kMostToken + 1] = {};
        for (const uint8_t token : tokens)
            ++counts[token];
        const double total = static_cast<double>(tokens.size()) + kMostToken + 1;
        for (uint32_t token = 0; token <= kMostToken; ++token) {
            // In sixteenths of a bit; no code of the packer is longer than 11 bits.
            m_costs[token] =
                static_cast<uint32_t>(std::min(11.0, std::log2(total / (counts[token] + 1))) * 16);
        }
    }
    uint32_t Improve(const uint32_t* residuals, uint32_t count, uint32_t guess) const {
        uint32_t best = guess;
        uint64_t least = ~uint64_t{0};
        const uint32_t first = guess > 1 ? guess - 2 : 0, last = std::min(kMostExponent, guess + 2);
        for (uint32_t exponent = first; exponent <= last; ++exponent) {
            uint64_t cost = uint64_t{16} * exponent * count;
            for (uint32_t i = 0; i < count; ++i) {
                const uint32_t token = residuals[i] >> exponent;
                cost += token < kMostToken ? m_costs[token] : m_costs[kMostToken] + 16 * kExceptionBits;
            }
            if (cost < least) {
                least = cost;
                best = exponent;
            }
        }
        return best;
    }

private:
    uint32_t m_costs[kMostToken + 1];
};

}  // namespace

bool PartResiduals(const GridPlan& plan, bool withTokens, GridResiduals& out) {
    const std::size_t blocks = plan.counts.size();
    out.exponents.assign(blocks, 0);
    const auto forBlocks = [&](const auto& visit) {
        const uint32_t* residuals = plan.residuals.data();
        for (std::size_t i = 0; i < blocks; ++i) {
            visit(i, residuals, uint32_t{plan.counts[i]});
            residuals += plan.counts[i];
        }
    };
    forBlocks([&](std::size_t i, const uint32_t* residuals, uint32_t count) {
        if (count == 0) return;
        out.exponents[i] = static_cast<uint8_t>(withTokens ? ExponentForTokens(residuals, count)
                                                           : ExponentForWidths(residuals, count));
    });
    if (withTokens) {
        for (int round = 0; round < 2; ++round) {
            out.tokens.clear();
            forBlocks([&](std::size_t i, const uint32_t* residuals, uint32_t count) {
                for (uint32_t k = 0; k < count; ++k)
                    out.tokens.push_back(
                        static_cast<uint8_t>(std::min(kMostToken, residuals[k] >> out.exponents[i])));
            });
            const TokenCosts costs(out.tokens);
            forBlocks([&](std::size_t i, const uint32_t* residuals, uint32_t count) {
                if (count > 0)
                    out.exponents[i] =
                        static_cast<uint8_t>(costs.Improve(residuals, count, out.exponents[i]));
            });
        }
        out.tokens.clear();
    }

    out.exceptionCounts.assign(blocks, 0);
    bool good = true;
    forBlocks([&](std::size_t i, const uint32_t* residuals, uint32_t count) {
        const uint32_t exponent = out.exponents[i];
        std::vector<uint16_t>& low = out.low[exponent];
        uint32_t exceptions = 0;
        for (uint32_t k = 0; k < count; ++k) {
            const uint32_t residual = residuals[k], high = residual >> exponent;
            const uint32_t token = withTokens ? std::min(high, kMostToken) : 0;
            low.push_back(static_cast<uint16_t>(residual & ((uint32_t{1} << exponent) - 1)));
            if (withTokens) out.tokens.push_back(static_cast<uint8_t>(token));
            if (high > token) {
                ++exceptions;
                out.exceptionPlaces.push_back(static_cast<uint8_t>(k));
                out.exceptionMore.push_back(high - token);
            }
        }
        good = good && exceptions <= std::numeric_limits<uint8_t>::max();
        out.exceptionCounts[i] = static_cast<uint8_t>(exceptions);
    });
    return good;
}

}  // namespace kxcodecs::grid
