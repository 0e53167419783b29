// SPDX-License-Identifier: MIT
#include "DeflatePairs.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "HuffmanCode.h"

namespace kxcodecs {
namespace {

constexpr std::size_t kDistance = 16;
constexpr std::size_t kShortestMatch = 3;
constexpr std::size_t kLongestMatch = 258;
// What happens next in a block: a byte, its end, or, added to it, a match of that length.
using Token = uint16_t;
constexpr Token kEnd = 256;
constexpr std::size_t kTokens = kEnd + kLongestMatch + 1;
constexpr std::size_t kBlockTokens = std::size_t{1} << 16;

// Symbols of deflate's first alphabet.
constexpr std::size_t kSymbols = 286;
constexpr unsigned kSymbolBits = 15;
constexpr std::size_t kFirstLengthSymbol = 257;
constexpr std::array<uint16_t, 29> kLengthBases = {3,  4,  5,  6,   7,   8,   9,   10,  11, 13,
                                                   15, 17, 19, 23,  27,  31,  35,  43,  51, 59,
                                                   67, 83, 99, 115, 131, 163, 195, 227, 258};
// Distances 13 to 16 share a symbol and tell themselves apart by two more bits.
constexpr unsigned kDistanceSymbol = 7;
constexpr uint32_t kDistanceExtra = 3;
constexpr unsigned kDistanceExtraBits = 2;

struct Code {
    uint32_t bits = 0;
    unsigned count = 0;
};

// Which base each length belongs to. The longest has one of its own.
constexpr auto kLengthIndices = [] {
    std::array<uint8_t, kLongestMatch + 1> indices{};
    for (std::size_t length = kShortestMatch, index = 0; length <= kLongestMatch; ++length) {
        if (index + 1 < kLengthBases.size() && length == kLengthBases[index + 1]) ++index;
        indices[length] = static_cast<uint8_t>(index);
    }
    return indices;
}();

unsigned LengthExtraBits(std::size_t index) {
    return index < 8 || index == kLengthBases.size() - 1 ? 0 : static_cast<unsigned>(index - 4) / 4;
}

std::size_t SymbolOf(std::size_t token) {
    return token <= kEnd ? token : kFirstLengthSymbol + kLengthIndices[token - kEnd];
}

// Bits into bytes, the first one lowest.
class BitWriter {
public:
    explicit BitWriter(std::vector<unsigned char>& out) : m_out(out) {}

    void Put(Code code) {
        m_held |= uint64_t{code.bits} << m_count;
        m_count += code.count;
        for (; m_count >= 8; m_count -= 8, m_held >>= 8)
            m_out.push_back(static_cast<unsigned char>(m_held));
    }
    void Put(uint32_t bits, unsigned count) { Put({bits, count}); }
    void FillByte() {
        if (m_count != 0) Put(0, 8 - m_count);
    }

private:
    std::vector<unsigned char>& m_out;
    uint64_t m_held = 0;
    unsigned m_count = 0;
};

std::vector<Token> Tokens(std::span<const unsigned char> bytes) {
    std::vector<Token> tokens;
    tokens.reserve(bytes.size() / 3);
    for (std::size_t at = 0; at < bytes.size();) {
        std::size_t length = 0;
        if (at >= kDistance) {
            const std::size_t most = std::min(kLongestMatch, bytes.size() - at);
            while (length < most && bytes[at + length] == bytes[at + length - kDistance])
                ++length;
        }
        const bool isMatch = length >= kShortestMatch;
        tokens.push_back(isMatch ? static_cast<Token>(kEnd + length) : bytes[at]);
        at += isMatch ? length : 1;
    }
    return tokens;
}

// What each token is written as, a match with its distance.
std::array<Code, kTokens> TokenCodes(std::span<const uint8_t> lengths, Code distance) {
    const std::vector<uint16_t> codes = HuffmanCodes(lengths);
    distance.bits |= kDistanceExtra << distance.count;
    distance.count += kDistanceExtraBits;
    std::array<Code, kTokens> made{};
    for (std::size_t token = 0; token < kTokens; ++token) {
        if (token > kEnd && token < kEnd + kShortestMatch) continue;
        const std::size_t symbol = SymbolOf(token);
        Code& code = made[token];
        code = {codes[symbol], lengths[symbol]};
        if (token <= kEnd) continue;
        const std::size_t index = symbol - kFirstLengthSymbol;
        code.bits |= static_cast<uint32_t>(token - kEnd - kLengthBases[index]) << code.count;
        code.count += LengthExtraBits(index);
        code.bits |= distance.bits << code.count;
        code.count += distance.count;
    }
    return made;
}

uint64_t BitsOf(std::span<const uint32_t> tokenCounts, const std::array<Code, kTokens>& codes) {
    uint64_t bits = 0;
    for (std::size_t token = 0; token < kTokens; ++token)
        bits += uint64_t{tokenCounts[token]} * codes[token].count;
    return bits;
}

// The code that needs no description.
const std::array<Code, kTokens>& FixedCodes() {
    static const std::array<Code, kTokens> codes = [] {
        std::vector<uint8_t> lengths(kSymbols + 2, 8);
        std::fill(lengths.begin() + 144, lengths.begin() + 256, uint8_t{9});
        std::fill(lengths.begin() + 256, lengths.begin() + 280, uint8_t{7});
        const std::vector<uint16_t> distances = HuffmanCodes(std::vector<uint8_t>(30, 5));
        return TokenCodes(lengths, {distances[kDistanceSymbol], 5});
    }();
    return codes;
}

// The lengths of a code, packed as deflate describes them: runs first, then a code for the result.
class Description {
public:
    explicit Description(std::span<const uint8_t> symbolLengths) : m_symbols(symbolLengths.size()) {
        std::vector<uint8_t> all(symbolLengths.begin(), symbolLengths.end());
        all.resize(all.size() + kDistanceSymbol, 0);
        all.push_back(1);  // the only distance
        for (std::size_t at = 0; at < all.size();) {
            const auto end = std::find_if(all.begin() + static_cast<std::ptrdiff_t>(at), all.end(),
                                          [&](uint8_t length) { return length != all[at]; });
            const std::size_t run = static_cast<std::size_t>(end - all.begin()) - at;
            at += AddRun(all[at], run, at != 0 && all[at - 1] == all[at]);
        }
        std::vector<uint32_t> counts(kLengthSymbols, 0);
        for (const auto& [symbol, extra] : m_items)
            ++counts[symbol];
        m_lengths = HuffmanLengths(counts, 7);
        m_codes = HuffmanCodes(m_lengths);
        while (m_lengths[kOrder[m_written - 1]] == 0)
            --m_written;
    }

