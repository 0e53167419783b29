// SPDX-License-Identifier: MIT
// What the tests of readers of points share.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <string>
#include <vector>

#include "TestTools.h"

namespace kxexchange::testing {

template <class Bits>
inline void Put(std::string& out, Bits bits, bool bigEndian = false) {
    for (size_t i = 0; i < sizeof bits; ++i)
        out += static_cast<char>(bits >> (8 * (bigEndian ? sizeof bits - 1 - i : i)) & 0xff);
}
inline void PutFloat(std::string& out, float value, bool bigEndian = false) {
    Put(out, std::bit_cast<uint32_t>(value), bigEndian);
}
inline void PutDouble(std::string& out, double value, bool bigEndian = false) {
    Put(out, std::bit_cast<uint64_t>(value), bigEndian);
}

// All points of a source without grid.
inline std::vector<Cell> ReadPoints(ScanSource& source, uint64_t index = 0) {
    const ScanDescription description = source.OpenScan(index);
    EXPECT_FALSE(description.HasGrid());
    std::vector<Cell> all, cells;
    while (source.ReadColumns(1, cells) != 0)
        all.insert(all.end(), cells.begin(), cells.end());
    return all;
}

inline void ExpectRefused(const std::string& bytes, const std::string& name, const std::string& words) {
    try {
        const auto source = SourceOf(bytes, name);
        source->OpenScan(0);
        std::vector<Cell> cells;
        while (source->ReadColumns(16, cells) != 0) {
        }
        ADD_FAILURE() << "not refused: " << words;
    } catch (const SourceFormatException& e) {
        EXPECT_NE(e.Context().detail.find(words), std::string::npos) << e.Context().detail;
        EXPECT_TRUE(e.Context().offset.has_value());
        EXPECT_EQ(e.Context().file, name);
    }
}

// Cut anywhere and with any byte changed: refused or read, nothing else.
inline void ExpectTotal(const std::string& bytes, const std::string& name) {
    const auto consume = [&](const std::string& damaged) {
        try {
            const auto source = SourceOf(damaged, name);
            source->OpenScan(0);
            std::vector<Cell> cells;
            uint64_t rounds = 0;
            while (source->ReadColumns(16, cells) != 0)
                ASSERT_LT(++rounds, 100000u);
        } catch (const SourceFormatException& e) {
            EXPECT_FALSE(e.Context().detail.empty());
        }
    };
    for (size_t length = 0; length < bytes.size(); ++length)
        consume(bytes.substr(0, length));
    for (size_t i = 0; i < bytes.size(); ++i) {
        for (const int change : {1, 0x80, 0x0f}) {
            std::string damaged = bytes;
            damaged[i] = static_cast<char>(damaged[i] ^ change);
            consume(damaged);
        }
    }
}

}  // namespace kxexchange::testing