    uint64_t Bits() const {
        uint64_t bits = 5 + 5 + 4 + 3 * m_written;
        for (const auto& [symbol, extra] : m_items)
            bits += m_lengths[symbol] + ExtraBits(symbol);
        return bits;
    }
    void Write(BitWriter& out) const {
        out.Put(static_cast<uint32_t>(m_symbols - kFirstLengthSymbol), 5);
        out.Put(kDistanceSymbol, 5);
        out.Put(static_cast<uint32_t>(m_written - 4), 4);
        for (std::size_t i = 0; i < m_written; ++i)
            out.Put(m_lengths[kOrder[i]], 3);
        for (const auto& [symbol, extra] : m_items) {
            out.Put(m_codes[symbol], m_lengths[symbol]);
            out.Put(extra, ExtraBits(symbol));
        }
    }

private:
    static constexpr std::size_t kLengthSymbols = 19;
    static constexpr uint8_t kAgain = 16, kZeros = 17, kManyZeros = 18;
    static constexpr std::array<uint8_t, kLengthSymbols> kOrder = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                                   11, 4,  12, 3, 13, 2, 14, 1, 15};

    static unsigned ExtraBits(uint8_t symbol) {
        return symbol == kAgain ? 2 : symbol == kZeros ? 3 : symbol == kManyZeros ? 7 : 0;
    }
    // Describes as much of a run as one symbol can; tells how much.
    std::size_t AddRun(uint8_t length, std::size_t run, bool goesOn) {
        if (length == 0 && run >= 11) return Add(kManyZeros, 11, std::min<std::size_t>(run, 138));
        if (length == 0 && run >= 3) return Add(kZeros, 3, run);
        if (goesOn && length != 0 && run >= 3) return Add(kAgain, 3, std::min<std::size_t>(run, 6));
        return Add(length, 1, 1);
    }
    std::size_t Add(uint8_t symbol, std::size_t shortest, std::size_t run) {
        m_items.emplace_back(symbol, static_cast<uint8_t>(run - shortest));
        return run;
    }

    std::size_t m_symbols;
    std::vector<std::pair<uint8_t, uint8_t>> m_items;  // symbol and extra bits
    std::vector<uint8_t> m_lengths;
    std::vector<uint16_t> m_codes;
    std::size_t m_written = kLengthSymbols;  // how many lengths, in their order
};

void WriteBlock(std::span<const Token> tokens, BitWriter& out) {
    std::array<uint32_t, kTokens> tokenCounts{};
    for (const Token token : tokens)
        ++tokenCounts[token];
    tokenCounts[kEnd] = 1;
    std::vector<uint32_t> symbolCounts(kSymbols, 0);
    for (std::size_t token = 0; token < kTokens; ++token) {
        if (tokenCounts[token] != 0) symbolCounts[SymbolOf(token)] += tokenCounts[token];
    }
    std::vector<uint8_t> lengths = HuffmanLengths(symbolCounts, kSymbolBits);
    const std::array<Code, kTokens> own = TokenCodes(lengths, {0, 1});
    while (lengths.back() == 0)
        lengths.pop_back();
    const Description description(lengths);
    const bool isFixed = BitsOf(tokenCounts, FixedCodes()) <= BitsOf(tokenCounts, own) + description.Bits();
    const std::array<Code, kTokens>& codes = isFixed ? FixedCodes() : own;
    out.Put(0, 1);  // not the last
    out.Put(isFixed ? 1 : 2, 2);
    if (!isFixed) description.Write(out);
    for (const Token token : tokens)
        out.Put(codes[token]);
    out.Put(codes[kEnd]);
}

}  // namespace

void AppendDeflatedPairs(std::span<const unsigned char> bytes, std::vector<unsigned char>& out) {
    const std::vector<Token> tokens = Tokens(bytes);
    BitWriter bits(out);
    for (std::size_t first = 0; first < tokens.size(); first += kBlockTokens)
        WriteBlock(std::span(tokens).subspan(first, std::min(kBlockTokens, tokens.size() - first)), bits);
    // Nothing, stored: its length lies at the start of a byte.
    bits.Put(0, 3);
    bits.FillByte();
    bits.Put(0, 16);
    bits.Put(0xffff, 16);
}

}  // namespace kxcodecs
